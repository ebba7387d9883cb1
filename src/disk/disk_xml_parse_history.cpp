// The twelve months of a disk's health history kept in the `history` child
// of its element: VEXODiskXmlParseHistory lays them out for the clock's
// current month, DiskXmlHealthHistoryRecord writes this month's values.
// Months are "YYYY/MM,unc,idnf,retry,life" joined by ';', oldest first; a
// value not known is an empty field.
#include <cstdio>
#include <cstring>
#include <ctime>
#include <libxml/tree.h>
#include <map>
#include <string>
#include <string_view>
#include <vexohw/disk_overview.h>
#include <vexohw/disk_status.h>

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

// The clock's current month number (year * 12 + month - 1); false when the
// calendar can't be had.
bool currentMonth(int &number)
{
	std::time_t now = vexo::clock::wallSeconds();
	struct tm tm {};
	if (!localtime_r(&now, &tm))
		return false;
	number = (tm.tm_year + 1900) * 12 + tm.tm_mon;
	return true;
}

// A month's number from its text, -1 for text in another shape.
int monthNumber(std::string_view m)
{
	int year = 0, mon = 0, used = 0;
	std::string head(m.substr(0, 8));
	if (m.size() < 8 || m[7] != ',' || std::sscanf(head.c_str(), "%4d/%2d%n", &year, &mon, &used) != 2 || used != 7 ||
	    mon < 1 || mon > 12 || year < 1970)
		return -1;
	return year * 12 + mon - 1;
}

// The largest value a field holds; a larger count is kept at it.
constexpr int32_t kFieldMax = 999999999;

std::string fieldText(int32_t v)
{
	return v < 0 ? std::string() : std::to_string(v > kFieldMax ? kFieldMax : v);
}

} // namespace

int DiskXmlHealthHistoryRecord(const char *path, const DiskHealthAttr &now)
{
	std::string serial;
	if (!path || !trueSerial(path, serial))
		return -1;
	int current = 0;
	if (!currentMonth(current)) {
		VEXO_ERR(VEXO_ERR_INTERNAL);
		return -1;
	}
	Lock lock(true);
	if (!lock.ok())
		return -1;
	xmlDoc *raw = nullptr;
	xmlNode *root = nullptr;
	if (DiskOverviewXmlParse(&raw, &root, 1) != 0)
		return -1;
	vexo::xml::Doc doc(raw);
	xmlNode *disk = diskElement(doc, serial);
	if (!disk) {
		vlog(LOG_ERR, "%s:%d Error: Empty result by evaluating xpath expression //SN_%s", VEXO_AT, serial.c_str());
		VEXO_ERR(VEXO_ERR_NOT_FOUND);
		return -1;
	}
	xmlNode *history = child(disk, "history");
	if (!history && !(history = xmlNewTextChild(disk, nullptr, BAD_CAST "history", BAD_CAST ""))) {
		VEXO_ERR(VEXO_ERR_NOMEM);
		return -1;
	}
	// The months kept: the eleven before this one. A month in another
	// shape, or out of the window, is dropped; this month is replaced.
	std::map<int, std::string> months;
	std::string all = text(history);
	std::string_view rest = all;
	while (!rest.empty()) {
		size_t semi = rest.find(';');
		std::string m = trimmed(std::string(rest.substr(0, semi)));
		int n = monthNumber(m);
		if (n > current - kMonths && n < current) {
			// Kept as the reader reads it: a field it would not take is
			// written empty.
			DiskHealthHistoryEntry e[kMonths] = {};
			month(m, n, e);
			months[n] = m.substr(0, 7) + "," + (e[0].uncValid ? fieldText(e[0].unc) : "") + "," +
				    (e[0].idnfValid ? fieldText(e[0].idnf) : "") + "," +
				    (e[0].retryValid ? fieldText(e[0].retry) : "") + "," +
				    (e[0].remainLifeValid ? fieldText(e[0].remainLife) : "");
		}
		if (semi == std::string_view::npos)
			break;
		rest.remove_prefix(semi + 1);
	}
	char head[16];
	std::snprintf(head, sizeof(head), "%04d/%02d", current / 12, current % 12 + 1);
	months[current] = std::string(head) + "," + fieldText(now.unc) + "," + fieldText(now.idnf) + "," +
			  fieldText(now.retry) + "," + fieldText(now.remainLife);
	std::string joined;
	for (const auto &[n, m] : months)
		joined += (joined.empty() ? "" : ";") + m;
	setText(history, joined);
	return saveWhole(doc.get(), kDoc);
}

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
