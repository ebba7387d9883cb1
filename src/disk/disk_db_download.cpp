// One run over an index: database by database, decide whether the index
// holds something newer and install it. A bad database fails its own row
// and the run goes on; version files move only after an install.
#include <cerrno>
#include <cstring>
#include <json-c/json.h>
#include <string>
#include <sys/stat.h>

#include "disk/dbupdate.h"
#include "frame/boundary.h"
#include "frame/clock.h"
#include "frame/err.h"
#include "frame/jsonc.h"
#include "frame/priv.h"
#include "frame/sysroot.h"

namespace vexo::dbupdate {

namespace {

// The index is consumed by the run whatever becomes of it.
struct RemoveIndex {
	const char *path;
	~RemoveIndex() { sysroot::unlink(path); }
};

struct Entry {
	long long ver = 0, rel = 0;
	std::string url, checksum;
};

// Reads and type-checks an index entry: 0, or the core error.
int readEntry(json_object *o, Entry &e)
{
	if (!json_object_is_type(o, json_type_object))
		return VEXO_ERR_VENDOR_DATA;
	json_object *v = nullptr;
	if (!json_object_object_get_ex(o, "ver", &v))
		return VEXO_ERR_DB_KEY;
	if (!json_object_is_type(v, json_type_int))
		return VEXO_ERR_VENDOR_DATA;
	e.ver = json_object_get_int64(v);
	for (auto [key, out] : {std::pair{"url", &e.url}, std::pair{"checksum", &e.checksum}}) {
		if (!json_object_object_get_ex(o, key, &v))
			return VEXO_ERR_DB_KEY;
		if (!json_object_is_type(v, json_type_string))
			return VEXO_ERR_VENDOR_DATA;
		*out = json_object_get_string(v);
	}
	if (json_object_object_get_ex(o, "rel", &v) && json_object_is_type(v, json_type_int))
		e.rel = json_object_get_int64(v);
	if (!safeRelative(e.url)) {
		vlog(LOG_ERR, "%s:%d Invalid url %s", VEXO_AT, e.url.c_str());
		return VEXO_ERR_VENDOR_DATA;
	}
	return 0;
}

// Whether the index's entry is to be installed over the row's file.
bool wanted(const DiskOnlineDbInfo &row, const Entry &e, bool force)
{
	if (force)
		return true;
	if (row.checkModel && !VEXOIsValidDbWithModel(row.dbPath))
		return true; // a file for another model is always replaced
	long long have = 0;
	if (e.rel > 0 && row.releasePath[0]) {
		int r = readNumber(row.releasePath, have);
		if (r == -1)
			vlog(LOG_ERR, "%s:%d Fail to open release file %s", VEXO_AT, row.releasePath);
		if (r == -2)
			vlog(LOG_ERR, "%s:%d Fail to read release file %s", VEXO_AT, row.releasePath);
		if (r != 1 || have < e.rel)
			return true;
	}
	int r = readNumber(row.versionPath, have);
	if (r == -1)
		vlog(LOG_ERR, "%s:%d Fail to open version file %s", VEXO_AT, row.versionPath);
	if (r == -2)
		vlog(LOG_ERR, "%s:%d Fail to read version file %s", VEXO_AT, row.versionPath);
	return r != 1 || e.ver > have;
}

int32_t installed(const char *path)
{
	long long v = 0;
	return path[0] && readNumber(path, v) == 1 ? static_cast<int32_t>(v) : -1;
}

// The versions a row had before the run touched it.
struct Had {
	int32_t version = -1, release = -1;
};

Had had(const DiskOnlineDbInfo &row)
{
	return {installed(row.versionPath), installed(row.releasePath)};
}

void tell(const RunOptions &opts, const std::string &key, const DiskOnlineDbInfo &row, int state,
	  const Entry *e, int error, const Had *before = nullptr)
{
	if (!opts.onEvent)
		return;
	VEXODiskDbEvent ev{};
	ev.name = key.c_str();
	ev.dbPath = row.dbPath;
	ev.state = state;
	Had now = before ? *before : had(row);
	ev.installedVersion = now.version;
	ev.installedRelease = now.release;
	ev.offeredVersion = e ? static_cast<int32_t>(e->ver) : -1;
	ev.offeredRelease = e ? static_cast<int32_t>(e->rel) : -1;
	ev.error = error;
	opts.onEvent(&ev, opts.context);
}

bool expand(char (&field)[1024])
{
	if (!field[0])
		return true;
	char out[1024];
	if (VEXODiskModelReplaceName(field, out, sizeof out) != 0)
		return false;
	std::memcpy(field, out, sizeof out);
	return true;
}

// One row: 1 installed, 0 nothing to do, -1 failed (core error set).
int runRow(json_object *index, DiskOnlineDbInfo &row, std::string &key, const RunOptions &opts)
{
	key = row.name;
	if (row.nameFunction) {
		char out[1024];
		if (row.nameFunction(row.name, out, sizeof out) != 0) {
			VEXO_ERR(VEXO_ERR_NOT_FOUND);
			return -1;
		}
		key = out;
	}
	if (row.perModel && (!expand(row.dbPath) || !expand(row.versionPath) || !expand(row.releasePath))) {
		vlog(LOG_ERR, "%s:%d Fail to set model name on %s", VEXO_AT, row.name);
		VEXO_ERR(VEXO_ERR_NOT_FOUND);
		return -1;
	}
	json_object *o = nullptr;
	if (!json_object_object_get_ex(index, key.c_str(), &o)) {
		if (row.required) {
			vlog(LOG_ERR, "%s:%d Cannot find %s database key.", VEXO_AT, key.c_str());
			VEXO_ERR(VEXO_ERR_DB_KEY);
			return -1;
		}
		tell(opts, key, row, VEXO_DISK_DB_ABSENT, nullptr, 0);
		return 0;
	}
	row.entry = o;
	Entry e;
	if (int err = readEntry(o, e)) {
		vlog(LOG_ERR, "%s:%d Invalid entry of %s", VEXO_AT, key.c_str());
		VEXO_ERR(err);
		return -1;
	}
	bool install = wanted(row, e, opts.force);
	if (opts.decideOnly || !install) {
		tell(opts, key, row, install ? VEXO_DISK_DB_NEWER : VEXO_DISK_DB_CURRENT, &e, 0);
		return 0;
	}
	const Had before = had(row);
	std::string source = opts.sourceDir + e.url;
	const bool fetched = !opts.fetch || opts.fetch(e.url);
	if (!fetched ||
	    VEXODiskDbApply(source.c_str(), row.dbPath, row.copyToTmp, e.checksum.c_str(), row.checkModel) != 0) {
		vlog(LOG_ERR, "%s:%d Fail to download %s", VEXO_AT, key.c_str());
		// A transfer that failed keeps its own code; an install's is 0x2A00.
		VEXO_ERR(!fetched && VLIBCErrGet() == VEXO_ERR_NET ? VEXO_ERR_NET : VEXO_ERR_NOT_FOUND);
		tell(opts, key, row, VEXO_DISK_DB_FAILED, &e, VLIBCErrGet());
		return -2;
	}
	vlog(LOG_INFO, "%s:%d Success download %s with version %d and release %d.", VEXO_AT, key.c_str(),
	     static_cast<int>(e.ver), static_cast<int>(e.rel));
	ENTERCriticalSection;
	if (!writeWhole(row.versionPath, std::to_string(e.ver)) ||
	    (e.rel > 0 && row.releasePath[0] && !writeWhole(row.releasePath, std::to_string(e.rel)))) {
		vlog(LOG_ERR, "%s:%d Failed to write the version of %s: %s", VEXO_AT, key.c_str(), std::strerror(errno));
		VEXO_ERR(VEXO_ERR_WRITE);
		return -1;
	}
	if (opts.installed)
		opts.installed->push_back(key);
	tell(opts, key, row, VEXO_DISK_DB_INSTALLED, &e, 0, &before);
	return 1;
}

} // namespace

int run(const char *jsonPath, DiskOnlineDbInfo *rows, int rowCount, const char *timeFile, int *status,
	const RunOptions &opts)
{
	if (!jsonPath || (!rows && rowCount > 0)) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	RemoveIndex remove{jsonPath};
	struct stat st;
	if (sysroot::stat(jsonPath, &st) != 0) {
		vlog(LOG_ERR, "%s:%d File %s does not exist", VEXO_AT, jsonPath);
		VEXO_ERR(VEXO_ERR_NOENT);
		return -1;
	}
	if (!S_ISREG(st.st_mode)) {
		VEXO_ERR(VEXO_ERR_NOENT);
		return -1;
	}
	jsonc::Value index = jsonc::readFile(jsonPath);
	if (!index || !json_object_is_type(index.get(), json_type_object)) {
		vlog(LOG_ERR, "%s:%d Failed to parse %s", VEXO_AT, jsonPath);
		VEXO_ERR(VEXO_ERR_VENDOR_DATA);
		return -1;
	}
	bool failed = false, updated = false;
	for (int i = 0; i < rowCount && rows[i].name[0]; ++i) {
		std::string key;
		int r = runRow(index.get(), rows[i], key, opts);
		rows[i].entry = nullptr; // the index does not outlive the run
		if (r < 0) {
			vlog(LOG_ERR, "%s:%d Try to Download %s database failed", VEXO_AT, key.c_str());
			if (r == -1)
				tell(opts, key, rows[i], VEXO_DISK_DB_FAILED, nullptr, VLIBCErrGet());
			if (status && rows[i].statusIndex >= 0 && rows[i].statusIndex < VEXO_DISK_DB_STATUS_COUNT)
				status[rows[i].statusIndex] = -1;
			failed = true;
		}
		updated = updated || r == 1;
	}
	if (json_object_put(index.release()) != 1)
		vlog(LOG_ERR, "%s:%d Not actually Release the json object, it may occur memory leak.", VEXO_AT);
	if (failed) {
		vlog(LOG_ERR, "%s:%d Fail to update disk database 0x%X", VEXO_AT, static_cast<unsigned>(VLIBCErrGet()));
		return -1;
	}
	if (!updated || !timeFile || opts.decideOnly)
		return 0;
	ENTERCriticalSection;
	struct stat dir;
	if (sysroot::stat(kStateDir, &dir) != 0 && sysroot::mkdir(kStateDir, 0777) != 0) {
		int err = errno;
		vlog(LOG_ERR, "%s:%d Faild to mkdir %s, err:(%s).[0x%04X %s:%d]", VEXO_AT, kStateDir, std::strerror(err),
		     static_cast<unsigned>(VLIBCErrGet()), VEXO_AT);
	}
	const std::string time(timeFile);
	makeDirs(time.substr(0, time.rfind('/')), 0755);
	if (!writeWhole(time, std::to_string(static_cast<long long>(clock::wallSeconds())))) {
		vlog(LOG_ERR, "%s:%d Failed to write %s: %s", VEXO_AT, timeFile, std::strerror(errno));
		VEXO_ERR(VEXO_ERR_FOPEN);
		return -1;
	}
	return 0;
}

} // namespace vexo::dbupdate

extern "C" VEXO_API int VEXODiskDbDownload(const char *jsonPath, DiskOnlineDbInfo *rows, int rowCount,
					   const char *timeFile, int *status) try {
	return vexo::dbupdate::run(jsonPath, rows, rowCount, timeFile, status, {});
}
VEXO_C_CATCH(-1)
