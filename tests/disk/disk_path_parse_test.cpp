// Device names into DiskIds: port maps, units, NVMe, sysd, M.2 cards, partitions.
#include <cstddef>
#include <cstring>
#include <syslog.h>

#include <vexohw/disk.h>
#include <vexohw/disk_port.h>

#include "external/port_map.h"
#include "support/disk_layout.h"

using vexo::test::DiskLayout;
using vexo::test::LogCapture;
using vexo::test::Sysroot;

// The records are shared with other processes through /tmp/enumlist_det.
static_assert(sizeof(DiskId) == 20);
static_assert(sizeof(DiskInfo) == 328);
static_assert(offsetof(DiskInfo, name) == 32);
static_assert(offsetof(DiskInfo, path) == 48);
static_assert(offsetof(DiskInfo, model) == 176);
static_assert(offsetof(DiskInfo, sizeBytes) == 304);
static_assert(offsetof(DiskInfo, temperature) == 312);
static_assert(offsetof(DiskInfo, secureErasing) == 316);
static_assert(offsetof(DiskInfo, logicalBlockSize) == 320);
static_assert(sizeof(DiskInfoFileEntry) == 320);
static_assert(offsetof(DiskInfoFileEntry, slot) == 4);
static_assert(offsetof(DiskInfoFileEntry, container) == 8);
static_assert(offsetof(DiskInfoFileEntry, unit) == 12);
static_assert(offsetof(DiskInfoFileEntry, partitionNumber) == 16);
static_assert(offsetof(DiskInfoFileEntry, reserved) == 20);
static_assert(offsetof(DiskInfoFileEntry, name) == 32);
static_assert(offsetof(DiskInfoFileEntry, path) == 48);
static_assert(offsetof(DiskInfoFileEntry, model) == 176);
static_assert(offsetof(DiskInfoFileEntry, sizeBytes) == 304);
static_assert(offsetof(DiskInfoFileEntry, temperature) == 312);
static_assert(offsetof(DiskInfoFileEntry, logicalBlockSize) == 316);

namespace {

constexpr const char *kPlatform = R"({
  "model": "VQ110",
  "ebox": true,
  "nvme_slots": [
    {"pci": "0000:00:01.2", "slot": 0, "location": 1, "type": "cache"},
    {"pci": "0000:00:01.3", "slot": 0, "location": 2, "type": "system"},
    {"pci": "0000:05:00.0", "slot": 2, "location": 3, "type": "cache"}
  ],
  "adapter_slots": [
    {"pci": "0000:00:1c.0", "slot": 1, "card": "M2C-S2"},
    {"pci": "0000:00:1d.0", "slot": 2, "card": "M2C-D2"},
    {"pci": "0000:00:1e.0", "slot": 3, "card": "M2C-ZZ"}
  ],
  "adapter_cards": {"M2C-S2": {"sup_sata": true}, "M2C-D2": {"sup_nvme": true, "sup_sata": false}}
})";

class DiskNames : public ::testing::Test {
protected:
	void SetUp() override
	{
		VLIBCErrClear();
		vexo::external::resetPortMaps();
		disks.platform(kPlatform);
		// sda..sdd internal, sde esata, sdf usb.
		disks.portMaps("20", "10", "f", "", {{"support_nvme", "yes"}});
		root.write("/etc.defaults/extensionPorts", "[pci]\npci1=\"0000:00:1c.0\"\npci2=\"0000:00:1d.0\"\n");
	}
	void TearDown() override { vexo::external::resetPortMaps(); }

	DiskId parse(const char *path, int expectRc = 0)
	{
		DiskId id{-7, -7, -7, -7, -7};
		EXPECT_EQ(DiskPathParse(path, &id), expectRc) << path;
		return id;
	}

	Sysroot root;
	DiskLayout disks{root};
};

