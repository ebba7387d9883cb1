// The seams: log, sysroot, exec, IPC and processes.
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <set>
#include <sys/ipc.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include "frame/exec.h"
#include "frame/ipc.h"
#include "frame/log.h"
#include "frame/proc.h"
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

// Glob characters in the root itself are taken literally.
TEST(SysrootSeam, GlobAndRealpathAnswerAppliancePaths)
{
	Sysroot top;
	const std::string r = "/vexo[root]*", dev = "/sys/devices/pci0000:00/0000:00:17.0/ata1";
	ScopedEnv env("VEXO_SYSROOT", top.host(r).c_str());
	top.write(r + dev + "/ata_port/ata1/port_no", "1\n");
	top.mkdirs(r + dev + "/host0/target0:0:0/0:0:0:0/block/sda");
	top.symlink("../devices/pci0000:00/0000:00:17.0/ata1/host0/target0:0:0/0:0:0:0/block/sda", r + "/sys/block/sda");
	std::vector<std::string> m;
	ASSERT_EQ(vexo::sysroot::glob("/sys/block/sda/../../../../../ata_port/ata*/port_no", m), 0);
	EXPECT_EQ(m, std::vector<std::string>{"/sys/block/sda/../../../../../ata_port/ata1/port_no"});
	char out[PATH_MAX];
	ASSERT_NE(vexo::sysroot::realpath("/sys/block/sda", out), nullptr);
	EXPECT_STREQ(out, (dev + "/host0/target0:0:0/0:0:0:0/block/sda").c_str());
}

// A stand-in program written into the sysroot, as the simulator does.
void program(const Sysroot &root, const std::string &path, const std::string &body)
{
	root.write(path, "#!/bin/sh\n" + body, 0755);
}

TEST(ExecSeam, RunsUnderTheRootWithLiteralArgumentsOrFails)
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
	// A variable given to the child replaces the caller's, never doubles it.
	ScopedEnv mine("VEXO_SEAM_T", "caller");
	// The raw block the child was given: a shell would fold duplicates.
	program(root, "/usr/bin/envof", "tr '\\0' '\\n' </proc/$$/environ | grep '^VEXO_SEAM_T' | sort\n");
	o = {};
	o.env = {"VEXO_SEAM_T=child", "VEXO_SEAM_TT=new"};
	EXPECT_EQ(vexo::exec::run({"/usr/bin/envof"}, o).out, "VEXO_SEAM_T=child\nVEXO_SEAM_TT=new\n");
	// No such program under the root, and a child killed by a signal.
	r = vexo::exec::run({"/usr/bin/smartctl", "-a"});
	EXPECT_FALSE(r.started);
	EXPECT_EQ(r.spawnErrno, ENOENT);
	EXPECT_EQ(r.status(), -1);
	program(root, "/bin/die", "kill -TERM $$\n");
	r = vexo::exec::run({"/bin/die"});
	EXPECT_EQ(r.termSignal, SIGTERM);
	EXPECT_EQ(r.status(), -1);
}

// The timeout kills the whole group, and holds after the output closed.
TEST(ExecSeam, TimeoutKillsTheWholeGroup)
{
	Sysroot root;
	root.mkdirs("/tmp");
	// The first starts a grandchild that would write a file after 2 s.
	program(root, "/bin/slow", "(sleep 2; echo late > \"$1\") & sleep 30\n");
	program(root, "/bin/quiet", "exec >/dev/null 2>&1 </dev/null; sleep 30\n");
	vexo::exec::Options o;
	o.timeoutMs = 300;
	for (const char *prog : {"/bin/slow", "/bin/quiet"}) {
		auto start = std::chrono::steady_clock::now();
		auto r = vexo::exec::run({prog, root.host("/tmp/late")}, o);
		EXPECT_TRUE(r.timedOut) << prog;
		EXPECT_EQ(r.status(), -1);
		EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
	}
	::sleep(3);
	EXPECT_FALSE(root.exists("/tmp/late")) << "the grandchild outlived the timeout";
}

// The IPC and processes seams: keys and sockets of two boxes apart, long
// socket paths, daemons signalled through their pid files.
TEST(IpcSeam, KeysOfTwoBoxesNeverMeet)
{
	Sysroot a;
	a.write("/run/a", "");
	a.write("/run/b", "");
	const std::string rootB = a.host("/boxb");
	a.write("/boxb/run/a", "");
	a.write("/boxb/run/b", "");
	std::set<key_t> seen;
	for (const std::string &root : {a.root(), rootB}) {
		ScopedEnv env("VEXO_SYSROOT", root.c_str());
		for (const char *path : {"/run/a", "/run/b"})
			for (int proj : {1, 2, 0x101}) {
				key_t k = vexo::ipc::key(path, proj);
				EXPECT_NE(k, -1);
				EXPECT_EQ(k, vexo::ipc::key(path, proj)); // the same in every process
				seen.insert(k);
			}
		EXPECT_EQ(vexo::ipc::key("/run//a", 1), vexo::ipc::key("/run/a", 1));
		EXPECT_EQ(vexo::ipc::key("/run/missing", 1), -1);
		EXPECT_EQ(errno, ENOENT);
	}
	// proj 0x101 is proj 1, as for ftok: 2 roots x 2 paths x 2 ids.
	EXPECT_EQ(seen.size(), 8u);

	// The real root gives the real key.
	ScopedEnv none("VEXO_SYSROOT", nullptr);
	EXPECT_EQ(vexo::ipc::key(a.host("/run/a").c_str(), 7), ::ftok(a.host("/run/a").c_str(), 7));
}

