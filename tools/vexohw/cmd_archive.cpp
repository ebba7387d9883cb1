// Signed archives: check one, or unpack it.
#include <cstdlib>
#include <string>
#include <vexohw/misc.h>
#include <vexoplatform/vexoarchive.h>

#include "cli.h"

using namespace vexo::cli;

namespace {

int keyType(const Context &ctx)
{
	std::string t = ctx.opt("type", "firmware");
	if (t == "firmware")
		return VEXOARCHIVE_KEY_FIRMWARE;
	if (t == "package")
		return VEXOARCHIVE_KEY_PACKAGE;
	return std::atoi(t.c_str());
}

// Opens (and, with a directory, unpacks) through the platform's reader.
int withReader(Context &ctx, const char *dir)
{
	int type = keyType(ctx);
	VEXOARCHIVE *a = vexoarchive_init(dir);
	if (!a)
		return fail("cannot start the archive reader for '%s'", dir);
	int rc = vexoarchive_open_with_keytype(a, ctx.args[0].c_str(), type);
	if (rc == 0 && *dir)
		rc = vexoarchive_extract_multiple(a, 0, type);
	std::string name = a->fileName;
	vexoarchive_free(a);
	Value r = Value::object();
	r.set("archive", ctx.args[0]);
	r.set("key_type", type);
	r.set("result", rc);
	r.set("meaning", vexoarchive_strerror(rc));
	r.set("file_name", rc == 0 ? Value(name) : Value());
	if (*dir)
		r.set("directory", dir);
	printRecord(ctx, r);
	return rc == 0 ? 0 : 1;
}

int archiveVerify(Context &ctx)
{
	if (ctx.args.size() != 1)
		return fail("usage: archive verify FILE [--type firmware|package|N]");
	return withReader(ctx, "");
}

int archiveExtract(Context &ctx)
{
	if (ctx.args.size() != 2)
		return fail("usage: archive extract FILE DIR [--type firmware|package|N]");
	if (keyType(ctx) != VEXOARCHIVE_KEY_FIRMWARE)
		return withReader(ctx, ctx.args[1].c_str());
	// Firmware goes the library's way: directory made, space checked.
	int rc = VEXOFirmSAExtract(ctx.args[0].c_str(), ctx.args[1].c_str());
	if (rc == -2)
		return fail("not enough space in %s for %s", ctx.args[1].c_str(), ctx.args[0].c_str());
	if (rc != 0) {
		withReader(ctx, ""); // says why, when the archive itself is at fault
		return fail("cannot extract %s into %s", ctx.args[0].c_str(), ctx.args[1].c_str());
	}
	Value r = Value::object();
	r.set("archive", ctx.args[0]);
	r.set("directory", ctx.args[1]);
	r.set("result", 0);
	printRecord(ctx, r);
	return 0;
}

VEXO_CLI_COMMAND("archive verify", "FILE [--type firmware|package|N]", "check a signed archive's signature and entries",
		 archiveVerify, {"type"});
VEXO_CLI_COMMAND("archive extract", "FILE DIR [--type firmware|package|N]", "unpack a signed archive into DIR",
		 archiveExtract, {"type"});

} // namespace
