// One disk's record: DiskInfoGetWithoutSMART reads what the kernel shows,
// DiskInfoGet adds the temperature from the drive.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <vexohw/disk_enum.h>
#include <vexohw/disk_probe.h>
#include <vexohw/disk_state.h>
#include <vexohw/smart_temperature.h>

#include "frame/err.h"
#include "frame/sysroot.h"
#include "frame/unique.h"

namespace {

// The block device's name: the device path after its last '/'.
const char *blockName(const char *devPath)
{
	const char *slash = std::strrchr(devPath, '/');
	return slash ? slash + 1 : devPath;
}

bool readSize(const char *name, uint64_t *bytes)
{
	char file[256];
	std::snprintf(file, sizeof(file), "/sys/block/%s/size", name);
	vexo::UniqueFile f(vexo::sysroot::fopen(file, "r"));
	if (!f) {
		vlog(LOG_ERR, "%s:%d Failed to open %s", VEXO_AT, file);
		return false;
	}
	unsigned long long sectors = 0;
	if (std::fscanf(f.get(), "%llu", &sectors) != 1) {
		vlog(LOG_ERR, "%s:%d Failed to get size\n", VEXO_AT);
		return false;
	}
	*bytes = sectors * 512;
	return true;
}

bool readLogicalBlockSize(const char *name, int32_t *size)
{
	char file[256];
	std::snprintf(file, sizeof(file), "/sys/block/%s/queue/logical_block_size", name);
	vexo::UniqueFile f(vexo::sysroot::fopen(file, "r"));
	if (!f) {
		vlog(LOG_ERR, "%s:%d Fail to fopen [%s]. errno=%m", VEXO_AT, file);
		return false;
	}
	char line[128];
	char *end = nullptr;
	long v = 0;
	if (VLIBCFgets(line, sizeof(line), f.get()))
		v = std::strtol(line, &end, 10);
	if (!end || end == line) {
		vlog(LOG_ERR, "%s:%d Fail to get disk logical block size", VEXO_AT);
		return false;
	}
	*size = static_cast<int32_t>(v);
	return true;
}

// Copies text cut to the field, always terminated.
template <std::size_t N>
void cut(char (&to)[N], const char *from)
{
	std::size_t n = strnlen(from, N - 1);
	std::memcpy(to, from, n);
	to[n] = '\0';
}

} // namespace

extern "C" {

VEXO_API int DiskInfoGetWithoutSMART(const char *path, DiskInfo **info)
try {
	if (!path || !info) {
		vlog(LOG_ERR, "%s:%d bad paramters", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	vexo::UniqueMalloc<DiskInfo> rec(static_cast<DiskInfo *>(std::calloc(1, sizeof(DiskInfo))));
	if (!rec) {
		vlog(LOG_ERR, "%s:%d Failed to calloc for %s, errno=%m", VEXO_AT, path);
		VEXO_ERR(VEXO_ERR_NOMEM);
		return -1;
	}
	if (DiskPathParse(path, &rec->id) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to parse disk path %s", VEXO_AT, path);
		return -1;
	}
	char disk[128];
	if (DiskPartitionNumRemove(path, disk, sizeof(disk)) != 0)
		return -1;
	char devPath[160];
	if (std::strncmp(disk, "/dev", 4) == 0) {
		// The short name keeps the slash after "/dev": "/dev/sda" names "/sda".
		std::snprintf(devPath, sizeof(devPath), "%s", disk);
		cut(rec->name, disk + 4);
	} else {
		std::snprintf(devPath, sizeof(devPath), "/dev/%s", disk);
		cut(rec->name, disk);
	}
	if (VEXOLnxDiskGetModel(devPath, rec->model, sizeof(rec->model)) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to get model name of %s", VEXO_AT, devPath);
		std::memset(rec->model, 0, sizeof(rec->model));
	}
	const char *name = blockName(devPath);
	if (!readSize(name, &rec->sizeBytes)) {
		VEXO_ERR(VEXO_ERR_READ);
		return -1;
	}
	if (VLIBDiskIsSecureErasing(devPath)) {
		// An erasing disk is not asked anything more.
		rec->secureErasing = 1;
	} else {
		rec->secureErasing = 0;
		if (!readLogicalBlockSize(name, &rec->logicalBlockSize)) {
			vlog(LOG_ERR, "%s:%d Fail to get disk logical block size", VEXO_AT);
			VEXO_ERR(VEXO_ERR_READ);
			return -1;
		}
	}
	cut(rec->path, devPath);
	*info = rec.release();
	return 1;
} VEXO_C_CATCH(-1)

VEXO_API int DiskInfoGet(const char *path, DiskInfo **info)
try {
	DiskInfo *rec = nullptr;
	int rc = DiskInfoGetWithoutSMART(path, &rec);
	if (rc < 1) {
		vlog(LOG_ERR, "%s:%d fail to get disk information", VEXO_AT);
		VEXO_ERR_PASS();
		return rc;
	}
	rec->temperature = VLIBCIsVVOS() ? 0 : VEXODiskTemperatureGet(rec->path);
	*info = rec;
	return 1;
} VEXO_C_CATCH(-1)

VEXO_API void DiskInfoFree(DiskInfo *info)
try {
	std::free(info);
} VEXO_C_CATCH_VOID

} // extern "C"
