// Values read from the emulated drive: firmware and serial (with the masked
// serial the maker's disks keep), the temperature from each source in its
// turn, the debug overrides of an attribute list, and the self-test records.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <scsi/sg.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>
#include <vexohw/disk_state.h>
#include <vexohw/frame.h>
#include <vexohw/smart_serial.h>
#include <vexohw/smart_temperature.h>
#include <vexohw/smart_test.h>
#include <vexoplatform/logdb.h>
#include <vexoplatform/vexocore.h>

#include "smartctl/drive_sim.h"
#include "smartctl/sim_disk.h"
#include "smartctl/smart_util.h"
#include "support/disk_layout.h"

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

TEST_F(Serial, FailedStoreIsLoggedAndTheMaskedSerialShown)
{
	maskFlag(1);
	ata("ZL20ABCD", R"(,"faults":{"smart_write_log":{"errno":"EIO"}})");
	LogCapture log;
	EXPECT_EQ(uiSerial(), "ZL21ABCD");
	EXPECT_EQ(stored(), "");
	for (const char *line : {"MaskSerial(", "VEXODiskLogPage set failed", "sat smart write log failed"})
		EXPECT_TRUE(log.has(LOG_ERR, line)) << log.dump();

	sas("SX0001234", R"(,"faults":{"log_select":{"errno":"EIO"}})");
	LogCapture sasLog;
	EXPECT_EQ(uiSerial(), "SX0101234");
	for (const char *line : {"ScsiWriteApplicationClient(", "sas_command_interface set application client failed.",
				 "VEXODiskLogPage set failed"})
		EXPECT_TRUE(sasLog.has(LOG_ERR, line)) << sasLog.dump();
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

TEST_F(Serial, MarvellWrapperHasNoStore)
{
	root.write("/sys/devices/pci0000:00/0000:00:17.0/ata1/host0/scsi_host/host0/proc_name", "mvSata\n");
	char sn[32] = "untouched";
	EXPECT_EQ(VEXODiskMaskSerialGet("/dev/sda", sn, sizeof(sn)), -1);
	EXPECT_EQ(VEXODiskMaskSerialSet("/dev/sda", "ZL21ABCD"), -1);
	EXPECT_STREQ(sn, "untouched");
	EXPECT_FALSE(root.exists("/run/vexosim/drive/sda.log"));
}

// VEXODiskTemperatureGet against the emulated drive: each source in its
// turn, the ceiling, the SCSI page rule, and that a disk that isn't running
// or is being erased is not touched at all.
// The override is kept by serial, so each call reads the identity.
const std::vector<std::string> kIdentity = {"HDIO_GET_IDENTITY -> ok", "HDIO_DRIVE_CMD args=ec000001 -> ok"};

class Temperature : public SimDisk {
protected:
	void SetUp() override
	{
		SimDisk::SetUp();
		ASSERT_TRUE(kBackend);
		attributes(R"({"id":194,"raw":41},{"id":190,"raw":29})");
		tool("/usr/vexo/bin/sg_raw", "cat \"$VEXO_SYSROOT/tmp/sg_raw.dump\" >&2");
		root.write("/tmp/sg_raw.dump", capture("sg_raw_sct_status.txt"));
	}
	void attributes(const std::string &rows)
	{
		node("sda", R"({"protocol":"ata","serial":"ZL2K4T7C","smart":{"attributes":[{"id":1,"raw":0},)" + rows + "]}}");
	}
	void debugTemperature(const std::string &value)
	{
		product({{"support_disk_status_debug", "yes"}});
		root.write("/tmp/.disk_status_debug", "[OTHER]\ntemp=1\n[ZL2K4T7C]\ntemp=" + value + "\n");
	}
	void sctFlag(int v) { root.write("/run/vexostorage/disks/sda/sct_cmd_support", std::to_string(v)); }
	std::string cli(const std::vector<std::string> &args) { return runVexohw(root, args).out; }
};

TEST_F(Temperature, EachSourceInItsTurn)
{
	debugTemperature("77");
	sctFlag(1);
	EXPECT_EQ(VEXODiskTemperatureGet("/dev/sda"), 77);
	EXPECT_TRUE(runs("sg_raw").empty());
	expectSent("sda", kIdentity);

	// No override: the SCT status log, through sg_raw with the exact CDB.
	root.remove("/tmp/.disk_status_debug");
	EXPECT_EQ(VEXODiskTemperatureGet("/dev/sda"), 38);
	ASSERT_EQ(runs("sg_raw").size(), 1u);
	EXPECT_EQ(runs("sg_raw")[0], "-r 512 /dev/sda 85 08 0e 00 00 00 01 00 e0 00 00 00 00 00 2f 00");
	expectSent("sda", kIdentity);

	// SCT not supported by the cached flag, or the file missing: SMART data.
	sctFlag(0);
	EXPECT_EQ(VEXODiskTemperatureGet("sda"), 41);
	EXPECT_EQ(runs("sg_raw").size(), 1u);
	expectSent("sda", {kIdentity[0], kIdentity[1], "HDIO_DRIVE_CMD args=b000d001 -> ok"}); // SMART READ DATA
	root.remove("/run/vexostorage/disks/sda/sct_cmd_support");
	EXPECT_EQ(VEXODiskTemperatureGet("/dev/sda"), 41);

	// SCT answers too hot to believe, or sg_raw prints nothing: SMART data.
	sctFlag(1);
	std::string dump = capture("sg_raw_sct_status.txt");
	root.write("/tmp/sg_raw.dump", dump.replace(dump.find(" c0     ") + 8 + 25, 2, "65"));
	EXPECT_EQ(VEXODiskTemperatureGet("/dev/sda"), 41);
	root.write("/tmp/sg_raw.dump", "");
	EXPECT_EQ(VEXODiskTemperatureGet("/dev/sda"), 41);

	// Without 194 the airflow temperature; without either, nothing.
	attributes(R"({"id":190,"raw":29})");
	EXPECT_EQ(VEXODiskTemperatureGet("/dev/sda"), 29);
	attributes(R"({"id":9,"raw":1200})");
	EXPECT_EQ(VEXODiskTemperatureGet("/dev/sda"), -1);
	// The drive refuses SMART READ DATA (twice: the read has one retry).
	node("sda", R"({"protocol":"ata","faults":{"smart_read_values":{"errno":"EIO"}}})");
	EXPECT_EQ(VEXODiskTemperatureGet("/dev/sda"), -1);
}

TEST_F(Temperature, OverrideThatIsNoNumberCountsAsAbsent)
{
	debugTemperature("99999999999999999999");
	EXPECT_EQ(VEXODiskTemperatureGet("/dev/sda"), 41);
	debugTemperature("hot");
	EXPECT_EQ(VEXODiskTemperatureGet("/dev/sda"), 41);
	debugTemperature("250"); // the ceiling holds for every source
	EXPECT_EQ(VEXODiskTemperatureGet("/dev/sda"), 0);
}

TEST_F(Temperature, AboveTwoHundredReadsAsZero)
{
	attributes(R"({"id":194,"raw":200})");
	EXPECT_EQ(VEXODiskTemperatureGet("/dev/sda"), 200);
	attributes(R"({"id":194,"raw":201})");
	EXPECT_EQ(VEXODiskTemperatureGet("/dev/sda"), 0);
	// Only the first raw byte is the temperature.
	attributes(R"({"id":194,"raw":184683593764})"); // 0x2b00140024: 36, min 20, max 43
	EXPECT_EQ(VEXODiskTemperatureGet("/dev/sda"), 36);
}

TEST_F(Temperature, NotRunningOrErasingLeavesTheDriveAlone)
{
	sctFlag(1);
	debugTemperature("77");
	sysfs("sda", "ATA", "VEXO HAT5300-8T", true, "offline");
	EXPECT_EQ(VEXODiskTemperatureGet("/dev/sda"), -1);
	sysfs("sda", "ATA", "VEXO HAT5300-8T", true, "running");
	root.write(VEXO_SECURE_ERASE_DIR "/sda" VEXO_SECURE_ERASE_SUFFIX, std::to_string(::getpid()) + "\n");
	EXPECT_EQ(VEXODiskTemperatureGet("/dev/sda3"), -1);
	EXPECT_FALSE(root.exists("/run/vexosim/drive/sda.log")); // not even opened
	EXPECT_TRUE(runs("sg_raw").empty());

	// A marker whose eraser is gone does not count.
	pid_t dead = ::fork();
	if (dead == 0)
		::_exit(0);
	ASSERT_GT(dead, 0);
	int st;
	::waitpid(dead, &st, 0);
	root.write(VEXO_SECURE_ERASE_DIR "/sda" VEXO_SECURE_ERASE_SUFFIX, std::to_string(dead) + "\n");
	EXPECT_EQ(VEXODiskTemperatureGet("/dev/sda"), 77);
	EXPECT_EQ(VEXODiskTemperatureGet(nullptr), -1);
}

TEST_F(Temperature, ScsiLogPage)
{
	product({{"vvos", "yes"}});
	node("sda", R"({"protocol":"scsi","temperature":45})");
	EXPECT_EQ(VEXODiskTemperatureGet("/dev/sda"), 45);
	expectSent("sda", {"SG_IO*cdb=4d004d00000000001000 -> ok"});

	// Zero is zero only on the temperature page itself.
	node("sda", R"({"protocol":"scsi","scsi":{"log_pages":{"0x0d":"0d00000c00000200000000010002003c"}}})");
	EXPECT_EQ(VEXODiskTemperatureGet("/dev/sda"), 0);
	LogCapture log;
	node("sda", R"({"protocol":"scsi","scsi":{"log_pages":{"0x0d":"4e00000c00000200000000010002003c"}}})");
	EXPECT_EQ(VEXODiskTemperatureGet("/dev/sda"), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "Invaild SMART log page: 4e")) << log.dump();
	node("sda", R"({"protocol":"scsi","scsi":{"log_pages":{"0x0d":"0d00000c000002000000d2010002003c"}}})");
	EXPECT_EQ(VEXODiskTemperatureGet("/dev/sda"), 0); // 210
	node("sda", R"({"protocol":"scsi","faults":{"log_sense":{"errno":"EIO"}}})");
	EXPECT_EQ(VEXODiskTemperatureGet("/dev/sda"), -1);
}

