// The attribute list of a disk by its command family: ATA-style disks from
// the cache or the tool, NVMe disks from the drive's health log; SCSI disks
// have no attribute table.
#include <cstring>
#include <vexohw/disk_port.h>
#include <vexohw/frame.h>
#include <vexohw/smart_info.h>

#include "frame/err.h"
#include "frame/priv.h"
#include "smartctl/nvme_smart.h"
#include "smartctl/smart_info_list.h"

extern "C" VEXO_API int VEXODiskAtaSmartInfoParse(const char *path, SmartInfoEntry **list)
try {
	if (!path || !list) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	ENTERCriticalSection;
	char type[16];
	if (!vexo::smart::deviceType(path, type))
		return -1;
	if (std::strcmp(type, "scsi") == 0) {
		// The health code reads this code as "no ATA attributes" and goes on.
		*list = nullptr;
		VEXO_ERR(VEXO_ERR_WRONG_IFACE);
		return -1;
	}
	if (std::strcmp(type, "nvme") == 0) {
		// Not cached: every parse asks the drive.
		return vexo::smart::nvmeSmartInfoList(path, list);
	}
	if (SmartInfoGet(path, type, list, 0) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to get smart info on %s, 0x%X", VEXO_AT, path, VLIBCErrGet());
		VEXO_ERR_PASS();
		return -1;
	}
	return 0;
} VEXO_C_CATCH(-1)
