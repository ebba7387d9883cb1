// Writers of the per-disk value cache. They take the short name ("sda").
// tmp-and-rename without a lock: the last writer wins. The value is flushed
// before the rename, so a write error (a full file system) fails the call
// and leaves the old value in place; the rename still comes before the
// close. Each writer has a temporary file of its own
// ("<key>.tmp.<pid>.<tid>"): with one shared "<key>.tmp", two writers would
// open the same inode, one rename would fail, and values of different
// lengths could be torn.
#include <cstdio>
#include <sys/stat.h>
#include <unistd.h>
#include <vexohw/frame.h>

#include "frame/cache_keys.h"
#include "frame/err.h"
#include "frame/priv.h"
#include "frame/sysroot.h"
#include "frame/unique.h"

namespace {

template <typename Put>
int writeValue(const char *name, const char *key, Put put)
{
	if (!name || !key) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	// One folder and one file under the disks folder, nothing that climbs
	// out of it or reaches a tool as an option.
	if (!vexo::cache::isNameComponent(name) || !vexo::cache::isNameComponent(key)) {
		vlog(LOG_ERR, "%s:%d Bad parameters", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	ENTERCriticalSection;
	char path[128];
	char tmp[192];
	// A cut path would name another file: refuse it whole.
	if (std::snprintf(path, sizeof(path), "/run/vexostorage/disks/%s/%s", name, key) >= static_cast<int>(sizeof(path))) {
		vlog(LOG_ERR, "%s:%d Bad parameters: path too long", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::snprintf(tmp, sizeof(tmp), "%s.tmp.%d.%d", path, static_cast<int>(::getpid()), static_cast<int>(::gettid()));
	std::FILE *f = vexo::sysroot::fcreate(tmp, 0644);
	if (!f)
		return -1; // no directory for this disk: nothing recorded
	put(f);
	// The value must be in the file before it takes the final name: a full
	// file system shows here, and the old value stays.
	if (std::fflush(f) != 0 || std::ferror(f)) {
		vlog(LOG_ERR, "%s:%d Failed to write %s. errno=%m", VEXO_AT, tmp);
		VEXO_ERR(VEXO_ERR_WRITE);
		vexo::sysroot::unlink(tmp);
		std::fclose(f);
		return -1;
	}
	int result = vexo::sysroot::rename(tmp, path) == 0 ? 0 : -1;
	if (result != 0)
		vexo::sysroot::unlink(tmp);
	if (std::fclose(f) != 0)
		vlog(LOG_ERR, "%s:%d Fail to close %s. errno=%m", VEXO_AT, path);
	return result;
}

} // namespace

extern "C" {

VEXO_API int VEXODiskUpdateIntValueCacheFile(const char *name, const char *key, int value)
try {
	return writeValue(name, key, [value](std::FILE *f) { std::fprintf(f, "%d", value); });
} VEXO_C_CATCH(-1)

VEXO_API int VEXODiskUpdateLLIntValueCacheFile(const char *name, const char *key, long long value)
try {
	return writeValue(name, key, [value](std::FILE *f) { std::fprintf(f, "%lld", value); });
} VEXO_C_CATCH(-1)

VEXO_API int VEXODiskUpdateStrValueCacheFile(const char *name, const char *key, const char *value)
try {
	if (!value) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	return writeValue(name, key, [value](std::FILE *f) { std::fputs(value, f); });
} VEXO_C_CATCH(-1)

} // extern "C"