TEST(IpcSeam, DatagramsThereAndBackAtAnyRootLength)
{
	Sysroot root;
	const std::string deep = "/" + std::string(60, 'd') + "/" + std::string(60, 'e');
	root.mkdirs(deep + "/tmp");
	root.mkdirs("/tmp");
	for (const std::string &r : {root.root(), root.host(deep)}) {
		SCOPED_TRACE(r.size());
		ScopedEnv env("VEXO_SYSROOT", r.c_str());
		vexo::UniqueFd server(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
		vexo::UniqueFd client(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
		vexo::ipc::UnixAddress serverName, clientName;
		ASSERT_EQ(vexo::ipc::bind(server.get(), "/tmp/vcemd_connector.sock_server", serverName), 0) << strerror(errno);
		ASSERT_EQ(vexo::ipc::bind(client.get(), "/tmp/vcemd_connector.sock_client", clientName), 0) << strerror(errno);
		EXPECT_EQ(clientName.viaDirectory(), r.size() > 60);
		EXPECT_EQ(clientName.size(), 110u);
		ASSERT_EQ(vexo::ipc::sendTo(client.get(), "ping", 4, 0, "/tmp/vcemd_connector.sock_server"), 4);

		// The server answers whatever address the datagram came from, as a
		// daemon does.
		char buf[8] = {};
		sockaddr_un from{};
		socklen_t fromLen = sizeof(from);
		ASSERT_EQ(::recvfrom(server.get(), buf, sizeof(buf), 0, reinterpret_cast<sockaddr *>(&from), &fromLen), 4);
		EXPECT_STREQ(from.sun_path, clientName.name());
		ASSERT_EQ(::sendto(server.get(), "pong", 4, 0, reinterpret_cast<sockaddr *>(&from), fromLen), 4) << strerror(errno);
		ASSERT_EQ(::recv(client.get(), buf, sizeof(buf), 0), 4);
		EXPECT_EQ(std::string(buf, 4), "pong");
		// The socket file is where the box keeps it.
		EXPECT_TRUE(std::filesystem::exists(r + "/tmp/vcemd_connector.sock_client"));
		EXPECT_EQ(::unlink((r + "/tmp/vcemd_connector.sock_client").c_str()), 0);
		EXPECT_EQ(::unlink((r + "/tmp/vcemd_connector.sock_server").c_str()), 0);
	}

	// A name too long for any form fails with a line, not with a cut path.
	LogCapture log;
	vexo::UniqueFd s(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
	const std::string longName = "/tmp/" + std::string(120, 'n');
	EXPECT_EQ(vexo::ipc::connect(s.get(), longName.c_str()), -1);
	EXPECT_EQ(errno, ENAMETOOLONG);
	EXPECT_TRUE(log.has(LOG_ERR, "is too long")) << log.dump();
	// A directory that isn't there.
	ScopedEnv env("VEXO_SYSROOT", root.host(deep).c_str());
	EXPECT_EQ(vexo::ipc::sendTo(s.get(), "x", 1, 0, "/nowhere/sock"), -1);
	EXPECT_EQ(errno, ENOENT);
}

TEST(ProcSeam, SignalByPidFile)
{
	using vexo::proc::Signal;
	Sysroot root;
	pid_t daemon = vexo::test::startNamedProcess("vcemd");
	pid_t zombie = ::fork();
	if (zombie == 0)
		::_exit(0);
	// Wait for the child to end without reaping it.
	siginfo_t info{};
	ASSERT_EQ(::waitid(P_PID, static_cast<id_t>(zombie), &info, WEXITED | WNOWAIT), 0);

	struct {
		const char *content; // nullptr: no pid file
		const char *comm;
		int sig;
		Signal want;
	} rows[] = {
		{nullptr, nullptr, SIGTERM, Signal::NoPidFile},
		{"", nullptr, SIGTERM, Signal::BadPidFile},
		{"12ab\n", nullptr, SIGTERM, Signal::BadPidFile},
		{"0\n", nullptr, SIGTERM, Signal::BadPidFile},
		{"-5", nullptr, SIGTERM, Signal::BadPidFile},
		{"zombie", nullptr, SIGTERM, Signal::NotRunning},
		{"daemon", "smartd", SIGTERM, Signal::OtherProgram}, // not signalled
		{"daemon", "vcemd", 0, Signal::Sent},                // asked, not signalled
		{"daemon", "vcemd", SIGTERM, Signal::Sent},
	};
	for (const auto &r : rows) {
		SCOPED_TRACE(r.content ? r.content : "(none)");
		root.remove("/var/run/vcemd.pid");
		std::string text = r.content ? r.content : "";
		if (text == "daemon")
			text = std::to_string(daemon) + "\n";
		if (text == "zombie")
			text = std::to_string(zombie);
		if (r.content)
			root.write("/var/run/vcemd.pid", text);
		pid_t got = -1;
		EXPECT_EQ(vexo::proc::signalByPidFile("/var/run/vcemd.pid", r.sig, r.comm, &got), r.want);
		if (r.want != Signal::Sent) {
			EXPECT_TRUE(vexo::proc::alive(daemon));
		}
	}
	int status = 0;
	ASSERT_EQ(::waitpid(daemon, &status, 0), daemon);
	EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM);
	EXPECT_FALSE(vexo::proc::alive(zombie));
	::waitpid(zombie, nullptr, 0);
}

} // namespace
