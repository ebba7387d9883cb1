// The verdict of a drive: the database's word for its model, firmware and
// system version, then the firmware override that tells the user to
// upgrade instead of calling the drive incompatible.
#include <cstdio>
#include <cstring>
#include <string>
#include <vexohw/compat.h>
#include <vexohw/disk.h>
#include <vexohw/disk_probe.h>
#include <vexohw/fw_status.h>
#include <vexohw/misc.h>
#include <vexohw/smart_serial.h>
#include <vexohw/smart_status.h>
#include <vexoplatform/vexocore.h>

#include "disk/compat_db.h"
#include "disk/disk_model_whole.h"
#include "frame/err.h"
#include "frame/text.h"


namespace vexo::compat {

namespace {

constexpr int kNotInSupport = VEXO_DISK_COMPATIBILITY_NOT_IN_SUPPORT;
constexpr const char *kVersionFile = "/etc.defaults/VERSION";

struct Basic {
	char model[128] = {};
	char firmware[64] = {};
	char dbPath[1024] = {};
	char version[32] = {};
};

bool basicInfo(const char *disk, Basic &b, bool wantDbPath, bool wantVersion)
{
	int wd = wantDbPath, wv = wantVersion;
	return GetCompatibilityBasicInfo(disk, b.model, sizeof(b.model), b.firmware, sizeof(b.firmware), &wd, b.dbPath,
					 sizeof(b.dbPath), &wv, b.version, sizeof(b.version)) == 1;
}

// Steps shared by the lookups: the database, the model's node and the
// firmware entry. Null (logged) on failure.
const Json::Value *findEntry(const char *dbPath, const char *model, const char *firmware, bool strict,
			     std::shared_ptr<const Database> &db, const Json::Value **modelOut)
{
	LoadFail why = LoadFail::None;
	db = database(dbPath, &why);
	switch (why) {
	case LoadFail::None:
		break;
	case LoadFail::Missing:
		vlog(LOG_ERR, "%s:%d Compatibility database %s is not exist", VEXO_AT, dbPath);
		return nullptr;
	case LoadFail::Unreadable:
	case LoadFail::NotObject:
		vlog(LOG_ERR, "%s:%d Invalid json type of %s", VEXO_AT, dbPath);
		return nullptr;
	case LoadFail::NoInfo:
		vlog(LOG_ERR, "%s:%d Invalid json format of lacking disk_compatbility_info", VEXO_AT);
		return nullptr;
	}
	const Json::Value *m = db->modelNode(model);
	if (modelOut)
		*modelOut = m;
	if (!m || !m->isObject())
		return nullptr;
	if (!strict && !m->isMember(firmware) && !m->isMember("default")) {
		vlog(LOG_ERR, "%s:%d No matched firmware", VEXO_AT);
		return nullptr;
	}
	return Database::firmwareNode(*m, firmware, strict);
}

// The version of the running system, "%u.%u".
bool runningVersion(unsigned int &base, unsigned int &nano)
{
	if (VEXOVOSVerGet(&base, &nano) != 0) {
		vlog(LOG_ERR, "%s:%d Fail to get vos version from %s", VEXO_AT, kVersionFile);
		return false;
	}
	return true;
}

// Steps 5 to 7 of a verdict: the lookup and the firmware override.
int verdict(const char *disk, const Basic &b, const char *dbPath, unsigned int base, unsigned int nano, bool health)
{
	char version[32];
	std::snprintf(version, sizeof(version), "%d.%d", static_cast<int>(base), static_cast<int>(nano));
	int strict = 0;
	int c = GetCompatibilityFromDiskCompatibilityInfo(dbPath, b.model, b.firmware, version, &strict, nullptr,
							  nullptr, nullptr);
	DiskFirmInfo info{};
	const int f = SBDiskFirmStatusAndUpdateInfoGetByDbPath(disk, dbPath, 0, nullptr, nullptr, &info);
	if (c != VEXO_DISK_COMPATIBILITY_NOT_SUPPORT || (f != 3 && f != 5))
		return c;
	if (f == 5)
		return VEXO_DISK_COMPATIBILITY_SUPPORT;
	if (!health)
		return VEXO_DISK_COMPATIBILITY_FW_UPGRADE_REQUIRED;
	// A failing drive is not told that new firmware would help.
	int weight = 0;
	int overview = SmartOverviewStatusCacheGet(disk, &weight);
	return overview == 3 || overview == 4 ? VEXO_DISK_COMPATIBILITY_SUPPORT
					      : VEXO_DISK_COMPATIBILITY_FW_UPGRADE_REQUIRED;
}

int entry(const char *disk, bool versionGiven, unsigned int base, unsigned int nano, int force, bool health)
{
	if (!versionGiven && !runningVersion(base, nano))
		return VEXO_DISK_COMPATIBILITY_UNKNOWN;
	if (!disk) {
		vlog(LOG_ERR, "%s:%d Invalid argument", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return VEXO_DISK_COMPATIBILITY_UNKNOWN;
	}
	if (!force && !VLIBCSupportDiskCompatibility())
		return VEXO_DISK_COMPATIBILITY_DISABLED;
	Basic b;
	if (!basicInfo(disk, b, true, false)) {
		vlog(LOG_ERR, "%s:%d Failed to get basic info of %s", VEXO_AT, disk);
		return VEXO_DISK_COMPATIBILITY_UNKNOWN;
	}
	return verdict(disk, b, b.dbPath, base, nano, health);
}

} // namespace

} // namespace vexo::compat

using namespace vexo::compat;

extern "C" {

VEXO_API int GetCompatibilityBasicInfo(const char *disk, char *model, int modelSize, char *firmware, int firmwareSize,
				       const int *wantDbPath, char *dbPath, int dbPathSize, const int *wantVersion,
				       char *version, int versionSize)
try {
	bool wantDb = wantDbPath && *wantDbPath;
	bool wantVer = wantVersion && *wantVersion;
	if (!disk || !model || modelSize <= 0 || !firmware || firmwareSize <= 0 ||
	    (wantDb && (!dbPath || dbPathSize <= 0)) || (wantVer && (!version || versionSize <= 0))) {
		vlog(LOG_ERR, "%s:%d Invalid parameters", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return 0;
	}
	char m[128] = {}, fw[64] = {};
	if (VEXOLnxDiskGetModel(disk, m, sizeof(m)) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to get model of %s", VEXO_AT, disk);
		VEXO_ERR_PASS();
		return 0;
	}
	VLIBCStrTrimSpace(m);
	// The kernel may show only the 16-byte INQUIRY product field; database
	// keys are whole models.
	std::string whole;
	vexo::disk::wholeModel(VEXODiskDevPrefixSkip(disk), m, whole);
	if (whole.size() < sizeof(m))
		vexo::copyText(m, whole);
	if (SmartFirmwareGet(disk, fw, sizeof(fw)) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to get firmware of %s", VEXO_AT, disk);
		VEXO_ERR_PASS();
		return 0;
	}
	VLIBCStrTrimSpace(fw);
	std::string path, ver;
	if (wantDb && !dbPathOf(disk, VEXO_COMPAT_DB_DIR, path)) {
		vlog(LOG_ERR, "%s:%d Failed to get database path of %s", VEXO_AT, disk);
		return 0;
	}
	if (wantVer) {
		unsigned int base = 0, nano = 0;
		if (VEXOVOSVerGet(&base, &nano) != 0) {
			vlog(LOG_ERR, "%s:%d Fail to get vos version from %s", VEXO_AT, "/etc.defaults/VERSION");
			return 0;
		}
		ver = std::to_string(base) + "." + std::to_string(nano);
	}
	// Outputs only on success: check every size before writing any.
	if (std::strlen(m) >= static_cast<std::size_t>(modelSize) ||
	    std::strlen(fw) >= static_cast<std::size_t>(firmwareSize) ||
	    (wantDb && path.size() >= static_cast<std::size_t>(dbPathSize)) ||
	    (wantVer && ver.size() >= static_cast<std::size_t>(versionSize))) {
		vlog(LOG_ERR, "%s:%d Buffer too small for basic info of %s", VEXO_AT, disk);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return 0;
	}
	vexo::copyText(model, modelSize, m);
	vexo::copyText(firmware, firmwareSize, fw);
	if (wantDb)
		vexo::copyText(dbPath, dbPathSize, path);
	if (wantVer)
		vexo::copyText(version, versionSize, ver);
	return 1;
} VEXO_C_CATCH(0)

VEXO_API int GetCompatibilityByNode(const void *firmwareNode, const char *version, const void *dbMapping,
				    int *status)
try {
	if (!firmwareNode || !version || !status) {
		vlog(LOG_ERR, "%s:%d Invalid parameters", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return 0;
	}
	int s = kNotInSupport;
	if (!statusOfNode(*static_cast<const Json::Value *>(firmwareNode), version,
			  static_cast<const Json::Value *>(dbMapping), s))
		return 0;
	*status = s;
	return 1;
} VEXO_C_CATCH(0)

VEXO_API int GetCompatibilityFromDiskCompatibilityInfo(const char *dbPath, const char *model, const char *firmware,
						       const char *version, const int *strict, void *dbMapping,
						       void *modelNode, void *firmwareNode)
try {
	if (!dbPath || !model || !firmware || !version)
		return kNotInSupport;
	std::shared_ptr<const Database> db;
	const Json::Value *m = nullptr;
	const Json::Value *fw = findEntry(dbPath, model, firmware, strict && *strict, db, &m);
	if (db && db->mapping() && dbMapping)
		*static_cast<Json::Value *>(dbMapping) = *db->mapping();
	if (m && modelNode)
		*static_cast<Json::Value *>(modelNode) = *m;
	if (!fw) {
		if (m)
			vlog(LOG_ERR, "%s:%d Failed to get default time line for disk model %s firmware %s", VEXO_AT,
			     model, firmware);
		return kNotInSupport;
	}
	if (firmwareNode)
		*static_cast<Json::Value *>(firmwareNode) = *fw;
	int status = kNotInSupport;
	if (!statusOfNode(*fw, version, db->mapping(), status)) {
		vlog(LOG_ERR, "%s:%d Failed to get compatiblity by node for disk model %s firmware %s", VEXO_AT, model,
		     firmware);
		return kNotInSupport;
	}
	return status;
} VEXO_C_CATCH(kNotInSupport)

VEXO_API int GetBehaviorFromDiskCompatibilityInfo(const char *dbPath, const char *model, const char *firmware,
						  const char *version, const int *strict, void *interval)
try {
	if (!dbPath || !model || !firmware || !version || !interval) {
		vlog(LOG_ERR, "%s:%d Invalid parameters", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::shared_ptr<const Database> db;
	const Json::Value *m = nullptr;
	const Json::Value *fw = findEntry(dbPath, model, firmware, strict && *strict, db, &m);
	if (!fw) {
		if (m)
			vlog(LOG_ERR, "%s:%d Failed to get default time line for disk model %s firmware %s", VEXO_AT,
			     model, firmware);
		return -1;
	}
	int idx = intervalIndex(*fw, version);
	if (idx < 0)
		return -1;
	*static_cast<Json::Value *>(interval) = (*fw)["compatibility_interval"][static_cast<Json::ArrayIndex>(idx)];
	return 0;
} VEXO_C_CATCH(-1)

VEXO_API int VEXODiskCompatibilityGet(const char *disk, int force)
try {
	return entry(disk, false, 0, 0, force, true);
} VEXO_C_CATCH(0)

VEXO_API int VEXODiskCompatibilityGetWithoutHealthStatus(const char *disk, int force)
try {
	return entry(disk, false, 0, 0, force, false);
} VEXO_C_CATCH(0)

VEXO_API int VEXODiskCompatibilityByVerGet(const char *disk, unsigned int base, unsigned int nano, int force)
try {
	return entry(disk, true, base, nano, force, true);
} VEXO_C_CATCH(0)

VEXO_API int VEXODiskCompatibilityByPathGet(const char *disk, const char *dbPath)
try {
	if (!disk || !dbPath) {
		vlog(LOG_ERR, "%s:%d Invalid inputed parameter", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return VEXO_DISK_COMPATIBILITY_UNKNOWN;
	}
	Basic b;
	if (!basicInfo(disk, b, false, false)) {
		vlog(LOG_ERR, "%s:%d Failed to get basic info of %s", VEXO_AT, disk);
		return VEXO_DISK_COMPATIBILITY_UNKNOWN;
	}
	unsigned int base = 0, nano = 0;
	if (!runningVersion(base, nano))
		return VEXO_DISK_COMPATIBILITY_UNKNOWN;
	return verdict(disk, b, dbPath, base, nano, true);
} VEXO_C_CATCH(0)

} // extern "C"
