// What the user interface and the notifications may do with a disk: the
// disk's properties, the first rule of the rule file that they satisfy,
// and the actions of that rule kept in the disk's cache.
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>
#include <vexohw/compat.h>
#include <vexohw/compat_cache.h>
#include <vexohw/disk.h>
#include <vexohw/disk_port.h>
#include <vexohw/disk_probe.h>
#include <vexohw/disk_state.h>
#include <vexohw/frame.h>
#include <vexoplatform/vexocore.h>

#include "disk/compat_cache.h"
#include "disk/compat_db.h"
#include "frame/cache_keys.h"
#include "frame/err.h"
#include "frame/jsonc.h"
#include "frame/jsoncpp.h"
#include "frame/sysroot.h"

namespace {

// One table for the boolean actions: key, field and the default that holds
// where the rule does not say.
struct BoolAction {
	const char *key;
	int DiskCompatibilityAction::*field;
	int fallback;
};

constexpr BoolAction kBoolActions[] = {
	{"notification", &DiskCompatibilityAction::notification, 1},
	{"selectable", &DiskCompatibilityAction::selectable, 1},
	{"alert", &DiskCompatibilityAction::alert, 1},
	{"hide_is4Kn", &DiskCompatibilityAction::hide_is4Kn, 0},
	{"hide_serial", &DiskCompatibilityAction::hide_serial, 0},
	{"hide_temperature", &DiskCompatibilityAction::hide_temperature, 0},
	{"hide_unc", &DiskCompatibilityAction::hide_unc, 0},
	{"hide_remain_life", &DiskCompatibilityAction::hide_remain_life, 0},
	{"hide_sb_days_left", &DiskCompatibilityAction::hide_sb_days_left, 0},
	{"hide_alloc_status", &DiskCompatibilityAction::hide_alloc_status, 0},
	{"show_lifetime_chart", &DiskCompatibilityAction::show_lifetime_chart, 1},
	{"send_health_report", &DiskCompatibilityAction::send_health_report, 1},
	{"notify_unc", &DiskCompatibilityAction::notify_unc, 1},
	{"notify_lifetime", &DiskCompatibilityAction::notify_lifetime, 1},
	{"notify_health_status", &DiskCompatibilityAction::notify_health_status, 1},
	{"can_select_after_fwupgrade", &DiskCompatibilityAction::can_select_after_fwupgrade, 0},
};

void setDefaults(DiskCompatibilityAction &a)
{
	std::memset(&a, 0, sizeof(a));
	for (const BoolAction &b : kBoolActions)
		a.*b.field = b.fallback;
	std::snprintf(a.ui_compatibility, sizeof(a.ui_compatibility), "%s", "not_in_support");
}

std::string compact(const Json::Value &v)
{
	Json::StreamWriterBuilder b;
	b["indentation"] = "";
	return Json::writeString(b, v);
}

// A rule's value as text: strings as they are, scalars in their JSON
// form; arrays and objects never match.
std::optional<std::string> valueText(const Json::Value &v)
{
	if (v.isString())
		return v.asString();
	if (v.isBool() || v.isNumeric() || v.isNull())
		return compact(v);
	return std::nullopt;
}

// "/dev/sda" -> "sda"; empty when that is no one cache folder.
std::string shortName(const char *disk)
{
	std::string name;
	return vexo::compatcache::shortName(disk, name) ? name : std::string();
}

bool ruleHolds(const Json::Value &properties, const Json::Value &rule)
{
	const Json::Value *prop = vexo::jsoncpp::member(rule, "property");
	const Json::Value *pos = prop ? vexo::jsoncpp::member(*prop, "positive") : nullptr;
	const Json::Value *neg = prop ? vexo::jsoncpp::member(*prop, "negative") : nullptr;
	if (!pos || !neg || !pos->isObject() || !neg->isObject()) {
		vlog(LOG_ERR, "%s:%d wrong format rule [%s]", VEXO_AT, compact(rule).c_str());
		return false;
	}
	for (auto it = pos->begin(); it != pos->end(); ++it) {
		std::optional<std::string> v = valueText(*it);
		if (!v || !VEXODiskRulePropertyMatch(&properties, it.name().c_str(), v->c_str()))
			return false;
	}
	for (auto it = neg->begin(); it != neg->end(); ++it) {
		std::optional<std::string> v = valueText(*it);
		if (v && VEXODiskRulePropertyMatch(&properties, it.name().c_str(), v->c_str()))
			return false;
	}
	return true;
}

const char *protocolWord(const char *disk)
{
	if (VEXODiskIsSata(disk) == 1)
		return "SATA";
	switch (VEXODiskScsiProtocolGet(disk)) {
	case 1:
		return "SATA";
	case 0:
		return "NONE";
	case 2:
		return "SAS";
	case 3:
		return "NVME";
	default:
		return "";
	}
}

bool hostDbPath(std::string &out)
{
	char model[256] = {};
	if (VLIBCFileGetKeyValue("/etc.defaults/vexoinfo.conf", "upnpmodelname", model, sizeof(model), 0) < 1 ||
	    VLIBCStrCaseLower(model) != 0 || VLIBCStrTrimSpace(model) != 0)
		return false;
	out = std::string(VEXO_COMPAT_DB_DIR) + model + "_host" + VEXO_COMPAT_DB_SUFFIX;
	return true;
}

// The cached per-disk integer; nullopt when it is not there.
std::optional<int> cachedInt(const char *disk, const char *key)
{
	int v = 0;
	if (VEXODiskGetIntValueCacheFile(disk, key, &v) != 0)
		return std::nullopt;
	return v;
}

bool refreshIgnorable(const char *disk)
{
	char model[128], firmware[64], dbPath[1024], version[32];
	int yes = 1;
	if (GetCompatibilityBasicInfo(disk, model, sizeof(model), firmware, sizeof(firmware), &yes, dbPath,
				      sizeof(dbPath), &yes, version, sizeof(version)) != 1) {
		vlog(LOG_ERR, "%s:%d Failed to get information of [%s]", VEXO_AT, disk);
		return false;
	}
	int strict = 0;
	Json::Value interval;
	int test = 0, attr = 0;
	if (GetBehaviorFromDiskCompatibilityInfo(dbPath, model, firmware, version, &strict, &interval) == 0) {
		test = vexo::jsoncpp::getOr(interval, "smart_test_ignore", false) ? 1 : 0;
		attr = vexo::jsoncpp::getOr(interval, "smart_attr_ignore", false) ? 1 : 0;
	}
	std::string name = shortName(disk);
	if (name.empty()) {
		vlog(LOG_ERR, "%s:%d Failed to get device name form [%s]", VEXO_AT, disk);
		return false;
	}
	bool ok = true;
	for (auto [key, value] : {std::pair{VEXO_COMPAT_SMART_TEST_IGNORE_KEY, test},
				  std::pair{VEXO_COMPAT_SMART_ATTR_IGNORE_KEY, attr}}) {
		if (VEXODiskUpdateIntValueCacheFile(name.c_str(), key, value) != 0) {
			vlog(LOG_ERR, "%s:%d Failed to save the result [%s] [%d] for [%s]", VEXO_AT, key, value, disk);
			ok = false;
		}
	}
	return ok;
}

int ignorable(const char *disk, const char *key)
{
	if (!disk) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return 0;
	}
	if (std::optional<int> v = cachedInt(disk, key))
		return *v == 1;
	if (!refreshIgnorable(disk)) {
		vlog(LOG_ERR, "%s:%d Failed to update Smart ignorable cache form DB for [%s]", VEXO_AT, disk);
		return 0;
	}
	std::optional<int> v = cachedInt(disk, key);
	if (!v) {
		vlog(LOG_ERR, "%s:%d Failed to get [%s] cache for [%s]", VEXO_AT, key, disk);
		return 0;
	}
	return *v == 1;
}

} // namespace

