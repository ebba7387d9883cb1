// Arguments the commands share: port types by number or name, numbers,
// system versions.
#pragma once

#include <climits>
#include <cstdlib>
#include <string>

#include <vexohw/disk.h>

namespace vexo::cli {

struct PortTypeName {
	int type;
	const char *name;
};

inline constexpr PortTypeName kPortTypeNames[] = {
	{DISK_PORT_TYPE_INVALID, "invalid"}, {DISK_PORT_TYPE_INTERNAL, "internal"},
	{DISK_PORT_TYPE_ESATA, "esata"},     {DISK_PORT_TYPE_EBOX, "ebox"},
	{DISK_PORT_TYPE_USB, "usb"},         {DISK_PORT_TYPE_VEXOBOOT, "vexoboot"},
	{DISK_PORT_TYPE_ISD, "isd"},         {DISK_PORT_TYPE_CACHE, "cache"},
	{DISK_PORT_TYPE_SD_OTHER, "other_sd"}, {DISK_PORT_TYPE_MMC, "mmc"},
	{DISK_PORT_TYPE_BLOCKED, "blocked"}, {DISK_PORT_TYPE_SYS, "sys"},
};

inline const char *portTypeName(int type)
{
	for (const auto &p : kPortTypeNames)
		if (p.type == type)
			return p.name;
	return "unknown";
}

// A type given by number ("7") or by name ("cache"); -1 when it is neither.
inline int portTypeParse(const std::string &text)
{
	for (const auto &p : kPortTypeNames)
		if (text == p.name)
			return p.type;
	if (text.empty() || text.size() > 3)
		return -1;
	char *end = nullptr;
	long v = std::strtol(text.c_str(), &end, 10);
	if (*end || v < 0)
		return -1;
	for (const auto &p : kPortTypeNames)
		if (p.type == v)
			return p.type;
	return -1;
}

// A disk named as "sda" or "/dev/sda".
inline std::string devicePath(const std::string &arg) { return arg.rfind("/dev/", 0) == 0 ? arg : "/dev/" + arg; }

// A whole decimal number within [lo, hi]; false for anything else.
inline bool parseInt(const std::string &text, long lo, long hi, int &out)
{
	if (text.empty() || text.size() > 12)
		return false;
	char *end = nullptr;
	long v = std::strtol(text.c_str(), &end, 10);
	if (*end || v < lo || v > hi)
		return false;
	out = static_cast<int>(v);
	return true;
}

// "72806" or "72806.2": the build and update numbers of a system version.
inline bool parseVersion(const std::string &text, unsigned &base, unsigned &nano)
{
	int b = 0, n = 0;
	size_t dot = text.find('.');
	if (!parseInt(text.substr(0, dot), 1, INT_MAX, b) ||
	    (dot != std::string::npos && !parseInt(text.substr(dot + 1), 0, INT_MAX, n)))
		return false;
	base = static_cast<unsigned>(b);
	nano = static_cast<unsigned>(n);
	return true;
}

} // namespace vexo::cli
