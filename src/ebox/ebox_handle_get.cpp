// A unit's sysfs directory into a handle: the family from the device id,
// the slots from the family, the unit's place in its chain and its model.
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vexoplatform/ebox_info.h>

#include "ebox/ebox_private.h"
#include "frame/err.h"

// The record as the unit's other users lay it out: two 4096-byte paths, the
// port, the semaphore, inner, then the 31 slots in order.
static_assert(offsetof(VEXO_EBOX_HANDLE_T, info_path) == 4096);
static_assert(offsetof(VEXO_EBOX_HANDLE_T, port) == 8192);
static_assert(offsetof(VEXO_EBOX_HANDLE_T, sem_id) == 8196);
static_assert(offsetof(VEXO_EBOX_HANDLE_T, inner) == 8200);
static_assert(offsetof(VEXO_EBOX_HANDLE_T, EncodeCmd) == 8208);
static_assert(offsetof(VEXO_EBOX_HANDLE_T, ReadGpio) == 8208 + 2 * 8);
static_assert(offsetof(VEXO_EBOX_HANDLE_T, FanCTL) == 8208 + 12 * 8);
static_assert(offsetof(VEXO_EBOX_HANDLE_T, LedAlarmCTL) == 8208 + 30 * 8);
static_assert(sizeof(VEXO_EBOX_HANDLE_T) == 8208 + 31 * 8);
static_assert(offsetof(VEXO_EBOX_I2C_T, reg) == 2);
static_assert(offsetof(VEXO_EBOX_I2C_T, write_data) == 4);
static_assert(offsetof(VEXO_EBOX_I2C_T, read_data) == 11);
static_assert(offsetof(VEXO_EBOX_I2C_T, length) == 18);
static_assert(sizeof(VEXO_EBOX_I2C_T) == 20);

namespace vexo::ebox {

// Tested in this order: a device id naming two chips is of the first.
static const struct {
	const char *needle;
	Family family;
} kFamilies[] = {
	{"3726", Family::Chip3xxx},
	{"3826", Family::Chip3xxx},
	{"9705", Family::Chip9705},
	{"5755", Family::Chip575},
};

Family familyOf(const char *deviceid)
{
	if (!deviceid)
		return Family::None;
	for (const auto &f : kFamilies)
		if (std::strstr(deviceid, f.needle))
			return f.family;
	return Family::None;
}

void setPaths(VEXO_EBOX_HANDLE_T *h, const char *dir, Family f)
{
	std::snprintf(h->gpio_path, sizeof(h->gpio_path), "%s/%s", dir,
		      f == Family::Chip575 ? "vexo_pm_i2c" : "vexo_pm_gpio");
	std::snprintf(h->info_path, sizeof(h->info_path), "%s/vexo_pm_info", dir);
}

// The 575 family's slots for the XU11, by its place in the chain.
static void fill575(VEXO_EBOX_HANDLE_T *h, bool top, const std::string &unique)
{
	if (unique != "XU11")
		return;
	h->UniqueGet = uniqueGet575;
	h->LedDiskStatCTL = VEXOEBoxI2cLedDiskStatCTL;
	h->LedDiskStatAllCTL = VEXOEBoxI2cLedDiskStatAllCTL;
	h->LedDiskLightCTL = VEXOEBoxI2cLedDiskLightCTL;
	if (!top)
		return;
	h->FanCTL = VEXOEBoxI2cFanCTL;
	h->FanErr = VEXOEBoxI2cWhichFanErr;
	h->IsPowerOn = VEXOEBoxI2cIsPowerOn;
	h->PowerCTL = VEXOEBoxI2cPowerCTL;
	h->RedundantPowerStatGet = VEXOEBoxI2cRedundantPowerStatGet;
	h->IsPowerBtnDisabled = VEXOEBoxI2cIsPowerBtnDisabled;
	h->PowerBtnDisableSet = VEXOEBoxI2cPowerBtnDisableSet;
	h->LedAlarmCTL = VEXOEBoxI2cLedAlarmCTL;
	h->FanNumberGet = fanNumberGet575;
}

// Models a unit further down a chain must be to get any slot.
static bool chainedKnown(Family f, const std::string &unique)
{
	static const char *const k3xxx[] = {"XU05", "XU04", "XU06"};
	static const char *const k9705[] = {"XU10", "XU08", "XU12", "XU09", "XU13", "XU07", "XU14"};
	auto in = [&](const auto &list) {
		for (const char *m : list)
			if (unique == m)
				return true;
		return false;
	};
	if (f == Family::Chip3xxx)
		return in(k3xxx);
	if (f == Family::Chip9705)
		return in(k9705);
	return true;
}

static void fillByFamily(VEXO_EBOX_HANDLE_T *h, Family f, bool top, const std::string &unique)
{
	if (!top && !chainedKnown(f, unique))
		return; // paths, port and semaphore only
	fillCommon(h);
	switch (f) {
	case Family::Chip3xxx:
		fill3xxx(h, top, unique);
		break;
	case Family::Chip9705:
		fill9705(h, top, unique);
		break;
	case Family::Chip575:
		fill575(h, top, unique);
		break;
	case Family::None:
		break;
	}
}

static void takeSemaphore(VEXO_EBOX_HANDLE_T *h)
{
	int sem = -1;
	if (!VEXOEBox3xxxSemGet(h, &sem))
		vlog(LOG_ERR, "%s:%d init public member Semid fail\n", VEXO_AT);
	h->sem_id = sem;
}

} // namespace vexo::ebox

