// A device path into a DiskId.
#include <cstdio>
#include <cstring>

#include <vexohw/disk.h>
#include <vexohw/disk_port.h>
#include <vexoplatform/ebox_info.h>
#include <vexoplatform/nvme_location.h>

#include "frame/err.h"

extern "C" {

VEXO_API int DiskPathParse(const char *path, DiskId *out)
try {
	if (!path || !out) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	DiskId id{0, DISK_CONTAINER_INTERNAL, 0, 0, -1};
	int portType = VEXODiskPortCheck(path);
	if (portType == DISK_PORT_TYPE_INVALID) {
		vlog(LOG_ERR, "%s:%d bad paramters: unknown device, disk path: %s", VEXO_AT, path);
		return -1;
	}
	const char *name = VEXODiskDevPrefixSkip(path);
	char disk[32];
	id.partitionNumber = VEXODiskPartitionNumGet(name, disk, sizeof(disk));
	// Kinds without a container (boot device, isd) keep "internal".
	int container = 0;
	if (VEXODiskPortToContainer(portType, &container) == 0)
		id.container = container;

	if (portType == DISK_PORT_TYPE_EBOX) {
		const char *letters = std::strncmp(name, "sd", 2) == 0 ? name + 2 : name;
		if (letters[0] < 'a' || letters[0] > 'z')
			return -1;
		id.unit = id.index = letters[0] - 'a' + 1;
		if (letters[1] >= 'a' && letters[1] <= 'z') {
			// A disk behind a port multiplier: its bay comes from the unit.
			char devPath[64];
			char diskPath[64];
			std::snprintf(devPath, sizeof(devPath), "/dev/%s", name);
			if (DiskPartitionNumRemove(devPath, diskPath, sizeof(diskPath)) != 0) {
				vlog(LOG_ERR, "%s:%d Fail to remove the partition number of %s", VEXO_AT, devPath);
				return -1;
			}
			char unique[32];
			int bay = VEXOEBoxUnitUniqueGetByDevPath(diskPath, unique, sizeof(unique));
			if (bay < 0)
				return -1;
			id.index = bay + 1;
		}
	} else if (std::strstr(path, "nvc")) {
		if (DiskIndexAndSlotGet(path, &id.index, &id.slot) != 0) {
			vlog(LOG_ERR, "%s:%d get disk index and slot fail", VEXO_AT);
			return -1;
		}
	} else if (std::strstr(path, "sysd")) {
		if (std::sscanf(disk, "sysd%d*", &id.index) != 1) {
			vlog(LOG_ERR, "%s:%d failed to parse %s index from %s", VEXO_AT, "sysd", path);
			return -1;
		}
	} else if (VEXONVMeCheckSupportAndNVMeSSD(path)) {
		char diskPath[128];
		if (DiskPartitionNumRemove(path, diskPath, sizeof(diskPath)) != 0 ||
		    VEXONVMeDevLocGet(diskPath, &id.slot, &id.index) != 0) {
			vlog(LOG_ERR, "%s:%d Can't get the NVMe location of %s", VEXO_AT, path);
			return -1;
		}
	} else {
		int letters = DiskIndexGet(path);
		if (letters < 0)
			return -1;
		id.index = letters + 1;
	}
	*out = id;
	return 0;
} VEXO_C_CATCH(-1)

} // extern "C"
