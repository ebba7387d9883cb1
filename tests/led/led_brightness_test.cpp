// The LED dimmer over the emulated I2C bus: which chip of the description
// is used, the bytes that land in its register, the stored settings and
// the weekly schedule at fixed clock times.
#include <cstddef>
#include <cstdlib>
#include <ctime>
#include <string>
#include <syslog.h>
#include <vexohw/led.h>

#include "frame/clock.h"
#include "smartctl/drive_sim.h"
#include "support/vexotest.h"

using vexo::test::LogCapture;
using vexo::test::Sysroot;

namespace {

const bool kEmulator = vexo::test::installDriveEmulator();

static_assert(offsetof(LedBrightnessConfig, commandType) == 12 && offsetof(LedBrightnessConfig, levels) == 16);
static_assert(offsetof(LedBrightnessLevel, isDefault) == 8 && offsetof(LedBrightnessLevel, next) == 16);
static_assert(sizeof(DiskLedRequest) == 36 && sizeof(DiskLedLogRecord) == 96 && sizeof(DiskLedStatus) == 16);

const std::string kChipAt2d = "<i2c><bus>0</bus><address>0x2d</address><offset>0x01</offset></i2c>"
			      "<brightness><value>0</value><i2cValue>0x00</i2cValue></brightness>"
			      "<brightness><value>3</value><i2cValue>0x80</i2cValue><default>true</default></brightness>"
			      "<brightness><value>5</value><i2cValue>255</i2cValue></brightness>";

struct Dimmer : ::testing::Test {
	Sysroot root;
	void SetUp() override
	{
		ASSERT_TRUE(kEmulator);
		root.conf("/etc.defaults/vexoinfo.conf", {{"support_led_brightness_adjust", "yes"}});
		root.write("/etc/vexoinfo.conf", "");
		board("<x>" + kChipAt2d + "</x>", 0x80);
		::setenv("TZ", "UTC", 1);
		::tzset();
	}
	void TearDown() override { vexo::clock::clearForTest(); }
	void board(const std::string &xml, int reg) const
	{
		root.write(VEXO_LED_BRIGHTNESS_DEFAULT_FILE, xml);
		root.write("/dev/i2c-0", "{\"i2c\": {\"0x2d\": {\"registers\": {\"0x01\": " + std::to_string(reg) +
						 "}, \"byte\": " + std::to_string(reg) + "}}}");
		root.remove("/run/vexosim/drive/i2c-0.log");
	}
	// The transfers that changed the chip, as the emulator logged them.
	std::string writes() const
	{
		std::string out, log = root.exists("/run/vexosim/drive/i2c-0.log") ? root.read("/run/vexosim/drive/i2c-0.log") : "";
		for (size_t at = 0, nl; (nl = log.find('\n', at)) != std::string::npos; at = nl + 1)
			if (log.compare(at, 15, "I2C_SMBUS write") == 0)
				out += log.substr(at + 16, log.find(" ->", at) - at - 16) + ";";
		root.remove("/run/vexosim/drive/i2c-0.log");
		return out;
	}
	static int level()
	{
		int l = -9;
		return VEXOGetLedBrightness(&l) == 0 ? l : -9;
	}
};

TEST_F(Dimmer, LoadPicksFirstAnsweringChip)
{
	const struct {
		std::string xml;
		int address, commandType, levels; // 0 levels: the load fails
		const char *log;
	} cases[] = {
		// The chip at 0x2c doesn't answer: its levels go with it.
		{"<x><i2c><bus>0</bus><address>0x2c</address><command_type>I2C</command_type></i2c>"
		 "<brightness><value>9</value><i2cValue>9</i2cValue></brightness>" + kChipAt2d + "</x>",
		 0x2d, VEXO_LED_COMMAND_SMBUS, 3, nullptr},
		{"<x><i2c><bus>0</bus><address>45</address><command_type>I2C</command_type></i2c>"
		 "<brightness><value>1</value><i2cValue>1</i2cValue></brightness></x>",
		 0x2d, VEXO_LED_COMMAND_I2C, 1, nullptr},
		// Levels after a second i2c element belong to it, not the chosen one.
		{"<x>" + kChipAt2d + "<i2c><bus>0</bus><address>0x2d</address></i2c>"
		 "<brightness><value>7</value><i2cValue>7</i2cValue></brightness></x>", 0x2d, VEXO_LED_COMMAND_SMBUS, 3, nullptr},
		{"<x><i2c><bus>1</bus><address>0x2d</address></i2c>" + kChipAt2d.substr(kChipAt2d.find("<brightness")) + "</x>",
		 0, 0, 0, "Fail to match i2c device"},
		{"", 0, 0, 0, "Fail to read /usr/vexo/etc.defaults/led_brightness.xml"},
	};
	for (const auto &c : cases) {
		SCOPED_TRACE(c.xml);
		board(c.xml, 0x80);
		LogCapture log;
		LedBrightnessConfig *cfg = initLedBrightnessConfig();
		int n = 0;
		for (const LedBrightnessLevel *l = cfg ? cfg->levels : nullptr; l; l = l->next)
			++n;
		EXPECT_EQ(n, c.levels);
		if (cfg) {
			EXPECT_EQ(cfg->address * 10 + cfg->commandType, c.address * 10 + c.commandType);
		}
		if (c.log) {
			EXPECT_TRUE(log.has(LOG_ERR, c.log)) << log.dump();
		}
		clearLedBrightnessConfig(cfg);
	}
	clearLedBrightnessConfig(nullptr);
}

TEST_F(Dimmer, SetLevelWritesTheChipByte)
{
	const struct {
		int level;
		int rc;
		const char *sent; // the write transfers; the I2C form sends one byte, SMBUS a register and a byte
		bool i2cForm;
	} cases[] = {
		{-1, 0, "byte_data addr=0x2d reg=0x01 value=0x80;", false},
		{5, 0, "byte_data addr=0x2d reg=0x01 value=0xff;", false},
		{0, 0, "byte_data addr=0x2d reg=0x01 value=0x00;", false},
		{4, -1, "", false},
		{5, 0, "byte addr=0x2d value=0xff;", true},
	};
	for (const auto &c : cases) {
		SCOPED_TRACE(c.level);
		std::string xml = "<x>" + kChipAt2d + "</x>";
		if (c.i2cForm)
			xml.replace(xml.find("</i2c>"), 0, "<command_type>I2C</command_type>");
		board(xml, 0x80);
		LogCapture log;
		EXPECT_EQ(VEXOSetLedBrightness(c.level), c.rc);
		EXPECT_EQ(writes(), c.sent);
		EXPECT_EQ(log.has(LOG_ERR, "Fail to map 0x04"), c.rc != 0);
		if (c.rc == 0) {
			EXPECT_EQ(level(), c.level == -1 ? 3 : c.level);
		}
	}
	board("<x>" + kChipAt2d + "</x>", 0x33); // a byte no level lists
	LogCapture log;
	EXPECT_EQ(level(), -9);
	EXPECT_TRUE(log.has(LOG_ERR, "Fail to map 0x33"));
}

TEST_F(Dimmer, SettingsStoredOnlyWhenValid)
{
	const std::string ok(168, '1');
	const struct {
		std::string schedule;
		int valid;
	} cases[] = {
		{ok, 1}, {std::string(167, '0'), 0}, {std::string(169, '2'), 0},
		{ok.substr(0, 100) + "3" + ok.substr(101), 0}, {std::string(168, '2'), 1},
	};
	for (const auto &c : cases) {
		EXPECT_EQ(isValidScheduleString(c.schedule.c_str()), c.valid);
		EXPECT_EQ(VEXOSetLedBrightnessConfiguration(4, c.schedule.c_str()), c.valid ? 0 : -1);
		if (!c.valid)
			continue;
		int l = 0;
		char s[169];
		ASSERT_EQ(VEXOGetLedBrightnessConfiguration(&l, s), 0);
		EXPECT_EQ(std::string(s), c.schedule);
		EXPECT_EQ(l, 4);
	}
	EXPECT_EQ(isValidScheduleString(nullptr), 0);
	EXPECT_EQ(root.read("/etc/vexoinfo.conf"),
		  "led_brightness_schedule=\"" + std::string(168, '2') + "\"\nled_brightness_adjusted_level=\"4\"\n");
	root.write("/etc/vexoinfo.conf", "");
	int l = 0;
	char s[169];
	ASSERT_EQ(VEXOGetLedBrightnessConfiguration(&l, s), 0); // nothing stored: all "1", the default level
	EXPECT_EQ(std::string(s), ok);
	EXPECT_EQ(l, 3);
}

TEST_F(Dimmer, ScheduleFollowsTheLocalHour)
{
	struct tm sunday = {};
	sunday.tm_year = 126, sunday.tm_mon = 10, sunday.tm_mday = 22; // Sunday 2026-11-22 00:00
	const std::time_t t0 = timegm(&sunday);
	std::string week(168, '1');
	week[167] = '2', week[1] = '0', week[2] = '0', week[30] = '2';
	root.write("/etc/vexoinfo.conf", "led_brightness_schedule=\"" + week + "\"\nled_brightness_adjusted_level=\"5\"\n");
	const struct {
		int hour, force;
		const char *sent;
	} cases[] = {
		{0, 0, "value=0xff;"},  // "1" after Saturday 23:00's "2"
		{1, 0, "value=0x80;"},  // "0": the default
		{2, 0, ""},             // same as the hour before
		{2, 1, "value=0x80;"},
		{30, 0, "value=0x00;"}, // Monday 06:00, off
		{167, 0, "value=0x00;"},
	};
	for (const auto &c : cases) {
		SCOPED_TRACE(c.hour);
		vexo::clock::setForTest(t0 + c.hour * 3600 + 1800, 0);
		EXPECT_EQ(VEXOUpdateLedBrightnessByConfiguration(c.force), 0);
		std::string w = writes();
		EXPECT_EQ(w.empty() ? "" : w.substr(w.find("value=")), c.sent);
	}
}

TEST_F(Dimmer, WithoutDimmerEveryCallRefuses)
{
	root.conf("/etc.defaults/vexoinfo.conf", {{"support_led_brightness_adjust", "no"}});
	LogCapture log;
	int l = 0;
	char s[169];
	EXPECT_EQ(VEXOSetLedBrightness(1), -1);
	EXPECT_EQ(VEXOGetLedBrightness(&l), -1);
	EXPECT_EQ(VEXOGetLedBrightnessConfiguration(&l, s), -1);
	EXPECT_EQ(VEXOSetLedBrightnessConfiguration(1, std::string(168, '1').c_str()), -1);
	EXPECT_EQ(VEXOUpdateLedBrightnessByConfiguration(1), -1);
	EXPECT_EQ(log.count(LOG_ERR, "Not support led dimmer"), 5);
	EXPECT_EQ(root.read("/etc/vexoinfo.conf"), "");
	int32_t data[3] = {};
	ASSERT_EQ(VEXOGetLedBrightnessStaticData(data), 0);
	EXPECT_EQ(data[0] * 100 + data[1] * 10 + data[2], 53);
}

} // namespace
