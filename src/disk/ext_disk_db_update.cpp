// The tools' update drivers: the index and the newer databases fetched from
// the update server into a staging directory, or an uploaded offline kit
// unpacked, then one run over the host's table under the update lock.
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <string>
#include <unistd.h>
#include <vector>
#include <vexohw/dbupdate.h>
#include <vexoplatform/vexoarchive.h>

#include "disk/dbupdate.h"
#include "frame/boundary.h"
#include "frame/err.h"
#include "frame/net.h"
#include "frame/priv.h"
#include "frame/sysroot.h"
#include "frame/unique.h"

namespace {

using namespace vexo::dbupdate;
namespace sysroot = vexo::sysroot;

constexpr const char *kKitScratch = "/var/lib/offlinekit.new";
constexpr int kStallDefaultS = 30;
// No database comes near this; a server that sends more is not trusted.
constexpr size_t kMaxFetch = size_t{256} << 20;

void removeTree(const std::string &appliancePath)
{
	std::error_code ec;
	std::filesystem::remove_all(sysroot::path(appliancePath), ec);
}

// A server that sends nothing for this long has stalled.
long stallSeconds()
{
	const char *v = secure_getenv("VEXO_DBUPDATE_STALL_SECONDS");
	long s = v ? std::strtol(v, nullptr, 10) : 0;
	return s > 0 ? s : kStallDefaultS;
}

// Fetches url into the appliance file dest. A refused connection, an HTTP
// error, a stall or a cut transfer all fail with 0x1100.
bool fetch(const std::string &url, const std::string &dest)
{
	makeDirs(dest.substr(0, dest.rfind('/')), 0755);
	vexo::UniqueFd fd(sysroot::create(dest.c_str(), O_TRUNC, 0644));
	if (!fd) {
		vlog(LOG_ERR, "%s:%d Failed to create %s: %s", VEXO_AT, dest.c_str(), std::strerror(errno));
		VEXO_ERR(VEXO_ERR_FOPEN);
		return false;
	}
	vexo::net::Request req;
	req.url = url;
	req.stallTimeoutS = stallSeconds();
	bool written = true;
	size_t total = 0;
	vexo::net::Outcome out = vexo::net::transfer(req, [&](const char *data, size_t size) {
		if ((total += size) > kMaxFetch)
			return false; // a transfer error, not a write error: written stays
		while (size > 0) {
			ssize_t n = ::write(fd.get(), data, size);
			if (n < 0 && errno == EINTR)
				continue;
			if (n <= 0)
				return written = false;
			data += n;
			size -= static_cast<size_t>(n);
		}
		return true;
	});
	if (!out.ok() || out.httpStatus >= 400 || !written) {
		vlog(LOG_ERR, "%s:%d Failed to fetch %s: %s (HTTP %ld)", VEXO_AT, url.c_str(),
		     written ? curl_easy_strerror(out.code) : "write failed", out.httpStatus);
		VEXO_ERR(written ? VEXO_ERR_NET : VEXO_ERR_WRITE);
		return false;
	}
	return true;
}

// The update lock over the host's model, released on every path.
class HostLock {
public:
	HostLock()
	{
		std::string m;
		held_ = model(m) && VEXODiskDbUpdateLock(m.c_str(), &fd_) == 0;
		if (!held_)
			fd_ = -1;
	}
	~HostLock() { VEXODiskDbUpdateUnlock(fd_); }
	HostLock(const HostLock &) = delete;
	HostLock &operator=(const HostLock &) = delete;
	bool held() const { return held_; }

private:
	int fd_ = -1;
	bool held_ = false;
};

struct Rows {
	DiskOnlineDbInfo *rows = nullptr;
	int count = -1;
	Rows() { count = VEXODiskOnlineDbInfoGet(&rows); }
	~Rows() { std::free(rows); }
	Rows(const Rows &) = delete;
	Rows &operator=(const Rows &) = delete;
};

bool has(const std::vector<std::string> &names, const char *name)
{
	for (const std::string &n : names)
		if (n == name)
			return true;
	return false;
}

// The host's table over an index; then the daemon hears of a new
// temperature database. 0 updated, 1 nothing to do, 2 failed.
int hostRun(const std::string &index, RunOptions opts)
{
	Rows rows;
	if (rows.count < 0) {
		sysroot::unlink(index.c_str());
		return 2;
	}
	std::vector<std::string> installed;
	opts.installed = &installed;
	int status[VEXO_DISK_DB_STATUS_COUNT] = {};
	int rc = run(index.c_str(), rows.rows, rows.count, kHostTimeFile, status, opts);
	if (has(installed, kTemperatureKey))
		VEXODiskOperationTemperatureUpdate();
	return rc != 0 ? 2 : installed.empty() ? 1 : 0;
}

int online(RunOptions opts)
{
	char url[4096], base[1024];
	if (VEXODiskUpdateServerUrlGet(url, sizeof url) != 0 || VEXODiskServerUrlGet(base, sizeof base) != 0)
		return 2;
	const std::string staging = std::string(kStateDir) + "/online/";
	ENTERCriticalSection;
	removeTree(staging);
	const std::string index = staging + "index.json";
	if (!fetch(url, index)) {
		removeTree(staging);
		return 2;
	}
	const std::string server(base);
	opts.sourceDir = staging;
	opts.fetch = [&](const std::string &rel) { return fetch(server + "/" + rel, staging + rel); };
	int rc = hostRun(index, opts);
	removeTree(staging);
	return rc;
}

// Unpacks a signed kit beside the kit directory, then puts it in place.
bool unpack(const char *kit)
{
	removeTree(kKitScratch);
	if (!makeDirs(kKitScratch, 0755)) {
		vlog(LOG_ERR, "%s:%d Failed to create %s: %s", VEXO_AT, kKitScratch, std::strerror(errno));
		VEXO_ERR(VEXO_ERR_WRITE);
		return false;
	}
	std::unique_ptr<VEXOARCHIVE, void (*)(VEXOARCHIVE *)> a(vexoarchive_init(kKitScratch), vexoarchive_free);
	int rc = a ? vexoarchive_open_with_keytype(a.get(), kit, VEXOARCHIVE_KEY_PACKAGE) : VEXOARCHIVE_ERR_ARG;
	if (rc == VEXOARCHIVE_OK)
		rc = vexoarchive_extract_multiple(a.get(), 0, VEXOARCHIVE_KEY_PACKAGE);
	if (rc != VEXOARCHIVE_OK) {
		vlog(LOG_ERR, "%s:%d Failed to unpack the offline kit %s: %s", VEXO_AT, kit, vexoarchive_strerror(rc));
		VEXO_ERR(rc == VEXOARCHIVE_ERR_IO ? VEXO_ERR_FOPEN : VEXO_ERR_VENDOR_DATA);
		removeTree(kKitScratch);
		return false;
	}
	std::string dir(kOfflineDir);
	dir.pop_back();
	removeTree(dir);
	if (sysroot::rename(kKitScratch, dir.c_str()) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to rename %s: %s", VEXO_AT, kKitScratch, std::strerror(errno));
		VEXO_ERR(VEXO_ERR_WRITE);
		return false;
	}
	return true;
}

int offline(const char *kit, RunOptions opts)
{
	{
		ENTERCriticalSection;
		if (!unpack(kit))
			return 2;
	}
	int uploaded = VEXODiskUploadOfflineKitVersionGet();
	if (!opts.force && uploaded > 0 && uploaded <= VEXODiskPreviousOfflineKitVersionGet()) {
		vlog(LOG_INFO, "%s:%d Offline kit version %d is applied already", VEXO_AT, uploaded);
		return 1;
	}
	char index[1024];
	if (VEXODiskUpdateOfflineJsonPathGet(index, sizeof index) != 0)
		return 2;
	int host = hostRun(index, opts);
	int units = unitsUpdate(opts);
	if (host == 2 || units == 2)
		return 2;
	if (uploaded > 0 && VEXODiskOfflineKitVerUpdate(uploaded) != 0)
		return 2;
	return host == 0 || units == 0 ? 0 : 1;
}

} // namespace

