// vexohw health, smart test, smart tests and mail on the bundled box: the
// three levels side by side, the overview's cached HEALTH column, a test
// started, watched and stopped through the box's vexo_smart_test, and mail.
#include <filesystem>
#include <fstream>
#include <vexohw/frame.h>
#include <vexohw/smart_status.h>

#include "smartctl/drive_sim.h"
#include "tools/cli_run.h"

using namespace vexo::test;

namespace {

const bool kBackend = installDriveEmulator();

json_object *byDisk(json_object *list, const std::string &disk)
{
	for (size_t i = 0; list && i < json_object_array_length(list); ++i)
		if (text(json_object_array_get_idx(list, i), "disk") == disk ||
		    text(json_object_array_get_idx(list, i), "path") == disk)
			return json_object_array_get_idx(list, i);
	return nullptr;
}

TEST(HealthCli, LevelsSharesAndTheCachedColumn)
{
	ASSERT_TRUE(kBackend);
	BuiltBox box;
	ASSERT_TRUE(box.ok()) << box.log();
	JsonDoc before(box.vexohw({"--json", "overview"}).out);
	EXPECT_EQ(text(byDisk(field(before.obj, "disks"), "/dev/sdd"), "health"), "null"); // nothing cached yet

	Ran r = box.vexohw({"--json", "health", "--all", "--refresh"});
	ASSERT_EQ(r.status, 0) << r.err;
	JsonDoc all(r.out);
	struct Row {
		const char *disk, *health, *weight, *attrs, *test;
	} rows[] = {{"/dev/sda", "normal", "0", "0", "0"},
		    {"/dev/sde", "warning", "1", "1", "0"},
		    {"/dev/sdf", "critical", "31", "31", "0"},
		    {"/dev/sdd", "failing", "601", "0", "601"}};
	for (const Row &row : rows) {
		json_object *d = byDisk(all.obj, row.disk);
		ASSERT_TRUE(d) << row.disk;
		EXPECT_EQ(texts(d, {"health", "weight"}), (Strings{row.health, row.weight})) << row.disk;
		EXPECT_EQ(texts(field(d, "weights"), {"smart_attributes", "self_test"}), (Strings{row.attrs, row.test}))
			<< row.disk;
	}
	EXPECT_NE(text(byDisk(all.obj, "/dev/sdf"), "reasons").find("Reallocated_Sector_Ct is at or below"), std::string::npos);

	JsonDoc after(box.vexohw({"--json", "overview"}).out);
	json_object *disks = field(after.obj, "disks");
	EXPECT_EQ(text(byDisk(disks, "/dev/sdd"), "health"), "failing");
	EXPECT_EQ(text(byDisk(disks, "/dev/sde"), "health"), "warning");

	// The kernel counts twelve command timeouts on sda: the refresh makes
	// the healthy disk critical and the verdict names the source.
	std::ofstream(box.root() + "/sys/block/sda/device/iotmo_cnt") << "0xc\n";
	JsonDoc sda(box.vexohw({"--json", "health", "sda", "--refresh"}).out);
	EXPECT_EQ(text(sda.obj, "health"), "critical");
	EXPECT_EQ(text(field(sda.obj, "weights"), "error_timeout"), "31");
	EXPECT_NE(text(sda.obj, "reasons").find("timed out"), std::string::npos);
}

TEST(HealthCli, TestStartedStatusStoppedAndListed)
{
	BuiltBox box;
	ASSERT_TRUE(box.ok()) << box.log();
	ASSERT_EQ(box.vexohw({"smart", "test", "start", "sdb", "--type", "extend"}).status, 0);
	EXPECT_EQ(box.read("/run/vexostorage/disks/sdb/smart_testing"), "extend");
	JsonDoc running(box.vexohw({"--json", "smart", "test", "status", "sdb"}).out);
	EXPECT_EQ(texts(running.obj, {"running", "progress"}), (Strings{"true", "10%"}));
	EXPECT_NE(box.vexohw({"smart", "test", "start", "sdb"}).status, 0); // one test at a time

	ASSERT_EQ(box.vexohw({"smart", "test", "stop", "sdb"}).status, 0);
	EXPECT_EQ(box.read("/run/vexostorage/disks/sdb/smart_testing"), "");
	JsonDoc rows(box.vexohw({"--json", "smart", "tests", "sdb"}).out);
	EXPECT_EQ(text(rows.obj, "total"), "1");
	json_object *first = json_object_array_get_idx(field(rows.obj, "rows"), 0);
	EXPECT_EQ(texts(first, {"test_type", "result"}), (Strings{"extend", "aborted"}));
	EXPECT_NE(box.vexohw({"smart", "test", "start", "sdb", "--type", "long"}).status, 0);
}

// Every disk of the 60-disk box with warm caches: the verdict comes from
// them alone, and no drive hears a command (a sleeping disk stays asleep).
TEST(HealthCli, CachedVerdictOfSixtyDisksSendsNothing)
{
	char t[] = "/tmp/vexohw-health60.XXXXXX";
	std::string dir = ::mkdtemp(t), root = dir + "/root";
	ASSERT_EQ(runProgram(buildDir() + "/bin/vexosim", {"build", sourceTreeOf(__FILE__) + "/examples/box60.json", root}).status, 0);
	ScopedEnv env("VEXO_SYSROOT", root.c_str());
	std::vector<std::string> disks;
	for (const auto &e : std::filesystem::directory_iterator(root + "/run/vexostorage/disks"))
		disks.push_back(e.path().filename().string());
	ASSERT_GE(disks.size(), 60u);
	for (size_t i = 0; i < disks.size(); ++i)
		ASSERT_EQ(VEXODiskUpdateIntValueCacheFile(disks[i].c_str(), "smart_damage_weight", static_cast<int>(i)), 0);
	std::filesystem::remove_all(root + "/run/vexosim/drive");
	for (size_t i = 0; i < disks.size(); ++i) {
		int w = -1;
		EXPECT_EQ(SmartOverviewStatusCacheGet(("/dev/" + disks[i]).c_str(), &w), i == 0 ? 1 : i <= 30 ? 2 : 3);
		EXPECT_EQ(w, static_cast<int>(i));
	}
	EXPECT_FALSE(std::filesystem::exists(root + "/run/vexosim/drive"));
	std::filesystem::remove_all(dir);
}

// vexohw mail: the rows of a disk whose commands time out, the mail spooled
// with the hot spare manager told, and a sleeping disk left asleep with no mail.
TEST(MailCli, ContentThenSendThenAsleep)
{
	BuiltBox box;
	ASSERT_TRUE(box.ok()) << box.log();
	std::filesystem::create_directories(box.root() + "/run/vexostorage/disks/sda");
	std::ofstream(box.root() + "/run/vexostorage/disks/sda/timeout_weight") << "5";
	JsonDoc content(box.vexohw({"--json", "mail", "content", "sda"}).out);
	EXPECT_EQ(text(content.obj, "rows_marked"), "1");
	EXPECT_NE(text(content.obj, "content_html").find("Command timeouts: <font color=\"orange\">Warning</font><br>"),
		  std::string::npos);
	EXPECT_EQ(text(JsonDoc(box.vexohw({"--json", "mail", "send", "sda"}).out).obj, "mail_sent"), "true");
	ASSERT_EQ(box.vexohw({"power", "standby", "sda"}).status, 0);
	EXPECT_EQ(text(JsonDoc(box.vexohw({"--json", "mail", "send", "sda"}).out).obj, "power_mode"), "standby");
	EXPECT_EQ(box.read("/tmp/vexosim_hotspare"), "health /dev/sda\n"); // once: the sleeping disk was not asked
}

} // namespace
