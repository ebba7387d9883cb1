// The attribute table of "smartctl -A": one row per attribute, ten columns
// (ID# ATTRIBUTE_NAME FLAG VALUE WORST THRESH TYPE UPDATED WHEN_FAILED
// RAW_VALUE), the raw value possibly printed as several words. Works on any
// stream so that it can be driven from memory as well as from the tool.
#include <array>
#include <cstring>
#include <string_view>

#include "frame/err.h"
#include "smartctl/smart_info_list.h"

namespace vexo::smart {
namespace {

constexpr size_t kLineMax = 256; // with the terminator
constexpr size_t kColumns = 10;
// 0-based token positions of the fields we keep
constexpr size_t kId = 0, kName = 1, kValue = 3, kWorst = 4, kThreshold = 5, kRaw = 9;

// One line, without its newline (LF or CRLF), cut at kLineMax-1 bytes: the
// rest of a longer line is read and dropped. False at the end of the stream
// with nothing read.
bool readLine(std::FILE *in, std::array<char, kLineMax> &buf, size_t &len)
{
	len = 0;
	int c;
	bool any = false;
	while ((c = std::getc(in)) != EOF) {
		any = true;
		if (c == '\n')
			break;
		if (len + 1 < buf.size())
			buf[len++] = static_cast<char>(c);
	}
	if (len > 0 && buf[len - 1] == '\r')
		--len;
	buf[len] = '\0';
	return any;
}

// Splits at single spaces, runs of them counting as one. Returns how many
// of the first `max` tokens there are; later ones are not looked at.
size_t split(std::string_view line, std::array<std::string_view, kColumns> &tokens)
{
	size_t n = 0, i = 0;
	while (n < tokens.size()) {
		while (i < line.size() && line[i] == ' ')
			++i;
		if (i >= line.size())
			break;
		size_t end = line.find(' ', i);
		if (end == std::string_view::npos)
			end = line.size();
		tokens[n++] = line.substr(i, end - i);
		i = end;
	}
	return n;
}

bool sameId(const char *a, const char *b)
{
	if (!a || !b)
		return false;
	if (std::strcmp(a, b) == 0)
		return true;
	// "#05" in an override and "5" from the tool are the same attribute.
	char *ea = nullptr, *eb = nullptr;
	long x = std::strtol(a, &ea, 10), y = std::strtol(b, &eb, 10);
	return ea != a && *ea == '\0' && eb != b && *eb == '\0' && x == y;
}

const SmartInfoEntry *findOverride(const SmartInfoEntry *overrides, const char *id)
{
	for (const SmartInfoEntry *o = overrides; o; o = o->next)
		if (sameId(o->id, id))
			return o;
	return nullptr;
}

bool applyOverride(SmartInfoEntry &e, const SmartInfoEntry &o)
{
	const struct {
		char *&field;
		const char *text;
	} fields[] = {{e.value, o.value}, {e.worst, o.worst}, {e.threshold, o.threshold}, {e.raw, o.raw}};
	for (const auto &f : fields)
		if (f.text && std::strcmp(f.text, "SKIP") != 0 && !setField(f.field, f.text))
			return false;
	return true;
}

} // namespace

bool smartInfoTableSkipHeading(std::FILE *in)
{
	std::array<char, kLineMax> buf;
	size_t len;
	while (readLine(in, buf, len))
		if (std::strstr(buf.data(), "ID#"))
			return true;
	return false;
}

int smartInfoTableParse(std::FILE *in, const SmartInfoEntry *overrides, bool dropUnlisted, SmartInfoEntry **out)
{
	*out = nullptr;
	ListBuilder list;
	std::array<char, kLineMax> buf;
	size_t len;
	while (readLine(in, buf, len)) {
		// A NUL in the output ends the text of its line.
		std::string_view line(buf.data(), std::strlen(buf.data()));
		if (line.empty())
			break;
		std::array<std::string_view, kColumns> t;
		if (split(line, t) < kColumns) {
			vlog(LOG_ERR, "%s:%d Unexpected smart attribute line [%s]", VEXO_AT, buf.data());
			VEXO_ERR(VEXO_ERR_NOT_FOUND);
			return -1;
		}
		char id[kLineMax];
		std::snprintf(id, sizeof(id), "%.*s", static_cast<int>(t[kId].size()), t[kId].data());
		const SmartInfoEntry *o = overrides ? findOverride(overrides, id) : nullptr;
		if (overrides && dropUnlisted && !o)
			continue;
		SmartInfoEntry *e = newEntry(t[kId], t[kName], t[kValue], t[kWorst], t[kThreshold], t[kRaw]);
		if (!e || (o && !applyOverride(*e, *o))) {
			VEXODiskSmartInfoFree(e);
			vlog(LOG_ERR, "%s:%d Out of memory", VEXO_AT);
			VEXO_ERR(VEXO_ERR_LIST_ALLOC);
			return -1;
		}
		e->status = attrStatus(e->value, e->worst, e->threshold);
		list.append(e);
	}
	*out = list.release();
	return 0;
}

} // namespace vexo::smart
