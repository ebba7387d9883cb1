// Debug overrides of a SMART attribute list: the override section is named
// by the drive's true serial, which the emulated drive answers.
#include "smartctl/drive_sim.h"
#include "smartctl/smart_util.h"
#include "support/disk_layout.h"

using namespace vexo::test;

namespace {

const bool kBackend = installDriveEmulator();

class SmartInfoOverride : public DriveSim {
protected:
	void SetUp() override
	{
		DriveSim::SetUp();
		ASSERT_TRUE(kBackend);
		DiskLayout(root).sata("sda", 1);
		node("sda", kAtaNode);
		root.diskDir("sda");
		root.write("/usr/bin/smartctl",
			   "#!/bin/sh\ncat <<'EOF'\n"
			   "ID# ATTRIBUTE_NAME          FLAG     VALUE WORST THRESH TYPE      UPDATED  WHEN_FAILED RAW_VALUE\n"
			   "  1 Raw_Read_Error_Rate     0x000b   100   100   016    Pre-fail  Always       -       0\n"
			   "  5 Reallocated_Sector_Ct   0x0033   100   100   005    Pre-fail  Always       -       0\n"
			   "194 Temperature_Celsius     0x0002   181   181   000    Old_age   Always       -       33 (Min/Max 17/49)\n"
			   "\nEOF\n",
			   0755);
		// Attribute 5 fails now with 8 bad sectors; 194 shows 45 as value.
		root.write("/tmp/.disk_status_debug",
			   "[ZL2K4T7C]\nsmart_info=\"#5, SKIP, SKIP, 120, 8;#194, 45, SKIP, SKIP, SKIP\"\n");
	}
	void product(bool debug, const char *debugType)
	{
		std::vector<std::pair<std::string, std::string>> kv = {{"internalportcfg", "0xff"}};
		if (debug)
			kv.emplace_back("support_disk_status_debug", "yes");
		if (debugType)
			kv.emplace_back("smart_attr_debug_type", debugType);
		root.conf("/etc.defaults/vexoinfo.conf", kv);
	}
	std::vector<std::string> read()
	{
		ListGuard g;
		EXPECT_EQ(AtaSmartInfoGet("/dev/sda", "ata", &g.l), 0);
		std::vector<std::string> out;
		for (auto *e = g.l; e; e = e->next)
			out.push_back(std::string(e->id) + " " + e->name + " " + e->value + " " + e->worst + " " +
				      e->threshold + " " + e->raw + " " + std::to_string(e->status));
		return out;
	}
};

TEST_F(SmartInfoOverride, ReplacesFieldsButSkip)
{
	product(true, nullptr);
	EXPECT_EQ(read(), (std::vector<std::string>{"1 Raw_Read_Error_Rate 100 100 016 0 0",
						   "5 Reallocated_Sector_Ct 100 100 120 8 2",
						   "194 Temperature_Celsius 45 181 000 33 0"}));
}

TEST_F(SmartInfoOverride, RemovesRowsNotListed)
{
	product(true, "REMOVE_NOT_IN_LIST");
	EXPECT_EQ(read(), (std::vector<std::string>{"5 Reallocated_Sector_Ct 100 100 120 8 2",
						   "194 Temperature_Celsius 45 181 000 33 0"}));
	// Another word keeps every row.
	product(true, "remove_not_in_list");
	EXPECT_EQ(read().size(), 3u);
}

TEST_F(SmartInfoOverride, NothingWithoutTheGateOrASection)
{
	product(false, "REMOVE_NOT_IN_LIST");
	EXPECT_EQ(read(), (std::vector<std::string>{"1 Raw_Read_Error_Rate 100 100 016 0 0",
						   "5 Reallocated_Sector_Ct 100 100 005 0 0",
						   "194 Temperature_Celsius 181 181 000 33 0"}));
	// A section for another drive changes nothing, and drops nothing.
	product(true, "REMOVE_NOT_IN_LIST");
	root.write("/tmp/.disk_status_debug", "[OTHER]\nsmart_info=\"#5, 1, 1, 1, 1\"\n");
	EXPECT_EQ(read().size(), 3u);
}

} // namespace
