// The drive command interfaces against the drive emulator: the exact bytes
// each command puts on the wire, the sg_io_hdr around them, what comes back,
// which refusals are logged; interface selection, the driver probes and the
// calls built on the interfaces.
#include <cstring>
#include <syslog.h>
#include <vexohw/disk_port.h>
#include <vexohw/disk_probe.h>
#include <vexohw/smartctl.h>

#include "smartctl/drive_sim.h"

using namespace vexo::test;

namespace {

const bool kBackend = installDriveEmulator();

std::string ataStr(const unsigned char *page, int word, int words)
{
	std::string s;
	for (int i = 0; i < words * 2; ++i)
		s += static_cast<char>(page[word * 2 + (i ^ 1)]);
	return s.substr(0, s.find_last_not_of(' ') + 1);
}

// An SG_IO line of the drive's log: the 16-byte pass-through CDBs have 20
// seconds, the SCSI ones 30.
std::string sgio(int direction, int length, const std::string &cdb, const std::string &rest)
{
	return "SG_IO interface_id=S dxfer_direction=" + std::to_string(direction) + " cmd_len=" +
	       std::to_string(cdb.size() / 2) + " mx_sb_len=32 dxfer_len=" + std::to_string(length) +
	       " timeout=" + (cdb.size() == 32 ? "20000" : "30000") + " cdb=" + cdb + rest;
}

class AtaPath : public DriveSim {
protected:
	void SetUp() override
	{
		DriveSim::SetUp();
		ASSERT_TRUE(kBackend);
		node("sda", kAtaNode);
		fd = open("sda");
		ASSERT_GE(fd, 0);
	}
	int fd = -1;
};

TEST_F(AtaPath, CommandBytesOnBothInterfaces)
{
	// The HDIO_DRIVE_CMD header (command, sector number, features, sector
	// count); the SAT pass-through's direction, length and CDB.
	const struct {
		unsigned cmd;
		const char *hdr;
		int dir, len;
		const char *cdb;
	} rows[] = {
		{CMD_SMART_ENABLE, "b001d800", -1, 0, "85060c00d800000001004f00c200b000"},
		{CMD_SMART_READ_VALUES, "b000d001", -3, 512, "85080e00d000010000004f00c200b000"},
		{CMD_SMART_READ_THRESHOLDS, "b001d101", -3, 512, "85080e00d100010001004f00c200b000"},
		{CMD_SMART_READ_SELFTEST_LOG, "b006d501", -3, 512, "85080e00d500010006004f00c200b000"},
		{CMD_CHECK_POWER_MODE, "e5000000", -1, 0, "85062c0000000000000000000000e500"},
		{CMD_IDENTIFY, "ec000001", -3, 512, "85080e0000000100000000000000ec00"},
		{CMD_SMART_READ_LOG_DIRECTORY, "b000d501", -3, 512, "85080e00d500010000004f00c200b000"},
		{CMD_STANDBY_IMMEDIATE, "e0000000", -1, 0, "85060c0000000000000000000000e000"},
	};
	for (const auto &r : rows) {
		SCOPED_TRACE(r.cdb);
		unsigned char page[512], sat[512];
		std::memset(page, 0xEE, sizeof(page));
		std::memset(sat, 0xEE, sizeof(sat));
		EXPECT_EQ(ata_command_interface(fd, r.cmd, page), 0);
		// IDENTIFY asks the kernel's cached identity first.
		std::vector<std::string> sent{std::string("HDIO_DRIVE_CMD args=") + r.hdr + " -> ok"};
		if (r.cmd == CMD_IDENTIFY)
			sent.insert(sent.begin(), "HDIO_GET_IDENTITY -> ok");
		expectSent("sda", sent);
		EXPECT_EQ(sat_command_interface(fd, r.cmd, sat), 0);
		expectSent("sda", {sgio(r.dir, r.len, r.cdb, " -> ok")});
		// Every page but the log directory carries a checksum.
		if (r.len && r.cmd != CMD_SMART_READ_LOG_DIRECTORY) {
			EXPECT_EQ(VEXOSmartChecksum(page), 0);
			EXPECT_EQ(VEXOSmartChecksum(sat), 0);
		}
		if (r.cmd == CMD_IDENTIFY) {
			EXPECT_EQ(ataStr(page, 27, 20), "VEXO HAT5300-8T");
		}
		if (r.cmd == CMD_CHECK_POWER_MODE) {
			EXPECT_EQ(page[0], 0xFF); // active
		}
		if (r.cmd == CMD_CHECK_POWER_MODE || r.cmd == CMD_SMART_ENABLE) {
			EXPECT_EQ(page[1], 0xEE); // at most one byte written
		}
	}
	// The rows end with STANDBY IMMEDIATE.
	unsigned char b = 0x11;
	ASSERT_EQ(ata_command_interface(fd, CMD_CHECK_POWER_MODE, &b), 0);
	EXPECT_EQ(b, 0x00);
}

TEST_F(AtaPath, SilentRefusalsAndFailures)
{
	LogCapture log;
	unsigned char page[512];
	for (unsigned cmd : {5u, 10u, 27u, 29u, 1000u})
		EXPECT_EQ(ata_command_interface(fd, cmd, page), -1) << cmd;
	EXPECT_EQ(log.count(-1), 0) << log.dump();

	// Flushing (EINVAL counts as done, EIO fails) is checked through VEXOIDiskFlushBuffer.
	node("sda", R"({"protocol":"ata","faults":{"smart_read_values":{"abort":true}}})");
	std::memset(page, 0x33, sizeof(page));
	EXPECT_EQ(ata_command_interface(fd, CMD_SMART_READ_VALUES, page), -1);
	EXPECT_ERR(0x6C00);
	EXPECT_EQ(page[0], 0x33); // nothing copied on failure
}

TEST_F(AtaPath, PacketDeviceSwapsTheIdentifyCommands)
{
	// A disk aborts IDENTIFY PACKET DEVICE.
	unsigned char page[512];
	EXPECT_EQ(ata_command_interface(fd, CMD_PACKET_IDENTIFY, page), -1);
	expectSent("sda", {"HDIO_GET_IDENTITY -> ok", "HDIO_DRIVE_CMD args=a1000001 -> errno 5"});
	node("sda", R"({"protocol":"ata","model":"VEXO OPTICAL","packet":true})");
	EXPECT_EQ(ata_command_interface(fd, CMD_IDENTIFY, page), 0);
	expectSent("sda", {"HDIO_GET_IDENTITY -> ok", "HDIO_DRIVE_CMD args=a1000001 -> ok"});
	EXPECT_EQ(page[1] & 0x80, 0x80);
	// 8 on a packet device goes out as plain IDENTIFY, which it aborts.
	EXPECT_EQ(ata_command_interface(fd, CMD_PACKET_IDENTIFY, page), -1);
	expectSent("sda", {"HDIO_GET_IDENTITY -> ok", "HDIO_DRIVE_CMD args=ec000001 -> errno 5"});
	// Unless the identity query fails: then the requested command goes out.
	node("sda", R"({"protocol":"ata","packet":true,"faults":{"get_identity":{"errno":"EIO"}}})");
	EXPECT_EQ(ata_command_interface(fd, CMD_PACKET_IDENTIFY, page), 0);
	expectSent("sda", {"HDIO_GET_IDENTITY -> errno 5", "HDIO_DRIVE_CMD args=a1000001 -> ok"});
}

class SatPath : public AtaPath {};

TEST_F(SatPath, PacketAbortAndClearedBuffer)
{
	// The packet variant: a non-packet drive aborts it with sense, which is not a failure.
	unsigned char page[512];
	EXPECT_EQ(sat_command_interface(fd, CMD_PACKET_IDENTIFY, page), 0);
	expectSent("sda", {sgio(-3, 512, "85080e0000000100000000000000a100", " -> abort")});

	// The data-in buffer is cleared before the command.
	node("sda", R"({"protocol":"ata","faults":{"smart_read_values":{"abort":true}}})");
	std::memset(page, 0x77, sizeof(page));
	EXPECT_EQ(sat_command_interface(fd, CMD_SMART_READ_VALUES, page), 0);
	for (unsigned char c : page)
		ASSERT_EQ(c, 0);
}

// The power mode is byte 13 of the sense, taken only when the sense was written.
TEST_F(SatPath, CheckPowerModeFromSenseOnlyWhenWritten)
{
	unsigned char b = 0x42;
	ASSERT_EQ(sat_command_interface(fd, CMD_STANDBY_IMMEDIATE, nullptr), 0);
	ASSERT_EQ(sat_command_interface(fd, CMD_CHECK_POWER_MODE, &b), 0);
	EXPECT_EQ(b, 0x00);
	expectSent("sda", {"SG_IO*cdb=85060c0000000000000000000000e000 -> ok",
			   "SG_IO*cdb=85062c0000000000000000000000e500 -> ok*sb_len_wr=22"});
	// A bridge that drops the return descriptor: the byte keeps its value.
	node("sda", R"({"protocol":"ata","power_state":"idle","faults":{"check_power_mode":{"no_sense":true}}})");
	b = 0x42;
	ASSERT_EQ(sat_command_interface(fd, CMD_CHECK_POWER_MODE, &b), 0);
	EXPECT_EQ(b, 0x42);
	expectSent("sda", {"SG_IO*cdb=85062c0000000000000000000000e500 -> ok*sb_len_wr=0"});
}

TEST_F(SatPath, FlushIsImmediateAndRefusalsAreLogged)
{
	LogCapture log;
	EXPECT_EQ(sat_command_interface(fd, CMD_DRIVE_FLUSH, nullptr), 0);
	unsigned char b = 0;
	EXPECT_EQ(sat_command_interface(fd, CMD_IDLE, &b), -1);
	EXPECT_EQ(sat_command_interface(fd, SCSI_INQUIRY, &b), -1);
	expectSent("sda", {});
	EXPECT_EQ(log.count(LOG_ERR, "smartctl/sat_command_interface:"), 2);
	EXPECT_TRUE(log.has(LOG_ERR, " unknown command:5 ")) << log.dump();
	EXPECT_TRUE(log.has(LOG_ERR, " unknown command:10 "));

	node("sda", R"({"protocol":"ata","faults":{"standby":{"errno":"EIO"}}})");
	EXPECT_EQ(sat_command_interface(fd, CMD_STANDBY_IMMEDIATE, nullptr), -1);
	EXPECT_TRUE(log.has(LOG_ERR, " sat ioctl HDIO_DRIVE_CMD error ")) << log.dump();
}

TEST_F(SatPath, RawLogWriteThenRead)
{
	unsigned char sector[512];
	for (int i = 0; i < 512; ++i)
		sector[i] = static_cast<unsigned char>(i * 7);
	EXPECT_EQ(SMARTWriteLog(fd, 0xD6, 0x80, sector, 513), -1);
	EXPECT_EQ(SMARTWriteLog(fd, 0xD6, 0x80, sector, 512), 0);
	EXPECT_EQ(SMARTWriteLog(fd, 0xD6, 0x81, "abc", 3), 0); // zero-padded to a whole sector
	expectSent("sda", {sgio(-2, 512, "850a0600d600010080004f00c200b000", " data=00070e15"),
			   sgio(-2, 512, "850a0600d600010081004f00c200b000", " data=61626300")});

	unsigned char back[1024];
	std::memset(back, 0xEE, sizeof(back));
	EXPECT_EQ(SMARTReadLogExt(fd, 0, 1, 0x80, 0, back), 0);
	expectSent("sda", {sgio(-3, 512, "85080e00000001008000000000002f00", " -> ok")});
	EXPECT_EQ(std::memcmp(back, sector, 512), 0);
	EXPECT_EQ(back[512], 0xEE);
	EXPECT_EQ(SMARTReadLogExt(fd, 0, 1, 0x81, 0, back), 0);
	EXPECT_EQ(std::memcmp(back, "abc\0\0", 5), 0);
	EXPECT_EQ(back[511], 0);
	EXPECT_EQ(SMARTReadLogExt(fd, 0, 1, 0x80, 0, nullptr), -1);

	LogCapture log;
	node("sda", R"({"protocol":"ata","faults":{"read_log_ext":{"errno":"EIO"},"smart_write_log":{"errno":"EIO"}}})");
	EXPECT_EQ(SMARTReadLogExt(fd, 0, 1, 7, 0, back), -1);
	EXPECT_EQ(SMARTWriteLog(fd, 0xD6, 0x80, back, 1), -1);
	EXPECT_TRUE(log.has(LOG_ERR, " sat read log ext failed"));
	EXPECT_TRUE(log.has(LOG_ERR, " sat smart write log failed"));
}

class ScsiPath : public DriveSim {
protected:
	void SetUp() override
	{
		DriveSim::SetUp();
		node("sdb", kScsiNode);
		fd = open("sdb");
		ASSERT_GE(fd, 0);
	}
	int fd = -1;
};

TEST_F(ScsiPath, CdbsDirectionsAndLengths)
{
	const struct {
		unsigned cmd;
		int dir, len;
		const char *cdb;
	} rows[] = {
		{10, -3, 36, "12000000240000000000"},  {11, -3, 252, "12018000fc0000000000"},
		{12, -3, 512, "4d004300000000004000"}, {13, -3, 512, "4d004200000000003800"},
		{14, -3, 512, "4d004500000000004000"}, {15, -3, 512, "4d004d00000000001000"},
		{16, -3, 512, "4d005500000000001400"}, {17, -3, 512, "4d005000000000019400"},
		{18, -3, 260, "4d004f00000000010400"}, {21, -3, 512, "1a001c00400000000000"},
		{22, -3, 512, "1a005c00400000000000"}, {23, -3, 512, "1a000a00400000000000"},
		{24, -3, 512, "03000000120000000000"}, {26, -1, 0, "35000000000000000000"},
		{27, -1, 0, "00000000000000000000"},
	};
	for (const auto &r : rows) {
		unsigned char buf[512] = {};
		EXPECT_EQ(sas_command_interface(fd, r.cmd, buf), 0) << r.cmd;
		expectSent("sdb", {sgio(r.dir, r.len, r.cdb, " -> ok status=0x00")});
	}

	// The serial page's length byte is cleared before the call.
	unsigned char vpd[252];
	EXPECT_EQ(sas_command_interface(fd, SCSI_INQUIRY_SERIAL, vpd), 0);
	EXPECT_EQ(std::string(reinterpret_cast<char *>(vpd) + 4, vpd[3]), "SX00001234");
	node("sdb", R"({"protocol":"scsi","faults":{"inquiry":{"errno":"EIO"}}})");
	std::memset(vpd, 0x99, sizeof(vpd));
	EXPECT_EQ(sas_command_interface(fd, SCSI_INQUIRY_SERIAL, vpd), -1);
	EXPECT_EQ(vpd[1], 0);
}

TEST_F(ScsiPath, DataOutCommandsAndStartStop)
{
	unsigned char page[260] = {0x0F, 0, 0x01, 0x00, 0x00, 0x00, 0x03, 0xFC, 'h', 'i'};
	EXPECT_EQ(sas_command_interface(fd, SCSI_LOG_SELECT_APPLICATION_CLIENT, page), 0);
	expectSent("sdb", {sgio(-2, 260, "4c014000000000010400", " data=0f000100000003fc6869")});
	unsigned char back[260] = {};
	EXPECT_EQ(sas_command_interface(fd, SCSI_LOG_APPLICATION_CLIENT, back), 0);
	EXPECT_EQ(back[9], 'i');
	const std::string startStop = "SG_IO interface_id=S dxfer_direction=-1 cmd_len=10 mx_sb_len=32 dxfer_len=0 "
				      "timeout=30000 cdb=1b0100000";

	unsigned char start = 0xFE; // only bit 0 goes out
	EXPECT_EQ(sas_command_interface(fd, SCSI_START_STOP, &start), 0);
	unsigned char status = 0x55;
	EXPECT_EQ(sas_command_interface(fd, SCSI_TEST_UNIT_READY, &status), 0);
	EXPECT_EQ(status, 0x02); // stopped: CHECK CONDITION, still success
	start = 0x01;
	EXPECT_EQ(sas_command_interface(fd, SCSI_START_STOP, &start), 0);
	EXPECT_EQ(sas_command_interface(fd, SCSI_START_STOP, nullptr), 0);
	expectSent("sdb", {"SG_IO*cdb=4d004f00000000010400 -> ok", startStop + "00000000000 -> ok",
			   "SG_IO*cdb=00000000000000000000 -> check 02/04/02", startStop + "10000000000 -> ok",
			   startStop + "00000000000 -> ok"});
}

TEST_F(ScsiPath, RefusalsAreLogged)
{
	LogCapture log;
	unsigned char buf[512];
	for (unsigned cmd : {0u, 9u, 28u, 29u})
		EXPECT_EQ(sas_command_interface(fd, cmd, buf), -1);
	expectSent("sdb", {});
	EXPECT_TRUE(log.has(LOG_ERR, " sas_command_interface unknown command:9"));
	EXPECT_EQ(log.count(LOG_ERR, "sas_command_interface unknown command:"), 4);
	node("sdb", R"({"protocol":"scsi","faults":{"log_sense":{"errno":"EIO"}}})");
	EXPECT_EQ(sas_command_interface(fd, SCSI_LOG_TEMPERATURE, buf), -1);
	EXPECT_TRUE(log.has(LOG_ERR, " ioctl SG_IO failed. command:15"));
	// An unsupported page is a CHECK CONDITION, which the interface doesn't judge.
	node("sdb", R"({"protocol":"scsi","scsi":{"log_pages":{}}})");
	EXPECT_EQ(sas_command_interface(fd, SCSI_LOG_TEMPERATURE, buf), 0);
}

class MarvellPath : public AtaPath {};

TEST_F(MarvellPath, RecordBytesAndAnswers)
{
	unsigned char page[512];
	EXPECT_EQ(marvell_command_interface(fd, CMD_IDENTIFY, page), 0);
	expectSent("sda", {"SCSI_IOCTL_SEND_COMMAND inlen=540 outlen=540 area=0c0000000600ec000001000000000000 -> ok"});
	EXPECT_EQ(ataStr(page, 27, 20), "VEXO HAT5300-8T");
	EXPECT_EQ(marvell_command_interface(fd, CMD_SMART_READ_THRESHOLDS, page), 0);
	expectSent("sda", {"SCSI_IOCTL_SEND_COMMAND inlen=540 outlen=540 area=0c0000000600b001d101000000000000 -> ok"});
	unsigned char idle = 0x2A;
	EXPECT_EQ(marvell_command_interface(fd, CMD_IDLE, &idle), 0);
	expectSent("sda", {"SCSI_IOCTL_SEND_COMMAND inlen=540 outlen=540 area=0c0000000600e300002a000000000000 -> ok"});
	unsigned char b = 0x11;
	EXPECT_EQ(marvell_command_interface(fd, CMD_CHECK_POWER_MODE, &b), 0);
	EXPECT_EQ(b, 0x80);
	EXPECT_EQ(marvell_command_interface(fd, CMD_STANDBY_IMMEDIATE, nullptr), 0);
	EXPECT_EQ(marvell_command_interface(fd, CMD_CHECK_POWER_MODE, &b), 0);
	EXPECT_EQ(b, 0x00);
}

TEST_F(MarvellPath, SilentRefusalsAndEinvalFlush)
{
	LogCapture log;
	unsigned char page[512];
	EXPECT_EQ(marvell_command_interface(fd, CMD_SMART_READ_LOG_DIRECTORY, page), -1);
	EXPECT_EQ(marvell_command_interface(fd, SCSI_INQUIRY, page), -1);
	expectSent("sda", {});
	EXPECT_EQ(log.count(-1), 0);
	EXPECT_EQ(marvell_command_interface(fd, CMD_DRIVE_FLUSH, nullptr), 0); // EINVAL
	node("sda", R"({"protocol":"ata","faults":{"flush":{"errno":"EBUSY"},"identify":{"abort":true}}})");
	EXPECT_EQ(marvell_command_interface(fd, CMD_DRIVE_FLUSH, nullptr), -1);
	EXPECT_EQ(marvell_command_interface(fd, CMD_IDENTIFY, page), -1);
	EXPECT_EQ(log.count(LOG_ERR, " marvell ioctl SCSI_IOCTL_SEND_COMMAND error "), 2) << log.dump();
}

// Interface selection, the driver probes and the calls built on the
// interfaces (SmartEnable, SmartIdentifyRead, SmartDataRead,
// SmartValuesRead), against the emulator and a small sysfs.
const std::string kHosts = "/sys/devices/pci0000:00/0000:00:17.0/ata1/host0/scsi_host";

class DriveCalls : public DriveSim {
protected:
	void SetUp() override
	{
		DriveSim::SetUp();
		ports(false);
	}
};

TEST_F(DriveCalls, DriverProbes)
{
	ASSERT_TRUE(kBackend);
	host("sda", "mvSata");
	EXPECT_EQ(VEXODiskIsMvSocDriver("/dev/sda"), 1);
	EXPECT_EQ(VEXODiskIsMv1475Driver("sda"), 0);
	EXPECT_EQ(VEXOGetDiskDriver("/dev/sda3"), 4);
	root.write(kHosts + "/host0/proc_name", "mpt3\n");
	EXPECT_EQ(VEXOGetDiskDriver("/dev/sda"), 2); // a prefix of a table name matches
	root.write(kHosts + "/host0/proc_name", " ahci \n");
	EXPECT_EQ(VEXOGetDiskDriver("/dev/sda"), 0);
	LogCapture log;
	EXPECT_EQ(VEXODiskIsMv1475Driver("/dev/sdz"), 0);
	EXPECT_TRUE(log.has(LOG_ERR, "Can't get sata chip name from pattern /sys/block/sdz/device/../../scsi_host/host*/proc_name"));
	EXPECT_EQ(VEXOGetDiskDriver("/dev/sdz"), 4);
}

// The probes read the first host that the glob host*/proc_name would list.
TEST_F(DriveCalls, DriverProbesTakeTheFirstHostThatHasAProcName)
{
	host("sda", "ahci");
	// "host10" sorts before "host2"; a host without the file and a plain
	// file named like a host are passed over.
	root.remove(kHosts + "/host0");
	root.mkdirs(kHosts + "/host1");
	root.write(kHosts + "/host00", "not a folder\n");
	root.write(kHosts + "/host10/proc_name", "mvSata\nmv14xx\n");
	root.write(kHosts + "/host2/proc_name", "mv14xx\n");
	root.write(kHosts + "/.host9/proc_name", "mv14xx\n");
	EXPECT_EQ(VEXODiskIsMvSocDriver("/dev/sda"), 1); // only the first line counts
	EXPECT_EQ(VEXODiskIsMv1475Driver("/dev/sda"), 0);
	root.write(kHosts + "/host10/proc_name", "mvSata"); // no newline: no match
	EXPECT_EQ(VEXODiskIsMvSocDriver("/dev/sda"), 0);

	// A proc_name that is there but can't be opened is still the first
	// match: no falling through to host2.
	root.remove(kHosts + "/host10/proc_name");
	root.symlink("nowhere", kHosts + "/host10/proc_name");
	LogCapture log;
	EXPECT_EQ(VEXODiskIsMv1475Driver("/dev/sda"), 0);
	EXPECT_TRUE(log.has(LOG_ERR, "can't open /sys/block/sda/device/../../scsi_host/host10/proc_name"));
	root.remove(kHosts + "/host10");
	EXPECT_EQ(VEXOSmartctlCommandInterfaceGet("/dev/sda"), sat_command_interface);

	// With no host at all each of the two probes that an interface
	// question makes logs at its own place, SoC first.
	root.remove(kHosts);
	LogCapture none;
	EXPECT_EQ(VEXOSmartctlCommandInterfaceGet("/dev/sda"), ata_command_interface);
	std::vector<std::string> places;
	for (const auto &l : none.lines())
		if (l.text.find("Can't get sata chip name from pattern") != std::string::npos)
			places.push_back(l.text.substr(0, l.text.find(':')));
	EXPECT_EQ(places, (std::vector<std::string>{"disk/disk_is_mv_soc_driver", "disk/disk_is_mv1475_driver"}));
}

TEST_F(DriveCalls, SelectionOrder)
{
	const std::pair<const char *, DriveCommandInterface> rows[] = {
		{"ahci", ata_command_interface}, {"mvSata", marvell_command_interface}, {"mv14xx", sat_command_interface}};
	host("sda", "ahci");
	for (auto [driver, want] : rows) {
		root.write(kHosts + "/host0/proc_name", std::string(driver) + "\n");
		EXPECT_EQ(VEXOSmartctlCommandInterfaceGet("/dev/sda"), want) << driver;
	}
	// A USB disk gets SAT whatever its driver.
	host("sdq", "mvSata");
	EXPECT_EQ(VEXOSmartctlCommandInterfaceGet("/dev/sdq"), sat_command_interface);

	LogCapture log;
	EXPECT_EQ(VEXOSmartctlCommandInterfaceGet("/dev/vexoboot"), ata_command_interface);
	EXPECT_TRUE(log.has(LOG_ERR, "Failed to get container of /dev/vexoboot, return ata_command_interface instead"));

	ports(true);
	EXPECT_EQ(VEXODiskScsiProtocolGet("/dev/sda"), 2);
	EXPECT_EQ(VEXOSmartctlCommandInterfaceGet("/dev/sda"), sas_command_interface);
}

class AtaDriveCalls : public DriveCalls {
protected:
	void SetUp() override
	{
		DriveCalls::SetUp();
		host("sda", "ahci");
		node("sda", kAtaNode);
	}
};

const std::string kValues = "HDIO_DRIVE_CMD args=b000d001 -> ", kThresholds = "HDIO_DRIVE_CMD args=b001d101 -> ";

TEST_F(AtaDriveCalls, SmartDataReadRetriesValuesOnceThresholdsNever)
{
	node("sda", R"({"protocol":"ata","faults":{"smart_read_values":{"abort":true,"times":1}}})");
	unsigned char v[512], t[512];
	ASSERT_EQ(SmartDataRead("/dev/sda", v, t), 0);
	expectSent("sda", {kValues + "errno 5", kValues + "ok", kThresholds + "ok"});
	EXPECT_EQ(VEXOSmartChecksum(t), 0);

	LogCapture log;
	node("sda", R"({"protocol":"ata","faults":{"smart_read_values":{"abort":true}}})");
	std::memset(v, 0x66, sizeof(v));
	EXPECT_EQ(SmartDataRead("/dev/sda", v, t), -1);
	expectSent("sda", {kValues + "errno 5", kValues + "errno 5"});
	EXPECT_EQ(v[0], 0x66);
	EXPECT_TRUE(log.has(LOG_ERR, "read value /dev/sda fail"));

	node("sda", R"({"protocol":"ata","faults":{"smart_read_thresholds":{"bad_checksum":true,"times":1}}})");
	ASSERT_EQ(SmartDataRead("sda", v, nullptr), 0); // no threshold buffer: no threshold read
	expectSent("sda", {kValues + "ok"});
	EXPECT_EQ(SmartDataRead("/dev/sda", v, t), -1);
	expectSent("sda", {kValues + "ok", kThresholds + "ok"}); // no retry
	EXPECT_TRUE(log.has(LOG_ERR, "read threshhold /dev/sda fail"));

	EXPECT_EQ(SmartDataRead(nullptr, v, t), -1);
	EXPECT_EQ(SmartDataRead("/dev/sdx", v, t), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "open device /dev/sdx fail"));
}

