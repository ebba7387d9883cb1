// SMART attribute lists read from the tool's text (captured outputs of real
// drives, the status rule, the cache decision, the command line, the dispatch
// by command family), the list cache file, the CLI over them, the temperature
// readers, and the self-test log pages decoded.
#include <algorithm>
#include <cstdint>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <json-c/json.h>
#include <string>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>
#include <vector>
#include <vexohw/smart_info.h>
#include <vexohw/smart_serial.h>
#include <vexohw/smart_temperature.h>
#include <vexohw/smartctl.h>

#include "external/port_map.h"
#include "smartctl/drive_sim.h"
#include "smartctl/self_test.h"
#include "smartctl/smart_info_list.h"
#include "smartctl/sg_dump_read.h"
#include "smartctl/smart_util.h"
#include "support/disk_layout.h"
#include "support/vexotest.h"

using namespace vexo::test;
using vexo::smart::sctSupportFromIdentifyDump;
using vexo::smart::sctTemperatureFromDump;
using namespace vexo::selftest;

namespace {

const std::string kHeading =
	"ID# ATTRIBUTE_NAME          FLAG     VALUE WORST THRESH TYPE      UPDATED  WHEN_FAILED RAW_VALUE\n";
const std::string kRow5 = "  5 Reallocated_Sector_Ct 0x0033 100 100 010 Pre-fail Always - 0\n";

class SmartInfo : public ::testing::Test {
protected:
	void SetUp() override
	{
		VLIBCErrClear();
		root.diskDir("sda");
		// sda in the first internal bay: the command family needs its container.
		DiskLayout(root).portMaps("4", "2", "1", "");
		vexo::external::resetPortMaps();
	}
	// /usr/bin/smartctl in the sysroot: records its arguments and each run,
	// then prints `text` (or the host file).
	void tool(const std::string &text)
	{
		root.write("/fixture.txt", text);
		toolFile(root.host("/fixture.txt"));
	}
	void toolFile(const std::string &hostFile)
	{
		root.write("/usr/bin/smartctl",
			   "#!/bin/sh\nprintf '%s\\n' \"$@\" > '" + root.host("/args") + "'\necho run >> '" +
				   root.host("/runs") + "'\nexec cat '" + hostFile + "'\n",
			   0755);
	}
	int runs() const { return static_cast<int>(linesOf(root, "/runs").size()); }
	std::vector<std::string> args() const { return linesOf(root, "/args"); }
	Sysroot root;
};

// ---- captured outputs of real drives ---------------------------------------

// What the table says, read independently: whitespace-separated columns,
// WHEN_FAILED for the verdict. A threshold of 0 can never fail, whatever an
// old tool printed there. Empty for the old layout without UPDATED.
std::vector<std::string> expectedRows(const std::string &file, bool &classic)
{
	std::ifstream in(file);
	std::vector<std::string> out;
	bool inTable = false;
	for (std::string line; std::getline(in, line);) {
		if (!line.empty() && line.back() == '\r')
			line.pop_back();
		if (!inTable) {
			inTable = line.find("ID#") != std::string::npos;
			classic = line.find("UPDATED") != std::string::npos;
			continue;
		}
		if (line.empty())
			break;
		std::istringstream cols(line);
		std::string id, name, flag, value, worst, thr, type, updated, failed, raw;
		cols >> id >> name >> flag >> value >> worst >> thr >> type >> updated >> failed >> raw;
		uint32_t status = std::stoi(thr) == 0 ? 0 : failed == "FAILING_NOW" ? 2 : failed == "In_the_past" ? 1 : 0;
		out.push_back(row(id, name, value, worst, thr, raw, status));
	}
	return out;
}

std::vector<std::string> filesIn(const std::string &dir)
{
	std::vector<std::string> out;
	if (DIR *d = ::opendir(dir.c_str())) {
		while (dirent *e = ::readdir(d))
			if (e->d_name[0] != '.')
				out.push_back(dir + "/" + e->d_name);
		::closedir(d);
	}
	std::sort(out.begin(), out.end());
	return out;
}

TEST_F(SmartInfo, EveryCapturedAtaTable)
{
	if (sharedDataDir().empty())
		GTEST_SKIP() << "no captured outputs";
	auto files = filesIn(sharedDataDir() + "/real-smartctl/ata");
	ASSERT_GE(files.size(), 17u);
	int nineColumn = 0, failing = 0;
	for (const auto &f : files) {
		SCOPED_TRACE(f);
		bool classic = false;
		auto want = expectedRows(f, classic);
		ASSERT_FALSE(want.empty());
		toolFile(f);
		ListGuard g;
		g.l = kSentinel; // must be cleared on failure
		int rc = AtaSmartInfoGet("/dev/sda", "sat", &g.l);
		if (!classic) { // the old nine-column layout has no UPDATED column
			++nineColumn;
			EXPECT_EQ(rc, -1);
			EXPECT_ERR(0x2A00);
			EXPECT_EQ(g.l, nullptr);
			continue;
		}
		ASSERT_EQ(rc, 0);
		EXPECT_EQ(rows(g.l), want);
		for (auto *e = g.l; e; e = e->next)
			failing += e->status != 0;
	}
	EXPECT_EQ(nineColumn, 1);
	EXPECT_GE(failing, 10); // the failing drives are in there

	// Captured outputs without a table.
	for (const auto &f : filesIn(sharedDataDir() + "/real-smartctl/negative")) {
		SCOPED_TRACE(f);
		toolFile(f);
		ListGuard g;
		EXPECT_EQ(AtaSmartInfoGet("/dev/sda", "ata", &g.l), -1);
		EXPECT_ERR(0x0A00);
		EXPECT_EQ(g.l, nullptr);
	}
}

// ---- rows, columns and the status rule ------------------------------------

TEST_F(SmartInfo, StatusRuleAndColumns)
{
	tool("smartctl 7.4\n\n=== START OF READ SMART DATA SECTION ===\n" + kHeading +
	     "  1 Zero_Threshold          0x000b   000   000   000    Pre-fail  Always       -       0\n"
	     "  2 Worst_At_Threshold      0x000b   100   050   050    Pre-fail  Always       -       0\n"
	     "  3 Value_At_Threshold      0x000b   050   050   050    Pre-fail  Always       -       0\n"
	     "  4 Just_Above              0x000b   051   051   050    Pre-fail  Always       -       0\n"
	     "  5 Value_Below_Worst_Above 0x000b   049   100   050    Pre-fail  Always       -       0\n"
	     "  6 No_Normalized_Value     0x0032   ---   ---   010    Old_age   Always       -       12\n"
	     "  9 Power_On_Hours          0x0032   099   099   000    Old_age   Always       -       701 h + 42 m\n"
	     "194 Temperature_Celsius     0x0022   033   040   000    Old_age   Always       -       33 (Min/Max 20/34)\n"
	     "\n"
	     "  7 After_The_Table         0x000b   001   001   050    Pre-fail  Always       -       0\n");
	ListGuard g;
	ASSERT_EQ(SmartInfoGet("/dev/sda", "ata", &g.l, 1), 0);
	// The empty line ends the table; only the first word of a raw value survives.
	EXPECT_EQ(rows(g.l), (std::vector<std::string>{
				     "1 Zero_Threshold 000 000 000 0 0", "2 Worst_At_Threshold 100 050 050 0 1",
				     "3 Value_At_Threshold 050 050 050 0 2", "4 Just_Above 051 051 050 0 0",
				     "5 Value_Below_Worst_Above 049 100 050 0 2", "6 No_Normalized_Value --- --- 010 12 0",
				     "9 Power_On_Hours 099 099 000 701 0", "194 Temperature_Celsius 033 040 000 33 0"}));
	EXPECT_EQ(runs(), 1);
}

TEST_F(SmartInfo, ShortRowFailsLongAndCrlfLinesDoNot)
{
	tool(kHeading + "  1 Raw_Read_Error_Rate     0x000b   100   100   016    Pre-fail  Always       -       0\n"
			"  3 Spin_Up_Time            0x0007   100   100   050    Pre-fail     -       0\n");
	ListGuard g;
	EXPECT_EQ(SmartInfoGet("/dev/sda", "ata", &g.l, 1), -1);
	EXPECT_ERR(0x2A00);
	EXPECT_EQ(g.l, nullptr);
	EXPECT_FALSE(root.exists("/run/vexostorage/disks/sda/smart_info_list.cache")); // nothing cached

	// The end of an over-long line is dropped, not read as a row of its own.
	tool("\r\nID# ATTRIBUTE_NAME FLAG VALUE WORST THRESH TYPE UPDATED WHEN_FAILED RAW_VALUE\r\n"
	     "  1 Raw_Read_Error_Rate 0x000b 100 100 016 Pre-fail Always - 7 " +
	     std::string(400, 'x') + " 8 9 10 11\r\n  5 Reallocated_Sector_Ct 0x0033 100 100 005 Pre-fail Always - 12\r\n\r\n");
	ASSERT_EQ(AtaSmartInfoGet("/dev/sda", "ata", &g.l), 0);
	EXPECT_EQ(rows(g.l), (std::vector<std::string>{"1 Raw_Read_Error_Rate 100 100 016 7 0",
						       "5 Reallocated_Sector_Ct 100 100 005 12 0"}));
}

TEST_F(SmartInfo, ToolAndArgumentFailures)
{
	ListGuard g;
	EXPECT_EQ(AtaSmartInfoGet("/dev/sda", "ata", &g.l), -1); // no tool in the root
	EXPECT_ERR(0x0900);
	EXPECT_EQ(SmartInfoGet("/dev/sda", nullptr, &g.l, 0), -1);
	EXPECT_ERR(0x0D00);
	tool(kHeading);
	EXPECT_EQ(SmartInfoGet("sda", "ata", &g.l, 0), -1);
	EXPECT_ERR(0x6100);
	// A type that would read as an option is refused before anything runs.
	EXPECT_EQ(AtaSmartInfoGet("/dev/sda", "-T", &g.l), -1);
	EXPECT_ERR(0x0D00);
	EXPECT_EQ(runs(), 0);
}

TEST_F(SmartInfo, ArgumentsArePassedLiterally)
{
	tool(kHeading + kRow5);
	ListGuard g;
	ASSERT_EQ(AtaSmartInfoGet("/dev/sda", "sat", &g.l), 0);
	EXPECT_EQ(args(), (std::vector<std::string>{"-d", "sat", "-A", "/dev/sda"}));

	const std::string evil = "/dev/sd a;touch " + root.host("/pwned") + " $(touch " + root.host("/pwned2") + ")`id`";
	g.reset();
	ASSERT_EQ(AtaSmartInfoGet(evil.c_str(), "sat", &g.l), 0);
	EXPECT_EQ(args(), (std::vector<std::string>{"-d", "sat", "-A", evil}));
	EXPECT_FALSE(root.exists("/pwned"));
	EXPECT_FALSE(root.exists("/pwned2"));
	// The cache path is built from the name: a name the tool would not get
	// whole is refused before the tool runs.
	g.reset();
	EXPECT_EQ(SmartInfoGet(evil.c_str(), "sat", &g.l, 1), -1);
	EXPECT_ERR(0x6100);
	EXPECT_EQ(runs(), 2);
}

// ---- the cache decision ----------------------------------------------------

// Now on the coarse monotonic clock, early in a second so that a test's few
// steps do not cross into the next one.
long long alignedNow()
{
	for (;;) {
		struct timespec ts {};
		clock_gettime(CLOCK_MONOTONIC_COARSE, &ts);
		if (ts.tv_nsec < 400000000)
			return ts.tv_sec;
		::usleep(20000);
	}
}

class SmartInfoCacheUse : public SmartInfo {
protected:
	void SetUp() override
	{
		SmartInfo::SetUp();
		tool(kHeading + kRow5);
		cache(R"([["1","From_Cache","100","100","000","42",0]])");
	}
	void cache(const std::string &json) { root.write("/run/vexostorage/disks/sda/smart_info_list.cache", json); }
	void stamp(long long t) { root.write("/run/vexostorage/disks/sda/.smart_info_list.timestamp", std::to_string(t)); }
	std::string firstName(int force = 0)
	{
		ListGuard g;
		EXPECT_EQ(SmartInfoGet("/dev/sda", "ata", &g.l, force), 0);
		return g.l ? g.l->name : "";
	}
};

TEST_F(SmartInfoCacheUse, WhenTheToolRuns)
{
	const std::string whole = R"([["1","From_Cache","100","100","000","42",0]])";
	const struct {
		const char *why;
		long long stampOffset;
		int force;
		std::string json;
		bool runs;
	} cases[] = {
		{"fresh", -3599, 0, whole, false},
		{"an hour old", -3600, 0, whole, false},
		{"older than an hour", -3601, 0, whole, true},
		{"forced, however fresh the cache", 0, 1, whole, true},
		{"a stamp from the future", 100, 0, whole, true},
		{"an element of six items", 0, 0, R"([["1","From_Cache","100","100","000","42"]])", true},
	};
	for (const auto &c : cases) {
		SCOPED_TRACE(c.why);
		int before = runs();
		cache(c.json);
		long long now = alignedNow();
		stamp(now + c.stampOffset);
		EXPECT_EQ(firstName(c.force), c.runs ? "Reallocated_Sector_Ct" : "From_Cache");
		EXPECT_EQ(runs(), before + c.runs);
		if (!c.runs)
			continue;
		// The tool's list replaced the cache, stamped now, and serves the next call.
		long long written = std::stoll(root.read("/run/vexostorage/disks/sda/.smart_info_list.timestamp"));
		EXPECT_GE(written, now);
		EXPECT_LE(written, now + 5);
		EXPECT_EQ(firstName(), "Reallocated_Sector_Ct");
		EXPECT_EQ(runs(), before + 1);
	}
	root.remove("/run/vexostorage/disks/sda/.smart_info_list.timestamp");
	EXPECT_EQ(firstName(), "Reallocated_Sector_Ct");
	EXPECT_EQ(runs(), 5);
}

TEST_F(SmartInfoCacheUse, CacheWriteFailureStillGivesTheList)
{
	root.remove("/run/vexostorage/disks/sda");
	LogCapture log;
	EXPECT_EQ(firstName(), "Reallocated_Sector_Ct");
	EXPECT_TRUE(log.has(LOG_WARNING, "Failed to update smart info cache on /dev/sda, 0x400")) << log.dump();
	// An update is about the cache: there it is a failure.
	EXPECT_EQ(VEXODiskAtaSmartInfoUpdate("/dev/sda"), -1);
	EXPECT_ERR(0x0400);
}

// ---- dispatch by command family --------------------------------------------

TEST_F(SmartInfo, DispatchByFamily)
{
	DiskLayout(root).sata("sda", 1);
	tool(kHeading + kRow5);
	ListGuard g;
	ASSERT_EQ(VEXODiskAtaSmartInfoParse("/dev/sda", &g.l), 0);
	EXPECT_EQ(args()[1], "ata");
	g.reset();
	ASSERT_EQ(VEXODiskAtaSmartInfoParse("/dev/sda", &g.l), 0); // from the cache
	EXPECT_EQ(runs(), 1);
	ASSERT_EQ(VEXODiskAtaSmartInfoUpdate("/dev/sda"), 0);
	EXPECT_EQ(runs(), 2);

	// A table the tool cannot give is logged with the code.
	g.reset();
	tool("SMART support is: Unavailable\n");
	LogCapture log;
	EXPECT_EQ(VEXODiskAtaSmartInfoUpdate("/dev/sda"), -1);
	EXPECT_ERR(0x0A00);
	root.remove("/run/vexostorage/disks/sda/.smart_info_list.timestamp");
	EXPECT_EQ(VEXODiskAtaSmartInfoParse("/dev/sda", &g.l), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "Failed to get smart info on /dev/sda, 0xA00")) << log.dump();
}

