// Firmware from the firmware server: what it offers per model, fetching a
// signed archive after a space check, and storing its binary.
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <vector>
#include <vexohw/dbupdate.h>
#include <vexohw/drive_bundle.h>
#include <vexohw/misc.h>

#include "drive_bundle/drive_bundle_private.h"
#include "frame/err.h"
#include "frame/exec.h"
#include "frame/jsonc.h"
#include "frame/net.h"
#include "frame/priv.h"
#include "frame/sysroot.h"

using namespace vexo::bundle;

namespace {

constexpr const char *kExtractLock = "/var/run/drive-bundle/extract-sa.lock";
constexpr const char *kExtractDir = "/var/lib/drive-bundle/firmware-tmp/";

bool insecure()
{
	char v[16] = "";
	return VLIBCFileGetKeyValue("/etc.defaults/vexoinfo.conf", "firmware_download_ignore_verification", v, sizeof(v),
				    0) > 0 &&
	       std::strcmp(v, "yes") == 0;
}

// The transfer goes to the distribution's curl instead of the library's own
// client when the appliance says so: a separate process that the box's
// tools can watch and stop, with its own connect timeout.
bool byCurlTool()
{
	char v[16] = "";
	return VLIBCFileGetKeyValue("/etc.defaults/vexoinfo.conf", "firmware_download_by_external_curl", v, sizeof(v),
				    0) > 0 &&
	       std::strcmp(v, "yes") == 0;
}

// curl's exit codes for a host or proxy it could not resolve and for a
// timeout: the server is out of reach, as the library's client tells it.
bool curlUnreachable(int status) { return status == 5 || status == 6 || status == 28; }

// /bin/curl --connect-timeout T -o TARGET -L -sS URL, its error output
// logged line by line. The CA the box is told to trust, or no check at all
// when verification is off, goes on the vector too.
int curlTool(const std::string &url, const char *target, bool insecureTls)
{
	char timeout[32] = "60";
	DBGetFWDownloadTimeout(timeout, sizeof(timeout));
	std::vector<std::string> argv = {"/bin/curl", "--connect-timeout", timeout, "-o",
					 vexo::sysroot::path(target), "-L", "-sS"};
	if (insecureTls)
		argv.emplace_back("-k");
	else if (std::string ca = vexo::net::caBundle(); !ca.empty())
		argv.insert(argv.end(), {"--cacert", ca});
	argv.push_back(vexo::net::effectiveUrl(url));
	vexo::exec::Options o;
	o.captureStdout = false;
	o.captureStderr = true;
	const vexo::exec::Result r = vexo::exec::run(argv, o);
	for (std::size_t b = 0; b < r.err.size();) {
		std::size_t e = r.err.find('\n', b);
		if (e == std::string::npos)
			e = r.err.size();
		if (e > b)
			vlog(LOG_ERR, "%s:%d %s", VEXO_AT, r.err.substr(b, e - b).c_str());
		b = e + 1;
	}
	if (r.status() == 0)
		return 0;
	vlog(LOG_ERR, "%s:%d Failed to curl %s", VEXO_AT, url.c_str());
	VEXO_ERR(r.started && curlUnreachable(r.status()) ? VEXO_ERR_NET : 0x9A00);
	return -1;
}

bool baseUrl(std::string &out)
{
	char base[512] = "";
	if (VLIBCFileGetKeyValue("/etc.defaults/vexoinfo.conf", "firmware_server_url_base", base, sizeof(base), 0) > 0)
		out = base;
	else
		out = VEXO_FIRMWARE_SERVER_DEFAULT;
	return true;
}

// The server's address with the appliance's identity.
bool queryUrl(std::string &url)
{
	std::string base;
	baseUrl(base);
	char unique[256] = "", encUnique[768] = "", group[768] = "", version[768] = "", sn[768] = "";
	VLIBCFileGetKeyValue("/etc.defaults/vexoinfo.conf", "unique", unique, sizeof(unique), 0);
	if (VEXODiskMiscUrlEncode(unique, encUnique, sizeof(encUnique)) != 0 ||
	    VEXOVOSEncodedGroupIDGet(group, sizeof(group)) != 0 || VEXOVOSEncodedVOSVerGet(version, sizeof(version)) != 0 ||
	    VEXOVOSEncodedDSSNGet(sn, sizeof(sn)) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to assemble url: %s %s %s", VEXO_AT, base.c_str(), encUnique, group);
		return false;
	}
	char text[4096];
	if (std::snprintf(text, sizeof(text), "%s/ssd/v1/getUpdate?unique=%s&group_id=%s&ds_version=%s&sn=%s",
			  base.c_str(), encUnique, group, version, sn) >= static_cast<int>(sizeof(text))) {
		vlog(LOG_ERR, "%s:%d Failed to assemble url: %s %s %s", VEXO_AT, base.c_str(), encUnique, group);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return false;
	}
	url = text;
	return true;
}

int query(const std::string &url, char **buffer, int *size)
{
	VLIBCErrClear();
	if (VEXODiskMiscCurlToBuffer(url.c_str(), buffer, size, insecure() ? 1 : 0) == 0)
		return 0;
	// No network is no fault: the callers tell the user so.
	if (VLIBCErrGet() != VEXO_ERR_NET)
		vlog(LOG_ERR, "%s:%d Failed to send %s", VEXO_AT, url.c_str());
	return -1;
}

int byModel(const char *model, const char *version, char **buffer, int *size)
{
	if (!model || !buffer || !size) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::string url;
	char enc[768];
	if (!queryUrl(url) || VEXODiskMiscUrlEncode(model, enc, sizeof(enc)) != 0)
		return -1;
	url += std::string("&model=") + enc;
	if (version)
		url += std::string("&version=") + version;
	return query(url, buffer, size);
}

bool moveInto(const std::string &from, const std::string &to)
{
	return vexo::sysroot::rename(from.c_str(), to.c_str()) == 0;
}

} // namespace

