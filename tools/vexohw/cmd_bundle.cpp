// A bundle drive's model settings from the drive attribute database, and
// its bad-block verdict.
#include <string>
#include <vexohw/drive_bundle.h>
#include <vexohw/ssd_bundle.h>
#include <vexoplatform/vexocore.h>

#include "asleep.h"
#include "cli.h"

using namespace vexo::cli;

namespace {

int firmwareBundle(Context &ctx)
{
	if (ctx.args.size() != 1)
		return fail("usage: firmware bundle DISK");
	const std::string path = ctx.args[0].rfind("/dev/", 0) == 0 ? ctx.args[0] : "/dev/" + ctx.args[0];
	// The model and the verdict ask the drive.
	if (leaveAsleep(ctx, path))
		return 0;
	DriveBundleModelConf c{};
	int r = VEXODriveBundleModelConfGet(path.c_str(), &c);
	if (r < 0)
		return fail("cannot read the drive attribute database for %s (error 0x%04X)", path.c_str(), VLIBCErrGet());
	Value v = Value::object();
	v.set("disk", path);
	v.set("bundle", r == 0);
	if (r == 1 || r == 2)
		v.set("why_not", r == 1 ? "model not in the database" : "model is not a bundle drive");
	if (r == 0) {
		v.set("available_firmware", c.availableFirmware);
		v.set("available_firmware_binary", c.availableFirmwareBinary);
		v.set("mask", static_cast<long long>(c.mask));
		v.set("order", c.order);
		v.set("later_bad_block_count", static_cast<long long>(c.laterBadBlockCount));
		v.set("bad_block_cnt_thr", static_cast<long long>(c.badBlockCntThr));
		v.set("avg_erase_count", static_cast<long long>(c.avgEraseCount));
		v.set("bundle_smart_attrs", c.bundleSmartAttrs);
		v.set("bad_block_over_threshold", VEXODiskSSDBadBlockOverThreshold(path.c_str()) == 1);
	}
	printRecord(ctx, v);
	return 0;
}

VEXO_CLI_COMMAND("firmware bundle", "DISK [--wake]",
		 "a bundle drive's model settings from the drive attribute database and its bad-block verdict",
		 firmwareBundle, {});

} // namespace
