// vexosim build and run, end to end through the executable: the root it
// writes is read back through the sysroot seam as the library reads it, and
// the distribution's drive tools answer on it through the interposer.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <vexohw/disk.h>
#include <vexohw/disk_port.h>
#include <vexohw/smart_info.h>
#include <vexoplatform/nvme_location.h>

#include "frame/sysroot.h"
#include "frame/unique.h"
#include "support/sim_daemon.h"
#include "tools/cli_run.h"

namespace fs = std::filesystem;
using namespace vexo::test;

namespace {

// vexosim with stdout and stderr together.
Ran run(const std::vector<std::string> &args)
{
	Ran r = runProgram(vexo::test::buildDir() + "/bin/vexosim", args);
	r.out += r.err;
	return r;
}

struct TempDir {
	TempDir()
	{
		char t[] = "/tmp/vexosim-test.XXXXXX";
		path = ::mkdtemp(t);
	}
	~TempDir() { fs::remove_all(path); }
	std::string path;
};

// Through the seam, as the library reads it.
std::string readApp(const std::string &path)
{
	vexo::UniqueFile f(vexo::sysroot::fopen(path.c_str(), "r"));
	if (!f)
		return "<missing " + path + ">";
	std::string s;
	char buf[512];
	while (size_t n = std::fread(buf, 1, sizeof buf, f.get()))
		s.append(buf, n);
	return s;
}

std::string firstLine(const std::string &path)
{
	std::string s = readApp(path);
	return s.substr(0, s.find('\n'));
}

// Configuration values through the core library, as the library reads them.
std::string keyValue(const std::string &path, const std::string &key)
{
	char out[512];
	int n = VLIBCFileGetKeyValue(path.c_str(), key.c_str(), out, sizeof out, 0);
	return n > 0 ? out : n == 0 ? "" : "<no " + key + " in " + path + ">";
}

std::string sectionValue(const std::string &path, const std::string &section, const std::string &key)
{
	PVLIBSZHASH hash = VLIBCSzHashAlloc(16);
	std::string v = "<no " + section + "." + key + ">";
	if (VLIBCFileGetSection(path.c_str(), section.c_str(), &hash) >= 0)
		if (const char *s = VLIBCSzHashGetValue(hash, key.c_str()))
			v = s;
	VLIBCSzHashFree(hash);
	return v;
}

std::string realpathOf(const std::string &path)
{
	char out[PATH_MAX];
	return vexo::sysroot::realpath(path.c_str(), out) ? out : "<unresolved " + path + ">";
}

std::vector<std::string> globOf(const std::string &pattern)
{
	std::vector<std::string> m;
	EXPECT_EQ(vexo::sysroot::glob(pattern.c_str(), m), 0) << pattern;
	return m;
}

// A number of a description or a node, -1 when absent.
int64_t num(json_object *o, const char *key)
{
	json_object *v = field(o, key);
	return v ? json_object_get_int64(v) : -1;
}

std::string example(const std::string &name)
{
	return sourceTreeOf(__FILE__) + "/examples/" + name;
}

// Every bundled description builds, and each of its devices reads back as
// the library finds it: kernel-shaped links, port numbers and sizes.
TEST(Box12, DevicesReadBackThroughTheSeam)
{
	BuiltBox box;
	ASSERT_TRUE(box.ok()) << box.log();
	const std::string &root = box.root();
	ScopedEnv env("VEXO_SYSROOT", root.c_str());

	JsonDoc desc(json_object_from_file(box.description().c_str()));
	json_object *devs = field(desc.obj, "devices");
	ASSERT_TRUE(devs);
	std::string partitions = readApp("/proc/partitions");
	for (size_t i = 0; i < json_object_array_length(devs); ++i) {
		json_object *d = json_object_array_get_idx(devs, i);
		std::string name = text(d, "name");
		SCOPED_TRACE(name);
		std::string blk = "/sys/block/" + name;
		std::string real = realpathOf(blk);
		EXPECT_EQ(real.rfind("/sys/devices/pci0000:00/", 0), 0u) << real;
		// NVMe namespaces sit right under their controller, all else in a block/ folder.
		EXPECT_TRUE(real.ends_with((text(d, "protocol") == "nvme" ? "/" : "/block/") + name)) << real;

		uint64_t size = (uint64_t)num(d, "size_bytes");
		EXPECT_EQ(firstLine(blk + "/size"), std::to_string(size / 512));
		int64_t lbs = field(d, "logical_block_size") ? num(d, "logical_block_size") : 512;
		EXPECT_EQ(firstLine(blk + "/queue/logical_block_size"), std::to_string(lbs));
		bool ssd = field(d, "rotational") ? !json_object_get_boolean(field(d, "rotational"))
						  : num(d, "rotation_rate") == 1;
		EXPECT_EQ(firstLine(blk + "/queue/rotational"), ssd ? "0" : "1");
		EXPECT_NE(partitions.find(" " + std::to_string(size / 1024) + " " + name + "\n"), std::string::npos);
		EXPECT_EQ(vexo::sysroot::access(("/run/vexostorage/disks/" + name).c_str(), F_OK), 0);

		std::string where = text(d, "where");
		if (text(d, "protocol") == "nvme") {
			std::string slotKey = "pci" + std::to_string(num(d, "slot"));
			std::string id = sectionValue("/etc.defaults/extensionPorts", "pci", slotKey);
			EXPECT_NE(real.find("/" + id + "/"), std::string::npos) << real;
			EXPECT_NE(real.find("/nvme/nvme"), std::string::npos) << real;
			continue;
		}
		// SATA and USB disks: a SCSI device with its generic node and host.
		EXPECT_EQ(globOf(blk + "/device/scsi_generic/sg*").size(), 1u);
		// The kernel's 16-byte INQUIRY product field: the model cut and padded.
		std::string model = text(d, "model").substr(0, 16);
		model.resize(16, ' ');
		EXPECT_EQ(firstLine(blk + "/device/model"), model);
		auto procNames = globOf(blk + "/device/../../scsi_host/host*/proc_name");
		ASSERT_EQ(procNames.size(), 1u);
		EXPECT_EQ(firstLine(procNames[0]), where == "usb" ? "usb-storage" : "ahci");
		auto portNo = globOf(blk + "/../../../../../ata_port/ata*/port_no");
		if (where == "usb") {
			EXPECT_TRUE(portNo.empty());
			EXPECT_NE(real.find("/usb"), std::string::npos) << real;
		} else {
			ASSERT_EQ(portNo.size(), 1u);
			const char *key = where == "bay" ? "bay" : where == "esata" || where == "unit" ? "port" : "position";
			EXPECT_EQ(firstLine(portNo[0]), std::to_string(num(d, key)));
		}
	}

	// No link points outside the root or by an absolute path.
	for (auto it = fs::recursive_directory_iterator(root); it != fs::recursive_directory_iterator(); ++it) {
		if (!it->is_symlink())
			continue;
		std::string text = fs::read_symlink(it->path());
		EXPECT_NE(text[0], '/') << it->path();
		std::string target = fs::canonical(it->path()).string();
		EXPECT_EQ(target.rfind(fs::canonical(root).string() + "/", 0), 0u) << it->path();
	}

	// What the CLI tests on this box do not read through it: ports, units,
	// NVMe places and the empty bay are theirs.
	EXPECT_EQ(readApp("/etc/vexoinfo.conf"), "");
	EXPECT_EQ(VLIBCMaxDiskGet(), 12);
	EXPECT_EQ(VLIBCSupportNVMe(), 1);
	EXPECT_EQ(VLIBCSupportSAS(), 0);
	EXPECT_EQ(keyValue("/etc.defaults/VERSION", "base"), "72806");
	EXPECT_EQ(readApp("/sys/block/sda/device/vendor"), "ATA     \n");
	EXPECT_EQ(keyValue("/sys/class/scsi_host/host0/vexo_pm_info", "vexo_device_list"), "");
	EXPECT_EQ(firstLine("/sys/block/sdn/sdn1/start"), "2048");
	EXPECT_NE(partitions.find("   8      209 1953479680 sdn1\n"), std::string::npos);
}

// A bad description is refused with the place of the fault, and nothing is
// written.
TEST(Describe, RefusesBadDescriptions)
{
	const std::string good = R"({"model": "VX0200", "version": {"base": 1, "nano": 0},
		"ports": {"internal": 2},
		"devices": [{"name": "sda", "where": "bay", "bay": 1, "protocol": "ata", "model": "M",
			     "serial": "S1", "firmware": "F", "size_bytes": 1048576, "rotational": true}]})";
	struct Case {
		std::string from, to, message;
	};
	const std::vector<Case> cases = {
		{"", "", ""}, // the unchanged description builds
		{R"("bay": 1,)", R"("bay": 3,)", "devices[0].bay: 3 out of range: the box has 2 internal bays"},
		{R"("bay": 1,)", R"("bay": 0,)", "devices[0].bay: out of range: 0 (1 to 26)"},
		{R"("protocol": "ata")", R"("protocol": "sas")", "devices[0].protocol: unknown protocol \"sas\""},
		{R"("serial": "S1", )", "", "devices[0].serial: missing"},
		{R"("serial": "S1")", R"("serial": "")", "devices[0].serial: must not be empty"},
		{R"("rotational": true)", R"("rotational": true, "colour": "red")", "devices[0].colour: unknown key"},
		{R"("size_bytes": 1048576)", R"("size_bytes": 1048577)",
		 "devices[0].size_bytes: must be a multiple of logical_block_size"},
		{R"("name": "sda")", R"("name": "sdb")", "devices[0].name: \"sdb\" cannot sit there: that place is \"sda\""},
		{R"("where": "bay")", R"("where": "attic")", "devices[0].where: unknown place \"attic\""},
		{R"("nano": 0)", R"("nano": -1)", "version.nano: out of range"},
		{R"("internal": 2)", R"("internal": 20, "usb": 7)", "ports: more than 26 ports"},
		{R"("ports")", R"("vexoinfo": {"maxdisks": 3}, "ports")", "vexoinfo.maxdisks: set from model"},
		{R"("rotational": true}])",
		 R"("rotational": true}, {"name": "sda", "where": "bay", "bay": 2, "protocol": "ata", "model": "M",
		    "serial": "S2", "firmware": "F", "size_bytes": 1048576, "rotational": true}])",
		 "devices[1].name: duplicate name \"sda\" (also devices[0])"},
		{R"("rotational": true)", R"("rotational": true, "partitions": [{"size_bytes": 1048576}])",
		 "devices[0].partitions[0].size_bytes: partition ends beyond the end of the disk"},
		{R"("where": "bay", "bay": 1)", R"("where": "unit", "port": 1, "bay": 1)",
		 "devices[0].port: no expansion unit on eSATA port 1"},
		{R"("where": "bay", "bay": 1)", R"("where": "pci", "slot": 1, "position": 1)",
		 "devices[0].slot: no PCI slot 1 in pci_slots"},
		{"]}", "]", "not JSON"},
	};
	TempDir tmp;
	for (size_t i = 0; i < cases.size(); ++i) {
		const Case &c = cases[i];
		SCOPED_TRACE(c.message.empty() ? "the good one" : c.message);
		std::string text = good;
		if (!c.from.empty()) {
			size_t at = text.find(c.from);
			ASSERT_NE(at, std::string::npos) << c.from;
			text.replace(at, c.from.size(), c.to);
		}
		std::string file = tmp.path + "/box" + std::to_string(i) + ".json";
		std::ofstream(file) << text;
		std::string root = tmp.path + "/root" + std::to_string(i);
		Ran r = run({"build", file, root});
		if (c.message.empty()) {
			EXPECT_EQ(r.status, 0) << r.out;
			continue;
		}
		EXPECT_EQ(r.status, 2) << r.out;
		EXPECT_EQ(r.out.rfind("vexosim: " + file + ": ", 0), 0u) << r.out;
		EXPECT_NE(r.out.find(c.message), std::string::npos) << r.out;
		EXPECT_FALSE(fs::exists(root));
	}
	EXPECT_EQ(fs::directory_iterator(tmp.path)->path().filename().string().find(".vexosim-new"),
		  std::string::npos);
	Ran missing = run({"build", tmp.path + "/absent.json", tmp.path + "/r"});
	EXPECT_EQ(missing.status, 2);
	EXPECT_NE(missing.out.find("absent.json: cannot read: No such file or directory"), std::string::npos);
}

