// The health sources beside SMART: the kernel's read-only flag, the error
// accounting, drive analytics, the failure prediction and the SSD bundle's
// warning. All of them read kernel attributes and the per-disk value cache;
// none sends a command to a drive.
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vexohw/disk_health.h>
#include <vexohw/frame.h>
#include <vexohw/smart_info.h>
#include <vexohw/smart_status.h>

#include "frame/boundary.h"
#include "frame/cache_keys.h"
#include "frame/err.h"
#include "frame/path_read.h"
#include "frame/text.h"
#include "smartctl/disk_health_status.h"

namespace vexo::health {
namespace {

// The disk's name from "/dev/<name>" ("/dev//sda" is sda, as the cache
// readers take it). A name that is not one plain path element could climb
// out of /sys/block or the cache folder: refused.
bool diskName(const char *path, std::string &name)
{
	if (!path) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return false;
	}
	const char *rest = path;
	if (std::strncmp(rest, "/dev/", 5) == 0)
		for (rest += 5; *rest == '/';)
			++rest;
	if (!vexo::cache::isNameComponent(rest)) {
		vlog(LOG_ERR, "%s:%d Bad disk path %s", VEXO_AT, path);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return false;
	}
	name = rest;
	return true;
}

// /sys/block/<name>; a disk the kernel doesn't show is unknown.
bool blockDir(const char *path, std::string &name, vexo::PathDir &dir)
{
	if (!diskName(path, name))
		return false;
	dir = vexo::PathDir("/sys/block/" + name);
	if (!dir) {
		vlog(LOG_ERR, "%s:%d No such disk %s", VEXO_AT, path);
		VEXO_ERR(VEXO_ERR_UNKNOWN_DEVICE);
		return false;
	}
	return true;
}

// The disk's cache folder: the caller's when given, else opened into own.
const vexo::PathDir *cacheDir(const char *path, const vexo::PathDir *given, vexo::PathDir &own)
{
	if (given)
		return given;
	std::string name;
	if (!diskName(path, name))
		return nullptr;
	own = vexo::PathDir(std::string(vexo::cache::kDisksDir) + "/" + name);
	if (!own) {
		VEXO_ERR(VEXO_ERR_UNKNOWN_DEVICE);
		return nullptr;
	}
	return &own;
}

enum class Got { Value, Absent, Bad };

// One number from the cache folder. Not there, or empty (a writer between
// rename and close), is absent; anything else unreadable is bad.
Got cachedNumber(const vexo::PathDir &dir, const char *key, int64_t &out)
{
	vexo::ReadFail why = vexo::ReadFail::None;
	if (dir.readI64(key, out, &why))
		return Got::Value;
	if ((why == vexo::ReadFail::Open && errno == ENOENT) || (why == vexo::ReadFail::Read && errno == ENODATA))
		return Got::Absent;
	return Got::Bad;
}

// A weight a producer published: absent is 0, a negative or out-of-range
// value is as bad as text.
int cachedWeight(const vexo::PathDir &dir, const char *key, int &weight)
{
	int64_t v = 0;
	Got got = cachedNumber(dir, key, v);
	if (got == Got::Bad || (got == Got::Value && (v < 0 || v > INT32_MAX))) {
		vlog(LOG_ERR, "%s:%d Bad value of %s in the disk cache", VEXO_AT, key);
		VEXO_ERR(VEXO_ERR_READ);
		return -1;
	}
	weight = got == Got::Value ? static_cast<int>(v) : 0;
	return 0;
}

int storeInt(const std::string &name, const char *key, int value)
{
	if (VEXODiskUpdateIntValueCacheFile(name.c_str(), key, value) == 0)
		return 0;
	vlog(LOG_ERR, "%s:%d Failed to update %s of %s", VEXO_AT, key, name.c_str());
	return -1;
}

int storeStr(const std::string &name, const char *key, const char *value)
{
	if (VEXODiskUpdateStrValueCacheFile(name.c_str(), key, value) == 0)
		return 0;
	vlog(LOG_ERR, "%s:%d Failed to update %s of %s", VEXO_AT, key, name.c_str());
	return -1;
}

// The word of a weight on the scale.
const char *levelWord(int weight)
{
	return weight >= SMART_WEIGHT_FAILING	 ? "failing"
	       : weight >= SMART_WEIGHT_CRITICAL ? "critical"
	       : weight >= SMART_WEIGHT_WARNING	 ? "warning"
						 : "normal";
}

// ---- error accounting ----

enum class Count { Value, Absent, Bad };

// A kernel counter of the disk's SCSI device, "0x1f" as the kernel shows
// it, or decimal. A disk without the attribute has no such counter.
Count kernelCounter(const vexo::PathDir &block, const char *attr, const std::string &, uint64_t &out)
{
	std::string text;
	vexo::ReadFail why = vexo::ReadFail::None;
	if (!block.readString(attr, text, &why))
		return why == vexo::ReadFail::Open && errno == ENOENT ? Count::Absent : Count::Bad;
	if (text.empty() || text[0] == '-' || text[0] == '+')
		return Count::Bad;
	// Hex with its prefix, else decimal: "010" is ten, not eight.
	bool hex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
	char *end = nullptr;
	errno = 0;
	unsigned long long v = std::strtoull(text.c_str() + (hex ? 2 : 0), &end, hex ? 16 : 10);
	if (errno != 0 || *end != '\0' || end == text.c_str() + (hex ? 2 : 0))
		return Count::Bad;
	out = v;
	return Count::Value;
}

// The drive's reported uncorrectable count (attribute 187, raw) from the
// attribute list last cached: reading it never sends a command. No list
// (not an ATA disk, never refreshed) or no such attribute: no counter.
Count uncCounter(const vexo::PathDir &, const char *, const std::string &name, uint64_t &out)
{
	SmartInfoEntry *raw = nullptr;
	if (SmartInfoCacheGet(name.c_str(), &raw) != 0)
		return Count::Absent; // no list is no counter, not a failure
	std::unique_ptr<SmartInfoEntry, void (*)(SmartInfoEntry *)> list(raw, VEXODiskSmartInfoFree);
	for (const SmartInfoEntry *e = raw; e; e = e->next)
		if (e->id && std::strcmp(e->id, "187") == 0)
			return e->raw && vexo::parseU64(e->raw, out) ? Count::Value : Count::Bad;
	return Count::Absent;
}

struct ErrorRow {
	ErrorSource source;
	const char *what; // in log lines
	Count (*read)(const vexo::PathDir &block, const char *attr, const std::string &name, uint64_t &out);
	const char *attr;
	const char *baseKey, *weightKey, *statusKey;
	// Where a first or reset baseline starts: at 0 for counters that start
	// with the device, at the count for a drive's lifetime count.
	bool baseAtCount;
	uint64_t warningAt, criticalAt; // errors above the baseline; 0: no such level
};

constexpr ErrorRow kErrors[] = {
	{ErrorSource::Timeout, "timeout", kernelCounter, "device/iotmo_cnt", "timeout_base", "timeout_weight",
	 "timeout_status", false, 1, 10},
	{ErrorSource::ResetFail, "reset fail", kernelCounter, "device/ioerr_cnt", "reset_fail_base",
	 "reset_fail_weight", "reset_fail_status", false, 1, 10},
	{ErrorSource::Unc, "unc", uncCounter, nullptr, "unc_base", "unc_weight", "unc_status", true, 0, 1},
};

const ErrorRow &rowOf(ErrorSource s)
{
	for (const ErrorRow &r : kErrors)
		if (r.source == s)
			return r;
	return kErrors[0];
}

int weightOf(const ErrorRow &r, uint64_t delta)
{
	if (r.criticalAt && delta >= r.criticalAt)
		return SMART_WEIGHT_CRITICAL;
	if (r.warningAt && delta >= r.warningAt)
		return SMART_WEIGHT_WARNING;
	return 0;
}

int errorUpdate(ErrorSource source, const char *path)
{
	const ErrorRow &r = rowOf(source);
	std::string name;
	vexo::PathDir block(vexo::UniqueFd{});
	if (!blockDir(path, name, block))
		return -1;
	uint64_t count = 0;
	Count got = r.read(block, r.attr, name, count);
	if (got == Count::Bad) {
		vlog(LOG_ERR, "%s:%d Failed to read the %s counter of %s", VEXO_AT, r.what, path);
		VEXO_ERR(VEXO_ERR_READ);
		return -1;
	}
	int weight = 0;
	if (got == Count::Value) {
		vexo::PathDir own(vexo::UniqueFd{});
		const vexo::PathDir *cache = cacheDir(path, nullptr, own);
		if (!cache)
			return -1;
		int64_t base = 0;
		Got b = cachedNumber(*cache, r.baseKey, base);
		if (b == Got::Bad) {
			vlog(LOG_ERR, "%s:%d Bad value of %s in the disk cache", VEXO_AT, r.baseKey);
			VEXO_ERR(VEXO_ERR_READ);
			return -1;
		}
		// Baselines are stored as 64-bit numbers; a counter beyond that is
		// taken at the largest.
		int64_t now = count > static_cast<uint64_t>(INT64_MAX) ? INT64_MAX : static_cast<int64_t>(count);
		if (b == Got::Absent || base < 0 || now < base) {
			base = r.baseAtCount ? now : 0;
			if (VEXODiskUpdateLLIntValueCacheFile(name.c_str(), r.baseKey, base) != 0) {
				vlog(LOG_ERR, "%s:%d Failed to update %s of %s", VEXO_AT, r.baseKey, name.c_str());
				return -1;
			}
		}
		weight = weightOf(r, static_cast<uint64_t>(now - base));
	}
	// The status first, the weight last: the verdict reads the weight.
	if (storeStr(name, r.statusKey, levelWord(weight)) != 0 || storeInt(name, r.weightKey, weight) != 0)
		return -1;
	return 0;
}

// ---- drive analytics ----

// The producer's finding: code and weight, 0 and 0 when it has none.
int wddaFinding(const vexo::PathDir &cache, int &code, int &weight)
{
	int64_t c = 0;
	Got got = cachedNumber(cache, "wdda_code", c);
	if (got == Got::Bad || c < INT32_MIN || c > INT32_MAX) {
		vlog(LOG_ERR, "%s:%d Bad value of %s in the disk cache", VEXO_AT, "wdda_code");
		VEXO_ERR(VEXO_ERR_READ);
		return -1;
	}
	if (cachedWeight(cache, "wdda_weight", weight) != 0)
		return -1;
	code = got == Got::Value ? static_cast<int>(c) : 0;
	return 0;
}

// Whether the user muted this code: a standing WDDA mute for it.
bool wddaMuted(const char *path, int code)
{
	SmartInfoAction *raw = nullptr;
	if (SmartInfoActionLogGet(path, &raw, SMART_WARNING_WDDA) != 0) {
		vlog(LOG_WARNING, "%s:%d Can't read the action log of %s; no analytics mute applies", VEXO_AT, path);
		return false;
	}
	std::unique_ptr<SmartInfoAction, void (*)(SmartInfoAction *)> list(raw, SmartInfoActionLogFree);
	for (const SmartInfoAction *a = raw; a; a = a->next)
		if (a->type == SMART_WARNING_WDDA && (a->action == 1 || a->action == 2) && a->wddaCode == code)
			return true;
	return false;
}

int wddaStatus(const char *path, int &code, int &weight, bool &muted)
{
	vexo::PathDir own(vexo::UniqueFd{});
	const vexo::PathDir *cache = cacheDir(path, nullptr, own);
	if (!cache || wddaFinding(*cache, code, weight) != 0)
		return -1;
	muted = weight > 0 && wddaMuted(path, code);
	if (muted)
		weight = 0;
	return 0;
}

// ---- failure prediction ----

struct PredictRow {
	const char *word;
	int weight;
};
constexpr PredictRow kPredictions[] = {
	{"normal", 0},
	{"warning", SMART_WEIGHT_WARNING},
	{"critical", SMART_WEIGHT_CRITICAL},
	{"failing", SMART_WEIGHT_FAILING},
};

} // namespace