TEST_F(Temperature, NvmeHealthLog)
{
	DiskLayout(root).nvme("nvme0n1", "0000:00:01.0");
	node("nvme0n1", R"({"protocol":"nvme","serial":"22514D800394","temperature":38})");
	EXPECT_EQ(VEXODiskTemperatureGet("/dev/nvme0n1"), 38);
	expectSent("nvme0n1", {"NVME_ADMIN opcode=0x02*cdw10=0x007f0002*data_len=512*-> ok"}); // SMART / Health log
	node("nvme0n1", R"({"protocol":"nvme","serial":"22514D800394","temperature":201})");
	EXPECT_EQ(VEXODiskTemperatureGet("/dev/nvme0n1"), 0);
	node("nvme0n1", R"({"protocol":"nvme","faults":{"nvme_get_log_page":{"errno":"EIO"}}})");
	EXPECT_EQ(VEXODiskTemperatureGet("/dev/nvme0n1"), -1);
	EXPECT_TRUE(runs("sg_raw").empty());
}

TEST_F(Temperature, CliNamesTheSource)
{
	using testing::HasSubstr;
	EXPECT_THAT(cli({"--json", "smart", "temp", "sda"}),
		    HasSubstr("\"temperature_c\": 41,\n  \"source\": \"smart_data\""));
	sctFlag(1);
	EXPECT_THAT(cli({"smart", "temp", "/dev/sda"}), HasSubstr("sct_status_log"));
	debugTemperature("77");
	EXPECT_THAT(cli({"--json", "smart", "temp", "sda"}),
		    HasSubstr("\"temperature_c\": 77,\n  \"source\": \"debug_override\""));
	sysfs("sda", "ATA", "VEXO HAT5300-8T", true, "offline");
	EXPECT_THAT(cli({"--json", "smart", "temp", "sda"}),
		    HasSubstr("\"temperature_c\": null,\n  \"source\": \"not_running\""));
	DiskLayout(root).nvme("nvme0n1", "0000:00:01.0");
	node("nvme0n1", R"({"protocol":"nvme","temperature":38})");
	EXPECT_THAT(cli({"smart", "temp", "nvme0n1"}), HasSubstr("nvme_health_log"));
	EXPECT_THAT(cli({"--json", "disk", "serial", "sda"}),
		    HasSubstr("\"serial\": \"ZL2K4T7C\",\n  \"firmware\": \"VX01\""));
}

