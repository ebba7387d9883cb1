// sg_raw, sg_sat_identify and sg_logs: their dumps read back as the library
// reads them, against the bytes the emulated drive holds.
#include <cstdlib>
#include <sstream>

#include "sim/tools_sim.h"

namespace vexo::test {
namespace {

const bool kEmulator = installDriveEmulator();

const char *kReadSctStatus[] = {"85", "08", "0e", "00", "00", "00", "01", "00",
				"e0", "00", "00", "00", "00", "00", "2f", "00"};

std::vector<std::string> sgRaw(const std::string &dev, unsigned request, const std::vector<std::string> &cdb)
{
	std::vector<std::string> argv = {"/usr/vexo/bin/sg_raw", "-r", std::to_string(request), dev};
	argv.insert(argv.end(), cdb.begin(), cdb.end());
	return argv;
}

// Bytes of a dump: the first field is the offset (hex), then up to 16
// bytes; the ASCII column, if any, starts at column 60.
std::vector<uint8_t> undump(const std::vector<std::string> &ls, size_t from)
{
	std::vector<uint8_t> out;
	for (size_t i = from; i < ls.size() && !ls[i].empty(); ++i) {
		std::istringstream in(ls[i].substr(0, 58));
		std::string off, b;
		in >> off;
		EXPECT_EQ(std::strtoul(off.c_str(), nullptr, 16), out.size()) << ls[i];
		while (in >> b)
			out.push_back(static_cast<uint8_t>(std::strtoul(b.c_str(), nullptr, 16)));
	}
	return out;
}

using SgTools = ToolsSim;

// The SCT status page as sg_raw dumps it: the temperature at byte 200 is
// the drive's, and the dump is what the library reads through its popen
// (stdout and stderr as one stream).
TEST_F(SgTools, RawReadsTheSctStatusLog)
{
	node("sda", R"({"protocol":"ata","temperature":47,"max_temperature":58})");
	std::vector<std::string> cdb(std::begin(kReadSctStatus), std::end(kReadSctStatus));
	ToolRun r = run(sgRaw("/dev/sda", 512, cdb));
	ASSERT_EQ(r.status, 0) << r.err;
	EXPECT_EQ(r.out, "");
	std::vector<std::string> ls = lines(r.err);
	ASSERT_GE(ls.size(), 3u + 32u);
	EXPECT_EQ(ls[0], "SCSI Status: Good ");
	EXPECT_EQ(ls[1], "");
	EXPECT_EQ(ls[2], "Received 512 bytes of data:");
	std::vector<uint8_t> page = undump(ls, 3);
	ASSERT_EQ(page.size(), 512u);
	EXPECT_EQ(page[0], 3);
	EXPECT_EQ(page[200], 47);
	EXPECT_EQ(page[204], 58);
	EXPECT_EQ(ls[3 + 12], " c0     00 00 00 00 00 00 00 00  2f 00 00 00 3a 00 00 00    ......../...:...");
	EXPECT_EQ(ls[3 + 16], " 100    00 00 00 00 00 00 00 00  00 00 00 00 00 00 00 00    ................");
	// The command as a real sg_raw sends it.
	EXPECT_NE(last("sda").find("dxfer_direction=-3 cmd_len=16 mx_sb_len=32 dxfer_len=512 timeout=20000 "
				   "cdb=85080e0000000100e000000000002f00 -> ok"),
		  std::string::npos)
		<< last("sda");
}

// A short answer: the last line stops after its ASCII; no data, no dump.
TEST_F(SgTools, RawShortAnswerAndNoData)
{
	node("sdb", R"({"protocol":"scsi","model":"HUH721212AL5204","vendor":"HGST","firmware":"C3D0"})");
	ToolRun r = run(sgRaw("/dev/sdb", 64, {"12", "00", "00", "00", "40", "00"}));
	ASSERT_EQ(r.status, 0);
	EXPECT_EQ(r.err, "SCSI Status: Good \n\nReceived 36 bytes of data:\n"
			 " 00     00 00 06 02 1f 00 00 00  48 47 53 54 20 20 20 20    ........HGST    \n"
			 " 10     48 55 48 37 32 31 32 31  32 41 4c 35 32 30 34 20    HUH721212AL5204 \n"
			 " 20     43 33 44 30                                         C3D0\n");
	r = run({"/usr/vexo/bin/sg_raw", "/dev/sdb", "00", "00", "00", "00", "00", "00"});
	EXPECT_EQ(r.status, 0);
	EXPECT_EQ(r.err, "SCSI Status: Good \n\n");
}

// Failures of the three tools: sense data decoded, the package's exit
// statuses, and arguments never passed through a shell.
TEST_F(SgTools, Failures)
{
	node("sda", R"({"protocol":"ata"})");
	node("sdb", R"({"protocol":"scsi"})");
	node("sdc", R"({"protocol":"ata","faults":{"identify":{"abort":true}}})");
	std::vector<std::string> cdb(std::begin(kReadSctStatus), std::end(kReadSctStatus));
	const std::string id = "/usr/vexo/bin/sg_sat_identify", logs = "/usr/vexo/sbin/sg_logs";
	struct Case {
		std::vector<std::string> argv;
		int status;
		std::string errStart;
	} cases[] = {
		{sgRaw("/dev/sdb", 512, cdb), 9,
		 "SCSI Status: Check Condition \n\nSense Information:\nFixed format, current; Sense key: Illegal Request\n"
		 "Additional sense: Invalid command operation code\n\nError 9 occurred, no data received\n"},
		{sgRaw("/dev/sda", 512, {"85", "08", "0e", "00", "00", "00", "01", "00", "e5", "00", "00", "00", "00", "00", "2f", "00"}),
		 11,
		 "SCSI Status: Check Condition \n\nSense Information:\nDescriptor format, current; Sense key: Aborted Command\n"
		 "Additional sense: No additional sense information\n"
		 "  Descriptor type: ATA Status Return: extend=0 error=0x4 \n"
		 "        count=0x0 lba=0x0000e5 device=0x0 status=0x51\n\nError 11 occurred, no data received\n"},
		{sgRaw("/dev/sdq", 512, cdb), 52, "/dev/sdq: No such file or directory\n"},
		{sgRaw("/dev/sda", 512, {"12", "00", "$(reboot)", "00", "24", "00"}), 1,
		 "Invalid command byte '$(reboot)'\nUsage: sg_raw"},
		{sgRaw("/dev/sda", 512, {"12", "00", "00", "00", "24"}), 1, "CDB too short (min. 6 bytes)\nUsage: sg_raw"},
		{{"/usr/vexo/bin/sg_raw", "-r", "lots", "/dev/sda", "12", "00", "00", "00", "24", "00"}, 1,
		 "Invalid request length 'lots'\n"},
		{{id, "/dev/sdb"}, 9, "ATA PASS-THROUGH (16) not supported\nsg_sat_identify failed: Illegal request, Invalid opcode\n"},
		{{id, "/dev/sdc"}, 11, "Aborted command: try again with '-p' option\nsg_sat_identify failed: Aborted command\n"},
		{{id, "/dev/sdq"}, 52, "sg_sat_identify failed: No such file or directory\n"},
		{{id}, 1, "Missing device name!\n\nUsage: sg_sat_identify"},
		{{logs, "-p", "0xd", "/dev/sda"}, 9, "log_sense: not supported\nsg_logs failed: Illegal request, Invalid opcode\n"},
		{{logs, "-p", "0x11", "/dev/sdb"}, 5, "log_sense: field in cdb illegal\nsg_logs failed: Illegal request\n"},
		{{logs, "-p", "0xd", "/dev/sdq"}, 52,
		 "error opening file: /dev/sdq: No such file or directory \nsg_logs failed: No such file or directory\n"},
		{{logs, "-p", "0x40", "/dev/sdb"}, 1, "Bad page code value after '-p' option\n"},
		{{logs, "-p", "0xd"}, 1, "No DEVICE argument given\nUsage: sg_logs"},
	};
	for (const Case &c : cases) {
		SCOPED_TRACE(c.errStart);
		ToolRun r = run(c.argv);
		EXPECT_EQ(r.status, c.status) << r.err;
		EXPECT_EQ(r.err.substr(0, c.errStart.size()), c.errStart);
		if (c.argv[0] != logs) { // sg_logs prints the device's INQUIRY line first
			EXPECT_EQ(r.out, "");
		}
	}
}

// IDENTIFY in 16-bit words: word 206 (line c8, seventh word) is the node's
// SCT capabilities, and the strings are where the page keeps them.
TEST_F(SgTools, SatIdentifyWords)
{
	for (unsigned sct : {0x003Du, 0x0020u}) {
		SCOPED_TRACE(sct);
		root.remove("/dev/sda");
		node("sda", R"({"protocol":"ata","serial":"ZL2K4T7C","sct":)" + std::to_string(sct) + "}");
		ToolRun r = run({"/usr/vexo/bin/sg_sat_identify", "/dev/sda"});
		ASSERT_EQ(r.status, 0) << r.err;
		std::vector<std::string> ls = lines(r.out);
		ASSERT_EQ(ls.size(), 33u);
		EXPECT_EQ(ls[0], "Response for IDENTIFY DEVICE ATA command:");
		std::istringstream line(ls[1 + 200 / 8]);
		std::string off, w[8];
		line >> off;
		for (auto &x : w)
			line >> x;
		EXPECT_EQ(off, "c8");
		EXPECT_EQ(std::strtoul(w[6].c_str(), nullptr, 16), sct);
		EXPECT_EQ(ls[2], " 08     0000 0000 5a4c 324b 3454 3743 2020 2020     .. .. ZL 2K 4T 7C       ");
	}
	EXPECT_NE(last("sda").find("cmd_len=16 mx_sb_len=64 dxfer_len=512 timeout=20000 "
				   "cdb=85080e0000000100000000000000ec00 -> ok"),
		  std::string::npos)
		<< last("sda");
}

// The pages the library and its callers read, decoded, in hex and raw.
TEST_F(SgTools, LogPages)
{
	// Solid state media: percentage used 7; self-test results: one entry.
	node("sdb", R"({"protocol":"scsi","model":"HUSMM1640ASS200","vendor":"HGST","firmware":"A204","temperature":41,
		"scsi":{"log_pages":{"0x11":"1100000800010304 00000007",
		"0x15":"150000140000030c 0000123400010005 0000300000000000 00000000"}}})");
	const std::string head = "    HGST      HUSMM1640ASS200   A204\n";
	struct Case {
		std::vector<std::string> args;
		std::string out;
	} cases[] = {
		{{"-p", "0xd", "/dev/sdb"}, head + "Temperature page  [0xd]\n  Current temperature = 41 C\n  Reference temperature = 60 C\n"},
		{{"/dev/sdb", "-p", "0x11"}, head + "Solid state media page  [0x11]\n  Percentage used endurance indicator: 7 %\n"},
		{{"-p", "0x15", "/dev/sdb"},
		 head + "Background scan results page  [0x15]\n  Status parameters:\n"
			"    Accumulated power on minutes: 4660 [h:m  77:40]\n"
			"    Status: background medium scan is active\n"
			"    Number of background scans performed: 5\n"
			"    Background medium scan progress: 0.00 %\n"
			"    Number of background medium scans performed: 12288\n"},
		{{"-H", "-p", "0xd", "/dev/sdb"},
		 "Log page code=0xd, DS=0, SPF=0, page_len=0xc\n 00     0d 00 00 0c 00 00 00 02  00 29 00 01 00 02 00 3c\n"},
		{{"--raw", "-p", "0x11", "/dev/sdb"}, std::string("\x11\0\0\x08\0\x01\x03\x04\0\0\0\x07", 12)},
	};
	for (const Case &c : cases) {
		std::vector<std::string> argv = {"/usr/vexo/sbin/sg_logs"};
		argv.insert(argv.end(), c.args.begin(), c.args.end());
		ToolRun r = run(argv);
		EXPECT_EQ(r.status, 0) << r.err;
		EXPECT_EQ(r.out, c.out);
		EXPECT_EQ(r.err, "");
	}
	// As the remaining-life reader takes it: the number at offset 36 of the trimmed line.
	ToolRun r = run({"/usr/vexo/sbin/sg_logs", "/dev/sdb", "-p", "0x11"});
	std::string l = lines(r.out).at(2);
	l = l.substr(l.find_first_not_of(' '));
	EXPECT_EQ(l.rfind("Percentage used endurance indicator:", 0), 0u);
	EXPECT_EQ(std::atoi(l.c_str() + 36), 7);
}

} // namespace
} // namespace vexo::test
