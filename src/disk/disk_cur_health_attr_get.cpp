// VEXODiskCurHealthAttrGet and VEXODiskHealthHistoryGet: a disk's current
// bad sectors, ID-not-found count, retries and remaining life, from the
// drive and the disk overview's counters, and their twelve-month history.
#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vexohw/disk_debug.h>
#include <vexohw/disk_overview.h>
#include <vexohw/disk_probe.h>
#include <vexohw/disk_status.h>
#include <vexohw/remain_life.h>
#include <vexohw/smart_info.h>
#include <vexohw/smartctl.h>
#include <vexohw/frame.h>
#include <vexohw/smart_serial.h>
#include <vexoplatform/nvme_smart.h>
#include <vexoplatform/vexocore.h>

#include "frame/boundary.h"
#include "frame/err.h"
#include "frame/log.h"
#include "frame/text.h"

namespace {

constexpr int kMonths = 12;

// Attributes whose normalized value is the remaining life.
constexpr const char *kLifeNames[] = {"Wear_Leveling_Count",     "Percent_Lifetime_Remain", "Remaining_Lifetime_Perc",
				      "SSD_Life_Left",           "Media_Wearout_Indicator", "Percent_Lifetime_Used"};
// Attributes whose raw value counts bad sectors.
constexpr const char *kUncNames[] = {"Reallocated_Sector_Ct", "Current_Pending_Sector", "Offline_Uncorrectable"};

int32_t saturatingAdd(int32_t a, long long b)
{
	long long s = static_cast<long long>(a) + (b > 0 ? b : 0);
	return s > INT_MAX ? INT_MAX : static_cast<int32_t>(s);
}

long long rawValue(const char *raw)
{
	return raw ? std::strtoll(raw, nullptr, 10) : 0;
}

// A disk counts bad sectors when its attribute list carries any of their
// counters; SAS and NVMe disks have no such list.
bool badSectorCounters(const SmartInfoEntry *list)
{
	for (const SmartInfoEntry *e = list; e; e = e->next)
		for (const char *n : kUncNames)
			if (e->name && std::strcmp(e->name, n) == 0)
				return true;
	return false;
}

} // namespace

