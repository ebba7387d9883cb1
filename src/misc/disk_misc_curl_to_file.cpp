#include <cstdio>
#include <memory>

#include "frame/boundary.h"
#include "frame/err.h"
#include "frame/sysroot.h"
#include "misc/misc.h"

extern "C" VEXO_API int VEXODiskMiscCurlToFile(const char *url, const char *path, int insecure) try {
	if (!url || !path)
		return -1;
	// Truncated here: whatever follows, an earlier file at this path is gone.
	std::unique_ptr<FILE, int (*)(FILE *)> f(vexo::sysroot::fopen(path, "w"), &std::fclose);
	if (!f) {
		vlog(LOG_ERR, "%s:%d Failed to open file %s", VEXO_AT, path);
		return -1;
	}
	FILE *fp = f.get();
	vexo::net::Outcome out = vexo::misc::curlTransfer(
		url, insecure, [fp](const char *data, size_t n) { return std::fwrite(data, 1, n, fp) == n; });
	if (out.stage == vexo::net::Stage::Headers || out.stage == vexo::net::Stage::Options ||
	    out.stage == vexo::net::Stage::Sink)
		return -1;
	// What arrived stays in the file on failure; removing it is the caller's call.
	int closed = std::fclose(f.release());
	if (!out.ok()) {
		if (out.unreachable())
			VEXO_ERR(VEXO_ERR_NET);
		else
			vlog(LOG_ERR, "%s:%d Failed to curl url %s", VEXO_AT, url);
		return -1;
	}
	if (closed != 0) {
		VEXO_ERR(VEXO_ERR_WRITE);
		vlog(LOG_ERR, "%s:%d Failed to write file %s", VEXO_AT, path);
		return -1;
	}
	return 0;
}
VEXO_C_CATCH(-1)
