// Handing a probe's text to the caller (not exported).
#pragma once

#include <cstring>
#include <string_view>

#include "frame/err.h"

namespace vexo::disk {

// Copies text into out (size bytes) whole. A text that does not fit leaves
// out untouched and records 0x0D00: a cut serial or node name would name
// another disk.
inline int putWhole(char *out, int size, std::string_view text)
{
	if (!out || size <= 0 || text.size() >= static_cast<std::size_t>(size)) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::memcpy(out, text.data(), text.size());
	out[text.size()] = '\0';
	return 0;
}

} // namespace vexo::disk
