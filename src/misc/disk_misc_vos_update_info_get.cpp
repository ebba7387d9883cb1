#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <json-c/json.h>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vexoplatform/vexocore.h>

#include "frame/boundary.h"
#include "frame/clock.h"
#include "frame/err.h"
#include "frame/exec.h"
#include "frame/file_lock.h"
#include "frame/priv.h"
#include "frame/sysroot.h"
#include "frame/unique.h"
#include "misc/misc.h"

namespace {

constexpr const char *kInfo = "/run/vexostorage/disk_upgrade_server_info";
constexpr const char *kInfoTmp = "/run/vexostorage/disk_upgrade_server_info.tmp";
constexpr const char *kTime = "/run/vexostorage/.disk_upgrade_server_visiting_time";
constexpr const char *kTimeTmp = "/run/vexostorage/.disk_upgrade_server_visiting_time.tmp";
constexpr const char *kLock = "/run/lock/disk_upgrade_server.lock";
constexpr long long kMaxAge = 3600;

struct JsonPut {
	void operator()(json_object *o) const { json_object_put(o); }
};

long long nowSeconds() { return static_cast<long long>(vexo::clock::monotonic().tv_sec); }

// Missing, unreadable, from the future or older than an hour: ask again.
bool due()
{
	vexo::UniqueFile f(vexo::sysroot::fopen(kTime, "re"));
	long long t = 0;
	if (!f || std::fscanf(f.get(), "%lld", &t) != 1)
		return true;
	long long now = nowSeconds();
	return t > now || now - t > kMaxAge;
}

bool refresh()
{
	vexo::exec::Options opts;
	opts.timeoutMs = 120000; // a hung tool must not hang every caller
	vexo::exec::Result r = vexo::exec::run({"/usr/vexo/bin/vexowebapi", "--exec-fastwebapi",
						"api=VEXO.Core.Upgrade.Server", "method=check", "version=2",
						"need_auto_smallupdate=true", "need_promotion=true"},
					       opts);
	if (r.status() != 0) {
		vlog(LOG_ERR, "%s:%d Failed to run %s", VEXO_AT, "/usr/vexo/bin/vexowebapi");
		return false;
	}
	ENTERCriticalSection;
	if (!vexo::misc::writeTmp(kInfoTmp, r.out) ||
	    !vexo::misc::writeTmp(kTimeTmp, std::to_string(nowSeconds()))) {
		VEXO_ERR(VEXO_ERR_WRITE);
		return false;
	}
	if (vexo::sysroot::rename(kInfoTmp, kInfo) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to rename server info", VEXO_AT);
		return false;
	}
	if (vexo::sysroot::rename(kTimeTmp, kTime) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to rename visiting time", VEXO_AT);
		return false;
	}
	return true;
}

bool readOne(json_object *data, const char *name, VOSUpdateInfo &out)
{
	json_object *o = nullptr, *v = nullptr, *d = nullptr;
	auto missing = [&](const char *what) {
		vlog(LOG_ERR, "%s:%d Failed to get %s from json", VEXO_AT, what);
		return false;
	};
	if (!json_object_object_get_ex(data, name, &o) || !json_object_is_type(o, json_type_object))
		return missing(name);
	if (!json_object_object_get_ex(o, "available", &v))
		return missing("available");
	// Not available: that flag alone is set, the rest stays as it was.
	out.available = json_object_get_boolean(v) ? 1 : 0;
	if (!out.available)
		return true;
	if (!json_object_object_get_ex(o, "version", &v) || !json_object_is_type(v, json_type_string))
		return missing("version");
	std::snprintf(out.version, sizeof out.version, "%s", json_object_get_string(v));
	if (!json_object_object_get_ex(o, "version_details", &d) || !json_object_is_type(d, json_type_object))
		return missing("version_details");
	if (!json_object_object_get_ex(d, "buildnumber", &v))
		return missing("buildnumber");
	out.buildnumber = json_object_get_int(v);
	if (!json_object_object_get_ex(d, "nano", &v))
		return missing("nano");
	out.nano = json_object_get_int(v);
	return true;
}

} // namespace

namespace vexo::misc {

bool writeTmp(const std::string &tmpPath, std::string_view content)
{
	vexo::UniqueFd fd(vexo::sysroot::open(tmpPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
	if (!fd || ::fchmod(fd.get(), 0644) != 0)
		return false;
	size_t done = 0;
	while (done < content.size()) {
		ssize_t n = ::write(fd.get(), content.data() + done, content.size() - done);
		if (n < 0 && errno == EINTR)
			continue;
		if (n <= 0)
			return false;
		done += static_cast<size_t>(n);
	}
	return ::close(fd.release()) == 0;
}

int parseUpdateInfo(std::string_view text, VOSUpdateInfo *update, VOSUpdateInfo *promotion)
{
	std::unique_ptr<json_tokener, void (*)(json_tokener *)> tok(json_tokener_new(), &json_tokener_free);
	if (!tok)
		throw std::bad_alloc();
	std::unique_ptr<json_object, JsonPut> root(
		json_tokener_parse_ex(tok.get(), text.data(), static_cast<int>(text.size())));
	if (!root || json_tokener_get_error(tok.get()) != json_tokener_success) {
		vlog(LOG_ERR, "%s:%d Failed to parser json: %s", VEXO_AT, kInfo);
		return -1;
	}
	json_object *v = nullptr, *data = nullptr;
	if (!json_object_object_get_ex(root.get(), "success", &v) || !json_object_get_boolean(v)) {
		vlog(LOG_ERR, "%s:%d Failed to get %s from json", VEXO_AT, "success");
		return -1;
	}
	if (!json_object_object_get_ex(root.get(), "data", &data) || !json_object_is_type(data, json_type_object)) {
		vlog(LOG_ERR, "%s:%d Failed to get %s from json", VEXO_AT, "data");
		return -1;
	}
	VOSUpdateInfo u = *update, p = *promotion;
	if (!readOne(data, "update", u) || !readOne(data, "promotion", p))
		return -1;
	*update = u;
	*promotion = p;
	return 0;
}

} // namespace vexo::misc

extern "C" VEXO_API int VEXODiskMiscVOSUpdateInfoGet(VOSUpdateInfo *update, VOSUpdateInfo *promotion) try {
	if (!update || !promotion) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	if (due()) {
		vexo::FileLock lock;
		if (!lock.take(kLock, 10))
			vlog(LOG_ERR, "%s:%d Failed to lock %s, try to set it without lock then", VEXO_AT, kLock);
		if (due()) // another process may have asked while we waited
			refresh();
	}
	vexo::UniqueFile f(vexo::sysroot::fopen(kInfo, "re"));
	if (!f) {
		VEXO_ERR(VEXO_ERR_FOPEN);
		vlog(LOG_ERR, "%s:%d Failed to parser json: %s", VEXO_AT, kInfo);
		return -1;
	}
	std::string text;
	char buf[4096];
	size_t n;
	while ((n = std::fread(buf, 1, sizeof buf, f.get())) > 0)
		text.append(buf, n);
	if (vexo::misc::parseUpdateInfo(text, update, promotion) != 0) {
		VEXO_ERR(VEXO_ERR_READ);
		return -1;
	}
	return 0;
}
VEXO_C_CATCH(-1)
