// The verdict on an emulated disk: attributes against the action log's
// mutes, the self-test weight, the cached overview that sends nothing to
// the drive, and recording an action.
#include <ctime>
#include <string>
#include <vexohw/frame.h>
#include <vexohw/smart_info.h>
#include <vexohw/remain_life.h>
#include <vexohw/smart_status.h>
#include <vexohw/smart_test.h>
#include <vexoplatform/logdb.h>

#include "smartctl/drive_sim.h"
#include "support/disk_layout.h"

using namespace vexo::test;

namespace {

const bool kBackend = installDriveEmulator();

class Verdict : public DriveSim {
protected:
	void SetUp() override
	{
		DriveSim::SetUp();
		ASSERT_TRUE(kBackend);
		DiskLayout(root).sata("sda", 1);
		ports(false);
		history("[]");
		root.diskDir("sda");
		VEXODiskUpdateStrValueCacheFile("sda", "model", "VEXO HAT5300-8T");
		VEXODiskUpdateStrValueCacheFile("sda", "serial", "ZL2K4T7C");
		VEXODiskUpdateIntValueCacheFile("sda", "smart_selftest_log_type", 1);
	}
	void history(const std::string &tests)
	{
		node("sda", R"({"protocol":"ata","model":"VEXO HAT5300-8T","serial":"ZL2K4T7C","firmware":"SC60",
 "size_bytes":8001563222016,"self_tests":)" + tests + "}");
	}
	// smartctl's attribute table with attribute 5's value, worst and
	// threshold, and the remaining life when not -1.
	void attr5(int value, int worst, int thr, int temp = 40, int life = -1)
	{
		char row[384];
		int n = std::snprintf(row, sizeof(row),
			      "  5 Reallocated_Sector_Ct   0x0033   %03d   %03d   %03d    Pre-fail  Always       -       8\n"
			      "194 Temperature_Celsius     0x0002   %03d   %03d   050    Old_age   Always       -       33\n",
			      value, worst, thr, temp, temp);
		if (life >= 0)
			std::snprintf(row + n, sizeof(row) - n,
				      "231 SSD_Life_Left           0x0013   %03d   %03d   000    Old_age   Always       -       0\n",
				      life, life);
		root.write("/usr/bin/smartctl",
			   std::string("#!/bin/sh\ncat <<'EOF'\nID# ATTRIBUTE_NAME          FLAG     VALUE WORST THRESH TYPE      "
				       "UPDATED  WHEN_FAILED RAW_VALUE\n") + row + "\nEOF\n",
			   0755);
		ASSERT_EQ(VEXODiskAtaSmartInfoUpdate("/dev/sda"), 0); // past the hour-long list cache
	}
	// Action log entries for attribute 5, oldest first: action and current value.
	void actions(const std::vector<std::pair<int, int>> &entries)
	{
		std::string xml = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<log>\n";
		for (auto [action, current] : entries)
			xml += "<smart path=\"/dev/sda\" model=\"VEXO HAT5300-8T\" SN=\"ZL2K4T7C\" time=\"2026/01/01 00:00:00\" "
			       "type=\"SMART\" id=\"5\" current=\"" + std::to_string(current) + "\" threshold=\"10\" worst=\"4\" "
			       "raw=\"8\" show=\"1\">" + std::to_string(action) + "</smart>\n";
		root.write(SMART_ACTION_LOG, xml + "</log>\n");
	}
};

