#include "frame/net.h"

#include <cstdlib>
#include <fstream>
#include <memory>
#include <sstream>

#include "frame/sysroot.h"

namespace vexo::net {
namespace {

struct Redirects {
	std::vector<std::pair<std::string, std::string>> maps;
	std::string ca; // host path
};

std::string confPath()
{
	if (const char *e = ::secure_getenv("VEXO_NET_CONF"); e && *e)
		return e;
	if (sysroot::root().empty())
		return {};
	return sysroot::path("/run/vexosim/net.conf");
}

Redirects load()
{
	Redirects r;
	std::string path = confPath();
	if (path.empty())
		return r;
	std::ifstream in(path);
	std::string line;
	while (std::getline(in, line)) {
		if (auto hash = line.find('#'); hash != std::string::npos)
			line.erase(hash);
		std::istringstream words(line);
		std::string kind, a, b;
		words >> kind >> a >> b;
		if (kind == "map" && !a.empty() && !b.empty())
			r.maps.emplace_back(a, b);
		else if (kind == "ca" && !a.empty())
			r.ca = a[0] == '/' ? sysroot::path(a) : a;
	}
	return r;
}

std::string rewrite(const Redirects &r, std::string_view url)
{
	for (const auto &[from, to] : r.maps) {
		if (url.substr(0, from.size()) != from)
			continue;
		std::string_view rest = url.substr(from.size());
		if (rest.empty() || rest[0] == '/' || rest[0] == '?' || rest[0] == ':')
			return to + std::string(rest);
	}
	return std::string(url);
}

struct CurlFree {
	void operator()(CURL *c) const { curl_easy_cleanup(c); }
	void operator()(curl_slist *l) const { curl_slist_free_all(l); }
};

size_t onBody(char *data, size_t size, size_t n, void *user)
{
	const Sink &sink = *static_cast<const Sink *>(user);
	size_t bytes = size * n;
	return sink(data, bytes) ? bytes : 0;
}

} // namespace

std::string effectiveUrl(std::string_view url) { return rewrite(load(), url); }

std::string caBundle() { return load().ca; }

Outcome transfer(const Request &req, const Sink &sink)
{
	Outcome out;
	Redirects r = load();
	std::string url = rewrite(r, req.url);

	std::unique_ptr<curl_slist, CurlFree> headers;
	for (const auto &h : req.headers) {
		curl_slist *l = curl_slist_append(headers.get(), h.c_str());
		if (!l) {
			out.stage = Stage::Headers;
			out.code = CURLE_OUT_OF_MEMORY;
			return out;
		}
		(void)headers.release();
		headers.reset(l);
	}
	std::unique_ptr<CURL, CurlFree> curl(curl_easy_init());
	if (!curl) {
		out.stage = Stage::Options;
		out.code = CURLE_FAILED_INIT;
		return out;
	}
	CURL *c = curl.get();
	CURLcode rc = CURLE_OK;
	auto set = [&](auto &&...apply) { ((rc == CURLE_OK ? (rc = apply()) : rc), ...); };
	set([&] { return curl_easy_setopt(c, CURLOPT_URL, url.c_str()); },
	    [&] { return curl_easy_setopt(c, CURLOPT_NOPROGRESS, 1L); },
	    [&] { return curl_easy_setopt(c, CURLOPT_HTTPGET, 1L); },
	    [&] { return curl_easy_setopt(c, CURLOPT_HTTPHEADER, headers.get()); },
	    [&] { return curl_easy_setopt(c, CURLOPT_CONNECTTIMEOUT, req.connectTimeoutS); },
	    [&] { return curl_easy_setopt(c, CURLOPT_FOLLOWLOCATION, req.followRedirects ? 1L : 0L); },
	    [&] { return curl_easy_setopt(c, CURLOPT_NOSIGNAL, 1L); });
	if (rc == CURLE_OK && req.insecure)
		set([&] { return curl_easy_setopt(c, CURLOPT_SSL_VERIFYPEER, 0L); },
		    [&] { return curl_easy_setopt(c, CURLOPT_SSL_VERIFYHOST, 0L); });
	if (rc == CURLE_OK && req.stallTimeoutS > 0)
		set([&] { return curl_easy_setopt(c, CURLOPT_LOW_SPEED_LIMIT, 1L); },
		    [&] { return curl_easy_setopt(c, CURLOPT_LOW_SPEED_TIME, req.stallTimeoutS); });
	if (rc == CURLE_OK && !r.ca.empty())
		set([&] { return curl_easy_setopt(c, CURLOPT_CAINFO, r.ca.c_str()); });
	if (rc != CURLE_OK) {
		out.stage = Stage::Options;
		out.code = rc;
		return out;
	}
	set([&] { return curl_easy_setopt(c, CURLOPT_WRITEFUNCTION, onBody); },
	    [&] { return curl_easy_setopt(c, CURLOPT_WRITEDATA, static_cast<const void *>(&sink)); });
	if (rc != CURLE_OK) {
		out.stage = Stage::Sink;
		out.code = rc;
		return out;
	}
	rc = curl_easy_perform(c);
	curl_easy_getinfo(c, CURLINFO_RESPONSE_CODE, &out.httpStatus);
	if (rc != CURLE_OK) {
		out.stage = Stage::Perform;
		out.code = rc;
	}
	return out;
}

} // namespace vexo::net
