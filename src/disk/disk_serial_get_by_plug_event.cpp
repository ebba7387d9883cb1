// Which disk stood in a bay at a past moment, from the plug events of the
// disk log database.
#include <cstring>
#include <memory>
#include <vexohw/disk_probe.h>
#include <vexoplatform/logdb.h>

#include "disk/probe_text.h"
#include "frame/err.h"

namespace {

// Present once this boot's disk bookkeeping has run (the overview document
// touches it): from then on the log holds this boot's arrivals and
// departures too, and a departure is the last word on a bay.
constexpr const char *kBootupInitDone = "/var/run/.vexo_disk_bootup_init_done";

struct DbClose {
	void operator()(VEXODB *db) const { VEXODBClose(db); }
};
struct ResultFree {
	void operator()(VEXODB_RESULT *r) const { VEXODBFreeResult(r); }
};

bool is(const char *msg, const char *word) { return msg && std::strcmp(msg, word) == 0; }

} // namespace

extern "C" VEXO_API int VEXODiskSerialGetByPlugEvent(unsigned int slot, unsigned long long before, char *serial,
						     int size)
try {
	if (!serial || size <= 0) {
		vlog(LOG_ERR, "%s:%d Bad parameters", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::unique_ptr<VEXODB, DbClose> db(VEXODBConnect(VEXODB_DISK_LOG_PATH, 0));
	if (!db) {
		vlog(LOG_ERR, "%s:%d Failed to connect to %s", VEXO_AT, VEXODB_DISK_LOG_PATH);
		VEXO_ERR_PASS();
		return -1;
	}
	char query[1024];
	if (VLIBCStrSnprintf(query, sizeof(query),
			     "SELECT * FROM logs WHERE (msg = 'plugin' OR msg = 'bootup_in' OR msg = 'plugout' OR "
			     "msg = 'bootup_out') AND slot = '%u' AND time < %llu ORDER BY id DESC",
			     slot, before) < 0) {
		VEXO_ERR(VEXO_ERR_NOMEM);
		return -1;
	}
	std::unique_ptr<VEXODB_RESULT, ResultFree> rows(VEXODBSelect(db.get(), query));
	if (!rows) {
		vlog(LOG_ERR, "%s:%d Failed to query %s: %s", VEXO_AT, VEXODB_DISK_LOG_PATH, VEXODBErrorGet(db.get()));
		VEXO_ERR_PASS();
		return -1;
	}
	// Until this boot's bookkeeping is done, the newest departure in the log
	// may be stale (from before the reboot), so departures are passed over
	// and the newest arrival answers.
	const bool departuresCount = VLIBCFileExist(kBootupInitDone);
	while (VEXODBFetchRow(rows.get()) == 1) {
		const char *msg = VEXODBFetchField(rows.get(), "msg");
		if (is(msg, "plugin") || is(msg, "bootup_in")) {
			const char *found = VEXODBFetchField(rows.get(), "serial");
			if (!found || !*found)
				continue;
			return vexo::disk::putWhole(serial, size, found);
		}
		if (departuresCount)
			break;
	}
	VEXO_ERR(VEXO_ERR_NOT_FOUND);
	return -1;
} VEXO_C_CATCH(-1)
