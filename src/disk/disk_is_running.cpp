// Whether the kernel keeps a disk in the running state. Only sysfs is read:
// asking the drive could wake it.
#include <cstring>
#include <vexohw/disk_state.h>
#include <vexoplatform/disk_map.h>

#include "disk/disk_probe_name.h"
#include "frame/err.h"
#include "frame/unique.h"
#include "frame/path_read.h"

namespace {

// A string list that may move while it grows, freed with the scope.
using NameList = vexo::SzList;

bool stateRunning(const char *name)
{
	std::string state;
	if (!vexo::readLine(std::string("/sys/block/") + name + "/device/state", state, 32, true))
		return false;
	return state.compare(0, 7, "running") == 0;
}

} // namespace

extern "C" VEXO_API int VEXODiskIsRunning(const char *path)
try {
	if (!path) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return 0;
	}
	// An NVMe controller has no such state and answers without spinning up.
	if (vexo::disk::isNvmeName(vexo::disk::shortName(path)))
		return 1;
	NameList disks;
	if (!disks.p || VEXODiskPhysicalDiskNameListGet(path, &disks.p) < 0) {
		vlog(LOG_ERR, "%s:%d Failed to get physical disk list from %s\n", VEXO_AT, path);
		return 0;
	}
	for (int i = 0; i < disks.p->nItem; ++i) {
		const char *member = VLIBCSzListGet(disks.p, i);
		if (vexo::disk::isNvmeName(member) || stateRunning(member))
			return 1;
	}
	return 0;
} VEXO_C_CATCH(0)
