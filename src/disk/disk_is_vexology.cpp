// Whether a disk is one of the maker's own drives, as the disk action
// database names its vendor.
#include <vexohw/disk_state.h>
#include <vexohw/smart_serial.h>

#include "frame/err.h"

extern "C" VEXO_API int VEXODiskIsVexology(const char *path)
try {
	if (!path) {
		vlog(LOG_ERR, "%s:%d Invalide input parameters", VEXO_AT);
		return 0;
	}
	return VEXODiskConfigVendorMatch(path, "Vexology") ? 1 : 0;
} VEXO_C_CATCH(0)
