// The per-disk value cache: readers, writers and what lands on disk.
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/vexotest.h"

using vexo::test::LogCapture;
using vexo::test::Sysroot;

namespace {

class CacheFile : public ::testing::Test {
protected:
	void SetUp() override
	{
		VLIBCErrClear();
		root.diskDir("sda");
	}
	Sysroot root;
};

TEST_F(CacheFile, WriteThenReadEachType)
{
	ASSERT_EQ(VEXODiskUpdateIntValueCacheFile("sda", "bad_sec_ct", -42), 0);
	ASSERT_EQ(VEXODiskUpdateLLIntValueCacheFile("sda", ".smart_info_list.timestamp", 1LL << 40), 0);
	ASSERT_EQ(VEXODiskUpdateStrValueCacheFile("sda", "serial", "ZL2K 4T7C\n"), 0);
	// The whole content is the value: no key, no newline added.
	EXPECT_EQ(root.read("/run/vexostorage/disks/sda/bad_sec_ct"), "-42");
	EXPECT_EQ(root.read("/run/vexostorage/disks/sda/serial"), "ZL2K 4T7C\n");
	EXPECT_FALSE(root.exists("/run/vexostorage/disks/sda/serial.tmp"));
	EXPECT_EQ(root.mode("/run/vexostorage/disks/sda/serial"), 0644u);

	int i = 0;
	long long ll = 0;
	char s[64];
	ASSERT_EQ(VEXODiskGetIntValueCacheFile("/dev/sda", "bad_sec_ct", &i), 0);
	ASSERT_EQ(VEXODiskGetLLIntValueCacheFile("/dev/sda", ".smart_info_list.timestamp", &ll), 0);
	ASSERT_EQ(VEXODiskGetStrValueCacheFile("/dev/sda", "serial", s, sizeof(s)), 0);
	EXPECT_EQ(i, -42);
	EXPECT_EQ(ll, 1LL << 40);
	EXPECT_STREQ(s, "ZL2K 4T7C\n"); // trailing newlines stay
}

TEST_F(CacheFile, ReaderMissesAndFailures)
{
	int v = 7;
	// A short name instead of a device path finds nothing.
	root.write("/run/vexostorage/disks/sda/unc_weight", "3");
	EXPECT_EQ(VEXODiskGetIntValueCacheFile("sda", "unc_weight", &v), -1);
	EXPECT_ERR(0x0700);
	// The place is the reader's own, not the helper's.
	EXPECT_STREQ(VLIBCErrFileGet(), "disk/disk_get_cache_file");

	// An empty file (a writer between rename and close) is a parse failure.
	root.write("/run/vexostorage/disks/sda/timeout_weight", "");
	EXPECT_EQ(VEXODiskGetIntValueCacheFile("/dev/sda", "timeout_weight", &v), -1);
	EXPECT_ERR(0x0A00);
	EXPECT_EQ(v, 7); // untouched on failure

	// Present but unreadable (a directory where a file should be).
	root.mkdirs("/run/vexostorage/disks/sda/remain_life");
	char s[8];
	EXPECT_EQ(VEXODiskGetStrValueCacheFile("/dev/sda", "remain_life", s, sizeof(s)), -1);
	EXPECT_ERR(0x0A00);

	EXPECT_EQ(VEXODiskGetStrValueCacheFile("/dev/sda", "serial", s, 0), -1);
	EXPECT_ERR(0x0D00);
}

TEST_F(CacheFile, StringReaderCuts)
{
	std::string longValue(300, 'x');
	longValue[10] = 'y';
	root.write("/run/vexostorage/disks/sda/model", longValue);
	char big[512];
	ASSERT_EQ(VEXODiskGetStrValueCacheFile("/dev/sda", "model", big, sizeof(big)), 0);
	EXPECT_EQ(std::string(big), longValue.substr(0, 255));
	// Cut at the first NUL byte too.
	root.write("/run/vexostorage/disks/sda/vendor", std::string("ab\0cd", 5));
	ASSERT_EQ(VEXODiskGetStrValueCacheFile("/dev/sda", "vendor", big, sizeof(big)), 0);
	EXPECT_STREQ(big, "ab");
}

TEST_F(CacheFile, WriterFailuresKeepUmaskAndRecordNothing)
{
	mode_t before = ::umask(077);
	// A device path instead of a short name: no such directory under disks/.
	EXPECT_EQ(VEXODiskUpdateIntValueCacheFile("/dev/sda", "unc_weight", 1), -1);
	EXPECT_EQ(VLIBCErrGet(), 0);
	EXPECT_EQ(::umask(before), 077u);

	// A name long enough to cut the 128-byte path: the key is cut away and
	// nothing lands outside the disks directory.
	std::string name(120, 'n');
	VEXODiskUpdateIntValueCacheFile(name.c_str(), "k", 1);
	EXPECT_FALSE(root.exists("/run/vexostorage/disks/" + name));
	EXPECT_FALSE(root.exists("/run/vexostorage/" + name.substr(0, 10)));

	// rename over a directory fails: -1, and the umask is still restored.
	before = ::umask(022);
	root.mkdirs("/run/vexostorage/disks/sda/firm/inner");
	EXPECT_EQ(VEXODiskUpdateStrValueCacheFile("sda", "firm", "x"), -1);
	EXPECT_EQ(::umask(before), 022u);
	::umask(before);
}

// Writers and readers of one key in several processes: a reader sees one
// whole value that some writer wrote, or the empty-file miss; never a torn
// or foreign value.
TEST_F(CacheFile, ConcurrentWritersAndReaders)
{
	constexpr int kWriters = 4, kReaders = 4, kRounds = 400;
	ASSERT_EQ(VEXODiskUpdateStrValueCacheFile("sda", "serial", "W0-00000-W0"), 0);
	std::vector<pid_t> kids;
	for (int w = 0; w < kWriters; ++w) {
		pid_t pid = ::fork();
		if (pid == 0) {
			for (int i = 0; i < kRounds; ++i) {
				// Lengths vary, so a value written over another shows.
				char v[64];
				std::snprintf(v, sizeof(v), "W%d-%0*d-W%d", w, 1 + (i * 7 + w) % 9, i, w);
				if (VEXODiskUpdateStrValueCacheFile("sda", "serial", v) != 0)
					::_exit(2);
			}
			::_exit(0);
		}
		kids.push_back(pid);
	}
	for (int r = 0; r < kReaders; ++r) {
		pid_t pid = ::fork();
		if (pid == 0) {
			for (int i = 0; i < kRounds * 2; ++i) {
				char v[256];
				int rc = VEXODiskGetStrValueCacheFile("/dev/sda", "serial", v, sizeof(v));
				if (rc != 0)
					::_exit(3); // the file always exists: rename replaces it
				if (v[0] == '\0')
					continue; // the documented miss
				int a = -1, n = -1, b = -2, used = 0;
				if (std::sscanf(v, "W%d-%d-W%d%n", &a, &n, &b, &used) != 3 || a != b || a < 0 ||
				    a >= kWriters || v[used] != '\0')
					::_exit(4);
			}
			// Every read may legitimately be the empty miss on a loaded machine.
			::_exit(0);
		}
		kids.push_back(pid);
	}
	for (pid_t pid : kids) {
		int st = 0;
		::waitpid(pid, &st, 0);
		EXPECT_TRUE(WIFEXITED(st) && WEXITSTATUS(st) == 0) << "child status " << st;
	}
	// Afterwards the value is one whole value of some writer's last round.
	std::string last = root.read("/run/vexostorage/disks/sda/serial");
	int a = -1, n = -1, b = -2, used = 0;
	ASSERT_EQ(std::sscanf(last.c_str(), "W%d-%d-W%d%n", &a, &n, &b, &used), 3) << last;
	EXPECT_EQ(a, b);
	EXPECT_EQ(n, kRounds - 1);
	EXPECT_EQ(static_cast<size_t>(used), last.size());
	int leftovers = 0;
	for (const auto &e : std::filesystem::directory_iterator(root.host("/run/vexostorage/disks/sda")))
		leftovers += e.path().filename().string().find(".tmp") != std::string::npos;
	EXPECT_EQ(leftovers, 0);
}

} // namespace
