// Port types from the port maps, enumeration by port type, device paths
// from numbers, NVMe locations, the mask cache, and where a disk stands as
// text.
#include <string>
#include <syslog.h>
#include <utility>
#include <vector>
#include <vexohw/disk.h>
#include <vexohw/disk_port.h>
#include <vexoplatform/ebox_info.h>
#include <vexoplatform/nvme_location.h>

#include "external/port_map.h"
#include "support/disk_layout.h"

using namespace vexo::test;

namespace {

// A sysroot, its disk layout, and port maps read afresh after each change.
class PortFixture : public ::testing::Test {
protected:
	using Extra = std::vector<std::pair<std::string, std::string>>;
	using Names = std::vector<std::string>;
	void SetUp() override
	{
		VLIBCErrClear();
		vexo::external::resetPortMaps();
	}
	void TearDown() override { vexo::external::resetPortMaps(); }
	void maps(const std::string &usb, const std::string &esata, const std::string &internal, const std::string &cache,
		  const Extra &extra = {})
	{
		disks.portMaps(usb, esata, internal, cache, extra);
		vexo::external::resetPortMaps();
	}

	Sysroot root;
	DiskLayout disks{root};
};

class PortEnum : public PortFixture {
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
	for (auto [name, port] : {std::pair{"sdb", 2}, {"sda", 1}, {"sdd", 4}, {"sde", 5}, {"sdcb", 6}, {"sdca", 7}})
		disks.sata(name, port);
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
	auto port = [](int i, size_t size) { return textOf([&](char *b, int n) { return VEXOExternalEsataPortGet(i, b, n); }, size); };
	EXPECT_EQ(VEXOExternalEsataPortCount(), 2);
	EXPECT_EQ(port(2, 8), "sdf");
	EXPECT_EQ(port(3, 8), "rc=-1");
	EXPECT_EQ(port(0, 8), "rc=-1");
	EXPECT_EQ(port(1, 3), "rc=-1");
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
	auto part = [](const char *disk, int n, size_t size = 32) {
		return textOf([&](char *b, int s) { return VEXODiskDevicePartitionNameGet(disk, n, b, s); }, size);
	};
	EXPECT_EQ(part("/dev/sda", 3), "sda3");
	EXPECT_EQ(part("nvme0n1", 3), "nvme0n1p3");
	EXPECT_EQ(part("/dev/mmcblk0", 3), "mmcblk0p3");
	EXPECT_EQ(part("/dev/vexoboot", 1), "rc=-1");
	EXPECT_EQ(part("sda", 10, 4).substr(0, 5), "rc=-1");

