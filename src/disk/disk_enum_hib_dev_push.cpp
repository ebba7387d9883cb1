// DiskEnumHibDevPush: the lists of sleeping disks that the snapshot writer
// must not wake.
#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include <vexohw/disk_enum.h>

#include "frame/err.h"

extern "C" {

VEXO_API int DiskEnumHibDevPush(const char *path, DiskEnumHibStatus *status, int kind)
try {
	if (!path) {
		vlog(LOG_ERR, "%s:%d szPath is NULL", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	if (!status) {
		vlog(LOG_ERR, "%s:%d hibernation list pHibInfo is NULL", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	auto *cell = static_cast<DiskHibDevNode *>(std::calloc(1, sizeof(DiskHibDevNode)));
	if (!cell) {
		vlog(LOG_ERR, "%s:%d fail to malloc pDevNodeNew", VEXO_AT);
		VEXO_ERR(VEXO_ERR_NOMEM);
		return -1;
	}
	std::snprintf(cell->path, sizeof(cell->path), "%s", path);
	DiskHibDevNode **tail = kind == DISK_HIB_KIND_EUNIT ? &status->eunitHibernating
			      : kind == DISK_HIB_KIND_USB   ? &status->usbHibernating
							    : nullptr;
	if (!tail) {
		std::free(cell);
		return 0;
	}
	while (*tail)
		tail = &(*tail)->next;
	*tail = cell;
	return 0;
} VEXO_C_CATCH(-1)

} // extern "C"
