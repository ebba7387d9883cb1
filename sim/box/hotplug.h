// Hot-plug on a built box: a disk pulled out of an internal bay goes onto
// the shelf (its drive description kept under its serial), and a disk on
// the shelf goes into any empty bay, with sysfs, /dev and /proc/partitions
// changed as the kernel would change them.
#pragma once

#include <string>

namespace vexosim {

// Where the pulled drives wait, an appliance path under the box.
inline constexpr const char *kShelf = "/run/vexosim/shelf";

// Pulls the disk out of internal bay `bay` of the box at `root`. Returns its
// device path ("/dev/sdc"); *serial gets its serial. Throws on an empty bay.
std::string pullDisk(const std::string &root, int bay, std::string *serial);
// Puts the shelved disk with this serial into internal bay `bay`. Returns
// its device path. Throws when the bay is taken or no such disk waits.
std::string plugDisk(const std::string &root, int bay, const std::string &serial);
// Adds n to a kernel error counter ("ioerr_cnt", "iotmo_cnt") of a disk's
// SCSI device, kept in hexadecimal as the kernel shows it. Returns the new
// value.
unsigned long long raiseCounter(const std::string &root, const std::string &name, const std::string &counter,
				unsigned long long n);

} // namespace vexosim
