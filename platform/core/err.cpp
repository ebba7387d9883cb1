// The error record: one current code and place per thread.
#include <vexoplatform/vexocore.h>
#include "frame/boundary.h"

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
try {
	// Places are compile-time strings, so keeping the pointer is safe.
	tRecord = {code, file, line};
} VEXO_C_CATCH_VOID

VEXOP_API int VLIBCErrGet(void) try { return tRecord.code; } VEXO_C_CATCH(0)
VEXOP_API const char *VLIBCErrFileGet(void) try { return tRecord.file ? tRecord.file : ""; } VEXO_C_CATCH("")
VEXOP_API int VLIBCErrLineGet(void) try { return tRecord.line; } VEXO_C_CATCH(0)
VEXOP_API void VLIBCErrClear(void) try { tRecord = {}; } VEXO_C_CATCH_VOID

} // extern "C"
