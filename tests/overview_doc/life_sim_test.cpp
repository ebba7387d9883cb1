// Remaining life against an emulated SSD: the threshold answers, danger,
// the warning mail rule with its history in the disk event database, and
// the health history written month by month and read back.
#include <algorithm>
#include <filesystem>
#include <set>
#include <regex>
#include <syslog.h>
#include <vexohw/disk_status.h>
#include <vexohw/ext.h>
#include <vexohw/frame.h>
#include <vexohw/remain_life.h>
#include <vexohw/smart_info.h>

#include "frame/clock.h"
#include "overview_doc/overview_fixture.h"

using namespace vexo::test;

namespace {

class Life : public OverviewDoc {
protected:
	void SetUp() override
	{
		OverviewDoc::SetUp();
		disk(1, "ZL2K4T7C");
		root.write("/sys/block/sda/queue/rotational", "0\n");
		root.diskDir("sda");
		VEXODiskUpdateStrValueCacheFile("sda", "ui_serial", "ZL2K4T7C");
		VEXODiskUpdateStrValueCacheFile("sda", "model", "VEXO HAT5300-8T ");
		notify(true);
		settings("10", "3", {});
		ASSERT_EQ(VEXODiskXmlHotPlugUpdate(1, "/dev/sda"), 0);
	}
	// The drive's life attribute and its bad-sector count, as smartctl shows them.
	void drive(int life, int pending = 0)
	{
		char rows[512];
		std::snprintf(rows, sizeof(rows),
			      "197 Current_Pending_Sector  0x0012   100   100   000    Old_age   Always       -       %d\n"
			      "231 SSD_Life_Left           0x0013   %03d   %03d   000    Old_age   Always       -       0\n",
			      pending, life, life);
		root.write("/usr/bin/smartctl",
			   std::string("#!/bin/sh\ncat <<'EOF'\nID# ATTRIBUTE_NAME          FLAG     VALUE WORST THRESH TYPE      "
				       "UPDATED  WHEN_FAILED RAW_VALUE\n") + rows + "\nEOF\n",
			   0755);
		ASSERT_EQ(VEXODiskAtaSmartInfoUpdate("/dev/sda"), 0);
	}
	void settings(const char *show, const char *mail, const std::vector<std::pair<std::string, std::string>> &user)
	{
		std::vector<std::pair<std::string, std::string>> d = {
			{"internalportcfg", "0xf"}, {"usbportcfg", "0xff0000"}, {"esataportcfg", "0x0"}, {"upnpmodelname", "VX1222"}};
		if (show)
			d.emplace_back("remain_life_show_thr_value", show);
		if (mail)
			d.emplace_back("remain_life_mail_notify_thr_value", mail);
		root.conf("/etc.defaults/vexoinfo.conf", d);
		root.conf("/etc/vexoinfo.conf", user);
	}
	void notify(bool on) { root.write("/run/vexostorage/disks/sda/compatibility_action", on ? "{}" : R"({"notify_lifetime":false})"); }
};

TEST_F(Life, ThresholdsAndDanger)
{
	struct Case {
		const char *enable, *value, *show, *mail;
		int life;
		int user, showAns, mailAns; // the three answers for the life
	} cases[] = {
		{"yes", "10", "10", "3", 10, 1, 1, 0},	 // at the value is below
		{"yes", "10", "10", "3", 11, 0, 0, 0},
		{"yes", "10", "10", "3", -1, 0, 0, 0},	 // unknown is below nothing
		{"yes", "10", "10", "3", 3, 1, 1, 1},
		{nullptr, nullptr, "10", "3", 0, 0, 1, 1}, // no enable: the value is not read
		{"no", "x", "10", "3", 0, 0, 1, 1},
		{"yes", nullptr, nullptr, nullptr, 5, -1, -1, -1}, // keys missing
		{"yes", "ten", "10", "3", 5, -1, 1, 0},
	};
	for (const Case &c : cases) {
		std::vector<std::pair<std::string, std::string>> user;
		if (c.enable)
			user.emplace_back("remain_life_thr_enable", c.enable);
		if (c.value)
			user.emplace_back("remain_life_thr_value", c.value);
		settings(c.show, c.mail, user);
		LogCapture log;
		EXPECT_EQ(VEXODiskIsBelowLifeThrWithValue("/dev/sda", c.life, nullptr, nullptr), c.user) << c.life;
		EXPECT_EQ(VEXODiskIsBelowLifeShowThrWithValue(c.life), c.showAns) << c.life;
		EXPECT_EQ(VEXODiskIsBelowLifeMailNotifyThrWithValue(c.life), c.mailAns) << c.life;
		EXPECT_EQ(log.count(LOG_ERR, "Failed to get remain_life_thr_value value"), c.user < 0 ? 1 : 0);
	}

	// Danger: below 1 everywhere, below 2 on another maker's disk only.
	struct Danger {
		bool vendor;
		int life, danger;
	} dangers[] = {{false, -1, 0}, {true, -1, 0}, {false, 0, 1}, {true, 0, 1},
		       {false, 1, 1},  {true, 1, 0},  {false, 2, 0}, {true, 2, 0}};
	for (const Danger &d : dangers) {
		root.write("/var/lib/diskaction/diskaction.xml",
			   std::string("<?xml version=\"1.0\"?>\n<diskaction><disk model=\"VEXO HAT5300-8T\" vendor=\"") +
				   (d.vendor ? "Vexology" : "Other") + "\" action=\"0\"/></diskaction>\n");
		EXPECT_EQ(VEXODiskIsLifeDangerWithValue("/dev/sda", d.life), d.danger) << d.vendor << " " << d.life;
	}
	EXPECT_EQ(VEXODiskIsLifeDangerWithValue(nullptr, 0), -1);

	// Through the drive: life and attribute, and the answers on the path.
	settings("10", "3", {{"remain_life_thr_enable", "yes"}, {"remain_life_thr_value", "20"}});
	drive(20, 4);
	char attr[64] = {};
	int life = 0;
	EXPECT_EQ(VEXODiskRemainLifeInfoGet("/dev/sda", attr, sizeof(attr), &life, nullptr, nullptr), 1);
	EXPECT_EQ(life, 20);
	EXPECT_STREQ(attr, "SSD_Life_Left");
	EXPECT_EQ(VEXODiskIsBelowLifeThr("/dev/sda", nullptr, nullptr), 1);
	EXPECT_EQ(VEXODiskIsLifeDanger("/dev/sda"), 0);
	EXPECT_EQ(VEXODiskIsSupportBadSector("/dev/sda"), 1);

	// The bundle's month warning: off, and 1 month, unless set.
	int months = 0;
	EXPECT_EQ(VEXOSSDBundleMonthLeftWarnEnableGet() + VEXOSSDBundleMonthLeftThresGet(&months) + months, 1);
	settings("10", "3", {{"ssd_bundle_month_left_warn_enable", "yes"}, {"ssd_bundle_month_left_thr_value", "121"}});
	EXPECT_EQ(VEXOSSDBundleMonthLeftWarnEnableGet(), 1);
	EXPECT_EQ(VEXOSSDBundleMonthLeftThresGet(&months), -1); // above ten years

	// NVMe: a life is checked once per figure and serial.
	struct Nvme {
		const char *serial;
		int life, answer;
	} nvmes[] = {{"S1", 50, 1}, {"S1", 50, 0}, {"S1", 49, 1}, {"S2", 49, 1}, {"S1", 49, 0},
		     {"", 5, -1},   {"A=B", 5, -1}, {"A\nB", 5, -1}};
	for (const Nvme &c : nvmes)
		EXPECT_EQ(VEXONVMeRemainingLifeNeedCheck(c.serial, c.life), c.answer) << c.serial << " " << c.life;
}

TEST_F(Life, WarningMailGoesOutOncePerFigure)
{
	// keep: the event database of the step before stays; otherwise it starts
	// empty, with a warning for `logged` when that is not -1.
	struct Step {
		const char *thr; // user threshold, null: disabled
		int life, logged;
		bool keep, notify, mail;
	} steps[] = {
		{"10", 10, -1, false, true, true},  // reaches the threshold: one mail
		{"10", 10, -1, true, true, false},  // the same figure again: none
		{"10", 9, -1, true, true, false},   // above the mail threshold, T not below the last
		{nullptr, 50, -1, false, true, false}, // threshold off, above the mail threshold
		{"11", 10, 12, false, true, true},  // T below the last figure warned about
		{"20", 10, 12, false, true, false}, // T above it
		{nullptr, 2, 2, false, true, false}, // below the mail threshold, same figure
		{nullptr, 2, 3, false, true, true},  // below it, a new figure
		{nullptr, 2, -1, false, false, false}, // the rules say no lifetime mail
	};
	for (const Step &s : steps) {
		std::vector<std::pair<std::string, std::string>> user;
		if (s.thr)
			user = {{"remain_life_thr_enable", "yes"}, {"remain_life_thr_value", s.thr}};
		settings("10", "3", user);
		notify(s.notify);
		if (!s.keep)
			root.remove(VEXODB_DISK_LOG_PATH);
		if (s.logged >= 0) {
			ASSERT_EQ(VEXORemainLifeWarnMailSend("/dev/sda", "ZL2K4T7C", std::to_string(s.logged).c_str(), 0, 0), 0);
		}
		drive(s.life);
		size_t before = mails().size();
		ASSERT_EQ(VEXODiskRemainLifeCheck("/dev/sda"), 0) << s.life;
		EXPECT_EQ(mails().size() - before, s.mail ? 1u : 0u) << (s.thr ? s.thr : "-") << " " << s.life;
		int last = -7;
		EXPECT_EQ(VEXODiskRemainLifeLastLogGet("ZL2K4T7C", &last), s.mail || s.logged >= 0 || s.keep ? 1 : 0);
		if (s.mail) {
			EXPECT_EQ(last, s.life);
		}
	}
	// What the first mail said, and the event that was logged with it.
	root.remove(VEXODB_DISK_LOG_PATH);
	settings("10", "3", {{"remain_life_thr_enable", "yes"}, {"remain_life_thr_value", "10"}});
	ASSERT_EQ(VEXORemainLifeWarnMailSend("/dev/sda", "ZL2K4T7C", "10", 0, 0), 0);
	std::string m = mails().back();
	for (const char *line : {"tag=RemainLifeWarn\n", "%DISK_SN%=ZL2K4T7C\n", "%DISK_LIFE%=10\n",
				 "%DISK_LIFE_THRESHOLD%=10\n", "%DISK_MODEL%=VEXO HAT5300-8T\n"})
		EXPECT_NE(m.find(line), std::string::npos) << line << m;
	auto ev = events();
	ASSERT_EQ(ev.size(), 1u);
	EXPECT_EQ(ev[0].rfind("life_below_thre_with_value|VEXO HAT5300-8T|ZL2K4T7C|10 10 ", 0), 0u) << ev[0];

	// Months left of an SSD bundle, and the unit's number.
	struct Bundle {
		int days;
		const char *months, *unit;
	} bundles[] = {{400, "13", "months"}, {30, "1", "month"}, {59, "1", "month"}, {29, "0", "months"}, {365, "12", "months"}};
	for (const Bundle &b : bundles) {
		ASSERT_EQ(VEXORemainLifeWarnMailSend("/dev/sda", "ZL2K4T7C", "5", b.days, 1), 0);
		m = mails().back();
		EXPECT_NE(m.find(std::string("%DISK_LIFE_MONTH_VALUE%=") + b.months + "\n"), std::string::npos) << b.days;
		EXPECT_NE(m.find(std::string("%DISK_LIFE_MONTH_UNIT%=vos:disk_info:ssd_bundle_time_") + b.unit + "\n"),
			  std::string::npos) << b.days;
	}
	// A failed read sends nothing.
	settings("10", nullptr, {});
	size_t before = mails().size();
	EXPECT_EQ(VEXODiskRemainLifeCheck("/dev/sda"), -1);
	EXPECT_EQ(mails().size(), before);
	// A serial is one SQL text, whatever it holds.
	int last = 0;
	EXPECT_EQ(VEXODiskRemainLifeLastLogGet("Z' OR '1'='1", &last), 0);
	EXPECT_EQ(last, -1);
	EXPECT_EQ(VEXODiskRemainLifeLastLogGet("ZL2K4T7C", &last), 1);
}

TEST_F(Life, HistoryRecordedMonthByMonth)
{
	struct tm tm {};
	tm.tm_year = 2026 - 1900, tm.tm_mon = 0, tm.tm_mday = 15, tm.tm_hour = 12;
	const std::time_t jan = std::mktime(&tm);
	const std::time_t month = 31 * 86400;
	// Fourteen months recorded, the counters growing; the first two fall out.
	for (int i = 0; i < 14; ++i) {
		drive(100 - i, i);
		VEXODiskXmlAttrCtUpdate("idnf", "ZL2K4T7C");
		vexo::clock::setForTest(jan + i * month, 0);
		ASSERT_EQ(VEXOExtDiskHealthHistoryRecord("/dev/sda"), 0) << i;
	}
	// A second record in the same month replaces it.
	drive(80, 20);
	ASSERT_EQ(VEXOExtDiskHealthHistoryRecord("/dev/sda"), 0);
	std::string h = at("ZL2K4T7C", "history");
	EXPECT_EQ(h.substr(0, h.find(';')), "2026/03,2,3,0,98");
	EXPECT_EQ(h.substr(h.rfind(';') + 1), "2027/02,20,14,0,80");
	EXPECT_EQ(std::count(h.begin(), h.end(), ';'), 11);

	DiskHealthHistoryEntry sum[12], diff[12];
	ASSERT_EQ(VEXODiskHealthHistoryGet("/dev/sda", sum, 12, VEXO_DISK_HEALTH_CUMULATIVE), 0);
	ASSERT_EQ(VEXODiskHealthHistoryGet("/dev/sda", diff, 12, VEXO_DISK_HEALTH_DIFF), 0);
	for (int i = 0; i < 11; ++i) {
		EXPECT_EQ(sum[i].unc, i + 2) << i;
		EXPECT_EQ(sum[i].remainLife, 98 - i) << i;
		EXPECT_EQ(diff[i].idnf, 1) << i;
		EXPECT_EQ(diff[i].remainLife, i < 10 ? -1 : 80 - 88) << i;
	}
	EXPECT_EQ(sum[11].unc, 20);
	EXPECT_EQ(diff[11].unc, 0); // the month against the current values

	// Damaged months are dropped by the next record, whole months kept.
	root.write(VEXO_DISK_OVERVIEW_XML,
		   std::regex_replace(doc(), std::regex("<history>[^<]*</history>"),
				      "<history>2027/01,1,2,3,4;garbage;2027/13,1,1,1,1;2026/12,x,,5,;;</history>"));
	ASSERT_EQ(VEXOExtDiskHealthHistoryRecord("/dev/sda"), 0);
	vexo::clock::clearForTest();
	EXPECT_EQ(at("ZL2K4T7C", "history"), "2026/12,,,5,;2027/01,1,2,3,4;2027/02,20,14,0,80");
	EXPECT_EQ(VEXOExtDiskHealthHistoryRecord("/dev/sdc"), -1); // no such disk
	EXPECT_EQ(VEXOExtDiskHealthHistoryRecord(nullptr), -1);
}

} // namespace
