// vexorig: the guest side of the rig.
//
//   vexorig --guest NAME --disks FILE [--out DEV] [--only CHECK]
//       finds the disks, writes the appliance configuration and runs the
//       guest's checks, one "RIG-RESULT <guest>.<check> PASS|FAIL|SKIP"
//       line each (with "RIG-NOTE" lines before it) on DEV (the host's
//       result channel), ending with "RIG-END".
//   vexorig --port-enum TYPE
//       prints VEXODiskPortEnum(TYPE) one name a line, from a fresh process
//       (the port maps are read once per process).
//   vexorig --sysroot DIR --call iface|firm-serial PATH
//       one library call under another appliance root, in a fresh process:
//       the interface name, or "ok<TAB>firmware<TAB>serial" / "fail 0x....".
//   vexorig --disk-enum
//       prints DiskInfoEnum(all) as "name<TAB>path<TAB>container<TAB>model
//       <TAB>size<TAB>logical block size" lines, from a fresh process.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sstream>
#include <string>
#include <termios.h>
#include <unistd.h>
#include <vexohw/disk_port.h>
#include <vexohw/smartctl.h>
#include <vexoplatform/vexocore.h>

#include "rig.h"

namespace {

int gOut = 1;
const char *kLogFile = "/tmp/vexo.log";

void emitRaw(const std::string &line)
{
	std::string l = line + "\n";
	if (gOut != 1 && write(gOut, l.data(), l.size()) < 0)
		gOut = 1;
	if (write(1, l.data(), l.size()) < 0)
		return;
}

// The library's log lines of the check that just failed, for the report.
void emitLog(const std::string &id)
{
	std::istringstream in(rig::readFile(kLogFile));
	int n = 0;
	for (std::string line; std::getline(in, line) && n < 20; ++n)
		emitRaw("RIG-NOTE " + id + " log: " + line);
}

int portEnum(int type)
{
	PVLIBSZLIST list = VLIBCSzListAlloc(16);
	if (!list || VEXODiskPortEnum(type, &list) != 0) {
		std::fprintf(stderr, "VEXODiskPortEnum(%d) failed, error 0x%04X\n", type, VLIBCErrGet());
		return 1;
	}
	for (int i = 0; i < list->nItem; ++i)
		std::printf("%s\n", list->ppszItem[i]);
	VLIBCSzListFree(list);
	return 0;
}

int call(const std::string &root, const std::string &what, const char *path)
{
	setenv("VEXO_SYSROOT", root.c_str(), 1);
	if (what == "iface") {
		std::printf("%s\n", rig::ifaceName(VEXOSmartctlCommandInterfaceGet(path)));
		return 0;
	}
	if (what == "firm-serial") {
		char fw[64] = {}, serial[64] = {};
		if (SmartFirmAndSerialRead(path, fw, sizeof(fw), serial, sizeof(serial)) != 0)
			std::printf("fail 0x%04X\n", VLIBCErrGet());
		else
			std::printf("ok\t%s\t%s\n", fw, serial);
		return 0;
	}
	std::fprintf(stderr, "vexorig: unknown call %s\n", what.c_str());
	return 2;
}

int diskEnum()
{
	DiskListNode *list = nullptr;
	int n = DiskInfoEnum(nullptr, &list);
	if (n < 0) {
		std::fprintf(stderr, "DiskInfoEnum failed, error 0x%04X\n", VLIBCErrGet());
		return 1;
	}
	for (DiskListNode *c = list; c; c = c->next)
		std::printf("%s\t%s\t%d\t%s\t%llu\t%d\n", c->info->name, c->info->path, c->info->id.container,
			    c->info->model, static_cast<unsigned long long>(c->info->sizeBytes), c->info->logicalBlockSize);
	DiskInfoEnumFree(list);
	return 0;
}

} // namespace

