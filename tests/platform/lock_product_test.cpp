// Lock files, numbered locks and product questions.
#include <chrono>
#include <ctime>
#include <fcntl.h>
#include <functional>
#include <sys/stat.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include "support/vexotest.h"

using vexo::test::inChild;
using vexo::test::Sysroot;

namespace {

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point t) { return std::chrono::duration<double>(Clock::now() - t).count(); }

class Locks : public ::testing::Test {
protected:
	void SetUp() override
	{
		VLIBCErrClear();
		root.mkdirs("/run/lock");
	}
	Sysroot root;
};

TEST_F(Locks, TimedLockWaitsThenFails)
{
	int fd = -1;
	ASSERT_NE(VLIBCFileLockTimeByFile("/run/lock/t.lock", 1, 0, &fd), 0);
	EXPECT_EQ(root.mode("/run/lock/t.lock"), 0644u);
	// Another process must wait its full second and then fail with 0x0400.
	EXPECT_EQ(inChild([] {
		  int cfd = -1;
		  auto t0 = Clock::now();
		  if (VLIBCFileLockTimeByFile("/run/lock/t.lock", 1, 1, &cfd))
			  return 1;
		  double s = secondsSince(t0);
		  if (s < 0.95 || s > 1.8)
			  return 2;
		  if (VLIBCErrGet() != 0x0400)
			  return 3;
		  // Shared fails too against an exclusive holder; try once is immediate.
		  t0 = Clock::now();
		  if (VLIBCFileLockTimeByFile("/run/lock/t.lock", 0, 0, &cfd) || secondsSince(t0) > 0.2)
			  return 4;
		  return 0;
	  }),
		  0);
	ASSERT_NE(VLIBCFileUnlockByFile(fd), 0);
	EXPECT_EQ(VLIBCFileUnlockByFile(-1), 0);
	EXPECT_ERR(0x0D00); // a bad descriptor is a bad argument
}

TEST_F(Locks, WaiterGetsTheLockWhenTheHolderLetsGo)
{
	int fd = -1;
	ASSERT_NE(VLIBCFileLockByFile("/run/lock/w.lock", 1, &fd), 0);
	pid_t pid = fork();
	if (pid == 0) {
		int cfd = -1;
		_exit(VLIBCFileLockTimeByFile("/run/lock/w.lock", 1, 5, &cfd) ? 0 : 1);
	}
	usleep(300 * 1000);
	VLIBCFileUnlockByFile(fd);
	int st = 0;
	waitpid(pid, &st, 0);
	EXPECT_EQ(WEXITSTATUS(st), 0);
	// Shared holders do not exclude each other.
	int a = -1;
	ASSERT_NE(VLIBCFileLockTimeByFile("/run/lock/w.lock", 0, 0, &a), 0);
	EXPECT_EQ(inChild([] {
		  int c = -1;
		  return VLIBCFileLockTimeByFile("/run/lock/w.lock", 0, 0, &c) ? 0 : 1;
	  }),
		  0);
	VLIBCFileUnlockByFile(a);
}

