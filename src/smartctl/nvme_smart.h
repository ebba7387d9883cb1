// The NVMe branch of VEXODiskAtaSmartInfoParse. Not exported.
#pragma once

#include <vexohw/smart_info.h>

namespace vexo::smart {

// The health values of an NVMe disk as attribute entries, judged ("Critical
// Warning" above 0, "Percentage Used" above 99, "Available Spare" at or
// below its threshold: status 2), then its vendor entries. *out must hold
// null. 0, or -1 with nothing allocated.
int nvmeSmartInfoList(const char *path, SmartInfoEntry **out);

// The verdicts on a list of health entries, after the debug overrides of
// `path` (crit, perc_used, life): the first entry of each named value is
// judged; the spare is compared only when both spare entries are there.
// False (a line logged) when a value can't be read or memory ran out.
bool nvmeJudge(const char *path, SmartInfoEntry *list);

} // namespace vexo::smart
