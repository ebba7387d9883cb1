// vexohw power deep-sleep/fast-wake/spinup-queue/spindown-before-off,
// firmware config [set], firmware online and db online on the bundled box:
// what lands in the attributes and flag files, that no drive hears a
// command, and the server's offer as the local test server hands it out.
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <sys/wait.h>
#include <thread>

#include "smartctl/drive_sim.h"
#include "tools/cli_run.h"

using namespace vexo::test;

namespace {

// Commands to the drives reach the emulator, which logs each one.
const bool kBackend = installDriveEmulator();

TEST(PowerMoreCli, AttributesWrittenAndNoDriveWoken)
{
	ASSERT_TRUE(kBackend);
	BuiltBox box;
	ASSERT_TRUE(box.ok()) << box.log();
	ASSERT_EQ(box.sleep("sdc"), 0);
	box.put("/sys/block/sda/device/vexo_deep_sleep_support", "1\n");
	box.put("/sys/block/sda/device/vexo_deep_sleep_ctrl", "");
	box.put("/sys/block/sdb/device/vexo_deep_sleep_support", "0\n");
	box.put("/sys/block/sdc/device/vexo_spindown_before_poweroff", "0");
	box.put("/proc/bus/usb/devices", "D:  Ver= 2.00 Cls=03(HID  ) Sub=00\n"); // a keyboard forbids it
	for (const char *d : {"sda", "sdb"})
		std::filesystem::remove(box.root() + "/run/vexosim/drive/" + d + ".log");

	const struct {
		std::vector<std::string> args;
		int status;
		const char *file, *content; // what the file holds afterwards
		const char *field, *value;  // a JSON field of the answer
	} steps[] = {
		{{"power", "deep-sleep"}, 1, "/sys/block/sda/device/vexo_deep_sleep_ctrl", "", nullptr, nullptr},
		{{"power", "deep-sleep", "--force"}, 0, "/sys/block/sda/device/vexo_deep_sleep_ctrl", "1", "told", "[ \"\\/dev\\/sda\" ]"},
		{{"power", "deep-sleep", "check"}, 0, nullptr, nullptr, "usb", "forbids"},
		{{"power", "spindown-before-off", "/dev/sdc"}, 0, "/sys/block/sdc/device/vexo_spindown_before_poweroff", "1", "changed", "true"},
		{{"power", "spindown-before-off", "sdc"}, 0, nullptr, nullptr, "changed", "false"},
		{{"power", "spindown-before-off", "sdb"}, 1, "/sys/block/sdb/device/vexo_spindown_before_poweroff", "", nullptr, nullptr},
		{{"power", "spindown-before-off", "../sdb"}, 1, nullptr, nullptr, nullptr, nullptr},
		{{"power", "fast-wake"}, 1, nullptr, nullptr, nullptr, nullptr}, // no RAID array yet
		{{"power", "spinup-queue"}, 0, nullptr, nullptr, "changed", "false"},
	};
	for (const auto &s : steps) {
		std::vector<std::string> a{"--json"};
		a.insert(a.end(), s.args.begin(), s.args.end());
		Ran r = box.vexohw(a);
		SCOPED_TRACE(s.args.back() + " " + r.out + r.err);
		EXPECT_EQ(r.status, s.status);
		EXPECT_EQ(r.err.find("vexohw: ") == 0, s.status != 0); // one line naming what failed
		EXPECT_EQ(s.file ? box.read(s.file) : "", s.content ? s.content : "");
		EXPECT_EQ(s.field ? text(JsonDoc(r.out).obj, s.field) : "", s.value ? s.value : "");
	}
	box.put("/sys/block/md0/md/active", "0");
	box.put("/sys/block/md1/md/active", "0");
	ASSERT_EQ(box.vexohw({"power", "fast-wake"}).status, 0);
	EXPECT_EQ(box.read("/sys/block/md0/md/active") + box.read("/sys/block/md1/md/active"), "11");
	// Attributes only: not one drive heard a command, the sleeping one least.
	for (const char *d : {"sda", "sdb", "sdc"})
		EXPECT_EQ(box.sent(d), Strings{}) << d;
}

TEST(FirmwareConfigCli, SettersWriteOnceAndRefuseDuringARun)
{
	BuiltBox box;
	ASSERT_TRUE(box.ok()) << box.log();
	const std::string plan = "/var/lib/drive-bundle/fw-upgrade/plan-for-the-twelve-bay-box.conf";
	box.put(plan, "[WWZ4K1QA]\n\tdrive_path = /dev/sda\n\tfirmware = SC60\n\tupgrade_status = 0\n");
	const struct {
		const char *key, *value;
		const char *file, *content; // "" : absent
		const char *changed;
	} steps[] = {
		{"notification", plan.c_str(), "/var/lib/drive-bundle/notification-source", plan.c_str(), "true"},
		{"launch-summary", "/tmp/a.conf", "/var/lib/drive-bundle/launch-summary-source", "/tmp/a.conf", "true"},
		{"launch-summary", "/tmp/a.conf", "/var/lib/drive-bundle/launch-summary-source", "/tmp/a.conf", "false"},
		{"launch-summary", "off", "/var/lib/drive-bundle/launch-summary-source", "", "true"},
		{"launch-summary", "off", "/var/lib/drive-bundle/launch-summary-source", "", "false"},
		{"on-shutdown", "yes", "/var/run/drive-bundle/upgrade_state", "upgrade_state=\"going_to_start\"\n", "true"},
		{"on-shutdown", "yes", "/var/run/drive-bundle/fw-upgrade-on-shutdown", "", "false"},
	};
	for (const auto &s : steps) {
		Ran r = box.vexohw({"--json", "firmware", "config", "set", s.key, s.value});
		SCOPED_TRACE(std::string(s.key) + " " + s.value + " " + r.err);
		ASSERT_EQ(r.status, 0);
		EXPECT_EQ(text(JsonDoc(r.out).obj, "changed"), s.changed);
		EXPECT_EQ(box.read(s.file), s.content);
	}
	JsonDoc cfg(box.vexohw({"--json", "firmware", "config"}).out);
	EXPECT_EQ(texts(cfg.obj, {"state", "on_shutdown", "launch_summary_source"}),
		  (Strings{"going_to_start", "true", "null"}));
	json_object *drive = json_object_array_get_idx(field(cfg.obj, "notification"), 0);
	EXPECT_EQ(texts(drive, {"id", "drive_path", "firmware"}), (Strings{"WWZ4K1QA", "/dev/sda", "SC60"}));
	EXPECT_EQ(json_object_array_length(field(cfg.obj, "current")), 0u);

	// A run under way keeps its state; bad keys and values are refused.
	box.put("/var/run/drive-bundle/upgrade_state", "upgrade_state=\"upgrading_all\"\n");
	for (std::vector<std::string> bad : {std::vector<std::string>{"on-shutdown", "no"}, {"on-shutdown", "maybe"},
					     {"notification", "relative.conf"}, {"colour", "red"}})
		EXPECT_EQ(box.vexohw({"firmware", "config", "set", bad[0], bad[1]}).status, 1) << bad[0] << bad[1];
	EXPECT_EQ(box.read("/var/run/drive-bundle/upgrade_state"), "upgrade_state=\"upgrading_all\"\n");
	EXPECT_TRUE(std::filesystem::exists(box.root() + "/var/run/drive-bundle/fw-upgrade-on-shutdown"));
}

TEST(FirmwareOnlineCli, OfferFromTheServerThenNoServer)
{
	BuiltBox box;
	ASSERT_TRUE(box.ok()) << box.log();
	box.put("/srv/vexosim/ssd/v1/getUpdate/index.json", R"([{"model":"M 1","version":7},{"model":"M2","version":3}])");
	box.put("/srv/vexosim/ssd/v1/getUpdate/M 1.json", R"([{"size_in_bytes":3000,"file":"https://x/m1.sa","version":7}])");
	pid_t serve = ::fork();
	if (serve == 0) {
		const std::string bin = buildDir() + "/bin/vexosim-serve";
		::execl(bin.c_str(), bin.c_str(), box.root().c_str(), static_cast<char *>(nullptr));
		::_exit(127);
	}
	for (int i = 0; i < 500 && !std::filesystem::exists(box.root() + "/run/vexosim/serve.port"); ++i)
		std::this_thread::sleep_for(std::chrono::milliseconds(10));
	Ran all = box.vexohw({"--json", "firmware", "online"}), one = box.vexohw({"--json", "firmware", "online", "M 1"});
	std::filesystem::remove(box.root() + "/srv/vexosim/ssd/v1/getUpdate/index.json");
	Ran missing = box.vexohw({"firmware", "online"});
	::kill(serve, SIGTERM);
	::waitpid(serve, nullptr, 0);
	ASSERT_EQ(all.status + one.status, 0) << all.err << one.err;
	JsonDoc rows(all.out), m1(one.out);
	ASSERT_EQ(json_object_array_length(rows.obj), 2u);
	EXPECT_EQ(texts(json_object_array_get_idx(rows.obj, 1), {"model", "version"}), (Strings{"M2", "3"}));
	EXPECT_EQ(texts(json_object_array_get_idx(m1.obj, 0), {"model", "size_in_bytes", "file"}),
		  (Strings{"M 1", "3000", "https://x/m1.sa"}));
	// Named as the error the server or the transfer gave.
	EXPECT_EQ(missing.status, 1);
	EXPECT_NE(missing.err.find("\"code\": 404"), std::string::npos) << missing.err;
	Ran gone = box.vexohw({"firmware", "online"});
	EXPECT_EQ(gone.status, 1);
	EXPECT_NE(gone.err.find("(error 0x"), std::string::npos) << gone.err;

	JsonDoc db(box.vexohw({"--json", "db", "online"}).out);
	ASSERT_GE(json_object_array_length(db.obj), 8u);
	EXPECT_EQ(texts(json_object_array_get_idx(db.obj, 0), {"name", "required", "copy_to_tmp"}),
		  (Strings{"smart", "true", "true"}));
	EXPECT_EQ(texts(json_object_array_get_idx(db.obj, 5), {"name", "db_path", "check_model"}),
		  (Strings{"HCL_v7_vx1222", "/var/lib/disk-compatibility/vx1222_host_v7.db", "true"}));
}

} // namespace
