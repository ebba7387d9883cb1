// Whether a disk speaks ATA. The kernel's SCSI translation of an ATA drive
// reports the INQUIRY vendor "ATA", whether the drive sits on a libata
// port, behind a SAS controller or behind a bridge that translates.
#include <vexohw/disk_state.h>

#include "disk/disk_probe_name.h"
#include "frame/err.h"
#include "frame/path_read.h"

extern "C" VEXO_API int VEXODiskIsSata(const char *path)
try {
	if (!path) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::string name = vexo::disk::physicalName(vexo::disk::shortName(path));
	if (vexo::disk::isNvmeName(name))
		return 0;
	std::string vendor;
	vexo::ReadFail why = vexo::ReadFail::None;
	if (!vexo::readLine("/sys/block/" + name + "/device/vendor", vendor, 16, true, &why)) {
		VEXO_ERR(why == vexo::ReadFail::Open ? VEXO_ERR_FOPEN : VEXO_ERR_READ);
		return -1;
	}
	// The field is eight characters padded with spaces.
	return vendor.compare(0, 3, "ATA") == 0 && (vendor.size() == 3 || vendor[3] == ' ' || vendor[3] == '\n') ? 1 : 0;
} VEXO_C_CATCH(-1)
