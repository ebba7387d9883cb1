// The offline kit: the expansion units' databases it carries, its version
// and the last applied one, and the time of the last update.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/stat.h>
#include <vector>
#include <vexoplatform/vexocore.h>

#include "disk/dbupdate.h"
#include "frame/boundary.h"
#include "frame/err.h"
#include "frame/priv.h"
#include "frame/sysroot.h"

namespace {

using namespace vexo::dbupdate;

// The unit models the kit carries: the directories under eunit/. false
// when the list cannot be built.
bool unitModels(std::vector<std::string> &models)
{
	std::string pattern = std::string(kOfflineDir) + "eunit/*";
	std::vector<std::string> found;
	if (vexo::sysroot::glob(pattern.c_str(), found) != 0) {
		vlog(LOG_ERR, "%s:%d Fail to get eunit models under %s", VEXO_AT, pattern.c_str());
		return false;
	}
	for (const std::string &p : found) {
		struct stat st;
		if (vexo::sysroot::stat(p.c_str(), &st) != 0) {
			vlog(LOG_ERR, "%s:%d Fail to stat %s", VEXO_AT, p.c_str());
			return false;
		}
		if (S_ISDIR(st.st_mode))
			models.push_back(p.substr(p.rfind('/') + 1));
	}
	return true;
}

} // namespace

namespace vexo::dbupdate {

int unitUpdate(const char *unitModel, const RunOptions &base)
{
	if (!unitModel || !*unitModel) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return 2;
	}
	char lower[256];
	if (std::strlen(unitModel) >= sizeof lower || std::strchr(unitModel, '/') ||
	    (std::snprintf(lower, sizeof lower, "%s", unitModel), VLIBCStrCaseLower(lower) != 0)) {
		vlog(LOG_ERR, "%s:%d Failed to lower case eunit name %s", VEXO_AT, unitModel);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return 2;
	}
	const std::string m(lower);
	DiskOnlineDbInfo row{};
	std::snprintf(row.name, sizeof row.name, "HCL_v7_%s", m.c_str());
	std::snprintf(row.dbPath, sizeof row.dbPath, "/var/lib/disk-compatibility/%s_v7.db", m.c_str());
	std::snprintf(row.versionPath, sizeof row.versionPath, "/var/lib/disk-compatibility/%s_v7.version", m.c_str());
	row.statusIndex = 5;
	std::string index = std::string(kOfflineDir) + "eunit/" + m + "/" + m + ".json";
	std::string timeFile = std::string(kStateDir) + "/.disk_eunit_db_update_time_" + m;
	int fd = -1;
	if (VEXODiskDbUpdateLock(m.c_str(), &fd) != 0)
		return 2;
	std::vector<std::string> installed;
	RunOptions opts = base;
	opts.installed = &installed;
	int rc = run(index.c_str(), &row, 1, timeFile.c_str(), nullptr, opts);
	VEXODiskDbUpdateUnlock(fd);
	if (rc != 0)
		return 2;
	return installed.empty() ? 1 : 0;
}

int unitsUpdate(const RunOptions &opts)
{
	std::vector<std::string> models;
	if (!unitModels(models)) {
		vlog(LOG_ERR, "%s:%d Fail to get eunit models from %s", VEXO_AT, kOfflineDir);
		return 2;
	}
	bool failed = false, updated = false;
	for (const std::string &m : models) {
		int r = unitUpdate(m.c_str(), opts);
		if (r == 2) {
			vlog(LOG_ERR, "%s:%d fail to update %s", VEXO_AT, m.c_str());
			failed = true;
		}
		updated = updated || r == 0;
	}
	return failed ? 2 : updated ? 0 : 1;
}

} // namespace vexo::dbupdate

extern "C" VEXO_API int VEXOEunitDiskDbUpdate(const char *unitModel, int force) try {
	RunOptions opts;
	opts.force = force != 0;
	return unitUpdate(unitModel, opts);
}
VEXO_C_CATCH(2)

extern "C" VEXO_API int VEXODiskUpdateDBOffline(int force) try {
	RunOptions opts;
	opts.force = force != 0;
	return unitsUpdate(opts);
}
VEXO_C_CATCH(2)

extern "C" VEXO_API int DiskDbLastUpdateTimeGet(time_t *updateTime) try {
	if (!updateTime) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	long long v = 0;
	int r = readNumber(kHostTimeFile, v);
	if (r != 1) {
		VEXO_ERR(r == 0 ? VEXO_ERR_NOENT : VEXO_ERR_READ);
		return -1;
	}
	*updateTime = static_cast<time_t>(v);
	return 0;
}
VEXO_C_CATCH(-1)

extern "C" VEXO_API int VEXODiskPreviousOfflineKitVersionGet(void) try {
	long long v = 0;
	return readNumber(kKitVersionFile, v) == 1 && v > 0 && v <= INT32_MAX ? static_cast<int>(v) : 0;
}
VEXO_C_CATCH(0)

extern "C" VEXO_API int VEXODiskUploadOfflineKitVersionGet(void) try {
	char value[64] = {};
	if (VLIBCFileGetKeyValue(kKitInfo, "version", value, sizeof value, 0) <= 0)
		return 0;
	char *end = nullptr;
	long v = std::strtol(value, &end, 10);
	return end != value && *end == '\0' && v > 0 && v <= INT32_MAX ? static_cast<int>(v) : 0;
}
VEXO_C_CATCH(0)

extern "C" VEXO_API int VEXODiskOfflineKitVerUpdate(int version) try {
	ENTERCriticalSection;
	const std::string file(kKitVersionFile);
	makeDirs(file.substr(0, file.rfind('/')), 0755);
	if (!writeWhole(file, std::to_string(version))) {
		vlog(LOG_ERR, "%s:%d Failed to write %s", VEXO_AT, kKitVersionFile);
		VEXO_ERR(VEXO_ERR_WRITE);
		return -1;
	}
	return 0;
}
VEXO_C_CATCH(-1)