TEST_F(AtaDriveCalls, IdentifyReadChecksumRuleAndFallback)
{
	unsigned char id[512];
	ASSERT_EQ(SmartIdentifyRead("/dev/sda", id), 0);
	expectSent("sda", {"HDIO_GET_IDENTITY -> ok", "HDIO_DRIVE_CMD args=ec000001 -> ok"});
	EXPECT_EQ(id[510], 0xA5);

	node("sda", R"({"protocol":"ata","faults":{"identify":{"bad_checksum":true}}})");
	std::memset(id, 0x44, sizeof(id));
	EXPECT_EQ(SmartIdentifyRead("/dev/sda", id), -1);
	EXPECT_ERR(0x3300);
	EXPECT_EQ(id[0], 0x44);

	// Without the signature the page is taken unchecked.
	node("sda", R"({"protocol":"ata","identify_signature":false,"identify_words":{"7":4660}})");
	ASSERT_EQ(SmartIdentifyRead("/dev/sda", id), 0);
	EXPECT_NE(VEXOSmartChecksum(id), 0);

	// A packet device: IDENTIFY goes out as 0xA1 already.
	node("sda", R"({"protocol":"ata","packet":true,"faults":{"packet_identify":{"abort":true,"times":1}}})");
	clearCommands("sda");
	EXPECT_EQ(SmartIdentifyRead("/dev/sda", id), -1);
	EXPECT_ERR(0x6C00);
	expectSent("sda", {"HDIO_GET_IDENTITY -> ok", "HDIO_DRIVE_CMD args=a1000001 -> errno 5", "HDIO_GET_IDENTITY -> ok",
			   "HDIO_DRIVE_CMD args=ec000001 -> errno 5"});
	EXPECT_EQ(SmartIdentifyRead("/dev/sdx", id), -1);
	EXPECT_ERR(0x0900);
}

