// VEXODriveBundleModelConfGet: the bundle settings of a drive model, from
// the drive attribute database.
#include <cstdint>
#include <cstring>
#include <json-c/json.h>
#include <optional>
#include <vexohw/attr_db.h>
#include <vexohw/drive_bundle.h>

#include "frame/err.h"
#include "frame/jsonc.h"
#include "frame/text.h"
#include "smartctl/attr_db.h"

namespace {

// A text member; "" when missing, nullopt when of another type.
std::optional<std::string_view> text(json_object *o, const char *key)
{
	json_object *m = nullptr;
	if (!json_object_object_get_ex(o, key, &m) || !m)
		return std::string_view();
	if (!json_object_is_type(m, json_type_string))
		return std::nullopt;
	return std::string_view(json_object_get_string(m), static_cast<size_t>(json_object_get_string_len(m)));
}

// A number member; 0 when missing, nullopt when not a number.
std::optional<long long> number(json_object *o, const char *key)
{
	json_object *m = nullptr;
	if (!json_object_object_get_ex(o, key, &m) || !m)
		return 0;
	if (json_object_is_type(m, json_type_string) && json_object_get_string_len(m) == 0)
		return 0;
	return vexo::attrdb::number(o, key);
}

} // namespace

extern "C" VEXO_API int VEXODriveBundleModelConfGet(const char *path, DriveBundleModelConf *conf)
try {
	if (!path || !conf) {
		vlog(LOG_ERR, "%s:%d bad parameter", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	json_object *raw = nullptr;
	int r = VEXOAttrDBGetByDisk(path, &raw);
	vexo::jsonc::Value entry(raw);
	if (r != 0)
		return r < 0 ? -1 : 1;
	json_object *o = entry.get();
	DriveBundleModelConf c{};
	bool ok = true;
	if (auto yes = text(o, "is_bundle"))
		c.isBundle = *yes == "yes" || *yes == "true" || *yes == "1";
	else if (auto n = number(o, "is_bundle"))
		c.isBundle = *n != 0;
	else
		ok = false;
	struct Text {
		const char *key;
		char *out;
		size_t size;
	} texts[] = {{"available_firmware", c.availableFirmware, sizeof(c.availableFirmware)},
		     {"available_firmware_binary", c.availableFirmwareBinary, sizeof(c.availableFirmwareBinary)},
		     {"bundle_smart_attrs", c.bundleSmartAttrs, sizeof(c.bundleSmartAttrs)},
		     {"bundle_reserve_1", c.bundleReserve1, sizeof(c.bundleReserve1)}};
	for (const Text &t : texts) {
		auto v = text(o, t.key);
		// A text longer than its buffer is a damaged entry, not one to cut.
		ok = ok && v && vexo::copyText(t.out, t.size, *v);
	}
	struct Num {
		const char *key;
		long long *out;
	};
	long long mask = 0, order = 0, later = 0, thr = 0, avg = 0;
	const Num nums[] = {{"mask", &mask},		  {"order", &order},	       {"later_bad_block_count", &later},
			    {"bad_block_cnt_thr", &thr}, {"avg_erase_count", &avg}};
	for (const Num &n : nums) {
		auto v = number(o, n.key);
		ok = ok && v && *v >= INT32_MIN && *v <= UINT32_MAX;
		if (v)
			*n.out = *v;
	}
	if (!ok) {
		vlog(LOG_ERR, "%s:%d Bad drive bundle settings of %s in %s", VEXO_AT, path, VEXO_ATTR_DB_PATH);
		VEXO_ERR(VEXO_ERR_READ);
		return -1;
	}
	if (!c.isBundle)
		return 2;
	c.mask = static_cast<unsigned>(mask);
	c.order = static_cast<int>(order);
	c.laterBadBlockCount = static_cast<unsigned>(later);
	c.badBlockCntThr = static_cast<unsigned>(thr);
	c.avgEraseCount = static_cast<unsigned>(avg);
	*conf = c;
	return 0;
}
VEXO_C_CATCH(-1)
