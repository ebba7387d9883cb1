// Platform answers that the port check and the M.2 rules stand on: the NVMe
// slot type, what each adapter card may carry, the hardware model and
// expansion support.
#include <string>
#include <utility>

#include <vexoplatform/ebox_info.h>
#include <vexoplatform/nvme_location.h>
#include <vexoplatform/vexocore.h>

#include "support/disk_layout.h"

using vexo::test::DiskLayout;
using vexo::test::Sysroot;

namespace {

class Board : public ::testing::Test {
protected:
	void SetUp() override { VLIBCErrClear(); }
	Sysroot root;
	DiskLayout disks{root};
};

TEST_F(Board, NvmeSlotTypeTakesTheEntryNearestTheDisk)
{
	// 0000:00:01.0 is a bridge with an internal entry; one of the devices
	// behind it has its own cache entry, which wins for the disk below it.
	disks.nvme("nvme0n1", "0000:00:01.0/0000:01:00.0");
	disks.nvme("nvme1n1", "0000:00:01.0/0000:02:00.0");
	disks.nvme("nvme3n1", "0000:00:1d.1");
	disks.nvme("nvme5n1", "0000:00:1d.3");
	disks.nvme("nvme6n1", "0000:00:1f.0");
	disks.platform(R"({"model": "VQ300", "nvme_slots": [
	  {"pci": "0000:00:01.0", "slot": 0, "location": 1, "type": "internal"},
	  {"pci": "0000:01:00.0", "slot": 0, "location": 2, "type": "cache"},
	  {"pci": "0000:00:1d.1", "slot": 0, "location": 4, "type": "u2"},
	  {"pci": "0000:00:1d.3", "slot": 0, "location": 6, "type": "spare"}]})");
	const std::pair<const char *, int> rows[] = {
		{"nvme0n1p2", VEXO_NVME_PORT_CACHE},
		{"/dev/nvme1n1", VEXO_NVME_PORT_INTERNAL},
		{"/dev/nvme3n1p1", VEXO_NVME_PORT_U2},
		{"/dev/nvme5n1", VEXO_NVME_PORT_NONE}, // a type the table does not know
		{"/dev/nvme6n1", VEXO_NVME_PORT_NONE}, // no entry on its path
		{"/dev/nvme0", VEXO_NVME_PORT_NONE},   // the controller, not a namespace
		{"/dev/nvme7n1", VEXO_NVME_PORT_NONE}, // not present
		{nullptr, VEXO_NVME_PORT_NONE},
	};
	for (auto [path, want] : rows) {
		EXPECT_EQ(VEXONVMeDevPortTypeCheck(path), want) << (path ? path : "(null)");
		EXPECT_EQ(VEXONVMeDevIsU2Slot(path), want == VEXO_NVME_PORT_U2 ? 1 : 0) << (path ? path : "(null)");
	}
	// No description, or a broken one: no slot has a type.
	root.write(VEXO_PLATFORM_DESCRIPTION, "{\"nvme_slots\": 3}");
	EXPECT_EQ(VEXONVMeDevPortTypeCheck("/dev/nvme0n1"), VEXO_NVME_PORT_NONE);
}

TEST_F(Board, CardNamesAndWhatTheyCarry)
{
	EXPECT_STREQ(VEXOM2CardIDToStr(0), "M2C-D2");
	EXPECT_EQ(VEXOM2CardIDToStr(VEXO_M2CARD_UNKNOWN), nullptr);
	disks.platform(R"({"model": "VQ300", "adapter_cards": {
	  "M2C-D2": {"sup_nvme": true, "sup_sata": false},
	  "M2C-S2": {"sup_sata": true}}})");
	EXPECT_EQ(VEXOAdapterCardCheckSupport("M2C-D2", "sup_nvme"), 1);
	EXPECT_EQ(VEXOAdapterCardCheckSupport("M2C-D2", "sup_sata"), 0);
	EXPECT_EQ(VEXOAdapterCardCheckSupport("M2C-S2", "sup_nvme"), 0); // not listed
	EXPECT_EQ(VEXOAdapterCardCheckSupport("M2C-N4", "sup_nvme"), 0); // card not listed
	EXPECT_EQ(VEXOAdapterCardCheckSupport("m2c-d2", "sup_nvme"), 0); // names are exact
	EXPECT_EQ(VLIBCErrGet(), 0);

	EXPECT_EQ(VEXOAdapterCardCheckSupport(nullptr, "sup_nvme"), -1);
	EXPECT_ERR(0x0D00);
	// A card whose attributes are no object spoils the whole description.
	disks.platform(R"({"adapter_cards": {"M2C-D2": true}})");
	EXPECT_EQ(VEXOAdapterCardCheckSupport("M2C-D2", "sup_nvme"), -1);
	EXPECT_ERR(0x0A00);
	root.remove(VEXO_PLATFORM_DESCRIPTION);
	EXPECT_EQ(VEXOAdapterCardCheckSupport("M2C-D2", "sup_nvme"), -1);
	EXPECT_ERR(0x0700);
}

TEST_F(Board, HardwareModelAndExpansionSupport)
{
	disks.platform(R"({"model": "VQ110", "ebox": true})");
	char model[8] = "";
	ASSERT_EQ(VexoHWVersionGet(model, sizeof(model)), 0);
	EXPECT_STREQ(model, "VQ110");
	EXPECT_EQ(SupportEBox(), 1);
	// The name and its NUL need 6 bytes; 5 fails and hands out nothing cut.
	char small[5] = "xxxx";
	EXPECT_EQ(VexoHWVersionGet(small, sizeof(small)), -1);
	EXPECT_ERR(0x0D00);
	EXPECT_STREQ(small, "");

	disks.platform(R"({"ebox": false})");
	EXPECT_EQ(VexoHWVersionGet(model, sizeof(model)), -1);
	EXPECT_ERR(0x2A00);
	EXPECT_EQ(SupportEBox(), 0);
	root.remove(VEXO_PLATFORM_DESCRIPTION);
	EXPECT_EQ(VexoHWVersionGet(model, sizeof(model)), -1);
	EXPECT_ERR(0x0700);
}

} // namespace
