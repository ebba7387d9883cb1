// vexosim run brings the box's daemon up for its command and down after it;
// overlapping runs share one, and a daemon that vexosim start began
// outlives every run.
#include <csignal>
#include <fstream>

#include "support/sim_daemon.h"
#include "tools/cli_run.h"

using namespace vexo::test;

namespace {

// The daemon's pid from the box's pid file, 0 when there is none.
long pidIn(const std::string &root)
{
	long pid = 0;
	std::ifstream(root + "/var/run/vcemd.pid") >> pid;
	return pid;
}

// Whether pid is a process that has not ended (a zombie has).
bool living(long pid)
{
	std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
	std::string line;
	return std::getline(stat, line) && line.find(") Z") == std::string::npos;
}

TEST(RunDaemon, LivesWithItsCommands)
{
	BuiltBox box;
	ASSERT_TRUE(box.ok()) << box.log();
	const std::string &root = box.root();
	SimDaemon guard(root, false); // the host-wide daemon lock; stops it at the end
	const std::string vexosim = buildDir() + "/bin/vexosim";
	auto run = [&](const std::string &script) {
		return runCaptured({vexosim, "run", root, "--", "sh", "-c", script});
	};
	const std::string pidFile = "\"$VEXO_SYSROOT/var/run/vcemd.pid\"";

	// The command finds the daemon ready; afterwards it is gone, and the
	// command's exit status is the run's.
	Ran r = run("test -e \"$VEXO_SYSROOT/tmp/.vcemd_ready\" && cat " + pidFile + "; exit 7");
	EXPECT_EQ(r.status, 7) << r.err;
	const long first = std::atol(r.out.c_str());
	ASSERT_GT(first, 0) << r.out << r.err;
	EXPECT_FALSE(living(first));
	EXPECT_EQ(pidIn(root), 0);

	// Two overlapping runs share one daemon: the one that ends first leaves
	// it to the other, which still finds it after two seconds.
	Ran both = runCaptured({"sh", "-c",
				"\"$0\" run \"$1\" -- sh -c 'sleep 2; cat \"$VEXO_SYSROOT/var/run/vcemd.pid\"' & "
				"sleep 0.5; \"$0\" run \"$1\" -- sh -c 'cat \"$VEXO_SYSROOT/var/run/vcemd.pid\"'; wait",
				vexosim, root});
	ASSERT_EQ(both.status, 0) << both.err;
	const size_t nl = both.out.find('\n');
	ASSERT_NE(nl, std::string::npos) << both.out;
	EXPECT_EQ(both.out.substr(0, nl + 1), both.out.substr(nl + 1)) << both.out;
	EXPECT_EQ(pidIn(root), 0);

	// vexosim start's daemon is left running by a run, and stopped by stop.
	ASSERT_EQ(guard.vexosim("start"), 0);
	const long started = pidIn(root);
	EXPECT_EQ(run("cat " + pidFile).out, std::to_string(started) + "\n");
	EXPECT_TRUE(living(started));
	EXPECT_EQ(guard.vexosim("stop"), 0);
	EXPECT_FALSE(living(started));
}

} // namespace
