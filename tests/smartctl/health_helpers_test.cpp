// The health sources beside SMART: failure paths, the error counters
// against their baselines, analytics mutes, the prediction cache, and the
// cached verdict adding each source's weight.
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <vexohw/disk_health.h>
#include <vexohw/smart_info.h>
#include <vexohw/smart_status.h>

#include "support/vexotest.h"

using namespace vexo::test;

namespace {

constexpr const char *kDev = "/sys/devices/pci0000:00/host0/target0:0:0/0:0:0:0";
constexpr const char *kCache = "/run/vexostorage/disks/sda/";

struct Disk {
	Sysroot root;
	Disk()
	{
		root.write(std::string(kDev) + "/block/sda/ro", "0\n");
		root.symlink("../devices/pci0000:00/host0/target0:0:0/0:0:0:0/block/sda", "/sys/block/sda");
		root.symlink("../..", std::string(kDev) + "/block/sda/device");
		counter("iotmo_cnt", "0x0");
		counter("ioerr_cnt", "0x0");
		root.diskDir("sda");
	}
	void counter(const char *name, const std::string &v) const { root.write(std::string(kDev) + "/" + name, v + "\n"); }
	void key(const std::string &k, const std::string &v) const { root.write(kCache + k, v); }
	// The cached attribute list with attribute 187's raw value.
	void unc(const char *raw) const
	{
		char name[] = "Reported_Uncorrect", id[] = "187", v[] = "100", thr[] = "0";
		SmartInfoEntry e{name, id, v, v, thr, const_cast<char *>(raw), 0, nullptr};
		ASSERT_EQ(SmartInfoCacheUpdate("sda", &e), 0);
	}
};

using Call = std::function<int(const char *)>;

const std::pair<const char *, Call> kCalls[] = {
	{"readonly", [](const char *p) { int v; return VEXODiskReadonlyGet(p, &v); }},
	{"timeout update", VEXODiskErrorTimeoutStatusCacheUpdate},
	{"reset fail update", VEXODiskErrorResetFailStatusCacheUpdate},
	{"unc update", VEXODiskErrorUncStatusCacheUpdate},
	{"timeout get", [](const char *p) { int w; return VEXODiskErrorTimeoutStatusCacheGet(p, &w); }},
	{"reset fail get", [](const char *p) { int w; return VEXODiskErrorResetFailStatusCacheGet(p, &w); }},
	{"unc get", [](const char *p) { int w; return VEXODiskErrorUncStatusCacheGet(p, &w); }},
	{"wdda", [](const char *p) { return VEXODiskWddaStatusGet(p, nullptr, nullptr); }},
	{"wdda update", VEXODiskWddaStatusCacheUpdate},
	{"wdda get", [](const char *p) { return VEXODiskWddaStatusCacheGet(p, nullptr, nullptr); }},
	{"prediction", [](const char *p) { return VEXODiskHealthPredictionStatusGet(p, nullptr, 0); }},
	{"bundle", [](const char *p) { int w; return VEXOSSDBundleWarningWeightGet(p, &w); }},
};

TEST(HealthHelpers, FailurePaths)
{
	Disk d;
	// What makes each call's own value unreadable.
	d.root.write(std::string(kDev) + "/block/sda/ro", "2\n");
	d.counter("iotmo_cnt", "junk");
	d.counter("ioerr_cnt", "-1");
	d.unc("many");
	for (const char *k : {"timeout_weight", "reset_fail_weight", "unc_weight", "wdda_damage_weight"})
		d.key(k, "x");
	d.key("wdda_weight", "-3");
	d.key("ssd_bundle_warning_weight", "99999999999");
	d.root.mkdirs(std::string(kCache) + "predict_status");
	for (const auto &[what, call] : kCalls) {
		struct Row {
			const char *path;
			int code;
		} rows[] = {{nullptr, VEXO_ERR_BAD_PARAM},
			    {"/dev/../etc", VEXO_ERR_BAD_PARAM},
			    {"/dev/sdz", VEXO_ERR_UNKNOWN_DEVICE},
			    {"/dev/sda", VEXO_ERR_READ}};
		for (const Row &r : rows) {
			VLIBCErrClear();
			EXPECT_EQ(call(r.path), -1) << what << " " << (r.path ? r.path : "null");
			EXPECT_ERR(r.code) << what << " " << (r.path ? r.path : "null");
		}
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
		const char *what, *attr;
		int (*update)(const char *);
		int (*get)(const char *, int *);
		std::vector<Step> steps;
	} rows[] = {
		{"timeout", "iotmo_cnt", VEXODiskErrorTimeoutStatusCacheUpdate, VEXODiskErrorTimeoutStatusCacheGet,
		 {{"0x0", 0, "normal"}, {"0x1", 1, "warning"}, {"0x9", 1, "warning"}, {"0xa", 31, "critical"}, {nullptr, 0, "normal"}}},
		{"reset fail", "ioerr_cnt", VEXODiskErrorResetFailStatusCacheUpdate, VEXODiskErrorResetFailStatusCacheGet,
		 {{"3", 1, "warning"}, {"9", 1, "warning"}, {"10", 31, "critical"}, {"0", 0, "normal"}}},
		// The drive's lifetime count: only what comes after the first sight,
		// and a drive replaced (count below the baseline) starts over.
		{"unc", nullptr, VEXODiskErrorUncStatusCacheUpdate, VEXODiskErrorUncStatusCacheGet,
		 {{nullptr, 0, "normal"}, {"5", 0, "normal"}, {"5", 0, "normal"}, {"6", 31, "critical"}, {"3", 0, "normal"},
		  {"4", 31, "critical"}}},
	};
	for (const Row &r : rows) {
		Disk d;
		int w = -1;
		ASSERT_EQ(r.get("/dev/sda", &w), 0) << r.what;
		EXPECT_EQ(w, 0) << r.what << ": nothing stored yet";
		for (const Step &s : r.steps) {
			if (!r.attr && s.count)
				d.unc(s.count);
			else if (r.attr && s.count)
				d.counter(r.attr, s.count);
			else if (r.attr)
				d.root.remove(std::string(kDev) + "/" + r.attr);
			ASSERT_EQ(r.update("/dev/sda"), 0) << r.what << " " << (s.count ? s.count : "gone");
			ASSERT_EQ(r.get("/dev/sda", &w), 0);
			EXPECT_EQ(w, s.weight) << r.what << " " << (s.count ? s.count : "gone");
			std::string key = std::string(r.what) == "reset fail" ? "reset_fail" : r.what;
			EXPECT_EQ(d.root.read(kCache + key + "_status"), s.status) << r.what;
		}
	}
}

TEST(HealthHelpers, AnalyticsMutePredictionAndReadOnly)
{
	Disk d;
	d.key("model", "VEXO HAT5300-8T");
	d.key("serial", "ZL2K4T7C");
	d.key("wdda_code", "161");
	d.key("wdda_weight", "31");
	auto mute = [&](int code, int action) {
		d.root.write(SMART_ACTION_LOG, "<log><smart path=\"/dev/sda\" model=\"VEXO HAT5300-8T\" SN=\"ZL2K4T7C\" "
					       "time=\"2026/01/01 00:00:00\" type=\"WDDA\" wddaCode=\"" + std::to_string(code) +
					       "\" show=\"1\">" + std::to_string(action) + "</smart></log>\n");
	};
	struct Row {
		int muteCode, action, weight;
		const char *status;
	} rows[] = {{161, 1, 0, "muted"}, {161, 2, 0, "muted"}, {160, 1, 31, "critical"}, {161, 3, 31, "critical"}};
	for (const Row &r : rows) {
		mute(r.muteCode, r.action);
		int code = 0, w = -1;
		ASSERT_EQ(VEXODiskWddaStatusCacheUpdate("/dev/sda"), 0);
		ASSERT_EQ(VEXODiskWddaStatusCacheGet("/dev/sda", &code, &w), 0);
		EXPECT_EQ(code, 161);
		EXPECT_EQ(w, r.weight) << r.muteCode << " " << r.action;
		EXPECT_EQ(d.root.read(std::string(kCache) + "wdda_status"), r.status);
	}

	struct Prediction {
		const char *published; // null: none
		const char *word, *weight;
	} predictions[] = {{"critical\n", "critical", "31"}, {"failing", "failing", "601"}, {"bogus", "unknown", "0"},
			   {nullptr, "unknown", "0"}};
	for (const Prediction &p : predictions) {
		if (p.published)
			d.key("predict_status", p.published);
		else
			d.root.remove(std::string(kCache) + "predict_status");
		char word[9] = {};
		ASSERT_EQ(VEXODiskHealthPredictionStatusGet("/dev/sda", word, sizeof(word)), 0);
		EXPECT_STREQ(word, p.word);
		EXPECT_EQ(d.root.read(std::string(kCache) + "predict_weight"), p.weight);
	}
	char small[4] = "x";
	EXPECT_EQ(VEXODiskHealthPredictionStatusGet("/dev/sda", small, sizeof(small)), -1);
	EXPECT_STREQ(small, "x");

	for (const char *ro : {"1", "0"}) {
		d.root.write(std::string(kDev) + "/block/sda/ro", std::string(ro) + "\n");
		int v = -1;
		ASSERT_EQ(VEXODiskReadonlyGet("/dev/sda", &v), 0);
		EXPECT_EQ(v, ro[0] - '0');
	}
}

TEST(HealthHelpers, CachedVerdictAddsEachSource)
{
	struct Row {
		const char *key;
		int weight, status;
	} rows[] = {{"timeout_weight", 1, 2},	  {"reset_fail_weight", 31, 3},		{"unc_weight", 31, 3},
		    {"wdda_damage_weight", 30, 2}, {"ssd_bundle_warning_weight", 601, 4}, {nullptr, 0, 1}};
	for (const Row &r : rows) {
		Disk d;
		d.key("smart_damage_weight", "0");
		if (r.key)
			d.key(r.key, std::to_string(r.weight));
		int w = -1;
		EXPECT_EQ(SmartOverviewStatusCacheGet("/dev/sda", &w), r.status) << (r.key ? r.key : "none");
		EXPECT_EQ(w, r.weight) << (r.key ? r.key : "none");
	}
	Disk d;
	d.key("smart_damage_weight", "0");
	d.key("unc_weight", "junk");
	EXPECT_EQ(SmartOverviewStatusCacheGet("/dev/sda", nullptr), 0); // a source that fails leaves no verdict
}

} // namespace
