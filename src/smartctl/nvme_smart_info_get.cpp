// The attribute list of an NVMe disk: the health values judged as the rest
// of the library judges attributes, then the vendor attributes of the
// maker's own drives; and the cached critical warning.
#include <cstdio>
#include <cstring>
#include <memory>
#include <vexohw/attr_db.h>
#include <vexohw/disk_debug.h>
#include <vexohw/disk_probe.h>
#include <vexohw/frame.h>
#include <vexohw/smart_nvme.h>
#include <vexohw/smart_serial.h>
#include <vexohw/smartctl.h>
#include <vexoplatform/nvme_admin.h>
#include <vexoplatform/nvme_smart.h>

#include "frame/err.h"
#include "smartctl/attr_db.h"
#include "smartctl/nvme_smart.h"
#include "smartctl/smart_info_list.h"

namespace {

constexpr const char *kCritCacheKey = "critical_warning";

struct NvmeListFree {
	void operator()(VEXONVMeSmartInfo *l) const { VEXONVMeSmartInfoFree(l); }
};

void setStatusFailing(SmartInfoEntry *e) { e->status = SMART_ATTR_STATUS_FAILING_NOW; }

// Replaces an entry's value (and raw, which mirrors it) with text.
bool overrideValue(SmartInfoEntry *e, const char *text)
{
	return vexo::smart::setField(e->value, text) && vexo::smart::setField(e->raw, text);
}

} // namespace

