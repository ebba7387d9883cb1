// The secure erase markers' folder, read as a whole (see disk_state.h).
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <vexohw/disk_state.h>

#include "disk/disk_probe_name.h"
#include "disk/secure_erase_markers.h"
#include "frame/sysroot.h"

namespace vexo::disk {

namespace {

// A disk name that is a plain file name in the folder; anything else (a
// slash in it) is left to the disk's own check.
std::string markerName(const char *path)
{
	return physicalName(shortName(path)) + VEXO_SECURE_ERASE_SUFFIX;
}

} // namespace

std::string secureEraseMarker(const char *path)
{
	return VEXO_SECURE_ERASE_DIR "/" + markerName(path);
}

SecureEraseMarkers::SecureEraseMarkers()
{
	const int saved = errno;
	// The usual case, no folder, costs one failed stat.
	struct stat st {};
	if (sysroot::stat(VEXO_SECURE_ERASE_DIR, &st) != 0) {
		known_ = errno == ENOENT || errno == ENOTDIR;
		errno = saved;
		return;
	}
	if (!S_ISDIR(st.st_mode)) {
		known_ = true; // a file in its place holds no marker
		errno = saved;
		return;
	}
	int fd = sysroot::open(VEXO_SECURE_ERASE_DIR, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
	if (fd < 0) {
		// No folder, no marker. Any other failure: ask each disk.
		known_ = errno == ENOENT || errno == ENOTDIR;
		errno = saved;
		return;
	}
	DIR *d = ::fdopendir(fd);
	if (!d) {
		::close(fd);
		errno = saved;
		return;
	}
	// A listing cut short by an error could miss a marker.
	bool whole = false;
	for (;;) {
		errno = 0;
		struct dirent *e = ::readdir(d);
		if (!e) {
			whole = errno == 0;
			break;
		}
		if (std::strcmp(e->d_name, ".") == 0 || std::strcmp(e->d_name, "..") == 0)
			continue;
		names_.emplace_back(e->d_name);
	}
	::closedir(d);
	known_ = whole;
	errno = saved;
}

bool SecureEraseMarkers::mayErase(const char *path) const
{
	if (!known_)
		return true;
	if (names_.empty())
		return false;
	std::string name = markerName(path);
	if (name.find('/') != std::string::npos)
		return true;
	return std::find(names_.begin(), names_.end(), name) != names_.end();
}

} // namespace vexo::disk
