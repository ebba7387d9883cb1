// VEXODiskAdvStatusGet: the status of a disk's advanced test: its newest
// result mapped through the appliance's configuration to a status and a
// damage weight (which the health rollup adds), unless the user muted it.
// Also the per-disk cache of that answer and the test's system log event.
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <unistd.h>
#include <cstring>
#include <ctime>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <vexohw/disk_adv.h>
#include <vexohw/disk_probe.h>
#include <vexohw/frame.h>
#include <vexohw/smart_serial.h>
#include <vexohw/smart_status.h>
#include <vexohw/smart_test.h>
#include <vexohw/smartctl.h>
#include <vexoplatform/logdb.h>
#include <vexoplatform/vexocore.h>

#include "frame/boundary.h"
#include "frame/clock.h"
#include "frame/err.h"
#include "frame/log.h"
#include "frame/priv.h"
#include "frame/sysroot.h"
#include "frame/text.h"

namespace {

constexpr const char *kConf = "/etc.defaults/disk_adv_status.conf";
constexpr const char *kStatusNames[] = {"unknown",  "normal",      "warning",  "critical",     "failing",
					"not_support", "not_test", "can_not_test", "can_not_test_warn"};

struct HashFree {
	void operator()(PVLIBSZHASH h) const { VLIBCSzHashFree(h); }
};

std::string devicePath(const char *name)
{
	return std::strncmp(name, "/dev/", 5) == 0 ? name : std::string("/dev/") + name;
}

std::string shortName(const char *path)
{
	return std::strncmp(path, "/dev/", 5) == 0 ? path + 5 : path;
}

// Whether a standing entry of the action log mutes the advanced test.
bool muted(const char *path)
{
	SmartInfoAction *list = nullptr;
	if (SmartInfoActionLogGet(path, &list, SMART_WARNING_ADV) != 0)
		return false;
	bool any = list != nullptr;
	SmartInfoActionLogFree(list);
	return any;
}

int statusOfWeight(long w)
{
	return w >= 601 ? ADV_STATUS_FAILING : w >= 31 ? ADV_STATUS_CRITICAL : w >= 1 ? ADV_STATUS_WARNING
	       : w == 0 ? ADV_STATUS_NORMAL : ADV_STATUS_UNKNOWN;
}

// Stores the cached answer of a disk in a privileged section.
int store(const std::string &name, int status, int weight)
{
	char text[32] = {};
	VEXODiskAdvStatusTransfer(status, text, sizeof(text));
	ENTERCriticalSection;
	return VEXODiskUpdateStrValueCacheFile(name.c_str(), "adv_status", text) == 0 &&
			       VEXODiskUpdateIntValueCacheFile(name.c_str(), "adv_damage_weight", weight) == 0
		       ? 0
		       : -1;
}

// Advanced tests are run by ATA disks; other disks have none to report.
int VEXODiskDHMSupportCheck(const char *path)
{
	return path && VEXODiskScsiProtocolGet(path) == VEXO_DISK_PROTOCOL_ATA ? 1 : 0;
}

} // namespace

