// The updater's holder text, VEXODiskLocateHostGetInUpdater: it must not
// ask the unit driver, so a unit disk reads "Enclosure-<unit>" even where
// the unit would answer.
#include <string>

#include <vexohw/disk.h>
#include <vexohw/disk_port.h>

#include "external/port_map.h"
#include "support/disk_layout.h"

using vexo::test::DiskLayout;
using vexo::test::Sysroot;

namespace {

// sda internal; sdc the external port with unit 3 (XU05) whose disks are sdca, sdcb.
class UpdaterHolder : public ::testing::Test {
protected:
	void SetUp() override
	{
		VLIBCErrClear();
		disks.sata("sda", 1);
		disks.sata("sdca", 5);
		disks.sata("sdcb", 6);
		disks.unit(4, "sdc", {"/dev/sdca", "/dev/sdcb"});
		disks.platform(R"({"model": "VQ300", "ebox": true})");
		maps({{"upnpmodelname", "VQ300"}});
	}
	void TearDown() override { vexo::external::resetPortMaps(); }
	void maps(const std::vector<std::pair<std::string, std::string>> &extra)
	{
		disks.portMaps("10", "4", "3", "", extra);
		vexo::external::resetPortMaps();
	}
	std::string inUpdater(const char *path)
	{
		char text[64] = "untouched";
		return VEXODiskLocateHostGetInUpdater(path, text, sizeof(text)) == 0 ? text : "fail:" + std::string(text);
	}

	Sysroot root;
	DiskLayout disks{root};
};

TEST_F(UpdaterHolder, UnitDisksNeverAskTheUnit)
{
	// Outside the updater the unit names itself.
	char text[64] = "";
	ASSERT_EQ(VEXODiskLocateHostGet("/dev/sdcb", text, sizeof(text), 0), 0);
	ASSERT_STREQ(text, "XU05");
	// Inside it only the parsed unit number is known, partitions or not.
	EXPECT_EQ(inUpdater("/dev/sdcb"), "Enclosure-3");
	EXPECT_EQ(inUpdater("sdca2"), "Enclosure-3");
	// The flag of VEXODiskLocateHostGet gives the same answer.
	ASSERT_EQ(VEXODiskLocateHostGet("/dev/sdca", text, sizeof(text), 7), 0);
	EXPECT_STREQ(text, "Enclosure-3");
}

TEST_F(UpdaterHolder, OtherDisksReadTheProductName)
{
	EXPECT_EQ(inUpdater("/dev/sda"), "VQ300");
	EXPECT_EQ(inUpdater("sda5"), "VQ300");
	// Without the product name there is nothing to say.
	maps({});
	EXPECT_EQ(inUpdater("/dev/sda"), "fail:untouched");
	EXPECT_ERR(0x2A00);
	// A unit disk needs no product name.
	EXPECT_EQ(inUpdater("/dev/sdcb"), "Enclosure-3");
}

TEST_F(UpdaterHolder, Refusals)
{
	char text[64] = "untouched";
	EXPECT_EQ(VEXODiskLocateHostGetInUpdater(nullptr, text, sizeof(text)), -1);
	EXPECT_ERR(0x0D00);
	EXPECT_STREQ(text, "untouched");
	EXPECT_EQ(VEXODiskLocateHostGetInUpdater("/dev/sda", nullptr, 64), -1);
	EXPECT_ERR(0x0D00);
	EXPECT_EQ(VEXODiskLocateHostGetInUpdater("/dev/sda", text, 0), -1);
	EXPECT_ERR(0x0D00);
	EXPECT_STREQ(text, "untouched");
	EXPECT_EQ(inUpdater("hda"), "fail:untouched"); // no port type
	EXPECT_EQ(inUpdater(""), "fail:untouched");
	// "Enclosure-3" needs 12 bytes: one less fails and hands out nothing cut.
	char small[11] = "xxxxxxxxxx";
	EXPECT_EQ(VEXODiskLocateHostGetInUpdater("/dev/sdcb", small, sizeof(small)), -1);
	EXPECT_ERR(0x0D00);
	EXPECT_STREQ(small, "");
	char exact[12];
	ASSERT_EQ(VEXODiskLocateHostGetInUpdater("/dev/sdcb", exact, sizeof(exact)), 0);
	EXPECT_STREQ(exact, "Enclosure-3");
}

} // namespace
