// Interface selection, the driver probes and the calls built on the
// interfaces (SmartEnable, SmartIdentifyRead, SmartDataRead), against the
// emulator and a small sysfs.
#include <cstring>
#include <syslog.h>
#include <vexohw/disk_probe.h>
#include <vexohw/disk_port.h>
#include <vexohw/smartctl.h>

#include "smartctl/drive_sim.h"

using namespace vexo::test;

namespace {

const bool kBackend = installDriveEmulator();

class DriveCalls : public DriveSim {
protected:
	void SetUp() override
	{
		DriveSim::SetUp();
		root.conf("/etc.defaults/vexoinfo.conf",
			  {{"internalportcfg", "0xff"}, {"usbportcfg", "0xff0000"}, {"esataportcfg", "0x0"}});
	}
	// /sys/block/<name> under a SCSI host served by `driver`.
	void host(const std::string &name, const std::string &driver)
	{
		std::string dev = "/sys/devices/pci0/ata1/host0/target0:0:0/0:0:0:0";
		root.mkdirs(dev + "/block/" + name);
		root.write("/sys/devices/pci0/ata1/host0/scsi_host/host0/proc_name", driver + "\n");
		root.mkdirs("/sys/block");
		root.symlink("../devices/pci0/ata1/host0/target0:0:0/0:0:0:0/block/" + name, "/sys/block/" + name);
		root.symlink("../../../0:0:0:0", dev + "/block/" + name + "/device");
	}
};

TEST_F(DriveCalls, DriverProbes)
{
	ASSERT_TRUE(kBackend);
	host("sda", "mvSata");
	EXPECT_EQ(VEXODiskIsMvSocDriver("/dev/sda"), 1);
	EXPECT_EQ(VEXODiskIsMv1475Driver("sda"), 0);
	EXPECT_EQ(VEXOGetDiskDriver("/dev/sda3"), 4);
	root.write("/sys/devices/pci0/ata1/host0/scsi_host/host0/proc_name", "mpt3\n");
	EXPECT_EQ(VEXOGetDiskDriver("/dev/sda"), 2); // a prefix of a table name matches
	root.write("/sys/devices/pci0/ata1/host0/scsi_host/host0/proc_name", " ahci \n");
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
	const std::string hosts = "/sys/devices/pci0/ata1/host0/scsi_host";
	// "host10" sorts before "host2"; a host without the file and a plain
	// file named like a host are passed over.
	root.remove(hosts + "/host0");
	root.mkdirs(hosts + "/host1");
	root.write(hosts + "/host00", "not a folder\n");
	root.write(hosts + "/host10/proc_name", "mvSata\nmv14xx\n");
	root.write(hosts + "/host2/proc_name", "mv14xx\n");
	root.write(hosts + "/.host9/proc_name", "mv14xx\n");
	EXPECT_EQ(VEXODiskIsMvSocDriver("/dev/sda"), 1); // only the first line counts
	EXPECT_EQ(VEXODiskIsMv1475Driver("/dev/sda"), 0);
	root.write(hosts + "/host10/proc_name", "mvSata"); // no newline: no match
	EXPECT_EQ(VEXODiskIsMvSocDriver("/dev/sda"), 0);
	root.write(hosts + "/host10/proc_name", "");
	EXPECT_EQ(VEXODiskIsMvSocDriver("/dev/sda"), 0);

	// A proc_name that is there but can't be opened is still the first
	// match: no falling through to host2.
	root.remove(hosts + "/host10/proc_name");
	root.symlink("nowhere", hosts + "/host10/proc_name");
	LogCapture log;
	EXPECT_EQ(VEXODiskIsMv1475Driver("/dev/sda"), 0);
	EXPECT_TRUE(log.has(LOG_ERR, "can't open /sys/block/sda/device/../../scsi_host/host10/proc_name"));
	root.remove(hosts + "/host10");
	EXPECT_EQ(VEXODiskIsMv1475Driver("/dev/sda"), 1);
	EXPECT_EQ(VEXOSmartctlCommandInterfaceGet("/dev/sda"), sat_command_interface);
	char type[16] = "";
	ASSERT_EQ(VEXODiskDeviceTypeGet("/dev/sda", type, sizeof(type)), 0);
	EXPECT_STREQ(type, "sat");
	root.write(hosts + "/host2/proc_name", "mvSata\n");
	EXPECT_EQ(VEXOSmartctlCommandInterfaceGet("/dev/sda"), marvell_command_interface);
	ASSERT_EQ(VEXODiskDeviceTypeGet("/dev/sda", type, sizeof(type)), 0);
	EXPECT_STREQ(type, "marvell");

	// With no host at all each of the two probes that an interface
	// question makes logs at its own place, SoC first.
	root.remove(hosts);
	LogCapture none;
	EXPECT_EQ(VEXOSmartctlCommandInterfaceGet("/dev/sda"), ata_command_interface);
	std::vector<std::string> places;
	for (const auto &l : none.lines())
		if (l.text.find("Can't get sata chip name from pattern /sys/block/sda/device/../../scsi_host/host*/proc_name") !=
		    std::string::npos)
			places.push_back(l.text.substr(0, l.text.find(':')));
	EXPECT_EQ(places, (std::vector<std::string>{"disk/disk_is_mv_soc_driver", "disk/disk_is_mv1475_driver"}));
}

TEST_F(DriveCalls, SelectionOrder)
{
	host("sda", "ahci");
	EXPECT_EQ(VEXOSmartctlCommandInterfaceGet("/dev/sda"), ata_command_interface);
	root.write("/sys/devices/pci0/ata1/host0/scsi_host/host0/proc_name", "mvSata\n");
	EXPECT_EQ(VEXOSmartctlCommandInterfaceGet("/dev/sda"), marvell_command_interface);
	root.write("/sys/devices/pci0/ata1/host0/scsi_host/host0/proc_name", "mv14xx\n");
	EXPECT_EQ(VEXOSmartctlCommandInterfaceGet("/dev/sda"), sat_command_interface);

	// A USB disk gets SAT whatever its driver.
	host("sdq", "mvSata");
	EXPECT_EQ(VEXOSmartctlCommandInterfaceGet("/dev/sdq"), sat_command_interface);

	LogCapture log;
	EXPECT_EQ(VEXOSmartctlCommandInterfaceGet("/dev/vexoboot"), ata_command_interface);
	EXPECT_TRUE(log.has(LOG_ERR, "Failed to get container of /dev/vexoboot, return ata_command_interface instead"));

	root.conf("/etc.defaults/vexoinfo.conf", {{"internalportcfg", "0xff"}, {"usbportcfg", "0xff0000"},
						  {"esataportcfg", "0x0"}, {"vvos", "yes"}});
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
	int countOf(const std::string &what)
	{
		int n = 0;
		for (auto &l : commands("sda"))
			n += l.find(what) != std::string::npos;
		return n;
	}
};

TEST_F(AtaDriveCalls, SmartDataReadRetriesValuesOnce)
{
	node("sda", R"({"protocol":"ata","faults":{"smart_read_values":{"abort":true,"times":1}}})");
	unsigned char v[512], t[512];
	ASSERT_EQ(SmartDataRead("/dev/sda", v, t), 0);
	EXPECT_EQ(countOf("args=b000d001"), 2);
	EXPECT_EQ(countOf("args=b001d101"), 1);
	EXPECT_EQ(VEXOSmartChecksum(t), 0);

	LogCapture log;
	node("sda", R"({"protocol":"ata","faults":{"smart_read_values":{"abort":true}}})");
	std::memset(v, 0x66, sizeof(v));
	EXPECT_EQ(SmartDataRead("/dev/sda", v, t), -1);
	EXPECT_EQ(countOf("args=b000d001"), 4);
	EXPECT_EQ(v[0], 0x66);
	EXPECT_TRUE(log.has(LOG_ERR, "read value /dev/sda fail"));
}

TEST_F(AtaDriveCalls, SmartDataReadThresholds)
{
	unsigned char v[512];
	ASSERT_EQ(SmartDataRead("sda", v, nullptr), 0);
	EXPECT_EQ(countOf("args=b001d101"), 0);

	LogCapture log;
	node("sda", R"({"protocol":"ata","faults":{"smart_read_thresholds":{"bad_checksum":true,"times":1}}})");
	unsigned char t[512];
	EXPECT_EQ(SmartDataRead("/dev/sda", v, t), -1);
	EXPECT_EQ(countOf("args=b001d101"), 1); // no retry
	EXPECT_TRUE(log.has(LOG_ERR, "read threshhold /dev/sda fail"));

	EXPECT_EQ(SmartDataRead(nullptr, v, t), -1);
	EXPECT_EQ(SmartDataRead("/dev/sdx", v, t), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "Bad parameter"));
	EXPECT_TRUE(log.has(LOG_ERR, "open device /dev/sdx fail"));
}

