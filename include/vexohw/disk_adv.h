/*
 * The advanced test's status of a disk: its newest result mapped through
 * /etc.defaults/disk_adv_status.conf (one section per test code, keys
 * section, key, damageWeight, modifiable) to a status and the damage weight
 * the health rollup adds, and the per-disk cache of that answer (adv_status,
 * adv_damage_weight, adv_progress). Pure C.
 */
#ifndef VEXOHW_DISK_ADV_H
#define VEXOHW_DISK_ADV_H

#include <vexohw/vexo_export.h>

VEXO_BEGIN_DECLS

typedef enum DiskAdvStatus {
	ADV_STATUS_UNKNOWN = 0,
	ADV_STATUS_NORMAL = 1,
	ADV_STATUS_WARNING = 2,
	ADV_STATUS_CRITICAL = 3,
	ADV_STATUS_FAILING = 4,
	ADV_STATUS_NOT_SUPPORT = 5,
	ADV_STATUS_NOT_TEST = 6,
	ADV_STATUS_CAN_NOT_TEST = 7,
	ADV_STATUS_CAN_NOT_TEST_WARN = 8
} DiskAdvStatus;

/* The word of a status ("normal", "can_not_test_warn"). 0, or -1. */
VEXO_API int VEXODiskAdvStatusTransfer(int status, char *out, int size);
/* A test code's configuration: the status number (also printed into
   status), or 0 on failure (0x0D00, 0x0200, 0x2A00). */
VEXO_API int VEXODiskAdvStatusMapping(const char *code, char *status, int statusSize, char *section, int sectionSize,
				      char *key, int keySize, char *weight, int weightSize, int *modifiable);
/* The status word of a disk, with the weight, whether it can be muted,
   whether it is muted, the test code and its texts. 0, or -1. */
VEXO_API int VEXODiskAdvStatusGet(const char *path, char *status, int statusSize, int *weight, int *modifiable,
				  int *muted, char *code, int codeSize, char *section, int sectionSize, char *key,
				  int keySize);
/* Fills the cache of a device name ("sda") from VEXODiskAdvStatusGet. */
VEXO_API int VEXODiskAdvStatusInit(const char *name);
/* Stores the status of a test code that just finished. 0, or -1. */
VEXO_API int VEXODiskAdvStatusCacheUpdate(const char *name, const char *code);
/* The cached status, progress ("" when none) and weight. 0, or -1 when the
   status or the weight was never stored. */
VEXO_API int VEXODiskAdvStatusCacheGet(const char *path, char *status, int statusSize, char *progress,
				       int progressSize, int *weight);
/* Adds the finished test's event to the test log, with the last line of
   its detail file (may be null). 0, or -1. */
VEXO_API int VEXODiskAdvTestResultRecord(const char *path, const char *code, const char *detailFile);

VEXO_END_DECLS

#endif
