// String lists: an ordered, growable array of owned C strings.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vexoplatform/vexocore.h>

#include "frame/err.h"

namespace {

// Grows the cell array to hold at least `need` items; the list may move.
bool reserve(PVLIBSZLIST *pList, int need)
{
	PVLIBSZLIST list = *pList;
	if (need <= list->nAlloc)
		return true;
	int cap = list->nAlloc > 0 ? list->nAlloc : 1;
	while (cap < need) {
		if (cap > (1 << 28)) {
			VEXO_ERR(VEXO_ERR_LIST_ALLOC);
			return false;
		}
		cap *= 2;
	}
	auto **cells = static_cast<char **>(std::realloc(list->ppszItem, sizeof(char *) * static_cast<size_t>(cap)));
	if (!cells) {
		VEXO_ERR(VEXO_ERR_LIST_ALLOC);
		return false;
	}
	std::fill(cells + list->nAlloc, cells + cap, nullptr);
	list->ppszItem = cells;
	list->nAlloc = cap;
	return true;
}

} // namespace

extern "C" {

VEXOP_API PVLIBSZLIST VLIBCSzListAlloc(int capacity)
try {
	if (capacity < 1)
		capacity = 1;
	auto *list = static_cast<PVLIBSZLIST>(std::calloc(1, sizeof(VLIBSZLIST)));
	auto **cells = static_cast<char **>(std::calloc(static_cast<size_t>(capacity), sizeof(char *)));
	if (!list || !cells) {
		std::free(list);
		std::free(cells);
		VEXO_ERR(VEXO_ERR_LIST_ALLOC);
		return nullptr;
	}
	list->nAlloc = capacity;
	list->ppszItem = cells;
	return list;
} VEXO_C_CATCH(nullptr)

VEXOP_API void VLIBCSzListClear(PVLIBSZLIST list)
try {
	if (!list)
		return;
	for (int i = 0; i < list->nItem; ++i) {
		std::free(list->ppszItem[i]);
		list->ppszItem[i] = nullptr;
	}
	list->nItem = 0;
} VEXO_C_CATCH_VOID

VEXOP_API void VLIBCSzListFree(PVLIBSZLIST list)
try {
	if (!list)
		return;
	VLIBCSzListClear(list);
	std::free(list->ppszItem);
	std::free(list);
} VEXO_C_CATCH_VOID

VEXOP_API int VLIBCSzListPush(PVLIBSZLIST *pList, const char *item)
try {
	if (!pList || !*pList || !item) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	if (!reserve(pList, (*pList)->nItem + 1)) {
		VEXO_ERR_PASS();
		return -1;
	}
	char *copy = strdup(item);
	if (!copy) {
		VEXO_ERR(VEXO_ERR_LIST_ALLOC);
		return -1;
	}
	PVLIBSZLIST list = *pList;
	list->ppszItem[list->nItem] = copy;
	return list->nItem++;
} VEXO_C_CATCH(-1)

VEXOP_API const char *VLIBCSzListGet(PVLIBSZLIST list, int index)
try {
	if (!list || index < 0 || index >= list->nItem)
		return nullptr;
	return list->ppszItem[index];
} VEXO_C_CATCH(nullptr)

VEXOP_API int VLIBCSzListFind(PVLIBSZLIST list, const char *item)
try {
	if (!list || !item)
		return -1;
	for (int i = 0; i < list->nItem; ++i)
		if (std::strcmp(list->ppszItem[i], item) == 0)
			return i;
	return -1;
} VEXO_C_CATCH(-1)

VEXOP_API int VLIBCSzListRemove(PVLIBSZLIST list, int index)
try {
	if (!list || index < 0 || index >= list->nItem) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::free(list->ppszItem[index]);
	std::memmove(list->ppszItem + index, list->ppszItem + index + 1,
		     sizeof(char *) * static_cast<size_t>(list->nItem - index - 1));
	list->ppszItem[--list->nItem] = nullptr;
	return 0;
} VEXO_C_CATCH(-1)

VEXOP_API int VLIBCSzListSortItems(PVLIBSZLIST list, int ascending)
try {
	if (!list) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::stable_sort(list->ppszItem, list->ppszItem + list->nItem, [ascending](const char *a, const char *b) {
		int c = std::strcmp(a, b);
		return ascending ? c < 0 : c > 0;
	});
	return 0;
} VEXO_C_CATCH(-1)

VEXOP_API int VLIBCSzListSplit(PVLIBSZLIST *pList, const char *text, const char *delims)
try {
	if (!pList || !*pList || !text || !delims) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	int added = 0;
	const char *p = text;
	while (*p) {
		size_t skip = std::strspn(p, delims);
		p += skip;
		size_t len = std::strcspn(p, delims);
		if (len == 0)
			break;
		char *field = strndup(p, len);
		if (!field) {
			VEXO_ERR(VEXO_ERR_LIST_ALLOC);
			return -1;
		}
		int r = VLIBCSzListPush(pList, field);
		std::free(field);
		if (r < 0) {
			VEXO_ERR_PASS();
			return -1;
		}
		++added;
		p += len;
	}
	return added;
} VEXO_C_CATCH(-1)

} // extern "C"
