// The words the firmware commands show for the upgrade state and for each
// drive's result, one table for all of them.
#pragma once

#include <vexohw/drive_bundle.h>

namespace vexo::cli {

inline const char *fwStateWord(int s)
{
	constexpr const char *kWords[] = {"do_nothing", "going_to_start", "upgrading_all", "post_handle"};
	return s >= 0 && s <= 3 ? kWords[s] : "unknown";
}

inline const char *fwDriveResultWord(int s)
{
	switch (s) {
	case VEXO_FW_DRIVE_NOT_STARTED: return "not started";
	case VEXO_FW_DRIVE_IN_PROGRESS: return "in progress";
	case VEXO_FW_DRIVE_SUCCESS: return "success";
	case VEXO_FW_DRIVE_VANISHED: return "failed: drive gone";
	case VEXO_FW_DRIVE_COMMAND_FAILED: return "failed: flashing";
	default: return "failed";
	}
}

} // namespace vexo::cli
