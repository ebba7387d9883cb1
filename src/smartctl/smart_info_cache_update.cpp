// Writes a disk's attribute list to its cache file: a JSON array of
// [id, name, value, worst, threshold, raw, status] arrays. Writers take the
// disk's lock file; the file is written whole under a temporary name and
// renamed in place, so readers need no lock.
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vexohw/frame.h>
#include <vexohw/smart_info.h>
#include <vexoplatform/vexocore.h>

#include "frame/cache_keys.h"
#include "frame/err.h"
#include "frame/file_lock.h"
#include "frame/priv.h"
#include "frame/sysroot.h"
#include "frame/unique.h"
#include "smartctl/smart_info_list.h"

namespace {

using vexo::smart::UniqueJson;


bool addString(json_object *arr, const char *s)
{
	json_object *o = json_object_new_string(s ? s : "");
	if (!o)
		return false;
	if (json_object_array_add(arr, o) != 0) {
		json_object_put(o);
		return false;
	}
	return true;
}

UniqueJson toJson(const SmartInfoEntry *list)
{
	UniqueJson root(json_object_new_array());
	if (!root)
		return nullptr;
	for (const SmartInfoEntry *e = list; e; e = e->next) {
		UniqueJson item(json_object_new_array());
		if (!item)
			return nullptr;
		for (const char *s : {e->id, e->name, e->value, e->worst, e->threshold, e->raw})
			if (!addString(item.get(), s))
				return nullptr;
		json_object *status = json_object_new_int(static_cast<int32_t>(e->status));
		if (!status)
			return nullptr;
		if (json_object_array_add(item.get(), status) != 0) {
			json_object_put(status);
			return nullptr;
		}
		if (json_object_array_add(root.get(), item.get()) != 0)
			return nullptr;
		item.release();
	}
	return root;
}

// Writes text to path, whole, and closes it. False on any failure.
bool writeWhole(const std::string &path, std::string_view text)
{
	vexo::UniqueFd fd(vexo::sysroot::create(path.c_str(), O_TRUNC, 0644));
	if (!fd)
		return false;
	if (VLIBCWrite(fd.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size()))
		return false;
	return ::close(fd.release()) == 0;
}

} // namespace

extern "C" VEXO_API int SmartInfoCacheUpdate(const char *name, const SmartInfoEntry *list)
try {
	if (!vexo::cache::isNameComponent(name)) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	ENTERCriticalSection;
	UniqueJson json = toJson(list);
	const char *text = json ? json_object_to_json_string_ext(json.get(), JSON_C_TO_STRING_PLAIN) : nullptr;
	if (!text) {
		vlog(LOG_ERR, "%s:%d Out of memory", VEXO_AT);
		VEXO_ERR(VEXO_ERR_LIST_ALLOC);
		return -1;
	}
	const std::string dir = std::string(vexo::cache::kDisksDir) + "/" + name + "/";
	vexo::FileLock lock;
	if (!lock.take((dir + vexo::smart::kCacheLock).c_str(), vexo::smart::kCacheLockSeconds)) {
		vlog(LOG_ERR, "%s:%d Failed to lock %s%s", VEXO_AT, dir.c_str(), vexo::smart::kCacheLock);
		VEXO_ERR(VEXO_ERR_LOCK);
		return -1;
	}
	const std::string tmp = dir + vexo::smart::kCacheTmp, file = dir + vexo::smart::kCacheFile;
	if (!writeWhole(tmp, text)) {
		vlog(LOG_ERR, "%s:%d Failed to write %s. errno=%m", VEXO_AT, tmp.c_str());
		vexo::sysroot::unlink(tmp.c_str());
		VEXO_ERR(VEXO_ERR_WRITE);
		return -1;
	}
	if (vexo::sysroot::rename(tmp.c_str(), file.c_str()) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to rename %s to %s. errno=%m", VEXO_AT, tmp.c_str(), file.c_str());
		vexo::sysroot::unlink(tmp.c_str());
		VEXO_ERR(vexo::smart::kErrRename);
		return -1;
	}
	if (VEXODiskUpdateLLIntValueCacheFile(name, vexo::smart::kCacheStamp, vexo::smart::coarseMonotonicSeconds()) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to update %s of %s", VEXO_AT, vexo::smart::kCacheStamp, name);
		VEXO_ERR(VEXO_ERR_WRITE);
		return -1;
	}
	// The list is in place: a lock that will not let go does not undo that.
	if (!lock.release()) {
		vlog(LOG_ERR, "%s:%d Failed to unlock %s%s", VEXO_AT, dir.c_str(), vexo::smart::kCacheLock);
		VEXO_ERR(VEXO_ERR_UNLOCK);
	}
	return 0;
} VEXO_C_CATCH(-1)
