/*
 * Indicators: a disk's LED changed for a while (the locate request), the
 * buzzer's small settings, and the LED dimmer with its weekly schedule.
 * Pure C.
 */
#ifndef VEXOHW_LED_H
#define VEXOHW_LED_H

#include <stdint.h>
#include <vexohw/disk.h>
#include <vexohw/vexo_export.h>

VEXO_BEGIN_DECLS

/* ---- Disk LED status ----------------------------------------------------- */

/* Appliance paths. The lock's name is spelled as the appliance spells it. */
#define VEXO_DISK_LED_STATUS_FILE "/run/vexostorage/disk_led_switch_status"
#define VEXO_DISK_LED_LOCK_FILE "/var/lock/.disk_led_swtich.lock"

/* Daemon requests of a locate (Message commands; vcemd.h has the log one as
   VEXO_VCEMD_CMD_LED_STATUS). */
#define VEXO_VCEMD_CMD_DISK_LED_SET 14
#define VEXO_VCEMD_CMD_DISK_LED_SET_BACK 28
#define VEXO_VCEMD_CMD_DISK_LED_LOG 29

/* Modes of VEXODiskLedStatusSet. */
#define VEXO_DISK_LED_MODE_SWITCH "switch"
#define VEXO_DISK_LED_MODE_RESTORE "restore"
#define VEXO_DISK_LED_MODE_FAULTY "faulty"
#define VEXO_DISK_LED_MODE_NORMAL "normal"

/* DiskLedRequest.mode: what the daemon does with the drive's LED. */
#define VEXO_DISK_LED_REQUEST_NORMAL 0 /* command 28: back to normal */
#define VEXO_DISK_LED_REQUEST_SWITCH 1 /* command 14: locate, for duration seconds */
#define VEXO_DISK_LED_REQUEST_FAULTY 2 /* command 14: faulty, until put back */

/* The 36-byte payload of commands 14 and 28: the drive and what to do
   (VEXO_DISK_LED_REQUEST_*). duration and pid are those of the switch
   concerned, 0 when there is none. */
typedef struct DiskLedRequest {
	DiskId id;
	int32_t mode;
	int32_t duration; /* seconds */
	int32_t pid;      /* the child that puts the LED back */
	int32_t reserved;
} DiskLedRequest;

/* The 96-byte payload of command 29: one line of the LED log. */
typedef struct DiskLedLogRecord {
	char device[32];  /* "/dev/sda" */
	char status[32];  /* "switch" or "restore" */
	int32_t minutes;  /* the request's duration, rounded up */
	char reserved[28];
} DiskLedLogRecord;

/* What VEXODiskLedStatusGet answers. */
typedef struct DiskLedStatus {
	int32_t switching; /* 1 while a request is under way */
	int32_t duration;  /* its seconds */
	int64_t dueTime;   /* seconds since the epoch at which the LED is put back */
} DiskLedStatus;

/*
 * mode, with disk_path a drive ("/dev/sda"):
 *  "switch"  changes the drive's LED for duration seconds (1 or more) from
 *            a detached child, which puts it back (command 28) when the
 *            time is over; returns at once. A second switch replaces the
 *            first.
 *  "restore" ends a switch early: VEXODiskLedStatusRestore.
 *  "faulty"  sets the faulty LED (command 14, mode FAULTY) and keeps it:
 *            no child, nothing in the status file, no LED log line. A
 *            switch under way is ended first (its child stopped, its
 *            section removed), so that it cannot put the LED back.
 *  "normal"  puts the LED back (command 28), also when no switch is under
 *            way: the way out of "faulty". A switch under way is ended as
 *            by "restore".
 * duration is read by "switch" only. An unknown mode is refused with a log
 * line. 0, or -1 (0x0D00 for a bad argument or mode, 0x0400 when the
 * status file's lock can't be had, 0x0F00 when the daemon or the child
 * failed; the log says which).
 */
VEXO_API int VEXODiskLedStatusSet(const char *disk_path, const char *mode, int duration);
/* The drive's request, if any; an expired one is removed. 0, or -1. */
VEXO_API int VEXODiskLedStatusGet(const char *disk_path, DiskLedStatus *out);
/* Removes the drive's section of the status file (none is no failure). 0, or -1. */
VEXO_API int VEXODiskLedStatusRemoveFile(const DiskId *disk_id);
/* Ends a switch early, under the status file's lock: stops its child,
   puts the LED back (command 28 and the "restore" log line), removes the
   section. A drive without a request, or with one whose time is over,
   gives 0 and sends nothing (the stale section is removed, and the pid in
   it, perhaps another process's by now, is left alone). 0, or -1. */
