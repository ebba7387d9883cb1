// Whether a drive is being flashed, and what the user interface shows for
// its firmware.
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <unistd.h>
#include <vexohw/drive_bundle.h>
#include <vexohw/frame.h>
#include <vexohw/fw_status.h>
#include <vexohw/smart_status.h>

#include "disk/disk_name.h"
#include "drive_bundle/drive_bundle_private.h"
#include "frame/err.h"
#include "frame/unique.h"

using namespace vexo::bundle;

namespace {

// Whether /proc/<pid>/cmdline holds the bundle tool with the run's two
// options, in that order. A recycled pid names another program.
bool isFlasher(pid_t pid)
{
	std::string path = "/proc/" + std::to_string(pid) + "/cmdline";
	vexo::UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
	if (fd.get() < 0)
		return false;
	std::string cmd;
	char buf[4096];
	while (cmd.size() < 0x20001) {
		ssize_t n = ::read(fd.get(), buf, std::min<std::size_t>(sizeof(buf), 0x20001 - cmd.size()));
		if (n < 0 && errno == EINTR)
			continue;
		if (n <= 0)
			break;
		cmd.append(buf, static_cast<std::size_t>(n));
	}
	const char *wanted[] = {kBundleTool, "upgrade-firmware", "start-by-config-and-prepare-summary"};
	std::size_t next = 0;
	for (std::size_t at = 0; at < cmd.size() && next < 3;) {
		std::size_t end = cmd.find('\0', at);
		if (end == std::string::npos)
			end = cmd.size();
		std::string_view arg(cmd.data() + at, end - at);
		// The tool's options may come with their dashes.
		while (next > 0 && !arg.empty() && arg.front() == '-')
			arg.remove_prefix(1);
		if (arg == wanted[next])
			++next;
		at = end + 1;
	}
	return next == 3;
}

} // namespace

namespace vexo::bundle {

std::string devName(const char *path) { return path ? vexo::disk::shortDiskName(path) : std::string(); }

bool diskCacheGet(const char *path, const char *key, std::string &value)
{
	char buf[256];
	if (VEXODiskGetStrValueCacheFile(path, key, buf, sizeof(buf)) != 0)
		return false;
	value = buf;
	return true;
}

std::string pidFileOf(const std::string &name) { return "/run/vexostorage/disks/" + name + "/firm_upgrading.pid"; }

} // namespace vexo::bundle

extern "C" {

VEXO_API int VEXODriveBundleFWUpgradeIsUpgrading(const char *diskPath)
try {
	if (!diskPath) {
		vlog(LOG_ERR, "%s:%d Bad parameters", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::string name = devName(diskPath);
	if (name.empty()) {
		vlog(LOG_ERR, "%s:%d Failed to get drive name of %s", VEXO_AT, diskPath);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	int state = VEXODriveBundleFWUpgradeStateGet(0);
	if (state < 0) {
		vlog(LOG_ERR, "%s:%d Failed to get upgrade state", VEXO_AT);
		return -1;
	}
	if (state == VEXO_FW_UPGRADE_DO_NOTHING)
		return 0;
	// A booked run holds every drive of the box.
	if (state == VEXO_FW_UPGRADE_GOING_TO_START)
		return 1;
	std::string serial;
	if (!diskCacheGet(diskPath, "serial", serial)) {
		vlog(LOG_ERR, "%s:%d Failed to get serial of [%s]", VEXO_AT, diskPath);
		return -1;
	}
	std::string pidFile = pidFileOf(name);
	int alive = VLIBCProcAliveByPidFile(pidFile.c_str());
	if (alive < 0) {
		if (VLIBCErrGet() == VEXO_ERR_FOPEN) {
			vlog(LOG_ERR, "%s:%d %s was removed, so can't check process is alive", VEXO_AT, pidFile.c_str());
			return 0;
		}
		vlog(LOG_ERR, "%s:%d Failed to read pid file[%s], err=%d[0x%04X %s:%d]", VEXO_AT, pidFile.c_str(), errno,
		     VLIBCErrGet(), VLIBCErrFileGet(), VLIBCErrLineGet());
		return -1;
	}
	if (alive == 0)
		return 0;
	pid_t pid = VLIBCReadPidFile(pidFile.c_str());
	return pid > 0 && isFlasher(pid) ? 1 : 0;
} VEXO_C_CATCH(-1)

VEXO_API int VEXODriveBundleFirmStatusGet(const char *disk, int useCache)
try {
	if (!disk) {
		vlog(LOG_ERR, "%s:%d Bad parameters", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return 0;
	}
	int weight = 0;
	int overview = useCache ? SmartOverviewStatusCacheGet(disk, &weight)
				: SmartOverviewStatusGet(disk, nullptr, nullptr, nullptr, &weight);
	if (overview == 0) {
		vlog(LOG_ERR, "%s:%d Failed to get smart overview of %s", VEXO_AT, disk);
		return 0;
	}
	// A failing drive is never offered firmware.
	if (overview == 3 || overview == 4)
		return 0;
	std::string word;
	if (!diskCacheGet(disk, "firm_status_from_db", word)) {
		vlog(LOG_ERR, "%s:%d Failed to get firmware status of %s", VEXO_AT, disk);
		VEXO_ERR(VEXO_ERR_NOENT);
		return 0;
	}
	return VEXOSBFirmStatusStringTransfer(word.c_str());
} VEXO_C_CATCH(0)

VEXO_API int VEXODriveBundleFWUpgradeStatusGet(const DiskInfo *diskInfo)
try {
	if (!diskInfo) {
		vlog(LOG_ERR, "%s:%d Bad parameters", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	char path[sizeof(diskInfo->path) + 1];
	std::memcpy(path, diskInfo->path, sizeof(diskInfo->path));
	path[sizeof(diskInfo->path)] = '\0';
	if (VEXODriveBundleFWUpgradeIsUpgrading(path) == 1)
		return 1;
	switch (VEXODriveBundleFirmStatusGet(path, 1)) {
	case 1: return 2;
	case 2: return 4;
	case 3: return 3;
	case 4: return 5;
	default: return 0;
	}
} VEXO_C_CATCH(-1)

} // extern "C"
