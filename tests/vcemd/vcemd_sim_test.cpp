// The connector against the simulated daemon: a real process on a real
// datagram socket, absent, mute, failing, busy, and sixteen clients at once.
#include <atomic>
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <map>
#include <thread>
#include <memory>
#include <syslog.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vexohw/vcemd.h>

#include "frame/proc.h"
#include "support/sim_daemon.h"

using vexo::test::LogCapture;
using vexo::test::Sysroot;

namespace {

// A sysroot with its daemon.
struct Box {
	Sysroot root;
	vexo::test::SimDaemon daemon;
	explicit Box(bool start = true) : daemon(root.root(), start) {}
	int vexosim(const char *verb) const { return daemon.vexosim(verb); }
	std::vector<std::string> events(size_t n = 0) const { return daemon.events(n); }
	// Whether a process other than this one could take the connector lock.
	bool lockFree() const
	{
		return vexo::test::inChild([&] {
			       int fd = ::open(root.host(VEXO_VCEMD_LOCK_FILE).c_str(), O_RDONLY);
			       return fd >= 0 && ::lockf(fd, F_TEST, 0) != 0 ? 1 : 0;
		       }) == 0;
	}
	bool clientPathLeft() const { return root.exists(VEXO_VCEMD_CLIENT_SOCKET); }
};

Message request(int command, const std::string &data, int needReply)
{
	Message m{};
	EXPECT_EQ(VEXOVcemdCopy2MsgIn(command, &m, data.data(), static_cast<int>(data.size()), needReply), 0);
	return m;
}

long msSince(std::chrono::steady_clock::time_point t)
{
	return static_cast<long>(
		std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - t).count());
}

// The fuzzer checks what a built record holds; here the two ways a length
// over 512 is refused, and the bad arguments of the client.
TEST(VcemdMessage, OversizeAndBadArguments)
{
	char data[513] = "refresh";
	Message m{};
	LogCapture log;
	VLIBCErrClear();
	EXPECT_EQ(VEXOVcemdCopy2MsgIn(5, &m, data, 513, 0), -1);
	EXPECT_EQ(VLIBCErrGet(), 0x0D00);
	VLIBCErrClear();
	EXPECT_EQ(VEXOVcemdCopy2MsgOut(5, &m, data, 513), -1);
	EXPECT_EQ(VLIBCErrGet(), 0);
	EXPECT_EQ(m.result, -1);
	EXPECT_TRUE(log.has(LOG_ERR, "SrcDataLen over the buffer for VEXOVcemdDataCopy()"));
	EXPECT_EQ(VEXOVcemdConnectorClient(nullptr, &m), -1);
	m.needReply = 1;
	EXPECT_EQ(VEXOVcemdConnectorClient(&m, nullptr), -1);
	EXPECT_EQ(VLIBCErrGet(), 0x0D00);
}

TEST(VcemdMarker, SetStatusTable)
{
	Sysroot root;
	root.mkdirs("/tmp");
	LogCapture log;
	struct Step {
		int state, rc;
		bool after;
		const char *line;
	} steps[] = {
		{1, 0, false, "Vcemd is not running..."},  {2, 0, true, nullptr},
		{2, -1, true, "Vcemd is abnormal restart..."}, {1, 0, false, nullptr},
		{7, -1, false, "No such case handler."},
	};
	for (const Step &s : steps) {
		SCOPED_TRACE(s.state);
		log.clear();
		EXPECT_EQ(VEXOSetVcemdStatus(s.state), s.rc);
		EXPECT_EQ(VEXOIsVcemdReady(), s.after ? 1 : 0);
		if (s.line) {
			EXPECT_EQ(log.count(-1, s.line), 1) << log.dump();
		}
	}
	int status = 0;
	EXPECT_EQ(VEXOVcemdStatusGet(1, &status), -1);
	EXPECT_TRUE(log.has(LOG_INFO, "Vcemd isn't ready, so cannot get vcemd status."));
	EXPECT_EQ(VLIBVcemdNotify(15), 0); // no pid file: nothing to signal
}

