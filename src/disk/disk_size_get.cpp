// Size and logical block size of a block device, from the kernel's block
// control operations.
#include <cerrno>
#include <cstdint>
#include <fcntl.h>
#include <linux/fs.h>
#include <string>
#include <vexohw/disk_probe.h>

#include "disk/disk_probe_name.h"
#include "frame/device.h"
#include "frame/err.h"

static_assert(BLKSSZGET == 4712);

namespace {

// Opens the device read-only and asks request into *value.
template <typename T>
int blockQuery(const char *path, unsigned long request, T *value)
{
	if (!path || !*path || !value) {
		vlog(LOG_ERR, "%s:%d bad paramters", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	const std::string dev = vexo::disk::devicePath(path);
	vexo::dev::Device d = vexo::dev::Device::open(dev.c_str(), O_RDONLY);
	if (!d) {
		vlog(LOG_ERR, "%s:%d Failed to open %s, errno=%m", VEXO_AT, dev.c_str());
		VEXO_ERR(VEXO_ERR_DEVICE);
		return -1;
	}
	T answer{};
	if (d.ioctl(request, &answer) < 0) {
		vlog(LOG_ERR, "%s:%d Failed to ioctl %s, errno=%m", VEXO_AT, dev.c_str());
		VEXO_ERR(VEXO_ERR_DEVICE);
		return -1;
	}
	*value = answer;
	return 0;
}

} // namespace

extern "C" VEXO_API int DiskSizeGet(const char *path, unsigned long long *bytes)
try {
	uint64_t size = 0;
	if (blockQuery(path, BLKGETSIZE64, bytes ? &size : nullptr) != 0)
		return -1;
	*bytes = size;
	return 0;
} VEXO_C_CATCH(-1)

extern "C" VEXO_API int DiskLogicalBlockSizeGet(const char *path, int *size)
try {
	return blockQuery(path, BLKSSZGET, size);
} VEXO_C_CATCH(-1)