VEXO_API int VEXODiskLedStatusRestore(const char *disk_path);

/* ---- Buzzer -------------------------------------------------------------- */

#define VEXO_BUZZER_BITMAP_FILE "/tmp/buzzerCurrentBitMap"
#define VEXO_BUZZER_PAUSE_FILE "/tmp/buzzerPausing"

/* The bits of what sounds now, or -1 when unknown. */
VEXO_API int VEXOBuzzerCurrentBitmapGet(void);
/* The user's buzzer-off mask (buzzeroffcfg), 0 when unset, -1 on a read error. */
VEXO_API int VEXOBuzzerOffConfigGet(void);
/* Sets (enable non-zero) or clears mask in buzzeroffcfg and tells the daemon. 0, or -1. */
VEXO_API int VEXOBuzzerOffConfigSet(int mask, int enable);
/* The product's buzzer-off bits (buzzeroffen); variant, when not null or
   empty, first tries "buzzeroffen_<variant>". 0 when unset, -1 on a read error. */
VEXO_API int VEXOBuzzerOffEnableBitGet(const char *variant);
/* Pause and resume the buzzer (a flag file). 0, or -1. */
VEXO_API int VEXOBuzzerPause(void);
VEXO_API int VEXOBuzzerResume(void);

/* ---- LED brightness ------------------------------------------------------ */

#define VEXO_LED_BRIGHTNESS_TMP_FILE "/tmp/vexo_led_brightness/led_brightness.xml"
#define VEXO_LED_BRIGHTNESS_DEFAULT_FILE "/usr/vexo/etc.defaults/led_brightness.xml"
#define VEXO_LED_BRIGHTNESS_SETTINGS_FILE "/etc/vexoinfo.conf"
#define VEXO_LED_BRIGHTNESS_LEVEL_KEY "led_brightness_adjusted_level"
#define VEXO_LED_BRIGHTNESS_SCHEDULE_KEY "led_brightness_schedule"
#define VEXO_LED_SCHEDULE_LENGTH 168

#define VEXO_LED_COMMAND_I2C 0
#define VEXO_LED_COMMAND_SMBUS 1

typedef struct LedBrightnessLevel {
	int32_t value;    /* the level as the user sees it */
	int32_t i2cValue; /* the byte the chip takes for it */
	int32_t isDefault;
	struct LedBrightnessLevel *next;
} LedBrightnessLevel;

typedef struct LedBrightnessConfig {
	/* The description's bus element may hold a number or the name of the
	   adapter (/sys/class/i2c-dev/i2c-N/name); here it is the number. A
	   name no adapter has passes the chip over. */
	int32_t bus;
	int32_t address;
	int32_t offset;
	int32_t commandType; /* VEXO_LED_COMMAND_I2C or VEXO_LED_COMMAND_SMBUS */
	LedBrightnessLevel *levels;
} LedBrightnessConfig;

/* The description of the dimmer that answers, or null. */
VEXO_API LedBrightnessConfig *initLedBrightnessConfig(void);
/* Frees a record of initLedBrightnessConfig (null is fine). */
VEXO_API void clearLedBrightnessConfig(LedBrightnessConfig *config);
/* Sets a level now; -1 is the default level. 0, or -1. */
VEXO_API int VEXOSetLedBrightness(int level);
/* The level the chip holds. 0, or -1 (also for a byte no level lists). */
VEXO_API int VEXOGetLedBrightness(int *level);
/* The stored (or default) level and schedule; schedule takes 169 bytes. 0, or -1. */
VEXO_API int VEXOGetLedBrightnessConfiguration(int *level, char *schedule);
/* Stores level and schedule and applies them. 0, or -1. */
VEXO_API int VEXOSetLedBrightnessConfiguration(int level, const char *schedule);
/* Applies the schedule's level of this hour; without force only when it
   differs from the last hour's. 0, or -1. */
VEXO_API int VEXOUpdateLedBrightnessByConfiguration(int force);
/* data[0] lowest level, data[1] highest, data[2] default. 0, or -1. */
VEXO_API int VEXOGetLedBrightnessStaticData(int32_t *data);
/* 1 for 168 characters of '0', '1' and '2', else 0. */
VEXO_API int isValidScheduleString(const char *schedule);

VEXO_END_DECLS

#endif
