/*
 * Disk records, identifiers and path parsing. Pure C.
 *
 * A disk path is a device path ("/dev/sda") or a short name ("sda"); every
 * function here takes both unless it says otherwise. Kinds of name:
 * sd<letters> (SATA, SAS, USB), nvme<n>n<m> (NVMe), nvc<n> (SATA on an M.2
 * adapter card), sysd<n> (system devices), mmcblk<n> (memory cards),
 * isd<...> (internal storage class) and vexoboot (the boot device).
 */
#ifndef VEXOHW_DISK_H
#define VEXOHW_DISK_H

#include <stdint.h>
#include <vexohw/vexo_export.h>

VEXO_BEGIN_DECLS

/* What holds a disk. Bit values, so that callers can build masks. */
typedef enum DiskContainer {
	DISK_CONTAINER_INTERNAL = 1, /* "internal": a bay of the main unit */
	DISK_CONTAINER_EBOX = 2,     /* "ebox": a bay of an expansion unit */
	DISK_CONTAINER_USB = 4,      /* "usb": USB, memory card, boot device */
	DISK_CONTAINER_ESATA = 8,    /* "esata": an external SATA port */
	DISK_CONTAINER_TMPFS = 16,   /* "tmpfs": memory-backed, no device gives it */
	DISK_CONTAINER_CACHE = 32,   /* "cache": dedicated cache device, M.2 */
	DISK_CONTAINER_SYS = 128     /* "sys": a system device */
} DiskContainer;

/* Common masks. */
#define DISK_CONTAINER_MASK_DATA 0x2B     /* internal, ebox, esata, cache */
#define DISK_CONTAINER_MASK_ALL_SYS 0xA3  /* internal, ebox, cache, sys */
#define DISK_CONTAINER_MASK_INTERNAL 0x21 /* internal, cache */

/* The kind of a device path, as VEXODiskPortCheck answers. */
typedef enum DiskPortType {
	DISK_PORT_TYPE_INVALID = 0,  /* unknown path; maps to no container */
	DISK_PORT_TYPE_INTERNAL = 1, /* container 1 */
	DISK_PORT_TYPE_ESATA = 2,    /* container 8 */
	DISK_PORT_TYPE_EBOX = 3,     /* container 2 */
	DISK_PORT_TYPE_USB = 4,      /* container 4 */
	DISK_PORT_TYPE_VEXOBOOT = 5, /* no container */
	DISK_PORT_TYPE_ISD = 6,      /* no container */
	DISK_PORT_TYPE_CACHE = 7,    /* M.2 cache device, container 32 */
	DISK_PORT_TYPE_SD_OTHER = 8, /* an sd name in no port map, container 4 */
	DISK_PORT_TYPE_MMC = 9,      /* container 4 */
	DISK_PORT_TYPE_BLOCKED = 10, /* blocked, or M.2 not served here; no container */
	DISK_PORT_TYPE_SYS = 11      /* sysd or NVMe system device, container 128 */
} DiskPortType;

/* Where a disk is. All fields signed 32-bit. */
typedef struct DiskId {
	int32_t index;           /* number in its container, from 1 (NVMe: location, sysd<n>: n, nvc: ATA port) */
	int32_t container;       /* DiskContainer */
	int32_t unit;            /* expansion unit from 1; 0 otherwise */
	int32_t partitionNumber; /* 0 for the whole disk, negative when unparsable */
	int32_t slot;            /* PCIe slot of an adapter card, -1 when none */
} DiskId;

/*
 * One disk: 328 bytes in memory, allocated zeroed and released with
 * DiskInfoFree. A pointer to the record is a valid pointer to its `id`.
 */
typedef struct DiskInfo {
	DiskId id;                  /* offset 0 */
	unsigned char reserved[12]; /* offset 20 */
	char name[16];              /* offset 32: short name without partition ("sda") */
	char path[128];             /* offset 48: device path ("/dev/sda") */
	char model[128];            /* offset 176 */
	uint64_t sizeBytes;         /* offset 304: sectors in /sys/block/<name>/size times 512 */
	int32_t temperature;        /* offset 312: degrees Celsius, 0 when not read */
	int32_t secureErasing;      /* offset 316: 1 while a secure erase runs */
	int32_t logicalBlockSize;   /* offset 320: bytes */
} DiskInfo;

/*
 * The 320-byte on-file form of DiskInfo: one entry of /tmp/enumlist_det.
 * Integers little-endian. `slot` stands before `container` here, and
 * secureErasing is not stored. The reserved bytes hold anything; readers
 * ignore them.
 */
