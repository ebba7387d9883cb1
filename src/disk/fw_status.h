// What the firmware status files share: the copy of the firmware server's
// list of published builds, and the two checks borrowed from the firmware
// bundle (the server's general answer, a local binary's validity).
#pragma once
#include <string>

namespace vexo::fwstatus {

inline constexpr const char *kServerInfo = "/run/vexostorage/disk_firm_server_info";
inline constexpr const char *kServerInfoTmp = "/run/vexostorage/disk_firm_server_info.tmp";
inline constexpr const char *kVisitTime = "/run/vexostorage/.disk_firm_server_visiting_time";
inline constexpr const char *kVisitTimeTmp = "/run/vexostorage/.disk_firm_server_visiting_time.tmp";
inline constexpr const char *kServerLock = "/run/lock/disk_firm_server.lock";
inline constexpr long long kVisitEvery = 3600; // seconds
// The boot step at which the appliance is up and may use the network.
inline constexpr int kBootStepRunning = 4;

enum class Copy { None, Present, Failed };

// Asks the server again when the last visit is over an hour old (or the boot
// is not done: then only the standing copy is used), and says what copy
// stands afterwards.
Copy refreshServerCopy();

// The published build of a model in the standing copy: 0 when the copy is
// not an array, -1 when it has no entry for the model or there is no copy.
int serverBuildOf(const std::string &model);

} // namespace vexo::fwstatus