	EXPECT_EQ(textOf(VEXODiskFirstDataDevicePathGet, 32), "/dev/sda3");
	EXPECT_EQ(textOf(VEXOSystemDeviceMountPathGet, 32), "/dev/sda1");
	root.symlink("sda1", "/dev/system-root"); // a dangling link counts: lstat
	EXPECT_EQ(textOf(VEXOSystemDeviceMountPathGet, 32), "/dev/system-root");
	maps({{"alivos", "yes"}});
	EXPECT_EQ(textOf(VEXODiskSysDevicePathGet, 32), "/dev/sda5");
	maps({{"support_raid", "yes"}});
	EXPECT_EQ(textOf(VEXODiskSysDevicePathGet, 32), "/dev/md0");
}

TEST_F(PortEnum, UnitsAndHosts)
{
	disks.unit(4, "sdc", {"/dev/sdca", "/dev/sdcb", "/dev/sdcc"});
	disks.unit(6, "sdf", {"/dev/sdfa"}, "XU03");
	root.remove("/dev/sdcb"); // a bay whose disk is gone
	auto all = [](size_t size) { return textOf([](char *b, int n) { return VEXOEnumAllEUnitsDisks(0, b, n); }, size); };
	EXPECT_EQ(all(64), "sdca sdcc sdfa ");
	EXPECT_EQ(all(10).substr(0, 5), "rc=-1"); // 15 bytes and a NUL do not fit
	auto byPort = [](const char *host) {
		return textOf([&](char *b, int n) { return VEXODiskGetDevnamebyAtaPort(b, n, host); }, 16);
	};
	EXPECT_EQ(byPort("ata5.01"), "sdcb");
	EXPECT_EQ(byPort("7.00"), "sdfd"); // XU03 bays are wired in reverse
	EXPECT_EQ(byPort("7.04"), "rc=-1");
	EXPECT_ERR(0x0A00);

	// Where a disk stands, as text for the MIB.
	maps("1", "24", "3", "", {{"upnpmodelname", "VQ300"}});
	EXPECT_EQ(textOf(VEXODiskPathMibFormatGet, "/dev/sdcc", 32), "E3-3");
	EXPECT_EQ(textOf(VEXODiskPathMibFormatGet, "hda", 32).substr(0, 5), "rc=-1");

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
	for (int port = 1; port <= 4; ++port)
		disks.sata("sd" + std::string(1, char('a' + port - 1)), port);
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

// Port types from the port maps, the M.2 answer, NVMe locations and the mask cache.
class PortCheck : public PortFixture {
protected:
	void SetUp() override
	{
		PortFixture::SetUp();
		disks.platform(R"({"model": "VQ300", "ebox": true,
		  "nvme_slots": [{"pci": "0000:00:01.2", "slot": 0, "location": 1, "type": "cache"},
		                 {"pci": "0000:00:01.3", "slot": 0, "location": 2, "type": "blocked"},
		                 {"pci": "0000:00:01.4", "slot": 0, "location": 3, "type": "internal"},
		                 {"pci": "0000:00:01.5", "slot": 0, "location": 4, "type": "u2"},
		                 {"pci": "0000:00:01.6", "slot": 0, "location": 5, "type": "system"}],
		  "adapter_slots": [{"pci": "0000:00:1c.0", "slot": 1, "card": "M2C-D2"},
		                    {"pci": "0000:00:1d.0", "slot": 2, "card": "M2C-S1"},
		                    {"pci": "0000:00:1e.0", "slot": 3, "card": "M2C-ZZ"}],
		  "adapter_cards": {"M2C-D2": {"sup_sata": true, "sup_nvme": true}, "M2C-S1": {"sup_sata": true}}})");
	}
};

TEST_F(PortCheck, PortTypeByName)
{
	struct Case {
		const char *usb, *esata, *internal, *cache, *name;
		int want;
	} cases[] = {
		// Two letters behind an external port: expansion unit without asking the units.
		{"100", "1", "0", "", "sdab", 3},
		{"100", "1", "0", "", "/dev/sdab3", 3},
		// The first letter must name an external port; otherwise the letter bits decide.
		{"100", "1", "0", "", "sdbb", 8},
		// External wins over internal for a letter in both maps.
		{"100", "1", "1", "", "sda", 2},
		{"100", "0", "ff", "", "/dev/sdh1", 1},
		{"100", "0", "ff", "", "sdi", 4},
		{"100", "0", "ff", "", "sdj", 8}, // in no map, cache map empty
		{"100", "0", "ff", "200", "sdj", 7},
		// Index 32 (sdag) tests bit 0, index 33 bit 1; bits above 31 of a mask are never tested.
		{"80000000", "", "1", "", "sdag", 1},
		{"80000000", "", "1", "", "sdah", 8},
		{"80000000", "", "1", "", "sdaf", 4},
		{"100000000", "", "100000000", "", "sdag", 8},
		// Names outside the port maps; one too long for the partition buffer is unknown.
		{"1", "", "2", "", "/dev/mmcblk0p1", 9},
		{"1", "", "2", "", "sysd1", 11},
		{"1", "", "2", "", "/dev/vexoboot2", 5},
		{"1", "", "2", "", "isd0", 6},
		{"1", "", "2", "", "hda", 0},
		{"1", "", "2", "", "/dev/sdaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa", 0},
	};
	for (const Case &c : cases) {
		maps(c.usb, c.esata, c.internal, c.cache);
		EXPECT_EQ(VEXODiskPortCheck(c.name), c.want) << c.name << " usb=" << c.usb << " internal=" << c.internal;
	}
	LogCapture log;
	EXPECT_EQ(VEXODiskPortCheck(nullptr), 0);
	EXPECT_EQ(VEXODiskPortCheck("sd"), 0);
	EXPECT_TRUE(log.has(LOG_ERR, "error or not supported disk path sd."));
	// A letter in both maps is a unit's when a unit lists the name and the device opens.
	maps("100", "1", "1", "");
	disks.unit(3, "sda", {"/dev/sda"});
	EXPECT_EQ(VEXODiskPortCheck("sda"), 3);
	root.remove("/dev/sda");
	EXPECT_EQ(VEXODiskPortCheck("sda"), 2);
}

TEST_F(PortCheck, MasksAreCachedUnlessUsbIsZero)
{
	LogCapture log;
	// Without usbportcfg nothing can be answered.
	maps("", "", "1", "");
	EXPECT_EQ(VEXODiskPortCheck("sda"), 0);
	EXPECT_TRUE(log.has(LOG_ERR, "Get usbportcfg key from /etc.defaults/vexoinfo.conf Error"));

	// A zero USB mask is read again on each call.
	maps("0", "", "1", "");
	EXPECT_EQ(VEXODiskPortCheck("sda"), 1);
	disks.portMaps("0", "", "2", "");
	EXPECT_EQ(VEXODiskPortCheck("sda"), 8);
	EXPECT_EQ(VEXODiskPortCheck("sdb"), 1);

	// A non-zero one is read once per process.
	disks.portMaps("4", "", "1", "");
	EXPECT_EQ(VEXODiskPortCheck("sda"), 1);
	disks.portMaps("4", "", "2", "");
	EXPECT_EQ(VEXODiskPortCheck("sda"), 1);
	EXPECT_EQ(VEXODiskPortCheck("sdb"), 8);
}

TEST_F(PortCheck, M2Answer)
{
	maps("1", "", "1", "", {{"support_nvme", "yes"}});
	disks.sata("nvc1", 3, "0000:00:1c.0/0000:03:00.0"); // card model 0
	disks.sata("nvc2", 4, "0000:00:1d.0/0000:04:00.0"); // card model 1
	disks.sata("nvc3", 5, "0000:00:1e.0/0000:05:00.0"); // unknown card
	disks.sata("nvc4", 6, "0000:00:17.0");              // on the board
	// Card model 0 serves only VQ201..VQ208; the name must match exactly.
	EXPECT_EQ(VEXODiskPortCheck("/dev/nvc1"), 10);
	EXPECT_EQ(VEXODiskPortCheck("/dev/nvc2"), 7);
	EXPECT_EQ(VEXODiskPortCheck("/dev/nvc3"), 10); // blocked before the M.2 answer
	EXPECT_EQ(VEXODiskPortCheck("/dev/nvc4"), 7);
	const std::string cards = R"(, "adapter_slots": [{"pci": "0000:00:1c.0", "slot": 1, "card": "M2C-D2"},
	  {"pci": "0000:00:1d.0", "slot": 2, "card": "M2C-S1"}], "adapter_cards": {"M2C-D2": {"sup_sata": true}, "M2C-S1": {"sup_sata": true}}})";
	disks.platform(R"({"model": "VQ205")" + cards);
	EXPECT_EQ(VEXODiskPortCheck("/dev/nvc1"), 7);
	disks.platform(R"({"model": "VQ2055")" + cards);
	EXPECT_EQ(VEXODiskPortCheck("/dev/nvc1"), 10);
	// SATA cards are blocked on VQ110 and VQ120 only.
	disks.platform(R"({"model": "VQ120")" + cards);
	EXPECT_EQ(VEXODiskPortCheck("/dev/nvc2"), 10);
	// A product whose M.2 slots take everything.
	maps("1", "", "1", "", {{"support_m2_all_dev", "yes"}});
	EXPECT_EQ(VEXODiskPortCheck("/dev/nvc2"), 7);
	// A card that may not carry SATA here is blocked.
	disks.platform(R"({"model": "VQ300", "adapter_slots": [{"pci": "0000:00:1d.0", "slot": 2, "card": "M2C-S1"}],
	  "adapter_cards": {"M2C-S1": {"sup_sata": false}}})");
	EXPECT_EQ(VEXODiskCheckValid("nvc2"), 0);
	EXPECT_EQ(VEXODiskPortCheck("/dev/nvc2"), 10);
	// Without a model name nothing is known.
	root.remove("/etc.defaults/vexoplatform.json");
	LogCapture log;
	EXPECT_EQ(VEXODiskPortCheck("/dev/nvc4"), 0);
	EXPECT_TRUE(log.has(LOG_ERR, "Failed to get model name"));
}

