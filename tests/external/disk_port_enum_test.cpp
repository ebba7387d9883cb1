// Enumeration by port type, device paths from numbers, partition and system paths.
#include <vexoplatform/ebox_info.h>

#include "external/port_fixture.h"

using vexo::test::LogCapture;

namespace {

class PortEnum : public vexo::test::PortFixture {
protected:
	void SetUp() override
	{
		PortFixture::SetUp();
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
		PortFixture::TearDown();
	}
	using PortFixture::maps;
	void maps(const Extra &extra) { PortFixture::maps("8", "4", "3", "10", extra); }
	// The list's items, and the list emptied for the next call.
	Names items()
	{
		Names out;
		for (int i = 0; i < list->nItem; ++i)
			out.emplace_back(VLIBCSzListGet(list, i));
		VLIBCSzListClear(list);
		return out;
	}

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

	const std::pair<int, Names> rows[] = {{3, {"sdca", "sdcb"}},          {1, {"nvme1n1", "sda", "sdb"}},
					      {7, {"nvc1", "nvme0n1", "sde"}}, {5, {"vexoboot"}},
					      {11, {"sysd1"}},                 {2, {}}};
	for (const auto &[type, want] : rows) {
		ASSERT_EQ(VEXODiskPortEnum(type, &list), 0) << type;
		EXPECT_EQ(items(), want) << type;
	}
	ASSERT_EQ(VEXODiskM2DriveEnum(&list), 0);
	EXPECT_EQ(items(), (Names{"nvc1", "nvme0n1"})); // the U.2 and the blocked disk stay out
	ASSERT_EQ(VEXODiskU2DriveEnum(&list), 0);
	EXPECT_EQ(items(), (Names{"nvme1n1"}));
	ASSERT_EQ(VEXODiskInternalDiskWithoutM2Enum(&list), 0);
	EXPECT_EQ(items(), (Names{"sda", "sdb"}));
	VLIBCSzListPush(&list, "sysd1");
	ASSERT_EQ(VEXODiskSystemInstallationDeviceEnum(&list), 0);
	EXPECT_EQ(items(), (Names{"nvme1n1", "sda", "sdb", "sysd1"}));

	// Products that refuse M.2 SATA leave nvc out.
	maps({{"support_nvme", "yes"}, {"block_m2_sata", "yes"}});
	ASSERT_EQ(VEXODiskM2DriveEnum(&list), 0);
	EXPECT_EQ(items(), (Names{"nvme0n1"}));

	LogCapture log;
	EXPECT_EQ(VEXODiskPortEnum(1, nullptr), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "device name list can not be NULL"));
	EXPECT_EQ(VEXODiskPortEnum(9, &list), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "disk port type doesn't exist"));
}

TEST_F(PortEnum, AllNamesOfAPortMap)
{
	maps("3000000", "30", "8000000f", "");
	ASSERT_EQ(VEXODiskPortEnumAll(1, &list), 0);
	EXPECT_EQ(items(), (Names{"sda", "sdb", "sdc", "sdd"})); // bit 31 names no letter
	ASSERT_EQ(VEXODiskPortEnumAll(4, &list), 0);
	EXPECT_EQ(items(), (Names{"sdy", "sdz"}));
	EXPECT_EQ(VEXODiskPortEnumAll(5, &list), -1);
	EXPECT_ERR(0xB600);
	maps("", "30", "f", "");
	EXPECT_EQ(VEXODiskPortEnumAll(1, &list), -1);
	EXPECT_ERR(0x0900);
	disks.portMaps("1", "30", "f", "", {{"support_sas", "yes"}});
	EXPECT_EQ(VEXODiskPortEnumAll(1, &list), -1);
	EXPECT_ERR(0xD900);
}

TEST_F(PortEnum, ExternalSataPorts)
{
	maps("1", "24", "3", ""); // sdc and sdf
	char name[8];
	EXPECT_EQ(VEXOExternalEsataPortCount(), 2);
	ASSERT_EQ(VEXOExternalEsataPortGet(2, name, sizeof(name)), 0);
	EXPECT_STREQ(name, "sdf");
	EXPECT_EQ(VEXOExternalEsataPortGet(3, name, sizeof(name)), -1);
	EXPECT_EQ(VEXOExternalEsataPortGet(0, name, sizeof(name)), -1);
	char tiny[3];
	EXPECT_EQ(VEXOExternalEsataPortGet(1, tiny, sizeof(tiny)), -1);
	EXPECT_EQ(VEXOExternalEsataPortIndexGet("/dev/sdf2"), 2);
	EXPECT_EQ(VEXOExternalEsataPortIndexGet("sda"), -1);
	// The table is read once per process.
	disks.portMaps("1", "1", "3", "");
	EXPECT_EQ(VEXOExternalEsataPortCount(), 2);
	disks.portMaps("1", "24", "3", "", {{"support_sas", "yes"}});
	EXPECT_EQ(VEXOExternalEsataPortCount(), 0);
}

