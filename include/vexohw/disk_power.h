/*
 * Disk power: standby of one disk or all, deep sleep of SATA links, the
 * power timers (kept as configuration keys and handed to the platform
 * daemon with a notification), and the spin-down questions. Pure C.
 *
 * Related calls elsewhere: VEXODiskIsRunning (<vexohw/disk_state.h>),
 * DiskEnumHibDevPush (<vexohw/disk_enum.h>).
 */
#ifndef VEXOHW_DISK_POWER_H
#define VEXOHW_DISK_POWER_H

#include <vexohw/vexo_export.h>

VEXO_BEGIN_DECLS

/* Timer types of VEXODiskSetSleepTimer and VEXODiskGetStandbyTimer, with
   their keys in /etc/vexoinfo.conf. */
#define VEXO_TIMER_STANDBY 1          /* "standbytimer", notification 43 */
#define VEXO_TIMER_SATA_DEEP_SLEEP 2  /* "satadeepsleeptimer", notification 51 */
#define VEXO_TIMER_EUNIT_DEEP_SLEEP 3 /* "eunitdeepsleeptimer", notification 52 */
#define VEXO_USB_STANDBY_TIMER_MAX 1440

/* Spins one disk down through its command interface: STANDBY IMMEDIATE,
   or START STOP UNIT on the SAS interface. A disk already standing still,
   an NVMe disk, and an internal SSD on a product without SATA deep sleep
   get no command and give 0. 0, -1, or the command's result. */
VEXO_API int VEXOIDiskSetDiskStandby(const char *path);
/* The same, with the disk's buffers flushed, a sync and ten seconds' wait
   first when flushFirst is set. */
VEXO_API int VEXODiskSetDiskStandby(const char *path, int flushFirst);
/* Every internal and external SATA disk: flush (marked by
   vexo_standby_syncing), one sync, then standby of those not spun down.
   0, or the results of the standby commands OR'ed together. */
VEXO_API int VEXODiskSetStandby(void);
/* Writes vexo_deep_sleep_ctrl of every internal disk that supports it.
   0, or -1. */
VEXO_API int VEXODiskSetDeepSleep(void);
/* 1 when no USB device forbids deep sleep, 0 when one does (anything but
   a hub, or a USB disk mounted under /volumeUSB), -1 when the USB device
   list can't be read. */
VEXO_API int VEXOCheckDeepSleep(void);

/* Stores the timer (as at most three digits) and notifies the daemon; an
   unchanged value stores and sends nothing. 0, or -1. */
VEXO_API int VEXODiskSetSleepTimer(int value, int type);
/* VEXODiskSetSleepTimer(value, VEXO_TIMER_STANDBY); negative: 0x0D00. */
VEXO_API int VEXODiskSetStandbyTimer(int value);
VEXO_API int VEXODiskGetStandbyTimer(int *value, int type);
/* At most 1440 minutes (else 0x0D00); also written to /tmp/standbytime. */
VEXO_API int VEXODiskSetUSBStandbyTimer(unsigned int minutes);
/* minutes may be null (the key is only checked). 0, or -1. */
VEXO_API int VEXODiskGetUSBStandbyTimer(int *minutes);
/* Not negative (else 0x0D00); notification 63 when it changes. */
VEXO_API int VEXODiskSetAutoPoweroffTimer(int value);
/* A missing key reads as 0. 0, or -1. */
VEXO_API int VEXODiskGetAutoPoweroffTimer(int *value);
/* The smallest vexo_idle_time of the internal, external SATA and expansion
   disks; the largest unsigned long when none has the attribute. 0, or -1. */
VEXO_API int VEXODiskAllIdleTimerGet(unsigned long *value);
/* Writes vexo_idle_time of every such disk that has it. 0, or -1. */
VEXO_API int VEXODiskAllIdleTimerSet(unsigned long value);

/* vexo_spindown of the disk: 0, its non-zero value, or -1. NVMe: 0. */
VEXO_API int VEXODiskIsSpindown(const char *path);
/* Writes 1 to the disk's vexo_spindown_before_poweroff. 0, or -1. */
VEXO_API int VEXODiskSpindownBeforePoweroffSet(const char *path);
/* Kept as an entry point; does nothing. Always 0. */
VEXO_API int VEXODiskSpinupQueueSet(void);
/* Wakes every RAID array at once (md?/md/active). 0, or -1. */
VEXO_API int VEXODiskFastWake(void);
/* 1 when the disk's model wants a dummy read (action bit 21), else 0. */
VEXO_API int VEXODiskDummyReadNeed(const char *path);

VEXO_END_DECLS

#endif
