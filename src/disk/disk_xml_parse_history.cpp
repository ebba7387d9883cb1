// VEXODiskXmlParseHistory: the twelve months of a disk's health history
// kept in the `history` child of its element, laid out for the clock's
// current month. Months are "YYYY/MM,unc,idnf,retry,life" joined by ';'.
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>
#include <string_view>
#include <vexohw/disk_overview.h>

#include "frame/boundary.h"
#include "frame/clock.h"
#include "frame/err.h"
#include "frame/log.h"
#include "disk/overview_doc.h"

using namespace vexo::overview;

namespace {

constexpr int kMonths = 12;

// One field of a month: a whole non-negative number, or not recorded.
bool field(std::string_view f, int32_t &value)
{
	if (f.empty() || f.size() > 9)
		return false;
	int32_t v = 0;
	for (char c : f) {
		if (c < '0' || c > '9')
			return false;
		v = v * 10 + (c - '0');
	}
	value = v;
	return true;
}

// Fills `e` from one month's text when it is for month number `want`
// (year * 12 + month - 1); a month in another shape is passed over.
void month(std::string_view m, int first, DiskHealthHistoryEntry *entries)
{
	int year = 0, mon = 0, used = 0;
	std::string head(m.substr(0, 8));
	if (std::sscanf(head.c_str(), "%4d/%2d%n", &year, &mon, &used) != 2 || used != 7 || mon < 1 || mon > 12)
		return;
	int slot = year * 12 + mon - 1 - first;
	if (slot < 0 || slot >= kMonths || m.size() < 8 || m[7] != ',')
		return;
	DiskHealthHistoryEntry &e = entries[slot];
	int32_t *valid[] = {&e.uncValid, &e.idnfValid, &e.retryValid, &e.remainLifeValid};
	int32_t *value[] = {&e.unc, &e.idnf, &e.retry, &e.remainLife};
	std::string_view rest = m.substr(8);
	for (int i = 0; i < 4; ++i) {
		size_t comma = rest.find(',');
		std::string_view f = rest.substr(0, comma);
		*valid[i] = field(f, *value[i]) ? 1 : 0;
		if (!*valid[i])
			*value[i] = 0;
		if (comma == std::string_view::npos)
			break;
		rest.remove_prefix(comma + 1);
	}
}

} // namespace

extern "C" VEXO_API int VEXODiskXmlParseHistory(const char *path, DiskHealthHistoryEntry *entries, int size)
try {
	if (!path || !entries || size != kMonths) {
		vlog(LOG_ERR, "%s:%d Invalid arguments", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	vexo::xml::Doc doc;
	xmlNode *disk = readDiskElement(path, doc);
	if (!disk)
		return -1;
	std::time_t now = vexo::clock::wallSeconds();
	struct tm tm {};
	if (!localtime_r(&now, &tm)) {
		VEXO_ERR(VEXO_ERR_INTERNAL);
		return -1;
	}
	int first = (tm.tm_year + 1900) * 12 + tm.tm_mon - (kMonths - 1);
	std::memset(entries, 0, sizeof(*entries) * kMonths);
	std::string all = text(child(disk, "history"));
	std::string_view rest = all;
	while (!rest.empty()) {
		size_t semi = rest.find(';');
		month(trimmed(std::string(rest.substr(0, semi))), first, entries);
		if (semi == std::string_view::npos)
			break;
		rest.remove_prefix(semi + 1);
	}
	return 0;
}
VEXO_C_CATCH(-1)