TEST_F(Verdict, AttributesAgainstMutes)
{
	struct Row {
		const char *what;
		int value, worst, temp;
		std::vector<std::pair<int, int>> actions;
		int status, weight;
		unsigned failType; // of the first fail entry; 0 for none
	} rows[] = {
		{"healthy", 100, 100, 60, {}, SMART_INFO_NORMAL, 0, 0},
		{"temperature at its threshold", 100, 100, 50, {}, SMART_INFO_NORMAL, 0, 0},
		{"failing now, muted anyway", 10, 10, 60, {{1, 10}}, SMART_INFO_FAIL, 31, SMART_FAIL_CRITICAL},
		{"past failure", 100, 4, 60, {}, SMART_INFO_NORMAL_PAST, 1, SMART_FAIL_PAST},
		{"suppressed", 100, 4, 60, {{1, 100}}, SMART_INFO_NORMAL_SUPPRESS, 0, 0},
		{"suppressed twice", 100, 4, 60, {{1, 100}, {1, 100}}, SMART_INFO_NORMAL_REPEAT_SUPPRESS, 0, 0},
		{"worse than when muted", 100, 4, 60, {{1, 101}}, SMART_INFO_NORMAL_PAST, 1, SMART_FAIL_REPEAT},
		{"mute cancelled", 100, 4, 60, {{1, 100}, {3, 100}}, SMART_INFO_NORMAL_PAST, 1, SMART_FAIL_PAST},
		{"disabled", 100, 4, 60, {{2, 100}}, SMART_INFO_NORMAL_DISABLE, 0, 0},
	};
	for (const Row &r : rows) {
		attr5(r.value, r.worst, 10, r.temp);
		actions(r.actions);
		SmartWarningReason *reason = VEXOSmartWarningReasonAlloc();
		int weight = -1, suppressed = 0, disabled = 0;
		EXPECT_EQ(SmartInfoStatusGet("/dev/sda", reason, &weight, &suppressed, &disabled, 0), r.status) << r.what;
		EXPECT_EQ(weight, r.weight) << r.what;
		EXPECT_EQ(reason->failList ? reason->failList->failType : 0u, r.failType) << r.what;
		VEXOSmartWarningReasonFree(reason);
	}
}

TEST_F(Verdict, TotalAndCachedOverview)
{
	attr5(10, 10, 10); // failing now: 31
	history(R"([{"type":2,"status":112},{"type":1,"status":64}])"); // extended damage: 601
	root.write(SMART_ACTION_LOG, "");
	ASSERT_EQ(SmartTotalStatusCacheUpdate("/dev/sda"), 0);
	EXPECT_EQ(root.read("/run/vexostorage/disks/sda/smart"), "failing");
	EXPECT_EQ(root.read("/run/vexostorage/disks/sda/smart_damage_weight"), "632");

	VEXODiskUpdateIntValueCacheFile("sda", "timeout_weight", 5);
	clearCommands("sda");
	struct Row {
		const char *weight;
		int status, total;
	} rows[] = {{"632", 4, 637}, {"0", 2, 5}, {"26", 3, 31}, {"junk", 2, 5}};
	for (const Row &r : rows) {
		root.write("/run/vexostorage/disks/sda/smart_damage_weight", r.weight);
		int w = 0;
		EXPECT_EQ(SmartOverviewStatusCacheGet("/dev/sda", &w), r.status) << r.weight;
		EXPECT_EQ(w, r.total) << r.weight;
	}
	EXPECT_TRUE(commands("sda").empty()); // a sleeping disk stays asleep
	root.remove("/run/vexostorage/disks/sda/smart_damage_weight");
	EXPECT_EQ(SmartOverviewStatusCacheGet("/dev/sda", nullptr), 0);
}

// Each source beside SMART adds its weight to both overviews, the drive's
// and the cached one, and the drive's sets the source's flag.
TEST_F(Verdict, EachSourceAddsItsWeightAndSetsItsFlag)
{
	attr5(100, 100, 10);
	root.write(SMART_ACTION_LOG, "");
	root.write("/run/vexostorage/disks/sda/smart_damage_weight", "0");
	struct Row {
		const char *key, *text;
		int weight, status, cachedWeight, cachedStatus; // -1 and 0: no verdict
		int SmartWarningReason::*flag;			 // null: the source has no flag
	} rows[] = {{"timeout_weight", "1", 1, 2, 1, 2, &SmartWarningReason::errorTimeout},
		    {"reset_fail_weight", "31", 31, 3, 31, 3, &SmartWarningReason::errorResetFail},
		    {"unc_weight", "31", 31, 3, 31, 3, &SmartWarningReason::errorUnc},
		    {"wdda_weight", "5", 5, 2, 0, 1, &SmartWarningReason::wdda}, // the cache keeps the damage weight
		    {"wdda_damage_weight", "30", 0, 1, 30, 2, nullptr},
		    {"ssd_bundle_warning_weight", "601", 601, 4, 601, 4, nullptr},
		    {"unc_weight", "junk", -1, 0, -1, 0, nullptr}}; // a source that fails leaves no verdict
	for (const Row &r : rows) {
		for (const Row &o : rows)
			root.remove(std::string("/run/vexostorage/disks/sda/") + o.key);
		root.write(std::string("/run/vexostorage/disks/sda/") + r.key, r.text);
		SmartWarningReason reason{};
		int w = -1, cached = -1;
		EXPECT_EQ(SmartOverviewStatusGet("/dev/sda", nullptr, &reason, nullptr, &w), r.status) << r.key;
		EXPECT_EQ(w, r.weight) << r.key;
		EXPECT_EQ(SmartOverviewStatusCacheGet("/dev/sda", &cached), r.cachedStatus) << r.key;
		EXPECT_EQ(cached, r.cachedWeight) << r.key;
		for (const Row &o : rows)
			EXPECT_EQ(o.flag && reason.*o.flag, o.flag && o.flag == r.flag) << r.key << " sets " << o.key;
	}
}

