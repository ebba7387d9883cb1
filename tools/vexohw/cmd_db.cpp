// The drive databases: what is installed and what the server offers, and
// an update from the server or from an offline kit.
#include <cstdio>
#include <ctime>
#include <string>
#include <unistd.h>
#include <vexohw/dbupdate.h>
#include <vexohw/frame.h>
#include <vexoplatform/vexocore.h>

#include "cli.h"

using namespace vexo::cli;

namespace {

const char *stateWord(int state)
{
	switch (state) {
	case VEXO_DISK_DB_CURRENT:
		return "current";
	case VEXO_DISK_DB_NEWER:
		return "newer offered";
	case VEXO_DISK_DB_INSTALLED:
		return "installed";
	case VEXO_DISK_DB_FAILED:
		return "failed";
	default:
		return "not offered";
	}
}

Value version(int v)
{
	return v < 0 ? Value() : Value(v);
}

Value eventRecord(const VEXODiskDbEvent &e)
{
	Value r = Value::object();
	r.set("database", e.name);
	r.set("path", e.dbPath);
	r.set("state", stateWord(e.state));
	r.set("installed_version", version(e.installedVersion));
	r.set("installed_release", version(e.installedRelease));
	r.set("offered_version", version(e.offeredVersion));
	r.set("offered_release", version(e.offeredRelease));
	r.set("error", e.error ? Value(e.error) : Value());
	return r;
}

std::string lastUpdate()
{
	time_t t = 0;
	if (DiskDbLastUpdateTimeGet(&t) != 0)
		return "never";
	char buf[64];
	struct tm tm;
	gmtime_r(&t, &tm);
	std::strftime(buf, sizeof buf, "%Y-%m-%d %H:%M:%S UTC", &tm);
	return buf;
}

void collect(const VEXODiskDbEvent *e, void *rows)
{
	static_cast<Value *>(rows)->push(eventRecord(*e));
}

int dbStatus(Context &ctx)
{
	Value rows = Value::list();
	bool local = ctx.has("local");
	bool offered = true;
	if (local || VEXOExtDiskDbStatusGet(1, collect, &rows) != 0) {
		// Rows of a failed index run are partial: list what is installed.
		offered = local;
		rows = Value::list();
		if (VEXOExtDiskDbStatusGet(0, collect, &rows) != 0)
			return fail("cannot list the databases (error 0x%04X)", VLIBCErrGet());
	}
	if (ctx.json) {
		Value r = Value::object();
		r.set("last_update", lastUpdate());
		r.set("server", local ? Value("not asked") : Value(offered ? "offer read" : "no usable offer"));
		r.set("offline_kit_version", VEXODiskPreviousOfflineKitVersionGet());
		r.set("databases", rows);
		std::printf("%s\n", r.json(2).c_str());
		return 0;
	}
	std::printf("last update: %s\n", lastUpdate().c_str());
	std::printf("offline kit applied: %d\n", VEXODiskPreviousOfflineKitVersionGet());
	if (!local && !offered)
		std::printf("update server: no usable offer (error 0x%04X)\n", static_cast<unsigned>(VLIBCErrGet()));
	printTable(ctx, rows,
		   {{"database", "DATABASE"},
		    {"installed_version", "VERSION"},
		    {"installed_release", "RELEASE"},
		    {"offered_version", "OFFERED"},
		    {"state", "STATE"},
		    {"path", "PATH"}});
	return 0;
}

// One JSON object on one line: a JSON text holds no raw line break inside
// a string, so each break and the indent after it can go.
std::string oneLine(const Value &v)
{
	std::string pretty = v.json(), out;
	for (size_t i = 0; i < pretty.size(); ++i) {
		if (pretty[i] != '\n') {
			out += pretty[i];
			continue;
		}
		while (i + 1 < pretty.size() && pretty[i + 1] == ' ')
			++i;
	}
	return out;
}

struct Progress {
	bool json;
	bool terminal;
	int count = 0;
};

void progress(const VEXODiskDbEvent *e, void *p)
{
	auto *pr = static_cast<Progress *>(p);
	++pr->count;
	if (pr->json) {
		Value r = eventRecord(*e);
		r.set("event", "database");
		std::printf("%s\n", oneLine(r).c_str());
	} else {
		std::string from = e->installedVersion < 0 ? "-" : std::to_string(e->installedVersion);
		std::string to = e->offeredVersion < 0 ? "-" : std::to_string(e->offeredVersion);
		char err[32] = "";
		if (e->error)
			std::snprintf(err, sizeof err, " (error 0x%04X)", static_cast<unsigned>(e->error));
		std::printf("%s%-28s %-13s version %s -> %s%s\n", pr->terminal ? "  " : "", e->name, stateWord(e->state),
			    from.c_str(), to.c_str(), err);
	}
	std::fflush(stdout);
}

int dbUpdate(Context &ctx)
{
	if (!ctx.args.empty())
		return fail("usage: db update [--offline KIT] [--force]");
	std::string kit = ctx.opt("offline");
	if (ctx.has("offline") && kit.empty())
		return fail("--offline needs the kit's path");
	Progress pr{ctx.json, ::isatty(STDOUT_FILENO) == 1};
	VLIBCErrClear();
	int rc = VEXOExtDiskDbUpdate(kit.empty() ? nullptr : kit.c_str(), ctx.has("force") ? 1 : 0, progress, &pr);
	int err = VLIBCErrGet();
	const char *word = rc == 0 ? "updated" : rc == 1 ? "nothing to do" : "failed";
	if (ctx.json) {
		Value r = Value::object();
		r.set("event", "done");
		r.set("result", word);
		r.set("source", kit.empty() ? Value("server") : Value(kit));
		r.set("error", rc == 2 ? Value(err) : Value());
		std::printf("%s\n", oneLine(r).c_str());
	} else if (rc == 2) {
		std::printf("update failed (error 0x%04X)\n", static_cast<unsigned>(err));
	} else if (rc == 1 && pr.count == 0 && !kit.empty()) {
		std::printf("nothing to do: offline kit version %d is applied already (--force applies it again)\n",
			    VEXODiskPreviousOfflineKitVersionGet());
	} else {
		std::printf("%s\n", word);
	}
	return rc == 2 ? 1 : 0;
}

VEXO_CLI_COMMAND("db status", "[--local]", "each drive database: installed version, last update, the server's offer",
		 dbStatus, {});
VEXO_CLI_COMMAND("db update", "[--offline KIT] [--force]",
		 "update the drive databases from the update server or an offline kit", dbUpdate, {"offline"});

} // namespace
