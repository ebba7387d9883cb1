// The Marvell driver probes: the first line of the disk host's proc_name.
#pragma once

namespace vexo::disk {

// 1 when the proc_name of the disk's SCSI host reads exactly `expected`
// (newline included), else 0. Logs through the calling probe's place.
int hostDriverMatch(const char *path, const char *expected, const char *src, int line);

} // namespace vexo::disk
