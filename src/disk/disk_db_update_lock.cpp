// The update lock: one updater per name at a time, across processes.
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vexoplatform/vexocore.h>

#include "disk/dbupdate.h"
#include "frame/boundary.h"
#include "frame/err.h"
#include "frame/priv.h"
#include "frame/sysroot.h"

namespace {
constexpr const char *kLockDir = "/run/lock/diskdbupdate";
constexpr int kWaitSeconds = 10;
} // namespace

extern "C" VEXO_API int VEXODiskDbUpdateLock(const char *name, int *fd) try {
	if (!name || !*name || !fd || std::string(name).find('/') != std::string::npos) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::string path = std::string(kLockDir) + "/" + name + ".lock";
	{
		ENTERCriticalSection;
		struct stat st;
		if (vexo::sysroot::stat(kLockDir, &st) != 0)
			vexo::dbupdate::makeDirs(kLockDir, 0777);
	}
	int got = -1;
	if (VLIBCFileLockTimeByFile(path.c_str(), 1, kWaitSeconds, &got) == 0) {
		// Another updater holds it: that is no fault of this one.
		if (VLIBCErrGet() != VEXO_ERR_LOCK)
			vlog(LOG_ERR, "%s:%d Failed to lock %s", VEXO_AT, path.c_str());
		VEXO_ERR_PASS();
		return -1;
	}
	*fd = got;
	return 0;
}
VEXO_C_CATCH(-1)

extern "C" VEXO_API int VEXODiskDbUpdateUnlock(int fd) try {
	if (fd < 0)
		return 0;
	if (VLIBCFileUnlockByFile(fd) == 0) {
		vlog(LOG_ERR, "%s:%d Failed to unlock", VEXO_AT);
		::close(fd);
		VEXO_ERR(VEXO_ERR_UNLOCK);
		return -1;
	}
	return 0;
}
VEXO_C_CATCH(-1)
