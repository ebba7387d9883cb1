// What holds a disk, as text: its unit or the product; and the agent's text.
#include <cstdio>
#include <cstring>

#include <vexohw/disk.h>
#include <vexohw/disk_port.h>
#include <vexoplatform/ebox_info.h>

#include "external/text_out.h"
#include "frame/err.h"

namespace {


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
{
	DiskId id;
	if (!parse(path, text, size, &id))
		return -1;
	// The updater runs without the unit driver's answers.
	if (id.container == DISK_CONTAINER_EBOX)
		return VEXO_PUT_TEXT(text, size, "%s-%d", "Enclosure", id.unit);
	return productName(text, size);
}

VEXO_API int VEXODiskLocateHostGet(const char *path, char *text, int size, int inUpdater)
{
	if (inUpdater)
		return VEXODiskLocateHostGetInUpdater(path, text, size);
	DiskId id;
	if (!parse(path, text, size, &id))
		return -1;
	if (id.container != DISK_CONTAINER_EBOX)
		return productName(text, size);
	char disk[64];
	char devPath[80];
	char unique[64] = {};
	if (DiskPartitionNumRemove(VEXODiskDevPrefixSkip(path), disk, sizeof(disk)) == 0) {
		std::snprintf(devPath, sizeof(devPath), "/dev/%s", disk);
		if (VEXOEBoxUnitUniqueGetByDevPath(devPath, unique, sizeof(unique)) >= 0 && unique[0])
			return VEXO_PUT_TEXT(text, size, "%s", unique);
	}
	return VEXO_PUT_TEXT(text, size, "%s-%d", "Enclosure", id.unit);
}

VEXO_API int VEXODiskPathMibFormatGet(const char *path, char *text, int size)
{
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
}

} // extern "C"
