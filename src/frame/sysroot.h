// The sysroot seam. Every absolute path the library and the platform layer
// touch is composed here from VEXO_SYSROOT (unset or empty: the real root).
// Like every VEXO_* switch it is read with secure_getenv: a set-user-id
// program ignores it, or its user would choose what root reads and runs.
// Callers keep and hand out the unprefixed appliance path ("/dev/sda");
// only the system call sees the composed one. Process liveness
// (/proc/<pid>) is not a sysroot path: it is always the real one.
#pragma once

#include <cstdio>
#include <dirent.h>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <vector>

namespace vexo::sysroot {

// The root ("" for the real one), read from the environment on every call so
// that a test may switch roots.
std::string root();
// The host path of an appliance path. Relative paths are returned unchanged.
std::string path(std::string_view appliancePath);
// The appliance path of a host path under the root (the reverse of path());
// a host path outside the root is returned unchanged.
std::string strip(std::string_view hostPath);

// System calls over appliance paths. They behave as the calls they are named
// after, errno included.
std::FILE *fopen(const char *path, const char *mode);
int open(const char *path, int flags, mode_t mode = 0);
// Creates (or truncates) a file with exactly `mode`, whatever the umask:
// opened with O_CREAT and the mode, then fchmod. The process umask is
// shared by every thread, so no writer may change it to shape its files.
// flags are added to O_WRONLY|O_CREAT|O_CLOEXEC. -1 and errno on failure.
int create(const char *path, int flags, mode_t mode);
// create() with O_TRUNC as a stdio stream, as fopen(path, "w") would give.
std::FILE *fcreate(const char *path, mode_t mode);
int stat(const char *path, struct stat *st);
int lstat(const char *path, struct stat *st);
int access(const char *path, int mode);
int rename(const char *from, const char *to);
int unlink(const char *path);
int mkdir(const char *path, mode_t mode);
int rmdir(const char *path);
DIR *opendir(const char *path);
ssize_t readlink(const char *path, char *buf, size_t size);
// realpath(3) into out (PATH_MAX bytes), answered as an appliance path.
// Links inside the root must be relative or name appliance paths.
char *realpath(const char *path, char *out);

// glob(3) over an appliance pattern; matches come back as appliance paths,
// sorted. 0 on success (also with no match: then the vector is empty),
// otherwise the glob error (GLOB_NOSPACE, GLOB_ABORTED).
int glob(const char *pattern, std::vector<std::string> &matches);

} // namespace vexo::sysroot
