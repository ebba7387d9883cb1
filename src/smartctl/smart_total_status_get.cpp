// The verdict's upper levels: the total status (self-test plus attributes),
// the overview (every health source) and its cached form, which never
// touches the drive.
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <string>
#include <unistd.h>
#include <vexohw/disk.h>
#include <vexohw/disk_health.h>
#include <vexohw/disk_state.h>
#include <vexohw/frame.h>
#include <vexohw/smart_info.h>
#include <vexohw/smart_status.h>
#include <vexohw/smart_test.h>

#include "frame/boundary.h"
#include "frame/cache_keys.h"
#include "frame/device.h"
#include "frame/err.h"
#include "frame/path_read.h"
#include "frame/sysroot.h"
#include "frame/text.h"
#include "frame/unique.h"
#include "smartctl/health_sources.h"

using namespace vexo::health;

namespace {

int totalOf(int weight)
{
	if (weight >= SMART_WEIGHT_FAILING)
		return SMART_TOTAL_FAILING;
	if (weight >= SMART_WEIGHT_CRITICAL)
		return SMART_TOTAL_CRITICAL;
	if (weight >= SMART_WEIGHT_WARNING)
		return SMART_TOTAL_WARNING;
	return SMART_TOTAL_NORMAL;
}

struct ReasonFree {
	void operator()(SmartWarningReason *r) const { VEXOSmartWarningReasonFree(r); }
};

// The weights of the other sources, added to *weight with their flags.
bool addSources(const char *path, const vexo::PathDir *cache, SmartWarningReason &reason, int &weight,
		std::string *advStatus)
{
	int adv = advWeight(path, cache, advStatus);
	if (adv < 0) {
		vlog(LOG_ERR, "%s:%d Failed to get adv status", VEXO_AT);
		return false;
	}
	int wdda = wddaWeight(path, cache);
	if (wdda < 0) {
		vlog(LOG_ERR, "%s:%d Failed to get wdda status on %s, vexoerr=[0x%04X]", VEXO_AT, path, VLIBCErrGet());
		return false;
	}
	int bundle = ssdBundleWeight(path, cache);
	if (bundle < 0) {
		vlog(LOG_ERR, "%s:%d Failed to get ssd bundle warning weight", VEXO_AT);
		return false;
	}
	int timeout = errorTimeoutWeight(path, cache), reset = errorResetFailWeight(path, cache),
	    unc = errorUncWeight(path, cache);
	if (timeout < 0 || reset < 0 || unc < 0) {
		vlog(LOG_ERR, "%s:%d Failed to get disk error %s status %s.", VEXO_AT,
		     timeout < 0 ? "timeout" : reset < 0 ? "reset fail" : "unc", path);
		return false;
	}
	reason.advTest |= adv > 0;
	reason.wdda |= wdda > 0;
	reason.errorTimeout |= timeout > 0;
	reason.errorResetFail |= reset > 0;
	reason.errorUnc |= unc > 0;
	weight += adv + wdda + bundle + timeout + reset + unc;
	return true;
}

} // namespace

extern "C" {

VEXO_API int SmartTotalStatusGet(const char *path, int *testStatus, char *progress, int progressSize,
				 int *infoStatus, SmartWarningReason *reason, int *weight, int *suppressed,
				 int *disabled, int *unused1, int *unused2, int update)
try {
	if (!path || !progress || progressSize < 1) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return SMART_TOTAL_UNKNOWN;
	}
	std::unique_ptr<SmartWarningReason, ReasonFree> temp;
	if (!reason) {
		temp.reset(VEXOSmartWarningReasonAlloc());
		if (!temp)
			return SMART_TOTAL_UNKNOWN;
		reason = temp.get();
	}
	if (unused1)
		*unused1 = 0;
	if (unused2)
		*unused2 = 0;
	int testWeight = 0, smartWeight = 0;
	int ts = SmartTestStatusGet(path, progress, progressSize, &testWeight);
	if (testStatus)
		*testStatus = ts;
	int is = SmartInfoStatusGet(path, reason, &smartWeight, suppressed, disabled, update);
	if (infoStatus)
		*infoStatus = is;
	int total = testWeight + smartWeight;
	reason->smartTest = testWeight > 0;
	if (weight)
		*weight = total;
	return totalOf(total);
}
VEXO_C_CATCH(SMART_TOTAL_UNKNOWN)

VEXO_API int SmartTotalStatusStringGet(const char *path, char *status, int statusSize, char *test, int testSize,
				       int *weight, int update)
try {
	if (!path || !status || statusSize < 1 || !test || testSize < 1) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	char progress[32] = {};
	int ts = 0, is = 0, w = 0;
	int total = SmartTotalStatusGet(path, &ts, progress, sizeof(progress), &is, nullptr, &w, nullptr, nullptr,
					nullptr, nullptr, update);
	if (total == SMART_TOTAL_UNKNOWN)
		return -1;
	char totalWord[32], testWord[32];
	if (SmartTotalStatusStringTransfer(total, totalWord, sizeof(totalWord)) != 0 ||
	    SmartTestStatusStringTransfer(static_cast<unsigned>(ts), testWord, sizeof(testWord)) != 0)
		return -1;
	if (!VEXO_COPY_OUT(status, statusSize, totalWord, "total status") ||
	    !VEXO_COPY_OUT(test, testSize, testWord, "test status"))
		return -1;
	if (weight)
		*weight = w;
	return 0;
}
VEXO_C_CATCH(-1)

