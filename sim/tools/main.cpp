// vexosim-tools: the stand-ins for the external programs the library runs,
// one program answering to each name. `vexosim build` copies it into the
// root as /usr/vexo/libexec/vexosim-tools and links the names to it: /usr/bin/smartctl, /usr/vexo/bin/sg_raw,
// /usr/vexo/bin/sg_sat_identify, /usr/vexo/sbin/sg_logs,
// /usr/vexo/sbin/vexostorage, /usr/vexo/sbin/dhm_tool, /usr/vexo/bin/vexo_vcemd_connector.
//
//   vexosim-tools NAME ARGS...   the same as running NAME ARGS...
#include <cstdio>
#include <cstring>
#include <string>

#include "appliance_tools.h"
#include "drive_io.h"
#include "sg_common.h"

namespace vexosim::tools::smartctl {
int main(int argc, char **argv);
}

namespace {

struct Tool {
	const char *name;
	int (*run)(int, char **);
};

constexpr Tool kTools[] = {
	{"smartctl", vexosim::tools::smartctl::main},
	{"sg_raw", vexosim::tools::sg::sgRaw},
	{"sg_sat_identify", vexosim::tools::sg::sgSatIdentify},
	{"sg_logs", vexosim::tools::sg::sgLogs},
	{"vexostorage", vexosim::tools::vexostorage},
	{"dhm_tool", vexosim::tools::dhmTool},
	{"vexo_vcemd_connector", vexosim::tools::vcemdConnector},
};

const char *base(const char *p)
{
	const char *s = std::strrchr(p, '/');
	return s ? s + 1 : p;
}

} // namespace

int main(int argc, char **argv)
{
	if (argc < 1)
		return 2;
	vexosim::tools::ensureBackend();
	std::string self = base(argv[0]);
	for (int pass = 0; pass < 2; ++pass) {
		for (const Tool &t : kTools)
			if (self == t.name)
				return t.run(argc, argv);
		if (pass == 0 && argc > 1) { // vexosim-tools NAME ARGS...
			++argv;
			--argc;
			self = base(argv[0]);
		}
	}
	std::fprintf(stderr, "usage: vexosim-tools TOOL [ARG...]\n       TOOL: smartctl, sg_raw, sg_sat_identify, "
			     "sg_logs, vexostorage, dhm_tool, vexo_vcemd_connector\n");
	return 2;
}
