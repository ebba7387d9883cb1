// The log, sysroot and exec seams.
#include <climits>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

#include "frame/exec.h"
#include "frame/log.h"
#include "frame/sysroot.h"
#include "support/vexotest.h"

using vexo::test::LogCapture;
using vexo::test::ScopedEnv;
using vexo::test::Sysroot;

namespace {

TEST(LogSeam, LinesCarryPriorityPlaceAndKeepErrno)
{
	LogCapture log;
	errno = ENOENT;
	vlog(LOG_AUTH | LOG_ERR, "%s:%d Fail to open %s. errno=%m", VEXO_AT, "/dev/sdq");
	// The place is the source path below src/ without its extension.
	EXPECT_EQ(errno, ENOENT);
	vlog(LOG_DEBUG, "Cannot open %s\n", "/tmp/standbytime"); // no prefix, own newline
	auto lines = log.lines();
	ASSERT_EQ(lines.size(), 2u);
	EXPECT_EQ(lines[0].priority, 35);
	EXPECT_EQ(lines[0].text.rfind("frame/seams_test:", 0), 0u);
	EXPECT_NE(lines[0].text.find("Fail to open /dev/sdq. errno=No such file or directory"), std::string::npos);
	EXPECT_EQ(lines[1].priority, 7);
	EXPECT_EQ(lines[1].text, "Cannot open /tmp/standbytime");
}

TEST(SysrootSeam, ComposesAndStrips)
{
	ScopedEnv env("VEXO_SYSROOT", "/r/oot//");
	EXPECT_EQ(vexo::sysroot::path("/sys/block"), "/r/oot/sys/block");
	EXPECT_EQ(vexo::sysroot::path("relative"), "relative");
	EXPECT_EQ(vexo::sysroot::strip("/r/oot/dev/sda"), "/dev/sda");
	EXPECT_EQ(vexo::sysroot::strip("/r/oots/dev"), "/r/oots/dev");
}

TEST(SysrootSeam, GlobAndRealpathAnswerAppliancePaths)
{
	Sysroot root;
	root.mkdirs("/sys/devices/pci0000:00/0000:00:17.0/ata1/ata_port/ata1");
	root.write("/sys/devices/pci0000:00/0000:00:17.0/ata1/ata_port/ata1/port_no", "1\n");
	root.mkdirs("/sys/devices/pci0000:00/0000:00:17.0/ata1/host0/target0:0:0/0:0:0:0/block/sda");
	root.symlink("../devices/pci0000:00/0000:00:17.0/ata1/host0/target0:0:0/0:0:0:0/block/sda", "/sys/block/sda");
	std::vector<std::string> m;
	ASSERT_EQ(vexo::sysroot::glob("/sys/block/sda/../../../../../ata_port/ata*/port_no", m), 0);
	ASSERT_EQ(m.size(), 1u);
	EXPECT_EQ(m[0], "/sys/block/sda/../../../../../ata_port/ata1/port_no");
	char out[PATH_MAX];
	ASSERT_NE(vexo::sysroot::realpath("/sys/block/sda", out), nullptr);
	EXPECT_STREQ(out, "/sys/devices/pci0000:00/0000:00:17.0/ata1/host0/target0:0:0/0:0:0:0/block/sda");
}

TEST(SysrootSeam, GlobCharactersInTheRootAreLiteral)
{
	std::string dir = std::string(std::getenv("TMPDIR") ? std::getenv("TMPDIR") : "/tmp") + "/vexo[root]*";
	ASSERT_EQ(::system(("rm -rf '" + dir + "' && mkdir -p '" + dir + "/etc'").c_str()), 0);
	{
		ScopedEnv env("VEXO_SYSROOT", dir.c_str());
		::close(::open((dir + "/etc/a.conf").c_str(), O_CREAT | O_WRONLY, 0644));
		std::vector<std::string> m;
		ASSERT_EQ(vexo::sysroot::glob("/etc/*.conf", m), 0);
		ASSERT_EQ(m.size(), 1u);
		EXPECT_EQ(m[0], "/etc/a.conf");
	}
	ASSERT_EQ(::system(("rm -rf '" + dir + "'").c_str()), 0);
}

// A stand-in program written into the sysroot, as the simulator does.
void program(const Sysroot &root, const std::string &path, const std::string &body)
{
	root.write(path, "#!/bin/sh\n" + body, 0755);
}

TEST(ExecSeam, RunsUnderTheRootWithLiteralArguments)
{
	Sysroot root;
	program(root, "/usr/bin/echoargs", "for a in \"$@\"; do printf '[%s]' \"$a\"; done; echo; echo err >&2; exit 3\n");
	auto r = vexo::exec::run({"/usr/bin/echoargs", "a b", "$(id)", "';rm -rf /'", "*"});
	ASSERT_TRUE(r.started);
	EXPECT_EQ(r.status(), 3);
	EXPECT_EQ(r.out, "[a b][$(id)][';rm -rf /'][*]\n");
	EXPECT_EQ(r.err, ""); // not captured unless asked
	vexo::exec::Options o;
	o.captureStderr = true;
	o.stdinData = std::string(200000, 'z');
	program(root, "/usr/bin/count", "wc -c; echo oops >&2\n");
	r = vexo::exec::run({"/usr/bin/count"}, o);
	EXPECT_EQ(r.status(), 0);
	EXPECT_EQ(std::atoi(r.out.c_str()), 200000);
	EXPECT_EQ(r.err, "oops\n");
}

TEST(ExecSeam, MissingProgramAndSignals)
{
	Sysroot root;
	auto r = vexo::exec::run({"/usr/bin/smartctl", "-a"});
	EXPECT_FALSE(r.started);
	EXPECT_EQ(r.spawnErrno, ENOENT);
	EXPECT_EQ(r.status(), -1);
	program(root, "/bin/die", "kill -TERM $$\n");
	r = vexo::exec::run({"/bin/die"});
	EXPECT_EQ(r.termSignal, SIGTERM);
	EXPECT_EQ(r.status(), -1);
}

TEST(ExecSeam, TimeoutKillsTheWholeGroup)
{
	Sysroot root;
	root.mkdirs("/tmp");
	// The child starts a grandchild that would write a file after 2 s.
	program(root, "/bin/slow", "(sleep 2; echo late > \"$1\") & sleep 30\n");
	vexo::exec::Options o;
	o.timeoutMs = 300;
	auto start = std::chrono::steady_clock::now();
	auto r = vexo::exec::run({"/bin/slow", root.host("/tmp/late")}, o);
	auto took = std::chrono::steady_clock::now() - start;
	EXPECT_TRUE(r.timedOut);
	EXPECT_EQ(r.status(), -1);
	EXPECT_LT(took, std::chrono::seconds(5));
	::sleep(3);
	EXPECT_FALSE(root.exists("/tmp/late")) << "the grandchild outlived the timeout";
}

TEST(ExecSeam, TimeoutHoldsAfterOutputCloses)
{
	Sysroot root;
	program(root, "/bin/quiet", "exec >/dev/null 2>&1 </dev/null; sleep 30\n");
	vexo::exec::Options o;
	o.timeoutMs = 300;
	auto start = std::chrono::steady_clock::now();
	auto r = vexo::exec::run({"/bin/quiet"}, o);
	EXPECT_TRUE(r.timedOut);
	EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
}

TEST(ExecSeam, ChildStreamsAndReaps)
{
	Sysroot root;
	program(root, "/bin/lines", "i=0; while [ $i -lt 5000 ]; do echo line$i; i=$((i+1)); done; exit 7\n");
	auto c = vexo::exec::Child::spawn({"/bin/lines"}, true);
	ASSERT_TRUE(c.valid());
	FILE *f = ::fdopen(c.releaseFd(), "r");
	char buf[64];
	int n = 0;
	while (std::fgets(buf, sizeof(buf), f))
		++n;
	std::fclose(f);
	EXPECT_EQ(n, 5000);
	EXPECT_EQ(c.wait(), 7);
}

} // namespace
