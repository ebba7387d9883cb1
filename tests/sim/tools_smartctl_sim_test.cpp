// The smartctl stand-in against outputs captured from real drives, its
// raw value formats, health verdicts and exit statuses, and the drive state
// it shares with the library.
#include <algorithm>
#include <cstdint>
#include <dirent.h>
#include <fcntl.h>
#include <fstream>
#include <json-c/json.h>
#include <map>
#include <regex>
#include <sstream>
#include <vexohw/smartctl.h>

#include "sim/tools_sim.h"

namespace vexo::test {
namespace {

const bool kEmulator = installDriveEmulator();

// What smartctl 7.3 calls the common attributes when its drive database
// has nothing to say about the model.
const std::map<int, std::string> kDefaultNames = {
	{1, "Raw_Read_Error_Rate"},     {2, "Throughput_Performance"}, {3, "Spin_Up_Time"},
	{4, "Start_Stop_Count"},        {5, "Reallocated_Sector_Ct"},  {7, "Seek_Error_Rate"},
	{8, "Seek_Time_Performance"},   {9, "Power_On_Hours"},         {10, "Spin_Retry_Count"},
	{11, "Calibration_Retry_Count"}, {12, "Power_Cycle_Count"},    {187, "Reported_Uncorrect"},
	{189, "High_Fly_Writes"},       {190, "Airflow_Temperature_Cel"}, {191, "G-Sense_Error_Rate"},
	{192, "Power-Off_Retract_Count"}, {193, "Load_Cycle_Count"},   {194, "Temperature_Celsius"},
	{196, "Reallocated_Event_Count"}, {197, "Current_Pending_Sector"}, {198, "Offline_Uncorrectable"},
	{199, "UDMA_CRC_Error_Count"},  {200, "Multi_Zone_Error_Rate"},
};

// Ids whose default raw format is not plain 48-bit, and the largest raw
// value it prints as a bare number.
const std::map<int, uint64_t> kPlainLimit = {{3, 0xFFFF},	 {5, 0xFFFF},   {9, 0xFFFFFF}, {190, 127},
					      {194, 127},	 {196, 0xFFFF}, {240, 0xFFFFFF}};

struct Encoded {
	uint64_t raw = 0;
	std::string format; // "" keeps the default
};

uint64_t u(const std::string &s) { return std::stoull(s); }

// The six raw bytes and the format that print `text` the way the real
// program printed it; false for shapes that 7.3 does not print.
bool encode(int id, const std::string &text, Encoded &e)
{
	std::smatch m;
	auto is = [&](const char *re) { return std::regex_match(text, m, std::regex(re)); };
	if (is(R"((\d+))")) {
		e.raw = u(m[1]);
		auto lim = kPlainLimit.find(id);
		if (lim != kPlainLimit.end() && e.raw > lim->second)
			e.format = "raw48";
	} else if (is(R"((\d+) \(Min/Max (-?\d+)/(-?\d+)\))")) {
		e.raw = u(m[1]) | (std::stoll(m[2]) & 0xFF) << 16 | static_cast<uint64_t>(std::stoll(m[3]) & 0xFF) << 32;
		e.format = "tempminmax";
	} else if (is(R"((\d+) \(Average (\d+)\))")) {
		e.raw = u(m[1]) | u(m[2]) << 16;
		e.format = "raw16(avg16)";
	} else if (is(R"((\d+) \((\d+) (\d+)\))")) {
		e.raw = u(m[1]) | u(m[3]) << 16 | u(m[2]) << 32;
		e.format = "raw16(raw16)";
	} else if (is(R"((\d+) \((\d+) (\d+) (\d+)\))")) {
		e.raw = u(m[1]) | u(m[4]) << 24 | u(m[3]) << 32 | u(m[2]) << 40;
		e.format = "raw24(raw8)";
	} else if (is(R"((\d+) \((\d+) (\d+) (\d+) (\d+) (\d+)\))")) {
		e.raw = u(m[1]) | u(m[6]) << 8 | u(m[5]) << 16 | u(m[4]) << 24 | u(m[3]) << 32 | u(m[2]) << 40;
		e.format = "tempminmax";
	} else if (is(R"((\d+) (\d+) (\d+))")) {
		e.raw = u(m[3]) | u(m[2]) << 16 | u(m[1]) << 32;
		e.format = "raw16";
	} else if (is(R"((\d+)/(\d+))")) {
		e.raw = u(m[1]) << 32 | u(m[2]);
		e.format = "raw24/raw32";
	} else if (is(R"((\d+)h\+(\d+)m\+(\d+)\.(\d+)s)")) {
		// The milliseconds run into the slot's reserved byte, which a node
		// can't set: only values below 65.536 s fit.
		uint64_t ms = (u(m[2]) * 60 + u(m[3])) * 1000 + u(m[4]);
		if (ms > 0xFFFF)
			return false;
		e.raw = u(m[1]) | ms << 32;
		e.format = "msec24hour32";
	} else {
		return false;
	}
	return e.raw < (1ULL << 48);
}

std::vector<std::string> attributeSection(const std::string &out)
{
	std::vector<std::string> ls = lines(out), s;
	size_t i = 0;
	while (i < ls.size() && ls[i] != "Vendor Specific SMART Attributes with Thresholds:")
		++i;
	for (; i < ls.size() && !ls[i].empty(); ++i)
		s.push_back(ls[i]);
	return s;
}

struct RealFile {
	int major = 0;
	std::string model, serial, firmware;
	int rotation = 0;
	std::vector<std::string> section; // "Vendor Specific ..." to the blank line
	std::string node;		  // the drive, as the emulator's node
	std::vector<std::string> dropped; // rows the emulator can't hold, left out of both
};

std::string field(const std::vector<std::string> &ls, const std::string &key)
{
	for (const auto &l : ls)
		if (l.rfind(key, 0) == 0) {
			std::string v = l.substr(key.size());
			return v.substr(v.find_first_not_of(' '));
		}
	return "";
}

RealFile parseReal(const std::string &path)
{
	std::ifstream in(path);
	std::stringstream ss;
	ss << in.rdbuf();
	std::vector<std::string> ls = lines(ss.str());
	RealFile f;
	std::smatch m;
	for (const auto &l : ls)
		if (std::regex_search(l, m, std::regex(R"(smartctl (version )?(\d+)\.(\d+))"))) {
			f.major = std::stoi(m[2]);
			break;
		}
	f.model = field(ls, "Device Model:");
	f.serial = field(ls, "Serial Number:");
	f.firmware = field(ls, "Firmware Version:");
	std::string rot = field(ls, "Rotation Rate:");
	f.rotation = rot == "Solid State Device" ? 1 : rot.empty() ? 0 : std::atoi(rot.c_str());
	f.section = attributeSection(ss.str());
	json_object *attrs = json_object_new_array();
	for (size_t k = 2; k < f.section.size(); ++k) {
		std::istringstream row(f.section[k]);
		int id, value, worst, thresh;
		std::string name, flags, type, updated, when;
		row >> id >> name >> flags >> value >> worst >> thresh >> type >> updated >> when;
		std::string raw;
		std::getline(row, raw);
		size_t start = raw.find_first_not_of(' ');
		raw = start == std::string::npos ? std::string() : raw.substr(start);
		Encoded e;
		if (!encode(id, raw, e)) {
			f.dropped.push_back(f.section[k]);
			f.section.erase(f.section.begin() + static_cast<long>(k--));
			continue;
		}
		json_object *a = json_object_new_object();
		json_object_object_add(a, "id", json_object_new_int(id));
		json_object_object_add(a, "flags", json_object_new_int(std::stoi(flags, nullptr, 16)));
		json_object_object_add(a, "value", json_object_new_int(value));
		json_object_object_add(a, "worst", json_object_new_int(worst));
		json_object_object_add(a, "threshold", json_object_new_int(thresh));
		json_object_object_add(a, "raw", json_object_new_int64(static_cast<int64_t>(e.raw)));
		auto def = kDefaultNames.find(id);
		bool unknown = name.rfind("Unknown_", 0) == 0 && name.find("_Attribute") != std::string::npos;
		if (!unknown && (def == kDefaultNames.end() || def->second != name))
			json_object_object_add(a, "name", json_object_new_string(name.c_str()));
		if (!e.format.empty())
			json_object_object_add(a, "format", json_object_new_string(e.format.c_str()));
		json_object_array_add(attrs, a);
	}
	json_object *node = json_object_new_object();
	json_object_object_add(node, "protocol", json_object_new_string("ata"));
	json_object_object_add(node, "model", json_object_new_string(f.model.c_str()));
	json_object_object_add(node, "serial", json_object_new_string(f.serial.c_str()));
	json_object_object_add(node, "firmware", json_object_new_string(f.firmware.c_str()));
	json_object_object_add(node, "rotation_rate", json_object_new_int(f.rotation));
	json_object *smart = json_object_new_object();
	json_object_object_add(smart, "attributes", attrs);
	json_object_object_add(node, "smart", smart);
	f.node = json_object_to_json_string(node);
	json_object_put(node);
	return f;
}

using SmartctlTool = ToolsSim;

// Each drive captured with smartctl 6 or 7 is rebuilt in the emulator from
// the captured table, and the stand-in must print the table as captured (a
// row whose raw value needs the slot's reserved byte is left out of both).
// Captures of smartctl 5 are skipped: that era printed raw values and failure
// marks that 7.3 no longer prints.
TEST_F(SmartctlTool, AttributeTablesOfRealDrives)
{
	std::string dir = sharedDataDir();
	if (dir.empty())
		GTEST_SKIP() << "no captured outputs";
	dir += "/real-smartctl/ata";
	DIR *d = ::opendir(dir.c_str());
	if (!d)
		GTEST_SKIP() << dir << " absent";
	std::vector<std::string> files;
	while (dirent *e = ::readdir(d))
		if (e->d_name[0] != '.')
			files.push_back(e->d_name);
	::closedir(d);
	std::sort(files.begin(), files.end());
	int compared = 0;
	std::string skipped;
	for (const auto &name : files) {
		SCOPED_TRACE(name);
		RealFile f = parseReal(dir + "/" + name);
		if (f.major < 6) {
			skipped += " " + name;
			continue;
		}
		ASSERT_GE(f.section.size(), 3u);
		EXPECT_LE(f.dropped.size(), 1u);
		for (const auto &row : f.dropped)
			std::cout << name << ": left out: " << row << "\n";
		node("sda", f.node);
		ToolRun r = run({"/usr/bin/smartctl", "-d", "sat", "-A", "/dev/sda"});
		EXPECT_EQ(r.status, 0) << r.out;
		EXPECT_EQ(attributeSection(r.out), f.section);
		root.remove("/dev/sda");
		++compared;
	}
	std::cout << "compared " << compared << " captures; skipped (smartctl 5):" << skipped << "\n";
	EXPECT_GE(compared, 1);
}

// Raw bytes and the text 7.3 makes of them, one drive holding all rows.
TEST_F(SmartctlTool, RawValueFormats)
{
	struct Row {
		int id;
		uint64_t raw;
		const char *format;
		const char *text;
	} rows[] = {
		{194, 0x2D, nullptr, "45"},
		{194, 0xFF85, nullptr, "-123"},
		{194, 0x0001FF00, nullptr, "0 (Min/Max -1/1)"},
		{194, 0x003100110021, nullptr, "33 (Min/Max 17/49)"},  // xx HH xx LL xx TT
		{194, 0x00003214001E, nullptr, "30 (Min/Max 20/50)"},  // 00 00 HH LL xx TT
		{194, 0x000131110021, nullptr, "33 (Min/Max 17/49 #1)"},
		{194, 0x000127100015, nullptr, "21 (0 1 39 16 0)"}, // a count, but a highest value below 40
		{194, 0x7FFF31110021, nullptr, "33 (127 255 49 17 0)"}, // no count that large
		{194, 0x00000031C32D, nullptr, "45 (0 0 0 49 195)"}, // below -60: not a range
		{194, 0x003100110010, nullptr, "16 (0 49 0 17 0)"},  // current outside its range
		{190, 0x2D2D2D2D, nullptr, "45 (0 0 45 45 45)"},
		{3, 0x02520252, nullptr, "594 (Average 594)"},
		{5, 0x0102030405, nullptr, "1029 (1 515)"},
		{12, 0x0102030405, nullptr, "4328719365"},
		{188, 0x000500060006, "raw16", "5 6 6"},
		{240, 0x0000C9A600001441, "msec24hour32", "5185h+00m+51.622s"},
		{100, 0x0A0B0C0D0E0F, "hex48", "0x0a0b0c0d0e0f"},
		{101, 0x0A0B0C0D0E0F, "raw8", "10 11 12 13 14 15"},
		{102, 3725, "sec2hour", "1h+02m+05s"},
		{105, 365, "temp10x", "36.5"},
		{107, 0, "no-such-format", "0"},
	};
	static_assert(std::size(rows) <= 30, "a drive holds 30 attributes");
	std::string attrs;
	for (const Row &r : rows) {
		char b[256];
		std::snprintf(b, sizeof b, R"(%s{"id":%d,"flags":34,"value":100,"worst":100,"threshold":0,"raw":%llu%s%s%s})",
			      attrs.empty() ? "" : ",", r.id, static_cast<unsigned long long>(r.raw),
			      r.format ? R"(,"format":")" : "", r.format ? r.format : "", r.format ? "\"" : "");
		attrs += b;
	}
	node("sda", R"({"protocol":"ata","rotation_rate":7200,"smart":{"attributes":[)" + attrs + "]}}");
	ToolRun r = run({"/usr/bin/smartctl", "-d", "sat", "-A", "/dev/sda"});
	std::vector<std::string> s = attributeSection(r.out);
	ASSERT_EQ(s.size(), std::size(rows) + 2) << r.out;
	for (size_t i = 0; i < std::size(rows); ++i)
		EXPECT_EQ(s[i + 2].substr(87), rows[i].text) << s[i + 2];
}

// The health verdict and the exit status bits, from the drive's own
// status, or from the attributes when the bridge drops the registers.
TEST_F(SmartctlTool, HealthVerdictsAndExitStatus)
{
	const std::string failingPrefail = R"({"id":5,"flags":51,"value":1,"worst":1,"threshold":36,"raw":4095})";
	const std::string pastUsage = R"({"id":190,"flags":34,"value":55,"worst":42,"threshold":45,"raw":45})";
	const std::string fine = R"({"id":9,"flags":50,"value":91,"worst":91,"threshold":0,"raw":7898})";
	const std::string noRegs = R"(,"faults":{"smart":{"no_sense":true}})";
	struct Case {
		const char *what;
		std::string attrs, extra;
		std::vector<std::string> args;
		int status;
		std::vector<std::string> expect;
	} cases[] = {
		{"healthy", fine, "", {"-H"}, 0, {"SMART overall-health self-assessment test result: PASSED", ""}},
		{"drive says fine, a usage attribute failed in the past", pastUsage + "," + fine, "", {"-H"}, 32,
		 {"SMART overall-health self-assessment test result: PASSED",
		  "Please note the following marginal Attributes:"}},
		{"drive says a threshold is exceeded", failingPrefail + "," + fine, "", {"-H"}, 24,
		 {"SMART overall-health self-assessment test result: FAILED!",
		  "Drive failure expected in less than 24 hours. SAVE ALL DATA.", "Failed Attributes:"}},
		{"registers missing, prefail failing", failingPrefail + "," + fine, noRegs, {"-H"}, 24,
		 {"SMART Status not supported: Incomplete response, ATA output registers missing",
		  "SMART overall-health self-assessment test result: FAILED!",
		  "Drive failure expected in less than 24 hours. SAVE ALL DATA.",
		  "Warning: This result is based on an Attribute check.", "Failed Attributes:"}},
		{"registers missing, usage failed in the past", pastUsage + "," + fine, noRegs, {"-H", "-A"}, 32,
		 {"SMART overall-health self-assessment test result: PASSED",
		  "Warning: This result is based on an Attribute check.",
		  "See vendor-specific Attribute list for marginal Attributes."}},
		{"attributes alone judge nothing", failingPrefail, noRegs, {"-A"}, 0, {}},
	};
	for (const Case &c : cases) {
		SCOPED_TRACE(c.what);
		root.remove("/dev/sda");
		node("sda", R"({"protocol":"ata","smart":{"attributes":[)" + c.attrs + "]}" + c.extra + "}");
		std::vector<std::string> argv = {"/usr/bin/smartctl", "-d", "sat"};
		argv.insert(argv.end(), c.args.begin(), c.args.end());
		argv.push_back("/dev/sda");
		ToolRun r = run(argv);
		EXPECT_EQ(r.status, c.status) << r.out;
		std::vector<std::string> ls = lines(r.out);
		auto at = std::find(ls.begin(), ls.end(), "=== START OF READ SMART DATA SECTION ===");
		ASSERT_NE(at, ls.end()) << r.out;
		for (size_t i = 0; i < c.expect.size(); ++i) {
			auto want = c.expect[i];
			EXPECT_NE(std::find(at, ls.end(), want), ls.end()) << want << "\n" << r.out;
		}
	}
}

// -a on a drive with a self-test history: the log's rows, and bit 7 for a
// test that found an error (bit 2: the emulator keeps no selective log).
TEST_F(SmartctlTool, AllWithSelfTestLog)
{
	node("sda", R"({"protocol":"ata","self_tests":[{"type":1,"status":0,"hours":9000},
		{"type":2,"status":121,"hours":8000,"lba":123456},{"type":1,"status":37,"hours":7000}]})");
	ToolRun r = run({"/usr/bin/smartctl", "-d", "sat", "-a", "/dev/sda"});
	EXPECT_EQ(r.status, 128 | 4) << r.out;
	std::vector<std::string> ls = lines(r.out);
	auto at = std::find(ls.begin(), ls.end(), "SMART Self-test log structure revision number 1");
	ASSERT_NE(at, ls.end()) << r.out;
	ASSERT_GE(ls.end() - at, 5);
	EXPECT_EQ(at[1], "Num  Test_Description    Status                  Remaining  LifeTime(hours)  LBA_of_first_error");
	EXPECT_EQ(at[2], "# 1  Short offline       Completed without error       00%      9000         -");
	EXPECT_EQ(at[3], "# 2  Extended offline    Completed: read failure       90%      8000         123456");
	EXPECT_EQ(at[4], "# 3  Short offline       Interrupted (host reset)      50%      7000         -");
	EXPECT_NE(r.out.find("Device Model:     VEXO HD4000\n"), std::string::npos);
	EXPECT_NE(r.out.find("\nSMART Error Log Version: 1\nNo Errors Logged\n"), std::string::npos);
	EXPECT_NE(r.out.find("\nRead SMART Selective Self-test Log failed: scsi error aborted command\n"), std::string::npos);
}

