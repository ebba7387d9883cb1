// Size and logical block size through the block control operations, on real
// loop devices whose node stands in the test sysroot.
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <syslog.h>
#include <unistd.h>
#include <vector>

#include <vexohw/disk_probe.h>

#include "support/vexotest.h"

using vexo::test::LogCapture;
using vexo::test::Sysroot;

namespace {

using vexo::test::runProgram;

class LoopSize : public ::testing::Test {
protected:
	void TearDown() override
	{
		for (const auto &loop : loops_)
			runProgram({"losetup", "-d", loop});
	}

	// Attaches a sparse file of `bytes` to a free loop device and makes the
	// sysroot's /dev/<name> a block node with the loop's device number.
	// Empty when loop devices cannot be had here (the reason in *why).
	bool attach(const std::string &name, unsigned long long bytes, int sectorSize, std::string *why)
	{
		const std::string image = root.host("/images/" + name + ".img");
		root.mkdirs("/images");
		int fd = ::open(image.c_str(), O_CREAT | O_RDWR, 0600);
		if (fd < 0 || ::ftruncate(fd, static_cast<off_t>(bytes)) != 0) {
			*why = std::string("cannot make a sparse image: ") + std::strerror(errno);
			if (fd >= 0)
				::close(fd);
			return false;
		}
		::close(fd);
		std::vector<std::string> argv{"losetup", "--find", "--show"};
		if (sectorSize)
			argv.insert(argv.end(), {"--sector-size", std::to_string(sectorSize)});
		argv.push_back(image);
		std::string out;
		if (runProgram(argv, &out) != 0 || out.rfind("/dev/loop", 0) != 0) {
			*why = "losetup --find --show failed (no loop devices or no privilege)";
			return false;
		}
		std::string loop = out.substr(0, out.find('\n'));
		loops_.push_back(loop);
		struct stat st;
		if (::stat(loop.c_str(), &st) != 0 || !S_ISBLK(st.st_mode)) {
			*why = "the loop device node " + loop + " is not visible";
			return false;
		}
		root.mkdirs("/dev");
		if (::mknod(root.host("/dev/" + name).c_str(), S_IFBLK | 0600, st.st_rdev) != 0) {
			*why = std::string("mknod failed: ") + std::strerror(errno);
			return false;
		}
		return true;
	}

	Sysroot root;

private:
	std::vector<std::string> loops_;
};

#define ATTACH_OR_SKIP(name, bytes, sector)                    \
	do {                                                   \
		std::string why;                               \
		if (!attach((name), (bytes), (sector), &why))  \
			GTEST_SKIP() << why;                   \
	} while (0)

TEST_F(LoopSize, SizesAndBlockSizes)
{
	ATTACH_OR_SKIP("sda", 1ULL << 20, 0);
	ATTACH_OR_SKIP("sdb", (5ULL << 30) + 4096, 0);
	ATTACH_OR_SKIP("sdc", 64ULL << 20, 4096);

	// Short and /dev names alike; sdb is beyond 32 bits of bytes.
	const struct {
		const char *path;
		unsigned long long bytes;
		int block;
	} cases[] = {{"/dev/sda", 1ULL << 20, 512}, {"sdb", (5ULL << 30) + 4096, 512}, {"/dev/sdc", 64ULL << 20, 4096}};
	for (const auto &c : cases) {
		unsigned long long bytes = 0;
		int block = 0;
		ASSERT_EQ(DiskSizeGet(c.path, &bytes), 0) << c.path;
		EXPECT_EQ(bytes, c.bytes) << c.path;
		ASSERT_EQ(DiskLogicalBlockSizeGet(c.path, &block), 0) << c.path;
		EXPECT_EQ(block, c.block) << c.path;
	}
}

TEST_F(LoopSize, Failures)
{
	LogCapture log;
	unsigned long long bytes = 7;
	int block = 7;
	EXPECT_EQ(DiskSizeGet("/dev/sdz", &bytes), -1);
	EXPECT_ERR(0x6C00);
	EXPECT_TRUE(log.has(LOG_ERR, "Failed to open /dev/sdz, errno=No such file or directory")) << log.dump();
	EXPECT_EQ(DiskLogicalBlockSizeGet("/dev/sdz", &block), -1);
	EXPECT_EQ(log.count(LOG_ERR, "Failed to open /dev/sdz"), 2);

	// A node that is no block device refuses the control operation.
	root.write("/dev/sdy", "");
	EXPECT_EQ(DiskSizeGet("/dev/sdy", &bytes), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "Failed to ioctl /dev/sdy, errno=Inappropriate ioctl for device")) << log.dump();
	EXPECT_EQ(DiskLogicalBlockSizeGet("/dev/sdy", &block), -1);
	EXPECT_ERR(0x6C00);
	EXPECT_EQ(bytes, 7u);
	EXPECT_EQ(block, 7);

	EXPECT_EQ(DiskSizeGet(nullptr, &bytes), -1);
	EXPECT_EQ(DiskSizeGet("/dev/sda", nullptr), -1);
	EXPECT_EQ(DiskLogicalBlockSizeGet("/dev/sda", nullptr), -1);
	EXPECT_EQ(log.count(LOG_ERR, "bad paramters"), 3);
	EXPECT_ERR(0x0D00);
}

} // namespace
