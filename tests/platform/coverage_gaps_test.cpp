// Platform answers that the port check and the M.2 rules stand on: the NVMe
// slot type, the adapter card names and what each card may carry, the
// hardware model, expansion support and the product's yes/no questions.
#include <string>
#include <utility>
#include <vector>

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
	disks.nvme("nvme2n1", "0000:00:1d.0");
	disks.nvme("nvme3n1", "0000:00:1d.1");
	disks.nvme("nvme4n1", "0000:00:1d.2");
	disks.nvme("nvme5n1", "0000:00:1d.3");
	disks.nvme("nvme6n1", "0000:00:1f.0");
	disks.platform(R"({"model": "VQ300", "nvme_slots": [
	  {"pci": "0000:00:01.0", "slot": 0, "location": 1, "type": "internal"},
	  {"pci": "0000:01:00.0", "slot": 0, "location": 2, "type": "cache"},
	  {"pci": "0000:00:1d.0", "slot": 0, "location": 3, "type": "blocked"},
	  {"pci": "0000:00:1d.1", "slot": 0, "location": 4, "type": "u2"},
	  {"pci": "0000:00:1d.2", "slot": 0, "location": 5, "type": "system"},
	  {"pci": "0000:00:1d.3", "slot": 0, "location": 6, "type": "spare"}]})");
	const std::pair<const char *, int> rows[] = {
		{"/dev/nvme0n1", VEXO_NVME_PORT_CACHE},	   {"nvme0n1p2", VEXO_NVME_PORT_CACHE},
		{"/dev/nvme1n1", VEXO_NVME_PORT_INTERNAL}, {"/dev/nvme2n1", VEXO_NVME_PORT_BLOCKED},
		{"/dev/nvme3n1p1", VEXO_NVME_PORT_U2},	   {"/dev/nvme4n1", VEXO_NVME_PORT_SYSTEM},
		{"/dev/nvme5n1", VEXO_NVME_PORT_NONE}, // a type the table does not know
		{"/dev/nvme6n1", VEXO_NVME_PORT_NONE}, // no entry on its path
		{"/dev/nvme0", VEXO_NVME_PORT_NONE},   // the controller, not a namespace
		{"/dev/nvme7n1", VEXO_NVME_PORT_NONE}, // not present
		{"/dev/sda", VEXO_NVME_PORT_NONE},	   {"", VEXO_NVME_PORT_NONE},
		{nullptr, VEXO_NVME_PORT_NONE},
	};
	for (auto [path, want] : rows) {
		EXPECT_EQ(VEXONVMeDevPortTypeCheck(path), want) << (path ? path : "(null)");
		EXPECT_EQ(VEXONVMeDevIsU2Slot(path), want == VEXO_NVME_PORT_U2 ? 1 : 0) << (path ? path : "(null)");
	}
	// No description, or a broken one: no slot has a type.
	root.write(VEXO_PLATFORM_DESCRIPTION, "{\"nvme_slots\": 3}");
	EXPECT_EQ(VEXONVMeDevPortTypeCheck("/dev/nvme0n1"), VEXO_NVME_PORT_NONE);
	root.remove(VEXO_PLATFORM_DESCRIPTION);
	EXPECT_EQ(VEXONVMeDevPortTypeCheck("/dev/nvme0n1"), VEXO_NVME_PORT_NONE);
}

