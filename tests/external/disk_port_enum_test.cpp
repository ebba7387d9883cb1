// Enumeration by port type, device paths from numbers, partition and system paths.
#include <string>
#include <syslog.h>
#include <vector>

#include <vexohw/disk.h>
#include <vexohw/disk_port.h>
#include <vexoplatform/ebox_info.h>

#include "external/port_map.h"
#include "support/disk_layout.h"

using vexo::test::DiskLayout;
using vexo::test::LogCapture;
using vexo::test::Sysroot;

namespace {

class PortEnum : public ::testing::Test {
protected:
	void SetUp() override
	{
		VLIBCErrClear();
		vexo::external::resetPortMaps();
		disks.platform(R"({"model": "VQ300", "ebox": true,
		  "nvme_slots": [{"pci": "0000:00:01.2", "slot": 0, "location": 1, "type": "cache"},
		                 {"pci": "0000:00:01.5", "slot": 0, "location": 2, "type": "u2"},
		                 {"pci": "0000:00:01.6", "slot": 0, "location": 3, "type": "blocked"}],
		  "adapter_slots": [{"pci": "0000:00:1c.0", "slot": 1, "card": "M2C-S2"}],
		  "adapter_cards": {"M2C-S2": {"sup_sata": true}}})");
		root.write("/etc.defaults/extensionPorts", "[pci]\npci1=\"0000:00:1c.0\"\n");
		// sda, sdb internal; sdc external; sdd usb; sde cache.
		maps({{"support_nvme", "yes"}, {"upnpmodelname", "VQ300"}});
		list = VLIBCSzListAlloc(4);
	}
	void TearDown() override
	{
		VLIBCSzListFree(list);
		vexo::external::resetPortMaps();
	}
	void maps(const std::vector<std::pair<std::string, std::string>> &extra)
	{
		disks.portMaps("8", "4", "3", "10", extra);
		vexo::external::resetPortMaps();
	}
	std::vector<std::string> items() const
	{
		std::vector<std::string> out;
		for (int i = 0; i < list->nItem; ++i)
			out.emplace_back(VLIBCSzListGet(list, i));
		return out;
	}
	using Names = std::vector<std::string>;

	Sysroot root;
	DiskLayout disks{root};
	PVLIBSZLIST list = nullptr;
};

TEST_F(PortEnum, ByPortTypeFromSysfs)
{
	disks.sata("sdb", 2);
	disks.sata("sda", 1);
	disks.sata("sdd", 4);
	disks.sata("sde", 5);
	disks.sata("sdcb", 6);
	disks.sata("sdca", 7);
	disks.sata("nvc1", 3, "0000:00:1c.0/0000:03:00.0");
	disks.nvme("nvme0n1", "0000:00:01.2/0000:01:00.0");
	disks.nvme("nvme1n1", "0000:00:01.5/0000:02:00.0");
	disks.nvme("nvme2n1", "0000:00:01.6/0000:03:00.0");
	disks.plain("sysd1");
	disks.plain("vexoboot");

	ASSERT_EQ(VEXODiskPortEnum(3, &list), 0);
	EXPECT_EQ(items(), (Names{"sdca", "sdcb"}));
	VLIBCSzListClear(list);
	ASSERT_EQ(VEXODiskPortEnum(1, &list), 0);
	EXPECT_EQ(items(), (Names{"nvme1n1", "sda", "sdb"}));
	VLIBCSzListClear(list);
	ASSERT_EQ(VEXODiskPortEnum(7, &list), 0);
	EXPECT_EQ(items(), (Names{"nvc1", "nvme0n1", "sde"}));
	VLIBCSzListClear(list);
	ASSERT_EQ(VEXODiskPortEnum(5, &list), 0);
	EXPECT_EQ(items(), (Names{"vexoboot"}));
	VLIBCSzListClear(list);
	ASSERT_EQ(VEXODiskPortEnum(11, &list), 0);
	EXPECT_EQ(items(), (Names{"sysd1"}));
	VLIBCSzListClear(list);
	// A type with no disk is an empty success.
	ASSERT_EQ(VEXODiskPortEnum(2, &list), 0);
	EXPECT_TRUE(items().empty());

	ASSERT_EQ(VEXODiskM2DriveEnum(&list), 0);
	EXPECT_EQ(items(), (Names{"nvc1", "nvme0n1"})); // the U.2 and the blocked disk stay out
	VLIBCSzListClear(list);
	ASSERT_EQ(VEXODiskU2DriveEnum(&list), 0);
	EXPECT_EQ(items(), (Names{"nvme1n1"}));
	VLIBCSzListClear(list);
	ASSERT_EQ(VEXODiskInternalDiskWithoutM2Enum(&list), 0);
	EXPECT_EQ(items(), (Names{"sda", "sdb"}));
	VLIBCSzListClear(list);
	VLIBCSzListPush(&list, "sysd1");
	ASSERT_EQ(VEXODiskSystemInstallationDeviceEnum(&list), 0);
	EXPECT_EQ(items(), (Names{"nvme1n1", "sda", "sdb", "sysd1"}));

	// Products that refuse M.2 SATA leave nvc out.
	maps({{"support_nvme", "yes"}, {"block_m2_sata", "yes"}});
	VLIBCSzListClear(list);
	ASSERT_EQ(VEXODiskM2DriveEnum(&list), 0);
	EXPECT_EQ(items(), (Names{"nvme0n1"}));
}

