// Standby with the cache flushed first: the flush reaches the drive before
// the power question and the standby, and the ten seconds' settle runs on
// the clock seam (a fixed test clock moves on; no real time passes).
#include <chrono>
#include <vexohw/disk_power.h>

#include "frame/clock.h"
#include "smartctl/sim_disk.h"

using namespace vexo::test;

namespace {

const bool kBackend = installDriveEmulator();

class StandbyFlush : public SimDisk {};

TEST_F(StandbyFlush, FlushReachesTheDriveBeforeStandby)
{
	ASSERT_TRUE(kBackend);
	const std::string ata = kAtaNode, flush = "HDIO_DRIVE_CMD args=null -> errno ";
	const std::string ask = "HDIO_DRIVE_CMD args=e5000000 -> ok", sleep = "HDIO_DRIVE_CMD args=e0000000 -> ok";
	struct Case {
		std::string node;
		int flushFirst;
		std::vector<std::string> sent;
		std::int64_t settleMs;
	} const cases[] = {
		{ata, 1, {flush + "22*", ask, sleep}, 10000}, // the wait form, refused as libata does
		{"{\"faults\":{\"flush\":{\"errno\":\"EIO\"}}," + ata.substr(1), 1, {flush + "5*", ask, sleep}, 10000},
		{ata, 0, {ask, sleep}, 0},
		// SYNCHRONIZE CACHE, TEST UNIT READY, START STOP UNIT (stop)
		{kScsiNode, 1, {"SG_IO*cdb=35*", "SG_IO*cdb=00000000000000000000*", "SG_IO*cdb=1b010000000000000000*"}, 10000},
	};
	vexo::clock::setForTest(1700000000, 5000);
	for (const auto &c : cases) {
		SCOPED_TRACE(c.node);
		ports(c.node == kScsiNode);
		node("sda", c.node);
		clearCommands("sda");
		const std::int64_t before = vexo::clock::monotonicMs();
		const auto real = std::chrono::steady_clock::now();
		EXPECT_EQ(VEXODiskSetDiskStandby("/dev/sda", c.flushFirst), 0);
		EXPECT_LT(std::chrono::steady_clock::now() - real, std::chrono::seconds(5));
		EXPECT_EQ(vexo::clock::monotonicMs() - before, c.settleMs);
		expectSent("sda", c.sent);
		EXPECT_NE(root.read("/dev/sda").find("standby"), std::string::npos);
	}
	EXPECT_EQ(VEXODiskSetDiskStandby(nullptr, 1), -1);
	vexo::clock::clearForTest();
}

} // namespace
