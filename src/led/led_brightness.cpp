// The LED dimmer: its description (the first chip of led_brightness.xml
// that answers, with its levels), the level set and read over I2C, and the
// weekly schedule kept in /etc/vexoinfo.conf. Nothing stays in memory
// between calls: every call loads the description afresh.
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <unistd.h>

#include "frame/clock.h"
#include "frame/err.h"
#include "frame/priv.h"
#include "frame/sysroot.h"
#include "frame/xml.h"
#include "led/led_private.h"

namespace {

using vexo::led::Config;

constexpr int kLockVexoInfo = 0x806;
constexpr int kLockClassVexoInfo = 0x800;
constexpr size_t kReadSize = 1024;

// The schedule's characters and the level each applies; kFromSettings
// stands for the user's adjusted level.
constexpr int kFromSettings = INT_MIN;
struct ScheduleMark {
	char mark;
	int level;
};
constexpr ScheduleMark kScheduleMarks[] = {
	{'0', -1},            // the default level
	{'1', kFromSettings}, // led_brightness_adjusted_level
	{'2', 0},             // LEDs off
};

const ScheduleMark *markOf(char c)
{
	for (const auto &m : kScheduleMarks)
		if (m.mark == c)
			return &m;
	return nullptr;
}

bool supported()
{
	if (VLIBCSupportLEDBrightnessAdjust())
		return true;
	vlog(LOG_ERR, "%s:%d Not support led dimmer", VEXO_AT);
	return false;
}

// Element text as a number, hexadecimal or decimal by its prefix.
bool childNumber(const xmlNode *parent, const char *name, int &out)
{
	for (const xmlNode *n = parent->children; n; n = n->next) {
		if (!vexo::xml::named(n, name))
			continue;
		vexo::xml::Text t(xmlNodeGetContent(n));
		if (!t)
			return false;
		std::string s(reinterpret_cast<const char *>(t.get()));
		s.erase(0, s.find_first_not_of(" \t\r\n"));
		s.erase(s.find_last_not_of(" \t\r\n") + 1);
		if (s.empty())
			return false;
		errno = 0;
		char *end = nullptr;
		long v = std::strtol(s.c_str(), &end, 0);
		if (errno || *end || v < INT_MIN || v > INT_MAX)
			return false;
		out = static_cast<int>(v);
		return true;
	}
	return false;
}

std::string childText(const xmlNode *parent, const char *name)
{
	for (const xmlNode *n = parent->children; n; n = n->next)
		if (vexo::xml::named(n, name)) {
			vexo::xml::Text t(xmlNodeGetContent(n));
			return t ? reinterpret_cast<const char *>(t.get()) : "";
		}
	return {};
}

std::string hexArg(int v)
{
	char b[16];
	std::snprintf(b, sizeof b, "0x%02X", v);
	return b;
}

// Reads the chip's byte. 0, or -1 with the failure logged by the tool.
int chipRead(const LedBrightnessConfig &c, char *out, size_t size)
{
	std::string bus = hexArg(c.bus), address = hexArg(c.address), offset = hexArg(c.offset);
	const char *argv[] = {"/usr/sbin/i2cget", "-y", bus.c_str(), address.c_str(), offset.c_str(), nullptr};
	return vexo::led::i2cget(c.commandType == VEXO_LED_COMMAND_SMBUS ? 5 : 4, argv, out, size);
}

// The levels of one brightness element, appended in document order.
bool appendLevel(LedBrightnessLevel **&tail, const xmlNode *n)
{
	LedBrightnessLevel l{};
	if (!childNumber(n, "value", l.value) || !childNumber(n, "i2cValue", l.i2cValue)) {
		vlog(LOG_WARNING, "%s:%d Fail to read value or i2cValue of a brightness element", VEXO_AT);
		return true;
	}
	l.isDefault = childText(n, "default") == "true";
	auto *cell = static_cast<LedBrightnessLevel *>(std::calloc(1, sizeof(LedBrightnessLevel)));
	if (!cell) {
		vlog(LOG_ERR, "%s:%d Fail to malloc size(%zu)", VEXO_AT, sizeof(LedBrightnessLevel));
		VEXO_ERR(VEXO_ERR_NOMEM);
		return false;
	}
	*cell = l;
	*tail = cell;
	tail = &cell->next;
	return true;
}

Config load()
{
	Config c(static_cast<LedBrightnessConfig *>(std::calloc(1, sizeof(LedBrightnessConfig))));
	if (!c) {
		vlog(LOG_ERR, "%s:%d Fail to malloc size(%zu)", VEXO_AT, sizeof(LedBrightnessConfig));
		VEXO_ERR(VEXO_ERR_NOMEM);
		return nullptr;
	}
	const char *file = vexo::sysroot::access(VEXO_LED_BRIGHTNESS_TMP_FILE, F_OK) == 0 ? VEXO_LED_BRIGHTNESS_TMP_FILE
											     : VEXO_LED_BRIGHTNESS_DEFAULT_FILE;
	vexo::xml::Doc doc = vexo::xml::readFile(file);
	if (!doc) {
		vlog(LOG_ERR, "%s:%d Fail to read %s", VEXO_AT, file);
		VEXO_ERR(VEXO_ERR_READ);
		return nullptr;
	}
	xmlNode *root = xmlDocGetRootElement(doc.get());
	if (!root) {
		vlog(LOG_ERR, "%s:%d Fail to parse xml: no root element", VEXO_AT);
		VEXO_ERR(VEXO_ERR_READ);
		return nullptr;
	}
	// A board description may list several possible chips, each with its
	// own levels: the first that answers is the one in this box.
	bool chosen = false;
	LedBrightnessLevel **tail = &c->levels;
	for (const xmlNode *n = root->children; n; n = n->next) {
		if (vexo::xml::named(n, "i2c")) {
			if (chosen)
				break;
			LedBrightnessConfig probe{};
			// The bus by number or by its adapter's name: numbers can change
			// between kernels, the name of the board's adapter does not.
			std::string bus = childText(n, "bus");
			bus.erase(0, bus.find_first_not_of(" \t\r\n"));
			bus.erase(bus.find_last_not_of(" \t\r\n") + 1);
			if ((probe.bus = vexo::led::lookup_i2c_bus(bus.c_str(), true)) < 0 ||
			    !childNumber(n, "address", probe.address))
				continue;
			if (!childNumber(n, "offset", probe.offset))
				probe.offset = 0;
			probe.commandType = childText(n, "command_type") == "I2C" ? VEXO_LED_COMMAND_I2C : VEXO_LED_COMMAND_SMBUS;
			char answer[kReadSize];
			if (chipRead(probe, answer, sizeof answer) != 0)
				continue;
			c->bus = probe.bus;
			c->address = probe.address;
			c->offset = probe.offset;
			c->commandType = probe.commandType;
			chosen = true;
		} else if (chosen && vexo::xml::named(n, "brightness")) {
			if (!appendLevel(tail, n))
				return nullptr;
		}
	}
	if (!c->levels) {
		vlog(LOG_ERR, "%s:%d Fail to match i2c device", VEXO_AT);
		VEXO_ERR(VEXO_ERR_NOT_FOUND);
		return nullptr;
	}
	return c;
}

const LedBrightnessLevel *defaultLevel(const LedBrightnessConfig &c)
{
	for (const LedBrightnessLevel *l = c.levels; l; l = l->next)
		if (l->isDefault)
			return l;
	return nullptr;
}

int setLevel(const LedBrightnessConfig &c, int level)
{
	const LedBrightnessLevel *hit = nullptr;
	for (const LedBrightnessLevel *l = c.levels; l && !hit; l = l->next)
		if (level == -1 ? l->isDefault != 0 : l->value == level)
			hit = l;
	if (!hit) {
		vlog(LOG_ERR, "%s:%d Fail to map 0x%02X", VEXO_AT, level);
		VEXO_ERR(VEXO_ERR_NOT_FOUND);
		return -1;
	}
	std::string bus = hexArg(c.bus), address = hexArg(c.address), offset = hexArg(c.offset),
		    byte = hexArg(hit->i2cValue);
	int rc;
	if (c.commandType == VEXO_LED_COMMAND_I2C) {
		const char *argv[] = {"/usr/sbin/i2cset", "-y", bus.c_str(), address.c_str(), byte.c_str(), nullptr};
		rc = vexo::led::i2cset(5, argv);
	} else {
		const char *argv[] = {"/usr/sbin/i2cset", "-y", bus.c_str(), address.c_str(), offset.c_str(), byte.c_str(), nullptr};
		rc = vexo::led::i2cset(6, argv);
	}
	if (rc != 0) {
		vlog(LOG_ERR, "%s:%d Fail to i2cset()", VEXO_AT);
		VEXO_ERR(VEXO_ERR_DEVICE);
		return -1;
	}
	return 0;
}

// One key of the settings into out; "" when the key (or the file) is
// absent. False on a read error, logged.
bool setting(const char *key, char *out, int size)
{
	VLIBCErrClear();
	int r = VLIBCFileGetKeyValue(VEXO_LED_BRIGHTNESS_SETTINGS_FILE, key, out, size, 0);
	if (r < 0 && VLIBCErrGet() != VEXO_ERR_NOENT) {
		vlog(LOG_ERR, "%s:%d Fail to get value(%s) in %s", VEXO_AT, key, VEXO_LED_BRIGHTNESS_SETTINGS_FILE);
		VEXO_ERR_PASS();
		return false;
	}
	if (r <= 0)
		out[0] = '\0';
	VLIBCErrClear();
	return true;
}

int readSettings(const LedBrightnessConfig &c, int &level, char *schedule)
{
	char buf[512];
	if (!setting(VEXO_LED_BRIGHTNESS_SCHEDULE_KEY, buf, sizeof buf))
		return -1;
	// A stored value longer than a week is cut to one (and then judged).
	size_t n = std::strlen(buf);
	n = n > VEXO_LED_SCHEDULE_LENGTH ? VEXO_LED_SCHEDULE_LENGTH : n;
	if (n)
		std::memcpy(schedule, buf, n);
	else
		std::memset(schedule, '1', n = VEXO_LED_SCHEDULE_LENGTH);
	schedule[n] = '\0';
	if (!setting(VEXO_LED_BRIGHTNESS_LEVEL_KEY, buf, sizeof buf))
		return -1;
	char *end = nullptr;
	long v = buf[0] ? std::strtol(buf, &end, 10) : 0;
	if (buf[0] && !*end && v >= INT_MIN && v <= INT_MAX) {
		level = static_cast<int>(v);
		return 0;
	}
	if (buf[0])
		vlog(LOG_WARNING, "%s:%d Bad value(%s) of %s, the default level stands", VEXO_AT, buf,
		     VEXO_LED_BRIGHTNESS_LEVEL_KEY);
	const LedBrightnessLevel *d = defaultLevel(c);
	level = d ? d->value : -1;
	if (!d)
		vlog(LOG_WARNING, "%s:%d Fail to get default value of LED brightness", VEXO_AT);
	return 0;
}

} // namespace

