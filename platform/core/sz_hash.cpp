// String hashes: an ordered key -> value map of owned C strings. Lookups
// are linear; the maps the library builds hold tens of keys.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vexoplatform/vexocore.h>

#include "frame/err.h"

namespace {

int findKey(PVLIBSZHASH hash, const char *key)
{
	for (int i = 0; i < hash->nItem; ++i)
		if (std::strcmp(hash->ppszKey[i], key) == 0)
			return i;
	return -1;
}

bool reserve(PVLIBSZHASH hash, int need)
{
	if (need <= hash->nAlloc)
		return true;
	int cap = hash->nAlloc > 0 ? hash->nAlloc : 1;
	while (cap < need) {
		if (cap > (1 << 28))
			return false;
		cap *= 2;
	}
	auto **keys = static_cast<char **>(std::realloc(hash->ppszKey, sizeof(char *) * static_cast<size_t>(cap)));
	if (!keys)
		return false;
	hash->ppszKey = keys;
	auto **values = static_cast<char **>(std::realloc(hash->ppszValue, sizeof(char *) * static_cast<size_t>(cap)));
	if (!values)
		return false;
	hash->ppszValue = values;
	std::fill(keys + hash->nAlloc, keys + cap, nullptr);
	std::fill(values + hash->nAlloc, values + cap, nullptr);
	hash->nAlloc = cap;
	return true;
}

} // namespace

extern "C" {

VEXOP_API PVLIBSZHASH VLIBCSzHashAlloc(int capacity)
try {
	if (capacity < 1)
		capacity = 1;
	auto *hash = static_cast<PVLIBSZHASH>(std::calloc(1, sizeof(VLIBSZHASH)));
	auto **keys = static_cast<char **>(std::calloc(static_cast<size_t>(capacity), sizeof(char *)));
	auto **values = static_cast<char **>(std::calloc(static_cast<size_t>(capacity), sizeof(char *)));
	if (!hash || !keys || !values) {
		std::free(hash);
		std::free(keys);
		std::free(values);
		VEXO_ERR(VEXO_ERR_LIST_ALLOC);
		return nullptr;
	}
	hash->nAlloc = capacity;
	hash->ppszKey = keys;
	hash->ppszValue = values;
	return hash;
} VEXO_C_CATCH(nullptr)

VEXOP_API void VLIBCSzHashClear(PVLIBSZHASH hash)
try {
	if (!hash)
		return;
	for (int i = 0; i < hash->nItem; ++i) {
		std::free(hash->ppszKey[i]);
		std::free(hash->ppszValue[i]);
		hash->ppszKey[i] = hash->ppszValue[i] = nullptr;
	}
	hash->nItem = 0;
} VEXO_C_CATCH_VOID

VEXOP_API void VLIBCSzHashFree(PVLIBSZHASH hash)
try {
	if (!hash)
		return;
	VLIBCSzHashClear(hash);
	std::free(hash->ppszKey);
	std::free(hash->ppszValue);
	std::free(hash);
} VEXO_C_CATCH_VOID

VEXOP_API int VLIBCSzHashSetValue(PVLIBSZHASH *pHash, const char *key, const char *value)
try {
	if (!pHash || !*pHash || !key || !value) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	PVLIBSZHASH hash = *pHash;
	char *v = strdup(value);
	if (!v) {
		VEXO_ERR(VEXO_ERR_LIST_ALLOC);
		return -1;
	}
	int at = findKey(hash, key);
	if (at >= 0) {
		std::free(hash->ppszValue[at]);
		hash->ppszValue[at] = v;
		return 0;
	}
	char *k = strdup(key);
	if (!k || !reserve(hash, hash->nItem + 1)) {
		std::free(k);
		std::free(v);
		VEXO_ERR(VEXO_ERR_LIST_ALLOC);
		return -1;
	}
	hash->ppszKey[hash->nItem] = k;
	hash->ppszValue[hash->nItem] = v;
	++hash->nItem;
	return 0;
} VEXO_C_CATCH(-1)

VEXOP_API const char *VLIBCSzHashGetValue(PVLIBSZHASH hash, const char *key)
try {
	if (!hash || !key)
		return nullptr;
	int at = findKey(hash, key);
	return at >= 0 ? hash->ppszValue[at] : nullptr;
} VEXO_C_CATCH(nullptr)

VEXOP_API int VLIBCSzHashRemoveKey(PVLIBSZHASH hash, const char *key)
try {
	if (!hash || !key)
		return -1;
	int at = findKey(hash, key);
	if (at < 0)
		return -1;
	std::free(hash->ppszKey[at]);
	std::free(hash->ppszValue[at]);
	size_t tail = sizeof(char *) * static_cast<size_t>(hash->nItem - at - 1);
	std::memmove(hash->ppszKey + at, hash->ppszKey + at + 1, tail);
	std::memmove(hash->ppszValue + at, hash->ppszValue + at + 1, tail);
	--hash->nItem;
	hash->ppszKey[hash->nItem] = hash->ppszValue[hash->nItem] = nullptr;
	return 0;
} VEXO_C_CATCH(-1)

} // extern "C"
