// The power timers. The library keeps no timer: each is a key of the
// system settings, and the platform daemon is told when one changes.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vexohw/disk_power.h>
#include <vexohw/vcemd.h>
#include <vexoplatform/vexocore.h>

#include "frame/boundary.h"
#include "frame/err.h"
#include "frame/sysroot.h"
#include "frame/unique.h"

namespace {

constexpr const char *kInfoFile = "/etc/vexoinfo.conf";
constexpr const char *kUsbKey = "usb_standbytimer";
constexpr const char *kAutoPoweroffKey = "auto_poweroff_timer";

struct Timer {
	int type;
	const char *key;
	int notification;
};

constexpr Timer kTimers[] = {
	{VEXO_TIMER_STANDBY, "standbytimer", VEXO_VCEMD_NOTIFY_STANDBY_TIMER},
	{VEXO_TIMER_SATA_DEEP_SLEEP, "satadeepsleeptimer", VEXO_VCEMD_NOTIFY_SATA_DEEP_SLEEP},
	{VEXO_TIMER_EUNIT_DEEP_SLEEP, "eunitdeepsleeptimer", VEXO_VCEMD_NOTIFY_EUNIT_DEEP_SLEEP},
};

const Timer *timerOf(int type)
{
	for (const Timer &t : kTimers)
		if (t.type == type)
			return &t;
	return nullptr;
}

// A key's decimal value; false when it is absent or empty.
bool readKey(const char *key, int &value, bool settingsOnly)
{
	char text[16] = {};
	int n = settingsOnly ? VLIBCFileGetKeyValue(kInfoFile, key, text, sizeof(text), 0)
			     : VLIBCINFOGetKeyValue(key, text, sizeof(text));
	if (n <= 0)
		return false;
	value = static_cast<int>(std::strtol(text, nullptr, 10));
	return true;
}

// The daemon acts on a timer key only once told; a daemon that is down
// reads the keys when it starts, so the key stays set either way.
void tell(int notification, const char *key)
{
	if (VLIBVcemdNotify(notification) != 0)
		vlog(LOG_WARNING, "%s:%d vcemd was not told of %s (notification %d)", VEXO_AT, key, notification);
}

} // namespace

extern "C" {

VEXO_API int VEXODiskGetStandbyTimer(int *value, int type) try {
	const Timer *t = timerOf(type);
	if (!value || !t) {
		vlog(LOG_ERR, "%s:%d invalid parameters", VEXO_AT);
		return -1;
	}
	return readKey(t->key, *value, true) ? 0 : -1;
}
VEXO_C_CATCH(-1)

VEXO_API int VEXODiskSetSleepTimer(int value, int type) try {
	const Timer *t = timerOf(type);
	if (!t) {
		vlog(LOG_ERR, "%s:%d invalid Timer Type %d", VEXO_AT, type);
		return -1;
	}
	int present = 0;
	if (readKey(t->key, present, true) && present == value)
		return 0;
	// Three characters at most: the key holds no more.
	const std::string text = std::to_string(value).substr(0, 3);
	if (VLIBCINFOSetKeyValue(t->key, text.c_str()) != 0) {
		vlog(LOG_ERR, "%s:%d set deep sleep timer key %s failed", VEXO_AT, t->key);
		return -1;
	}
	tell(t->notification, t->key);
	return 0;
}
VEXO_C_CATCH(-1)

VEXO_API int VEXODiskSetStandbyTimer(int value) try {
	if (value < 0) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	return VEXODiskSetSleepTimer(value, VEXO_TIMER_STANDBY);
}
VEXO_C_CATCH(-1)

VEXO_API int VEXODiskSetUSBStandbyTimer(unsigned int minutes) try {
	if (minutes > VEXO_USB_STANDBY_TIMER_MAX) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	const std::string text = std::to_string(minutes);
	if (VLIBCINFOSetKeyValue(kUsbKey, text.c_str()) != 0) {
		vlog(LOG_ERR, "%s:%d set %s failed", VEXO_AT, kUsbKey);
		return -1;
	}
	vexo::UniqueFile f(vexo::sysroot::fopen("/tmp/standbytime", "w"));
	if (!f) {
		vlog(LOG_ERR, "Cannot open %s\n", "/tmp/standbytime");
		return -1;
	}
	if (std::fprintf(f.get(), "time=%d", static_cast<int>(minutes)) < 0 || std::fflush(f.get()) != 0)
		return -1;
	return 0;
}
VEXO_C_CATCH(-1)

VEXO_API int VEXODiskGetUSBStandbyTimer(int *minutes) try {
	int value = 0;
	if (!readKey(kUsbKey, value, false))
		return -1;
	if (minutes)
		*minutes = value;
	return 0;
}
VEXO_C_CATCH(-1)

VEXO_API int VEXODiskSetAutoPoweroffTimer(int value) try {
	if (value < 0) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	int present = 0;
	if (readKey(kAutoPoweroffKey, present, false) && present == value)
		return 0;
	if (VLIBCINFOSetKeyValue(kAutoPoweroffKey, std::to_string(value).c_str()) != 0) {
		vlog(LOG_ERR, "%s:%d Set auto poweroff timer failed", VEXO_AT);
		return -1;
	}
	tell(VEXO_VCEMD_NOTIFY_AUTO_POWEROFF, kAutoPoweroffKey);
	return 0;
}
VEXO_C_CATCH(-1)

VEXO_API int VEXODiskGetAutoPoweroffTimer(int *value) try {
	if (!value) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	int v = 0;
	*value = readKey(kAutoPoweroffKey, v, false) ? v : 0;
	return 0;
}
VEXO_C_CATCH(-1)

} // extern "C"