TEST_F(SmartInfo, ScsiAndNvmeDisks)
{
	tool(kHeading + kRow5);
	root.conf("/etc.defaults/vexoinfo.conf", {{"vvos", "yes"}});
	ListGuard g;
	g.l = kSentinel;
	EXPECT_EQ(VEXODiskAtaSmartInfoParse("/dev/sda", &g.l), -1);
	EXPECT_ERR(0xD900);
	EXPECT_EQ(g.l, nullptr);
	g.reset();
	EXPECT_EQ(VEXODiskAtaSmartInfoUpdate("/dev/sda"), 0);

	// An NVMe disk whose drive can't be asked: told on standard output.
	testing::internal::CaptureStdout();
	EXPECT_EQ(VEXODiskAtaSmartInfoParse("/dev/nvme0n1", &g.l), -1);
	EXPECT_EQ(testing::internal::GetCapturedStdout(), "Can't get smart infomartion of  /dev/nvme0n1\n");
	EXPECT_EQ(g.l, nullptr);
	EXPECT_EQ(VEXODiskAtaSmartInfoUpdate("/dev/nvme0n1"), 0);
	EXPECT_EQ(runs(), 0);
}

// The SMART list cache file: what lands on disk, how the reader refuses a
// damaged file, how the writer fails, and writers racing each other.
const std::string kDir = "/run/vexostorage/disks/sda/";