TEST_F(PortEnum, PathsFromIndexesAndPositions)
{
	char path[32];
	auto byIndex = [&](int i) {
		return VEXODiskDevicePathGetByIndex(i, path, sizeof(path)) == 0 ? std::string(path) : "fail";
	};
	// Two-letter names past z, and the numbered ranges.
	EXPECT_EQ(byIndex(26), "/dev/sdz");
	EXPECT_EQ(byIndex(27), "/dev/sdaa");
	EXPECT_EQ(byIndex(53), "/dev/sdba");
	EXPECT_EQ(byIndex(905), "/dev/sysd5");
	EXPECT_EQ(byIndex(911), "/dev/nvc111");
	EXPECT_EQ(byIndex(1001), "/dev/nvme0n1");
	EXPECT_EQ(byIndex(0), "fail");
	maps({});
	EXPECT_EQ(byIndex(1001), "/dev/nvc201");
	char small[9];
	EXPECT_EQ(VEXODiskDevicePathGetByIndex(27, small, sizeof(small)), -1); // never a cut path

	auto at = [&](int pos, int cnr) {
		return VEXODiskDevicePathGetByPosition(pos, cnr, path, sizeof(path)) == 0 ? std::string(path) : "fail";
	};
	LogCapture log;
	EXPECT_EQ(at(3, 0), "/dev/sdc");
	EXPECT_EQ(at(2, 3000), "/dev/sysd2");
	EXPECT_EQ(at(1, 4000), "fail");
	EXPECT_TRUE(log.has(LOG_ERR, "we don't support disk container type 4000."));
	// Adapter card in slot 1, ATA port 3.
	disks.sata("nvc1", 3, "0000:00:1c.0/0000:03:00.0");
	EXPECT_EQ(at(3, 1001), "/dev/nvc1");
	EXPECT_EQ(at(4, 1001), "fail");
	// NVMe slot 0, location 2, only on NVMe products.
	disks.nvme("nvme1n1", "0000:00:01.5/0000:02:00.0");
	maps({{"support_nvme", "yes"}});
	EXPECT_EQ(at(2, 2000), "/dev/nvme1n1");
	maps({});
	EXPECT_EQ(at(2, 2000), "fail");
	// Expansion units: only powered ones count, and the bay must exist.
	disks.unit(4, "sdc", {"/dev/sdca", "/dev/sdcb"});
	disks.unit(5, "sdd", {"/dev/sdda"}, "XU06", "off");
	EXPECT_EQ(at(2, 3), "/dev/sdcb");
	EXPECT_EQ(at(3, 3), "fail");
	EXPECT_EQ(at(1, 4), "fail");
}

TEST_F(PortEnum, PartitionAndSystemPaths)
{
	char out[32];
	const std::pair<const char *, const char *> names[] = {
		{"/dev/sda", "sda3"}, {"nvme0n1", "nvme0n1p3"}, {"/dev/mmcblk0", "mmcblk0p3"}};
	for (auto [disk, want] : names) {
		ASSERT_EQ(VEXODiskDevicePartitionNameGet(disk, 3, out, sizeof(out)), 0) << disk;
		EXPECT_STREQ(out, want);
	}
	EXPECT_EQ(VEXODiskDevicePartitionNameGet("/dev/vexoboot", 1, out, sizeof(out)), -1);
	char tiny[4];
	EXPECT_EQ(VEXODiskDevicePartitionNameGet("sda", 10, tiny, sizeof(tiny)), -1);

	ASSERT_EQ(VEXODiskFirstDataDevicePathGet(out, sizeof(out)), 0);
	EXPECT_STREQ(out, "/dev/sda3");
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
}

TEST_F(PortEnum, UnitsAndHosts)
{
	disks.unit(4, "sdc", {"/dev/sdca", "/dev/sdcb", "/dev/sdcc"});
	disks.unit(6, "sdf", {"/dev/sdfa"}, "XU03");
	root.remove("/dev/sdcb"); // a bay whose disk is gone
	char names[64];
	ASSERT_EQ(VEXOEnumAllEUnitsDisks(0, names, sizeof(names)), 0);
	EXPECT_STREQ(names, "sdca sdcc sdfa ");
	char small[10] = "untouched"; // 15 bytes and a NUL do not fit
	EXPECT_EQ(VEXOEnumAllEUnitsDisks(0, small, sizeof(small)), -1);

	char name[16];
	ASSERT_EQ(VEXODiskGetDevnamebyAtaPort(name, sizeof(name), "ata5.01"), 0);
	EXPECT_STREQ(name, "sdcb");
	ASSERT_EQ(VEXODiskGetDevnamebyAtaPort(name, sizeof(name), "7.00"), 0);
	EXPECT_STREQ(name, "sdfd"); // XU03 bays are wired in reverse
	EXPECT_EQ(VEXODiskGetDevnamebyAtaPort(name, sizeof(name), "7.04"), -1);
	EXPECT_ERR(0x0A00);

	// Where a disk stands, as text for the MIB.
	maps("1", "24", "3", "", {{"upnpmodelname", "VQ300"}});
	char text[32];
	ASSERT_EQ(VEXODiskPathMibFormatGet("/dev/sdcc", text, sizeof(text)), 0);
	EXPECT_STREQ(text, "E3-3");
	EXPECT_EQ(VEXODiskPathMibFormatGet("hda", text, sizeof(text)), -1);

	// Platform view of the same units.
	VEXO_EBOX_INFO units[4];
	ASSERT_EQ(VEXOEBoxInfoEnum(units, 4), 2);
	EXPECT_EQ(units[0].maxDisk, 3);
	char unique[8];
	EXPECT_EQ(VEXOEBoxUnitUniqueGetByDevPath("/dev/sdcc", unique, sizeof(unique)), 2);
	EXPECT_STREQ(unique, "XU05");
	EXPECT_EQ(VEXOEBoxUnitUniqueGetByDevPath("/dev/sdc", unique, sizeof(unique)), -1);
	EXPECT_ERR(0x2A00);
}

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
