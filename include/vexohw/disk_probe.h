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

VEXO_END_DECLS

#endif