// The numbered-lock folder lives in world-writable /run/lock: one made or
// opened up by someone else, or a link, is refused at once instead of
// letting its maker hold every class; a link at a lock file is not followed.
TEST_F(Locks, NumberedLockFolderIsRootsAlone)
{
	if (::geteuid() != 0)
		GTEST_SKIP() << "needs root to give the folder away";
	const std::string dir = root.host("/run/lock/vexocore");
	mode_t old = ::umask(077);
	ASSERT_EQ(VLIBCFileLock(0x806, 5), 0);
	::umask(old);
	EXPECT_EQ(root.mode("/run/lock/vexocore"), 0755u);
	ASSERT_EQ(VLIBCFileUnlock(0x800), 0);

	root.write("/etc/target", "keep");
	root.remove("/run/lock/vexocore/0x800.lock");
	root.symlink("../../../etc/target", "/run/lock/vexocore/0x800.lock");
	EXPECT_EQ(VLIBCFileLock(0x806, 5), -1);
	EXPECT_ERR(0x0400);
	int fd = -1;
	EXPECT_EQ(VLIBCFileLockTimeByFile("/run/lock/vexocore/0x800.lock", 1, 0, &fd), 0);
	EXPECT_EQ(root.read("/etc/target"), "keep");

	const std::function<void()> spoil[] = {
		[&] { ASSERT_EQ(::chown(dir.c_str(), 65534, 65534), 0); },
		[&] { ASSERT_EQ(::chmod(dir.c_str(), 01777), 0); },
		[&] {
			root.remove("/run/lock/vexocore");
			root.mkdirs("/tmp/elsewhere");
			root.symlink("../../tmp/elsewhere", "/run/lock/vexocore");
		},
	};
	for (const auto &s : spoil) {
		root.remove("/run/lock/vexocore");
		root.mkdirs("/run/lock/vexocore");
		s();
		vexo::test::LogCapture log;
		auto t0 = Clock::now();
		EXPECT_EQ(VLIBCFileLock(0x806, 5), -1);
		EXPECT_ERR(0x0400);
		EXPECT_LT(secondsSince(t0), 1.0);
		EXPECT_TRUE(log.has(LOG_ERR, "is not a directory of root's alone"));
	}
}

TEST_F(Locks, NumberedLockClassRule)
{
	ASSERT_EQ(VLIBCFileLock(0x806, 5), 0);
	EXPECT_TRUE(root.exists("/run/lock/vexocore/0x800.lock"));
	// Any id of the same class is the same lock, for other processes...
	EXPECT_EQ(inChild([] { return VLIBCFileLock(0x801, 1) == -1 && VLIBCErrGet() == 0x0400 ? 0 : 1; }), 0);
	// ...and this thread may not take it twice.
	EXPECT_EQ(VLIBCFileLock(0x8FF, 5), -1);
	EXPECT_ERR(0x0400);
	// Another class is free.
	EXPECT_EQ(inChild([] { return VLIBCFileLock(0x20006, 1) == 0 && VLIBCFileUnlock(0x20000) == 0 ? 0 : 1; }), 0);
	// A forked child does not inherit the lock, and cannot release it.
	EXPECT_EQ(inChild([] { return VLIBCFileUnlock(0x800) == -1 && VLIBCErrGet() == 0x0500 ? 0 : 1; }), 0);
	ASSERT_EQ(VLIBCFileUnlock(0x800), 0); // released by class
	EXPECT_EQ(VLIBCFileUnlock(0x800), -1);
	EXPECT_ERR(0x0500);
	EXPECT_EQ(inChild([] { return VLIBCFileLock(0x806, 1) == 0 ? 0 : 1; }), 0);

	// The 0x20006 class waits for its holder in another process.
	ASSERT_EQ(VLIBCFileLock(0x20006, 5), 0);
	pid_t pid = fork();
	if (pid == 0) {
		auto t0 = Clock::now();
		int r = VLIBCFileLock(0x20006, 5);
		_exit(r == 0 && secondsSince(t0) > 0.25 ? 0 : 1);
	}
	usleep(400 * 1000);
	ASSERT_EQ(VLIBCFileUnlock(0x20000), 0);
	int st = 0;
	waitpid(pid, &st, 0);
	EXPECT_EQ(WEXITSTATUS(st), 0);

	EXPECT_EQ(VLIBCFileLock(0, 5), -1);
	EXPECT_ERR(0x0D00);
}

