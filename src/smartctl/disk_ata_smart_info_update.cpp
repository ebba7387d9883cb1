// Refreshes a disk's cached attribute list from the tool.
#include <cstring>
#include <vexohw/disk_port.h>
#include <vexohw/frame.h>
#include <vexohw/smart_info.h>

#include "frame/err.h"
#include "frame/priv.h"
#include "smartctl/smart_info_list.h"

extern "C" VEXO_API int VEXODiskAtaSmartInfoUpdate(const char *path)
try {
	if (!path) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	ENTERCriticalSection;
	char type[16];
	if (!vexo::smart::deviceType(path, type))
		return -1;
	// Neither keeps an ATA list in the cache.
	if (std::strcmp(type, "scsi") == 0 || std::strcmp(type, "nvme") == 0)
		return 0;
	char name[32];
	if (!vexo::smart::deviceName(path, name)) {
		VEXO_ERR(VEXO_ERR_UNKNOWN_DEVICE);
		return -1;
	}
	SmartInfoEntry *fresh = nullptr;
	if (AtaSmartInfoGet(path, type, &fresh) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to get smart info on %s, 0x%X", VEXO_AT, path, VLIBCErrGet());
		VEXO_ERR_PASS();
		return -1;
	}
	vexo::smart::UniqueList owned(fresh);
	// Unlike a read, an update that did not reach the cache has failed.
	if (SmartInfoCacheUpdate(name, fresh) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to update smart info cache on %s, 0x%X", VEXO_AT, path, VLIBCErrGet());
		VEXO_ERR_PASS();
		return -1;
	}
	return 0;
} VEXO_C_CATCH(-1)
