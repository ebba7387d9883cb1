// The status words and the regular-expression match the lookups share.
#include <cstring>
#include <regex.h>
#include <vexohw/compat.h>

#include "disk/compat_db.h"
#include "frame/err.h"
#include "frame/text.h"

extern "C" {

VEXO_API int VEXODiskConfigMatch(const char *text, const char *pattern, int compileFlags, int execFlags,
				 int wholeString)
try {
	if (!text || !pattern)
		return 0;
	regex_t re;
	if (regcomp(&re, pattern, compileFlags) != 0)
		return 0;
	regmatch_t m[1];
	int rc = regexec(&re, text, 1, m, execFlags);
	regfree(&re);
	if (rc != 0)
		return 0;
	if (!wholeString)
		return 1;
	return m[0].rm_so == 0 && static_cast<std::size_t>(m[0].rm_eo) == std::strlen(text) ? 1 : 0;
} VEXO_C_CATCH(0)

VEXO_API int VEXODiskCompatibilityStatusTransfer(int status, char *out, int outSize)
try {
	if (!out || outSize < 0) {
		vlog(LOG_ERR, "%s:%d Invalid arguments", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	vexo::copyTextCut(out, outSize, vexo::compat::statusString(status));
	return 0;
} VEXO_C_CATCH(-1)

VEXO_API int VEXODiskCompatibilityStringTransfer(const char *string)
try {
	return vexo::compat::statusOf(string);
} VEXO_C_CATCH(0)

} // extern "C"
