/*
 * libvexoplatform: expansion units as the unit driver shows them. Pure C.
 *
 * Each SCSI host that leads to an expansion unit has the file
 * /sys/class/scsi_host/host<n>/vexo_pm_info, key=value lines (a value may
 * be in double quotes). Keys read here:
 *
 *   vexo_device_list   device paths of the unit's bays in bay order,
 *                      separated by spaces or commas ("/dev/sdca /dev/sdcb")
 *   Unique             the unit's model text ("XU05")
 *   deviceid           the port multiplier's device id
 *   EMID               "0" for the unit on the port itself
 *   power              "off" when the unit is powered down; absent or any
 *                      other value means on
 *
 * and beside it vexo_diskname_trans, one line: the base name of the port's
 * disks ("sdc"). The unit number is the value of the last letter of that
 * base name, with 'a' as 1 ("sdc" is unit 3), which is the number a disk
 * name "sdc<x>" parses to. A host without vexo_diskname_trans takes the
 * number from the first letter after "sd" of its first device.
 *
 * Whether the board has an expansion port at all is "ebox" in
 * /etc.defaults/vexoplatform.json (see nvme_location.h).
 *
 * Expansion units attached over PCIe (products where VLIBCSupportNvmeEunit
 * holds) are known by the PCIe port their cable leaves from, in the same
 * description:
 *
 *   "pcie_eunits": [
 *     { "pci": "0000:00:1d.0",   PCI address on the path of the unit's disks
 *       "unique": "XU20" }       the model text of the unit on that port
 *   ]
 *
 * A disk belongs to the entry whose "pci" is a component of its resolved
 * /sys/block/<name> link (the deepest one when several are). Its bay is the
 * ATA port number of the first ata<n> directory below that component (the
 * unit's SATA controller numbers its ports from 1), or, for an NVMe disk,
 * the "location" of the nvme_slots entry below it.
 */
#ifndef VEXOPLATFORM_EBOX_INFO_H
#define VEXOPLATFORM_EBOX_INFO_H

#include <vexoplatform/vexoexport.h>

VEXO_BEGIN_DECLS

#define VEXO_EBOX_MAX_UNITS 16
#define VEXO_EBOX_MAX_BAYS 32

/* One expansion unit. */
typedef struct VEXO_EBOX_INFO {
	int unit;                            /* unit number, from 1 */
	int host;                            /* n of scsi_host/host<n> */
	int powerOn;                         /* 1 unless vexo_pm_info says power=off */
	int maxDisk;                         /* bays listed in vexo_device_list */
	char unique[32];                     /* Unique */
	char deviceId[32];                   /* deviceid, "" when absent */
	char disks[VEXO_EBOX_MAX_BAYS][32];  /* device path of each bay */
} VEXO_EBOX_INFO;

/* 1 when the board has an expansion port, else 0. */
VEXOP_API int SupportEBox(void);
/*
 * Reads key of host<n>'s vexo_pm_info (hostName "host4") into value.
 * As VLIBCFileGetKeyValue: the length when found, 0 when absent or empty,
 * -1 on failure.
 */
VEXOP_API int VEXOEBoxPmInfoGet(const char *hostName, const char *key, char *value, int size);
/*
 * The 0-based bay of diskPath (a device path without partition) in its
 * unit, with the unit's Unique into unique. -1 (0x2A00) when no unit lists
 * the disk, -1 (0x0D00) on bad arguments.
 */
VEXOP_API int VEXOEBoxUnitUniqueGetByDevPath(const char *diskPath, char *unique, int size);
/*
 * The 0-based bay of diskPath (a device path or name; a partition is
 * ignored) in its PCIe-attached unit, with the unit's "unique" into
 * unique. -1 with 0x0D00 on bad arguments or a unique text that does not
 * fit, 0x0700 when the description is missing or the disk has no
 * /sys/block entry, 0x2A00 when no unit's port is on its path, 0x0A00 when
 * the description is broken, or the entry has no "unique", or the bay
 * cannot be read (the last two logged).
 */
VEXOP_API int VEXOPcieEunitUniqueGetByDevPath(const char *diskPath, char *unique, int size);
/*
 * The units with a vexo_device_list, in host order, into units[0..max).
 * The count (0 on a board without expansion port), or -1.
 */
VEXOP_API int VEXOEBoxInfoEnum(VEXO_EBOX_INFO *units, int max);
/* 1 when the unit is powered on, else 0 (also for null). */
VEXOP_API int VEXOEBoxIsPoweron(const VEXO_EBOX_INFO *unit);

VEXO_END_DECLS

#endif