TEST(VcemdDaemon, AbsentFailsAtSendAndLeavesNothing)
{
	Box box(false);
	LogCapture log;
	Message m = request(5, std::string("refresh").append(25, '\0'), 0);
	EXPECT_EQ(VEXOVcemdConnectorClient(&m, nullptr), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "Fail to sendto() for vcemd connector client.")) << log.dump();
	EXPECT_FALSE(box.clientPathLeft());
	EXPECT_TRUE(box.lockFree());
	// The lock file stays, read-only for all.
	EXPECT_EQ(box.root.mode(VEXO_VCEMD_LOCK_FILE) & 07777, 0444u);
	EXPECT_EQ(VLIBVcemdNotify(43), -1);
}

// In a box whose socket paths do not fit sun_path: they go through a
// descriptor on their directory, both ways.
TEST(VcemdDaemon, StatusNotificationsAndFailureAnswers)
{
	Sysroot outer;
	const std::string deep = outer.host("/" + std::string(70, 'r') + "/" + std::string(40, 's'));
	outer.mkdirs(deep.substr(outer.root().size()));
	vexo::test::ScopedEnv tmp("TMPDIR", deep.c_str());
	Box box;
	ASSERT_GT(box.root.host(VEXO_VCEMD_CLIENT_SOCKET).size(), 108u);
	int status = 0;
	EXPECT_EQ(VEXOVcemdStatusGet(1, &status), 0);
	EXPECT_EQ(status, VEXO_VCEMD_READY);
	LogCapture log;
	EXPECT_EQ(VEXOVcemdStatusGet(4, &status), -1); // asked, then refused
	EXPECT_TRUE(log.has(LOG_ERR, "Doesn't have type=4 for VEXOVcemdStatusGet()"));
	EXPECT_EQ(VLIBVcemdNotify(43), 0);
	EXPECT_EQ(VLIBVcemdNotify(18), 0);
	Message led = request(29, "sda", 0);
	EXPECT_EQ(VEXOVcemdConnectorClient(&led, nullptr), 0);
	box.daemon.control("fail\n");
	EXPECT_EQ(VEXOVcemdStatusGet(1, &status), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "vcemd connector server return error."));
	EXPECT_EQ(VLIBVcemdNotify(63), -1);
	std::vector<std::string> want = {
		"request command=3 needReply=1 length=0 data=", "request command=3 needReply=1 length=0 data=",
		"notify 43",
		"request command=29 needReply=0 length=3 data=sda",
		"request command=3 needReply=1 length=0 data=", "notify 63"};
	std::vector<std::string> got = box.events(want.size() + 1);
	std::erase(got, "signal 18"); // taken asynchronously, so anywhere
	EXPECT_EQ(got, want);
	EXPECT_EQ(box.events().size(), want.size() + 1); // and the signal, once
	EXPECT_FALSE(box.clientPathLeft());
	EXPECT_EQ(box.vexosim("stop"), 0);
	EXPECT_EQ(VEXOIsVcemdReady(), 0);
	EXPECT_FALSE(box.root.exists(VEXO_VCEMD_SERVER_SOCKET));
}

TEST(VcemdDaemon, MuteTimesOutAfterThreeSecondsButOneWayWorks)
{
	Box box;
	box.daemon.control("mute\n");
	LogCapture log;
	Message ask{};
	ask.command = 3;
	ask.needReply = 1;
	Message reply{};
	reply.command = 77;
	auto t = std::chrono::steady_clock::now();
	EXPECT_EQ(VEXOVcemdConnectorClient(&ask, &reply), -1);
	long ms = msSince(t);
	EXPECT_GE(ms, 2900);
	EXPECT_LT(ms, 4500);
	EXPECT_EQ(reply.command, 77); // untouched
	EXPECT_TRUE(log.has(LOG_ERR, "Fail to recvfrom() for vcemd connector client."));
	Message oneWay = request(5, "refresh", 0);
	EXPECT_EQ(VEXOVcemdConnectorClient(&oneWay, nullptr), 0);
	EXPECT_FALSE(box.clientPathLeft());
	EXPECT_TRUE(box.lockFree());
}