using namespace vexo::ebox;

extern "C" VEXO_API int VEXOEUnit3xxxChip(const char *deviceid) try {
	return familyOf(deviceid) == Family::Chip3xxx;
}
VEXO_C_CATCH(0)

extern "C" VEXO_API int VEXOEUnit9705Chip(const char *deviceid) try {
	return familyOf(deviceid) == Family::Chip9705;
}
VEXO_C_CATCH(0)

extern "C" VEXO_API int VEXOEUnit575Chip(const char *deviceid) try {
	return familyOf(deviceid) == Family::Chip575;
}
VEXO_C_CATCH(0)

extern "C" VEXO_API int VEXOEBoxHostInfoGet(const char *key, const char *path, char *value, int size) try {
	if (!key || !path || !value || size <= 0)
		return 0;
	return VLIBCFileGetKeyValue(path, key, value, size, 0) > 0 ? 1 : 0;
}
VEXO_C_CATCH(0)

extern "C" VEXO_API int VEXOEBoxSysfsDevIs(const char *sysfs_dir) try {
	if (!sysfs_dir || !SupportEBox())
		return 0;
	std::string info = std::string(sysfs_dir) + "/vexo_pm_info";
	char list[1024] = {};
	return VEXOEBoxHostInfoGet("vexo_device_list", info.c_str(), list, sizeof(list));
}
VEXO_C_CATCH(0)

extern "C" VEXO_API int VEXOEBoxHandleGet(const char *sysfs_dir, VEXO_EBOX_HANDLE_T *handle, unsigned int port) try {
	if (!sysfs_dir || !handle || !VEXOEBoxSysfsDevIs(sysfs_dir))
		return 0;
	std::memset(handle, 0, sizeof(*handle));
	handle->sem_id = -1;
	std::string info = std::string(sysfs_dir) + "/vexo_pm_info";
	char deviceid[32] = {}, emid[32] = {}, unique[32] = {};
	if (!VEXOEBoxHostInfoGet("deviceid", info.c_str(), deviceid, sizeof(deviceid)) ||
	    !VEXOEBoxHostInfoGet("EMID", info.c_str(), emid, sizeof(emid)) ||
	    !VEXOEBoxHostInfoGet("Unique", info.c_str(), unique, sizeof(unique)))
		return 0;
	Family f = familyOf(deviceid);
	if (f == Family::None)
		return 0;
	fillByFamily(handle, f, std::strcmp(emid, "0") == 0, unique);
	handle->port = port;
	setPaths(handle, sysfs_dir, f);
	takeSemaphore(handle);
	return 1;
}
VEXO_C_CATCH(0)

extern "C" VEXO_API int VEXOEBoxHandleInitByConfig(VEXO_EBOX_HANDLE_T *handle, const char *unique,
						   const char *deviceid, const char *emid) try {
	if (!handle || !unique || !deviceid || !emid) {
		vlog(LOG_ERR, "%s:%d Bad parameter", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	Family f = familyOf(deviceid);
	if (f != Family::Chip575) {
		vlog(LOG_ERR, "%s:%d Device %s is not an I2C-managed unit", VEXO_AT, deviceid);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	fillByFamily(handle, f, std::strcmp(emid, "0") == 0, unique);
	return 0;
}
VEXO_C_CATCH(-1)

extern "C" VEXO_API void VEXOEBoxHandleListFree(VEXO_EBOX_HANDLE_LIST *list) try {
	while (list) {
		VEXO_EBOX_HANDLE_LIST *next = list->next;
		if (list->handle) {
			std::free(list->handle->inner);
			std::free(list->handle);
		}
		std::free(list);
		list = next;
	}
}
VEXO_C_CATCH_VOID
