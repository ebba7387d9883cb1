// A drive's LED changed for a while: the request is kept as a section of
// the status file, the daemon is asked to change the LED, and a detached
// child puts it back when the time is over, so the caller never waits.
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <memory>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vexohw/led.h>
#include <vexohw/vcemd.h>

#include "frame/clock.h"
#include "frame/err.h"
#include "frame/file_lock.h"
#include "frame/priv.h"
#include "frame/sysroot.h"
#include "frame/unique.h"

namespace {

constexpr int kLockWaitSeconds = 10;
constexpr int kHashCapacity = 1024;
constexpr int kSectionSize = 64;

static_assert(sizeof(DiskLedRequest) == 36, "daemon payload of commands 14 and 28");
static_assert(sizeof(DiskLedLogRecord) == 96, "daemon payload of command 29");

struct HashFree {
	void operator()(VLIBSZHASH *h) const { VLIBCSzHashFree(h); }
};
using Hash = std::unique_ptr<VLIBSZHASH, HashFree>;

struct Drive {
	std::string path;
	DiskId id{};
	std::string section;
};

// Parses the path and names its section. False with the failure logged.
bool drive(const char *path, Drive &d)
{
	if (DiskPathParse(path, &d.id) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to parse disk %s\n", VEXO_AT, path);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return false;
	}
	char key[kSectionSize];
	if (VEXODiskIdSerialize(&d.id, key, sizeof key) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to serialize drive id, 0x%0X", VEXO_AT, VLIBCErrGet());
		VEXO_ERR(VEXO_ERR_UNKNOWN_DEVICE);
		return false;
	}
	d.path = path;
	d.section = key;
	return true;
}

int sendRequest(int code, const Drive &d, int mode, int duration, pid_t pid)
{
	DiskLedRequest req{};
	req.id = d.id;
	req.mode = mode;
	req.duration = duration;
	req.pid = static_cast<int32_t>(pid);
	Message m;
	if (VEXOVcemdCopy2MsgIn(code, &m, &req, sizeof req, 0) != 0 || VEXOVcemdConnectorClient(&m, nullptr) != 0)
		return -1;
	return 0;
}

int sendLog(const Drive &d, const char *status, int duration)
{
	DiskLedLogRecord rec{};
	std::snprintf(rec.device, sizeof rec.device, "%s", d.path.c_str());
	std::snprintf(rec.status, sizeof rec.status, "%s", status);
	rec.minutes = static_cast<int32_t>((static_cast<long>(duration) + 59) / 60);
	Message m;
	if (VEXOVcemdCopy2MsgIn(VEXO_VCEMD_CMD_DISK_LED_LOG, &m, &rec, sizeof rec, 0) != 0 ||
	    VEXOVcemdConnectorClient(&m, nullptr) != 0)
		return -1;
	return 0;
}

// The drive's section; null when no hash could be had. `n` is the reader's
// result: below 0 when there is no section or it could not be read.
Hash readSection(const Drive &d, int &n)
{
	Hash h(VLIBCSzHashAlloc(8));
	n = -1;
	if (!h)
		return h;
	VLIBSZHASH *raw = h.release(); // the reader may grow it
	n = VLIBCFileGetSection(VEXO_DISK_LED_STATUS_FILE, d.section.c_str(), &raw);
	h.reset(raw);
	return h;
}

// The pid of the drive's section; 0 when there is none.
pid_t sectionPid(const Drive &d)
{
	int n;
	Hash h = readSection(d, n);
	if (!h || n < 0)
		return 0;
	const char *v = VLIBCSzHashGetValue(h.get(), "pid");
	return v ? static_cast<pid_t>(std::strtol(v, nullptr, 10)) : 0;
}

// Removes the drive's section, or only while it still names `owner`.
bool removeSection(const Drive &d, pid_t owner = 0)
{
	vexo::FileLock lock(VEXO_DISK_LED_LOCK_FILE, kLockWaitSeconds);
	if (!lock.held()) {
		VEXO_ERR(VEXO_ERR_LOCK);
		return false;
	}
	if (owner && sectionPid(d) != owner)
		return true; // a later request took the drive over
	ENTERCriticalSection;
	return VLIBCFileRemoveSection(VEXO_DISK_LED_STATUS_FILE, d.section.c_str()) >= 0;
}

// The child's work. Its exit code: 0 when the LED went back in time.
int switchChild(const Drive &d, int duration)
{
	const pid_t self = ::getpid();
	Hash h(VLIBCSzHashAlloc(kHashCapacity));
	if (!h) {
		VEXO_ERR(VEXO_ERR_LIST_ALLOC);
		return 1;
	}
	VLIBSZHASH *raw = h.get();
	const std::pair<const char *, std::string> keys[] = {
		{"time", std::to_string(static_cast<long>(vexo::clock::wallSeconds()) + duration)},
		{"pid", std::to_string(self)},
		{"duration", std::to_string(duration)},
	};
	for (const auto &[k, v] : keys)
		if (VLIBCSzHashSetValue(&raw, k, v.c_str()) != 0) {
			h.release();
			h.reset(raw);
			VEXO_ERR(VEXO_ERR_LIST_ALLOC);
			return 1;
		}
	h.release();
	h.reset(raw);
	pid_t previous = 0;
	{
		vexo::FileLock lock(VEXO_DISK_LED_LOCK_FILE, kLockWaitSeconds);
		if (!lock.held()) {
			VEXO_ERR(VEXO_ERR_LOCK);
			return 1;
		}
		ENTERCriticalSection;
		vexo::sysroot::mkdir("/run/vexostorage", 0755);
		previous = sectionPid(d);
		int added = VLIBCFileAddSection(VEXO_DISK_LED_STATUS_FILE, d.section.c_str(), h.get());
		if (added < 0) {
			vlog(LOG_ERR, "%s:%d Failed to add section %s in %s", VEXO_AT, d.section.c_str(), VEXO_DISK_LED_STATUS_FILE);
			VEXO_ERR(VEXO_ERR_WRITE);
			return 1;
		}
		if (added == 0 && VLIBCFileSetSection(VEXO_DISK_LED_STATUS_FILE, d.section.c_str(), h.get()) != 1) {
			vlog(LOG_ERR, "%s:%d Failed to set section %s in %s", VEXO_AT, d.section.c_str(), VEXO_DISK_LED_STATUS_FILE);
			VEXO_ERR(VEXO_ERR_WRITE);
			return 1;
		}
	}
	// The child of the request replaced must not put the LED back early.
	if (previous > 0 && previous != self)
		::kill(previous, SIGTERM);
	if (sendRequest(VEXO_VCEMD_CMD_DISK_LED_SET, d, VEXO_DISK_LED_REQUEST_SWITCH, duration, self) != 0 || sendLog(d, "switch", duration) != 0) {
		removeSection(d, self);
		return 1;
	}
	vexo::clock::sleepMs(static_cast<std::int64_t>(duration) * 1000);
	int rc = sendRequest(VEXO_VCEMD_CMD_DISK_LED_SET_BACK, d, VEXO_DISK_LED_REQUEST_NORMAL, duration, self) == 0 &&
			 sendLog(d, "restore", duration) == 0
		 ? 0
		 : 1;
	if (!removeSection(d, self))
		rc = 1;
	return rc;
}

// A detached child (reparented at once, so the caller never reaps it) with
// the caller's standard streams let go, so that a caller reading them is
// not held for the whole duration.
int startSwitch(const Drive &d, int duration)
{
	pid_t first = VLIBCProcFork();
	if (first == 0) {
		pid_t second = VLIBCProcFork();
		if (second != 0)
			::_exit(second < 0 ? 1 : 0);
		// The host's null device: the child's streams are the process's, not the box's.
		{
			vexo::UniqueFd null(::open("/dev/null", O_RDWR | O_CLOEXEC));
			for (int fd = 0; null && fd <= 2; ++fd)
				if (null.get() != fd)
					::dup2(null.get(), fd);
			if (null && null.get() <= 2)
				(void)null.release(); // it is one of the three now
		}
		int rc = 1;
		try {
			rc = switchChild(d, duration);
		} catch (...) {
			vexo::recordCurrentException(VEXO_SRC, __LINE__);
		}
		if (rc != 0)
			removeSection(d, ::getpid());
		::_exit(rc);
	}
	int status = 0;
	if (first > 0)
		while (::waitpid(first, &status, 0) < 0 && errno == EINTR) {
		}
	if (first < 0 || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to fork", VEXO_AT);
		vlog(LOG_ERR, "%s:%d Failed to set disk led status fork for %s", VEXO_AT, d.path.c_str());
		VEXO_ERR(VEXO_ERR_INTERNAL);
		return -1;
	}
	return 0;
}

// Under the held lock: the child of the drive's switch that is under way,
// or 0. A section whose time is over is removed and its pid left alone:
// that child is gone and the number may be another process's by now.
pid_t liveSwitch(const Drive &d)
{
	int n;
	Hash h = readSection(d, n);
	if (!h || n < 0)
		return 0;
	const char *pid = VLIBCSzHashGetValue(h.get(), "pid"), *due = VLIBCSzHashGetValue(h.get(), "time");
	pid_t child = pid ? static_cast<pid_t>(std::strtol(pid, nullptr, 10)) : 0;
	if (child > 0 && due &&
	    std::difftime(static_cast<std::time_t>(std::strtoll(due, nullptr, 10)), vexo::clock::wallSeconds()) > 0)
		return child;
	ENTERCriticalSection;
	VLIBCFileRemoveSection(VEXO_DISK_LED_STATUS_FILE, d.section.c_str());
	return 0;
}

// Under the held lock: the switch's child, stopped so that nothing puts
// the LED back behind the caller; and its section. False, logged, on failure.
bool stopChild(pid_t child)
{
	if (::kill(child, SIGTERM) == 0 || errno == ESRCH)
		return true;
	vlog(LOG_ERR, "%s:%d Failed to kill process: %d", VEXO_AT, child);
	return false;
}

bool dropSection(const Drive &d)
{
	ENTERCriticalSection;
	if (VLIBCFileRemoveSection(VEXO_DISK_LED_STATUS_FILE, d.section.c_str()) >= 0)
		return true;
	vlog(LOG_ERR, "%s:%d Failed to remove led status key for %s", VEXO_AT, d.path.c_str());
	return false;
}

// "restore" ends a switch early; "normal" puts the LED back also when no
// switch is under way (after "faulty").
int restore(const Drive &d, bool always)
{
	vexo::FileLock lock(VEXO_DISK_LED_LOCK_FILE, kLockWaitSeconds);
	if (!lock.held()) {
		VEXO_ERR(VEXO_ERR_LOCK);
		return -1;
	}
	pid_t child = liveSwitch(d);
	if (child <= 0 && !always)
		return 0; // nothing under way
	bool ok = child <= 0 || stopChild(child);
	if (sendRequest(VEXO_VCEMD_CMD_DISK_LED_SET_BACK, d, VEXO_DISK_LED_REQUEST_NORMAL, 0, child) != 0 ||
	    (child > 0 && sendLog(d, "restore", 0) != 0)) {
		vlog(LOG_ERR, "%s:%d Failed to set disk led back for %s", VEXO_AT, d.path.c_str());
		ok = false;
	}
	if (child > 0 && !dropSection(d))
		ok = false;
	if (!ok)
		VEXO_ERR(VEXO_ERR_INTERNAL);
	return ok ? 0 : -1;
}

// The faulty LED stays until "normal": a switch under way is ended first,
// or its child would put the LED back to normal over it.
int faulty(const Drive &d)
{
	vexo::FileLock lock(VEXO_DISK_LED_LOCK_FILE, kLockWaitSeconds);
	if (!lock.held()) {
		VEXO_ERR(VEXO_ERR_LOCK);
		return -1;
	}
	pid_t child = liveSwitch(d);
	bool ok = child <= 0 || (stopChild(child) && dropSection(d));
	if (ok && sendRequest(VEXO_VCEMD_CMD_DISK_LED_SET, d, VEXO_DISK_LED_REQUEST_FAULTY, 0, 0) != 0)
		ok = false;
	if (!ok) {
		vlog(LOG_ERR, "%s:%d Failed to set disk led faulty", VEXO_AT);
		VEXO_ERR(VEXO_ERR_INTERNAL);
	}
	return ok ? 0 : -1;
}

} // namespace

