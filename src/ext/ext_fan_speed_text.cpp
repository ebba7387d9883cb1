// The display text of a fan speed code, for tools that show fan tables.
#include <vexohw/ext.h>

#include "fan/fan_private.h"
#include "frame/err.h"
#include "frame/text.h"

extern "C" VEXO_API int VEXOExtFanSpeedText(unsigned int code, char *out, int size) try {
	if (!out || !vexo::copyText(out, size, vexo::fan::speedText(code))) {
		vlog(LOG_ERR, "%s:%d Bad parameters", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	return 0;
} VEXO_C_CATCH(-1)
