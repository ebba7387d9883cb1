// Platform answers that the port check and the M.2 rules stand on, and the
// NVMe admin calls where no emulator answers.
#include <cstring>
#include <string>
#include <syslog.h>
#include <utility>
#include <vexoplatform/ebox_info.h>
#include <vexoplatform/nvme_admin.h>
#include <vexoplatform/nvme_location.h>
#include <vexoplatform/vexocore.h>

#include "platform/nvme/nvme_admin_command.h"
#include "support/disk_layout.h"
#include "support/vexotest.h"

using vexo::test::DiskLayout;
using vexo::test::Sysroot;
using namespace vexo::test;

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

// The NVMe admin calls where no emulator answers: a missing node, a node
// the kernel refuses, and the helpers that read answers.
TEST(NvmeAdminKernel, MissingOrForeignNodeFailsCleanly)
{
	Sysroot root;
	LogCapture log;
	VLIBCErrClear();
	char model[41] = "keep", fw[9] = "keep", sn[21] = "keep";
	EXPECT_EQ(VEXONVMeDiskModelGet("/dev/nvme0n1", model, sizeof(model)), -1);
	EXPECT_ERR(VEXO_ERR_DEVICE);
	EXPECT_TRUE(log.has(LOG_ERR, "Failed to open /dev/nvme0n1, errno=No such file or directory")) << log.dump();
	EXPECT_EQ(VEXONVMeFirmAndSerialRead("nvme0", fw, sizeof(fw), sn, sizeof(sn)), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "Failed to open /dev/nvme0,"));
	EXPECT_STREQ(model, "keep");
	EXPECT_STREQ(fw, "keep");
	EXPECT_STREQ(sn, "keep");

	// A node that is no NVMe device: the kernel refuses the ioctl.
	root.write("/dev/nvme0n1", "not a device");
	log.clear();
	VLIBCErrClear();
	unsigned char page[512];
	EXPECT_EQ(VEXONVMeLogGet("/dev/nvme0n1", 2, page, sizeof(page)), -1);
	EXPECT_ERR(VEXO_ERR_DEVICE);
	EXPECT_TRUE(log.has(LOG_ERR, "NVMe log page 0x2 of /dev/nvme0n1 failed, errno=Inappropriate ioctl for device"))
		<< log.dump();
	char vendor[16] = "keep";
	EXPECT_EQ(VEXONVMeDiskVendorGet("nvme0n1", vendor, sizeof(vendor)), -1);
	EXPECT_STREQ(vendor, "keep");
}

TEST(NvmeAdminFields, IdentifyTextPaddingAndStatusNames)
{
	auto text = [](const char *field, size_t n) { return vexo::nvme::idText(reinterpret_cast<const uint8_t *>(field), n); };
	EXPECT_EQ(text("  AB 12  CD   ", 14), "AB 12  CD");
	EXPECT_EQ(text("                    ", 20), "");
	EXPECT_EQ(text("\0\0 SN9 \0\0", 9), "SN9");        // both, both ends
	EXPECT_EQ(text("AB\0CD   ", 8), "AB");             // a NUL ends the text
	EXPECT_EQ(text("XYZ", 2), "XY");                   // never past the field
	// Retry and Do Not Retry bits do not change what a status means.
	EXPECT_STREQ(vexo::nvme::statusText(0x2109), "Invalid Log Page");
	EXPECT_STREQ(vexo::nvme::statusText(0x0209), "unknown status"); // SCT 2, not 1
}

} // namespace
