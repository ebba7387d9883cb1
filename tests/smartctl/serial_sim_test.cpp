// Firmware and serial against the emulated drive: the ATA and SCSI reads,
// the masked serial that the maker's hard disks keep on the drive (ATA host
// vendor log, SAS application client page), and failed stores.
#include <cstring>
#include <syslog.h>
#include <vexohw/smart_serial.h>

#include "smartctl/sim_disk.h"

using namespace vexo::test;

namespace {

const bool kBackend = installDriveEmulator();

std::string hexOf(const std::string &s, size_t padTo = 0)
{
	static const char *d = "0123456789abcdef";
	std::string o;
	for (unsigned char c : s) {
		o += d[c >> 4];
		o += d[c & 15];
	}
	while (o.size() < padTo * 2)
		o += "00";
	return o;
}

// What the serial calls send: the identity (the kernel's copy first), the
// stored serial read back or written as host vendor log 0x9a, and on SCSI
// the serial VPD page, INQUIRY and the application client log page.
const std::string kIdGet = "HDIO_GET_IDENTITY -> ok", kId = "HDIO_DRIVE_CMD args=ec000001 -> ok";
const std::string kReadStored = "SG_IO*cdb=85080e00d60001009a00000000002f00 -> ",
		  kWriteStored = "SG_IO*cdb=850a0600d60001009a004f00c200b000 data=";
const std::string kVpd = "SG_IO*cdb=12018000fc0000000000 -> ok", kInquiry = "SG_IO*cdb=12000000240000000000 -> ok";

class Serial : public SimDisk {
protected:
	void SetUp() override
	{
		SimDisk::SetUp();
		ASSERT_TRUE(kBackend);
		vendorDisk();
	}
	void vendorDisk() { actions(R"(<disk pattern="^VEXO HA[TS]53" vendor="Vexology" action="0"/>)" "\n"); }
	void ata(const std::string &serial, const std::string &extra = "")
	{
		node("sda", R"({"protocol":"ata","model":"VEXO HAT5300-8T","serial":")" + serial +
				    R"(","firmware":"SC60")" + extra + "}");
	}
	void sas(const std::string &serial, const std::string &extra = "")
	{
		product({{"vvos", "yes"}});
		sysfs("sda", "VEXO", "HAS5300-16T", true);
		actions(R"(<disk model="HAS5300-16T" vendor="Vexology"/>)");
		node("sda", R"({"protocol":"scsi","serial":")" + serial + R"(","firmware":"S100")" + extra + "}");
	}
	void maskFlag(int v) { root.write("/run/vexostorage/disks/sda/mask_serial", std::to_string(v)); }
	std::string trueSerial(const char *path = "/dev/sda")
	{
		char fw[16] = "untouched", sn[32] = "untouched";
		if (SmartFirmAndSerialRead(path, fw, sizeof(fw), sn, sizeof(sn)) != 0)
			return std::string("failed:") + sn;
		return std::string(sn) + "/" + fw;
	}
	std::string uiSerial()
	{
		char sn[32] = "untouched";
		if (VEXODiskGetSerialForUi("/dev/sda", sn, sizeof(sn)) != 0)
			return std::string("failed:") + sn;
		return sn;
	}
	std::string stored() const
	{
		std::string n = root.read("/dev/sda");
		size_t at = n.find("\"0x9a\"");
		if (at == std::string::npos)
			return {};
		at = n.find('"', n.find(':', at)) + 1;
		return n.substr(at, n.find('"', at) - at);
	}
};

TEST_F(Serial, AtaIdentifyStringsSwappedTrimmedAndOneWord)
{
	ata("  ZL2K 4T7C");
	EXPECT_EQ(trueSerial(), "ZL2K_4T7C/SC60");
	ata("A B C D E F G H I J");
	EXPECT_EQ(trueSerial("sda"), "A_B_C_D_E_F_G_H_I_J/SC60");
	char fw[8];
	ASSERT_EQ(SmartFirmwareGet("/dev/sda", fw, sizeof(fw)), 0);
	EXPECT_STREQ(fw, "SC60");
	// A raw read never writes to the drive.
	expectSent("sda", {kIdGet, kId, kIdGet, kId, kIdGet, kId});

	// A packet device answers IDENTIFY PACKET only.
	ata("PKT0001", R"(,"packet":true)");
	EXPECT_EQ(trueSerial(), "PKT0001/SC60");
}

