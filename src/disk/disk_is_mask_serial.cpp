// Whether a disk's serial is shown masked: the cached value mask_serial,
// recomputed by the storage tool when it is missing on a disk that can be
// masked at all.
#include <vexohw/disk_probe.h>
#include <vexohw/frame.h>
#include <vexohw/smart_serial.h>
#include <unistd.h>
#include <vexoplatform/vexocore.h>

#include "disk/disk_probe_name.h"
#include "frame/cache_keys.h"
#include "frame/err.h"
#include "frame/file_lock.h"

namespace {

constexpr const char *kKey = "mask_serial";
constexpr const char *kTool = "/usr/vexo/sbin/vexostorage";
constexpr int kLockWaitSeconds = 3;

} // namespace

extern "C" VEXO_API int VEXODiskIsMaskSerial(const char *path)
try {
	if (!path) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return 0;
	}
	std::string name = vexo::disk::physicalName(vexo::disk::shortName(path));
	// The name goes to the storage tool as an argument: never as an option.
	if (!vexo::cache::isNameComponent(name.c_str())) {
		vlog(LOG_ERR, "%s:%d Bad parameters", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return 0;
	}
	std::string dev = "/dev/" + name;
	int value = 0;
	if (VEXODiskGetIntValueCacheFile(dev.c_str(), kKey, &value) == 0)
		return value == 1 ? 1 : 0;
	if (VEXODiskIsSSD(path) == 1 || VEXODiskIsVexology(path) != 1)
		return 0;

	vlog(LOG_ERR, "%s:%d Failed to get %s status of %s, retry it", VEXO_AT, kKey, dev.c_str());
	// One process recomputes; the others wait for its answer.
	std::string lock = "/run/vexostorage/disks/" + name + "/.lock.mask_serial";
	vexo::FileLock held;
	if (held.take(lock.c_str(), kLockWaitSeconds) && VEXODiskGetIntValueCacheFile(dev.c_str(), kKey, &value) != 0 &&
	    VLIBCExecl(kTool, kTool, "--reset-disk-attr", name.c_str(), "serial-mask", static_cast<char *>(nullptr)) != 0)
		vlog(LOG_ERR, "%s:%d Failed to re-set %s status of %s", VEXO_AT, kKey, dev.c_str());
	int result = 0;
	if (VEXODiskGetIntValueCacheFile(dev.c_str(), kKey, &value) != 0)
		vlog(LOG_ERR, "%s:%d Failed to re-get %s status of %s", VEXO_AT, kKey, dev.c_str());
	else
		result = value == 1 ? 1 : 0;
	return result;
} VEXO_C_CATCH(0)
