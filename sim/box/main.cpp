// vexosim: builds a simulated appliance from its description, and runs
// programs against one.
//
//   vexosim build DESCRIPTION DIR   write the box's root into DIR
//   vexosim check DESCRIPTION       only check the description
//   vexosim run DIR -- COMMAND...   run COMMAND with the box as its root
//   vexosim start DIR               start the box's platform daemon (vcemd)
//   vexosim stop DIR                stop it; it also ends when DIR is removed
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "build.h"
#include "daemon.h"
#include "description.h"
#include "tree.h"

namespace {

const char *kDriveBackendEnv = "VEXOSIM_DRIVE_BACKEND";

int usage()
{
	std::fprintf(stderr, "usage: vexosim build DESCRIPTION DIR\n"
			     "       vexosim check DESCRIPTION\n"
			     "       vexosim run DIR -- COMMAND [ARG...]\n"
			     "       vexosim start|stop DIR\n");
	return 2;
}

// The drive emulator built beside this program: <build>/bin/vexosim and
// <build>/sim/drive/libvexosim_drive.so.
std::string bundledDriveBackend() { return vexosim::besideSelf("../sim/drive/libvexosim_drive.so"); }

int runIn(const std::string &dir, char **argv)
{
	char root[PATH_MAX];
	struct stat st;
	if (!::realpath(dir.c_str(), root) || ::stat(root, &st) != 0 || !S_ISDIR(st.st_mode)) {
		std::fprintf(stderr, "vexosim: %s is not a directory\n", dir.c_str());
		return 2;
	}
	std::string backend;
	if (const char *env = std::getenv(kDriveBackendEnv); env && *env) {
		if (::access(env, R_OK) != 0) {
			std::fprintf(stderr, "vexosim: %s=%s: %s\n", kDriveBackendEnv, env, std::strerror(errno));
			return 2;
		}
		backend = env;
	} else {
		backend = bundledDriveBackend();
	}
	::setenv("VEXO_SYSROOT", root, 1);
	if (!backend.empty())
		::setenv("VEXO_DEVICE_BACKEND", backend.c_str(), 1);
	::execvp(argv[0], argv);
	std::fprintf(stderr, "vexosim: cannot run %s: %s\n", argv[0], std::strerror(errno));
	return 127;
}

} // namespace

int main(int argc, char **argv)
{
	if (argc < 2)
		return usage();
	std::string cmd = argv[1];
	try {
		if (cmd == "check" && argc == 3) {
			vexosim::Box box = vexosim::parse(argv[2]);
			std::printf("%s: %s, %zu devices\n", argv[2], box.model.c_str(), box.devices.size());
			return 0;
		}
		if (cmd == "build" && argc == 4) {
			vexosim::Box box = vexosim::parse(argv[2]);
			vexosim::Tree tree(argv[3]);
			vexosim::build(box, tree);
			tree.commit();
			std::printf("%s: %s with %zu devices in %s\n", argv[2], box.model.c_str(), box.devices.size(),
				    argv[3]);
			return 0;
		}
		if ((cmd == "start" || cmd == "stop") && argc == 3) {
			char root[PATH_MAX];
			if (!::realpath(argv[2], root)) {
				std::fprintf(stderr, "vexosim: %s: %s\n", argv[2], std::strerror(errno));
				return 2;
			}
			return cmd == "start" ? vexosim::startDaemon(root) : vexosim::stopDaemon(root);
		}
		if (cmd == "run" && argc >= 5 && std::strcmp(argv[3], "--") == 0)
			return runIn(argv[2], argv + 4);
	} catch (const vexosim::DescriptionError &e) {
		std::fprintf(stderr, "vexosim: %s\n", e.what());
		return 2;
	} catch (const std::exception &e) {
		std::fprintf(stderr, "vexosim: %s\n", e.what());
		return 1;
	}
	return usage();
}
