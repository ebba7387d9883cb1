// Whether a secure erase runs on a disk. The erase tool writes its pid to
// the disk's marker in /run/vexostorage/secure_erase while it works (see
// disk_state.h); a marker left by an eraser that died does not count.
#include <vexohw/disk_state.h>
#include <vexoplatform/vexocore.h>

#include "disk/secure_erase_markers.h"
#include "frame/err.h"

extern "C" VEXO_API int VLIBDiskIsSecureErasing(const char *path)
try {
	if (!path) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return 0;
	}
	std::string marker = vexo::disk::secureEraseMarker(path);
	// Asking is not failing: keep the caller's error record as it was.
	// Places are compile-time strings: the pointer stays good.
	int code = VLIBCErrGet();
	const char *file = VLIBCErrFileGet();
	int line = VLIBCErrLineGet();
	int alive = VLIBCProcAliveByPidFile(marker.c_str());
	VLIBCErrSetEx(code, code || line ? file : nullptr, line);
	return alive == 1 ? 1 : 0;
} VEXO_C_CATCH(0)
