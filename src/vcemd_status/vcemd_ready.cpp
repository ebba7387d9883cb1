// The ready marker: a file that exists while the daemon serves.
#include <cerrno>
#include <unistd.h>
#include <vexohw/vcemd.h>
#include <vexoplatform/vexocore.h>

#include "frame/boundary.h"
#include "frame/err.h"
#include "frame/sysroot.h"

namespace {

bool markerPresent()
{
	struct stat st;
	return vexo::sysroot::lstat(VEXO_VCEMD_READY_FILE, &st) == 0;
}

} // namespace

extern "C" {

VEXO_API int VEXOIsVcemdReady(void) { return markerPresent() ? 1 : 0; }

VEXO_API int VEXOSetVcemdStatus(int state) try {
	if (state != VEXO_VCEMD_STOPPED && state != VEXO_VCEMD_READY) {
		vlog(LOG_ERR, "%s:%d No such case handler.", VEXO_AT);
		return -1;
	}
	const bool present = markerPresent();
	if (state == VEXO_VCEMD_STOPPED) {
		if (!present) {
			vlog(LOG_INFO, "%s:%d Vcemd is not running...", VEXO_AT);
			return 0;
		}
		if (vexo::sysroot::unlink(VEXO_VCEMD_READY_FILE) != 0 && errno != ENOENT) {
			vlog(LOG_ERR, "%s:%d Cannot remove file %s", VEXO_AT, VEXO_VCEMD_READY_FILE);
			return -1;
		}
		return 0;
	}
	if (present) {
		// A marker left behind means the last run ended without clearing it.
		vlog(LOG_ERR, "%s:%d Vcemd is abnormal restart...", VEXO_AT);
		return -1;
	}
	if (VLIBCFileTouch(VEXO_VCEMD_READY_FILE) != 0) {
		vlog(LOG_ERR, "%s:%d Cannot touch file %s", VEXO_AT, VEXO_VCEMD_READY_FILE);
		return -1;
	}
	return 0;
}
VEXO_C_CATCH(-1)

} // extern "C"