// A rebuild replaces an earlier root whole; a directory vexosim did not
// write is never replaced.
TEST(Describe, ReplacesOnlyItsOwnRoots)
{
	TempDir tmp;
	std::string root = tmp.path + "/root";
	ASSERT_EQ(run({"build", example("box12.json"), root}).status, 0);
	std::ofstream(root + "/dev/stale") << "left from before";
	Ran again = run({"build", example("box12.json"), root});
	ASSERT_EQ(again.status, 0) << again.out;
	EXPECT_FALSE(fs::exists(root + "/dev/stale"));
	EXPECT_TRUE(fs::exists(root + "/dev/sda"));
	for (const auto &e : fs::directory_iterator(tmp.path))
		EXPECT_EQ(e.path().filename(), "root") << "left behind: " << e.path();

	std::string foreign = tmp.path + "/home";
	fs::create_directories(foreign);
	std::ofstream(foreign + "/notes.txt") << "mine";
	Ran r = run({"build", example("box12.json"), foreign});
	EXPECT_EQ(r.status, 1);
	EXPECT_NE(r.out.find("refusing to replace " + foreign + ": it is not empty and was not written by vexosim"),
		  std::string::npos)
		<< r.out;
	EXPECT_TRUE(fs::exists(foreign + "/notes.txt"));
	EXPECT_FALSE(fs::exists(foreign + "/dev"));
}

