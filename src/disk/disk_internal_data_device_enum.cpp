// VEXODiskInternalDataDeviceEnum: the device names of the internal bays.
#include <cstdio>

#include <vexohw/disk_enum.h>
#include <vexohw/disk_port.h>

#include "frame/err.h"

extern "C" {

VEXO_API int VEXODiskInternalDataDeviceEnum(PVLIBSZLIST *names)
try {
	if (!names || !*names || (*names)->nAlloc <= 0) {
		vlog(LOG_ERR, "%s:%d device name list can not be NULL", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	const int bays = VLIBCMaxDiskGet();
	for (int bay = 1; bay <= bays; ++bay) {
		char path[128];
		if (VEXODiskDevicePathGetByPosition(bay, 0, path, sizeof(path)) != 0)
			continue;
		char name[128];
		if (std::sscanf(path, "/dev/%127s", name) != 1) {
			vlog(LOG_ERR, "%s:%d Invalid device node format: %s", VEXO_AT, path);
			continue;
		}
		if (VLIBCSzListPush(names, name) < 0) {
			VEXO_ERR(VEXO_ERR_LIST_ALLOC);
			return -1;
		}
	}
	return 0;
} VEXO_C_CATCH(-1)

} // extern "C"