TEST_F(Temperature, FromCache)
{
	EXPECT_EQ(VEXODiskTemperatureGetFromCache("sda"), -1);
	EXPECT_ERR(0x0900);
	root.write("/run/vexostorage/disks/sda/temperature", "43\nstale");
	EXPECT_EQ(VEXODiskTemperatureGetFromCache("sda"), 43);
	EXPECT_EQ(VEXODiskTemperatureGetFromCache("/dev/sda"), 43);
	root.write("/run/vexostorage/disks/sda/temperature", "");
	EXPECT_EQ(VEXODiskTemperatureGetFromCache("sda"), -1);
	EXPECT_ERR(0x0A00);
	EXPECT_EQ(VEXODiskTemperatureGetFromCache(nullptr), -1);
}

// Debug overrides of a SMART attribute list: the override section is named
// by the drive's true serial, which the emulated drive answers.
class SmartInfoOverride : public SimDisk {
protected:
	void SetUp() override
	{
		SimDisk::SetUp();
		ASSERT_TRUE(kBackend);
		root.write("/usr/bin/smartctl",
			   "#!/bin/sh\ncat <<'EOF'\n"
			   "ID# ATTRIBUTE_NAME          FLAG     VALUE WORST THRESH TYPE      UPDATED  WHEN_FAILED RAW_VALUE\n"
			   "  1 Raw_Read_Error_Rate     0x000b   100   100   016    Pre-fail  Always       -       0\n"
			   "  5 Reallocated_Sector_Ct   0x0033   100   100   005    Pre-fail  Always       -       0\n"
			   "194 Temperature_Celsius     0x0002   181   181   000    Old_age   Always       -       33 (Min/Max 17/49)\n"
			   "\nEOF\n",
			   0755);
	}
};

