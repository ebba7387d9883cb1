// Installing one database file: a checked copy beside the target, a backup
// of the installed one, then the new file renamed into place whole.
#include <cerrno>
#include <cstring>
#include <json-c/json.h>
#include <string>
#include <sys/stat.h>
#include <vexohw/misc.h>

#include "disk/dbupdate.h"
#include "frame/boundary.h"
#include "frame/err.h"
#include "frame/jsonc.h"
#include "frame/priv.h"
#include "frame/sysroot.h"

namespace {

bool exists(const std::string &path)
{
	struct stat st;
	return vexo::sysroot::stat(path.c_str(), &st) == 0;
}

} // namespace

extern "C" VEXO_API int VEXOIsValidDbWithModel(const char *path) try {
	if (!path) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return 0;
	}
	vexo::jsonc::Value db = vexo::jsonc::readFile(path);
	if (!db) {
		vlog(LOG_ERR, "%s:%d Failed to load Compatibility database %s", VEXO_AT, path);
		return 0;
	}
	auto nas = vexo::jsonc::string(db.get(), "nas_model");
	if (!nas) {
		vlog(LOG_ERR, "%s:%d Failed to find nas host attr on %s", VEXO_AT, path);
		return 0;
	}
	std::string model;
	if (!vexo::dbupdate::model(model))
		return 0;
	if (*nas != model) {
		vlog(LOG_ERR, "%s:%d Invalid host name %s on db %s", VEXO_AT, std::string(*nas).c_str(), path);
		return 0;
	}
	return 1;
}
VEXO_C_CATCH(0)

extern "C" VEXO_API int VEXODiskDbApply(const char *source, const char *target, int copyToTmp, const char *md5,
					int checkModel) try {
	if (!source || !target || !*target) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	using vexo::dbupdate::copyWhole;
	const std::string to(target), bak = to + ".bak", fresh = to + ".new";
	ENTERCriticalSection;
	vexo::dbupdate::makeDirs(to.substr(0, to.rfind('/')), 0755);
	if (!copyWhole(source, fresh, 0644)) {
		vlog(LOG_ERR, "%s:%d Failed to copy %s to %s: %s", VEXO_AT, source, fresh.c_str(), std::strerror(errno));
		VEXO_ERR(VEXO_ERR_NOT_FOUND);
		return -1;
	}
	if (!md5 || VEXOHWCTLMiscFileMD5sumMatch(fresh.c_str(), md5) != 1) {
		vlog(LOG_ERR, "%s:%d Fail to check MD5", VEXO_AT);
		return -1;
	}
	if (checkModel && !VEXOIsValidDbWithModel(fresh.c_str()))
		return -1;
	// The backup is whole too: a crash while it is written leaves the
	// previous backup, never a torn one beside a good target.
	if (exists(to) && !copyWhole(to, bak)) {
		vlog(LOG_ERR, "%s:%d Failed to back up %s: %s", VEXO_AT, target, std::strerror(errno));
		VEXO_ERR(VEXO_ERR_NOT_FOUND);
		return -1;
	}
	if (!copyWhole(fresh, to)) {
		vlog(LOG_ERR, "%s:%d Failed to install %s: %s", VEXO_AT, target, std::strerror(errno));
		VEXO_ERR(VEXO_ERR_NOT_FOUND);
		return -1;
	}
	if (copyToTmp) {
		std::string tmp = "/tmp/" + to.substr(to.rfind('/') + 1);
		if (!copyWhole(to, tmp)) {
			vlog(LOG_ERR, "%s:%d Failed to copy %s to /tmp: %s", VEXO_AT, target, std::strerror(errno));
			VEXO_ERR(VEXO_ERR_NOT_FOUND);
			return -1;
		}
	}
	return 0;
}
VEXO_C_CATCH(-1)
