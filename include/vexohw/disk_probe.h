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
/* Vendor: the kernel's text, or for "ATA" disks a match of the model
   against the vendor table ("Unknown" when nothing matches). */
VEXO_API int VEXOLnxDiskGetVendor(const char *path, char *vendor, int size);
/* The same from the per-disk cache value "vendor" first. */
VEXO_API int VEXOLnxDiskGetVendorCache(const char *path, char *vendor, int size);
/* Fills info for the system's first disk, /dev/sda. */
VEXO_API int VEXOLnxDiskGetInfo(struct DiskInfo *info);
/* 1 for a non-rotating disk, 0 for a rotating one, -1 on failure. */
VEXO_API int VEXODiskIsSSD(const char *path);
/* "/dev/sg<n>" of the disk's SCSI generic node. */
VEXO_API int VEXODiskScsiGenericGet(const char *path, char *sg, int size);
/* The drive's true serial. */
VEXO_API int DiskSerialGet(const char *path, char *serial, int size);
/* The serial that the disk log database last saw plugged into bay `slot`
   before time `before` (seconds since the epoch). */
VEXO_API int VEXODiskSerialGetByPlugEvent(unsigned int slot, unsigned long long before,
                                          char *serial, int size);
/* Size in bytes (BLKGETSIZE64) and logical block size (BLKSSZGET). */
VEXO_API int DiskSizeGet(const char *path, unsigned long long *bytes);
VEXO_API int DiskLogicalBlockSizeGet(const char *path, int *size);
/* Nominal form factor text from IDENTIFY word 168 ("3.5", "2.5", ...). */
VEXO_API int VEXODiskFormFactorSizeGet(const char *path, char *text, int size);
/* 1 or 2 for the two drive lines the health tool recognises, else 0. */
VEXO_API int VEXODiskIsIronWolf(const char *path);
VEXO_API int VEXODiskIsIronWolfCache(const char *path);

VEXO_END_DECLS

#endif
