// Whether a list holds an entry of a type, and whether every inserted
// adapter of the maker has an entry of its own.
#include <cstdlib>
#include <string>
#include <vector>

#include "fan/fan_private.h"
#include "frame/err.h"
#include "frame/path_read.h"
#include "frame/sysroot.h"

namespace vexo::fan {
namespace {

// A sysfs id attribute ("0x7053").
bool readId(const std::string &path, long &out)
{
	std::string text;
	if (!vexo::readString(path, text) || text.empty())
		return false;
	char *end = nullptr;
	out = std::strtol(text.c_str(), &end, 16);
	return end && *end == '\0';
}

// Holds unless some type has an adapter that is inserted and no entry.
template <typename Has>
bool allNicsCovered(Has &&has)
{
	for (int type = kTableTypeFirst; type <= kTableTypeLast; ++type) {
		int vendor = 0, device = 0;
		if (VEXOFanTableNicSSIDGet(type, &vendor, &device) == 0 && nicInserted(vendor, device) && !has(type))
			return false;
	}
	return true;
}

} // namespace

bool nicInserted(int vendor, int device)
{
	std::vector<std::string> devices;
	if (vexo::sysroot::glob("/sys/bus/pci/devices/*", devices) != 0)
		return false;
	for (const std::string &d : devices) {
		long v = 0, id = 0;
		if (readId(d + "/subsystem_vendor", v) && v == vendor && readId(d + "/subsystem_device", id) &&
		    id == device)
			return true;
	}
	return false;
}

} // namespace vexo::fan

using namespace vexo::fan;

extern "C" VEXO_API int VEXOFanIsFanConfigExist(const VEXO_FAN_TABLE_T *tables, int type)
{
	for (; tables; tables = tables->next)
		if ((int)tables->type == type)
			return 1;
	return 0;
}

extern "C" VEXO_API int VEXOFanIsFanAlertConfigExist(const VEXO_ADT_ALERT_T *alerts, int type)
{
	for (; alerts; alerts = alerts->next)
		if ((int)alerts->name == type)
			return 1;
	return 0;
}

extern "C" VEXO_API int VEXOFanIsFanManualConfigExist(const VEXO_ADT_MANUAL_TABLE_T *tables, int type)
{
	for (; tables; tables = tables->next)
		if ((int)tables->type == type)
			return 1;
	return 0;
}

extern "C" VEXO_API int VEXOFanIsFanTableExist(const VEXO_FAN_STATUS_T *status, int type)
{
	for (; status; status = status->next)
		if ((int)status->table_type == type)
			return 1;
	return 0;
}

extern "C" VEXO_API int VEXOFanAllVexoNicHasFanConfig(const VEXO_FAN_TABLE_T *tables)
{
	return vexo::cCall(0, [&] { return allNicsCovered([&](int t) { return VEXOFanIsFanConfigExist(tables, t); }); });
}

extern "C" VEXO_API int VEXOFanAllVexoNicHasAlertConfig(const VEXO_ADT_ALERT_T *alerts)
{
	return vexo::cCall(0, [&] { return allNicsCovered([&](int t) { return VEXOFanIsFanAlertConfigExist(alerts, t); }); });
}

extern "C" VEXO_API int VEXOFanAllVexoNicHasManualConfig(const VEXO_ADT_MANUAL_TABLE_T *tables)
{
	return vexo::cCall(0, [&] { return allNicsCovered([&](int t) { return VEXOFanIsFanManualConfigExist(tables, t); }); });
}
