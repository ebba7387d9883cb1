// The fixed tables of fan control, one each: group types and their names,
// speed texts, actions, table types with their element names, short names
// and adapter ids, and the ADT sensor and PWM names.
#include <algorithm>
#include <cstdio>
#include <iterator>
#include <cstring>
#include <strings.h>

#include "fan/fan_private.h"
#include "frame/err.h"

namespace vexo::fan {
namespace {

struct ConfigTypeRow {
	const char *text;
	int name;
};
// Indexed by FAN_CONFIG_TYPE.
constexpr ConfigTypeRow kConfigTypes[] = {
	{"DUAL_MODE_HIGH", 1},	    {"DUAL_MODE_LOW", 1},	{"DUAL_MODE_LOW_STOP", 1},
	{"DUAL_MODE_FULL", 1},	    {"DUAL_MODE_HIGH_EBOX", 2}, {"DUAL_MODE_LOW_EBOX", 2},
	{"DUAL_MODE_FULL_EBOX", 2}, {"CPUFAN", 3},
};

struct SpeedRow {
	uint32_t code;
	const char *text;  // as read
	const char *alt;   // second form read, or null
	const char *shown; // as displayed
};
constexpr SpeedRow kSpeeds[] = {
	{1, "STOP", nullptr, "STOP"},
	{2, "ULTRA_LOW", nullptr, "ULTRA LOW"},
	{3, "VERY_LOW", nullptr, "VERY LOW"},
	{4, "LOW", nullptr, "LOW"},
	{5, "MIDDLE", nullptr, "MIDDLE"},
	{6, "HIGH", nullptr, "HIGH"},
	{7, "VERY_HIGH", nullptr, "VERY HIGH"},
	{8, "ULTRA_HIGH", nullptr, "ULTRA HIGH"},
	{9, "FULL", nullptr, "FULL"},
	// Raw three-bit patterns of boards that set their fan by GPIO bits.
	{10, "000", "00", "000"},
	{11, "001", "01", "001"},
	{12, "010", "10", "010"},
	{13, "011", "11", "011"},
	{14, "100", nullptr, "100"},
	{15, "101", nullptr, "101"},
	{16, "110", nullptr, "110"},
	{17, "111", nullptr, "111"},
};

constexpr struct {
	uint32_t code;
	const char *text;
} kActions[] = {{0, "NONE"}, {1, "ALERT_LED"}, {2, "SHUTDOWN"}};

constexpr TableTypeRow kTableTypes[] = {
	{1, "temperature", nullptr, 0},
	{2, "disk_temperature", "disk", 0},
	{3, "cpu_temperature", "cpu", 0},
	{4, "disk_temperature", nullptr, 0},
	{5, "m2_temperature", "m2", 0},
	{6, "xnic01_temperature", "xnic01", 0x1001},
	{7, "xnic02_temperature", "xnic02", 0x1002},
	{8, "xnic03_temperature", "xnic03", 0x2002},
	{9, "xnic04_temperature", "xnic04", 0x1003},
	{10, "xnic05_temperature", "xnic05", 0x1004},
	{11, "nic_temperature", "nic", 0},
	{12, "sas_temperature", "sas", 0},
	{13, "u2_temperature", "u2", 0},
	{14, "xnic06_temperature", "xnic06", 0x1005},
	{15, "xnic08_temperature", "xnic08", 0x1006},
	{16, "xnic09_temperature", "xnic09", 0x1009},
	{17, "xnic11_temperature", "xnic11", 0x1008},
	{18, "xnic12_temperature", "xnic12", 0x100A},
	{21, "sysdisk_temperature", "sysdisk", 0},
	{22, "xnic07_temperature", "xnic07", 0x100D},
	{23, "xnic13_temperature", "xnic13", 0x100B},
	{24, "xnic14_temperature", "xnic14", 0x100C},
	{25, "xnic10_temperature", "xnic10", 0x100E},
};

constexpr struct {
	const char *text;
	uint32_t value;
} kPwmSensorTypes[] = {
	{"manual", 2},	 {"allinput", 3},     {"allpeci", 4}, {"peci0", 5},  {"peci1", 6},  {"peci2", 7},
	{"peci3", 8},	 {"allsensor", 9},    {"remote2local", 10}, {"remote1", 11}, {"local", 12}, {"remote2", 13},
};

// Sensor names by value; anything else is 7.
constexpr const char *kSensorNames[] = {"peci0", "peci1", "peci2", "peci3", "remote1", "local", "remote2"};

constexpr const char *kBmcAlertNames[] = {"disk", "sysdisk", "cpu", "m2", "sas", "u2"};

bool same(const char *a, const char *b)
{
	return a && b && strcasecmp(a, b) == 0;
}

} // namespace

const TableTypeRow *tableTypeRow(int type)
{
	for (const auto &r : kTableTypes)
		if (r.type == type)
			return &r;
	return nullptr;
}

int alertNameType(const char *name)
{
	for (const auto &r : kTableTypes)
		if (r.shortName && (same(name, r.shortName) || (r.type != FAN_TABLE_SAS && same(name, r.element))))
			return r.type;
	return 0;
}

int bmcAlertNameType(const char *name)
{
	for (const char *known : kBmcAlertNames)
		if (same(name, known))
			return alertNameType(known);
	return 0;
}

uint32_t pwmName(const char *text)
{
	constexpr const char *names[] = {"pwm1", "pwm2", "pwm3"};
	for (uint32_t i = 0; i < 3; ++i)
		if (same(text, names[i]))
			return i + 1;
	return 0;
}

uint32_t pwmSensorType(const char *text)
{
	for (const auto &r : kPwmSensorTypes)
		if (same(text, r.text))
			return r.value;
	return 0;
}

uint32_t sensorName(const char *text)
{
	for (uint32_t i = 0; i < std::size(kSensorNames); ++i)
		if (same(text, kSensorNames[i]))
			return i;
	return 7;
}

std::string speedText(uint32_t code)
{
	char buf[32];
	if (code > 999) {
		uint32_t v = code - 1000;
		std::snprintf(buf, sizeof buf, "%02d%%%02dhz", (int)(v & 0xFF), (int)(v >> 8));
		return buf;
	}
	for (const auto &r : kSpeeds)
		if (r.code == code)
			return r.shown;
	return "UNKNOWN";
}

bool typeBelongsToGroup(int type, int configName)
{
	if (configName == FAN_CONFIG_NAME_EBOX && type == FAN_TABLE_DISK)
		return false;
	if ((configName == FAN_CONFIG_NAME_INTERNAL || configName == FAN_CONFIG_NAME_CPUFAN) &&
	    type == FAN_TABLE_EBOX_DISK)
		return false;
	return true;
}

} // namespace vexo::fan

