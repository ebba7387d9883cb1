// vexohw fan speed/time/dual-mode set, fan shutdown-temp, fan tables, fan
// disk-temp and system temperature on the bundled box: the settings file's
// lines, a second set that leaves the file alone and tells the daemon
// nothing, the figures of the box's sensors and drives, a sleeping disk that
// hears nothing but the power question, and a board without sensors.
#include <filesystem>
#include <fstream>
#include <sys/stat.h>

#include "smartctl/drive_sim.h"
#include "support/sim_daemon.h"
#include "tools/cli_run.h"

using namespace vexo::test;

namespace {

const bool kBackend = installDriveEmulator();

// A write replaces the settings file (tmp and rename): a new inode.
ino_t inode(const BuiltBox &box, const char *path)
{
	struct stat st {};
	return ::stat((box.root() + path).c_str(), &st) == 0 ? st.st_ino : 0;
}

TEST(FanSettingsCli, SetsWriteOnceNotifyOnceAndRefuseBadValues)
{
	BuiltBox box;
	ASSERT_TRUE(box.ok()) << box.log();
	SimDaemon daemon(box.root());
	ASSERT_EQ(daemon.started, 0);
	const char *conf = "/etc/vexoinfo.conf";
	const struct {
		std::vector<std::string> args;
		int status;
		const char *changed; // JSON "changed", null when refused
		const char *line;    // a line the settings file holds afterwards
		const char *notice;  // what the daemon heard, if anything
	} steps[] = {
		{{"fan", "speed", "set", "HIGH"}, 0, "true", "fanspeed=\"high\"", nullptr},
		{{"fan", "speed", "set", "high"}, 0, "false", "fanspeed=\"high\"", nullptr},
		{{"fan", "speed", "set", "on"}, 0, "true", "fanspeed=\"on\"", nullptr},
		{{"fan", "speed", "set", "fast"}, 1, nullptr, "fanspeed=\"on\"", nullptr},
		{{"fan", "time", "set", "007"}, 0, "true", "fantime=\"7\"", nullptr},
		{{"fan", "time", "set", "7"}, 0, "false", "fantime=\"7\"", nullptr},
		{{"fan", "time", "set", "-3"}, 1, nullptr, "fantime=\"7\"", nullptr},
		{{"fan", "time", "set", "2147483648"}, 1, nullptr, "fantime=\"7\"", nullptr},
		{{"fan", "dual-mode", "set", "DUAL_MODE_FULL_EBOX"}, 0, "true", "fan_config_type_ebox=\"full\"", "notify 48"},
		{{"fan", "dual-mode", "set", "dual_mode_full_ebox"}, 0, "false", "fan_config_type_ebox=\"full\"", nullptr},
		{{"fan", "dual-mode", "set", "DUAL_MODE_HIGH", "--no-notify"}, 0, "true",
		 "fan_config_type_internal=\"high\"", nullptr},
		{{"fan", "dual-mode", "set", "DUAL_MODE_LOW_STOP"}, 0, "true", "fan_config_type_internal=\"low_stop\"",
		 "notify 46"},
		{{"fan", "dual-mode", "set", "CPUFAN"}, 1, nullptr, "fan_config_type_internal=\"low_stop\"", nullptr},
	};
	size_t heard = 0;
	for (const auto &s : steps) {
		std::vector<std::string> a{"--json"};
		a.insert(a.end(), s.args.begin(), s.args.end());
		const ino_t before = inode(box, conf);
		Ran r = box.vexohw(a);
		SCOPED_TRACE(s.args[1] + " " + s.args[3] + ": " + r.out + r.err);
		EXPECT_EQ(r.status, s.status);
		EXPECT_EQ(r.err.find("vexohw: ") == 0, s.status != 0); // one line naming what was refused
		EXPECT_EQ(s.changed ? text(JsonDoc(r.out).obj, "changed") : "", s.changed ? s.changed : "");
		EXPECT_NE(box.read(conf).find(std::string(s.line) + "\n"), std::string::npos) << box.read(conf);
		if (!s.changed || std::string(s.changed) == "false") {
			EXPECT_EQ(inode(box, conf), before); // nothing written
		}
		heard += s.notice ? 1 : 0;
		std::vector<std::string> events = daemon.events(heard);
		ASSERT_EQ(events.size(), heard);
		if (s.notice) {
			EXPECT_EQ(events.back(), s.notice);
			EXPECT_EQ(text(JsonDoc(r.out).obj, "daemon_running"), "true");
		}
	}
	// What the getters read now, low_stop reading as low for the unit's key.
	JsonDoc modes(box.vexohw({"--json", "fan", "dual-mode"}).out);
	json_object *m = field(modes.obj, "modes");
	EXPECT_EQ(texts(json_object_array_get_idx(m, 0), {"mode", "stored", "board_has_table"}),
		  (Strings{"DUAL_MODE_LOW_STOP", "low_stop", "false"}));
	EXPECT_EQ(texts(json_object_array_get_idx(m, 1), {"mode", "code"}), (Strings{"DUAL_MODE_FULL_EBOX", "6"}));
	EXPECT_EQ(texts(JsonDoc(box.vexohw({"--json", "fan", "time"}).out).obj, {"value", "stored"}),
		  (Strings{"7", "7"}));
	EXPECT_EQ(box.vexohw({"fan", "dual-mode", "cpu"}).status, 1);

	// A settings file that cannot be replaced: the call and its code named.
	std::filesystem::remove(box.root() + conf);
	std::filesystem::create_directory(box.root() + conf);
	Ran r = box.vexohw({"fan", "speed", "set", "low"});
	EXPECT_EQ(r.status, 1);
	EXPECT_EQ(r.err.rfind("vexohw: fan speed set: VEXOFanConfigSpeedSet(3) failed (error 0x", 0), 0u) << r.err;
}

TEST(FanTablesCli, ShutdownTemperaturesAdaptersAndOverrides)
{
	ASSERT_TRUE(kBackend);
	BuiltBox box;
	ASSERT_TRUE(box.ok()) << box.log();
	box.put("/tmp/disktmp.txt", "45,sda\n");
	JsonDoc rows(box.vexohw({"--json", "fan", "shutdown-temp"}).out);
	Strings shutdown;
	for (size_t i = 0; i < json_object_array_length(rows.obj); ++i) {
		json_object *r = json_object_array_get_idx(rows.obj, i);
		if (text(r, "in_use") == "true")
			shutdown.push_back(text(r, "model") + " " + text(r, "table") + " " + text(r, "shutdown_c"));
	}
	// The default internal mode is low and the CPU fan always runs; m2's last
	// level is made a shutdown one, and the catch-all nic table is dropped
	// since the one adapter in the box has a table of its own.
	EXPECT_EQ(shutdown, (Strings{"table disk_temperature 61", "table cpu_temperature 95", "table m2_temperature 80",
				     "table xnic01_temperature 105", "table disk_temperature 60", "table cpu_temperature 95",
				     "bmc disk_temperature 61", "bmc cpu_temperature 100"}));

	JsonDoc t(box.vexohw({"--json", "fan", "tables", "--inserted"}).out);
	json_object *adapters = field(t.obj, "adapters");
	ASSERT_EQ(json_object_array_length(adapters), 1u) << json_object_to_json_string(t.obj);
	EXPECT_EQ(texts(json_object_array_get_idx(adapters, 0), {"table", "ids", "groups"}),
		  (Strings{"xnic01_temperature", "7053:1001", "[ 0, 4 ]"})); // 4: group 0 at full speed
	EXPECT_EQ(text(json_object_array_get_idx(field(t.obj, "groups"), 0), "adapters_covered"), "true");
	json_object *overrides = field(t.obj, "debug_overrides");
	ASSERT_EQ(json_object_array_length(overrides), 1u);
	EXPECT_EQ(texts(json_object_array_get_idx(overrides, 0), {"file", "temperature_c", "name"}),
		  (Strings{"/tmp/disktmp.txt", "45", "sda"}));
}

TEST(TemperatureCli, SensorsDisksAsleepAndABoardWithoutSensors)
{
	ASSERT_TRUE(kBackend);
	BuiltBox box;
	ASSERT_TRUE(box.ok()) << box.log();
	box.put("/tmp/systempwarning", "mode_low=\"50\"\n");
	EXPECT_EQ(texts(JsonDoc(box.vexohw({"--json", "system", "temperature"}).out).obj,
			{"sensor", "surface_c", "system_c", "disks_read", "warning", "warning_limit_c"}),
		  (Strings{"cpu", "57", "57", "true", "true", "50"}));
	EXPECT_EQ(texts(JsonDoc(box.vexohw({"--json", "fan", "disk-temp"}).out).obj, {"hottest_c", "hottest_disk"}),
		  (Strings{"40", "sdf"}));
	EXPECT_EQ(texts(JsonDoc(box.vexohw({"--json", "fan", "disk-temp", "m2"}).out).obj,
			{"hottest_c", "hottest_disk", "all_solid_state_or_unread"}),
		  (Strings{"44", "nvme1n1", "true"}));

	// A sleeping disk is left out of both and hears only the power question.
	ASSERT_EQ(box.sleep("sdf"), 0);
	JsonDoc d(box.vexohw({"--json", "fan", "disk-temp"}).out);
	EXPECT_EQ(texts(d.obj, {"hottest_c", "hottest_disk", "asleep"}), (Strings{"39", "sde", "[ \"\\/dev\\/sdf\" ]"}));
	EXPECT_EQ(texts(JsonDoc(box.vexohw({"--json", "system", "temperature"}).out).obj, {"system_c", "disks_read"}),
		  (Strings{"null", "false"}));
	for (const std::string &l : box.sent("sdf"))
		EXPECT_EQ(l, kCheckPowerMode);

	Ran absent = box.vexohw({"fan", "disk-temp", "sdzz"});
	EXPECT_EQ(absent.status, 1);
	EXPECT_NE(absent.err.find("VEXOFanTableGetDiskHighestTemp"), std::string::npos) << absent.err;
	EXPECT_EQ(box.vexohw({"fan", "disk-temp", "../sda"}).status, 1);

	// No sensor on the board: said so, never a -1 shown as degrees.
	box.put("/dev/vexobios", "{\"board_fans\": 2}\n");
	Ran none = box.vexohw({"--json", "system", "temperature", "--wake"});
	EXPECT_EQ(none.status, 0) << none.err;
	EXPECT_EQ(texts(JsonDoc(none.out).obj, {"sensor", "surface_c", "system_c", "warning"}),
		  (Strings{"none", "null", "null", "null"}));
}

} // namespace
