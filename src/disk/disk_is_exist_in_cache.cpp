// DiskIsExistInCache: whether the snapshot lists a disk, by prefix.
#include <cstdio>
#include <cstring>

#include <vexohw/disk_enum.h>

#include "disk/disk_info_walk.h"
#include "frame/err.h"
#include "frame/sysroot.h"
#include "frame/unique.h"

extern "C" {

VEXO_API int DiskIsExistInCache(const char *path)
try {
	if (!path) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return 0;
	}
	vexo::UniqueFd fd = vexo::disk::openSnapshot();
	vexo::UniqueFile f(fd ? ::fdopen(fd.get(), "rb") : nullptr);
	if (f)
		fd.release();
	if (!f) {
		vlog(LOG_ERR, "%s:%d No cached file exist", VEXO_AT);
		return 0;
	}
	DiskInfoFileEntry entry;
	std::memset(&entry, 0, sizeof(entry));
	for (bool first = true;; first = false) {
		std::size_t got = std::fread(&entry, 1, sizeof(entry), f.get());
		if (got == 0) {
			if (first)
				vlog(LOG_ERR, "%s:%d Error size on cached file", VEXO_AT);
			return 0;
		}
		bool last = got < sizeof(entry);
		// A short entry is compared with what the buffer holds.
		if (last)
			vlog(LOG_ERR, "%s:%d Error reading element on cached file", VEXO_AT);
		entry.path[sizeof(entry.path) - 1] = '\0';
		std::size_t len = std::strlen(entry.path);
		// An empty path is no disk, and a prefix of nothing.
		if (len > 0 && std::strncmp(entry.path, path, len) == 0)
			return 1;
		if (last)
			return 0;
	}
} VEXO_C_CATCH(0)

} // extern "C"
