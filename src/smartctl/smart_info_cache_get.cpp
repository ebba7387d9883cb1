// Reads a disk's cached attribute list. No lock: the writer renames a
// finished file into place, so the file is always whole.
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <vexohw/frame.h>
#include <vexohw/smart_info.h>
#include <vexoplatform/vexocore.h>

#include "frame/cache_keys.h"
#include "frame/err.h"
#include "frame/sysroot.h"
#include "frame/unique.h"
#include "smartctl/smart_info_list.h"

namespace vexo::smart {

// Far above any real list (30 attributes of about 100 bytes).
constexpr size_t kMaxCacheBytes = 1 << 20;

namespace {

const char *stringItem(json_object *item, size_t index)
{
	json_object *o = json_object_array_get_idx(item, index);
	if (!o || !json_object_is_type(o, json_type_string))
		return nullptr;
	return json_object_get_string(o);
}

// -1 when the item is not one of the three statuses.
int statusItem(json_object *item, size_t index)
{
	json_object *o = json_object_array_get_idx(item, index);
	if (!o || !json_object_is_type(o, json_type_int))
		return -1;
	int64_t v = json_object_get_int64(o);
	return v >= SMART_ATTR_STATUS_GOOD && v <= SMART_ATTR_STATUS_FAILING_NOW ? static_cast<int>(v) : -1;
}

} // namespace

int smartInfoCacheParse(std::string_view text, SmartInfoEntry **out)
{
	*out = nullptr;
	// Bytes other than white space after the document make it a damaged
	// file, not a list.
	jsonc::ParseFail why = jsonc::ParseFail::None;
	UniqueJson root = jsonc::parseWhole(text, &why);
	if (why == jsonc::ParseFail::NoMemory) {
		VEXO_ERR(VEXO_ERR_LIST_ALLOC);
		return -1;
	}
	if (!root || !json_object_is_type(root.get(), json_type_array) || json_object_array_length(root.get()) == 0) {
		VEXO_ERR(VEXO_ERR_FOPEN);
		return -1;
	}
	ListBuilder list;
	for (size_t i = json_object_array_length(root.get()); i-- > 0;) {
		json_object *item = json_object_array_get_idx(root.get(), i);
		if (!json_object_is_type(item, json_type_array) || json_object_array_length(item) != kCacheItems) {
			VEXO_ERR(VEXO_ERR_READ);
			return -1;
		}
		const char *s[6];
		for (size_t k = 0; k < 6; ++k)
			if (!(s[k] = stringItem(item, k))) {
				VEXO_ERR(VEXO_ERR_NOT_FOUND);
				return -1;
			}
		int status = statusItem(item, 6);
		if (status < 0) {
			VEXO_ERR(VEXO_ERR_NOT_FOUND);
			return -1;
		}
		SmartInfoEntry *e = newEntry(s[0], s[1], s[2], s[3], s[4], s[5]);
		if (!e) {
			VEXO_ERR(VEXO_ERR_LIST_ALLOC);
			return -1;
		}
		e->status = static_cast<uint32_t>(status);
		list.prepend(e);
	}
	*out = list.release();
	return 0;
}

} // namespace vexo::smart

extern "C" VEXO_API int SmartInfoCacheGet(const char *name, SmartInfoEntry **list)
try {
	if (list)
		*list = nullptr;
	if (!name || !*name || !list || std::strchr(name, '/') || !std::strcmp(name, ".") || !std::strcmp(name, "..")) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	const std::string file = std::string(vexo::cache::kDisksDir) + "/" + name + "/" + vexo::smart::kCacheFile;
	vexo::UniqueFd fd(vexo::sysroot::open(file.c_str(), O_RDONLY | O_CLOEXEC));
	struct stat st {};
	if (!fd || ::fstat(fd.get(), &st) != 0 || !S_ISREG(st.st_mode) ||
	    static_cast<unsigned long long>(st.st_size) > vexo::smart::kMaxCacheBytes) {
		VEXO_ERR(VEXO_ERR_FOPEN);
		return -1;
	}
	const size_t size = static_cast<size_t>(st.st_size);
	vexo::UniqueMalloc<char> text(static_cast<char *>(std::malloc(size + 1)));
	if (!text) {
		VEXO_ERR(VEXO_ERR_LIST_ALLOC);
		return -1;
	}
	ssize_t n = VLIBCRead(fd.get(), text.get(), size);
	if (n < 0) {
		VEXO_ERR(VEXO_ERR_FOPEN);
		return -1;
	}
	if (vexo::smart::smartInfoCacheParse(std::string_view(text.get(), static_cast<size_t>(n)), list) != 0) {
		VEXO_ERR_PASS();
		return -1;
	}
	return 0;
} VEXO_C_CATCH(-1)
