// Texts from ids, and the disk lists.
#include <cstdlib>
#include <cstring>
#include <syslog.h>
#include <vector>

#include <vexohw/disk.h>

#include "support/disk_layout.h"

using vexo::test::DiskLayout;
using vexo::test::LogCapture;
using vexo::test::Sysroot;

namespace {

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
