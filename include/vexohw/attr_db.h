/*
 * The drive attribute database, /var/lib/drive_attribute/drive_attribute.db:
 * what the library knows of the maker's own drives, by model. Pure C.
 *
 * The file is one JSON object whose keys are drive models as the drive
 * reports them (trimmed, exact case); each value is the object of that
 * model. Numbers may be written as JSON numbers or as strings, read with
 * base 0 ("512", "0x200"). Members this library reads:
 *
 *   "nvme_smart_vendor_specific": {          vendor log pages of an NVMe drive
 *     "<page>": {                            "0xca": the log page number
 *       "length": "<bytes>",                 1 to 4096: bytes read of the page
 *       "attributes": {
 *         "<name>": {                        a name VEXONVMeSmartStrToID knows
 *           "offset": "<byte>",              where the value starts
 *           "size": "<bytes>",               1 to 8, least significant first
 *           "hide_name": "0" | "1" } } } },  1: listed as "Vendor Specific"
 *   "is_bundle", "available_firmware", "available_firmware_binary", "mask",
 *   "order", "later_bad_block_count", "bad_block_cnt_thr", "avg_erase_count",
 *   "bundle_smart_attrs", "bundle_reserve_1":
 *                                            the drive bundle settings of the
 *                                            model (<vexohw/drive_bundle.h>,
 *                                            DriveBundleModelConf)
 *
 * {
 *   "VEXO NM410 400GB": {
 *     "nvme_smart_vendor_specific": { "0xca": { "length": "512",
 *       "attributes": { "Later Bad Block Count": { "offset": "8", "size": "4",
 *                                                  "hide_name": "0" } } } },
 *     "is_bundle": "yes", "bad_block_cnt_thr": "100",
 *     "bundle_smart_attrs": "2:162:0xffffffff:0" } }
 */
#ifndef VEXOHW_ATTR_DB_H
#define VEXOHW_ATTR_DB_H

#include <vexohw/vexo_export.h>

VEXO_BEGIN_DECLS

struct json_object;

#define VEXO_ATTR_DB_PATH "/var/lib/drive_attribute/drive_attribute.db"

/* The database's object for the model of the disk at path (as
   VEXOLnxDiskGetModel gives it: an NVMe drive is asked). 0 and *obj, a reference the caller
   drops with json_object_put; 1 when the database has no entry for the
   model (*obj null); -1 with *obj null when the model can't be read, or the
   database is missing (0x0900) or damaged: not a JSON object, or the
   model's value not an object (0x0A00). */
VEXO_API int VEXOAttrDBGetByDisk(const char *path, struct json_object **obj);

VEXO_END_DECLS

#endif
