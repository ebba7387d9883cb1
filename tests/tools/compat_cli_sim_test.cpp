// vexohw compat on the bundled box: the verdicts of its databases, and a
// sleeping disk answered from the cache without a word to the drive.
#include <fstream>
#include <map>
#include <time.h>

#include "support/sim_daemon.h"
#include "tools/cli_run.h"

using namespace vexo::test;

namespace {

TEST(CompatCli, VerdictsOfTheBoxAndASleepingDiskLeftAsleep)
{
	BuiltBox box;
	ASSERT_TRUE(box.ok()) << box.log();
	SimDaemon daemon{box.root()};
	ASSERT_EQ(box.vexohw({"power", "standby", "sda"}).status, 0);
	std::ofstream(box.root() + "/run/vexostorage/disks/sda/compatibility") << "not_support";
	std::filesystem::remove(box.root() + "/run/vexosim/drive/sda.log");

	Ran r = box.vexohw({"--json", "compat", "--all"});
	ASSERT_EQ(r.status, 0) << r.err;
	JsonDoc doc(r.out);
	ASSERT_TRUE(json_object_is_type(doc.obj, json_type_array)) << r.out;
	std::map<std::string, json_object *> byDisk;
	for (size_t i = 0; i < json_object_array_length(doc.obj); ++i) {
		json_object *row = json_object_array_get_idx(doc.obj, i);
		byDisk[text(row, "disk")] = row;
	}
	struct {
		const char *disk, *word, *source;
	} rows[] = {{"/dev/sda", "not_support", "cache"},    {"/dev/sdc", "support", "database"},
		    {"/dev/sde", "not_support", "database"}, {"/dev/sdi", "not_in_support", "database"},
		    {"/dev/sdme", "for_eunit", "database"},  {"/dev/nvme0n1", "support", "database"}};
	for (auto row : rows) {
		ASSERT_TRUE(byDisk.count(row.disk)) << row.disk << r.out;
		EXPECT_EQ(text(byDisk[row.disk], "compatibility"), row.word) << row.disk;
		EXPECT_EQ(text(byDisk[row.disk], "source"), row.source) << row.disk;
	}
	EXPECT_EQ(text(byDisk["/dev/sdme"], "database"), "/var/lib/disk-compatibility/xu05_v7.db");

	std::ifstream log(box.root() + "/run/vexosim/drive/sda.log");
	for (std::string l; std::getline(log, l);)
		if (l.rfind("OPEN", 0) != 0) {
			EXPECT_EQ(l, "HDIO_DRIVE_CMD args=e5000000 -> ok");
		}

	Ran one = box.vexohw({"compat", "sde"});
	EXPECT_EQ(one.status, 0);
	EXPECT_NE(one.out.find("/dev/sde: not_support - incompatible"), std::string::npos) << one.out;
	// Its actions are cached by now (read back, regenerated when missing).
	EXPECT_NE(one.out.find("  shown as: not_support\n"), std::string::npos) << one.out;
	EXPECT_NE(box.vexohw({"compat"}).status, 0);
}

// The maker's NVMe drive on a firmware this system rejects: a newer build the
// database accepts, once published, makes it an upgrade instead of a
// rejection. The published list stands fresh, so the server is not asked.
TEST(CompatCli, MakersDriveToldToUpgradeOncePublished)
{
	BuiltBox box;
	ASSERT_TRUE(box.ok()) << box.log();
	struct timespec now {};
	::clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
	std::ofstream(box.root() + "/run/vexostorage/.disk_firm_server_visiting_time") << now.tv_sec;
	struct {
		const char *published, *word, *firmware;
	} cases[] = {{"[]", "support", "do_nothing"},
		     {R"([{"model":"VEXO NM410 400GB","fw_buildnumber":310}])", "fw_upgrade_required", "update_firm"}};
	for (const auto &c : cases) {
		std::ofstream(box.root() + "/run/vexostorage/disk_firm_server_info", std::ios::trunc) << c.published;
		Ran r = box.vexohw({"--json", "compat", "nvme1n1"});
		ASSERT_EQ(r.status, 0) << r.err;
		JsonDoc doc(r.out);
		EXPECT_EQ(text(doc.obj, "compatibility"), c.word) << r.out;
		EXPECT_EQ(text(doc.obj, "firmware_status"), c.firmware) << r.out;
	}
}

} // namespace
