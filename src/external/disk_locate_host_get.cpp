// What holds a disk, as text: its unit or the product; where a disk stands
// in it; and the agent's text.
#include <cstdio>
#include <cstring>

#include <vexohw/disk.h>
#include <vexohw/disk_port.h>
#include <vexoplatform/ebox_info.h>

#include "external/text_out.h"
#include "frame/err.h"

namespace {

// The unique text of the unit that holds devPath (a device path without
// partition). Units attached over PCIe are known by their port, the others
// by the unit driver's device lists. -1 when no unit answers.
int unitUnique(const char *devPath, char *unique, int size)
{
	if (VLIBCSupportNvmeEunit())
		return VEXOPcieEunitUniqueGetByDevPath(devPath, unique, size);
	return VEXOEBoxUnitUniqueGetByDevPath(devPath, unique, size);
}

// The unit's unique text for an expansion unit disk path; false when none.
bool unitUniqueOfPath(const char *path, char *unique, int size)
{
	char disk[64];
	char devPath[80];
	if (DiskPartitionNumRemove(VEXODiskDevPrefixSkip(path), disk, sizeof(disk)) != 0)
		return false;
	std::snprintf(devPath, sizeof(devPath), "/dev/%s", disk);
	return unitUnique(devPath, unique, size) >= 0 && unique[0];
}

// The unique text of unit number `unit`, through the first bay of the unit
// driver's list; false when no unit has that number. Reads no disk.
bool unitUniqueOfNumber(int unit, char *unique, int size)
{
	VEXO_EBOX_INFO units[VEXO_EBOX_MAX_UNITS];
	int n = VEXOEBoxInfoEnum(units, VEXO_EBOX_MAX_UNITS);
	for (int i = 0; i < n; ++i) {
		if (units[i].unit != unit)
			continue;
		if (!VLIBCSupportNvmeEunit())
			return units[i].unique[0] && VLIBCStrSnprintf(unique, size, "%s", units[i].unique) >= 0;
		for (int b = 0; b < units[i].maxDisk; ++b)
			if (units[i].disks[b][0] && unitUnique(units[i].disks[b], unique, size) >= 0 && unique[0])
				return true;
		return false;
	}
	return false;
}


int productName(char *text, int size)
{
	char model[128] = {};
	if (VLIBCFileGetKeyValue("/etc.defaults/vexoinfo.conf", "upnpmodelname", model, sizeof(model), 0) <= 0) {
		VEXO_ERR(VEXO_ERR_NOT_FOUND);
		return -1;
	}
	return VEXO_PUT_TEXT(text, size, "%s", model);
}

bool parse(const char *path, char *text, int size, DiskId *id)
{
	if (!path || !text || size <= 0) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return false;
	}
	if (DiskPathParse(path, id) != 0) {
		VEXO_ERR_PASS();
		return false;
	}
	return true;
}

} // namespace

extern "C" {

VEXO_API int VEXODiskLocateHostGetInUpdater(const char *path, char *text, int size)
try {
	DiskId id;
	if (!parse(path, text, size, &id))
		return -1;
	// The updater runs without the unit driver's answers.
	if (id.container == DISK_CONTAINER_EBOX)
		return VEXO_PUT_TEXT(text, size, "%s-%d", "Enclosure", id.unit);
	return productName(text, size);
} VEXO_C_CATCH(-1)

VEXO_API int VEXODiskLocateHostGet(const char *path, char *text, int size, int inUpdater)
try {
	if (inUpdater)
		return VEXODiskLocateHostGetInUpdater(path, text, size);
	DiskId id;
	if (!parse(path, text, size, &id))
		return -1;
	if (id.container != DISK_CONTAINER_EBOX)
		return productName(text, size);
	char unique[64] = {};
	if (unitUniqueOfPath(path, unique, sizeof(unique)))
		return VEXO_PUT_TEXT(text, size, "%s", unique);
	return VEXO_PUT_TEXT(text, size, "%s-%d", "Enclosure", id.unit);
} VEXO_C_CATCH(-1)

VEXO_API int VEXODiskLocateGetWithoutIndex(const char *path, char *text, int size)
try {
	DiskId id;
	if (!parse(path, text, size, &id))
		return -1;
	if (id.container != DISK_CONTAINER_EBOX)
		return productName(text, size);
	// Two units of one model differ only by their number, so it stays.
	char unique[64] = {};
	if (!unitUniqueOfPath(path, unique, sizeof(unique)))
		std::snprintf(unique, sizeof(unique), "%s", "Enclosure");
	return VEXO_PUT_TEXT(text, size, "%s-%d", unique, id.unit);
} VEXO_C_CATCH(-1)

VEXO_API int DiskGetLocation(const DiskId *id, char *text, int size)
try {
	if (!id || !text || size <= 0 || id->index <= 0 || (id->container == DISK_CONTAINER_EBOX && id->unit <= 0)) {
		vlog(LOG_ERR, "%s:%d Bad parameters", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	char place[64] = {}; // a cache id with a slot below -1 writes nothing
	switch (id->container) {
	case DISK_CONTAINER_INTERNAL:
	case DISK_CONTAINER_EBOX:
		std::snprintf(place, sizeof(place), "Disk %d", id->index);
		break;
	case DISK_CONTAINER_ESATA:
		std::snprintf(place, sizeof(place), "Esata %d", id->index);
		break;
	case DISK_CONTAINER_USB:
		std::snprintf(place, sizeof(place), "USB %d", id->index);
		break;
	case DISK_CONTAINER_CACHE:
	case DISK_CONTAINER_SYS:
		if (DiskIdToString(id, place, sizeof(place)) < 0 || !place[0]) {
			vlog(LOG_ERR, "%s:%d Failed to get the name of disk %d", VEXO_AT, id->index);
			VEXO_ERR(VEXO_ERR_BAD_PARAM);
			return -1;
		}
		break;
	default:
		VEXO_ERR(VEXO_ERR_UNKNOWN_DEVICE);
		return -1;
	}
	if (id->container != DISK_CONTAINER_EBOX) {
		char product[128];
		if (productName(product, sizeof(product)) != 0)
			return -1;
		return VEXO_PUT_TEXT(text, size, "%s %s", product, place);
	}
	char unique[64] = {};
	if (!unitUniqueOfNumber(id->unit, unique, sizeof(unique)))
		std::snprintf(unique, sizeof(unique), "%s", "Enclosure");
	return VEXO_PUT_TEXT(text, size, "%s-%d %s", unique, id->unit, place);
} VEXO_C_CATCH(-1)

VEXO_API int VEXODiskPathMibFormatGet(const char *path, char *text, int size)
try {
	DiskId id;
	if (!parse(path, text, size, &id))
		return -1;
	char place[32];
	if (id.container == DISK_CONTAINER_CACHE && id.slot > 0)
		std::snprintf(place, sizeof(place), "%d-%d", id.slot, id.index);
	else
		std::snprintf(place, sizeof(place), "%d", id.index);
	switch (id.container) {
	case DISK_CONTAINER_INTERNAL:
		return VEXO_PUT_TEXT(text, size, "I%s", place);
	case DISK_CONTAINER_CACHE:
		return VEXO_PUT_TEXT(text, size, "C%s", place);
	case DISK_CONTAINER_EBOX:
		return VEXO_PUT_TEXT(text, size, "E%d-%s", id.unit, place);
	default:
		return VEXO_PUT_TEXT(text, size, "%s", place);
	}
} VEXO_C_CATCH(-1)

} // extern "C"
