// The per-disk firmware values: the status, what the user is told to take,
// and the firmware revision the drive reports. Written under the disk's own
// lock so that two refreshes never mix their suggestions.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <unistd.h>
#include <vexohw/frame.h>
#include <vexohw/fw_status.h>
#include <vexohw/smart_serial.h>
#include <vexoplatform/vexocore.h>

#include "disk/compat_cache.h"
#include "disk/fw_status_imp.h"
#include "frame/cache_keys.h"
#include "frame/err.h"
#include "frame/file_lock.h"
#include "frame/priv.h"
#include "frame/sysroot.h"

namespace {

constexpr const char *kSugKeys[] = {"sug_firm_upd_ver", "sug_update_vos", "sug_promote_vos"};

bool put(const std::string &name, const char *key, const char *value)
{
	if (VEXODiskUpdateStrValueCacheFile(name.c_str(), key, value) == 0)
		return true;
	vlog(LOG_ERR, "%s:%d Fail to update %s on %s", VEXO_AT, key, name.c_str());
	return false;
}

} // namespace

extern "C" {

VEXO_API int VEXOSBDriveFirmInfoCacheUpdImp(const char *disk, int useGivenVersions, const char *updateVersion,
					    const char *promotionVersion)
try {
	if (!disk) {
		vlog(LOG_ERR, "%s:%d Invalid input", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	if (VEXODiskIsVexology(disk) < 1)
		return 0;
	std::string name;
	if (!vexo::compatcache::shortName(disk, name)) {
		vlog(LOG_ERR, "%s:%d Failed to parse %s", VEXO_AT, disk);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	const std::string dir = std::string(vexo::cache::kDisksDir) + "/" + name;
	const std::string lock = dir + "/firm_status_from_db.lock";
	ENTERCriticalSection; // the lock file and the values are root's
	vexo::FileLock held;
	if (!held.take(lock.c_str(), 10)) {
		vlog(LOG_ERR, "%s:%d Failed to get lock %s", VEXO_AT, lock.c_str());
		return -1;
	}
	DiskFirmInfo info{};
	vexo::fwstatus::Versions v;
	char dbPath[1024] = {};
	int status = 0;
	if (VEXODiskCompatibilityDBPathGet(disk, dbPath, sizeof dbPath) != 0)
		vlog(LOG_ERR, "%s:%d Failed to get database path on %s", VEXO_AT, disk);
	else
		status = vexo::fwstatus::decideForDisk(disk, dbPath, useGivenVersions, updateVersion, promotionVersion,
						       &info, v);
	for (const char *key : kSugKeys) {
		const std::string path = dir + "/" + key;
		if (vexo::sysroot::unlink(path.c_str()) != 0 && errno != ENOENT)
			vlog(LOG_ERR, "%s:%d Fail to unlink %s", VEXO_AT, path.c_str());
	}
	bool ok = true;
	if (status == VEXO_FW_STATUS_NEW_FIRM_AVAILABLE || status == VEXO_FW_STATUS_UPDATE_FIRM)
		ok = put(name, "sug_firm_upd_ver", info.firmware) && ok;
	// The version to take, so that the user is told which one cures the drive.
	if (status == VEXO_FW_STATUS_UPDATE_VOS && info.updateVosSuggested)
		ok = put(name, "sug_update_vos", v.update.empty() ? "yes" : v.update.c_str()) && ok;
	if (status == VEXO_FW_STATUS_UPDATE_VOS && info.promoteVosSuggested)
		ok = put(name, "sug_promote_vos", v.promotion.empty() ? "yes" : v.promotion.c_str()) && ok;
	char text[32] = {};
	VEXOSBFirmStatusTransfer(status, text, sizeof text);
	ok = put(name, "firm_status_from_db", text) && ok;
	char firm[64] = {}, serial[64] = {};
	if (SmartFirmAndSerialRead(disk, firm, sizeof firm, serial, sizeof serial) != 0) {
		vlog(LOG_ERR, "%s:%d Fail to get firm and serial of [%s]", VEXO_AT, disk);
		ok = false;
	} else if (VEXODiskUpdateStrValueCacheFile(name.c_str(), "firm", firm) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to update %s on %s", VEXO_AT, "firm", name.c_str());
		ok = false;
	}
	if (!held.release())
		vlog(LOG_ERR, "%s:%d Fail to unlock %s", VEXO_AT, lock.c_str());
	return ok ? 0 : -1;
} VEXO_C_CATCH(-1)

VEXO_API int VEXOSBDriveFirmInfoAndUpdateInfoCacheUpdate(const char *disk)
try {
	return VEXOSBDriveFirmInfoCacheUpdImp(disk, 0, nullptr, nullptr);
} VEXO_C_CATCH(-1)

} // extern "C"
