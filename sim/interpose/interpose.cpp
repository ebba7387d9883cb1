// The interposer (LD_PRELOAD) that lets unmodified programs use the simulated
// drives: opening a drive node of the simulated root gives a descriptor the
// drive emulator answers, and the calls a program makes on such a descriptor
// (ioctl, fstat, read, lseek, close) go to it. Everything else goes to the C
// library untouched. See README.md for what is covered.
//
// The emulator is compiled into this object, and it makes system calls of its
// own that land here again; a per-thread depth counter sends those straight
// to the C library. The interposer's own state is plain data, because a
// program's libraries may open files before any constructor of ours has run.
#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>
#include <vexoplatform/device_backend.h>

extern "C" const vexo_device_backend *vexo_device_backend_v1(void);

namespace {

thread_local int tDepth = 0;

// Calls made while it lives go to the C library.
struct Inside {
	Inside() { ++tDepth; }
	~Inside() { --tDepth; }
	Inside(const Inside &) = delete;
	Inside &operator=(const Inside &) = delete;
};

template <typename Fn>
Fn next(Fn &slot, const char *name)
{
	if (!slot)
		slot = reinterpret_cast<Fn>(::dlsym(RTLD_NEXT, name));
	return slot;
}

#define LIBC(name, type)                                                                                       \
	static type slot_##name = nullptr;                                                                    \
	type real_##name = next(slot_##name, #name)

using OpenFn = int (*)(const char *, int, ...);
using OpenatFn = int (*)(int, const char *, int, ...);
using StatFn = int (*)(const char *, struct stat *);
using FstatFn = int (*)(int, struct stat *);
using FstatatFn = int (*)(int, const char *, struct stat *, int);
using IoctlFn = int (*)(int, unsigned long, ...);
using ReadFn = ssize_t (*)(int, void *, size_t);
using PreadFn = ssize_t (*)(int, void *, size_t, off_t);
using WriteFn = ssize_t (*)(int, const void *, size_t);
using PwriteFn = ssize_t (*)(int, const void *, size_t, off_t);
using LseekFn = off_t (*)(int, off_t, int);
using CloseFn = int (*)(int);
using AccessFn = int (*)(const char *, int);
using DupFn = int (*)(int);
using Dup2Fn = int (*)(int, int);
using Dup3Fn = int (*)(int, int, int);
using FcntlFn = int (*)(int, int, ...);

// One open drive: the emulator's handle behind the descriptor, what fstat
// shows and where read() is.
struct Open {
	bool used;
	bool block;
	int handle;
	dev_t rdev;
	uint64_t size;
	uint64_t pos;
};

constexpr int kMaxFd = 4096;
constexpr uint64_t kSizeUnknown = ~0ULL;
Open gOpen[kMaxFd];
int gRefs[kMaxFd]; // descriptors per emulator handle (copies made by dup)

bool tracked(int fd) { return tDepth == 0 && fd >= 0 && fd < kMaxFd && __atomic_load_n(&gOpen[fd].used, __ATOMIC_ACQUIRE); }

// A drive node of the simulated root, named by its appliance path
// ("/dev/sda") or its path under the root. Fills the host and appliance
// paths; false for anything else.
bool driveNode(const char *path, char *host, char *app)
{
	if (!path || tDepth)
		return false;
	const char *root = ::getenv("VEXO_SYSROOT");
	if (!root || !*root)
		return false;
	size_t rl = std::strlen(root);
	while (rl > 1 && root[rl - 1] == '/')
		--rl;
	const char *rel;
	if (std::strncmp(path, root, rl) == 0 && std::strncmp(path + rl, "/dev/", 5) == 0)
		rel = path + rl;
	else if (std::strncmp(path, "/dev/", 5) == 0)
		rel = path;
	else
		return false;
	if (std::strchr(rel + 5, '/') || !rel[5])
		return false;
	if (std::snprintf(host, PATH_MAX, "%.*s%s", static_cast<int>(rl), root, rel) >= PATH_MAX)
		return false;
	std::snprintf(app, PATH_MAX, "%s", rel);
	// Only a regular file there is a simulated drive; the kernel's real
	// nodes are left alone.
	Inside in;
	LIBC(stat, StatFn);
	struct stat st;
	return real_stat && real_stat(host, &st) == 0 && S_ISREG(st.st_mode);
}

// The device number sysfs gives the disk, else the usual ones for its kind.
dev_t deviceNumber(const char *host, const char *app, bool &block)
{
	const char *name = std::strrchr(app, '/') + 1;
	const bool sg = std::strncmp(name, "sg", 2) == 0;
	const bool nvmeCtrl = std::strncmp(name, "nvme", 4) == 0 && !std::strchr(name + 4, 'n');
	block = !sg && !nvmeCtrl;
	char sys[PATH_MAX];
	std::snprintf(sys, sizeof sys, "%.*s/sys/%s/%s/dev", static_cast<int>(std::strlen(host) - std::strlen(app)),
		      host, block ? "block" : sg ? "class/scsi_generic" : "class/nvme", name);
	unsigned ma = block ? 8 : sg ? 21 : 240, mi = 0;
	LIBC(open, OpenFn);
	LIBC(read, ReadFn);
	LIBC(close, CloseFn);
	int fd = real_open(sys, O_RDONLY | O_CLOEXEC);
	if (fd >= 0) {
		char b[32] = {};
		if (real_read(fd, b, sizeof b - 1) > 0)
			std::sscanf(b, "%u:%u", &ma, &mi);
		real_close(fd);
	}
	return makedev(ma, mi);
}

// The program's descriptor is one of /dev/null, not the node file: a copy the
// interposer does not see (dup2 onto stdin, say) then reads nothing and
// writes nowhere instead of into the drive's description.
int openDrive(const char *host, const char *app, int flags)
{
	Inside in;
	const vexo_device_backend *emu = vexo_device_backend_v1();
	int h = emu->open(host, app, flags);
	if (h < 0)
		return -1;
	LIBC(open, OpenFn);
	int fd = real_open("/dev/null", O_RDWR | (flags & O_CLOEXEC));
	if (fd < 0 || fd >= kMaxFd || h >= kMaxFd) {
		int e = fd < 0 ? errno : EMFILE;
		LIBC(close, CloseFn);
		if (fd >= 0)
			real_close(fd);
		emu->close(h);
		errno = e;
		return -1;
	}
	Open &o = gOpen[fd];
	o.handle = h;
	gRefs[h] = 1;
	o.rdev = deviceNumber(host, app, o.block);
	o.size = kSizeUnknown;
	o.pos = 0;
	__atomic_store_n(&o.used, true, __ATOMIC_RELEASE);
	return fd;
}

// What the kernel shows of a device node: its type and number, no size.
int deviceStat(const char *host, const Open &o, struct stat *st)
{
	Inside in;
	LIBC(stat, StatFn);
	if (real_stat(host, st) != 0)
		return -1;
	st->st_mode = (o.block ? S_IFBLK : S_IFCHR) | 0660;
	st->st_rdev = o.rdev;
	st->st_size = 0;
	st->st_blocks = 0;
	st->st_blksize = 4096;
	st->st_nlink = 1;
	return 0;
}

int statPath(const char *host, const char *app, struct stat *st)
{
	Open o = {};
	o.rdev = deviceNumber(host, app, o.block);
	return deviceStat(host, o, st);
}

int fdStat(int fd, struct stat *st)
{
	Inside in;
	LIBC(fstat, FstatFn);
	if (real_fstat(gOpen[fd].handle, st) != 0)
		return -1;
	st->st_mode = (gOpen[fd].block ? S_IFBLK : S_IFCHR) | 0660;
	st->st_rdev = gOpen[fd].rdev;
	st->st_size = 0;
	st->st_blocks = 0;
	st->st_blksize = 4096;
	return 0;
}

// The drive's size, asked of the drive the first time it is needed (and so
// in its command log only when a program reads or seeks).
uint64_t sizeOf(int fd)
{
	Open &o = gOpen[fd];
	if (o.size == kSizeUnknown) {
		Inside in;
		uint64_t size = 0;
		o.size = vexo_device_backend_v1()->ioctl(o.handle, BLKGETSIZE64, &size) == 0 ? size : 0;
	}
	return o.size;
}

// The media reads as zeros up to the drive's size; it is never written.
ssize_t readZeros(int fd, void *buf, size_t len, uint64_t at)
{
	Open &o = gOpen[fd];
	if (at >= sizeOf(fd))
		return 0;
	size_t n = static_cast<size_t>(std::min<uint64_t>(len, o.size - at));
	std::memset(buf, 0, n);
	return static_cast<ssize_t>(n);
}

// The drive behind a descriptor that is closed (or replaced by dup2): the
// emulator lets go of its handle with the last descriptor.
void forget(int fd)
{
	Open &o = gOpen[fd];
	__atomic_store_n(&o.used, false, __ATOMIC_RELEASE);
	if (--gRefs[o.handle] == 0) {
		Inside in;
		vexo_device_backend_v1()->close(o.handle);
	}
}

// A copy of a drive's descriptor reaches the same drive.
int copied(int from, int to)
{
	if (to < 0 || to == from || !tracked(from))
		return to;
	if (to >= kMaxFd) {
		LIBC(close, CloseFn);
		real_close(to);
		errno = EMFILE;
		return -1;
	}
	gOpen[to] = gOpen[from];
	++gRefs[gOpen[from].handle];
	return to;
}

// glibc declares some paths non-null; a caller may still pass null.
bool isEmpty(const char *p) { return p && !*p; }

int modeArg(int flags, va_list ap)
{
	return (flags & O_CREAT) || (flags & O_TMPFILE) == O_TMPFILE ? va_arg(ap, int) : 0;
}

int doOpen(const char *path, int flags, int mode)
{
	char host[PATH_MAX], app[PATH_MAX];
	if (driveNode(path, host, app))
		return openDrive(host, app, flags);
	LIBC(open, OpenFn);
	return real_open(path, flags, mode);
}

int doOpenat(int dirfd, const char *path, int flags, int mode)
{
	char host[PATH_MAX], app[PATH_MAX];
	if (driveNode(path, host, app))
		return openDrive(host, app, flags);
	LIBC(openat, OpenatFn);
	return real_openat(dirfd, path, flags, mode);
}

int doStat(const char *path, struct stat *st, bool link)
{
	char host[PATH_MAX], app[PATH_MAX];
	if (driveNode(path, host, app))
		return statPath(host, app, st);
	if (link) {
		LIBC(lstat, StatFn);
		return real_lstat(path, st);
	}
	LIBC(stat, StatFn);
	return real_stat(path, st);
}

} // namespace

