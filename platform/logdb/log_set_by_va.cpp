// The system log's events: category "disk" lands in the disk event database,
// "disk_test" in the disk test database, one row an event.
#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <sqlite3.h>
#include <string>
#include <sys/stat.h>
#include <vector>
#include <vexoplatform/logdb.h>
#include <vexoplatform/vexocore.h>

#include "frame/clock.h"
#include "frame/err.h"
#include "frame/sysroot.h"

namespace {

struct DbClose {
	void operator()(VEXODB *db) const { VEXODBClose(db); }
};
struct SqlFree {
	void operator()(char *p) const { sqlite3_free(p); }
};
using Sql = std::unique_ptr<char, SqlFree>;

// Folders of the database, made as needed.
bool makeParents(const char *path)
{
	std::string host = vexo::sysroot::path(path);
	for (size_t i = 1; (i = host.find('/', i)) != std::string::npos; ++i)
		if (::mkdir(host.substr(0, i).c_str(), 0755) != 0 && errno != EEXIST)
			return false;
	return true;
}

int insert(const char *path, const char *schema, char *sql)
{
	Sql owned(sql);
	if (!owned || !makeParents(path)) {
		VEXO_ERR(VEXO_ERR_WRITE);
		return -1;
	}
	std::unique_ptr<VEXODB, DbClose> db(VEXODBConnect(path, VEXODB_CREATE));
	if (!db || VEXODBExecute(db.get(), schema) != 0 || VEXODBExecute(db.get(), owned.get()) != 0) {
		VEXO_ERR_PASS();
		return -1;
	}
	return 0;
}

const char *arg(const std::vector<const char *> &a, size_t i) { return i < a.size() ? a[i] : nullptr; }

// Disk events that readers look up by keyword, and which detail leads their
// info (counted from the last detail): a life warning's info begins with
// the life, so the next check finds the figure it warned about.
struct DiskEvent {
	int event;
	const char *msg;
	size_t leadFromLast;
};
constexpr DiskEvent kDiskEvents[] = {
	{41, "life_below_thre_with_value", 0},
	{86, "ssd_bundle_month_below_thre_with_value", 0},
};

} // namespace

extern "C" {

VEXOP_API int VLIBLogSetByVA(const char *category, int event, ...)
{
	if (!category) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::vector<const char *> a;
	va_list ap;
	va_start(ap, event);
	for (const char *s; (s = va_arg(ap, const char *)) != nullptr && a.size() < 16;)
		a.push_back(s);
	va_end(ap);
	try {
		if (std::strcmp(category, "disk_test") == 0) {
			// model, serial, path, time, type, test type, then for ihm tests
			// power-on hours, temperature, sectors read and written.
			if (a.size() < 6) {
				VEXO_ERR(VEXO_ERR_BAD_PARAM);
				return -1;
			}
			char *sql = sqlite3_mprintf(
				"INSERT INTO logs (logtime, serial, msg, type, test_type, poh, temperature, cumsectorread, "
				"cumsectorwritten, test_code) VALUES (%lld, %Q, '%d', %Q, %Q, %Q, %Q, %Q, %Q, %d);",
				std::strtoll(a[3], nullptr, 10), a[1], event, a[4], a[5], arg(a, 6), arg(a, 7), arg(a, 8),
				arg(a, 9), event);
			return insert(VEXODB_DISK_TEST_LOG_PATH, VEXODB_DISK_TEST_LOG_SCHEMA, sql);
		}
		if (std::strcmp(category, "disk") == 0) {
			// model, serial, then what the event names; the last is the path.
			std::vector<std::string> details;
			for (size_t i = 2; i + 1 < a.size(); ++i)
				details.emplace_back(a[i]);
			std::string msg = std::to_string(event);
			for (const DiskEvent &e : kDiskEvents)
				if (e.event == event) {
					msg = e.msg;
					if (e.leadFromLast < details.size()) {
						auto lead = details.end() - 1 - static_cast<std::ptrdiff_t>(e.leadFromLast);
						std::rotate(details.begin(), lead, lead + 1);
					}
				}
			std::string info;
			for (const std::string &d : details)
				info += (info.empty() ? "" : " ") + d;
			char *sql = sqlite3_mprintf(
				"INSERT INTO logs (time, level, msg, serial, model, path, info) VALUES (%lld, 'info', %Q, %Q, %Q, %Q, %Q);",
				static_cast<long long>(vexo::clock::wallSeconds()), msg.c_str(), arg(a, 1), arg(a, 0),
				a.size() > 2 ? a.back() : nullptr, info.c_str());
			return insert(VEXODB_DISK_LOG_PATH, VEXODB_DISK_LOG_SCHEMA, sql);
		}
	} catch (...) {
		VEXO_ERR(VEXO_ERR_NOMEM);
		return -1;
	}
	vlog(LOG_ERR, "%s:%d Unknown log category %s", VEXO_AT, category);
	VEXO_ERR(VEXO_ERR_BAD_PARAM);
	return -1;
}

} // extern "C"