extern "C" {

VEXO_API int VEXODiskAdvStatusTransfer(int status, char *out, int size)
try {
	if (status < 0 || status >= static_cast<int>(std::size(kStatusNames)) || !out ||
	    !vexo::copyText(out, size, kStatusNames[status])) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	return 0;
}
VEXO_C_CATCH(-1)

VEXO_API int VEXODiskAdvStatusMapping(const char *code, char *status, int statusSize, char *section, int sectionSize,
				      char *key, int keySize, char *weight, int weightSize, int *modifiable)
try {
	if (!code || !status || !section || !key || !weight || !modifiable || statusSize <= 0 || sectionSize <= 0 ||
	    keySize <= 0 || weightSize <= 0) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return 0;
	}
	std::unique_ptr<VLIBSZHASH, HashFree> hash(VLIBCSzHashAlloc(16));
	if (!hash) {
		VEXO_ERR(VEXO_ERR_LIST_ALLOC);
		return 0;
	}
	PVLIBSZHASH h = hash.release();
	int n = VLIBCFileGetSection(kConf, code, &h);
	hash.reset(h);
	int result;
	if (n < 0 && VLIBCErrGet() == VEXO_ERR_NOT_FOUND) {
		result = std::strcmp(code, "081") == 0 ? ADV_STATUS_CAN_NOT_TEST : ADV_STATUS_CAN_NOT_TEST_WARN;
	} else if (n < 0) {
		VEXO_ERR(VEXO_ERR_NOT_FOUND);
		return 0;
	} else {
		auto get = [&](const char *k) {
			const char *v = VLIBCSzHashGetValue(hash.get(), k);
			return std::string(v ? v : "");
		};
		std::string w = get("damageWeight");
		vexo::copyTextCut(section, sectionSize, get("section"));
		vexo::copyTextCut(key, keySize, get("key"));
		vexo::copyTextCut(weight, weightSize, w);
		*modifiable = static_cast<int>(std::strtol(get("modifiable").c_str(), nullptr, 10));
		result = statusOfWeight(std::strtol(w.c_str(), nullptr, 10));
	}
	std::snprintf(status, static_cast<size_t>(statusSize), "%u", static_cast<unsigned>(result));
	return result;
}
VEXO_C_CATCH(0)

VEXO_API int VEXODiskAdvStatusGet(const char *path, char *status, int statusSize, int *weight, int *modifiable,
				  int *mutedOut, char *code, int codeSize, char *section, int sectionSize, char *key,
				  int keySize)
try {
	if (!path || !status || !weight || !modifiable || !mutedOut || !code || !section || !key) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	*weight = 0;
	*modifiable = 0;
	*mutedOut = 0;
	int st = ADV_STATUS_NOT_SUPPORT;
	if (VEXODiskDHMSupportCheck(path)) {
		DiskTestLog *raw = nullptr;
		if (VEXODiskTestLogGet(path, "ihm", 1, 0, &raw) < 0) {
			DiskTestLogFree(raw);
			VEXO_ERR(VEXO_ERR_NOT_FOUND);
			return -1;
		}
		std::unique_ptr<DiskTestLog, void (*)(DiskTestLog *)> log(raw, DiskTestLogFree);
		st = ADV_STATUS_NOT_TEST;
		if (raw) {
			std::string c = raw->testCode[0] ? raw->testCode : std::string("ihm_") + raw->testType;
			vexo::copyTextCut(code, codeSize, c);
			char text[16] = {}, w[16] = {};
			st = VEXODiskAdvStatusMapping(c.c_str(), text, sizeof(text), section, sectionSize, key, keySize, w,
						      sizeof(w), modifiable);
			if (!st)
				vlog(LOG_ERR, "%s:%d Error: Failed to get test code mapping %s", VEXO_AT, c.c_str());
			*weight = static_cast<int>(std::strtol(w, nullptr, 10));
			if (muted(path)) {
				st = ADV_STATUS_NORMAL;
				*weight = 0;
				*modifiable = 0;
				*mutedOut = 1;
			}
		}
	}
	return VEXODiskAdvStatusTransfer(st, status, statusSize);
}
VEXO_C_CATCH(-1)

VEXO_API int VEXODiskAdvStatusInit(const char *name)
try {
	if (!name) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	char status[32], code[32], section[64], key[64];
	int weight = 0, modifiable = 0, mute = 0;
	std::string path = devicePath(name);
	if (VEXODiskAdvStatusGet(path.c_str(), status, sizeof(status), &weight, &modifiable, &mute, code, sizeof(code),
				 section, sizeof(section), key, sizeof(key)) != 0)
		return -1;
	int st = 0;
	for (int i = 0; i < static_cast<int>(std::size(kStatusNames)); ++i)
		if (std::strcmp(status, kStatusNames[i]) == 0)
			st = i;
	return store(shortName(path.c_str()), st, weight);
}
VEXO_C_CATCH(-1)

