// The record of the system's first disk.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mntent.h>
#include <string>
#include <vexohw/disk.h>
#include <vexohw/disk_enum.h>
#include <vexohw/disk_probe.h>
#include <vexohw/smart_temperature.h>

#include "disk/disk_enum_pass.h"
#include "frame/err.h"
#include "frame/sysroot.h"

namespace {

constexpr const char *kFirstDisk = "/dev/sda";
constexpr const char *kFirstDiskName = "sda";

struct MntClose {
	void operator()(FILE *f) const { endmntent(f); }
};

} // namespace

int vexo::disk::aufsMounted()
{
	const std::string mounts = vexo::sysroot::path("/proc/mounts");
	std::unique_ptr<FILE, MntClose> f(setmntent(mounts.c_str(), "r"));
	if (!f) {
		vlog(LOG_ERR, "%s:%d Failed to setmntent().", VEXO_AT);
		VEXO_ERR(VEXO_ERR_FOPEN);
		return -1;
	}
	struct mntent entry;
	char buffer[4096];
	while (getmntent_r(f.get(), &entry, buffer, sizeof(buffer)))
		if (entry.mnt_type && std::strcmp(entry.mnt_type, "aufs") == 0)
			return 1;
	return 0;
}

extern "C" VEXO_API int VEXOLnxDiskGetInfo(DiskInfo *info)
try {
	if (!info) {
		vlog(LOG_ERR, "%s:%d Bad parameters.", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	DiskInfo out{};
	if (VEXOLnxDiskGetModel(kFirstDisk, out.model, sizeof(out.model)) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to get disk model.", VEXO_AT);
		VEXO_ERR_PASS();
		return -1;
	}
	std::snprintf(out.name, sizeof(out.name), "%s", kFirstDiskName);
	std::snprintf(out.path, sizeof(out.path), "%s", kFirstDisk);

	// A RAID product whose root is aufs runs from its memory image
	// (installation or recovery): the disk carries no system yet, and it
	// is left alone rather than asked for its temperature.
	bool fromMemory = false;
	if (VLIBCSupportRAID()) {
		int aufs = vexo::disk::aufsMounted();
		if (aufs < 0)
			return -1;
		fromMemory = aufs == 1;
	}

	unsigned long long bytes = 0;
	if (!vexo::disk::wholeDiskBytes(kFirstDiskName, &bytes)) {
		vlog(LOG_ERR, "%s:%d Failed to get size of %s", VEXO_AT, kFirstDisk);
		VEXO_ERR_PASS();
		return -1;
	}
	out.sizeBytes = bytes;
	out.temperature = fromMemory ? 0 : VEXODiskTemperatureGet(kFirstDisk);
	*info = out;
	return 0;
} VEXO_C_CATCH(-1)
