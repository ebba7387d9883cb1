/*
 * SSD bundle drives: which SMART attribute carries a bundle figure, and the
 * bad-block verdict built on it. Pure C.
 */
#ifndef VEXOHW_SSD_BUNDLE_H
#define VEXOHW_SSD_BUNDLE_H

#include <stdint.h>
#include <vexohw/vexo_export.h>

VEXO_BEGIN_DECLS

/* Figures a bundle drive reports through one of its SMART attributes. */
#define VEXO_SSD_BUNDLE_ATTR_LIFE 1        /* remaining life */
#define VEXO_SSD_BUNDLE_ATTR_BAD_BLOCK 2   /* later (grown) bad blocks */
#define VEXO_SSD_BUNDLE_ATTR_ERASE_COUNT 3 /* average erase count */

/* Finds `type` in a model's "bundle_smart_attrs" text: entries separated by
   ';', each "type:id:mask:shift" (numbers in base 0, spaces around them
   allowed), e.g. "2:162:0xffffffff:0;3:164:0xffff:0". The figure is
   (raw & mask) >> shift of the attribute with that id. The first entry of
   the type wins. 0 and the outputs; -1 when the type is not listed or an
   entry is malformed (0x2A00; id must be 1 to 65535, shift 0 to 63). */
VEXO_API int VEXOSSDBundleSmartInfoGet(const char *info, int type, int *id, uint64_t *mask, int *shift);

/* 1 when an SSD bundle drive's bad-block figure has reached its model's
   "bad_block_cnt_thr"; 0 otherwise, also when the disk is not an SSD, not a
   bundle drive, its model has no threshold, or anything can't be read (a
   line logged). */
VEXO_API int VEXODiskSSDBadBlockOverThreshold(const char *path);

VEXO_END_DECLS

#endif
