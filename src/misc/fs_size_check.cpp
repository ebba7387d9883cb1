#include <cerrno>
#include <string>
#include <sys/statvfs.h>

#include "frame/boundary.h"
#include "frame/err.h"
#include "frame/sysroot.h"
#include "misc/misc.h"

namespace {

// Available bytes of the file system holding the appliance path, or of its
// nearest existing parent when the path is a file yet to be written.
// -1 when none can be asked.
long long availBytes(std::string p)
{
	while (!p.empty()) {
		struct statvfs vfs;
		if (::statvfs(vexo::sysroot::path(p).c_str(), &vfs) == 0)
			return static_cast<long long>(vfs.f_bavail) * static_cast<long long>(vfs.f_frsize);
		if (errno != ENOENT && errno != ENOTDIR)
			return -1;
		while (p.size() > 1 && p.back() == '/')
			p.pop_back();
		size_t slash = p.rfind('/');
		if (slash == std::string::npos || p == "/")
			return -1;
		p = slash == 0 ? "/" : p.substr(0, slash);
	}
	return -1;
}

} // namespace

namespace vexo::misc {

int fsSizeCheck(unsigned long needed, const char *path)
{
	long long avail = availBytes(path);
	if (avail < 0) {
		vlog(LOG_ERR, "%s:%d Failed to get the size of file system %s", VEXO_AT, path);
		return -1;
	}
	if (static_cast<unsigned long long>(avail) < needed) {
		vlog(LOG_ERR, "%s:%d There's no enough space(%lu) in %s", VEXO_AT, needed, path);
		return -2;
	}
	return 0;
}

} // namespace vexo::misc

extern "C" VEXO_API int VEXOFsSizeCheck(unsigned long needed, const char *path) try {
	if (!path || !*path) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	return vexo::misc::fsSizeCheck(needed, path) == 0 ? 0 : -1;
}
VEXO_C_CATCH(-1)
