/*
 * What a disk is doing now, and the per-model disk action database. Pure C.
 */
#ifndef VEXOHW_DISK_STATE_H
#define VEXOHW_DISK_STATE_H

#include <vexohw/vexo_export.h>

VEXO_BEGIN_DECLS

/* 1 when the disk spins (not in standby or sleep), else 0; never wakes it. */
VEXO_API int VEXODiskIsRunning(const char *path);
/* 1 while a secure erase runs on the disk, else 0. */
VEXO_API int VLIBDiskIsSecureErasing(const char *path);
/* Opens the disk's device node for drive commands (read-only,
   non-blocking); a descriptor, or -1. */
VEXO_API int VEXOIDiskRawOpen(const char *path);
/* 1 when the disk is SATA (also behind a bridge), 0 when not, -1 on failure. */
VEXO_API int VEXODiskIsSata(const char *path);

/* The disk action database, /var/lib/diskaction/diskaction.xml. */
#define VEXO_DISK_ACTION_DB "/var/lib/diskaction/diskaction.xml"
/* Bit 14 of the action flags: no SCT commands for this model. */
#define VEXO_DISK_ACTION_SCT_BLACKLIST (1u << 14)
/* The action flags of the disk's model into *flags (0 when unlisted).
   0, or -1. */
VEXO_API int VEXODiskConfigDiskActionGet(const char *path, unsigned int *flags);
/* Non-zero when the disk's vendor, as the database names it for the
   disk's model, equals vendor. */
VEXO_API int VEXODiskConfigVendorMatch(const char *path, const char *vendor);
/* 1 when bit 14 of the disk's action flags is set, else 0. */
VEXO_API int VEXODiskInSCTCmdBlackList(const char *path);

VEXO_END_DECLS

#endif
