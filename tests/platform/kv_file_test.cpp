// Key-value files and the system settings: parsing, exact buffer sizes,
// what lands on disk, and writers in several processes.
#include <sys/wait.h>
#include <unistd.h>

#include "support/vexotest.h"

using vexo::test::inChild;
using vexo::test::Sysroot;

namespace {

class KvFile : public ::testing::Test {
protected:
	void SetUp() override
	{
		VLIBCErrClear();
		root.mkdirs("/etc");
		root.mkdirs("/tmp");
	}
	static void waitAll(const std::vector<pid_t> &kids)
	{
		for (pid_t k : kids) {
			int st = 0;
			waitpid(k, &st, 0);
			EXPECT_TRUE(WIFEXITED(st) && WEXITSTATUS(st) == 0) << st;
		}
	}
	Sysroot root;
	char buf[256];
};

TEST_F(KvFile, ReadsQuotedBareAndOddValues)
{
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
				  "last=no newline");
	struct Case {
		const char *key;
		const char *value;
	} cases[] = {{"quoted", "a b c"}, {"bare", "plain value"}, {"eq", "x=y=z"}, {"hash", "#not a comment"},
		     {"crlf", "win"}, {"inner", "say \"hi\""}, {"dup", "first"}, {"last", "no newline"}};
	for (const auto &c : cases) {
		SCOPED_TRACE(c.key);
		EXPECT_EQ(VLIBCFileGetKeyValue("/etc/t.conf", c.key, buf, sizeof(buf), 0), (int)strlen(c.value));
		EXPECT_STREQ(buf, c.value);
	}
	EXPECT_EQ(VLIBCFileGetKeyValue("/etc/t.conf", "empty", buf, sizeof(buf), 0), 0);
	EXPECT_STREQ(buf, "");
	EXPECT_EQ(VLIBCFileGetKeyValue("/etc/t.conf", "# comment", buf, sizeof(buf), 0), 0);
	EXPECT_EQ(VLIBCFileGetKeyValue("/etc/t.conf", "missing", buf, sizeof(buf), 0), 0);
	EXPECT_ERR(0x2A00);

	PVLIBSZHASH all = nullptr;
	ASSERT_EQ(VLIBCFileGetKeyValueAll("/etc/t.conf", &all), 9);
	EXPECT_STREQ(all->ppszKey[0], "quoted");
	EXPECT_STREQ(VLIBCSzHashGetValue(all, "dup"), "first");
	EXPECT_STREQ(VLIBCSzHashGetValue(all, "empty"), "");
	VLIBCSzHashFree(all);
}

TEST_F(KvFile, ExactBufferSizes)
{
	root.conf("/etc/t.conf", {{"seven", "1234567"}, {"eight", "12345678"}});
	char small[8];
	memset(small, 'X', sizeof(small));
	// size-1 bytes fit whole; size bytes are cut to size-1 and stay terminated.
	EXPECT_EQ(VLIBCFileGetKeyValue("/etc/t.conf", "seven", small, sizeof(small), 0), 7);
	EXPECT_STREQ(small, "1234567");
	EXPECT_EQ(VLIBCFileGetKeyValue("/etc/t.conf", "eight", small, sizeof(small), 0), 7);
	EXPECT_STREQ(small, "1234567");
	// A NUL byte ends its line for every reader alike.
	root.write("/etc/nul.conf", std::string("a=1\0tail\nb\0=2\n", 14));
	EXPECT_EQ(VLIBCFileGetKeyValue("/etc/nul.conf", "a", small, sizeof(small), 0), 1);
	EXPECT_EQ(VLIBCFileGetKeyValue("/etc/nul.conf", "b", small, sizeof(small), 0), 0);
	char one[1] = {'X'};
	EXPECT_EQ(VLIBCFileGetKeyValue("/etc/t.conf", "eight", one, 1, 0), 0);
	EXPECT_EQ(one[0], '\0');
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
	// Nothing but the file itself is left in the directory.
	PVLIBSZLIST names = VLIBCSzListAlloc(4);
	EXPECT_EQ(VLIBCFileEnumDir("/etc", &names), 1);
	VLIBCSzListFree(names);
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
	pid_t reader = fork();
	if (reader == 0) {
		char v[64];
		for (;;) {
			int r = VLIBCFileGetKeyValue("/etc/shared.conf", "w0", v, sizeof(v), 0);
			if (r < 0)
				_exit(1); // the file was missing or unreadable for a moment
		}
	}
	std::vector<pid_t> kids;
	for (int w = 0; w < kWriters; ++w) {
		pid_t pid = fork();
		if (pid == 0) {
			for (int i = 0; i < kRounds; ++i) {
				int fd = -1;
				if (!VLIBCFileLockTimeByFile("/run/lock/shared.lock", 1, 10, &fd))
					_exit(2);
				char key[16], value[16];
				snprintf(key, sizeof(key), "w%d", w);
				snprintf(value, sizeof(value), "%d", i);
				if (VLIBCFileSetKeyValue("/etc/shared.conf", key, value, nullptr) != 1)
					_exit(3);
				snprintf(key, sizeof(key), "w%d_%d", w, i);
				if (VLIBCFileSetKeyValue("/etc/shared.conf", key, "x", nullptr) != 1)
					_exit(3);
				VLIBCFileUnlockByFile(fd);
			}
			_exit(0);
		}
		kids.push_back(pid);
	}
	waitAll(kids);
	int st = 0;
	EXPECT_EQ(waitpid(reader, &st, WNOHANG), 0) << "reader saw a broken file";
	kill(reader, SIGKILL);
	waitpid(reader, &st, 0);

	PVLIBSZHASH all = nullptr;
	ASSERT_EQ(VLIBCFileGetKeyValueAll("/etc/shared.conf", &all), kWriters * (kRounds + 1));
	EXPECT_STREQ(VLIBCSzHashGetValue(all, "w3"), "39");
	VLIBCSzHashFree(all);
	PVLIBSZLIST names = VLIBCSzListAlloc(4);
	EXPECT_EQ(VLIBCFileEnumDir("/etc", &names), 1) << "temporary files left behind";
	VLIBCSzListFree(names);
}

} // namespace