TEST_F(PortEnum, BadArguments)
{
	LogCapture log;
	EXPECT_EQ(VEXODiskPortEnum(0, &list), -1);
	EXPECT_EQ(VEXODiskPortEnum(1, nullptr), -1);
	EXPECT_EQ(log.count(LOG_ERR, "device name list can not be NULL"), 2);
	EXPECT_EQ(VEXODiskPortEnum(9, &list), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "disk port type doesn't exist"));
	PVLIBSZLIST none = nullptr;
	EXPECT_EQ(VEXODiskM2DriveEnum(&none), -1);
	EXPECT_EQ(VEXODiskSystemInstallationDeviceEnum(nullptr), -1);
}

TEST_F(PortEnum, AllNamesOfAPortMap)
{
	disks.portMaps("3000000", "30", "8000000f", "");
	vexo::external::resetPortMaps();
	ASSERT_EQ(VEXODiskPortEnumAll(1, &list), 0);
	EXPECT_EQ(items(), (Names{"sda", "sdb", "sdc", "sdd"})); // bit 31 names no letter
	VLIBCSzListClear(list);
	ASSERT_EQ(VEXODiskPortEnumAll(3, &list), 0);
	EXPECT_EQ(items(), (Names{"sde", "sdf"}));
	VLIBCSzListClear(list);
	ASSERT_EQ(VEXODiskPortEnumAll(4, &list), 0);
	EXPECT_EQ(items(), (Names{"sdy", "sdz"}));
	VLIBCSzListClear(list);
	ASSERT_EQ(VEXODiskPortEnumAll(7, &list), 0);
	EXPECT_TRUE(items().empty());
	EXPECT_EQ(VEXODiskPortEnumAll(5, &list), -1);
	EXPECT_ERR(0xB600);
	EXPECT_EQ(VEXODiskPortEnumAll(1, nullptr), -1);
	EXPECT_ERR(0x0D00);
	disks.portMaps("", "30", "f", "");
	vexo::external::resetPortMaps();
	EXPECT_EQ(VEXODiskPortEnumAll(1, &list), -1);
	EXPECT_ERR(0x0900);
	disks.portMaps("1", "30", "f", "", {{"support_sas", "yes"}});
	EXPECT_EQ(VEXODiskPortEnumAll(1, &list), -1);
	EXPECT_ERR(0xD900);
}

