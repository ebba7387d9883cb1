// The buzzer's small settings: what sounds now, the user's and the
// product's off masks, and the pause flag the daemon honours.
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <string>
#include <unistd.h>
#include <vexohw/led.h>
#include <vexohw/vcemd.h>

#include "frame/err.h"
#include "frame/priv.h"
#include "frame/sysroot.h"

namespace {

constexpr const char *kUserSettings = "/etc/vexoinfo.conf";
constexpr const char *kProductSettings = "/etc.defaults/vexoinfo.conf";

enum class Read { Found, Absent, Failed };

// A base-16 value of a key-value file.
Read hexValue(const char *file, const char *key, int &out)
{
	char buf[64];
	VLIBCErrClear();
	int r = VLIBCFileGetKeyValue(file, key, buf, sizeof buf, 0);
	if (r < 0 && VLIBCErrGet() != VEXO_ERR_NOENT)
		return Read::Failed;
	VLIBCErrClear();
	if (r <= 0)
		return Read::Absent;
	errno = 0;
	char *end = nullptr;
	long v = std::strtol(buf, &end, 16);
	if (errno || *end || v < INT_MIN || v > INT_MAX) {
		vlog(LOG_ERR, "%s:%d Bad value(%s) of %s in %s", VEXO_AT, buf, key, file);
		VEXO_ERR(VEXO_ERR_READ);
		return Read::Failed;
	}
	out = static_cast<int>(v);
	return Read::Found;
}

} // namespace

extern "C" {

int VEXOBuzzerCurrentBitmapGet(void)
try {
	int v = 0;
	Read r = hexValue(VEXO_BUZZER_BITMAP_FILE, "buzzerCurrentBitMap", v);
	if (r != Read::Found) {
		vlog(LOG_ERR, "%s:%d CszBuf't get the current buzzer bitmap", VEXO_AT);
		if (r == Read::Absent)
			VEXO_ERR(VEXO_ERR_NOT_FOUND);
		return -1;
	}
	return v;
}
VEXO_C_CATCH(-1)

int VEXOBuzzerOffConfigGet(void)
try {
	int v = 0;
	Read r = hexValue(kUserSettings, "buzzeroffcfg", v);
	return r == Read::Failed ? -1 : r == Read::Found ? v : 0;
}
VEXO_C_CATCH(-1)

int VEXOBuzzerOffConfigSet(int mask, int enable)
try {
	int cur = VEXOBuzzerOffConfigGet();
	if (cur < 0)
		return -1;
	unsigned v = enable ? (static_cast<unsigned>(cur) | static_cast<unsigned>(mask))
			    : (static_cast<unsigned>(cur) & ~static_cast<unsigned>(mask));
	char text[16];
	std::snprintf(text, sizeof text, "0x%x", v);
	if (VLIBCINFOSetKeyValue("buzzeroffcfg", text) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to set buzzeroffcfg=%s", VEXO_AT, text);
		VEXO_ERR_PASS();
		return -1;
	}
	if (VLIBVcemdNotify(VEXO_VCEMD_NOTIFY_BUZZER) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to notify vcemd of the buzzer setting", VEXO_AT);
		VEXO_ERR(VEXO_ERR_INTERNAL);
		return -1;
	}
	return 0;
}
VEXO_C_CATCH(-1)

int VEXOBuzzerOffEnableBitGet(const char *variant)
try {
	int v = 0;
	if (variant && *variant) {
		char key[128];
		if (VLIBCStrSnprintf(key, sizeof key, "%s_%s", "buzzeroffen", variant) < 0) {
			VEXO_ERR(VEXO_ERR_BAD_PARAM);
			return -1;
		}
		Read r = hexValue(kProductSettings, key, v);
		if (r != Read::Absent)
			return r == Read::Found ? v : -1;
	}
	Read r = hexValue(kProductSettings, "buzzeroffen", v);
	return r == Read::Failed ? -1 : r == Read::Found ? v : 0;
}
VEXO_C_CATCH(-1)

int VEXOBuzzerPause(void)
try {
	if (vexo::sysroot::access(VEXO_BUZZER_PAUSE_FILE, F_OK) == 0)
		return 0;
	ENTERCriticalSection;
	if (VLIBCFileTouch(VEXO_BUZZER_PAUSE_FILE) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to touch %s.", VEXO_AT, VEXO_BUZZER_PAUSE_FILE);
		VEXO_ERR(VEXO_ERR_WRITE);
		return -1;
	}
	return 0;
}
VEXO_C_CATCH(-1)

int VEXOBuzzerResume(void)
try {
	if (vexo::sysroot::access(VEXO_BUZZER_PAUSE_FILE, F_OK) != 0 && errno == ENOENT)
		return 0;
	ENTERCriticalSection;
	if (vexo::sysroot::unlink(VEXO_BUZZER_PAUSE_FILE) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to delete file [%s], errno=[%d/%m]", VEXO_AT, VEXO_BUZZER_PAUSE_FILE, errno);
		VEXO_ERR(VEXO_ERR_WRITE);
		return -1;
	}
	return 0;
}
VEXO_C_CATCH(-1)

} // extern "C"
