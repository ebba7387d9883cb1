// The port type of a device path.
#include <cstdio>
#include <cstring>

#include <vexohw/disk.h>
#include <vexohw/disk_port.h>
#include <vexoplatform/nvme_location.h>

#include "external/port_map.h"
#include "frame/err.h"

namespace {

using vexo::external::bitSet;

bool isModel(const char *model, std::initializer_list<const char *> models)
{
	for (const char *m : models)
		if (std::strcmp(model, m) == 0)
			return true;
	return false;
}

// SATA disks behind an M.2 adapter card or on the board's M.2 slots.
int m2Answer(const char *path)
{
	char model[1024] = {};
	if (VexoHWVersionGet(model, sizeof(model)) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to get model name", VEXO_AT);
		return DISK_PORT_TYPE_INVALID;
	}
	switch (VEXOM2CardModelGet(path)) {
	case VEXO_M2CARD_D2:
		if (VLIBCSupportM2AllDev())
			return DISK_PORT_TYPE_CACHE;
		return isModel(model, {"VQ201", "VQ202", "VQ203", "VQ204", "VQ205", "VQ206", "VQ207", "VQ208"})
			       ? DISK_PORT_TYPE_CACHE
			       : DISK_PORT_TYPE_BLOCKED;
	case VEXO_M2CARD_S1:
	case VEXO_M2CARD_S2:
		if (VLIBCSupportM2AllDev())
			return DISK_PORT_TYPE_CACHE;
		return isModel(model, {"VQ120", "VQ110"}) ? DISK_PORT_TYPE_BLOCKED : DISK_PORT_TYPE_CACHE;
	case VEXO_M2CARD_UNKNOWN:
		return DISK_PORT_TYPE_INVALID;
	default:
		return DISK_PORT_TYPE_CACHE;
	}
}

int nvmeAnswer(const char *path)
{
	switch (VEXONVMeDevPortTypeCheck(path)) {
	case VEXO_NVME_PORT_BLOCKED:
		return DISK_PORT_TYPE_BLOCKED;
	case VEXO_NVME_PORT_INTERNAL:
	case VEXO_NVME_PORT_U2:
		return DISK_PORT_TYPE_INTERNAL;
	case VEXO_NVME_PORT_CACHE:
		return DISK_PORT_TYPE_CACHE;
	case VEXO_NVME_PORT_SYSTEM:
		return DISK_PORT_TYPE_SYS;
	default:
		return DISK_PORT_TYPE_INVALID;
	}
}

// An sd name against the product's port maps. External SATA wins over
// internal for a letter set in both.
int portMapAnswer(const char *name)
{
	auto &map = vexo::external::portCheckMap();
	if (map.load() != 0)
		return DISK_PORT_TYPE_INVALID;
	if (std::strncmp(name, "isd", 3) == 0)
		return DISK_PORT_TYPE_ISD;
	if (std::strncmp(name, "sd", 2) != 0) {
		vlog(LOG_DEBUG, "%s:%d expected sdx or /dev/sdx, not %s, not match any port type", VEXO_AT, name);
		return DISK_PORT_TYPE_INVALID;
	}
	int i = DiskIndexGet(name);
	if (i < 0) {
		vlog(LOG_ERR, "%s:%d error or not supported disk path %s.", VEXO_AT, name);
		return DISK_PORT_TYPE_INVALID;
	}
	if (map.esata() != 0) {
		if (i <= 25 && bitSet(map.esata(), i)) {
			// A unit behind the port shows its disks in the unit list.
			char units[1024] = {};
			if (VEXOEnumAllEUnitsDisks(0, units, sizeof(units)) != 0 || !std::strstr(units, name))
				return DISK_PORT_TYPE_ESATA;
			return DISK_PORT_TYPE_EBOX;
		}
		// Two letters always mean a disk behind a port multiplier.
		if (i > 25 && bitSet(map.esata(), i / 26 - 1))
			return DISK_PORT_TYPE_EBOX;
	}
	if (bitSet(map.internal(), i))
		return DISK_PORT_TYPE_INTERNAL;
	if (bitSet(map.usb(), i))
		return DISK_PORT_TYPE_USB;
	if (map.cache() != 0 && bitSet(map.cache(), i))
		return DISK_PORT_TYPE_CACHE;
	return DISK_PORT_TYPE_SD_OTHER;
}

} // namespace

extern "C" {

VEXO_API int VEXODiskPortCheck(const char *path)
try {
	if (!path) {
		vlog(LOG_ERR, "%s:%d device path should not be NULL", VEXO_AT);
		return DISK_PORT_TYPE_INVALID;
	}
	if (VEXODiskCheckValid(path) == 0) {
		vlog(LOG_INFO, "%s:%d The device %s is blocked", VEXO_AT, path);
		return DISK_PORT_TYPE_BLOCKED;
	}
	if (std::strstr(path, "mmcblk"))
		return DISK_PORT_TYPE_MMC;
	if (std::strstr(path, "nvc"))
		return m2Answer(path);
	if (std::strstr(path, "sysd"))
		return DISK_PORT_TYPE_SYS;
	if (VEXONVMeCheckSupportAndNVMeSSD(path))
		return nvmeAnswer(path);
	char disk[32];
	if (DiskPartitionNumRemove(path, disk, sizeof(disk)) != 0)
		return DISK_PORT_TYPE_INVALID;
	const char *name = VEXODiskDevPrefixSkip(disk);
	if (std::strncmp(name, "vexoboot", 8) == 0)
		return DISK_PORT_TYPE_VEXOBOOT;
	return portMapAnswer(name);
} VEXO_C_CATCH(DISK_PORT_TYPE_INVALID)

VEXO_API int VEXODiskPortCheckV2(const char *path) try { return VEXODiskPortCheck(path); } VEXO_C_CATCH(DISK_PORT_TYPE_INVALID)

} // extern "C"
