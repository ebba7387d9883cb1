/*
 * Disk ports: which port map a device name belongs to, enumeration by port
 * type, and device paths from ids, indexes and positions. Pure C.
 *
 * The port maps are four hexadecimal masks in /etc.defaults/vexoinfo.conf
 * (usbportcfg, esataportcfg, internalportcfg, cacheportcfg); bit n stands
 * for the device letter with index n (bit 0 "sda"). They are read once per
 * process, and again on each call while usbportcfg reads as 0.
 *
 * Lists are string lists of the core library; functions that append take a
 * pointer to the list pointer, because appending may move the list.
 */
#ifndef VEXOHW_DISK_PORT_H
#define VEXOHW_DISK_PORT_H

#include <vexohw/disk.h>
#include <vexohw/vexo_export.h>
#include <vexoplatform/vexocore.h>

VEXO_BEGIN_DECLS

/* The DiskPortType of a device path or name; 0 for anything unknown. */
VEXO_API int VEXODiskPortCheck(const char *path);
VEXO_API int VEXODiskPortCheckV2(const char *path);

/* Appends the present disks of portType (bare names, sorted). 0, or -1. */
VEXO_API int VEXODiskPortEnum(int portType, PVLIBSZLIST *names);
/* Appends every name of the port map of portType (1, 2, 3, 4, 7), present or not. 0, or -1. */
VEXO_API int VEXODiskPortEnumAll(int portType, PVLIBSZLIST *names);
/* M.2 disks: nvc names and NVMe disks outside U.2 bays. 0, or -1. */
VEXO_API int VEXODiskM2DriveEnum(PVLIBSZLIST *names);
/* NVMe disks in U.2 bays. 0, or -1. */
VEXO_API int VEXODiskU2DriveEnum(PVLIBSZLIST *names);
/* Internal disks that are neither nvc nor NVMe. 0, or -1. */
VEXO_API int VEXODiskInternalDiskWithoutM2Enum(PVLIBSZLIST *names);
/* Disks the system may be installed on (internal, cache, system), sorted, no repeats. 0, or -1. */
VEXO_API int VEXODiskSystemInstallationDeviceEnum(PVLIBSZLIST *names);
/*
 * The names of the openable disks of every expansion unit, each followed by
 * one space ("sdca sdcb "). `mode` is reserved. 0, or -1 (0x0D00 bad
 * argument or names do not fit).
 */
VEXO_API int VEXOEnumAllEUnitsDisks(int mode, char *names, int size);

/* Number of external SATA ports. */
VEXO_API int VEXOExternalEsataPortCount(void);
/* Name ("sdf") of external SATA port `index`, from 1. 0, or -1. */
VEXO_API int VEXOExternalEsataPortGet(int index, char *name, int size);
/* The index (from 1) of an external SATA port's name or path, or -1. */
VEXO_API int VEXOExternalEsataPortIndexGet(const char *path);

/* The device path of the disk at id (index, container and unit compared),
   among the internal, expansion unit, cache and system disks. 0, or -1. */
VEXO_API int VEXODiskDevPathGetById(const DiskId *id, char *path, int size);
/* "/dev/<name>", or the name itself when it begins with "/dev/". 0, or -1. */
VEXO_API int VEXODiskDevPathGetByName(const char *name, char *path, int size);
/* Device path of an encoded index (1..26 sdX, 27..799 sdXY, 800.. nvc, 900..910 sysd, 1000.. nvme). 0, or -1. */
VEXO_API int VEXODiskDevicePathGetByIndex(int index, char *path, int size);
/*
 * Device path of bay `position` (from 1) in the container encoded as
 * iEncodedCnrIdx: 0 internal, 1..999 expansion unit, 1000+s adapter card in
 * slot s, 2000+s NVMe slot s, 3000.. sysd. 0, or -1.
 */
VEXO_API int VEXODiskDevicePathGetByPosition(int position, int iEncodedCnrIdx, char *path, int size);
/* "/dev/nvc<n>" of the disk at adapter card slot and ATA port. 0, or -1. */
VEXO_API int DiskDevNameGetByIdxSlot(int slot, int port, char *name, int size);
/*
 * Appends to *paths the device path of every disk whose true serial
 * (DiskSerialGet) equals serial; more than one disk may carry a serial.
 * A disk whose serial cannot be read is passed over. 0, or -1.
 */
VEXO_API int VEXODiskDevPathGetBySerialNumber(const char *serial, PVLIBSZLIST *paths);

