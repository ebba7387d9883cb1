// Can the two update servers be reached, and how long did each take.
#include <chrono>
#include <string>
#include <vexohw/frame.h>
#include <vexohw/misc.h>
#include <vexoplatform/vexocore.h>

#include "cli.h"

using namespace vexo::cli;

namespace {

std::string info(const char *key)
{
	char buf[1024] = {};
	return VLIBCFileGetKeyValue("/etc.defaults/vexoinfo.conf", key, buf, sizeof buf, 0) > 0 ? buf : "";
}

// The database server's index address and the firmware server's query, as
// the appliance's settings name them.
std::string databaseUrl()
{
	std::string url = info("vexodisk_server_url");
	if (!url.empty())
		return url;
	return std::string(info("vexodisk_server") == "test" ? VEXO_DISK_TEST_SERVER_DEFAULT : VEXO_DISK_SERVER_DEFAULT) +
	       "/getSSDsInfo/v7";
}

std::string firmwareUrl()
{
	std::string base = info("firmware_server_url_base");
	return (base.empty() ? std::string(VEXO_FIRMWARE_SERVER_DEFAULT) : base) + "/ssd/v1/getUpdate";
}

Value probe(const char *name, const std::string &url, int insecure, bool &reachable)
{
	char *buf = nullptr;
	int size = 0;
	VLIBCErrClear();
	const auto start = std::chrono::steady_clock::now();
	int rc = VEXODiskMiscCurlToBuffer(url.c_str(), &buf, &size, insecure);
	long long ms = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start).count();
	int err = VLIBCErrGet();
	std::free(buf);
	Value r = Value::object();
	r.set("server", name);
	r.set("url", url);
	r.set("reachable", rc == 0);
	reachable = reachable && rc == 0;
	r.set("result", rc == 0 ? "reachable" : err == VEXO_ERR_NET ? "no network" : "failed");
	r.set("time_ms", ms);
	return r;
}

int serverCheck(Context &ctx)
{
	int fwInsecure = ctx.has("insecure") || info("firmware_download_ignore_verification") == "yes";
	Value rows = Value::list();
	bool reachable = true;
	rows.push(probe("database", databaseUrl(), ctx.has("insecure") ? 1 : 0, reachable));
	rows.push(probe("firmware", firmwareUrl(), fwInsecure, reachable));
	printTable(ctx, rows,
		   {{"server", "SERVER"}, {"result", "RESULT"}, {"time_ms", "TIME(ms)"}, {"url", "URL"}});
	return reachable ? 0 : 1;
}

VEXO_CLI_COMMAND("server check", "[--insecure]", "can the database and firmware servers be reached, and how fast",
		 serverCheck, {});

} // namespace