// The tools and the library talk to the same drive: a STANDBY the library
// sends is what smartctl finds, and smartctl's own commands land in the
// drive's command log as a real program's would.
TEST_F(SmartctlTool, SharesTheDriveWithTheLibrary)
{
	node("sda", kAtaNode);
	ToolRun r = run({"/usr/bin/smartctl", "-d", "sat", "-n", "standby", "-i", "/dev/sda"});
	EXPECT_EQ(r.status, 0) << r.out;
	EXPECT_NE(r.out.find("\nPower mode is:    ACTIVE or IDLE\n"), std::string::npos) << r.out;

	int fd = open("sda");
	ASSERT_GE(fd, 0);
	ASSERT_EQ(sat_command_interface(fd, CMD_STANDBY_IMMEDIATE, nullptr), 0);

	r = run({"/usr/bin/smartctl", "-d", "sat", "-n", "standby", "-i", "/dev/sda"});
	EXPECT_EQ(r.status, 2);
	EXPECT_EQ(lines(r.out).at(3), "Device is in STANDBY mode, exit(2)");
	r = run({"/usr/bin/smartctl", "-d", "sat", "-n", "never", "-i", "/dev/sda"});
	EXPECT_EQ(r.status, 0);
	EXPECT_NE(r.out.find("\nPower mode was:   STANDBY\n"), std::string::npos) << r.out;

	std::vector<std::string> log = commands("sda");
	ASSERT_GE(log.size(), 2u);
	EXPECT_NE(log[log.size() - 2].find("cdb=85062c0000000000000000000000e500"), std::string::npos) << log[log.size() - 2];
	EXPECT_NE(log.back().find("dxfer_len=512 timeout=60000 cdb=85080e0000000100000000000000ec00 -> ok"),
		  std::string::npos)
		<< log.back();
}

