// The HTML rows of a disk's status mail: what the disk's sources say,
// gathered first, then written in the mail language.
#include <cstdarg>
#include <cstdio>
#include <initializer_list>
#include <iterator>
#include <cstring>
#include <string>
#include <utility>
#include <vector>
#include <vexohw/disk_health.h>
#include <vexohw/disk_mail.h>
#include <vexohw/disk_status.h>
#include <vexohw/remain_life.h>
#include <vexohw/smart_info.h>
#include <vexohw/smart_status.h>
#include <vexoplatform/vexocore.h>

#include "disk/disk_mail_private.h"
#include "frame/boundary.h"
#include "frame/err.h"
#include "frame/log.h"
#include "frame/text.h"

namespace vexo::mail {

Texts::Texts()
{
	char lang[32] = {};
	// A language is one folder name under texts/.
	if (VLIBCFileGetKeyValue("/etc/vexoinfo.conf", "maillang", lang, sizeof(lang), 0) <= 0 ||
	    std::strchr(lang, '/') || std::strcmp(lang, "..") == 0 || std::strcmp(lang, ".") == 0) {
		vlog(LOG_ERR, "%s:%d Failed to get maillang, use enu instead. vexoerr=[0x%04X]", VEXO_AT, VLIBCErrGet());
		std::strcpy(lang, "enu");
	}
	char file[128];
	std::snprintf(file, sizeof(file), "%s%s/strings", "/usr/vexo/vexoman/webman/texts/", lang);
	file_ = file;
}

bool Texts::get(const char *key, std::string &out) const
{
	char value[256] = {};
	if (VLIBCFileGetKeyValue(file_.c_str(), key, value, sizeof(value), 0) <= 0) {
		vlog(LOG_ERR, "%s:%d Failed to get value of %s in %s", VEXO_AT, key, file_.c_str());
		return false;
	}
	out = value;
	return true;
}

bool capacityText(const Texts &texts, unsigned long long bytes, std::string &out)
{
	static constexpr struct {
		int shift;
		const char *key;
	} kUnits[] = {{40, "size_tb"}, {30, "size_gb"}, {20, "size_mb"}, {10, "size_kb"}, {0, "size_byte"}};
	for (const auto &u : kUnits) {
		if (u.shift && bytes < (1ULL << u.shift))
			continue;
		std::string unit;
		if (!texts.get(u.key, unit))
			return false;
		char text[96];
		std::snprintf(text, sizeof(text), "%.01lf %s", static_cast<double>(bytes) / static_cast<double>(1ULL << u.shift),
			      unit.c_str());
		out = text;
		return true;
	}
	return false;
}

} // namespace vexo::mail

