// The one status word of a disk from what is cached about it: never a
// command to the drive. The library's summary picks among the keywords;
// this says where each keyword came from.
#pragma once

#include <cstring>
#include <string>

#include <vexohw/compat_cache.h>
#include <vexohw/disk_state.h>
#include <vexohw/disk_status.h>
#include <vexohw/smart_status.h>

#include "cli.h"

namespace vexo::cli {

// {"word", "category", "space", "health", "processing", "compatibility"};
// word null when no rule decides.
inline Value statusWord(const char *path)
{
	DiskStatusSummaryInput in{};
	// The storage layer owns the space state and tells no one here: a disk
	// is "normal" unless the erase marker says it is being erased.
	std::strcpy(in.space, VLIBDiskIsSecureErasing(path) == 1 ? "secure_erasing" : "normal");
	int weight = 0;
	int health = SmartOverviewStatusCacheGet(path, &weight);
	if (health == 0 || SmartOverviewStatusStringTransfer(health, in.health, sizeof(in.health)) != 0)
		std::strcpy(in.health, "unknown");
	std::strcpy(in.processing, "idle");
	// The compatibility cache's verdict (it counts only on appliances that
	// take the maker's drives alone); none before the first refresh.
	bool compat = VEXODiskCompatibilityCacheGet(path, in.compatibility, sizeof(in.compatibility)) == 0 &&
		      in.compatibility[0];
	char category[32] = {}, status[32] = {};
	Value r = Value::object();
	bool ok = VEXODiskStatusSummaryCalculate(&in, category, sizeof(category), status, sizeof(status)) == 0;
	r.set("word", ok ? Value(status) : Value());
	r.set("category", ok ? Value(category) : Value());
	r.set("space", in.space);
	r.set("health", in.health);
	r.set("processing", in.processing);
	r.set("compatibility", compat ? Value(in.compatibility) : Value());
	return r;
}

} // namespace vexo::cli
