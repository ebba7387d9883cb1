// VEXODiskDevPathGetById: the device path of the disk at a DiskId.
#include <vexohw/disk_enum.h>
#include <vexohw/disk_port.h>

#include "external/text_out.h"
#include "frame/err.h"

extern "C" {

VEXO_API int VEXODiskDevPathGetById(const DiskId *id, char *path, int size)
try {
	if (!id || !path || size <= 0) {
		vlog(LOG_ERR, "%s:%d Bad parameters", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	int32_t mask = DISK_CONTAINER_MASK_ALL_SYS;
	DiskEnumFilter filter{&mask};
	DiskListNode *list = nullptr;
	if (DiskInfoEnum(&filter, &list) < 0) {
		vlog(LOG_ERR, "%s:%d Failed to enum disks", VEXO_AT);
		VEXO_ERR_PASS();
		return -1;
	}
	int rc = -1;
	const DiskListNode *c = list;
	for (; c; c = c->next)
		if (c->info && c->info->id.index == id->index && c->info->id.container == id->container &&
		    c->info->id.unit == id->unit)
			break;
	if (c)
		rc = VEXO_PUT_TEXT(path, size, "%s", c->info->path);
	else {
		vlog(LOG_ERR, "%s:%d Failed to found corresponding DISK_ID", VEXO_AT);
		VEXO_ERR(VEXO_ERR_UNKNOWN_DEVICE);
	}
	DiskInfoEnumFree(list);
	return rc;
} VEXO_C_CATCH(-1)

} // extern "C"
