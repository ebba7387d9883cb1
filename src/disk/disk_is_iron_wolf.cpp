// Whether the drive health tool recognises the disk as one of the two
// drive lines it serves. The tool talks to the drive, so it is asked only
// about disks it can serve, and again only while it reports itself busy.
#include <cctype>
#include <cstring>
#include <string>
#include <unistd.h>
#include <vexohw/disk_probe.h>
#include <vexohw/frame.h>

#include "disk/disk_probe_name.h"
#include "frame/err.h"

namespace {

constexpr const char *kDhmTool = "/usr/vexo/sbin/dhm_tool";
constexpr int kDhmTries = 3;

// The kernel pads its vendor text; the table gives it bare.
bool isVendor(const char *text, const char *vendor)
{
	const std::size_t n = std::strlen(vendor);
	if (strncasecmp(text, vendor, n) != 0)
		return false;
	for (const char *p = text + n; *p; ++p)
		if (!std::isspace(static_cast<unsigned char>(*p)))
			return false;
	return true;
}

} // namespace

extern "C" {

VEXO_API int VEXODiskIhmSkipCheck(const char *path)
try {
	if (!path || !*path) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return 1;
	}
	const std::string dev = "/dev/" + vexo::disk::physicalName(vexo::disk::shortName(path));
	if (VEXODiskIsSSD(dev.c_str()) != 0)
		return 1;
	char vendor[64] = {};
	if (VEXOLnxDiskGetVendorCache(dev.c_str(), vendor, sizeof(vendor)) != 0)
		return 1;
	return isVendor(vendor, "Seagate") ? 0 : 1;
} VEXO_C_CATCH(1)

VEXO_API int VEXODiskDHMNeedRetry(int result) try { return result == VEXO_DHM_EXIT_BUSY ? 1 : 0; } VEXO_C_CATCH(0)

VEXO_API int VEXODiskIsIronWolf(const char *path)
try {
	int answer = VEXODiskIhmSkipCheck(path);
	if (answer == 1)
		return 0;
	const std::string dev = "/dev/" + vexo::disk::shortName(path);
	char sg[64] = {};
	if (VEXODiskScsiGenericGet(dev.c_str(), sg, sizeof(sg)) != 0) {
		VEXO_ERR(VEXO_ERR_NOT_FOUND);
		return answer;
	}
	int result = -1;
	for (int i = 0; i < kDhmTries; ++i) {
		if (i > 0)
			::sleep(1);
		result = VLIBCExecl(kDhmTool, kDhmTool, "-d", sg, "-w", static_cast<const char *>(nullptr));
		if (!VEXODiskDHMNeedRetry(result))
			break;
	}
	if (result == VEXO_DHM_EXIT_IRONWOLF)
		answer = 1;
	else if (result == VEXO_DHM_EXIT_IRONWOLF_PRO)
		answer = 2;
	return answer;
} VEXO_C_CATCH(0)

VEXO_API int VEXODiskIsIronWolfCache(const char *path)
try {
	const std::string name = vexo::disk::physicalName(vexo::disk::shortName(path));
	const std::string file = std::string("/run/vexostorage/disks/") + name + "/ironwolf";
	int value = -1;
	if (name.empty() || VEXODiskGetIntValueCacheFile(("/dev/" + name).c_str(), "ironwolf", &value) != 0) {
		vlog(LOG_ERR, "%s:%d get return form %s fail", VEXO_AT, file.c_str());
		return -1;
	}
	return value;
} VEXO_C_CATCH(-1)

} // extern "C"
