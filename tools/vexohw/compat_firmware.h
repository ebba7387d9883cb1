// The firmware part of a disk's compatibility answer, for `vexohw compat`:
// the firmware status and what the user should do about it.
#pragma once

#include <string>

#include "cli.h"

namespace vexo::cli {

// Sets "firmware_status", "suggested_firmware", "suggested_system" and
// "advice" in record for the disk at path. A disk in standby is not asked
// (the fields then come from the cache, if it holds them).
void addFirmwareStatus(Value &record, const std::string &path, bool asleep);

} // namespace vexo::cli
