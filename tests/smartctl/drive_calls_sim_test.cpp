// Interface selection, the driver probes and the calls built on the
// interfaces (SmartEnable, SmartIdentifyRead, SmartDataRead,
// SmartValuesRead), against the emulator and a small sysfs.
#include <cstring>
#include <syslog.h>
#include <vexohw/disk_probe.h>
#include <vexohw/disk_port.h>
#include <vexohw/smartctl.h>

#include "smartctl/drive_sim.h"

using namespace vexo::test;

namespace {

const bool kBackend = installDriveEmulator();
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
	expectSent("sda", {"SG_IO interface_id=S dxfer_direction=-3 cmd_len=16 mx_sb_len=32 dxfer_len=512 "
			   "timeout=20000 cdb=85080e00d000010000004f00c200b000 -> ok"});

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