extern "C" {

VEXO_API int VEXODiskRulePropertyMatch(const void *properties, const char *key, const char *value)
try {
	if (!properties || !key || !value)
		return 0;
	const Json::Value *p = vexo::jsoncpp::member(*static_cast<const Json::Value *>(properties), key);
	if (!p || !p->isString())
		return 0;
	const char *b = nullptr, *e = nullptr;
	if (!p->getString(&b, &e))
		return 0;
	std::size_t n = std::strlen(value);
	return static_cast<std::size_t>(e - b) == n && std::memcmp(b, value, n) == 0;
} VEXO_C_CATCH(0)

VEXO_API int VEXODiskPropertyGet(const char *disk, void *properties)
try {
	if (!disk || !properties) {
		vlog(LOG_ERR, "%s:%d Invalid parameters", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return 0;
	}
	Json::Value p(Json::objectValue);
	int port = VEXODiskPortCheck(disk);
	if (port == DISK_PORT_TYPE_EBOX) {
		std::string host;
		if (!hostDbPath(host)) {
			vlog(LOG_ERR, "%s:%d failed to get host db path", VEXO_AT);
			vlog(LOG_ERR, "%s:%d Failed to get host compatibility by path %s", VEXO_AT, disk);
		} else {
			int s = VEXODiskCompatibilityByPathGet(disk, host.c_str());
			p["host_compatibility"] =
				vexo::compat::statusString(s == VEXO_DISK_COMPATIBILITY_FORBIDDEN ? 3 : s);
		}
	}
	char text[256] = {};
	if (VEXODiskGetStrValueCacheFile(disk, "compatibility", text, sizeof(text)) == 0) {
		std::string c(text);
		while (!c.empty() && (c.back() == '\n' || c.back() == ' '))
			c.pop_back();
		p["compatibility"] = c == "forbidden" ? "not_support" : c;
	} else {
		vlog(LOG_ERR, "%s:%d Failed to get compatibility cache of %s", VEXO_AT, disk);
	}
	char vendor[128] = {};
	if (VEXOLnxDiskGetVendor(disk, vendor, sizeof(vendor)) == 0) {
		VLIBCStrTrimSpace(vendor);
		p["vendor"] = vendor;
	} else {
		vlog(LOG_ERR, "%s:%d Failed to get vendor of %s", VEXO_AT, disk);
	}
	p["protocol"] = protocolWord(disk);
	if (port != DISK_PORT_TYPE_CACHE) {
		char size[64] = {};
		if (VEXODiskFormFactorSizeGet(disk, size, sizeof(size)) == 0)
			p["formfactor_size"] = size;
		else if (VLIBCErrGet() != VEXO_ERR_WRONG_IFACE)
			vlog(LOG_ERR, "%s:%d Failed to get form factor size of %s", VEXO_AT, disk);
	}
	std::memset(text, 0, sizeof(text));
	if (VEXODiskGetStrValueCacheFile(disk, "type", text, sizeof(text)) == 0) {
		std::string t(text);
		while (!t.empty() && (t.back() == '\n' || t.back() == ' '))
			t.pop_back();
		p["type"] = t;
	}
	*static_cast<Json::Value *>(properties) = std::move(p);
	return 1;
} VEXO_C_CATCH(0)

VEXO_API int VEXODiskActionCacheUpdate(const char *disk)
try {
	Json::Value props;
	if (!disk || !VEXODiskPropertyGet(disk, &props)) {
		vlog(LOG_ERR, "%s:%d Failed to get disk properties of %s", VEXO_AT, disk ? disk : "(null)");
		return -1;
	}
	const char *rulePath = vexo::compat::rulePathOf(disk);
	vexo::compat::LoadFail why = vexo::compat::LoadFail::None;
	std::shared_ptr<const Json::Value> doc = vexo::compat::ruleFile(rulePath, &why);
	const Json::Value *rules = doc ? vexo::jsoncpp::member(*doc, "rules") : nullptr;
	if (!rules) {
		if (why == vexo::compat::LoadFail::Missing)
			vlog(LOG_ERR, "%s:%d File %s does not exist", VEXO_AT, rulePath);
		else
			vlog(LOG_ERR, "%s:%d wrong format of rule file: %s [%s]", VEXO_AT, rulePath,
			     doc ? compact(*doc).substr(0, 512).c_str() : "");
		vlog(LOG_ERR, "%s:%d Failed to get disk rules for disk %s", VEXO_AT, disk);
		return -1;
	}
	if (!rules->isArray()) {
		vlog(LOG_ERR, "%s:%d Invalid json type for disk %s", VEXO_AT, disk);
		return -1;
	}
	if (rules->empty()) {
		vlog(LOG_ERR, "%s:%d wrong format of %s", VEXO_AT, rulePath);
		return -1;
	}
	// No rule holding means the last one: the file's unconditional fallback.
	Json::ArrayIndex chosen = rules->size() - 1;
	for (Json::ArrayIndex i = 0; i < rules->size(); ++i) {
		if (ruleHolds(props, (*rules)[i])) {
			chosen = i;
			break;
		}
	}
	const Json::Value *actions = vexo::jsoncpp::member((*rules)[chosen], "actions");
	if (!actions || !actions->isObject()) {
		vlog(LOG_ERR, "%s:%d failed to get actions for %s", VEXO_AT, disk);
		return -1;
	}
	std::string name = shortName(disk);
	std::string text = compact(*actions);
	if (name.empty() || VEXODiskUpdateStrValueCacheFile(name.c_str(), VEXO_COMPAT_ACTION_KEY, text.c_str()) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to disk %s cache file %s", VEXO_AT, disk, VEXO_COMPAT_ACTION_KEY);
		vlog(LOG_ERR, "%s:%d Failed to record %s's %s cache file", VEXO_AT, disk, VEXO_COMPAT_ACTION_KEY);
		return -1;
	}
	return 0;
} VEXO_C_CATCH(-1)

VEXO_API int VEXODiskCompatibilityActionGet(const char *disk, DiskCompatibilityAction *action)
try {
	if (!disk || !action) {
		vlog(LOG_ERR, "%s:%d Invalid inputed parameter", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	setDefaults(*action);
	std::string name = shortName(disk);
	if (name.empty()) {
		vlog(LOG_ERR, "%s:%d Invalid inputed parameter", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::string path = std::string(vexo::cache::kDisksDir) + "/" + name + "/" + VEXO_COMPAT_ACTION_KEY;
	for (int attempt = 1; vexo::sysroot::access(path.c_str(), F_OK) != 0; ++attempt) {
		if (attempt > 3)
			return -1;
		vlog(LOG_ERR, "%s:%d File %s does not exist, regen %d time", VEXO_AT, path.c_str(), attempt);
		if (VEXODiskCompatibilityCacheUpdateAndChecker(disk) == 0) {
			vlog(LOG_ERR, "%s:%d File %s regen success", VEXO_AT, path.c_str());
			break;
		}
	}
	vexo::ReadFail why{};
	vexo::jsonc::Value doc = vexo::jsonc::readFile(path.c_str(), &why);
	if (!doc || !json_object_is_type(doc.get(), json_type_object)) {
		vlog(LOG_ERR, "%s:%d Failed to parse %s", VEXO_AT, path.c_str());
		VEXO_ERR(VEXO_ERR_READ);
		return -1;
	}
	for (const BoolAction &b : kBoolActions)
		if (std::optional<bool> v = vexo::jsonc::boolean(doc.get(), b.key))
			action->*b.field = *v ? 1 : 0;
	if (std::optional<std::string_view> ui = vexo::jsonc::string(doc.get(), "ui_compatibility"))
		std::snprintf(action->ui_compatibility, sizeof(action->ui_compatibility), "%.*s",
			      static_cast<int>(ui->size()), ui->data());
	return 0;
} VEXO_C_CATCH(-1)

VEXO_API int VEXODiskSmartTestResultIgnorable(const char *disk)
try {
	return ignorable(disk, VEXO_COMPAT_SMART_TEST_IGNORE_KEY);
} VEXO_C_CATCH(0)

VEXO_API int VEXODiskSmartAttributeIgnorable(const char *disk)
try {
	return ignorable(disk, VEXO_COMPAT_SMART_ATTR_IGNORE_KEY);
} VEXO_C_CATCH(0)

} // extern "C"
