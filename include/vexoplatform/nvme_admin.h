/*
 * libvexoplatform: questions answered by an NVMe controller through the
 * kernel's admin command interface (NVME_IOCTL_ADMIN_CMD on the namespace
 * or controller node). Pure C.
 *
 * Every call takes a device path ("/dev/nvme0n1") or a short name
 * ("nvme0n1"); a partition ("nvme0n1p2") is reduced to its namespace. The
 * node is opened read-only; nothing here changes the drive.
 * Failures record an error code (VLIBCErrGet) and log one line.
 */
#ifndef VEXOPLATFORM_NVME_ADMIN_H
#define VEXOPLATFORM_NVME_ADMIN_H

#include <vexohw/vexo_export.h>

#ifndef VEXOP_API
#define VEXOP_API VEXO_API
#endif

VEXO_BEGIN_DECLS

/* Composite temperature of the SMART / health log (page 0x02), in degrees
   Celsius, or -1. */
VEXOP_API int VEXONVMeTemperatureGet(const char *path);
/* Firmware revision and serial number from Identify Controller, trimmed of
   padding. firmwareSize at least 9, serialSize at least 21. 0, or -1. */
VEXOP_API int VEXONVMeFirmAndSerialRead(const char *path, char *firmware, int firmwareSize,
                                        char *serial, int serialSize);
/* Model number from Identify Controller, trimmed. 0, or -1. */
VEXOP_API int VEXONVMeDiskModelGet(const char *path, char *model, int size);
/* Vendor name from Identify Controller. 0, or -1. */
VEXOP_API int VEXONVMeDiskVendorGet(const char *path, char *vendor, int size);
/* Reads log page `page` (Get Log Page, namespace all) into buffer, length
   bytes (a multiple of 4, at most 4096). 0, or -1. */
VEXOP_API int VEXONVMeLogGet(const char *path, unsigned int page, void *buffer, unsigned int length);

VEXO_END_DECLS

#endif
