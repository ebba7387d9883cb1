// A counting flag file: a decimal use count that vanishes at zero. It takes
// no lock and writes in place; callers that share one serialise themselves.
#include <cstdio>
#include <sys/stat.h>
#include <vexohw/frame.h>

#include "frame/err.h"
#include "frame/sysroot.h"
#include "frame/unique.h"

namespace {

int readCount(std::FILE *f)
{
	int count = 0;
	if (std::fscanf(f, "%d", &count) != 1) {
		vlog(LOG_ERR, "%s:%d get iCount error", VEXO_AT);
		count = 0;
	}
	return count;
}

} // namespace

extern "C" VEXO_API int VEXODiskUpdateCheckFile(const char *path, int increase)
try {
	if (!path) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	struct stat st;
	if (increase && vexo::sysroot::stat(path, &st) != 0) {
		if (VLIBCFileTouch(path) != 0) {
			vlog(LOG_ERR, "%s:%d Fail to touch %s", VEXO_AT, path);
			return -1;
		}
		vexo::UniqueFile out(vexo::sysroot::fopen(path, "w"));
		if (!out) {
			VEXO_ERR(VEXO_ERR_FOPEN);
			return -1;
		}
		std::fputc('1', out.get());
		return 0;
	}
	vexo::UniqueFile in(vexo::sysroot::fopen(path, "r"));
	if (!in) {
		VEXO_ERR(VEXO_ERR_FOPEN);
		return -1;
	}
	int count = readCount(in.get()) + (increase ? 1 : -1);
	if (!increase && count == 0) {
		in.reset();
		vexo::sysroot::unlink(path);
		return 0;
	}
	// Reopened for writing while the read stream is still open.
	vexo::UniqueFile out(vexo::sysroot::fopen(path, "w"));
	if (!out) {
		VEXO_ERR(VEXO_ERR_FOPEN);
		return -1;
	}
	std::fprintf(out.get(), "%d", count);
	return 0;
} VEXO_C_CATCH(-1)
