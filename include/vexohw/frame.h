/*
 * The library frame: per-disk value cache, counting flag files and the
 * disk status keyword tables. Pure C.
 *
 * Return convention for the whole library: 0 on success and -1 on failure
 * unless a function says otherwise; enumerators return a count; yes/no
 * queries return 1 or 0. The reason for a failure is in VLIBCErrGet().
 */
#ifndef VEXOHW_FRAME_H
#define VEXOHW_FRAME_H

#include <vexohw/vexo_export.h>
#include <vexoplatform/vexoerr.h>

VEXO_BEGIN_DECLS

/*
 * Per-disk value cache under /run/vexostorage/disks/<name>/<key>.
 * Readers take a device path ("/dev/sda"); writers take the short name
 * ("sda"). Keep the two apart: a reader given "sda" misses (0x0700), a
 * writer given "/dev/sda" fails with 0x0D00. A name or key must be one path
 * element of letters, digits, '.', '_' and '-' (not "." or "..", not
 * beginning with '-'); anything else fails with 0x0D00.
 * A reader that meets an empty file (a writer between rename and close)
 * fails with 0x0A00: treat it as a temporary miss.
 */
VEXO_API int VEXODiskGetIntValueCacheFile(const char *devicePath, const char *key, int *value);
VEXO_API int VEXODiskGetLLIntValueCacheFile(const char *devicePath, const char *key, long long *value);
/* Copies at most 255 bytes, cut at the first NUL and at size-1; newlines stay. */
VEXO_API int VEXODiskGetStrValueCacheFile(const char *devicePath, const char *key, char *value, int size);

VEXO_API int VEXODiskUpdateIntValueCacheFile(const char *name, const char *key, int value);
VEXO_API int VEXODiskUpdateLLIntValueCacheFile(const char *name, const char *key, long long value);
VEXO_API int VEXODiskUpdateStrValueCacheFile(const char *name, const char *key, const char *value);

/* Keeps a decimal use count in `path`; the file goes away when it reaches 0. */
VEXO_API int VEXODiskUpdateCheckFile(const char *path, int increase);

/*
 * Status keyword tables. The row index is the numeric status value; a row
 * without a keyword has a null pointer.
 */
typedef struct DiskStatusEntry {
	int isAbnormal;
	int emergentRank;
	int summaryCode;
	const char *keyword;
} DiskStatusEntry;

typedef struct DiskStatusCategory {
	int count;
	const DiskStatusEntry *table;
	const char *keyword;
} DiskStatusCategory;

#define VEXO_DISK_STATUS_CATEGORY_COUNT 6

VEXO_API extern const DiskStatusCategory grgDiskStatusCategory[VEXO_DISK_STATUS_CATEGORY_COUNT];
VEXO_API extern const DiskStatusEntry grgDiskSpaceStatusTable[15];
VEXO_API extern const DiskStatusEntry grgDiskHealthStatusTable[7];
VEXO_API extern const DiskStatusEntry grgDiskProcessingStatusTable[6];
VEXO_API extern const DiskStatusEntry grgCompatDiskSmartStatusTable[11];
VEXO_API extern const DiskStatusEntry grgDiskDisconnectStatusTable[3];
VEXO_API extern const DiskStatusEntry grgDiskCompatibilityStatusTable[8];

/*
 * Finds `keyword` in `category`. Both match by prefix: the first category
 * (and then the first row, in index order) whose keyword begins the input
 * wins. Outputs may be null. 0, or -1 with 0x2A00 / 0x0D00.
 */
VEXO_API int DiskStatusAllAttributeGet(const char *category, const char *keyword,
				       int *emergentRank, int *isAbnormal, int *summaryCode);
/* Copies the keyword of row `index` of `category` into out. 0, or -1. */
VEXO_API int DiskStatusStringTrensfer(const char *category, int index, char *out, int size);

VEXO_END_DECLS

#endif
