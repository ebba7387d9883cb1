// The distribution's drive tools on the bundled box, through vexosim run and
// the interposer: each drive type answers what its tools send, the library's
// attribute list equals smartctl's own table, and no page the emulator builds
// fails smartctl's checksum check.
#include <algorithm>
#include <fstream>
#include <sstream>
#include <vexohw/smart_info.h>

#include "tools/cli_run.h"

namespace vexo::test {
namespace {

struct Box : ::testing::Test {
	static void SetUpTestSuite() { box = new BuiltBox; }
	static void TearDownTestSuite() { delete box; }
	static BuiltBox *box;

	// vexosim run ROOT -- argv, stdout and stderr together.
	static Ran run(std::vector<std::string> argv)
	{
		argv.insert(argv.begin(), {"run", box->root(), "--"});
		Ran r = runProgram(buildDir() + "/bin/vexosim", argv);
		r.out += r.err;
		return r;
	}
	static std::string node(const std::string &name)
	{
		std::ifstream in(box->root() + "/dev/" + name);
		return std::string(std::istreambuf_iterator<char>(in), {});
	}
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
} // namespace vexo::test