namespace {

using vexo::mail::Texts;

constexpr const char *kRed = "red", *kOrange = "orange";

// A status word, the text key it is shown with, and its colour (none for
// a word that asks for nothing).
struct Word {
	const char *status;
	const char *key;
	const char *color;
};

// The SMART verdict: the disk's status words.
constexpr Word kSmartWords[] = {
	{"normal", "disk_smart_status_normal", nullptr},
	{"warning", "disk_status_warning", kOrange},
	{"critical", "disk_status_critical", kRed},
	{"failing", "disk_smart_status_failing", kRed},
};
// The advanced test, analytics and the error sources.
constexpr Word kSourceWords[] = {
	{"normal", "disk_status_normal", nullptr},
	{"warning", "disk_status_warning", kOrange},
	{"critical", "disk_status_critical", kRed},
	{"failing", "disk_status_failing", kRed},
	{"not_test", "disk_adv_status_not_test", nullptr},
	{"can_not_test", "disk_can_not_test", nullptr},
	{"can_not_test_warn", "disk_can_not_test", nullptr},
};
constexpr Word kUnknownWord = {"unknown", "disk_status_unknown", nullptr};

// Row labels, in the order their texts are fetched.
enum Label { BadSector, IdnfCount, RetryCount, RemainLife, SmartStatus, AdvStatus, Wdda, ErrTimeout, ErrResetFail,
	     ErrUnc, BundleTime, LabelCount };
constexpr const char *kLabelKeys[LabelCount] = {
	"disk_bad_sector_ct",	  "disk_identify_failed_ct",	 "disk_retry_ct",
	"disk_remain_life",	  "smart_status",		 "disk_ironwolf_health_status",
	"disk_wdda_title",	  "disk_error_timeout_title",	 "disk_error_reset_fail_title",
	"disk_error_unc_title",	  "ssd_bundle_useful_time",
};

// The error sources that get a row when they weigh.
struct ErrorSource {
	Label label;
	int (*weight)(const char *, int *);
};
constexpr ErrorSource kErrorSources[] = {
	{ErrTimeout, VEXODiskErrorTimeoutStatusCacheGet},
	{ErrResetFail, VEXODiskErrorResetFailStatusCacheGet},
	{ErrUnc, VEXODiskErrorUncStatusCacheGet},
};

// The useful time of a bundle disk: below `days`, counted in `unit` days.
struct TimeStep {
	int days;
	int unit;
	const char *one, *many;
};
constexpr TimeStep kTimeSteps[] = {
	{30, 7, "ssd_bundle_time_week", "ssd_bundle_time_weeks"},
	{365, 30, "ssd_bundle_time_month", "ssd_bundle_time_months"},
	{3650, 365, "ssd_bundle_time_year", "ssd_bundle_time_years"},
};

// The word of a weight on the verdict's scale.
const char *levelOf(int weight)
{
	return weight >= SMART_WEIGHT_FAILING	 ? "failing"
	       : weight >= SMART_WEIGHT_CRITICAL ? "critical"
	       : weight >= SMART_WEIGHT_WARNING	 ? "warning"
						 : "normal";
}

template <std::size_t N>
const Word &wordOf(const Word (&table)[N], const char *status)
{
	for (const Word &w : table)
		if (std::strcmp(w.status, status) == 0)
			return w;
	return kUnknownWord;
}

bool isOneOf(const char *s, std::initializer_list<const char *> words)
{
	for (const char *w : words)
		if (std::strcmp(s, w) == 0)
			return true;
	return false;
}

// printf into a string of whatever length it takes.
__attribute__((format(printf, 1, 2))) std::string format(const char *fmt, ...)
{
	va_list ap, again;
	va_start(ap, fmt);
	va_copy(again, ap);
	int n = std::vsnprintf(nullptr, 0, fmt, ap);
	va_end(ap);
	std::string out(n > 0 ? static_cast<std::size_t>(n) : 0, '\0');
	if (n > 0)
		std::vsnprintf(out.data(), out.size() + 1, fmt, again);
	va_end(again);
	return out;
}

std::string colored(const std::string &value, const char *color)
{
	if (!color)
		return value;
	return color == kRed ? format("<font color=\"red\">%s</font>", value.c_str())
			     : format("<font color=\"orange\">%s</font>", value.c_str());
}

struct Row {
	Label label;
	std::string value;
	const char *color;
};

// A status word's text, coloured; false when the text is missing.
bool wordRow(const Texts &texts, const Word &w, Label label, std::vector<Row> &rows)
{
	std::string text;
	if (!texts.get(w.key, text))
		return false;
	rows.push_back({label, text, w.color});
	return true;
}

// The bundle's useful time in words; false when a text is missing.
bool usefulTime(const Texts &texts, int days, std::string &out)
{
	std::string word;
	if (days <= 0)
		return texts.get("ssd_bundle_replace_now", out);
	for (const TimeStep &s : kTimeSteps) {
		if (days >= s.days)
			continue;
		int n = days / s.unit > 0 ? days / s.unit : 1;
		if (!texts.get(n == 1 ? s.one : s.many, word))
			return false;
		out = std::to_string(n) + " " + word;
		return true;
	}
	return texts.get("ssd_bundle_time_long", out);
}

std::string html(const std::vector<Row> &rows, const std::string (&labels)[LabelCount], const std::string &colon)
{
	std::string out;
	for (std::size_t i = 0; i < rows.size(); i += 2) {
		const Row &a = rows[i];
		std::string va = colored(a.value, a.color);
		if (i + 1 < rows.size()) {
			const Row &b = rows[i + 1];
			std::string vb = colored(b.value, b.color);
			out += format("%s%s %s<br>%s%s %s<br>", labels[a.label].c_str(), colon.c_str(), va.c_str(),
				      labels[b.label].c_str(), colon.c_str(), vb.c_str());
		} else {
			out += format("%s%s %s<br>", labels[a.label].c_str(), colon.c_str(), va.c_str());
		}
	}
	return out;
}

} // namespace