TEST_F(Verdict, LifeAndMediaOverlay)
{
	struct Row {
		const char *what;
		bool past, readOnly, danger, badBlock, below, ignore;
		int status, weight;
	} rows[] = {
		{"read-only in the danger zone", false, true, true, false, false, false, SMART_INFO_LIFE_DANGER, 62},
		{"bad blocks on a disk with weight", true, false, false, true, false, false, SMART_INFO_NORMAL_PAST, 2},
		{"bad blocks alone", false, false, false, true, false, false, SMART_INFO_SSD_BAD_BLOCK_OVER_THR, 1},
		{"life below its threshold", false, false, false, false, true, false, SMART_INFO_LIFE_BELOW_THR, 0},
		{"ignorable past failure", true, false, false, false, false, true, SMART_INFO_NORMAL, 0},
		{"ignorable, but bad blocks", true, false, false, true, false, true, SMART_INFO_NORMAL_PAST, 2},
	};
	root.write(SMART_ACTION_LOG, "");
	for (const Row &r : rows) {
		// Life 0 is in danger; 40 is below a user's threshold of 50.
		attr5(100, r.past ? 4 : 100, 10, 40, r.danger ? 0 : 40);
		root.conf("/etc/vexoinfo.conf", {{"remain_life_thr_enable", r.below ? "yes" : "no"}, {"remain_life_thr_value", "50"}});
		root.write("/sys/block/sda/ro", r.readOnly ? "1\n" : "0\n");
		VEXODiskUpdateIntValueCacheFile("sda", "smart_attr_ignore", r.ignore);
		// An SSD bundle drive whose bad blocks (attribute 5's raw 8) reach
		// its model's threshold of 8, or stay under 9.
		root.write("/sys/block/sda/queue/rotational", "0\n");
		root.write("/sys/block/sda/device/model", "VEXO HAT5300-8T\n");
		root.write("/var/lib/drive_attribute/drive_attribute.db",
			   std::string(R"({"VEXO HAT5300-8T": {"is_bundle": "yes", "bundle_smart_attrs": "2:5:0xffffffff:0",
				"bad_block_cnt_thr": ")") + (r.badBlock ? "8" : "9") + "\"}}");
		SmartWarningReason reason{};
		int weight = -1;
		EXPECT_EQ(SmartInfoStatusGet("/dev/sda", &reason, &weight, nullptr, nullptr, 1), r.status) << r.what;
		EXPECT_EQ(weight, r.weight) << r.what;
		EXPECT_EQ(reason.failList != nullptr, r.past && !(r.ignore && !r.badBlock)) << r.what;
		SmartInfoFailListFree(reason.failList);
		// What the overlay published for the cached readers.
		EXPECT_EQ(VEXODiskIsBelowLifeThrCache("/dev/sda"), r.below ? 1 : 0) << r.what;
		EXPECT_EQ(root.read("/run/vexostorage/disks/sda/remain_life_danger"), r.danger ? "1" : "0") << r.what;
	}
}

TEST_F(Verdict, NvmeWarningsAndUsedUp)
{
	struct Row {
		int warning, used, status, weight;
	} rows[] = {{0, 50, SMART_INFO_NORMAL, 0}, {0x08, 50, SMART_INFO_FAIL, 601},
		    {0x03, 50, SMART_INFO_FAIL, 32},
		    {0, 100, SMART_INFO_LIFE_DANGER, 1 + 31}}; // used up: no life left is danger
	root.write(SMART_ACTION_LOG, "");
	for (const Row &r : rows) {
		node("nvme0n1", R"({"protocol":"nvme","model":"WD Red SN700 500GB","serial":"22514D800394","nvme":{"vid":5559,
		     "critical_warning":)" + std::to_string(r.warning) + R"(,"percentage_used":)" + std::to_string(r.used) + "}}");
		SmartWarningReason reason{};
		int weight = -1;
		EXPECT_EQ(SmartInfoStatusGet("/dev/nvme0n1", &reason, &weight, nullptr, nullptr, 0), r.status) << r.warning;
		EXPECT_EQ(weight, r.weight) << r.warning << " " << r.used;
		EXPECT_EQ(reason.criticalWarning, static_cast<unsigned>(r.warning));
	}
}

