#include "misc/misc.h"

#include <curl/curl.h>

#include "frame/err.h"

namespace vexo::misc {

net::Outcome curlTransfer(const char *url, int insecure, const net::Sink &sink)
{
	net::Request req;
	req.url = url;
	req.headers = {"Accept: application/json", "Content-Type: application/json"};
	req.connectTimeoutS = 10;
	req.followRedirects = true;
	req.insecure = insecure != 0;
	net::Outcome out = net::transfer(req, sink);
	switch (out.stage) {
	case net::Stage::Headers:
		vlog(LOG_ERR, "%s:%d Failed to set headers", VEXO_AT);
		vlog(LOG_ERR, "%s:%d Failed to get common setting", VEXO_AT);
		break;
	case net::Stage::Options:
		vlog(LOG_ERR, "%s:%d Failed to set url. code=%d, err=%s", VEXO_AT, static_cast<int>(out.code),
		     curl_easy_strerror(out.code));
		vlog(LOG_ERR, "%s:%d Failed to get common setting", VEXO_AT);
		break;
	case net::Stage::Sink:
		vlog(LOG_ERR, "%s:%d Failed to set write data", VEXO_AT);
		break;
	default:
		break;
	}
	return out;
}

} // namespace vexo::misc
