#include <cstring>
#include <memory>
#include <vexoplatform/vexoarchive.h>

#include "frame/boundary.h"
#include "frame/err.h"
#include "misc/misc.h"

extern "C" VEXO_API int VEXOPackageSAExtract(const char *archive, char *out, int outSize) try {
	if (!archive || !out || outSize < 1) {
		vlog(LOG_ERR, "%s:%d Bad parameters", VEXO_AT);
		return -1;
	}
	// Opened only, to verify it and learn its name: no working directory.
	std::unique_ptr<VEXOARCHIVE, void (*)(VEXOARCHIVE *)> reader(vexoarchive_init(""), &vexoarchive_free);
	if (!reader) {
		vlog(LOG_ERR, "%s:%d Failed to init vexoarchive", VEXO_AT);
		return -1;
	}
	if (vexoarchive_open_with_keytype(reader.get(), archive, VEXOARCHIVE_KEY_PACKAGE) != 0) {
		vlog(LOG_ERR, "%s:%d vexoarchive file: %s open failed, return code: %d", VEXO_AT, archive,
		     reader->returnCode);
		return -1;
	}
	size_t len = std::strlen(reader->fileName);
	if (len >= static_cast<size_t>(outSize)) {
		vlog(LOG_ERR, "%s:%d Bad parameters", VEXO_AT);
		return -1;
	}
	std::memcpy(out, reader->fileName, len + 1);
	return 0;
}
VEXO_C_CATCH(-1)