int errorWeightCached(ErrorSource source, const char *path, const vexo::PathDir *cache, int &weight)
{
	vexo::PathDir own(vexo::UniqueFd{});
	const vexo::PathDir *dir = cacheDir(path, cache, own);
	return dir ? cachedWeight(*dir, rowOf(source).weightKey, weight) : -1;
}

int wddaCached(const char *path, const vexo::PathDir *cache, int *code, int &weight)
{
	vexo::PathDir own(vexo::UniqueFd{});
	const vexo::PathDir *dir = cacheDir(path, cache, own);
	if (!dir)
		return -1;
	int c = 0, unused = 0;
	if (code && wddaFinding(*dir, c, unused) != 0)
		return -1;
	if (cachedWeight(*dir, "wdda_damage_weight", weight) != 0)
		return -1;
	if (code)
		*code = c;
	return 0;
}

int bundleWeightCached(const char *path, const vexo::PathDir *cache, int &weight)
{
	vexo::PathDir own(vexo::UniqueFd{});
	const vexo::PathDir *dir = cacheDir(path, cache, own);
	return dir ? cachedWeight(*dir, "ssd_bundle_warning_weight", weight) : -1;
}

} // namespace vexo::health

using vexo::health::ErrorSource;

namespace {

int errorGet(ErrorSource source, const char *path, int *weight)
{
	if (!weight) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	int w = 0;
	if (vexo::health::errorWeightCached(source, path, nullptr, w) != 0)
		return -1;
	*weight = w;
	return 0;
}

} // namespace