VEXO_API int SmartOverviewStatusGet(const char *path, int *totalStatus, SmartWarningReason *reason, char *advStatus,
				    int *weight)
try {
	if (!path) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return 0;
	}
	std::unique_ptr<SmartWarningReason, ReasonFree> temp;
	if (!reason) {
		temp.reset(VEXOSmartWarningReasonAlloc());
		if (!temp)
			return 0;
		reason = temp.get();
	}
	char progress[32] = {};
	int w = 0;
	int total = SmartTotalStatusGet(path, nullptr, progress, sizeof(progress), nullptr, reason, &w, nullptr, nullptr,
					nullptr, nullptr, 0);
	if (total == SMART_TOTAL_UNKNOWN)
		return 0;
	std::string adv;
	if (!addSources(path, nullptr, *reason, w, &adv))
		return 0;
	if (totalStatus)
		*totalStatus = total;
	if (advStatus)
		std::strcpy(advStatus, adv.substr(0, 31).c_str()); // callers give 32 bytes
	if (weight)
		*weight = w;
	return SmartOverviewStatusCompute(w);
}
VEXO_C_CATCH(0)

VEXO_API int SmartOverviewStatusCacheGet(const char *path, int *weight)
try {
	if (!path) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return 0;
	}
	const char *name = VEXODiskDevPrefixSkip(path);
	// One open of the disk's cache folder serves every value read here.
	vexo::PathDir cache(std::string(vexo::cache::kDisksDir) + "/" + name);
	vexo::UniqueFd fd = cache ? cache.openAt("smart_damage_weight") : vexo::UniqueFd();
	if (!fd)
		return 0;
	char text[32] = {};
	ssize_t n = ::read(fd.get(), text, sizeof(text) - 1);
	int w = 0;
	if (n <= 0 || std::sscanf(text, "%d", &w) != 1) {
		vlog(LOG_ERR, "%s:%d Read damage weight from %s/%s/smart_damage_weight failed", VEXO_AT,
		     vexo::cache::kDisksDir, name);
		w = 0;
	}
	SmartWarningReason reason{};
	if (!addSources(path, &cache, reason, w, nullptr))
		return 0;
	if (weight)
		*weight = w;
	return SmartOverviewStatusCompute(w);
}
VEXO_C_CATCH(0)

VEXO_API int SmartTestLimitExceed(const char *path)
{
	int w = 0;
	return SmartOverviewStatusCacheGet(path, &w) != 0 && w > SMART_WEIGHT_FAILING ? 1 : 0;
}

VEXO_API int SmartTotalStatusCacheUpdate(const char *path)
try {
	if (!path) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	const char *name = VEXODiskDevPrefixSkip(path);
	// The prediction and the analytics only inform; their failure doesn't
	// stop the refresh of what the verdict weighs.
	if (VEXODiskHealthPredictionStatusGet(path, nullptr, 0) != 0)
		vlog(LOG_ERR, "%s:%d Failed to update health predict cache on %s", VEXO_AT, path);
	if (VEXODiskWddaStatusCacheUpdate(path) != 0)
		vlog(LOG_ERR, "%s:%d Failed to update wdda status on %s, vexoerr=[0x%04X]", VEXO_AT, path, VLIBCErrGet());
	if (VEXODiskAtaSmartInfoUpdate(path) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to update smart info on device %s, 0x%X", VEXO_AT, path, VLIBCErrGet());
		return -1;
	}
	auto dev = vexo::dev::Device::adopt(VEXOIDiskRawOpen(path));
	if (!dev) {
		vlog(LOG_ERR, "%s:%d open %s failed.", VEXO_AT, path);
		return -1;
	}
	int kind = 0;
	int capable = IsSelfTestLogCapability(dev.handle(), path, &kind);
	if (VEXODiskUpdateIntValueCacheFile(name, "smart_selftest_log_type", capable) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to update cache file: %s %s", VEXO_AT, name, "smart_selftest_log_type");
		return -1;
	}
	char status[32] = {}, test[32] = {};
	int weight = 0;
	if (SmartTotalStatusStringGet(path, status, sizeof(status), test, sizeof(test), &weight, 1) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to get status string", VEXO_AT);
		return -1;
	}
	if (VEXODiskUpdateStrValueCacheFile(name, "smart", status) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to update cache file: %s %s", VEXO_AT, name, "smart");
		return -1;
	}
	if (VEXODiskUpdateIntValueCacheFile(name, "smart_damage_weight", weight) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to update cache file: %s %s", VEXO_AT, name, "smart_damage_weight");
		return -1;
	}
	// The unc counter is read from the attribute list refreshed above.
	static constexpr struct {
		int (*update)(const char *);
		const char *what;
	} kErrorUpdates[] = {
		{VEXODiskErrorTimeoutStatusCacheUpdate, "timeout"},
		{VEXODiskErrorResetFailStatusCacheUpdate, "reset fail"},
		{VEXODiskErrorUncStatusCacheUpdate, "unc"},
	};
	for (const auto &u : kErrorUpdates)
		if (u.update(path) != 0) {
			vlog(LOG_ERR, "%s:%d Failed to update disk error %s on device %s.", VEXO_AT, u.what, path);
			return -1;
		}
	return 0;
}
VEXO_C_CATCH(-1)

} // extern "C"