// A list of n entries built by hand: ids 1..n, names "Attr_<i>", status i % 3.
SmartInfoEntry *makeList(int n, const std::string &tag = "Attr_")
{
	vexo::smart::ListBuilder list;
	for (int i = 1; i <= n; ++i) {
		std::string id = std::to_string(i);
		// JSON escapes in the raw value survive.
		SmartInfoEntry *e = vexo::smart::newEntry(id, tag + id, "100", "099", "010", "\"quoted\\" + id);
		e->status = static_cast<uint32_t>(i % 3);
		list.append(e);
	}
	return list.release();
}

class SmartInfoCacheFile : public SmartInfo {};

TEST_F(SmartInfoCacheFile, WrittenAsSevenItemArrays)
{
	ListGuard in;
	in.l = makeList(3);
	mode_t old = ::umask(077);
	struct timespec ts {};
	clock_gettime(CLOCK_MONOTONIC_COARSE, &ts);
	ASSERT_EQ(SmartInfoCacheUpdate("sda", in.l), 0);
	EXPECT_EQ(::umask(old), 077u); // the caller's umask is back
	EXPECT_EQ(root.mode(kDir + "smart_info_list.cache"), 0644u);
	EXPECT_FALSE(root.exists(kDir + "smart_info_list.cache.tmp"));
	EXPECT_TRUE(root.exists(kDir + ".smart_info_list.lock"));
	long long stamp = std::stoll(root.read(kDir + ".smart_info_list.timestamp"));
	EXPECT_GE(stamp, ts.tv_sec);
	EXPECT_LE(stamp, ts.tv_sec + 5);

	json_object *doc = json_tokener_parse(root.read(kDir + "smart_info_list.cache").c_str());
	ASSERT_NE(doc, nullptr);
	EXPECT_STREQ(json_object_to_json_string_ext(json_object_array_get_idx(doc, 1), JSON_C_TO_STRING_PLAIN),
		     R"(["2","Attr_2","100","099","010","\"quoted\\2",2])");
	json_object_put(doc);

	ListGuard out;
	ASSERT_EQ(SmartInfoCacheGet("sda", &out.l), 0);
	std::string wrote = root.read(kDir + "smart_info_list.cache");
	ASSERT_EQ(SmartInfoCacheUpdate("sda", out.l), 0); // read back, written again: the same file
	EXPECT_EQ(root.read(kDir + "smart_info_list.cache"), wrote);
}

