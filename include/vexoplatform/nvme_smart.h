/*
 * libvexoplatform: an NVMe drive's SMART / health information (log page
 * 0x02, 512 bytes) as named values, its warnings and its remaining life.
 * Pure C. Paths are as in <vexoplatform/nvme_admin.h>; every read is one
 * Get Log Page through the admin command interface, and nothing here
 * changes the drive. Failures return -1, record the code and log one line
 * as there (0x0D00 bad argument, 0x6C00 the drive can't be asked, 0x0100
 * out of memory).
 */
#ifndef VEXOPLATFORM_NVME_SMART_H
#define VEXOPLATFORM_NVME_SMART_H

#include <vexoplatform/vexoexport.h>

VEXO_BEGIN_DECLS

/* One health value. name and value are heap strings owned by the list; id is
   VEXONVMeSmartStrToID(name). */
typedef struct VEXONVMeSmartInfo {
	char *name;
	char *value;
	int id;
	struct VEXONVMeSmartInfo *next;
} VEXONVMeSmartInfo;

/* The health log as a list, in this order and these forms:
     "Critical Warning"                    "0x%02x" (bitmap)
     "Temperature"                         "%d Celsius" (composite)
     "Available Spare"                     "%u%%"
     "Available Spare Threshold"           "%u%%"
     "Percentage Used"                     "%u%%" (may pass 100)
     "Data Units Read", "Data Units Written", "Host Read Commands",
     "Host Write Commands", "Controller Busy Time", "Power Cycles",
     "Power On Hours", "Unsafe Shutdowns",
     "Media and Data Integrity Errors",
     "Error Information Log Entries"       "%llu" (the whole 128-bit counter
                                           in decimal)
     "Warning Composite Temperature Time",
     "Critical Composite Temperature Time" "%u" (minutes)
     "Temperature Sensor 1" .. "8"         "%d Celsius", only the sensors the
                                           drive reports (non-zero Kelvin)
   *list must be null on entry. 0, or -1 with *list null. */
VEXOP_API int VEXONVMeSmartInfoGet(const char *path, VEXONVMeSmartInfo **list);
/* Frees a list; null is allowed. */
VEXOP_API void VEXONVMeSmartInfoFree(VEXONVMeSmartInfo *list);

/* The critical warning bitmap (byte 0 of the log). 0, or -1. */
VEXOP_API int VEXONVMeCriticalWarningGet(const char *path, unsigned int *warning);
/* Percentage Used (byte 5), 0 to 255. 0, or -1. */
VEXOP_API int VEXONVMePercentageUsedGet(const char *path, unsigned int *percent);

/* Where VEXONVMeRemainingLifeGet took the life from. */
#define VEXO_NVME_LIFE_FROM_PERCENTAGE_USED 0
#define VEXO_NVME_LIFE_FROM_AVAILABLE_SPARE 1

/* Remaining life in percent, 0 to 100, and where it came from (*from, one of
   the two values above). The maker's own drives (isVexology 1) wear their
   spare blocks down before anything else fails, so their life is the
   Available Spare; any other drive's is 100 - Percentage Used, 0 at or past
   100. serial is the serial the caller knows the disk by (the disk cache's);
   when it is neither null nor empty it must equal the drive's own (Identify
   Controller), so a disk swapped behind the same name is never answered
   for: a mismatch fails with 0x2A00. 0, or -1 (outputs untouched). */
VEXOP_API int VEXONVMeRemainingLifeGet(const char *path, int isVexology, const char *serial, int *life,
                                       int *from);

/* The id of a health value or of a vendor attribute the attribute database
   names (exact, case-sensitive), or 0 for an unknown name. The ids of the
   health values are 1 to 25 in the order above; vendor attributes have ids
   from 160 up:
     160 "Program Fail Count"      161 "Erase Fail Count"
     162 "Later Bad Block Count"   163 "Factory Bad Block Count"
     164 "Average Erase Count"     165 "Max Erase Count"
     166 "NAND Bytes Written"      167 "Host Bytes Written"
     168 "Thermal Throttle Count"  169 "Power Loss Protection Failures" */
VEXOP_API int VEXONVMeSmartStrToID(const char *name);

VEXO_END_DECLS

#endif
