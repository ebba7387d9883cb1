// Device names into DiskIds (port maps, units, NVMe, sysd, M.2 cards,
// partitions), texts from ids, and the disk lists.
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <syslog.h>
#include <vector>
#include <vexohw/disk.h>
#include <vexohw/disk_port.h>

#include "external/port_map.h"
#include "support/disk_layout.h"

using vexo::test::DiskLayout;
using vexo::test::LogCapture;
using vexo::test::Sysroot;

namespace {

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

	// "index container unit slot partition" of a parse, or "rc=-1" with the
	// id checked untouched.
	std::string parse(const char *path)
	{
		DiskId id{-7, -7, -7, -7, -7};
		if (int rc = DiskPathParse(path, &id); rc != 0)
			return "rc=" + std::to_string(rc) + (id.index == -7 && id.unit == -7 ? "" : " touched");
		return std::to_string(id.index) + " " + std::to_string(id.container) + " " + std::to_string(id.unit) + " " +
		       std::to_string(id.slot) + " " + std::to_string(id.partitionNumber);
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

	using vexo::test::textOf;
	EXPECT_EQ(textOf(DiskPartitionNumRemove, "/dev/sda3", 32), "/dev/sda");
	EXPECT_EQ(textOf(DiskPartitionNumRemove, "sda0", 32), "sda"); // cut at any digit, unlike the split above
	EXPECT_EQ(textOf(DiskPartitionNumRemove, "nvme0n1p12", 32), "nvme0n1");
	EXPECT_EQ(textOf(DiskPartitionNumRemove, "nvc1p", 32), "nvc1p");
	// The buffer must hold the whole input, whatever is cut.
	LogCapture log;
	EXPECT_EQ(textOf(DiskPartitionNumRemove, "sda1", 4), "rc=-1");
	EXPECT_TRUE(log.has(LOG_ERR, "buffer size of szDiskPath should be longer than string length of szPartPath"));
	EXPECT_EQ(textOf(DiskPartitionNumRemove, "sda1", 5), "sda");
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

TEST_F(DiskNames, InternalUnitSystemAndNvmeDisks)
{
	// sdaa with an internal map: letters give the index.
	disks.portMaps("1000000", "", "ffffffff", "");
	vexo::external::resetPortMaps();
	EXPECT_EQ(parse("/dev/sdaa1"), "27 1 0 -1 1");

	// The same name behind an external port: unit 1, bay from the unit's list.
	disks.portMaps("1000000", "3", "0", "");
	vexo::external::resetPortMaps();
	disks.unit(7, "sda", {"/dev/sdaa", "/dev/sdab", "/dev/sdac"});
	disks.unit(8, "sdb", {"/dev/sdba", "/dev/sdbb"}, "XU06");
	EXPECT_EQ(parse("/dev/sdab1"), "2 2 1 -1 1");
	EXPECT_EQ(parse("sdbb"), "2 2 2 -1 0");
	// One letter on an external port that a unit lists: unit and index from the letter.
	disks.unit(9, "sdb", {"/dev/sdb"});
	EXPECT_EQ(parse("sdb"), "2 2 2 -1 0");
	// A unit disk no unit lists fails and leaves the id as it was.
	EXPECT_EQ(parse("sdaz"), "rc=-1");

	disks.portMaps("20", "10", "f", "", {{"support_nvme", "yes"}});
	vexo::external::resetPortMaps();
	disks.plain("sysd2");
	EXPECT_EQ(parse("/dev/sysd2p1"), "2 128 0 -1 1");
	disks.nvme("nvme0n1", "0000:00:01.2/0000:01:00.0");
	disks.nvme("nvme1n1", "0000:00:1d.0/0000:04:00.0/0000:05:00.0");
	EXPECT_EQ(parse("nvme0n1p2"), "1 32 0 0 2");
	EXPECT_EQ(parse("/dev/nvme0n1"), "1 32 0 0 0");
	// Behind the card in slot 2: the deepest described address wins.
	EXPECT_EQ(parse("/dev/nvme1n1"), "3 32 0 2 0");

	// An NVMe disk in no described place is unknown.
	disks.nvme("nvme2n1", "0000:00:09.0/0000:09:00.0");
	LogCapture log;
	EXPECT_EQ(parse("/dev/nvme2n1"), "rc=-1");
	EXPECT_TRUE(log.has(LOG_ERR, "bad paramters: unknown device, disk path: /dev/nvme2n1"));
	DiskId kept{};
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
	// M2C-S2 cards carry SATA here, but a VQ110 blocks them. A blocked
	// device still parses; with no container of its own it reads as internal.
	EXPECT_EQ(VEXODiskPortCheck("nvc1"), 10);
	EXPECT_EQ(parse("nvc1"), "3 1 0 1 0");

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
	// On another product the card's disk is a cache device.
	disks.platform(std::string(kPlatform).replace(std::string(kPlatform).find("VQ110"), 5, "VQ300"));
	EXPECT_EQ(parse("/dev/nvc1p2"), "3 32 0 1 2");
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

} // namespace

// Texts from ids, and the disk lists.
DiskId makeId(int container, int index, int unit = 0, int slot = -1) { return DiskId{index, container, unit, 0, slot}; }

DiskInfo *record(int container, int index, int unit)
{
	auto *d = static_cast<DiskInfo *>(std::calloc(1, sizeof(DiskInfo)));
	d->id = makeId(container, index, unit);
	return d;
}

// The text of an id; a call that writes one succeeds with 0, not a length.
std::string text(int (*fn)(const DiskId *, char *, int), const DiskId &id)
{
	char out[64] = "untouched";
	EXPECT_EQ(fn(&id, out, sizeof(out)), 0);
	return out;
}

TEST(DiskIdText, DisplayTexts)
{
	EXPECT_EQ(text(DiskIdToString, makeId(1, 3)), "3");
	EXPECT_EQ(text(DiskIdToString, makeId(128, 2)), "System device 2");
	EXPECT_EQ(text(DiskIdToString, makeId(32, 12, 0, -1)), "Cache device 2");
	EXPECT_EQ(text(DiskIdToString, makeId(32, 2, 0, 3)), "Cache device 3-2");
	// Any other negative slot writes nothing and is not a failure.
	char out[32] = "untouched";
	DiskId odd = makeId(32, 2, 0, -2);
	EXPECT_EQ(DiskIdToString(&odd, out, sizeof(out)), 0);
	EXPECT_STREQ(out, "untouched");
	EXPECT_EQ(DiskIdToString(nullptr, out, sizeof(out)), -1);
	// A text that does not fit is refused whole: a cut one names another disk.
	DiskId one = makeId(1, 123456);
	char small[7] = "left";
	EXPECT_EQ(DiskIdToString(&one, small, sizeof(small)), 0);
	EXPECT_STREQ(small, "123456");
	EXPECT_EQ(DiskIdToString(&one, small, 6), -1);
	EXPECT_EQ(DiskIdToMailString(&one, small, sizeof(small)), -1);
	EXPECT_STREQ(small, "123456");
}

TEST(DiskIdText, MailTexts)
{
	Sysroot root;
	LogCapture log;
	// No maillang and no string table: built-in English.
	EXPECT_EQ(text(DiskIdToMailString, makeId(1, 3)), "disk 3");
	EXPECT_TRUE(log.has(LOG_ERR, "Failed to get maillang, use enu instead. vexoerr=[0x"));
	EXPECT_TRUE(log.has(LOG_ERR, "Failed to get value of volume_disk_info in /usr/vexo/vexoman/webman/texts/enu/strings"));
	EXPECT_EQ(text(DiskIdToMailString, makeId(32, 11)), "Cache device 1");

	root.conf("/etc/vexoinfo.conf", {{"maillang", "ger"}});
	root.write("/usr/vexo/vexoman/webman/texts/ger/strings",
		   "[disk]\nvolume_disk_info=\"Festplatte\"\nvolume_system_disk=\"Systemgerät\"\ndedicated_ssd_cache=\"SSD-Cache\"\n");
	log.clear();
	EXPECT_EQ(text(DiskIdToMailString, makeId(1, 3)), "Festplatte 3");
	EXPECT_EQ(text(DiskIdToMailString, makeId(128, 2)), "Systemgerät 2");
	EXPECT_EQ(text(DiskIdToMailString, makeId(32, 2, 0, 1)), "SSD-Cache 1-2");
	EXPECT_EQ(log.count(LOG_ERR), 0) << log.dump();
	// A language naming another directory is not followed.
	root.conf("/etc/vexoinfo.conf", {{"maillang", "../../x"}});
	EXPECT_EQ(text(DiskIdToMailString, makeId(1, 3)), "disk 3");
}

TEST(DiskIdText, IdentifiersAndKeys)
{
	Sysroot root;
	DiskLayout disks(root);
	DiskInfo info{};
	char out[64];
	auto ident = [&](DiskId id) {
		info.id = id;
		std::strcpy(out, "untouched");
		EXPECT_EQ(VEXODiskInfoToString(&info, out, sizeof(out)), 0);
		return std::string(out);
	};
	EXPECT_EQ(ident(makeId(1, 3)), "Disk_3");
	EXPECT_EQ(ident(makeId(128, 2)), "System_2");
	EXPECT_EQ(ident(makeId(32, 2, 0, 1)), "Cache_1-2");
	EXPECT_EQ(ident(makeId(32, 12)), "Cache_2");
	EXPECT_EQ(ident(makeId(4, 1)), "unknown");
	LogCapture log;
	EXPECT_EQ(ident(makeId(32, 5, 0, -3)), "Cache_5");
	EXPECT_TRUE(log.has(LOG_ERR, "Failed to get cache device name string"));
	// A unit disk carries its unit's unique text, or "Eunit".
	std::strcpy(info.path, "/dev/sdab");
	EXPECT_EQ(ident(makeId(2, 2, 1)), "Disk_2_Eunit");
	EXPECT_TRUE(log.has(LOG_ERR, "Failed to get eunit unique"));
	disks.unit(5, "sda", {"/dev/sdaa", "/dev/sdab"}, "XU09");
	EXPECT_EQ(ident(makeId(2, 2, 1)), "Disk_2_XU09");
	EXPECT_EQ(VEXODiskInfoToString(nullptr, out, sizeof(out)), -1);
	EXPECT_EQ(VEXODiskInfoToString(&info, out, 0), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "Invalid inputed parameter"));

	auto key = [&](DiskId id) {
		std::strcpy(out, "untouched");
		int rc = VEXODiskIdSerialize(&id, out, sizeof(out));
		return rc == 0 ? std::string(out) : "rc=" + std::to_string(rc) + " " + out;
	};
	EXPECT_EQ(key(makeId(1, 3, 9, 4)), "internal_0_3");
	EXPECT_EQ(key(makeId(2, 3, 2)), "ebox_2_3");
	EXPECT_EQ(key(makeId(32, 2, 0, 1)), "cache_1_2");
	for (int c : {4, 64}) {
		VLIBCErrClear();
		EXPECT_EQ(key(makeId(c, 1)), "rc=-1 untouched") << c;
		EXPECT_ERR(0x6100);
	}
	DiskId id = makeId(1, 3);
	char tiny[8];
	EXPECT_EQ(VEXODiskIdSerialize(&id, tiny, sizeof(tiny)), -1);
}

TEST(DiskLists, PushRemoveSort)
{
	DiskListNode *head = nullptr;
	DiskInfo *orphan = record(1, 1, 0);
	DiskListPush(nullptr, orphan); // no list: the caller keeps the record
	std::free(orphan);
	DiskListPush(&head, nullptr);
	EXPECT_EQ(head, nullptr);
	// Unit 1 disks, unit 0 cache devices and unit 0 data disks, mixed.
	DiskListPush(&head, record(2, 2, 1));
	DiskListPush(&head, record(32, 1, 0));
	DiskListPush(&head, record(1, 3, 0));
	DiskListPush(&head, record(2, 1, 1));
	DiskListPush(&head, record(1, 1, 0));
	DiskListPush(&head, record(32, 0, 0));
	ASSERT_EQ(VEXODiskSortByEboxIdAndDiskId(head), 0);
	std::vector<std::string> order;
	for (DiskListNode *c = head; c; c = c->next)
		order.push_back(std::to_string(c->info->id.unit) + ":" + std::to_string(c->info->id.container) + ":" +
				std::to_string(c->info->id.index));
	EXPECT_EQ(order, (std::vector<std::string>{"0:1:1", "0:1:3", "0:32:0", "0:32:1", "1:2:1", "1:2:2"}));
	EXPECT_EQ(VEXODiskSortByEboxIdAndDiskId(nullptr), -1);

	// The predicate frees the records it removes; the list frees the cells.
	auto dropCache = [](DiskListNode *c) {
		if (c->info->id.container != 32)
			return 0;
		std::free(c->info);
		return 1;
	};
	EXPECT_EQ(DiskListRemove(&head, dropCache), 4);
	EXPECT_EQ(head->info->id.index, 1);
	EXPECT_EQ(DiskListRemove(&head, nullptr), 0);
	EXPECT_EQ(DiskListRemove(nullptr, dropCache), 0);
	auto dropAll = [](DiskListNode *c) {
		std::free(c->info);
		return 1;
	};
	EXPECT_EQ(DiskListRemove(&head, dropAll), 0);
	EXPECT_EQ(head, nullptr);
}

} // namespace
