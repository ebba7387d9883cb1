// Port types from the port maps, the M.2 answer, NVMe locations and the mask cache.
#include <vexoplatform/nvme_location.h>

#include "external/port_fixture.h"

using vexo::test::LogCapture;

namespace {

class PortCheck : public vexo::test::PortFixture {
protected:
	void SetUp() override
	{
		PortFixture::SetUp();
		disks.platform(R"({"model": "VQ300", "ebox": true,
		  "nvme_slots": [{"pci": "0000:00:01.2", "slot": 0, "location": 1, "type": "cache"},
		                 {"pci": "0000:00:01.3", "slot": 0, "location": 2, "type": "blocked"},
		                 {"pci": "0000:00:01.4", "slot": 0, "location": 3, "type": "internal"},
		                 {"pci": "0000:00:01.5", "slot": 0, "location": 4, "type": "u2"},
		                 {"pci": "0000:00:01.6", "slot": 0, "location": 5, "type": "system"}],
		  "adapter_slots": [{"pci": "0000:00:1c.0", "slot": 1, "card": "M2C-D2"},
		                    {"pci": "0000:00:1d.0", "slot": 2, "card": "M2C-S1"},
		                    {"pci": "0000:00:1e.0", "slot": 3, "card": "M2C-ZZ"}],
		  "adapter_cards": {"M2C-D2": {"sup_sata": true, "sup_nvme": true}, "M2C-S1": {"sup_sata": true}}})");
	}
};

TEST_F(PortCheck, PortMapOrder)
{
	// Two letters behind an external port: expansion unit without asking the units.
	maps("100", "1", "0", "");
	EXPECT_EQ(VEXODiskPortCheck("sdab"), 3);
	EXPECT_EQ(VEXODiskPortCheck("/dev/sdab3"), 3);
	// The first letter must name an external port; otherwise the letter bits decide.
	EXPECT_EQ(VEXODiskPortCheck("sdbb"), 8);

	// External wins over internal for a letter in both maps...
	maps("100", "1", "1", "");
	EXPECT_EQ(VEXODiskPortCheck("sda"), 2);
	// ... unless a unit lists the name and the device opens.
	disks.unit(3, "sda", {"/dev/sda"});
	EXPECT_EQ(VEXODiskPortCheck("sda"), 3);
	root.remove("/dev/sda");
	EXPECT_EQ(VEXODiskPortCheck("sda"), 2);

	maps("100", "0", "ff", "");
	EXPECT_EQ(VEXODiskPortCheck("/dev/sdh1"), 1);
	EXPECT_EQ(VEXODiskPortCheck("sdi"), 4);
	EXPECT_EQ(VEXODiskPortCheck("sdj"), 8); // in no map, cache map empty
	maps("100", "0", "ff", "200");
	EXPECT_EQ(VEXODiskPortCheck("sdj"), 7);
}

TEST_F(PortCheck, ShiftWrapsAt32)
{
	// Index 32 (sdag) tests bit 0, index 33 bit 1.
	maps("80000000", "", "1", "");
	EXPECT_EQ(VEXODiskPortCheck("sdag"), 1);
	EXPECT_EQ(VEXODiskPortCheck("sdah"), 8);
	EXPECT_EQ(VEXODiskPortCheck("sdaf"), 4); // index 31
	// Bits above 31 of a mask are never tested.
	maps("100000000", "", "100000000", "");
	EXPECT_EQ(VEXODiskPortCheck("sdag"), 8);
}

TEST_F(PortCheck, NamesOutsideThePortMaps)
{
	LogCapture log;
	maps("1", "", "2", "");
	EXPECT_EQ(VEXODiskPortCheck(nullptr), 0);
	EXPECT_EQ(VEXODiskPortCheck("/dev/mmcblk0p1"), 9);
	EXPECT_EQ(VEXODiskPortCheck("sysd1"), 11);
	EXPECT_EQ(VEXODiskPortCheck("/dev/vexoboot2"), 5);
	EXPECT_EQ(VEXODiskPortCheck("isd0"), 6);
	EXPECT_EQ(VEXODiskPortCheck("hda"), 0);
	EXPECT_EQ(VEXODiskPortCheck("sd"), 0);
	EXPECT_TRUE(log.has(LOG_ERR, "error or not supported disk path sd."));
	// A name too long for the partition buffer is unknown.
	EXPECT_EQ(VEXODiskPortCheck("/dev/sdaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa"), 0);
}

TEST_F(PortCheck, MasksAreCachedUnlessUsbIsZero)
{
	LogCapture log;
	// Without usbportcfg nothing can be answered.
	maps("", "", "1", "");
	EXPECT_EQ(VEXODiskPortCheck("sda"), 0);
	EXPECT_TRUE(log.has(LOG_ERR, "Get usbportcfg key from /etc.defaults/vexoinfo.conf Error"));

	// A zero USB mask is read again on each call.
	maps("0", "", "1", "");
	EXPECT_EQ(VEXODiskPortCheck("sda"), 1);
	disks.portMaps("0", "", "2", "");
	EXPECT_EQ(VEXODiskPortCheck("sda"), 8);
	EXPECT_EQ(VEXODiskPortCheck("sdb"), 1);

	// A non-zero one is read once per process.
	disks.portMaps("4", "", "1", "");
	EXPECT_EQ(VEXODiskPortCheck("sda"), 1);
	disks.portMaps("4", "", "2", "");
	EXPECT_EQ(VEXODiskPortCheck("sda"), 1);
	EXPECT_EQ(VEXODiskPortCheck("sdb"), 8);
}