extern "C" {

LedBrightnessConfig *initLedBrightnessConfig(void)
try {
	return load().release();
}
VEXO_C_CATCH(nullptr)

void clearLedBrightnessConfig(LedBrightnessConfig *config)
{
	if (!config)
		return;
	for (LedBrightnessLevel *l = config->levels; l;) {
		LedBrightnessLevel *next = l->next;
		std::free(l);
		l = next;
	}
	std::free(config);
}

int isValidScheduleString(const char *schedule)
{
	if (!schedule || std::strlen(schedule) != VEXO_LED_SCHEDULE_LENGTH)
		return 0;
	for (const char *p = schedule; *p; ++p)
		if (!markOf(*p))
			return 0;
	return 1;
}

int VEXOSetLedBrightness(int level)
try {
	if (!supported())
		return -1;
	Config c = load();
	return c ? setLevel(*c, level) : -1;
}
VEXO_C_CATCH(-1)

int VEXOGetLedBrightness(int *level)
try {
	if (!supported())
		return -1;
	if (!level) {
		vlog(LOG_ERR, "%s:%d Null pointer", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	Config c = load();
	if (!c)
		return -1;
	char text[kReadSize];
	if (chipRead(*c, text, sizeof text) != 0) {
		vlog(LOG_ERR, "%s:%d Fail to i2cget()", VEXO_AT);
		VEXO_ERR(VEXO_ERR_DEVICE);
		return -1;
	}
	long byte = std::strtol(text, nullptr, 0);
	for (const LedBrightnessLevel *l = c->levels; l; l = l->next)
		if (l->i2cValue == byte) {
			*level = l->value;
			return 0;
		}
	vlog(LOG_ERR, "%s:%d Fail to map 0x%02X", VEXO_AT, static_cast<unsigned>(byte));
	VEXO_ERR(VEXO_ERR_NOT_FOUND);
	return -1;
}
VEXO_C_CATCH(-1)

int VEXOGetLedBrightnessConfiguration(int *level, char *schedule)
try {
	if (!supported())
		return -1;
	if (!level || !schedule) {
		vlog(LOG_ERR, "%s:%d Null pointer", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	Config c = load();
	if (!c)
		return -1;
	int l = -1;
	char s[VEXO_LED_SCHEDULE_LENGTH + 1];
	if (readSettings(*c, l, s) != 0)
		return -1;
	*level = l;
	std::memcpy(schedule, s, sizeof s);
	return 0;
}
VEXO_C_CATCH(-1)

int VEXOSetLedBrightnessConfiguration(int level, const char *schedule)
try {
	if (!supported())
		return -1;
	Config c = load();
	if (!c)
		return -1;
	if (!isValidScheduleString(schedule)) {
		vlog(LOG_ERR, "%s:%d Invalid format of schedule", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	if (VLIBCFileLock(kLockVexoInfo, 5) != 0) {
		vlog(LOG_ERR, "%s:%d Fail to lock file LOCK_VEXOINFO", VEXO_AT);
		VEXO_ERR(VEXO_ERR_LOCK);
		return -1;
	}
	const std::string levelText = std::to_string(level);
	const std::pair<const char *, const char *> keys[] = {
		{VEXO_LED_BRIGHTNESS_SCHEDULE_KEY, schedule},
		{VEXO_LED_BRIGHTNESS_LEVEL_KEY, levelText.c_str()},
	};
	bool written = true;
	{
		ENTERCriticalSection;
		for (const auto &[key, value] : keys)
			if (VLIBCFileSetKeyValue(VEXO_LED_BRIGHTNESS_SETTINGS_FILE, key, value, VLIBC_KV_TEMPLATE) != 1) {
				vlog(LOG_ERR, "%s:%d Fail to get value(%s) in %s", VEXO_AT, key, VEXO_LED_BRIGHTNESS_SETTINGS_FILE);
				VEXO_ERR(VEXO_ERR_WRITE);
				written = false;
				break;
			}
	}
	if (!written) {
		VLIBCFileUnlock(kLockClassVexoInfo);
		return -1;
	}
	if (VLIBCFileUnlock(kLockClassVexoInfo) != 0)
		vlog(LOG_ERR, "%s:%d Fail to unlock file LOCK_VEXOINFO", VEXO_AT);
	c.reset();
	if (VEXOUpdateLedBrightnessByConfiguration(1) != 0)
		vlog(LOG_WARNING, "%s:%d Fail to update current led brightness after config changed", VEXO_AT);
	return 0;
}
VEXO_C_CATCH(-1)

int VEXOUpdateLedBrightnessByConfiguration(int force)
try {
	if (!supported())
		return -1;
	Config c = load();
	if (!c)
		return -1;
	int adjusted = -1;
	char schedule[VEXO_LED_SCHEDULE_LENGTH + 1];
	if (readSettings(*c, adjusted, schedule) != 0) {
		vlog(LOG_ERR, "%s:%d Fail to get config data", VEXO_AT);
		return -1;
	}
	std::time_t now = vexo::clock::wallSeconds();
	struct tm local {};
	if (!localtime_r(&now, &local)) {
		vlog(LOG_ERR, "%s:%d Fail to get time", VEXO_AT);
		VEXO_ERR(VEXO_ERR_INTERNAL);
		return -1;
	}
	if (std::strlen(schedule) != VEXO_LED_SCHEDULE_LENGTH) {
		vlog(LOG_ERR, "%s:%d Invalid format of schedule", VEXO_AT);
		VEXO_ERR(VEXO_ERR_READ);
		return -1;
	}
	// Sunday 00:00 is index 0; its hour before is the last of Saturday.
	int hour = local.tm_wday * 24 + local.tm_hour;
	int before = (hour + VEXO_LED_SCHEDULE_LENGTH - 1) % VEXO_LED_SCHEDULE_LENGTH;
	if (!force && schedule[hour] == schedule[before])
		return 0;
	const ScheduleMark *m = markOf(schedule[hour]);
	if (!m) {
		vlog(LOG_ERR, "%s:%d The value(%c) in schedule isn't defined", VEXO_AT, schedule[hour]);
		VEXO_ERR(VEXO_ERR_READ);
		return -1;
	}
	if (setLevel(*c, m->level == kFromSettings ? adjusted : m->level) != 0)
		vlog(LOG_ERR, "%s:%d Fail to set led brightness", VEXO_AT);
	return 0;
}
VEXO_C_CATCH(-1)

int VEXOGetLedBrightnessStaticData(int32_t *data)
try {
	if (!data) {
		vlog(LOG_ERR, "%s:%d Null pointer", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	Config c = load();
	if (!c)
		return -1;
	int32_t lo = c->levels->value, hi = c->levels->value;
	for (const LedBrightnessLevel *l = c->levels; l; l = l->next) {
		lo = l->value < lo ? l->value : lo;
		hi = l->value > hi ? l->value : hi;
	}
	const LedBrightnessLevel *d = defaultLevel(*c);
	data[0] = lo;
	data[1] = hi;
	data[2] = d ? d->value : -1;
	return 0;
}
VEXO_C_CATCH(-1)

} // extern "C"
