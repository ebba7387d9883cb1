// vexohw power and daemon commands on the bundled box with its daemon, and
// the rule every status command keeps: a disk in standby is asked only its
// power mode, and stays asleep.
#include <fstream>

#include "support/sim_daemon.h"
#include "tools/cli_run.h"

using namespace vexo::test;

namespace {

class PowerCli : public ::testing::Test {
protected:
	std::string file(const std::string &path) const
	{
		std::ifstream in(box.root() + path);
		return std::string(std::istreambuf_iterator<char>(in), {});
	}
	BuiltBox box;
	SimDaemon daemon{box.root()};
	std::string daemonLog() const { return file("/var/log/vcemd_sim.log"); }
};

TEST_F(PowerCli, StatusCommandsLeaveSleepingDisksAsleep)
{
	ASSERT_TRUE(box.ok()) << box.log();
	ASSERT_EQ(daemon.started, 0);
	for (const char *d : {"sda", "sdb"}) {
		Ran r = box.vexohw({"--json", "power", "standby", d});
		ASSERT_EQ(r.status, 0) << r.err;
		EXPECT_EQ(text(JsonDoc(r.out).obj, "power_mode"), "standby");
		std::filesystem::remove(box.root() + "/run/vexosim/drive/" + d + ".log");
	}
	const std::vector<std::vector<std::string>> commands = {
		{"overview"},
		{"overview", "--walk"},
		{"--json", "disk", "list"},
		{"power", "status"},
		{"smart", "attrs", "sda"},
		{"smart", "cache", "sdb", "--refresh"},
		{"smart", "temp", "sda"},
		{"disk", "serial", "sdb"},
		{"disk", "serial", "sda", "--ui"},
		{"drive", "identify", "sda"},
		{"drive", "smart-page", "sdb"},
		{"drive", "power", "sda"},
		{"cache", "show", "sda"},
	};
	for (const auto &c : commands) {
		Ran r = box.vexohw(c);
		EXPECT_EQ(r.status, 0) << c[0] << " " << (c.size() > 1 ? c[1] : "") << ": " << r.err;
	}
	JsonDoc st(box.vexohw({"--json", "power", "status", "sda", "sdc"}).out);
	ASSERT_EQ(json_object_array_length(st.obj), 2u);
	EXPECT_EQ(text(json_object_array_get_idx(st.obj, 0), "power_mode"), "standby");
	EXPECT_EQ(text(json_object_array_get_idx(st.obj, 1), "power_mode"), "active");
	for (const char *d : {"sda", "sdb"}) {
		SCOPED_TRACE(d);
		std::istringstream log(file(std::string("/run/vexosim/drive/") + d + ".log"));
		int questions = 0;
		for (std::string l; std::getline(log, l);) {
			if (l.rfind("OPEN", 0) == 0)
				continue;
			EXPECT_EQ(l, "HDIO_DRIVE_CMD args=e5000000 -> ok");
			++questions;
		}
		EXPECT_GE(questions, static_cast<int>(commands.size()) / 2);
		EXPECT_NE(file(std::string("/dev/") + d).find(R"("power_state":"standby")"), std::string::npos);
	}
	// Asked to, a command does wake the disk, and the log says which.
	EXPECT_EQ(box.vexohw({"smart", "temp", "sda", "--wake"}).status, 0);
	EXPECT_NE(file("/run/vexosim/drive/sda.log").find("[woke from standby]"), std::string::npos);
}

TEST_F(PowerCli, TimersReachTheDaemon)
{
	ASSERT_TRUE(box.ok()) << box.log();
	ASSERT_EQ(daemon.started, 0);
	Ran r = box.vexohw({"--json", "daemon", "status"});
	EXPECT_EQ(r.status, 0) << r.err;
	JsonDoc d(r.out);
	EXPECT_EQ(text(d.obj, "running"), "true");
	EXPECT_EQ(text(d.obj, "answer"), "ready");
	struct Case {
		std::vector<std::string> args;
		int status;
		const char *notification;
	} cases[] = {
		{{"power", "timers", "set", "standby", "20"}, 0, "notify 43"},
		{{"power", "timers", "set", "standby", "20"}, 0, nullptr}, // unchanged: not told again
		{{"power", "timers", "set", "auto-poweroff", "120"}, 0, "notify 63"},
		{{"power", "timers", "set", "usb-standby", "1441"}, 1, nullptr},
		{{"power", "timers", "set", "nap", "1"}, 1, nullptr},
	};
	std::string want = "started\nrequest command=3 needReply=1 length=0 data=\n";
	for (const Case &c : cases) {
		SCOPED_TRACE(c.args[3]);
		EXPECT_EQ(box.vexohw(c.args).status, c.status);
		if (c.notification)
			want += std::string(c.notification) + "\n";
	}
	EXPECT_EQ(daemonLog(), want);
	JsonDoc t(box.vexohw({"--json", "power", "timers"}).out);
	EXPECT_EQ(text(json_object_array_get_idx(t.obj, 0), "value"), "20");
	EXPECT_EQ(daemon.vexosim("stop"), 0);
	EXPECT_EQ(box.vexohw({"daemon", "status"}).status, 1);
}

} // namespace