// A missing node, a bad type, no device: the real program's texts and bits;
// and a device argument is only ever a path.
TEST_F(SmartctlTool, BadDevicesAndArguments)
{
	struct Case {
		std::vector<std::string> args;
		int status;
		std::string line3;
	} cases[] = {
		{{"-d", "sat", "-A", "/dev/sdq"}, 2, "Smartctl open device: /dev/sdq [SAT] failed: No such device"},
		{{"-d", "ata", "-A", "/dev/sdq"}, 2, "Smartctl open device: /dev/sdq failed: No such device"},
		{{"-d", "sat", "-A", "/dev/sda; touch /tmp/vexo-shell-was-here"}, 2,
		 "Smartctl open device: /dev/sda; touch /tmp/vexo-shell-was-here [SAT] failed: No such device"},
		{{"-d", "bogus", "-A", "/dev/sda"}, 1, "/dev/sda: Unknown device type 'bogus'"},
		{{"-d", "sat", "-A"}, 1, "ERROR: smartctl requires a device name as the final command-line argument."},
		{{"-A", "/dev/xyz0"}, 1, "/dev/xyz0: Unable to detect device type"},
		{{"-d", "sat", "--frobnicate", "/dev/sda"}, 1, "=======> UNRECOGNIZED OPTION: frobnicate"},
	};
	node("sda", kAtaNode);
	for (const Case &c : cases) {
		std::vector<std::string> argv = {"/usr/bin/smartctl"};
		argv.insert(argv.end(), c.args.begin(), c.args.end());
		ToolRun r = run(argv);
		EXPECT_EQ(r.status, c.status) << r.out;
		std::vector<std::string> ls = lines(r.out);
		ASSERT_GE(ls.size(), 4u) << r.out;
		EXPECT_EQ(ls[3], c.line3);
	}
	EXPECT_EQ(::access("/tmp/vexo-shell-was-here", F_OK), -1);
}

