#include "frame/priv.h"

#include <cerrno>
#include <cstring>
#include <sys/syscall.h>
#include <unistd.h>

#include "frame/log.h"

namespace vexo {
namespace {

// LOG_AUTH with LOG_ERR (35) and LOG_DEBUG (39): privilege changes only.
constexpr int kPrioFailed = LOG_AUTH | LOG_ERR;
constexpr int kPrioDone = LOG_AUTH | LOG_DEBUG;

// One setres[ug]id(-1, id, -1) call with its log line. true on success.
// The raw call changes the calling thread only (see priv.h).
bool change(bool user, unsigned id, const char *file, int line)
{
	long rc = user ? ::syscall(SYS_setresuid, static_cast<uid_t>(-1), static_cast<uid_t>(id), static_cast<uid_t>(-1))
		       : ::syscall(SYS_setresgid, static_cast<gid_t>(-1), static_cast<gid_t>(id), static_cast<gid_t>(-1));
	if (rc == 0) {
		// Only raising to root is worth a line; dropping back is routine.
		if (id == 0)
			vlog(kPrioDone, "%s:%d WARNING: set%s(%d, %d, %d)", file, line, user ? "resuid" : "resgid", -1,
		     static_cast<int>(id), -1);
		return true;
	}
	char buf[1024];
	const char *msg = ::strerror_r(errno, buf, sizeof(buf));
	vlog(kPrioFailed, "%s:%d ERROR: set%s(%d, %d, %d) [%s]", file, line, user ? "resuid" : "resgid", -1,
	     static_cast<int>(id), -1, msg);
	return false;
}

} // namespace

PrivilegedSection::PrivilegedSection(const char *file, int line)
	: file_(file), line_(line), savedUid_(::geteuid()), savedGid_(::getegid())
{
	if (savedUid_ == 0 && savedGid_ == 0) {
		errno = 0;
		return;
	}
	bool ok = true;
	if (savedUid_ != 0) {
		ok = change(true, 0, file_, line_);
		if (ok && savedGid_ != 0)
			ok = change(false, 0, file_, line_);
		if (ok)
			ok = change(true, 0, file_, line_);
	} else {
		ok = change(false, 0, file_, line_);
	}
	if (ok) {
		errno = 0;
	} else {
		errno = 1;
		vlog(kPrioFailed, "%s:%d ERROR: ENTERCriticalSection", file_, line_);
	}
}

PrivilegedSection::~PrivilegedSection()
{
	// Callers' errno survives the section except for the documented 0/1.
	const uid_t uid = ::geteuid();
	const gid_t gid = ::getegid();
	const bool uidDiffers = uid != savedUid_;
	const bool gidDiffers = gid != savedGid_;
	if (!uidDiffers && !gidDiffers)
		return;
	bool ok = true;
	if (uidDiffers)
		ok = change(true, 0, file_, line_);
	if (ok && (gidDiffers || uidDiffers))
		ok = change(false, savedGid_, file_, line_);
	if (ok && uidDiffers)
		ok = change(true, savedUid_, file_, line_);
	if (ok) {
		errno = 0;
	} else {
		errno = 1;
		vlog(kPrioFailed, "%s:%d ERROR: LEAVECriticalSection", file_, line_);
	}
}

} // namespace vexo
