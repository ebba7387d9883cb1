// SmartInfoStatusGet: the verdict on a disk's SMART attributes (or NVMe
// warnings), with the user's mutes from the action log, then the life and
// media overlay.
#include <cstdlib>
#include <cstring>
#include <string>
#include <vexohw/disk.h>
#include <vexohw/disk_debug.h>
#include <vexohw/disk_probe.h>
#include <vexohw/frame.h>
#include <vexohw/smart_info.h>
#include <vexohw/smart_status.h>
#include <vexohw/smartctl.h>

#include "frame/boundary.h"
#include "frame/err.h"
#include "frame/list.h"
#include "frame/text.h"
#include "smartctl/health_sources.h"
#include <memory>

namespace vexo::health {
namespace {

constexpr int kTempAttr1 = 190, kTempAttr2 = 194;

struct NvmeWarnWeight {
	unsigned bit;
	int weight;
};
constexpr NvmeWarnWeight kNvmeWeights[] = {{0x01, 31}, {0x02, 1}, {0x04, 31}, {0x08, 601}, {0x10, 31}};

struct FailList {
	ListBuilder<SmartInfoFail, SmartInfoFailListFree> list;
	bool add(const SmartInfoEntry &e, int id, int value, int worst, int threshold, unsigned failType)
	{
		SmartInfoFail *f = list.appendNew();
		if (!f)
			return false;
		f->id = id, f->value = value, f->worst = worst, f->threshold = threshold, f->failType = failType;
		copyTextCut(f->name, e.name ? e.name : "");
		return true;
	}
};

int num(const char *s) { return s ? std::atoi(s) : 0; }

struct AttrVerdict {
	bool failingNow = false, disableSeen = false, suppressHolds = false, pastFailure = false;
	int muteEntries = 0;
};

int ataStatus(const char *path, SmartWarningReason &reason, int &weight, int *suppressed, int *disabled)
{
	SmartInfoEntry *raw = nullptr;
	if (VEXODiskAtaSmartInfoParse(path, &raw) != 0) {
		VEXO_ERR(VEXO_ERR_NOT_FOUND);
		return SMART_INFO_UNKNOWN;
	}
	std::unique_ptr<SmartInfoEntry, void (*)(SmartInfoEntry *)> attrs(raw, VEXODiskSmartInfoFree);
	if (!raw)
		return SMART_INFO_NORMAL;
	FailList fails;
	AttrVerdict v;
	SmartInfoAction *actionsRaw = nullptr;
	bool actionsRead = false;
	std::unique_ptr<SmartInfoAction, void (*)(SmartInfoAction *)> actions(nullptr, SmartInfoActionLogFree);
	for (SmartInfoEntry *e = raw; e; e = e->next) {
		int id = num(e->id), value = num(e->value), worst = num(e->worst), thr = num(e->threshold);
		if (thr == 0 || (value > thr && worst > thr))
			continue;
		if (value <= thr) {
			if (id == kTempAttr1 || id == kTempAttr2)
				continue;
			weight += SMART_WEIGHT_CRITICAL;
			v.failingNow = true;
			if (!fails.add(*e, id, value, worst, thr, SMART_FAIL_CRITICAL)) {
				VEXO_ERR(VEXO_ERR_NOMEM);
				return SMART_INFO_UNKNOWN;
			}
			continue;
		}
		if (!actionsRead) {
			if (SmartInfoActionLogGet(path, &actionsRaw, SMART_WARNING_SMART) != 0) {
				VEXO_ERR(VEXO_ERR_NOT_FOUND);
				return SMART_INFO_UNKNOWN;
			}
			actions.reset(actionsRaw);
			actionsRead = true;
		}
		bool muted = false, worse = false, repeating = false;
		int matches = 0;
		for (SmartInfoAction *a = actions.get(); a; a = a->next) {
			if (num(a->id) != id)
				continue;
			bool first = matches++ == 0;
			if (a->action == 2 && !muted) {
				muted = true;
				v.disableSeen = true;
				if (disabled)
					++*disabled;
			} else if (a->action == 1) {
				++v.muteEntries;
				if (value < num(a->current) || worst < num(a->worst))
					worse = true;
				if (first && worse)
					repeating = true;
				if (first && !worse) {
					v.suppressHolds = true;
					if (suppressed)
						++*suppressed;
					muted = true;
				}
			}
		}
		if (muted || id == kTempAttr1 || id == kTempAttr2)
			continue;
		weight += SMART_WEIGHT_WARNING;
		v.pastFailure = true;
		if (!fails.add(*e, id, value, worst, thr, repeating ? SMART_FAIL_REPEAT : SMART_FAIL_PAST)) {
			VEXO_ERR(VEXO_ERR_NOMEM);
			return SMART_INFO_UNKNOWN;
		}
	}
	SmartInfoFailListFree(reason.failList);
	reason.failList = fails.list.release();
	if (v.failingNow)
		return SMART_INFO_FAIL;
	if (v.disableSeen)
		return SMART_INFO_NORMAL_DISABLE;
	if (v.suppressHolds && v.muteEntries == 1)
		return SMART_INFO_NORMAL_SUPPRESS;
	if (v.suppressHolds)
		return SMART_INFO_NORMAL_REPEAT_SUPPRESS;
	return v.pastFailure ? SMART_INFO_NORMAL_PAST : SMART_INFO_NORMAL;
}

int nvmeStatus(const char *path, SmartWarningReason &reason, int &weight)
{
	unsigned bitmap = 0, percent = 0;
	if (!nvmeCriticalWarning(path, bitmap)) {
		vlog(LOG_ERR, "%s:%d Fail to get critial warning: %s", VEXO_AT, path);
		return SMART_INFO_UNKNOWN;
	}
	VEXONVMeDebugCritWarningGet(path, &bitmap);
	if (!nvmePercentageUsed(path, percent)) {
		vlog(LOG_ERR, "%s:%d Fail to get percentage used status: %s", VEXO_AT, path);
		return SMART_INFO_UNKNOWN;
	}
	VEXONVMeDebugPercentageUsedGet(path, &percent);
	for (const NvmeWarnWeight &w : kNvmeWeights)
		if (bitmap & w.bit)
			weight += w.weight;
	reason.criticalWarning = bitmap;
	unsigned w = bitmap & 0x1F;
	int status;
	if (percent < 100) {
		status = w == 0 ? SMART_INFO_NORMAL : SMART_INFO_FAIL;
	} else {
		int suppress = 0, disable = 0;
		SmartInfoAction *list = nullptr;
		if (SmartInfoActionLogGet(path, &list, SMART_WARNING_NVME_PERC_USED_FULL) != 0) {
			vlog(LOG_ERR, "%s:%d Fail to get percentage used status: %s", VEXO_AT, path);
			return SMART_INFO_UNKNOWN;
		}
		for (SmartInfoAction *a = list; a; a = a->next)
			suppress += a->action == 1, disable += a->action == 2;
		SmartInfoActionLogFree(list);
		if (suppress)
			status = w == 0 ? SMART_INFO_NORMAL_SUPPRESS : SMART_INFO_FAIL;
		else if (disable)
			status = w == 0 ? SMART_INFO_NORMAL_DISABLE : SMART_INFO_FAIL;
		else {
			weight += SMART_WEIGHT_WARNING;
			status = SMART_INFO_FAIL;
		}
	}
	return status;
}

// The life and media overlay, then the cache values it publishes.
int overlay(const char *path, SmartWarningReason &reason, int &weight, int status, bool update)
{
	LifeAnswers a = lifeAnswers(path);
	if (!a.haveAttr) {
		vlog(LOG_DEBUG, "%s:%d Failed to get disk health attribute", VEXO_AT);
		return status;
	}
	if (a.badBlockOver) {
		if (weight == 0)
			status = SMART_INFO_SSD_BAD_BLOCK_OVER_THR;
		weight += SMART_WEIGHT_WARNING;
	}
	if (a.belowThreshold && !a.danger) {
		if (weight == 0)
			status = SMART_INFO_LIFE_BELOW_THR;
		if (a.readOnly) {
			weight += SMART_WEIGHT_CRITICAL;
			status = SMART_INFO_READ_ONLY;
		}
	} else if (a.readOnly) {
		weight += SMART_WEIGHT_CRITICAL;
		if (a.danger) {
			weight += SMART_WEIGHT_CRITICAL;
			status = SMART_INFO_LIFE_DANGER;
		} else {
			status = SMART_INFO_READ_ONLY;
		}
	} else if (a.danger) {
		weight += SMART_WEIGHT_CRITICAL;
		status = SMART_INFO_LIFE_DANGER;
	} else if (!a.badBlockOver && smartAttributeIgnorable(path)) {
		weight = 0;
		SmartInfoFailListFree(reason.failList);
		reason.failList = nullptr;
		reason.criticalWarning = 0;
		status = SMART_INFO_NORMAL;
	}
	if (!update)
		return status;
	const char *name = VEXODiskDevPrefixSkip(path);
	struct {
		const char *key;
		int value;
	} rows[] = {{"bad_sec_ct", a.badSectors},	   {"ssd_bad_block_over_thr", a.badBlockOver},
		    {"is_vexo_drive", a.vexology},	   {"remain_life", a.remainLife},
		    {"remain_life_danger", a.danger},	   {"below_remain_life_thr", a.belowThreshold},
		    {"below_remain_life_show_thr", a.belowShow}, {"below_remain_life_mail_notify_thr", a.belowMail},
		    {"read_only", a.readOnly}};
	for (const auto &r : rows)
		if (VEXODiskUpdateIntValueCacheFile(name, r.key, r.value) != 0) {
			vlog(LOG_ERR, "%s:%d Failed to update %s", VEXO_AT, r.key);
			break;
		}
	return status;
}

} // namespace
} // namespace vexo::health

using namespace vexo::health;

extern "C" {

VEXO_API int SmartInfoStatusGet(const char *path, SmartWarningReason *reason, int *weight, int *suppressed,
				int *disabled, int update)
try {
	if (!path || !reason) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return SMART_INFO_UNKNOWN;
	}
	int w = 0, status;
	if (VEXODiskScsiProtocolGet(path) == VEXO_DISK_PROTOCOL_NVME)
		status = nvmeStatus(path, *reason, w);
	else if (VEXOSmartctlCommandInterfaceGet(path) == sas_command_interface)
		status = SMART_INFO_NORMAL;
	else
		status = ataStatus(path, *reason, w, suppressed, disabled);
	if (status == SMART_INFO_UNKNOWN)
		return status;
	status = overlay(path, *reason, w, status, update != 0);
	if (weight)
		*weight = w;
	return status;
}
VEXO_C_CATCH(SMART_INFO_UNKNOWN)

} // extern "C"
