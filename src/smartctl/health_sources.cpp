// Where each health source of the verdict comes in. The remaining life is
// asked of its family (<vexohw/remain_life.h>) and the SSD bad blocks of
// theirs (<vexohw/ssd_bundle.h>); the advanced test publishes its findings
// in the disk's value cache, a value that is not there being a source with
// nothing to say; the drive analytics, the SSD bundle and the error
// accounting answer through <vexohw/disk_health.h>.
#include <cstdint>
#include <string>
#include <vexohw/disk.h>
#include <vexohw/disk_adv.h>
#include <vexohw/disk_health.h>
#include <vexohw/disk_status.h>
#include <vexohw/remain_life.h>
#include <vexohw/frame.h>
#include <vexohw/smart_serial.h>
#include <vexohw/ssd_bundle.h>
#include <vexoplatform/nvme_smart.h>

#include "frame/err.h"
#include "smartctl/disk_health_status.h"
#include "smartctl/health_sources.h"

namespace vexo::health {
namespace {

using vexo::PathDir;


bool cachedFlag(const char *path, const char *key)
{
	int v = 0;
	return VEXODiskGetIntValueCacheFile(path, key, &v) == 0 && v == 1;
}

// The kernel's read-only flag of the block device: a drive that has gone
// read-only is refused writes there. Not knowing is not read-only.
bool readOnly(const char *path)
{
	int ro = 0;
	return VEXODiskReadonlyGet(path, &ro) == 0 && ro == 1;
}

// A source's weight: the cached reader when the caller has the cache
// folder open, else the exported function; -1 when the source failed.
template <typename Cached, typename Exported>
int weightOf(const PathDir *cache, Cached cached, Exported exported)
{
	int w = 0;
	return (cache ? cached(w) : exported(&w)) == 0 ? w : -1;
}

} // namespace

LifeAnswers lifeAnswers(const char *path)
{
	// The disk's bad sectors and remaining life as the drive reports them,
	// and the remaining-life family's answers about that life.
	LifeAnswers a;
	DiskHealthAttr h{};
	if (VEXODiskCurHealthSmartAttrGet(path, &h) != 0)
		return a;
	a.haveAttr = true;
	a.remainLife = h.remainLife;
	a.badSectors = h.unc > 0 ? h.unc : 0;
	a.belowThreshold = VEXODiskIsBelowLifeThrWithValue(path, h.remainLife, nullptr, nullptr) == 1;
	a.danger = VEXODiskIsLifeDangerWithValue(path, h.remainLife) == 1;
	a.belowShow = VEXODiskIsBelowLifeShowThrWithValue(h.remainLife) == 1;
	a.belowMail = VEXODiskIsBelowLifeMailNotifyThrWithValue(h.remainLife) == 1;
	a.vexology = VEXODiskIsVexology(path) == 1;
	a.readOnly = readOnly(path);
	a.badBlockOver = VEXODiskSSDBadBlockOverThreshold(path) == 1;
	return a;
}

bool smartAttributeIgnorable(const char *path) { return cachedFlag(path, "smart_attr_ignore"); }

bool nvmeCriticalWarning(const char *path, unsigned &bitmap) { return VEXONVMeCriticalWarningGet(path, &bitmap) == 0; }

bool nvmePercentageUsed(const char *path, unsigned &percent) { return VEXONVMePercentageUsedGet(path, &percent) == 0; }

int advWeight(const char *path, const PathDir *, std::string *advStatus)
{
	// The advanced test family's own cache reader: a disk never tested
	// has no cache and weighs nothing.
	char status[64] = {}, progress[64] = {};
	int weight = 0;
	if (VEXODiskAdvStatusCacheGet(path, status, sizeof(status), progress, sizeof(progress), &weight) != 0)
		return 0;
	if (advStatus)
		*advStatus = status;
	return weight > 0 ? weight : 0;
}

int wddaWeight(const char *path, const PathDir *cache)
{
	return weightOf(
		cache, [&](int &w) { return wddaCached(path, cache, nullptr, w); },
		[&](int *w) { return VEXODiskWddaStatusGet(path, nullptr, w); });
}

int ssdBundleWeight(const char *path, const PathDir *cache)
{
	return weightOf(
		cache, [&](int &w) { return bundleWeightCached(path, cache, w); },
		[&](int *w) { return VEXOSSDBundleWarningWeightGet(path, w); });
}

int errorTimeoutWeight(const char *path, const PathDir *cache)
{
	return weightOf(
		cache, [&](int &w) { return errorWeightCached(ErrorSource::Timeout, path, cache, w); },
		[&](int *w) { return VEXODiskErrorTimeoutStatusCacheGet(path, w); });
}

int errorResetFailWeight(const char *path, const PathDir *cache)
{
	return weightOf(
		cache, [&](int &w) { return errorWeightCached(ErrorSource::ResetFail, path, cache, w); },
		[&](int *w) { return VEXODiskErrorResetFailStatusCacheGet(path, w); });
}

int errorUncWeight(const char *path, const PathDir *cache)
{
	return weightOf(
		cache, [&](int &w) { return errorWeightCached(ErrorSource::Unc, path, cache, w); },
		[&](int *w) { return VEXODiskErrorUncStatusCacheGet(path, w); });
}

} // namespace vexo::health
