/*
 * Disk enumeration: the list of the disks of the system, one disk's record,
 * the snapshot that the platform daemon keeps, the older lookup by device
 * number, and the shared lists of a temperature monitor. Pure C.
 *
 * The snapshot /tmp/enumlist_det is a plain sequence of 320-byte entries
 * (DiskInfoFileEntry of <vexohw/disk.h>), no header, no count: the count is
 * the file's size divided by 320, rounded down. Entries stand in the order
 * internal, expansion unit, cache, system, USB, external SATA.
 * VLIBDiskInfoEnumToCache writes it (for "vcemd" only); DiskInfoEnum reads it
 * while "vcemd" lives and walks /sys otherwise. A reader never wakes a disk:
 * the temperature in a snapshot entry is whatever the writer stored.
 */
#ifndef VEXOHW_DISK_ENUM_H
#define VEXOHW_DISK_ENUM_H

#include <stdint.h>
#include <vexohw/disk.h>
#include <vexohw/vexo_export.h>
#include <vexoplatform/vexocore.h>

VEXO_BEGIN_DECLS

#define VEXO_DISK_SNAPSHOT "/tmp/enumlist_det"
#define VEXO_DISK_SNAPSHOT_TMP "/tmp/enumlist_det.tmp"
#define VEXO_DISK_SNAPSHOT_ENTRY_SIZE 320

/* ---- Hibernation status: which disks the snapshot writer must not wake --- */

/* One cell of a hibernation list, made by DiskEnumHibDevPush (malloc'd:
   the caller frees each cell with free()). */
typedef struct DiskHibDevNode {
	struct DiskHibDevNode *next;
	char path[128]; /* device path, "/dev/sdca" */
} DiskHibDevNode;

typedef struct DiskEnumHibStatus {
	int32_t allHibernating;           /* 1: no disk is asked its temperature */
	DiskHibDevNode *eunitHibernating; /* expansion unit disks that sleep */
	DiskHibDevNode *usbHibernating;   /* USB disks that sleep */
} DiskEnumHibStatus;

#define DISK_HIB_KIND_EUNIT 1
#define DISK_HIB_KIND_USB 3

/*
 * Appends path to the status's list of `kind` (1 expansion unit, 3 USB).
 * Any other kind adds nothing and gives 0. 0, or -1 (null argument, no memory).
 */
VEXO_API int DiskEnumHibDevPush(const char *path, DiskEnumHibStatus *status, int kind);

/* ---- Listing ------------------------------------------------------------- */

/*
 * The disks whose container shares a bit with *filter->containerMask, into
 * *list (null when none). The count, or -1 with *list untouched.
 * Without "vcemd", or without a usable snapshot, /sys is walked; then a null
 * filter (or mask pointer) lists every disk. With "vcemd" alive and a
 * snapshot that holds entries, a null filter is refused: -1, 0x0D00.
 * Only secureErasing is computed afresh for a snapshot entry: one look at
 * the secure erase markers' folder (disk_state.h) serves the whole list,
 * and only a disk with a marker there is asked VLIBDiskIsSecureErasing.
 * Cells and records are each malloc'd apart; free them with free(), or
 * all at once with DiskInfoEnumFree.
 */
VEXO_API int DiskInfoEnum(DiskEnumFilter *filter, DiskListNode **list);
/* Frees cells and records; null is allowed. */
VEXO_API void DiskInfoEnumFree(DiskListNode *list);

/*
 * Writes the snapshot: all disks, in the order internal, expansion unit,
 * cache, system, USB, external SATA, to /tmp/enumlist_det.tmp, then renames
 * it over /tmp/enumlist_det. status may be null.
 * 0 when the file was replaced (also when only the rename failed: the old
 * file then stays). -1 when a disk type could not be enumerated: nothing is
 * written. The disk count (not a failure code) when the working file could
 * not be opened or written: the old snapshot stays as it was.
 * The 12 reserved bytes of each entry are not cleared between entries; read
 * nothing into them.
 */
VEXO_API int VLIBDiskInfoEnumToCache(DiskEnumHibStatus *status);

/*
 * One disk's record (temperature 0, not read). path is a device path or a
 * short name; given "/dev/sda" the record's name is "/sda" (with the
 * slash), given "sda" it is "sda". 1 on success, or -1. Free with DiskInfoFree.
 */
VEXO_API int DiskInfoGetWithoutSMART(const char *path, DiskInfo **info);
/* The same with the temperature read from the disk (0 on the virtual
   edition). 1 on success, otherwise a value below 1. */
VEXO_API int DiskInfoGet(const char *path, DiskInfo **info);
/* null is allowed. */
VEXO_API void DiskInfoFree(DiskInfo *info);

/* 1 if an entry of the snapshot is a prefix of path ("/dev/sda" for
   "/dev/sda1"), else 0 (also when there is no snapshot). */
VEXO_API int DiskIsExistInCache(const char *path);

/* ---- The older lookup by device number, over /proc/partitions ----------- */

/*
 * Device numbers encoded as the kernel packs them:
 * (minor & 0xFF) | ((major << 8) & 0xFFF00) | ((minor << 12) & 0xFFFFFF00000),
 * cut to 32 bits.
 */