TEST_F(Serial, NvmeIdentifyController)
{
	DiskLayout(root).nvme("nvme0n1", "0000:00:01.0");
	node("nvme0n1", R"({"protocol":"nvme","serial":"2251 4D800394","firmware":"111150WD"})");
	char fw[16], sn[32];
	ASSERT_EQ(SmartFirmAndSerialRead("/dev/nvme0n1", fw, 8, sn, 20), 0); // the smallest buffers, cut
	EXPECT_STREQ(fw, "111150W");
	EXPECT_STREQ(sn, "2251_4D800394");
	ASSERT_EQ(VEXODiskGetSerialForUi("nvme0n1", sn, sizeof(sn)), 0);
	EXPECT_STREQ(sn, "2251_4D800394");
	LogCapture log;
	node("nvme0n1", R"({"protocol":"nvme","faults":{"nvme_identify":{"errno":"EIO"}}})");
	EXPECT_EQ(SmartFirmAndSerialRead("/dev/nvme0n1", fw, sizeof(fw), sn, sizeof(sn)), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "VEXONVMeFirmAndSerialRead"));
	EXPECT_STREQ(sn, "2251_4D800394");
}

TEST_F(Serial, BadArgumentsAndUnreadableDrives)
{
	LogCapture log;
	char fw[16] = "x", sn[32] = "x";
	EXPECT_EQ(SmartFirmAndSerialRead("/dev/sda", fw, 7, sn, sizeof(sn)), -1); // 8 and 20 at least
	EXPECT_EQ(SmartFirmAndSerialRead("/dev/sda", fw, sizeof(fw), sn, 19), -1);
	EXPECT_EQ(log.count(LOG_ERR, "bad parameter"), 2);

	EXPECT_EQ(trueSerial("/dev/sdx"), "failed:untouched");
	EXPECT_TRUE(log.has(LOG_ERR, "open device /dev/sdx fail"));

	node("sda", R"({"protocol":"ata","faults":{"identify":{"bad_checksum":true}}})");
	EXPECT_EQ(trueSerial(), "failed:untouched");
	// The bad-checksum line is the bare text, nothing before it.
	bool bare = false;
	for (const auto &l : log.lines())
		bare = bare || (l.priority == LOG_ERR && l.text == "Read identify failed");
	EXPECT_TRUE(bare) << log.dump();
	node("sda", R"({"protocol":"ata","faults":{"identify":{"errno":"EIO"},"packet_identify":{"errno":"EIO"}}})");
	EXPECT_EQ(trueSerial(), "failed:untouched");
}

TEST_F(Serial, ScsiVpdSerialAndInquiryRevision)
{
	sas(" SX0000 1234 ");
	EXPECT_EQ(trueSerial(), "SX0000_1234/S100");
	expectSent("sda", {kVpd, kInquiry});
	node("sda", R"({"protocol":"scsi","faults":{"inquiry":{"errno":"EIO"}}})");
	EXPECT_EQ(trueSerial(), "failed:untouched");
}

TEST_F(Serial, AtaMaskingStoresOnceAndTheStoredSerialWins)
{
	ata("ZL20ABCD");
	maskFlag(1);
	EXPECT_EQ(uiSerial(), "ZL21ABCD");
	// Stored as host vendor log 0x9a with SMART WRITE LOG (features 0xd6),
	// after the read found none.
	expectSent("sda", {kIdGet, kId, kReadStored + "abort", kWriteStored + hexOf("ZL21ABCD", 512) + " -> ok"});
	EXPECT_EQ(stored(), hexOf("ZL21ABCD", 512));
	// The true serial stays the drive's own.
	EXPECT_EQ(trueSerial(), "ZL20ABCD/SC60");

	// From now on the stored serial is read back (READ LOG EXT, features
	// 214, log 154) and nothing more is written, even when the flag changes.
	maskFlag(0);
	EXPECT_EQ(uiSerial(), "ZL21ABCD");
	expectSent("sda", {kIdGet, kId, kIdGet, kId, kReadStored + "ok"});

	// Whatever the drive keeps wins, as long as it is a plausible serial.
	ata("ZL20ABCD", R"(,"logs":{"0x9a":")" + hexOf("VXUI123456") + "\"}");
	EXPECT_EQ(uiSerial(), "VXUI123456");
	EXPECT_EQ(trueSerial(), "ZL20ABCD/SC60");
	ata("ZL20ABCD", R"(,"logs":{"0x9a":")" + hexOf("SHORT") + "\"}");
	maskFlag(1);
	EXPECT_EQ(uiSerial(), "ZL21ABCD");
	EXPECT_EQ(stored(), hexOf("ZL21ABCD", 512));
}