// System devices, SATA devices on an adapter card, drive pass-through and
// partitions of the p-style names.
TEST(Describe, SystemAndCardDevices)
{
	TempDir tmp;
	std::string file = tmp.path + "/box.json";
	std::ofstream(file) << R"({"model": "VX0400", "version": {"base": 9, "nano": 1},
		"ports": {"internal": 4},
		"pci_slots": [{"slot": 2, "pci_id": "0000:00:1c.4", "card": "M2D18", "sockets": 2}],
		"devices": [
		  {"name": "sysd1", "where": "sys", "position": 1, "protocol": "ata", "model": "SYS DOM",
		   "serial": "D1", "firmware": "F1", "size_bytes": 8589934592, "rotational": false},
		  {"name": "nvc2", "where": "pci", "slot": 2, "position": 2, "protocol": "ata",
		   "model": "SATA M2", "serial": "N2", "firmware": "F2", "size_bytes": 256060514304,
		   "logical_block_size": 4096, "rotational": false,
		   "partitions": [{"size_bytes": 1048576}, {"size_bytes": 2097152}],
		   "drive": {"temperature": 41, "firmware": "F2-EMU", "smart": {"attributes": [5, 9]}}}]})";
	std::string root = tmp.path + "/root";
	Ran r = run({"build", file, root});
	ASSERT_EQ(r.status, 0) << r.out;
	ScopedEnv env("VEXO_SYSROOT", root.c_str());

	EXPECT_EQ(realpathOf("/sys/block/sysd1"),
		  "/sys/devices/pci0000:00/0000:00:12.0/ata5/host4/target4:0:0/4:0:0:0/block/sysd1");
	std::string nvc = realpathOf("/sys/block/nvc2");
	EXPECT_EQ(nvc.rfind("/sys/devices/pci0000:00/0000:00:1c.4/", 0), 0u) << nvc;
	auto port = globOf("/sys/block/nvc2/../../../../../ata_port/ata*/port_no");
	ASSERT_EQ(port.size(), 1u);
	EXPECT_EQ(firstLine(port[0]), "2");
	EXPECT_EQ(sectionValue("/etc.defaults/extensionPorts", "pci", "pci2"), "0000:00:1c.4");
	EXPECT_EQ(firstLine("/sys/block/nvc2/size"), "500118192");
	EXPECT_EQ(firstLine("/sys/block/nvc2/queue/logical_block_size"), "4096");
	EXPECT_EQ(firstLine("/sys/block/nvc2/nvc2p2/start"), "4096");
	std::string parts = readApp("/proc/partitions");
	EXPECT_NE(parts.find(" nvc2p1\n"), std::string::npos) << parts;
	EXPECT_NE(parts.find(" 2048 nvc2p2\n"), std::string::npos) << parts;
	EXPECT_EQ(keyValue("/etc.defaults/vexoinfo.conf", "esataportcfg"), "0x0");

	// The drive object lands over the identity, key for key, and nothing else.
	JsonDoc node(readApp("/dev/nvc2"));
	ASSERT_TRUE(node.obj);
	EXPECT_EQ(texts(node.obj, {"firmware", "temperature", "vendor"}), (Strings{"F2-EMU", "41", "ATA"}));
	EXPECT_EQ(json_object_array_length(field(field(node.obj, "smart"), "attributes")), 2u);
	EXPECT_EQ(json_object_object_length(node.obj), 10);
}

