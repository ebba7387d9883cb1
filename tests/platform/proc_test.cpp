// Running programs, streams over them, liveness and pid files.
#include <chrono>
#include <csignal>
#include <fstream>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "support/vexotest.h"

using vexo::test::inChild;
using vexo::test::ScopedEnv;
using vexo::test::Sysroot;

namespace {

using Clock = std::chrono::steady_clock;

class Proc : public ::testing::Test {
protected:
	void SetUp() override
	{
		VLIBCErrClear();
		// Writes each argument in brackets, one a line, to the file named first.
		root.write("/usr/bin/argdump", "#!/bin/sh\nout=$1; shift\nfor a in \"$@\"; do printf '[%s]\\n' \"$a\"; done > \"$out\"\n"
					       "printf '%s' \"$VEXO_T_VAR\" >> \"$out\"\nexit 7\n",
			   0755);
		root.write("/usr/bin/exitwith", "#!/bin/sh\nexit $1\n", 0755);
		// Leaves a grandchild behind, names it in $1, and waits for it.
		root.write("/usr/bin/hang", "#!/bin/sh\nsleep 30 &\necho $! > \"$1\"\nwait\n", 0755);
		root.write("/usr/bin/lines", "#!/bin/sh\ni=0\nwhile [ $i -lt $1 ]; do echo \"line $i\"; i=$((i+1)); done\n"
					     "echo oops >&2\nexit $2\n",
			   0755);
		root.write("/usr/bin/sink", "#!/bin/sh\ncat > \"$1\"\nexit 4\n", 0755);
	}
	std::string out() const { return root.host("/out.txt"); }
	Sysroot root;
};

TEST_F(Proc, ExecStatusAndLiteralArguments)
{
	const std::string o = out();
	// Spaces, quotes and shell characters reach the program as they are.
	EXPECT_EQ(VLIBCExecl("/usr/bin/argdump", "argdump", o.c_str(), "a b", "\"q\"", "$(id)", "; rm -rf x", "", nullptr), 7);
	EXPECT_EQ(root.read("/out.txt"), "[a b]\n[\"q\"]\n[$(id)]\n[; rm -rf x]\n[]\n");

	EXPECT_EQ(VLIBCExecl("/usr/bin/exitwith", "exitwith", "255", nullptr), 255);

	EXPECT_EQ(VLIBCExecl("/usr/bin/none", "none", nullptr), -1);
	EXPECT_ERR(0x0700);
	EXPECT_EQ(VLIBCExecl("relative", "relative", nullptr), -1);
	EXPECT_ERR(0x0D00);
}

TEST_F(Proc, TimedExecPassesEnvironmentAndKillsTheGroup)
{
	const std::string o = out();
	{
		ScopedEnv env("VEXO_T_VAR", "from caller");
		EXPECT_EQ(VLIBCTimedExecWithEnv(5, "/usr/bin/argdump", "argdump", o.c_str(), "x", nullptr), 7);
		EXPECT_EQ(root.read("/out.txt"), "[x]\nfrom caller");
	}
	auto t0 = Clock::now();
	EXPECT_EQ(VLIBCTimedExecWithEnv(1, "/usr/bin/hang", "hang", o.c_str(), nullptr), -1);
	double took = std::chrono::duration<double>(Clock::now() - t0).count();
	EXPECT_ERR(0x2E00);
	EXPECT_GE(took, 0.9);
	EXPECT_LT(took, 5.0);
	pid_t grandchild = atoi(root.read("/out.txt").c_str());
	ASSERT_GT(grandchild, 0);
	bool gone = false;
	for (int i = 0; i < 100 && !gone; ++i) {
		gone = VLIBCIsProcAlive(nullptr, grandchild) == 0;
		if (!gone)
			std::this_thread::sleep_for(std::chrono::milliseconds(20));
	}
	EXPECT_TRUE(gone) << "grandchild " << grandchild << " outlived the timeout";
	EXPECT_EQ(VLIBCTimedExecWithEnv(0, "/usr/bin/exitwith", "exitwith", "0", nullptr), -1);
	EXPECT_ERR(0x0D00);
}

TEST_F(Proc, PopenReadsManyLinesAndPcloseReapsTheRightChild)
{
	FILE *a = VLIBCPopen("/usr/bin/lines", "r", "lines", "5000", "3", nullptr);
	char *const bv[] = {(char *)"lines", (char *)"2", (char *)"5", nullptr};
	FILE *b = VLIBCPopenv("/usr/bin/lines", "r", bv);
	ASSERT_NE(a, nullptr);
	ASSERT_NE(b, nullptr);
	char line[64];
	int n = 0;
	bool inOrder = true;
	while (VLIBCFgets(line, sizeof(line), a)) {
		if (n < 5000 && std::string(line) != "line " + std::to_string(n))
			inOrder = false;
		++n;
	}
	EXPECT_EQ(n, 5001); // the last line is what it said on its error output
	EXPECT_TRUE(inOrder);
	EXPECT_STREQ(line, "oops");
	// Drained before it is closed: a child still writing into a closed pipe
	// would die of SIGPIPE instead of exiting with its own status.
	int m = 0;
	while (VLIBCFgets(line, sizeof(line), b))
		++m;
	EXPECT_EQ(m, 3);
	// Closed in the opposite order: each close gets its own child's status.
	EXPECT_EQ(VLIBCPclose(b), 5);
	EXPECT_EQ(VLIBCPclose(a), 3);
	EXPECT_EQ(VLIBCPclose(a), -1);
	EXPECT_ERR(0x0D00);

	const std::string o = out();
	FILE *w = VLIBCPopen("/usr/bin/sink", "w", "sink", o.c_str(), nullptr);
	ASSERT_NE(w, nullptr);
	for (int i = 0; i < 1000; ++i)
		fprintf(w, "%d\n", i);
	EXPECT_EQ(VLIBCPclose(w), 4);
	EXPECT_EQ(root.read("/out.txt").size(), 3890u);

	EXPECT_EQ(VLIBCPopen("/usr/bin/none", "r", "none", nullptr), nullptr);
	EXPECT_ERR(0x0900);
}

TEST_F(Proc, AliveByPidAndByName)
{
	EXPECT_EQ(VLIBCIsProcAlive(nullptr, getpid()), 1);
	EXPECT_EQ(VLIBCIsProcAlive("vexo_t_absent", 0), 0);
	// A zombie is not alive.
	pid_t z = vexo::test::startNamedProcess("vexo_t_zombie");
	kill(z, SIGKILL);
	for (int i = 0; i < 100 && VLIBCIsProcAlive(nullptr, z); ++i)
		std::this_thread::sleep_for(std::chrono::milliseconds(10));
	EXPECT_EQ(VLIBCIsProcAlive(nullptr, z), 0);
	EXPECT_EQ(VLIBCIsProcAlive("vexo_t_zombie", 0), 0);
	waitpid(z, nullptr, 0);
	// The answer is kept for the process found; its end, and a successor
	// under the same name, are both seen.
	for (int round = 0; round < 2; ++round) {
		pid_t p = vexo::test::startNamedProcess("vexo_t_follow");
		EXPECT_EQ(VLIBCIsProcAlive("vexo_t_follow", 0), 1);
		EXPECT_EQ(VLIBCIsProcAlive("vexo_t_follow", 0), 1);
		kill(p, SIGKILL);
		waitpid(p, nullptr, 0);
		EXPECT_EQ(VLIBCIsProcAlive("vexo_t_follow", 0), 0) << "round " << round;
	}
}

TEST_F(Proc, PidFiles)
{
	root.mkdirs("/var/run");
	ASSERT_EQ(VLIBCProcPidFileCreate("/var/run/t.pid"), 0);
	EXPECT_EQ(root.read("/var/run/t.pid"), std::to_string(getpid()) + "\n");
	EXPECT_EQ(VLIBCReadPidFile("/var/run/t.pid"), getpid());
	EXPECT_EQ(VLIBCProcAliveByPidFile("/var/run/t.pid"), 1);

	pid_t dead = fork();
	if (dead == 0)
		_exit(0);
	waitpid(dead, nullptr, 0);
	root.write("/var/run/dead.pid", std::to_string(dead));
	EXPECT_EQ(VLIBCProcAliveByPidFile("/var/run/dead.pid"), 0);

	EXPECT_EQ(VLIBCReadPidFile("/var/run/none.pid"), -1);
	EXPECT_ERR(0x0700);
	for (const char *bad : {"abc", "0", "12 34", "99999999999"}) {
		SCOPED_TRACE(bad);
		root.write("/var/run/bad.pid", bad);
		VLIBCErrClear();
		EXPECT_EQ(VLIBCReadPidFile("/var/run/bad.pid"), -1);
		EXPECT_ERR(0x0A00);
		EXPECT_EQ(VLIBCProcAliveByPidFile("/var/run/bad.pid"), -1);
	}
}

TEST_F(Proc, ForkedChildStartsWithAClearErrorRecord)
{
	VLIBCErrSetEx(0x0400, "x", 1);
	pid_t pid = VLIBCProcFork();
	if (pid == 0)
		_exit(VLIBCErrGet() == 0 ? 0 : 1);
	ASSERT_GT(pid, 0);
	int st = 0;
	waitpid(pid, &st, 0);
	EXPECT_EQ(WEXITSTATUS(st), 0);
	EXPECT_ERR(0x0400);
}

} // namespace
