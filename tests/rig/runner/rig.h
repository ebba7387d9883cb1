// The rig's guest-side runner: named checks of the library against the
// kernel's own drivers, run once per boot inside the guest.
//
// A check is a function registered with RIG_CHECK(guest, name); the host
// turns each into a ctest test named rig.<guest>.<name> by reading these
// macros from the sources, so adding a check is writing one.
#pragma once

#include <vexohw/disk.h>
#include <vexohw/disk_enum.h>
#include <vexohw/disk_probe.h>
#include <vexohw/smart_info.h>
#include <vexohw/smart_serial.h>
#include <vexohw/smart_temperature.h>
#include <vexohw/smartctl.h>
#include <vexoplatform/nvme_admin.h>
#include <cstdarg>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace rig {

// One disk of the guest, as the host configured it and as it came up.
struct Disk {
	std::string role;     // "sata_hdd", "virtio", ...
	std::string bus;      // ata, nvme, virtio, lsi, usb
	std::string port;     // internal, esata, usb, cache
	std::string when;     // boot, plug (added over QMP), unplug (removed over QMP)
	std::string model, serial, firmware, vendor, product;
	unsigned rotation = 0;
	unsigned physicalBlock = 512;
	unsigned long long sizeBytes = 0;
	unsigned critWarning = 0;
	// Found in the guest:
	std::string name;    // "sda", "nvme0n1"; empty while absent
	std::string sysPath; // resolved /sys/block/<name>
	std::string path() const { return "/dev/" + name; }
};

struct Guest {
	std::string name;
	std::vector<Disk> disks;
	Disk *role(const std::string &r);
	std::vector<Disk *> present();
	// The disks on these buses that the guest boots with.
	std::vector<Disk *> atBoot(std::initializer_list<std::string> buses);
};

class Check {
public:
	Check(const char *guest, const char *name) : guest_(guest), name_(name) {}
	const char *guest() const { return guest_; }
	const char *name() const { return name_; }

	// Records a failure and goes on: a check reports everything it finds.
	void fail(const char *fmt, ...) __attribute__((format(printf, 2, 3)));
	// Records a line of what was seen, shown with the result.
	void note(const char *fmt, ...) __attribute__((format(printf, 2, 3)));
	// The function under test is not in the library yet.
	void skip(const std::string &why) { skip_ = why; }

	bool expect(bool ok, const char *fmt, ...) __attribute__((format(printf, 3, 4)));
	bool eqStr(const std::string &what, const std::string &got, const std::string &want);
	bool eqInt(const std::string &what, long long got, long long want);

	bool failed() const { return !failures_.empty(); }
	const std::vector<std::string> &failures() const { return failures_; }
	const std::vector<std::string> &notes() const { return notes_; }
	const std::string &skipped() const { return skip_; }

private:
	const char *guest_;
	const char *name_;
	std::vector<std::string> failures_, notes_;
	std::string skip_;
};

using CheckFn = void (*)(Check &, Guest &);
struct Registered {
	const char *guest;
	const char *name;
	CheckFn fn;
};
std::vector<Registered> &registry();
struct Registrar {
	Registrar(const char *guest, const char *name, CheckFn fn) { registry().push_back({guest, name, fn}); }
};

#define RIG_CHECK(guest, name)                                                                   \
	static void rig_check_##guest##_##name(::rig::Check &c, ::rig::Guest &g);                 \
	static ::rig::Registrar rig_reg_##guest##_##name(#guest, #name, rig_check_##guest##_##name); \
	static void rig_check_##guest##_##name([[maybe_unused]] ::rig::Check &c, [[maybe_unused]] ::rig::Guest &g)

// ---- Guest setup (setup.cpp) ----

// A second appliance root for the virtual edition (vvos="yes"), sharing
// the kernel's /sys, /dev and /proc.
inline constexpr const char *kVvosRoot = "/rig-vvos";

// Reads the host's description of the guest's disks.
bool loadGuest(const std::string &file, const std::string &name, Guest &g, std::string &err);
// Finds each disk under /sys/block by bus, serial and model; absent disks
// keep an empty name.
void discover(Guest &g);
// Writes the appliance configuration for the disks as they are now: port
// maps of /etc.defaults/vexoinfo.conf, the platform description placing
// the NVMe disks, /etc.defaults/VERSION.
bool writeAppliance(Guest &g, std::string &err);

// ---- Helpers (util.cpp) ----

std::string readFile(const std::string &path);
std::string trim(const std::string &s);
std::string fmt(const char *f, ...) __attribute__((format(printf, 1, 2)));
std::string hexBytes(const unsigned char *p, size_t n);
// Runs a program with an argument vector (no shell), killed after
// `seconds`; its standard output, and its exit status into *status.
std::string run(const std::vector<std::string> &argv, int *status = nullptr, int seconds = 30);
// An ATA IDENTIFY string of `words` words from word `first`, trimmed.
std::string ataString(const unsigned char *id, int first, int words);
uint16_t word(const unsigned char *id, int n);
// "Key: value" lines of a tool's output.
std::string field(const std::string &text, const std::string &key);
// A descriptor for drive commands: read-only, non-blocking, as the library's
// callers open it. -1 on failure (the check records it).
int openDisk(Check &c, const Disk &d);
// Sets the marker the host waits for, on the result channel.
void emit(const std::string &line);
// Sorted, joined by single spaces.
std::string joinSorted(std::vector<std::string> v);
// DISK_CONTAINER_* of a port name ("internal", "usb", ...), -1 when unknown.
int containerOf(const std::string &port);
const char *ifaceName(DriveCommandInterface f);
// The names VEXODiskPortEnum should list for each port type (port_checks.cpp).
std::map<int, std::string> expectedPortSets(Guest &g);
// Runs one library call in a fresh process under the appliance root
// `sysroot` (see main.cpp's --call) and returns its output line.
std::string callIn(const std::string &sysroot, const std::string &call, const std::string &path);

} // namespace rig
