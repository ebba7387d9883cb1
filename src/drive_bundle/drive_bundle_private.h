// What the firmware bundle family shares inside the library: its paths, the
// state words, the lock guard and a few readers.
#pragma once

#include <string>
#include <unistd.h>
#include <vector>
#include <vexohw/drive_bundle.h>
#include <vexoplatform/vexocore.h>

#include "frame/file_lock.h"

namespace vexo::bundle {

inline constexpr const char *kRunDir = "/var/run/drive-bundle/";
inline constexpr const char *kLibDir = "/var/lib/drive-bundle/";
inline constexpr const char *kStateFile = "/var/run/drive-bundle/upgrade_state";
inline constexpr const char *kStateKey = "upgrade_state";
inline constexpr const char *kStateLock = "/var/run/drive-bundle/upgrade_state.lock";
inline constexpr const char *kConfLock = "/var/run/drive-bundle/fw-upgrade-conf.lock";
inline constexpr const char *kShutdownFlag = "/var/run/drive-bundle/fw-upgrade-on-shutdown";
inline constexpr const char *kNotificationSource = "/var/lib/drive-bundle/notification-source";
inline constexpr const char *kLaunchSummarySource = "/var/lib/drive-bundle/launch-summary-source";
inline constexpr const char *kBundleTool = "/usr/vexo/bin/vexo_drive_bundle";
inline constexpr int kLockSeconds = 10;

// The words of the state file, indexed by the state value.
inline constexpr const char *kStateWords[] = {"do_nothing", "going_to_start", "upgrading_all", "post_handle"};

using LockFile = vexo::FileLock;

// The state moved from `from` to `to` under the state lock; -1 (state
// untouched) when it was another.
int checkAndSetState(int from, int to);
// Seconds left for the steps of one drive's flashing, process-wide (a
// child of a run gets its own copy at the fork).
extern int gSecondsLeft;

// The short name of a device path ("/dev/sda" -> "sda"), "" when none.
std::string devName(const char *path);
// A cached string value of the disk, false when it cannot be read.
bool diskCacheGet(const char *path, const char *key, std::string &value);
// The pid file of the flasher of a disk.
std::string pidFileOf(const std::string &name);
// The plan the flag file or link points to, "" when none.
std::string sourcePath(const char *flagOrLink, bool link);

// One binary of the firmware folder, as its .FW_INFO names it.
struct FirmwareBinary {
	std::string file, model, version;
	int build = 0; // "build_number", 0 when absent
};
// The firmware folder's index: every binary whose .FW_INFO names a model and
// a firmware, by file name.
std::vector<FirmwareBinary> firmwareIndex();

// Owners for the core's lists and hashes.
struct HashOwner {
	PVLIBSZHASH h = nullptr;
	~HashOwner() { VLIBCSzHashFree(h); }
};
struct ListOwner {
	PVLIBSZLIST l = nullptr;
	~ListOwner() { VLIBCSzListFree(l); }
};

} // namespace vexo::bundle