TEST_F(PortCheck, NvmeLocations)
{
	maps("1", "", "1", "", {{"support_nvme", "yes"}});
	const char *pci[] = {"0000:00:01.2", "0000:00:01.3", "0000:00:01.4", "0000:00:01.5", "0000:00:01.6"};
	const int type[] = {7, 10, 1, 1, 11};
	for (int i = 0; i < 5; ++i) {
		std::string name = "nvme" + std::to_string(i) + "n1";
		disks.nvme(name, std::string(pci[i]) + "/0000:0" + std::to_string(i + 1) + ":00.0");
		EXPECT_EQ(VEXODiskPortCheck(name.c_str()), type[i]) << name;
	}
	EXPECT_EQ(VEXODiskPortCheck("/dev/nvme0n1p1"), 7);
	auto byLoc = [](int slot, int loc, size_t size = 32) {
		return textOf([&](char *b, int n) { return VEXONVMeDevGetByLoc(slot, loc, b, n); }, size);
	};
	EXPECT_EQ(byLoc(0, 4), "/dev/nvme3n1");
	EXPECT_EQ(byLoc(1, 4).substr(0, 5), "rc=-1");
	EXPECT_EQ(byLoc(0, 4, 8).substr(0, 5), "rc=-1");
	// An NVMe disk on a card that may carry NVMe.
	disks.nvme("nvme5n1", "0000:00:1c.0/0000:06:00.0");
	EXPECT_EQ(VEXODiskCheckValid("nvme5n1"), 1);
	// Without NVMe support the name falls to the port maps, which know no nvme.
	maps("1", "", "1", "");
	EXPECT_EQ(VEXODiskPortCheck("nvme0n1"), 0);
	EXPECT_EQ(VEXONVMeCheckSupportAndNVMeSSD("nvme0n1"), 0);
}

