#include <cerrno>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <vexoplatform/vexoarchive.h>

#include "frame/boundary.h"
#include "frame/err.h"
#include "frame/sysroot.h"
#include "misc/misc.h"

namespace {

// mkdir -p over an appliance path. 0, or -errno.
int mkdirP(const std::string &path, mode_t mode)
{
	for (size_t i = 1; i <= path.size(); ++i) {
		if (i != path.size() && path[i] != '/')
			continue;
		std::string part = path.substr(0, i);
		if (vexo::sysroot::mkdir(part.c_str(), mode) != 0 && errno != EEXIST)
			return -errno;
	}
	struct stat st;
	if (vexo::sysroot::stat(path.c_str(), &st) != 0)
		return -errno;
	return S_ISDIR(st.st_mode) ? 0 : -ENOTDIR;
}

struct ArchiveFree {
	void operator()(VEXOARCHIVE *a) const { vexoarchive_free(a); }
};

} // namespace

extern "C" VEXO_API int VEXOFirmSAExtract(const char *archive, const char *directory) try {
	if (!archive || !directory || !*directory) {
		vlog(LOG_ERR, "%s:%d Invalid Input", VEXO_AT);
		return -1;
	}
	if (int r = mkdirP(directory, 0744); r < 0) {
		vlog(LOG_ERR, "%s:%d Failed to create %s: %d", VEXO_AT, directory, r);
		return -1;
	}
	struct stat st;
	if (vexo::sysroot::stat(archive, &st) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to get the size of target file %s", VEXO_AT, archive);
		return -1;
	}
	if (int r = vexo::misc::fsSizeCheck(static_cast<unsigned long>(st.st_size), directory); r != 0)
		return r == -2 ? -2 : -1;
	std::unique_ptr<VEXOARCHIVE, ArchiveFree> reader(vexoarchive_init(directory));
	if (!reader) {
		vlog(LOG_ERR, "%s:%d Failed to init vexoarchive", VEXO_AT);
		return -1;
	}
	if (vexoarchive_open_with_keytype(reader.get(), archive, VEXOARCHIVE_KEY_FIRMWARE) != 0) {
		vlog(LOG_ERR, "%s:%d vexoarchive file: %s open failed, return code: %d", VEXO_AT, archive,
		     reader->returnCode);
		return -1;
	}
	if (vexoarchive_extract_multiple(reader.get(), 0, VEXOARCHIVE_KEY_FIRMWARE) != 0) {
		vlog(LOG_ERR, "%s:%d vexoarchive file: %s extract failed, return code: %d", VEXO_AT, archive,
		     reader->returnCode);
		return -1;
	}
	return 0;
}
VEXO_C_CATCH(-1)
