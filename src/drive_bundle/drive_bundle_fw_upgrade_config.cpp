// Plan files: one "[id]" section per drive, each line "\t<key> = <value>".
// Every reader and writer holds fw-upgrade-conf.lock, and a writer replaces
// the whole file (tmp and rename), so that the children of a run, each
// storing its own drive's section, and a reader in the user interface never
// see a torn file.
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <string_view>
#include <unistd.h>
#include <vector>
#include <vexohw/drive_bundle.h>

#include "drive_bundle/drive_bundle_private.h"
#include "frame/err.h"
#include "frame/priv.h"
#include "frame/sysroot.h"
#include "frame/unique.h"

using namespace vexo::bundle;

namespace {

constexpr int kHashSize = 1024;

bool readAll(const char *path, std::string &text, bool &missing)
{
	missing = false;
	vexo::UniqueFd fd(vexo::sysroot::open(path, O_RDONLY | O_CLOEXEC));
	if (fd.get() < 0) {
		missing = errno == ENOENT;
		return missing;
	}
	char buf[8192];
	for (;;) {
		ssize_t n = ::read(fd.get(), buf, sizeof(buf));
		if (n < 0 && errno == EINTR)
			continue;
		if (n < 0)
			return false;
		if (n == 0)
			return true;
		text.append(buf, static_cast<std::size_t>(n));
	}
}

std::string_view trimmed(std::string_view s)
{
	while (!s.empty() && (s.front() == ' ' || s.front() == '\t'))
		s.remove_prefix(1);
	while (!s.empty() && (s.back() == ' ' || s.back() == '\t' || s.back() == '\r'))
		s.remove_suffix(1);
	return s;
}

bool isHeader(std::string_view line, std::string_view &name)
{
	line = trimmed(line);
	if (line.size() < 2 || line.front() != '[' || line.back() != ']')
		return false;
	name = trimmed(line.substr(1, line.size() - 2));
	return true;
}

// The file with section `id` set to `body` (replaced in place, or added at
// the end). `found` tells which.
std::string withSection(const std::string &old, const std::string &id, const std::string &body, bool &found)
{
	std::vector<std::string_view> lines;
	for (std::size_t at = 0; at < old.size();) {
		std::size_t nl = old.find('\n', at);
		std::size_t end = nl == std::string::npos ? old.size() : nl;
		lines.emplace_back(old.data() + at, end - at);
		at = end + 1;
	}
	std::string out;
	found = false;
	bool inside = false;
	for (std::string_view line : lines) {
		std::string_view name;
		if (isHeader(line, name)) {
			inside = !found && name == id;
			if (inside) {
				found = true;
				out += "[" + id + "]\n" + body;
				continue;
			}
		}
		if (inside) {
			if (trimmed(line).empty())
				out += "\n"; // the blank line before the next section stays
			continue;
		}
		out.append(line);
		out += '\n';
	}
	if (!found) {
		if (!out.empty() && out != "\n" && out.compare(out.size() - 2, 2, "\n\n") != 0)
			out += '\n';
		out += "[" + id + "]\n" + body;
	}
	return out;
}

bool replaceWhole(const char *path, const std::string &text)
{
	std::string tmp = std::string(path) + ".tmp." + std::to_string(::getpid()) + "." + std::to_string(::gettid());
	vexo::UniqueFd fd(vexo::sysroot::create(tmp.c_str(), O_TRUNC, 0644));
	if (fd.get() < 0)
		return false;
	if (VLIBCWrite(fd.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size()) ||
	    ::fsync(fd.get()) != 0 || vexo::sysroot::rename(tmp.c_str(), path) != 0) {
		vexo::sysroot::unlink(tmp.c_str());
		return false;
	}
	return true;
}

bool validText(const char *s) { return s && !std::strpbrk(s, "\n\r"); }

bool validId(const char *id)
{
	return id[0] && validText(id) && !std::strpbrk(id, "[]") && trimmed(id).size() == std::strlen(id);
}

void copyField(char *dst, std::size_t size, const char *src) { std::snprintf(dst, size, "%s", src ? src : ""); }

// One drive from its section's hash; false when out of memory.
bool fromHash(const char *id, PVLIBSZHASH hash, DB_FW_UPGRADE_CONFIG &c)
{
	copyField(c.id, sizeof(c.id), id);
	DBCopyStrIfExist(hash, "drive_path", c.drive_path, sizeof(c.drive_path));
	DBCopyStrIfExist(hash, "firmware", c.firmware, sizeof(c.firmware));
	DBCopyStrIfExist(hash, "available_firmware", c.available_firmware, sizeof(c.available_firmware));
	DBCopyStrIfExist(hash, "available_firmware_binary", c.available_firmware_binary,
			 sizeof(c.available_firmware_binary));
	DBCopyIntIfExist(hash, "fw_build_number", &c.fw_build_number);
	DBCopyIntIfExist(hash, "upgrade_status", &c.upgrade_status);
	DBCopyIntIfExist(hash, "download_retry_cnt", &c.download_retry_cnt);
	DBCopyIntIfExist(hash, "activate_retry_cnt", &c.activate_retry_cnt);
	c.pid = -1;
	return DBDupStrIfExist(hash, "ui_json", &c.ui_json) >= 0;
}

// Hashes of the drives of the plan at `plan` into hashes[0..max-1].
int infoOf(const std::string &plan, PVLIBSZHASH *hashes, int max)
{
	if (!hashes || max < 0) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	if (plan.empty())
		return 0;
	DB_FW_UPGRADE_CONFIG *list = nullptr;
	if (VEXODriveBundleFWUpgradeConfigGet(plan.c_str(), &list) < 0)
		return -1;
	int n = 0;
	for (DB_FW_UPGRADE_CONFIG *c = list; c && n < max; c = c->next) {
		hashes[n] = nullptr;
		if (DBConfigObjToHash(c, &hashes[n], 1) != 0) {
			while (n > 0)
				VLIBCSzHashFree(hashes[--n]);
			VEXODriveBundleFWUpgradeConfigFree(list);
			return -1;
		}
		++n;
	}
	VEXODriveBundleFWUpgradeConfigFree(list);
	return n;
}

int sourceSet(const char *file, int on, const char *path)
{
	if ((on != 0) != (path != nullptr) || (path && !path[0])) {
		vlog(LOG_ERR, "%s:%d Bad parameter", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	if (!on)
		return DBWriteOrDeleteFile(0, file, nullptr);
	if (VEXODriveBundleCheckDirExistOrCreate(kLibDir) != 0)
		return -1;
	// Whole replacement: a shorter path must not keep the tail of a longer one.
	return DBWriteToFile(file, path);
}

} // namespace

namespace vexo::bundle {

std::string sourcePath(const char *flagOrLink, bool link)
{
	char out[PATH_MAX];
	if (link)
		return DBRealityPathGet(flagOrLink, out, sizeof(out)) == 0 ? out : "";
	return DBReadFromFile(flagOrLink, out, sizeof(out)) > 0 ? out : "";
}

} // namespace vexo::bundle

extern "C" {

VEXO_API int DBConfigObjToHash(const DB_FW_UPGRADE_CONFIG *config, PVLIBSZHASH *hash, int flag)
try {
	if (!config || !hash) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	if (!*hash && !(*hash = VLIBCSzHashAlloc(kHashSize))) {
		VEXO_ERR(VEXO_ERR_LIST_ALLOC);
		return -1;
	}
	const std::pair<const char *, std::string> pairs[] = {
		{"drive_path", config->drive_path},
		{"firmware", config->firmware},
		{"available_firmware", config->available_firmware},
		{"available_firmware_binary", config->available_firmware_binary},
		{"ui_json", config->ui_json ? config->ui_json : ""},
		{"fw_build_number", std::to_string(config->fw_build_number)},
		{"upgrade_status", std::to_string(config->upgrade_status)},
		{"download_retry_cnt", std::to_string(config->download_retry_cnt)},
		{"activate_retry_cnt", std::to_string(config->activate_retry_cnt)},
	};
	if (flag && VLIBCSzHashSetValue(hash, "id", config->id) < 0)
		return -1;
	for (const auto &[key, value] : pairs)
		if (VLIBCSzHashSetValue(hash, key, value.c_str()) < 0) {
			VEXO_ERR(VEXO_ERR_LIST_ALLOC);
			return -1;
		}
	return 0;
} VEXO_C_CATCH(-1)

VEXO_API int DBDupStrIfExist(PVLIBSZHASH hash, const char *key, char **out)
try {
	if (!hash || !key || !out) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	const char *v = VLIBCSzHashGetValue(hash, key);
	if (!v)
		return 0;
	char *dup = ::strdup(v);
	if (!dup) {
		VEXO_ERR(VEXO_ERR_NOMEM);
		return -1;
	}
	std::free(*out);
	*out = dup;
	return 1;
} VEXO_C_CATCH(-1)

VEXO_API int DBCopyStrIfExist(PVLIBSZHASH hash, const char *key, char *out, int size)
try {
	if (!hash || !key || !out || size <= 0) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	const char *v = VLIBCSzHashGetValue(hash, key);
	if (!v)
		return 0;
	if (std::strlen(v) >= static_cast<std::size_t>(size)) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::memcpy(out, v, std::strlen(v) + 1);
	return 1;
} VEXO_C_CATCH(-1)

VEXO_API int DBCopyIntIfExist(PVLIBSZHASH hash, const char *key, int32_t *out)
try {
	if (!hash || !key || !out) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	const char *v = VLIBCSzHashGetValue(hash, key);
	if (!v)
		return 0;
	char *end = nullptr;
	errno = 0;
	long n = std::strtol(v, &end, 10);
	if (errno != 0 || end == v || *end != '\0' || n < INT32_MIN || n > INT32_MAX) {
		VEXO_ERR(VEXO_ERR_READ);
		return -1;
	}
	*out = static_cast<int32_t>(n);
	return 1;
} VEXO_C_CATCH(-1)

VEXO_API void VEXODriveBundleFWUpgradeConfigFree(DB_FW_UPGRADE_CONFIG *list)
{
	while (list) {
		DB_FW_UPGRADE_CONFIG *next = list->next;
		std::free(list->ui_json);
		std::free(list);
		list = next;
	}
}

VEXO_API int VEXODriveBundleFWUpgradeConfigSet(const char *path, const DB_FW_UPGRADE_CONFIG *config)
try {
	if (!path || !config || !validId(config->id)) {
		vlog(LOG_ERR, "%s:%d Bad parameters", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	HashOwner hash;
	if (DBConfigObjToHash(config, &hash.h, 0) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to alloc hash for %s", VEXO_AT, config->id);
		return -1;
	}
	std::string body;
	for (int i = 0; i < hash.h->nItem; ++i) {
		if (!validText(hash.h->ppszValue[i])) {
			vlog(LOG_ERR, "%s:%d Failed to set key [%s] into %s", VEXO_AT, hash.h->ppszKey[i], path);
			VEXO_ERR(VEXO_ERR_BAD_PARAM);
			return -1;
		}
		body += std::string("\t") + hash.h->ppszKey[i] + " = " + hash.h->ppszValue[i] + "\n";
	}
	std::string dir(path);
	dir.erase(dir.find_last_of('/') == std::string::npos ? 0 : dir.find_last_of('/') + 1);
	if ((!dir.empty() && VEXODriveBundleCheckDirExistOrCreate(dir.c_str()) != 0) ||
	    VEXODriveBundleCheckDirExistOrCreate(kRunDir) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to check %s exists", VEXO_AT, dir.c_str());
		return -1;
	}
	ENTERCriticalSection;
	LockFile guard(kConfLock, kLockSeconds);
	if (!guard.held()) {
		vlog(LOG_ERR, "%s:%d Failed to lock %s. [0x%04X %s:%d]", VEXO_AT, kConfLock, VLIBCErrGet(),
		     VLIBCErrFileGet(), VLIBCErrLineGet());
		return -1;
	}
	std::string old;
	bool missing = false;
	if (!readAll(path, old, missing)) {
		vlog(LOG_ERR, "%s:%d Failed to set key [%s] into %s", VEXO_AT, config->id, path);
		VEXO_ERR(VEXO_ERR_READ);
		return -1;
	}
	bool found = false;
	std::string text = withSection(old, config->id, body, found);
	if (!replaceWhole(path, text)) {
		if (found)
			vlog(LOG_ERR, "%s:%d Failed to set key [%s] into %s", VEXO_AT, config->id, path);
		else
			vlog(LOG_ERR, "%s:%d Failed to add key[%s] into %s", VEXO_AT, config->id, path);
		VEXO_ERR(VEXO_ERR_WRITE);
		return -1;
	}
	return 0;
} VEXO_C_CATCH(-1)

VEXO_API int VEXODriveBundleFWUpgradeConfigGet(const char *path, DB_FW_UPGRADE_CONFIG **list)
try {
	if (!path || !list) {
		vlog(LOG_ERR, "%s:%d Bad parameters", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	if (VEXODriveBundleCheckDirExistOrCreate(kRunDir) != 0)
		return -1;
	LockFile guard(kConfLock, kLockSeconds);
	if (!guard.held()) {
		vlog(LOG_ERR, "%s:%d Failed to lock %s. [0x%04X %s:%d]", VEXO_AT, kConfLock, VLIBCErrGet(),
		     VLIBCErrFileGet(), VLIBCErrLineGet());
		return -1;
	}
	struct stat st {};
	if (vexo::sysroot::stat(path, &st) != 0 && errno == ENOENT) {
		*list = nullptr;
		return 0;
	}
	ListOwner sections{VLIBCSzListAlloc(16)};
	int ret = sections.l ? VLIBCFileEnumSection(path, &sections.l) : -1;
	if (ret < 0) {
		vlog(LOG_ERR, "%s:%d Failed to enum section of list %s, ret=%d", VEXO_AT, path, ret);
		return -1;
	}
	DB_FW_UPGRADE_CONFIG *head = nullptr;
	DB_FW_UPGRADE_CONFIG **tail = &head;
	int count = 0;
	for (int i = 0; i < ret; ++i) {
		const char *id = VLIBCSzListGet(sections.l, i);
		HashOwner hash;
		int got = VLIBCFileGetSection(path, id, &hash.h);
		auto *c = static_cast<DB_FW_UPGRADE_CONFIG *>(std::calloc(1, sizeof(DB_FW_UPGRADE_CONFIG)));
		if (got < 0 || !c || !fromHash(id, hash.h, *c)) {
			if (got < 0)
				vlog(LOG_ERR, "%s:%d Failed to get section [%s] from %s, ret=%d", VEXO_AT, id, path, got);
			else
				VEXO_ERR(VEXO_ERR_NOMEM);
			if (c)
				VEXODriveBundleFWUpgradeConfigFree(c);
			VEXODriveBundleFWUpgradeConfigFree(head);
			return -1;
		}
		*tail = c;
		tail = &c->next;
		++count;
	}
	*list = head;
	return count;
} VEXO_C_CATCH(-1)

VEXO_API int VEXODriveBundleFWUpgradeConfigInfoGetByCurrent(PVLIBSZHASH *hashes, int max)
try {
	return infoOf(sourcePath(VEXO_FW_UPGRADE_CURRENT_LINK, true), hashes, max);
} VEXO_C_CATCH(-1)

VEXO_API int VEXODriveBundleFWUpgradeConfigInfoGetByNotification(PVLIBSZHASH *hashes, int max)
try {
	return infoOf(sourcePath(kNotificationSource, false), hashes, max);
} VEXO_C_CATCH(-1)

VEXO_API int VEXODriveBundleFWUpgradeConfigInfoGetByAutoLaunch(PVLIBSZHASH *hashes, int max)
try {
	return infoOf(sourcePath(kLaunchSummarySource, false), hashes, max);
} VEXO_C_CATCH(-1)

VEXO_API int VEXODriveBundleFWUpgradeNotificationSet(int on, const char *path)
try {
	return sourceSet(kNotificationSource, on, path);
} VEXO_C_CATCH(-1)

VEXO_API int VEXODriveBundleFWUpgradeLaunchSummarySet(int on, const char *path)
try {
	return sourceSet(kLaunchSummarySource, on, path);
} VEXO_C_CATCH(-1)

VEXO_API int VEXODriveBundleFWUpgradeDrivesGet(PVLIBSZLIST *list)
try {
	if (!list) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::string plan = sourcePath(VEXO_FW_UPGRADE_CURRENT_LINK, true);
	DB_FW_UPGRADE_CONFIG *drives = nullptr;
	if (!plan.empty() && VEXODriveBundleFWUpgradeConfigGet(plan.c_str(), &drives) < 0)
		return -1;
	if (!*list && !(*list = VLIBCSzListAlloc(16))) {
		VEXODriveBundleFWUpgradeConfigFree(drives);
		VEXO_ERR(VEXO_ERR_LIST_ALLOC);
		return -1;
	}
	int n = 0;
	for (DB_FW_UPGRADE_CONFIG *c = drives; c; c = c->next, ++n)
		if (VLIBCSzListPush(list, c->drive_path) < 0) {
			VEXODriveBundleFWUpgradeConfigFree(drives);
			VEXO_ERR(VEXO_ERR_LIST_ALLOC);
			return -1;
		}
	VEXODriveBundleFWUpgradeConfigFree(drives);
	return n;
} VEXO_C_CATCH(-1)

} // extern "C"
