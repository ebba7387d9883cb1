// Partition names and paths, and the system partition paths.
#include <cstdio>
#include <cstring>
#include <sys/stat.h>

#include <vexohw/disk.h>
#include <vexohw/disk_port.h>
#include <vexoplatform/nvme_location.h>

#include "disk/disk_name.h"
#include "external/text_out.h"
#include "frame/err.h"
#include "frame/sysroot.h"

extern "C" {

VEXO_API int VEXODiskDevicePartitionNameGet(const char *path, int partition, char *name, int size)
try {
	if (!path || !name || size <= 0 || partition < 0) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	const char *disk = VEXODiskDevPrefixSkip(path);
	if (std::strncmp(disk, "vexoboot", 8) == 0) {
		vlog(LOG_ERR, "%s:%d we don't generate vexoboot partition name here", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	const char *format = vexo::disk::partitionAfterP(disk) ? "%sp%d" : "%s%d";
	return VEXO_PUT_TEXT(name, size, format, disk, partition);
} VEXO_C_CATCH(-1)

VEXO_API int VEXODiskDevicePartitionPathGet(const char *path, int partition, char *devPath, int size)
try {
	char name[128];
	if (VEXODiskDevicePartitionNameGet(path, partition, name, sizeof(name)) != 0) {
		VEXO_ERR_PASS();
		return -1;
	}
	if (!devPath || size <= 0) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	return VEXO_PUT_TEXT(devPath, size, "/dev/%s", name);
} VEXO_C_CATCH(-1)

VEXO_API int VEXODiskDevicePartitionEnumStringGet(const char *path, char *pattern, int size)
try {
	if (!path || !pattern || size <= 0) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	const char *format = VEXONVMeCheckSupportAndNVMeSSD(path) ? "%sp*" : "%s*";
	return VEXO_PUT_TEXT(pattern, size, format, path);
} VEXO_C_CATCH(-1)

VEXO_API int VEXODiskFirstDataDevicePathGet(char *path, int size)
try {
	if (!path || size <= 0) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	if (VLIBCSupportRAID())
		return VEXO_PUT_TEXT(path, size, "/dev/md2");
	char disk[64];
	if (VEXODiskDevicePathGetByPosition(1, 0, disk, sizeof(disk)) != 0 ||
	    VEXODiskDevicePartitionPathGet(disk, 3, path, size) != 0) {
		VEXO_ERR_PASS();
		return -1;
	}
	return 0;
} VEXO_C_CATCH(-1)

VEXO_API int VEXODiskSysDevicePathGet(char *path, int size)
try {
	if (!path || size <= 0) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	if (VLIBCSupportRAID())
		return VEXO_PUT_TEXT(path, size, "/dev/md0");
	const char *format = VLIBCIsAliVOS() ? "%s/%sa5" : "%s/%sa1";
	return VEXO_PUT_TEXT(path, size, format, "/dev", "sd");
} VEXO_C_CATCH(-1)

VEXO_API int VEXOSystemDeviceMountPathGet(char *path, int size)
try {
	if (!path || size <= 0) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	struct stat st;
	if (vexo::sysroot::lstat("/dev/system-root", &st) == 0)
		return VEXO_PUT_TEXT(path, size, "/dev/system-root");
	return VEXODiskSysDevicePathGet(path, size);
} VEXO_C_CATCH(-1)

} // extern "C"
