// The firmware status internals the cache writer and the tests share.
#pragma once
#include <string>
#include <vexohw/fw_status.h>

namespace vexo::fwstatus {

// The system versions a decision was made at ("" when there is none).
struct Versions {
	std::string running, update, promotion;
};

// SBDiskFirmStatusAndUpdateInfoGetByDbPath, also telling the versions used.
// keptFirmware, when given, stands for the drive's own answer, so that a
// sleeping drive is judged without a command that spins it up.
int decideForDisk(const char *disk, const char *dbPath, int useGivenVersions, const char *updateVersion,
		  const char *promotionVersion, DiskFirmInfo *info, Versions &used,
		  const char *keptFirmware = nullptr);

// Whether candidate c replaces best in the search for the best newer
// firmware.
bool candidateBetter(const FirmwareCandidate &c, const FirmwareCandidate &best);

} // namespace vexo::fwstatus
