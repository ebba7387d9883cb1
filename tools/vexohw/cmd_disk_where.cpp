// Where a disk path stands: its port type, its id and every text made from
// the id, and the split of a partition name.
#include <algorithm>
#include <cstring>
#include <dirent.h>
#include <string>
#include <vector>

#include <vexohw/disk.h>
#include <vexohw/disk_port.h>
#include <vexohw/ext.h>
#include <vexoplatform/vexocore.h>

#include "cli.h"
#include "disk_args.h"

using namespace vexo::cli;

namespace {

// A text function's answer, or null when it has none for this id.
template <typename Fn>
Value textOf(Fn fn)
{
	char out[256] = {};
	return fn(out, static_cast<int>(sizeof(out))) >= 0 && out[0] ? Value(out) : Value();
}

// The record of one path; false (with `why`) when the path names no disk.
bool where(const std::string &path, Value &r, std::string &why)
{
	int type = VEXODiskPortCheck(path.c_str());
	DiskId id{};
	if (type == DISK_PORT_TYPE_INVALID || DiskPathParse(path.c_str(), &id) != 0) {
		why = type == DISK_PORT_TYPE_INVALID ? "not a device of any port" : "cannot be parsed into a disk id";
		return false;
	}
	char disk[64] = {};
	// The split works on the short name, as the parse does.
	int partition = VEXODiskPartitionNumGet(VEXODiskDevPrefixSkip(path.c_str()), disk, sizeof(disk));
	DiskInfo info{};
	if (std::strlen(disk) >= sizeof(info.name)) {
		why = "disk name too long";
		return false;
	}
	info.id = id;
	std::memcpy(info.name, disk, std::strlen(disk) + 1);
	std::snprintf(info.path, sizeof(info.path), "/dev/%s", info.name);

	r = Value::object();
	r.set("path", path);
	r.set("port_type", type);
	r.set("port_type_name", portTypeName(type));
	r.set("index", id.index);
	r.set("container", id.container);
	r.set("unit", id.unit);
	r.set("partition_number", id.partitionNumber);
	r.set("slot", id.slot);
	const char *keyword = VEXODiskContainerToString(id.container);
	r.set("container_keyword", keyword ? Value(keyword) : Value());
	r.set("display", textOf([&](char *o, int n) { return DiskIdToString(&id, o, n); }));
	r.set("mail", textOf([&](char *o, int n) { return DiskIdToMailString(&id, o, n); }));
	r.set("identifier", textOf([&](char *o, int n) { return VEXODiskInfoToString(&info, o, n); }));
	r.set("serialized", textOf([&](char *o, int n) { return VEXODiskIdSerialize(&id, o, n); }));
	r.set("location", textOf([&](char *o, int n) { return DiskGetLocation(&id, o, n); }));
	r.set("host", textOf([&](char *o, int n) { return VEXODiskLocateHostGet(path.c_str(), o, n, 0); }));
	r.set("holder", textOf([&](char *o, int n) { return VEXODiskLocateGetWithoutIndex(path.c_str(), o, n); }));
	r.set("disk", disk);
	r.set("partition", partition);
	VLIBCErrClear();
	return true;
}

// Every block device of the system, by name.
std::vector<std::string> allDevices()
{
	std::vector<std::string> names;
	char dir[4096];
	if (VEXOExtSysrootPath("/sys/block", dir, sizeof(dir)) != 0)
		return names;
	if (DIR *d = ::opendir(dir)) {
		while (dirent *e = ::readdir(d))
			if (e->d_name[0] != '.')
				names.push_back(std::string("/dev/") + e->d_name);
		::closedir(d);
	}
	std::sort(names.begin(), names.end());
	return names;
}

int diskWhere(Context &ctx)
{
	std::vector<std::string> paths = ctx.args;
	bool all = ctx.has("all");
	if (all && !paths.empty())
		return fail("disk where: give paths or --all, not both");
	if (all)
		paths = allDevices();
	else if (paths.empty())
		return fail("usage: disk where PATH... | --all [--brief]");

	Value rows = Value::list();
	int bad = 0;
	for (const auto &p : paths) {
		Value r;
		std::string why;
		if (p.empty() || p.size() >= 128) {
			why = "not a device path";
		} else if (where(p, r, why)) {
			rows.push(r);
			continue;
		}
		// With --all a device the library does not place is shown, not fatal.
		if (!all) {
			fail("%s: %s", p.c_str(), why.c_str());
			++bad;
			continue;
		}
		r = Value::object();
		r.set("path", p);
		r.set("port_type", 0);
		r.set("port_type_name", portTypeName(0));
		r.set("error", why);
		rows.push(r);
	}
	if (bad && rows.asList().empty())
		return 1;
	bool table = all || ctx.has("brief") || paths.size() > 1;
	if (!table) {
		printRecord(ctx, rows.asList()[0]);
	} else {
		printTable(ctx, rows,
			   {{"path", "PATH"},
			    {"port_type", "TYPE"},
			    {"port_type_name", "PORT"},
			    {"index", "INDEX"},
			    {"container_keyword", "CONTAINER"},
			    {"unit", "UNIT"},
			    {"slot", "SLOT"},
			    {"partition_number", "PART"},
			    {"display", "DISPLAY"},
			    {"identifier", "IDENTIFIER"},
			    {"location", "LOCATION"}});
	}
	return bad ? 1 : 0;
}

VEXO_CLI_COMMAND("disk where", "PATH... | --all [--brief]",
		 "port type, disk id and id texts of device paths (--all: every /sys/block device)", diskWhere, {});

} // namespace