TEST_F(SmartInfoCacheFile, ReaderRefusesDamagedFiles)
{
	const struct {
		std::string text;
		int code;
	} cases[] = {
		{"-", 0x0900}, // no file
		{"not json", 0x0900},
		{R"({"a":1})", 0x0900},
		{"[]", 0x0900},
		{R"([["1","A","1","1","1","1",0]] x)", 0x0900},
		{"[1]", 0x0A00},
		{R"([["1","A","1","1","1",0]])", 0x0A00},
		{R"([["1","A","1","1","1","1",0,0]])", 0x0A00},
		{R"([["1","A","1","1","1","1",0],{}])", 0x0A00},
		{R"([["1",5,"1","1","1","1",0]])", 0x2A00},
		{R"([["1","A","1","1","1","1",-1]])", 0x2A00},
		{R"([["1","A","1","1","1","1",3]])", 0x2A00},
		{R"([["1","A","1","1","1","1","0"]])", 0x2A00},
		// A bad last element fails the read as a bad first one does.
		{R"([["1","A","1","1","1","1",0],["2","B","1","1","1","1",7]])", 0x2A00},
		{std::string(R"([["1","A","1","1","1","1",0]])") + '\0', 0x0900}, // a NUL after the document
	};
	for (const auto &c : cases) {
		SCOPED_TRACE(c.text);
		if (c.text != "-")
			root.write(kDir + "smart_info_list.cache", c.text);
		else
			root.remove(kDir + "smart_info_list.cache");
		ListGuard g;
		g.l = kSentinel;
		EXPECT_EQ(SmartInfoCacheGet("sda", &g.l), -1);
		EXPECT_ERR(c.code);
		EXPECT_EQ(g.l, nullptr);
	}
	// White space around the document is fine.
	root.write(kDir + "smart_info_list.cache", " [[\"1\",\"A\",\"1\",\"1\",\"1\",\"1\",2]]\n");
	ListGuard g;
	ASSERT_EQ(SmartInfoCacheGet("sda", &g.l), 0);
	EXPECT_EQ(g.l->status, 2u);

	EXPECT_EQ(SmartInfoCacheUpdate("..", g.l), -1); // a name that would leave the disks folder
	EXPECT_ERR(0x0D00);
	ListGuard other;
	EXPECT_EQ(SmartInfoCacheGet("../sda", &other.l), -1);
	EXPECT_ERR(0x0D00);
}

