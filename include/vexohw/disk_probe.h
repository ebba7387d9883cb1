/*
 * Disk identity probes: which driver serves a disk and which protocol
 * reaches it. Each reads kernel attributes only; none wakes the drive.
 * Pure C.
 */
#ifndef VEXOHW_DISK_PROBE_H
#define VEXOHW_DISK_PROBE_H

#include <vexohw/vexo_export.h>

VEXO_BEGIN_DECLS

/* Driver numbers of VEXOGetDiskDriver. */
#define VEXO_DISK_DRIVER_AHCI    0
#define VEXO_DISK_DRIVER_MPT2SAS 1
#define VEXO_DISK_DRIVER_MPT3SAS 2
#define VEXO_DISK_DRIVER_MV14XX  3
#define VEXO_DISK_DRIVER_OTHER   4

/* The driver of the disk's SCSI host, by its proc_name; 4 for any other
   driver and on every failure. */
VEXO_API int VEXOGetDiskDriver(const char *path);
/* 1 when the disk's host driver is mv14xx (resp. mvSata), else 0. */
VEXO_API int VEXODiskIsMv1475Driver(const char *path);
VEXO_API int VEXODiskIsMvSocDriver(const char *path);
/* 3 for an NVMe disk, 2 (SCSI) on the virtual edition, 0 (ATA) otherwise.
   The numbers are VEXO_DISK_PROTOCOL_* of <vexohw/smartctl.h>. */
VEXO_API int VEXODiskScsiProtocolGet(const char *path);

/* --- Identity: each 0 on success, -1 on failure unless it says otherwise. */
struct DiskInfo;

/* Model as the kernel (or the NVMe controller) gives it, trimmed. */
VEXO_API int VEXOLnxDiskGetModel(const char *path, char *model, int size);
/* Vendor: the kernel's text as read (cut at its newline, the kernel's
   padding kept), or for "ATA" disks a match of the model against the vendor
   table ("Unknown" when nothing matches or the model cannot be read). NVMe:
   the controller's vendor, "Unknown" when it does not answer. -1 only for a
   bad argument (0x0D00), no vendor file (0x0700) or an unreadable one
   (0x0A00). */
VEXO_API int VEXOLnxDiskGetVendor(const char *path, char *vendor, int size);
/* The same from the per-disk cache value "vendor" first. */
VEXO_API int VEXOLnxDiskGetVendorCache(const char *path, char *vendor, int size);
/*
 * Fills info for the system's first disk, /dev/sda: name, path, model, size
 * (whole MiB, from /proc/partitions and the device) and temperature. On a
 * RAID product whose root is aufs (running from its memory image) the
 * temperature is not read and stays 0. The rest of the record is zero.
 */
VEXO_API int VEXOLnxDiskGetInfo(struct DiskInfo *info);
/* 1 for a non-rotating disk, 0 for a rotating one, -1 on failure. */
VEXO_API int VEXODiskIsSSD(const char *path);
/* "/dev/sg<n>" of the disk's SCSI generic node. */
VEXO_API int VEXODiskScsiGenericGet(const char *path, char *sg, int size);
/* The drive's true serial. */
VEXO_API int DiskSerialGet(const char *path, char *serial, int size);
/*
 * The serial of the disk that stood in bay `slot` just before time `before`
 * (seconds since the epoch), from the plug events ("plugin", "bootup_in",
 * "plugout", "bootup_out") of the disk log database, newest first.
 * Once /var/run/.vexo_disk_bootup_init_done exists (this boot's disk
 * bookkeeping has run) the log is complete, and a departure newer than any
 * arrival means the bay was empty then: no serial. Before that, departures
 * may be left over from an earlier boot and are passed over, so the newest
 * arrival answers. 0; or -1 with 0x0700 (no database), 0x0300 (database
 * error), 0x2A00 (no such disk), 0x0D00 (bad argument or serial too long).
 */
VEXO_API int VEXODiskSerialGetByPlugEvent(unsigned int slot, unsigned long long before,
                                          char *serial, int size);
/* Size in bytes (BLKGETSIZE64) and logical block size (BLKSSZGET). */
VEXO_API int DiskSizeGet(const char *path, unsigned long long *bytes);
VEXO_API int DiskLogicalBlockSizeGet(const char *path, int *size);
/* Nominal form factor text from IDENTIFY word 168 ("3.5", "2.5", ...). */
VEXO_API int VEXODiskFormFactorSizeGet(const char *path, char *text, int size);
/*
 * The drive health tool, /usr/vexo/sbin/dhm_tool -d <sg node> -w, answers
 * with its exit status: 50 and 51 for the two drive lines it serves, 16
 * (VEXO_DHM_EXIT_BUSY, as EBUSY) when the drive is busy with another
 * request and the question may be asked again, anything else for no.
 */
#define VEXO_DHM_EXIT_IRONWOLF     50
#define VEXO_DHM_EXIT_IRONWOLF_PRO 51
#define VEXO_DHM_EXIT_BUSY         16

/* 1 or 2 for the two drive lines the health tool recognises, else 0.
   Runs the tool at most 3 times, one second apart, while it is busy. */
VEXO_API int VEXODiskIsIronWolf(const char *path);
/* The integer cache value "ironwolf" of the disk, or -1 when absent. */
VEXO_API int VEXODiskIsIronWolfCache(const char *path);
/* 1 when the health tool need not be asked about the disk, else 0. It
   serves rotating disks of the vendor "Seagate" only: an SSD, a disk whose
   rotation or vendor (VEXOLnxDiskGetVendorCache) cannot be read, or any
   other vendor is skipped. A null path is skipped (0x0D00). */
VEXO_API int VEXODiskIhmSkipCheck(const char *path);
/* 1 when a run of the health tool that ended with status `result` should
   be repeated (result VEXO_DHM_EXIT_BUSY), else 0. */
VEXO_API int VEXODiskDHMNeedRetry(int result);

VEXO_END_DECLS

#endif