// run: the command sees the box as its root, the drive emulator as its
// device backend and the interposer beneath it, and nothing passes through
// a shell.
TEST(Run, SetsTheRootAndBackend)
{
	HostDaemonLock daemonLock; // each run brings the box's vcemd up
	TempDir tmp;
	BuiltBox box;
	ASSERT_TRUE(box.ok()) << box.log();
	const std::string &root = box.root();
	std::string backend = tmp.path + "/libdrive.so";
	std::ofstream(backend) << "";
	{
		ScopedEnv b("VEXOSIM_DRIVE_BACKEND", backend.c_str());
		Ran r = run({"run", root, "--", "env"});
		EXPECT_EQ(r.status, 0) << r.out;
		EXPECT_NE(r.out.find("\nVEXO_SYSROOT=" + fs::canonical(root).string() + "\n"), std::string::npos)
			<< r.out;
		EXPECT_NE(r.out.find("\nVEXO_DEVICE_BACKEND=" + backend + "\n"), std::string::npos) << r.out;
		// Every program runs on the box's interposer.
		EXPECT_NE(r.out.find("\nLD_PRELOAD=" + fs::canonical(root).string() +
				     "/usr/vexo/libexec/libvexosim_interpose.so\n"),
			  std::string::npos)
			<< r.out;

		Ran args = run({"run", root, "--", "printf", "%s|", "a b", "$(id)", ";"});
		EXPECT_EQ(args.out, "a b|$(id)|;|");
	}
	{
		ScopedEnv b("VEXOSIM_DRIVE_BACKEND", (tmp.path + "/absent.so").c_str());
		Ran r = run({"run", root, "--", "env"});
		EXPECT_EQ(r.status, 2);
		EXPECT_NE(r.out.find("VEXOSIM_DRIVE_BACKEND=" + tmp.path + "/absent.so: No such file"),
			  std::string::npos)
			<< r.out;
	}
	Ran none = run({"run", root, "--", tmp.path + "/no-such-program"});
	EXPECT_EQ(none.status, 127);
	EXPECT_NE(none.out.find("cannot run"), std::string::npos);
	EXPECT_EQ(run({"run", tmp.path + "/nowhere", "--", "env"}).status, 2);
	EXPECT_EQ(run({"run", root, "env"}).status, 2); // the -- is required
}

