// The keys of the per-disk value cache and the disks that have one.
#include <algorithm>
#include <dirent.h>
#include <iterator>
#include <string>
#include <vector>

#include <vexohw/ext.h>

#include "frame/boundary.h"
#include "frame/cache_keys.h"
#include "frame/err.h"
#include "frame/sysroot.h"

extern "C" VEXO_API const char *VEXOExtCacheKeyGet(int index, int *type)
{
	using vexo::cache::KeyType;
	if (index < 0 || index >= static_cast<int>(std::size(vexo::cache::kKeys)))
		return nullptr;
	const auto &k = vexo::cache::kKeys[index];
	if (type)
		*type = k.type == KeyType::Int ? VEXO_EXT_CACHE_INT : k.type == KeyType::LLInt ? VEXO_EXT_CACHE_LLINT
											 : VEXO_EXT_CACHE_STR;
	// Every name is a literal, so its view ends at a NUL.
	return k.name.data();
}

extern "C" VEXO_API int VEXOExtCacheDiskListGet(PVLIBSZLIST *names) try {
	if (!names || !*names) {
		vlog(LOG_ERR, "%s:%d Bad parameters", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::vector<std::string> found;
	if (DIR *d = vexo::sysroot::opendir(vexo::cache::kDisksDir)) {
		while (const dirent *e = ::readdir(d))
			if (e->d_name[0] != '.')
				found.emplace_back(e->d_name);
		::closedir(d);
	}
	std::sort(found.begin(), found.end());
	for (const auto &n : found)
		if (VLIBCSzListPush(names, n.c_str()) < 0) {
			VEXO_ERR_PASS();
			return -1;
		}
	return static_cast<int>(found.size());
} VEXO_C_CATCH(-1)
