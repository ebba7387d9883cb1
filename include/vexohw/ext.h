/*
 * What the appliance's own tools need beyond the library's interface: how a
 * disk list is taken, where the appliance's root is, closing a drive
 * handle, the keys of the per-disk cache and the age of the SMART list
 * cache. Pure C.
 *
 * These calls are exported under their own version node, VEXOHW_EXT_0, and
 * not under the interface's VEXOHW_0: a program that uses them says so in
 * its symbol references, and the node can change on its own schedule. The
 * return convention and error codes are the library's (see frame.h).
 */
#ifndef VEXOHW_EXT_H
#define VEXOHW_EXT_H

#include <vexohw/disk_enum.h>
#include <vexohw/vexo_export.h>
#include <vexoplatform/vexocore.h>

VEXO_BEGIN_DECLS

/* Where a disk list comes from. */
#define VEXO_EXT_DISK_SOURCE_ANY 0      /* as DiskInfoEnum chooses */
#define VEXO_EXT_DISK_SOURCE_SNAPSHOT 1 /* the snapshot VEXO_DISK_SNAPSHOT */
#define VEXO_EXT_DISK_SOURCE_WALK 2     /* a walk of /sys */
#define VEXO_EXT_DISK_SOURCE_QUIET_WALK 3 /* a walk of /sys that reads no temperature: no drive is asked */

/*
 * DiskInfoEnum, from the source asked for: ANY is DiskInfoEnum itself (the
 * snapshot while the platform daemon lives and the snapshot selects a disk,
 * else a walk). The count with *list set (null for none, release it with
 * DiskInfoEnumFree), and the source taken in *used when used is not null;
 * -1 on failure. SNAPSHOT without a snapshot file fails with 0x0700; one
 * with no entry the filter selects gives 0.
 */
VEXO_API int VEXOExtDiskInfoEnumFrom(const DiskEnumFilter *filter, int source, DiskListNode **list, int *used);

/*
 * The host path of an appliance path ("/sys/block" under VEXO_SYSROOT when
 * it is set), copied whole into out. 0, or -1 (0x0D00: not an absolute
 * path, or out too small).
 */
VEXO_API int VEXOExtSysrootPath(const char *path, char *out, int size);

/* Closes a handle from VEXOIDiskRawOpen. 0, or -1 with errno set. */
VEXO_API int VEXOExtDeviceClose(int handle);

/* Serialises the read-modify-write of VEXOLedAHALedSet between processes. */
#define VEXO_LED_AHA_LOCK_FILE "/var/lock/.led_aha.lock"

/*
 * Sets an LED that hangs off an I2C chip of the board, without the platform
 * daemon: the bits under mask of register reg of the device at address on
 * bus take those of value, the register's other bits kept (read, then
 * written back, under VEXO_LED_AHA_LOCK_FILE for 10 seconds; a mask of 0xFF
 * writes value without reading). bus is the adapter's number ("0", "0x1")
 * or its name as /sys/class/i2c-dev/i2c-N/name gives it, which must name
 * one adapter. address 0x03 to 0x77, reg, mask and value 0 to 0xFF, mask
 * not 0. 0, or -1 (0x0D00 bad arguments, 0x2A00 no such bus, 0x0400 lock,
 * 0x6C00 the chip did not answer).
 */
VEXO_API int VEXOLedAHALedSet(const char *bus, int address, int reg, int mask, int value);

/* How a per-disk cache value is stored, and read back. */
#define VEXO_EXT_CACHE_INT 0   /* VEXODiskGetIntValueCacheFile */
#define VEXO_EXT_CACHE_LLINT 1 /* VEXODiskGetLLIntValueCacheFile */
#define VEXO_EXT_CACHE_STR 2   /* VEXODiskGetStrValueCacheFile */

/*
 * The key at index of the keys the library keeps in the per-disk cache,
 * with its type in *type (may be null); null past the last one.
 */
VEXO_API const char *VEXOExtCacheKeyGet(int index, int *type);

/*
 * Appends to *names the short names ("sda") of the disks that have a cache
 * folder, sorted. The count appended, or -1 (0x0D00, 0x0200).
 */
VEXO_API int VEXOExtCacheDiskListGet(PVLIBSZLIST *names);

/*
 * How old the cached SMART attribute list of a disk ("/dev/sda") is, in
 * seconds, and how old it may be before the next read goes to the drive.
 * 1 while it is served, 0 when stale; -1 when the list has no time stamp
 * (0x0700) or on bad arguments (0x0D00). Never touches the drive.
 */
VEXO_API int VEXOExtSmartInfoCacheAge(const char *devicePath, long long *ageSeconds, long long *maxAgeSeconds);

/*
 * The whole model of a disk ("/dev/sda") without a word to the drive: the
 * kernel cuts a SCSI disk's model at 16 bytes, and the per-disk cache or
 * the IDENTIFY data the kernel keeps may hold the rest. A text is taken
 * only if it begins with `recorded` (the record's model); otherwise
 * `recorded` itself is given. *source (when not null) says where it came
 * from: "record", "cache" or "ata_identify_vpd". 0, or -1 (0x0D00: bad
 * arguments or model too small).
 */
VEXO_API int VEXOExtDiskWholeModelGet(const char *devicePath, const char *recorded, char *model, int size,
				      const char **source);

/* A disk's power mode, asked with the command that does not spin a drive
   up (CHECK POWER MODE; TEST UNIT READY on SAS); NVMe disks are active. */
#define VEXO_EXT_POWER_ACTIVE 0
#define VEXO_EXT_POWER_IDLE 1
#define VEXO_EXT_POWER_STANDBY 2
#define VEXO_EXT_POWER_UNKNOWN 3 /* the question could not be asked */
VEXO_API int VEXOExtDiskPowerModeGet(const char *devicePath);

/*
 * The platform daemon's pid from its pid file (VEXO_VCEMD_PID_FILE) in *pid
 * (0 when the file is missing or bad): 1 when that process is alive and is
 * vcemd, else 0. Sends nothing to the daemon.
 */
VEXO_API int VEXOExtVcemdPidGet(int *pid);
/*
 * Records a disk's current health (VEXODiskCurHealthAttrGet: bad sectors,
 * ID-not-found count, retries, remaining life) as the clock's current month
 * in the `history` child of its element in the disk overview document, the
 * form VEXODiskXmlParseHistory reads: "YYYY/MM,unc,idnf,retry,life" joined
 * by ';', oldest first, a value not known left empty, counts above
 * 999999999 kept at that. One entry a month (a second record in the month
 * replaces it); months older than the last twelve and entries in another
 * shape are dropped. Asks the drive for its attributes. 0, or -1 (0x0D00,
 * 0x2A00 no element for the disk, or the reader's and writer's codes).
 */
VEXO_API int VEXOExtDiskHealthHistoryRecord(const char *devicePath);

/*
 * The display text of a fan speed code ("HIGH", "ULTRA LOW", "010",
 * "40%25hz", "UNKNOWN") into out. 0, or -1 (0x0D00: null or too small).
 */
VEXO_API int VEXOExtFanSpeedText(unsigned int code, char *out, int size);

VEXO_END_DECLS

#endif
