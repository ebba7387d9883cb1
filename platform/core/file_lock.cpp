// Lock files and numbered system-wide locks.
//
// A lock file is flock(2)ed: the lock belongs to the open file description,
// dies with its holder and never needs cleaning up.
//
// A numbered lock is a lock file per class, "/run/lock/vexocore/<class>.lock"
// with the class in hex ("0x800.lock"), where class = id & ~0xFF: all the
// ids of one class are one lock, released by the class value. flags bit 0x1
// asks for an exclusive lock (else shared), bit 0x4 for waiting (else one
// try); every caller passes 5. The process keeps the descriptor of each
// class it holds; a child made by fork does not hold its parent's locks.
#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <map>
#include <mutex>
#include <pthread.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>
#include <vexoplatform/vexocore.h>

#include "frame/err.h"
#include "frame/priv.h"
#include "frame/sysroot.h"
#include "frame/unique.h"

namespace {

constexpr const char *kNumberedLockDir = "/run/lock/vexocore";
constexpr int kLockExclusive = 0x1;
constexpr int kLockWait = 0x4;

// Waits for flock in growing steps up to the deadline; timeoutSeconds < 0
// blocks, 0 tries once.
bool takeFlock(int fd, int op, int timeoutSeconds)
{
	if (timeoutSeconds < 0) {
		int r;
		do {
			r = ::flock(fd, op);
		} while (r != 0 && errno == EINTR);
		return r == 0;
	}
	using clock = std::chrono::steady_clock;
	const auto deadline = clock::now() + std::chrono::seconds(timeoutSeconds);
	auto step = std::chrono::milliseconds(1);
	for (;;) {
		if (::flock(fd, op | LOCK_NB) == 0)
			return true;
		if (errno != EWOULDBLOCK && errno != EINTR)
			return false;
		auto now = clock::now();
		if (now >= deadline)
			return false;
		std::this_thread::sleep_for(std::min<clock::duration>(step, deadline - now));
		step = std::min(step * 2, std::chrono::milliseconds(50));
	}
}

int lockFile(const char *path, int exclusive, int timeoutSeconds, int *fd)
{
	if (!path || !*path || !fd) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return 0;
	}
	// A link planted at the lock's name is never followed.
	vexo::UniqueFd lfd(vexo::sysroot::open(path, O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0644));
	if (!lfd) {
		vlog(LOG_ERR, "%s:%d Failed to open lock file %s. errno=%m", VEXO_AT, path);
		VEXO_ERR(VEXO_ERR_LOCK);
		return 0;
	}
	if (!takeFlock(lfd.get(), exclusive ? LOCK_EX : LOCK_SH, timeoutSeconds)) {
		VEXO_ERR(VEXO_ERR_LOCK);
		return 0;
	}
	*fd = lfd.release();
	return 1;
}

struct Held {
	int fd;
	pid_t tid;
};

std::mutex gMutex;
std::map<int, Held> *gHeld; // class -> descriptor; never destroyed (used until exit)

void forkPrepare() { gMutex.lock(); }
void forkParent() { gMutex.unlock(); }
void forkChild()
{
	// The child shares the parent's lock descriptions: close them without
	// LOCK_UN, which would release the parent's locks as well.
	for (auto &[cls, held] : *gHeld)
		::close(held.fd);
	gHeld->clear();
	gMutex.unlock();
}

void init()
{
	static std::once_flag once;
	std::call_once(once, [] {
		gHeld = new std::map<int, Held>;
		pthread_atfork(forkPrepare, forkParent, forkChild);
	});
}

pid_t threadId() { return static_cast<pid_t>(::syscall(SYS_gettid)); }

