// The system itself: the running VOS version with the identity values the
// update servers are sent, and whether a file system has room for a file.
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <string>

#include <vexohw/misc.h>
#include <vexoplatform/vexocore.h>

#include "cli.h"

using namespace vexo::cli;

namespace {

int systemVersion(Context &ctx)
{
	if (!ctx.args.empty() || !ctx.options.empty())
		return fail("usage: system version");
	unsigned int base = 0, nano = 0;
	if (VEXOVOSVerGet(&base, &nano) != 0)
		return fail("system version: the VOS version can't be read (error 0x%04X)", VLIBCErrGet());
	Value r = Value::object();
	r.set("base", static_cast<long long>(base));
	r.set("nano", static_cast<long long>(nano));
	// The encoded values go into the servers' query strings; each one that
	// can't be had is null and named on stderr; the version itself was read,
	// so the command still answers.
	struct Encoded {
		const char *field, *what;
		int (*get)(char *, int);
	} encoded[] = {{"encoded_version", "encoded version", VEXOVOSEncodedVOSVerGet},
		       {"encoded_group_id", "encoded group id", VEXOVOSEncodedGroupIDGet},
		       {"encoded_dssn", "encoded DSSN", VEXOVOSEncodedDSSNGet}};
	for (const Encoded &e : encoded) {
		char out[512] = {};
		if (e.get(out, sizeof(out)) == 0) {
			r.set(e.field, out);
			continue;
		}
		r.set(e.field, Value());
		std::fprintf(stderr, "system version: the %s can't be read (error 0x%04X)\n", e.what, VLIBCErrGet());
	}
	printRecord(ctx, r);
	return 0;
}

// BYTES is a whole number, with an optional K, M, G or T (powers of 1024).
bool parseBytes(const std::string &text, unsigned long &out)
{
	if (text.empty() || text[0] < '0' || text[0] > '9')
		return false;
	errno = 0;
	char *end = nullptr;
	unsigned long long v = std::strtoull(text.c_str(), &end, 10);
	if (errno)
		return false;
	std::string unit = end;
	int shift = unit.empty() ? 0 : unit == "K" ? 10 : unit == "M" ? 20 : unit == "G" ? 30 : unit == "T" ? 40 : -1;
	if (shift < 0 || v > (static_cast<unsigned long long>(LLONG_MAX) >> shift))
		return false;
	out = static_cast<unsigned long>(v << shift);
	return true;
}

int systemSpace(Context &ctx)
{
	if (ctx.args.size() != 2 || !ctx.options.empty())
		return fail("usage: system space PATH BYTES (BYTES may end in K, M, G or T)");
	const std::string &path = ctx.args[0];
	if (path.empty() || path[0] != '/')
		return fail("system space: '%s' is not an absolute path", path.c_str());
	unsigned long bytes = 0;
	if (!parseBytes(ctx.args[1], bytes))
		return fail("system space: '%s' is no byte count", ctx.args[1].c_str());
	VLIBCErrClear();
	int rc = VEXOFsSizeCheck(bytes, path.c_str());
	Value r = Value::object();
	r.set("path", path);
	r.set("bytes", static_cast<unsigned long long>(bytes));
	r.set("enough", rc == 0);
	printRecord(ctx, r);
	if (rc == 0)
		return 0;
	// The call answers no both for too little room and for a file system
	// it could not measure; the exit status says no either way.
	if (!ctx.json)
		std::printf("\nthe file system of %s has less than %lu bytes free (or could not be measured)\n",
			    path.c_str(), bytes);
	return 1;
}

VEXO_CLI_COMMAND("system version", "", "the VOS version (base, nano) and the encoded version, group id and DSSN",
		 systemVersion, {});
VEXO_CLI_COMMAND("system space", "PATH BYTES", "whether PATH's file system has BYTES free (exit 1 when not)",
		 systemSpace, {});

} // namespace
