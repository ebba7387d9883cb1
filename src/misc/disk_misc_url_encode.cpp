#include <curl/curl.h>
#include <memory>

#include "frame/boundary.h"
#include "frame/err.h"
#include "misc/misc.h"

namespace vexo::misc {

bool urlEncode(std::string_view text, std::string &out)
{
	std::unique_ptr<char, void (*)(void *)> esc(
		curl_easy_escape(nullptr, text.data(), static_cast<int>(text.size())), &curl_free);
	if (!esc)
		return false;
	out = esc.get();
	return true;
}

} // namespace vexo::misc

extern "C" VEXO_API int VEXODiskMiscUrlEncode(const char *text, char *out, int outSize) try {
	if (!text || !out || outSize < 1)
		return -1;
	std::string enc;
	if (!vexo::misc::urlEncode(text, enc)) {
		vlog(LOG_ERR, "%s:%d Fail to encode %s", VEXO_AT, text);
		return -1;
	}
	if (enc.size() >= static_cast<size_t>(outSize)) {
		vlog(LOG_ERR, "%s:%d Failed to store %s", VEXO_AT, text);
		return -1;
	}
	enc.copy(out, enc.size());
	out[enc.size()] = '\0';
	return 0;
}
VEXO_C_CATCH(-1)
