// The SCSI generic node of a disk, which tools that speak SCSI commands need.
#include <string>
#include <vector>
#include <vexohw/disk_probe.h>

#include "disk/disk_probe_name.h"
#include "disk/probe_text.h"
#include "frame/err.h"
#include "frame/sysroot.h"

extern "C" VEXO_API int VEXODiskScsiGenericGet(const char *path, char *sg, int size)
try {
	if (!path || !*path || !sg || size <= 0) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	const std::string disk = vexo::disk::physicalName(vexo::disk::shortName(path));
	if (disk.empty() || disk.find('/') != std::string::npos) {
		vlog(LOG_ERR, "%s:%d Failed to get phyical disk of device %s", VEXO_AT, path);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	const std::string pattern = "/sys/block/" + disk + "/device/scsi_generic/sg*";
	std::vector<std::string> matches;
	if (vexo::sysroot::glob(pattern.c_str(), matches) != 0) {
		vlog(LOG_ERR, "%s:%d read error :%s", VEXO_AT, pattern.c_str());
		VEXO_ERR(VEXO_ERR_GLOB);
		return -1;
	}
	if (matches.empty()) {
		vlog(LOG_ERR, "%s:%d glob found nothing: %s", VEXO_AT, pattern.c_str());
		VEXO_ERR(VEXO_ERR_NOT_FOUND);
		return -1;
	}
	const std::string &first = matches.front();
	return vexo::disk::putWhole(sg, size, "/dev/" + first.substr(first.rfind('/') + 1));
} VEXO_C_CATCH(-1)