TEST_F(Verdict, ActionLogKeepsWhatStillStands)
{
	// Oldest first: a LIFE mute later cancelled, an ADV mute older than the
	// newest advanced test, an UNC entry (never kept), another disk's entry.
	auto entry = [](const char *type, int action, const char *time, const char *sn = "ZL2K4T7C") {
		return std::string("<smart path=\"/dev/sda\" model=\"VEXO HAT5300-8T\" SN=\"") + sn + "\" time=\"" + time +
		       "\" type=\"" + type + "\" life=\"5\" testCode=\"c1\" show=\"1\">" + std::to_string(action) + "</smart>\n";
	};
	root.write(SMART_ACTION_LOG, "<log>\n" + entry("LIFE", 1, "2026/01/01 00:00:00") + entry("LIFE", 3, "2026/01/02 00:00:00") +
					     entry("ADV", 1, "2026/01/03 00:00:00") + entry("UNC", 1, "2026/01/04 00:00:00") +
					     entry("SMART_TEST", 2, "2026/01/05 00:00:00") +
					     entry("SMART_TEST", 1, "2026/01/06 00:00:00", "OTHER") + "</log>\n");
	std::tm t{};
	t.tm_year = 126, t.tm_mon = 0, t.tm_mday = 4, t.tm_isdst = -1;
	ASSERT_EQ(VLIBLogSetByVA("disk_test", 1, "m", "ZL2K4T7C", "/dev/sda", std::to_string(std::mktime(&t)).c_str(), "ihm",
				 "quick", static_cast<const char *>(nullptr)), 0);
	SmartInfoAction *list = nullptr;
	ASSERT_EQ(SmartInfoActionLogGet("/dev/sda", &list, SMART_WARNING_ALL), 0);
	ASSERT_TRUE(list);
	EXPECT_EQ(list->type, SMART_WARNING_SMART_TEST);
	EXPECT_EQ(list->action, 2);
	EXPECT_FALSE(list->next);
	SmartInfoActionLogFree(list);
	ASSERT_EQ(SmartInfoActionLogGet("/dev/sda", &list, SMART_WARNING_LIFE), 0);
	EXPECT_FALSE(list); // the cancel is not kept either
	EXPECT_EQ(SmartInfoActionLogGet("/dev/sda", &list, 9), -1);
}

TEST_F(Verdict, RecordedMuteSilencesThePastFailure)
{
	attr5(100, 4, 10);
	root.write(SMART_ACTION_LOG, "");
	root.write("/sys/block/sda/queue/rotational", "1\n");
	root.conf("/etc.defaults/vexoinfo.conf", {{"internalportcfg", "0xff"}, {"usbportcfg", "0xff0000"},
						  {"esataportcfg", "0x0"}, {"upnpmodelname", "VX1222"}});
	root.write("/sys/block/sda/device/model", "VEXO HAT5300-8T\n");
	root.write("/sys/block/sda/device/vendor", "ATA     \n");
	int weight = 0;
	SmartWarningReason reason{};
	EXPECT_EQ(SmartInfoStatusGet("/dev/sda", &reason, &weight, nullptr, nullptr, 0), SMART_INFO_NORMAL_PAST);
	SmartInfoFailListFree(reason.failList);
	reason.failList = nullptr;
	ASSERT_EQ(SmartInfoActionRecord("/dev/sda", 1, SMART_WARNING_SMART, "5"), 0);
	EXPECT_NE(root.read(SMART_ACTION_LOG).find("id=\"5\" current=\"100\" threshold=\"010\" worst=\"004\""), std::string::npos);
	EXPECT_EQ(SmartInfoStatusGet("/dev/sda", &reason, &weight, nullptr, nullptr, 0), SMART_INFO_NORMAL_SUPPRESS);
	EXPECT_EQ(weight, 0);
	EXPECT_EQ(root.read(VEXODB_DISK_LOG_PATH).empty(), false); // event 13 in the disk log
	EXPECT_EQ(SmartInfoActionRecord("/dev/sda", 1, SMART_WARNING_SMART, "77"), -1); // no such attribute
	EXPECT_EQ(SmartInfoActionRecord("/dev/sda", 5, SMART_WARNING_SMART, "5"), -1);
}

} // namespace
