// VEXODiskSSDBadBlockOverThreshold: whether an SSD bundle drive's grown bad
// blocks have reached its model's threshold.
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vexohw/disk_probe.h>
#include <vexohw/drive_bundle.h>
#include <vexohw/smart_info.h>
#include <vexohw/ssd_bundle.h>

#include "frame/err.h"

extern "C" VEXO_API int VEXODiskSSDBadBlockOverThreshold(const char *path)
try {
	if (!path) {
		vlog(LOG_ERR, "%s:%d Bad parameters", VEXO_AT);
		return 0;
	}
	if (VEXODiskIsSSD(path) != 1)
		return 0;
	DriveBundleModelConf conf{};
	int r = VEXODriveBundleModelConfGet(path, &conf);
	if (r < 0)
		vlog(LOG_ERR, "%s:%d Failed to get model conf for %s", VEXO_AT, path);
	if (r != 0 || conf.badBlockCntThr == 0)
		return 0;
	int id = 0, shift = 0;
	uint64_t mask = 0;
	if (VEXOSSDBundleSmartInfoGet(conf.bundleSmartAttrs, VEXO_SSD_BUNDLE_ATTR_BAD_BLOCK, &id, &mask, &shift) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to parse smart info", VEXO_AT);
		return 0;
	}
	SmartInfoEntry *raw = nullptr;
	if (VEXODiskAtaSmartInfoParse(path, &raw) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to get smart info for %s", VEXO_AT, path);
		return 0;
	}
	std::unique_ptr<SmartInfoEntry, void (*)(SmartInfoEntry *)> list(raw, VEXODiskSmartInfoFree);
	for (const SmartInfoEntry *e = raw; e; e = e->next) {
		if (!e->id || !e->raw || std::strtol(e->id, nullptr, 10) != id)
			continue;
		errno = 0;
		char *end = nullptr;
		unsigned long long v = std::strtoull(e->raw, &end, 10);
		if (errno || end == e->raw)
			break;
		return conf.badBlockCntThr <= ((v & mask) >> shift) ? 1 : 0;
	}
	vlog(LOG_ERR, "%s:%d Failed to get smart attributes", VEXO_AT);
	return 0;
}
VEXO_C_CATCH(0)
