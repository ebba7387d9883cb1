// The refresh's two waits: a first verdict of "unknown" is asked once more
// a second later, and a disk whose lock is held leaves everything as it was.
#include <chrono>
#include <gtest/gtest.h>
#include <syslog.h>
#include <unistd.h>
#include <vexohw/compat_cache.h>
#include <vexoplatform/vexocore.h>

#include "support/vexotest.h"

using namespace vexo::test;

namespace {

double secondsOf(const std::function<void()> &fn)
{
	auto t = std::chrono::steady_clock::now();
	fn();
	return std::chrono::duration<double>(std::chrono::steady_clock::now() - t).count();
}

TEST(CompatCacheSlow, UnknownIsAskedAgainASecondLater)
{
	Sysroot root; // no system version: every verdict is "unknown"
	root.diskDir("sda");
	LogCapture log;
	int rc = -1;
	EXPECT_GE(secondsOf([&] { rc = VEXODiskCompatibilityCacheUpdate("/dev/sda"); }), 1.0);
	EXPECT_EQ(rc, 0);
	EXPECT_EQ(log.count(LOG_ERR, "compatibility status unknown, regen compatibility"), 1);
	EXPECT_EQ(root.read("/run/vexostorage/disks/sda/compatibility"), "unknown");
	EXPECT_EQ(root.read("/run/vexostorage/disks/sda/force_compatibility"), "unknown");
}

TEST(CompatCacheSlow, HeldLockChangesNothing)
{
	Sysroot root;
	root.write("/run/vexostorage/disks/sda/compatibility", "support");
	root.write("/run/vexostorage/disks/sda/compatibility_action", R"({"notification":true})");
	int held = -1;
	ASSERT_TRUE(VLIBCFileLockTimeByFile("/run/vexostorage/disks/sda/compatibility.lock", 1, 0, &held));
	LogCapture log;
	int rc = 0;
	EXPECT_GE(secondsOf([&] { rc = VEXODiskCompatibilityCacheUpdateAndChecker("/dev/sda"); }), 10.0);
	EXPECT_EQ(rc, -1);
	EXPECT_TRUE(log.has(LOG_ERR, "Failed to get lock /run/vexostorage/disks/sda/compatibility.lock"));
	EXPECT_EQ(root.read("/run/vexostorage/disks/sda/compatibility"), "support");
	EXPECT_EQ(root.read("/run/vexostorage/disks/sda/compatibility_action"), R"({"notification":true})");
	EXPECT_FALSE(root.exists("/var/spool/vexonotify"));
	VLIBCFileUnlockByFile(held);
}

} // namespace