// Where a disk stands as text: DiskGetLocation, VEXODiskLocateGetWithoutIndex,
// the PCIe-attached unit branch of VEXODiskLocateHostGet and the updater's
// holder text, which must not ask the unit driver.
// sda, sdb internal; sdc the external port with a unit (host 4, XU05 as unit 3)
// whose disks sdca, sdcb sit on a controller behind the PCIe port 0000:00:1c.0.
class Location : public PortFixture {
protected:
	void SetUp() override
	{
		PortFixture::SetUp();
		disks.sata("sda", 1);
		disks.sata("sdca", 5, "0000:00:1c.0/0000:03:00.0");
		disks.sata("sdcb", 6, "0000:00:1c.0/0000:03:00.0");
		disks.nvme("nvme2n1", "0000:00:1c.0/0000:04:00.0");
		disks.unit(4, "sdc", {"/dev/sdca", "/dev/sdcb"});
		platform(R"("pcie_eunits": [{"pci": "0000:00:1c.0", "unique": "XU20"}])");
		pcieUnits(false);
	}
	void pcieUnits(bool yes)
	{
		maps("10", "4", "3", "", {{"upnpmodelname", "VQ300"}, {"support_nvme_eunit", yes ? "yes" : "no"}});
	}
	void platform(const std::string &extra)
	{
		disks.platform(R"({"model": "VQ300", "ebox": true,
		  "nvme_slots": [{"pci": "0000:04:00.0", "slot": 0, "location": 3, "type": "internal"}])" +
			       (extra.empty() ? "" : ", " + extra) + "}");
	}
	// The texts, by textOf: "rc=-1" when refused with the buffer untouched.
	std::string where(const DiskId &id)
	{
		return textOf([&](char *b, int n) { return DiskGetLocation(&id, b, n); }, 64);
	}
	std::string withoutIndex(const char *path) { return textOf(VEXODiskLocateGetWithoutIndex, path, 64); }
	std::string host(const char *path, int flag = 0)
	{
		return textOf([&](char *b, int n) { return VEXODiskLocateHostGet(path, b, n, flag); }, 64);
	}
	std::string inUpdater(const char *path) { return textOf(VEXODiskLocateHostGetInUpdater, path, 64); }
};

TEST_F(Location, PlacesOfEveryContainer)
{
	EXPECT_EQ(where({3, DISK_CONTAINER_INTERNAL, 0, 0, -1}), "VQ300 Disk 3");
	EXPECT_EQ(where({2, DISK_CONTAINER_EBOX, 3, 1, -1}), "XU05-3 Disk 2");
	EXPECT_EQ(where({1, DISK_CONTAINER_EBOX, 9, 0, -1}), "Enclosure-9 Disk 1"); // no unit 9
	EXPECT_EQ(where({12, DISK_CONTAINER_CACHE, 0, 0, -1}), "VQ300 Cache device 2");
	EXPECT_EQ(where({2, DISK_CONTAINER_CACHE, 0, 0, 1}), "VQ300 Cache device 1-2");
	EXPECT_EQ(where({2, DISK_CONTAINER_SYS, 0, 0, -1}), "VQ300 System device 2");
	// The unit's own text comes from its port when units hang off PCIe.
	pcieUnits(true);
	EXPECT_EQ(where({2, DISK_CONTAINER_EBOX, 3, 1, -1}), "XU20-3 Disk 2");
}