TEST_F(SmartInfoCacheFile, WriterFailuresLeaveTheOldFile)
{
	ListGuard l;
	l.l = makeList(2);
	root.write(kDir + "smart_info_list.cache", "old");

	// No directory for the disk: not even the lock can be taken.
	EXPECT_EQ(SmartInfoCacheUpdate("sdz", l.l), -1);
	EXPECT_ERR(0x0400);

	root.mkdirs(kDir + "smart_info_list.cache.tmp");
	EXPECT_EQ(SmartInfoCacheUpdate("sda", l.l), -1);
	EXPECT_ERR(0x0B00);
	EXPECT_EQ(root.read(kDir + "smart_info_list.cache"), "old");
	root.remove(kDir + "smart_info_list.cache.tmp");

	// The cache name taken by a non-empty directory: the rename fails and
	// the temporary file goes away.
	root.remove(kDir + "smart_info_list.cache");
	root.write(kDir + "smart_info_list.cache/x", "");
	EXPECT_EQ(SmartInfoCacheUpdate("sda", l.l), -1);
	EXPECT_ERR(0x2800);
	EXPECT_FALSE(root.exists(kDir + "smart_info_list.cache.tmp"));
	root.remove(kDir + "smart_info_list.cache");

	// The stamp cannot be written: the list is in place but the call fails,
	// so the next read goes to the drive rather than trusting a stale stamp.
	root.write(kDir + ".smart_info_list.timestamp/x", "");
	EXPECT_EQ(SmartInfoCacheUpdate("sda", l.l), -1);
	EXPECT_ERR(0x0B00);
	root.remove(kDir + ".smart_info_list.timestamp");

	// The lock is free again after every failure.
	EXPECT_EQ(SmartInfoCacheUpdate("sda", l.l), 0);
}

TEST_F(SmartInfoCacheFile, WritersWaitForTheLockAndLeaveAWholeFile)
{
	// Two writers with lists of different lengths, started while another
	// process holds the lock, and a reader beside them.
	int held = -1;
	auto writer = [&](int n, const char *tag) {
		pid_t pid = ::fork();
		if (pid == 0) {
			::close(held); // the lock stays with the holder's description
			SmartInfoEntry *l = makeList(n, tag);
			int bad = 0;
			for (int i = 0; i < 150; ++i)
				bad += SmartInfoCacheUpdate("sda", l) != 0;
			VEXODiskSmartInfoFree(l);
			::_exit(bad ? 1 : 0);
		}
		return pid;
	};
	ListGuard first;
	first.l = makeList(1, "Seed_");
	ASSERT_EQ(SmartInfoCacheUpdate("sda", first.l), 0);
	const std::string seed = root.read(kDir + "smart_info_list.cache");
	held = ::open(root.host(kDir + ".smart_info_list.lock").c_str(), O_RDWR);
	ASSERT_GE(held, 0);
	ASSERT_EQ(::flock(held, LOCK_EX), 0);
	pid_t a = writer(30, "Long_"), b = writer(2, "Short_");
	::usleep(800000);
	EXPECT_EQ(root.read(kDir + "smart_info_list.cache"), seed); // nothing written under the held lock
	::close(held);
	int reads = 0, torn = 0;
	for (bool done = false; !done;) {
		ListGuard g;
		if (SmartInfoCacheGet("sda", &g.l) != 0) {
			++torn;
		} else {
			int n = 0;
			for (auto *e = g.l; e; e = e->next)
				++n;
			std::string tag = g.l->name;
			tag = tag.substr(0, tag.find('_'));
			if (!((tag == "Long" && n == 30) || (tag == "Short" && n == 2) || (tag == "Seed" && n == 1)))
				++torn;
		}
		++reads;
		int st = 0;
		if (::waitpid(a, &st, WNOHANG) == a) {
			done = true;
			EXPECT_EQ(st, 0);
			ASSERT_EQ(::waitpid(b, &st, 0), b);
			EXPECT_EQ(st, 0);
		}
	}
	EXPECT_GT(reads, 10);
	EXPECT_EQ(torn, 0) << "of " << reads << " reads";
	EXPECT_FALSE(root.exists(kDir + "smart_info_list.cache.tmp"));
	ListGuard last;
	ASSERT_EQ(SmartInfoCacheGet("sda", &last.l), 0);
}

// vexohw smart attrs / smart cache against a test root with a stand-in tool.
class SmartAttrsCli : public SmartInfo {
protected:
	void SetUp() override
	{
		SmartInfo::SetUp();
		DiskLayout(root).sata("sda", 1);
		tool(kHeading + "  5 Reallocated_Sector_Ct   0x0033   001   001   036    Pre-fail  Always   FAILING_NOW 4095\n"
				"190 Airflow_Temperature_Cel 0x0022   055   042   045    Old_age   Always   In_the_past 45 (0 120 46 45)\n\n");
	}
};

TEST_F(SmartAttrsCli, TableJsonAndCache)
{
	// Each run: texts its output holds, and how often the tool ran so far.
	const struct {
		std::vector<std::string> args, texts;
		int runs;
	} steps[] = {
		{{"smart", "attrs", "sda"}, {"ID#", "failing now", "failed in the past"}, 1},
		{{"--json", "smart", "attrs", "/dev/sda"}, {"\"name\": \"Reallocated_Sector_Ct\"", "\"raw\": \"45\"", "\"status\": 2"}, 1},
		{{"--json", "smart", "cache", "sda"}, {"\"fresh\": true"}, 1},
		{{"smart", "cache", "sda", "--refresh"}, {"s old (fresh)"}, 2},
	};
	for (const auto &s : steps) {
		auto r = runVexohw(root, s.args);
		ASSERT_EQ(r.status(), 0) << s.args.back() << r.err;
		for (const auto &t : s.texts)
			EXPECT_NE(r.out.find(t), std::string::npos) << r.out;
		EXPECT_EQ(runs(), s.runs) << r.out;
	}
	root.remove("/run/vexostorage/disks/sda/smart_info_list.cache");
	auto r = runVexohw(root, {"smart", "cache", "sda"});
	EXPECT_EQ(r.status(), 1);
	EXPECT_NE(r.err.find("no cached SMART attribute list for /dev/sda (error 0x0900)"), std::string::npos) << r.err;
}

