// vexosim-serve: the update servers of a simulated appliance. A real HTTPS
// server on 127.0.0.1, with a CA and a certificate made for the appliance,
// serving files from the appliance's directory. `vexosim serve ROOT` runs it.
//
//   vexosim-serve ROOT [--docroot DIR]
//
// It keeps its state in ROOT/run/vexosim/:
//   ca.pem, ca.key, server.pem, server.key   made at the first start
//   serve.port    the port it listens on (written once it listens)
//   net.conf      the library's redirect file: the update servers' default
//                 hosts mapped to this server, and ca.pem as the CA bundle
//   serve.log     one line per request received: its path (tests count
//                 how often a server was asked)
//   serve.ctl     read at every request, to misbehave on purpose; lines of
//                 "PREFIX ACTION [ARG]", the first whose PREFIX starts the
//                 request path (or is "*") applies:
//                   404            answer 404 with a JSON error body
//                   stall SECONDS  wait, then answer as usual
//                   cut            announce the whole length, send half, close
//                   garbage        200 with bytes that are no document
//                 any other ACTION serves as usual (a line that shields a
//                 longer prefix from a later, shorter one)
//
// At start it publishes the database server's offer for the appliance
// (publish.h) under DIR/getSSDsInfo/v7, unless one stands there.
//
//   vexosim-serve --kit ROOT OUT [VERSION]   packs that offer as an offline
//                                            kit (`vexosim kit ROOT OUT`)
//
// Files come from DIR (default ROOT/srv/vexosim): the request path names a
// file; a path naming a directory gives <model>.json when the query has a
// model= that has a file, else index.json. Query strings are otherwise
// ignored. Missing files are 404 with a JSON error body.
#include <httplib.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include "cert.h"
#include "publish.h"
#include "frame/net.h"

