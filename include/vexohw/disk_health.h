/*
 * The health sources beside SMART that the verdict (<vexohw/smart_status.h>)
 * adds up: the kernel's read-only flag, the error accounting (command
 * timeouts, failed resets, uncorrectable reads), drive analytics, the
 * failure prediction and the SSD bundle's warning. Pure C.
 *
 * Every function takes a device path ("/dev/sda") and returns 0, or -1
 * with the reason in VLIBCErrGet(): 0x0D00 a null argument or a path whose
 * name is not one plain path element, 0x6100 a disk the appliance does not
 * know (no /sys/block/<name>, or for the cache readers no cache folder
 * /run/vexostorage/disks/<name>), 0x0A00 a value that is there but can't be
 * read or is not a number of its kind, 0x0B00 (or the cache writer's code)
 * a cache value not stored. Weights are on the verdict's scale: 1 to 30 a
 * warning, 31 to 600 critical, 601 and up failing.
 *
 * None of them sends a command to a drive: they read the kernel's
 * attributes and the per-disk value cache, so they never wake a sleeping
 * disk.
 */
#ifndef VEXOHW_DISK_HEALTH_H
#define VEXOHW_DISK_HEALTH_H

#include <vexohw/vexo_export.h>

VEXO_BEGIN_DECLS

/*
 * The kernel's "ro" attribute of the disk's block node
 * (/sys/block/<name>/ro): *readOnly is 1 when the kernel refuses writes
 * to the disk, else 0. A value other than 0 or 1 is 0x0A00.
 */
VEXO_API int VEXODiskReadonlyGet(const char *path, int *readOnly);

/*
 * Error accounting. Each source keeps a counter, a baseline and a weight:
 *
 *   source      counter                                   cache keys
 *   timeout     device/iotmo_cnt of /sys/block/<name>     timeout_base, timeout_weight, timeout_status
 *   reset fail  device/ioerr_cnt of /sys/block/<name>     reset_fail_base, reset_fail_weight, reset_fail_status
 *   unc         raw value of attribute 187 (reported      unc_base, unc_weight, unc_status
 *               uncorrectable) in the cached SMART list
 *
 * The kernel counters are shown as "0x1f" or "31"; both are taken. They
 * start at 0 with the device, as the cache folder starts empty with the
 * system, so their first baseline is 0: every error since the device
 * appeared counts. The drive's uncorrectable count covers its whole life,
 * so its first baseline is the count first seen: only new errors count.
 * A counter below its baseline was reset (a device attached again, a drive
 * replaced) and takes a fresh baseline the same way.
 *
 * The weight grows with the errors seen above the baseline:
 *
 *   source      warning (weight 1)   critical (weight 31)
 *   timeout     1 to 9               10 and more
 *   reset fail  1 to 9               10 and more
 *   unc         -                    1 and more (data was lost)
 *
 * The weight stays for as long as the device stays attached, unless the
 * errors are acknowledged: storing the current count as the baseline
 * (VEXODiskUpdateLLIntValueCacheFile) makes the next update count from
 * there. The status key holds "normal", "warning" or
 * "critical" for people and tools.
 *
 * The Update functions read the counter (never the drive: the SMART list
 * is the one VEXODiskAtaSmartInfoUpdate last cached), store baseline,
 * weight and status, and return 0. A disk without the counter (an NVMe
 * disk has no iotmo_cnt, a disk not ATA has no attribute list) has
 * nothing to report: weight 0, and 0 returned. The CacheGet functions read
 * the stored weight, 0 when none was stored.
 */
VEXO_API int VEXODiskErrorTimeoutStatusCacheUpdate(const char *path);
VEXO_API int VEXODiskErrorTimeoutStatusCacheGet(const char *path, int *weight);
VEXO_API int VEXODiskErrorResetFailStatusCacheUpdate(const char *path);
VEXO_API int VEXODiskErrorResetFailStatusCacheGet(const char *path, int *weight);
VEXO_API int VEXODiskErrorUncStatusCacheUpdate(const char *path);
VEXO_API int VEXODiskErrorUncStatusCacheGet(const char *path, int *weight);

/*
 * Drive analytics. This library does not analyse drives: an analytics
 * producer publishes its newest finding for a disk in the disk's value
 * cache as wdda_code (the finding's code; 0 for none) and wdda_weight (its
 * weight on the scale). A disk without them has no finding.
 *
 * VEXODiskWddaStatusGet gives the finding as it stands for the user: a
 * finding whose code the user muted (a WDDA entry of action 1 or 2 with
 * that wddaCode in the action log, not cancelled since) weighs 0; a new
 * code is a new finding and counts again. The action log is read only
 * when there is a finding to mute. An unreadable action log mutes
 * nothing (logged). *code (may be null) is the producer's code either way.
 *
 * VEXODiskWddaStatusCacheUpdate stores that weight as wdda_damage_weight,
 * and wdda_status as "normal", "muted", "warning", "critical" or "failing".
 * VEXODiskWddaStatusCacheGet reads wdda_damage_weight (0 when none) and
 * the producer's wdda_code (0 when none) without reading the action log.
 */
VEXO_API int VEXODiskWddaStatusGet(const char *path, int *code, int *weight);
VEXO_API int VEXODiskWddaStatusCacheUpdate(const char *path);
VEXO_API int VEXODiskWddaStatusCacheGet(const char *path, int *code, int *weight);

/*
 * Failure prediction. A prediction producer publishes predict_status, one
 * of "normal", "warning", "critical" or "failing"; this library predicts
 * nothing itself, and nothing in it sets the `prediction` flag of a
 * SmartWarningReason. The function refreshes predict_weight from what the
 * cache holds (0, 1, 31 or 601 for those words; 0 and "unknown" when
 * predict_status is absent or another word) and copies the word to
 * status (may be null; 9 bytes hold every word, a smaller buffer that
 * can't is 0x0D00). The verdict does not add this
 * weight; the mail log reports it.
 */
VEXO_API int VEXODiskHealthPredictionStatusGet(const char *path, char *status, int size);

/*
 * The SSD bundle's warning weight for a disk, as the bundle family
 * publishes it in the disk's value cache under ssd_bundle_warning_weight;
 * 0 when there is none (the disk is in no bundle, or the bundle has
 * nothing to say). A negative or non-numeric value is 0x0A00.
 */
VEXO_API int VEXOSSDBundleWarningWeightGet(const char *path, int *weight);

VEXO_END_DECLS

#endif