TEST(Product, QuestionsReadTheDefaultsEveryTime)
{
	Sysroot root;
	// Only "yes", in any case, says yes; /etc does not count for product facts.
	root.conf("/etc.defaults/vexoinfo.conf", {{"support_nvme", "YES"}, {"vvos", "1"}, {"maxdisks", "12"}});
	root.conf("/etc/vexoinfo.conf", {{"support_raid", "yes"}});
	EXPECT_EQ(VLIBCSupportNVMe(), 1);
	EXPECT_EQ(VLIBCIsVVOS(), 0);
	EXPECT_EQ(VLIBCSupportRAID(), 0);
	EXPECT_EQ(VLIBCMaxDiskGet(), 12);
	// A question leaves the error record alone.
	VLIBCErrSetEx(0x0900, "x", 1);
	EXPECT_EQ(VLIBCSupportDualhead(), 0);
	EXPECT_ERR(0x0900);
	root.conf("/etc.defaults/vexoinfo.conf", {{"maxdisks", "x12"}});
	EXPECT_EQ(VLIBCMaxDiskGet(), 0);
	EXPECT_EQ(VLIBCSupportNVMe(), 0);
}

// The parsed file is kept, so these check that every kind of change is still
// seen by the next question.
TEST(Product, KeptParseSeesEveryRewrite)
{
	Sysroot root;
	const char *file = "/etc.defaults/vexoinfo.conf";
	auto age = [&](int seconds) {
		timespec t[2];
		::clock_gettime(CLOCK_REALTIME, &t[0]);
		t[0].tv_sec -= seconds;
		t[1] = t[0];
		ASSERT_EQ(::utimensat(AT_FDCWD, root.host(file).c_str(), t, 0), 0);
		// Setting the times is a change too: let it settle.
		::usleep(100 * 1000);
	};
	auto inPlace = [&](const std::string &text) {
		// Same inode, same size, and the old modification time put back:
		// only the change time tells.
		struct stat before {};
		ASSERT_EQ(::stat(root.host(file).c_str(), &before), 0);
		int fd = ::open(root.host(file).c_str(), O_WRONLY);
		ASSERT_GE(fd, 0);
		ASSERT_EQ(::pwrite(fd, text.data(), text.size(), 0), static_cast<ssize_t>(text.size()));
		::close(fd);
		timespec t[2] = {before.st_atim, before.st_mtim};
		ASSERT_EQ(::utimensat(AT_FDCWD, root.host(file).c_str(), t, 0), 0);
	};
	root.write(file, "support_sas=\"yes\"\nmaxdisks=\"12\"\nmaxdisks=\"99\"\n");
	// Asked at once after the write: the parse is not trusted yet.
	EXPECT_EQ(VLIBCSupportSAS(), 1);
	root.write(file, "support_sas=\"no_\"\nmaxdisks=\"12\"\nmaxdisks=\"99\"\n");
	EXPECT_EQ(VLIBCSupportSAS(), 0);

	// A file long settled is kept; a same-sized rewrite in place still shows.
	age(60);
	EXPECT_EQ(VLIBCSupportSAS(), 0);
	EXPECT_EQ(VLIBCMaxDiskGet(), 12); // the first line of a key wins
	inPlace("support_sas=\"yes\"");
	EXPECT_EQ(VLIBCSupportSAS(), 1);
	age(60);
	EXPECT_EQ(VLIBCSupportSAS(), 1);

	// Replaced by rename, then removed, then back.
	root.write(file + std::string(".new"), "support_sas=\"no\"\n");
	ASSERT_EQ(::rename(root.host(file + std::string(".new")).c_str(), root.host(file).c_str()), 0);
	EXPECT_EQ(VLIBCSupportSAS(), 0);
	age(60);
	EXPECT_EQ(VLIBCSupportSAS(), 0);
	root.remove(file);
	char value[16] = "untouched";
	EXPECT_EQ(VLIBCFileGetKeyValue(file, "support_sas", value, sizeof(value), 0), -1);
	EXPECT_ERR(0x0700);
	root.write(file, "support_sas=yes\n");
	age(60);
	EXPECT_EQ(VLIBCSupportSAS(), 1);

	// Another root answers from its own file, and the first is still kept right.
	{
		Sysroot other;
		other.write(file, "support_sas=no\n");
		EXPECT_EQ(VLIBCSupportSAS(), 0);
	}
	EXPECT_EQ(VLIBCSupportSAS(), 1);
}

} // namespace