namespace vexo::smart {

bool nvmeJudge(const char *path, SmartInfoEntry *list)
{
	SmartInfoEntry *crit = nullptr, *used = nullptr, *spare = nullptr, *spareThr = nullptr;
	struct Named {
		const char *name;
		SmartInfoEntry **slot;
	};
	const Named named[] = {{"Critical Warning", &crit},
			       {"Percentage Used", &used},
			       {"Available Spare", &spare},
			       {"Available Spare Threshold", &spareThr}};
	for (SmartInfoEntry *e = list; e; e = e->next)
		for (const Named &k : named)
			if (e->name && !*k.slot && std::strcmp(e->name, k.name) == 0)
				*k.slot = e;
	unsigned v = 0;
	char text[32];
	if (crit && VEXONVMeDebugCritWarningGet(path, &v) == 1) {
		std::snprintf(text, sizeof(text), "%#x", v);
		if (!overrideValue(crit, text))
			return false;
	}
	if (used && VEXONVMeDebugPercentageUsedGet(path, &v) == 1) {
		std::snprintf(text, sizeof(text), "%u%%", v);
		if (!overrideValue(used, text))
			return false;
	}
	if (spare && VEXODiskDebugLifeGet(path, &v) == 1) {
		std::snprintf(text, sizeof(text), "%u%%", v);
		if (!overrideValue(spare, text))
			return false;
	}
	if (spare && spareThr) {
		int have = 0, thr = 0;
		if (std::sscanf(spare->value, "%d%%", &have) != 1) {
			vlog(LOG_ERR, "%s:%d Get availible spare failed", VEXO_AT);
			return false;
		}
		if (std::sscanf(spareThr->value, "%d%%", &thr) != 1) {
			vlog(LOG_ERR, "%s:%d Get availible spare threshold failed", VEXO_AT);
			return false;
		}
		if (have <= thr)
			setStatusFailing(spare);
	}
	if (crit) {
		unsigned bits = 0;
		if (std::sscanf(crit->value, "%x", &bits) != 1) {
			vlog(LOG_ERR, "%s:%d Get critial warning failed", VEXO_AT);
			return false;
		}
		if (bits > 0)
			setStatusFailing(crit);
	}
	if (used) {
		unsigned percent = 0;
		if (std::sscanf(used->value, "%u%%", &percent) != 1) {
			vlog(LOG_ERR, "%s:%d Get percentage used failed", VEXO_AT);
			return false;
		}
		if (percent > 99)
			setStatusFailing(used);
	}
	return true;
}

int nvmeSmartInfoList(const char *path, SmartInfoEntry **out)
{
	if (*out) {
		vlog(LOG_ERR, "%s:%d Bad parameters", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	VEXONVMeSmartInfo *raw = nullptr;
	if (VEXONVMeSmartInfoGet(path, &raw) != 0) {
		std::printf("Can't get smart infomartion of  %s\n", path);
		std::fflush(stdout);
		VEXO_ERR_PASS();
		return -1;
	}
	std::unique_ptr<VEXONVMeSmartInfo, NvmeListFree> health(raw);
	ListBuilder list;
	for (const VEXONVMeSmartInfo *n = raw; n; n = n->next) {
		char id[16];
		std::snprintf(id, sizeof(id), "%d", n->id);
		SmartInfoEntry *e = newEntry(id, n->name ? n->name : "", n->value ? n->value : "", "", "",
					     n->value ? n->value : "");
		if (!e) {
			vlog(LOG_ERR, "%s:%d Allocate memory failed", VEXO_AT);
			VEXO_ERR(VEXO_ERR_LIST_ALLOC);
			return -1;
		}
		list.append(e);
	}
	if (!nvmeJudge(path, list.head())) {
		VEXO_ERR(VEXO_ERR_NOT_FOUND);
		return -1;
	}
	health.reset();
	SmartInfoEntry *vendor = nullptr;
	if (GetNVMeVendorSpecificSmartInfo(path, &vendor) != 0) {
		// The health values stand on their own; a database that can't
		// describe this drive only costs the vendor entries.
		vlog(LOG_ERR, "%s:%d Failed to get vendor specific smart info of %s, 0x%X", VEXO_AT, path,
		     VLIBCErrGet());
	}
	while (vendor) {
		SmartInfoEntry *next = vendor->next;
		list.append(vendor);
		vendor = next;
	}
	*out = list.release();
	return 0;
}

} // namespace vexo::smart

extern "C" {

VEXO_API int GetNVMeVendorSpecificSmartInfo(const char *path, SmartInfoEntry **list)
try {
	if (!path || !list || *list) {
		vlog(LOG_ERR, "%s:%d Bad parameters", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	if (VEXODiskIsVexology(path) == 0)
		return 0;
	json_object *raw = nullptr;
	if (VEXOAttrDBGetByDisk(path, &raw) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to load attribute DB of disk %s", VEXO_AT, path);
		if (VLIBCErrGet() == 0)
			VEXO_ERR(VEXO_ERR_NOT_FOUND);
		return -1;
	}
	vexo::jsonc::Value disk(raw);
	auto read = [path](unsigned page, uint8_t *buf, unsigned length) {
		return VEXONVMeLogGet(path, page, buf, length) == 0;
	};
	return vexo::attrdb::vendorEntries(disk.get(), path, read, list);
}
VEXO_C_CATCH(-1)

VEXO_API int SmartNVMeCritialWarnCacheGet(const char *path, int *warning)
try {
	if (!path || !warning) {
		vlog(LOG_ERR, "%s:%d Bad parameters", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	int v = 0;
	if (VEXODiskGetIntValueCacheFile(path, kCritCacheKey, &v) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to get critial warning from %s", VEXO_AT, path);
		VEXO_ERR_PASS();
		return -1;
	}
	*warning = v;
	return 0;
}
VEXO_C_CATCH(-1)

VEXO_API int SmartNVMeCritialWarnCacheUpdateIfSupport(const char *name)
try {
	if (!name || !name[0] || std::strchr(name, '/')) {
		vlog(LOG_ERR, "%s:%d Bad parameters", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	char path[64];
	if (std::snprintf(path, sizeof(path), "/dev/%s", name) >= static_cast<int>(sizeof(path))) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	if (VEXODiskScsiProtocolGet(path) != VEXO_DISK_PROTOCOL_NVME)
		return 0;
	unsigned bits = 0;
	if (VEXONVMeCriticalWarningGet(path, &bits) != 0) {
		vlog(LOG_ERR, "%s:%d Fail to get NVMe critial warning of %s", VEXO_AT, path);
		VEXO_ERR_PASS();
		return -1;
	}
	VEXONVMeDebugCritWarningGet(path, &bits);
	if (VEXODiskUpdateIntValueCacheFile(name, kCritCacheKey, static_cast<int>(bits)) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to update %s", VEXO_AT, kCritCacheKey);
		VEXO_ERR_PASS();
		return -1;
	}
	return 0;
}
VEXO_C_CATCH(-1)

VEXO_API int VEXONVMeStatusDebugGet(const char *path, unsigned int *life, unsigned int *crit)
try {
	if (!path || !life || !crit) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	unsigned l = 0, c = 0;
	int rl = VEXODiskDebugLifeGet(path, &l);
	if (rl < 0)
		return -1;
	int rc = VEXONVMeDebugCritWarningGet(path, &c);
	if (rc < 0)
		return -1;
	int found = 0;
	if (rl == 1) {
		*life = l;
		found |= 1;
	}
	if (rc == 1) {
		*crit = c;
		found |= 2;
	}
	return found;
}
VEXO_C_CATCH(-1)

} // extern "C"