extern "C" {

#define VISIBLE __attribute__((visibility("default")))

VISIBLE int open(const char *path, int flags, ...)
{
	va_list ap;
	va_start(ap, flags);
	int mode = modeArg(flags, ap);
	va_end(ap);
	return doOpen(path, flags, mode);
}
VISIBLE int open64(const char *path, int flags, ...)
{
	va_list ap;
	va_start(ap, flags);
	int mode = modeArg(flags, ap);
	va_end(ap);
	return doOpen(path, flags, mode);
}
VISIBLE int __open_2(const char *path, int flags) { return doOpen(path, flags, 0); }
VISIBLE int __open64_2(const char *path, int flags) { return doOpen(path, flags, 0); }
VISIBLE int openat(int dirfd, const char *path, int flags, ...)
{
	va_list ap;
	va_start(ap, flags);
	int mode = modeArg(flags, ap);
	va_end(ap);
	return doOpenat(dirfd, path, flags, mode);
}
VISIBLE int openat64(int dirfd, const char *path, int flags, ...)
{
	va_list ap;
	va_start(ap, flags);
	int mode = modeArg(flags, ap);
	va_end(ap);
	return doOpenat(dirfd, path, flags, mode);
}
VISIBLE int __openat_2(int dirfd, const char *path, int flags) { return doOpenat(dirfd, path, flags, 0); }
VISIBLE int __openat64_2(int dirfd, const char *path, int flags) { return doOpenat(dirfd, path, flags, 0); }

VISIBLE int stat(const char *path, struct stat *st) { return doStat(path, st, false); }
VISIBLE int stat64(const char *path, struct stat64 *st) { return doStat(path, reinterpret_cast<struct stat *>(st), false); }
VISIBLE int lstat(const char *path, struct stat *st) { return doStat(path, st, true); }
VISIBLE int lstat64(const char *path, struct stat64 *st) { return doStat(path, reinterpret_cast<struct stat *>(st), true); }

VISIBLE int fstat(int fd, struct stat *st)
{
	if (tracked(fd))
		return fdStat(fd, st);
	LIBC(fstat, FstatFn);
	return real_fstat(fd, st);
}
VISIBLE int fstat64(int fd, struct stat64 *st) { return fstat(fd, reinterpret_cast<struct stat *>(st)); }

VISIBLE int fstatat(int dirfd, const char *path, struct stat *st, int flags)
{
	if (isEmpty(path) && (flags & AT_EMPTY_PATH) && tracked(dirfd))
		return fdStat(dirfd, st);
	char host[PATH_MAX], app[PATH_MAX];
	if (driveNode(path, host, app))
		return statPath(host, app, st);
	LIBC(fstatat, FstatatFn);
	return real_fstatat(dirfd, path, st, flags);
}
VISIBLE int fstatat64(int dirfd, const char *path, struct stat64 *st, int flags)
{
	return fstatat(dirfd, path, reinterpret_cast<struct stat *>(st), flags);
}

VISIBLE int statx(int dirfd, const char *path, int flags, unsigned mask, struct statx *stx)
{
	char host[PATH_MAX], app[PATH_MAX];
	struct stat st;
	int r = 1;
	if (isEmpty(path) && (flags & AT_EMPTY_PATH) && tracked(dirfd))
		r = fdStat(dirfd, &st);
	else if (driveNode(path, host, app))
		r = statPath(host, app, &st);
	if (r == 1) {
		using StatxFn = int (*)(int, const char *, int, unsigned, struct statx *);
		LIBC(statx, StatxFn);
		return real_statx(dirfd, path, flags, mask, stx);
	}
	if (r != 0)
		return r;
	std::memset(stx, 0, sizeof *stx);
	stx->stx_mask = STATX_BASIC_STATS;
	stx->stx_mode = static_cast<uint16_t>(st.st_mode);
	stx->stx_nlink = static_cast<uint32_t>(st.st_nlink);
	stx->stx_uid = st.st_uid;
	stx->stx_gid = st.st_gid;
	stx->stx_blksize = static_cast<uint32_t>(st.st_blksize);
	stx->stx_rdev_major = major(st.st_rdev);
	stx->stx_rdev_minor = minor(st.st_rdev);
	stx->stx_dev_major = major(st.st_dev);
	stx->stx_dev_minor = minor(st.st_dev);
	stx->stx_ino = st.st_ino;
	stx->stx_mtime.tv_sec = st.st_mtim.tv_sec;
	stx->stx_atime.tv_sec = st.st_atim.tv_sec;
	stx->stx_ctime.tv_sec = st.st_ctim.tv_sec;
	return 0;
}

VISIBLE int access(const char *path, int mode)
{
	char host[PATH_MAX], app[PATH_MAX];
	if (driveNode(path, host, app))
		path = host;
	LIBC(access, AccessFn);
	return real_access(path, mode);
}

VISIBLE int ioctl(int fd, unsigned long request, ...)
{
	va_list ap;
	va_start(ap, request);
	void *arg = va_arg(ap, void *);
	va_end(ap);
	if (tracked(fd)) {
		Inside in;
		return vexo_device_backend_v1()->ioctl(gOpen[fd].handle, request, arg);
	}
	LIBC(ioctl, IoctlFn);
	return real_ioctl(fd, request, arg);
}

VISIBLE ssize_t read(int fd, void *buf, size_t len)
{
	if (tracked(fd)) {
		ssize_t n = readZeros(fd, buf, len, gOpen[fd].pos);
		gOpen[fd].pos += n;
		return n;
	}
	LIBC(read, ReadFn);
	return real_read(fd, buf, len);
}
VISIBLE ssize_t pread(int fd, void *buf, size_t len, off_t at)
{
	if (tracked(fd)) {
		if (at < 0) {
			errno = EINVAL;
			return -1;
		}
		return readZeros(fd, buf, len, static_cast<uint64_t>(at));
	}
	LIBC(pread, PreadFn);
	return real_pread(fd, buf, len, at);
}
VISIBLE ssize_t pread64(int fd, void *buf, size_t len, off_t at) { return pread(fd, buf, len, at); }

VISIBLE ssize_t write(int fd, const void *buf, size_t len)
{
	if (tracked(fd)) {
		errno = EROFS;
		return -1;
	}
	LIBC(write, WriteFn);
	return real_write(fd, buf, len);
}
VISIBLE ssize_t pwrite(int fd, const void *buf, size_t len, off_t at)
{
	if (tracked(fd)) {
		errno = EROFS;
		return -1;
	}
	LIBC(pwrite, PwriteFn);
	return real_pwrite(fd, buf, len, at);
}
VISIBLE ssize_t pwrite64(int fd, const void *buf, size_t len, off_t at) { return pwrite(fd, buf, len, at); }

VISIBLE off_t lseek(int fd, off_t off, int whence)
{
	if (tracked(fd)) {
		Open &o = gOpen[fd];
		int64_t base = whence == SEEK_SET ? 0 : whence == SEEK_CUR ? static_cast<int64_t>(o.pos)
					: whence == SEEK_END ? static_cast<int64_t>(sizeOf(fd)) : -1;
		if (base < 0 || base + off < 0) {
			errno = EINVAL;
			return -1;
		}
		o.pos = static_cast<uint64_t>(base + off);
		return static_cast<off_t>(o.pos);
	}
	LIBC(lseek, LseekFn);
	return real_lseek(fd, off, whence);
}
VISIBLE off_t lseek64(int fd, off_t off, int whence) { return lseek(fd, off, whence); }

VISIBLE int close(int fd)
{
	if (tracked(fd))
		forget(fd);
	LIBC(close, CloseFn);
	return real_close(fd);
}

VISIBLE int dup(int fd)
{
	LIBC(dup, DupFn);
	return copied(fd, real_dup(fd));
}
VISIBLE int dup2(int fd, int to)
{
	if (fd != to && tracked(to))
		forget(to);
	LIBC(dup2, Dup2Fn);
	return copied(fd, real_dup2(fd, to));
}
VISIBLE int dup3(int fd, int to, int flags)
{
	if (fd != to && tracked(to))
		forget(to);
	LIBC(dup3, Dup3Fn);
	return copied(fd, real_dup3(fd, to, flags));
}
VISIBLE int fcntl(int fd, int cmd, ...)
{
	va_list ap;
	va_start(ap, cmd);
	void *arg = va_arg(ap, void *);
	va_end(ap);
	LIBC(fcntl, FcntlFn);
	int r = real_fcntl(fd, cmd, arg);
	return cmd == F_DUPFD || cmd == F_DUPFD_CLOEXEC ? copied(fd, r) : r;
}
VISIBLE int fcntl64(int fd, int cmd, ...)
{
	va_list ap;
	va_start(ap, cmd);
	void *arg = va_arg(ap, void *);
	va_end(ap);
	return fcntl(fd, cmd, arg);
}

} // extern "C"