extern "C" {

int VEXODiskLedStatusSet(const char *disk_path, const char *mode, int duration)
try {
	if (!disk_path || !mode) {
		vlog(LOG_ERR, "%s:%d no parameters", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	Drive d;
	if (!drive(disk_path, d))
		return -1;
	const bool normal = std::strcmp(mode, VEXO_DISK_LED_MODE_NORMAL) == 0;
	if (normal || std::strcmp(mode, VEXO_DISK_LED_MODE_RESTORE) == 0) {
		if (restore(d, normal) == 0)
			return 0;
		vlog(LOG_ERR, "%s:%d Failed to restore disk led status for %s", VEXO_AT, disk_path);
		return -1;
	}
	if (std::strcmp(mode, VEXO_DISK_LED_MODE_FAULTY) == 0)
		return faulty(d);
	if (std::strcmp(mode, VEXO_DISK_LED_MODE_SWITCH) != 0 || duration < 1) {
		vlog(LOG_ERR, "%s:%d Bad mode %s or duration %d for %s", VEXO_AT, mode, duration, disk_path);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	return startSwitch(d, duration);
}
VEXO_C_CATCH(-1)

int VEXODiskLedStatusRestore(const char *disk_path)
try {
	if (!disk_path) {
		vlog(LOG_ERR, "%s:%d no parameters", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	Drive d;
	if (!drive(disk_path, d))
		return -1;
	if (restore(d, false) == 0)
		return 0;
	vlog(LOG_ERR, "%s:%d Failed to restore disk led status for %s", VEXO_AT, disk_path);
	return -1;
}
VEXO_C_CATCH(-1)

int VEXODiskLedStatusGet(const char *disk_path, DiskLedStatus *out)
try {
	if (!disk_path || !out) {
		vlog(LOG_ERR, "%s:%d no parameters", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	Drive d;
	if (!drive(disk_path, d))
		return -1;
	DiskLedStatus s{};
	if (vexo::sysroot::access(VEXO_DISK_LED_STATUS_FILE, F_OK) != 0) {
		*out = s;
		return 0;
	}
	vexo::FileLock lock(VEXO_DISK_LED_LOCK_FILE, kLockWaitSeconds);
	if (!lock.held()) {
		VEXO_ERR(VEXO_ERR_LOCK);
		return -1;
	}
	int n;
	Hash h = readSection(d, n);
	if (!h) {
		VEXO_ERR(VEXO_ERR_LIST_ALLOC);
		return -1;
	}
	if (n < 0 && VLIBCErrGet() == VEXO_ERR_NOT_FOUND) {
		VLIBCErrClear();
		*out = s;
		return 0;
	}
	const char *duration = n < 0 ? nullptr : VLIBCSzHashGetValue(h.get(), "duration");
	const char *due = n < 0 ? nullptr : VLIBCSzHashGetValue(h.get(), "time");
	char *end1 = nullptr, *end2 = nullptr;
	long dur = duration ? std::strtol(duration, &end1, 10) : 0;
	long long when = due ? std::strtoll(due, &end2, 10) : 0;
	if (!duration || !due || *end1 || *end2 || !*duration || !*due) {
		vlog(LOG_ERR, "%s:%d Failed to get duration and start time on %s", VEXO_AT, disk_path);
		VEXO_ERR(VEXO_ERR_READ);
		return -1;
	}
	if (std::difftime(static_cast<std::time_t>(when), vexo::clock::wallSeconds()) <= 0) {
		// Its child is gone or late: the request is over.
		ENTERCriticalSection;
		if (VLIBCFileRemoveSection(VEXO_DISK_LED_STATUS_FILE, d.section.c_str()) < 0)
			vlog(LOG_ERR, "%s:%d Failed to remove %s on %s", VEXO_AT, d.section.c_str(), VEXO_DISK_LED_STATUS_FILE);
		*out = s;
		return 0;
	}
	s.switching = 1;
	s.duration = static_cast<int32_t>(dur);
	s.dueTime = when;
	*out = s;
	return 0;
}
VEXO_C_CATCH(-1)

int VEXODiskLedStatusRemoveFile(const DiskId *disk_id)
try {
	if (!disk_id) {
		vlog(LOG_ERR, "%s:%d no parameters", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	Drive d;
	d.id = *disk_id;
	char key[kSectionSize];
	if (VEXODiskIdSerialize(disk_id, key, sizeof key) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to serialize drive id, 0x%0X", VEXO_AT, VLIBCErrGet());
		VEXO_ERR(VEXO_ERR_UNKNOWN_DEVICE);
		return -1;
	}
	d.section = key;
	if (vexo::sysroot::access(VEXO_DISK_LED_STATUS_FILE, F_OK) != 0)
		return 0;
	if (!removeSection(d)) {
		vlog(LOG_ERR, "%s:%d Failed to remove %s on %s", VEXO_AT, key, VEXO_DISK_LED_STATUS_FILE);
		return -1;
	}
	return 0;
}
VEXO_C_CATCH(-1)

} // extern "C"
