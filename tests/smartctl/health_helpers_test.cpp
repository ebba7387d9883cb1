// The health sources beside SMART: failure paths, the error counters
// against their baselines, analytics mutes and the prediction cache; the
// weight scale's edges, the drive-only cap, mail keys and the words.
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <vexohw/disk_health.h>
#include <vexohw/smart_info.h>
#include <vexohw/smart_status.h>

#include "support/disk_layout.h"
#include "support/vexotest.h"

using namespace vexo::test;

namespace {

const std::string kDev = "/sys/block/sda/device/", kCache = "/run/vexostorage/disks/sda/";

struct Disk {
	Sysroot root;
	Disk()
	{
		DiskLayout(root).sata("sda", 1);
		root.write("/sys/block/sda/ro", "0\n");
		root.diskDir("sda");
	}
	void key(const std::string &k, const std::string &v) const { root.write(kCache + k, v); }
	// A kernel counter, or with attr null attribute 187's raw value in the
	// cached attribute list.
	void count(const char *attr, const char *v) const
	{
		if (attr) {
			root.write(kDev + attr, std::string(v) + "\n");
			return;
		}
		char name[] = "Reported_Uncorrect", id[] = "187", n[] = "100";
		SmartInfoEntry e{name, id, n, n, n, const_cast<char *>(v), 0, nullptr};
		ASSERT_EQ(SmartInfoCacheUpdate("sda", &e), 0);
	}
};

int get(int (*f)(const char *, int *), const char *p)
{
	int w = 0;
	return f(p, &w);
}

const std::pair<const char *, std::function<int(const char *)>> kCalls[] = {
	{"readonly", [](const char *p) { return get(VEXODiskReadonlyGet, p); }},
	{"timeout update", VEXODiskErrorTimeoutStatusCacheUpdate},
	{"reset fail update", VEXODiskErrorResetFailStatusCacheUpdate},
	{"unc update", VEXODiskErrorUncStatusCacheUpdate},
	{"timeout get", [](const char *p) { return get(VEXODiskErrorTimeoutStatusCacheGet, p); }},
	{"reset fail get", [](const char *p) { return get(VEXODiskErrorResetFailStatusCacheGet, p); }},
	{"unc get", [](const char *p) { return get(VEXODiskErrorUncStatusCacheGet, p); }},
	{"wdda", [](const char *p) { return VEXODiskWddaStatusGet(p, nullptr, nullptr); }},
	{"wdda update", VEXODiskWddaStatusCacheUpdate},
	{"wdda get", [](const char *p) { return VEXODiskWddaStatusCacheGet(p, nullptr, nullptr); }},
	{"prediction", [](const char *p) { return VEXODiskHealthPredictionStatusGet(p, nullptr, 0); }},
	{"bundle", [](const char *p) { return get(VEXOSSDBundleWarningWeightGet, p); }},
};

TEST(HealthHelpers, FailurePaths)
{
	Disk d;
	// What makes each call's own value unreadable.
	d.root.write("/sys/block/sda/ro", "2\n");
	d.count("iotmo_cnt", "junk");
	d.count("ioerr_cnt", "-1");
	d.count(nullptr, "many");
	for (const char *k : {"timeout_weight", "reset_fail_weight", "unc_weight", "wdda_damage_weight"})
		d.key(k, "x");
	d.key("wdda_weight", "-3");
	d.key("ssd_bundle_warning_weight", "99999999999");
	d.root.mkdirs(kCache + "predict_status");
	const std::pair<const char *, int> rows[] = {{nullptr, VEXO_ERR_BAD_PARAM},
						     {"/dev/../etc", VEXO_ERR_BAD_PARAM},
						     {"/dev/sdz", VEXO_ERR_UNKNOWN_DEVICE},
						     {"/dev/sda", VEXO_ERR_READ}};
	for (const auto &[what, call] : kCalls)
		for (const auto &[path, code] : rows) {
			VLIBCErrClear();
			EXPECT_EQ(call(path), -1) << what << " " << (path ? path : "null");
			EXPECT_ERR(code) << what << " " << (path ? path : "null");
		}
}

TEST(HealthHelpers, CountersAgainstBaselines)
{
	struct Step {
		const char *count; // null: the counter is gone
		int weight;
		const char *status;
	};
	struct Row {
		const char *attr, *key;
		int (*update)(const char *);
		int (*get)(const char *, int *);
		std::vector<Step> steps;
	} rows[] = {
		{"iotmo_cnt", "timeout", VEXODiskErrorTimeoutStatusCacheUpdate, VEXODiskErrorTimeoutStatusCacheGet,
		 {{"0x0", 0, "normal"}, {"0x1", 1, "warning"}, {"0x9", 1, "warning"}, {"0xa", 31, "critical"}, {nullptr, 0, "normal"}}},
		{"ioerr_cnt", "reset_fail", VEXODiskErrorResetFailStatusCacheUpdate, VEXODiskErrorResetFailStatusCacheGet,
		 {{"010", 31, "critical"}, {"9", 1, "warning"}, {"0", 0, "normal"}}},
		// The drive's lifetime count: only what comes after the first sight,
		// and a drive replaced (count below the baseline) starts over.
		{nullptr, "unc", VEXODiskErrorUncStatusCacheUpdate, VEXODiskErrorUncStatusCacheGet,
		 {{nullptr, 0, "normal"}, {"5", 0, "normal"}, {"6", 31, "critical"}, {"3", 0, "normal"}, {"4", 31, "critical"}}},
	};
	for (const Row &r : rows) {
		Disk d;
		for (const Step &s : r.steps) {
			if (s.count)
				d.count(r.attr, s.count);
			else if (r.attr)
				d.root.remove(kDev + r.attr);
			int w = -1;
			ASSERT_EQ(r.update("/dev/sda"), 0) << r.key;
			ASSERT_EQ(r.get("/dev/sda", &w), 0);
			EXPECT_EQ(w, s.weight) << r.key << " " << (s.count ? s.count : "gone");
			EXPECT_EQ(d.root.read(kCache + r.key + "_status"), s.status) << r.key;
		}
	}
}

TEST(HealthHelpers, AnalyticsMuteAndPrediction)
{
	Disk d;
	d.key("model", "VEXO HAT5300-8T");
	d.key("serial", "ZL2K4T7C");
	d.key("wdda_code", "161");
	d.key("wdda_weight", "31");
	// A mute for another code, or one cancelled since, doesn't apply.
	const std::pair<const char *, int> mutes[] = {{"161\">1", 0}, {"161\">2", 0}, {"160\">1", 31}, {"161\">3", 31}};
	for (const auto &[entry, weight] : mutes) {
		d.root.write(SMART_ACTION_LOG, std::string("<log><smart path=\"/dev/sda\" model=\"VEXO HAT5300-8T\" "
							   "SN=\"ZL2K4T7C\" time=\"2026/01/01 00:00:00\" type=\"WDDA\" "
							   "show=\"1\" wddaCode=\"") + entry + "</smart></log>\n");
		int code = 0, w = -1;
		ASSERT_EQ(VEXODiskWddaStatusCacheUpdate("/dev/sda"), 0);
		ASSERT_EQ(VEXODiskWddaStatusCacheGet("/dev/sda", &code, &w), 0);
		EXPECT_EQ(code, 161);
		EXPECT_EQ(w, weight) << entry;
		EXPECT_EQ(d.root.read(kCache + "wdda_status"), weight ? "critical" : "muted");
	}

	const std::tuple<const char *, const char *, const char *> predictions[] = {
		{"critical\n", "critical", "31"}, {"failing", "failing", "601"}, {"bogus", "unknown", "0"}, {nullptr, "unknown", "0"}};
	for (const auto &[published, word, weight] : predictions) {
		if (published)
			d.key("predict_status", published);
		else
			d.root.remove(kCache + "predict_status");
		char out[9] = {};
		ASSERT_EQ(VEXODiskHealthPredictionStatusGet("/dev/sda", out, sizeof(out)), 0);
		EXPECT_STREQ(out, word);
		EXPECT_EQ(d.root.read(kCache + "predict_weight"), weight);
	}
}

TEST(SmartStatus, ScaleEdgesAndDriveOnlyCap)
{
	Sysroot root;
	struct Row {
		int weight, open, driveOnly;
	} rows[] = {{0, 1, 1}, {-5, 1, 1}, {1, 2, 2}, {30, 2, 2}, {31, 3, 3}, {600, 3, 3}, {601, 4, 3}, {5000, 4, 3}};
	for (bool only : {false, true}) {
		root.conf("/etc.defaults/vexoinfo.conf", {{"support_vexology_drive_only", only ? "yes" : "no"}});
		for (const Row &r : rows)
			EXPECT_EQ(SmartOverviewStatusCompute(r.weight), only ? r.driveOnly : r.open) << r.weight << only;
	}
}

TEST(SmartStatus, MailKeysAndWords)
{
	struct Row {
		int status, ret, id;
		const char *key;
	} rows[] = {{1, 0, -1, "keep"},
		    {2, 1, 35, "DiskStatusWarning"},
		    {3, 1, 36, "DiskStatusCritical"},
		    {4, 1, 37, "DiskStatusFailing"},
		    {5, 1, 34, "DiskStatusAccessError"},
		    {6, 0, -1, "keep"}};
	for (const Row &r : rows) {
		char key[32] = "keep";
		int id = -1;
		EXPECT_EQ(SmartOverviewStatusMailkeyGet(r.status, key, sizeof(key), &id), r.ret);
		EXPECT_STREQ(key, r.key);
		EXPECT_EQ(id, r.id);
	}
	EXPECT_EQ(SmartOverviewStatusMailkeyGet(2, nullptr, 8, nullptr), -1);
	EXPECT_STREQ(VEXODiskWarningTypeMappingToString(7), "NVME_PERC_USED_FULL");
	EXPECT_STREQ(VEXODiskWarningTypeMappingToString(8), "UNKNOWN");
	EXPECT_EQ(VEXODiskWarningTypeMappingToEnum("SMART_TEST"), 5);
	EXPECT_EQ(VEXODiskWarningTypeMappingToEnum("smart"), 0);
	char w[32];
	ASSERT_EQ(SmartInfoStatusStringTransfer(6, w, sizeof(w)), 0);
	EXPECT_STREQ(w, "normal_repeat_suppress");
	EXPECT_EQ(SmartInfoStatusStringTransfer(11, w, sizeof(w)), -1);
	ASSERT_EQ(SmartTotalStatusStringTransfer(4, w, sizeof(w)), 0);
	EXPECT_STREQ(w, "failing");
}

} // namespace
