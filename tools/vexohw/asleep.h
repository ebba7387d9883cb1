// Status commands leave a sleeping disk asleep: each asks the power mode
// with the question that does not spin a drive up, and reads nothing from
// the media of a disk in standby unless told to (--wake).
#pragma once

#include <cstdio>
#include <string>
#include <sys/stat.h>

#include <vexohw/disk_enum.h>
#include <vexohw/disk_overview.h>
#include <vexoplatform/vexocore.h>

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

// The overview document holds the months and the kernel's counters. When it
// is missing the library builds it afresh from every disk of the box, which
// reads each drive: refused while any disk sleeps, unless --wake. 0, or the
// exit status after saying which disks sleep.
inline int overviewWouldWake(const Context &ctx)
{
	char host[4096];
	struct stat st {};
	if (ctx.has("wake") ||
	    (VEXOExtSysrootPath(VEXO_DISK_OVERVIEW_XML, host, sizeof(host)) == 0 && ::stat(host, &st) == 0))
		return 0;
	int32_t mask = 0xFF;
	DiskEnumFilter filter{&mask};
	DiskListNode *head = nullptr;
	if (VEXOExtDiskInfoEnumFrom(&filter, VEXO_EXT_DISK_SOURCE_QUIET_WALK, &head, nullptr) < 0)
		return fail("can't list the disks (error 0x%04X)", VLIBCErrGet());
	std::string asleep;
	for (DiskListNode *n = head; n; n = n->next)
		if (n->info && VEXOExtDiskPowerModeGet(n->info->path) == VEXO_EXT_POWER_STANDBY)
			asleep += std::string(asleep.empty() ? "" : ", ") + n->info->path;
	DiskInfoEnumFree(head);
	if (asleep.empty())
		return 0;
	return fail("%s is missing and building it reads every disk, waking %s (--wake builds it anyway)",
		    VEXO_DISK_OVERVIEW_XML, asleep.c_str());
}

} // namespace vexo::cli
