// SMART attribute lists read from the tool's text: captured outputs of real
// drives, the status rule, the cache decision, the command line the tool
// gets, and the dispatch by command family.
#include <algorithm>
#include <ctime>
#include <dirent.h>
#include <syslog.h>
#include <unistd.h>

#include "external/port_map.h"
#include "smartctl/smart_util.h"
#include "support/disk_layout.h"

using namespace vexo::test;

namespace {

// One row as "id name value worst threshold raw status".
std::string row(const std::string &id, const std::string &name, const std::string &value, const std::string &worst,
		const std::string &threshold, const std::string &raw, uint32_t status)
{
	return id + " " + name + " " + value + " " + worst + " " + threshold + " " + raw + " " + std::to_string(status);
}

std::vector<std::string> rows(const SmartInfoEntry *l)
{
	std::vector<std::string> out;
	for (; l; l = l->next)
		out.push_back(row(l->id, l->name ? l->name : "", l->value, l->worst, l->threshold, l->raw, l->status));
	return out;
}

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
	int runs() const
	{
		std::string r = root.exists("/runs") ? root.read("/runs") : "";
		return static_cast<int>(std::count(r.begin(), r.end(), '\n'));
	}
	std::vector<std::string> args() const
	{
		std::vector<std::string> out;
		std::istringstream in(root.read("/args"));
		for (std::string l; std::getline(in, l);)
			out.push_back(l);
		return out;
	}
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
			if (g.l == kSentinel)
				g.l = nullptr;
			continue;
		}
		ASSERT_EQ(rc, 0);
		EXPECT_EQ(rows(g.l), want);
		for (auto *e = g.l; e; e = e->next)
			failing += e->status != 0;
	}
	EXPECT_EQ(nineColumn, 1);
	EXPECT_GE(failing, 10); // the failing drives are in there
}

TEST_F(SmartInfo, CapturedOutputsWithoutATable)
{
	if (sharedDataDir().empty())
		GTEST_SKIP() << "no captured outputs";
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

TEST_F(SmartInfoCacheUse, FreshnessBoundary)
{
	stamp(alignedNow() - 3599);
	EXPECT_EQ(firstName(), "From_Cache");
	stamp(alignedNow() - 3600);
	EXPECT_EQ(firstName(), "From_Cache");
	EXPECT_EQ(runs(), 0);

	long long now = alignedNow();
	stamp(now - 3601);
	EXPECT_EQ(firstName(), "Reallocated_Sector_Ct");
	EXPECT_EQ(runs(), 1);
	// The fresh list replaced the cache, stamped now.
	long long written = std::stoll(root.read("/run/vexostorage/disks/sda/.smart_info_list.timestamp"));
	EXPECT_GE(written, now);
	EXPECT_LE(written, now + 5);
	EXPECT_EQ(firstName(), "Reallocated_Sector_Ct");
	EXPECT_EQ(runs(), 1);
}

TEST_F(SmartInfoCacheUse, WhenTheToolRuns)
{
	const struct {
		const char *why;
		long long stampOffset;
		int force;
		const char *json;
	} cases[] = {
		{"forced, however fresh the cache", 0, 1, R"([["1","From_Cache","100","100","000","42",0]])"},
		{"a stamp from the future", 100, 0, R"([["1","From_Cache","100","100","000","42",0]])"},
		{"an element of six items", 0, 0, R"([["1","From_Cache","100","100","000","42"]])"},
	};
	EXPECT_EQ(firstName(), "Reallocated_Sector_Ct"); // no stamp
	EXPECT_EQ(runs(), 1);
	for (const auto &c : cases) {
		SCOPED_TRACE(c.why);
		int before = runs();
		cache(c.json);
		stamp(alignedNow() + c.stampOffset);
		EXPECT_EQ(firstName(c.force), "Reallocated_Sector_Ct");
		EXPECT_EQ(runs(), before + 1);
	}
	// The tool's list replaced the damaged cache.
	EXPECT_EQ(firstName(), "Reallocated_Sector_Ct");
	EXPECT_EQ(runs(), 4);
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
	if (g.l == kSentinel)
		g.l = nullptr;
	EXPECT_EQ(VEXODiskAtaSmartInfoUpdate("/dev/sda"), 0);

	LogCapture log;
	EXPECT_EQ(VEXODiskAtaSmartInfoParse("/dev/nvme0n1", &g.l), -1);
	EXPECT_ERR(0x2D00);
	EXPECT_TRUE(log.has(LOG_ERR, "SMART attribute list of NVMe disk /dev/nvme0n1 is not available"));
	EXPECT_EQ(VEXODiskAtaSmartInfoUpdate("/dev/nvme0n1"), 0);
	EXPECT_EQ(runs(), 0);
}

} // namespace
