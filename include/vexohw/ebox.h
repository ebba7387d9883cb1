/*
 * Expansion units: the handle of one unit with its table of operations, and
 * the I2C-managed units. Pure C.
 *
 * A unit is a sysfs directory of the unit driver (a SCSI host such as
 * "/sys/class/scsi_host/host4") holding vexo_pm_info, vexo_pm_gpio and, on
 * I2C-managed units, vexo_pm_i2c. VEXOEBoxHandleGet fills a handle whose
 * slots hold the functions of the unit's chip family, model and place in a
 * chain; a null slot means the unit lacks the operation. Callers test a
 * slot before they call it, or use a unit-level handle
 * (VEXOEBoxUnitHandleGet), whose slots answer 0 for what the unit lacks.
 *
 * Return values of the slots: 0 on success and -1 on failure unless told
 * otherwise; yes/no questions give 1 or 0 (-1 when the unit cannot be
 * asked). FanCTL gives 1 on success and 0 on failure.
 */
#ifndef VEXOHW_EBOX_H
#define VEXOHW_EBOX_H

#include <vexohw/fan_config.h>
#include <vexohw/vexo_export.h>
#include <vexoplatform/vexocore.h>

VEXO_BEGIN_DECLS

#define VEXO_EBOX_PATH_MAX 4096
#define VEXO_EBOX_I2C_DATA_MAX 7

typedef struct VEXO_EBOX_HANDLE VEXO_EBOX_HANDLE_T;

struct VEXO_EBOX_HANDLE {
	char gpio_path[VEXO_EBOX_PATH_MAX]; /* vexo_pm_gpio, or vexo_pm_i2c for the 5755 family */
	char info_path[VEXO_EBOX_PATH_MAX]; /* vexo_pm_info */
	unsigned int port;                  /* the caller's port number */
	int sem_id;                         /* the unit's semaphore, -1 when none */
	VEXO_EBOX_HANDLE_T *inner;          /* unit-level handles only; freed by VEXOEBoxHandleListFree */

	/* 1: a command word for the unit from an operation code and its argument */
	int (*EncodeCmd)(VEXO_EBOX_HANDLE_T *h, int op, int arg, unsigned int *word);
	void *reserved;
	/* 3, 4: the 32 GPIO lines, as the last command left them */
	int (*ReadGpio)(VEXO_EBOX_HANDLE_T *h, unsigned int *gpio);
	int (*WriteGpio)(VEXO_EBOX_HANDLE_T *h, unsigned int word);
	/* 5: 1 powered, 0 off, -1 unknown */
	int (*IsPowerOn)(VEXO_EBOX_HANDLE_T *h);
	/* 6: failed fans. The flag form sets errs[0]; the per-fan form errs[0..count). 1 when any failed, 0 none, -1 */
	int (*FanErr)(VEXO_EBOX_HANDLE_T *h, int *errs, int count);
	/* 7: tachometer of fan (from 1) in rpm */
	int (*FanSpeedGet)(VEXO_EBOX_HANDLE_T *h, int fan, int *rpm);
	/* 8: model text ("XU11") */
	int (*UniqueGet)(VEXO_EBOX_HANDLE_T *h, char *buf, int size);
	/* 9: power on (1) or off (0) */
	int (*PowerCTL)(VEXO_EBOX_HANDLE_T *h, int on);
	/* 10: ready LED: 0 off, 1 on, 2 blink */
	int (*LedRaidReadyCTL)(VEXO_EBOX_HANDLE_T *h, int state);
	/* 11: status LED of disk (from 1): 0 off, 1 green, 2 orange, 3 orange blink */
	int (*LedDiskStatCTL)(VEXO_EBOX_HANDLE_T *h, int disk, int state);
	/* 12: every disk's status LED */
	int (*LedDiskStatAllCTL)(VEXO_EBOX_HANDLE_T *h, int state);
	/* 13: fan speed from a FAN_SPEED code; 1 on success, 0 on failure */
	int (*FanCTL)(VEXO_EBOX_HANDLE_T *h, FAN_SPEED speed);
	/* 14, 15: "vendor" and "deviceid" of the host info */
	int (*VendorNameGet)(VEXO_EBOX_HANDLE_T *h, char *buf, int size);
	int (*DeviceIDGet)(VEXO_EBOX_HANDLE_T *h, char *buf, int size);
	/* 16: supply states[0..count): 1 good, 0 failed; the supply count, or -1 */
	int (*RedundantPowerStatGet)(VEXO_EBOX_HANDLE_T *h, int *states, int count);
	/* 17: device path of disk (from 1) */
	int (*DiskPathGet)(VEXO_EBOX_HANDLE_T *h, int disk, char *buf, int size);
	/* 18: *busy non-zero while the kernel's error handling works on the port */
	int (*EHProcessGet)(VEXO_EBOX_HANDLE_T *h, int *busy);
	/* 19: 1 when the port multiplier is there */
	int (*IsPMPresent)(VEXO_EBOX_HANDLE_T *h);
	/* 20, 21: counts, or -1 */
	int (*MaxDiskGet)(VEXO_EBOX_HANDLE_T *h);
	int (*FanNumberGet)(VEXO_EBOX_HANDLE_T *h);
	/* 22, 23: take and release the unit's semaphore */
	int (*Wait)(VEXO_EBOX_HANDLE_T *h);
	int (*Signal)(VEXO_EBOX_HANDLE_T *h);
	/* 24 */
	int (*PSUBuzzerMute)(VEXO_EBOX_HANDLE_T *h);
	/* 25-27 */
	int (*PowerBtnDisableSet)(VEXO_EBOX_HANDLE_T *h, int disable);
	int (*IsPowerBtnDisabled)(VEXO_EBOX_HANDLE_T *h);
	int (*IsSupportPowerBtnDisable)(VEXO_EBOX_HANDLE_T *h);
	/* 28: the unit's switch mode into *mode */
	int (*SwitchModeGet)(VEXO_EBOX_HANDLE_T *h, int *mode);
	/* 29-31: 0 off, 1 on (LedAlarmCTL: 2 blink) */
	int (*DeepSleepLedCTL)(VEXO_EBOX_HANDLE_T *h, int on);
	int (*LedDiskLightCTL)(VEXO_EBOX_HANDLE_T *h, int on);
	int (*LedAlarmCTL)(VEXO_EBOX_HANDLE_T *h, int state);
};

