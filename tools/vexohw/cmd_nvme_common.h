// What the nvme commands share: naming an NVMe disk, refusing anything
// else before a word reaches a drive, and the critical warning bits.
#pragma once

#include <cstdio>
#include <string>
#include <sys/stat.h>
#include <vexohw/disk.h>
#include <vexohw/ext.h>
#include <vexoplatform/nvme_location.h>
#include <vexoplatform/vexocore.h>

#include "cli.h"
#include "disk_args.h"

namespace vexo::cli::nvme {

// True when the box has the block device (its /sys/block entry, under the sysroot).
inline bool diskPresent(const std::string &path)
{
	char host[4096];
	struct stat st;
	std::string name = path.rfind("/dev/", 0) == 0 ? path.substr(5) : path;
	return !name.empty() && name.find('/') == std::string::npos &&
	       VEXOExtSysrootPath(("/sys/block/" + name).c_str(), host, sizeof(host)) == 0 && ::stat(host, &st) == 0;
}

// The device path of the NVMe disk the command names (the first of its
// `args` arguments), or "" after saying why not (a wrong argument count,
// no such disk, or not an NVMe disk of an NVMe product).
inline std::string nvmeDisk(const Context &ctx, const char *usage, size_t args = 1)
{
	if (ctx.args.size() != args) {
		fail("usage: %s", usage);
		return "";
	}
	std::string path = devicePath(ctx.args[0]);
	// A partition stands for its disk, as the library takes it.
	char whole[256];
	if (path.size() < sizeof(whole) && path.rfind("/dev/nvme", 0) == 0 &&
	    DiskPartitionNumRemove(path.c_str(), whole, sizeof(whole)) == 0)
		path = whole;
	if (!diskPresent(path)) {
		fail("no disk %s", path.c_str());
		return "";
	}
	if (!VEXONVMeCheckSupportAndNVMeSSD(path.c_str())) {
		fail("%s is not an NVMe disk%s", path.c_str(), VLIBCSupportNVMe() ? "" : " (this product has no NVMe support)");
		return "";
	}
	return path;
}

// The bits of the health log's critical warning byte.
inline Value warningBits(unsigned int bitmap)
{
	static constexpr const char *kBits[] = {"spare_below_threshold", "temperature_threshold", "reliability_degraded",
						"read_only", "volatile_backup_failed", "persistent_memory_read_only"};
	Value list = Value::list();
	for (unsigned i = 0; i < 8; ++i)
		if (bitmap & (1u << i))
			list.push(i < sizeof(kBits) / sizeof(kBits[0]) ? kBits[i] : ("bit" + std::to_string(i)).c_str());
	return list;
}

inline std::string hexByte(unsigned int v)
{
	char b[16];
	std::snprintf(b, sizeof(b), "0x%02x", v);
	return b;
}

inline const char *portName(int type)
{
	switch (type) {
	case VEXO_NVME_PORT_BLOCKED:
		return "blocked";
	case VEXO_NVME_PORT_INTERNAL:
		return "internal";
	case VEXO_NVME_PORT_CACHE:
		return "cache";
	case VEXO_NVME_PORT_U2:
		return "u2";
	case VEXO_NVME_PORT_SYSTEM:
		return "system";
	}
	return "none";
}

// The card model as a name: the table's, "none" off any card, "unknown".
inline std::string cardName(int model)
{
	if (model == VEXO_M2CARD_NONE)
		return "none";
	const char *n = VEXOM2CardIDToStr(model);
	return n ? n : "unknown";
}

// A card's answer for one attribute: true, false, or null when the
// platform description can't be read.
inline Value cardSupport(const char *card, const char *attribute)
{
	int v = VEXOAdapterCardCheckSupport(card, attribute);
	return v < 0 ? Value() : Value(v == 1);
}

} // namespace vexo::cli::nvme
