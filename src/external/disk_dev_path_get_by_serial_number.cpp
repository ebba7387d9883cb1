// Device paths of the disks that carry a serial.
#include <cstring>
#include <memory>
#include <vexohw/disk_enum.h>
#include <vexohw/disk_port.h>
#include <vexohw/disk_probe.h>

#include "frame/err.h"

namespace {

struct DiskListFree {
	void operator()(DiskListNode *list) const { DiskInfoEnumFree(list); }
};

} // namespace

extern "C" VEXO_API int VEXODiskDevPathGetBySerialNumber(const char *serial, PVLIBSZLIST *paths)
try {
	if (!serial || !*serial || !paths || !*paths) {
		vlog(LOG_ERR, "%s:%d Bad parameters", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	// Every container whose disks can answer for their serial.
	int32_t mask = DISK_CONTAINER_INTERNAL | DISK_CONTAINER_EBOX | DISK_CONTAINER_USB | DISK_CONTAINER_ESATA |
		       DISK_CONTAINER_CACHE | DISK_CONTAINER_SYS;
	DiskEnumFilter filter{&mask};
	DiskListNode *head = nullptr;
	if (DiskInfoEnum(&filter, &head) < 0) {
		vlog(LOG_ERR, "%s:%d Fail to enum", VEXO_AT);
		VEXO_ERR_PASS();
		return -1;
	}
	std::unique_ptr<DiskListNode, DiskListFree> list(head);
	for (DiskListNode *cell = head; cell; cell = cell->next) {
		if (!cell->info)
			continue;
		char found[128] = {};
		if (DiskSerialGet(cell->info->path, found, sizeof(found)) != 0) {
			vlog(LOG_ERR, "%s:%d Fail to get drive serial number from [%s]", VEXO_AT, cell->info->path);
			continue;
		}
		if (std::strcmp(found, serial) != 0)
			continue;
		if (VLIBCSzListPush(paths, cell->info->path) < 0) {
			vlog(LOG_ERR, "%s:%d Fail to push [%s] to list", VEXO_AT, cell->info->path);
			VEXO_ERR_PASS();
			return -1;
		}
	}
	return 0;
} VEXO_C_CATCH(-1)