/* Partition name ("sda3", "nvme0n1p3") of path; refuses vexoboot. 0, or -1. */
VEXO_API int VEXODiskDevicePartitionNameGet(const char *path, int partition, char *name, int size);
/* The same with "/dev/" in front. 0, or -1. */
VEXO_API int VEXODiskDevicePartitionPathGet(const char *path, int partition, char *devPath, int size);
/* Glob pattern of the partitions of path ("sda*", "nvme0n1p*"). 0, or -1. */
VEXO_API int VEXODiskDevicePartitionEnumStringGet(const char *path, char *pattern, int size);

/*
 * The command family of the drive: "scsi", "nvme", "sat" (SAT protocol, USB
 * disks, mv14xx hosts), "marvell" (mvSata hosts) or "ata". 0, or -1.
 */
VEXO_API int VEXODiskDeviceTypeGet(const char *path, char *type, int size);

/* First data partition ("/dev/md2", or bay 1 partition 3). 0, or -1. */
VEXO_API int VEXODiskFirstDataDevicePathGet(char *path, int size);
/* System partition ("/dev/md0", "/dev/sda1", "/dev/sda5"). 0, or -1. */
VEXO_API int VEXODiskSysDevicePathGet(char *path, int size);
/* "/dev/system-root" when it exists, else VEXODiskSysDevicePathGet. 0, or -1. */
VEXO_API int VEXOSystemDeviceMountPathGet(char *path, int size);

/*
 * Device name from a kernel ATA link text "ata<n>", "ata<n>.<m>" or "<n>.<m>":
 * the base name in /sys/class/scsi_host/host<n-1>/vexo_diskname_trans, and
 * with <m> the bay letter, 'a' + m, or "dcba"[m] when that host's
 * vexo_pm_info names a unit XU02 or XU03 (wired in reverse). 0, or -1
 * (0x0D00 bad text, 0x0900 no file, 0x0A00 unreadable).
 */
VEXO_API int VEXODiskGetDevnamebyAtaPort(char *name, int size, const char *hostText);
/*
 * Text of what holds the disk: the unit's unique text for an expansion
 * unit disk (from the unit driver's device lists, or where
 * VLIBCSupportNvmeEunit holds from the PCIe port the unit hangs off, see
 * VEXOPcieEunitUniqueGetByDevPath), "Enclosure-<unit>" when that fails,
 * else the product name (upnpmodelname). `inUpdater` non-zero answers as
 * VEXODiskLocateHostGetInUpdater. 0, or -1.
 */
VEXO_API int VEXODiskLocateHostGet(const char *path, char *text, int size, int inUpdater);
/* For the updater, where no unit driver answers: "Enclosure-<unit>" or the product name. 0, or -1. */
VEXO_API int VEXODiskLocateHostGetInUpdater(const char *path, char *text, int size);
/*
 * The holder of the disk with the unit's number, for telling units of one
 * model apart: "<unique>-<unit>" for an expansion unit disk ("XU05-1"),
 * "Enclosure-<unit>" when no unit answers for it, else the product name
 * (upnpmodelname). The unit's text comes from the same source as in
 * VEXODiskLocateHostGet. 0, or -1 (the path does not parse, no product
 * name 0x2A00, text too small 0x0D00).
 */
VEXO_API int VEXODiskLocateGetWithoutIndex(const char *path, char *text, int size);
/*
 * Where the disk of `id` stands, as "<holder> <place>":
 *   holder  the product name for every container but 2; for an expansion
 *           unit disk "<unique>-<unit>" of the unit with that number
 *           ("XU05-1"), or "Enclosure-<unit>" when none is known;
 *   place   "Disk <index>" (internal, expansion unit), "Esata <index>",
 *           "USB <index>", or the display text of DiskIdToString for cache
 *           and system devices ("Cache device 1-2", "System device 2").
 * Reads configuration and sysfs only, never a disk. 0, or -1: 0x0D00 for
 * null arguments, an index below 1, an expansion unit id without a unit,
 * a cache id that has no text, or a text that does not fit (text is then
 * empty); 0x6100 for a container with no place
 * (tmpfs, or no container value); 0x2A00 without a product name.
 */
VEXO_API int DiskGetLocation(const DiskId *id, char *text, int size);
/* Text for the network management agent: "I3", "C1", "E2-3", or the plain index. 0, or -1. */
VEXO_API int VEXODiskPathMibFormatGet(const char *path, char *text, int size);

VEXO_END_DECLS

#endif