namespace {

struct Action {
	std::string kind; // "", "404", "stall", "cut", "garbage"
	int seconds = 0;
};

std::string slurp(const std::string &path, bool &ok)
{
	std::ifstream in(path, std::ios::binary);
	ok = static_cast<bool>(in);
	return ok ? std::string(std::istreambuf_iterator<char>(in), {}) : std::string();
}

void spill(const std::string &path, const std::string &text)
{
	std::string tmp = path + ".tmp";
	{
		std::ofstream out(tmp, std::ios::trunc);
		out << text;
		if (!out.flush())
			throw std::runtime_error("cannot write " + tmp);
	}
	if (std::rename(tmp.c_str(), path.c_str()) != 0)
		throw std::runtime_error("cannot rename " + tmp);
}

void mkdirs(const std::string &path)
{
	for (size_t i = 1; i <= path.size(); ++i)
		if (i == path.size() || path[i] == '/')
			::mkdir(path.substr(0, i).c_str(), 0755);
}

Action actionFor(const std::string &ctlPath, const std::string &path)
{
	bool ok = false;
	std::istringstream in(slurp(ctlPath, ok));
	std::string line;
	while (std::getline(in, line)) {
		std::istringstream words(line);
		std::string prefix;
		Action a;
		if (!(words >> prefix >> a.kind) || prefix[0] == '#')
			continue;
		words >> a.seconds;
		if (prefix == "*" || path.rfind(prefix, 0) == 0)
			return a;
	}
	return {};
}

bool isDir(const std::string &p)
{
	struct stat st;
	return ::stat(p.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// The file a request names, or "" when it names none.
std::string fileFor(const std::string &docroot, const httplib::Request &req)
{
	const std::string &p = req.path;
	if (p.empty() || p[0] != '/' || p.find("/../") != std::string::npos ||
	    (p.size() >= 3 && p.compare(p.size() - 3, 3, "/..") == 0))
		return {};
	std::string f = docroot + p;
	if (!isDir(f))
		return f;
	if (req.has_param("model")) {
		std::string m = req.get_param_value("model");
		if (m.find('/') == std::string::npos && m != ".." && !m.empty()) {
			std::string byModel = f + "/" + m + ".json";
			if (::access(byModel.c_str(), R_OK) == 0)
				return byModel;
		}
	}
	return f + "/index.json";
}

const char *typeOf(const std::string &f)
{
	return f.size() > 5 && f.compare(f.size() - 5, 5, ".json") == 0 ? "application/json"
									 : "application/octet-stream";
}

void notFound(httplib::Response &res)
{
	res.status = 404;
	res.set_content("{\"success\":false,\"error\":{\"code\":404}}", "application/json");
}

int usage()
{
	std::fprintf(stderr, "usage: vexosim-serve ROOT [--docroot DIR]\n");
	return 2;
}

} // namespace

int main(int argc, char **argv)
{
	if (argc >= 4 && argc <= 5 && std::strcmp(argv[1], "--kit") == 0) {
		try {
			std::string self = argv[0], dir = self.substr(0, self.rfind('/') + 1);
			return vexosim::serve::buildKit(argv[2], argv[3], argc == 5 ? std::atoi(argv[4]) : 1,
							dir + "vexo-archive");
		} catch (const std::exception &e) {
			std::fprintf(stderr, "vexosim kit: %s\n", e.what());
			return 1;
		}
	}
	if (argc != 2 && !(argc == 4 && std::strcmp(argv[2], "--docroot") == 0))
		return usage();
	try {
		std::string root = argv[1];
		std::string state = root + "/run/vexosim";
		std::string docroot = argc == 4 ? argv[3] : root + "/srv/vexosim";
		mkdirs(state);
		mkdirs(docroot);
		vexosim::serve::ensureCertificates(state);
		std::string ctl = state + "/serve.ctl";
		try {
			std::string changed = vexosim::serve::publishDatabases(root, docroot);
			if (!changed.empty())
				std::fprintf(stderr, "vexosim-serve: newer compatibility database: %s\n", changed.c_str());
		} catch (const std::exception &e) {
			std::fprintf(stderr, "vexosim-serve: no database offer: %s\n", e.what());
		}

		httplib::SSLServer svr((state + "/server.pem").c_str(), (state + "/server.key").c_str());
		if (!svr.is_valid())
			throw std::runtime_error("cannot load the server certificate");
		std::mutex logMutex;
		svr.Get(".*", [&](const httplib::Request &req, httplib::Response &res) {
			{
				std::lock_guard<std::mutex> hold(logMutex);
				std::ofstream(state + "/serve.log", std::ios::app) << req.path << "\n";
			}
			Action act = actionFor(ctl, req.path);
			if (act.kind == "stall")
				std::this_thread::sleep_for(std::chrono::seconds(act.seconds));
			if (act.kind == "404")
				return notFound(res);
			std::string f = fileFor(docroot, req);
			bool ok = false;
			std::string body = f.empty() ? std::string() : slurp(f, ok);
			if (!ok)
				return notFound(res);
			if (act.kind == "garbage") {
				std::string junk(body.size() < 64 ? 64 : body.size(), '\0');
				unsigned x = 2463534242u;
				for (char &c : junk) {
					x ^= x << 13, x ^= x >> 17, x ^= x << 5;
					c = static_cast<char>(x);
				}
				res.set_content(junk, "application/octet-stream");
			} else if (act.kind == "cut") {
				auto shared = std::make_shared<std::string>(std::move(body));
				res.set_content_provider(shared->size(), typeOf(f),
							 [shared](size_t, size_t, httplib::DataSink &sink) {
								 sink.write(shared->data(), shared->size() / 2);
								 return false; // the connection ends here
							 });
			} else {
				res.set_content(body, typeOf(f));
			}
		});
		int port = svr.bind_to_any_port("127.0.0.1");
		if (port <= 0)
			throw std::runtime_error("cannot listen on 127.0.0.1");
		std::string base = "https://127.0.0.1:" + std::to_string(port);
		spill(state + "/net.conf", std::string("# written by vexosim serve\n") + "map " +
						   vexo::net::kDatabaseServer + " " + base + "\nmap " +
						   vexo::net::kDatabaseTestServer + " " + base + "\nmap " +
						   vexo::net::kFirmwareServer + " " + base + "\nca /run/vexosim/ca.pem\n");
		spill(state + "/serve.port", std::to_string(port) + "\n");
		std::fprintf(stderr, "vexosim-serve: %s serving %s\n", base.c_str(), docroot.c_str());
		return svr.listen_after_bind() ? 0 : 1;
	} catch (const std::exception &e) {
		std::fprintf(stderr, "vexosim-serve: %s\n", e.what());
		return 1;
	}
}
