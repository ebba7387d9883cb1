// An expansion unit's handle as the eunit commands find it: by the unit
// number "eunit list" shows, through the unit-level handle.
#pragma once

#include <cstdlib>
#include <string>

#include <vexohw/ebox.h>
#include <vexoplatform/ebox_info.h>

namespace vexo::cli {

// A unit handle that frees its inner copy.
struct Unit {
	VEXO_EBOX_HANDLE_T h{};
	VEXO_EBOX_INFO info{};
	bool ok = false;
	Unit() = default;
	Unit(const Unit &) = delete;
	Unit &operator=(const Unit &) = delete;
	~Unit() { std::free(h.inner); }
};

inline bool openUnit(const VEXO_EBOX_INFO &info, Unit &u)
{
	u.info = info;
	std::string dir = "/sys/class/scsi_host/host" + std::to_string(info.host);
	u.ok = VEXOEBoxUnitHandleGet(dir.c_str(), &u.h, static_cast<unsigned>(info.unit)) == 1;
	return u.ok;
}

// The unit numbered `which` (as "eunit list" shows it).
inline bool findUnit(const std::string &which, Unit &u)
{
	VEXO_EBOX_INFO units[VEXO_EBOX_MAX_UNITS];
	int n = VEXOEBoxInfoEnum(units, VEXO_EBOX_MAX_UNITS);
	for (int i = 0; i < n; ++i)
		if (std::to_string(units[i].unit) == which)
			return openUnit(units[i], u);
	return false;
}

inline const char *family(const char *deviceid)
{
	return VEXOEUnit3xxxChip(deviceid)   ? "3xxx"
	       : VEXOEUnit9705Chip(deviceid) ? "9705"
	       : VEXOEUnit575Chip(deviceid)  ? "575 (i2c)"
					     : "unknown";
}

} // namespace vexo::cli