// The raw value rule, the temperature attributes of the SMART data page and
// the two dump readers against output captured from the real tools.

void putSlot(unsigned char *page, int index, unsigned char id, std::initializer_list<unsigned char> raw)
{
	unsigned char *s = page + 2 + 12 * index;
	s[0] = id;
	s[3] = 100;
	s[4] = 100;
	int i = 0;
	for (unsigned char b : raw)
		s[5 + i++] = b;
}

// The capture with the byte at 200 (ninth byte of line c0) replaced.
std::string withByte200(std::string dump, const char *hex)
{
	size_t at = dump.find(" c0     ");
	size_t ninth = at + 8 + 8 * 3 + 1; // eight bytes and the extra gap
	dump.replace(ninth, 2, hex);
	return dump;
}

// IDENTIFY and SMART text fields are stored with each pair of bytes swapped.
TEST(ByteOrder, SwapTouchesExactlyTwoBytes)
{
	char model[10] = "EVOXAH5T!";
	for (int i = 0; i < 8; i += 2)
		VEXOSmartEndianSwap2(model + i);
	EXPECT_STREQ(model, "VEXOHAT5!");
	swap2(model + 1); // an odd address is fine
	EXPECT_STREQ(model, "VXEOHAT5!");
	VEXOSmartEndianSwap2(nullptr);
	swap2(nullptr);
	EXPECT_EQ(isbigendian(), __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__ ? 1 : 0);
}

TEST(RawValue, TemperatureIdsTakeTheFirstRawByteOthersAllSix)
{
	unsigned char slot[12] = {194, 0x22, 0x00, 100, 100, 0x24, 0x00, 0x14, 0x00, 0x28, 0x00, 0};
	char out[32];
	EXPECT_EQ(SmartAttribRawValueParse(out, slot), 36);
	EXPECT_STREQ(out, "36");
	slot[0] = 190;
	EXPECT_EQ(SmartAttribRawValueParse(out, slot), 36);
	slot[0] = 5;
	EXPECT_EQ(SmartAttribRawValueParse(out, slot), 0x002800140024LL);
	EXPECT_STREQ(out, "171800002596");
	// All six bytes set: the largest 48-bit number, still positive.
	unsigned char full[12] = {9, 0, 0, 100, 100, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xEE};
	EXPECT_EQ(SmartAttribRawValueParse(out, full), 0xFFFFFFFFFFFFLL);
	EXPECT_STREQ(out, "281474976710655");

	LogCapture log;
	EXPECT_EQ(SmartAttribRawValueParse(nullptr, slot), -1);
	EXPECT_EQ(SmartAttribRawValueParse(out, nullptr), -1);
	EXPECT_EQ(log.count(LOG_ERR, "Invalid input !"), 2);
}

TEST(RawValue, TemperatureAttributesOfThePage)
{
	unsigned char page[512] = {};
	putSlot(page, 0, 1, {0, 0, 0, 0, 0, 0});
	EXPECT_EQ(SmartTemperatureGet(page), -1);
	EXPECT_EQ(SmartAirflowTempGet(page), -1);
	putSlot(page, 29, 190, {31, 0, 20, 0, 40, 0}); // the last slot, ending at 362
	EXPECT_EQ(SmartAirflowTempGet(page), 31);
	EXPECT_EQ(SmartTemperatureGet(page), -1);
	putSlot(page, 3, 194, {0x24, 0x00, 0x14, 0x00, 0x28, 0x00});
	EXPECT_EQ(SmartTemperatureGet(page), 36);
	// Past the 30 slots nothing counts.
	page[362] = 194;
	page[367] = 99;
	putSlot(page, 3, 1, {});
	EXPECT_EQ(SmartTemperatureGet(page), -1);
	EXPECT_EQ(SmartTemperatureGet(nullptr), -1);
}

TEST(StoredSerial, LengthCheckBounds)
{
	EXPECT_EQ(VEXODiskSerialLengthCheck("12345"), 0);
	EXPECT_EQ(VEXODiskSerialLengthCheck("123456"), 1);
	EXPECT_EQ(VEXODiskSerialLengthCheck("123456789012345678901234"), 1);
	EXPECT_EQ(VEXODiskSerialLengthCheck("1234567890123456789012345"), 0);
	EXPECT_EQ(VEXODiskSerialLengthCheck(""), 0);
	EXPECT_EQ(VEXODiskSerialLengthCheck(nullptr), 0);
}