// The distribution's drive tools on the bundled box, through vexosim run and
// the interposer: each drive type answers what its tools send, the library's
// attribute list equals smartctl's own table, and no page the emulator builds
// fails smartctl's checksum check.
struct Box : ::testing::Test {
	static void SetUpTestSuite() { box = new BuiltBox; }
	static void TearDownTestSuite() { delete box; }
	static BuiltBox *box;

	// vexosim run ROOT -- argv, stdout and stderr together.
	static Ran run(std::vector<std::string> argv)
	{
		argv.insert(argv.begin(), {"run", box->root(), "--"});
		HostDaemonLock daemonLock; // the run brings the box's vcemd up
		return ::run(argv);
	}
	static std::string node(const std::string &name) { return box->read("/dev/" + name); }
	static std::vector<std::string> drives(const char *protocol)
	{
		std::vector<std::string> out;
		for (const auto &e : std::filesystem::directory_iterator(box->root() + "/dev"))
			if (node(e.path().filename()).find(std::string("\"protocol\":\"") + protocol + "\"") !=
			    std::string::npos)
				out.push_back(e.path().filename());
		std::sort(out.begin(), out.end());
		return out;
	}
};
BuiltBox *Box::box = nullptr;

std::vector<std::string> words(const std::string &line)
{
	std::istringstream in(line);
	std::vector<std::string> w;
	for (std::string t; in >> t;)
		w.push_back(t);
	return w;
}

