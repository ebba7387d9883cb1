// The upgrade state word: one key in /var/run/drive-bundle/upgrade_state,
// read and written under upgrade_state.lock. A missing file is "do_nothing".
#include <cstring>
#include <vexohw/drive_bundle.h>

#include "drive_bundle/drive_bundle_private.h"
#include "frame/err.h"
#include "frame/priv.h"
#include "frame/sysroot.h"

using namespace vexo::bundle;

namespace {

void logLockFailure(const char *file, int line, const char *lock)
{
	vlog(LOG_ERR, "%s:%d Failed to lock %s. [0x%04X %s:%d]", file, line, lock, VLIBCErrGet(), VLIBCErrFileGet(),
	     VLIBCErrLineGet());
}

int readState()
{
	struct stat st {};
	if (vexo::sysroot::stat(kStateFile, &st) != 0 && errno == ENOENT)
		return VEXO_FW_UPGRADE_DO_NOTHING;
	char word[64] = "";
	int ret = VLIBCFileGetKeyValue(kStateFile, kStateKey, word, sizeof(word), 0);
	if (ret < 0 && VLIBCErrGet() == VEXO_ERR_NOENT)
		return VEXO_FW_UPGRADE_DO_NOTHING; // removed since the stat
	if (ret <= 0) {
		vlog(LOG_ERR, "%s:%d Failed to get state by %s from %s, ret=%d", VEXO_AT, kStateKey, kStateFile, ret);
		if (ret == 0)
			VEXO_ERR(VEXO_ERR_READ);
		else
			VEXO_ERR_PASS();
		return -1;
	}
	for (int i = 0; i < 4; ++i)
		if (std::strcmp(word, kStateWords[i]) == 0)
			return i;
	vlog(LOG_ERR, "%s:%d Cannot convert unknown state: %s", VEXO_AT, word);
	VEXO_ERR(VEXO_ERR_READ);
	return -1;
}

bool runDirReady()
{
	if (VEXODriveBundleCheckDirExistOrCreate(kRunDir) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to check %s exists", VEXO_AT, kRunDir);
		return false;
	}
	return true;
}

} // namespace

namespace vexo::bundle {

// Read, compare and write under one hold of the lock, so that of two runs
// starting together exactly one finds the state it expects.
int checkAndSetState(int from, int to)
{
	if (!runDirReady())
		return -1;
	ENTERCriticalSection;
	LockFile guard(kStateLock, kLockSeconds);
	if (!guard.held()) {
		logLockFailure(VEXO_AT, kStateLock);
		return -1;
	}
	int now = readState();
	if (now < 0)
		return -1;
	if (now != from) {
		vlog(LOG_ERR, "%s:%d Expected current state is %d instead of %d", VEXO_AT, from, now);
		VEXO_ERR(VEXO_ERR_INTERNAL);
		return -1;
	}
	if (VLIBCFileSetKeyValue(kStateFile, kStateKey, kStateWords[to], nullptr) != 1) {
		vlog(LOG_ERR, "%s:%d Failed to set (key, value) = (%s, %s) into %s, ret=%d", VEXO_AT, kStateKey,
		     kStateWords[to], kStateFile, -1);
		return -1;
	}
	return 0;
}

} // namespace vexo::bundle

extern "C" {

VEXO_API int VEXODriveBundleFWUpgradeStateGet(int lock)
try {
	if (!runDirReady())
		return -1;
	if (!lock)
		return readState();
	LockFile guard(kStateLock, kLockSeconds);
	if (!guard.held()) {
		logLockFailure(VEXO_AT, kStateLock);
		return -1;
	}
	return readState();
} VEXO_C_CATCH(-1)

VEXO_API int VEXODriveBundleFWUpgradeStateSet(int state)
try {
	if (state < VEXO_FW_UPGRADE_DO_NOTHING || state > VEXO_FW_UPGRADE_POST_HANDLE) {
		vlog(LOG_ERR, "%s:%d bad parameter", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	if (!runDirReady())
		return -1;
	ENTERCriticalSection;
	LockFile guard(kStateLock, kLockSeconds);
	if (!guard.held()) {
		logLockFailure(VEXO_AT, kStateLock);
		return -1;
	}
	// Written whole by tmp and rename: a reader never sees half a word.
	int ret = VLIBCFileSetKeyValue(kStateFile, kStateKey, kStateWords[state], nullptr);
	if (ret != 1) {
		vlog(LOG_ERR, "%s:%d Failed to set (key, value) = (%s, %s) into %s, ret=%d", VEXO_AT, kStateKey,
		     kStateWords[state], kStateFile, ret);
		return -1;
	}
	return 0;
} VEXO_C_CATCH(-1)

VEXO_API int VEXODriveBundleFWUpgradeStateGoingToStartChange(int on)
try {
	if (VEXODriveBundleFWUpgradeStateSet(on ? VEXO_FW_UPGRADE_GOING_TO_START : VEXO_FW_UPGRADE_DO_NOTHING) != 0) {
		VEXO_ERR_PASS();
		return -1;
	}
	return 0;
} VEXO_C_CATCH(-1)

VEXO_API int VEXODriveBundleFWUpgradeOnShutdownSet(int on)
try {
	int changed = runDirReady() ? DBFlagSet(kShutdownFlag, on) : -1;
	if (changed < 0) {
		vlog(LOG_ERR, "%s:%d Failed to set %s to %d", VEXO_AT, kShutdownFlag, on ? 1 : 0);
		return -1;
	}
	if (VEXODriveBundleFWUpgradeStateGoingToStartChange(on) == 0)
		return 0;
	vlog(LOG_ERR, "%s:%d Failed to change to going_to_start state", VEXO_AT);
	if (changed == 1) {
		int back = DBFlagSet(kShutdownFlag, !on);
		if (back < 0)
			vlog(LOG_ERR, "%s:%d Failed to set %s to %d, ret=%d", VEXO_AT, kShutdownFlag, on ? 0 : 1, back);
	}
	return -1;
} VEXO_C_CATCH(-1)

VEXO_API int VEXODriveBundleFWUpgradeFinishCheck(void)
try {
	int state = VEXODriveBundleFWUpgradeStateGet(1);
	if (state < 0)
		return -1;
	return state == VEXO_FW_UPGRADE_DO_NOTHING ? 1 : 0;
} VEXO_C_CATCH(-1)

} // extern "C"