TEST_F(Location, RefusalsLeaveAClearError)
{
	LogCapture log;
	char text[64] = "untouched";
	DiskId good{3, DISK_CONTAINER_INTERNAL, 0, 0, -1};
	EXPECT_EQ(DiskGetLocation(nullptr, text, sizeof(text)), -1);
	EXPECT_ERR(0x0D00);
	EXPECT_EQ(DiskGetLocation(&good, text, 0), -1);
	EXPECT_STREQ(text, "untouched");
	EXPECT_TRUE(log.has(LOG_ERR, "Bad parameters"));
	EXPECT_EQ(where({0, DISK_CONTAINER_INTERNAL, 0, 0, -1}), "rc=-1");
	EXPECT_ERR(0x0D00);
	EXPECT_EQ(where({1, DISK_CONTAINER_EBOX, 0, 0, -1}), "rc=-1"); // a unit disk needs its unit
	EXPECT_EQ(where({1, DISK_CONTAINER_TMPFS, 0, 0, -1}), "rc=-1");
	EXPECT_ERR(0x6100);
	// A cache id whose slot gives no text.
	EXPECT_EQ(where({1, DISK_CONTAINER_CACHE, 0, 0, -2}), "rc=-1");
	EXPECT_ERR(0x0D00);
	// Too small: nothing cut is handed out.
	char small[8] = "xxxxxxx";
	EXPECT_EQ(DiskGetLocation(&good, small, sizeof(small)), -1);
	EXPECT_ERR(0x0D00);
	EXPECT_STREQ(small, "");
	// No product name.
	maps("10", "4", "3", "");
	EXPECT_EQ(where(good), "rc=-1");
	EXPECT_ERR(0x2A00);
}

TEST_F(Location, HolderWithTheUnitNumber)
{
	EXPECT_EQ(withoutIndex("/dev/sda"), "VQ300");
	EXPECT_EQ(withoutIndex("/dev/sdcb3"), "XU05-3");
	EXPECT_EQ(withoutIndex("hda"), "rc=-1");
	EXPECT_EQ(withoutIndex(nullptr), "rc=-1");
	EXPECT_ERR(0x0D00);
	char tiny[4];
	EXPECT_EQ(VEXODiskLocateGetWithoutIndex("/dev/sdca", tiny, sizeof(tiny)), -1);
	EXPECT_ERR(0x0D00);

	// Units over PCIe: the text comes from the unit's port.
	pcieUnits(true);
	EXPECT_EQ(host("/dev/sdcb"), "XU20");
	EXPECT_EQ(withoutIndex("/dev/sdcb"), "XU20-3");
	EXPECT_EQ(host("/dev/sda"), "VQ300");
	// A port the description does not know: the fallbacks.
	platform("");
	EXPECT_EQ(host("/dev/sdcb"), "Enclosure-3");
	EXPECT_EQ(withoutIndex("/dev/sdcb"), "Enclosure-3");
}

