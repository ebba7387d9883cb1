// The network seam. Every HTTP(S) transfer of the library goes through
// vexo::net::transfer, one function over libcurl, so that the servers can be
// swapped for a local one without the families knowing.
//
// Redirection, read on every transfer:
//   - VEXO_NET_CONF (secure_getenv) names a redirect file by its host path.
//   - Without it, and only when VEXO_SYSROOT is set (a simulated appliance),
//     the appliance file /run/vexosim/net.conf under the root is used when
//     it exists; `vexosim serve` writes it there.
//   - On a real root without VEXO_NET_CONF nothing is redirected.
//
// The redirect file has one directive per line ('#' starts a comment):
//   map FROM TO    a URL that begins with FROM (followed by '/', '?', ':'
//                  or its end) is sent to TO followed by the rest of it
//   ca PATH        the CA bundle that verifies the peers (an appliance path,
//                  composed under the sysroot), instead of the system's
#pragma once
#include <cstddef>
#include <curl/curl.h>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace vexo::net {

// The default hosts of the two update servers, used when the appliance's
// configuration names none. These are the names the redirect file maps.
inline constexpr const char *kDatabaseServer = "https://dbupdate.vexo.example";
inline constexpr const char *kDatabaseTestServer = "http://dbupdate-test.vexo.example";
inline constexpr const char *kFirmwareServer = "https://fwupdate.vexo.example";

struct Request {
	std::string url;
	std::vector<std::string> headers;
	long connectTimeoutS = 10;
	bool followRedirects = true;
	bool insecure = false; // peer and host verification off
	long stallTimeoutS = 0; // > 0: give up when no byte came for this long
};

// Where a transfer stopped: building the header list, setting the common
// options, handing over the body sink, or performing it.
enum class Stage { Headers, Options, Sink, Perform, Done };

struct Outcome {
	Stage stage = Stage::Done;
	CURLcode code = CURLE_OK;
	long httpStatus = 0;
	bool ok() const { return stage == Stage::Done && code == CURLE_OK; }
	// Proxy or host not resolved, or timed out: the server cannot be reached.
	bool unreachable() const
	{
		return code == CURLE_COULDNT_RESOLVE_PROXY || code == CURLE_COULDNT_RESOLVE_HOST ||
		       code == CURLE_OPERATION_TIMEDOUT;
	}
};

// Receives the body piece by piece; false ends the transfer (a write error).
using Sink = std::function<bool(const char *data, std::size_t size)>;

// Performs one GET. The options are set in this order: URL, no progress
// meter, HTTP GET, headers, connect timeout, redirects, then TLS
// verification and the redirect file's CA bundle. No total timeout.
Outcome transfer(const Request &req, const Sink &sink);

// The URL as it will be sent (after the redirect file's maps).
std::string effectiveUrl(std::string_view url);

// The CA bundle in force: a host path, or "" for the system's.
std::string caBundle();

} // namespace vexo::net
