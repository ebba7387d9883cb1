// Key-value file writers. They rewrite the whole file by tmp-and-rename and
// keep every other line (comments, blank lines, other keys) as it was. They
// take no lock: a read-modify-write shared between processes is the
// caller's to serialise.
#include <optional>
#include <vexoplatform/vexocore.h>

#include "frame/err.h"
#include "text_file.h"

namespace {

// Replaces the first line of key with `line` (or appends it) and drops any
// later duplicates; with no `line`, drops every line of key. 1 when the
// file changed, 0 when there was nothing to remove, -1 on failure.
int rewrite(const char *file, const char *key, const std::optional<std::string> &line)
{
	std::vector<std::string> lines;
	if (!vexo::core::readLines(file, lines)) {
		if (VLIBCErrGet() != VEXO_ERR_NOENT) {
			VEXO_ERR_PASS();
			return -1;
		}
		if (!line)
			return 0;
		lines.clear();
	}
	std::vector<std::string> out;
	out.reserve(lines.size() + 1);
	bool seen = false;
	for (auto &l : lines) {
		std::string_view k, v;
		if (vexo::core::parsePair(l, k, v) && k == key) {
			if (line && !seen)
				out.push_back(*line);
			seen = true;
			continue;
		}
		out.push_back(std::move(l));
	}
	if (!seen && !line)
		return 0;
	if (!seen)
		out.push_back(*line);
	if (!vexo::core::replaceFile(file, vexo::core::joinLines(out))) {
		VEXO_ERR_PASS();
		return -1;
	}
	return 1;
}

} // namespace

extern "C" {

VEXOP_API int VLIBCFileSetKeyValue(const char *file, const char *key, const char *value, const char *format)
try {
	std::string line;
	if (!file || !vexo::core::validKey(key) || !vexo::core::validValue(value) ||
	    !vexo::core::formatPair(format ? format : VLIBC_KV_TEMPLATE, key, value, line)) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	line.pop_back(); // joinLines puts the newline back
	if (rewrite(file, key, line) < 0) {
		VEXO_ERR_PASS();
		return -1;
	}
	return 1;
} VEXO_C_CATCH(-1)

VEXOP_API int VLIBCFileRemoveKey(const char *file, const char *key)
try {
	if (!file || !vexo::core::validKey(key)) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	int r = rewrite(file, key, std::nullopt);
	if (r < 0)
		VEXO_ERR_PASS();
	return r;
} VEXO_C_CATCH(-1)

} // extern "C"