// Every tool the library runs, on each drive type of the box, exits 0 and
// shows the drive it was pointed at.
TEST_F(Box, ToolsAnswerPerDriveType)
{
	ASSERT_TRUE(box->ok()) << box->log();
	struct Case {
		std::vector<std::string> argv;
		const char *shows;
	} cases[] = {
		{{"/usr/bin/smartctl", "-x", "-d", "sat", "/dev/sda"}, "WWZ4K1QA"},
		{{"/usr/bin/smartctl", "-a", "-d", "ata", "/dev/sda"}, "SMART overall-health self-assessment test result: PASSED"},
		{{"/usr/bin/smartctl", "-H", "-d", "ata", "/dev/sda"}, "PASSED"},
		{{"/usr/bin/smartctl", "-a", "-d", "marvell", "/dev/sda"}, "ST8000VN004-3CP101"},
		{{"/usr/bin/smartctl", "-l", "selftest", "-c", "/dev/sda"}, "Self-test supported"},
		{{"/usr/bin/smartctl", "-x", "/dev/nvme0n1"}, "22514D800394"},
		{{"/usr/bin/hdparm", "-I", "/dev/sda"}, "WWZ4K1QA"},
		{{"/usr/bin/hdparm", "-C", "/dev/sda"}, "active/idle"},
		{{"/usr/sbin/nvme", "id-ctrl", "/dev/nvme0n1"}, "22514D800394"},
		{{"/usr/sbin/nvme", "smart-log", "/dev/nvme0n1"}, "311 Kelvin"},
		{{"/usr/sbin/nvme", "self-test-log", "/dev/nvme0n1"}, "Power on hours (POH)         : 0x17d4"},
		{{"/usr/vexo/bin/sg_sat_identify", "/dev/sda"}, "Response for IDENTIFY DEVICE ATA command"},
		{{"/usr/vexo/bin/sg_raw", "-r", "512", "/dev/sda", "85", "08", "0e", "00", "00", "00", "01", "00", "e0", "00",
		  "00", "00", "00", "00", "2f", "00"},
		 "Received 512 bytes of data"},
	};
	for (const auto &c : cases) {
		SCOPED_TRACE(c.argv[0] + " " + c.argv[1]);
		Ran r = run(c.argv);
		EXPECT_NE(r.out.find(c.shows), std::string::npos) << r.out;
		// Bit 2 (a command failed) only for -H through the vendor wrapper,
		// whose HDIO_DRIVE_TASKFILE libata refuses too.
		bool marvell = std::find(c.argv.begin(), c.argv.end(), "marvell") != c.argv.end();
		EXPECT_EQ(r.status & ~(marvell ? 4 : 0), 0) << r.out;
	}
	// What a drive lacks it refuses as a drive would: libata does not
	// translate LOG SENSE, and the sleeping drive says so after hdparm -y.
	Ran logs = run({"/usr/vexo/sbin/sg_logs", "/dev/sda"});
	EXPECT_NE(logs.out.find("Invalid opcode"), std::string::npos) << logs.out;
	EXPECT_NE(logs.status, 0);
	EXPECT_EQ(run({"/usr/bin/hdparm", "-y", "/dev/sdb"}).status, 0);
	// SCT error recovery control: set through one run, read back by the next.
	EXPECT_EQ(run({"/usr/bin/smartctl", "-l", "scterc,50,60", "/dev/sdd"}).status, 0);
	Ran erc = run({"/usr/bin/smartctl", "-l", "scterc", "/dev/sdd"});
	EXPECT_NE(erc.out.find("Read:     50 (5.0 seconds)\n          Write:     60 (6.0 seconds)"), std::string::npos)
		<< erc.out;
	EXPECT_NE(run({"/usr/bin/hdparm", "-C", "/dev/sdb"}).out.find("standby"), std::string::npos);
	Ran commit = run({"/usr/sbin/nvme", "fw-commit", "/dev/nvme1n1", "-s", "1", "-a", "3"});
	EXPECT_NE(commit.out.find("Invalid Firmware Image"), std::string::npos) << commit.out;
	EXPECT_NE(commit.status, 0);
}

// Any program sees the nodes as the kernel's: block devices with sysfs's
// numbers, media that reads as zeros (also through a descriptor copied with
// dup2, as dd does) and is never written, and the drive's description
// untouched.
TEST_F(Box, NodesLookLikeDevices)
{
	ASSERT_TRUE(box->ok()) << box->log();
	std::string before = node("sde");
	EXPECT_EQ(run({"stat", "-c", "%F %t:%T", "/dev/sde", "/dev/nvme1n1"}).out,
		  "block special file 8:40\nblock special file 103:1\n");
	Ran in = run({"dd", "if=/dev/sde", "bs=512", "skip=31251759102", "count=4", "status=none"});
	EXPECT_EQ(in.status, 0) << in.out;
	EXPECT_EQ(in.out, std::string(1024, '\0')); // the last two sectors, then the end
	Ran out = run({"dd", "if=/dev/zero", "of=/dev/sde", "bs=512", "count=1", "status=none"});
	EXPECT_NE(out.status, 0);
	EXPECT_NE(out.out.find("Read-only file system"), std::string::npos) << out.out;
	EXPECT_EQ(node("sde"), before);
}

