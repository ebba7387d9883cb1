// Database lookups on files written into a test root: model keys exact and
// as patterns, firmware keys, version cut points, the word mapping, broken
// files, and a database replaced while other threads read it.
#include <atomic>
#include <json/json.h>
#include <syslog.h>
#include <thread>
#include <vexohw/compat.h>

#include "support/vexotest.h"

using namespace vexo::test;

namespace {

constexpr const char *kDb = "/var/lib/disk-compatibility/t_host_v7.db";

// Cuts 100.0 and 200.5: support below, not_support between, for_eunit from 200.5 on.
const char *kLookupDb = R"({"disk_compatbility_info":{
 ".*ABC":{"F1":{"vos_ver":[],"compatibility_interval":[{"compatibility":"not_support"}]}},
 "ABC-1":{"F1":{"vos_ver":["100.0","200.5"],"compatibility_interval":[{"compatibility":"support"},
   {"compatibility":"not_support"},{"compatibility":"for_eunit","smart_test_ignore":true}]},
   "default":{"vos_ver":[],"compatibility_interval":[{"compatibility":"unverified"}]}},
 "WD40":{"X":{"vos_ver":[],"compatibility_interval":[{"compatibility":"legacy"}]}},
 "NODEF":{"A":{"vos_ver":[],"compatibility_interval":[{"compatibility":"support"}]}},
 "BAD":{"A":{"vos_ver":["1.0"],"compatibility_interval":[{"compatibility":"support"}]},
        "B":{"vos_ver":[],"compatibility_interval":[{"nothing":1}]},
        "C":{"vos_ver":[],"compatibility_interval":[{"compatibility":"not_in_support"}]}}
},"DB_Mapping":[{"time":"300.0","str":"legacy","mapping":"support"},
 {"time":"250.0","str":"other","mapping":"not_support"},
 {"time":"200.0","str":"legacy","mapping":"not_support"}]})";

int lookup(const char *model, const char *fw, const char *ver, int strict = 0)
{
	return GetCompatibilityFromDiskCompatibilityInfo(kDb, model, fw, ver, &strict, nullptr, nullptr, nullptr);
}

TEST(CompatLookup, ModelsFirmwareVersionsAndMapping)
{
	Sysroot root;
	root.write(kDb, kLookupDb);
	LogCapture log;
	struct Row {
		const char *model, *fw, *ver;
		int strict, want;
		const char *logText; // a line that must appear, or null for none at LOG_ERR
	} rows[] = {
		{"ABC-1", "F1", "99.9", 0, 1, nullptr},		     // below the first cut; exact key beats ".*ABC"
		{"ABC-1", "F1", "100.0", 0, 3, nullptr},	     // a cut belongs to the next interval
		{"ABC-1", "F1", "150.2", 0, 3, nullptr},
		{"ABC-1", "F1", "200.5", 0, 6, nullptr},
		{"ABC-1", "F1", "900.0", 0, 6, nullptr},	     // above the last cut
		{"ABC-1", "F9", "150.0", 0, 2, nullptr},	     // "default": unverified
		{"ABC-1", "F9", "150.0", 1, 2, "default time line"}, // strict: "default" not tried
		{"xxABC-2", "F1", "1.0", 0, 3, nullptr},	     // pattern
		{"NOPE", "F1", "1.0", 0, 2, nullptr},		     // unlisted: not logged
		{"NODEF", "Z", "1.0", 0, 2, "No matched firmware"},  // no exact key, no default
		{"wdc wd40efpx", "X", "100.0", 0, 1, nullptr},	     // literal key, any case, substring; mapped
		{"wdc wd40efpx", "X", "260.0", 0, 1, nullptr},	     // still above the newest mapping
		{"wdc wd40efpx", "X", "300.0", 0, 2, nullptr},	     // the first "time" not above stops the walk
		{"BAD", "A", "1.0", 0, 2, "Invalid json format"},    // one cut, one interval
		{"BAD", "B", "1.0", 0, 0, "Invalid json format"},    // no word: status 0
		{"BAD", "C", "1.0", 0, 2, nullptr},		     // a display word, in no mapping either
	};
	for (const Row &r : rows) {
		log.clear();
		EXPECT_EQ(lookup(r.model, r.fw, r.ver, r.strict), r.want) << r.model << " " << r.fw << " " << r.ver;
		if (r.logText)
			EXPECT_TRUE(log.has(LOG_ERR, r.logText)) << r.model << log.dump();
		else
			EXPECT_EQ(log.count(LOG_ERR), 0) << r.model << " " << r.fw << log.dump();
	}
	// The outputs: the mapping, the model's node and the entry.
	Json::Value mapping, model, entry, interval;
	int strict = 0;
	EXPECT_EQ(GetCompatibilityFromDiskCompatibilityInfo(kDb, "ABC-1", "F1", "1.0", &strict, &mapping, &model, &entry),
		  1);
	EXPECT_EQ(mapping.size(), 3u);
	EXPECT_TRUE(model.isMember("default"));
	EXPECT_EQ(entry["vos_ver"].size(), 2u);
	EXPECT_EQ(GetBehaviorFromDiskCompatibilityInfo(kDb, "ABC-1", "F1", "250.0", &strict, &interval), 0);
	EXPECT_TRUE(interval["smart_test_ignore"].asBool());
	EXPECT_EQ(GetBehaviorFromDiskCompatibilityInfo(kDb, "BAD", "A", "1.0", &strict, &interval), -1);
}

