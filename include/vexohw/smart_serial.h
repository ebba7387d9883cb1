/*
 * Firmware revision and serial number of a disk, and the masked serial that
 * the maker's own hard disks carry for display. Pure C.
 */
#ifndef VEXOHW_SMART_SERIAL_H
#define VEXOHW_SMART_SERIAL_H

#include <vexohw/vexo_export.h>

VEXO_BEGIN_DECLS

/* Buffers: firmware at least 8 bytes, serial at least 20. 0, or -1. */
/* The drive's true serial, never masked. */
VEXO_API int SmartFirmAndSerialRead(const char *path, char *firmware, int firmwareSize,
                                    char *serial, int serialSize);
/* The serial the user sees: the stored masked serial when there is one. */
VEXO_API int VEXODiskGetSerialForUi(const char *path, char *serial, int serialSize);
VEXO_API int SmartFirmwareGet(const char *path, char *firmware, int firmwareSize);
/* The serial stored on the drive (ATA log page or SAS application client
   page). 0, or -1. */
VEXO_API int VEXODiskMaskSerialGet(const char *path, char *serial, int serialSize);
VEXO_API int VEXODiskMaskSerialSet(const char *path, const char *serial);
/* 1 when the disk's serial is to be masked (cache value mask_serial), else 0. */
VEXO_API int VEXODiskIsMaskSerial(const char *path);
/* 1 when the text is a plausible stored serial (6 to 24 characters), else 0. */
VEXO_API int VEXODiskSerialLengthCheck(const char *serial);
/* 1 when the disk is one of the maker's own drives, else 0. */
VEXO_API int VEXODiskIsVexology(const char *path);

VEXO_END_DECLS

#endif
