/*
 * What a disk is doing now, and the per-model disk action database. Pure C.
 */
#ifndef VEXOHW_DISK_STATE_H
#define VEXOHW_DISK_STATE_H

#include <vexohw/vexo_export.h>

VEXO_BEGIN_DECLS

/* 1 when the kernel keeps the disk (or, for a partition or a volume, one
   of the disks behind it) in the running state, read from
   /sys/block/<name>/device/state; else 0. NVMe disks: 1. Reads sysfs
   only, so it never wakes a disk. */
VEXO_API int VEXODiskIsRunning(const char *path);

/* The marker of a secure erase: while it erases a disk, the erase tool
   keeps its pid in /run/vexostorage/secure_erase/<name>.pid (<name> the
   whole disk, "sda"; VLIBCProcPidFileCreate, after making the folder)
   and removes the file when it is done. The markers of all disks share
   that one folder and nothing else lives there, so that a reader of many
   disks learns from one look that no erase runs anywhere. The folder may
   stay behind, empty. */
#define VEXO_SECURE_ERASE_DIR "/run/vexostorage/secure_erase"
#define VEXO_SECURE_ERASE_SUFFIX ".pid"
/* 1 while the disk's marker names a live process, else 0 (a marker left
   by an eraser that died does not count). Never touches the drive. */
VEXO_API int VLIBDiskIsSecureErasing(const char *path);
/* Opens the whole disk's device node for drive commands (read-only,
   non-blocking). A handle of the device layer, which is the file
   descriptor itself with the kernel backend, or -1 (0x6C00). */
VEXO_API int VEXOIDiskRawOpen(const char *path);
/* Makes the disk write out its volatile cache: FLUSH through its command
   interface, SYNCHRONIZE CACHE on the SCSI interface. 0, or -1 (an NVMe
   disk: 0xD900, no command sent). */
VEXO_API int VEXOIDiskFlushBuffer(const char *path);
/* 1 when the disk is an ATA drive, directly or behind a SAS controller or
   a translating bridge: the kernel's /sys/block/<name>/device/vendor reads
   "ATA". 0 when not (NVMe disks: 0), -1 when the attribute can't be read. */
VEXO_API int VEXODiskIsSata(const char *path);

/*
 * The disk action database, /var/lib/diskaction/diskaction.xml: what the
 * library does differently for some drive models, and which vendor a model
 * belongs to.
 *
 *   <diskaction>
 *     <disk model="VEXO HAT5300-8T" vendor="Vexology" action="0x0"/>
 *     <disk pattern="^VEXO HAT53[0-9]{2}" vendor="Vexology" action="0x4000"/>
 *   </diskaction>
 *
 * A disk's model (VEXOLnxDiskGetModel) is compared with every `model`
 * exactly; when none equals it, the first `pattern` (POSIX extended
 * expression, case-insensitive, matching anywhere unless anchored) that
 * matches it gives the entry. `action` is a 32-bit number of flag bits,
 * decimal or 0x hexadecimal (absent: 0); `vendor` is optional. A missing
 * file lists nothing. examples/diskaction.xml is a sample.
 */
#define VEXO_DISK_ACTION_DB "/var/lib/diskaction/diskaction.xml"
/* Bit 14 of the action flags: no SCT commands for this model. */
#define VEXO_DISK_ACTION_SCT_BLACKLIST (1u << 14)
/* The action flags of the disk's model into *flags (0 when unlisted).
   0, or -1 (model unreadable, database unreadable: 0x0A00). */
VEXO_API int VEXODiskConfigDiskActionGet(const char *path, unsigned int *flags);
/* 1 when the disk's vendor, as the database names it for the disk's
   model, equals vendor, else 0 (also when it can't be told). */
VEXO_API int VEXODiskConfigVendorMatch(const char *path, const char *vendor);
/* 1 when bit 14 of the disk's action flags is set, else 0. */
VEXO_API int VEXODiskInSCTCmdBlackList(const char *path);

VEXO_END_DECLS

#endif
