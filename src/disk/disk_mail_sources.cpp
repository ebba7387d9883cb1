// What the status mail reads beside the verdict that producers outside the
// library publish in the disk's value cache: whether analytics cover the
// disk, and the days of use its SSD bundle gives it.
#include <vexohw/disk.h>
#include <vexohw/disk_mail.h>
#include <vexohw/frame.h>
#include <vexohw/remain_life.h>

#include "disk/remain_life_private.h"
#include "frame/boundary.h"
#include "frame/cache_keys.h"
#include "frame/err.h"

namespace {

// A cached integer, `absent` when the producer never stored one. 0, or -1
// on a bad path or an unreadable value.
int cachedInt(const char *path, const char *key, int absent, int &value)
{
	const char *name = VEXODiskDevPrefixSkip(path);
	if (!path || !vexo::cache::isNameComponent(name)) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	int v = 0;
	if (VEXODiskGetIntValueCacheFile(path, key, &v) == 0) {
		value = v;
		return 0;
	}
	if (VLIBCErrGet() != VEXO_ERR_NOENT) {
		VEXO_ERR_PASS();
		return -1;
	}
	value = absent;
	return 0;
}

} // namespace

extern "C" {

VEXO_API int VEXODiskWddaIsSupport(const char *path)
try {
	int on = 0;
	if (cachedInt(path, "wdda_support", 0, on) != 0)
		return -1;
	return on ? 1 : 0;
}
VEXO_C_CATCH(-1)

VEXO_API int VEXOSSDBundleDaysLeftGet(const char *path, int *days)
try {
	if (!days) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	int d = -1;
	if (cachedInt(path, "ssd_bundle_days_left", -1, d) != 0)
		return -1;
	*days = d < 0 ? -1 : d;
	return 0;
}
VEXO_C_CATCH(-1)

VEXO_API int VEXOSSDBundleMonthLeftCheck(const char *path)
try {
	int days = -1;
	if (VEXOSSDBundleDaysLeftGet(path, &days) != 0) {
		VEXO_ERR_PASS();
		return -1;
	}
	if (days < 0 || VEXOSSDBundleMonthLeftWarnEnableGet() != 1)
		return 0;
	int thr = 1;
	if (VEXOSSDBundleMonthLeftThresGet(&thr) != 0) {
		VEXO_ERR_PASS();
		return -1;
	}
	return vexo::life::monthsOfDays(days) <= thr ? 1 : 0;
}
VEXO_C_CATCH(-1)

} // extern "C"
