// VEXODiskMailSend and VEXODiskMailGenerate: whether a disk's status mail
// is due, why (to the system log), and the mail itself with its tags.
#include <cstring>
#include <memory>
#include <string>
#include <vexohw/compat.h>
#include <vexohw/disk.h>
#include <vexohw/disk_mail.h>
#include <vexohw/disk_port.h>
#include <vexohw/disk_probe.h>
#include <vexohw/frame.h>
#include <vexohw/smart_info.h>
#include <vexohw/smart_serial.h>
#include <vexohw/smart_status.h>
#include <vexoplatform/logdb.h>
#include <vexoplatform/sysnotify.h>
#include <vexoplatform/vexocore.h>

#include "disk/disk_mail_private.h"
#include "frame/boundary.h"
#include "frame/cache_keys.h"
#include "frame/err.h"
#include "frame/exec.h"
#include "frame/log.h"
#include "frame/text.h"

namespace {

struct HashFree {
	void operator()(VLIBSZHASH *h) const { VLIBCSzHashFree(h); }
};
struct ReasonFree {
	void operator()(SmartWarningReason *r) const { VEXOSmartWarningReasonFree(r); }
};

// Names of SmartInfoFail::failType.
constexpr const char *kFailTypes[] = {"NORMAL", "CRITICAL", "REPEAT", "PAST"};

// The reasons beside the attributes, in the order they are logged.
constexpr struct {
	int SmartWarningReason::*flag;
	const char *what;
} kReasons[] = {
	{&SmartWarningReason::lifeBelowThreshold, "remaining life below threshold"},
	{&SmartWarningReason::smartTest, "SMART test: unhealthy"},
	{&SmartWarningReason::advTest, "ironwolf adv test: unhealthy"},
	{&SmartWarningReason::prediction, "prediction result: unhealthy"},
	{&SmartWarningReason::wdda, "Wdda test: unhealthy"},
	{&SmartWarningReason::errorTimeout, "Disk error timeout"},
	{&SmartWarningReason::errorResetFail, "Disk error reset fail"},
	{&SmartWarningReason::errorUnc, "Disk error unc"},
};

void logReasons(const char *path, const SmartWarningReason &r)
{
	if (r.criticalWarning)
		vlog(LOG_WARNING, "%s:%d %s NVMe critical bitmap %u", VEXO_AT, path, r.criticalWarning);
	for (const SmartInfoFail *f = r.failList; f; f = f->next)
		vlog(LOG_WARNING, "%s:%d %s Warning SMART info: #%d, cur %d, wor %d, thr %d, fail type: %s", VEXO_AT, path,
		     f->id, f->value, f->worst, f->threshold, f->failType < 4 ? kFailTypes[f->failType] : "UNKNOWN");
	for (const auto &reason : kReasons)
		if (r.*reason.flag)
			vlog(LOG_WARNING, "%s:%d %s %s", VEXO_AT, path, reason.what);
}

// The tags of one mail, gathered before the hash is filled.
struct Tags {
	std::string name, diskId, unitId, host, vendor, model, capacity, serial, firm;
};

bool gather(const char *path, Tags &t)
{
	char text[256] = {};
	if (VEXODiskMailDiskNameGet(path, text, sizeof(text)) != 0) {
		vlog(LOG_ERR, "%s:%d Parameter error!", VEXO_AT);
		return false;
	}
	t.name = text;
	DiskId id{};
	if (DiskPathParse(path, &id) != 0 || DiskIdToMailString(&id, text, sizeof(text)) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to get disk id", VEXO_AT);
		return false;
	}
	t.diskId = text;
	if (VEXODiskLocateHostGet(path, text, sizeof(text), 0) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to get located hostname: %s", VEXO_AT, path);
		return false;
	}
	t.host = text;
	if (id.container == DISK_CONTAINER_EBOX)
		t.unitId = t.host;
	if (VEXOLnxDiskGetVendor(path, text, sizeof(text)) != 0 || VLIBCStrTrimSpace(text) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to get disk vendor: %s", VEXO_AT, path);
		return false;
	}
	t.vendor = text;
	// The model the kernel shows when the cache has none yet.
	if ((VEXODiskGetStrValueCacheFile(path, "model", text, sizeof(text)) != 0 &&
	     VEXOLnxDiskGetModel(path, text, sizeof(text)) != 0) ||
	    VLIBCStrTrimSpace(text) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to get disk model: %s", VEXO_AT, path);
		return false;
	}
	t.model = text;
	unsigned long long bytes = 0;
	if (DiskSizeGet(path, &bytes) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to get disk size", VEXO_AT);
		vlog(LOG_ERR, "%s:%d Failed to get disk size string: %s", VEXO_AT, path);
		return false;
	}
	if (!vexo::mail::capacityText(vexo::mail::Texts(), bytes, t.capacity)) {
		vlog(LOG_ERR, "%s:%d Failed to get disk size string: %s", VEXO_AT, path);
		return false;
	}
	char firm[64] = {}, serial[64] = {};
	if (SmartFirmAndSerialRead(path, firm, sizeof(firm), serial, sizeof(serial)) != 0) {
		vlog(LOG_ERR, "%s:%d Fail to get firm and serial of [%s]", VEXO_AT, path);
		return false;
	}
	t.firm = firm;
	if (VEXODiskGetSerialForUi(path, serial, sizeof(serial)) != 0) {
		vlog(LOG_ERR, "%s:%d Fail to get serial of [%s]", VEXO_AT, path);
		return false;
	}
	t.serial = serial;
	return true;
}

} // namespace