TEST_F(SmartInfoOverride, FieldsRowsAndGates)
{
	// The override fails attribute 5 now with 8 bad sectors and shows 45 as 194's value.
	const std::string r1 = "1 Raw_Read_Error_Rate 100 100 016 0 0", r5 = "5 Reallocated_Sector_Ct 100 100 120 8 2",
			  r194 = "194 Temperature_Celsius 45 181 000 33 0";
	const std::vector<std::string> untouched = {r1, "5 Reallocated_Sector_Ct 100 100 005 0 0",
						    "194 Temperature_Celsius 181 181 000 33 0"};
	const struct {
		bool gate;
		const char *type, *section;
		std::vector<std::string> want;
	} cases[] = {
		{true, nullptr, "ZL2K4T7C", {r1, r5, r194}}, // SKIP keeps the drive's field
		{true, "REMOVE_NOT_IN_LIST", "ZL2K4T7C", {r5, r194}},
		{true, "remove_not_in_list", "ZL2K4T7C", {r1, r5, r194}}, // another word keeps every row
		{false, "REMOVE_NOT_IN_LIST", "ZL2K4T7C", untouched},
		{true, "REMOVE_NOT_IN_LIST", "OTHER", untouched}, // another drive's section drops nothing
	};
	for (const auto &c : cases) {
		SCOPED_TRACE(std::string(c.gate ? "gate " : "no gate ") + (c.type ? c.type : "") + " " + c.section);
		std::vector<std::pair<std::string, std::string>> keys;
		if (c.gate)
			keys.emplace_back("support_disk_status_debug", "yes");
		if (c.type)
			keys.emplace_back("smart_attr_debug_type", c.type);
		product(keys);
		root.write("/tmp/.disk_status_debug", std::string("[") + c.section +
							     "]\nsmart_info=\"#5, SKIP, SKIP, 120, 8;#194, 45, SKIP, SKIP, SKIP\"\n");
		ListGuard g;
		ASSERT_EQ(AtaSmartInfoGet("/dev/sda", "ata", &g.l), 0);
		EXPECT_EQ(rows(g.l), c.want);
	}
}