TEST_F(PortEnum, ExternalSataPorts)
{
	disks.portMaps("1", "24", "3", ""); // sdc and sdf
	vexo::external::resetPortMaps();
	char name[8];
	EXPECT_EQ(VEXOExternalEsataPortCount(), 2);
	ASSERT_EQ(VEXOExternalEsataPortGet(2, name, sizeof(name)), 0);
	EXPECT_STREQ(name, "sdf");
	ASSERT_EQ(VEXOExternalEsataPortGet(1, name, sizeof(name)), 0);
	EXPECT_STREQ(name, "sdc");
	EXPECT_EQ(VEXOExternalEsataPortGet(3, name, sizeof(name)), -1);
	LogCapture log;
	EXPECT_EQ(VEXOExternalEsataPortGet(0, name, sizeof(name)), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "bad parameter, szEsataName should not be NULL or zero size or esataIdx must larger than zero"));
	char tiny[3];
	EXPECT_EQ(VEXOExternalEsataPortGet(1, tiny, sizeof(tiny)), -1);
	EXPECT_EQ(VEXOExternalEsataPortIndexGet("/dev/sdf2"), 2);
	EXPECT_EQ(VEXOExternalEsataPortIndexGet("sda"), -1);
	// The table is read once per process.
	disks.portMaps("1", "1", "3", "");
	EXPECT_EQ(VEXOExternalEsataPortCount(), 2);
	disks.portMaps("1", "24", "3", "", {{"support_sas", "yes"}});
	EXPECT_EQ(VEXOExternalEsataPortCount(), 0);
	EXPECT_EQ(VEXOExternalEsataPortGet(1, name, sizeof(name)), -1);
}

TEST_F(PortEnum, PathsFromEncodedIndexes)
{
	char path[32];
	auto byIndex = [&](int i) {
		std::string p = VEXODiskDevicePathGetByIndex(i, path, sizeof(path)) == 0 ? path : "fail";
		return p;
	};
	EXPECT_EQ(byIndex(1), "/dev/sda");
	EXPECT_EQ(byIndex(26), "/dev/sdz");
	EXPECT_EQ(byIndex(27), "/dev/sdaa");
	EXPECT_EQ(byIndex(52), "/dev/sdaz");
	EXPECT_EQ(byIndex(53), "/dev/sdba");
	EXPECT_EQ(byIndex(800), "/dev/nvc0");
	EXPECT_EQ(byIndex(905), "/dev/sysd5");
	EXPECT_EQ(byIndex(911), "/dev/nvc111");
	EXPECT_EQ(byIndex(1001), "/dev/nvme0n1");
	EXPECT_EQ(byIndex(0), "fail");
	maps({});
	EXPECT_EQ(byIndex(1001), "/dev/nvc201");
	char small[9];
	EXPECT_EQ(VEXODiskDevicePathGetByIndex(27, small, sizeof(small)), -1); // never a cut path

	char name[32];
	EXPECT_EQ(VEXODiskDevPathGetByName("sdb", name, sizeof(name)), 0);
	EXPECT_STREQ(name, "/dev/sdb");
	EXPECT_EQ(VEXODiskDevPathGetByName("/dev/nvme0n1", name, sizeof(name)), 0);
	EXPECT_STREQ(name, "/dev/nvme0n1");
	EXPECT_EQ(VEXODiskDevPathGetByName("", name, sizeof(name)), -1);
}

