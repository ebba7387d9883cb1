// The remaining-life answers the verdict weighs: the user's, show and mail
// thresholds, danger, and the life they are asked about.
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <vexohw/disk_status.h>
#include <vexohw/frame.h>
#include <vexohw/remain_life.h>
#include <vexohw/smart_serial.h>
#include <vexoplatform/vexocore.h>

#include "disk/remain_life_private.h"
#include "frame/boundary.h"
#include "frame/err.h"
#include "frame/log.h"
#include "frame/priv.h"
#include "frame/text.h"

namespace vexo::life {

namespace {

constexpr const char *kSettings = "/etc/vexoinfo.conf";
constexpr const char *kDefaults = "/etc.defaults/vexoinfo.conf";

// A percentage threshold of `file`; false (logged) when the key is missing
// or not a whole number.
bool threshold(const char *file, const char *key, int &value)
{
	char text[32] = {};
	if (VLIBCFileGetKeyValue(file, key, text, sizeof(text), 0) > 0) {
		char *end = nullptr;
		errno = 0;
		long v = std::strtol(text, &end, 10);
		if (errno == 0 && end != text && *end == '\0' && v >= INT_MIN && v <= INT_MAX) {
			value = static_cast<int>(v);
			return true;
		}
	}
	vlog(LOG_ERR, "%s:%d Failed to get %s value", VEXO_AT, key);
	VEXO_ERR(VEXO_ERR_NOT_FOUND);
	return false;
}

int below(const char *file, const char *key, int life)
{
	int thr = 0;
	if (!threshold(file, key, thr))
		return -1;
	return life >= 0 && life <= thr ? 1 : 0;
}

// The life of a disk through the info reader; false when it failed.
bool lifeOf(const char *path, int &life)
{
	life = -1;
	return VEXODiskRemainLifeInfoGet(path, nullptr, 0, &life, nullptr, nullptr) >= 0;
}

} // namespace

int userThreshold(int &value)
{
	char enable[16] = {};
	if (VLIBCFileGetKeyValue(kSettings, "remain_life_thr_enable", enable, sizeof(enable), 0) <= 0 ||
	    std::strcmp(enable, "yes") != 0) {
		value = -1;
		return 0;
	}
	return threshold(kSettings, "remain_life_thr_value", value) ? 1 : -1;
}

} // namespace vexo::life

using namespace vexo::life;

extern "C" {

VEXO_API int VEXODiskIsBelowLifeThrWithValue(const char *path, int life, int *, int *)
try {
	(void)path;
	int thr = -1;
	int on = userThreshold(thr);
	if (on <= 0)
		return on;
	return life >= 0 && life <= thr ? 1 : 0;
}
VEXO_C_CATCH(-1)

VEXO_API int VEXODiskIsBelowLifeThr(const char *path, int *, int *)
try {
	int life = -1;
	return VEXODiskRemainLifeInfoGet(path, nullptr, 0, &life, nullptr, nullptr);
}
VEXO_C_CATCH(-1)

VEXO_API int VEXODiskIsBelowLifeThrCache(const char *path)
try {
	int v = 0;
	if (!path || VEXODiskGetIntValueCacheFile(path, "below_remain_life_thr", &v) != 0)
		return -1;
	return v;
}
VEXO_C_CATCH(-1)

VEXO_API int VEXODiskIsBelowLifeShowThrWithValue(int life)
try {
	return below(kDefaults, "remain_life_show_thr_value", life);
}
VEXO_C_CATCH(-1)

VEXO_API int VEXODiskIsBelowLifeShowThr(const char *path)
try {
	int life = -1;
	return lifeOf(path, life) ? VEXODiskIsBelowLifeShowThrWithValue(life) : -1;
}
VEXO_C_CATCH(-1)

VEXO_API int VEXODiskIsBelowLifeMailNotifyThrWithValue(int life)
try {
	return below(kDefaults, "remain_life_mail_notify_thr_value", life);
}
VEXO_C_CATCH(-1)

VEXO_API int VEXODiskIsBelowLifeMailNotifyThr(const char *path)
try {
	int life = -1;
	return lifeOf(path, life) ? VEXODiskIsBelowLifeMailNotifyThrWithValue(life) : -1;
}
VEXO_C_CATCH(-1)

VEXO_API int VEXODiskIsLifeDangerWithValue(const char *path, int life)
try {
	if (!path) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	if (life < 0)
		return 0;
	if (life < 1)
		return 1;
	// Another maker's drive gets one percent of margin more.
	return life < 2 && VEXODiskIsVexology(path) != 1 ? 1 : 0;
}
VEXO_C_CATCH(-1)

VEXO_API int VEXODiskIsLifeDanger(const char *path)
try {
	int life = -1;
	if (!path)
		return VEXODiskIsLifeDangerWithValue(path, life);
	return lifeOf(path, life) ? VEXODiskIsLifeDangerWithValue(path, life) : 0;
}
VEXO_C_CATCH(-1)

VEXO_API int VEXODiskRemainLifeInfoGet(const char *path, char *attr, int size, int *life, int *, int *)
try {
	if (!path || !life || (attr && size <= 0)) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	DiskHealthAttr a{};
	{
		ENTERCriticalSection;
		if (VEXODiskCurHealthSmartAttrGet(path, &a) != 0) {
			vlog(LOG_ERR, "%s:%d Failed to get health attribute", VEXO_AT);
			return -1;
		}
	}
	*life = a.remainLife;
	if (attr)
		vexo::copyText(attr, size, a.lifeAttribute);
	return VEXODiskIsBelowLifeThrWithValue(path, a.remainLife, nullptr, nullptr);
}
VEXO_C_CATCH(-1)

} // extern "C"
