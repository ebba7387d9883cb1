// The user's fan settings in the system settings file: the dual mode of
// the internal and expansion unit groups, the global speed and time.
#include <cstdlib>
#include <cstring>
#include <strings.h>
#include <vexohw/vcemd.h>

#include "fan/fan_private.h"
#include "frame/err.h"

namespace {

constexpr const char *kInfo = "/etc/vexoinfo.conf";
constexpr const char *kInternalKey = "fan_config_type_internal";
constexpr const char *kEboxKey = "fan_config_type_ebox";

// Stored text -> mode of each key; anything else reads as the first row's "absent".
constexpr struct {
	const char *text;
	int internal;
	int ebox;
} kModes[] = {{nullptr, 1, 5}, {"full", 3, 6}, {"high", 0, 4}, {"low_stop", 2, 5}};

// Mode -> stored text.
const char *modeText(int type)
{
	switch (type) {
	case 1:
	case 5:
		return "low";
	case 2:
		return "low_stop";
	case 3:
	case 6:
		return "full";
	default:
		return "high";
	}
}

constexpr const char *kSpeeds[] = {"on", "off", "high", "low"};

} // namespace

extern "C" VEXO_API int VEXOFanAdjustDualModeGet(const char *key) try {
	if (!key)
		return 1;
	bool ebox = strcasecmp(key, kEboxKey) == 0;
	char value[32] = {};
	int n = VLIBCFileGetKeyValue(kInfo, key, value, sizeof value, 0);
	for (const auto &m : kModes)
		if (m.text && n > 0 && strcasecmp(value, m.text) == 0)
			return ebox ? m.ebox : m.internal;
	return ebox ? kModes[0].ebox : kModes[0].internal;
}
VEXO_C_CATCH(1)

extern "C" VEXO_API int VEXOFanAdjustDualModeSetWithoutNotify(int type) try {
	int name = VEXOFanConfigNameGet(type);
	if (name != FAN_CONFIG_NAME_INTERNAL && name != FAN_CONFIG_NAME_EBOX)
		return -1;
	const char *key = name == FAN_CONFIG_NAME_INTERNAL ? kInternalKey : kEboxKey;
	if (VLIBCINFOSetKeyValue(key, modeText(type)) != 0) {
		vlog(LOG_ERR, "%s:%d failed set key %s to %s", VEXO_AT, key, modeText(type));
		return -1;
	}
	return 0;
}
VEXO_C_CATCH(-1)

extern "C" VEXO_API int VEXOFanAdjustDualModeSet(int type) try {
	if (VEXOFanAdjustDualModeSetWithoutNotify(type) != 0)
		return -1;
	if (VLIBCINFORemoveKey("fan_config_type_internal_backup") != 0) {
		vlog(LOG_ERR, "%s:%d Fail to remove backup key from vexoinfo.conf", VEXO_AT);
		return 0;
	}
	VLIBVcemdNotify(VEXOFanConfigNameGet(type) == FAN_CONFIG_NAME_INTERNAL ? VEXO_VCEMD_NOTIFY_FAN_MODE
									     : VEXO_VCEMD_NOTIFY_FAN_MODE2);
	return 0;
}
VEXO_C_CATCH(-1)

extern "C" VEXO_API int VEXOFanConfigSpeedGet(void) try {
	char value[32] = {};
	if (VLIBCFileGetKeyValue(kInfo, "fanspeed", value, sizeof value, 0) < 0) {
		vlog(LOG_ERR, "%s (%d) Failed to get fan speed form vexoinfo.conf", VEXO_AT);
		return 0;
	}
	for (int i = 0; i < 4; ++i)
		if (strcasecmp(value, kSpeeds[i]) == 0)
			return i;
	return 0;
}
VEXO_C_CATCH(0)

extern "C" VEXO_API int VEXOFanConfigSpeedSet(int value) try {
	if (value > 3)
		vlog(LOG_ERR, "%s (%d) Bad FanSpeed: %d", VEXO_AT, value);
	const char *text = value >= 1 && value <= 3 ? kSpeeds[value] : kSpeeds[0];
	if (VLIBCINFOSetKeyValue("fanspeed", text) != 0) {
		vlog(LOG_ERR, "%s(%d) failed set key %s to %s", VEXO_AT, "fanspeed", text);
		return -1;
	}
	return 0;
}
VEXO_C_CATCH(-1)

extern "C" VEXO_API int VEXOFanConfigTimeGet(void) try {
	char value[32] = {};
	if (VLIBCFileGetKeyValue(kInfo, "fantime", value, sizeof value, 0) <= 0)
		return 0;
	return (int)std::strtol(value, nullptr, 10);
}
VEXO_C_CATCH(0)

extern "C" VEXO_API int VEXOFanConfigTimeSet(const char *text) try {
	if (!text || VLIBCINFOSetKeyValue("fantime", text) != 0) {
		vlog(LOG_ERR, "%s(%d) failed set key %s to %s", VEXO_AT, "fantime", text ? text : "(null)");
		return -1;
	}
	return 0;
}
VEXO_C_CATCH(-1)