// Self-test records read from emulated drives: which commands reach the
// drive, the status and weight, the fallback files, and closing the record
// of a finished test (keys, event row, concurrency between processes).
class SelfTestLog : public SimDisk {
protected:
	void SetUp() override
	{
		SimDisk::SetUp();
		ports(false);
		selfTests("sda", "ZL2K4T7C", "[]");
	}
	// Its drive with a self-test history (newest first) and extra raw logs.
	void selfTests(const std::string &name, const std::string &serial, const std::string &tests,
		       const std::string &logs = "")
	{
		node(name, R"({"protocol":"ata","model":"VEXO HAT5300-8T","serial":")" + serial +
				   R"(","firmware":"SC60","size_bytes":8001563222016,"self_tests":)" + tests +
				   (logs.empty() ? "" : R"(,"logs":)" + logs) + "}");
	}
	// "extend=E quick=Q latest=TYPE/RESULT" of a log read, or "rc=N".
	std::string results(const char *path = "/dev/sda", SmartTestLog *out = nullptr)
	{
		SmartTestLog l{};
		int rc = SMARTSelfTestLogRead(path, &l);
		if (out)
			*out = l;
		return rc ? "rc=" + std::to_string(rc)
			  : "extend=" + std::to_string(l.extendResult) + " quick=" + std::to_string(l.quickResult) +
				    " latest=" + std::to_string(l.latestType) + "/" + std::to_string(l.latestResult);
	}
	void kind(int k, const char *name = "sda") { ASSERT_EQ(VEXODiskUpdateIntValueCacheFile(name, "smart_selftest_log_type", k), 0); }
	std::string kv(const char *file, const std::string &key)
	{
		char v[64] = {};
		return VLIBCFileGetKeyValue(file, key.c_str(), v, sizeof(v), 0) > 0 ? v : "";
	}
};

TEST_F(SelfTestLog, StandardLogStatusAndWeight)
{
	ASSERT_TRUE(kBackend);
	struct Row {
		const char *tests;
		unsigned latest;
		int status, weight;
	} rows[] = {
		{R"([{"type":1,"status":64},{"type":2,"status":0}])", 7, 1, 0},  // a damaged quick test alone
		{R"([{"type":1,"status":64},{"type":2,"status":112}])", 4, 3, 601},
		{R"([{"type":2,"status":33},{"type":1,"status":64}])", 3, 1, 0},
		{"[]", 6, 1, 0},
	};
	for (const Row &r : rows) {
		selfTests("sda", "ZL2K4T7C", r.tests);
		kind(1);
		SmartTestLog log{};
		ASSERT_EQ(SMARTSelfTestLogRead("/dev/sda", &log), 0) << r.tests;
		EXPECT_EQ(log.latestResult, r.latest) << r.tests;
		clearCommands("sda");
		int weight = 0;
		char progress[8] = "x";
		EXPECT_EQ(SmartTestStatusGet("/dev/sda", progress, sizeof(progress), &weight), r.status) << r.tests;
		EXPECT_EQ(weight, r.weight);
		EXPECT_STREQ(progress, "x"); // no test runs
		EXPECT_EQ(commands("sda").size(), 2u); // SMART READ DATA, SMART READ LOG 6
	}
	EXPECT_EQ(SMARTIsSelftesting("/dev/sda"), 0);
}

