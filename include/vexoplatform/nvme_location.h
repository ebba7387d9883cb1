/*
 * libvexoplatform: where an NVMe disk or an M.2 adapter card sits, and the
 * product's hardware model. Pure C.
 *
 * Answers come from sysfs (the resolved link /sys/block/<name>, as the
 * kernel lays it out: /sys/devices/pci0000:00/0000:00:01.2/.../nvme/nvme0/nvme0n1)
 * and from the platform description /etc.defaults/vexoplatform.json:
 *
 *   {
 *     "model": "VQ110",                  hardware model, VexoHWVersionGet
 *     "ebox": true,                       SupportEBox (see ebox_info.h); absent: false
 *     "nvme_slots": [                     NVMe locations
 *       { "pci": "0000:00:01.2",          PCI address of a bridge or device on the disk's path
 *         "slot": 0,                      PCIe slot of the adapter card, 0 on the board
 *         "location": 1,                  location number of the disk, from 1
 *         "type": "cache" }               "blocked" | "internal" | "cache" | "u2" | "system"
 *     ],
 *     "adapter_slots": [                  adapter cards in PCIe slots
 *       { "pci": "0000:00:1c.0",          PCI address on the path of the disks behind the card
 *         "slot": 1,
 *         "card": "M2C-D2" }              card model name (table below)
 *     ],
 *     "adapter_cards": {                  what each card model may carry on this product
 *       "M2C-D2": { "sup_nvme": true, "sup_sata": false }
 *     }
 *   }
 *
 * A disk matches an entry when the entry's "pci" equals one component of
 * the disk's resolved sysfs path; when several entries match, the one
 * nearest to the disk (deepest component) wins. Absent keys mean "none".
 */
#ifndef VEXOPLATFORM_NVME_LOCATION_H
#define VEXOPLATFORM_NVME_LOCATION_H

#include <vexoplatform/vexoexport.h>

VEXO_BEGIN_DECLS

/* The platform description file, an appliance path. */
#define VEXO_PLATFORM_DESCRIPTION "/etc.defaults/vexoplatform.json"

/* VEXONVMeDevPortTypeCheck answers (the "type" of the matching nvme_slots entry). */
#define VEXO_NVME_PORT_NONE 0     /* no entry matches, or a bad path */
#define VEXO_NVME_PORT_BLOCKED 1  /* "blocked" */
#define VEXO_NVME_PORT_INTERNAL 2 /* "internal" */
#define VEXO_NVME_PORT_CACHE 3    /* "cache": M.2 cache slot */
#define VEXO_NVME_PORT_U2 4       /* "u2": U.2 bay, used as internal */
#define VEXO_NVME_PORT_SYSTEM 5   /* "system" */

/*
 * Non-zero when the product supports NVMe (VLIBCSupportNVMe) and the path's
 * disk part is an NVMe namespace name, nvme<n>n<m>, with or without a
 * partition ("/dev/nvme0n1p2" counts).
 */
VEXOP_API int VEXONVMeCheckSupportAndNVMeSSD(const char *path);
/* Slot and location of an NVMe disk (path without partition). 0, or -1. */
VEXOP_API int VEXONVMeDevLocGet(const char *path, int *slot, int *location);
/* One of VEXO_NVME_PORT_*. */
VEXOP_API int VEXONVMeDevPortTypeCheck(const char *path);
/* 1 when the disk sits in a "u2" location, else 0. */
VEXOP_API int VEXONVMeDevIsU2Slot(const char *path);
/*
 * The device path ("/dev/nvme1n1") of the NVMe disk present at slot and
 * location, found by walking /sys/block/nvme*. 0, or -1.
 */
VEXOP_API int VEXONVMeDevGetByLoc(int slot, int location, char *path, int size);

/* Adapter card models. */
#define VEXO_M2CARD_D2 0 /* "M2C-D2": two M.2 NVMe ports */
#define VEXO_M2CARD_S1 1 /* "M2C-S1": one M.2 SATA port */
#define VEXO_M2CARD_S2 2 /* "M2C-S2": two M.2 SATA ports */
#define VEXO_M2CARD_N4 3 /* "M2C-N4": four M.2 NVMe ports */
#define VEXO_M2CARD_X1 4 /* "M2C-X1": network and one M.2 port */
#define VEXO_M2CARD_X2 5 /* "M2C-X2": network and two M.2 ports */
#define VEXO_M2CARD_U2 6 /* "M2C-U2": two U.2 ports */
#define VEXO_M2CARD_NONE 7    /* the disk is on no adapter card */
#define VEXO_M2CARD_UNKNOWN 8 /* a card of unknown model, or the disk cannot be placed */

/*
 * The model of the adapter card that carries the disk: VEXO_M2CARD_NONE
 * when no adapter_slots entry is on its path, VEXO_M2CARD_UNKNOWN when the
 * entry's card is not in the table above, when the path is null or when
 * /sys/block/<name> does not resolve.
 */
VEXOP_API int VEXOM2CardModelGet(const char *path);
/* The model name of a card model ("M2C-D2"), null for 7, 8 and others. */
VEXOP_API const char *VEXOM2CardIDToStr(int model);
/*
 * Whether card `cardName` may carry `attribute` ("sup_nvme", "sup_sata") on
 * this product, from "adapter_cards": 1 yes, 0 no (also a card or attribute
 * not listed), -1 on a null argument or a missing or broken description.
 */
VEXOP_API int VEXOAdapterCardCheckSupport(const char *cardName, const char *attribute);

/* The hardware model ("VQ110") from "model". 0, or -1. */
VEXOP_API int VexoHWVersionGet(char *model, int size);

VEXO_END_DECLS

#endif
