// A writer of the SMART list cache gives up after ten seconds on a held lock.
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>
#include <vexohw/smart_info.h>

#include "support/vexotest.h"

using namespace vexo::test;

namespace {

TEST(SmartInfoCacheLock, GivesUpAfterTenSeconds)
{
	Sysroot root;
	root.diskDir("sda");
	root.write("/run/vexostorage/disks/sda/smart_info_list.cache", "old");
	int fd = ::open(root.host("/run/vexostorage/disks/sda/.smart_info_list.lock").c_str(), O_RDWR | O_CREAT, 0644);
	ASSERT_GE(fd, 0);
	ASSERT_EQ(::flock(fd, LOCK_EX), 0);
	SmartInfoEntry e{};
	e.id = const_cast<char *>("1");
	e.name = const_cast<char *>("A");
	e.value = e.worst = e.threshold = e.raw = const_cast<char *>("1");
	struct timespec a {}, b {};
	clock_gettime(CLOCK_MONOTONIC, &a);
	EXPECT_EQ(SmartInfoCacheUpdate("sda", &e), -1);
	clock_gettime(CLOCK_MONOTONIC, &b);
	EXPECT_ERR(0x0400);
	EXPECT_GE(b.tv_sec - a.tv_sec, 9);
	EXPECT_LE(b.tv_sec - a.tv_sec, 12);
	EXPECT_EQ(root.read("/run/vexostorage/disks/sda/smart_info_list.cache"), "old");
	::close(fd);
}

} // namespace