TEST_F(AtaDriveCalls, SmartEnableAta)
{
	node("sda", R"({"protocol":"ata","smart":{"enabled":false}})");
	ASSERT_EQ(SmartEnable("/dev/sda"), 0);
	expectSent("sda", {"HDIO_DRIVE_CMD args=b001d800 -> ok"});
	EXPECT_NE(root.read("/dev/sda").find("\"enabled\":true"), std::string::npos);
	EXPECT_EQ(SmartEnable("/dev/nvme0n1"), 0);
	LogCapture log;
	EXPECT_EQ(SmartEnable("/dev/sdx"), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "open /dev/sdx failed."));
}

// SmartValuesRead: one attempt, on the caller's descriptor, through the
// interface the path selects; nothing at all on the SCSI path.
TEST_F(AtaDriveCalls, ValuesReadOneAttemptThroughThePathsInterface)
{
	int fd = open("sda");
	ASSERT_GE(fd, 0);
	unsigned char v[512];
	std::memset(v, 0x5A, sizeof(v));
	ASSERT_EQ(SmartValuesRead("/dev/sda", fd, v), 0);
	expectSent("sda", {kValues + "ok"});
	EXPECT_EQ(VEXOSmartChecksum(v), 0); // the emulator's page, not the fill

	node("sda", R"({"protocol":"ata","faults":{"smart_read_values":{"abort":true,"times":1}}})");
	EXPECT_EQ(SmartValuesRead("/dev/sda", fd, v), -1); // the retry is SmartDataRead's
	EXPECT_EQ(SmartValuesRead("sda2", fd, v), 0);	    // a partition selects its disk's interface
	expectSent("sda", {kValues + "errno 5", kValues + "ok"});

	// A USB path gets SAT, whichever device the descriptor is open on.
	host("sdq", "ahci");
	ASSERT_EQ(SmartValuesRead("/dev/sdq", fd, v), 0);
	expectSent("sda", {sgio(-3, 512, "85080e00d000010000004f00c200b000", " -> ok")});

	ports(true); // the virtual edition classifies every disk as SCSI
	std::memset(v, 0x5A, sizeof(v));
	LogCapture log;
	EXPECT_EQ(SmartValuesRead("/dev/sda", fd, v), -1);
	expectSent("sda", {});
	// Refused before the SCSI interface is asked for an ATA command number.
	EXPECT_FALSE(log.has(LOG_ERR, "sas_command_interface unknown command"));
	EXPECT_EQ(v[0], 0x5A);
}

