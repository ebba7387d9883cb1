// Status commands leave a sleeping disk asleep: each asks the power mode
// with the question that does not spin a drive up, and reads nothing from
// the media of a disk in standby unless told to (--wake).
#pragma once

#include <cstdio>
#include <string>

#include "cli.h"
#include <vexohw/ext.h>

namespace vexo::cli {

inline const char *powerModeName(int mode)
{
	switch (mode) {
	case VEXO_EXT_POWER_ACTIVE:
		return "active";
	case VEXO_EXT_POWER_IDLE:
		return "idle";
	case VEXO_EXT_POWER_STANDBY:
		return "standby";
	}
	return "unknown";
}

// True when the disk is in standby and the command is to leave it so; the
// command then prints `record` marked as asleep and stops there.
inline bool leaveAsleep(Context &ctx, const std::string &path)
{
	if (ctx.has("wake") || VEXOExtDiskPowerModeGet(path.c_str()) != VEXO_EXT_POWER_STANDBY)
		return false;
	Value r = Value::object();
	r.set("disk", path);
	r.set("power_mode", "standby");
	r.set("read", false);
	printRecord(ctx, r);
	if (!ctx.json)
		std::printf("\n%s is asleep: nothing read, so as not to wake it (--wake reads it anyway).\n",
			    path.c_str());
	return true;
}

} // namespace vexo::cli