// A drive that fails or refuses commands: what 7.3 prints after the banner.
TEST_F(SmartctlTool, DriveFaults)
{
	const std::string mandatory =
		"A mandatory SMART command failed: exiting. To continue, add one or more '-T permissive' options.";
	struct Case {
		std::string node;
		std::vector<std::string> args;
		int status;
		std::vector<std::string> after; // the lines after the banner, from the first
	} cases[] = {
		{R"({"faults":{"identify":{"abort":true}}})", {"-d", "sat", "-A"}, 2,
		 {"Read Device Identity failed: scsi error aborted command", "",
		  "If this is a USB connected device, look at the various --device=TYPE variants", mandatory}},
		{R"({"faults":{"smart_read_thresholds":{"abort":true}}})", {"-d", "ata", "-A"}, 4,
		 {"Read SMART Thresholds failed: Input/output error", "", "=== START OF READ SMART DATA SECTION ===",
		  "SMART Attributes Data Structure revision number: 16", "Vendor Specific SMART Attributes with Thresholds:",
		  "ID# ATTRIBUTE_NAME          FLAG     VALUE WORST THRESH TYPE      UPDATED  WHEN_FAILED RAW_VALUE",
		  "  1 Raw_Read_Error_Rate     0x000b   100   100   ---    Pre-fail  Always       -       0"}},
		{R"({"faults":{"smart":{"no_sense":true},"smart_read_thresholds":{"abort":true}}})", {"-d", "sat", "-H"}, 4,
		 {"Read SMART Thresholds failed: scsi error aborted command", "", "=== START OF READ SMART DATA SECTION ===",
		  "SMART Status not supported: Incomplete response, ATA output registers missing",
		  "SMART overall-health self-assessment test result: UNKNOWN!",
		  "SMART Status, Attributes and Thresholds cannot be read.", ""}},
	};
	for (const Case &c : cases) {
		SCOPED_TRACE(c.node);
		root.remove("/dev/sda");
		node("sda", c.node);
		std::vector<std::string> argv = {"/usr/bin/smartctl"};
		argv.insert(argv.end(), c.args.begin(), c.args.end());
		argv.push_back("/dev/sda");
		ToolRun r = run(argv);
		EXPECT_EQ(r.status, c.status) << r.out;
		std::vector<std::string> ls = lines(r.out);
		ASSERT_GE(ls.size(), 3 + c.after.size()) << r.out;
		EXPECT_EQ(std::vector<std::string>(ls.begin() + 3, ls.begin() + 3 + static_cast<long>(c.after.size())), c.after);
	}
}