TEST_F(DriveCalls, ScsiSmartEnableReconcilesWithTheChangeableMask)
{
	host("sda", "mpt3sas");
	ports(true);
	// Flags changeable except PERF; method of reporting fixed; timers changeable.
	node("sda", R"({"protocol":"scsi","scsi":{"ie_page":"1c0a08030000000000000000",
	     "ie_changeable":"1c0a9c00ffffffffffffffff"}})");
	ASSERT_EQ(SmartEnable("/dev/sda"), 0);
	// header, block descriptor, page: flags 0x9c & 0x10, method kept at 3, report count 1
	// Current values, then the changeable mask, then the page sent back.
	const std::string current = "SG_IO*cdb=1a001c00400000000000 -> ok", mask = "SG_IO*cdb=1a005c00400000000000 -> ok";
	expectSent("sda", {current, mask, "SG_IO*cdb=15110000180000000000 data=17000008ffffffff000002009c0a10030000000000000001 -> ok"});
	EXPECT_NE(root.read("/dev/sda").find("1c0a10030000000000000001"), std::string::npos);

	// A fixed PERF bit that is set gets cleared by the mask: the drive refuses
	// the page with CHECK CONDITION, which the SCSI path does not judge.
	node("sda", R"({"protocol":"scsi","scsi":{"ie_page":"1c0a88030000000000000000",
	     "ie_changeable":"1c0a1c00ffffffffffffffff"}})");
	EXPECT_EQ(SmartEnable("/dev/sda"), 0);
	expectSent("sda", {current, mask, "SG_IO*cdb=15110000180000000000*9c0a10030000000000000001 -> check 05/26/00"});

	LogCapture log;
	node("sda", R"({"protocol":"scsi","faults":{"mode_sense":{"errno":"EIO"}}})");
	EXPECT_EQ(SmartEnable("/dev/sda"), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "ScsiSmartEnable failed."));
}

} // namespace
