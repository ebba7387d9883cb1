// The IPC and processes seams: keys and sockets of two boxes apart, long
// socket paths, daemons signalled through their pid files.
#include <csignal>
#include <cstring>
#include <filesystem>
#include <set>
#include <sys/ipc.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include "frame/ipc.h"
#include "frame/proc.h"
#include "support/vexotest.h"

using vexo::test::LogCapture;
using vexo::test::ScopedEnv;
using vexo::test::Sysroot;

namespace {

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