TEST_F(AtaDriveCalls, IdentifyReadChecksumRuleAndFallback)
{
	unsigned char id[512];
	ASSERT_EQ(SmartIdentifyRead("/dev/sda", id), 0);
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
	EXPECT_EQ(SmartIdentifyRead("/dev/sda", id), -1); // a1 aborted, then ec aborted
	EXPECT_ERR(0x6C00);

	EXPECT_EQ(SmartIdentifyRead(nullptr, id), -1);
	EXPECT_ERR(0x0D00);
	EXPECT_EQ(SmartIdentifyRead("/dev/sdx", id), -1);
	EXPECT_ERR(0x0900);
}

TEST_F(AtaDriveCalls, SmartEnableAta)
{
	node("sda", R"({"protocol":"ata","smart":{"enabled":false}})");
	ASSERT_EQ(SmartEnable("/dev/sda"), 0);
	EXPECT_EQ(countOf("args=b001d800 -> ok"), 1);
	EXPECT_NE(root.read("/dev/sda").find("\"enabled\":true"), std::string::npos);
	LogCapture log;
	EXPECT_EQ(SmartEnable(nullptr), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "Bad parameter."));
	EXPECT_EQ(SmartEnable("/dev/nvme0n1"), 0);
	EXPECT_EQ(SmartEnable("/dev/sdx"), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "open /dev/sdx failed."));
}