using namespace vexo::fan;

extern "C" VEXO_API int VEXOFanConfigTypeMatch(const char *text, FAN_CONFIG_TYPE *type) try {
	if (!type) {
		vlog(LOG_ERR, "%s:%d arguments error", VEXO_AT);
		return -1;
	}
	*type = DUAL_MODE_LOW;
	for (int i = 0; i < (int)std::size(kConfigTypes); ++i)
		if (same(text, kConfigTypes[i].text))
			*type = static_cast<FAN_CONFIG_TYPE>(i);
	return 0;
}
VEXO_C_CATCH(-1)

extern "C" VEXO_API int VEXOFanConfigNameGet(int type)
{
	return type >= 0 && type < (int)std::size(kConfigTypes) ? kConfigTypes[type].name : 0;
}

extern "C" VEXO_API int VEXOFanSpeedMatch(const char *text, uint32_t *speed) try {
	if (!text || !speed) {
		vlog(LOG_ERR, "%s:%d arguments error", VEXO_AT);
		return -1;
	}
	if (const char *pct = std::strchr(text, '%')) {
		// "<duty>%<frequency>hz"; a field not given counts as 0.
		// The duty saturates at its byte and the frequency at 16 bits, so
		// no text makes a code that spills from one into the other.
		auto digits = [](const char *p, const char *end, uint32_t max) {
			uint32_t v = 0;
			for (; (!end || p < end) && *p >= '0' && *p <= '9'; ++p)
				v = std::min<uint32_t>(v * 10 + (uint32_t)(*p - '0'), max);
			return v;
		};
		uint32_t duty = digits(text, pct, 0xFF), freq = digits(pct + 1, nullptr, 0xFFFF);
		*speed = 1000 + duty + freq * 256;
		return 0;
	}
	*speed = 0;
	for (const auto &r : kSpeeds)
		if (same(text, r.text) || same(text, r.alt))
			*speed = r.code;
	return 0;
}
VEXO_C_CATCH(-1)

extern "C" VEXO_API int VEXOFanActionMatch(const char *text, uint32_t *action) try {
	if (!text || !action) {
		vlog(LOG_ERR, "%s:%d arguments error", VEXO_AT);
		return -1;
	}
	*action = 0;
	for (const auto &r : kActions)
		if (same(text, r.text))
			*action = r.code;
	return 0;
}
VEXO_C_CATCH(-1)

extern "C" VEXO_API const char *VEXOFanTableNameGet(int type)
{
	const TableTypeRow *r = tableTypeRow(type);
	return r ? r->element : "unknown";
}

extern "C" VEXO_API int VEXOFanTableNicSSIDGet(int type, int *vendor, int *device)
{
	const TableTypeRow *r = tableTypeRow(type);
	if (!r || !r->device)
		return -1;
	if (vendor)
		*vendor = VEXO_FAN_NIC_VENDOR;
	if (device)
		*device = r->device;
	return 0;
}

extern "C" VEXO_API int VEXOFanIsVexoNicConfigName(const char *name, int *vendor, int *device)
{
	for (const auto &r : kTableTypes)
		if (r.device && (same(name, r.element) || same(name, r.shortName))) {
			if (vendor)
				*vendor = VEXO_FAN_NIC_VENDOR;
			if (device)
				*device = r.device;
			return 1;
		}
	return 0;
}

extern "C" VEXO_API int VEXOFanIsNicFanTable(int type)
{
	const TableTypeRow *r = tableTypeRow(type);
	return r && (r->device || type == FAN_TABLE_NIC) ? 1 : 0;
}