namespace rig {
void emit(const std::string &line)
{
	emitRaw(line);
}

std::string callIn(const std::string &sysroot, const std::string &what, const std::string &path)
{
	int status = 0;
	std::string out = run({"/proc/self/exe", "--sysroot", sysroot, "--call", what, path}, &status);
	return status == 0 ? trim(out) : fmt("exit %d", status);
}
} // namespace rig

int main(int argc, char **argv)
{
	std::string guestName, disksFile, out, only;
	for (int i = 1; i < argc; ++i) {
		std::string a = argv[i];
		if (a == "--port-enum" && i + 1 < argc)
			return portEnum(std::atoi(argv[++i]));
		if (a == "--disk-enum")
			return diskEnum();
		if (a == "--sysroot" && i + 4 < argc && std::string(argv[i + 2]) == "--call")
			return call(argv[i + 1], argv[i + 3], argv[i + 4]);
		if (i + 1 >= argc) {
			std::fprintf(stderr, "vexorig: %s needs a value\n", a.c_str());
			return 2;
		}
		if (a == "--guest")
			guestName = argv[++i];
		else if (a == "--disks")
			disksFile = argv[++i];
		else if (a == "--out")
			out = argv[++i];
		else if (a == "--only")
			only = argv[++i];
		else {
			std::fprintf(stderr, "vexorig: unknown argument %s\n", a.c_str());
			return 2;
		}
	}
	if (!out.empty()) {
		gOut = open(out.c_str(), O_WRONLY | O_NOCTTY);
		if (gOut < 0) {
			std::fprintf(stderr, "vexorig: %s: %s, results go to standard output\n", out.c_str(),
				     std::strerror(errno));
			gOut = 1;
		} else if (isatty(gOut)) {
			struct termios t;
			if (tcgetattr(gOut, &t) == 0) {
				cfmakeraw(&t);
				tcsetattr(gOut, TCSANOW, &t);
			}
		}
	}
	setenv("VEXO_LOG", kLogFile, 1);

	rig::Guest g;
	std::string err;
	if (!rig::loadGuest(disksFile, guestName, g, err)) {
		rig::emit("RIG-END " + guestName + " error " + err);
		return 1;
	}
	rig::discover(g);
	for (const auto &d : g.disks)
		rig::emit("RIG-NOTE " + guestName + " disk " + d.role + " serial " + d.serial + " at " +
			  (d.name.empty() ? std::string("(absent)") : d.name + " " + d.sysPath));
	if (!rig::writeAppliance(g, err)) {
		rig::emit("RIG-END " + guestName + " error " + err);
		return 1;
	}

	std::string names;
	for (const auto &r : rig::registry())
		if (guestName == r.guest)
			names += std::string(" ") + r.name;
	rig::emit("RIG-CHECKS " + guestName + names);

	int failed = 0, passed = 0, skipped = 0;
	for (const auto &r : rig::registry()) {
		if (guestName != r.guest || (!only.empty() && only != r.name))
			continue;
		std::string id = guestName + "." + r.name;
		truncate(kLogFile, 0);
		VLIBCErrClear();
		rig::Check c(r.guest, r.name);
		r.fn(c, g);
		for (const auto &n : c.notes())
			rig::emit("RIG-NOTE " + id + " " + n);
		if (c.failed()) {
			for (const auto &f : c.failures())
				rig::emit("RIG-NOTE " + id + " FAIL: " + f);
			emitLog(id);
			rig::emit("RIG-RESULT " + id + " FAIL");
			++failed;
		} else if (!c.skipped().empty()) {
			rig::emit("RIG-RESULT " + id + " SKIP " + c.skipped());
			++skipped;
		} else {
			rig::emit("RIG-RESULT " + id + " PASS");
			++passed;
		}
	}
	rig::emit(rig::fmt("RIG-END %s passed=%d failed=%d skipped=%d", guestName.c_str(), passed, failed, skipped));
	if (gOut != 1) {
		tcdrain(gOut);
		close(gOut);
	}
	return failed ? 1 : 0;
}
