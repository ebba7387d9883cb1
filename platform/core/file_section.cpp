// Section files: "[name]" lines, each followed by its key=value lines up
// to the next header. Lines before the first header belong to no section.
// Keys are written with the key-value template and read back unquoted.
#include <vexoplatform/vexocore.h>

#include "frame/err.h"
#include "text_file.h"

namespace {

// Where a section stands: [header, end) with end the next header or EOF.
struct Span {
	size_t header = 0;
	size_t end = 0;
	bool found = false;
};

Span findSection(const std::vector<std::string> &lines, std::string_view section)
{
	Span s;
	for (size_t i = 0; i < lines.size(); ++i) {
		std::string_view name;
		if (!vexo::core::parseSectionHeader(lines[i], name))
			continue;
		if (s.found) {
			s.end = i;
			return s;
		}
		if (name == section) {
			s.found = true;
			s.header = i;
		}
	}
	s.end = lines.size();
	return s;
}

bool validSection(const char *section)
{
	if (!section)
		return false;
	std::string_view s(section);
	return !s.empty() && vexo::core::trim(s).size() == s.size() && s.find_first_of("[]\n\r") == std::string_view::npos;
}

// The body lines of hash; false on a key or value that would break the file.
bool bodyOf(PVLIBSZHASH hash, std::vector<std::string> &body)
{
	for (int i = 0; hash && i < hash->nItem; ++i) {
		std::string line;
		if (!vexo::core::validKey(hash->ppszKey[i]) || !vexo::core::validValue(hash->ppszValue[i]) ||
		    !vexo::core::formatPair(VLIBC_KV_TEMPLATE, hash->ppszKey[i], hash->ppszValue[i], line))
			return false;
		line.pop_back();
		body.push_back(std::move(line));
	}
	return true;
}

bool isBlank(const std::string &line) { return vexo::core::trim(line).empty(); }

} // namespace

extern "C" {

VEXOP_API int VLIBCFileGetSection(const char *file, const char *section, PVLIBSZHASH *pHash)
try {
	if (!file || !section || !pHash) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::vector<std::string> lines;
	if (!vexo::core::readLines(file, lines)) {
		VEXO_ERR_PASS();
		return -1;
	}
	Span s = findSection(lines, section);
	if (!s.found) {
		VEXO_ERR(VEXO_ERR_NOT_FOUND);
		return -1;
	}
	int n = vexo::core::pairsToHash(lines, s.header + 1, s.end, pHash);
	if (n < 0)
		VEXO_ERR_PASS();
	return n;
} VEXO_C_CATCH(-1)

VEXOP_API int VLIBCFileSetSection(const char *file, const char *section, PVLIBSZHASH hash)
try {
	std::vector<std::string> body;
	if (!file || !validSection(section) || !bodyOf(hash, body)) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::vector<std::string> lines;
	if (!vexo::core::readLines(file, lines)) {
		if (VLIBCErrGet() == VEXO_ERR_NOENT)
			return 0; // no file, so no such section
		VEXO_ERR_PASS();
		return -1;
	}
	Span s = findSection(lines, section);
	if (!s.found)
		return 0;
	// The blank lines that separate this section from the next one stay.
	size_t tail = s.end;
	while (tail > s.header + 1 && isBlank(lines[tail - 1]))
		--tail;
	std::vector<std::string> out(lines.begin(), lines.begin() + static_cast<long>(s.header) + 1);
	out.insert(out.end(), body.begin(), body.end());
	out.insert(out.end(), lines.begin() + static_cast<long>(tail), lines.end());
	if (!vexo::core::replaceFile(file, vexo::core::joinLines(out))) {
		VEXO_ERR_PASS();
		return -1;
	}
	return 1;
} VEXO_C_CATCH(-1)

VEXOP_API int VLIBCFileAddSection(const char *file, const char *section, PVLIBSZHASH hash)
try {
	std::vector<std::string> body;
	if (!file || !validSection(section) || !bodyOf(hash, body)) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::vector<std::string> lines;
	if (!vexo::core::readLines(file, lines)) {
		if (VLIBCErrGet() != VEXO_ERR_NOENT) {
			VEXO_ERR_PASS();
			return -1;
		}
		lines.clear();
	}
	if (findSection(lines, section).found)
		return 0;
	if (!lines.empty() && !isBlank(lines.back()))
		lines.emplace_back();
	lines.push_back("[" + std::string(section) + "]");
	lines.insert(lines.end(), body.begin(), body.end());
	if (!vexo::core::replaceFile(file, vexo::core::joinLines(lines))) {
		VEXO_ERR_PASS();
		return -1;
	}
	return 1;
} VEXO_C_CATCH(-1)

VEXOP_API int VLIBCFileRemoveSection(const char *file, const char *section)
try {
	if (!file || !section) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::vector<std::string> lines;
	if (!vexo::core::readLines(file, lines)) {
		if (VLIBCErrGet() == VEXO_ERR_NOENT)
			return 0;
		VEXO_ERR_PASS();
		return -1;
	}
	Span s = findSection(lines, section);
	if (!s.found)
		return 0;
	lines.erase(lines.begin() + static_cast<long>(s.header), lines.begin() + static_cast<long>(s.end));
	if (!vexo::core::replaceFile(file, vexo::core::joinLines(lines))) {
		VEXO_ERR_PASS();
		return -1;
	}
	return 1;
} VEXO_C_CATCH(-1)

VEXOP_API int VLIBCFileEnumSection(const char *file, PVLIBSZLIST *pList)
try {
	if (!file || !pList || !*pList) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::vector<std::string> lines;
	if (!vexo::core::readLines(file, lines)) {
		VEXO_ERR_PASS();
		return -1;
	}
	int count = 0;
	for (const auto &line : lines) {
		std::string_view name;
		if (!vexo::core::parseSectionHeader(line, name))
			continue;
		if (VLIBCSzListPush(pList, std::string(name).c_str()) < 0) {
			VEXO_ERR_PASS();
			return -1;
		}
		++count;
	}
	return count;
} VEXO_C_CATCH(-1)

} // extern "C"
