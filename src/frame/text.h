// Copying text into a caller's fixed buffer.
//
// copyText is the rule: the whole text and its NUL, or nothing (the buffer
// is left as it was and the result is false), so a caller never gets a
// serial number or a path cut short without being told. copyTextCut is for
// the few outputs whose cut is part of their contract; calling it says so.
#pragma once

#include <cstddef>
#include <string_view>

#include "frame/log.h"

namespace vexo {

// Copies src and a NUL into dst when they fit in `size` bytes. A NUL inside
// src ends the text, as it would for a C string.
bool copyText(char *dst, std::size_t size, std::string_view src) noexcept;
// The form for the C interface's int sizes: a size below 1 never fits.
inline bool copyText(char *dst, int size, std::string_view src) noexcept
{
	return size > 0 && copyText(dst, static_cast<std::size_t>(size), src);
}
template <std::size_t N>
bool copyText(char (&dst)[N], std::string_view src) noexcept
{
	return copyText(dst, N, src);
}

// copyText into an exported function's output. When the text does not fit,
// the output is left as it was, 0x0D00 is recorded and one line logged at
// the caller's place: "<what> needs <n> bytes, the buffer has <size>".
bool copyOutAt(char *dst, int size, std::string_view src, const char *what, const char *file, int line);
#define VEXO_COPY_OUT(dst, size, src, what) ::vexo::copyOutAt((dst), (size), (src), (what), VEXO_AT)

// Copies at most size-1 bytes of src (up to its first NUL) and a NUL, as
// snprintf(dst, size, "%s", src) would. Nothing is written when size is 0.
// The length copied.
std::size_t copyTextCut(char *dst, std::size_t size, std::string_view src) noexcept;
inline std::size_t copyTextCut(char *dst, int size, std::string_view src) noexcept
{
	return size > 0 ? copyTextCut(dst, static_cast<std::size_t>(size), src) : 0;
}
template <std::size_t N>
std::size_t copyTextCut(char (&dst)[N], std::string_view src) noexcept
{
	return copyTextCut(dst, N, src);
}

} // namespace vexo