TEST_F(DriveCalls, ScsiSmartEnableReconcilesWithTheChangeableMask)
{
	host("sda", "mpt3sas");
	root.conf("/etc.defaults/vexoinfo.conf", {{"internalportcfg", "0xff"}, {"usbportcfg", "0xff0000"},
						  {"esataportcfg", "0x0"}, {"vvos", "yes"}});
	// Flags changeable except PERF; method of reporting fixed; timers changeable.
	node("sda", R"({"protocol":"scsi","scsi":{"ie_page":"1c0a08030000000000000000",
	     "ie_changeable":"1c0a9c00ffffffffffffffff"}})");
	ASSERT_EQ(SmartEnable("/dev/sda"), 0);
	auto select = [&] {
		std::string sel;
		for (auto &l : commands("sda"))
			if (l.find("cdb=15110000180000000000") != std::string::npos)
				sel = l;
		return sel;
	};
	// header, block descriptor, page: flags 0x9c & 0x10, method kept at 3, report count 1
	EXPECT_NE(select().find("data=17000008ffffffff000002009c0a10030000000000000001 -> ok"), std::string::npos)
		<< select();
	EXPECT_NE(root.read("/dev/sda").find("1c0a10030000000000000001"), std::string::npos);

	// A fixed PERF bit that is set gets cleared by the mask: the drive refuses
	// the page with CHECK CONDITION, which the SCSI path does not judge.
	node("sda", R"({"protocol":"scsi","scsi":{"ie_page":"1c0a88030000000000000000",
	     "ie_changeable":"1c0a1c00ffffffffffffffff"}})");
	EXPECT_EQ(SmartEnable("/dev/sda"), 0);
	EXPECT_NE(select().find("9c0a10030000000000000001 -> check 05/26/00"), std::string::npos) << select();

	LogCapture log;
	node("sda", R"({"protocol":"scsi","faults":{"mode_sense":{"errno":"EIO"}}})");
	EXPECT_EQ(SmartEnable("/dev/sda"), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "sas_command_interface SCSI_MOD_SENSE_CURRENT failed."));
	EXPECT_TRUE(log.has(LOG_ERR, "ScsiSmartEnable failed."));
}

} // namespace
