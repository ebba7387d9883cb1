// The host path of an appliance path, for tools that look at the root.
#include <cstring>
#include <string>

#include <vexohw/ext.h>

#include "frame/boundary.h"
#include "frame/err.h"
#include "frame/sysroot.h"

extern "C" VEXO_API int VEXOExtSysrootPath(const char *path, char *out, int size) try {
	if (!path || path[0] != '/' || !out || size <= 0) {
		vlog(LOG_ERR, "%s:%d Bad parameters", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	const std::string host = vexo::sysroot::path(path);
	if (host.size() >= static_cast<size_t>(size)) {
		vlog(LOG_ERR, "%s:%d %s does not fit in %d bytes", VEXO_AT, host.c_str(), size);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::memcpy(out, host.c_str(), host.size() + 1);
	return 0;
} VEXO_C_CATCH(-1)