TEST_F(PortCheck, M2Answer)
{
	maps("1", "", "1", "", {{"support_nvme", "yes"}});
	disks.sata("nvc1", 3, "0000:00:1c.0/0000:03:00.0"); // card model 0
	disks.sata("nvc2", 4, "0000:00:1d.0/0000:04:00.0"); // card model 1
	disks.sata("nvc3", 5, "0000:00:1e.0/0000:05:00.0"); // unknown card
	disks.sata("nvc4", 6, "0000:00:17.0");              // on the board
	// Card model 0 serves only VQ201..VQ208; the name must match exactly.
	EXPECT_EQ(VEXODiskPortCheck("/dev/nvc1"), 10);
	EXPECT_EQ(VEXODiskPortCheck("/dev/nvc2"), 7);
	EXPECT_EQ(VEXODiskPortCheck("/dev/nvc3"), 10); // blocked before the M.2 answer
	EXPECT_EQ(VEXODiskPortCheck("/dev/nvc4"), 7);
	const std::string cards = R"(, "adapter_slots": [{"pci": "0000:00:1c.0", "slot": 1, "card": "M2C-D2"},
	  {"pci": "0000:00:1d.0", "slot": 2, "card": "M2C-S1"}], "adapter_cards": {"M2C-D2": {"sup_sata": true}, "M2C-S1": {"sup_sata": true}}})";
	disks.platform(R"({"model": "VQ205")" + cards);
	EXPECT_EQ(VEXODiskPortCheck("/dev/nvc1"), 7);
	disks.platform(R"({"model": "VQ2055")" + cards);
	EXPECT_EQ(VEXODiskPortCheck("/dev/nvc1"), 10);
	// SATA cards are blocked on VQ110 and VQ120 only.
	disks.platform(R"({"model": "VQ120")" + cards);
	EXPECT_EQ(VEXODiskPortCheck("/dev/nvc2"), 10);
	// A product whose M.2 slots take everything.
	maps("1", "", "1", "", {{"support_m2_all_dev", "yes"}});
	EXPECT_EQ(VEXODiskPortCheck("/dev/nvc2"), 7);
	// A card that may not carry SATA here is blocked.
	disks.platform(R"({"model": "VQ300", "adapter_slots": [{"pci": "0000:00:1d.0", "slot": 2, "card": "M2C-S1"}],
	  "adapter_cards": {"M2C-S1": {"sup_sata": false}}})");
	EXPECT_EQ(VEXODiskCheckValid("nvc2"), 0);
	EXPECT_EQ(VEXODiskPortCheck("/dev/nvc2"), 10);
	// Without a model name nothing is known.
	root.remove("/etc.defaults/vexoplatform.json");
	LogCapture log;
	EXPECT_EQ(VEXODiskPortCheck("/dev/nvc4"), 0);
	EXPECT_TRUE(log.has(LOG_ERR, "Failed to get model name"));
}

TEST_F(PortCheck, NvmeLocations)
{
	maps("1", "", "1", "", {{"support_nvme", "yes"}});
	const char *pci[] = {"0000:00:01.2", "0000:00:01.3", "0000:00:01.4", "0000:00:01.5", "0000:00:01.6"};
	const int type[] = {7, 10, 1, 1, 11};
	for (int i = 0; i < 5; ++i) {
		std::string name = "nvme" + std::to_string(i) + "n1";
		disks.nvme(name, std::string(pci[i]) + "/0000:0" + std::to_string(i + 1) + ":00.0");
		EXPECT_EQ(VEXODiskPortCheck(name.c_str()), type[i]) << name;
	}
	EXPECT_EQ(VEXODiskPortCheck("/dev/nvme0n1p1"), 7);
	char path[32];
	ASSERT_EQ(VEXONVMeDevGetByLoc(0, 4, path, sizeof(path)), 0);
	EXPECT_STREQ(path, "/dev/nvme3n1");
	EXPECT_EQ(VEXONVMeDevGetByLoc(1, 4, path, sizeof(path)), -1);
	char tiny[8];
	EXPECT_EQ(VEXONVMeDevGetByLoc(0, 4, tiny, sizeof(tiny)), -1);
	// An NVMe disk on a card that may carry NVMe.
	disks.nvme("nvme5n1", "0000:00:1c.0/0000:06:00.0");
	EXPECT_EQ(VEXODiskCheckValid("nvme5n1"), 1);
	// Without NVMe support the name falls to the port maps, which know no nvme.
	maps("1", "", "1", "");
	EXPECT_EQ(VEXODiskPortCheck("nvme0n1"), 0);
	EXPECT_EQ(VEXONVMeCheckSupportAndNVMeSSD("nvme0n1"), 0);
}

} // namespace