extern "C" {

VEXO_API int VEXODriveBundleOnlineFirmwareInfoGet(char **buffer, int *size)
try {
	if (!buffer || !size) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::string url;
	if (!queryUrl(url))
		return -1;
	return query(url, buffer, size);
} VEXO_C_CATCH(-1)

VEXO_API int VEXODriveBundleOnlineFirmwareInfoGetByModel(const char *model, int version, char **buffer, int *size)
try {
	return byModel(model, std::to_string(version).c_str(), buffer, size);
} VEXO_C_CATCH(-1)

VEXO_API int VEXODriveBundleOnlineFirmwareInfoGetLastestByModel(const char *model, char **buffer, int *size)
try {
	return byModel(model, nullptr, buffer, size);
} VEXO_C_CATCH(-1)

VEXO_API int VEXODriveBundleFWSADownload(const char *model, int latest, int version, const char *targetPath)
try {
	if (!model || !targetPath) {
		vlog(LOG_ERR, "%s:%d Bad parameters", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	char *buffer = nullptr;
	int size = 0;
	int ret = latest ? VEXODriveBundleOnlineFirmwareInfoGetLastestByModel(model, &buffer, &size)
			 : VEXODriveBundleOnlineFirmwareInfoGetByModel(model, version, &buffer, &size);
	std::unique_ptr<char, void (*)(void *)> owned(buffer, std::free);
	if (ret != 0) {
		if (VLIBCErrGet() != VEXO_ERR_NET)
			vlog(LOG_ERR, "%s:%d Failed to get online firmware info[0x%04X %s:%d]", VEXO_AT, VLIBCErrGet(),
			     VLIBCErrFileGet(), VLIBCErrLineGet());
		return -1;
	}
	auto fail = [&](const char *why) {
		if (why)
			vlog(LOG_ERR, why, VEXO_AT);
		VEXO_ERR(0x9A00);
		vlog(LOG_ERR, "%s:%d Failed to get firmware file URL of %s. [0x%04X %s:%d]", VEXO_AT, model, VLIBCErrGet(),
		     VLIBCErrFileGet(), VLIBCErrLineGet());
		return -1;
	};
	vexo::jsonc::Value doc = vexo::jsonc::parseWhole(buffer ? buffer : "");
	if (!doc || !json_object_is_type(doc.get(), json_type_array)) {
		vlog(LOG_ERR, "%s:%d Failed to parser json: %s", VEXO_AT, buffer ? buffer : "");
		return fail(nullptr);
	}
	if (json_object_array_length(doc.get()) == 0)
		return fail("%s:%d Failed to get firmware info, due to array is empty");
	json_object *first = json_object_array_get_idx(doc.get(), 0);
	if (!first)
		return fail("%s:%d Failed to get firmware info");
	auto bytes = vexo::jsonc::integer(first, "size_in_bytes");
	if (!bytes || *bytes < 0) {
		vlog(LOG_ERR, "%s:%d Failed to get %s from json", VEXO_AT, "size_in_bytes");
		return fail("%s:%d Failed to get firmware size from json");
	}
	if (VEXOFsSizeCheck(static_cast<unsigned long>(*bytes), targetPath) != 0) {
		vlog(LOG_ERR, "%s:%d %s has no enough space[%lld]", VEXO_AT, targetPath, static_cast<long long>(*bytes));
		VEXO_ERR(0x2900);
		return -1;
	}
	auto file = vexo::jsonc::string(first, "file");
	if (!file)
		return fail("%s:%d Failed to get firmware URL from json");
	const std::string url(*file);
	const bool tls = !insecure();
	int got = 0;
	if (byCurlTool()) {
		got = curlTool(url, targetPath, !tls);
	} else if ((got = VEXODiskMiscCurlToFile(url.c_str(), targetPath, tls ? 0 : 1)) != 0 &&
		   VLIBCErrGet() != VEXO_ERR_NET) {
		vlog(LOG_ERR, "%s:%d Failed to get file from %s", VEXO_AT, url.c_str());
		VEXO_ERR(0x9A00);
	}
	if (got != 0) {
		vlog(LOG_ERR, "%s:%d Failed to download fw to %s", VEXO_AT, targetPath);
		return -1;
	}
	return 0;
} VEXO_C_CATCH(-1)

VEXO_API int VEXODriveBundleFWSAExtract(const char *archive)
try {
	if (!archive) {
		vlog(LOG_ERR, "%s:%d Bad parameters", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	if (VEXODriveBundleCheckDirExistOrCreate(kRunDir) != 0 || VEXODriveBundleCheckDirExistOrCreate(VEXO_FW_UPGRADE_DIR) != 0)
		return -1;
	ENTERCriticalSection;
	LockFile guard(kExtractLock, kLockSeconds);
	if (!guard.held()) {
		vlog(LOG_ERR, "%s:%d Failed to lock %s. [0x%04X %s:%d]", VEXO_AT, kExtractLock, VLIBCErrGet(),
		     VLIBCErrFileGet(), VLIBCErrLineGet());
		return -1;
	}
	// A clean area: what an earlier extraction left is never taken.
	std::error_code ec;
	std::filesystem::remove_all(vexo::sysroot::path(kExtractDir), ec);
	if (ec) {
		vlog(LOG_ERR, "%s:%d Failed to remove %s", VEXO_AT, kExtractDir);
		return -1;
	}
	if (VEXOFirmSAExtract(archive, kExtractDir) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to extract %s", VEXO_AT, archive);
		return -1;
	}
	// Each binary moves with its info file, wherever the archive keeps them;
	// the binary goes last, so a reader that finds it finds its checksum too.
	int moved = 0;
	const std::string top = vexo::sysroot::path(kExtractDir);
	const std::string suffix = ".FW_INFO";
	std::vector<std::pair<std::string, std::string>> found; // folder, binary
	for (auto it = std::filesystem::recursive_directory_iterator(top, ec);
	     !ec && it != std::filesystem::recursive_directory_iterator(); it.increment(ec)) {
		if (!it->is_regular_file(ec) || it->is_symlink(ec))
			continue;
		std::string name = it->path().filename().string();
		if (name.size() <= suffix.size() || name.compare(name.size() - suffix.size(), suffix.size(), suffix) != 0)
			continue;
		found.emplace_back(vexo::sysroot::strip(it->path().parent_path().string()) + "/",
				   name.substr(0, name.size() - suffix.size()));
	}
	for (const auto &[dir, bin] : found) {
		if (!moveInto(dir + bin + suffix, VEXO_FW_UPGRADE_DIR + bin + suffix) ||
		    !moveInto(dir + bin, VEXO_FW_UPGRADE_DIR + bin)) {
			vlog(LOG_ERR, "%s:%d Failed to store %s", VEXO_AT, bin.c_str());
			VEXO_ERR(VEXO_ERR_WRITE);
			return -1;
		}
		++moved;
	}
	if (!moved) {
		vlog(LOG_ERR, "%s:%d No firmware in %s", VEXO_AT, archive);
		VEXO_ERR(VEXO_ERR_NOENT);
		return -1;
	}
	return 0;
} VEXO_C_CATCH(-1)

VEXO_API int VEXOOnlineFWCheck(void)
try {
	VLIBCErrClear();
	char *buffer = nullptr;
	int size = 0;
	int ret = VEXODriveBundleOnlineFirmwareInfoGet(&buffer, &size);
	std::free(buffer);
	if (ret != 0) {
		vlog(LOG_ERR, "%s:%d Failed to get online firmware info", VEXO_AT);
		return -1;
	}
	return 0;
} VEXO_C_CATCH(-1)

VEXO_API int VEXOOnlineDBCheck(void)
try {
	char url[4096] = "";
	if (VEXODiskUpdateServerUrlGet(url, sizeof(url)) != 0) {
		vlog(LOG_ERR, "%s:%d Fail to get server url", VEXO_AT);
		return -1;
	}
	VLIBCErrClear();
	char *buffer = nullptr;
	int size = 0;
	int ret = VEXODiskMiscCurlToBuffer(url, &buffer, &size, 0);
	std::free(buffer);
	if (ret != 0) {
		vlog(LOG_ERR, "%s:%d Fail to connect to target url %s", VEXO_AT, url);
		return -1;
	}
	return 0;
} VEXO_C_CATCH(-1)

VEXO_API int VEXOOnlineDBAndFWCheck(void)
try {
	const int db = VEXOOnlineDBCheck();
	const bool dbNet = db != 0 && VLIBCErrGet() == VEXO_ERR_NET;
	const int fw = VEXOOnlineFWCheck();
	const bool fwNet = fw != 0 && VLIBCErrGet() == VEXO_ERR_NET;
	if (db == 0 && fw == 0)
		return 1;
	// A server out of reach is no fault of the box: the caller says "offline".
	if ((db == 0 || dbNet) && (fw == 0 || fwNet)) {
		vlog(LOG_ERR, "%s:%d No nework due to DB=%d, FW=%d", VEXO_AT, db, fw);
		VEXO_ERR(VEXO_ERR_NET);
		return 0;
	}
	vlog(LOG_ERR, "%s:%d Failed to check drive database and firmware server is online. DB=%d, FW=%d", VEXO_AT, db,
	     fw);
	return -1;
} VEXO_C_CATCH(-1)

} // extern "C"
