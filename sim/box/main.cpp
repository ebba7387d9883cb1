// vexosim: builds a simulated appliance from its description, and runs
// programs against one.
//
//   vexosim build DESCRIPTION DIR   write the box's root into DIR
//   vexosim check DESCRIPTION       only check the description
//   vexosim run DIR -- COMMAND...   run COMMAND with the box as its root: an
//                                   absolute COMMAND the box has is the box's,
//                                   every program runs on the interposer, and
//                                   the box's daemon runs while COMMAND does
//   vexosim serve ROOT ...          the box's HTTPS update servers (vexosim-serve)
//   vexosim pack ...                make signed archives and keys (vexo-archive)
//   vexosim kit ROOT OUT [VERSION]  the database server's offer as an offline kit
//   vexosim start DIR               start the box's platform daemon (vcemd)
//   vexosim stop DIR                stop it (it also ends when DIR is removed)
//                                   and remove the box's semaphores
//   vexosim pull DIR BAY            pull the disk out of internal bay BAY
//   vexosim plug DIR BAY SERIAL     put a pulled disk into internal bay BAY
//   vexosim raise DIR NAME COUNTER [N]  add N (1) to a counter of disk NAME:
//                                   the kernel's (ioerr_cnt, iotmo_cnt) or
//                                   the disk overview's (unc, icrc, ...)
#include <cerrno>
#include <csignal>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "build.h"
#include "daemon.h"
#include "description.h"
#include "hotplug.h"
#include "tree.h"
#include "frame/ipc.h"

#include <vexohw/disk_overview.h>
#include <vexohw/smart_serial.h>
#include <vexohw/smart_status.h>

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
			     "       vexosim start|stop DIR\n"
			     "       vexosim pull DIR BAY\n"
			     "       vexosim plug DIR BAY SERIAL\n"
			     "       vexosim raise DIR NAME COUNTER [N]\n");
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

volatile sig_atomic_t gChild = 0;

// A terminal's INT and QUIT reach the command's process group by
// themselves; TERM and HUP sent to this program are handed on.
void passOn(int signo)
{
	if (gChild > 0 && (signo == SIGTERM || signo == SIGHUP))
		::kill(gChild, signo);
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
	// The box's platform daemon lives as long as the command.
	vexosim::RunDaemon daemon(root);
	if (daemon.status() != 0)
		return daemon.status();
	// This program outlives the command's signals, to stop the daemon after
	// it; a handler (not SIG_IGN) leaves the command's dispositions as they were.
	struct sigaction sa {};
	sa.sa_handler = passOn;
	for (int s : {SIGTERM, SIGHUP, SIGINT, SIGQUIT})
		::sigaction(s, &sa, nullptr);
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
	pid_t child = ::fork();
	if (child < 0) {
		std::perror("vexosim: fork");
		return 1;
	}
	if (child == 0) {
		::execvp(argv[0], argv);
		std::fprintf(stderr, "vexosim: cannot run %s: %s\n", argv[0], std::strerror(errno));
		_exit(127);
	}
	gChild = child;
	int status = 0;
	while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
	}
	gChild = 0;
	return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
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

// A bay number from the command line, 0 when it is none.
int bayArg(const char *s)
{
	char *end = nullptr;
	long v = std::strtol(s, &end, 10);
	return end != s && !*end && v >= 1 && v <= 26 ? static_cast<int>(v) : 0;
}

// Makes this process run the library on the box at root, with the box's
// drives behind the device seam.
void enterBox(const char *root)
{
	::setenv("VEXO_SYSROOT", root, 1);
	const char *env = std::getenv(kDriveBackendEnv);
	std::string backend = env && *env ? env : bundledDriveBackend();
	if (!backend.empty())
		::setenv("VEXO_DEVICE_BACKEND", backend.c_str(), 1);
}