/* A list of handles, as a caller collects them. */
typedef struct VEXO_EBOX_HANDLE_LIST {
	VEXO_EBOX_HANDLE_T *handle; /* owned, with its inner */
	struct VEXO_EBOX_HANDLE_LIST *next;
} VEXO_EBOX_HANDLE_LIST;

/* One I2C transfer. */
typedef struct VEXO_EBOX_I2C {
	unsigned short address;
	unsigned short reg;
	unsigned char write_data[VEXO_EBOX_I2C_DATA_MAX];
	unsigned char read_data[VEXO_EBOX_I2C_DATA_MAX];
	unsigned short length;
} VEXO_EBOX_I2C_T;

/* 1 when the unit at sysfs_dir was recognised and the handle filled, else 0. */
VEXO_API int VEXOEBoxHandleGet(const char *sysfs_dir, VEXO_EBOX_HANDLE_T *handle, unsigned int port);
/* The same with wrappers in the slots and an allocated inner: 1 or 0. */
VEXO_API int VEXOEBoxUnitHandleGet(const char *sysfs_dir, VEXO_EBOX_HANDLE_T *handle, unsigned int port);
/* Fills the I2C family's slots for a unit of that model and position. 0, or -1. */
VEXO_API int VEXOEBoxHandleInitByConfig(VEXO_EBOX_HANDLE_T *handle, const char *unique, const char *deviceid,
					const char *emid);
/* Frees the cells, their handles and each handle's inner. */
VEXO_API void VEXOEBoxHandleListFree(VEXO_EBOX_HANDLE_LIST *list);
/* 1 when key has a non-empty value in the key-value file path, else 0. */
VEXO_API int VEXOEBoxHostInfoGet(const char *key, const char *path, char *value, int size);
/* 1 when the board has an expansion port and the unit's vexo_device_list isn't empty. */
VEXO_API int VEXOEBoxSysfsDevIs(const char *sysfs_dir);
/* Chip family questions on a deviceid text: 1 or 0. */
VEXO_API int VEXOEUnit3xxxChip(const char *deviceid);
VEXO_API int VEXOEUnit9705Chip(const char *deviceid);
VEXO_API int VEXOEUnit575Chip(const char *deviceid);
/* Creates or attaches the unit's semaphore into *sem: 1, or 0. */
VEXO_API int VEXOEBox3xxxSemGet(VEXO_EBOX_HANDLE_T *handle, int *sem);

/* The text protocol of vexo_pm_i2c. lock non-zero takes the unit's semaphore. 0, or -1. */
VEXO_API int VEXOEBoxI2cWrite(VEXO_EBOX_HANDLE_T *handle, VEXO_EBOX_I2C_T *transfer, int lock);
VEXO_API int VEXOEBoxI2cRead(VEXO_EBOX_HANDLE_T *handle, VEXO_EBOX_I2C_T *transfer, int lock);
/* The unit's polled values (section "i2c": fanTach1...) into *output (allocated if null). 0, or -1. */
VEXO_API int VEXOEBoxI2cPoll(VEXO_EBOX_HANDLE_T *handle, PVLIBSZHASH *output);

/* The operations of an XU11, as the ops table holds them. */
VEXO_API int VEXOEBoxI2cFanCTL(VEXO_EBOX_HANDLE_T *handle, FAN_SPEED speed);
VEXO_API int VEXOEBoxI2cIsPowerOn(VEXO_EBOX_HANDLE_T *handle);
VEXO_API int VEXOEBoxI2cPowerCTL(VEXO_EBOX_HANDLE_T *handle, int on);
VEXO_API int VEXOEBoxI2cWhichFanErr(VEXO_EBOX_HANDLE_T *handle, int *errs, int count);
VEXO_API int VEXOEBoxI2cRedundantPowerStatGet(VEXO_EBOX_HANDLE_T *handle, int *states, int count);
VEXO_API int VEXOEBoxI2cIsPowerBtnDisabled(VEXO_EBOX_HANDLE_T *handle);
VEXO_API int VEXOEBoxI2cPowerBtnDisableSet(VEXO_EBOX_HANDLE_T *handle, int disable);
VEXO_API int VEXOEBoxI2cSwitchModeGet(VEXO_EBOX_HANDLE_T *handle, int *mode);
VEXO_API int VEXOEBoxI2cLedAlarmCTL(VEXO_EBOX_HANDLE_T *handle, int state);
VEXO_API int VEXOEBoxI2cLedDiskStatCTL(VEXO_EBOX_HANDLE_T *handle, int disk, int state);
VEXO_API int VEXOEBoxI2cLedDiskStatAllCTL(VEXO_EBOX_HANDLE_T *handle, int state);
VEXO_API int VEXOEBoxI2cLedDiskLightCTL(VEXO_EBOX_HANDLE_T *handle, int on);

VEXO_END_DECLS

#endif
