// The age of a disk's cached SMART attribute list, on the cache's own clock.
#include <vexohw/ext.h>
#include <vexohw/frame.h>

#include "frame/boundary.h"
#include "frame/err.h"
#include "smartctl/smart_info_list.h"

extern "C" VEXO_API int VEXOExtSmartInfoCacheAge(const char *devicePath, long long *ageSeconds,
						long long *maxAgeSeconds) try {
	if (!devicePath || !ageSeconds || !maxAgeSeconds) {
		vlog(LOG_ERR, "%s:%d Bad parameters", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	long long stamp = 0;
	if (VEXODiskGetLLIntValueCacheFile(devicePath, vexo::smart::kCacheStamp, &stamp) != 0) {
		VEXO_ERR_PASS();
		return -1;
	}
	const long long now = vexo::smart::coarseMonotonicSeconds();
	*ageSeconds = now - stamp;
	*maxAgeSeconds = vexo::smart::kCacheMaxAgeSeconds;
	return vexo::smart::cacheFresh(stamp, now) ? 1 : 0;
} VEXO_C_CATCH(-1)