TEST_F(PortEnum, PathsFromPositions)
{
	char path[32];
	auto at = [&](int pos, int cnr) {
		std::string p = VEXODiskDevicePathGetByPosition(pos, cnr, path, sizeof(path)) == 0 ? path : "fail";
		return p;
	};
	LogCapture log;
	EXPECT_EQ(at(3, 0), "/dev/sdc");
	EXPECT_EQ(at(2, 3000), "/dev/sysd2");
	EXPECT_EQ(at(0, 0), "fail");
	EXPECT_TRUE(log.has(LOG_ERR, "out put szDevPath can not be NULL and path length can't be zero[0x0D00 "));
	EXPECT_EQ(at(1, -1), "fail");
	EXPECT_EQ(at(1, 4000), "fail");
	EXPECT_TRUE(log.has(LOG_ERR, "we don't support disk container type 4000."));

	// Adapter card in slot 1, ATA port 3.
	disks.sata("nvc1", 3, "0000:00:1c.0/0000:03:00.0");
	EXPECT_EQ(at(3, 1001), "/dev/nvc1");
	EXPECT_EQ(at(4, 1001), "fail");
	EXPECT_TRUE(log.has(LOG_ERR, "Fail to find device from 1-4"));
	EXPECT_TRUE(log.has(LOG_ERR, "Fail to get device from 1-4"));
	char name[16];
	EXPECT_EQ(DiskDevNameGetByIdxSlot(1, 3, name, sizeof(name)), 0);
	EXPECT_STREQ(name, "/dev/nvc1");
	EXPECT_EQ(DiskDevNameGetByIdxSlot(1, 3, nullptr, 0), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "Incorrect parameter"));

	// NVMe slot 0, location 2.
	disks.nvme("nvme1n1", "0000:00:01.5/0000:02:00.0");
	EXPECT_EQ(at(2, 2000), "/dev/nvme1n1");
	EXPECT_EQ(at(5, 2000), "fail");
	maps({});
	EXPECT_EQ(at(2, 2000), "fail");
	EXPECT_TRUE(log.has(LOG_ERR, "Not a NVMe supported model. Please check iEncodedCnrIdx"));

	// Expansion units: only powered ones count, and the bay must exist.
	disks.unit(4, "sdc", {"/dev/sdca", "/dev/sdcb"});
	disks.unit(5, "sdd", {"/dev/sdda"}, "XU06", "off");
	EXPECT_EQ(at(2, 3), "/dev/sdcb");
	EXPECT_EQ(at(3, 3), "fail");
	EXPECT_TRUE(log.has(LOG_ERR, "Failed to find the device path[0x2A00 "));
	EXPECT_EQ(at(1, 4), "fail");
	disks.platform(R"({"model": "VQ300"})");
	EXPECT_EQ(at(2, 3), "fail");
	EXPECT_TRUE(log.has(LOG_ERR, "Failed to enum ebox[0x"));
}

TEST_F(PortEnum, PartitionAndSystemPaths)
{
	char out[32];
	ASSERT_EQ(VEXODiskDevicePartitionNameGet("/dev/sda", 3, out, sizeof(out)), 0);
	EXPECT_STREQ(out, "sda3");
	ASSERT_EQ(VEXODiskDevicePartitionNameGet("nvme0n1", 1, out, sizeof(out)), 0);
	EXPECT_STREQ(out, "nvme0n1p1");
	ASSERT_EQ(VEXODiskDevicePartitionNameGet("/dev/mmcblk0", 2, out, sizeof(out)), 0);
	EXPECT_STREQ(out, "mmcblk0p2");
	ASSERT_EQ(VEXODiskDevicePartitionPathGet("sysd1", 5, out, sizeof(out)), 0);
	EXPECT_STREQ(out, "/dev/sysd1p5");
	LogCapture log;
	EXPECT_EQ(VEXODiskDevicePartitionNameGet("/dev/vexoboot", 1, out, sizeof(out)), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "we don't generate vexoboot partition name here"));
	char tiny[4];
	EXPECT_EQ(VEXODiskDevicePartitionNameGet("sda", 10, tiny, sizeof(tiny)), -1);

	ASSERT_EQ(VEXODiskDevicePartitionEnumStringGet("nvme0n1", out, sizeof(out)), 0);
	EXPECT_STREQ(out, "nvme0n1p*");
	ASSERT_EQ(VEXODiskDevicePartitionEnumStringGet("sdb", out, sizeof(out)), 0);
	EXPECT_STREQ(out, "sdb*");

	ASSERT_EQ(VEXODiskFirstDataDevicePathGet(out, sizeof(out)), 0);
	EXPECT_STREQ(out, "/dev/sda3");
	ASSERT_EQ(VEXODiskSysDevicePathGet(out, sizeof(out)), 0);
	EXPECT_STREQ(out, "/dev/sda1");
	ASSERT_EQ(VEXOSystemDeviceMountPathGet(out, sizeof(out)), 0);
	EXPECT_STREQ(out, "/dev/sda1");
	root.symlink("sda1", "/dev/system-root"); // a dangling link counts: lstat
	ASSERT_EQ(VEXOSystemDeviceMountPathGet(out, sizeof(out)), 0);
	EXPECT_STREQ(out, "/dev/system-root");
	maps({{"alivos", "yes"}});
	ASSERT_EQ(VEXODiskSysDevicePathGet(out, sizeof(out)), 0);
	EXPECT_STREQ(out, "/dev/sda5");
	maps({{"support_raid", "yes"}});
	ASSERT_EQ(VEXODiskSysDevicePathGet(out, sizeof(out)), 0);
	EXPECT_STREQ(out, "/dev/md0");
	ASSERT_EQ(VEXODiskFirstDataDevicePathGet(out, sizeof(out)), 0);
	EXPECT_STREQ(out, "/dev/md2");
}

