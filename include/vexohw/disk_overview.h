/*
 * The disk overview document, /var/log/disk_overview.xml: one element per
 * disk the appliance has ever held, keyed by its true serial, with where it
 * is now and the error counters the kernel and the daemons report. Pure C.
 *
 *   <overview>
 *     <SN_ZA1B2C3D model="ST8000VN004-2M2101" uiserial="ZA1B2C3D">
 *       <path>/dev/sda</path>            ("null" while the disk is away)
 *       <unc>0</unc> <icrc>0</icrc> <idnf>0</idnf> <retry>0</retry>
 *       <hibernation>0</hibernation> <deepsleep>0</deepsleep>
 *       <timeout>0</timeout> <reset_fail>0</reset_fail>
 *       <sata_internal_slot>3</sata_internal_slot>   (-1 outside a bay)
 *       <history>2026/10,1,0,4,98;2026/11,2,0,4,97</history>  (optional)
 *     </SN_ZA1B2C3D>
 *   </overview>
 *
 * Writers hold /run/lock/vexo_disk_overview_xml.lock (60 s wait) and
 * replace the file whole (temporary file, fsync, rename), so a reader
 * never meets half a document.
 */
#ifndef VEXOHW_DISK_OVERVIEW_H
#define VEXOHW_DISK_OVERVIEW_H

#include <stdint.h>
#include <vexohw/disk_enum.h>
#include <vexohw/vexo_export.h>

VEXO_BEGIN_DECLS

#define VEXO_DISK_OVERVIEW_XML "/var/log/disk_overview.xml"
#define VEXO_DISK_OVERVIEW_LOCK "/run/lock/vexo_disk_overview_xml.lock"
#define VEXO_DISK_OVERVIEW_ATTR_COUNT 10

/* The required children of a disk element, in document order, 256
   characters a row: path, unc, icrc, idnf, retry, hibernation, deepsleep,
   timeout, reset_fail, sata_internal_slot. */
VEXO_API extern const char diskXMLAttrArray[VEXO_DISK_OVERVIEW_ATTR_COUNT][256];

/* The counters of one disk. 32 bytes. */
typedef struct DiskAttrCounters {
	int32_t unc;
	int32_t icrc;
	int32_t idnf;
	int32_t retry;
	int32_t timeout;
	int32_t resetFail;
	int32_t hibernation;
	int32_t deepsleep;
} DiskAttrCounters;

/*
 * One month of a disk's health history: valid flags, then values, each in
 * the order unc, idnf, retry, remaining life. 32 bytes.
 *
 * The `history` child holds the months as "YYYY/MM,unc,idnf,retry,life"
 * joined by ';'; an empty field is a value not recorded.
 */
typedef struct DiskHealthHistoryEntry {
	int32_t uncValid;
	int32_t idnfValid;
	int32_t retryValid;
	int32_t remainLifeValid;
	int32_t unc;
	int32_t idnf;
	int32_t retry;
	int32_t remainLife;
} DiskHealthHistoryEntry;

/* Brings the document up to date at boot with the present disks (a list
   from SharedDiskInfoEnum; null for none). 0, or -1. */
VEXO_API int VEXODiskOverviewXmlInit(DiskListNode *disks);
/* Records that the disk at path was plugged in (plugged non-zero) or pulled
   out, and logs event 7 or 8. 0, or -1. */
VEXO_API int VEXODiskXmlHotPlugUpdate(int plugged, const char *path);
/* Adds 1 to the counter `name` (a child name, "unc") of the disk with that
   true serial. */
VEXO_API void VEXODiskXmlAttrCtUpdate(const char *name, const char *serial);
/* The counters of the disk at path. 0, or -1 (no element for the disk). */
VEXO_API int VEXODiskXmlAttrCtGet(const char *path, DiskAttrCounters *counters);
/* 1 when some disk element has this model (trimmed), otherwise 0. */
VEXO_API int VEXODiskOverviewModelCheck(const char *model);
/* The twelve months ending with the clock's current month of the disk at
   path: entries[0] the oldest, entries[11] this month; months not recorded
   have every flag 0. size must be 12. 0, or -1 (no element for the disk). */
VEXO_API int VEXODiskXmlParseHistory(const char *path, DiskHealthHistoryEntry *entries, int size);

VEXO_END_DECLS

#endif