TEST_F(SelfTestLog, ExtendedLogOfTenPages)
{
	// Newest is entry 149 (page 7): extended completed; before it a quick
	// test ended in damage.
	std::vector<uint8_t> log7(10 * 512, 0);
	log7[0] = 1, log7[2] = 150;
	auto at = [](size_t u) { return (u / 19) * 512 + 4 + (u % 19) * 26; };
	log7[at(149)] = 2, log7[at(149) + 2] = 1;
	log7[at(148)] = 1, log7[at(148) + 1] = 0x30;
	selfTests("sda", "ZL2K4T7C", "[]", R"({"0x07":")" + hexOf(std::string(log7.begin(), log7.end())) + R"("})");
	kind(2);
	clearCommands("sda");
	EXPECT_EQ(results(), "extend=1 quick=4 latest=2/1");
	// values, log directory, extended directory, then all ten pages at once
	EXPECT_EQ(commands("sda").size(), 4u);
	EXPECT_EQ(countOf("sda", "cdb=85080e0000000a000700000000002f00 -> ok"), 1);
}

TEST_F(SelfTestLog, ScsiResultsAndControlModePages)
{
	ports(true);
	node("sda", R"({"protocol":"scsi","serial":"SX00001234","smart":{"extended_test_minutes":120},
	     "self_tests":[{"type":2,"status":64},{"type":1,"status":0}]})");
	SmartTestLog log{};
	EXPECT_EQ(results("/dev/sda", &log), "extend=4 quick=1 latest=2/4");
	EXPECT_STREQ(log.extendMinutes, "120");
	EXPECT_STREQ(log.quickMinutes, "2");
	int weight = 0;
	EXPECT_EQ(SmartTestStatusGet("/dev/sda", nullptr, 0, &weight), SMART_TEST_STATUS_FAIL);
	EXPECT_EQ(weight, 601);

	// SEND DIAGNOSTIC, background short self-test
	uint8_t cdb[6] = {0x1D, 1 << 5, 0, 0, 0, 0}, sense[32] = {};
	sg_io_hdr_t h{};
	h.interface_id = 'S', h.cmd_len = 6, h.cmdp = cdb, h.mx_sb_len = sizeof(sense), h.sbp = sense;
	h.dxfer_direction = SG_DXFER_NONE, h.timeout = 30000;
	ASSERT_EQ(vexo::dev::ioctl(open("sda"), SG_IO, &h), 0);
	ASSERT_EQ(h.status, 0);
	char progress[8] = {};
	EXPECT_EQ(SmartTestStatusGet("/dev/sda", progress, sizeof(progress), &weight), SMART_TEST_STATUS_FAIL);
	EXPECT_STREQ(progress, "-1");
	EXPECT_EQ(SMARTIsSelftesting("/dev/sda"), 1);
}

