// VEXOSSDBundleSmartInfoGet: which attribute of a bundle drive carries a
// figure, from its model's "bundle_smart_attrs" text.
#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vexohw/ssd_bundle.h>

#include "frame/err.h"

namespace {

// One base-0 number filling `field` but for spaces around it.
bool number(const std::string &field, unsigned long long max, unsigned long long &out)
{
	const char *s = field.c_str();
	while (*s == ' ')
		++s;
	if (*s == '-' || *s == '\0')
		return false;
	char *end = nullptr;
	errno = 0;
	unsigned long long v = std::strtoull(s, &end, 0);
	while (*end == ' ')
		++end;
	if (errno || *end != '\0' || v > max)
		return false;
	out = v;
	return true;
}

} // namespace

extern "C" VEXO_API int VEXOSSDBundleSmartInfoGet(const char *info, int type, int *id, uint64_t *mask, int *shift)
try {
	if (!info || !id || !mask || !shift) {
		vlog(LOG_ERR, "%s:%d Bad parameters", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::string text(info);
	for (size_t at = 0; at <= text.size();) {
		size_t end = text.find(';', at);
		if (end == std::string::npos)
			end = text.size();
		std::string entry = text.substr(at, end - at);
		at = end + 1;
		if (entry.find_first_not_of(' ') == std::string::npos)
			continue; // an empty entry, as after a final ';'
		std::string f[4];
		const bool four = std::count(entry.begin(), entry.end(), ':') == 3;
		for (size_t k = 0, from = 0; four && k < 4; ++k) {
			size_t colon = k < 3 ? entry.find(':', from) : entry.size();
			f[k] = entry.substr(from, colon - from);
			from = colon + 1;
		}
		unsigned long long t = 0, i = 0, m = 0, sh = 0;
		if (!four || !number(f[0], 0xFFFF, t) ||
		    !number(f[1], 0xFFFF, i) || i == 0 || !number(f[2], UINT64_MAX, m) || !number(f[3], 63, sh)) {
			vlog(LOG_ERR, "%s:%d Bad bundle smart attribute [%s]", VEXO_AT, entry.c_str());
			VEXO_ERR(VEXO_ERR_NOT_FOUND);
			return -1;
		}
		if (static_cast<int>(t) != type)
			continue;
		*id = static_cast<int>(i);
		*mask = m;
		*shift = static_cast<int>(sh);
		return 0;
	}
	VEXO_ERR(VEXO_ERR_NOT_FOUND);
	return -1;
}
VEXO_C_CATCH(-1)
