// Is the disk behind the Marvell SoC SATA driver.
#include <vexohw/disk_probe.h>

#include "disk/disk_host_driver_match.h"
#include "frame/log.h"
#include "frame/boundary.h"

int vexo::disk::mvSocDriverIs(const HostDriverLine &host)
{
	return hostDriverIs(host, "mvSata\n", VEXO_AT);
}

extern "C" VEXO_API int VEXODiskIsMvSocDriver(const char *path)
try {
	return vexo::disk::mvSocDriverIs(vexo::disk::readHostDriver(path));
} VEXO_C_CATCH(0)
