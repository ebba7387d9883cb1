/*
 * libvexoplatform disk map: the physical disks behind a block device name.
 * Pure C.
 */
#ifndef VEXOPLATFORM_DISK_MAP_H
#define VEXOPLATFORM_DISK_MAP_H

#include <vexoplatform/vexoexport.h>
#include <vexoplatform/vexocore.h>

VEXO_BEGIN_DECLS

/*
 * Appends to *list the short names of the whole disks that hold path
 * ("/dev/sda3", "md2", "/dev/dm-0"): a disk gives itself, a partition its
 * disk, and a device with members under /sys/block/<name>/slaves (md
 * arrays, device mapper) the disks of its members, each named once.
 * The count appended (at least 1), or -1 (0x0D00 bad argument, 0x0700 no
 * such block device, 0x0200 list allocation).
 */
VEXOP_API int VEXODiskPhysicalDiskNameListGet(const char *path, PVLIBSZLIST *list);

VEXO_END_DECLS

#endif