// The folder of the numbered locks sits in the world-writable /run/lock:
// made by root with a fixed mode, and refused when anyone else made it or
// may write in it, since whoever could would hold every class lock.
bool lockFolderReady()
{
	std::string dir;
	for (const char *p = kNumberedLockDir + 1;; ++p) {
		if (*p == '/' || *p == '\0') {
			dir.assign(kNumberedLockDir, static_cast<size_t>(p - kNumberedLockDir));
			if (!*p)
				break;
			vexo::sysroot::mkdir(dir.c_str(), 0755);
		}
	}
	{
		ENTERCriticalSection;
		if (vexo::sysroot::mkdir(dir.c_str(), 0700) == 0)
			::chmod(vexo::sysroot::path(dir).c_str(), 0755);
	}
	struct stat st {};
	if (vexo::sysroot::lstat(dir.c_str(), &st) != 0 || !S_ISDIR(st.st_mode) || st.st_uid != 0 ||
	    (st.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
		vlog(LOG_ERR, "%s:%d Lock folder %s is not a directory of root's alone", VEXO_AT, dir.c_str());
		return false;
	}
	return true;
}

std::string classPath(int cls)
{
	char name[64];
	std::snprintf(name, sizeof(name), "%s/0x%X.lock", kNumberedLockDir, static_cast<unsigned>(cls));
	return name;
}

} // namespace

extern "C" {

VEXOP_API int VLIBCFileLockTimeByFile(const char *path, int exclusive, int timeoutSeconds, int *fd)
try {
	if (timeoutSeconds < 0) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return 0;
	}
	int r = lockFile(path, exclusive, timeoutSeconds, fd);
	if (!r)
		VEXO_ERR_PASS();
	return r;
} VEXO_C_CATCH(0)

VEXOP_API int VLIBCFileLockByFile(const char *path, int exclusive, int *fd)
try {
	int r = lockFile(path, exclusive, -1, fd);
	if (!r)
		VEXO_ERR_PASS();
	return r;
} VEXO_C_CATCH(0)

VEXOP_API int VLIBCFileUnlockByFile(int fd)
try {
	if (fd < 0) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return 0;
	}
	if (::flock(fd, LOCK_UN) != 0) {
		VEXO_ERR(VEXO_ERR_UNLOCK);
		return 0;
	}
	::close(fd);
	return 1;
} VEXO_C_CATCH(0)

VEXOP_API int VLIBCFileLock(int lockId, int flags)
try {
	if (lockId <= 0 || (flags & ~(kLockExclusive | kLockWait)) != 0) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	init();
	const int cls = lockId & ~0xFF;
	{
		std::lock_guard<std::mutex> g(gMutex);
		auto it = gHeld->find(cls);
		// Waiting on a class this thread holds would never end.
		if (it != gHeld->end() && it->second.tid == threadId()) {
			vlog(LOG_ERR, "%s:%d lock 0x%X is already held by this thread", VEXO_AT, static_cast<unsigned>(lockId));
			VEXO_ERR(VEXO_ERR_LOCK);
			return -1;
		}
	}
	// The folder is ours; made on first use (also under a test root).
	if (!lockFolderReady()) {
		VEXO_ERR(VEXO_ERR_LOCK);
		return -1;
	}
	std::string path = classPath(cls);
	int fd = -1;
	if (!lockFile(path.c_str(), flags & kLockExclusive, (flags & kLockWait) ? -1 : 0, &fd)) {
		VEXO_ERR_PASS();
		return -1;
	}
	std::lock_guard<std::mutex> g(gMutex);
	(*gHeld)[cls] = Held{fd, threadId()};
	return 0;
} VEXO_C_CATCH(-1)

VEXOP_API int VLIBCFileUnlock(int lockClass)
try {
	if (lockClass <= 0) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	init();
	const int cls = lockClass & ~0xFF;
	int fd;
	{
		std::lock_guard<std::mutex> g(gMutex);
		auto it = gHeld->find(cls);
		if (it == gHeld->end()) {
			VEXO_ERR(VEXO_ERR_UNLOCK);
			return -1;
		}
		fd = it->second.fd;
		gHeld->erase(it);
	}
	if (!VLIBCFileUnlockByFile(fd)) {
		::close(fd);
		VEXO_ERR_PASS();
		return -1;
	}
	return 0;
} VEXO_C_CATCH(-1)

} // extern "C"
