// Finding the firmware the present drives need, by the compatibility
// database's firmware entries and the firmware status rules, and fetching
// what the box does not hold yet.
#include <cctype>
#include <climits>
#include <cstdio>
#include <map>
#include <string>
#include <vexohw/compat.h>
#include <vexohw/disk_probe.h>
#include <vexohw/drive_bundle.h>
#include <vexohw/fw_status.h>

#include "disk/disk_model_whole.h"
#include "disk/disk_power.h"
#include "disk/fw_status_imp.h"
#include "drive_bundle/drive_bundle_private.h"
#include "frame/err.h"
#include "frame/priv.h"
#include "frame/sysroot.h"

using namespace vexo::bundle;

namespace {

constexpr const char *kDiskActionDir = "/var/lib/drive-bundle/diskaction/";
constexpr const char *kFwTmp = "/var/lib/drive-bundle/fw-tmp/";

// One firmware to have on the box: a model at a build, and the binary the
// database names for it.
struct Wanted {
	std::string model, firmware, firmBin;
	int build = 0;
	int drives = 0;
	bool onBox = false;
};

// The drives whose firmware status names a newer firmware, by model and
// build ("model\tbuild"), and how many drives that is. A drive whose model
// cannot be read is left out, logged; false when the box names no database.
bool neededFirmware(PVLIBSZLIST drives, const std::string &dbDir, std::map<std::string, Wanted> &out, int &needed,
		    int &ready)
{
	needed = ready = 0;
	for (int i = 0; i < drives->nItem; ++i) {
		const char *d = VLIBCSzListGet(drives, i);
		char db[PATH_MAX] = "";
		if (VEXODiskCompatibilityDBPathGetByDir(d, dbDir.c_str(), db, sizeof(db)) != 0) {
			vlog(LOG_ERR, "%s:%d Failed to get database path on %s", VEXO_AT, d);
			return false;
		}
		// Taking firmware needs no drive awake: a sleeping one is judged by
		// the revision its cache keeps, and never woken.
		std::string kept;
		const bool asleep = vexo::disk::powerMode(d) == vexo::disk::PowerMode::Standby;
		if (asleep && (!diskCacheGet(d, "firm", kept) || kept.empty())) {
			vlog(LOG_WARNING, "%s:%d %s sleeps and has no firmware revision kept, skipped", VEXO_AT, d);
			continue;
		}
		DiskFirmInfo info{};
		vexo::fwstatus::Versions used;
		const int status = vexo::fwstatus::decideForDisk(d, db, 0, nullptr, nullptr, &info, used,
								 asleep ? kept.c_str() : nullptr);
		// Only these two name a firmware to take; the others ask for the
		// system, the database or nothing.
		if (status != VEXO_FW_STATUS_NEW_FIRM_AVAILABLE && status != VEXO_FW_STATUS_UPDATE_FIRM)
			continue;
		// The model as the database keys it, without a second word to the drive.
		char shortModel[128] = "";
		std::string model;
		if (VEXOLnxDiskGetModel(d, shortModel, sizeof(shortModel)) == 0) {
			VLIBCStrTrimSpace(shortModel);
			vexo::disk::wholeModel(devName(d).c_str(), shortModel, model);
		}
		if (model.empty() || !info.firm_bin[0]) {
			vlog(LOG_ERR, "%s:%d Failed to get models", VEXO_AT);
			continue;
		}
		const std::string key = model + "\t" + std::to_string(info.fw_buildnumber);
		auto [it, fresh] = out.try_emplace(key);
		Wanted &w = it->second;
		if (fresh) {
			w.model = model;
			w.firmware = info.firmware;
			w.firmBin = info.firm_bin;
			w.build = info.fw_buildnumber;
			w.onBox = VEXODriveBundleFWUpgradeFirmwareBinaryValidate(info.firm_bin) == 1;
		}
		++w.drives;
		++needed;
		ready += w.onBox;
	}
	return true;
}

// neededFirmware over the maker's drives present now; false (logged) when
// they cannot be listed or judged.
bool presentDrivesNeed(const std::string &dbDir, std::map<std::string, Wanted> &out, int &needed, int &ready)
{
	ListOwner drives{VLIBCSzListAlloc(16)};
	if (!drives.l || VEXODriveBundleDiskEnum(&drives.l) < 0) {
		vlog(LOG_ERR, "%s:%d Failed to enum drive paths", VEXO_AT);
		return false;
	}
	if (!neededFirmware(drives.l, dbDir, out, needed, ready)) {
		vlog(LOG_ERR, "%s:%d Failed to get all needed models", VEXO_AT);
		return false;
	}
	return true;
}

// A directory argument with its trailing '/', as the database paths are
// composed; "" when it is not absolute.
std::string folder(const char *dir)
{
	std::string d = dir ? dir : "";
	if (d.empty() || d[0] != '/')
		return "";
	if (d.back() != '/')
		d += '/';
	return d;
}

// The archive's file name: the model and build in characters any folder takes.
std::string archiveName(const Wanted &w)
{
	std::string n;
	for (char c : w.model)
		n += std::isalnum(static_cast<unsigned char>(c)) || c == '-' || c == '.' ? c : '_';
	return n + "_" + std::to_string(w.build) + ".sa";
}

// Fetches, unpacks and checks one firmware; the archive goes once stored.
bool fetchOne(const Wanted &w, const std::string &tmpDir)
{
	const std::string archive = tmpDir + archiveName(w);
	if (VEXODriveBundleFWSADownload(w.model.c_str(), 0, w.build, archive.c_str()) != 0)
		return false;
	if (VEXODriveBundleFWSAExtract(archive.c_str()) != 0)
		return false;
	// The archive must have brought the binary the database names, whole.
	if (VEXODriveBundleFWUpgradeFirmwareBinaryValidate(w.firmBin.c_str()) != 1) {
		vlog(LOG_ERR, "%s:%d %s brought no valid %s", VEXO_AT, archive.c_str(), w.firmBin.c_str());
		VEXO_ERR(0x9A00);
		return false;
	}
	ENTERCriticalSection;
	if (vexo::sysroot::unlink(archive.c_str()) != 0)
		vlog(LOG_ERR, "%s:%d Failed to remove %s", VEXO_AT, archive.c_str());
	return true;
}

} // namespace