TEST_F(SelfTestLog, NvmeLogSupportAndAVanishedDisk)
{
	node("nvme0n1", R"({"protocol":"nvme","model":"WD Red SN700 500GB","serial":"22514D800394","firmware":"111150WD",
	     "nvme":{"vid":5559,"ssvid":5559,"extended_test_minutes":25,
	     "self_tests":[{"type":2,"result":7},{"type":1,"result":0},{"type":2,"result":6}]}})");
	SmartTestLog log{};
	EXPECT_EQ(results("/dev/nvme0n1", &log), "extend=4 quick=1 latest=2/4");
	EXPECT_EQ(log.currentResult, 1u);
	EXPECT_EQ(log.extendDamagedBefore, 1);
	EXPECT_STREQ(log.extendMinutes, "25");
	EXPECT_EQ(SMARTIsSelftesting("/dev/nvme0n1"), 0);
	EXPECT_EQ(VEXODiskSmartTestSupport("/dev/nvme0n1"), 0); // not one of the maker's own drives

	EXPECT_EQ(VEXODiskSmartTestSupport("/dev/sda"), 1);
	root.write("/var/lib/diskaction/diskaction.xml",
		   R"(<diskaction><disk model="VEXO HAT5300-8T" action="0x2000000"/></diskaction>)");
	EXPECT_EQ(VEXODiskSmartTestSupport("/dev/sda"), 0);
	EXPECT_EQ(VEXODiskSmartTestSupportCache("/dev/sda"), 0);
	EXPECT_EQ(root.read("/run/vexostorage/disks/sda/smart_test_support"), "0");

	kind(1);
	root.remove("/dev/sda"); // the disk is gone
	EXPECT_EQ(SMARTSelfTestLogRead("/dev/sda", &log), -1);
	int weight = 0;
	EXPECT_EQ(SmartTestStatusGet("/dev/sda", nullptr, 0, &weight), SMART_TEST_STATUS_UNKNOWN);
	EXPECT_EQ(weight, 0);
	EXPECT_EQ(SMARTIsSelftesting("/dev/sda"), 0);
}

TEST_F(SelfTestLog, FallbackFilesDecideTheLatest)
{
	kind(0);
	ASSERT_EQ(VEXODiskUpdateStrValueCacheFile("sda", "serial", "ZL2K4T7C"), 0);
	root.write("/run/vexostorage/disks/sda/smart_testing", ""); // no test runs
	root.write("/var/log/smart_quick_log", "ZL2K4T7C_STATUS=\"4\"\nZL2K4T7C_TIME=\"200\"\n");
	root.write("/var/log/smart_extend_log", "ZL2K4T7C_STATUS=\"1\"\nZL2K4T7C_TIME=\"100\"\n");
	EXPECT_EQ(results(), "extend=1 quick=4 latest=1/7");
}

TEST_F(SelfTestLog, StopRecordsTheFinishedTestAndPagesTheDatabase)
{
	selfTests("sda", "ZL2K4T7C", R"([{"type":2,"status":0}])");
	kind(1);
	root.write("/usr/vexo/bin/vexo_smart_test", "#!/bin/sh\necho \"$*\" > \"$VEXO_SYSROOT/tmp/stop.args\"\n", 0755);
	root.mkdirs("/tmp");
	ASSERT_EQ(VEXODiskUpdateStrValueCacheFile("sda", "smart_testing", "extend"), 0);
	root.write("/var/log/smart_extend_log", "ZL2K4T7C_TIME_NEW=\"1700000000\"\nZL2K4T7C_STATUS_NEW=\"5\"\n");
	ASSERT_EQ(VEXODiskSmartTestStop("/dev/sda"), 0);
	EXPECT_EQ(root.read("/tmp/stop.args"), "--type stop --disk sel /dev/sda\n");
	EXPECT_EQ(kv(SMART_TEST_EXTEND_LOG, "ZL2K4T7C_STATUS"), "1");
	EXPECT_EQ(kv(SMART_TEST_EXTEND_LOG, "ZL2K4T7C_TIME"), "1700000000");
	EXPECT_EQ(kv(SMART_TEST_EXTEND_LOG, "ZL2K4T7C_STATUS_NEW"), "");
	EXPECT_EQ(root.read("/run/vexostorage/disks/sda/smart_testing"), "");
	EXPECT_EQ(SmartTestResultRecord("sda"), -1); // nothing left to record

	for (int t = 1; t <= 4; ++t)
		ASSERT_EQ(VLIBLogSetByVA("disk_test", 1, "m", "ZL2K4T7C", "/dev/sda", std::to_string(t).c_str(),
					 t == 2 ? "ihm" : "smart", "quick", static_cast<const char *>(nullptr)), 0);
	ASSERT_EQ(VLIBLogSetByVA("disk_test", 4, "m", "OTHER", "/dev/sdb", "9", "smart", "quick",
				 static_cast<const char *>(nullptr)), 0);
	DiskTestLog *list = nullptr;
	ASSERT_EQ(VEXODiskTestLogGet("/dev/sda", "smart", 2, 0, &list), 4);
	ASSERT_TRUE(list && list->next && !list->next->next);
	EXPECT_STREQ(list->testType, "extend"); // the stopped test is the newest
	EXPECT_STREQ(list->message, "1");
	DiskTestLogFree(list);
	ASSERT_EQ(VEXODiskTestLogGet("/dev/sda", nullptr, 10, 4, &list), 5);
	ASSERT_TRUE(list && !list->next);
	EXPECT_STREQ(list->type, "smart");
	DiskTestLogFree(list);
}

