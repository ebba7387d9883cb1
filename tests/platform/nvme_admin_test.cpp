// The NVMe admin calls where no emulator answers: a missing node, a node
// the kernel refuses, and the helpers that read answers.
#include <cstring>
#include <syslog.h>
#include <vexoplatform/nvme_admin.h>

#include "platform/nvme/nvme_admin_command.h"
#include "support/vexotest.h"

using namespace vexo::test;

namespace {

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

TEST(NvmeAdminFields, IdentifyTextPadding)
{
	using vexo::nvme::idText;
	auto text = [](const char *field, size_t n) { return idText(reinterpret_cast<const uint8_t *>(field), n); };
	EXPECT_EQ(text("  AB 12  CD   ", 14), "AB 12  CD");
	EXPECT_EQ(text("                    ", 20), "");
	EXPECT_EQ(text("\0\0 SN9 \0\0", 9), "SN9");        // both, both ends
	EXPECT_EQ(text("AB\0CD   ", 8), "AB");             // a NUL ends the text
	EXPECT_EQ(text("XYZ", 2), "XY");                   // never past the field
}

TEST(NvmeAdminFields, StatusNamesIgnoreRetryBits)
{
	using vexo::nvme::statusText;
	// Retry and Do Not Retry bits do not change what a status means.
	EXPECT_STREQ(statusText(0x2109), "Invalid Log Page");
	EXPECT_STREQ(statusText(0x0209), "unknown status"); // SCT 2, not 1
}

} // namespace