TEST_F(DiskNames, IndexOfLetters)
{
	EXPECT_EQ(DiskIndexGet("sda"), 0);
	EXPECT_EQ(DiskIndexGet("/dev/sdz"), 25);
	EXPECT_EQ(DiskIndexGet("sdb3"), 1);
	EXPECT_EQ(DiskIndexGet("sdzz"), 701);
	EXPECT_EQ(DiskIndexGet("sd"), -1);
	EXPECT_EQ(DiskIndexGet("sd1"), -1);
	EXPECT_EQ(DiskIndexGet(nullptr), -1);
	// A run of letters long enough to overflow gives up instead.
	EXPECT_EQ(DiskIndexGet("sdzzzzzzzzzzzzzzzzzzzzzz"), -1);
	EXPECT_STREQ(VEXODiskDevPrefixSkip("/dev/sda"), "sda");
	EXPECT_STREQ(VEXODiskDevPrefixSkip("sda"), "sda");
	EXPECT_EQ(VEXODiskDevPrefixSkip(nullptr), nullptr);
}

TEST_F(DiskNames, PartitionNumbers)
{
	char disk[32];
	EXPECT_EQ(VEXODiskPartitionNumGet("nvme0n1p2", disk, sizeof(disk)), 2);
	EXPECT_STREQ(disk, "nvme0n1");
	EXPECT_EQ(VEXODiskPartitionNumGet("nvme0n1", disk, sizeof(disk)), 0);
	EXPECT_EQ(VEXODiskPartitionNumGet("sda", disk, sizeof(disk)), 0);
	EXPECT_EQ(VEXODiskPartitionNumGet("/dev/sdb15", disk, sizeof(disk)), 15);
	EXPECT_STREQ(disk, "/dev/sdb");
	EXPECT_EQ(VEXODiskPartitionNumGet("sysd1p3", disk, sizeof(disk)), 3);
	// A 0 does not end an sd disk part: "sda0" is a whole name.
	EXPECT_EQ(VEXODiskPartitionNumGet("sda0", disk, sizeof(disk)), 0);
	EXPECT_STREQ(disk, "sda0");
	EXPECT_EQ(VEXODiskPartitionNumGet("1sda", disk, sizeof(disk)), -1);
	EXPECT_EQ(VEXODiskPartitionNumGet("nvme0n1px", disk, sizeof(disk)), -1);
	// The disk part is cut at size-1: a long name cannot be parsed.
	EXPECT_EQ(VEXODiskPartitionNumGet("sdaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa1", disk, sizeof(disk)), -1);
	char small[4];
	EXPECT_EQ(VEXODiskPartitionNumGet("sda1", small, sizeof(small)), 1);
	EXPECT_STREQ(small, "sda");
	EXPECT_EQ(VEXODiskPartitionNumGet("sdab1", small, sizeof(small)), -1);

	EXPECT_EQ(DiskPartitionNumRemove("/dev/sda3", disk, sizeof(disk)), 0);
	EXPECT_STREQ(disk, "/dev/sda");
	EXPECT_EQ(DiskPartitionNumRemove("sda0", disk, sizeof(disk)), 0);
	EXPECT_STREQ(disk, "sda"); // cut at any digit, unlike the split above
	EXPECT_EQ(DiskPartitionNumRemove("nvme0n1p12", disk, sizeof(disk)), 0);
	EXPECT_STREQ(disk, "nvme0n1");
	EXPECT_EQ(DiskPartitionNumRemove("nvc1p", disk, sizeof(disk)), 0);
	EXPECT_STREQ(disk, "nvc1p");
	// The buffer must hold the whole input, whatever is cut.
	LogCapture log;
	char four[4] = "xyz";
	EXPECT_EQ(DiskPartitionNumRemove("sda1", four, sizeof(four)), -1);
	EXPECT_STREQ(four, "xyz");
	EXPECT_TRUE(log.has(LOG_ERR, "buffer size of szDiskPath should be longer than string length of szPartPath"));
	char five[5];
	EXPECT_EQ(DiskPartitionNumRemove("sda1", five, sizeof(five)), 0);
	EXPECT_STREQ(five, "sda");
}

