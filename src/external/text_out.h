// Writing a text into a caller's buffer (not exported).
#pragma once

#include <vexoplatform/vexocore.h>

#include "frame/err.h"

// 0, or -1 with 0x0D00 when the text does not fit: a cut device path would
// name another device.
#define VEXO_PUT_TEXT(out, size, ...) \
	(VLIBCStrSnprintf((out), (size), __VA_ARGS__) < 0 ? (VEXO_ERR(VEXO_ERR_BAD_PARAM), -1) : 0)