TEST_F(SelfTestLog, TwoProcessesRecordingLoseNoKey)
{
	selfTests("sda", "ZL2K4T7C", R"([{"type":1,"status":0}])");
	DiskLayout(root).sata("sdb", 2);
	sysfs("sdb", "ATA", "VEXO HAT5300-8T", true);
	root.diskDir("sdb");
	selfTests("sdb", "ZL2K0002", R"([{"type":1,"status":0}])");
	kind(1);
	kind(1, "sdb");
	root.mkdirs("/run/lock");
	constexpr int kRounds = 25;
	pid_t kids[2];
	const char *names[2] = {"sda", "sdb"}, *serials[2] = {"ZL2K4T7C", "ZL2K0002"};
	for (int k = 0; k < 2; ++k) {
		kids[k] = fork();
		ASSERT_GE(kids[k], 0);
		if (kids[k] == 0) {
			int bad = 0;
			for (int i = 1; i <= kRounds; ++i) {
				// the tool's own writes take the same lock
				int fd = ::open(root.host(SMART_TEST_QUICK_LOCK).c_str(), O_RDWR | O_CREAT, 0644);
				lockf(fd, F_LOCK, 0);
				VLIBCFileSetKeyValue(SMART_TEST_QUICK_LOG, (std::string(serials[k]) + "_TIME_NEW").c_str(),
						     std::to_string(i).c_str(), nullptr);
				VLIBCFileSetKeyValue(SMART_TEST_QUICK_LOG, (std::string(serials[k]) + "_STATUS_NEW").c_str(), "5", nullptr);
				::close(fd);
				VEXODiskUpdateStrValueCacheFile(names[k], "smart_testing", "quick");
				bad += SmartTestResultRecord(names[k]) != 0;
			}
			_exit(bad);
		}
	}
	for (pid_t p : kids) {
		int st = 0;
		ASSERT_EQ(waitpid(p, &st, 0), p);
		EXPECT_TRUE(WIFEXITED(st) && WEXITSTATUS(st) == 0);
	}
	for (const char *s : serials) {
		EXPECT_EQ(kv(SMART_TEST_QUICK_LOG, std::string(s) + "_TIME"), std::to_string(kRounds)) << s;
		EXPECT_EQ(kv(SMART_TEST_QUICK_LOG, std::string(s) + "_STATUS"), "1") << s;
		EXPECT_EQ(kv(SMART_TEST_QUICK_LOG, std::string(s) + "_TIME_NEW"), "") << s;
	}
}

} // namespace
