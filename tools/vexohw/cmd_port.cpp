// The device names of one port type: the disks present, or with --all every
// name of the product's port map.
#include <memory>
#include <string>

#include <vexohw/disk_port.h>
#include <vexoplatform/vexocore.h>

#include "cli.h"
#include "disk_args.h"

using namespace vexo::cli;

namespace {


int portList(Context &ctx)
{
	if (ctx.args.size() != 1)
		return fail("usage: port list TYPE [--all] (TYPE a number 0-11 or a name such as internal, cache)");
	int type = portTypeParse(ctx.args[0]);
	if (type < 0)
		return fail("port list: '%s' is no port type", ctx.args[0].c_str());
	bool all = ctx.has("all");
	PVLIBSZLIST raw = VLIBCSzListAlloc(16);
	if (!raw)
		return fail("port list: out of memory");
	int rc = all ? VEXODiskPortEnumAll(type, &raw) : VEXODiskPortEnum(type, &raw);
	SzList list(raw);
	if (rc != 0)
		return fail("port list: no %s list for port type %d (%s) (error 0x%04X)", all ? "port map" : "device",
			    type, portTypeName(type), VLIBCErrGet());

	Value names = Value::list();
	for (int i = 0; i < list->nItem; ++i)
		names.push(VLIBCSzListGet(list.get(), i));
	if (ctx.json) {
		Value r = Value::object();
		r.set("port_type", type);
		r.set("port_type_name", portTypeName(type));
		r.set("port_map", all);
		r.set("names", names);
		printRecord(ctx, r);
		return 0;
	}
	Value rows = Value::list();
	for (const auto &n : names.asList()) {
		Value row = Value::object();
		row.set("name", n);
		row.set("path", "/dev/" + n.text());
		rows.push(row);
	}
	std::string title = "port type " + std::to_string(type) + " (" + portTypeName(type) + ")";
	printTable(ctx, rows, {{"name", "NAME"}, {"path", "PATH"}}, title.c_str());
	return 0;
}

VEXO_CLI_COMMAND("port list", "TYPE [--all]", "device names of a port type (--all: the whole port map)", portList, {});

} // namespace
