// SmartValuesRead on its own: one attempt through the interface its path
// selects, on the caller's descriptor, and nothing at all on the SCSI path.
#include <cstring>
#include <syslog.h>
#include <vexohw/smartctl.h>

#include "smartctl/drive_sim.h"

using namespace vexo::test;

namespace {

const bool kBackend = installDriveEmulator();

class ValuesRead : public DriveSim {
protected:
	void SetUp() override
	{
		DriveSim::SetUp();
		conf("no");
		host("sda", "ahci");
		node("sda", kAtaNode);
	}
	void conf(const char *vvos)
	{
		root.conf("/etc.defaults/vexoinfo.conf", {{"internalportcfg", "0xff"},
							  {"usbportcfg", "0xff0000"},
							  {"esataportcfg", "0x0"},
							  {"vvos", vvos}});
	}
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

TEST_F(ValuesRead, AtaPathReadsThePageOnce)
{
	ASSERT_TRUE(kBackend);
	int fd = open("sda");
	ASSERT_GE(fd, 0);
	unsigned char v[512];
	std::memset(v, 0x5A, sizeof(v));
	ASSERT_EQ(SmartValuesRead("/dev/sda", fd, v), 0);
	auto c = commands("sda");
	ASSERT_EQ(c.size(), 1u);
	EXPECT_EQ(c[0], "HDIO_DRIVE_CMD args=b000d001 -> ok");
	EXPECT_EQ(VEXOSmartChecksum(v), 0); // the emulator's page, not the fill
	EXPECT_NE(v[511], 0x5A);

	// A failure comes back after one attempt: the retry is SmartDataRead's.
	node("sda", R"({"protocol":"ata","faults":{"smart_read_values":{"abort":true,"times":1}}})");
	fd = open("sda");
	ASSERT_GE(fd, 0);
	EXPECT_EQ(SmartValuesRead("/dev/sda", fd, v), -1);
	ASSERT_EQ(commands("sda").size(), 2u);
	EXPECT_EQ(SmartValuesRead("sda2", fd, v), 0); // a partition selects its disk's interface
	c = commands("sda");
	ASSERT_EQ(c.size(), 3u);
	EXPECT_EQ(c[2], "HDIO_DRIVE_CMD args=b000d001 -> ok");
}

TEST_F(ValuesRead, PathChoosesTheInterfaceNotTheDescriptor)
{
	// A USB path gets SAT, whichever device the descriptor is open on.
	host("sdq", "ahci");
	int fd = open("sda");
	ASSERT_GE(fd, 0);
	unsigned char v[512];
	ASSERT_EQ(SmartValuesRead("/dev/sdq", fd, v), 0);
	std::string l = last("sda");
	EXPECT_EQ(l.rfind("SG_IO interface_id=S dxfer_direction=-3 cmd_len=16 mx_sb_len=32 dxfer_len=512 timeout=20000 "
			  "cdb=85080e00d000010000004f00c200b000 -> ok",
			  0),
		  0u)
		<< l;
	EXPECT_EQ(VEXOSmartChecksum(v), 0);
}

TEST_F(ValuesRead, ScsiPathSendsNothing)
{
	conf("yes"); // the virtual edition classifies every disk as SCSI
	node("sda", kScsiNode);
	int fd = open("sda");
	ASSERT_GE(fd, 0);
	unsigned char v[512];
	std::memset(v, 0x5A, sizeof(v));
	LogCapture log;
	EXPECT_EQ(SmartValuesRead("/dev/sda", fd, v), -1);
	EXPECT_TRUE(commands("sda").empty());
	// Refused before the SCSI interface is asked for an ATA command number.
	EXPECT_FALSE(log.has(LOG_ERR, "sas_command_interface unknown command"));
	EXPECT_EQ(v[0], 0x5A);
	EXPECT_EQ(v[511], 0x5A);
}

} // namespace
