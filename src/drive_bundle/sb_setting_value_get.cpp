// Settings of the bundle family from the system settings files, and the
// timeouts derived from them.
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <vexohw/drive_bundle.h>

#include "drive_bundle/drive_bundle_private.h"
#include "frame/err.h"

namespace {

constexpr const char *kSettings = "/etc/vexoinfo.conf";
constexpr const char *kDefaults = "/etc.defaults/vexoinfo.conf";

// The setting as a whole positive number of seconds, or the default.
int secondsSetting(const char *key, int fallback)
{
	char text[32];
	if (SBSettingValueGet(key, text, sizeof(text)) != 0)
		return fallback;
	char *end = nullptr;
	errno = 0;
	long v = std::strtol(text, &end, 10);
	if (errno != 0 || end == text || *end != '\0' || v <= 0 || v > INT_MAX)
		return fallback;
	return static_cast<int>(v);
}

} // namespace

extern "C" {

VEXO_API int SBSettingValueGet(const char *key, char *out, int size)
try {
	if (!key || !out || size <= 0) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	if (VLIBCFileGetKeyValue(kSettings, key, out, size, 0) > 0)
		return 0;
	if (VLIBCFileGetKeyValue(kDefaults, key, out, size, 0) <= 0) {
		VEXO_ERR(VEXO_ERR_NOT_FOUND);
		return -1;
	}
	// The product's default becomes the box's own setting.
	if (VLIBCINFOSetKeyValue(key, out) != 0)
		vlog(LOG_ERR, "%s:%d Failed to set %s into %s", VEXO_AT, key, kSettings);
	return 0;
} VEXO_C_CATCH(-1)

VEXO_API int DBGetFWDownloadTimeout(char *out, int size)
try {
	if (!out || size <= 0) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	char text[32];
	if (SBSettingValueGet("drive_firmware_download_timeout", text, sizeof(text)) == 0) {
		vlog(LOG_INFO, "%s:%d detected drive_firmware_download_timeout, do use %s as timeout", VEXO_AT, text);
		if (std::snprintf(out, static_cast<std::size_t>(size), "%s", text) >= size) {
			VEXO_ERR(VEXO_ERR_BAD_PARAM);
			return -1;
		}
		return 0;
	}
	if (std::snprintf(out, static_cast<std::size_t>(size), "60") >= size) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	return 0;
} VEXO_C_CATCH(-1)

VEXO_API int DBGetDriveCmdTimeout(int *seconds)
try {
	if (!seconds) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	*seconds = secondsSetting("drive_cmd_timeout", 30);
	return 0;
} VEXO_C_CATCH(-1)

VEXO_API int DBGetFWDownloadAllTimeout(int *seconds)
try {
	if (!seconds) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	*seconds = secondsSetting("drive_firmware_download_all_timeout", 100);
	return 0;
} VEXO_C_CATCH(-1)

} // extern "C"
