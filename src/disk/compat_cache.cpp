// The per-disk verdict cache: two status words per disk, written under the
// disk's lock and read without one, and the refresh passes over the disks.
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <thread>
#include <unistd.h>
#include <vexohw/compat.h>
#include <vexohw/compat_cache.h>
#include <vexohw/disk_enum.h>
#include <vexohw/disk_probe.h>
#include <vexohw/frame.h>
#include <vexohw/fw_status.h>
#include <vexohw/smart_serial.h>
#include <vexoplatform/ebox_info.h>
#include <vexoplatform/vexocore.h>

#include "disk/compat_cache.h"
#include "frame/cache_keys.h"
#include "frame/err.h"
#include "frame/exec.h"
#include "frame/file_lock.h"
#include "frame/priv.h"
#include "frame/sysroot.h"
#include "frame/unique.h"

namespace vexo::compatcache {

bool shortName(const char *disk, std::string &name)
{
	char buf[64] = {};
	if (!disk || std::sscanf(disk, "/dev/%63s", buf) != 1 || !vexo::cache::isNameComponent(buf))
		return false;
	name = buf;
	return true;
}

int readValue(const char *disk, const char *key, char *out, int outSize)
{
	std::string name;
	if (!out || outSize < 1 || !shortName(disk, name)) {
		vlog(LOG_ERR, "%s:%d Invalid argumentes", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	const std::string path = std::string(vexo::cache::kDisksDir) + "/" + name + "/" + key;
	vexo::UniqueFd fd(vexo::sysroot::open(path.c_str(), O_RDONLY | O_CLOEXEC));
	if (!fd) {
		VEXO_ERR(VEXO_ERR_NOENT);
		return -1;
	}
	ssize_t n = ::read(fd.get(), out, static_cast<size_t>(outSize - 1));
	if (n < 0) {
		vlog(LOG_ERR, "%s:%d Read status from %s failed", VEXO_AT, path.c_str());
		VEXO_ERR(VEXO_ERR_READ);
		return -1;
	}
	out[n] = '\0';
	return 0;
}

int cachedStatus(const char *disk)
{
	char text[64] = {};
	return readValue(disk, "compatibility", text, sizeof text) == 0 ? VEXODiskCompatibilityStringTransfer(text) : 0;
}

} // namespace vexo::compatcache

namespace {

using vexo::compatcache::shortName;

// The maker's own SSDs carry the bundle's life values; the flag tells the
// SSD bundle which disks are its own. Reads only the kernel's attributes and
// the maker's check, never the drive's media.
int ssdBundleUpdateCacheFile(const char *disk, const std::string &name)
{
	const bool bundle = VEXODiskIsVexology(disk) == 1 && VEXODiskIsSSD(disk) == 1;
	return VEXODiskUpdateStrValueCacheFile(name.c_str(), "is_bundle_ssd", bundle ? "1" : "0") == 0 ? 0 : -1;
}

// The status text of a verdict, at most 32 bytes.
std::string statusText(int status)
{
	char text[32] = {};
	VEXODiskCompatibilityStatusTransfer(status, text, sizeof text);
	return text;
}

// Runs fn over every disk the filter selects; all of them are run. False
// when the list cannot be had or any disk failed.
bool forAllDisks(DiskEnumFilter *filter, int (*fn)(const char *))
{
	DiskListNode *list = nullptr;
	if (DiskInfoEnum(filter, &list) < 0)
		return false;
	std::unique_ptr<DiskListNode, decltype(&DiskInfoEnumFree)> own(list, &DiskInfoEnumFree);
	bool ok = true;
	for (DiskListNode *n = list; n; n = n->next)
		if (n->info && fn(n->info->path) < 0)
			ok = false;
	return ok;
}

bool blockExists(const char *path)
{
	std::string name;
	if (!shortName(path, name))
		return false;
	struct stat st;
	return vexo::sysroot::stat(("/sys/block/" + name).c_str(), &st) == 0;
}

} // namespace

extern "C" {

VEXO_API int VEXODiskCompatibilityCacheGet(const char *disk, char *out, int outSize)
try {
	return vexo::compatcache::readValue(disk, "compatibility", out, outSize);
} VEXO_C_CATCH(-1)

VEXO_API int VEXODiskCompatibilityCacheForceGet(const char *disk, char *out, int outSize)
try {
	if (!disk || !out || outSize < 0) {
		vlog(LOG_ERR, "%s:%d Invalid arguments", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	return vexo::compatcache::readValue(disk, "force_compatibility", out, outSize);
} VEXO_C_CATCH(-1)

VEXO_API int VEXODiskCompatibilityCacheUpdate(const char *disk)
try {
	std::string name;
	if (!disk || !shortName(disk, name)) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	ENTERCriticalSection;
	const std::string lock = std::string(vexo::cache::kDisksDir) + "/" + name + "/compatibility.lock";
	vexo::FileLock held;
	if (!held.take(lock.c_str(), 10)) {
		vlog(LOG_ERR, "%s:%d Failed to get lock %s", VEXO_AT, lock.c_str());
		return -1;
	}
	bool failed = false;
	std::string text = statusText(VEXODiskCompatibilityGet(disk, 0));
	if (text == "unknown") {
		// A disk just plugged in may not answer yet; one more try.
		vlog(LOG_ERR, "%s:%d compatibility status unknown, regen compatibility", VEXO_AT);
		std::this_thread::sleep_for(std::chrono::seconds(1));
		text = statusText(VEXODiskCompatibilityGet(disk, 0));
	}
	if (VEXODiskUpdateStrValueCacheFile(name.c_str(), "compatibility", text.c_str()) != 0) {
		vlog(LOG_ERR, "%s:%d Fail to update %s on %s", VEXO_AT, "compatibility", name.c_str());
		failed = true;
	}
	text = statusText(VEXODiskCompatibilityGet(disk, 1));
	if (VEXODiskUpdateStrValueCacheFile(name.c_str(), "force_compatibility", text.c_str()) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to update %s on %s", VEXO_AT, "force_compatibility", name.c_str());
		failed = true;
	}
	if (ssdBundleUpdateCacheFile(disk, name) == -1) {
		vlog(LOG_ERR, "%s:%d Failed to update cache file for %s", VEXO_AT, disk);
		failed = true;
	}
	if (!held.release())
		vlog(LOG_ERR, "%s:%d Fail to unlock %s", VEXO_AT, lock.c_str());
	return failed ? -1 : 0;
} VEXO_C_CATCH(-1)

VEXO_API int VEXODiskCompatibilityCacheUpdateAndChecker(const char *disk)
try {
	// Two refreshers of one disk would both see the change and both tell of
	// it: the whole check, before to after, is one per disk at a time. A
	// lock not had in time still lets the refresh run.
	std::string name;
	vexo::FileLock check;
	if (shortName(disk, name)) {
		const std::string path = std::string(vexo::cache::kDisksDir) + "/" + name + "/compatibility_check.lock";
		ENTERCriticalSection;
		if (!check.take(path.c_str(), 10))
			vlog(LOG_ERR, "%s:%d Failed to get lock %s", VEXO_AT, path.c_str());
	}
	const int before = vexo::compatcache::cachedStatus(disk);
	const int alertBefore = VEXODiskCompatibilityNeedAlert(disk);
	int r = VEXODiskCompatibilityCacheUpdate(disk);
	if (r != 0)
		return r;
	const int after = vexo::compatcache::cachedStatus(disk);
	if (VEXODiskActionCacheUpdate(disk) != 0)
		vlog(LOG_ERR, "%s:%d Failed to update cache", VEXO_AT);
	const int alertAfter = VEXODiskCompatibilityNeedAlert(disk);
	// Once, at the change; a change towards no alert is silent.
	if (!alertAfter || (before == after && alertBefore == alertAfter))
		return 0;
	VEXODiskCompatibilityMailSend(disk);
	vexo::exec::Options quiet;
	quiet.captureStdout = false;
	if (vexo::exec::run({"/usr/vexo/sbin/vexostorage", "--hotspare", "-q", disk}, quiet).status() == 1)
		vexo::exec::run({"/usr/vexo/bin/vexocheckhotspare"}, quiet);
	return 0;
} VEXO_C_CATCH(-1)

VEXO_API int VEXODiskCompatibilityAllDisksUpdate(DiskEnumFilter *filter)
try {
	if (!forAllDisks(filter, VEXODiskCompatibilityCacheUpdateAndChecker) ||
	    !forAllDisks(filter, VEXOSBDriveFirmInfoAndUpdateInfoCacheUpdate)) {
		vlog(LOG_ERR, "%s:%d Failed to update all disk compatibility status cache", VEXO_AT);
		return -1;
	}
	return 0;
} VEXO_C_CATCH(-1)

VEXO_API void VEXODiskCompatibilityEunitDisksUpdate(const char *unitName)
try {
	if (!unitName) {
		vlog(LOG_ERR, "%s:%d Invalid arguments", VEXO_AT);
		return;
	}
	if (!SupportEBox())
		return;
	VEXO_EBOX_INFO units[VEXO_EBOX_MAX_UNITS];
	const int count = VEXOEBoxInfoEnum(units, VEXO_EBOX_MAX_UNITS);
	if (count < 0) {
		vlog(LOG_ERR, "%s:%d Failed to enum eunit info", VEXO_AT);
		return;
	}
	bool failed = false;
	for (int i = 0; i < count; ++i) {
		// The unit's name is its model text (what its database is named by).
		char name[32] = {};
		if (!units[i].unique[0] || VLIBCStrSnprintf(name, sizeof name, "%s", units[i].unique) < 0) {
			vlog(LOG_ERR, "%s:%d Fail to do get ebox name.", VEXO_AT);
			failed = true;
			continue;
		}
		// A prefix test, kept on purpose: asking for "XU05-2" also chooses the
		// unit named "XU05".
		if (std::strncmp(unitName, name, std::strlen(name)) != 0)
			continue;
		for (int b = 0; b < units[i].maxDisk && b < VEXO_EBOX_MAX_BAYS; ++b)
			if (units[i].disks[b][0] && blockExists(units[i].disks[b]) &&
			    VEXODiskCompatibilityCacheUpdateAndChecker(units[i].disks[b]) < 0)
				failed = true;
	}
	if (failed)
		vlog(LOG_ERR, "%s:%d Failed to update compatibility status of disks in ebox %s", VEXO_AT, unitName);
} VEXO_C_CATCH_VOID

} // extern "C"