TEST(SgRawDump, ByteTwoHundredAndLineShapes)
{
	std::string real = capture("sg_raw_sct_status.txt");
	ASSERT_NE(real.find("Received 512 bytes of data:"), std::string::npos);
	size_t c0 = real.find(" c0     ");
	const std::pair<std::string, int> rows[] = {
		{real, 38},
		{withByte200(real, "64"), 100},
		{withByte200(real, "65"), -1}, // 101
		{withByte200(real, "ff"), -1},
		{withByte200(real, "00"), 0},
		// Ends before the line of 0xc0, or within it before byte 200.
		{real.substr(0, c0), -1},
		{real.substr(0, c0 + 8 + 8 * 3), -1},
		{"", -1},
		{"SCSI Status: Good\n\nNo data received\n", -1},
		// The ASCII column is not read as bytes, even when it looks like hex.
		{" c0     00 00 00 00 00 00 00 00\n", -1},
		{" c0     00 00 00 00 00 00 00 00                                  2a 2b\n", -1},
		// The first line that reaches 185 decides, whatever its offset.
		{" b0     00 00 00 00 00 00 00 00  1f 00\n d0     00 00 00 00 00 00 00 00  20 00\n", 0x20},
		// Windows line ends and a stand-in without the leading space.
		{"c0 00 00 00 00 00 00 00 00 21 00\r\n", 0x21},
		// A malformed byte ends the line's data.
		{" c0     00 00 00 00 00 00 00 00  2g 00\n", -1},
		{" c0     00 00 00 00 00 00 00 00  123 00\n", -1},
	};
	for (const auto &[dump, want] : rows)
		EXPECT_EQ(sctTemperatureFromDump(dump), want) << dump.substr(0, 80);
}

TEST(SatIdentifyDump, WordTwoHundredSixOfTheRealOutput)
{
	std::string yes = capture("sg_sat_identify_sct.txt"), no = capture("sg_sat_identify_no_sct.txt");
	ASSERT_FALSE(yes.empty());
	EXPECT_EQ(sctSupportFromIdentifyDump(yes), 1);
	EXPECT_EQ(sctSupportFromIdentifyDump(no), 0);
	// Without the heading nothing is read, even a whole dump.
	EXPECT_EQ(sctSupportFromIdentifyDump(yes.substr(yes.find('\n') + 1)), -1);
	// Ends before word 0xc8, or within its line before the seventh word.
	EXPECT_EQ(sctSupportFromIdentifyDump(yes.substr(0, yes.find(" c8     "))), -1);
	size_t c8 = yes.find(" c8     ");
	EXPECT_EQ(sctSupportFromIdentifyDump(yes.substr(0, c8 + 8 + 6 * 5)), -1);
	EXPECT_EQ(sctSupportFromIdentifyDump(yes.substr(0, c8 + 8 + 7 * 5)), 1);
	// Lines before the heading are not the dump.
	EXPECT_EQ(sctSupportFromIdentifyDump(" c8 0 0 0 0 0 0 0001\nResponse for IDENTIFY DEVICE ATA command:\n"), -1);
}

// Self-test log pages decoded: ring order, wrap-around across pages, the
// durations, and the latest-result rule.
// A descriptor of test number `n` with status nibble `s` at byte 0 / high nibble of byte 1.
void put(std::vector<uint8_t> &p, size_t off, uint8_t n, uint8_t s)
{
	p[off] = n;
	p[off + 1] = static_cast<uint8_t>(s << 4);
	p[off + 2] = 1; // hours: not an all-zero descriptor
}

// A decoded log as "q<quick> e<extend> c<current> t<latest type> dq<quick
// damaged before> de<extend damaged before> p<progress>".
std::string summary(const SmartTestLog &l)
{
	return "q" + std::to_string(l.quickResult) + " e" + std::to_string(l.extendResult) + " c" +
	       std::to_string(l.currentResult) + " t" + std::to_string(l.latestType) + " dq" +
	       std::to_string(l.quickDamagedBefore) + " de" + std::to_string(l.extendDamagedBefore) + " p" + l.progress;
}

TEST(SelfTestDecode, SmartValuesDurationsAndProgress)
{
	struct Row {
		uint8_t b363, b367, b373;
		uint16_t word;
		bool ok;
		const char *extend, *progress;
		unsigned current;
	} rows[] = {
		{0x00, 0x6B, 30, 0, false, "", "", 0},            // bit 4 clear: no self-test
		{0x00, 0x7B, 0xFF, 0, true, " 255", "", 1},       // word 0 keeps 255
		{0x00, 0x7B, 0xFF, 0xFFFF, true, " 255", "", 1},
		{0xF3, 0x7B, 0xFF, 700, true, " 700", "70%", 5},   // 3 tenths to go
		{0x40, 0x7B, 45, 0, true, "  45", "", 4},
	};
	for (const Row &r : rows) {
		std::vector<uint8_t> v(512, 0);
		v[363] = r.b363, v[367] = r.b367, v[372] = 2, v[373] = r.b373;
		v[375] = r.word & 0xFF, v[376] = r.word >> 8;
		SmartTestLog log{};
		ASSERT_EQ(decodeSmartValues(std::span<const uint8_t, 512>(v.data(), 512), log), r.ok) << int(r.b367);
		if (!r.ok)
			continue;
		EXPECT_STREQ(log.quickMinutes, "   2");
		EXPECT_STREQ(log.extendMinutes, r.extend);
		EXPECT_STREQ(log.progress, r.progress);
		EXPECT_EQ(log.currentResult, r.current);
	}
}

TEST(SelfTestDecode, StandardLogIndexZeroStartsAtSlotTwenty)
{
	std::vector<uint8_t> p(512, 0);
	put(p, 2 + 20 * 24, 1, 5);  // newest: quick, damage
	put(p, 2 + 19 * 24, 2, 0);  // extended, completed
	put(p, 2 + 18 * 24, 1, 15); // in progress: skipped
	put(p, 2 + 17 * 24, 1, 4);  // older quick damage
	SmartTestLog log{};
	decodeAtaStandardLog(std::span<const uint8_t, 512>(p.data(), 512), log);
	EXPECT_EQ(summary(log), "q4 e1 c0 t1 dq1 de0 p");
}

