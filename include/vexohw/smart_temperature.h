/*
 * Disk temperature: from the debug override, the SCT status log, the SCSI
 * temperature log page, the ATA SMART data page or the NVMe health log.
 * Pure C.
 */
#ifndef VEXOHW_SMART_TEMPERATURE_H
#define VEXOHW_SMART_TEMPERATURE_H

#include <vexohw/vexo_export.h>

VEXO_BEGIN_DECLS

/* The raw value of one 12-byte attribute slot of the SMART data page, as a
   number, also printed into output (at least 21 bytes). Ids 190 and 194
   use the first raw byte alone. -1 on a null argument. */
VEXO_API long long SmartAttribRawValueParse(char *output, const unsigned char *slot);
/* Temperature from attribute 194 (resp. 190) of a 512-byte SMART data page,
   or -1 when the attribute is absent. */
VEXO_API int SmartTemperatureGet(const unsigned char *page);
VEXO_API int SmartAirflowTempGet(const unsigned char *page);
/* Degrees Celsius, or -1. Touches the drive unless an override answers. */
VEXO_API int VEXODiskTemperatureGet(const char *path);
/* The per-disk cache value "temperature" of a device name, or -1. */
VEXO_API int VEXODiskTemperatureGetFromCache(const char *name);
/* Current temperature from the SCT status log (through sg_raw) when the
   cached sct_cmd_support flag is set; -1 otherwise. */
VEXO_API int VEXODiskSCTTemperatureGet(const char *path);
/* Whether the drive supports SCT commands (IDENTIFY word 206 bit 0, through
   sg_sat_identify): 1, 0, or -1. */
VEXO_API int VEXODiskSCTCmdSupport(const char *path);
/* The cached flag sct_cmd_support: 1 or 0 into *support; 0, or -1. */
VEXO_API int VEXODiskSCTCmdSupportCache(const char *path, int *support);

VEXO_END_DECLS

#endif
