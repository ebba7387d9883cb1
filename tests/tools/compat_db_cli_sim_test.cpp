// vexohw compat model/latest/properties/path and db check against the
// bundled box's databases: the cut boundaries, a model listed by pattern,
// "default" firmware, a mapped word, an unknown model; the newest of several
// firmware; what the rules see of a disk; files refused.
#include <filesystem>
#include <fstream>

#include "smartctl/drive_sim.h"
#include "support/sim_daemon.h"
#include "tools/cli_run.h"

using namespace vexo::test;

namespace {

const bool kBackend = installDriveEmulator();

TEST(CompatDbCli, VerdictsOfModelsWithoutADisk)
{
	BuiltBox box;
	ASSERT_TRUE(box.ok()) << box.log();
	using A = std::vector<std::string>;
	const struct {
		A args;
		const char *word, *matched, *by, *entry, *from;
	} rows[] = {
		{{"ST8000VN004-3CP101", "SC60", "--at", "69056.9"}, "not_in_support", "ST8000VN004-3CP101", "name", "SC60", "null"},
		{{"ST8000VN004-3CP101", "SC60", "--at", "69057"}, "support", "ST8000VN004-3CP101", "name", "SC60", "69057.0"},
		{{"TOSHIBA MG08ACA16TE", "0102"}, "not_support", "TOSHIBA MG08ACA16TE", "name", "0102", "72806.0"},
		{{"WDC WD120EFPX-68XXXX", "81.00A81"}, "support", "^WDC WD[0-9]+EFPX-", "pattern", "81.00A81", "64570.0"},
		{{"WDC WD80EFPX-68C4ZN0", "81.00A81"}, "for_eunit", "WDC WD80EFPX-68C4ZN0", "name", "default", "null"},
		{{"ST4000VN006-3CW104", "ZZ99"}, "support", "ST4000VN006-3CW104", "name", "default", "null"},
		{{"ST4000VN006-3CW104", "ZZ99", "--strict"}, "not_in_support", "ST4000VN006-3CW104", "name", "null", "<none>"},
		{{"WD Red SN700 500GB", "111150WD", "--card", "M2C-D2"}, "support", "WD Red SN700", "pattern", "default", "72806.0"},
		{{"WD Red SN700 500GB", "111150WD", "--card", "M2C-D2", "--at", "90000"}, "not_in_support", "WD Red SN700", "pattern", "default", "72806.0"},
		{{"TOSHIBA MG08ACA16TE", "0102", "--unit", "XU05"}, "not_support", "TOSHIBA MG08ACA16TE", "name", "0102", "null"},
		{{"NOBODY 1TB", "1.0"}, "not_in_support", "null", "null", "null", "<none>"},
	};
	for (const auto &row : rows) {
		A a{"--json", "compat", "model"};
		a.insert(a.end(), row.args.begin(), row.args.end());
		Ran r = box.vexohw(a);
		ASSERT_EQ(r.status, 0) << r.err;
		JsonDoc doc(r.out);
		EXPECT_EQ(texts(doc.obj, {"compatibility", "matched_model", "matched_by", "firmware_entry"}),
			  (Strings{row.word, row.matched, row.by, row.entry}))
			<< row.args[0] << " " << row.args.back();
		EXPECT_EQ(text(field(doc.obj, "interval"), "from"), row.from) << row.args[0] << " " << row.args.back();
	}
	// The mapped word, its end, and an ignore flag of the interval.
	JsonDoc mapped(box.vexohw({"--json", "compat", "model", "WD Red SN700 500GB", "x", "--card", "M2C-D2"}).out);
	EXPECT_EQ(texts(field(mapped.obj, "mapping"), {"word", "to", "entry_time"}),
		  (Strings{"support_legacy", "support", "90000.0"}));
	json_object *timeline = field(mapped.obj, "timeline");
	ASSERT_EQ(json_object_array_length(timeline), 3u);
	EXPECT_EQ(texts(json_object_array_get_idx(timeline, 2), {"from", "word", "compatibility"}),
		  (Strings{"90000.0", "support_legacy", "not_in_support"}));
	JsonDoc ignore(box.vexohw({"--json", "compat", "model", "TOSHIBA MG08ACA16TE", "0102", "--at", "72806"}).out);
	EXPECT_EQ(text(field(ignore.obj, "interval"), "smart_test_ignore"), "true");
	EXPECT_EQ(text(ignore.obj, "database"), "/var/lib/disk-compatibility/vx1222_host_v7.db");

	std::ofstream(box.root() + "/tmp/odd.db") << R"({"disk_compatbility_info":{"X":5,"Y":{"1":{"vos_ver":"a"}}}})";
	const A refused[] = {
		{"compat", "latest", "X", "--db", "/tmp/odd.db"},
		{"compat", "latest", "Y", "--db", "/tmp/odd.db"},
		{"compat", "model", "X", "Y", "--card", "../M2C-D2"},
		{"compat", "model", "X", "Y", "--db", "/var/lib/disk-compatibility/none_v7.db"},
		{"compat", "model", "X", "Y", "--db", "/etc.defaults/VERSION"},
		{"compat", "model", "X", "Y", "--at", "7x"},
		{"compat", "model", "X", "Y", "--unit", "XU05", "--card", "M2C-D2"},
		{"compat", "model", "X"},
		{"compat", "latest", "NOBODY 1TB"},
		{"compat", "latest", "ST8000VN004-3CP101"}, // listed without build numbers
	};
	for (const auto &a : refused) {
		Ran r = box.vexohw(a);
		EXPECT_EQ(r.status, 1) << a[2] << " " << a.back(); // refused, never aborted
		EXPECT_FALSE(r.err.empty());
	}
}

TEST(CompatDbCli, LatestFirmwarePropertiesAndDatabaseFiles)
{
	ASSERT_TRUE(kBackend);
	HostDaemonLock alone; // no other box's daemon answers for these drives
	BuiltBox box;
	ASSERT_TRUE(box.ok()) << box.log();
	JsonDoc latest(box.vexohw({"--json", "compat", "latest", "VEXO NM410 400GB", "--card", "M2C-D2"}).out);
	EXPECT_EQ(texts(latest.obj, {"latest_firmware", "fw_buildnumber", "firm_bin"}),
		  (Strings{"VN0310", "310", "VEXO_NM410_VN0310.bin"}));
	json_object *list = field(latest.obj, "firmware");
	ASSERT_EQ(json_object_array_length(list), 2u);
	EXPECT_EQ(texts(json_object_array_get_idx(list, 1), {"firmware", "build", "compatibility"}),
		  (Strings{"VN0230", "230", "not_support"}));
	// The drive itself: its database found from where it sits.
	Ran onDisk = box.vexohw({"--json", "compat", "latest", "nvme1n1"});
	ASSERT_EQ(onDisk.status, 0) << onDisk.err;
	JsonDoc disk(onDisk.out);
	EXPECT_EQ(texts(disk.obj, {"current_firmware", "current_build", "newer_available", "database"}),
		  (Strings{"VN0230", "230", "true", "/var/lib/disk-compatibility/vx1222_m2c-d2_v7.db"}));

	Ran props = box.vexohw({"--json", "compat", "properties", "sde"});
	ASSERT_EQ(props.status, 0) << props.err;
	JsonDoc p(props.out);
	EXPECT_EQ(text(field(p.obj, "properties"), "protocol"), "SATA");
	EXPECT_EQ(text(p.obj, "rule_file"), "/var/lib/disk-compatibility/host_rule.db");
	EXPECT_EQ(text(field(p.obj, "actions"), "ui_compatibility"),
		  text(field(p.obj, "properties"), "compatibility") == "not_support" ? "not_support" : "not_in_support");
	JsonDoc unit(box.vexohw({"--json", "compat", "path", "sdme"}).out);
	EXPECT_EQ(texts(unit.obj, {"database", "database_exists", "rule_file"}),
		  (Strings{"/var/lib/disk-compatibility/xu05_v7.db", "true", "/var/lib/disk-compatibility/eunit_rule.db"}));

	// A sleeping disk hears nothing but the power question.
	ASSERT_EQ(box.sleep("sda"), 0);
	for (const char *cmd : {"properties", "latest"}) {
		JsonDoc asleep(box.vexohw({"--json", "compat", cmd, "sda"}).out);
		EXPECT_EQ(text(asleep.obj, "power_mode"), "standby") << cmd;
	}
	auto heard = box.sent("sda");
	EXPECT_EQ(heard, std::vector<std::string>(heard.size(), kCheckPowerMode));

	const struct {
		const char *content;
		int status;
		const char *valid;
	} files[] = {{R"({"nas_model":"vx1222","disk_compatbility_info":{}})", 0, "true"},
		     {R"({"nas_model":"vx9999","disk_compatbility_info":{}})", 1, "false"},
		     {R"({"disk_compatbility_info":{}})", 1, "false"},
		     {"{not json", 1, "false"}};
	for (const auto &f : files) {
		std::ofstream(box.root() + "/tmp/new.db", std::ios::trunc) << f.content;
		Ran r = box.vexohw({"--json", "db", "check", "/tmp/new.db"});
		EXPECT_EQ(r.status, f.status) << f.content;
		EXPECT_EQ(text(JsonDoc(r.out).obj, "valid"), f.valid) << f.content;
	}
	EXPECT_NE(box.vexohw({"db", "check", "/tmp/absent.db"}).status, 0);
}

} // namespace