TEST(SelfTestDecode, ExtendedLogWrapsAcrossPages)
{
	std::vector<uint8_t> p(2 * 512, 0);
	p[2] = 2; // newest is entry 1 of page 0
	auto at = [](size_t u) { return (u / 19) * 512 + 4 + (u % 19) * 26; };
	put(p, at(1), 2, 7); // extended damage
	put(p, at(0), 1, 0); // quick completed
	put(p, at(37), 2, 0); // wraps to the last entry of page 1
	put(p, at(36), 128, 3);
	SmartTestLog log{};
	log.latestType = 9;
	decodeAtaExtendedLog(p, log);
	EXPECT_EQ(summary(log), "q1 e4 c0 t2 dq0 de1 p"); // de1: the 128 entry after both were seen

	SmartTestLog bad{};
	p[2] = 39; // index past pages x 19: nothing read
	decodeAtaExtendedLog(p, bad);
	EXPECT_EQ(bad.quickResult, 0u);
}

TEST(SelfTestDecode, ScsiPageAndControlMode)
{
	std::vector<uint8_t> p(512, 0);
	p[4 + 4] = 2 << 5 | 15; // running extended
	p[24 + 4] = 1 << 5 | 0; // quick completed
	p[44 + 4] = 1 << 5 | 6; // older quick damage
	SmartTestLog log{};
	decodeScsiSelfTestPage(p, log);
	EXPECT_EQ(summary(log), "q1 e6 c5 t1 dq1 de0 p-1");

	// A control mode page longer than the buffer (the minutes of a whole
	// page are read from the emulated drive in ScsiResultsAndControlModePages).
	std::vector<uint8_t> m(512, 0);
	m[3] = 0xFF;
	EXPECT_FALSE(decodeScsiControlMode(std::span<const uint8_t>(m.data(), 260), log));
}

TEST(SelfTestDecode, NvmeLog)
{
	std::vector<uint8_t> p(564, 0);
	for (size_t i = 0; i < 20; ++i)
		p[4 + 28 * i] = 0x0F;
	SmartTestLog empty{};
	ASSERT_TRUE(decodeNvmeSelfTestLog(p, empty));
	EXPECT_EQ(summary(empty), "q6 e6 c6 t0 dq0 de0 p");

	p[0] = 2, p[1] = 40;
	p[4] = 0x27;      // extended, failed segment
	p[32] = 0x10;     // quick, completed
	p[60] = 0x14;     // older quick: not the deciding one
	SmartTestLog log{};
	ASSERT_TRUE(decodeNvmeSelfTestLog(p, log));
	EXPECT_EQ(summary(log), "q1 e4 c5 t2 dq0 de1 p40%");
	p[0] = 7;
	EXPECT_FALSE(decodeNvmeSelfTestLog(p, log));
}

TEST(SelfTestDecode, LatestResultAndWords)
{
	struct Row {
		unsigned type, quick, extend, latest;
	} rows[] = {{1, 4, 1, 7}, {1, 4, 4, 4}, {1, 2, 4, 2}, {2, 4, 3, 3}, {0, 4, 4, 6}};
	for (const Row &r : rows) {
		SmartTestLog log{};
		log.latestType = r.type, log.quickResult = r.quick, log.extendResult = r.extend;
		SmartTestLatestResultSet(&log);
		EXPECT_EQ(log.latestResult, r.latest) << r.type << r.quick << r.extend;
	}
	unsigned res = 0;
	EXPECT_EQ(SmartTestResultTransfer(8, &res), 1);
	EXPECT_EQ(res, 4u);
	EXPECT_EQ(SmartTestResultTransfer(9, &res), 0);
	EXPECT_EQ(res, 0u);
	char w[32];
	ASSERT_EQ(SmartTestResultStringTransfer(7, w, sizeof(w)), 0);
	EXPECT_STREQ(w, "extended_test_suggested");
	EXPECT_EQ(SmartTestResultStringTransfer(8, w, sizeof(w)), -1);
	EXPECT_EQ(SmartTestStatusStringTransfer(3, w, 4), -1); // "fail" and its NUL need 5
}

TEST(SelfTestDocument, ShownEntriesAndAMissingResult)
{
	vexo::test::Sysroot root;
	SmartTestResultLog *list = nullptr;
	ASSERT_EQ(SmartTestResultLogGet(&list), 0); // no document: an empty list
	EXPECT_FALSE(list);
	const std::string a = R"(<test model="M" SN="S1" time="t1" path="/dev/sda" result="completed" show="1">quick</test>)",
			  hidden = R"(<test model="M" SN="S2" time="t2" path="/dev/sdb" result="damage" show="0">extend</test>)";
	root.write(SMART_TEST_RESULT_LOG_XML, "<log>" + a + hidden + "</log>");
	ASSERT_EQ(SmartTestResultLogGet(&list), 0);
	ASSERT_TRUE(list && !list->next);
	EXPECT_STREQ(list->serial, "S1");
	EXPECT_STREQ(list->result, "completed");
	EXPECT_STREQ(list->text, "quick");
	SmartTestResultLogFree(list);
	root.write(SMART_TEST_RESULT_LOG_XML, "<log>" + a + R"(<test model="M" SN="S3" time="t" path="p" show="1"/></log>)");
	list = nullptr;
	EXPECT_EQ(SmartTestResultLogGet(&list), -1);
	EXPECT_FALSE(list);
}

} // namespace
