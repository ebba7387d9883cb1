// vexohw compat refresh, the overview's COMPAT column (the cache and nothing
// else), notify list reading back what the spool holds, a disk turning bad
// told once, and unit disks refreshed by the unit's name.
#include <fstream>
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

size_t spooled(const BuiltBox &box)
{
	JsonDoc spool(box.vexohw({"--json", "notify", "list"}).out);
	EXPECT_TRUE(json_object_is_type(spool.obj, json_type_array));
	for (size_t i = 0; i < json_object_array_length(spool.obj); ++i)
		EXPECT_EQ(text(json_object_array_get_idx(spool.obj, i), "tag"), "DiskCompatibilityIncompatible");
	return json_object_array_length(spool.obj);
}

TEST(CompatCacheCli, RefreshOverviewAndSpool)
{
	ASSERT_TRUE(kBackend);
	BuiltBox box;
	ASSERT_TRUE(box.ok()) << box.log();
	// A unit is chosen when the name asked for begins with the unit's name.
	for (const char *asked : {"XU0", "XU06", "XU05-2"}) {
		ScopedEnv sysroot("VEXO_SYSROOT", box.root().c_str());
		VEXODiskCompatibilityEunitDisksUpdate(asked);
		bool refreshed = box.read("/run/vexostorage/disks/sdma/compatibility") != "";
		EXPECT_EQ(refreshed, std::string(asked) == "XU05-2") << asked;
	}
	EXPECT_FALSE(std::filesystem::exists(box.root() + "/run/vexostorage/disks/sdc/compatibility"));
	// sde's firmware is supported before system version 72806 and rejected
	// from it on: an update between two refreshes turns it bad, which is
	// told once, and not again while it stays so.
	const std::string shipped = box.read("/etc.defaults/VERSION"), base = "base=\"72806\"";
	ASSERT_NE(shipped.find(base), std::string::npos) << shipped;
	std::string older = shipped;
	older.replace(older.find(base), base.size(), "base=\"72000\"");
	struct {
		const std::string *version;
		const char *word;
		size_t spooled;
	} steps[] = {{&older, "support", 0}, {&shipped, "not_support", 1}, {&shipped, "not_support", 1}};
	for (const auto &s : steps) {
		std::ofstream(box.root() + "/etc.defaults/VERSION", std::ios::trunc) << *s.version;
		Ran r = box.vexohw({"--json", "compat", "refresh", "sde"});
		ASSERT_EQ(r.status, 0) << r.err;
		EXPECT_EQ(text(json_object_array_get_idx(JsonDoc(r.out).obj, 0), "compatibility"), s.word) << r.out;
		EXPECT_EQ(spooled(box), s.spooled) << s.word;
	}

	JsonDoc before(box.vexohw({"--json", "overview"}).out);
	EXPECT_EQ(compatOf(before.obj, "/dev/sdc"), "null");

	Ran r = box.vexohw({"--json", "compat", "refresh", "sdc"});
	ASSERT_EQ(r.status, 0) << r.err;
	JsonDoc refreshed(r.out);
	EXPECT_EQ(text(json_object_array_get_idx(refreshed.obj, 0), "compatibility"), "support") << r.out;

	// All disks: a sleeping one is asked its power mode and nothing else.
	ASSERT_EQ(box.sleep("sda"), 0);
	JsonDoc all(box.vexohw({"--json", "compat", "refresh"}).out);
	EXPECT_EQ(text(json_object_array_get_idx(all.obj, 0), "note"), "asleep, not refreshed");
	EXPECT_EQ(box.sent("sda"), std::vector<std::string>{kCheckPowerMode});

	// A value no lookup gives: the column shows the cache as it stands.
	std::ofstream(box.root() + "/run/vexostorage/disks/sdd/compatibility") << "forbidden";
	JsonDoc after(box.vexohw({"--json", "overview"}).out);
	EXPECT_EQ(compatOf(after.obj, "/dev/sdc"), "support");
	EXPECT_EQ(compatOf(after.obj, "/dev/sdd"), "forbidden");
	EXPECT_EQ(compatOf(after.obj, "/dev/sda"), "null"); // asleep, never refreshed

	// The refresh told of the box's other rejected drive, not of sde again;
	// one more is sent here.
	EXPECT_EQ(spooled(box), 2u);
	{
		ScopedEnv sysroot("VEXO_SYSROOT", box.root().c_str());
		PVLIBSZHASH h = VLIBCSzHashAlloc(2);
		VLIBCSzHashSetValue(&h, "%DISK_ID%", "Drive 4\nsecond line");
		ASSERT_EQ(VEXOSysNotifySendNotifiction("DiskCompatibilityIncompatible", h), 0);
		VLIBCSzHashFree(h);
	}
	ASSERT_EQ(spooled(box), 3u);
	JsonDoc spool(box.vexohw({"--json", "notify", "list"}).out);
	size_t mine = 0;
	for (size_t i = 0; i < 3; ++i)
		mine += text(json_object_array_get_idx(spool.obj, i), "disk_id") == "Drive 4\nsecond line";
	EXPECT_EQ(mine, 1u);
}

} // namespace
