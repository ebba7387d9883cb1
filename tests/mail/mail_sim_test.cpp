// The disk status mail against an emulated drive: when it is due, the
// reasons logged, what lands in the spool, and the HTML rows in the mail
// language.
#include <syslog.h>
#include <vexohw/disk_mail.h>
#include <vexohw/frame.h>
#include <vexohw/smart_info.h>
#include <vexohw/smart_status.h>

#include "overview_doc/overview_fixture.h"

using namespace vexo::test;

namespace {

using KVs = std::vector<std::pair<std::string, std::string>>;

const KVs kTexts = {
	{"size_tb", "TB"}, {"size_gb", "GB"}, {"size_mb", "MB"}, {"size_kb", "KB"}, {"size_byte", "B"},
	{"disk_status_normal", "Normal"}, {"disk_status_warning", "Warning"}, {"disk_status_critical", "Critical"},
	{"disk_status_failing", "Failing"}, {"disk_status_unknown", "Unknown"}, {"disk_smart_status_normal", "Healthy"},
	{"disk_smart_status_failing", "SFailing"}, {"disk_adv_status_not_test", "Untested"},
	{"disk_can_not_test", "Cannot"}, {"disk_bad_sector_ct", "Bad"}, {"disk_identify_failed_ct", "Idnf"},
	{"disk_retry_ct", "Retry"}, {"disk_remain_life", "Life"}, {"smart_status", "SMART"},
	{"disk_ironwolf_health_status", "Adv"}, {"disk_wdda_title", "Wdda"}, {"disk_error_timeout_title", "Timeout"},
	{"disk_error_reset_fail_title", "Reset"}, {"disk_error_unc_title", "Unc"}, {"ssd_bundle_useful_time", "Time"},
	{"colon", ":"}, {"ssd_bundle_replace_now", "now"}, {"ssd_bundle_time_long", "long"},
	{"ssd_bundle_time_week", "week"}, {"ssd_bundle_time_weeks", "weeks"}, {"ssd_bundle_time_month", "month"},
	{"ssd_bundle_time_months", "months"}, {"ssd_bundle_time_year", "year"}, {"ssd_bundle_time_years", "years"}};

class Mail : public OverviewDoc {
protected:
	void SetUp() override
	{
		OverviewDoc::SetUp();
		disk(1, "ZL2K4T7C");
		root.diskDir("sda");
		root.write("/sys/block/sda/device/vendor", "ATA     \n");
		root.mkdirs("/tmp");
		VEXODiskUpdateStrValueCacheFile("sda", "ui_serial", "ZL2K4T7C");
		root.conf("/usr/vexo/vexoman/webman/texts/enu/strings", kTexts);
		root.write("/run/vexostorage/disks/sda/compatibility_action", "{}");
		hotspare(0);
		smart(100, 100);
		ASSERT_EQ(VEXODiskXmlHotPlugUpdate(1, "/dev/sda"), 0);
	}
	// Attribute 5 as smartctl shows it, threshold 10.
	void smart(int value, int worst)
	{
		char row[160];
		std::snprintf(row, sizeof(row),
			      "  5 Reallocated_Sector_Ct   0x0033   %03d   %03d   010    Pre-fail  Always       -       0\n", value,
			      worst);
		root.write("/usr/bin/smartctl",
			   std::string("#!/bin/sh\ncat <<'EOF'\nID# ATTRIBUTE_NAME          FLAG     VALUE WORST THRESH TYPE      "
				       "UPDATED  WHEN_FAILED RAW_VALUE\n") + row + "\nEOF\n",
			   0755);
	}
	void hotspare(int exitCode)
	{
		root.write("/usr/vexo/sbin/vexostorage",
			   "#!/bin/sh\necho \"$*\" >> \"$VEXO_SYSROOT/tmp/hotspare.args\"\nexit " + std::to_string(exitCode) + "\n",
			   0755);
	}
	void cache(const KVs &values)
	{
		for (const auto &[k, v] : values)
			root.write("/run/vexostorage/disks/sda/" + k, v);
	}
};

TEST_F(Mail, SentWhenTheStatusCallsForIt)
{
	struct Case {
		KVs cache;
		const char *action; // compatibility_action
		int hotspareExit;
		const char *key;    // null: no mail
		const char *reason; // a warning line expected, null: none at all
		int value = 100, worst = 100; // attribute 5, threshold 10
		bool acknowledge = false; // the user muted the attribute at these values, then it got worse
	} cases[] = {
		{{}, "{}", 0, nullptr, nullptr}, // normal: nothing, not even reasons
		{{{"timeout_weight", "5"}}, "{}", 0, "DiskStatusWarning", "/dev/sda Disk error timeout"},
		{{{"unc_weight", "31"}}, "{}", 0, "DiskStatusCritical", "/dev/sda Disk error unc"},
		{{{"reset_fail_weight", "700"}}, "{}", 0, "DiskStatusFailing", "/dev/sda Disk error reset fail"},
		// the rules mute health mail: the reasons are logged all the same
		{{{"timeout_weight", "5"}}, R"({"notify_health_status":false})", 0, nullptr, "/dev/sda Disk error timeout"},
		// the hot spare manager fails to hear: the mail still goes
		{{{"timeout_weight", "5"}}, "{}", 1, "DiskStatusWarning", "/dev/sda Disk error timeout"},
		// the attribute's reasons
		{{}, "{}", 0, "DiskStatusWarning", "/dev/sda Warning SMART info: #5, cur 100, wor 5, thr 10, fail type: PAST", 100, 5},
		{{}, "{}", 0, "DiskStatusCritical", "/dev/sda Warning SMART info: #5, cur 5, wor 5, thr 10, fail type: CRITICAL", 5, 5},
		{{}, "{}", 0, "DiskStatusWarning", "/dev/sda Warning SMART info: #5, cur 100, wor 8, thr 10, fail type: REPEAT", 100, 9,
		 true},
	};
	for (const Case &c : cases) {
		SCOPED_TRACE(c.reason ? c.reason : "normal");
		for (const char *k : {"timeout_weight", "unc_weight", "reset_fail_weight"})
			root.remove(std::string("/run/vexostorage/disks/sda/") + k);
		cache(c.cache);
		root.write("/run/vexostorage/disks/sda/compatibility_action", c.action);
		root.remove("/tmp/hotspare.args");
		hotspare(c.hotspareExit);
		root.remove(SMART_ACTION_LOG);
		smart(c.value, c.worst);
		if (c.acknowledge) {
			ASSERT_EQ(VEXODiskAtaSmartInfoUpdate("/dev/sda"), 0);
			ASSERT_EQ(SmartInfoActionRecord("/dev/sda", 1, SMART_WARNING_SMART, "5"), 0);
			smart(c.value, c.worst - 1);
		}
		size_t before = mails().size();
		LogCapture log;
		ASSERT_EQ(VEXODiskMailSend("/dev/sda"), 0) << log.dump();
		auto all = mails();
		ASSERT_EQ(all.size() - before, c.key ? 1u : 0u) << log.dump();
		EXPECT_EQ(log.count(LOG_WARNING, "/dev/sda "), c.reason ? 1 : 0) << log.dump();
		if (c.reason) {
			EXPECT_TRUE(log.has(LOG_WARNING, c.reason)) << log.dump();
		}
		EXPECT_EQ(log.count(LOG_ERR, "Failed to notify hotspare [/dev/sda] health status"), c.hotspareExit ? 1 : 0);
		bool heard = c.reason && std::string(c.action) == "{}";
		EXPECT_EQ(root.exists("/tmp/hotspare.args") ? root.read("/tmp/hotspare.args") : "",
			  heard ? "--hotspare -n /dev/sda\n" : "");
		if (!c.key)
			continue;
		const std::string &m = all.back();
		for (std::string line : {std::string("tag=") + c.key, std::string("%DISK_NAME%=sda"),
					 std::string("%DISK_ID%=disk 1"), std::string("%CONTAINER_NAME%=VX1222"),
					 std::string("%DISK_MODEL%=VEXO HAT5300-8T"), std::string("%DISK_SN%=ZL2K4T7C"),
					 std::string("%DISK_FIRM%=SC60"), std::string("%CONTENT%=SMART: ")})
			EXPECT_NE(m.find(line + (line.back() == ' ' ? "" : "\n")), std::string::npos) << line << "\n" << m;
		EXPECT_EQ(m.find("%EUNIT_ID%"), std::string::npos) << m; // an internal disk
	}
}

TEST_F(Mail, ContentRows)
{
	struct Case {
		KVs cache, user; // cache values, /etc/vexoinfo.conf
		int unc;
		int result, attention;
		const char *has; // a part of the content expected
	} cases[] = {
		{{}, {}, 0, 0, 0, nullptr}, // nothing to report
		{{}, {}, 1, 1, 0, "SMART: Healthy<br>Bad: 0<br>Unc: Normal<br>"}, // the unc mail always reports
		// the SMART row is the attributes' and self-tests' verdict alone
		{{{"timeout_weight", "31"}}, {}, 0, 1, 1, "SMART: Healthy<br>"},
		{{{"timeout_weight", "31"}}, {}, 0, 1, 1, "Timeout: <font color=\"red\">Critical</font><br>"},
		{{{"timeout_weight", "3"}}, {}, 0, 1, 1, "Timeout: <font color=\"orange\">Warning</font><br>"},
		// analytics covered and critical
		{{{"wdda_support", "1"}, {"wdda_code", "7"}, {"wdda_weight", "40"}}, {}, 0, 1, 1,
		 "Wdda: <font color=\"red\">Critical</font>"},
		// a bundle disk near its end, the month warning on: 400 days = 13 months
		{{{"ssd_bundle_days_left", "400"}},
		 {{"ssd_bundle_month_left_warn_enable", "yes"}, {"ssd_bundle_month_left_thr_value", "13"}}, 0, 1, 1,
		 "Time: <font color=\"orange\">1 year</font><br>"},
		{{{"ssd_bundle_days_left", "400"}},
		 {{"ssd_bundle_month_left_warn_enable", "yes"}, {"ssd_bundle_month_left_thr_value", "12"}}, 0, 0, 0, nullptr},
		{{{"ssd_bundle_days_left", "0"}, {"timeout_weight", "1"}}, {}, 0, 1, 2, "Time: <font color=\"red\">now</font>"},
		{{{"ssd_bundle_days_left", "20"}, {"timeout_weight", "1"}}, {}, 0, 1, 1, "Time: 2 weeks<br>"},
		{{{"ssd_bundle_days_left", "60"}, {"timeout_weight", "1"}}, {}, 0, 1, 1, "Time: 2 months<br>"},
		{{{"ssd_bundle_days_left", "4000"}, {"timeout_weight", "1"}}, {}, 0, 1, 1, "Time: long<br>"},
	};
	for (const Case &c : cases) {
		for (const char *k : {"timeout_weight", "wdda_support", "wdda_code", "wdda_weight", "ssd_bundle_days_left"})
			root.remove(std::string("/run/vexostorage/disks/sda/") + k);
		cache(c.cache);
		root.conf("/etc/vexoinfo.conf", c.user);
		char content[VEXO_DISK_MAIL_CONTENT_SIZE] = "untouched";
		int attention = -1;
		LogCapture log;
		EXPECT_EQ(VEXODiskMailContentGet("/dev/sda", content, sizeof(content), 0, c.unc, &attention), c.result)
			<< log.dump();
		if (c.result != 1)
			continue;
		EXPECT_EQ(attention, c.attention) << content;
		EXPECT_NE(std::string(content).find(c.has), std::string::npos) << content;
		// the unc mail leaves the other counters out
		EXPECT_EQ(std::string(content).find("Idnf: ") != std::string::npos, !c.unc) << content;
	}
}

TEST_F(Mail, LanguageAndFailures)
{
	cache({{"timeout_weight", "5"}});
	char content[VEXO_DISK_MAIL_CONTENT_SIZE];
	{
		LogCapture log; // no maillang: English
		ASSERT_EQ(VEXODiskMailContentGet("/dev/sda", content, sizeof(content), 0, 0, nullptr), 1);
		EXPECT_TRUE(log.has(LOG_ERR, "Failed to get maillang, use enu instead."));
	}
	KVs ger = kTexts;
	for (auto &[k, v] : ger)
		if (k == "smart_status")
			v = "SMART-Status";
	root.conf("/usr/vexo/vexoman/webman/texts/ger/strings", ger);
	root.conf("/etc/vexoinfo.conf", {{"maillang", "ger"}});
	ASSERT_EQ(VEXODiskMailContentGet("/dev/sda", content, sizeof(content), 0, 0, nullptr), 1);
	EXPECT_EQ(std::string(content).rfind("SMART-Status: ", 0), 0u) << content;

	// A missing text abandons the content; a short buffer is left untouched.
	root.conf("/usr/vexo/vexoman/webman/texts/ger/strings", KVs(kTexts.begin(), kTexts.end() - 9));
	LogCapture log;
	EXPECT_EQ(VEXODiskMailContentGet("/dev/sda", content, sizeof(content), 0, 0, nullptr), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "Failed to get value of colon in /usr/vexo/vexoman/webman/texts/ger/strings"));
	root.conf("/etc/vexoinfo.conf", {});
	char small[16] = "untouched";
	EXPECT_EQ(VEXODiskMailContentGet("/dev/sda", small, sizeof(small), 0, 0, nullptr), -1);
	EXPECT_STREQ(small, "untouched");
	EXPECT_EQ(VEXODiskMailContentGet(nullptr, content, sizeof(content), 0, 0, nullptr), -1);
	EXPECT_EQ(VEXODiskMailGenerate(nullptr, "/dev/sda", 35), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "Parameter error!"));

	// The name the mail gives a disk.
	struct Name {
		const char *path;
		int size, result;
		const char *name;
	} names[] = {{"/dev/sda", 16, 0, "sda"},	 {"/dev/sda3", 16, 0, "sda"}, {"/dev/nvme0n1p2", 16, 0, "nvme0n1"},
		     {"sdb", 16, 0, "sdb"},		 {"/dev/sda", 3, -1, "-"},    {"/dev/../sda", 16, -1, "-"},
		     {nullptr, 16, -1, "-"}};
	for (const Name &n : names) {
		char out[16] = "-";
		EXPECT_EQ(VEXODiskMailDiskNameGet(n.path, out, n.size), n.result) << (n.path ? n.path : "null");
		EXPECT_STREQ(out, n.name);
	}
}

} // namespace
