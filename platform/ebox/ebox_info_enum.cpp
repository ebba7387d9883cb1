// Expansion units as the unit driver shows them under /sys/class/scsi_host.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fnmatch.h>
#include <string>
#include <vector>

#include <vexoplatform/vexoerr.h>
#include <vexoplatform/ebox_info.h>
#include <vexoplatform/vexocore.h>

#include "frame/err.h"
#include "frame/text.h"
#include "frame/path_read.h"
#include "frame/sysroot.h"
#include "platform/board/platform_description.h"

namespace {

constexpr const char *kHostDir = "/sys/class/scsi_host";

// host* entries in name order.
std::vector<std::string> hosts()
{
	std::vector<std::string> out;
	DIR *d = vexo::sysroot::opendir(kHostDir);
	if (!d)
		return out;
	while (dirent *e = ::readdir(d))
		if (fnmatch("host*", e->d_name, 0) == 0)
			out.emplace_back(e->d_name);
	::closedir(d);
	std::sort(out.begin(), out.end());
	return out;
}

std::vector<std::string> deviceList(const std::string &host)
{
	std::vector<std::string> out;
	char list[4096] = {};
	if (VEXOEBoxPmInfoGet(host.c_str(), "vexo_device_list", list, sizeof(list)) <= 0)
		return out;
	for (char *save = nullptr, *t = strtok_r(list, " ,\t\n", &save); t; t = strtok_r(nullptr, " ,\t\n", &save))
		out.emplace_back(t);
	return out;
}

int letterValue(char c) { return c >= 'a' && c <= 'z' ? c - 'a' + 1 : 0; }

int unitNumber(const std::string &host, const std::vector<std::string> &disks)
{
	std::string path = std::string(kHostDir) + "/" + host + "/vexo_diskname_trans";
	std::string base;
	if (!vexo::readLine(path, base, 64))
		base.clear();
	if (base.size() > 2 && base.compare(0, 2, "sd") == 0)
		return letterValue(base.back());
	if (!disks.empty() && disks[0].compare(0, 7, "/dev/sd") == 0 && disks[0].size() > 7)
		return letterValue(disks[0][7]);
	return 0;
}

} // namespace

extern "C" {

VEXOP_API int SupportEBox(void)
try {
	vexo::platform::Description d;
	return vexo::platform::loadDescription(d) && d.ebox ? 1 : 0;
} VEXO_C_CATCH(0)

VEXOP_API int VEXOEBoxPmInfoGet(const char *hostName, const char *key, char *value, int size)
try {
	if (!hostName || !key || !value || size <= 0 || std::strchr(hostName, '/')) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::string path = std::string(kHostDir) + "/" + hostName + "/vexo_pm_info";
	return VLIBCFileGetKeyValue(path.c_str(), key, value, size, 0);
} VEXO_C_CATCH(-1)

VEXOP_API int VEXOEBoxUnitUniqueGetByDevPath(const char *diskPath, char *unique, int size)
try {
	if (!diskPath || !unique || size <= 0) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	for (const auto &host : hosts()) {
		std::vector<std::string> disks = deviceList(host);
		auto it = std::find(disks.begin(), disks.end(), diskPath);
		if (it == disks.end())
			continue;
		char text[32] = {};
		if (VEXOEBoxPmInfoGet(host.c_str(), "Unique", text, sizeof(text)) <= 0 ||
		    VLIBCStrSnprintf(unique, size, "%s", text) < 0) {
			VEXO_ERR(VEXO_ERR_READ);
			return -1;
		}
		return static_cast<int>(it - disks.begin());
	}
	VEXO_ERR(VEXO_ERR_NOT_FOUND);
	return -1;
} VEXO_C_CATCH(-1)

VEXOP_API int VEXOEBoxInfoEnum(VEXO_EBOX_INFO *units, int max)
try {
	if (!units || max <= 0) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	if (!SupportEBox())
		return 0;
	int count = 0;
	for (const auto &host : hosts()) {
		if (count >= max)
			break;
		std::vector<std::string> disks = deviceList(host);
		if (disks.empty())
			continue;
		VEXO_EBOX_INFO info{};
		info.unit = unitNumber(host, disks);
		std::sscanf(host.c_str(), "host%d", &info.host);
		char power[16] = {};
		info.powerOn = VEXOEBoxPmInfoGet(host.c_str(), "power", power, sizeof(power)) > 0 &&
					       std::strcmp(power, "off") == 0
				       ? 0
				       : 1;
		VEXOEBoxPmInfoGet(host.c_str(), "Unique", info.unique, sizeof(info.unique));
		VEXOEBoxPmInfoGet(host.c_str(), "deviceid", info.deviceId, sizeof(info.deviceId));
		for (const auto &disk : disks) {
			if (info.maxDisk >= VEXO_EBOX_MAX_BAYS)
				break;
			// A path too long for the record leaves its bay empty.
			vexo::copyText(info.disks[info.maxDisk], disk);
			++info.maxDisk;
		}
		units[count++] = info;
	}
	return count;
} VEXO_C_CATCH(-1)

VEXOP_API int VEXOEBoxIsPoweron(const VEXO_EBOX_INFO *unit) try { return unit && unit->powerOn ? 1 : 0; } VEXO_C_CATCH(0)

} // extern "C"