extern "C" VEXO_API int VEXOExtDiskDbUpdate(const char *kit, int force, VEXODiskDbEventFunction onEvent,
					    void *context) try {
	HostLock lock;
	if (!lock.held())
		return 2;
	RunOptions opts;
	opts.force = force != 0;
	opts.onEvent = onEvent;
	opts.context = context;
	return kit ? offline(kit, opts) : online(opts);
}
VEXO_C_CATCH(2)

extern "C" VEXO_API int VEXOExtDiskDbStatusGet(int online, VEXODiskDbEventFunction onEvent, void *context) try {
	Rows rows;
	if (rows.count < 0)
		return -1;
	RunOptions opts;
	opts.decideOnly = true;
	opts.onEvent = onEvent;
	opts.context = context;
	if (online) {
		char url[4096];
		if (VEXODiskUpdateServerUrlGet(url, sizeof url) != 0)
			return -1;
		// Beside any running update's staging, never inside it.
		std::string index = std::string(kStateDir) + "/status-" + std::to_string(::getpid()) + ".json";
		ENTERCriticalSection;
		makeDirs(kStateDir, 0777);
		if (!fetch(url, index)) {
			sysroot::unlink(index.c_str());
			return -1;
		}
		return run(index.c_str(), rows.rows, rows.count, nullptr, nullptr, opts);
	}
	// Without the server: what is installed, row by row.
	for (int i = 0; i < rows.count; ++i) {
		DiskOnlineDbInfo &r = rows.rows[i];
		char key[1024], path[1024];
		if (r.nameFunction && r.nameFunction(r.name, key, sizeof key) != 0)
			return -1;
		if (r.perModel) {
			for (char *field : {r.dbPath, r.versionPath, r.releasePath}) {
				if (field[0] && VEXODiskModelReplaceName(field, path, sizeof path) != 0)
					return -1;
				if (field[0])
					std::memcpy(field, path, sizeof path);
			}
		}
		VEXODiskDbEvent ev{};
		ev.name = r.nameFunction ? key : r.name;
		ev.dbPath = r.dbPath;
		ev.state = VEXO_DISK_DB_ABSENT;
		long long v = 0;
		ev.installedVersion = readNumber(r.versionPath, v) == 1 ? static_cast<int32_t>(v) : -1;
		ev.installedRelease = r.releasePath[0] && readNumber(r.releasePath, v) == 1 ? static_cast<int32_t>(v) : -1;
		ev.offeredVersion = ev.offeredRelease = -1;
		if (onEvent)
			onEvent(&ev, context);
	}
	return 0;
}
VEXO_C_CATCH(-1)
