// vexosim run brings the box's daemon up for its command and down after it;
// overlapping runs share one; vexosim start's daemon outlives every run.
#include <fstream>

#include "support/sim_daemon.h"
#include "tools/cli_run.h"

using namespace vexo::test;

namespace {

TEST(RunDaemon, LivesWithItsCommands)
{
	BuiltBox box;
	ASSERT_TRUE(box.ok()) << box.log();
	const std::string &root = box.root(), vexosim = buildDir() + "/bin/vexosim";
	SimDaemon guard(root, false); // the host-wide daemon lock
	auto pid = [&] { long p = 0; std::ifstream(root + "/var/run/vcemd.pid") >> p; return p; };
	const std::string cat = "cat \"$VEXO_SYSROOT/var/run/vcemd.pid\"";

	// Ready for the command, gone after it; the status is the command's.
	Ran r = runCaptured({vexosim, "run", root, "--", "sh", "-c", "test -e \"$VEXO_SYSROOT/tmp/.vcemd_ready\" && " + cat + "; exit 7"});
	EXPECT_EQ(r.status, 7) << r.err;
	EXPECT_GT(std::atol(r.out.c_str()), 0) << r.out << r.err;
	EXPECT_EQ(pid(), 0);

	// The run that ends first leaves the daemon to the other.
	Ran both = runCaptured({"sh", "-c", "\"$0\" run \"$1\" -- sh -c 'sleep 2; " + cat + "' & sleep 0.5; \"$0\" run \"$1\" -- " + "sh -c '" + cat + "'; wait", vexosim, root});
	const size_t nl = both.out.find('\n');
	ASSERT_NE(nl, std::string::npos) << both.out << both.err;
	EXPECT_EQ(both.out.substr(0, nl + 1), both.out.substr(nl + 1));
	EXPECT_EQ(pid(), 0);

	ASSERT_EQ(guard.vexosim("start"), 0);
	const long started = pid();
	EXPECT_EQ(runCaptured({vexosim, "run", root, "--", "true"}).status, 0);
	EXPECT_EQ(pid(), started);
	EXPECT_EQ(::kill(static_cast<pid_t>(started), 0), 0);
}

} // namespace
