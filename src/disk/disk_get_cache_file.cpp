// Readers of the per-disk value cache. They take a device path ("/dev/sda").
#include <cstdio>
#include <cstring>
#include <sys/stat.h>
#include <vexohw/frame.h>

#include "frame/cache_keys.h"
#include "frame/err.h"
#include "frame/sysroot.h"
#include "frame/unique.h"

namespace {

constexpr const char *kCacheRoot = "/run/vexostorage/disks/";

// Opens the value file of key for devicePath. On failure records the code
// and returns null. A path outside /dev/ leaves the name empty, and the
// lookup then misses.
vexo::UniqueFile openValue(const char *devicePath, const char *key)
{
	char name[32] = {};
	char path[1024] = {};
	// The name as "/dev/%s" scans it; "/dev//sda" (a record's name keeps
	// its slash) is still sda.
	if (std::strncmp(devicePath, "/dev/", 5) == 0) {
		const char *rest = devicePath + 5;
		while (*rest == '/')
			++rest;
		std::sscanf(rest, "%31s", name);
	}
	// A name or key that is not one plain path element could climb out of
	// the disks folder. A path outside /dev/ (no name) still only misses.
	if ((name[0] && !vexo::cache::isNameComponent(name)) || !vexo::cache::isNameComponent(key)) {
		vlog(LOG_ERR, "%s:%d Bad parameters", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return nullptr;
	}
	std::snprintf(path, sizeof(path), "%s/%s/%s", kCacheRoot, name, key);
	struct stat st;
	if (vexo::sysroot::stat(path, &st) != 0) {
		VEXO_ERR(VEXO_ERR_NOENT);
		return nullptr;
	}
	vexo::UniqueFile f(vexo::sysroot::fopen(path, "r"));
	if (!f)
		VEXO_ERR(VEXO_ERR_FOPEN);
	return f;
}

template <typename T>
int readNumber(const char *devicePath, const char *key, T *value, const char *format)
{
	if (!devicePath || !key || !value) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	vexo::UniqueFile f = openValue(devicePath, key);
	if (!f) {
		VEXO_ERR_PASS();
		return -1;
	}
	T v{};
	if (std::fscanf(f.get(), format, &v) != 1) {
		// An empty file is a writer between rename and close: a temporary miss.
		VEXO_ERR(VEXO_ERR_READ);
		return -1;
	}
	*value = v;
	return 0;
}

} // namespace

extern "C" {

VEXO_API int VEXODiskGetIntValueCacheFile(const char *devicePath, const char *key, int *value)
try {
	return readNumber(devicePath, key, value, "%d");
} VEXO_C_CATCH(-1)

VEXO_API int VEXODiskGetLLIntValueCacheFile(const char *devicePath, const char *key, long long *value)
try {
	return readNumber(devicePath, key, value, "%lld");
} VEXO_C_CATCH(-1)

VEXO_API int VEXODiskGetStrValueCacheFile(const char *devicePath, const char *key, char *value, int size)
try {
	if (!devicePath || !key || !value || size <= 0) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	vexo::UniqueFile f = openValue(devicePath, key);
	if (!f) {
		VEXO_ERR_PASS();
		return -1;
	}
	char buffer[256] = {};
	// A short read is the normal case; a stream error fails, and so does an
	// empty file (a writer between rename and close): a temporary miss.
	const std::size_t got = std::fread(buffer, 1, 255, f.get());
	if (std::ferror(f.get()) || got == 0) {
		VEXO_ERR(VEXO_ERR_READ);
		return -1;
	}
	buffer[255] = '\0';
	std::snprintf(value, size, "%s", buffer);
	return 0;
} VEXO_C_CATCH(-1)

} // extern "C"