// An NVMe drive: the health verdict from the critical warning bits, and the
// SMART / health log as the controller reports it.
TEST_F(SmartctlTool, NvmeDrive)
{
	node("nvme0n1", R"({"protocol":"nvme","model":"VEXO NM410 400GB","serial":"VXN0000002","firmware":"VN01",
		"nvme":{"critical_warning":5,"media_errors":2,"temperature_kelvin":0,"data_units_read":405451}})");
	ToolRun r = run({"/usr/bin/smartctl", "-d", "nvme", "-H", "-A", "/dev/nvme0n1"});
	EXPECT_EQ(r.status, 8) << r.out;
	std::vector<std::string> ls = lines(r.out);
	std::vector<std::string> want = {
		"=== START OF SMART DATA SECTION ===",
		"SMART overall-health self-assessment test result: FAILED!",
		"- available spare has fallen below threshold",
		"- NVM subsystem reliability has been degraded",
		"",
		"SMART/Health Information (NVMe Log 0x02)",
		"Critical Warning:                   0x05",
		"Temperature:                        -",
		"Available Spare:                    100%",
		"Available Spare Threshold:          10%",
		"Percentage Used:                    2%",
		"Data Units Read:                    405,451 [207 GB]",
	};
	ASSERT_GE(ls.size(), 3 + want.size()) << r.out;
	EXPECT_EQ(std::vector<std::string>(ls.begin() + 3, ls.begin() + 3 + static_cast<long>(want.size())), want);
	EXPECT_NE(r.out.find("\nMedia and Data Integrity Errors:    2\n"), std::string::npos);
}