TEST(CompatLookup, MappingWalkStopsInsteadOfSkipping)
{
	Json::Value node, mapping;
	Json::Reader().parse(R"({"vos_ver":[],"compatibility_interval":[{"compatibility":"legacy"}]})", node);
	Json::Reader().parse(R"([{"time":"150.0","str":"other","mapping":"support"}, 7, {"str":"legacy"},
		{"time":"400.0","str":"legacy","mapping":"support"}])", mapping);
	int status = -1;
	ASSERT_EQ(GetCompatibilityByNode(&node, "200.0", &mapping, &status), 1);
	EXPECT_EQ(status, 2);
	ASSERT_EQ(GetCompatibilityByNode(&node, "100.0", &mapping, &status), 1);
	EXPECT_EQ(status, 1); // the malformed entries are skipped, the good one after them holds
	Json::Reader().parse(R"([{"time":"400.0","str":"legacy","mapping":"disabled"}])", mapping);
	ASSERT_EQ(GetCompatibilityByNode(&node, "100.0", &mapping, &status), 1);
	EXPECT_EQ(status, 2); // only the four database words may be mapped to
	EXPECT_EQ(GetCompatibilityByNode(nullptr, "1.0", nullptr, &status), 0);
}

TEST(CompatLookup, BrokenFilesGiveNotInSupportAndALine)
{
	Sysroot root;
	struct Row {
		const char *content; // null: no file
		const char *line;
	} rows[] = {
		{nullptr, "is not exist"},
		{"", "Invalid json type"},
		{"{\"disk_compatbility_info\":{\"A\":{", "Invalid json type"},
		{"[1,2]", "Invalid json type"},
		{"{\"other\":{}}", "lacking disk_compatbility_info"},
		{"{\"disk_compatbility_info\":[]}", "lacking disk_compatbility_info"},
		{"{\"disk_compatbility_info\":{\"A\":[1]}}", "Failed to get default time line"},
		{"{\"disk_compatbility_info\":{\"A\":{\"F\":{\"vos_ver\":[\"x\"],\"compatibility_interval\":[{},{}]}}}}",
		 "Invalid json format"},
	};
	LogCapture log;
	for (const Row &r : rows) {
		if (r.content)
			root.write(kDb, r.content);
		else
			root.remove(kDb);
		log.clear();
		EXPECT_EQ(lookup("A", "F", "1.0"), 2) << (r.content ? r.content : "(none)");
		EXPECT_TRUE(log.has(LOG_ERR, r.line)) << (r.content ? r.content : "(none)") << log.dump();
	}
	EXPECT_EQ(lookup(nullptr, "F", "1.0"), 2);
}

