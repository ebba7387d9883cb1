// DiskInfoEnum and the release of its lists.
#include <cstdlib>

#include <vexohw/disk_enum.h>

#include "disk/disk_info_walk.h"
#include "frame/err.h"

extern "C" {

VEXO_API int DiskInfoEnum(DiskEnumFilter *filter, DiskListNode **list)
try {
	return vexo::disk::collect(filter, list, nullptr);
} VEXO_C_CATCH(-1)

VEXO_API void DiskInfoEnumFree(DiskListNode *list)
try {
	while (list) {
		DiskListNode *next = list->next;
		std::free(list->info);
		std::free(list);
		list = next;
	}
} VEXO_C_CATCH_VOID

} // extern "C"
