// Is the disk behind the Marvell 1475 host driver.
#include <vexohw/disk_probe.h>

#include "disk/disk_host_driver_match.h"
#include "frame/log.h"
#include "frame/boundary.h"

int vexo::disk::mv1475DriverIs(const HostDriverLine &host)
{
	return hostDriverIs(host, "mv14xx\n", VEXO_AT);
}

extern "C" VEXO_API int VEXODiskIsMv1475Driver(const char *path)
try {
	return vexo::disk::mv1475DriverIs(vexo::disk::readHostDriver(path));
} VEXO_C_CATCH(0)
