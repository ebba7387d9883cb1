// Disk lists: push at the end, remove by predicate, sort by unit and index.
#include <cerrno>
#include <cstdlib>
#include <utility>

#include <vexohw/disk.h>

#include "frame/err.h"

namespace {

// Unit rising; within a unit data disks before cache devices; then index.
bool after(const DiskInfo *a, const DiskInfo *b)
{
	if (a->id.unit != b->id.unit)
		return a->id.unit > b->id.unit;
	bool aCache = a->id.container == DISK_CONTAINER_CACHE;
	bool bCache = b->id.container == DISK_CONTAINER_CACHE;
	if (aCache != bCache)
		return aCache;
	return a->id.index > b->id.index;
}

} // namespace

extern "C" {

VEXO_API void DiskListPush(DiskListNode **head, DiskInfo *info)
try {
	if (!head || !info)
		return;
	auto *cell = static_cast<DiskListNode *>(std::calloc(1, sizeof(DiskListNode)));
	if (!cell) {
		vlog(LOG_ERR, "%s:%d Failed to allocate, errno=%m", VEXO_AT);
		// The list owns what it is given: a record it cannot hold is dropped.
		std::free(info);
		return;
	}
	cell->info = info;
	DiskListNode **tail = head;
	while (*tail)
		tail = &(*tail)->next;
	*tail = cell;
} VEXO_C_CATCH_VOID

VEXO_API int DiskListRemove(DiskListNode **head, int (*predicate)(DiskListNode *cell))
try {
	if (!head || !predicate)
		return 0;
	int kept = 0;
	DiskListNode **link = head;
	while (*link) {
		DiskListNode *cell = *link;
		if (predicate(cell)) {
			*link = cell->next;
			std::free(cell);
		} else {
			++kept;
			link = &cell->next;
		}
	}
	return kept;
} VEXO_C_CATCH(-1)

VEXO_API int VEXODiskSortByEboxIdAndDiskId(DiskListNode *head)
try {
	if (!head)
		return -1;
	// Bubble sort over the records, stable, ending on a pass without a swap.
	bool swapped = true;
	while (swapped) {
		swapped = false;
		for (DiskListNode *c = head; c->next; c = c->next) {
			if (c->info && c->next->info && after(c->info, c->next->info)) {
				std::swap(c->info, c->next->info);
				swapped = true;
			}
		}
	}
	return 0;
} VEXO_C_CATCH(-1)

} // extern "C"