typedef struct DiskBriefInfo {
	uint32_t devNumber;   /* offset 0 */
	char name[64];        /* offset 4: name from /proc/partitions */
	int32_t type;         /* offset 68: always 7 */
	uint64_t capacityMiB; /* offset 72 */
	int32_t reserved[2];  /* offset 80: always 0 */
} DiskBriefInfo;          /* 88 bytes */

/*
 * The whole disks of /proc/partitions: IDE-style majors (3, 22, 33, 34, 56,
 * 57, 88 to 91) with minor 0 or 64, then sd majors (8, 65 to 71) with a
 * minor that is a multiple of 16. type must be 1. The count of numbers in a
 * malloc'd array (*numbers, the caller frees), or -1. With nothing found 0,
 * and *numbers untouched.
 */
VEXO_API int VEXODiskEnum(int type, unsigned int **numbers);
/* The disk of an encoded number, with its size from BLKGETSIZE64. type must
   be 1. 0 with a malloc'd record (the caller frees), or -1 (0x6100 no such
   disk, 0x6C00 device, 0x0100 memory). */
VEXO_API int VEXODiskGetInfo(int type, unsigned int devNumber, DiskBriefInfo **info);

/* Appends the names ("sda") of the internal bays 1 to maxdisks, whether a
   disk is present or not. The list must exist. 0, or -1. */
VEXO_API int VEXODiskInternalDataDeviceEnum(PVLIBSZLIST *names);

/* ---- Shared lists of a temperature monitor ------------------------------ */

/*
 * A DiskInfo and what the monitor keeps beside it. 360 bytes. Shared lists
 * are DiskListNode lists whose info points at a SharedDiskInfo (its first
 * member), freed with SharedDiskInfoEnumFree.
 */
typedef struct SharedDiskInfo {
	DiskInfo info;               /* offset 0 */
	int32_t temperatureMin;      /* offset 328: from the temperature history */
	int32_t temperatureMax;      /* offset 332 */
	int32_t warningCountdown;    /* offset 336: 6 on listing */
	int32_t reserved;            /* offset 340 */
	int64_t warningTime;         /* offset 344: 0 on listing */
	int32_t temperatureAbnormal; /* offset 352: non-zero prints "Abnormal" */
	int32_t reserved2;           /* offset 356 */
} SharedDiskInfo;

/*
 * The temperature history document, /var/lib/temperature/disk_temperature.xml:
 *
 *   <?xml version="1.0"?>
 *   <disk_temperature>
 *     <disk path="/dev/sda" min="24" max="47" countdown="6"/>
 *     ...
 *   </disk_temperature>
 *
 * One element per disk, matched by its device path. min and max are the
 * lowest and highest temperatures seen, in degrees Celsius; countdown is
 * optional and is the monitor's warningCountdown to resume with. Other
 * attributes and elements are ignored.
 */
#define VEXO_DISK_TEMPERATURE_XML "/var/lib/temperature/disk_temperature.xml"

/* Sets temperatureMin, temperatureMax (and warningCountdown when the
   document has it) of the record's disk from the document file. 0, or -1
   with the record untouched (0x0D00, 0x0700 no file, 0x0A00 bad document,
   0x2A00 no element for the disk, or one without a whole min and max). */
VEXO_API int VEXODiskParseXmlOperatingTemp(const char *file, SharedDiskInfo *info);

/* Appends to *list the disks of mask. An empty result leaves *list alone. 0, or -1. */
VEXO_API int SharedDiskInfoEnum(DiskListNode **list, unsigned int mask);
/* Appends a SharedDiskInfo for each record of disks (countdown 6). 0, or -1
   with *list freed. disks is not changed. */
VEXO_API int SharedDiskListTransform(DiskListNode **list, DiskListNode *disks);
/* One disk, temperature read, countdown as the document has it. 0, or -1. */
VEXO_API int SharedDiskInfoGet(const char *path, SharedDiskInfo **info);
/* Appends like DiskListPush; the list takes the record. */
VEXO_API void SharedDiskListPush(DiskListNode **list, SharedDiskInfo *record);
/* The cell whose record's path equals path. 0, or -1 when not found or an
   argument (the list too) is null. */
VEXO_API int SharedDiskInfoNodeGetByPath(const char *path, DiskListNode *list, DiskListNode **cell);
/* Appends SharedDiskInfoGet(path). 0, or -1. */
VEXO_API int SharedDiskInfoNodeAdd(const char *path, DiskListNode **list);
/* Unlinks and frees the first cell with that path. 0, or -1 when not listed. */
VEXO_API int SharedDiskInfoNodeDelete(const char *path, DiskListNode **list);
/* Appends a deep copy of from to *to. A null (empty) from is refused. 0, or
   -1 with *to freed. */
VEXO_API int SharedResourceHandleCopy(DiskListNode *from, DiskListNode **to);
/* Logs one line per disk at warning priority. */
VEXO_API void SharedDiskInfoDebugPrint(DiskListNode *list);
/* Frees all and sets *list to null. */
VEXO_API void SharedDiskInfoEnumFree(DiskListNode **list);

VEXO_END_DECLS

#endif
