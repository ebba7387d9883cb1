// The newest firmware the database knows for a model. Read with json-c, so
// model keys are tried in file order (the jsoncpp lookups try them sorted).
#include <cstring>
#include <string>
#include <vexohw/compat.h>

#include "disk/compat_db.h"
#include "frame/err.h"
#include "frame/jsonc.h"
#include "frame/text.h"

namespace {

// The model's node: the exact key, else the first key in file order that
// matches as a pattern.
json_object *modelNode(json_object *info, const char *model)
{
	json_object *exact = nullptr;
	if (json_object_object_get_ex(info, model, &exact))
		return exact;
	const std::string m(model);
	json_object_object_foreach(info, key, value)
	{
		if (vexo::compat::patternMatch(m, key))
			return value;
	}
	return nullptr;
}

} // namespace

extern "C" {

VEXO_API int VEXOJsonStringObjectGet(struct json_object *object, const char *key, char *out, int outSize)
try {
	if (!object || !key || !out || outSize <= 0) {
		vlog(LOG_ERR, "%s:%d Invalid parameters", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	json_object *member = nullptr;
	if (!json_object_is_type(object, json_type_object) || !json_object_object_get_ex(object, key, &member)) {
		VEXO_ERR(VEXO_ERR_NOT_FOUND);
		return -1;
	}
	const char *text = json_object_get_string(member);
	return VEXO_COPY_OUT(out, outSize, text ? text : "", key) ? 0 : -1;
} VEXO_C_CATCH(-1)

VEXO_API int VEXODiskCompatibilityLatestFWInfoGet(const char *model, const char *dbPath, DiskFirmInfo *info)
try {
	if (!model || !dbPath || !info) {
		vlog(LOG_ERR, "%s:%d Invalid parameters", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	vexo::jsonc::Value db = vexo::jsonc::readFile(dbPath, nullptr, 64u << 20);
	if (!db) {
		vlog(LOG_ERR, "%s:%d Failed to load Compatibility database %s", VEXO_AT, dbPath);
		VEXO_ERR(VEXO_ERR_READ);
		return -1;
	}
	json_object *all = vexo::jsonc::member(db.get(), "disk_compatbility_info", json_type_object);
	if (!all) {
		vlog(LOG_ERR, "%s:%d Failed to parse compatibility info from database", VEXO_AT);
		VEXO_ERR(VEXO_ERR_DB_KEY);
		return -1;
	}
	json_object *node = modelNode(all, model);
	if (!node || !json_object_is_type(node, json_type_object)) {
		vlog(LOG_ERR, "%s:%d Failed to get info of %s", VEXO_AT, model);
		VEXO_ERR(VEXO_ERR_NOT_FOUND);
		return -1;
	}
	const char *bestKey = nullptr;
	json_object *best = nullptr;
	int64_t bestBuild = 0;
	json_object_object_foreach(node, fw, entry)
	{
		if (std::strcmp(fw, "default") == 0)
			continue;
		std::optional<int64_t> build = vexo::jsonc::integer(entry, "fw_buildnumber");
		if (!build) {
			vlog(LOG_ERR, "%s:%d Failed to get fw_buildnumber of %s", VEXO_AT, fw);
			continue;
		}
		if (!best || *build > bestBuild) {
			best = entry;
			bestKey = fw;
			bestBuild = *build;
		}
	}
	if (!best) {
		vlog(LOG_ERR, "%s:%d Failed to get the lastest firmware version of %s", VEXO_AT, model);
		return 0;
	}
	std::optional<std::string_view> bin = vexo::jsonc::string(best, "firm_bin");
	if (!bin) {
		vlog(LOG_ERR, "%s:%d Failed to get the fw binary of %s from %s", VEXO_AT, bestKey, dbPath);
		VEXO_ERR(VEXO_ERR_DB_KEY);
		return -1;
	}
	if (std::strlen(bestKey) >= sizeof(info->firmware) || bin->size() >= sizeof(info->firm_bin) ||
	    bestBuild < INT32_MIN || bestBuild > INT32_MAX) {
		vlog(LOG_ERR, "%s:%d Firmware %s of %s does not fit", VEXO_AT, bestKey, model);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::memset(info, 0, sizeof(*info));
	vexo::copyText(info->firmware, bestKey);
	vexo::copyText(info->firm_bin, *bin);
	info->fw_buildnumber = static_cast<int>(bestBuild);
	return 1;
} VEXO_C_CATCH(-1)

} // extern "C"