extern "C" {

VEXO_API int VEXODiskMailContentGet(const char *path, char *content, int size, int updateSmart, int unc,
				    int *attention)
try {
	if (!path || !content || size < 1) {
		vlog(LOG_ERR, "%s:%d Parameter error!", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	if (updateSmart && VEXODiskAtaSmartInfoUpdate(path) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to update smart info on device %s, 0x%X", VEXO_AT, path, VLIBCErrGet());
		return -1;
	}
	const Texts texts;

	// Gather.
	int total = SMART_TOTAL_UNKNOWN;
	char adv[32] = {};
	if (SmartOverviewStatusGet(path, &total, nullptr, adv, nullptr) == 0)
		total = SMART_TOTAL_UNKNOWN;
	if (!adv[0])
		std::strcpy(adv, "unknown");
	int wddaSupport = VEXODiskWddaIsSupport(path);
	if (wddaSupport < 0) {
		vlog(LOG_WARNING, "%s:%d Failed to get wdda support status on %s, vexoerr=[0x%04X]", VEXO_AT, path,
		     VLIBCErrGet());
		wddaSupport = 0;
	}
	int wddaWeight = 0;
	if (wddaSupport == 1 && VEXODiskWddaStatusGet(path, nullptr, &wddaWeight) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to get wdda status on %s, vexoerr=[0x%04X]", VEXO_AT, path, VLIBCErrGet());
		wddaWeight = 0;
	}
	const char *wddaRisk = levelOf(wddaWeight);
	const bool wddaCritical = isOneOf(wddaRisk, {"critical", "failing"});
	char predict[16] = {};
	if (VEXODiskHealthPredictionStatusGet(path, predict, sizeof(predict)) != 0) {
		vlog(LOG_WARNING, "%s:%d Failed to get disk health prediction status on %s", VEXO_AT, path);
		std::strcpy(predict, "unknown");
	}
	const bool predicted = isOneOf(predict, {"warning", "critical", "failing"});

	char totalWord[16] = {};
	if (SmartTotalStatusStringTransfer(total, totalWord, sizeof(totalWord)) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to get smart status string", VEXO_AT);
		return -1;
	}
	DiskHealthAttr attr{-1, -1, -1, -1, {}};
	if (VEXODiskCurHealthAttrGet(path, &attr) != 0) {
		vlog(LOG_ERR, "%s:%d VEXODiskCurHealthAttrGet failed on %s", VEXO_AT, path);
		attr = DiskHealthAttr{-1, -1, -1, -1, {}};
	}
	int below = 0;
	if (attr.remainLife >= 0 && (below = VEXODiskIsBelowLifeThrWithValue(path, attr.remainLife, nullptr, nullptr)) < 0) {
		vlog(LOG_ERR, "%s:%d VEXODiskIsBelowLifeThrWithValue failed on %s", VEXO_AT, path);
		below = 0;
	}
	const bool danger = VEXODiskIsLifeDangerWithValue(path, attr.remainLife) == 1;
	int days = -1;
	if (VEXOSSDBundleDaysLeftGet(path, &days) != 0) {
		vlog(LOG_ERR, "%s:%d VEXOSSDBundleDaysLeftGet failed on %s", VEXO_AT, path);
		days = -1;
	}
	int monthWarn = VEXOSSDBundleMonthLeftCheck(path);
	if (monthWarn < 0) {
		vlog(LOG_ERR, "%s:%d VEXOSSDBundleMonthLeftCheck failed on %s", VEXO_AT, path);
		monthWarn = 0;
	}
	int errorWeights[std::size(kErrorSources)] = {};
	bool errors = false;
	for (std::size_t i = 0; i < std::size(kErrorSources); ++i) {
		if (kErrorSources[i].weight(path, &errorWeights[i]) != 0 || errorWeights[i] < 0)
			errorWeights[i] = 0; // a disk without the counter has nothing to tell
		errors |= errorWeights[i] > 0;
	}

	if (!unc && isOneOf(adv, {"normal", "not_test", "unknown", "not_support"}) && total == SMART_TOTAL_NORMAL &&
	    !wddaCritical && !predicted && below != 1 && !danger && monthWarn != 1 && !errors)
		return 0;

	// Format.
	std::string labels[LabelCount], colon;
	for (int i = 0; i < LabelCount; ++i)
		if (!texts.get(kLabelKeys[i], labels[i]))
			return -1;
	if (!texts.get("colon", colon))
		return -1;

	std::vector<Row> rows;
	if (!wordRow(texts, wordOf(kSmartWords, totalWord), SmartStatus, rows)) {
		vlog(LOG_ERR, "%s:%d Failed to get smart status string", VEXO_AT);
		return -1;
	}
	auto errorRow = [&](std::size_t i) {
		return wordRow(texts, wordOf(kSourceWords, levelOf(errorWeights[i])), kErrorSources[i].label, rows);
	};
	if (unc) {
		rows.push_back({BadSector, std::to_string(attr.unc), attr.unc > 0 ? kRed : nullptr});
		for (std::size_t i = 0; i < std::size(kErrorSources); ++i)
			if (kErrorSources[i].label == ErrUnc && !errorRow(i))
				return -1;
	} else {
		if (!isOneOf(adv, {"unknown", "not_support"}) &&
		    !wordRow(texts, wordOf(kSourceWords, adv), AdvStatus, rows)) {
			vlog(LOG_ERR, "%s:%d Failed to get ihm status", VEXO_AT);
			return -1;
		}
		if (wddaSupport == 1 && !wordRow(texts, wordOf(kSourceWords, wddaRisk), Wdda, rows)) {
			vlog(LOG_ERR, "%s:%d Failed to get wdda status", VEXO_AT);
			return -1;
		}
		const std::pair<Label, int> counters[] = {{BadSector, attr.unc}, {IdnfCount, attr.idnf}, {RetryCount, attr.retry}};
		for (const auto &[label, n] : counters)
			if (n >= 0)
				rows.push_back({label, std::to_string(n), nullptr});
		if (attr.remainLife >= 0) {
			char life[16];
			std::snprintf(life, sizeof(life), "%d%%", attr.remainLife);
			rows.push_back({RemainLife, life, danger ? kRed : below == 1 ? kOrange : nullptr});
		}
		if (days >= 0) {
			std::string time;
			if (!usefulTime(texts, days, time))
				return -1;
			rows.push_back({BundleTime, time, days <= 0 ? kRed : monthWarn == 1 ? kOrange : nullptr});
		}
		for (std::size_t i = 0; i < std::size(kErrorSources); ++i)
			if (errorWeights[i] > 0 && !errorRow(i))
				return -1;
	}

	std::string text = html(rows, labels, colon);
	if (!VEXO_COPY_OUT(content, size, text, "mail content"))
		return -1;
	if (attention) {
		int n = 0;
		for (const Row &r : rows)
			n += r.color != nullptr;
		*attention = n;
	}
	return 1;
}
VEXO_C_CATCH(-1)

} // extern "C"
