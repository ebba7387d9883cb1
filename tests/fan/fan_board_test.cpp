// The board's part in the fan loop over the emulated control device: the
// requests a speed change sends (the kick of a standing fan included), the
// CPU and surface readings, and the warning limit per fan mode.
#include <sstream>
#include <string>
#include <syslog.h>
#include <vector>
#include <vexohw/fan_table.h>

#include "frame/clock.h"
#include "smartctl/drive_sim.h"
#include "support/vexotest.h"

using vexo::test::LogCapture;
using vexo::test::Sysroot;

namespace {

const bool kEmulator = vexo::test::installDriveEmulator();

// The board's request lines since the last call, without the OPEN lines.
std::vector<std::string> sent(const Sysroot &root)
{
	const std::string log = "/run/vexosim/drive/vexobios.log";
	std::vector<std::string> out;
	std::istringstream in(root.exists(log) ? root.read(log) : "");
	root.remove(log);
	for (std::string line; std::getline(in, line);)
		if (line.rfind("OPEN", 0) != 0)
			out.push_back(line.substr(0, line.find(" ->")));
	return out;
}

} // namespace

TEST(FanBoard, SpeedChangeKicksAStandingFan)
{
	ASSERT_TRUE(kEmulator);
	Sysroot root;
	root.write("/dev/vexobios", "{\"board_fans\": 2}");
	vexo::clock::setForTest(1000, 0);
	VEXOFanConfigOpsListInit();
	const struct {
		int name;
		unsigned target, current;
		int rc;
		std::vector<std::string> lines;
	} cases[] = {
		{1, 3, 1, 0, {"BOARD_FAN_SPEED 6", "BOARD_FAN_SPEED 3"}},
		{1, 3, 2, 0, {"BOARD_FAN_SPEED 3"}},
		{1, 8, 10, 0, {"BOARD_FAN_SPEED 6", "BOARD_FAN_SPEED 8"}},
		{1, 8, 1, 0, {"BOARD_FAN_SPEED 8"}},
		{5, 20, 10, 0, {"BOARD_FAN_SPEED 20"}},
		{1, 1064, 1000, 0, {"BOARD_FAN_SPEED 6", "BOARD_FAN_SPEED 1064"}}, // duty 0 stands still
		{1, 1064, 1030, 0, {"BOARD_FAN_SPEED 1064"}},
		{1, 1065, 1, 0, {"BOARD_FAN_SPEED 1065"}},
		{3, 2, 1, 0, {"BOARD_CPUFAN_SPEED 4", "BOARD_CPUFAN_SPEED 2"}},
		{3, 2, 3, 0, {"BOARD_CPUFAN_SPEED 2"}},
	};
	for (const auto &c : cases) {
		VEXO_FAN_STATUS_T cur{};
		cur.speed = (FAN_SPEED)c.current;
		VEXO_FAN_HANDLE_T h{};
		h.current = &cur;
		h.config_name = c.name;
		VEXO_FAN_CONFIG_OPS_T *ops = VEXOFanConfigOpsGet(c.name);
		ASSERT_TRUE(ops && ops->SpeedChange);
		EXPECT_EQ(ops->SpeedChange((FAN_SPEED)c.target, &h), c.rc) << c.target << " from " << c.current;
		EXPECT_EQ(sent(root), c.lines) << c.target << " from " << c.current;
		EXPECT_EQ((unsigned)cur.speed, c.target);
	}
	LogCapture log;
	VEXO_FAN_HANDLE_T wrong{};
	wrong.config_name = 1;
	EXPECT_EQ(VEXOFanConfigOpsGet(3)->SpeedChange(FAN_SPEED_HIGH, &wrong), -1);
	EXPECT_EQ(VEXOFanConfigOpsGet(2)->SpeedChange(FAN_SPEED_HIGH, &wrong), -1);
	root.remove("/dev/vexobios");
	EXPECT_EQ(VEXOFanConfigOpsGet(1)->SpeedChange(FAN_SPEED_HIGH, &wrong), -1);
	EXPECT_EQ(log.count(LOG_ERR, "wrong pHandle type"), 2);
	EXPECT_EQ(log.count(LOG_ERR, "open vexobios fail"), 1);
	vexo::clock::clearForTest();
}

TEST(FanBoard, SensorsAndWarning)
{
	ASSERT_TRUE(kEmulator);
	Sysroot root;
	VEXOFanTableTypeOpsListInit();
	const struct {
		const char *node;
		int cpuSource, cpuTemp;
		const char *core;
		int surfaceRc, surface, degreeRc;
	} cases[] = {
		{"{\"board_fans\": 2, \"cpu_temperatures\": [52, 260, 57]}", 3, 57, "2", 3, 52, 0},
		{"{\"board_fans\": 2, \"cpu_temperatures\": [251, 255]}", 0, 0, "", 3, 0, 0}, // errors count as 0
		{"{\"board_fans\": 2, \"cpu_temperatures\": [44]}", 3, 44, "0", 3, -1, 0},    // one value: not stored
		{"{\"board_fans\": 2, \"sys_temperature\": 38}", 0, 0, "", 1, 38, 0},
		{"{\"board_fans\": 2}", 0, 0, "", 0, -1, -1},
	};
	for (const auto &c : cases) {
		root.write("/dev/vexobios", c.node);
		VEXO_FAN_READING_T r{};
		EXPECT_EQ(VEXOFanTableTypeOpsGet(FAN_TABLE_CPU)->TemperatureGet(&r, nullptr), c.cpuSource) << c.node;
		EXPECT_EQ(r.temperature, c.cpuTemp) << c.node;
		EXPECT_STREQ(r.name, c.core) << c.node;
		int t = -1;
		EXPECT_EQ(VEXOHWSurfaceTempGet(&t), c.surfaceRc) << c.node;
		EXPECT_EQ(t, c.surface) << c.node;
		int degree = -5;
		EXPECT_EQ(VEXOHWSysTempDegree(&degree), c.degreeRc) << c.node; // no disks in this root
	}
	root.write("/dev/vexobios", "{\"board_fans\": 2, \"cpu_temperatures\": [52, 57]}");
	const struct {
		const char *mode, *file;
		int rc, warning;
	} warn[] = {{"", "mode_low=\"56\"\n", 0, 1},	    {"high", "mode_high=\"57\"\n", 0, 0},
		    {"full", "mode_low=\"10\"\n", -1, 0}, {"low_stop", "mode_low_stop=\"x\"\n", -1, 0},
		    {"", nullptr, -1, 0}};
	for (const auto &w : warn) {
		root.write("/etc/vexoinfo.conf", std::string("fan_config_type_internal=\"") + w.mode + "\"\n");
		if (w.file)
			root.write("/tmp/systempwarning", w.file);
		else
			root.remove("/tmp/systempwarning");
		int warning = 7;
		EXPECT_EQ(VEXOHWSysTempWarning(&warning), w.rc) << w.mode << (w.file ? w.file : "");
		EXPECT_EQ(warning, w.warning) << w.mode;
	}
}
