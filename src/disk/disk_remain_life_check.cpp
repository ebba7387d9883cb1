// VEXODiskRemainLifeCheck and what it stands on: the last life warning in
// the disk event database, the warning mail, the NVMe re-check memory and
// the SSD bundle's month settings.
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <vexohw/compat.h>
#include <vexohw/disk.h>
#include <vexohw/disk_port.h>
#include <vexohw/disk_probe.h>
#include <vexohw/disk_status.h>
#include <vexohw/frame.h>
#include <vexohw/remain_life.h>
#include <vexohw/smart_serial.h>
#include <vexohw/smartctl.h>
#include <vexoplatform/logdb.h>
#include <vexoplatform/sysnotify.h>
#include <vexoplatform/vexocore.h>

#include "disk/remain_life_private.h"
#include "frame/boundary.h"
#include "frame/err.h"
#include "frame/log.h"
#include "frame/priv.h"
#include "frame/sysroot.h"

namespace {

constexpr const char *kNvmeLives = "/var/lib/vexohw/nvme_remain_life";
constexpr int kLifeWarnEvent = 41, kBundleWarnEvent = 86;
constexpr int kMaxBundleMonths = 120;

struct HashFree {
	void operator()(VLIBSZHASH *h) const { VLIBCSzHashFree(h); }
};
struct DbClose {
	void operator()(VEXODB *db) const { VEXODBClose(db); }
};
struct ResultFree {
	void operator()(VEXODB_RESULT *r) const { VEXODBFreeResult(r); }
};

// A setting of the system settings (/etc, then /etc.defaults); empty when
// absent.
std::string setting(const char *key)
{
	char text[64] = {};
	return VLIBCINFOGetKeyValue(key, text, sizeof(text)) > 0 ? std::string(text) : std::string();
}

// Quotes doubled, so a serial stays one SQL text whatever it holds.
std::string sqlText(const char *s)
{
	std::string out;
	for (; *s; ++s)
		out += *s == '\'' ? std::string("''") : std::string(1, *s);
	return out;
}

bool setTag(VLIBSZHASH *&h, const char *key, const std::string &value)
{
	return VLIBCSzHashSetValue(&h, key, value.c_str()) == 0;
}

} // namespace