extern "C" {

VEXO_API int VEXODiskReadonlyGet(const char *path, int *readOnly)
try {
	std::string name;
	vexo::PathDir block(vexo::UniqueFd{});
	if (!readOnly) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	if (!vexo::health::blockDir(path, name, block))
		return -1;
	int32_t ro = 0;
	if (!block.readS32("ro", ro) || (ro != 0 && ro != 1)) {
		vlog(LOG_ERR, "%s:%d Failed to read the read-only flag of %s", VEXO_AT, path);
		VEXO_ERR(VEXO_ERR_READ);
		return -1;
	}
	*readOnly = ro;
	return 0;
}
VEXO_C_CATCH(-1)

VEXO_API int VEXODiskErrorTimeoutStatusCacheUpdate(const char *path)
try {
	return vexo::health::errorUpdate(ErrorSource::Timeout, path);
}
VEXO_C_CATCH(-1)

VEXO_API int VEXODiskErrorTimeoutStatusCacheGet(const char *path, int *weight)
try {
	return errorGet(ErrorSource::Timeout, path, weight);
}
VEXO_C_CATCH(-1)

VEXO_API int VEXODiskErrorResetFailStatusCacheUpdate(const char *path)
try {
	return vexo::health::errorUpdate(ErrorSource::ResetFail, path);
}
VEXO_C_CATCH(-1)

VEXO_API int VEXODiskErrorResetFailStatusCacheGet(const char *path, int *weight)
try {
	return errorGet(ErrorSource::ResetFail, path, weight);
}
VEXO_C_CATCH(-1)

VEXO_API int VEXODiskErrorUncStatusCacheUpdate(const char *path)
try {
	return vexo::health::errorUpdate(ErrorSource::Unc, path);
}
VEXO_C_CATCH(-1)

VEXO_API int VEXODiskErrorUncStatusCacheGet(const char *path, int *weight)
try {
	return errorGet(ErrorSource::Unc, path, weight);
}
VEXO_C_CATCH(-1)

VEXO_API int VEXODiskWddaStatusGet(const char *path, int *code, int *weight)
try {
	int c = 0, w = 0;
	bool muted = false;
	if (vexo::health::wddaStatus(path, c, w, muted) != 0)
		return -1;
	if (code)
		*code = c;
	if (weight)
		*weight = w;
	return 0;
}
VEXO_C_CATCH(-1)

VEXO_API int VEXODiskWddaStatusCacheUpdate(const char *path)
try {
	int c = 0, w = 0;
	bool muted = false;
	std::string name;
	if (!vexo::health::diskName(path, name) || vexo::health::wddaStatus(path, c, w, muted) != 0)
		return -1;
	const char *word = muted ? "muted" : vexo::health::levelWord(w);
	if (vexo::health::storeStr(name, "wdda_status", word) != 0 ||
	    vexo::health::storeInt(name, "wdda_damage_weight", w) != 0)
		return -1;
	return 0;
}
VEXO_C_CATCH(-1)

VEXO_API int VEXODiskWddaStatusCacheGet(const char *path, int *code, int *weight)
try {
	int c = 0, w = 0;
	if (vexo::health::wddaCached(path, nullptr, &c, w) != 0)
		return -1;
	if (code)
		*code = c;
	if (weight)
		*weight = w;
	return 0;
}
VEXO_C_CATCH(-1)

VEXO_API int VEXODiskHealthPredictionStatusGet(const char *path, char *status, int size)
try {
	if (status && size < 1) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::string name;
	vexo::PathDir own(vexo::UniqueFd{});
	if (!vexo::health::diskName(path, name) || !vexo::health::cacheDir(path, nullptr, own))
		return -1;
	std::string word;
	vexo::ReadFail why = vexo::ReadFail::None;
	if (!own.readString("predict_status", word, &why) &&
	    !((why == vexo::ReadFail::Open && errno == ENOENT) || (why == vexo::ReadFail::Read && errno == ENODATA))) {
		vlog(LOG_ERR, "%s:%d Failed to read predict_status of %s", VEXO_AT, path);
		VEXO_ERR(VEXO_ERR_READ);
		return -1;
	}
	const char *known = "unknown";
	int weight = 0;
	for (const auto &p : vexo::health::kPredictions)
		if (word == p.word)
			known = p.word, weight = p.weight;
	if (vexo::health::storeInt(name, "predict_weight", weight) != 0)
		return -1;
	if (status && !VEXO_COPY_OUT(status, size, known, "prediction status"))
		return -1;
	return 0;
}
VEXO_C_CATCH(-1)

VEXO_API int VEXOSSDBundleWarningWeightGet(const char *path, int *weight)
try {
	if (!weight) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	int w = 0;
	if (vexo::health::bundleWeightCached(path, nullptr, w) != 0)
		return -1;
	*weight = w;
	return 0;
}
VEXO_C_CATCH(-1)

} // extern "C"