extern "C" {

VEXO_API int VEXODiskMailDiskNameGet(const char *path, char *name, int size)
try {
	const char *dev = VEXODiskDevPrefixSkip(path);
	char disk[64] = {};
	if (!dev || !name || size < 1 || !vexo::cache::isNameComponent(dev) ||
	    VEXODiskPartitionNumGet(dev, disk, sizeof(disk)) < 0 || !disk[0]) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	return VEXO_COPY_OUT(name, size, disk, "disk name") ? 0 : -1;
}
VEXO_C_CATCH(-1)

VEXO_API int VEXODiskMailGenerate(const char *key, const char *path, int event)
try {
	if (!key || !path) {
		vlog(LOG_ERR, "%s:%d Parameter error!", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::unique_ptr<VLIBSZHASH, HashFree> hash(VLIBCSzHashAlloc(512));
	if (!hash) {
		vlog(LOG_ERR, "%s:%d fail to create mail hash", VEXO_AT);
		VEXO_ERR(VEXO_ERR_LIST_ALLOC);
		return -1;
	}
	Tags t;
	if (!gather(path, t))
		return -1;
	char content[VEXO_DISK_MAIL_CONTENT_SIZE] = {};
	int got = VEXODiskMailContentGet(path, content, sizeof(content), 0, std::strcmp(key, "DiskStatusUnc") == 0,
					 nullptr);
	if (got < 0) {
		vlog(LOG_ERR, "%s:%d Failed to get disk mail content of %s", VEXO_AT, path);
		return -1;
	}
	if (got == 0) {
		vlog(LOG_INFO, "%s:%d Do not need to send report of %s", VEXO_AT, path);
		return 0;
	}
	const std::pair<const char *, const std::string *> tags[] = {
		{"%DISK_NAME%", &t.name},	   {"%DISK_ID%", &t.diskId},	 {"%EUNIT_ID%", &t.unitId},
		{"%CONTAINER_NAME%", &t.host},	   {"%DISK_VENDOR%", &t.vendor}, {"%DISK_MODEL%", &t.model},
		{"%DISK_CAPACITY%", &t.capacity}, {"%DISK_SN%", &t.serial},	 {"%DISK_FIRM%", &t.firm},
	};
	VLIBSZHASH *h = hash.release();
	bool ok = true;
	for (const auto &[tag, value] : tags)
		if (!(value == &t.unitId && value->empty()))
			ok = ok && VLIBCSzHashSetValue(&h, tag, value->c_str()) == 0;
	ok = ok && VLIBCSzHashSetValue(&h, "%CONTENT%", content) == 0;
	hash.reset(h);
	if (!ok) {
		vlog(LOG_ERR, "%s:%d fail to create mail hash", VEXO_AT);
		VEXO_ERR(VEXO_ERR_LIST_ALLOC);
		return -1;
	}
	if (VLIBLogSetByVA("disk", event, t.model.c_str(), t.serial.c_str(), t.host.c_str(), t.diskId.c_str(), path,
			   nullptr) != 0)
		vlog(LOG_ERR, "%s:%d Failed to add log event %d for %s", VEXO_AT, event, path);
	if (VEXOSysNotifySendNotifiction(key, hash.get()) < 0) {
		vlog(LOG_ERR, "%s:%d Failed to send email", VEXO_AT);
		return -1;
	}
	return 0;
}
VEXO_C_CATCH(-1)

VEXO_API int VEXODiskMailSend(const char *path)
try {
	if (!path) {
		vlog(LOG_ERR, "%s:%d Parameter error!", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	if (VEXODiskAtaSmartInfoUpdate(path) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to update smart info on device %s, 0x%X", VEXO_AT, path, VLIBCErrGet());
		return -1;
	}
	std::unique_ptr<SmartWarningReason, ReasonFree> reason(VEXOSmartWarningReasonAlloc());
	if (!reason) {
		vlog(LOG_ERR, "%s:%d pReason allocation failed in VEXODiskMailSend()", VEXO_AT);
		return -1;
	}
	int status = SmartOverviewStatusGet(path, nullptr, reason.get(), nullptr, nullptr);
	char key[64] = {};
	int event = 0;
	int due = SmartOverviewStatusMailkeyGet(status, key, sizeof(key), &event);
	if (due < 0) {
		vlog(LOG_ERR, "%s:%d Failed to get mail key", VEXO_AT);
		return -1;
	}
	if (due == 0)
		return 0;
	logReasons(path, *reason);
	DiskCompatibilityAction action{};
	if (VEXODiskCompatibilityActionGet(path, &action) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to get disk compatibility action for [%s]", VEXO_AT, path);
		return -1;
	}
	if (!action.notify_health_status)
		return 0;
	// The hot spare manager hears of the disk whether or not the mail goes.
	vexo::exec::Options quiet;
	quiet.captureStdout = false;
	quiet.timeoutMs = 60000;
	if (vexo::exec::run({"/usr/vexo/sbin/vexostorage", "--hotspare", "-n", path}, quiet).status() != 0)
		vlog(LOG_ERR, "%s:%d Failed to notify hotspare [%s] health status", VEXO_AT, path);
	if (VEXODiskMailGenerate(key, path, event) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to generate disk mail", VEXO_AT);
		return -1;
	}
	return 0;
}
VEXO_C_CATCH(-1)

} // extern "C"
