// The error record: one current code and place per thread.
#include <vexoplatform/vexocore.h>

namespace {

struct ErrorRecord {
	int code = 0;
	const char *file = nullptr;
	int line = 0;
};

thread_local ErrorRecord tRecord;

} // namespace

extern "C" {

VEXOP_API void VLIBCErrSetEx(int code, const char *file, int line)
{
	// Places are compile-time strings, so keeping the pointer is safe.
	tRecord = {code, file, line};
}

VEXOP_API int VLIBCErrGet(void) { return tRecord.code; }
VEXOP_API const char *VLIBCErrFileGet(void) { return tRecord.file ? tRecord.file : ""; }
VEXOP_API int VLIBCErrLineGet(void) { return tRecord.line; }
VEXOP_API void VLIBCErrClear(void) { tRecord = {}; }

} // extern "C"
