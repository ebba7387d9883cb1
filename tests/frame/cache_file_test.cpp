// The per-disk value cache: readers, writers and what lands on disk.
#include <fcntl.h>
#include <filesystem>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <syslog.h>
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
	ASSERT_EQ(VEXODiskGetIntValueCacheFile("/dev//sda", "bad_sec_ct", &i), 0); // a record's "/sda"
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

	// An empty file (a writer between rename and close) is a failed read,
	// for strings as for numbers.
	root.write("/run/vexostorage/disks/sda/timeout_weight", "");
	EXPECT_EQ(VEXODiskGetIntValueCacheFile("/dev/sda", "timeout_weight", &v), -1);
	EXPECT_ERR(0x0A00);
	EXPECT_EQ(v, 7); // untouched on failure
	char e[8] = "keep";
	VLIBCErrClear();
	EXPECT_EQ(VEXODiskGetStrValueCacheFile("/dev/sda", "timeout_weight", e, sizeof(e)), -1);
	EXPECT_ERR(0x0A00);
	EXPECT_STREQ(e, "keep");

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

TEST_F(CacheFile, WriterFailuresKeepUmask)
{
	mode_t before = ::umask(077);
	// A device path instead of a short name is no single path element.
	EXPECT_EQ(VEXODiskUpdateIntValueCacheFile("/dev/sda", "unc_weight", 1), -1);
	EXPECT_ERR(0x0D00);
	EXPECT_EQ(::umask(before), 077u);

	// No directory for the disk: -1 and nothing recorded.
	VLIBCErrClear();
	EXPECT_EQ(VEXODiskUpdateIntValueCacheFile("sdz", "unc_weight", 1), -1);
	EXPECT_EQ(VLIBCErrGet(), 0);

	// rename over a directory fails: -1, and the umask is still restored.
	before = ::umask(022);
	root.mkdirs("/run/vexostorage/disks/sda/firm/inner");
	EXPECT_EQ(VEXODiskUpdateStrValueCacheFile("sda", "firm", "x"), -1);
	EXPECT_EQ(::umask(before), 022u);
	::umask(before);
}

// Names and keys that are not one plain path element never reach the file
// system: not above the disks folder, not outside the root, not cut short.
TEST_F(CacheFile, EscapingOrOverlongNamesAreRefused)
{
	root.write("/etc/secret", "s3cret");
	const std::string longName(100, 'n'), longKey(110, 'k');
	root.diskDir(longName);
	struct {
		const char *name, *key;
	} writes[] = {
		{"../../../etc", "k"}, {"sda", "../../../../etc/k"}, {"..", "k"}, {".", "k"}, {"sda/..", "k"},
		{"-sda", "k"}, {"sda", "a b"}, {"", "k"}, {"sda", ""}, {"sda", longKey.c_str()},
		{"../../../../../../../../../../../../tmp", "vexo_escape_probe"}, {longName.c_str(), "a_key_of_twenty_eight_bytes_"},
	};
	LogCapture log;
	for (const auto &w : writes) {
		VLIBCErrClear();
		EXPECT_EQ(VEXODiskUpdateStrValueCacheFile(w.name, w.key, "v"), -1) << w.name << " " << w.key;
		EXPECT_ERR(0x0D00);
	}
	EXPECT_FALSE(root.exists("/etc/k"));
	EXPECT_FALSE(root.exists("/run/vexostorage/disks/sda/" + longKey.substr(0, 100)));
	EXPECT_FALSE(std::filesystem::exists("/tmp/vexo_escape_probe"));
	struct {
		const char *path, *key;
	} reads[] = {{"/dev/../../../etc", "secret"}, {"/dev/sda", "../../../../etc/secret"}, {"/dev/..", "secret"},
		     {"/dev/sda/../../../../etc", "secret"}, {"/dev/sda", "a/b"}};
	for (const auto &r : reads) {
		char s[16] = "keep";
		VLIBCErrClear();
		EXPECT_EQ(VEXODiskGetStrValueCacheFile(r.path, r.key, s, sizeof(s)), -1) << r.path << " " << r.key;
		EXPECT_ERR(0x0D00);
		EXPECT_STREQ(s, "keep");
	}
	EXPECT_EQ(log.count(LOG_ERR, "Bad parameters"), static_cast<int>(std::size(writes) + std::size(reads)));
}

// A full file system: the write fails and the old value stays readable.
// Runs in a mount namespace of its own on a 16 KiB tmpfs.
TEST_F(CacheFile, FullFileSystemKeepsTheOldValue)
{
	const std::string dir = root.host("/run/vexostorage/disks/sda");
	int st = vexo::test::inChild([&] {
		if (::unshare(CLONE_NEWNS) != 0 || ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
		    ::mount("tmpfs", dir.c_str(), "tmpfs", 0, "size=16k") != 0)
			return 77;
		if (VEXODiskUpdateStrValueCacheFile("sda", "serial", "OLD") != 0)
			return 1;
		// Fill what is left.
		int fd = ::open((dir + "/filler").c_str(), O_WRONLY | O_CREAT, 0644);
		char block[1024] = {};
		while (::write(fd, block, sizeof(block)) > 0) {
		}
		::close(fd);
		VLIBCErrClear();
		for (std::string value : {std::string("NEW"), std::string(8192, 'N')}) {
			if (VEXODiskUpdateStrValueCacheFile("sda", "serial", value.c_str()) != -1)
				return 2;
			if (VLIBCErrGet() != 0x0B00)
				return 3;
			char s[16] = {};
			if (VEXODiskGetStrValueCacheFile("/dev/sda", "serial", s, sizeof(s)) != 0 || std::string(s) != "OLD")
				return 4;
		}
		for (const auto &e : std::filesystem::directory_iterator(dir))
			if (e.path().filename().string().find(".tmp") != std::string::npos)
				return 5;
		return 0;
	});
	if (st == 77)
		GTEST_SKIP() << "no tmpfs mount here";
	EXPECT_EQ(st, 0);
}

// Writers and readers of one key in several processes: a reader sees one
// whole value that some writer wrote; never an empty, torn or foreign one.
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
				// The value is flushed before the rename: never the empty miss.
				if (VEXODiskGetStrValueCacheFile("/dev/sda", "serial", v, sizeof(v)) != 0 || v[0] == '\0')
					::_exit(3);
				int a = -1, n = -1, b = -2, used = 0;
				if (std::sscanf(v, "W%d-%d-W%d%n", &a, &n, &b, &used) != 3 || a != b || a < 0 ||
				    a >= kWriters || v[used] != '\0')
					::_exit(4);
			}
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
