// The firmware status of one disk: the current firmware's entry against the
// newer entries of its model, at the running system version and at the
// versions of a pending update or promotion.
#include <cstdio>
#include <cstring>
#include <json/json.h>
#include <string>
#include <vector>
#include <vexohw/fw_status.h>
#include <vexohw/disk.h>
#include <vexohw/disk_probe.h>
#include <vexohw/drive_bundle.h>
#include <vexohw/misc.h>
#include <vexohw/smart_serial.h>
#include <vexoplatform/vexocore.h>

#include "disk/compat_db.h"
#include "disk/disk_model_whole.h"
#include "disk/fw_status.h"
#include "disk/fw_status_imp.h"
#include "frame/err.h"

namespace vexo::fwstatus {
namespace {

void copyField(char *dst, size_t size, const std::string &src) { std::snprintf(dst, size, "%s", src.c_str()); }

// The compatibility of an entry at a version ("" = no such version: 0).
bool compatibilityAt(const Json::Value &node, const std::string &version, const Json::Value *mapping, int32_t &out)
{
	out = 0;
	if (version.empty())
		return true;
	int status = 0;
	if (!vexo::compat::statusOfNode(node, version, mapping, status)) {
		vlog(LOG_ERR, "%s:%d get compatibility err", VEXO_AT);
		return false;
	}
	out = status;
	return true;
}

// One entry as a candidate; false (logged) when it lacks its build number or
// binary name, or a compatibility cannot be had.
bool readCandidate(const Json::Value &node, const std::string &key, const Versions &v, const Json::Value *mapping,
		   FirmwareCandidate &c)
{
	c = FirmwareCandidate{};
	const Json::Value &build = node["fw_buildnumber"];
	const Json::Value &bin = node["firm_bin"];
	if (!build.isInt() || !bin.isString()) {
		Json::StreamWriterBuilder w;
		w["indentation"] = "";
		vlog(LOG_ERR, "%s:%d Invalid json format: %s", VEXO_AT, Json::writeString(w, node).c_str());
		return false;
	}
	c.build = build.asInt();
	copyField(c.firmBin, sizeof c.firmBin, bin.asString());
	copyField(c.firmware, sizeof c.firmware, key);
	return compatibilityAt(node, v.running, mapping, c.compatibleNow) &&
	       compatibilityAt(node, v.update, mapping, c.compatibleAtUpdate) &&
	       compatibilityAt(node, v.promotion, mapping, c.compatibleAtPromotion);
}

bool atPending(const FirmwareCandidate &c) { return c.compatibleAtUpdate == 1 || c.compatibleAtPromotion == 1; }

// GetCompatibilityBasicInfo's model and version beside a revision already
// known: the kernel's model text and the system file, no drive command.
bool basicWithKept(const char *disk, const char *kept, char *model, size_t modelSize, char *firmware,
		   size_t firmwareSize, char *version, size_t versionSize)
{
	char m[128] = {};
	unsigned int base = 0, nano = 0;
	if (VEXOLnxDiskGetModel(disk, m, sizeof m) != 0 || VEXOVOSVerGet(&base, &nano) != 0)
		return false;
	VLIBCStrTrimSpace(m);
	std::string whole;
	vexo::disk::wholeModel(VEXODiskDevPrefixSkip(disk), m, whole);
	copyField(model, modelSize, whole);
	copyField(firmware, firmwareSize, kept);
	std::snprintf(version, versionSize, "%u.%u", base, nano);
	return model[0] && firmware[0];
}

} // namespace

bool candidateBetter(const FirmwareCandidate &c, const FirmwareCandidate &best)
{
	if (c.compatibleNow == 1 && best.compatibleNow != 1)
		return !(best.available && !c.available);
	if (c.compatibleNow != 1 && !atPending(c))
		return false;
	if (c.compatibleNow != 1 && best.compatibleNow == 1)
		return false;
	if (!c.available && best.available)
		return false;
	return c.build > best.build;
}

int decideForDisk(const char *disk, const char *dbPath, int useGivenVersions, const char *updateVersion,
		  const char *promotionVersion, DiskFirmInfo *info, Versions &v, const char *keptFirmware)
{
	v = Versions{};
	if (!disk || !info || VEXODiskIsVexology(disk) < 1)
		return 0;
	if (!useGivenVersions) {
		int hasU = 0, hasP = 0;
		char u[32] = {}, p[32] = {};
		if (VEXOFirmStatusVOSUpgradeCacheGet(&hasU, u, sizeof u, &hasP, p, sizeof p) != 0) {
			vlog(LOG_WARNING, "%s:%d Fail to get VOS version", VEXO_AT);
		} else {
			v.update = hasU ? u : "";
			v.promotion = hasP ? p : "";
		}
	} else {
		v.update = updateVersion ? updateVersion : "";
		v.promotion = promotionVersion ? promotionVersion : "";
	}

	char model[128] = {}, firmware[64] = {}, version[32] = {};
	const int no = 0, yes = 1;
	bool failed = false;
	bool hasEntry = false;
	FirmwareCandidate current{}, best{};
	if (keptFirmware ? !basicWithKept(disk, keptFirmware, model, sizeof model, firmware, sizeof firmware, version,
					  sizeof version)
			 : !GetCompatibilityBasicInfo(disk, model, sizeof model, firmware, sizeof firmware, &no, nullptr, 0,
						      &yes, version, sizeof version)) {
		vlog(LOG_ERR, "%s:%d Failed to get basic info of %s", VEXO_AT, disk);
		failed = true;
	}
	v.running = version;

	std::shared_ptr<const vexo::compat::Database> db;
	if (!failed) {
		Copy copy = refreshServerCopy();
		int serverBuild = copy == Copy::Present ? serverBuildOf(model) : -1;
		vexo::compat::LoadFail why = vexo::compat::LoadFail::None;
		db = dbPath ? vexo::compat::database(dbPath, &why) : nullptr;
		// A database that cannot be read raises no firmware alarm.
		failed = !db;
		const Json::Value *modelNode = db ? db->modelNode(model) : nullptr;
		const Json::Value *curNode =
			modelNode ? vexo::compat::Database::firmwareNode(*modelNode, firmware, true) : nullptr;
		hasEntry = curNode != nullptr;
		if (modelNode && curNode) {
			const Json::Value *mapping = db->mapping();
			if (!readCandidate(*curNode, firmware, v, mapping, current)) {
				vlog(LOG_ERR, "%s:%d Fail to get tmp firmware node", VEXO_AT);
				failed = true;
			}
			const auto entries = failed ? std::vector<vexo::compat::FirmwareEntry>{} : db->firmwareEntries(model);
			for (const auto &e : entries) {
				if (e.firmware == "default" || !e.hasBuildNumber || e.buildNumber <= current.build)
					continue;
				FirmwareCandidate c{};
				if (!readCandidate(*e.node, e.firmware, v, mapping, c)) {
					vlog(LOG_ERR, "%s:%d Fail to get tmp firmware node", VEXO_AT);
					failed = true;
					break;
				}
				if (copy == Copy::Present && serverBuild >= c.build)
					c.available = 1;
				else
					c.available = e.hasFirmBin && VEXODriveBundleFWUpgradeFirmwareBinaryValidate(e.firmBin.c_str()) == 1;
				if (candidateBetter(c, best))
					best = c;
			}
		}
	}
	if (failed) {
		vlog(LOG_ERR, "%s:%d Failed to get compatibility list of %s", VEXO_AT, disk);
		return 0;
	}
	const int status = DiskFirmStatusDecide(hasEntry, &current, &best);
	if (status == 0)
		return 0;
	std::memset(info, 0, sizeof *info);
	switch (status) {
	case VEXO_FW_STATUS_NEW_FIRM_AVAILABLE:
	case VEXO_FW_STATUS_UPDATE_FIRM:
		info->fw_buildnumber = best.build;
		copyField(info->firmware, sizeof info->firmware, best.firmware);
		copyField(info->firm_bin, sizeof info->firm_bin, best.firmBin);
		break;
	case VEXO_FW_STATUS_UPDATE_VOS: {
		const FirmwareCandidate &by = atPending(current) ? current : best;
		info->updateVosSuggested = by.compatibleAtUpdate == 1;
		info->promoteVosSuggested = by.compatibleAtPromotion == 1;
		break;
	}
	case VEXO_FW_STATUS_UPDATE_DB:
	case VEXO_FW_STATUS_NO_CANDIDATE:
		break;
	default:
		vlog(LOG_WARNING, "%s:%d Use correct firmware status to get related update info", VEXO_AT);
	}
	return status;
}

} // namespace vexo::fwstatus

