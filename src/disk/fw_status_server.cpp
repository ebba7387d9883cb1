// The copy of the firmware server's list of published builds: asked for at
// most once an hour (the visiting time is the monotonic clock's seconds, so
// a changed wall clock neither hurries nor delays it), shared by every
// process through /run and replaced by rename, so readers take no lock.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <json-c/json.h>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vexohw/drive_bundle.h>
#include <vexohw/misc.h>
#include <vexoplatform/bootseq.h>
#include <vexoplatform/vexocore.h>

#include "disk/fw_status.h"
#include "frame/clock.h"
#include "frame/err.h"
#include "frame/file_lock.h"
#include "frame/jsonc.h"
#include "frame/priv.h"
#include "frame/sysroot.h"
#include "frame/unique.h"
#include "misc/misc.h"

namespace vexo::fwstatus {
namespace {


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
	char *buffer = nullptr;
	int size = 0;
	const int rc = VEXODriveBundleOnlineFirmwareInfoGet(&buffer, &size);
	std::unique_ptr<char, decltype(&std::free)> own(buffer, &std::free);
	std::string answer(rc == 0 && buffer ? buffer : "");
	if (rc != 0) {
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
		vexo::FileLock lock;
		if (!lock.take(kServerLock, 10)) {
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
		if (!lock.release())
			vlog(LOG_ERR, "%s:%d Failed to unlock %s.", VEXO_AT, kServerLock);
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

} // namespace vexo::fwstatus
