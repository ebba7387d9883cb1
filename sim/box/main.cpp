// vexosim: builds a simulated appliance from its description, and runs
// programs against one.
//
//   vexosim build DESCRIPTION DIR   write the box's root into DIR
//   vexosim check DESCRIPTION       only check the description
//   vexosim run DIR -- COMMAND...   run COMMAND with the box as its root: an
//                                   absolute COMMAND the box has is the box's,
//                                   and every program runs on the interposer
//   vexosim serve ROOT ...          the box's HTTPS update servers (vexosim-serve)
//   vexosim pack ...                make signed archives and keys (vexo-archive)
//   vexosim kit ROOT OUT [VERSION]  the database server's offer as an offline kit
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
			     "       vexosim serve ROOT [--docroot DIR]\n"
			     "       vexosim pack keygen|keys|pack|sign ...\n"
			     "       vexosim kit ROOT OUT [VERSION]\n"
			     "       vexosim start|stop DIR\n");
	return 2;
}

// The drive emulator that came with this program: in the build tree
// <build>/sim/drive/libvexosim_drive.so beside <build>/bin/vexosim, once
// installed <libdir>/vexosim/libvexosim_drive.so.
std::string bundledDriveBackend()
{
	std::string built = vexosim::besideSelf("../sim/drive/libvexosim_drive.so");
	return built.empty() ? vexosim::besideSelf(VEXOSIM_INSTALLED_DRIVE_BACKEND) : built;
}

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
	// Every program runs on the interposer, so the drive tools among them
	// reach the box's drives. Our own sanitized builds take it too: it
	// replaces no allocator, so the sanitizer's library-order check may go.
	std::string interposer = std::string(root) + "/usr/vexo/libexec/libvexosim_interpose.so";
	if (::access(interposer.c_str(), R_OK) != 0)
		interposer = vexosim::besideSelf("../sim/interpose/libvexosim_interpose.so");
	if (!interposer.empty()) {
		const char *old = std::getenv("LD_PRELOAD");
		::setenv("LD_PRELOAD", (interposer + (old && *old ? std::string(":") + old : "")).c_str(), 1);
		const char *asan = std::getenv("ASAN_OPTIONS");
		::setenv("ASAN_OPTIONS",
			 ((asan && *asan ? std::string(asan) + ":" : "") + "verify_asan_link_order=0").c_str(), 1);
	}
	// An appliance path that the box has is the box's program.
	std::string inRoot = std::string(root) + argv[0];
	if (argv[0][0] == '/' && ::access(inRoot.c_str(), X_OK) == 0)
		argv[0] = inRoot.data();
	::execvp(argv[0], argv);
	std::fprintf(stderr, "vexosim: cannot run %s: %s\n", argv[0], std::strerror(errno));
	return 127;
}

// Runs a companion program built beside this one, with the same arguments.
int runBeside(const char *program, char **argv)
{
	std::string path = vexosim::besideSelf(program);
	argv[0] = path.data();
	::execv(path.c_str(), argv);
	std::fprintf(stderr, "vexosim: cannot run %s: %s\n", path.c_str(), std::strerror(errno));
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
		if (cmd == "kit" && (argc == 4 || argc == 5)) {
			static char flag[] = "--kit";
			argv[1] = flag; // vexosim-serve --kit ROOT OUT [VERSION]
			return runBeside("vexosim-serve", argv);
		}
		if (cmd == "serve" || cmd == "pack")
			return runBeside(cmd == "serve" ? "vexosim-serve" : "vexo-archive", argv + 1);
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
