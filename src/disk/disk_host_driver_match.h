// The Marvell driver probes: the first line of the disk host's proc_name.
#pragma once

#include <string>

namespace vexo::disk {

// What the probes' glob "/sys/block/<disk>/device/../../scsi_host/host*/proc_name"
// gave: the first line of its first match, or why there is none.
struct HostDriverLine {
	enum class How { Read, NoMatch, CantOpen } how = How::NoMatch;
	std::string text;  // Read: the first line as fgets gives it into 64 bytes ("" for an empty file)
	std::string where; // NoMatch: the pattern; CantOpen: the file
};
HostDriverLine readHostDriver(const char *path);

// 1 when the line read is exactly `expected` (newline included), else 0. A
// failure to read is logged through the calling probe's place.
int hostDriverIs(const HostDriverLine &host, const char *expected, const char *src, int line);

inline int hostDriverMatch(const char *path, const char *expected, const char *src, int line)
{
	return hostDriverIs(readHostDriver(path), expected, src, line);
}

// VEXODiskIsMvSocDriver and VEXODiskIsMv1475Driver over a line already
// read, for callers that ask both in a row: one reading instead of two.
int mvSocDriverIs(const HostDriverLine &host);
int mv1475DriverIs(const HostDriverLine &host);

} // namespace vexo::disk