TEST_F(Location, PcieUnitPlacesItsDisks)
{
	char unique[16] = "";
	// ATA ports 5 and 6 of the unit's controller are its bays 5 and 6.
	EXPECT_EQ(VEXOPcieEunitUniqueGetByDevPath("/dev/sdca", unique, sizeof(unique)), 4);
	EXPECT_STREQ(unique, "XU20");
	EXPECT_EQ(VEXOPcieEunitUniqueGetByDevPath("sdcb2", unique, sizeof(unique)), 5);
	// An NVMe disk of the unit: its location below the unit's port.
	EXPECT_EQ(VEXOPcieEunitUniqueGetByDevPath("/dev/nvme2n1", unique, sizeof(unique)), 2);

	EXPECT_EQ(VEXOPcieEunitUniqueGetByDevPath(nullptr, unique, sizeof(unique)), -1);
	EXPECT_ERR(0x0D00);
	EXPECT_EQ(VEXOPcieEunitUniqueGetByDevPath("/dev/../sda", unique, sizeof(unique)), -1);
	EXPECT_ERR(0x0D00);
	char tiny[4] = "abc";
	EXPECT_EQ(VEXOPcieEunitUniqueGetByDevPath("/dev/sdca", tiny, sizeof(tiny)), -1);
	EXPECT_ERR(0x0D00);
	EXPECT_STREQ(tiny, "");
	EXPECT_EQ(VEXOPcieEunitUniqueGetByDevPath("/dev/sda", unique, sizeof(unique)), -1); // not in a unit
	EXPECT_ERR(0x2A00);
	EXPECT_EQ(VEXOPcieEunitUniqueGetByDevPath("/dev/sdzz", unique, sizeof(unique)), -1); // no such disk
	EXPECT_ERR(0x0700);

	LogCapture log;
	// A disk under the port with no bay to read, and an entry without its text.
	disks.nvme("nvme3n1", "0000:00:1c.0/0000:05:00.0");
	EXPECT_EQ(VEXOPcieEunitUniqueGetByDevPath("/dev/nvme3n1", unique, sizeof(unique)), -1);
	EXPECT_ERR(0x0A00);
	EXPECT_TRUE(log.has(LOG_ERR, "Failed to place nvme3n1 in the expansion unit at 0000:00:1c.0"));
	root.remove("/sys/devices/pci0000:00/0000:00:1c.0/0000:03:00.0/ata5/ata_port/ata5/port_no");
	EXPECT_EQ(VEXOPcieEunitUniqueGetByDevPath("/dev/sdca", unique, sizeof(unique)), -1);
	EXPECT_ERR(0x0A00);
	platform(R"("pcie_eunits": [{"pci": "0000:00:1c.0"}])");
	EXPECT_EQ(VEXOPcieEunitUniqueGetByDevPath("/dev/sdcb", unique, sizeof(unique)), -1);
	EXPECT_ERR(0x0A00);
	EXPECT_TRUE(log.has(LOG_ERR, "No unique text for the expansion unit at 0000:00:1c.0"));
	platform(R"("pcie_eunits": {"pci": "0000:00:1c.0"})");
	EXPECT_EQ(VEXOPcieEunitUniqueGetByDevPath("/dev/sdcb", unique, sizeof(unique)), -1);
	EXPECT_ERR(0x0A00);
	root.remove("/etc.defaults/vexoplatform.json");
	EXPECT_EQ(VEXOPcieEunitUniqueGetByDevPath("/dev/sdcb", unique, sizeof(unique)), -1);
	EXPECT_ERR(0x0700);
}

TEST_F(Location, UpdaterNeverAsksTheUnit)
{
	// Outside the updater the unit names itself; inside it only the parsed
	// unit number is known, partitions or not, and so with the host flag.
	EXPECT_EQ(host("/dev/sdcb"), "XU05");
	EXPECT_EQ(inUpdater("/dev/sdcb"), "Enclosure-3");
	EXPECT_EQ(inUpdater("sdca2"), "Enclosure-3");
	EXPECT_EQ(host("/dev/sdca", 7), "Enclosure-3");
	EXPECT_EQ(inUpdater("sda5"), "VQ300");
	// Without the product name only unit disks have an answer.
	maps("10", "4", "3", "");
	EXPECT_EQ(inUpdater("/dev/sda"), "rc=-1");
	EXPECT_ERR(0x2A00);
	EXPECT_EQ(inUpdater("/dev/sdcb"), "Enclosure-3");

	char text[64] = "untouched";
	EXPECT_EQ(VEXODiskLocateHostGetInUpdater(nullptr, text, sizeof(text)), -1);
	EXPECT_ERR(0x0D00);
	EXPECT_EQ(VEXODiskLocateHostGetInUpdater("/dev/sda", text, 0), -1);
	EXPECT_STREQ(text, "untouched");
	EXPECT_EQ(inUpdater("hda"), "rc=-1"); // no port type
	// "Enclosure-3" needs 12 bytes: one less fails and hands out nothing cut.
	char small[11] = "xxxxxxxxxx";
	EXPECT_EQ(VEXODiskLocateHostGetInUpdater("/dev/sdcb", small, sizeof(small)), -1);
	EXPECT_STREQ(small, "");
	char exact[12];
	ASSERT_EQ(VEXODiskLocateHostGetInUpdater("/dev/sdcb", exact, sizeof(exact)), 0);
	EXPECT_STREQ(exact, "Enclosure-3");
}

} // namespace