TEST(VcemdDaemon, BusyLockGivesUpAfterAQuarterSecond)
{
	Box box;
	int ready[2];
	ASSERT_EQ(::pipe(ready), 0);
	pid_t holder = ::fork();
	if (holder == 0) {
		int fd = ::open(box.root.host(VEXO_VCEMD_LOCK_FILE).c_str(), O_RDWR | O_CREAT, 0644);
		int ok = fd >= 0 && ::lockf(fd, F_LOCK, 0) == 0;
		// The holder stands in for a client mid-exchange, bound to the path.
		box.root.write(VEXO_VCEMD_CLIENT_SOCKET, "");
		(void)!::write(ready[1], &ok, 1);
		::pause();
		_exit(0);
	}
	char ok = 0;
	ASSERT_EQ(::read(ready[0], &ok, 1), 1);
	ASSERT_EQ(ok, 1);
	LogCapture log;
	Message m = request(5, "refresh", 0);
	auto t = std::chrono::steady_clock::now();
	EXPECT_EQ(VEXOVcemdConnectorClient(&m, nullptr), -1);
	long ms = msSince(t);
	EXPECT_GE(ms, 190);
	EXPECT_LT(ms, 1000);
	EXPECT_TRUE(log.has(LOG_ERR, "Fail to lockf() for vcemd connector client."));
	EXPECT_TRUE(box.clientPathLeft()); // the holder's address is left to it
	::kill(holder, SIGKILL);
	::waitpid(holder, nullptr, 0);
	::close(ready[0]);
	::close(ready[1]);
	EXPECT_EQ(VEXOVcemdConnectorClient(&m, nullptr), 0);
	EXPECT_FALSE(box.clientPathLeft());
	EXPECT_EQ(box.events(1).size(), 1u);
}

// Sixteen processes at once, each repeating a request the lock turned away:
// every request reaches the daemon, and none twice.
TEST(VcemdDaemon, SixteenClientsEachRequestExactlyOnce)
{
	Box box;
	constexpr int kProcs = 16, kEach = 8;
	std::vector<pid_t> kids;
	for (int p = 0; p < kProcs; ++p) {
		pid_t pid = ::fork();
		if (pid == 0) {
			// Two threads a process: the mutex keeps them apart, the lock
			// the processes. A refused call sent nothing, so it is retried.
			std::atomic<bool> ok{true};
			auto send = [&](int t) {
				for (int i = 0; i < kEach / 2; ++i) {
					std::string id = "p" + std::to_string(p) + "-" + std::to_string(t) + "-" + std::to_string(i);
					Message m{}, r{};
					VEXOVcemdCopy2MsgIn(29, &m, id.data(), static_cast<int>(id.size()), 1);
					int tries = 0;
					while (VEXOVcemdConnectorClient(&m, &r) != 0 && ++tries < 200)
						;
					ok = ok && tries < 200 && r.result == 0;
				}
			};
			std::thread a(send, 0), b(send, 1);
			a.join();
			b.join();
			_exit(ok ? 0 : 1);
		}
		kids.push_back(pid);
	}
	for (pid_t k : kids) {
		int st = 0;
		::waitpid(k, &st, 0);
		EXPECT_TRUE(WIFEXITED(st) && WEXITSTATUS(st) == 0);
	}
	std::map<std::string, int> seen;
	for (const std::string &e : box.events())
		++seen[e.substr(e.find("data=") + 5)];
	EXPECT_EQ(seen.size(), static_cast<size_t>(kProcs * kEach));
	for (const auto &[data, n] : seen)
		EXPECT_EQ(n, 1) << data;
	EXPECT_FALSE(box.clientPathLeft());
}

// The daemon goes with its box: a root that is removed ends it.
TEST(VcemdDaemon, EndsWhenItsBoxIsRemoved)
{
	std::unique_ptr<Box> box = std::make_unique<Box>();
	pid_t pid = 0;
	ASSERT_TRUE(vexo::proc::readPidFile(VEXO_VCEMD_PID_FILE, pid));
	std::filesystem::remove_all(box->root.root());
	bool gone = false;
	for (int i = 0; i < 60 && !gone; ++i, ::usleep(50000))
		gone = !vexo::proc::alive(pid);
	EXPECT_TRUE(gone);
}

} // namespace
