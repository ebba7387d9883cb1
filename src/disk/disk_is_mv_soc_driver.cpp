// Is the disk behind the Marvell SoC SATA driver.
#include <vexohw/disk_probe.h>

#include "disk/disk_host_driver_match.h"
#include "frame/log.h"

extern "C" VEXO_API int VEXODiskIsMvSocDriver(const char *path)
{
	return vexo::disk::hostDriverMatch(path, "mvSata\n", VEXO_AT);
}