TEST(CompatLookup, ReplacedDatabaseIsSeenWhileThreadsRead)
{
	Sysroot root;
	auto db = [](const char *word) {
		return std::string(R"({"disk_compatbility_info":{"M":{"default":{"vos_ver":[],"compatibility_interval":[{"compatibility":")") +
		       word + "\"}]}}}}";
	};
	root.write(kDb, db("support"));
	ASSERT_EQ(lookup("M", "F", "1.0"), 1);
	std::atomic<bool> stop{false};
	std::atomic<int> bad{0};
	std::vector<std::thread> readers;
	for (int t = 0; t < 3; ++t)
		readers.emplace_back([&] {
			while (!stop) {
				int s = lookup("M", "F", "1.0");
				if (s != 1 && s != 3)
					++bad;
			}
		});
	for (int i = 0; i < 40; ++i) {
		root.write(std::string(kDb) + ".new", db(i % 2 ? "support" : "not_support"));
		ASSERT_EQ(::rename(root.host(std::string(kDb) + ".new").c_str(), root.host(kDb).c_str()), 0);
		EXPECT_EQ(lookup("M", "F", "1.0"), i % 2 ? 1 : 3) << i; // the next call sees the new file
	}
	stop = true;
	for (auto &t : readers)
		t.join();
	EXPECT_EQ(bad, 0);
}

TEST(CompatLookup, LatestFirmwareInFileOrder)
{
	Sysroot root;
	root.write(kDb, R"({"disk_compatbility_info":{
	 "Z-1":{"A":{"fw_buildnumber":5,"firm_bin":"z.bin"}},
	 "^Z":{"A":{"fw_buildnumber":9,"firm_bin":"a.bin"},"B":{"fw_buildnumber":9,"firm_bin":"b.bin"},
	       "C":{"firm_bin":"c.bin"},"default":{"fw_buildnumber":99,"firm_bin":"d.bin"}},
	 "Y":{"A":{"fw_buildnumber":3}},
	 "X":{"default":{"fw_buildnumber":3,"firm_bin":"x.bin"}}}})");
	DiskFirmInfo info{};
	info.updateVosSuggested = 7;
	ASSERT_EQ(VEXODiskCompatibilityLatestFWInfoGet("Z-2", kDb, &info), 1);
	EXPECT_STREQ(info.firmware, "A"); // the first of equal builds stays; "default" never counts
	EXPECT_STREQ(info.firm_bin, "a.bin");
	EXPECT_EQ(info.fw_buildnumber, 9);
	EXPECT_EQ(info.updateVosSuggested, 0);
	ASSERT_EQ(VEXODiskCompatibilityLatestFWInfoGet("Z-1", kDb, &info), 1);
	EXPECT_EQ(info.fw_buildnumber, 5);
	EXPECT_EQ(VEXODiskCompatibilityLatestFWInfoGet("Y", kDb, &info), -1); // no firm_bin
	EXPECT_EQ(VEXODiskCompatibilityLatestFWInfoGet("X", kDb, &info), 0);
	EXPECT_EQ(VEXODiskCompatibilityLatestFWInfoGet("W", kDb, &info), -1);
	EXPECT_EQ(VEXODiskCompatibilityLatestFWInfoGet("X", "/nowhere.db", &info), -1);
}

