// vexosim-tools: the programs of a simulated appliance, one program answering
// to each name. `vexosim build` copies it into the root as
// /usr/vexo/libexec/vexosim-tools, with the interposer beside it, and links
// the names to it.
//
// The appliance's own tools (vexostorage, dhm_tool, vexowebapi,
// md5sum, vexo_smart_test, vexo_vcemd_connector) are answered here. The
// drive tools are the distribution's programs: under their appliance names
// this hands over to them, with the interposer preloaded so that they talk to
// the simulated drives of the root.
//
//   vexosim-tools NAME ARGS...   the same as running NAME ARGS...
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <unistd.h>

#include "appliance_tools.h"
#include "real_tools.h"

namespace vexosim::tools {
int vexowebapi(int argc, char **argv); // update_tools.cpp
int md5sum(int argc, char **argv);
} // namespace vexosim::tools

namespace {

struct Tool {
	const char *name;
	int (*run)(int, char **);
};

constexpr Tool kTools[] = {
	{"vexostorage", vexosim::tools::vexostorage},
	{"dhm_tool", vexosim::tools::dhmTool},
	{"vexowebapi", vexosim::tools::vexowebapi},
	{"md5sum", vexosim::tools::md5sum},
	{"vexo_smart_test", vexosim::tools::vexoSmartTest},
	{"vexo_vcemd_connector", vexosim::tools::vcemdConnector},
	{"vexo_drive_bundle", vexosim::tools::vexoDriveBundle},
};

const char *base(const char *p)
{
	const char *s = std::strrchr(p, '/');
	return s ? s + 1 : p;
}

// This program's folder in the root (<root>/usr/vexo/libexec).
std::string selfDir()
{
	char self[PATH_MAX];
	ssize_t n = ::readlink("/proc/self/exe", self, sizeof self - 1);
	if (n <= 0)
		return "";
	self[n] = 0;
	std::string p(self);
	return p.substr(0, p.rfind('/'));
}

int realTool(const vexosim::tools::RealTool &t, char **argv)
{
	std::string dir = selfDir();
	const char *suffix = "/usr/vexo/libexec";
	if (const char *root = std::getenv("VEXO_SYSROOT"); !root || !*root) {
		// Started by path, outside vexosim run: the root is where it lies.
		if (dir.size() > std::strlen(suffix) && dir.compare(dir.size() - std::strlen(suffix), std::string::npos, suffix) == 0)
			::setenv("VEXO_SYSROOT", dir.substr(0, dir.size() - std::strlen(suffix)).c_str(), 1);
	}
	// In a root it lies beside this program; in the build tree, in its own folder.
	std::string preload = dir + "/" + vexosim::tools::kInterposer;
	if (::access(preload.c_str(), R_OK) != 0)
		preload = dir + "/../sim/interpose/" + vexosim::tools::kInterposer;
	if (const char *old = std::getenv("LD_PRELOAD"); old && *old && !std::strstr(old, vexosim::tools::kInterposer))
		preload += std::string(":") + old;
	::setenv("LD_PRELOAD", preload.c_str(), 1);
	argv[0] = const_cast<char *>(t.program);
	// The distribution's hdparm downloads firmware but has no way to
	// activate it: "hdparm --fwactivate DEV" becomes the DOWNLOAD
	// MICROCODE activation (mode 0x0F, no data) through sg_raw.
	static char *activate[] = {const_cast<char *>("/usr/bin/sg_raw"), nullptr, const_cast<char *>("85"),
				   const_cast<char *>("06"), const_cast<char *>("00"), const_cast<char *>("00"),
				   const_cast<char *>("0f"), const_cast<char *>("00"), const_cast<char *>("00"),
				   const_cast<char *>("00"), const_cast<char *>("00"), const_cast<char *>("00"),
				   const_cast<char *>("00"), const_cast<char *>("00"), const_cast<char *>("00"),
				   const_cast<char *>("40"), const_cast<char *>("92"), const_cast<char *>("00"),
				   nullptr};
	if (std::strcmp(t.name, "hdparm") == 0 && argv[1] && std::strcmp(argv[1], "--fwactivate") == 0) {
		if (!argv[2] || argv[3]) {
			std::fprintf(stderr, "usage: hdparm --fwactivate DEVICE\n");
			return 2;
		}
		activate[1] = argv[2];
		::execv(activate[0], activate);
		std::fprintf(stderr, "%s: cannot run %s: %s\n", t.name, activate[0], std::strerror(errno));
		return 127;
	}
	::execv(t.program, argv);
	std::fprintf(stderr, "%s: cannot run %s: %s\n", t.name, t.program, std::strerror(errno));
	return 127;
}

} // namespace

int main(int argc, char **argv)
{
	if (argc < 1)
		return 2;
	std::string self = base(argv[0]);
	for (int pass = 0; pass < 2; ++pass) {
		for (const Tool &t : kTools)
			if (self == t.name)
				return t.run(argc, argv);
		for (const auto &t : vexosim::tools::kRealTools)
			if (self == t.name)
				return realTool(t, argv);
		if (pass == 0 && argc > 1) { // vexosim-tools NAME ARGS...
			++argv;
			--argc;
			self = base(argv[0]);
		}
	}
	std::fprintf(stderr, "usage: vexosim-tools TOOL [ARG...]\n       TOOL: vexostorage, dhm_tool, smartctl, "
			     "hdparm, nvme, sg_raw, sg_sat_identify, sg_logs, curl,\n"
			     "             vexowebapi, md5sum, vexo_smart_test, vexo_vcemd_connector, vexo_drive_bundle\n");
	return 2;
}
