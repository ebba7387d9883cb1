#include <cstdlib>
#include <cstring>

#include "frame/boundary.h"
#include "frame/err.h"
#include "misc/misc.h"

extern "C" VEXO_API int VEXODiskMiscCurlToBuffer(const char *url, char **buffer, int *size, int insecure) try {
	if (!url || !buffer || !size || *size < 0)
		return -1;
	// Grows the caller's allocation in place so that nothing is copied
	// twice; the caller's pointer follows only on success.
	char *data = *buffer;
	size_t len = data && *size > 0 ? std::strlen(data) : 0;
	bool grew = false;
	vexo::net::Outcome out = vexo::misc::curlTransfer(url, insecure, [&](const char *in, size_t n) {
		if (len + n + 1 > static_cast<size_t>(INT32_MAX)) {
			vlog(LOG_ERR, "%s:%d not enough memory (realloc returned NULL)", VEXO_AT);
			return false;
		}
		char *p = static_cast<char *>(std::realloc(data, len + n + 1));
		if (!p) {
			vlog(LOG_ERR, "%s:%d not enough memory (realloc returned NULL)", VEXO_AT);
			return false;
		}
		data = p;
		grew = true;
		std::memcpy(data + len, in, n);
		len += n;
		data[len] = '\0';
		return true;
	});
	if (grew && data != *buffer)
		*buffer = data; // the old pointer may be stale now; the caller frees this one
	if (!out.ok()) {
		if (out.stage != vexo::net::Stage::Perform)
			return -1;
		if (out.unreachable())
			VEXO_ERR(VEXO_ERR_NET);
		else
			vlog(LOG_ERR, "%s:%d Failed to curl url: %s, err=%d", VEXO_AT, url, static_cast<int>(out.code));
		return -1;
	}
	if (!data) { // an empty body still gives the caller a text
		data = static_cast<char *>(std::calloc(1, 1));
		if (!data) {
			VEXO_ERR(VEXO_ERR_NOMEM);
			return -1;
		}
	}
	*buffer = data;
	*size = static_cast<int>(len + 1);
	return 0;
}
VEXO_C_CATCH(-1)
