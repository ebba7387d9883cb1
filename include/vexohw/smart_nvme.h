/*
 * NVMe SMART information: the vendor attributes of the maker's own NVMe
 * drives, the cached critical warning and the debug overrides of an NVMe
 * disk's status. The health values themselves come through
 * VEXODiskAtaSmartInfoParse (<vexohw/smart_info.h>). Pure C.
 */
#ifndef VEXOHW_SMART_NVME_H
#define VEXOHW_SMART_NVME_H

#include <vexohw/smart_info.h>
#include <vexohw/vexo_export.h>

VEXO_BEGIN_DECLS

/* The vendor entries of an NVMe disk, read from the log pages the drive
   attribute database (<vexohw/attr_db.h>) describes for its model: id from
   VEXONVMeSmartStrToID, value and raw the field's number, worst and
   threshold empty, status 0; the name "Vendor Specific" where hide_name is
   set. A field outside its page reads 0. A disk that is not the maker's own
   gets no entries and the database is not read. *list must hold null.
   0, or -1 with *list null (database missing, damaged or without the
   model or its vendor pages; a page the drive does not give; an attribute
   name without an id). */
VEXO_API int GetNVMeVendorSpecificSmartInfo(const char *path, SmartInfoEntry **list);

/* The critical warning bitmap cached in the disk's value "critical_warning". 0, or -1. */
VEXO_API int SmartNVMeCritialWarnCacheGet(const char *path, int *warning);
/* Reads the critical warning of "/dev/<name>" from the drive (the debug
   override "crit" wins) into that cache value. A disk that is not NVMe:
   0, nothing written. 0, or -1. */
VEXO_API int SmartNVMeCritialWarnCacheUpdateIfSupport(const char *name);

/* The debug overrides of an NVMe disk's status (<vexohw/disk_debug.h>):
   *life from key "life" (decimal), *crit from key "crit" (hexadecimal),
   each written only when its key is there. The sum of 1 (life given) and
   2 (crit given), so 0 when neither; -1 on failure. */
VEXO_API int VEXONVMeStatusDebugGet(const char *path, unsigned int *life, unsigned int *crit);

VEXO_END_DECLS

#endif
