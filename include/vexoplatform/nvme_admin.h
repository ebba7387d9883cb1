/*
 * libvexoplatform: questions answered by an NVMe controller through the
 * kernel's admin command interface (NVME_IOCTL_ADMIN_CMD, which the
 * namespace block node and the controller node both take). Pure C.
 *
 * Every call takes a device path ("/dev/nvme0n1") or a short name
 * ("nvme0n1"); a partition ("nvme0n1p2") is reduced to its namespace, and a
 * controller ("nvme0") is used as it is. The node is opened read-only;
 * nothing here changes the drive. Outputs are written only on success.
 *
 * Failures return -1, record an error code (VLIBCErrGet) and log one line:
 *   0x0D00  a null or too small argument, or a path that is not NVMe;
 *   0x6C00  the node does not open, the ioctl fails, or the controller
 *           completes the command with a status (the line names it, e.g.
 *           "status 0x109 (Invalid Log Page)");
 *   0x2D00  the drive reports no composite temperature.
 */
#ifndef VEXOPLATFORM_NVME_ADMIN_H
#define VEXOPLATFORM_NVME_ADMIN_H

#include <vexoplatform/vexoexport.h>

VEXO_BEGIN_DECLS

/* Composite temperature of the SMART / health information log (page 0x02,
   512 bytes) in degrees Celsius: Kelvin - 273. A drive that reports 0 Kelvin
   has no sensor: -1. Below 0 degrees Celsius the result is negative, so
   272 Kelvin cannot be told from a failure; callers take any negative value
   as no reading. */
VEXOP_API int VEXONVMeTemperatureGet(const char *path);
/* Firmware revision (FR, 8 bytes) and serial number (SN, 20 bytes) from
   Identify Controller, padding cut from both ends (inner spaces stay).
   firmwareSize 9 and serialSize 21 always suffice; a text that does not fit
   fails with 0x0D00 and neither is written. 0, or -1. */
VEXOP_API int VEXONVMeFirmAndSerialRead(const char *path, char *firmware, int firmwareSize,
                                        char *serial, int serialSize);
/* Model number (MN, 40 bytes) from Identify Controller, trimmed as above;
   size 41 always suffices. 0, or -1. */
VEXOP_API int VEXONVMeDiskModelGet(const char *path, char *model, int size);
/* The drive's maker: the PCI vendor id of Identify Controller looked up in
   the library's table of NVMe drive makers (names as the disk vendor table
   spells them: "Western Digital", "Seagate", "Toshiba", ...), then the PCI
   subsystem vendor id in the same table,
   then the first word of the model number, and "Unknown" when the model is
   empty. -1 only when the controller cannot be asked or size is too
   small. */
VEXOP_API int VEXONVMeDiskVendorGet(const char *path, char *vendor, int size);
/* Reads the first `length` bytes of log page `page` (0 to 0xFF) into
   buffer: Get Log Page for all namespaces (nsid 0xFFFFFFFF), 1 to 4096
   bytes. A length that is not a multiple of 4 is read as whole dwords and
   cut. A page the drive does not keep fails with status 0x109. 0, or -1. */
VEXOP_API int VEXONVMeLogGet(const char *path, unsigned int page, void *buffer, unsigned int length);

/* 1 when Identify Controller says the drive runs device self-tests, else 0. */
VEXOP_API int VEXONVMeSupportSelfTest(const char *path);
/* The extended self-test time of Identify Controller (EDSTT), in minutes,
   or -1. */
VEXOP_API int VEXONVMeExtendSelfTestTimeMinGet(const char *path);

VEXO_END_DECLS

#endif
