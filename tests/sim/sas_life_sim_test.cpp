// The remaining life of SAS SSDs: Debian's sg_logs under the interposer asks
// the emulated drive for its solid state media page, and the library reads
// the endurance indicator it prints.
#include <vexohw/disk_status.h>
#include <vexohw/remain_life.h>

#include "sim/tools_sim.h"

using namespace vexo::test;

namespace {

const bool kBackend = installDriveEmulator();

using SasLife = ToolsSim;

TEST_F(SasLife, EnduranceIndicatorGivesTheLife)
{
	ASSERT_TRUE(kBackend);
	ports(true); // the virtual edition: every disk is SCSI
	host("sda", "virtio_scsi");
	struct Case {
		const char *drive; // node keys beside the SCSI identity
		int rc, life;
	} cases[] = {
		{R"("rotation_rate":1,"scsi":{"percentage_used":0})", 0, 100},
		{R"("rotation_rate":1,"scsi":{"percentage_used":37})", 0, 63},
		{R"("rotation_rate":1,"scsi":{"percentage_used":100})", 0, 0},
		{R"("rotation_rate":1,"scsi":{"percentage_used":101})", -1, -1},
		{R"("rotation_rate":7200)", -1, -1}, // a spinning disk has no such page
	};
	std::string scsi = kScsiNode;
	for (const Case &c : cases) {
		node("sda", scsi.substr(0, scsi.size() - 1) + "," + c.drive + "}");
		int life = 55;
		EXPECT_EQ(VEXODiskSASRemainingLifeGet("/dev/sda", &life), c.rc) << c.drive;
		EXPECT_EQ(life, c.life) << c.drive;
		// Only LOG SENSE of the page (cumulative values) reached the drive.
		for (const std::string &l : commands("sda"))
			EXPECT_TRUE(matches(l, "SG_IO*cdb=4d0051") || matches(l, "SG_IO*cdb=12")) << l;
		EXPECT_GE(countOf("sda", "cdb=4d005100000000"), 1) << c.drive;
		clearCommands("sda");
	}
	// The current health takes the SAS figure; a disk not SCSI is not asked.
	node("sda", scsi.substr(0, scsi.size() - 1) + R"(,"rotation_rate":1,"scsi":{"percentage_used":9}})");
	DiskHealthAttr a{};
	ASSERT_EQ(VEXODiskCurHealthSmartAttrGet("/dev/sda", &a), 0);
	EXPECT_EQ(a.remainLife, 91);
	EXPECT_EQ(a.unc, -1); // no bad-sector counters on SAS
	EXPECT_EQ(VEXODiskIsSupportBadSector("/dev/sda"), 0);
	clearCommands("sda");
	ports(false);
	int life = 5;
	EXPECT_EQ(VEXODiskSASRemainingLifeGet("/dev/sda", &life) + life, -2);
	EXPECT_TRUE(commands("sda").empty());
}

} // namespace
