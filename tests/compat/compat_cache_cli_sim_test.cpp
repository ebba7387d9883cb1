// vexohw compat refresh, the overview's COMPAT column (the cache and nothing
// else) and notify list reading back what the spool holds.
#include <fstream>
#include <iterator>
#include <gtest/gtest.h>
#include <vexohw/compat_cache.h>
#include <vexoplatform/sysnotify.h>

#include "smartctl/drive_sim.h"
#include "tools/cli_run.h"

using namespace vexo::test;

namespace {

const bool kBackend = installDriveEmulator();

std::string compatOf(json_object *overview, const char *disk)
{
	json_object *disks = field(overview, "disks");
	for (size_t i = 0; disks && i < json_object_array_length(disks); ++i)
		if (text(json_object_array_get_idx(disks, i), "path") == disk)
			return text(json_object_array_get_idx(disks, i), "compat");
	return "no such disk";
}

TEST(CompatCacheCli, RefreshOverviewAndSpool)
{
	ASSERT_TRUE(kBackend);
	BuiltBox box;
	ASSERT_TRUE(box.ok()) << box.log();
	JsonDoc before(box.vexohw({"--json", "overview"}).out);
	EXPECT_EQ(compatOf(before.obj, "/dev/sdc"), "null");

	Ran r = box.vexohw({"--json", "compat", "refresh", "sdc"});
	ASSERT_EQ(r.status, 0) << r.err;
	JsonDoc refreshed(r.out);
	EXPECT_EQ(text(json_object_array_get_idx(refreshed.obj, 0), "compatibility"), "support") << r.out;

	// All disks: a sleeping one is asked its power mode and nothing else.
	ASSERT_EQ(box.vexohw({"power", "standby", "sda"}).status, 0);
	std::ofstream(box.root() + "/run/vexosim/drive/sda.log", std::ios::trunc).flush();
	JsonDoc all(box.vexohw({"--json", "compat", "refresh"}).out);
	EXPECT_EQ(text(json_object_array_get_idx(all.obj, 0), "note"), "asleep, not refreshed");
	std::ifstream log(box.root() + "/run/vexosim/drive/sda.log");
	std::string l, sent;
	while (std::getline(log, l))
		sent += l.rfind("OPEN", 0) == 0 ? "" : l + "\n";
	EXPECT_EQ(sent, "HDIO_DRIVE_CMD args=e5000000 -> ok\n");

	// A value no lookup gives: the column shows the cache as it stands.
	std::ofstream(box.root() + "/run/vexostorage/disks/sdd/compatibility") << "forbidden";
	JsonDoc after(box.vexohw({"--json", "overview"}).out);
	EXPECT_EQ(compatOf(after.obj, "/dev/sdc"), "support");
	EXPECT_EQ(compatOf(after.obj, "/dev/sdd"), "forbidden");
	EXPECT_EQ(compatOf(after.obj, "/dev/sda"), "null"); // asleep, never refreshed

	// The refresh told of the box's two rejected drives; one more is sent here.
	const size_t told = 2;
	{
		ScopedEnv sysroot("VEXO_SYSROOT", box.root().c_str());
		PVLIBSZHASH h = VLIBCSzHashAlloc(2);
		VLIBCSzHashSetValue(&h, "%DISK_ID%", "Drive 4\nsecond line");
		ASSERT_EQ(VEXOSysNotifySendNotifiction("DiskCompatibilityIncompatible", h), 0);
		VLIBCSzHashFree(h);
	}
	JsonDoc spool(box.vexohw({"--json", "notify", "list"}).out);
	ASSERT_EQ(json_object_array_length(spool.obj), told + 1);
	size_t mine = 0;
	for (size_t i = 0; i <= told; ++i) {
		json_object *n = json_object_array_get_idx(spool.obj, i);
		EXPECT_EQ(text(n, "tag"), "DiskCompatibilityIncompatible");
		mine += text(n, "disk_id") == "Drive 4\nsecond line";
	}
	EXPECT_EQ(mine, 1u);
}

// With the box's own files: sde's firmware is supported before system
// version 72806 and rejected from it on, so a system update between two
// refreshes turns it bad. That is told once, and not again while it stays so.
TEST(CompatCacheCli, DiskTurningBadIsToldOnce)
{
	ASSERT_TRUE(kBackend);
	BuiltBox box;
	ASSERT_TRUE(box.ok()) << box.log();
	const std::string versionFile = box.root() + "/etc.defaults/VERSION";
	std::ifstream in(versionFile);
	const std::string shipped((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
	const std::string base = "base=\"72806\"";
	const size_t at = shipped.find(base);
	ASSERT_NE(at, std::string::npos) << shipped;
	std::string older = shipped;
	older.replace(at, base.size(), "base=\"72000\"");
	struct {
		const std::string *version;
		const char *word;
		size_t spooled;
	} steps[] = {{&older, "support", 0}, {&shipped, "not_support", 1}, {&shipped, "not_support", 1}};
	for (const auto &s : steps) {
		std::ofstream(versionFile, std::ios::trunc) << *s.version;
		Ran r = box.vexohw({"--json", "compat", "refresh", "sde"});
		ASSERT_EQ(r.status, 0) << r.err;
		JsonDoc refreshed(r.out);
		EXPECT_EQ(text(json_object_array_get_idx(refreshed.obj, 0), "compatibility"), s.word) << r.out;
		JsonDoc spool(box.vexohw({"--json", "notify", "list"}).out);
		ASSERT_TRUE(json_object_is_type(spool.obj, json_type_array));
		ASSERT_EQ(json_object_array_length(spool.obj), s.spooled) << s.word;
		if (s.spooled) {
			EXPECT_EQ(text(json_object_array_get_idx(spool.obj, 0), "tag"), "DiskCompatibilityIncompatible");
		}
	}
}

// A unit is chosen when the name asked for begins with the unit's name.
TEST(CompatCacheCli, UnitRefreshByNamePrefix)
{
	ASSERT_TRUE(kBackend);
	BuiltBox box;
	ASSERT_TRUE(box.ok()) << box.log();
	ScopedEnv sysroot("VEXO_SYSROOT", box.root().c_str());
	const std::string unitDisk = box.root() + "/run/vexostorage/disks/sdma/compatibility";
	const std::string hostDisk = box.root() + "/run/vexostorage/disks/sdc/compatibility";
	for (const char *asked : {"XU0", "XU06", "XU05-2"}) {
		SCOPED_TRACE(asked);
		VEXODiskCompatibilityEunitDisksUpdate(asked);
		EXPECT_EQ(std::filesystem::exists(unitDisk), std::string(asked) == "XU05-2");
	}
	EXPECT_FALSE(std::filesystem::exists(hostDisk));
}

} // namespace