TEST_F(DiskNames, ContainersAndPortTypes)
{
	int c = 99;
	// A few rows of the table; an unused type leaves the output alone.
	for (auto [type, want] : {std::pair{1, 1}, {7, 32}, {11, 128}, {0, -1}, {5, -1}}) {
		c = 99;
		EXPECT_EQ(VEXODiskPortToContainer(type, &c), want < 0 ? -1 : 0) << type;
		EXPECT_EQ(c, want < 0 ? 99 : want) << type;
	}
	LogCapture log;
	EXPECT_EQ(VEXODiskPortToContainer(12, &c), -1);
	EXPECT_EQ(VEXODiskPortToContainer(-1, &c), -1);
	EXPECT_EQ(log.count(LOG_DEBUG, "Unknown diskType"), 2);

	EXPECT_STREQ(VEXODiskContainerToString(1), "internal");
	EXPECT_EQ(VEXODiskContainerToString(64), nullptr);
	EXPECT_ERR(0x6100);
	EXPECT_EQ(VEXODiskContainerToString(3), nullptr);

	disks.sata("sda", 1);
	EXPECT_EQ(DiskContainerGet("/dev/sda", &c), 0);
	EXPECT_EQ(c, 1);
	EXPECT_EQ(DiskContainerGet("sdz", &c), 0);
	EXPECT_EQ(c, 4); // an sd name in no map
	c = 99;
	EXPECT_EQ(DiskContainerGet("vexoboot", &c), -1);
	EXPECT_EQ(c, 99);
	EXPECT_EQ(DiskContainerGet(nullptr, &c), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "bad paramters"));
}

TEST_F(DiskNames, InternalAndUnitDisks)
{
	// sdaa with an internal map: letters give the index.
	disks.portMaps("1000000", "", "ffffffff", "");
	vexo::external::resetPortMaps();
	DiskId id = parse("/dev/sdaa1");
	EXPECT_EQ(id.index, 27);
	EXPECT_EQ(id.partitionNumber, 1);
	EXPECT_EQ(id.container, 1);
	EXPECT_EQ(id.unit, 0);
	EXPECT_EQ(id.slot, -1);

	// The same name behind an external port: unit 1, bay from the unit's list.
	disks.portMaps("1000000", "3", "0", "");
	vexo::external::resetPortMaps();
	disks.unit(7, "sda", {"/dev/sdaa", "/dev/sdab", "/dev/sdac"});
	disks.unit(8, "sdb", {"/dev/sdba", "/dev/sdbb"}, "XU06");
	id = parse("/dev/sdab1");
	EXPECT_EQ(id.unit, 1);
	EXPECT_EQ(id.index, 2);
	EXPECT_EQ(id.container, 2);
	EXPECT_EQ(id.partitionNumber, 1);
	id = parse("sdbb");
	EXPECT_EQ(id.unit, 2);
	EXPECT_EQ(id.index, 2);

	// One letter on an external port that a unit lists: unit and index from the letter.
	disks.unit(9, "sdb", {"/dev/sdb"});
	id = parse("sdb");
	EXPECT_EQ(id.container, 2);
	EXPECT_EQ(id.unit, 2);
	EXPECT_EQ(id.index, 2);

	// A unit disk no unit lists fails and leaves the id as it was.
	DiskId kept{-7, -7, -7, -7, -7};
	EXPECT_EQ(DiskPathParse("sdaz", &kept), -1);
	EXPECT_EQ(kept.index, -7);
	EXPECT_EQ(kept.unit, -7);
}

TEST_F(DiskNames, SystemAndNvmeDisks)
{
	disks.plain("sysd2");
	DiskId id = parse("/dev/sysd2p1");
	EXPECT_EQ(id.index, 2);
	EXPECT_EQ(id.unit, 0);
	EXPECT_EQ(id.container, 128);
	EXPECT_EQ(id.partitionNumber, 1);

	disks.nvme("nvme0n1", "0000:00:01.2/0000:01:00.0");
	disks.nvme("nvme1n1", "0000:00:1d.0/0000:04:00.0/0000:05:00.0");
	id = parse("nvme0n1p2");
	EXPECT_EQ(id.partitionNumber, 2);
	EXPECT_EQ(id.container, 32);
	EXPECT_EQ(id.index, 1);
	EXPECT_EQ(id.slot, 0);
	id = parse("/dev/nvme0n1");
	EXPECT_EQ(id.partitionNumber, 0);
	// Behind the card in slot 2: the deepest described address wins.
	id = parse("/dev/nvme1n1");
	EXPECT_EQ(id.slot, 2);
	EXPECT_EQ(id.index, 3);

	// An NVMe disk in no described place is unknown.
	disks.nvme("nvme2n1", "0000:00:09.0/0000:09:00.0");
	LogCapture log;
	DiskId kept{-7, -7, -7, -7, -7};
	EXPECT_EQ(DiskPathParse("/dev/nvme2n1", &kept), -1);
	EXPECT_EQ(kept.index, -7);
	EXPECT_TRUE(log.has(LOG_ERR, "bad paramters: unknown device, disk path: /dev/nvme2n1"));
	EXPECT_EQ(DiskPathParse(nullptr, &kept), -1);
	EXPECT_ERR(0x0D00);
	EXPECT_EQ(DiskPathParse("/dev/sda", nullptr), -1);
	EXPECT_ERR(0x0D00);
}

