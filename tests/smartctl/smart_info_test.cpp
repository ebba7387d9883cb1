// SMART attribute lists read from the tool's text: captured outputs of real
// drives, the status rule, the cache decision, the command line the tool
// gets, and the dispatch by command family.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <dirent.h>
#include <fstream>
#include <sstream>
#include <syslog.h>
#include <unistd.h>
#include <vexohw/smart_info.h>

#include "external/port_map.h"
#include "support/disk_layout.h"
#include "support/vexotest.h"

using namespace vexo::test;

namespace {

static_assert(offsetof(SmartInfoEntry, name) == 0 && offsetof(SmartInfoEntry, id) == 8 &&
	      offsetof(SmartInfoEntry, value) == 16 && offsetof(SmartInfoEntry, worst) == 24 &&
	      offsetof(SmartInfoEntry, threshold) == 32 && offsetof(SmartInfoEntry, raw) == 40 &&
	      offsetof(SmartInfoEntry, status) == 48 && offsetof(SmartInfoEntry, next) == 56 &&
	      sizeof(SmartInfoEntry) == 64);

struct Row {
	std::string id, name, value, worst, threshold, raw;
	uint32_t status;
};

std::vector<Row> rows(const SmartInfoEntry *l)
{
	std::vector<Row> out;
	for (; l; l = l->next)
		out.push_back({l->id, l->name ? l->name : "", l->value, l->worst, l->threshold, l->raw, l->status});
	return out;
}

struct ListGuard {
	SmartInfoEntry *l = nullptr;
	~ListGuard() { VEXODiskSmartInfoFree(l); }
};

// A list head a failing call must clear (never dereferenced).
SmartInfoEntry *const kSentinel = reinterpret_cast<SmartInfoEntry *>(static_cast<uintptr_t>(0x10));

const char *kHeading =
	"ID# ATTRIBUTE_NAME          FLAG     VALUE WORST THRESH TYPE      UPDATED  WHEN_FAILED RAW_VALUE\n";

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
	// then prints `text`.
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
		if (!root.exists("/runs"))
			return 0;
		std::string r = root.read("/runs");
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
// old tool printed there.
std::vector<Row> expectedRows(const std::string &file, bool &classic)
{
	std::ifstream in(file);
	std::vector<Row> out;
	bool inTable = false;
	classic = false;
	for (std::string line; std::getline(in, line);) {
		if (!line.empty() && line.back() == '\r')
			line.pop_back();
		if (!inTable) {
			if (line.find("ID#") != std::string::npos) {
				inTable = true;
				classic = line.find("UPDATED") != std::string::npos;
			}
			continue;
		}
		if (line.empty())
			break;
		std::istringstream cols(line);
		Row r;
		std::string flag, type, updated, failed;
		cols >> r.id >> r.name >> flag >> r.value >> r.worst >> r.threshold >> type >> updated >> failed >> r.raw;
		r.status = std::stoi(r.threshold) == 0 ? 0 : failed == "FAILING_NOW" ? 2 : failed == "In_the_past" ? 1 : 0;
		if (classic) {
			EXPECT_TRUE(failed == "-" || failed == "FAILING_NOW" || failed == "In_the_past") << line;
		}
		out.push_back(r);
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
	int classicFiles = 0, failing = 0;
	for (const auto &f : files) {
		SCOPED_TRACE(f);
		bool classic = false;
		std::vector<Row> want = expectedRows(f, classic);
		ASSERT_FALSE(want.empty());
		toolFile(f);
		ListGuard g;
		g.l = kSentinel; // must be cleared on failure
		int rc = AtaSmartInfoGet("/dev/sda", "sat", &g.l);
		if (!classic) {
			// The old nine-column layout has no UPDATED column.
			EXPECT_EQ(rc, -1);
			EXPECT_ERR(0x2A00);
			EXPECT_EQ(g.l, nullptr);
			if (g.l == kSentinel)
				g.l = nullptr;
			continue;
		}
		++classicFiles;
		ASSERT_EQ(rc, 0);
		std::vector<Row> got = rows(g.l);
		ASSERT_EQ(got.size(), want.size());
		for (size_t i = 0; i < got.size(); ++i) {
			SCOPED_TRACE(want[i].id + " " + want[i].name);
			EXPECT_EQ(got[i].id, want[i].id);
			EXPECT_EQ(got[i].name, want[i].name);
			EXPECT_EQ(got[i].value, want[i].value);
			EXPECT_EQ(got[i].worst, want[i].worst);
			EXPECT_EQ(got[i].threshold, want[i].threshold);
			EXPECT_EQ(got[i].raw, want[i].raw);
			EXPECT_EQ(got[i].status, want[i].status);
			failing += got[i].status != 0;
		}
	}
	EXPECT_EQ(classicFiles, static_cast<int>(files.size()) - 1);
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
	tool(std::string("smartctl 7.4\n\n=== START OF READ SMART DATA SECTION ===\n") + kHeading +
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
	auto r = rows(g.l);
	ASSERT_EQ(r.size(), 8u); // the empty line ends the table
	EXPECT_EQ(r[0].status, 0u);
	EXPECT_EQ(r[1].status, 1u);
	EXPECT_EQ(r[2].status, 2u);
	EXPECT_EQ(r[3].status, 0u);
	EXPECT_EQ(r[4].status, 2u);
	EXPECT_EQ(r[5].status, 0u);
	EXPECT_EQ(r[5].value, "---");
	// Only the first word of a raw value printed as several survives.
	EXPECT_EQ(r[6].raw, "701");
	EXPECT_EQ(r[7].raw, "33");
	EXPECT_EQ(r[7].value, "033"); // as printed
	EXPECT_EQ(runs(), 1);
}

TEST_F(SmartInfo, ShortRowFailsTheWholeRead)
{
	tool(std::string(kHeading) +
	     "  1 Raw_Read_Error_Rate     0x000b   100   100   016    Pre-fail  Always       -       0\n"
	     "  3 Spin_Up_Time            0x0007   100   100   050    Pre-fail     -       0\n");
	ListGuard g;
	EXPECT_EQ(SmartInfoGet("/dev/sda", "ata", &g.l, 1), -1);
	EXPECT_ERR(0x2A00);
	EXPECT_EQ(g.l, nullptr);
	// Nothing was cached from the failed read.
	EXPECT_FALSE(root.exists("/run/vexostorage/disks/sda/smart_info_list.cache"));
}

TEST_F(SmartInfo, LongAndCrlfLines)
{
	std::string tail(400, 'x');
	tool(std::string("\r\n") + "ID# ATTRIBUTE_NAME FLAG VALUE WORST THRESH TYPE UPDATED WHEN_FAILED RAW_VALUE\r\n" +
	     "  1 Raw_Read_Error_Rate 0x000b 100 100 016 Pre-fail Always - 7 " + tail + " 8 9 10 11\r\n" +
	     "  5 Reallocated_Sector_Ct 0x0033 100 100 005 Pre-fail Always - 12\r\n\r\n");
	ListGuard g;
	ASSERT_EQ(AtaSmartInfoGet("/dev/sda", "ata", &g.l), 0);
	auto r = rows(g.l);
	// The end of an over-long line is dropped, not read as a row of its own.
	ASSERT_EQ(r.size(), 2u);
	EXPECT_EQ(r[0].raw, "7");
	EXPECT_EQ(r[1].id, "5");
	EXPECT_EQ(r[1].raw, "12");
}

TEST_F(SmartInfo, ToolAndArgumentFailures)
{
	ListGuard g;
	EXPECT_EQ(AtaSmartInfoGet("/dev/sda", "ata", &g.l), -1); // no tool in the root
	EXPECT_ERR(0x0900);
	EXPECT_EQ(AtaSmartInfoGet(nullptr, "ata", &g.l), -1);
	EXPECT_ERR(0x0D00);
	EXPECT_EQ(SmartInfoGet("/dev/sda", nullptr, &g.l, 0), -1);
	EXPECT_ERR(0x0D00);
	EXPECT_EQ(SmartInfoGet("/dev/sda", "ata", nullptr, 0), -1);
	EXPECT_ERR(0x0D00);
	tool(kHeading);
	EXPECT_EQ(SmartInfoGet("sda", "ata", &g.l, 0), -1);
	EXPECT_ERR(0x6100);
	EXPECT_EQ(AtaSmartInfoGet("/tmp/sda", "ata", &g.l), -1);
	EXPECT_ERR(0x6100);
	// A type that would read as an option is refused before anything runs.
	EXPECT_EQ(AtaSmartInfoGet("/dev/sda", "-T", &g.l), -1);
	EXPECT_ERR(0x0D00);
	EXPECT_EQ(runs(), 0);
}

TEST_F(SmartInfo, ArgumentsArePassedLiterally)
{
	tool(std::string(kHeading) + "  1 A 0x000b 100 100 016 Pre-fail Always - 0\n");
	ListGuard g;
	ASSERT_EQ(AtaSmartInfoGet("/dev/sda", "sat", &g.l), 0);
	EXPECT_EQ(args(), (std::vector<std::string>{"-d", "sat", "-A", "/dev/sda"}));

	const std::string evil = "/dev/sd a;touch " + root.host("/pwned") + " $(touch " + root.host("/pwned2") + ")`id`";
	VEXODiskSmartInfoFree(g.l);
	g.l = nullptr;
	ASSERT_EQ(AtaSmartInfoGet(evil.c_str(), "sat", &g.l), 0);
	EXPECT_EQ(args(), (std::vector<std::string>{"-d", "sat", "-A", evil}));
	EXPECT_FALSE(root.exists("/pwned"));
	EXPECT_FALSE(root.exists("/pwned2"));
	// The cache path is built from the name: a name the tool would not get
	// whole is refused before the tool runs.
	VEXODiskSmartInfoFree(g.l);
	g.l = nullptr;
	int before = runs();
	EXPECT_EQ(SmartInfoGet(evil.c_str(), "sat", &g.l, 1), -1);
	EXPECT_ERR(0x6100);
	EXPECT_EQ(runs(), before);
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
		tool(std::string(kHeading) +
		     "  5 Reallocated_Sector_Ct   0x0033   100   100   010    Pre-fail  Always       -       0\n");
		cache(R"([["1","From_Cache","100","100","000","42",0]])");
	}
	void cache(const std::string &json) { root.write("/run/vexostorage/disks/sda/smart_info_list.cache", json); }
	void stamp(long long t)
	{
		root.write("/run/vexostorage/disks/sda/.smart_info_list.timestamp", std::to_string(t));
	}
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
	// No stamp: the tool.
	EXPECT_EQ(firstName(), "Reallocated_Sector_Ct");
	EXPECT_EQ(runs(), 1);
	// Forced: the tool, however fresh the cache.
	cache(R"([["1","From_Cache","100","100","000","42",0]])");
	stamp(alignedNow());
	EXPECT_EQ(firstName(1), "Reallocated_Sector_Ct");
	EXPECT_EQ(runs(), 2);
	// A stamp from the future is not trusted.
	cache(R"([["1","From_Cache","100","100","000","42",0]])");
	stamp(alignedNow() + 100);
	EXPECT_EQ(firstName(), "Reallocated_Sector_Ct");
	EXPECT_EQ(runs(), 3);
	// A damaged cache (an element of six items) falls through to the tool,
	// and the tool's list then replaces it.
	cache(R"([["1","From_Cache","100","100","000","42"]])");
	stamp(alignedNow());
	EXPECT_EQ(firstName(), "Reallocated_Sector_Ct");
	EXPECT_EQ(runs(), 4);
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
	tool(std::string(kHeading) + "  5 Reallocated_Sector_Ct 0x0033 100 100 010 Pre-fail Always - 0\n");
	ListGuard g;
	ASSERT_EQ(VEXODiskAtaSmartInfoParse("/dev/sda", &g.l), 0);
	ASSERT_NE(g.l, nullptr);
	EXPECT_STREQ(g.l->name, "Reallocated_Sector_Ct");
	EXPECT_EQ(args()[1], "ata");
	EXPECT_TRUE(root.exists("/run/vexostorage/disks/sda/smart_info_list.cache"));

	// Served from the cache the second time.
	VEXODiskSmartInfoFree(g.l);
	g.l = nullptr;
	ASSERT_EQ(VEXODiskAtaSmartInfoParse("/dev/sda", &g.l), 0);
	EXPECT_EQ(runs(), 1);
	ASSERT_EQ(VEXODiskAtaSmartInfoUpdate("/dev/sda"), 0);
	EXPECT_EQ(runs(), 2);

	// A table the tool cannot give is logged with the code.
	VEXODiskSmartInfoFree(g.l);
	g.l = nullptr;
	tool("SMART support is: Unavailable\n");
	LogCapture log;
	EXPECT_EQ(VEXODiskAtaSmartInfoUpdate("/dev/sda"), -1);
	EXPECT_ERR(0x0A00);
	root.remove("/run/vexostorage/disks/sda/.smart_info_list.timestamp");
	EXPECT_EQ(VEXODiskAtaSmartInfoParse("/dev/sda", &g.l), -1);
	EXPECT_ERR(0x0A00);
	EXPECT_TRUE(log.has(LOG_ERR, "Failed to get smart info on /dev/sda, 0xA00")) << log.dump();
}

TEST_F(SmartInfo, ScsiAndNvmeDisks)
{
	tool(std::string(kHeading) + "  5 Reallocated_Sector_Ct 0x0033 100 100 010 Pre-fail Always - 0\n");
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

	EXPECT_EQ(VEXODiskAtaSmartInfoParse(nullptr, &g.l), -1);
	EXPECT_ERR(0x0D00);
	EXPECT_EQ(VEXODiskAtaSmartInfoUpdate(nullptr), -1);
	EXPECT_ERR(0x0D00);
}

} // namespace
