// The secure erase markers' folder, read as a whole (see disk_state.h).
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <vexohw/disk_state.h>

#include "disk/disk_probe_name.h"
#include "disk/secure_erase_markers.h"
#include "frame/sysroot.h"
#include "frame/unique.h"

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
	// The usual case, no folder, costs one failed open; a folder is listed
	// with getdents64 into a buffer on the stack, without a DIR stream.
	UniqueFd fd(sysroot::open(VEXO_SECURE_ERASE_DIR, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
	if (!fd) {
		// No folder (or a file in its place), no marker. Any other
		// failure: ask each disk.
		known_ = errno == ENOENT || errno == ENOTDIR;
		errno = saved;
		return;
	}
	alignas(8) char buf[4096];
	for (;;) {
		long got = ::syscall(SYS_getdents64, fd.get(), buf, sizeof(buf));
		if (got < 0) {
			errno = saved; // a listing cut short could miss a marker
			return;
		}
		if (got == 0)
			break;
		for (long at = 0; at < got;) {
			const auto *e = reinterpret_cast<const struct dirent64 *>(buf + at);
			at += e->d_reclen;
			if (std::strcmp(e->d_name, ".") != 0 && std::strcmp(e->d_name, "..") != 0)
				names_.emplace_back(e->d_name);
		}
	}
	known_ = true;
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
