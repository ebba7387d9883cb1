/*
 * The per-disk compatibility cache, its refresh and the alert it raises.
 * Pure C.
 *
 * Values under /run/vexostorage/disks/<name>/ (name: the device path
 * without "/dev/"):
 *   compatibility         status text of VEXODiskCompatibilityGet(disk, 0)
 *   force_compatibility   the same with the model's support check skipped
 *   compatibility_action  the matched rule's actions (JSON)
 *   compatibility.lock    serialises the refresh of one disk between
 *                         processes (10 s wait)
 *   compatibility_check.lock  serialises the whole check of one disk (value
 *                         before, refresh, value after), so that a change
 *                         seen by two refreshers is told once
 * Readers take no lock: every value is replaced whole by rename.
 *
 * A refresh that turns a disk into one the user must hear about (its
 * actions say "notification" and its status or alert changed) spools the
 * notification "DiskCompatibilityIncompatible" with %MODEL%, %DISK_ID% and
 * %EUNIT_ID% (see <vexoplatform/sysnotify.h>), once, at the change.
 */
#ifndef VEXOHW_COMPAT_CACHE_H
#define VEXOHW_COMPAT_CACHE_H

#include <stdint.h>
#include <vexohw/disk.h>
#include <vexohw/vexo_export.h>

VEXO_BEGIN_DECLS

/* Warranty values of a disk's records. */
#define VEXO_WARRANTY_NEW 0x00000000u
#define VEXO_WARRANTY_DEFECT 0xFFFFFFFFu
#define VEXO_WARRANTY_REFURBISH 0xAAAAAAAAu

/* The cached status text (at most outSize - 1 bytes). 0, or -1 (no value:
 * the disk was never refreshed since boot). */
VEXO_API int VEXODiskCompatibilityCacheGet(const char *disk, char *out, int outSize);
/* The same for force_compatibility. */
VEXO_API int VEXODiskCompatibilityCacheForceGet(const char *disk, char *out, int outSize);
/* Recomputes and writes both status values. 0, or -1 (the lock not taken
 * within 10 s: nothing written; a value not written: the other still is). */
VEXO_API int VEXODiskCompatibilityCacheUpdate(const char *disk);
/* The update, the actions, and the notification at a change. 0, or -1 when
 * the update failed. */
VEXO_API int VEXODiskCompatibilityCacheUpdateAndChecker(const char *disk);
/* Both refresh passes (verdicts, then firmware values) over the disks the
 * filter selects (null: every disk). 0, or -1. */
VEXO_API int VEXODiskCompatibilityAllDisksUpdate(DiskEnumFilter *filter);
/* Refreshes the disks of every expansion unit whose name begins unitName
 * (a prefix test). */
VEXO_API void VEXODiskCompatibilityEunitDisksUpdate(const char *unitName);
/* 1 when the disk's state calls for a notification, else 0. */
VEXO_API int VEXODiskCompatibilityNeedAlert(const char *disk);
/* Spools the notification for the disk. */
VEXO_API void VEXODiskCompatibilityMailSend(const char *disk);

/* "new", "defect", "refurbish" <-> their values. 0, or -1. */
VEXO_API int VEXODiskWarrantyToValue(const char *warranty, uint32_t *value);
VEXO_API int VEXODiskValueToWarranty(uint32_t value, char *out, int outSize);

VEXO_END_DECLS

#endif