typedef struct DiskInfoFileEntry {
	int32_t index;            /* 0 */
	int32_t slot;             /* 4 */
	int32_t container;        /* 8 */
	int32_t unit;             /* 12 */
	int32_t partitionNumber;  /* 16 */
	unsigned char reserved[12]; /* 20 */
	char name[16];            /* 32 */
	char path[128];           /* 48 */
	char model[128];          /* 176 */
	uint64_t sizeBytes;       /* 304 */
	int32_t temperature;      /* 312 */
	int32_t logicalBlockSize; /* 316 */
} DiskInfoFileEntry;

/*
 * A list cell. A list is a pointer to the first cell (null when empty),
 * with no count and no tail. The cell owns its record.
 */
typedef struct DiskListNode {
	DiskInfo *info;
	struct DiskListNode *next;
} DiskListNode;

/* The first argument of DiskInfoEnum: points to a DiskContainer mask. */
typedef struct DiskEnumFilter {
	const int32_t *containerMask;
} DiskEnumFilter;

/* ---- Path parsing ------------------------------------------------------- */

/* Fills all five fields of *out, or leaves it untouched. 0, or -1. */
VEXO_API int DiskPathParse(const char *path, DiskId *out);
/* The value of the letters of an sd name, from 0 ("sda" 0, "sdaa" 26). -1 without letters. */
VEXO_API int DiskIndexGet(const char *path);
/* ATA port and PCIe slot of a disk behind an M.2 adapter card (nvc). 0, or -1. */
VEXO_API int DiskIndexAndSlotGet(const char *path, int *port, int *slot);
/* The DiskContainer of a path. 0, or -1 (unknown kind, or null argument). */
VEXO_API int DiskContainerGet(const char *path, int *container);
/* The keyword of a container; null (and 0x6100) for any other value. */
VEXO_API const char *VEXODiskContainerToString(int container);
/* Maps a DiskPortType to its container. 0, or -1 with *container untouched. */
VEXO_API int VEXODiskPortToContainer(int portType, int *container);
/* Pointer behind a leading "/dev/"; the argument itself otherwise (or null). */
VEXO_API const char *VEXODiskDevPrefixSkip(const char *path);
/*
 * Splits a name into its disk part (into disk, size bytes) and partition
 * number: 0 for a whole disk, the number, or -1 when unparsable.
 */
VEXO_API int VEXODiskPartitionNumGet(const char *path, char *disk, int size);
/* Copies path without its partition part into disk. 0, or -1 (size must exceed strlen(path)). */
VEXO_API int DiskPartitionNumRemove(const char *path, char *disk, int size);
/* 1 if the device may be used, 0 if it is blocked, negative on failure. */
VEXO_API int VEXODiskCheckValid(const char *path);

/* ---- Id texts ----------------------------------------------------------- */

/*
 * Display text ("3", "System device 2", "Cache device 1-2"). 0, or -1 (a
 * null argument or a text that does not fit: 0x0D00, out untouched). A
 * cache id with a slot below -1 has no text: 0, out untouched.
 */
VEXO_API int DiskIdToString(const DiskId *id, char *out, int size);
/* The same in the mail language of /etc/vexoinfo.conf ("disk 3"), with
   the built-in English words when the language's table lacks them. 0, or
   -1 as DiskIdToString. */
VEXO_API int DiskIdToMailString(const DiskId *id, char *out, int size);
/* Identifier without spaces ("Disk_3", "Cache_1-2", "unknown"). 0, or -1. */
VEXO_API int VEXODiskInfoToString(const DiskInfo *info, char *out, int size);
/* "<container>_<n>_<index>" used as a key. 0, or -1 (0x6100 for usb, esata, tmpfs). */
VEXO_API int VEXODiskIdSerialize(const DiskId *id, char *out, int size);

/* ---- Lists -------------------------------------------------------------- */

/* Appends info at the end; the list takes it. Nothing happens on a null argument. */
VEXO_API void DiskListPush(DiskListNode **head, DiskInfo *info);
/*
 * Unlinks and frees every cell for which predicate(cell) is non-zero. The
 * record is not freed: the predicate takes care of it. Cells kept, or 0.
 */
VEXO_API int DiskListRemove(DiskListNode **head, int (*predicate)(DiskListNode *cell));
/* Sorts by unit, data disks before cache devices, then index. 0, or -1 when empty. */
VEXO_API int VEXODiskSortByEboxIdAndDiskId(DiskListNode *head);

VEXO_END_DECLS

#endif