TEST_F(PortEnum, UnitsAndHosts)
{
	disks.unit(4, "sdc", {"/dev/sdca", "/dev/sdcb", "/dev/sdcc"});
	disks.unit(6, "sdf", {"/dev/sdfa"}, "XU03");
	root.remove("/dev/sdcb"); // a bay whose disk is gone
	char names[64];
	ASSERT_EQ(VEXOEnumAllEUnitsDisks(0, names, sizeof(names)), 0);
	EXPECT_STREQ(names, "sdca sdcc sdfa ");
	char small[10] = "untouched";
	EXPECT_EQ(VEXOEnumAllEUnitsDisks(0, small, sizeof(small)), -1);
	EXPECT_STREQ(small, "untouched");
	EXPECT_EQ(VEXOEnumAllEUnitsDisks(0, nullptr, 4), -1);
	EXPECT_ERR(0x0D00);

	char name[16];
	ASSERT_EQ(VEXODiskGetDevnamebyAtaPort(name, sizeof(name), "ata5"), 0);
	EXPECT_STREQ(name, "sdc");
	ASSERT_EQ(VEXODiskGetDevnamebyAtaPort(name, sizeof(name), "ata5.01"), 0);
	EXPECT_STREQ(name, "sdcb");
	ASSERT_EQ(VEXODiskGetDevnamebyAtaPort(name, sizeof(name), "7.00"), 0);
	EXPECT_STREQ(name, "sdfd"); // XU03 bays are wired in reverse
	EXPECT_EQ(VEXODiskGetDevnamebyAtaPort(name, sizeof(name), "7.04"), -1);
	EXPECT_ERR(0x0A00);
	EXPECT_EQ(VEXODiskGetDevnamebyAtaPort(name, sizeof(name), "ata9.00"), -1);
	EXPECT_ERR(0x0900);
	EXPECT_EQ(VEXODiskGetDevnamebyAtaPort(name, sizeof(name), "ataX"), -1);
	EXPECT_ERR(0x0D00);

	// Where a disk stands, as text.
	disks.portMaps("1", "24", "3", "");
	vexo::external::resetPortMaps();
	disks.sata("sda", 1);
	root.conf("/etc.defaults/vexoinfo.conf", {{"usbportcfg", "1"}, {"esataportcfg", "24"}, {"internalportcfg", "3"},
						  {"upnpmodelname", "VQ300"}});
	char text[32];
	ASSERT_EQ(VEXODiskLocateHostGet("/dev/sda", text, sizeof(text), 0), 0);
	EXPECT_STREQ(text, "VQ300");
	ASSERT_EQ(VEXODiskLocateHostGet("/dev/sdcc2", text, sizeof(text), 0), 0);
	EXPECT_STREQ(text, "XU05");
	ASSERT_EQ(VEXODiskLocateHostGet("/dev/sdcc", text, sizeof(text), 1), 0);
	EXPECT_STREQ(text, "Enclosure-3");
	ASSERT_EQ(VEXODiskPathMibFormatGet("/dev/sda", text, sizeof(text)), 0);
	EXPECT_STREQ(text, "I1");
	ASSERT_EQ(VEXODiskPathMibFormatGet("/dev/sdcc", text, sizeof(text)), 0);
	EXPECT_STREQ(text, "E3-3");
	ASSERT_EQ(VEXODiskPathMibFormatGet("sdd", text, sizeof(text)), 0);
	EXPECT_STREQ(text, "4");
	EXPECT_EQ(VEXODiskPathMibFormatGet("hda", text, sizeof(text)), -1);

	// Platform view of the same units.
	VEXO_EBOX_INFO units[4];
	ASSERT_EQ(VEXOEBoxInfoEnum(units, 4), 2);
	EXPECT_EQ(units[0].unit, 3);
	EXPECT_EQ(units[0].host, 4);
	EXPECT_EQ(units[0].maxDisk, 3);
	EXPECT_STREQ(units[1].unique, "XU03");
	EXPECT_EQ(VEXOEBoxIsPoweron(&units[1]), 1);
	EXPECT_EQ(VEXOEBoxInfoEnum(units, 1), 1);
	char unique[8];
	EXPECT_EQ(VEXOEBoxUnitUniqueGetByDevPath("/dev/sdcc", unique, sizeof(unique)), 2);
	EXPECT_STREQ(unique, "XU05");
	EXPECT_EQ(VEXOEBoxUnitUniqueGetByDevPath("/dev/sdc", unique, sizeof(unique)), -1);
	EXPECT_ERR(0x2A00);
}

} // namespace

