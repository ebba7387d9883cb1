// Whether a disk's verdict calls for telling the user, the notification
// itself, and the warranty texts.
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <json-c/json.h>
#include <memory>
#include <string>
#include <vexohw/compat.h>
#include <vexohw/compat_cache.h>
#include <vexohw/disk.h>
#include <vexohw/disk_port.h>
#include <vexohw/disk_probe.h>
#include <vexohw/smart_serial.h>
#include <vexoplatform/sysnotify.h>
#include <vexoplatform/vexocore.h>

#include "disk/compat_cache.h"
#include "frame/cache_keys.h"
#include "frame/err.h"
#include "frame/exec.h"
#include "frame/sysroot.h"
#include "frame/unique.h"

namespace {

struct Warranty {
	const char *text;
	uint32_t value;
};
constexpr Warranty kWarranties[] = {
	{"new", VEXO_WARRANTY_NEW}, {"defect", VEXO_WARRANTY_DEFECT}, {"refurbish", VEXO_WARRANTY_REFURBISH}};

struct HashFree {
	void operator()(VLIBSZHASH *h) const { VLIBCSzHashFree(h); }
};

// The action file exists, regenerating it up to three times when not.
bool actionFilePresent(const char *disk, const std::string &path)
{
	struct stat st;
	for (int round = 1; vexo::sysroot::stat(path.c_str(), &st) != 0; ++round) {
		if (round > 3)
			return false;
		vlog(LOG_ERR, "%s:%d File %s does not exist, regen %d time", VEXO_AT, path.c_str(), round);
		char text[64] = {};
		if (vexo::compatcache::readValue(disk, "compatibility", text, sizeof text) != 0 ||
		    std::strcmp(text, "unknown") == 0) {
			if (VEXODiskCompatibilityCacheUpdate(disk) != 0) {
				vlog(LOG_ERR, "%s:%d Failed to update compatibility cahce", VEXO_AT);
				continue;
			}
		}
		if (VEXODiskActionCacheUpdate(disk) != 0) {
			vlog(LOG_ERR, "%s:%d Failed to update compatibility action cahce", VEXO_AT);
			continue;
		}
		vlog(LOG_ERR, "%s:%d File %s regen success", VEXO_AT, path.c_str());
	}
	return true;
}

json_object *parseFile(const std::string &path)
{
	vexo::UniqueFile f(vexo::sysroot::fopen(path.c_str(), "re"));
	if (!f)
		return nullptr;
	std::string text;
	char buf[4096];
	size_t n;
	while ((n = std::fread(buf, 1, sizeof buf, f.get())) > 0)
		text.append(buf, n);
	return json_tokener_parse(text.c_str());
}

} // namespace

extern "C" {

VEXO_API int VEXODiskCompatibilityNeedAlert(const char *disk)
try {
	std::string name;
	if (!disk || !vexo::compatcache::shortName(disk, name)) {
		vlog(LOG_ERR, "%s:%d Invalid inputed parameter", VEXO_AT);
		return 0;
	}
	const std::string path = std::string(vexo::cache::kDisksDir) + "/" + name + "/compatibility_action";
	std::unique_ptr<json_object, decltype(&json_object_put)> root(nullptr, &json_object_put);
	if (actionFilePresent(disk, path))
		root.reset(parseFile(path));
	if (!root) {
		vlog(LOG_ERR, "%s:%d Failed to get action from %s", VEXO_AT, path.c_str());
		return 0;
	}
	json_object *n = nullptr;
	if (!json_object_object_get_ex(root.get(), "notification", &n)) {
		vlog(LOG_ERR, "%s:%d Failed to get notification from %s", VEXO_AT, path.c_str());
		return 0;
	}
	if (!json_object_is_type(n, json_type_boolean)) {
		vlog(LOG_ERR, "%s:%d Invalid type %s", VEXO_AT, "notification");
		return 0;
	}
	const int notification = json_object_get_boolean(n) ? 1 : 0;
	vexo::exec::Options quiet;
	quiet.captureStdout = false;
	const int used = vexo::exec::run({"/usr/vexo/sbin/vexostgdisk", "--is-disk-been-used", disk}, quiet).status();
	// A used disk of another maker on an appliance that takes any drive is
	// the user's own choice: no alert for it.
	if (used < 1 || VLIBCVexologyDriveOnly() || VEXODiskIsVexology(disk))
		return notification;
	return 0;
} VEXO_C_CATCH(0)

VEXO_API void VEXODiskCompatibilityMailSend(const char *disk)
try {
	if (!disk) {
		vlog(LOG_ERR, "%s:%d Invalid arguments", VEXO_AT);
		return;
	}
	std::unique_ptr<VLIBSZHASH, HashFree> hash(VLIBCSzHashAlloc(512));
	if (!hash) {
		vlog(LOG_ERR, "%s:%d Fail to create mail hash", VEXO_AT);
		return;
	}
	DiskId id;
	if (DiskPathParse(disk, &id) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to parse %s", VEXO_AT, disk);
		return;
	}
	char diskId[512] = {}, host[128] = {}, model[64] = {};
	if (DiskIdToMailString(&id, diskId, sizeof diskId) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to parse %s", VEXO_AT, disk);
		return;
	}
	if (VEXODiskLocateHostGet(disk, host, sizeof host, 1) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to get container of %s", VEXO_AT, disk);
		return;
	}
	if (VEXOLnxDiskGetModel(disk, model, sizeof model) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to get model of %s", VEXO_AT, disk);
		return;
	}
	if (VLIBCStrTrimSpace(model) != 0 || !model[0])
		vlog(LOG_ERR, "%s:%d Trim space error %s", VEXO_AT, model);
	VLIBSZHASH *h = hash.release();
	const bool set = VLIBCSzHashSetValue(&h, "%MODEL%", model) == 0 &&
			 VLIBCSzHashSetValue(&h, "%DISK_ID%", diskId) == 0 && VLIBCSzHashSetValue(&h, "%EUNIT_ID%", host) == 0;
	hash.reset(h);
	if (!set || VEXOSysNotifySendNotifiction("DiskCompatibilityIncompatible", hash.get()) < 0)
		vlog(LOG_ERR, "%s:%d Failed to send email", VEXO_AT);
} VEXO_C_CATCH_VOID

VEXO_API int VEXODiskWarrantyToValue(const char *warranty, uint32_t *value)
try {
	if (!warranty || !value)
		return -1;
	for (const Warranty &w : kWarranties)
		if (std::strcmp(warranty, w.text) == 0) {
			*value = w.value;
			return 0;
		}
	vlog(LOG_ERR, "%s:%d Invalied warranty type %s.", VEXO_AT, warranty);
	return -1;
} VEXO_C_CATCH(-1)

VEXO_API int VEXODiskValueToWarranty(uint32_t value, char *out, int outSize)
try {
	if (!out || outSize < 1) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	for (const Warranty &w : kWarranties)
		if (w.value == value)
			return VLIBCStrSnprintf(out, outSize, "%s", w.text) < 0 ? -1 : 0;
	vlog(LOG_ERR, "%s:%d Invalied warranty value 0x%08X.", VEXO_AT, value);
	return -1;
} VEXO_C_CATCH(-1)

} // extern "C"
