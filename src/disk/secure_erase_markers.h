// The secure erase markers seen all at once: one look at their folder tells
// a reader of many disks which of them may be under an erase, so that in
// the usual case (no erase anywhere) no disk costs a file lookup of its own.
#pragma once

#include <string>
#include <vector>

namespace vexo::disk {

// The marker of a disk, "/run/vexostorage/secure_erase/sda.pid" for
// "/dev/sda", "sda" or "sda3".
std::string secureEraseMarker(const char *path);

class SecureEraseMarkers {
public:
	// Lists the marker folder once. A folder that is missing holds no
	// marker; one that can't be read leaves every disk to its own check.
	SecureEraseMarkers();

	// False when the disk certainly has no marker; true when its own check
	// (VLIBDiskIsSecureErasing) must decide.
	bool mayErase(const char *path) const;

	bool none() const { return known_ && names_.empty(); }

private:
	bool known_ = false;             // the folder's content is known
	std::vector<std::string> names_; // the markers' file names
};

} // namespace vexo::disk
