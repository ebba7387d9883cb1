// Files of the platform: key-value files and the system settings, section
// files, lock files and numbered locks, product questions.
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
using namespace std::string_view_literals;

namespace {

// How many entries a folder holds: temporary files must not stay behind.
int entries(const char *dir)
{
	PVLIBSZLIST names = VLIBCSzListAlloc(4);
	int n = VLIBCFileEnumDir(dir, &names);
	VLIBCSzListFree(names);
	return n;
}

class KvFile : public ::testing::Test {
protected:
	void SetUp() override
	{
		VLIBCErrClear();
		root.mkdirs("/etc");
		root.mkdirs("/tmp");
	}
	Sysroot root;
	char buf[256];
};

TEST_F(KvFile, ReadsQuotedBareAndOddValues)
{
	// A NUL byte ends its line for every reader alike.
	root.write("/etc/t.conf", "# comment=not a key\n"
				  "quoted=\"a b c\"\n"
				  "bare = plain value \n"
				  "eq=\"x=y=z\"\n"
				  "hash=\"#not a comment\"\n"
				  "crlf=\"win\"\r\n"
				  "empty=\"\"\n"
				  "inner=\"say \"hi\"\"\n"
				  "dup=first\n"
				  "dup=second\n"
				  "noequals\n"
				  "  [section]\n"
				  "seven=\"1234567\"\n"
				  "eight=\"12345678\"\n"
				  "nul=1\0tail\n"
				  "cut\0=2\n"
				  "last=no newline"sv);
	struct Case {
		const char *key;
		const char *value; // nullptr: not found
		int size = 256;
	} cases[] = {{"quoted", "a b c"}, {"bare", "plain value"}, {"eq", "x=y=z"},   {"hash", "#not a comment"},
		     {"crlf", "win"},     {"inner", "say \"hi\""},   {"dup", "first"},   {"last", "no newline"},
		     {"empty", ""},       {"# comment", nullptr},     {"missing", nullptr}, {"nul", "1"}, {"cut", nullptr},
		     // size-1 bytes fit whole; size bytes are cut to size-1 and stay terminated.
		     {"seven", "1234567", 8}, {"eight", "1234567", 8}, {"eight", "", 1}};
	for (const auto &c : cases) {
		SCOPED_TRACE(std::string(c.key) + " in " + std::to_string(c.size));
		VLIBCErrClear();
		memset(buf, 'X', sizeof(buf));
		EXPECT_EQ(VLIBCFileGetKeyValue("/etc/t.conf", c.key, buf, c.size, 0), c.value ? (int)strlen(c.value) : 0);
		EXPECT_STREQ(buf, c.value ? c.value : "");
		EXPECT_ERR(c.value ? 0 : 0x2A00);
	}

	PVLIBSZHASH all = nullptr;
	ASSERT_EQ(VLIBCFileGetKeyValueAll("/etc/t.conf", &all), 12);
	EXPECT_STREQ(all->ppszKey[0], "quoted");
	EXPECT_STREQ(VLIBCSzHashGetValue(all, "dup"), "first");
	EXPECT_STREQ(VLIBCSzHashGetValue(all, "empty"), "");
	VLIBCSzHashFree(all);
}

TEST_F(KvFile, ReadFailures)
{
	EXPECT_EQ(VLIBCFileGetKeyValue("/etc/none.conf", "k", buf, sizeof(buf), 0), -1);
	EXPECT_ERR(0x0700);
	EXPECT_STREQ(VLIBCErrFileGet(), "core/file_get_key_value");
	root.mkdirs("/etc/adir");
	EXPECT_EQ(VLIBCFileGetKeyValue("/etc/adir", "k", buf, sizeof(buf), 0), -1);
	EXPECT_ERR(0x0A00);
	EXPECT_EQ(VLIBCFileGetKeyValue("/etc/none.conf", "k", buf, 0, 0), -1);
	EXPECT_ERR(0x0D00);
}

TEST_F(KvFile, SetKeepsOtherLinesAndRoundTrips)
{
	root.write("/etc/t.conf", "# header\n\nalpha=\"1\"\r\nbeta=2\nbeta=dup\ngamma=\"3\"\n", 0640);
	ASSERT_EQ(VLIBCFileSetKeyValue("/etc/t.conf", "beta", "new value = #x", nullptr), 1);
	ASSERT_EQ(VLIBCFileSetKeyValue("/etc/t.conf", "delta", "", nullptr), 1);
	ASSERT_EQ(VLIBCFileSetKeyValue("/etc/t.conf", "eps", " padded ", nullptr), 1);
	EXPECT_EQ(root.read("/etc/t.conf"), "# header\n\nalpha=\"1\"\r\nbeta=\"new value = #x\"\ngamma=\"3\"\n"
					    "delta=\"\"\neps=\" padded \"\n");
	EXPECT_EQ(root.mode("/etc/t.conf"), 0640u); // the mode survives the rename
	EXPECT_EQ(VLIBCFileGetKeyValue("/etc/t.conf", "beta", buf, sizeof(buf), 0), 14);
	EXPECT_STREQ(buf, "new value = #x");
	EXPECT_EQ(VLIBCFileGetKeyValue("/etc/t.conf", "eps", buf, sizeof(buf), 0), 8);
	EXPECT_STREQ(buf, " padded ");

	// A custom format and a missing file, created 0644.
	ASSERT_EQ(VLIBCFileSetKeyValue("/tmp/.flag", "on", "yes", "%s=%s\n"), 1);
	EXPECT_EQ(root.read("/tmp/.flag"), "on=yes\n");
	EXPECT_EQ(root.mode("/tmp/.flag"), 0644u);

	ASSERT_EQ(VLIBCFileRemoveKey("/etc/t.conf", "alpha"), 1);
	EXPECT_EQ(VLIBCFileRemoveKey("/etc/t.conf", "alpha"), 0);
	EXPECT_EQ(VLIBCFileRemoveKey("/etc/none.conf", "alpha"), 0);
	EXPECT_FALSE(root.exists("/etc/none.conf"));
	EXPECT_EQ(root.read("/etc/t.conf").find("alpha"), std::string::npos);
	EXPECT_EQ(entries("/etc"), 1);
}

TEST_F(KvFile, SetRejectsWhatWouldBreakTheFile)
{
	root.conf("/etc/t.conf", {{"a", "1"}});
	const std::string before = root.read("/etc/t.conf");
	EXPECT_EQ(VLIBCFileSetKeyValue("/etc/t.conf", "a", "two\nlines", nullptr), -1);
	EXPECT_ERR(0x0D00);
	EXPECT_EQ(VLIBCFileSetKeyValue("/etc/t.conf", "a=b", "v", nullptr), -1);
	EXPECT_EQ(VLIBCFileSetKeyValue("/etc/t.conf", "a", "v", "%s=%d\n"), -1);
	EXPECT_EQ(root.read("/etc/t.conf"), before);
	// A directory that is not there: the write fails and leaves nothing.
	EXPECT_EQ(VLIBCFileSetKeyValue("/nodir/t.conf", "a", "v", nullptr), -1);
	EXPECT_ERR(0x0900);
}

TEST_F(KvFile, InfoFallsBackToDefaultsAndWritesOnlyEtc)
{
	root.conf("/etc.defaults/vexoinfo.conf", {{"maillang", "ger"}, {"upnpmodelname", "VS900"}});
	EXPECT_EQ(VLIBCINFOGetKeyValue("maillang", buf, sizeof(buf)), 3);
	EXPECT_STREQ(buf, "ger");
	ASSERT_EQ(VLIBCINFOSetKeyValue("maillang", "fre"), 0);
	EXPECT_EQ(VLIBCINFOGetKeyValue("maillang", buf, sizeof(buf)), 3);
	EXPECT_STREQ(buf, "fre");
	EXPECT_EQ(root.read("/etc/vexoinfo.conf"), "maillang=\"fre\"\n");
	EXPECT_NE(root.read("/etc.defaults/vexoinfo.conf").find("ger"), std::string::npos);
	ASSERT_EQ(VLIBCINFORemoveKey("maillang"), 0);
	EXPECT_EQ(VLIBCINFOGetKeyValue("maillang", buf, sizeof(buf)), 3);
	EXPECT_STREQ(buf, "ger");
	// The lock was released: another taker gets it at once.
	EXPECT_EQ(VLIBCFileLock(0x801, 0x1), 0);
	EXPECT_EQ(VLIBCFileUnlock(0x800), 0);
}

// Several processes each add their own keys many times over, under a lock
// file, while a reader checks that the file is always there and whole.
TEST_F(KvFile, ConcurrentLockedWritersLoseNothing)
{
	constexpr int kWriters = 4, kRounds = 40;
	root.write("/etc/shared.conf", "# shared\n");
	root.mkdirs("/run/lock");
	pid_t reader = vexo::test::forkChild([] {
		char v[64];
		// Fails when the file was missing or unreadable for a moment.
		while (VLIBCFileGetKeyValue("/etc/shared.conf", "w0", v, sizeof(v), 0) >= 0) {
		}
		return 1;
	});
	std::vector<pid_t> kids;
	for (int w = 0; w < kWriters; ++w)
		kids.push_back(vexo::test::forkChild([w] {
			for (int i = 0; i < kRounds; ++i) {
				int fd = -1;
				if (!VLIBCFileLockTimeByFile("/run/lock/shared.lock", 1, 10, &fd))
					return 2;
				const std::string key = "w" + std::to_string(w), value = std::to_string(i);
				if (VLIBCFileSetKeyValue("/etc/shared.conf", key.c_str(), value.c_str(), nullptr) != 1 ||
				    VLIBCFileSetKeyValue("/etc/shared.conf", (key + "_" + value).c_str(), "x", nullptr) != 1)
					return 3;
				VLIBCFileUnlockByFile(fd);
			}
			return 0;
		}));
	for (pid_t k : kids)
		EXPECT_EQ(vexo::test::waitChild(k), 0);
	int st = 0;
	EXPECT_EQ(waitpid(reader, &st, WNOHANG), 0) << "reader saw a broken file";
	kill(reader, SIGKILL);
	waitpid(reader, &st, 0);

	PVLIBSZHASH all = nullptr;
	ASSERT_EQ(VLIBCFileGetKeyValueAll("/etc/shared.conf", &all), kWriters * (kRounds + 1));
	EXPECT_STREQ(VLIBCSzHashGetValue(all, "w3"), "39");
	VLIBCSzHashFree(all);
	EXPECT_EQ(entries("/etc"), 1);
}

// Section files: lookups, rewrites that keep their neighbours, and misses.
class SectionFile : public ::testing::Test {
protected:
	void SetUp() override
	{
		VLIBCErrClear();
		hash = VLIBCSzHashAlloc(2);
		list = VLIBCSzListAlloc(2);
	}
	void TearDown() override
	{
		VLIBCSzHashFree(hash);
		VLIBCSzListFree(list);
	}
	Sysroot root;
	PVLIBSZHASH hash = nullptr;
	PVLIBSZLIST list = nullptr;
};

constexpr const char *kPorts = "global=ignored\n"
			       "[pci]\n"
			       "pci1=\"0000:00:01.0\"\n"
			       "pci2 = 0000:00:1c.4\r\n"
			       "# pci3=commented\n"
			       "\n"
			       "[ usb ]\n"
			       "eq=\"a=b # c\"\n"
			       "\n"
			       "[empty]\n";

TEST_F(SectionFile, GetAndEnumerate)
{
	root.write("/etc.defaults/extensionPorts", kPorts);
	ASSERT_EQ(VLIBCFileGetSection("/etc.defaults/extensionPorts", "pci", &hash), 2);
	EXPECT_STREQ(hash->ppszKey[0], "pci1");
	EXPECT_STREQ(VLIBCSzHashGetValue(hash, "pci1"), "0000:00:01.0");
	EXPECT_STREQ(VLIBCSzHashGetValue(hash, "pci2"), "0000:00:1c.4");
	ASSERT_EQ(VLIBCFileGetSection("/etc.defaults/extensionPorts", "usb", &hash), 1);
	EXPECT_STREQ(VLIBCSzHashGetValue(hash, "eq"), "a=b # c");
	EXPECT_EQ(VLIBCFileGetSection("/etc.defaults/extensionPorts", "empty", &hash), 0);
	EXPECT_EQ(VLIBCFileGetSection("/etc.defaults/extensionPorts", "nope", &hash), -1);
	EXPECT_ERR(0x2A00);

	EXPECT_EQ(VLIBCFileEnumSection("/etc.defaults/extensionPorts", &list), 3);
	EXPECT_STREQ(VLIBCSzListGet(list, 1), "usb");

	// A null *pHash is allocated for the caller.
	PVLIBSZHASH fresh = nullptr;
	EXPECT_EQ(VLIBCFileGetSection("/etc.defaults/extensionPorts", "pci", &fresh), 2);
	VLIBCSzHashFree(fresh);
}

TEST_F(SectionFile, SetAddRemoveKeepNeighbours)
{
	root.write("/var/conf", kPorts);
	VLIBCSzHashSetValue(&hash, "pci9", "with space");
	ASSERT_EQ(VLIBCFileSetSection("/var/conf", "pci", hash), 1);
	EXPECT_EQ(root.read("/var/conf"), "global=ignored\n"
					  "[pci]\n"
					  "pci9=\"with space\"\n"
					  "\n"
					  "[ usb ]\n"
					  "eq=\"a=b # c\"\n"
					  "\n"
					  "[empty]\n");
	EXPECT_EQ(VLIBCFileSetSection("/var/conf", "nope", hash), 0);

	EXPECT_EQ(VLIBCFileAddSection("/var/conf", "usb", hash), 0);
	ASSERT_EQ(VLIBCFileAddSection("/var/conf", "disk1", hash), 1);
	ASSERT_EQ(VLIBCFileGetSection("/var/conf", "disk1", &hash), 1);
	EXPECT_STREQ(VLIBCSzHashGetValue(hash, "pci9"), "with space");

	ASSERT_EQ(VLIBCFileRemoveSection("/var/conf", "usb"), 1);
	EXPECT_EQ(VLIBCFileRemoveSection("/var/conf", "usb"), 0);
	EXPECT_EQ(VLIBCFileEnumSection("/var/conf", &list), 3);
	EXPECT_EQ(vexo::test::items(list), (std::vector<std::string>{"pci", "empty", "disk1"}));

	// Adding to a missing file creates it.
	ASSERT_EQ(VLIBCFileAddSection("/var/new", "a", nullptr), 1);
	EXPECT_EQ(root.read("/var/new"), "[a]\n");
}

TEST_F(SectionFile, RejectsNamesAndValuesThatBreakTheFile)
{
	root.write("/var/conf", kPorts);
	EXPECT_EQ(VLIBCFileAddSection("/var/conf", "a]b", hash), -1);
	EXPECT_ERR(0x0D00);
	VLIBCSzHashSetValue(&hash, "k", "line\nbreak");
	EXPECT_EQ(VLIBCFileSetSection("/var/conf", "pci", hash), -1);
	EXPECT_EQ(root.read("/var/conf"), kPorts);
}

// Lock files, numbered locks and product questions.
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

TEST_F(Locks, TimedLockWaitsThenFailsOrGetsIt)
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
	// A waiter with time to spare gets the lock when the holder lets go.
	pid_t pid = vexo::test::forkChild([] {
		int cfd = -1;
		return VLIBCFileLockTimeByFile("/run/lock/t.lock", 1, 5, &cfd) ? 0 : 1;
	});
	usleep(300 * 1000);
	ASSERT_NE(VLIBCFileUnlockByFile(fd), 0);
	EXPECT_EQ(vexo::test::waitChild(pid), 0);
	EXPECT_EQ(VLIBCFileUnlockByFile(-1), 0);
	EXPECT_ERR(0x0D00); // a bad descriptor is a bad argument
	// Shared holders do not exclude each other.
	int a = -1;
	ASSERT_NE(VLIBCFileLockByFile("/run/lock/t.lock", 0, &a), 0);
	EXPECT_EQ(inChild([] {
		  int c = -1;
		  return VLIBCFileLockTimeByFile("/run/lock/t.lock", 0, 0, &c) ? 0 : 1;
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
	pid_t pid = vexo::test::forkChild([] {
		auto t0 = Clock::now();
		return VLIBCFileLock(0x20006, 5) == 0 && secondsSince(t0) > 0.25 ? 0 : 1;
	});
	usleep(400 * 1000);
	ASSERT_EQ(VLIBCFileUnlock(0x20000), 0);
	EXPECT_EQ(vexo::test::waitChild(pid), 0);

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
