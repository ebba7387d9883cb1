// Whether a disk speaks ATA. The kernel's SCSI translation of an ATA drive
// reports the INQUIRY vendor "ATA", whether the drive sits on a libata
// port, behind a SAS controller or behind a bridge that translates.
#include <cstring>
#include <vexohw/disk_state.h>

#include "disk/disk_probe_name.h"
#include "frame/err.h"
#include "frame/sysroot.h"
#include "frame/unique.h"

extern "C" VEXO_API int VEXODiskIsSata(const char *path)
try {
	if (!path) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::string name = vexo::disk::physicalName(vexo::disk::shortName(path));
	if (vexo::disk::isNvmeName(name))
		return 0;
	std::string file = "/sys/block/" + name + "/device/vendor";
	vexo::UniqueFile f(vexo::sysroot::fopen(file.c_str(), "r"));
	if (!f) {
		VEXO_ERR(VEXO_ERR_FOPEN);
		return -1;
	}
	char vendor[16] = {};
	if (!std::fgets(vendor, sizeof(vendor), f.get())) {
		VEXO_ERR(VEXO_ERR_READ);
		return -1;
	}
	// The field is eight characters padded with spaces.
	return std::strncmp(vendor, "ATA", 3) == 0 && (vendor[3] == ' ' || vendor[3] == '\n' || vendor[3] == '\0') ? 1
														    : 0;
} VEXO_C_CATCH(-1)
