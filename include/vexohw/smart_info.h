/*
 * SMART attribute lists of ATA disks, as the attribute table of
 * /usr/bin/smartctl prints them, and their short-lived per-disk cache.
 * Pure C.
 */
#ifndef VEXOHW_SMART_INFO_H
#define VEXOHW_SMART_INFO_H

#include <stdint.h>
#include <vexohw/vexo_export.h>

VEXO_BEGIN_DECLS

/* status of an entry */
#define SMART_ATTR_STATUS_GOOD 0
#define SMART_ATTR_STATUS_FAILED_PAST 1
#define SMART_ATTR_STATUS_FAILING_NOW 2

/* One attribute, in the order of the tool's output. All strings are heap
   copies owned by the list. */
typedef struct SmartInfoEntry {
	char *name;      /* as printed, e.g. "Reallocated_Sector_Ct" */
	char *id;        /* decimal id */
	char *value;     /* normalized current value */
	char *worst;     /* normalized worst value */
	char *threshold; /* normalized threshold */
	char *raw;       /* first word of the raw column */
	uint32_t status; /* SMART_ATTR_STATUS_* */
	struct SmartInfoEntry *next;
} SmartInfoEntry;

/* Frees a list and its strings; null is allowed. */
VEXO_API void VEXODiskSmartInfoFree(SmartInfoEntry *list);
/* The attribute list of a disk, from the cache when fresh. 0, or -1.
   A SCSI disk has no attribute table: -1 with 0xD900 and *list null.
   An NVMe disk's list is read from the drive every time (never cached):
   the health values of VEXONVMeSmartInfoGet (<vexoplatform/nvme_smart.h>)
   with value and raw the drive's text, worst and threshold empty, status 2
   for "Critical Warning" above 0, "Percentage Used" above 99 and "Available
   Spare" at or below "Available Spare Threshold" (debug overrides crit,
   perc_used and life applied first), then the vendor entries of
   GetNVMeVendorSpecificSmartInfo (<vexohw/smart_nvme.h>; their failure is
   logged and the list goes without them). A drive that can't be asked:
   "Can't get smart infomartion of  <path>" on standard output and -1. */
VEXO_API int VEXODiskAtaSmartInfoParse(const char *path, SmartInfoEntry **list);
/* Forces a fresh read into the cache; 0 and nothing done for "scsi" and
   "nvme" disks. 0, or -1 (also when the list was read but could not be
   cached). */
VEXO_API int VEXODiskAtaSmartInfoUpdate(const char *path);
/* type is the -d keyword of VEXODiskDeviceTypeGet; path is "/dev/<name>".
   SmartInfoGet serves a cached list written at most an hour ago unless
   force is set; otherwise it runs the tool and caches the result (a failed
   cache write is logged, not returned). AtaSmartInfoGet always runs
   /usr/bin/smartctl -d <type> -A <path>. Both: 0, or -1 with *list null
   (0x0D00 bad argument, 0x6100 path not under /dev/, 0x0900 tool not
   started, 0x0A00 no attribute table, 0x2A00 a row of fewer than ten
   columns, 0x0200 out of memory). */
VEXO_API int SmartInfoGet(const char *path, const char *type, SmartInfoEntry **list, int force);
VEXO_API int AtaSmartInfoGet(const char *path, const char *type, SmartInfoEntry **list);
/* name is the device name without "/dev/". 0, or -1.
   SmartInfoCacheUpdate: 0x0200 out of memory, 0x0400 lock not taken in
   10 s, 0x0B00 write failed, 0x2800 rename failed.
   SmartInfoCacheGet: *list null on failure; 0x0900 no file or not a
   non-empty array, 0x0A00 an element not an array of seven, 0x2A00 a
   missing or mistyped item. */
VEXO_API int SmartInfoCacheUpdate(const char *name, const SmartInfoEntry *list);
VEXO_API int SmartInfoCacheGet(const char *name, SmartInfoEntry **list);

VEXO_END_DECLS

#endif
