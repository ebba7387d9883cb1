// Partition numbers of device names: split and remove.
#include <cctype>
#include <cstdio>
#include <cstring>
#include <string>

#include <vexohw/disk.h>

#include "disk/disk_name.h"
#include "frame/err.h"

namespace vexo::disk {

bool partitionAfterP(const char *path)
{
	for (const char *word : {"mmcblk", "nvc", "nvme", "sysd"})
		if (std::strstr(path, word))
			return true;
	return false;
}

std::string shortDiskName(const char *path)
{
	char disk[32];
	if (!path || DiskPartitionNumRemove(path, disk, sizeof(disk)) != 0)
		return {};
	return VEXODiskDevPrefixSkip(disk);
}

} // namespace vexo::disk

extern "C" {

VEXO_API int VEXODiskPartitionNumGet(const char *path, char *disk, int size)
try {
	if (!path || !disk || size < 2) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	// "%31[^p]p%d" or "%31[^1-9]%d": the disk part ends at the last
	// character before the partition number. "sda0" stays a disk name.
	char format[32];
	std::snprintf(format, sizeof(format), vexo::disk::partitionAfterP(path) ? "%%%d[^p]p%%d" : "%%%d[^1-9]%%d",
		      size - 1);
	int number = 0;
	int n = std::sscanf(path, format, disk, &number);
	if (n < 1) {
		disk[0] = '\0';
		return -1;
	}
	if (std::strcmp(disk, path) == 0)
		return 0;
	return n == 2 ? number : -1;
} VEXO_C_CATCH(-1)

VEXO_API int DiskPartitionNumRemove(const char *path, char *disk, int size)
try {
	if (!path || !disk || size <= 0)
		return -1;
	size_t len = std::strlen(path);
	if (static_cast<size_t>(size) < len + 1) {
		vlog(LOG_ERR, "%s:%d buffer size of szDiskPath should be longer than string length of szPartPath", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	size_t cut = len;
	if (vexo::disk::partitionAfterP(path)) {
		const char *p = std::strrchr(path, 'p');
		if (p && std::isdigit(static_cast<unsigned char>(p[1])))
			cut = p - path;
	} else {
		for (size_t i = 0; i < len; ++i)
			if (std::isdigit(static_cast<unsigned char>(path[i]))) {
				cut = i;
				break;
			}
	}
	std::memmove(disk, path, cut);
	disk[cut] = '\0';
	return 0;
} VEXO_C_CATCH(-1)

} // extern "C"