extern "C" {

VEXO_API int VEXODiskRemainLifeLastLogGet(const char *serial, int *life)
try {
	if (!serial || !life) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	*life = -1;
	struct stat st {};
	if (::stat(vexo::sysroot::path(VEXODB_DISK_LOG_PATH).c_str(), &st) != 0)
		return 0;
	char query[512];
	int n = std::snprintf(query, sizeof(query),
			      "SELECT * FROM logs WHERE serial='%s' AND msg='life_below_thre_with_value' ORDER BY time DESC",
			      sqlText(serial).c_str());
	if (n < 0 || static_cast<size_t>(n) >= sizeof(query)) {
		VEXO_ERR(VEXO_ERR_NOMEM);
		return -1;
	}
	std::unique_ptr<VEXODB, DbClose> db(VEXODBConnect(VEXODB_DISK_LOG_PATH, 0));
	if (!db) {
		VEXO_ERR(VEXO_ERR_DB);
		return -1;
	}
	// Rows of one second keep their order of insertion: newest last.
	std::string ordered = std::string(query) + ", id DESC";
	std::unique_ptr<VEXODB_RESULT, ResultFree> rows(VEXODBSelectLimit(db.get(), ordered.c_str(), 1, 0));
	if (!rows) {
		VEXO_ERR(VEXO_ERR_DB);
		return -1;
	}
	if (VEXODBFetchRow(rows.get()) != 1)
		return 0;
	const char *info = VEXODBFetchField(rows.get(), "info");
	if (!info || std::sscanf(info, "%d", life) != 1)
		*life = -1;
	return 1;
}
VEXO_C_CATCH(-1)

VEXO_API int VEXONVMeRemainingLifeNeedCheck(const char *serial, int life)
try {
	if (!serial || !*serial || std::strpbrk(serial, "=\"\n\r \t#[]")) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	char kept[16] = {};
	struct stat st {};
	if (::stat(vexo::sysroot::path(kNvmeLives).c_str(), &st) == 0) {
		int got = VLIBCFileGetKeyValue(kNvmeLives, serial, kept, sizeof(kept), 0);
		if (got < 0) {
			VEXO_ERR_PASS();
			return -1;
		}
		if (got > 0 && std::atoi(kept) == life && std::strspn(kept, "-0123456789") == std::strlen(kept))
			return 0;
	}
	std::error_code ec;
	ENTERCriticalSection;
	std::filesystem::create_directories(vexo::sysroot::path("/var/lib/vexohw"), ec);
	if (ec ||
	    VLIBCFileSetKeyValue(kNvmeLives, serial, std::to_string(life).c_str(), nullptr) != 1) {
		VEXO_ERR(VEXO_ERR_WRITE);
		return -1;
	}
	return 1;
}
VEXO_C_CATCH(-1)

VEXO_API int VEXOSSDBundleMonthLeftWarnEnableGet(void)
try {
	return setting("ssd_bundle_month_left_warn_enable") == "yes" ? 1 : 0;
}
VEXO_C_CATCH(0)

VEXO_API int VEXOSSDBundleMonthLeftThresGet(int *months)
try {
	if (!months) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::string v = setting("ssd_bundle_month_left_thr_value");
	if (v.empty()) {
		*months = 1;
		return 0;
	}
	char *end = nullptr;
	errno = 0;
	long m = std::strtol(v.c_str(), &end, 10);
	if (errno != 0 || *end != '\0' || m < 1 || m > kMaxBundleMonths) {
		VEXO_ERR(VEXO_ERR_READ);
		return -1;
	}
	*months = static_cast<int>(m);
	return 0;
}
VEXO_C_CATCH(-1)

VEXO_API int VEXORemainLifeWarnMailSend(const char *path, const char *serial, const char *life, int days, int bundle)
try {
	if (!path || !serial || !life || days < 0) {
		vlog(LOG_ERR, "%s:%d Invalid Arguments", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	char model[128] = {}, host[128] = {}, diskId[512] = {};
	// The model the kernel shows when the cache has none yet.
	if (VEXODiskGetStrValueCacheFile(path, "model", model, sizeof(model)) != 0 &&
	    VEXOLnxDiskGetModel(path, model, sizeof(model)) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to get disk model from cache", VEXO_AT);
		return -1;
	}
	if (VLIBCStrTrimSpace(model) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to trim space for %s", VEXO_AT, model);
		return -1;
	}
	DiskId id{};
	if (DiskPathParse(path, &id) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to get disk ID for %s", VEXO_AT, path);
		return -1;
	}
	if (VEXODiskLocateHostGet(path, host, sizeof(host), 0) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to get located hostname: %s", VEXO_AT, path);
		return -1;
	}
	if (DiskIdToMailString(&id, diskId, sizeof(diskId)) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to get disk ID for %s", VEXO_AT, path);
		return -1;
	}
	std::unique_ptr<VLIBSZHASH, HashFree> hash(VLIBCSzHashAlloc(512));
	if (!hash) {
		vlog(LOG_ERR, "%s:%d fail to create mail hash", VEXO_AT);
		VEXO_ERR(VEXO_ERR_LIST_ALLOC);
		return -1;
	}
	int thr = 1;
	if (vexo::life::userThreshold(thr) < 0)
		thr = 1; // logged by the reader
	else if (thr < 0)
		thr = 1;
	int monthThr = 1;
	if (VEXOSSDBundleMonthLeftWarnEnableGet() == 1 && VEXOSSDBundleMonthLeftThresGet(&monthThr) != 0)
		monthThr = 1;

	VLIBSZHASH *h = hash.release();
	bool ok = setTag(h, "%DISK_SN%", serial) && setTag(h, "%DISK_LIFE%", life) && setTag(h, "%DISK_ID%", diskId) &&
		  setTag(h, "%DISK_MODEL%", model) && setTag(h, "%EUNIT_ID%", host);
	const char *key;
	int event;
	std::string detail;
	if (!bundle) {
		ok = ok && setTag(h, "%DISK_LIFE_THRESHOLD%", std::to_string(thr));
		key = "RemainLifeWarn";
		event = kLifeWarnEvent;
		detail = std::string(life) + " " + std::to_string(thr);
	} else {
		int months = vexo::life::monthsOfDays(days);
		ok = ok && setTag(h, "%DISK_LIFE_MONTH_VALUE%", std::to_string(months)) &&
		     setTag(h, "%DISK_LIFE_MONTH_UNIT%", months == 1 ? "vos:disk_info:ssd_bundle_time_month"
								    : "vos:disk_info:ssd_bundle_time_months");
		key = "SSDBundleRemainLifeWarn";
		event = kBundleWarnEvent;
		detail = std::to_string(months) + " " + std::to_string(monthThr);
	}
	hash.reset(h);
	if (!ok) {
		vlog(LOG_ERR, "%s:%d fail to create mail hash", VEXO_AT);
		VEXO_ERR(VEXO_ERR_LIST_ALLOC);
		return -1;
	}
	if (VLIBLogSetByVA("disk", event, model, serial, host, diskId, detail.c_str(), path, nullptr) != 0)
		vlog(LOG_ERR, "%s:%d Failed to add log event %d for %s", VEXO_AT, event, path);
	if (VEXOSysNotifySendNotifiction(key, hash.get()) < 0) {
		vlog(LOG_ERR, "%s:%d Failed to send email for remain life warn.", VEXO_AT);
		return -1;
	}
	return 0;
}
VEXO_C_CATCH(-1)

VEXO_API int VEXODiskRemainLifeCheck(const char *path)
try {
	if (!path) {
		vlog(LOG_ERR, "%s:%d Invalid Arguments", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	if (VEXODiskIsSSD(path) != 1)
		return 0;
	DiskHealthAttr a{};
	if (VEXODiskCurHealthSmartAttrGet(path, &a) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to get disk health attribute", VEXO_AT);
		return -1;
	}
	const int life = a.remainLife;
	if (life == -1)
		return 0;
	char serial[128] = {};
	// The cache holds it once the disk was listed; before that the serial
	// shown to users comes from the drive, which is awake by now.
	if (VEXODiskGetStrValueCacheFile(path, "ui_serial", serial, sizeof(serial)) != 0 &&
	    VEXODiskGetSerialForUi(path, serial, sizeof(serial)) != 0) {
		serial[0] = '\0';
		vlog(LOG_ERR, "%s:%d Failed to get serial for %s", VEXO_AT, path);
	}
	// A check that fails after the NVMe memory took the new life forgets
	// it, so that the next check tries again.
	bool remembered = false;
	struct Forget {
		const bool &on;
		const char *serial;
		bool failed = true;
		~Forget()
		{
			if (on && failed)
				VLIBCFileRemoveKey(kNvmeLives, serial);
		}
	} forget{remembered, serial};
	auto done = [&forget] {
		forget.failed = false;
		return 0;
	};
	if (VEXODiskScsiProtocolGet(path) == VEXO_DISK_PROTOCOL_NVME) {
		int need = VEXONVMeRemainingLifeNeedCheck(serial, life);
		remembered = need == 1;
		if (need == 0)
			return done();
		if (need < 0 && life > 1) {
			vlog(LOG_ERR, "%s:%d Failed to check nvme status", VEXO_AT);
			return -1;
		}
	}
	int last = -1;
	int found = VEXODiskRemainLifeLastLogGet(serial, &last);
	if (found < 0) {
		vlog(LOG_ERR, "%s:%d Failed to get the last remain lifespan of SN %s [0x%04X %s:%d]", VEXO_AT, serial,
		     VLIBCErrGet(), VLIBCErrFileGet(), VLIBCErrLineGet());
		return -1;
	}
	int thr = -1;
	if (vexo::life::userThreshold(thr) < 0)
		return -1;
	int belowMail = VEXODiskIsBelowLifeMailNotifyThrWithValue(life);
	if (belowMail < 0) {
		vlog(LOG_ERR, "%s:%d Failed to get the remain lifespan mail notify threshold", VEXO_AT);
		return -1;
	}
	DiskCompatibilityAction action{};
	if (VEXODiskCompatibilityActionGet(path, &action) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to get disk compatibility action for [%s]", VEXO_AT, path);
		return -1;
	}
	if (!action.notify_lifetime)
		return done();
	// Below the mail threshold every new figure is news; above it, one mail
	// when the life reaches the user's threshold, and another only when that
	// threshold was set below the figure last warned about.
	bool send = belowMail == 1 ? (found == 0 || last != life)
				   : (life <= thr && (found == 0 || thr < last));
	if (!send)
		return done();
	if (VEXORemainLifeWarnMailSend(path, serial, std::to_string(life).c_str(), 0, 0) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to send remain life in percent mail", VEXO_AT);
		return -1;
	}
	return done();
}
VEXO_C_CATCH(-1)

} // extern "C"