TEST_F(DiskNames, M2SataDisks)
{
	// On the card in PCI slot 1, ATA port 3.
	disks.sata("nvc1", 3, "0000:00:1c.0/0000:03:00.0");
	int port = 0, slot = 0;
	ASSERT_EQ(DiskIndexAndSlotGet("/dev/nvc1p1", &port, &slot), 0);
	EXPECT_EQ(port, 3);
	EXPECT_EQ(slot, 1);

	// On the board of a VQ110: ATA ports 5 and 6 are M.2 slots 1 and 2.
	disks.sata("nvc2", 6, "0000:00:17.0");
	ASSERT_EQ(DiskIndexAndSlotGet("nvc2", &port, &slot), 0);
	EXPECT_EQ(port, 2);
	EXPECT_EQ(slot, 0);

	LogCapture log;
	disks.sata("nvc3", 4, "0000:00:17.0");
	port = slot = 77;
	EXPECT_EQ(DiskIndexAndSlotGet("nvc3", &port, &slot), -1);
	EXPECT_EQ(port, 77);
	EXPECT_TRUE(log.has(LOG_ERR, "DiskInexAndSlotRemap: nvc3 port no 4 out of expection"));

	// Another model has no board M.2 SATA slots at all.
	disks.platform(R"({"model": "VQ120"})");
	log.clear();
	EXPECT_EQ(DiskIndexAndSlotGet("nvc2", &port, &slot), -1);
	EXPECT_FALSE(log.has(LOG_ERR, "out of expection"));
	EXPECT_TRUE(log.has(LOG_ERR, "disk index and slot remap failed"));
	disks.platform(kPlatform);

	// A card of unknown model.
	disks.sata("nvc4", 7, "0000:00:1e.0/0000:07:00.0");
	EXPECT_EQ(DiskIndexAndSlotGet("nvc4", &port, &slot), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "Unknown M2 card model: nvc4"));

	// A card slot missing from extensionPorts.
	root.write("/etc.defaults/extensionPorts", "[pci]\npci9=\"\"\npci2=\"0000:00:1d.0\"\n");
	EXPECT_EQ(DiskIndexAndSlotGet("nvc1", &port, &slot), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "Fail to get disk PCI slot: nvc1"));

	// A disk gone from /sys.
	EXPECT_EQ(DiskIndexAndSlotGet("nvc9", &port, &slot), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "Fail to get disk host port: nvc9"));
	EXPECT_EQ(DiskIndexAndSlotGet(nullptr, &port, &slot), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "Bad Parameters"));
}

TEST_F(DiskNames, M2SataPathParse)
{
	disks.sata("nvc1", 3, "0000:00:1c.0/0000:03:00.0");
	// M2C-S2 cards carry SATA here, but a VQ110 blocks them.
	// A blocked device still parses; with no container of its own it reads as internal.
	EXPECT_EQ(VEXODiskPortCheck("nvc1"), 10);
	DiskId blocked = parse("nvc1");
	EXPECT_EQ(blocked.container, 1);
	EXPECT_EQ(blocked.index, 3);
	EXPECT_EQ(blocked.slot, 1);
	// On another product the same card is a cache device.
	disks.platform(std::string(kPlatform).replace(std::string(kPlatform).find("VQ110"), 5, "VQ300"));
	DiskId id = parse("/dev/nvc1p2");
	EXPECT_EQ(id.container, 32);
	EXPECT_EQ(id.index, 3);
	EXPECT_EQ(id.slot, 1);
	EXPECT_EQ(id.partitionNumber, 2);
	EXPECT_EQ(id.unit, 0);
}

} // namespace
