// vexohw status: the one word the user interface shows for a disk, and the
// keywords it was picked from. Cached values only: a sleeping disk is not
// asked anything, not even its power mode is needed.
#include <string>
#include <sys/stat.h>
#include <vexohw/disk_enum.h>
#include <vexohw/ext.h>
#include <vexoplatform/vexocore.h>

#include "cli.h"
#include "status_word.h"

using namespace vexo::cli;

namespace {

std::string devicePath(const std::string &arg) { return arg.rfind("/dev/", 0) == 0 ? arg : "/dev/" + arg; }

int status(Context &ctx)
{
	std::vector<std::string> paths;
	if (ctx.has("all") && ctx.args.empty()) {
		DiskListNode *list = nullptr;
		const int32_t every = 0xFF;
		DiskEnumFilter all{&every};
		// A walk that reads no temperature: listing wakes no disk.
		if (VEXOExtDiskInfoEnumFrom(&all, VEXO_EXT_DISK_SOURCE_QUIET_WALK, &list, nullptr) < 0)
			return fail("can't list the disks (error 0x%04X)", VLIBCErrGet());
		for (DiskListNode *c = list; c; c = c->next)
			if (c->info)
				paths.push_back(c->info->path);
		DiskInfoEnumFree(list);
	} else if (ctx.args.size() == 1 && !ctx.has("all")) {
		std::string path = devicePath(ctx.args[0]);
		char host[4096];
		struct stat st;
		if (VEXOExtSysrootPath(("/sys/block/" + path.substr(5)).c_str(), host, sizeof(host)) != 0 ||
		    ::stat(host, &st) != 0)
			return fail("no disk %s", path.c_str());
		paths.push_back(path);
	} else {
		return fail("usage: status DISK | --all");
	}
	Value rows = Value::list();
	for (const std::string &p : paths) {
		Value r = statusWord(p.c_str());
		Value row = Value::object();
		row.set("disk", p);
		for (const auto &[k, v] : r.asObject())
			row.set(k, v);
		rows.push(row);
	}
	printTable(ctx, rows,
		   {{"disk", "DISK"}, {"word", "STATUS"}, {"category", "FROM"}, {"space", "SPACE"}, {"health", "HEALTH"},
		    {"processing", "PROCESSING"}, {"compatibility", "COMPATIBILITY"}});
	return 0;
}

} // namespace

VEXO_CLI_COMMAND("status", "DISK | --all", "the status word the user sees and the keywords it was picked from",
		 status, {});
