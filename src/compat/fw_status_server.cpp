// The copy of the firmware server's list of published builds: asked for at
// most once an hour (the visiting time is the monotonic clock's seconds, so
// a changed wall clock neither hurries nor delays it), shared by every
// process through /run and replaced by rename, so readers take no lock.
#include <cstdio>
#include <cstring>
#include <json-c/json.h>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vexohw/misc.h>
#include <vexoplatform/bootseq.h>
#include <vexoplatform/vexocore.h>

#include "compat/fw_status.h"
#include "frame/clock.h"
#include "frame/err.h"
#include "frame/jsonc.h"
#include "frame/priv.h"
#include "frame/sysroot.h"
#include "frame/unique.h"
#include "misc/misc.h"

namespace vexo::fwstatus {
namespace {

constexpr const char *kInfoConf = "/etc.defaults/vexoinfo.conf";

long long nowSeconds() { return static_cast<long long>(vexo::clock::monotonic().tv_sec); }

// Missing, unreadable or from another boot (ahead of the clock): due.
bool due()
{
	struct stat st;
	if (vexo::sysroot::stat(kVisitTime, &st) != 0)
		return true;
	vexo::UniqueFile f(vexo::sysroot::fopen(kVisitTime, "re"));
	if (!f) {
		vlog(LOG_ERR, "%s:%d Fail to open previous firmware server visiting time file", VEXO_AT);
		return true;
	}
	long long t = 0;
	if (std::fscanf(f.get(), "%lld", &t) != 1) {
		vlog(LOG_ERR, "%s:%d Fail to get previous firmware server visiting time", VEXO_AT);
		return true;
	}
	long long now = nowSeconds();
	return t > now || now - t > kVisitEvery;
}

bool writeVisitTime()
{
	if (!vexo::misc::writeTmp(kVisitTimeTmp, std::to_string(nowSeconds()))) {
		vlog(LOG_ERR, "%s:%d Fail to open %s", VEXO_AT, kVisitTimeTmp);
		vlog(LOG_ERR, "%s:%d Fail to set previous visiting time", VEXO_AT);
		vexo::sysroot::unlink(kVisitTimeTmp);
		return false;
	}
	if (vexo::sysroot::rename(kVisitTimeTmp, kVisitTime) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to rename visiting time", VEXO_AT);
		return false;
	}
	return true;
}

// One visit under the lock (or without it, when it could not be taken).
// False when the update failed.
bool visit()
{
	if (!due()) // another process has just been there
		return true;
	VLIBCErrClear();
	std::string answer;
	if (onlineFirmwareInfoGet(answer) != 0) {
		if (VLIBCErrGet() != VEXO_ERR_NET) {
			vlog(LOG_ERR, "%s:%d Failed to get online firmware info", VEXO_AT);
			return false;
		}
		// Unreachable: no copy, and not asked again within the hour.
		vexo::sysroot::unlink(kServerInfo);
		vexo::sysroot::unlink(kServerInfoTmp);
		writeVisitTime();
		return true;
	}
	if (!vexo::misc::writeTmp(kServerInfoTmp, answer)) {
		vlog(LOG_ERR, "%s:%d Fail to open file %s", VEXO_AT, kServerInfoTmp);
		vexo::sysroot::unlink(kServerInfoTmp);
		return false;
	}
	writeVisitTime();
	return true;
}

bool copyExists()
{
	struct stat st;
	return vexo::sysroot::stat(kServerInfo, &st) == 0;
}

} // namespace

Copy refreshServerCopy()
{
	bool failed = false;
	ENTERCriticalSection;
	if (VEXOSystemGetBootStep() != kBootStepRunning) {
		VEXO_ERR(VEXO_ERR_NET);
	} else if (due()) {
		int fd = -1;
		if (!VLIBCFileLockTimeByFile(kServerLock, 1, 10, &fd)) {
			vlog(LOG_ERR, "%s:%d Failed to lock %s, try to set it without lock then", VEXO_AT, kServerLock);
			failed = true;
		} else {
			failed = !visit();
		}
		// A whole answer takes its place whatever else went wrong.
		struct stat st;
		if (vexo::sysroot::stat(kServerInfoTmp, &st) == 0 &&
		    vexo::sysroot::rename(kServerInfoTmp, kServerInfo) != 0)
			vlog(LOG_ERR, "%s:%d Failed to rename server info", VEXO_AT);
		if (fd >= 0 && !VLIBCFileUnlockByFile(fd)) {
			vlog(LOG_ERR, "%s:%d Failed to unlock %s.", VEXO_AT, kServerLock);
			::close(fd);
		}
	}
	if (failed) {
		vlog(LOG_ERR, "%s:%d Fail to update server info", VEXO_AT);
		return Copy::Failed;
	}
	return copyExists() ? Copy::Present : Copy::None;
}

int serverBuildOf(const std::string &model)
{
	vexo::UniqueFile f(vexo::sysroot::fopen(kServerInfo, "re"));
	if (!f)
		return -1;
	std::string text;
	char buf[4096];
	size_t n;
	while ((n = std::fread(buf, 1, sizeof buf, f.get())) > 0)
		text.append(buf, n);
	std::unique_ptr<json_object, decltype(&json_object_put)> root(json_tokener_parse(text.c_str()),
								     &json_object_put);
	if (!root || !json_object_is_type(root.get(), json_type_array))
		return 0;
	const size_t count = json_object_array_length(root.get());
	for (size_t i = 0; i < count; ++i) {
		json_object *e = json_object_array_get_idx(root.get(), i);
		json_object *m = nullptr, *b = nullptr;
		if (!json_object_object_get_ex(e, "model", &m) || !json_object_is_type(m, json_type_string) ||
		    !json_object_object_get_ex(e, "fw_buildnumber", &b) || !json_object_is_type(b, json_type_int)) {
			vlog(LOG_ERR, "%s:%d Invalid json format: %s", VEXO_AT,
			     json_object_to_json_string_ext(e, JSON_C_TO_STRING_PLAIN));
			continue;
		}
		if (model == json_object_get_string(m))
			return json_object_get_int(b);
	}
	return -1;
}

// The firmware bundle's general query: the base address from the
// appliance's information, and the appliance's identity, URL-encoded.
int onlineFirmwareInfoGet(std::string &out)
{
	char base[512] = {};
	if (VLIBCFileGetKeyValue(kInfoConf, "firmware_server_url_base", base, sizeof base, 0) <= 0)
		std::snprintf(base, sizeof base, "%s", VEXO_FIRMWARE_SERVER_DEFAULT);
	char unique[256] = {}, uniqueEnc[768] = {}, group[256] = {}, version[128] = {}, serial[256] = {};
	VLIBCFileGetKeyValue(kInfoConf, "unique", unique, sizeof unique, 0);
	if (VEXODiskMiscUrlEncode(unique, uniqueEnc, sizeof uniqueEnc) != 0 ||
	    VEXOVOSEncodedGroupIDGet(group, sizeof group) != 0 || VEXOVOSEncodedVOSVerGet(version, sizeof version) != 0 ||
	    VEXOVOSEncodedDSSNGet(serial, sizeof serial) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to assemble url: %s %s %s", VEXO_AT, base, uniqueEnc, version);
		VEXO_ERR(VEXO_ERR_NOT_FOUND);
		return -1;
	}
	std::string url = std::string(base) + "/ssd/v1/getUpdate?unique=" + uniqueEnc + "&group_id=" + group +
			  "&ds_version=" + version + "&sn=" + serial;
	char ignore[16] = {};
	VLIBCFileGetKeyValue(kInfoConf, "firmware_download_ignore_verification", ignore, sizeof ignore, 0);
	char *buffer = nullptr;
	int size = 0;
	VLIBCErrClear();
	int rc = VEXODiskMiscCurlToBuffer(url.c_str(), &buffer, &size, std::strcmp(ignore, "yes") == 0);
	std::unique_ptr<char, decltype(&std::free)> own(buffer, &std::free);
	if (rc != 0) {
		if (VLIBCErrGet() != VEXO_ERR_NET) {
			vlog(LOG_ERR, "%s:%d Failed to send %s", VEXO_AT, url.c_str());
			VEXO_ERR(VEXO_ERR_INTERNAL);
		}
		return -1;
	}
	out.assign(buffer ? buffer : "");
	return 0;
}

int firmwareBinaryValid(const char *name)
{
	if (!name || !*name || std::strchr(name, '/'))
		return 0;
	const std::string path = std::string("/var/lib/drive-bundle/firmware/") + name;
	const std::string infoPath = path + ".FW_INFO";
	if (!VLIBCFileExist(path.c_str()) || !VLIBCFileExist(infoPath.c_str()))
		return 0;
	char md5[64] = {};
	if (VLIBCFileGetKeyValue(infoPath.c_str(), "md5sum", md5, sizeof md5, 0) <= 0)
		return 0;
	return VEXOHWCTLMiscFileMD5sumMatch(path.c_str(), md5) == 1 ? 1 : 0;
}

} // namespace vexo::fwstatus