extern "C" {

VEXO_API int VEXODriveBundleFWDownloadByDB(const char *rootPrefix, const char *databaseDirectory, int flag)
try {
	std::string prefix = rootPrefix ? rootPrefix : "";
	while (!prefix.empty() && prefix.back() == '/')
		prefix.pop_back();
	const std::string dbDir = databaseDirectory ? folder(databaseDirectory) : VEXO_COMPAT_DB_DIR;
	if ((!prefix.empty() && prefix[0] != '/') || dbDir.empty() || (flag & ~VEXO_FW_DOWNLOAD_AGAIN)) {
		vlog(LOG_ERR, "%s:%d Bad parameters", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	const std::string libDir = prefix + kLibDir;
	if (VEXODriveBundleCheckDirExistOrCreate(libDir.c_str()) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to create %s", VEXO_AT, libDir.c_str());
		return -1;
	}
	std::map<std::string, Wanted> wanted;
	int needed = 0, ready = 0;
	if (!presentDrivesNeed(dbDir, wanted, needed, ready))
		return -1;
	const std::string tmpDir = prefix + kFwTmp;
	int failed = 0, lastError = 0;
	bool madeTmp = false;
	for (const auto &[key, w] : wanted) {
		if (w.onBox && !(flag & VEXO_FW_DOWNLOAD_AGAIN))
			continue;
		if (!madeTmp && VEXODriveBundleCheckDirExistOrCreate(tmpDir.c_str()) != 0) {
			vlog(LOG_ERR, "%s:%d Failed to create %s", VEXO_AT, tmpDir.c_str());
			return -1;
		}
		madeTmp = true;
		// One model's failure does not keep the others from their firmware.
		if (!fetchOne(w, tmpDir)) {
			vlog(LOG_ERR, "%s:%d Failed to download firmware sa", VEXO_AT);
			lastError = VLIBCErrGet();
			++failed;
		}
	}
	if (failed) {
		vlog(LOG_ERR, "%s:%d Failed to download sa files", VEXO_AT);
		VEXO_ERR(lastError ? lastError : 0x9A00);
		return -1;
	}
	return 0;
} VEXO_C_CATCH(-1)

VEXO_API int VEXODriveBundleFWupgradeUpgradeNeededGetByDB(int *needed, int *ready)
try {
	if (!needed || !ready) {
		vlog(LOG_ERR, "%s:%d Bad parameters", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::map<std::string, Wanted> wanted;
	int n = 0, r = 0;
	if (!presentDrivesNeed(kDiskActionDir, wanted, n, r))
		return -1;
	*needed = n;
	*ready = r;
	return 0;
} VEXO_C_CATCH(-1)

} // extern "C"