// A SCSI drive: the information, health and temperature forms.
TEST_F(SmartctlTool, ScsiDrive)
{
	node("sdb", R"({"protocol":"scsi","model":"HUH721212AL5204","vendor":"HGST","serial":"8HGXXXXX","firmware":"C3D0",
		"temperature":30})");
	ToolRun r = run({"/usr/bin/smartctl", "-d", "scsi", "-i", "-H", "-A", "/dev/sdb"});
	EXPECT_EQ(r.status, 0);
	std::vector<std::string> ls = lines(r.out);
	ASSERT_GE(ls.size(), 20u) << r.out;
	EXPECT_EQ(ls[4], "Vendor:               HGST");
	EXPECT_EQ(ls[5], "Product:              HUH721212AL5204");
	auto at = std::find(ls.begin(), ls.end(), "=== START OF READ SMART DATA SECTION ===");
	ASSERT_NE(at, ls.end());
	std::vector<std::string> tail(at + 1, ls.end());
	std::vector<std::string> wantTail = {"SMART Health Status: OK",
					     "",
					     "Current Drive Temperature:     30 C",
					     "Drive Trip Temperature:        60 C",
					     "",
					     "Accumulated power on time, hours:minutes 0:00"};
	EXPECT_EQ(tail, wantTail);

	// The library spins the drive down; smartctl then finds it not ready.
	int fd = open("sdb");
	ASSERT_GE(fd, 0);
	ASSERT_EQ(sas_command_interface(fd, SCSI_START_STOP, nullptr), 0);
	r = run({"/usr/bin/smartctl", "-d", "scsi", "-i", "/dev/sdb"});
	EXPECT_EQ(r.status, 2);
	ls = lines(r.out);
	ASSERT_GE(ls.size(), 13u) << r.out;
	EXPECT_EQ(ls[11], "device is NOT READY (e.g. spun down, busy)");
}