TEST(CompatLookup, StringsMatchesAndProperties)
{
	char out[32];
	struct {
		int status;
		const char *text;
	} rows[] = {{-1, "unknown"}, {0, "unknown"}, {2, "not_in_support"}, {5, "forbidden"},
		    {7, "fw_upgrade_required"}, {8, "unknown"}};
	for (auto r : rows) {
		ASSERT_EQ(VEXODiskCompatibilityStatusTransfer(r.status, out, sizeof(out)), 0);
		EXPECT_STREQ(out, r.text);
		EXPECT_EQ(VEXODiskCompatibilityStringTransfer(r.text), r.status >= 1 && r.status <= 7 ? r.status : 0);
	}
	EXPECT_EQ(VEXODiskCompatibilityStatusTransfer(1, nullptr, 4), -1);
	EXPECT_EQ(VEXODiskCompatibilityStringTransfer("supported"), 0);
	EXPECT_EQ(VEXODiskCompatibilityStringTransfer(nullptr), 0);

	EXPECT_EQ(VEXODiskConfigMatch("WDC WD40EFPX", "wd[0-9]+", 3, 0, 0), 1);
	EXPECT_EQ(VEXODiskConfigMatch("WDC WD40EFPX", "wd[0-9]+", 3, 0, 1), 0);
	EXPECT_EQ(VEXODiskConfigMatch("WD40", "wd[0-9]+", 3, 0, 1), 1);
	EXPECT_EQ(VEXODiskConfigMatch("WD40", "(", 3, 0, 0), 0);
	EXPECT_EQ(VEXODiskConfigMatch(nullptr, ".*", 3, 0, 0), 0);

	Json::Value p(Json::objectValue);
	p["protocol"] = "SATA";
	p["n"] = 1;
	p["z"] = std::string("ab\0c", 4);
	EXPECT_EQ(VEXODiskRulePropertyMatch(&p, "protocol", "SATA"), 1);
	EXPECT_EQ(VEXODiskRulePropertyMatch(&p, "protocol", "SAT"), 0);
	EXPECT_EQ(VEXODiskRulePropertyMatch(&p, "protocol", "sata"), 0);
	EXPECT_EQ(VEXODiskRulePropertyMatch(&p, "vendor", "SATA"), 0);
	EXPECT_EQ(VEXODiskRulePropertyMatch(&p, "n", "1"), 0);
	EXPECT_EQ(VEXODiskRulePropertyMatch(&p, "z", "ab"), 0); // equal length, byte for byte
}

TEST(CompatLookup, ActionsFromTheCacheOrDefaults)
{
	Sysroot root;
	LogCapture log;
	DiskCompatibilityAction a;
	// No cache folder, so nothing can regenerate it: three tries, then the defaults.
	EXPECT_EQ(VEXODiskCompatibilityActionGet("/dev/sda", &a), -1);
	int regen = 0; // the refresh's alert check tries its own regenerations
	for (const LogLine &l : log.lines())
		regen += l.text.find("disk/compat_action") != std::string::npos &&
			 l.text.find("does not exist, regen") != std::string::npos;
	EXPECT_EQ(regen, 3);
	EXPECT_EQ(a.notification, 1);
	EXPECT_EQ(a.hide_serial, 0);
	EXPECT_EQ(a.show_lifetime_chart, 1);
	EXPECT_STREQ(a.ui_compatibility, "not_in_support");
	root.write("/run/vexostorage/disks/sda/compatibility_action",
		   R"({"notification":false,"hide_serial":true,"ui_compatibility":"a_word_longer_than_thirty_one_bytes","alert":"no"})");
	ASSERT_EQ(VEXODiskCompatibilityActionGet("/dev/sda", &a), 0);
	EXPECT_EQ(a.notification, 0);
	EXPECT_EQ(a.hide_serial, 1);
	EXPECT_EQ(a.alert, 1); // not a boolean: the default stays
	EXPECT_STREQ(a.ui_compatibility, "a_word_longer_than_thirty_one_b");
	root.write("/run/vexostorage/disks/sda/compatibility_action", "{\"notification\":");
	EXPECT_EQ(VEXODiskCompatibilityActionGet("/dev/sda", &a), -1);
	EXPECT_EQ(a.notification, 1);
	EXPECT_EQ(VEXODiskCompatibilityActionGet(nullptr, &a), -1);
}

} // namespace
