// File helpers of the bundle family: folders, flag files, small text files
// and links, all over appliance paths.
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vexohw/drive_bundle.h>

#include "drive_bundle/drive_bundle_private.h"
#include "frame/err.h"
#include "frame/priv.h"
#include "frame/sysroot.h"
#include "frame/unique.h"

namespace {

bool isDir(const std::string &path)
{
	struct stat st {};
	return vexo::sysroot::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

bool exists(const char *path)
{
	struct stat st {};
	return vexo::sysroot::lstat(path, &st) == 0;
}

} // namespace

extern "C" {

VEXO_API int VEXODriveBundleCheckDirExistOrCreate(const char *path)
try {
	if (!path || path[0] != '/') {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::string p(path);
	while (p.size() > 1 && p.back() == '/')
		p.pop_back();
	if (isDir(p))
		return 0;
	ENTERCriticalSection;
	// Each missing parent in turn; a racing creator is no failure.
	for (std::size_t at = 1; at != std::string::npos;) {
		at = p.find('/', at + 1);
		std::string part = p.substr(0, at);
		if (vexo::sysroot::mkdir(part.c_str(), 0755) != 0 && errno != EEXIST) {
			vlog(LOG_ERR, "%s:%d Failed to create %s. errno=%m", VEXO_AT, part.c_str());
			VEXO_ERR(VEXO_ERR_WRITE);
			return -1;
		}
	}
	if (!isDir(p)) {
		vlog(LOG_ERR, "%s:%d %s is not a directory", VEXO_AT, p.c_str());
		VEXO_ERR(VEXO_ERR_WRITE);
		return -1;
	}
	return 0;
} VEXO_C_CATCH(-1)

VEXO_API int DBFlagSet(const char *path, int on)
try {
	if (!path) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	bool present = exists(path);
	if (present == (on != 0))
		return 0;
	ENTERCriticalSection;
	if (on) {
		if (VLIBCFileTouch(path) != 0) {
			VEXO_ERR_PASS();
			return -1;
		}
	} else if (vexo::sysroot::unlink(path) != 0 && errno != ENOENT) {
		vlog(LOG_ERR, "%s:%d Failed to remove %s. errno=%m", VEXO_AT, path);
		VEXO_ERR(VEXO_ERR_WRITE);
		return -1;
	}
	return 1;
} VEXO_C_CATCH(-1)

VEXO_API int DBRemoveLinkIfExist(const char *path)
try {
	if (!path) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	struct stat st {};
	if (vexo::sysroot::lstat(path, &st) != 0 || !S_ISLNK(st.st_mode))
		return 0;
	ENTERCriticalSection;
	if (vexo::sysroot::unlink(path) != 0 && errno != ENOENT) {
		vlog(LOG_ERR, "%s:%d Failed to remove %s. errno=%m", VEXO_AT, path);
		VEXO_ERR(VEXO_ERR_WRITE);
		return -1;
	}
	return 0;
} VEXO_C_CATCH(-1)

VEXO_API int DBWriteToFile(const char *path, const char *text)
try {
	if (!path || !text) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	ENTERCriticalSection;
	std::string tmp = std::string(path) + ".tmp." + std::to_string(::getpid()) + "." + std::to_string(::gettid());
	vexo::UniqueFd fd(vexo::sysroot::create(tmp.c_str(), O_TRUNC, 0644));
	if (fd.get() < 0) {
		vlog(LOG_ERR, "%s:%d Failed to open %s. errno=%m", VEXO_AT, tmp.c_str());
		VEXO_ERR(VEXO_ERR_FOPEN);
		return -1;
	}
	const std::size_t n = std::strlen(text);
	if (VLIBCWrite(fd.get(), text, n) != static_cast<ssize_t>(n) || ::fsync(fd.get()) != 0 ||
	    vexo::sysroot::rename(tmp.c_str(), path) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to write %s. errno=%m", VEXO_AT, path);
		vexo::sysroot::unlink(tmp.c_str());
		VEXO_ERR(VEXO_ERR_WRITE);
		return -1;
	}
	return 0;
} VEXO_C_CATCH(-1)

VEXO_API int DBWriteOrDeleteFile(int on, const char *path, const char *text)
try {
	if (!path || (on != 0) != (text != nullptr)) {
		vlog(LOG_ERR, "%s:%d Bad parameter", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	ENTERCriticalSection;
	if (!on) {
		if (vexo::sysroot::unlink(path) != 0 && errno != ENOENT) {
			vlog(LOG_ERR, "%s:%d Failed to remove %s. errno=%m", VEXO_AT, path);
			VEXO_ERR(VEXO_ERR_WRITE);
			return -1;
		}
		return 0;
	}
	// Not truncated: callers delete first when the text may get shorter.
	vexo::UniqueFd fd(vexo::sysroot::open(path, O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
	if (fd.get() < 0) {
		vlog(LOG_ERR, "%s:%d Failed to open %s. errno=%m", VEXO_AT, path);
		VEXO_ERR(VEXO_ERR_FOPEN);
		return -1;
	}
	const std::size_t n = std::strlen(text);
	if (VLIBCWrite(fd.get(), text, n) != static_cast<ssize_t>(n)) {
		vlog(LOG_ERR, "%s:%d Failed to write %s. errno=%m", VEXO_AT, path);
		VEXO_ERR(VEXO_ERR_WRITE);
		return -1;
	}
	return 0;
} VEXO_C_CATCH(-1)

VEXO_API int DBReadFromFile(const char *path, char *out, int size)
try {
	if (!path || !out || size <= 0) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	vexo::UniqueFd fd(vexo::sysroot::open(path, O_RDONLY | O_CLOEXEC));
	if (fd.get() < 0) {
		VEXO_ERR(errno == ENOENT ? VEXO_ERR_NOENT : VEXO_ERR_FOPEN);
		return -1;
	}
	ssize_t n = ::read(fd.get(), out, static_cast<std::size_t>(size - 1));
	if (n < 0) {
		VEXO_ERR(VEXO_ERR_READ);
		return -1;
	}
	while (n > 0 && (out[n - 1] == '\n' || out[n - 1] == ' ' || out[n - 1] == '\t' || out[n - 1] == '\r'))
		--n;
	out[n] = '\0';
	return static_cast<int>(std::strlen(out));
} VEXO_C_CATCH(-1)

VEXO_API int DBRealityPathGet(const char *link, char *out, int size)
try {
	if (!link || !out || size <= 0) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	char real[PATH_MAX];
	if (!vexo::sysroot::realpath(link, real)) {
		VEXO_ERR(errno == ENOENT ? VEXO_ERR_NOENT : VEXO_ERR_READ);
		return -1;
	}
	if (std::snprintf(out, static_cast<std::size_t>(size), "%s", real) >= size) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	return 0;
} VEXO_C_CATCH(-1)

} // extern "C"