extern "C" {

VEXO_API int VEXODiskCurHealthSmartAttrGet(const char *path, DiskHealthAttr *attr)
try {
	if (!path || !attr) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	DiskHealthAttr a{};
	a.remainLife = -1;
	SmartInfoEntry *raw = nullptr;
	bool nvme = VEXODiskScsiProtocolGet(path) == VEXO_DISK_PROTOCOL_NVME;
	if (!nvme && VEXODiskAtaSmartInfoParse(path, &raw) != 0 && VLIBCErrGet() != VEXO_ERR_WRONG_IFACE) {
		vlog(LOG_ERR, "%s:%d VEXODiskAtaSmartInfoParse failed on %s", VEXO_AT, path);
		return -1;
	}
	std::unique_ptr<SmartInfoEntry, void (*)(SmartInfoEntry *)> list(raw, VEXODiskSmartInfoFree);
	if (nvme) {
		// The drive's own rule picks the life value. The serial the disk is
		// known by keeps a disk swapped behind this name from answering for
		// it; without one the drive is still asked, unchecked.
		int vexology = VEXODiskIsVexology(path), life = -1, from = 0;
		char serial[64] = "";
		if (vexology < 0)
			vlog(LOG_ERR, "%s:%d Failed to identify the vendor of device %s", VEXO_AT, path);
		else if (VEXODiskGetStrValueCacheFile(path, "serial", serial, sizeof(serial)) != 0)
			vlog(LOG_ERR, "%s:%d Failed to get serial of [%s]", VEXO_AT, path);
		serial[std::strcspn(serial, "\r\n")] = '\0';
		if (vexology >= 0 && VEXONVMeRemainingLifeGet(path, vexology, serial, &life, &from) != 0)
			vlog(LOG_ERR, "%s:%d Can't get remaning life of device %s", VEXO_AT, path);
		else if (vexology >= 0) {
			a.remainLife = life;
			vexo::copyText(a.lifeAttribute, sizeof(a.lifeAttribute),
				       from == VEXO_NVME_LIFE_FROM_AVAILABLE_SPARE ? "Available Spare" : "Percentage Used");
		}
	}
	for (const SmartInfoEntry *e = raw; e; e = e->next) {
		if (!e->name)
			continue;
		for (const char *n : kUncNames)
			if (std::strcmp(e->name, n) == 0)
				a.unc = saturatingAdd(a.unc, rawValue(e->raw));
		if (std::strstr(e->name, "CRC"))
			a.retry = saturatingAdd(a.retry, rawValue(e->raw));
		for (const char *n : kLifeNames)
			if (std::strcmp(e->name, n) == 0 && e->value) {
				a.remainLife = static_cast<int32_t>(std::strtol(e->value, nullptr, 10));
				vexo::copyText(a.lifeAttribute, sizeof(a.lifeAttribute), e->name);
			}
	}
	int sasLife = -1;
	if (!nvme && VEXODiskScsiProtocolGet(path) == VEXO_DISK_PROTOCOL_SCSI &&
	    VEXODiskSASRemainingLifeGet(path, &sasLife) == 0 && sasLife >= 0) {
		a.remainLife = sasLife;
		vexo::copyText(a.lifeAttribute, sizeof(a.lifeAttribute), "Percentage used endurance indicator");
	}
	unsigned v = 0;
	if (VEXODiskDebugUncGet(path, &v) == 1)
		a.unc = v > INT_MAX ? INT_MAX : static_cast<int32_t>(v);
	if (VEXODiskDebugLifeGet(path, &v) == 1)
		a.remainLife = v > INT_MAX ? INT_MAX : static_cast<int32_t>(v);
	// The answer of VEXODiskIsSupportBadSector, from the list already read.
	if (nvme || !badSectorCounters(raw))
		a.unc = -1;
	*attr = a;
	return 0;
}
VEXO_C_CATCH(-1)

VEXO_API int VEXODiskIsSupportBadSector(const char *path)
try {
	if (!path) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	if (VEXODiskScsiProtocolGet(path) == VEXO_DISK_PROTOCOL_NVME)
		return 0;
	SmartInfoEntry *raw = nullptr;
	if (VEXODiskAtaSmartInfoParse(path, &raw) != 0)
		return 0;
	std::unique_ptr<SmartInfoEntry, void (*)(SmartInfoEntry *)> list(raw, VEXODiskSmartInfoFree);
	return badSectorCounters(raw) ? 1 : 0;
}
VEXO_C_CATCH(-1)

VEXO_API int VEXODiskCurHealthAttrGet(const char *path, DiskHealthAttr *attr)
try {
	if (VEXODiskCurHealthSmartAttrGet(path, attr) != 0)
		return -1;
	DiskAttrCounters c{};
	if (VEXODiskXmlAttrCtGet(path, &c) != 0) {
		vlog(LOG_ERR, "%s:%d VEXODiskXmlErrCtGet failed on %s", VEXO_AT, path);
		return 0;
	}
	attr->retry = saturatingAdd(saturatingAdd(attr->retry, c.retry), c.icrc);
	attr->idnf = saturatingAdd(attr->idnf, c.idnf);
	return 0;
}
VEXO_C_CATCH(-1)

VEXO_API int VEXODiskHealthHistoryGet(const char *path, DiskHealthHistoryEntry *entries, int size, int type)
try {
	if (size != kMonths) {
		vlog(LOG_ERR, "%s:%d Error: ArraySize should be 12.", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	if (!path || !entries) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	if (type != VEXO_DISK_HEALTH_DIFF && type != VEXO_DISK_HEALTH_CUMULATIVE) {
		vlog(LOG_ERR, "%s:%d DISK_HEALTH_TYPE not recognized.", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	DiskHealthHistoryEntry stored[kMonths];
	if (VEXODiskXmlParseHistory(path, stored, kMonths) != 0) {
		vlog(LOG_ERR, "%s:%d VEXODiskXmlHealthHistoryGet failed", VEXO_AT);
		return -1;
	}
	DiskHealthAttr now{};
	if (VEXODiskCurHealthAttrGet(path, &now) != 0) {
		vlog(LOG_ERR, "%s:%d VEXODiskCurHealthAttrGet failed", VEXO_AT);
		return -1;
	}
	const int32_t current[4] = {now.unc, now.idnf, now.retry, now.remainLife};
	DiskHealthHistoryEntry out[kMonths] = {};
	// Counter k of an entry: its valid flag and its value.
	using E = DiskHealthHistoryEntry;
	static constexpr int32_t E::*kValid[] = {&E::uncValid, &E::idnfValid, &E::retryValid, &E::remainLifeValid};
	static constexpr int32_t E::*kValue[] = {&E::unc, &E::idnf, &E::retry, &E::remainLife};
	auto valid = [](E &e, int k) -> int32_t & { return e.*kValid[k]; };
	auto value = [](E &e, int k) -> int32_t & { return e.*kValue[k]; };
	for (int k = 0; k < 4; ++k) {
		bool known = false;
		int32_t last = 0;
		for (int i = 0; i < kMonths; ++i) {
			if (valid(stored[i], k)) {
				known = true;
				last = value(stored[i], k);
			}
			if (!known)
				continue;
			valid(out[i], k) = 1;
			if (type == VEXO_DISK_HEALTH_CUMULATIVE) {
				value(out[i], k) = last;
				continue;
			}
			bool haveNext = i + 1 < kMonths ? valid(stored[i + 1], k) != 0 : current[k] >= 0;
			int32_t next = i + 1 < kMonths ? value(stored[i + 1], k) : current[k];
			value(out[i], k) = haveNext ? next - last : 0;
		}
	}
	std::memcpy(entries, out, sizeof(out));
	return 0;
}
VEXO_C_CATCH(-1)

} // extern "C"