namespace {

TEST_F(PortEnum, CommandFamily)
{
	auto family = [](const char *path) {
		char type[16] = "untouched";
		return VEXODiskDeviceTypeGet(path, type, sizeof(type)) == 0 ? std::string(type) : "fail";
	};
	disks.sata("sda", 1);
	disks.sata("sdb", 2);
	disks.sata("sdc", 3);
	disks.sata("sdd", 4);
	disks.nvme("nvme0n1", "0000:00:01.2/0000:01:00.0");
	root.write("/sys/devices/pci0000:00/0000:00:17.0/ata2/host1/scsi_host/host1/proc_name", "mv14xx\n");
	root.write("/sys/devices/pci0000:00/0000:00:17.0/ata3/host2/scsi_host/host2/proc_name", "mvSata\n");
	EXPECT_EQ(family("/dev/sda"), "ata");
	EXPECT_EQ(family("/dev/sdb"), "sat");
	EXPECT_EQ(family("/dev/sdc"), "marvell");
	EXPECT_EQ(family("/dev/sdd"), "sat"); // a USB port
	EXPECT_EQ(family("/dev/nvme0n1"), "nvme");
	char tiny[3];
	EXPECT_EQ(VEXODiskDeviceTypeGet("/dev/sda", tiny, sizeof(tiny)), -1);
	EXPECT_EQ(VEXODiskDeviceTypeGet(nullptr, tiny, sizeof(tiny)), -1);
	{
		// Without port maps a disk has no container, so no family either.
		root.remove("/etc.defaults/vexoinfo.conf");
		vexo::external::resetPortMaps();
		LogCapture log;
		EXPECT_EQ(family("/dev/sda"), "fail");
		EXPECT_TRUE(log.has(LOG_ERR, "Failed to get container")) << log.dump();
	}
	maps({{"vvos", "yes"}});
	EXPECT_EQ(family("/dev/sda"), "scsi");
}

} // namespace