// Pulls or plugs a disk of a running box, then tells the appliance's disk
// overview, as its hot-plug handler would, through the library itself.
int hotPlug(bool plug, char **argv, int argc)
{
	char root[PATH_MAX];
	int bay = bayArg(argv[3]);
	if (!bay) {
		std::fprintf(stderr, "vexosim: %s: no such bay\n", argv[3]);
		return 2;
	}
	if (!::realpath(argv[2], root)) {
		std::fprintf(stderr, "vexosim: %s: %s\n", argv[2], std::strerror(errno));
		return 2;
	}
	std::string serial = plug && argc > 4 ? argv[4] : "";
	std::string path = plug ? vexosim::plugDisk(root, bay, serial) : vexosim::pullDisk(root, bay, &serial);
	enterBox(root);
	int rc = VEXODiskXmlHotPlugUpdate(plug ? 1 : 0, path.c_str());
	// The handler also judges a new disk's health at once, so its status
	// word is known before the next periodic pass.
	if (plug && rc == 0 && SmartTotalStatusCacheUpdate(path.c_str()) != 0)
		std::fprintf(stderr, "vexosim: the health of %s was not judged\n", path.c_str());
	std::printf("%s %s %s (bay %d)\n", serial.c_str(), plug ? "plugged into" : "pulled from", path.c_str(), bay);
	if (rc != 0)
		std::fprintf(stderr, "vexosim: the disk overview was not told about %s\n", path.c_str());
	return rc == 0 ? 0 : 1;
}

// Raises a counter of a disk: the kernel's own (ioerr_cnt, iotmo_cnt) in
// sysfs, or one the appliance's event daemon keeps in the disk overview
// (unc, icrc, ...), through the library as the daemon does.
int raiseCounter(char **argv, int argc)
{
	char root[PATH_MAX];
	if (!::realpath(argv[2], root)) {
		std::fprintf(stderr, "vexosim: %s: %s\n", argv[2], std::strerror(errno));
		return 2;
	}
	std::string name = argv[3], counter = argv[4];
	unsigned long long n = argc == 6 ? std::stoull(argv[5]) : 1;
	if (counter.size() > 4 && counter.compare(counter.size() - 4, 4, "_cnt") == 0) {
		unsigned long long v = vexosim::raiseCounter(root, name, counter, n);
		std::printf("%s %s 0x%llx\n", name.c_str(), counter.c_str(), v);
		return 0;
	}
	bool known = false;
	for (const auto &row : diskXMLAttrArray)
		known = known || (counter == row && counter != "path" && counter != "sata_internal_slot");
	if (!known || n > 100000) {
		std::fprintf(stderr, "vexosim: no such counter %s\n", counter.c_str());
		return 2;
	}
	enterBox(root);
	char fw[64] = {}, serial[128] = {};
	std::string path = "/dev/" + name;
	if (SmartFirmAndSerialRead(path.c_str(), fw, sizeof(fw), serial, sizeof(serial)) != 0) {
		std::fprintf(stderr, "vexosim: %s does not answer\n", path.c_str());
		return 1;
	}
	for (unsigned long long i = 0; i < n; ++i)
		VEXODiskXmlAttrCtUpdate(counter.c_str(), serial);
	std::printf("%s (%s) %s +%llu\n", name.c_str(), serial, counter.c_str(), n);
	return 0;
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
			// The root replaced takes its semaphores with it, as on `stop`.
			char old[PATH_MAX];
			if (::realpath(argv[3], old) && ::access((std::string(old) + vexosim::kMarker).c_str(), F_OK) == 0)
				vexo::ipc::removeRootSemaphores(old);
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
			if (cmd == "start")
				return vexosim::startDaemon(root);
			int rc = vexosim::stopDaemon(root);
			// Nothing of the box runs now; its semaphores would outlive the root.
			if (vexo::ipc::removeRootSemaphores(root) < 0) {
				std::fprintf(stderr, "vexosim: semaphores of %s: %s\n", root, std::strerror(errno));
				rc = rc ? rc : 1;
			}
			return rc;
		}
		if ((cmd == "pull" && argc == 4) || (cmd == "plug" && argc == 5))
			return hotPlug(cmd == "plug", argv, argc);
		if (cmd == "raise" && (argc == 5 || argc == 6))
			return raiseCounter(argv, argc);
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
