// vexohw health details, disk mask-serial, ssd-bundle and the firmware plan
// commands on the bundled box: answers against what the box holds, the
// stored serial written once and read back from the drive, a sleeping disk
// left asleep, and bad arguments refused before anything is touched.
#include <filesystem>
#include <fstream>

#include "smartctl/drive_sim.h"
#include "tools/cli_run.h"

using namespace vexo::test;

namespace {

const bool kBackend = installDriveEmulator();

// The host vendor log page the drive keeps for the shown serial, as hex.
std::string storedPage(const BuiltBox &box, const std::string &disk)
{
	JsonDoc node(box.read("/dev/" + disk));
	return text(field(node.obj, "logs"), "0x9a");
}

std::string hexOf(const std::string &s)
{
	std::string h;
	char b[3];
	for (unsigned char c : s)
		std::snprintf(b, sizeof(b), "%02x", c), h += b;
	return h;
}

TEST(DiskHealthCli, StoredSerialWrittenOnceReadBackAndRefused)
{
	ASSERT_TRUE(kBackend);
	BuiltBox box;
	ASSERT_TRUE(box.ok()) << box.log();
	JsonDoc first(box.vexohw({"--json", "disk", "mask-serial", "sda"}).out);
	EXPECT_EQ(texts(first.obj, {"true_serial", "stored_serial", "can_store"}), (Strings{"WWZ4K1QA", "null", "true"}));

	struct Step {
		std::vector<std::string> args;
		int status;
		const char *changed, *page; // page: the serial the drive holds after
	} steps[] = {
		{{"set", "sda", "VX12"}, 1, "<none>", ""},          // too short for the page
		{{"set", "sda", "VX 1234"}, 1, "<none>", ""},       // a space would be shown as is
		{{"set", "sda", "VXA0123456"}, 0, "true", "VXA0123456"},
		{{"set", "sda", "VXA0123456"}, 0, "false", "VXA0123456"}, // so already: nothing written
		{{"clear", "sda"}, 0, "true", "WWZ4K1QA"},
		{{"clear", "sda"}, 0, "false", "WWZ4K1QA"},
	};
	for (const Step &s : steps) {
		std::filesystem::remove(box.root() + "/run/vexosim/drive/sda.log");
		std::vector<std::string> args{"--json", "disk", "mask-serial"};
		args.insert(args.end(), s.args.begin(), s.args.end());
		Ran r = box.vexohw(args);
		ASSERT_EQ(r.status, s.status) << s.args[0] << " " << s.args.back() << ": " << r.err;
		EXPECT_EQ(text(JsonDoc(r.out).obj, "changed"), s.changed) << s.args.back();
		const std::string page = storedPage(box, "sda");
		EXPECT_EQ(*s.page ? page.substr(0, hexOf(s.page).size() + 2) : page, *s.page ? hexOf(s.page) + "00" : "<none>")
			<< s.args.back();
		// Only the write (SMART WRITE LOG of log 0x9a) sends data to the drive.
		int writes = 0;
		for (const auto &l : box.sent("sda"))
			writes += l.find("dxfer_direction=-2") != std::string::npos && l.find("cdb=850a0600d6") != std::string::npos;
		EXPECT_EQ(writes, std::string(s.changed) == "true" ? 1 : 0) << s.args.back();
	}
	JsonDoc after(box.vexohw({"--json", "disk", "mask-serial", "sda"}).out);
	EXPECT_EQ(texts(after.obj, {"stored_serial", "shown_serial"}), (Strings{"WWZ4K1QA", "WWZ4K1QA"}));
	Ran nvme = box.vexohw({"disk", "mask-serial", "set", "nvme1n1", "VXN2310A01273"});
	EXPECT_NE(nvme.status, 0);
	EXPECT_NE(nvme.err.find("no place to store"), std::string::npos) << nvme.err;
}

TEST(DiskHealthCli, CachedDetailsMatchTheBoxAndASleepingDiskHearsNothing)
{
	ASSERT_TRUE(kBackend);
	BuiltBox box;
	ASSERT_TRUE(box.ok()) << box.log();
	const std::string cache = box.root() + "/run/vexostorage/disks/";
	std::ofstream(cache + "sde/predict_status") << "critical";
	std::ofstream(cache + "sdh/ssd_bundle_days_left") << "400";
	std::ofstream(box.root() + "/etc/vexoinfo.conf", std::ios::app)
		<< "ssd_bundle_month_left_warn_enable=\"yes\"\nssd_bundle_month_left_thr_value=\"14\"\n";
	std::ofstream(box.root() + "/etc.defaults/disk_adv_status.conf")
		<< "[101]\nsection=\"s1\"\nkey=\"k1\"\ndamageWeight=\"31\"\nmodifiable=\"1\"\n";
	ASSERT_EQ(box.sleep("sdb"), 0);
	struct Row {
		std::vector<std::string> args;
		std::vector<const char *> keys;
		Strings want;
	} rows[] = {
		{{"health", "prediction", "sde"}, {"prediction", "weight"}, {"critical", "31"}},
		{{"health", "prediction", "sda"}, {"prediction", "weight"}, {"unknown", "0"}},
		{{"ssd-bundle", "sdh"}, {"days_left", "months_left", "month_threshold", "at_or_below_threshold"},
		 {"400", "13", "14", "true"}},
		{{"ssd-bundle", "sda"}, {"in_bundle", "days_left", "at_or_below_threshold"}, {"false", "null", "false"}},
		{{"health", "adv", "nvme0n1"}, {"status", "weight", "muted"}, {"not_support", "0", "false"}},
		{{"health", "adv-code", "101"}, {"status", "weight", "modifiable"}, {"critical", "31", "true"}},
		{{"health", "adv-code", "999"}, {"status", "configured"}, {"can_not_test_warn", "false"}},
		{{"health", "history", "sdb"}, {"power_mode", "read"}, {"standby", "false"}},
		{{"firmware", "finished"}, {"finished", "state"}, {"true", "do_nothing"}},
	};
	for (const Row &r : rows) {
		std::vector<std::string> args{"--json"};
		args.insert(args.end(), r.args.begin(), r.args.end());
		Ran ran = box.vexohw(args);
		ASSERT_EQ(ran.status, 0) << r.args[1] << ": " << ran.err;
		JsonDoc doc(ran.out);
		Strings got;
		for (const char *k : r.keys)
			got.push_back(text(doc.obj, k));
		EXPECT_EQ(got, r.want) << r.args[0] << " " << r.args[1];
	}
	// Twelve command timeouts on sda weigh critical until acknowledged; a
	// second acknowledgement stores nothing.
	std::ofstream(box.root() + "/sys/block/sda/device/iotmo_cnt") << "0xc\n";
	const std::string base = cache + "sda/timeout_base";
	std::filesystem::file_time_type stored{};
	for (auto [args, want] : std::vector<std::pair<Strings, Strings>>{
		     {{"health", "errors", "sda", "--refresh"}, {"12", "0", "31", "<none>"}},
		     {{"health", "errors", "ack", "sda", "timeout"}, {"12", "12", "0", "true"}},
		     {{"health", "errors", "ack", "sda", "timeout"}, {"12", "12", "0", "false"}}}) {
		args.insert(args.begin(), "--json");
		JsonDoc doc(box.vexohw(args).out);
		EXPECT_EQ(texts(json_object_array_get_idx(doc.obj, 0), {"count", "baseline", "weight", "changed"}), want);
		if (want[3] == "false") {
			EXPECT_EQ(std::filesystem::last_write_time(base), stored);
		}
		stored = std::filesystem::last_write_time(base);
	}
	// The box has no overview document yet: building it would read sdb too.
	for (auto args : std::vector<Strings>{{"health", "history", "sda"},
					     {"history", "sda"},
					     {"counters", "sda"},
					     {"health", "history", "sda", "--type", "weekly"},
					     {"ssd-bundle", "sdz"},
					     {"health", "adv-code", "../x"},
					     {"firmware", "results", "--limit", "0"},
					     {"firmware", "validate", "../etc/passwd"}}) {
		Ran ran = box.vexohw(args);
		EXPECT_EQ(ran.status, 1) << args[0] << " " << args.back();
		EXPECT_EQ(ran.out, "") << args.back();
	}
	EXPECT_EQ(box.sent("sdb"), Strings(4, kCheckPowerMode)); // asked its power mode, nothing more
}

TEST(FirmwarePlanCli, ValidateRemovesABadBinaryAndResultsAreNewestFirst)
{
	BuiltBox box;
	ASSERT_TRUE(box.ok()) << box.log();
	const std::string dir = box.root() + "/var/lib/drive-bundle/firmware/";
	std::filesystem::create_directories(dir);
	for (const char *name : {"good.bin", "bad.bin"}) {
		std::ofstream(dir + name) << "hello\n";
		std::ofstream(dir + name + ".FW_INFO")
			<< "md5sum=\"" << (std::string(name) == "good.bin" ? "b1946ac92492d2347c6235b4d2611184" : "0123") << "\"\n";
	}
	JsonDoc good(box.vexohw({"--json", "firmware", "validate", "good.bin"}).out);
	EXPECT_EQ(texts(good.obj, {"valid", "removed"}), (Strings{"true", "false"}));
	Ran bad = box.vexohw({"--json", "firmware", "validate", "bad.bin"});
	EXPECT_EQ(bad.status, 1);
	EXPECT_EQ(texts(JsonDoc(bad.out).obj, {"valid", "removed"}), (Strings{"false", "true"}));
	EXPECT_FALSE(std::filesystem::exists(dir + "bad.bin.FW_INFO"));
	EXPECT_NE(box.vexohw({"firmware", "validate", "bad.bin"}).err.find("no binary bad.bin"), std::string::npos);

	std::filesystem::create_directories(box.root() + "/var/lib/drive-bundle/fw-upgrade");
	std::ofstream(box.root() + "/var/lib/drive-bundle/fw-upgrade/result.log")
		<< "1700000000\tWWZ4K1QA\t/dev/sda\tST8000VN004\tSC60\tSC61\t2\nnot a result\n"
		<< "1700000100\tWWZ4K3LM\t/dev/sdb\tST8000VN004\tSC60\tSC61\t-4\n";
	JsonDoc results(box.vexohw({"--json", "firmware", "results"}).out);
	EXPECT_EQ(texts(results.obj, {"total", "unreadable_lines"}), (Strings{"2", "1"}));
	json_object *list = field(results.obj, "results");
	ASSERT_EQ(json_object_array_length(list), 2u);
	EXPECT_EQ(texts(json_object_array_get_idx(list, 0), {"disk", "result", "time"}),
		  (Strings{"/dev/sdb", "failed: flashing", "2023-11-14T22:15:00Z"}));
	EXPECT_EQ(text(json_object_array_get_idx(list, 1), "result"), "success");

	// The plan in force names sda: listed with what the user is offered.
	std::ofstream(box.root() + "/var/lib/drive-bundle/fw-upgrade/p.conf")
		<< "[WWZ4K1QA]\ndrive_path=\"/dev/sda\"\nupgrade_status=\"0\"\n";
	std::filesystem::create_symlink("p.conf", box.root() + "/var/lib/drive-bundle/fw-upgrade/current.conf");
	JsonDoc drives(box.vexohw({"--json", "firmware", "drives"}).out);
	ASSERT_EQ(json_object_array_length(drives.obj), 1u);
	EXPECT_EQ(texts(json_object_array_get_idx(drives.obj, 0), {"disk", "upgrading", "offer"}),
		  (Strings{"/dev/sda", "false", "none"}));
}

} // namespace
