// A drive's LED switched for a while, with a real child process and the
// simulated daemon receiving every request; and the buzzer's settings.
#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <string>
#include <sys/wait.h>
#include <syslog.h>
#include <thread>
#include <unistd.h>
#include <vexohw/led.h>

#include "frame/clock.h"
#include "frame/proc.h"
#include "support/sim_daemon.h"

using vexo::test::LogCapture;
using vexo::test::Sysroot;

namespace {

struct Box {
	Sysroot root;
	vexo::test::SimDaemon daemon{root.root()};
	Box()
	{
		root.mkdirs("/var/lock");
		root.conf("/etc.defaults/vexoinfo.conf", {{"internalportcfg", "0xff"}, {"usbportcfg", "0xff0000"}});
	}

	std::string section(const char *disk) const
	{
		DiskId id{};
		char key[64] = "?";
		DiskPathParse(disk, &id);
		VEXODiskIdSerialize(&id, key, sizeof key);
		return key;
	}
	pid_t sectionPid(const char *disk) const
	{
		char v[32] = "";
		VLIBSZHASH *h = VLIBCSzHashAlloc(4);
		if (VLIBCFileGetSection(VEXO_DISK_LED_STATUS_FILE, section(disk).c_str(), &h) > 0)
			std::snprintf(v, sizeof v, "%s", VLIBCSzHashGetValue(h, "pid") ?: "");
		VLIBCSzHashFree(h);
		return std::atoi(v);
	}
	// The child's pid in the drive's section once it is there and other
	// than `other` (0 when it never is within five seconds).
	pid_t pid(const char *disk, pid_t other = 0) const
	{
		for (int i = 0; i < 250; ++i, std::this_thread::sleep_for(std::chrono::milliseconds(20)))
			if (pid_t p = sectionPid(disk); p > 0 && p != other)
				return p;
		return 0;
	}
	bool sectionGone(const char *disk) const
	{
		for (int i = 0; i < 100 && sectionPid(disk) != 0; ++i)
			std::this_thread::sleep_for(std::chrono::milliseconds(20));
		return sectionPid(disk) == 0;
	}
};

// A payload as the daemon logs it: printable bytes, others as \xNN, the
// zero padding at the end left out.
std::string shown(const void *p, size_t n)
{
	const auto *b = static_cast<const unsigned char *>(p);
	while (n && !b[n - 1])
		--n;
	std::string s;
	for (size_t i = 0; i < n; ++i) {
		char x[5];
		std::snprintf(x, sizeof x, "\\x%02x", b[i]);
		s += b[i] >= 0x20 && b[i] < 0x7F && b[i] != '\\' ? std::string(1, static_cast<char>(b[i])) : x;
	}
	return s;
}

std::string request(int code, const char *disk, int mode, int duration, pid_t pid)
{
	DiskLedRequest r{};
	DiskPathParse(disk, &r.id);
	r.mode = mode, r.duration = duration, r.pid = pid;
	return "request command=" + std::to_string(code) + " needReply=0 length=36 data=" + shown(&r, sizeof r);
}

std::string logRecord(const char *disk, const char *status, int minutes)
{
	DiskLedLogRecord r{};
	std::snprintf(r.device, sizeof r.device, "%s", disk);
	std::snprintf(r.status, sizeof r.status, "%s", status);
	r.minutes = minutes;
	return "request command=29 needReply=0 length=96 data=" + shown(&r, sizeof r);
}

TEST(LedStatus, SwitchPutsTheLedBackAfterTheTime)
{
	Box box;
	ASSERT_EQ(VEXODiskLedStatusSet("/dev/sda", "switch", 1), 0);
	pid_t child = box.pid("/dev/sda");
	ASSERT_GT(child, 0);
	box.daemon.events(4);
	std::vector<std::string> want = {request(14, "/dev/sda", 1, 1, child), logRecord("/dev/sda", "switch", 1),
					 request(28, "/dev/sda", 0, 1, child), logRecord("/dev/sda", "restore", 1)};
	EXPECT_EQ(box.daemon.events(4), want);
	EXPECT_TRUE(box.sectionGone("/dev/sda"));
}

TEST(LedStatus, SecondSwitchReplacesAndRestoreEndsIt)
{
	Box box;
	const std::time_t before = std::time(nullptr);
	ASSERT_EQ(VEXODiskLedStatusSet("/dev/sdb", "switch", 30), 0);
	pid_t first = box.pid("/dev/sdb");
	box.daemon.events(2); // its requests are out before the next one replaces it
	ASSERT_EQ(VEXODiskLedStatusSet("/dev/sdb", "switch", 600), 0);
	pid_t second = box.pid("/dev/sdb", first);
	ASSERT_GT(first * second, 0);
	DiskLedStatus s{};
	ASSERT_EQ(VEXODiskLedStatusGet("/dev/sdb", &s), 0);
	EXPECT_EQ(s.switching * 1000 + s.duration, 1600);
	EXPECT_GE(s.dueTime, before + 600);
	box.daemon.events(4);
	for (int i = 0; i < 100 && vexo::proc::alive(first); ++i)
		std::this_thread::sleep_for(std::chrono::milliseconds(20));
	EXPECT_FALSE(vexo::proc::alive(first)); // it must not put the LED back in the new request's time
	EXPECT_EQ(VEXODiskLedStatusSet("/dev/sdb", "restore", 0), 0);
	for (int i = 0; i < 100 && vexo::proc::alive(second); ++i)
		std::this_thread::sleep_for(std::chrono::milliseconds(20));
	EXPECT_FALSE(vexo::proc::alive(second));
	EXPECT_TRUE(box.sectionGone("/dev/sdb"));
	std::vector<std::string> want = {request(14, "/dev/sdb", 1, 30, first), logRecord("/dev/sdb", "switch", 1),
					 request(14, "/dev/sdb", 1, 600, second), logRecord("/dev/sdb", "switch", 10),
					 request(28, "/dev/sdb", 0, 0, second), logRecord("/dev/sdb", "restore", 0)};
	EXPECT_EQ(box.daemon.events(6), want);
	EXPECT_EQ(VEXODiskLedStatusRestore("/dev/sdb"), 0); // nothing under way: nothing sent
	EXPECT_EQ(box.daemon.events().size(), 6u);
}

TEST(LedStatus, StaleSectionAndBadArguments)
{
	Box box;
	const std::string sda = box.section("/dev/sda"), sdc = box.section("/dev/sdc");
	box.root.write(VEXO_DISK_LED_STATUS_FILE, "[" + sda + "]\ntime=\"1000\"\npid=\"1\"\nduration=\"60\"\n[" + sdc +
							   "]\ntime=\"5000\"\npid=\"1\"\nduration=\"60\"\n");
	vexo::clock::setForTest(1000, 0);
	DiskLedStatus s{7, 7, 7};
	EXPECT_EQ(VEXODiskLedStatusGet("/dev/sda", &s), 0); // due now: over, and removed
	EXPECT_EQ(s.switching + s.duration + s.dueTime, 0);
	EXPECT_TRUE(box.sectionGone("/dev/sda"));
	EXPECT_EQ(VEXODiskLedStatusGet("/dev/sdc", &s), 0);
	EXPECT_EQ(s.dueTime, 5000);
	DiskId id{};
	DiskPathParse("/dev/sdc", &id);
	EXPECT_EQ(VEXODiskLedStatusRemoveFile(&id), 0);
	EXPECT_TRUE(box.sectionGone("/dev/sdc"));
	vexo::clock::clearForTest();

	const struct {
		const char *path, *mode;
		int duration;
		const char *log;
	} bad[] = {
		{nullptr, "switch", 5, "no parameters"},
		{"/dev/sda", nullptr, 5, "no parameters"},
		{"/dev/sda", "blink", 5, "Bad mode blink"},
		{"/dev/sda", "switch", 0, "Bad mode switch or duration 0"},
		{"/dev/", "switch", 5, "Failed to parse disk /dev/"},
	};
	for (const auto &b : bad) {
		LogCapture log;
		VLIBCErrClear();
		EXPECT_EQ(VEXODiskLedStatusSet(b.path, b.mode, b.duration), -1);
		EXPECT_EQ(VLIBCErrGet(), VEXO_ERR_BAD_PARAM);
		EXPECT_TRUE(log.has(LOG_ERR, b.log)) << log.dump();
	}
	EXPECT_TRUE(box.daemon.events().empty());
}

// What each mode sends after what was under way, and that no child is left
// to put the LED back behind it. A stale section's pid may be anyone's now:
// a live process of ours stands in for it and must survive.
TEST(LedStatus, ModesOverASwitchOrAStaleSection)
{
	Box box;
	enum Before { Nothing, Switch, Stale };
	const struct {
		const char *mode;
		Before before;
		int code, request; // the daemon request the mode sends (code 0: none)
	} cases[] = {
		{"faulty", Switch, 14, VEXO_DISK_LED_REQUEST_FAULTY}, {"normal", Switch, 28, VEXO_DISK_LED_REQUEST_NORMAL},
		{"normal", Nothing, 28, VEXO_DISK_LED_REQUEST_NORMAL}, {"faulty", Stale, 14, VEXO_DISK_LED_REQUEST_FAULTY},
		{"restore", Stale, 0, 0},
	};
	size_t sent = 0;
	for (const auto &c : cases) {
		std::vector<std::string> want;
		pid_t child = 0, bystander = c.before == Stale ? ::fork() : 0;
		if (bystander == 0 && c.before == Stale)
			::_exit(::pause());
		if (c.before == Switch) {
			ASSERT_EQ(VEXODiskLedStatusSet("/dev/sdd", "switch", 600), 0);
			ASSERT_GT(child = box.pid("/dev/sdd"), 0);
			want = {request(14, "/dev/sdd", 1, 600, child), logRecord("/dev/sdd", "switch", 10)};
			box.daemon.events(sent + 2);
		} else if (bystander) {
			box.root.write(VEXO_DISK_LED_STATUS_FILE, "[" + box.section("/dev/sdd") + "]\ntime=\"1000\"\npid=\"" +
								   std::to_string(bystander) + "\"\nduration=\"60\"\n");
		}
		EXPECT_EQ(VEXODiskLedStatusSet("/dev/sdd", c.mode, 0), 0) << c.mode;
		if (c.code)
			want.push_back(request(c.code, "/dev/sdd", c.request, 0, c.code == 28 ? child : 0));
		if (c.code == 28 && child)
			want.push_back(logRecord("/dev/sdd", "restore", 0));
		for (int i = 0; i < 100 && vexo::proc::alive(child); ++i)
			std::this_thread::sleep_for(std::chrono::milliseconds(20));
		EXPECT_TRUE(!vexo::proc::alive(child) && box.sectionGone("/dev/sdd")) << c.mode;
		EXPECT_EQ(vexo::proc::alive(bystander), bystander > 0) << c.mode;
		if (bystander && ::kill(bystander, SIGKILL) == 0)
			::waitpid(bystander, nullptr, 0);
		std::vector<std::string> got = box.daemon.events(sent + want.size());
		EXPECT_EQ(std::vector<std::string>(got.begin() + static_cast<long>(std::min(sent, got.size())), got.end()), want)
			<< c.mode;
		sent = got.size();
	}
	// Without the daemon each fails with its own line.
	ASSERT_EQ(box.daemon.vexosim("stop"), 0);
	LogCapture log;
	EXPECT_EQ(VEXODiskLedStatusSet("/dev/sde", "faulty", 0) + VEXODiskLedStatusSet("/dev/sde", "normal", 0), -2);
	EXPECT_TRUE(VLIBCErrGet() == VEXO_ERR_INTERNAL && log.has(LOG_ERR, "Failed to set disk led faulty") &&
		    log.has(LOG_ERR, "Failed to restore disk led status for /dev/sde"))
		<< log.dump();
}

TEST(Buzzer, SettingsAndPause)
{
	Box box;
	box.root.conf("/etc.defaults/vexoinfo.conf", {{"buzzeroffen", "3"}, {"buzzeroffen_vx1222", "c"}});
	box.root.conf("/etc/vexoinfo.conf", {{"buzzeroffcfg", "0x5"}});
	const struct {
		int mask, enable, value;
	} sets[] = {{0x2, 1, 0x7}, {0x4, 0, 0x3}, {0x1, 0, 0x2}};
	for (const auto &c : sets) {
		EXPECT_EQ(VEXOBuzzerOffConfigSet(c.mask, c.enable), 0);
		EXPECT_EQ(VEXOBuzzerOffConfigGet(), c.value);
	}
	EXPECT_EQ(box.daemon.events(3), std::vector<std::string>(3, "notify 49"));
	EXPECT_EQ(VEXOBuzzerOffEnableBitGet("vx1222") * 100 + VEXOBuzzerOffEnableBitGet("vx0") * 10 +
			  VEXOBuzzerOffEnableBitGet(nullptr),
		  1233);
	LogCapture log;
	EXPECT_EQ(VEXOBuzzerCurrentBitmapGet(), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "CszBuf't get the current buzzer bitmap"));
	box.root.write(VEXO_BUZZER_BITMAP_FILE, "buzzerCurrentBitMap=1f\n");
	EXPECT_EQ(VEXOBuzzerCurrentBitmapGet(), 0x1f);
	for (int i = 0; i < 2; ++i) {
		EXPECT_EQ(VEXOBuzzerPause(), 0);
		EXPECT_TRUE(box.root.exists(VEXO_BUZZER_PAUSE_FILE));
	}
	for (int i = 0; i < 2; ++i) {
		EXPECT_EQ(VEXOBuzzerResume(), 0);
		EXPECT_FALSE(box.root.exists(VEXO_BUZZER_PAUSE_FILE));
	}
}

} // namespace
