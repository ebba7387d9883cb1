// Standby of one disk with its cache flushed first, against the drive
// emulator: the flush reaches the drive before the power question and the
// standby, and the ten seconds' settle runs on the clock seam (a fixed test
// clock moves on, no real time passes).
#include <chrono>
#include <vexohw/disk_power.h>
#include <vexoplatform/vexoerr.h>

#include "frame/clock.h"
#include "smartctl/sim_disk.h"

using namespace vexo::test;

namespace {

const bool kBackend = installDriveEmulator();

class StandbyFlush : public SimDisk {
protected:
	void SetUp() override
	{
		SimDisk::SetUp();
		ASSERT_TRUE(kBackend);
		vexo::clock::setForTest(1700000000, 5000);
	}
	void TearDown() override
	{
		vexo::clock::clearForTest();
		SimDisk::TearDown();
	}
	bool asleep() const { return root.read("/dev/sda").find("standby") != std::string::npos; }
};

TEST_F(StandbyFlush, FlushReachesTheDriveBeforeStandby)
{
	const std::string ataFlush = "HDIO_DRIVE_CMD args=null -> ";
	const std::string ataAsk = "HDIO_DRIVE_CMD args=e5000000 -> ok";
	const std::string ataSleep = "HDIO_DRIVE_CMD args=e0000000 -> ok";
	struct Case {
		const char *what;
		std::string node;
		bool scsi;
		int flushFirst;
		std::vector<std::string> sent;
		std::int64_t settleMs;
	};
	const std::string ata = kAtaNode, scsi = kScsiNode;
	const std::string ataFailingFlush = "{\"faults\":{\"flush\":{\"errno\":\"EIO\"}}," + ata.substr(1);
	const Case cases[] = {
		{"ATA: the flush (the wait form) first", ata, false, 1, {ataFlush + "errno 22*", ataAsk, ataSleep}, 10000},
		// The flush's result does not hold the standby back.
		{"ATA: a failing flush", ataFailingFlush, false, 1, {ataFlush + "errno 5*", ataAsk, ataSleep}, 10000},
		{"ATA: no flush asked", ata, false, 0, {ataAsk, ataSleep}, 0},
		// SYNCHRONIZE CACHE, TEST UNIT READY, START STOP UNIT (stop).
		{"SCSI: SYNCHRONIZE CACHE first", scsi, true, 1,
		 {"SG_IO*cdb=35*", "SG_IO*cdb=00000000000000000000*", "SG_IO*cdb=1b010000000000000000*"}, 10000},
	};
	for (const auto &c : cases) {
		SCOPED_TRACE(c.what);
		if (c.scsi)
			ports(true);
		node("sda", c.node);
		clearCommands("sda");
		const std::int64_t before = vexo::clock::monotonicMs();
		const auto real = std::chrono::steady_clock::now();
		EXPECT_EQ(VEXODiskSetDiskStandby("/dev/sda", c.flushFirst), 0);
		EXPECT_LT(std::chrono::steady_clock::now() - real, std::chrono::seconds(5));
		EXPECT_EQ(vexo::clock::monotonicMs() - before, c.settleMs);
		expectSent("sda", c.sent);
		EXPECT_TRUE(asleep());
	}
}

TEST_F(StandbyFlush, NullPathSendsNothingAndWaitsNot)
{
	const std::int64_t before = vexo::clock::monotonicMs();
	EXPECT_EQ(VEXODiskSetDiskStandby(nullptr, 1), -1);
	EXPECT_EQ(VLIBCErrGet(), VEXO_ERR_BAD_PARAM);
	EXPECT_EQ(vexo::clock::monotonicMs(), before);
	EXPECT_TRUE(commands("sda").empty());
}

} // namespace
