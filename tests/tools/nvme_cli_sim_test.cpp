// vexohw nvme on the bundled box (an M2C-D2 card in slot 1 carrying a WD
// drive and one of the maker's own): what each drive says against the box
// description, debug overrides, a log page's bytes, places both ways,
// refusals, and what the two commands that keep something write.
#include <fstream>

#include "smartctl/drive_sim.h"
#include "tools/cli_run.h"

using namespace vexo::test;

namespace {

const bool kBackend = installDriveEmulator();

json_object *row(json_object *list, const char *key, const std::string &want)
{
	for (size_t i = 0; list && i < json_object_array_length(list); ++i)
		if (text(json_object_array_get_idx(list, i), key) == want)
			return json_object_array_get_idx(list, i);
	return nullptr;
}

class NvmeCli : public ::testing::Test {
protected:
	void SetUp() override { ASSERT_TRUE(kBackend && box.ok()) << box.log(); }
	// The command's JSON answer; the exit status must be `status`.
	JsonDoc *json(std::vector<std::string> args, int status = 0)
	{
		args.insert(args.begin(), "--json");
		Ran r = box.vexohw(args);
		EXPECT_EQ(r.status, status) << args[2] << ": " << r.err;
		docs.push_back(std::make_unique<JsonDoc>(r.out));
		return docs.back().get();
	}
	BuiltBox box;
	std::vector<std::unique_ptr<JsonDoc>> docs;
};

TEST_F(NvmeCli, InfoSmartAndOverrides)
{
	const char *keys[] = {"model", "firmware", "serial", "temperature_c", "self_test", "extended_test_minutes",
			      "percentage_used", "critical_warning", "remaining_life", "life_from", "vexology"};
	struct {
		const char *disk;
		Strings want;
	} rows[] = {{"nvme0n1", {"WD Red SN700 500GB", "111150WD", "22514D800394", "38", "true", "32", "3", "0x00", "97",
				 "percentage_used", "false"}},
		    {"nvme1n1", {"VEXO NM410 400GB", "VN0230", "VXN2310A01273", "44", "true", "25", "1", "0x00", "100",
				 "available_spare", "true"}}};
	for (const auto &r : rows) {
		json_object *o = json({"nvme", "info", r.disk})->obj;
		for (size_t i = 0; i < r.want.size(); ++i)
			EXPECT_EQ(text(o, keys[i]), r.want[i]) << r.disk << " " << keys[i];
		EXPECT_EQ(text(o, "debug_overrides"), "null");
	}
	EXPECT_EQ(text(json({"nvme", "info", "nvme0n1"})->obj, "vendor"), "Western Digital");

	json_object *smart = json({"nvme", "smart", "nvme0n1"})->obj;
	EXPECT_EQ(texts(row(smart, "name", "Percentage Used"), {"value", "id"}), (Strings{"3%", "5"}));
	EXPECT_EQ(texts(row(smart, "name", "Temperature"), {"value", "id"}), (Strings{"38 Celsius", "2"}));
	EXPECT_EQ(texts(row(smart, "name", "Power On Hours"), {"value"}), (Strings{"6120"}));
	// The maker's drive adds its vendor log fields, one with its name hidden.
	json_object *vendor = json({"nvme", "smart", "nvme1n1", "--vendor"})->obj;
	EXPECT_EQ(texts(row(vendor, "id", "168"), {"name", "value", "source"}), (Strings{"Vendor Specific", "3", "vendor_log"}));

	// A rig's overrides win and the drive's own figures stay visible.
	std::ofstream(box.root() + "/etc.defaults/vexoinfo.conf", std::ios::app) << "support_disk_status_debug=\"yes\"\n";
	std::ofstream(box.root() + "/tmp/.disk_status_debug") << "[VXN2310A01273]\ncrit=\"c\"\nperc_used=\"50\"\nlife=\"7\"\n";
	json_object *o = json({"nvme", "info", "nvme1n1"})->obj;
	EXPECT_EQ(texts(o, {"critical_warning", "percentage_used", "remaining_life", "warnings"}),
		  (Strings{"0x0c", "50", "7", "[ \"reliability_degraded\", \"read_only\" ]"}));
	json_object *d = field(o, "debug_overrides");
	EXPECT_EQ(texts(field(d, "remaining_life"), {"drive", "override"}), (Strings{"100", "7"}));
	EXPECT_EQ(texts(field(d, "percentage_used"), {"drive", "override"}), (Strings{"1", "50"}));
}

TEST_F(NvmeCli, LogPageBytes)
{
	struct {
		std::vector<std::string> args;
		const char *data;
	} rows[] = {
		// Active slot 2, then the revisions of slots 1 and 2, space-padded.
		{{"nvme1n1", "firmware", "--length", "24"}, "0200000000000000564e303231302020564e303233302020"},
		// Warning 0, 311 K, spare 100 % over 10 %, 3 % used; 6 bytes read as two dwords and cut.
		{{"nvme0n1", "0x02", "--length", "6"}, "003701640a03"},
	};
	for (auto &r : rows) {
		r.args.insert(r.args.begin(), {"nvme", "log"});
		json_object *o = json(r.args)->obj;
		EXPECT_EQ(text(o, "data"), r.data) << r.args[2];
	}
	EXPECT_EQ(text(json({"nvme", "log", "nvme0n1", "health"})->obj, "length"), "512");
	json_object *fw = json({"nvme", "log", "nvme1n1", "firmware", "--decode"})->obj;
	EXPECT_EQ(text(fw, "active_slot"), "2");
	EXPECT_EQ(texts(row(field(fw, "slots"), "slot", "2"), {"revision", "active"}), (Strings{"VN0230", "true"}));
	json_object *st = json({"nvme", "log", "nvme0n1", "self-test", "--decode"})->obj;
	EXPECT_EQ(texts(row(field(st, "results"), "number", "1"), {"type", "result", "power_on_hours"}),
		  (Strings{"short", "completed", "6100"}));
}

TEST_F(NvmeCli, PlacesBothWays)
{
	json_object *s = json({"nvme", "slot", "nvme1n1"})->obj;
	EXPECT_EQ(texts(s, {"slot", "location", "port_type", "u2", "usable", "disk_at_place"}),
		  (Strings{"1", "2", "cache", "false", "true", "/dev/nvme1n1"}));
	EXPECT_EQ(texts(s, {"card_id", "card", "card_sup_nvme", "card_sup_sata"}), (Strings{"0", "M2C-D2", "true", "false"}));
	EXPECT_EQ(text(json({"nvme", "at", "1", "1"})->obj, "disk"), "/dev/nvme0n1");

	json_object *all = json({"nvme", "all"})->obj;
	ASSERT_EQ(json_object_array_length(all), 2u);
	EXPECT_EQ(texts(json_object_array_get_idx(all, 0), {"disk", "location", "temperature_c", "remaining_life"}),
		  (Strings{"/dev/nvme0n1", "1", "38", "97"}));
	EXPECT_EQ(texts(json_object_array_get_idx(all, 1), {"disk", "location", "temperature_c", "remaining_life"}),
		  (Strings{"/dev/nvme1n1", "2", "44", "100"}));
	EXPECT_EQ(text(row(json({"nvme", "cards"})->obj, "name", "M2C-D2"), "disks"),
		  "[ \"\\/dev\\/nvme0n1\", \"\\/dev\\/nvme1n1\" ]");
}

TEST_F(NvmeCli, Refusals)
{
	struct {
		std::vector<std::string> args;
		const char *message;
	} rows[] = {
		{{"info", "sda"}, "/dev/sda is not an NVMe disk"},
		{{"info", "nvme7n1"}, "no disk /dev/nvme7n1"},
		{{"log", "nvme0n1", "0x100"}, "bad log page \"0x100\""},
		{{"log", "nvme0n1", "2", "--length", "4097"}, "bad length \"4097\""},
		{{"log", "nvme0n1", "0x80"}, "VEXONVMeLogGet failed (error 0x6C00"},
		{{"log", "nvme0n1", "vendor"}, "log page 0xca of /dev/nvme0n1"}, // only the maker's drives keep it
		{{"log", "nvme0n1", "health", "--decode"}, "--decode knows the firmware"},
		{{"at", "1", "3"}, "no NVMe disk at slot 1 location 3"},
		{{"at", "1", "0"}, "bad location \"0\""},
		{{"slot", "sdn"}, "/dev/sdn is not an NVMe disk"},
		{{"warning", "nvme0n1"}, "no critical warning cached for /dev/nvme0n1"},
	};
	for (auto &r : rows) {
		r.args.insert(r.args.begin(), "nvme");
		Ran ran = box.vexohw(r.args);
		EXPECT_EQ(ran.status, 1) << r.message;
		EXPECT_NE(ran.err.find(r.message), std::string::npos) << ran.err;
	}
	EXPECT_EQ(box.sent("sda"), Strings{}); // refused before a word reached it
}

// What the two keeping commands write, and that a second run writes nothing new.
TEST_F(NvmeCli, KeptLifeAndWarning)
{
	const std::string lives = "/var/lib/vexohw/nvme_remain_life";
	EXPECT_EQ(texts(json({"nvme", "life", "nvme1n1", "--record"})->obj, {"remaining_life", "last_checked", "recorded"}),
		  (Strings{"100", "null", "true"}));
	std::string kept = box.read(lives);
	EXPECT_NE(kept.find("VXN2310A01273"), std::string::npos) << kept;
	EXPECT_EQ(texts(json({"nvme", "life", "nvme1n1", "--record"})->obj, {"last_checked", "changed", "recorded"}),
		  (Strings{"100", "false", "false"}));
	EXPECT_EQ(box.read(lives), kept);

	EXPECT_EQ(texts(json({"nvme", "warning", "nvme0n1", "--refresh"})->obj, {"previous", "critical_warning", "changed"}),
		  (Strings{"null", "0x00", "true"}));
	EXPECT_EQ(box.read("/run/vexostorage/disks/nvme0n1/critical_warning").substr(0, 1), "0");
	EXPECT_EQ(texts(json({"nvme", "warning", "nvme0n1", "--refresh"})->obj, {"previous", "changed"}),
		  (Strings{"0x00", "false"}));
}

} // namespace
