// Device paths from an encoded index, or from a bay and an encoded
// container number.
#include <climits>
#include <string>

#include <vexohw/disk_port.h>
#include <vexoplatform/vexocore.h>

#include "cli.h"
#include "disk_args.h"

using namespace vexo::cli;

namespace {

int devicePath(Context &ctx)
{
	const char *usage = "usage: device-path --index N | --position P --cnr C";
	if (!ctx.args.empty())
		return fail("%s", usage);
	bool byIndex = ctx.has("index");
	if (byIndex == (ctx.has("position") || ctx.has("cnr")) || (!byIndex && !(ctx.has("position") && ctx.has("cnr"))))
		return fail("%s", usage);

	char path[128] = {};
	Value r = Value::object();
	if (byIndex) {
		int index = 0;
		if (!parseInt(ctx.opt("index"), INT_MIN, INT_MAX, index))
			return fail("device-path: --index needs a whole number, not '%s'", ctx.opt("index").c_str());
		if (VEXODiskDevicePathGetByIndex(index, path, sizeof(path)) != 0)
			return fail("device-path: no device for index %d (error 0x%04X)", index, VLIBCErrGet());
		r.set("index", index);
	} else {
		int position = 0, cnr = 0;
		if (!parseInt(ctx.opt("position"), INT_MIN, INT_MAX, position))
			return fail("device-path: --position needs a whole number, not '%s'", ctx.opt("position").c_str());
		if (!parseInt(ctx.opt("cnr"), INT_MIN, INT_MAX, cnr))
			return fail("device-path: --cnr needs a whole number, not '%s'", ctx.opt("cnr").c_str());
		if (VEXODiskDevicePathGetByPosition(position, cnr, path, sizeof(path)) != 0)
			return fail("device-path: no device at position %d of container %d (error 0x%04X)", position, cnr,
				    VLIBCErrGet());
		r.set("position", position);
		r.set("cnr", cnr);
	}
	r.set("path", path);
	printRecord(ctx, r);
	return 0;
}

VEXO_CLI_COMMAND("device-path", "--index N | --position P --cnr C",
		 "device path of an encoded index, or of a bay in an encoded container", devicePath,
		 {"index", "position", "cnr"});

} // namespace