// vexosim build puts the tools in the root by the paths the library runs
// them by, and vexosim run serves them the box's drives.
TEST_F(SmartctlTool, InstalledByVexosimBuild)
{
	std::string box = root.host("/box");
	std::string vexosim = buildDir() + "/bin/vexosim";
	ScopedEnv noRoot("VEXO_SYSROOT", nullptr); // vexosim itself is a program of the host
	exec::Result b = exec::run({vexosim, "build", sourceDir() + "/examples/box12.json", box});
	ASSERT_EQ(b.status(), 0) << b.out;
	for (const char *p : {"/usr/bin/smartctl", "/usr/vexo/bin/sg_raw", "/usr/vexo/bin/sg_sat_identify",
			      "/usr/vexo/sbin/sg_logs", "/usr/vexo/sbin/vexostorage", "/usr/vexo/sbin/dhm_tool"})
		EXPECT_EQ(::access((box + p).c_str(), X_OK), 0) << p;
	exec::Options o;
	o.captureStderr = true;
	exec::Result r = exec::run({vexosim, "run", box, "--", box + "/usr/bin/smartctl", "-d", "sat", "-i", "/dev/sda"}, o);
	EXPECT_EQ(r.status(), 0) << r.out << r.err;
	EXPECT_NE(r.out.find("\nDevice Model:     "), std::string::npos) << r.out;
}

} // namespace
} // namespace vexo::test
