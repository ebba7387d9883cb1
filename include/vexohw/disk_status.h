/*
 * The one status word of a disk: which of its status keywords (space,
 * health, processing, compatibility, a remote unit's connection) the user
 * interface shows, and what a keyword ranks. Pure C.
 */
#ifndef VEXOHW_DISK_STATUS_H
#define VEXOHW_DISK_STATUS_H

#include <stdint.h>
#include <vexohw/disk_overview.h>
#include <vexohw/vexo_export.h>

VEXO_BEGIN_DECLS

/* The keywords a summary is made from. 4,256 bytes. The compat form reads
   `health` as the keyword of category "smart". */
typedef struct DiskStatusSummaryInput {
	char space[32];
	char health[32];
	char processing[32];
	char remote[4096]; /* JSON text from a remote controller, possibly empty */
	char compatibility[32];
} DiskStatusSummaryInput;

/* The category that wins into category (its keyword) and that category's
   keyword into status. 0, or -1 (0x0D00 on a null argument). */
VEXO_API int VEXODiskStatusSummaryCalculate(const DiskStatusSummaryInput *in, char *category, int categorySize,
					    char *status, int statusSize);
/* The same between "space" and "smart" only, after the remote check. */
VEXO_API int CompatVEXODiskStatusSummaryCalculate(const DiskStatusSummaryInput *in, char *category,
						  int categorySize, char *status, int statusSize);
/* 1 when the JSON text carries an integer "disconnect" (the outputs then
   hold the word that wins), 0 when not, -1 on a null argument. */
VEXO_API int VEXOCheckDiskRemoteControllerDisconnect(const char *remote, char *category, int categorySize,
						     char *status, int statusSize);
/* The row's emergentRank, -1 when unknown. */
VEXO_API int VEXODiskStatusEmergentRankGet(const char *category, const char *keyword);
/* The row's isAbnormal, 0 when unknown. */
VEXO_API int VEXODiskStatusIsAbnormal(const char *category, const char *keyword);
/* The keyword of row `index` of "space" / "processing". 0, or -1. */
VEXO_API int VEXODiskSpaceStatusKeyTransfer(int index, char *out, int size);
VEXO_API int VEXODiskProcessingStatusKeyTransfer(int index, char *out, int size);

/* The current health of a disk. 80 bytes. */
typedef struct DiskHealthAttr {
	int32_t unc;        /* bad sectors; -1 when the disk cannot tell */
	int32_t idnf;       /* ID-not-found count */
	int32_t retry;      /* interface retries and CRC errors */
	int32_t remainLife; /* percent, -1 unknown */
	char lifeAttribute[64];
} DiskHealthAttr;

/* The values the drive reports. 0, or -1. */
VEXO_API int VEXODiskCurHealthSmartAttrGet(const char *path, DiskHealthAttr *attr);
/* The drive's values plus the disk overview's counters (retry grows by
   retry and icrc, idnf by idnf). 0, or -1. */
VEXO_API int VEXODiskCurHealthAttrGet(const char *path, DiskHealthAttr *attr);

#define VEXO_DISK_HEALTH_DIFF 0
#define VEXO_DISK_HEALTH_CUMULATIVE 1
/* Twelve months (entries[0] the oldest, [11] this month) of the disk's
   health: monthly differences (type 0) or cumulative values (type 1).
   size must be 12. 0, or -1. */
VEXO_API int VEXODiskHealthHistoryGet(const char *path, DiskHealthHistoryEntry *entries, int size, int type);

VEXO_END_DECLS

#endif
