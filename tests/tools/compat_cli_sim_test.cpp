// vexohw compat and firmware on the bundled box: the verdicts of its
// databases, a sleeping disk answered from the cache without a word to the
// drive, and a firmware plan run.
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
	ASSERT_EQ(box.sleep("sda"), 0);
	std::ofstream(box.root() + "/run/vexostorage/disks/sda/compatibility") << "not_support";

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
		EXPECT_EQ(texts(byDisk[row.disk], {"compatibility", "source"}), (Strings{row.word, row.source}))
			<< row.disk;
	}
	EXPECT_EQ(text(byDisk["/dev/sdme"], "database"), "/var/lib/disk-compatibility/xu05_v7.db");

	// On another system version: the interval around each cut, and a
	// sleeping disk not judged.
	struct {
		const char *disk, *at, *word;
	} versions[] = {{"sde", "72805.9", "support"},       {"sde", "72806", "not_support"},
			{"nvme0n1", "72806.0", "support"},   {"nvme0n1", "1", "not_in_support"},
			{"sda", "72000", "null"},             {"sda", "7.2", "null"}};
	for (auto v : versions) {
		Ran at = box.vexohw({"--json", "compat", v.disk, "--at", v.at});
		ASSERT_EQ(at.status, 0) << at.err;
		EXPECT_EQ(text(JsonDoc(at.out).obj, "compatibility"), v.word) << v.disk << " at " << v.at;
	}
	EXPECT_NE(box.vexohw({"compat", "sde", "--at", "72806."}).status, 0);

	auto heard = box.sent("sda");
	EXPECT_EQ(heard, std::vector<std::string>(heard.size(), kCheckPowerMode));

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
		EXPECT_EQ(texts(doc.obj, {"compatibility", "firmware_status"}), (Strings{c.word, c.firmware})) << r.out;
	}
}

// A firmware binary on the box makes a plan for the drives of its model, the
// run flashes them with progress as JSON events, and the drives answer their
// new revision.
TEST(FirmwareCli, PlanRunStatus)
{
	BuiltBox box;
	ASSERT_TRUE(box.ok()) << box.log();
	// Nothing booked: the run is refused and nothing is touched.
	Ran none = box.vexohw({"firmware", "run"});
	EXPECT_NE(none.status, 0);
	EXPECT_NE(none.err.find("no plan"), std::string::npos) << none.err;

	const std::string dir = box.root() + "/var/lib/drive-bundle/firmware/";
	std::filesystem::create_directories(dir);
	std::string image = "model=ST8000VN004-3CP101\nfirmware=SC61\n";
	image.resize(2048, '\0');
	std::ofstream(dir + "st.bin") << image;
	std::string sum;
	runProgram({"md5sum", dir + "st.bin"}, &sum);
	std::ofstream(dir + "st.bin.FW_INFO") << "md5sum=\"" << sum.substr(0, 32)
					      << "\"\nmodel=\"ST8000VN004-3CP101\"\nfirmware=\"SC61\"\n";

	Ran plan = box.vexohw({"--json", "firmware", "plan"});
	ASSERT_EQ(plan.status, 0) << plan.err;
	JsonDoc rows(plan.out);
	ASSERT_EQ(json_object_array_length(rows.obj), 2u) << plan.out; // sda and sdb share the model
	Ran run = box.vexohw({"--json", "firmware", "run"});
	EXPECT_EQ(run.status, 0) << run.out << run.err;
	// One event a line; the last one says how the run ended.
	std::string last = run.out.substr(0, run.out.size() - 1);
	last = last.substr(last.rfind('\n') + 1);
	EXPECT_NE(run.out.find("\"event\": \"drive\""), std::string::npos) << run.out;
	JsonDoc done(last);
	EXPECT_EQ(texts(done.obj, {"event", "failed"}), (Strings{"done", "0"}));
	Ran status = box.vexohw({"--json", "firmware", "status"});
	JsonDoc st(status.out);
	EXPECT_EQ(text(st.obj, "state"), "do_nothing");
	json_object *drives = field(st.obj, "drives");
	ASSERT_EQ(json_object_array_length(drives), 2u);
	for (size_t i = 0; i < 2; ++i)
		EXPECT_EQ(text(json_object_array_get_idx(drives, i), "result"), "success");
	// By the database (the daemon's snapshot answers for the drives): nothing
	// more to fetch; what is on the box comes from the library's index.
	Ran dl = box.vexohw({"--json", "firmware", "download"});
	EXPECT_EQ(dl.status, 0) << dl.err;
	EXPECT_NE(dl.out.find("\"binary\": \"st.bin\""), std::string::npos) << dl.out;
	for (const char *d : {"sda", "sdb"})
		EXPECT_NE(box.read(std::string("/dev/") + d).find("\"firmware\":\"SC61\""), std::string::npos) << d;
}

} // namespace
