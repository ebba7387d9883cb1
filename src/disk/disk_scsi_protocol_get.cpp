// Which protocol reaches a disk: NVMe by its name, otherwise SCSI on the
// virtual edition (its disks are virtual SCSI devices) and ATA on hardware.
#include <vexohw/disk_probe.h>
#include <vexohw/smartctl.h>
#include <vexoplatform/vexocore.h>

#include "disk/disk_probe_name.h"
#include "frame/boundary.h"

extern "C" VEXO_API int VEXODiskScsiProtocolGet(const char *path)
try {
	if (vexo::disk::isNvmeName(vexo::disk::shortName(path)))
		return VEXO_DISK_PROTOCOL_NVME;
	return VLIBCIsVVOS() ? VEXO_DISK_PROTOCOL_SCSI : VEXO_DISK_PROTOCOL_ATA;
} VEXO_C_CATCH(VEXO_DISK_PROTOCOL_ATA)
