/*
 * Debug overrides: a test rig makes a disk report invented values. Each
 * reader is gated by VLIBCSupportDiskStatusDebug and reads the section named
 * by the disk's true serial from /tmp/.disk_status_debug. Each gives 1 and
 * the value when the key exists, 0 when not, -1 on failure. Pure C.
 */
#ifndef VEXOHW_DISK_DEBUG_H
#define VEXOHW_DISK_DEBUG_H

#include <vexohw/smart_info.h>
#include <vexohw/vexo_export.h>

VEXO_BEGIN_DECLS

#define VEXO_DISK_STATUS_DEBUG_FILE "/tmp/.disk_status_debug"

/* Key smart_info: a list of entries with id, value, worst, threshold and raw
   set (name null, status 0), freed with VEXODiskSmartInfoFree. */
VEXO_API int VEXODiskDebugSmartInfoListGet(const char *path, SmartInfoEntry **list);
/* key is smart_test_quick, smart_test_extend or smart_test; *result is
   1 completed, 2 aborted, 3 interrupted, 4 damage, 6 none. */
VEXO_API int VEXODiskDebugSmartTestResultGet(const char *path, const char *key, int *result);
/* Key latest_test_type: 1 quick, 2 extend. */
VEXO_API int SMARTDiskDebugSmartLatestTestTypeGet(const char *path, int *type);
/* Key adv_code: the text. */
VEXO_API int VEXODiskDebugAdvTestCodeGet(const char *path, char *code, int size);
/* Keys unc, life, temp, perc_used: decimal; crit: hexadecimal. */
VEXO_API int VEXODiskDebugUncGet(const char *path, unsigned int *unc);
VEXO_API int VEXODiskDebugLifeGet(const char *path, unsigned int *life);
VEXO_API int VEXODiskDebugTemperatureGet(const char *path, int *temperature);
VEXO_API int VEXONVMeDebugCritWarningGet(const char *path, unsigned int *warning);
VEXO_API int VEXONVMeDebugPercentageUsedGet(const char *path, unsigned int *percentage);

VEXO_END_DECLS

#endif
