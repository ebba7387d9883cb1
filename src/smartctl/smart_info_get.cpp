// The attribute list of a disk: from the per-disk cache while it is fresh,
// otherwise from the tool, and then into the cache.
#include <cstdio>
#include <cstring>
#include <vexohw/frame.h>
#include <vexohw/smart_info.h>

#include "frame/err.h"
#include "smartctl/smart_info_list.h"

extern "C" VEXO_API int SmartInfoGet(const char *path, const char *type, SmartInfoEntry **list, int force)
try {
	if (list)
		*list = nullptr;
	if (!path || !type || !list) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	char name[32];
	if (!vexo::smart::deviceName(path, name)) {
		VEXO_ERR(VEXO_ERR_UNKNOWN_DEVICE);
		return -1;
	}
	if (!force) {
		long long stamp = 0;
		if (VEXODiskGetLLIntValueCacheFile(path, vexo::smart::kCacheStamp, &stamp) == 0 &&
		    vexo::smart::cacheFresh(stamp, vexo::smart::coarseMonotonicSeconds())) {
			SmartInfoEntry *cached = nullptr;
			if (SmartInfoCacheGet(name, &cached) == 0) {
				*list = cached;
				return 0;
			}
		}
	}
	SmartInfoEntry *fresh = nullptr;
	if (AtaSmartInfoGet(path, type, &fresh) != 0) {
		VEXO_ERR_PASS();
		return -1;
	}
	if (SmartInfoCacheUpdate(name, fresh) != 0)
		vlog(LOG_WARNING, "%s:%d Failed to update smart info cache on %s, 0x%X", VEXO_AT, path, VLIBCErrGet());
	*list = fresh;
	return 0;
} VEXO_C_CATCH(-1)
