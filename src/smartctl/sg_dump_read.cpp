#include "smartctl/sg_dump_read.h"

#include <cctype>
#include <cstddef>
#include <vector>

namespace vexo::smart {
namespace {

constexpr unsigned kSctLine = 185;       // reached first by the line of 0xc0
constexpr unsigned kSctSkip = 8;         // 0xc0 + 8 = byte 200
constexpr int kSctTemperatureLimit = 101;
constexpr unsigned kIdentifyLine = 199;  // reached first by the line of word 0xc8
constexpr unsigned kIdentifyWord = 6;    // the seventh word: 0xc8 + 6 = word 206
constexpr std::string_view kIdentifyHeading = "Response for IDENTIFY DEVICE ATA";

bool isHex(char c) { return std::isxdigit(static_cast<unsigned char>(c)) != 0; }

unsigned hexValue(std::string_view s)
{
	unsigned v = 0;
	for (char c : s)
		v = v * 16 + static_cast<unsigned>(std::isdigit(static_cast<unsigned char>(c)) ? c - '0'
											: (std::tolower(static_cast<unsigned char>(c)) - 'a' + 10));
	return v;
}

struct DumpLine {
	unsigned offset = 0;
	std::vector<unsigned> fields;
};

// One line of a dump; false when its first field is not a hex offset.
bool parseLine(std::string_view line, std::size_t digits, std::size_t maxFields, DumpLine &out)
{
	std::size_t i = 0;
	while (i < line.size() && (line[i] == ' ' || line[i] == '\t'))
		++i;
	std::size_t start = i;
	while (i < line.size() && isHex(line[i]))
		++i;
	// Eight digits hold any offset a 32-bit count can reach.
	if (i == start || i - start > 8 || (i < line.size() && line[i] != ' ' && line[i] != '\t'))
		return false;
	out.offset = hexValue(line.substr(start, i - start));
	out.fields.clear();
	while (out.fields.size() < maxFields) {
		std::size_t gap = 0;
		while (i < line.size() && line[i] == ' ') {
			++i;
			++gap;
		}
		// The offset stands apart from the data by any gap; within the data
		// a gap of three or more is where the ASCII column begins.
		if (gap == 0 || (gap >= 3 && !out.fields.empty()) || i >= line.size())
			break;
		std::size_t t = i;
		while (i < line.size() && line[i] != ' ')
			++i;
		std::string_view token = line.substr(t, i - t);
		if (token.size() != digits)
			break;
		for (char c : token)
			if (!isHex(c))
				return true;
		out.fields.push_back(hexValue(token));
	}
	return true;
}

// Calls fn for each line of text; stops when fn returns false.
template <typename Fn>
void eachLine(std::string_view text, Fn fn)
{
	while (!text.empty()) {
		std::size_t nl = text.find('\n');
		std::string_view line = text.substr(0, nl);
		if (!line.empty() && line.back() == '\r')
			line.remove_suffix(1);
		if (!fn(line))
			return;
		if (nl == std::string_view::npos)
			return;
		text.remove_prefix(nl + 1);
	}
}

// The field at index of the first dump line whose offset reaches `reach`,
// or -1.
int fieldAt(std::string_view text, std::size_t digits, std::size_t maxFields, unsigned reach, unsigned index)
{
	int result = -1;
	DumpLine d;
	eachLine(text, [&](std::string_view line) {
		if (!parseLine(line, digits, maxFields, d) || d.offset < reach)
			return true;
		if (index < d.fields.size())
			result = static_cast<int>(d.fields[index]);
		return false;
	});
	return result;
}

} // namespace

int sctTemperatureFromDump(std::string_view text)
{
	int t = fieldAt(text, 2, 16, kSctLine, kSctSkip);
	return t >= kSctTemperatureLimit ? -1 : t;
}

int sctSupportFromIdentifyDump(std::string_view text)
{
	std::size_t at = text.find(kIdentifyHeading);
	if (at == std::string_view::npos)
		return -1;
	text.remove_prefix(at);
	std::size_t nl = text.find('\n');
	if (nl == std::string_view::npos)
		return -1;
	text.remove_prefix(nl + 1);
	int word = fieldAt(text, 4, 8, kIdentifyLine, kIdentifyWord);
	return word < 0 ? -1 : (word & 1);
}

} // namespace vexo::smart
