// Spin-down questions and the small power switches of a disk, all through
// kernel attributes: none of them sends the drive a command.
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <unistd.h>
#include <vector>
#include <vexohw/disk_power.h>
#include <vexohw/disk_state.h>
#include <vexoplatform/vexocore.h>

#include "disk/disk_power.h"
#include "disk/disk_probe_name.h"
#include "frame/boundary.h"
#include "frame/err.h"
#include "frame/sysroot.h"
#include "frame/unique.h"

namespace {

constexpr unsigned kDummyReadBit = 1u << 21;

} // namespace

extern "C" {

VEXO_API int VEXODiskIsSpindown(const char *path) try {
	if (!path) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::string name = vexo::disk::shortName(path).substr(0, 7);
	if (vexo::disk::isNvmeName(name))
		return 0;
	const std::string attr = vexo::disk::deviceAttr(name.c_str(), "vexo_spindown");
	vexo::UniqueFd fd(vexo::sysroot::open(attr.c_str(), O_RDONLY | O_CLOEXEC));
	if (!fd)
		return -1;
	char text[4] = {};
	if (::read(fd.get(), text, 3) < 0)
		return -1;
	return static_cast<int>(std::strtol(text, nullptr, 10));
}
VEXO_C_CATCH(-1)

VEXO_API int VEXODiskSpindownBeforePoweroffSet(const char *path) try {
	if (!path) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	const char *name = std::strncmp(path, "/dev/", 5) == 0 ? path + 5 : path;
	const std::string attr = vexo::disk::deviceAttr(name, "vexo_spindown_before_poweroff");
	if (vexo::sysroot::access(attr.c_str(), F_OK) != 0) {
		vlog(LOG_WARNING, "%s:%d Counld not find %s on %s", VEXO_AT, "vexo_spindown_before_poweroff", name);
		return -1;
	}
	vexo::UniqueFd fd(vexo::sysroot::open(attr.c_str(), O_WRONLY | O_CLOEXEC));
	if (!fd) {
		vlog(LOG_ERR, "%s:%d Failed to open %s on %s", VEXO_AT, "vexo_spindown_before_poweroff", name);
		return -1;
	}
	if (::write(fd.get(), "1", 1) != 1) {
		vlog(LOG_ERR, "%s:%d Failed to write 1 to %s on %s", VEXO_AT, "vexo_spindown_before_poweroff", name);
		return -1;
	}
	return 0;
}
VEXO_C_CATCH(-1)

// Kept for the callers that still name it: spin-up is queued by the kernel.
VEXO_API int VEXODiskSpinupQueueSet(void) { return 0; }

VEXO_API int VEXODiskFastWake(void) try {
	std::vector<std::string> arrays;
	if (vexo::sysroot::glob("/sys/block/md?/md/active", arrays) != 0 || arrays.empty())
		return -1;
	int result = 0;
	for (const std::string &a : arrays) {
		vexo::UniqueFd fd(vexo::sysroot::open(a.c_str(), O_WRONLY | O_CLOEXEC));
		if (!fd) {
			vlog(LOG_ERR, "%s:%d open %s failed", VEXO_AT, a.c_str());
			result = -1;
			continue;
		}
		if (VLIBCWrite(fd.get(), "1", 1) != 1) {
			vlog(LOG_ERR, "%s:%d write 1 to %s failed", VEXO_AT, a.c_str());
			result = -1;
		}
	}
	return result;
}
VEXO_C_CATCH(-1)

VEXO_API int VEXODiskDummyReadNeed(const char *path) try {
	if (!path) {
		vlog(LOG_ERR, "%s:%d Invalid arguments", VEXO_AT);
		return 0;
	}
	unsigned flags = 0;
	if (VEXODiskConfigDiskActionGet(path, &flags) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to get disk configure action.", VEXO_AT);
		return 0;
	}
	return (flags & kDummyReadBit) ? 1 : 0;
}
VEXO_C_CATCH(0)

} // extern "C"
