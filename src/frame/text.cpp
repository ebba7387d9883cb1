#include "frame/text.h"

#include <cstring>

#include "frame/err.h"

namespace vexo {

namespace {

std::string_view untilNul(std::string_view s)
{
	std::size_t nul = s.find('\0');
	return nul == std::string_view::npos ? s : s.substr(0, nul);
}

} // namespace

bool copyText(char *dst, std::size_t size, std::string_view src) noexcept
{
	src = untilNul(src);
	if (!dst || src.size() >= size)
		return false;
	if (!src.empty()) // an empty view may have no data at all
		std::memcpy(dst, src.data(), src.size());
	dst[src.size()] = '\0';
	return true;
}

bool copyOutAt(char *dst, int size, std::string_view src, const char *what, const char *file, int line)
{
	if (copyText(dst, size, src))
		return true;
	VLIBCErrSetEx(VEXO_ERR_BAD_PARAM, file, line);
	vlog(LOG_ERR, "%s:%d The %s needs %zu bytes, the buffer has %d", file, line, what, untilNul(src).size() + 1,
	     size);
	return false;
}

std::size_t copyTextCut(char *dst, std::size_t size, std::string_view src) noexcept
{
	if (!dst || size == 0)
		return 0;
	src = untilNul(src);
	std::size_t n = src.size() < size ? src.size() : size - 1;
	if (n)
		std::memcpy(dst, src.data(), n);
	dst[n] = '\0';
	return n;
}

} // namespace vexo