TEST_F(Serial, WhatIsMasked)
{
	ata("ZL20ABCD");
	maskFlag(0); // unmasked: stored as it is
	EXPECT_EQ(uiSerial(), "ZL20ABCD");
	EXPECT_EQ(stored(), hexOf("ZL20ABCD", 512));
	ata("ZL2XABCD"); // index 3 is not '0': nothing to mask
	maskFlag(1);
	EXPECT_EQ(uiSerial(), "ZL2XABCD");
	expectSent("sda", {kIdGet, kId, kReadStored + "abort", kWriteStored + hexOf("ZL20ABCD", 512) + " -> ok", kIdGet, kId,
			   kReadStored + "abort", kWriteStored + hexOf("ZL2XABCD", 512) + " -> ok"});

	// Only the maker's hard disks.
	ata("ZL20ABCD");
	actions(R"(<disk pattern="^VEXO" vendor="Other"/>)");
	EXPECT_EQ(uiSerial(), "ZL20ABCD");
	root.remove("/var/lib/diskaction/diskaction.xml");
	EXPECT_EQ(uiSerial(), "ZL20ABCD");
	vendorDisk();
	sysfs("sda", "ATA", "VEXO HAT5300-8T", false); // an SSD
	EXPECT_EQ(uiSerial(), "ZL20ABCD");
	expectSent("sda", {kIdGet, kId, kIdGet, kId, kIdGet, kId}); // the log neither read nor written
}

TEST_F(Serial, AtaFailedStoreIsLoggedAndTheMaskedSerialShown)
{
	maskFlag(1);
	ata("ZL20ABCD", R"(,"faults":{"smart_write_log":{"errno":"EIO"}})");
	LogCapture log;
	EXPECT_EQ(uiSerial(), "ZL21ABCD");
	EXPECT_TRUE(log.has(LOG_ERR, "MaskSerial(")) << log.dump();
	EXPECT_TRUE(log.has(LOG_ERR, "VEXODiskLogPage set failed"));
	EXPECT_TRUE(log.has(LOG_ERR, "sat smart write log failed"));
	EXPECT_EQ(stored(), "");
}

TEST_F(Serial, SasApplicationClientPage)
{
	sas("SX0001234");
	maskFlag(1);
	EXPECT_EQ(uiSerial(), "SX0101234");
	// LOG SELECT of the application client page: 260 bytes, byte for byte.
	std::string list = "0f000100000083fc" + hexOf("SX0101234", 252);
	expectSent("sda", {kVpd, kInquiry, "SG_IO*cdb=4d004f00000000010400 -> ok",
			   "SG_IO*cdb=4c014000000000010400 data=" + list + " -> ok"});
	EXPECT_EQ(trueSerial(), "SX0001234/S100");

	EXPECT_EQ(uiSerial(), "SX0101234");
	expectSent("sda", {kVpd, kInquiry, kVpd, kInquiry, "SG_IO*cdb=4d004f00000000010400 -> ok"});

	char sn[32];
	ASSERT_EQ(VEXODiskMaskSerialGet("/dev/sda", sn, sizeof(sn)), 0);
	EXPECT_STREQ(sn, "SX0101234");
	// A stored text longer than 24 characters is not taken.
	ASSERT_EQ(VEXODiskMaskSerialSet("/dev/sda", "123456789012345678901234"), 0);
	EXPECT_EQ(VEXODiskMaskSerialGet("/dev/sda", sn, sizeof(sn)), 0);
	EXPECT_EQ(VEXODiskMaskSerialSet("/dev/sda", "1234567890123456789012345"), -1);
	EXPECT_ERR(0x0D00);
}

TEST_F(Serial, SasFailedStore)
{
	sas("SX0001234", R"(,"faults":{"log_select":{"errno":"EIO"}})");
	maskFlag(1);
	LogCapture log;
	EXPECT_EQ(uiSerial(), "SX0101234");
	EXPECT_TRUE(log.has(LOG_ERR, "ScsiWriteApplicationClient(")) << log.dump();
	EXPECT_TRUE(log.has(LOG_ERR, "sas_command_interface set application client failed."));
	EXPECT_TRUE(log.has(LOG_ERR, "VEXODiskLogPage set failed"));
}

TEST_F(Serial, MarvellWrapperHasNoStore)
{
	root.write("/sys/devices/pci0000:00/0000:00:17.0/ata1/host0/scsi_host/host0/proc_name", "mvSata\n");
	char sn[32] = "untouched";
	EXPECT_EQ(VEXODiskMaskSerialGet("/dev/sda", sn, sizeof(sn)), -1);
	EXPECT_EQ(VEXODiskMaskSerialSet("/dev/sda", "ZL21ABCD"), -1);
	EXPECT_STREQ(sn, "untouched");
	EXPECT_FALSE(root.exists("/run/vexosim/drive/sda.log"));
}

} // namespace
