// The writer of a disk's health history: this month's values, as the
// history reader reads them back, kept under the disk's true serial so they
// follow it from bay to bay.
#include <vexohw/disk_status.h>
#include <vexohw/ext.h>

#include "disk/overview_doc.h"
#include "frame/boundary.h"
#include "frame/err.h"
#include "frame/log.h"

extern "C" VEXO_API int VEXOExtDiskHealthHistoryRecord(const char *devicePath) try {
	if (!devicePath) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	DiskHealthAttr now{};
	if (VEXODiskCurHealthAttrGet(devicePath, &now) != 0) {
		vlog(LOG_ERR, "%s:%d VEXODiskCurHealthAttrGet failed on %s", VEXO_AT, devicePath);
		return -1;
	}
	return DiskXmlHealthHistoryRecord(devicePath, now);
} VEXO_C_CATCH(-1)
