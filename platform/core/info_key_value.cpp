// The system settings file. Reads look in /etc/vexoinfo.conf first and, for
// a key that is not there, in the product defaults; writes change only
// /etc/vexoinfo.conf, under the numbered lock LOCK_VEXOINFO.
#include <vexoplatform/vexocore.h>

#include "frame/err.h"
#include "frame/text.h"
#include "text_file.h"

namespace {

constexpr const char *kInfoFile = "/etc/vexoinfo.conf";
constexpr const char *kInfoDefaults = "/etc.defaults/vexoinfo.conf";
constexpr int kLockVexoInfo = 0x806;
constexpr int kLockVexoInfoClass = kLockVexoInfo & ~0xFF;

template <typename Write>
int lockedWrite(Write write)
{
	if (VLIBCFileLock(kLockVexoInfo, 5) != 0) {
		vlog(LOG_ERR, "%s(%d): VLIBCFileLock() failed.", VEXO_AT);
		VEXO_ERR_PASS();
		return -1;
	}
	int r = write();
	int err = VLIBCErrGet();
	if (VLIBCFileUnlock(kLockVexoInfoClass) != 0) {
		vlog(LOG_ERR, "%s(%d): VLIBCFileUnlock() failed.", VEXO_AT);
		VEXO_ERR_PASS();
		return -1;
	}
	if (r < 0) {
		VLIBCErrSetEx(err, VEXO_SRC, __LINE__);
		return -1;
	}
	return 0;
}

} // namespace

extern "C" {

VEXOP_API int VLIBCINFOGetKeyValue(const char *key, char *out, int size)
try {
	if (!key || !*key || !out || size < 1) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::string value;
	int found = vexo::core::findValue(kInfoFile, key, value);
	if (found < 0 && VLIBCErrGet() != VEXO_ERR_NOENT) {
		VEXO_ERR_PASS();
		return -1;
	}
	if (found <= 0) {
		int fallback = vexo::core::findValue(kInfoDefaults, key, value);
		if (fallback < 0 && found < 0) {
			// Neither file is there.
			VEXO_ERR_PASS();
			return -1;
		}
		found = fallback;
	}
	if (found <= 0) {
		VEXO_ERR(VEXO_ERR_NOT_FOUND);
		out[0] = '\0';
		return 0;
	}
	// A value longer than the buffer is cut to it: the length tells.
	return static_cast<int>(vexo::copyTextCut(out, size, value));
} VEXO_C_CATCH(-1)

VEXOP_API int VLIBCINFOSetKeyValue(const char *key, const char *value)
try {
	if (!vexo::core::validKey(key) || !vexo::core::validValue(value)) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	return lockedWrite([&] { return VLIBCFileSetKeyValue(kInfoFile, key, value, VLIBC_KV_TEMPLATE); });
} VEXO_C_CATCH(-1)

VEXOP_API int VLIBCINFORemoveKey(const char *key)
try {
	if (!vexo::core::validKey(key)) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	// Removing a key that is not there (or from a missing file) is done.
	return lockedWrite([&] { return VLIBCFileRemoveKey(kInfoFile, key); });
} VEXO_C_CATCH(-1)

} // extern "C"