extern "C" {

VEXO_API int SBDiskFirmStatusAndUpdateInfoGetByDbPath(const char *disk, const char *dbPath, int useGivenVersions,
						      const char *updateVersion, const char *promotionVersion,
						      DiskFirmInfo *info)
try {
	vexo::fwstatus::Versions v;
	return vexo::fwstatus::decideForDisk(disk, dbPath, useGivenVersions, updateVersion, promotionVersion, info, v);
} VEXO_C_CATCH(0)

VEXO_API int VEXOSBDiskFirmStatusAndUpdateInfoGet(const char *disk, int useGivenVersions, const char *updateVersion,
						  const char *promotionVersion, DiskFirmInfo *info)
try {
	char dbPath[1024] = {};
	if (VEXODiskCompatibilityDBPathGet(disk, dbPath, sizeof dbPath) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to get database path on %s", VEXO_AT, disk ? disk : "(null)");
		return 0;
	}
	return SBDiskFirmStatusAndUpdateInfoGetByDbPath(disk, dbPath, useGivenVersions, updateVersion,
							promotionVersion, info);
} VEXO_C_CATCH(0)

VEXO_API int VEXOFirmStatusVOSUpgradeCacheGet(int *hasUpdate, char *updateVersion, int updateSize, int *hasPromotion,
					      char *promotionVersion, int promotionSize)
try {
	if (!hasUpdate || !updateVersion || !hasPromotion || !promotionVersion || updateSize < 1 ||
	    promotionSize < 1) {
		vlog(LOG_ERR, "%s:%d Invalid input parameter", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	VOSUpdateInfo u{}, p{};
	if (VEXODiskMiscVOSUpdateInfoGet(&u, &p) != 0)
		return -1;
	*hasUpdate = u.available ? 1 : 0;
	*hasPromotion = p.available ? 1 : 0;
	if (*hasUpdate)
		std::snprintf(updateVersion, static_cast<size_t>(updateSize), "%d.%d", u.buildnumber, u.nano);
	if (*hasPromotion)
		std::snprintf(promotionVersion, static_cast<size_t>(promotionSize), "%d.%d", p.buildnumber, p.nano);
	return 0;
} VEXO_C_CATCH(-1)

} // extern "C"