TEST_F(Board, CardNamesAndWhatTheyCarry)
{
	const char *names[] = {"M2C-D2", "M2C-S1", "M2C-S2", "M2C-N4", "M2C-X1", "M2C-X2", "M2C-U2"};
	for (int m = 0; m < 7; ++m) {
		ASSERT_NE(VEXOM2CardIDToStr(m), nullptr) << m;
		EXPECT_STREQ(VEXOM2CardIDToStr(m), names[m]);
	}
	EXPECT_EQ(VEXOM2CardIDToStr(VEXO_M2CARD_NONE), nullptr);
	EXPECT_EQ(VEXOM2CardIDToStr(VEXO_M2CARD_UNKNOWN), nullptr);
	EXPECT_EQ(VEXOM2CardIDToStr(-1), nullptr);

	disks.platform(R"({"model": "VQ300", "adapter_cards": {
	  "M2C-D2": {"sup_nvme": true, "sup_sata": false},
	  "M2C-S2": {"sup_sata": true}}})");
	EXPECT_EQ(VEXOAdapterCardCheckSupport("M2C-D2", "sup_nvme"), 1);
	EXPECT_EQ(VEXOAdapterCardCheckSupport("M2C-D2", "sup_sata"), 0);
	EXPECT_EQ(VEXOAdapterCardCheckSupport("M2C-S2", "sup_sata"), 1);
	EXPECT_EQ(VEXOAdapterCardCheckSupport("M2C-S2", "sup_nvme"), 0); // not listed
	EXPECT_EQ(VEXOAdapterCardCheckSupport("M2C-N4", "sup_nvme"), 0); // card not listed
	EXPECT_EQ(VEXOAdapterCardCheckSupport("m2c-d2", "sup_nvme"), 0); // names are exact
	EXPECT_EQ(VLIBCErrGet(), 0);

	EXPECT_EQ(VEXOAdapterCardCheckSupport(nullptr, "sup_nvme"), -1);
	EXPECT_ERR(0x0D00);
	EXPECT_EQ(VEXOAdapterCardCheckSupport("M2C-D2", nullptr), -1);
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
	char exact[6];
	ASSERT_EQ(VexoHWVersionGet(exact, sizeof(exact)), 0);
	EXPECT_STREQ(exact, "VQ110");
	char small[5] = "xxxx";
	EXPECT_EQ(VexoHWVersionGet(small, sizeof(small)), -1);
	EXPECT_ERR(0x0D00);
	EXPECT_STREQ(small, "");
	EXPECT_EQ(VexoHWVersionGet(nullptr, 8), -1);
	EXPECT_ERR(0x0D00);
	EXPECT_EQ(VexoHWVersionGet(model, 0), -1);
	EXPECT_ERR(0x0D00);

	disks.platform(R"({"ebox": false})");
	EXPECT_EQ(VexoHWVersionGet(model, sizeof(model)), -1);
	EXPECT_ERR(0x2A00);
	EXPECT_EQ(SupportEBox(), 0);
	disks.platform(R"({"model": "VQ300"})");
	EXPECT_EQ(SupportEBox(), 0); // absent means no
	root.remove(VEXO_PLATFORM_DESCRIPTION);
	EXPECT_EQ(VexoHWVersionGet(model, sizeof(model)), -1);
	EXPECT_ERR(0x0700);
	EXPECT_EQ(SupportEBox(), 0);
}

// Each question reads its own key and only "yes" (any case) says yes.
TEST_F(Board, ProductQuestionsReadTheirOwnKeys)
{
	const std::pair<const char *, int (*)()> questions[] = {
		{"support_m2_all_dev", VLIBCSupportM2AllDev},
		{"block_m2_sata", VLIBCBlockM2SATA},
		{"support_nvme_eunit", VLIBCSupportNvmeEunit},
		{"alivos", VLIBCIsAliVOS},
	};
	for (auto [key, ask] : questions) {
		for (auto [value, want] : {std::pair<const char *, int>{"yes", 1}, {"YES", 1}, {"no", 0}, {"1", 0}, {"", 0}}) {
			root.conf("/etc.defaults/vexoinfo.conf", {{key, value}});
			for (auto [other, otherAsk] : questions)
				EXPECT_EQ(otherAsk(), other == key ? want : 0) << key << "=" << value << ", asking " << other;
		}
	}
	// A question leaves the caller's error record as it was.
	root.remove("/etc.defaults/vexoinfo.conf");
	VLIBCErrClear();
	EXPECT_EQ(VLIBCIsAliVOS(), 0);
	EXPECT_EQ(VLIBCErrGet(), 0);
}

} // namespace
