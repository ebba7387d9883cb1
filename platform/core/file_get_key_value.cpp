// Key-value file readers.
#include <algorithm>
#include <cstring>
#include <vexoplatform/vexocore.h>

#include "frame/err.h"
#include "text_file.h"

namespace vexo::core {

int findValue(const char *file, const char *key, std::string &value)
{
	std::vector<std::string> lines;
	if (!readLines(file, lines)) {
		VEXO_ERR_PASS();
		return -1;
	}
	for (const auto &line : lines) {
		std::string_view k, v;
		if (parsePair(line, k, v) && k == key) {
			value.assign(v);
			return 1;
		}
	}
	return 0;
}

int copyOut(std::string_view value, char *out, int size)
{
	size_t n = std::min(value.size(), static_cast<size_t>(size - 1));
	std::memcpy(out, value.data(), n);
	out[n] = '\0';
	return static_cast<int>(n);
}

} // namespace vexo::core

extern "C" {

VEXOP_API int VLIBCFileGetKeyValue(const char *file, const char *key, char *out, int size, int flags)
{
	if (!file || !key || !*key || !out || size < 1 || flags != 0) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::string value;
	int found = vexo::core::findValue(file, key, value);
	if (found < 0) {
		VEXO_ERR_PASS();
		return -1;
	}
	if (found == 0) {
		// Not a failure, but callers log the code when they give up.
		VEXO_ERR(VEXO_ERR_NOT_FOUND);
		out[0] = '\0';
		return 0;
	}
	return vexo::core::copyOut(value, out, size);
}

VEXOP_API int VLIBCFileGetKeyValueAll(const char *file, PVLIBSZHASH *pHash)
{
	if (!file || !pHash) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::vector<std::string> lines;
	if (!vexo::core::readLines(file, lines)) {
		VEXO_ERR_PASS();
		return -1;
	}
	if (!*pHash && !(*pHash = VLIBCSzHashAlloc(16))) {
		VEXO_ERR_PASS();
		return -1;
	}
	VLIBCSzHashClear(*pHash);
	for (const auto &line : lines) {
		std::string_view k, v;
		if (!vexo::core::parsePair(line, k, v))
			continue;
		std::string key(k);
		// The first line that names a key wins, as for single reads.
		if (VLIBCSzHashGetValue(*pHash, key.c_str()))
			continue;
		if (VLIBCSzHashSetValue(pHash, key.c_str(), std::string(v).c_str()) < 0) {
			VEXO_ERR_PASS();
			return -1;
		}
	}
	return (*pHash)->nItem;
}

} // extern "C"
