// String helpers.
#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <vexoplatform/vexocore.h>

#include "frame/err.h"

extern "C" {

VEXOP_API int VLIBCStrSnprintf(char *out, int size, const char *format, ...)
try {
	if (!out || size < 1 || !format) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	va_list ap;
	va_start(ap, format);
	int n = std::vsnprintf(out, static_cast<size_t>(size), format, ap);
	va_end(ap);
	if (n < 0 || n >= size) {
		// A cut text is never handed on as if it were whole.
		out[0] = '\0';
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	return n;
} VEXO_C_CATCH(-1)

VEXOP_API int VLIBCStrTrimSpace(char *text)
try {
	if (!text) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	size_t len = std::strlen(text);
	while (len && std::isspace(static_cast<unsigned char>(text[len - 1])))
		--len;
	size_t start = 0;
	while (start < len && std::isspace(static_cast<unsigned char>(text[start])))
		++start;
	std::memmove(text, text + start, len - start);
	text[len - start] = '\0';
	return 0;
} VEXO_C_CATCH(-1)

VEXOP_API int VLIBCStrCaseLower(char *text)
try {
	if (!text) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	for (char *p = text; *p; ++p)
		*p = static_cast<char>(std::tolower(static_cast<unsigned char>(*p)));
	return 0;
} VEXO_C_CATCH(-1)

VEXOP_API int VLIBCStrReplace(char *text, int size, const char *from, const char *to)
try {
	if (!text || size < 1 || !from || !*from || !to) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	size_t len = strnlen(text, static_cast<size_t>(size));
	if (len == static_cast<size_t>(size)) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM); // not a string within its buffer
		return -1;
	}
	char *at = std::strstr(text, from);
	if (!at)
		return 0;
	size_t fromLen = std::strlen(from), toLen = std::strlen(to);
	size_t newLen = len - fromLen + toLen;
	if (newLen + 1 > static_cast<size_t>(size)) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::memmove(at + toLen, at + fromLen, std::strlen(at + fromLen) + 1);
	std::memcpy(at, to, toLen);
	return 1;
} VEXO_C_CATCH(-1)

} // extern "C"
