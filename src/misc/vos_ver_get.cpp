#include <cstdio>
#include <vexoplatform/vexocore.h>

#include "frame/boundary.h"
#include "frame/err.h"
#include "misc/misc.h"

namespace {

constexpr const char *kVersionFile = "/etc.defaults/VERSION";

// A number that does not parse counts as 0 and is logged; the call still
// succeeds, as a half-written VERSION must not stop an update check.
unsigned parsed(const char *text, const char *what)
{
	unsigned v = 0;
	if (std::sscanf(text, "%u", &v) != 1) {
		vlog(LOG_ERR, "%s:%d Fail to get %s from %s", VEXO_AT, what, text);
		return 0;
	}
	return v;
}

} // namespace

extern "C" VEXO_API int VEXOVOSVerGet(unsigned int *base, unsigned int *nano) try {
	if (!base || !nano) {
		vlog(LOG_ERR, "%s:%d Invalid input", VEXO_AT);
		return -1;
	}
	char b[64] = {}, n[64] = {};
	if (VLIBCFileGetKeyValue(kVersionFile, "base", b, sizeof b, 0) <= 0) {
		vlog(LOG_ERR, "%s:%d Failed to get VOS base number", VEXO_AT);
		return -1;
	}
	if (VLIBCFileGetKeyValue(kVersionFile, "nano", n, sizeof n, 0) <= 0) {
		vlog(LOG_ERR, "%s:%d Failed to get VOS nano number", VEXO_AT);
		return -1;
	}
	*base = parsed(b, "build number");
	*nano = parsed(n, "nano");
	return 0;
}
VEXO_C_CATCH(-1)