VEXO_API int VEXODiskAdvStatusCacheUpdate(const char *name, const char *code)
try {
	if (!name || !code) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::string path = devicePath(name);
	char text[16] = {}, section[64] = {}, key[64] = {}, w[16] = {};
	int modifiable = 0;
	int st = VEXODiskAdvStatusMapping(code, text, sizeof(text), section, sizeof(section), key, sizeof(key), w,
					  sizeof(w), &modifiable);
	int weight = static_cast<int>(std::strtol(w, nullptr, 10));
	if (!st) {
		vlog(LOG_ERR, "%s:%d Error: Failed to get test code mapping %s", VEXO_AT, code);
		weight = 0;
	}
	if (muted(path.c_str())) {
		st = ADV_STATUS_NORMAL;
		weight = 0;
	}
	return store(shortName(path.c_str()), st, weight);
}
VEXO_C_CATCH(-1)

VEXO_API int VEXODiskAdvStatusCacheGet(const char *path, char *status, int statusSize, char *progress,
				       int progressSize, int *weight)
try {
	if (!path || !status || !progress || !weight) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::string dir = "/run/vexostorage/disks/" + shortName(path) + "/";
	if (vexo::sysroot::access((dir + "adv_status").c_str(), R_OK) != 0 ||
	    vexo::sysroot::access((dir + "adv_damage_weight").c_str(), R_OK) != 0) {
		VEXO_ERR(VEXO_ERR_NOENT);
		return -1;
	}
	if (VEXODiskGetStrValueCacheFile(path, "adv_status", status, statusSize) != 0)
		vlog(LOG_ERR, "%s:%d Read status from %s failed", VEXO_AT, (dir + "adv_status").c_str());
	if (vexo::sysroot::access((dir + "adv_progress").c_str(), R_OK) == 0 &&
	    VEXODiskGetStrValueCacheFile(path, "adv_progress", progress, progressSize) != 0)
		vlog(LOG_ERR, "%s:%d Read progress from %s failed", VEXO_AT, (dir + "adv_progress").c_str());
	if (VEXODiskGetIntValueCacheFile(path, "adv_damage_weight", weight) != 0)
		vlog(LOG_ERR, "%s:%d Read damage weight from %s failed", VEXO_AT, (dir + "adv_damage_weight").c_str());
	return 0;
}
VEXO_C_CATCH(-1)

VEXO_API int VEXODiskAdvTestResultRecord(const char *path, const char *code, const char *detailFile)
try {
	if (!path || !code) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	static constexpr struct {
		const char *code;
		int event;
	} kEvents[] = {{"000", 5},  {"100", 6},  {"101", 7},  {"102", 8},  {"105", 9},  {"106", 10},
		       {"200", 11}, {"201", 12}, {"202", 13}, {"203", 14}, {"081", 15}};
	int event = std::strncmp(code, "interrupt", 9) == 0 ? 17 : 16;
	for (const auto &e : kEvents)
		if (std::strcmp(code, e.code) == 0)
			event = e.event;
	char model[128] = {}, fw[64] = {}, serial[128] = {};
	if (VEXOLnxDiskGetModel(path, model, sizeof(model)) != 0 ||
	    SmartFirmAndSerialRead(path, fw, sizeof(fw), serial, sizeof(serial)) != 0) {
		vlog(LOG_ERR, "%s:%d Error: Failed to get firmware and SN of %s", VEXO_AT, path);
		return -1;
	}
	char f[4][128] = {};
	if (detailFile) {
		std::unique_ptr<FILE, int (*)(FILE *)> in(vexo::sysroot::fopen(detailFile, "r"), std::fclose);
		std::string last;
		char line[512];
		while (in && std::fgets(line, sizeof(line), in.get()))
			if (!std::strstr(line, "POH"))
				last = line;
		if (!last.empty())
			std::sscanf(last.c_str(), "%127[^,],%127[^,],%127[^,],%127s", f[0], f[1], f[2], f[3]);
	}
	std::string when = std::to_string(static_cast<long long>(vexo::clock::wallSeconds()));
	std::string m = model;
	m.erase(m.find_last_not_of(' ') + 1);
	if (VLIBLogSetByVA("disk_test", event, m.c_str(), serial, path, when.c_str(), "ihm", f[0], f[1], f[2], f[3],
			   static_cast<const char *>(nullptr)) != 0) {
		vlog(LOG_ERR, "%s:%d Error: Failed to add log to log center", VEXO_AT);
		return -1;
	}
	return 0;
}
VEXO_C_CATCH(-1)

} // extern "C"
