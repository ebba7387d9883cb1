// The shared lists of a temperature monitor: SharedDiskInfo records in
// DiskListNode cells, built from DiskInfoEnum and DiskInfoGet.
#include <cerrno>
#include <cstdlib>
#include <cstdio>
#include <cstring>

#include <vexohw/disk_enum.h>

#include "frame/err.h"

namespace {

// A cell's record as the shared record it is.
SharedDiskInfo *shared(DiskListNode *cell)
{
	return reinterpret_cast<SharedDiskInfo *>(cell->info);
}

} // namespace

extern "C" {

VEXO_API void SharedDiskListPush(DiskListNode **list, SharedDiskInfo *record)
try {
	DiskListPush(list, record ? &record->info : nullptr);
} VEXO_C_CATCH_VOID

VEXO_API void SharedDiskInfoEnumFree(DiskListNode **list)
try {
	if (!list)
		return;
	DiskInfoEnumFree(*list);
	*list = nullptr;
} VEXO_C_CATCH_VOID

VEXO_API int SharedDiskListTransform(DiskListNode **list, DiskListNode *disks)
try {
	if (!disks) {
		vlog(LOG_ERR, "%s:%d Wrong Parameter", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		SharedDiskInfoEnumFree(list);
		return -1;
	}
	if (!list) {
		vlog(LOG_ERR, "%s:%d Wrong Parameter", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	for (DiskListNode *c = disks; c; c = c->next) {
		if (!c->info)
			continue;
		auto *rec = static_cast<SharedDiskInfo *>(std::calloc(1, sizeof(SharedDiskInfo)));
		if (!rec) {
			vlog(LOG_ERR, "%s:%d Failed to calloc for pDisk in SharedDiskListTransform()", VEXO_AT);
			VEXO_ERR(VEXO_ERR_NOMEM);
			SharedDiskInfoEnumFree(list);
			return -1;
		}
		rec->info = *c->info;
		VEXODiskParseXmlOperatingTemp(VEXO_DISK_TEMPERATURE_XML, rec);
		rec->warningCountdown = 6;
		rec->warningTime = 0;
		rec->temperatureAbnormal = 0;
		SharedDiskListPush(list, rec);
	}
	return 0;
} VEXO_C_CATCH(-1)

VEXO_API int SharedDiskInfoEnum(DiskListNode **list, unsigned int mask)
try {
	int32_t m = static_cast<int32_t>(mask);
	DiskEnumFilter filter{&m};
	DiskListNode *disks = nullptr;
	int n = DiskInfoEnum(&filter, &disks);
	int rc = 0;
	if (n < 0 || (n > 0 && SharedDiskListTransform(list, disks) != 0)) {
		vlog(LOG_ERR, "%s:%d Failed to allocate list in SharedDiskInfoEnum, errno=0x%X.\n", VEXO_AT,
		     VLIBCErrGet());
		rc = -1;
	}
	DiskInfoEnumFree(disks);
	return rc;
} VEXO_C_CATCH(-1)

VEXO_API int SharedDiskInfoGet(const char *path, SharedDiskInfo **info)
try {
	if (!path || !info) {
		vlog(LOG_ERR, "%s:%d Wrong parameter", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	DiskInfo *disk = nullptr;
	if (DiskInfoGet(path, &disk) != 1) {
		vlog(LOG_ERR, "%s:%d Failed to get disk information %s", VEXO_AT, path);
		return -1;
	}
	auto *rec = static_cast<SharedDiskInfo *>(std::calloc(1, sizeof(SharedDiskInfo)));
	if (!rec) {
		vlog(LOG_ERR, "%s:%d Failed to calloc for %s, errno=%m", VEXO_AT, path);
		VEXO_ERR(VEXO_ERR_NOMEM);
		DiskInfoFree(disk);
		return -1;
	}
	rec->info = *disk;
	DiskInfoFree(disk);
	// The countdown goes on from where the document left it.
	VEXODiskParseXmlOperatingTemp(VEXO_DISK_TEMPERATURE_XML, rec);
	rec->warningTime = 0;
	rec->temperatureAbnormal = 0;
	*info = rec;
	return 0;
} VEXO_C_CATCH(-1)

VEXO_API int SharedDiskInfoNodeGetByPath(const char *path, DiskListNode *list, DiskListNode **cell)
try {
	if (!path || !list || !cell) {
		vlog(LOG_ERR, "%s:%d Wrong parameter", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	for (DiskListNode *c = list; c; c = c->next)
		if (c->info && std::strcmp(c->info->path, path) == 0) {
			*cell = c;
			return 0;
		}
	return -1;
} VEXO_C_CATCH(-1)

VEXO_API int SharedDiskInfoNodeAdd(const char *path, DiskListNode **list)
try {
	if (!path || !list) {
		vlog(LOG_ERR, "%s:%d Wrong parameter", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	SharedDiskInfo *rec = nullptr;
	if (SharedDiskInfoGet(path, &rec) != 0)
		return -1;
	SharedDiskListPush(list, rec);
	return 0;
} VEXO_C_CATCH(-1)

VEXO_API int SharedDiskInfoNodeDelete(const char *path, DiskListNode **list)
try {
	if (!path || !list) {
		vlog(LOG_ERR, "%s:%d Wrong parameter", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	for (DiskListNode **link = list; *link; link = &(*link)->next) {
		DiskListNode *c = *link;
		if (c->info && std::strcmp(c->info->path, path) == 0) {
			*link = c->next;
			std::free(c->info);
			std::free(c);
			return 0;
		}
	}
	return -1;
} VEXO_C_CATCH(-1)

VEXO_API int SharedResourceHandleCopy(DiskListNode *from, DiskListNode **to)
try {
	if (!from || !to) {
		vlog(LOG_ERR, "%s:%d Wrong parameter", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	for (DiskListNode *c = from; c; c = c->next) {
		if (!c->info)
			continue;
		auto *rec = static_cast<SharedDiskInfo *>(std::malloc(sizeof(SharedDiskInfo)));
		if (!rec) {
			vlog(LOG_ERR, "%s:%d Failed to calloc for pSharedDisk in SharedDiskListCopy()", VEXO_AT);
			VEXO_ERR(VEXO_ERR_NOMEM);
			SharedDiskInfoEnumFree(to);
			vlog(LOG_ERR, "%s:%d Failed to copy shareDiskList", VEXO_AT);
			return -1;
		}
		std::memcpy(rec, shared(c), sizeof(SharedDiskInfo));
		SharedDiskListPush(to, rec);
	}
	return 0;
} VEXO_C_CATCH(-1)

VEXO_API void SharedDiskInfoDebugPrint(DiskListNode *list)
try {
	for (DiskListNode *c = list; c; c = c->next) {
		if (!c->info)
			continue;
		const SharedDiskInfo *d = shared(c);
		char line[512];
		std::snprintf(line, sizeof(line), "Device: %s, Model: %sTemp. min/cur/max: %3d/%3d/%3d, Temp state: %s.",
			      d->info.path, d->info.model, d->temperatureMin, d->info.temperature, d->temperatureMax,
			      d->temperatureAbnormal ? "Abnormal" : "Normal");
		vlog(LOG_WARNING, "%s:%d [Debug] %s\n", VEXO_AT, line);
	}
} VEXO_C_CATCH_VOID

} // extern "C"
