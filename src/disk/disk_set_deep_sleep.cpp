// Deep sleep of the SATA links, and whether a USB device forbids it.
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <unistd.h>
#include <vexohw/disk_port.h>
#include <vexohw/disk_power.h>

#include "disk/disk_power.h"
#include "frame/boundary.h"
#include "frame/err.h"
#include "frame/sysroot.h"
#include "frame/unique.h"

namespace {

using NameList = vexo::SzList;

// Whether a USB disk is mounted where the system mounts them.
bool usbVolumeMounted()
{
	vexo::UniqueFile f(vexo::sysroot::fopen("/proc/mounts", "r"));
	if (!f)
		return false;
	char word[4096];
	while (std::fscanf(f.get(), "%4095s", word) == 1)
		if (std::strncmp(word, "/volumeUSB", 10) == 0)
			return true;
	return false;
}

} // namespace

extern "C" {

VEXO_API int VEXODiskSetDeepSleep(void) try {
	NameList disks;
	if (!disks.p || VEXODiskPortEnum(DISK_PORT_TYPE_INTERNAL, &disks.p) != 0) {
		vlog(LOG_ERR, "%s:%d enum internal disks failed", VEXO_AT);
		return -1;
	}
	for (int i = 0; i < disks.p->nItem; ++i) {
		const char *name = VLIBCSzListGet(disks.p, i);
		const std::string support = vexo::disk::deviceAttr(name, "vexo_deep_sleep_support");
		vexo::UniqueFd in(vexo::sysroot::open(support.c_str(), O_RDONLY | O_CLOEXEC));
		if (!in)
			continue;
		char text[4] = {};
		if (::read(in.get(), text, 3) < 0) {
			vlog(LOG_ERR, "%s:%d Get %s fail", VEXO_AT, support.c_str());
			return -1;
		}
		if (text[0] != '1')
			continue;
		const std::string ctrl = vexo::disk::deviceAttr(name, "vexo_deep_sleep_ctrl");
		vexo::UniqueFd out(vexo::sysroot::open(ctrl.c_str(), O_WRONLY | O_CLOEXEC));
		if (!out || ::write(out.get(), "1", 1) != 1) {
			vlog(LOG_ERR, "%s:%d Set %s fail", VEXO_AT, ctrl.c_str());
			return -1;
		}
	}
	return 0;
}
VEXO_C_CATCH(-1)

VEXO_API int VEXOCheckDeepSleep(void) try {
	vexo::UniqueFile f(vexo::sysroot::fopen("/proc/bus/usb/devices", "r"));
	if (!f)
		return -1;
	char word[4096];
	for (;;) {
		if (std::fscanf(f.get(), "%4095s", word) != 1)
			return std::ferror(f.get()) ? 0 : 1;
		if (std::strncmp(word, "Cls=", 4) != 0)
			continue;
		const std::string cls(word + 4, strnlen(word + 4, 2));
		if (cls == "00" || cls == "09")
			continue; // per-interface class, or a hub
		if (cls == "08") {
			if (usbVolumeMounted())
				return 0;
			continue;
		}
		return 0;
	}
}
VEXO_C_CATCH(-1)

} // extern "C"