// Firmware goes down in pieces and is kept by the drive: hdparm's mode E
// segments on SATA, nvme's download and commit on NVMe.
TEST_F(Box, FirmwareDownloadIsStored)
{
	ASSERT_TRUE(box->ok()) << box->log();
	std::string image = box->root() + "/../fw.bin";
	std::string bytes;
	for (int i = 0; i < 3 * 512; ++i)
		bytes += static_cast<char>(i * 7 + 1);
	std::ofstream(image) << bytes;
	Ran hd = run({"/usr/bin/hdparm", "--fwdownload-modee", image, "--yes-i-know-what-i-am-doing",
		      "--please-destroy-my-drive", "/dev/sdc"});
	EXPECT_EQ(hd.status, 0) << hd.out;
	std::string n = node("sdc");
	EXPECT_NE(n.find("\"bytes\":1536"), std::string::npos) << n;
	EXPECT_NE(n.find("\"image\":\"01080f16"), std::string::npos); // bytes 1, 8, 15, ... in order
	EXPECT_NE(n.find("\"activated\":false"), std::string::npos);

	Ran dl = run({"/usr/sbin/nvme", "fw-download", "/dev/nvme0n1", "-f", image, "-x", "1024"});
	EXPECT_EQ(dl.status, 0) << dl.out;
	Ran act = run({"/usr/sbin/nvme", "fw-activate", "/dev/nvme0n1", "-s", "1", "-a", "3"});
	EXPECT_EQ(act.status, 0) << act.out;
	n = node("nvme0n1");
	EXPECT_NE(n.find("\"bytes\":1536"), std::string::npos) << n;
	EXPECT_NE(n.find("\"slot\":1"), std::string::npos);
	EXPECT_NE(n.find("\"action\":3"), std::string::npos);
}

// The library's attribute list is smartctl's table, row for row, on every
// ATA drive of the box; and smartctl finds every checksum good.
TEST_F(Box, LibraryListEqualsSmartctlTable)
{
	ASSERT_TRUE(box->ok()) << box->log();
	ScopedEnv root("VEXO_SYSROOT", box->root().c_str());
	std::vector<std::string> ata = drives("ata");
	ASSERT_GE(ata.size(), 10u);
	for (const auto &name : ata) {
		SCOPED_TRACE(name);
		Ran a = run({"/usr/bin/smartctl", "-a", "-d", "sat", "/dev/" + name});
		// Bits 0-2 say smartctl could not talk to the drive; the higher
		// ones report what the drive holds (an attribute at its threshold,
		// a failed self-test), which the box has on purpose.
		EXPECT_EQ(a.status & 0x07, 0) << a.out;
		Ran x = run({"/usr/bin/smartctl", "-x", "-d", "sat", "/dev/" + name});
		for (const Ran *r : {&a, &x})
			EXPECT_EQ(r->out.find("checksum"), std::string::npos) << r->out;
		std::vector<std::vector<std::string>> table;
		std::istringstream in(a.out);
		bool inTable = false;
		for (std::string l; std::getline(in, l);) {
			if (l.rfind("ID#", 0) == 0)
				inTable = true;
			else if (inTable && l.empty())
				break;
			else if (inTable)
				table.push_back(words(l));
		}
		ASSERT_FALSE(table.empty()) << a.out;
		SmartInfoEntry *list = nullptr;
		ASSERT_EQ(AtaSmartInfoGet(("/dev/" + name).c_str(), "sat", &list), 0);
		size_t i = 0;
		for (const SmartInfoEntry *e = list; e; e = e->next, ++i) {
			ASSERT_LT(i, table.size());
			const auto &row = table[i]; // ID NAME FLAG VALUE WORST THRESH TYPE UPDATED WHEN_FAILED RAW...
			ASSERT_GE(row.size(), 10u);
			EXPECT_EQ(std::vector<std::string>({e->id, e->name, e->value, e->worst, e->threshold, e->raw}),
				  std::vector<std::string>({row[0], row[1], row[3], row[4], row[5], row[9]}));
		}
		EXPECT_EQ(i, table.size());
		VEXODiskSmartInfoFree(list);
	}
}

} // namespace
