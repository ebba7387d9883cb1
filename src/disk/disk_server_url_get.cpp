// The update server's address for this appliance, and the names of files
// that carry the model.
#include <cstdio>
#include <cstring>
#include <curl/curl.h>
#include <memory>
#include <string>
#include <vexohw/misc.h>
#include <vexoplatform/vexocore.h>

#include "disk/dbupdate.h"
#include "frame/boundary.h"
#include "frame/err.h"

namespace {

constexpr const char *kInfo = "/etc.defaults/vexoinfo.conf";
constexpr const char *kPath = "/getSSDsInfo/v7";

struct CurlFree {
	void operator()(CURL *c) const { curl_easy_cleanup(c); }
};
struct CurlStrFree {
	void operator()(char *s) const { curl_free(s); }
};

int put(char *out, int size, const std::string &text)
{
	if (text.size() >= static_cast<size_t>(size)) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::memcpy(out, text.c_str(), text.size() + 1);
	return 0;
}

} // namespace

extern "C" VEXO_API int VEXODiskServerUrlGet(char *url, int urlSize) try {
	if (!url || urlSize <= 0) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	char value[1024] = {};
	if (VLIBCFileGetKeyValue(kInfo, "vexodisk_server_url", value, sizeof value, 0) > 0)
		return put(url, urlSize, value);
	value[0] = '\0';
	bool test = VLIBCFileGetKeyValue(kInfo, "vexodisk_server", value, sizeof value, 0) > 0 &&
		    std::strncmp(value, "test", 5) == 0;
	return put(url, urlSize, std::string(test ? VEXO_DISK_TEST_SERVER_DEFAULT : VEXO_DISK_SERVER_DEFAULT) + kPath);
}
VEXO_C_CATCH(-1)

extern "C" VEXO_API int VEXODiskServerUrlAssemble(char *url, int urlSize, const char *base, const char *key,
						  const char *value, int valueSize) try {
	if (!url || urlSize <= 0 || !base || !key || !value || valueSize < 0) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::unique_ptr<CURL, CurlFree> curl(curl_easy_init());
	if (!curl) {
		vlog(LOG_ERR, "%s:%d curl_easy_init fail!", VEXO_AT);
		return -1;
	}
	std::unique_ptr<char, CurlStrFree> escaped(
		curl_easy_escape(curl.get(), value, static_cast<int>(strnlen(value, static_cast<size_t>(valueSize)))));
	if (!escaped) {
		vlog(LOG_ERR, "%s:%d curl_easy_escape fail!", VEXO_AT);
		return -1;
	}
	// The download identity comes from the closed platform's hardware
	// identity, which this platform does not carry: it is sent empty.
	vlog(LOG_WARNING, "%s:%d Failed to init hwid context", VEXO_AT);
	const char *rule = VLIBCVexologyDriveOnly() ? "newHCL" : "normalHCL";
	std::string text = std::string(base) + "?" + key + "=" + escaped.get() + "&dlid=&rule=" + rule;
	return put(url, urlSize, text);
}
VEXO_C_CATCH(-1)

extern "C" VEXO_API int VEXODiskUpdateServerUrlGet(char *url, int urlSize) try {
	if (!url || urlSize <= 0) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	char base[1024];
	std::string model;
	if (VEXODiskServerUrlGet(base, sizeof base) != 0 || !vexo::dbupdate::model(model)) {
		VEXO_ERR_PASS();
		return -1;
	}
	return VEXODiskServerUrlAssemble(url, urlSize, base, "model", model.c_str(), static_cast<int>(model.size()));
}
VEXO_C_CATCH(-1)

extern "C" VEXO_API int VEXODiskModelReplaceName(const char *format, char *out, int outSize) try {
	if (!format || !out || outSize <= 0) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::string model;
	if (!vexo::dbupdate::model(model)) {
		VEXO_ERR_PASS();
		return -1;
	}
	// One "%s" at most, and no other conversion: the format is a table's
	// or a caller's text, never trusted as a printf format.
	std::string text;
	bool used = false;
	for (const char *p = format; *p; ++p) {
		if (*p != '%') {
			text += *p;
			continue;
		}
		if (p[1] == 's' && !used) {
			text += model;
			used = true;
			++p;
		} else if (p[1] == '%') {
			text += '%';
			++p;
		} else {
			VEXO_ERR(VEXO_ERR_BAD_PARAM);
			return -1;
		}
	}
	return put(out, outSize, text);
}
VEXO_C_CATCH(-1)

extern "C" VEXO_API int VEXODiskUpdateOfflineJsonPathGet(char *path, int pathSize) try {
	if (!path || pathSize <= 0) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::string model;
	if (!vexo::dbupdate::model(model)) {
		VEXO_ERR_PASS();
		return -1;
	}
	return put(path, pathSize, std::string(vexo::dbupdate::kOfflineDir) + model + "/" + model + ".json");
}
VEXO_C_CATCH(-1)
