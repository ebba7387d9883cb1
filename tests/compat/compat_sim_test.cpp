// Verdicts, database paths, rules and SMART ignore flags on the bundled
// 12-bay box, with its drives answering through the emulator.
#include <filesystem>
#include <fstream>
#include <json/json.h>
#include <syslog.h>
#include <vexohw/compat.h>

#include "smartctl/drive_sim.h"
#include "tools/cli_run.h"

using namespace vexo::test;

namespace {

const bool kBackend = installDriveEmulator();

class CompatBox : public ::testing::Test {
protected:
	static void SetUpTestSuite() { box = new BuiltBox; }
	static void TearDownTestSuite() { delete box; }
	void SetUp() override { ASSERT_TRUE(kBackend && box->ok()) << box->log(); }
	static std::string host(const std::string &p) { return box->root() + p; }
	static void write(const std::string &p, const std::string &text) { std::ofstream(host(p)) << text; }

	ScopedEnv root_{"VEXO_SYSROOT", box->root().c_str()};
	static inline BuiltBox *box = nullptr;
};

TEST_F(CompatBox, EveryKindOfVerdictAndWhereItComesFrom)
{
	struct Row {
		const char *disk, *db;
		int want;
	} rows[] = {
		{"/dev/sda", "vx1222_host_v7.db", 1},	  // past its cut point
		{"/dev/sdc", "vx1222_host_v7.db", 1},	  // by pattern, with the 16-byte kernel model
		{"/dev/sde", "vx1222_host_v7.db", 3},	  // incompatible from 72806.0 on
		{"/dev/sdh", "vx1222_host_v7.db", 2},	  // listed as unverified
		{"/dev/sdi", "vx1222_host_v7.db", 2},	  // not listed
		{"/dev/sdj", "vx1222_host_v7.db", 1},	  // "default" firmware
		{"/dev/nvme0n1", "vx1222_m2c-d2_v7.db", 1}, // a mapped word, on the adapter card
		{"/dev/sdma", "xu05_v7.db", 1},		  // the unit's own database
		{"/dev/sdme", "xu05_v7.db", 6},
	};
	for (const Row &r : rows) {
		EXPECT_EQ(VEXODiskCompatibilityGet(r.disk, 0), r.want) << r.disk;
		char path[256];
		ASSERT_EQ(VEXODiskCompatibilityDBPathGetByDir(r.disk, "/x/", path, sizeof(path)), 0) << r.disk;
		EXPECT_EQ(std::string(path), std::string("/x/") + r.db);
	}
	char small[8];
	EXPECT_EQ(VEXODiskCompatibilityDBPathGet("/dev/sda", small, sizeof(small)), -1);
	// The cut of sda's entry is 69057.0: the version just below is unverified.
	EXPECT_EQ(VEXODiskCompatibilityByVerGet("/dev/sda", 69056, 9, 0), 2);
	EXPECT_EQ(VEXODiskCompatibilityByVerGet("/dev/sda", 69057, 0, 0), 1);
	// The host's view of a unit disk.
	EXPECT_EQ(VEXODiskCompatibilityByPathGet("/dev/sdme", "/var/lib/disk-compatibility/vx1222_host_v7.db"), 6);
	EXPECT_EQ(VEXODiskCompatibilityByPathGet("/dev/sdmc", "/var/lib/disk-compatibility/vx1222_host_v7.db"), 6);
}

TEST_F(CompatBox, Preconditions)
{
	LogCapture log;
	EXPECT_EQ(VEXODiskCompatibilityGet(nullptr, 0), 0);
	EXPECT_TRUE(log.has(LOG_ERR, "Invalid argument"));
	EXPECT_EQ(VEXODiskCompatibilityByPathGet("/dev/sda", nullptr), 0);
	EXPECT_EQ(VEXODiskCompatibilityGet("/dev/nosuch", 0), 0);
	EXPECT_TRUE(log.has(LOG_ERR, "Failed to get basic info of /dev/nosuch"));

	std::string info = host("/etc.defaults/vexoinfo.conf");
	std::filesystem::copy_file(info, info + ".keep", std::filesystem::copy_options::overwrite_existing);
	write("/etc.defaults/vexoinfo.conf", "upnpmodelname=\"VX1222\"\nsupport_disk_compatibility=\"no\"\n");
	EXPECT_EQ(VEXODiskCompatibilityGet("/dev/sde", 0), 4);
	EXPECT_EQ(VEXODiskCompatibilityGet("/dev/sde", 1), 3); // force skips the model's question
	std::filesystem::rename(info + ".keep", info);

	std::string version = host("/etc.defaults/VERSION");
	std::filesystem::rename(version, version + ".keep");
	log.clear();
	EXPECT_EQ(VEXODiskCompatibilityGet("/dev/sda", 0), 0);
	EXPECT_TRUE(log.has(LOG_ERR, "Fail to get vos version from /etc.defaults/VERSION"));
	std::filesystem::rename(version + ".keep", version);
}

TEST_F(CompatBox, RulesChooseTheActions)
{
	// The per-disk verdict the rules read is the cached one.
	write("/run/vexostorage/disks/sde/compatibility", "not_support");
	write("/run/vexostorage/disks/sdme/compatibility", "for_eunit");
	write("/run/vexostorage/disks/sdh/compatibility", "forbidden");
	Json::Value props;
	ASSERT_EQ(VEXODiskPropertyGet("/dev/sdme", &props), 1);
	EXPECT_EQ(props["host_compatibility"].asString(), "for_eunit");
	EXPECT_EQ(props["protocol"].asString(), "SATA");
	EXPECT_EQ(props["compatibility"].asString(), "for_eunit");
	ASSERT_EQ(VEXODiskPropertyGet("/dev/sdh", &props), 1);
	EXPECT_EQ(props["compatibility"].asString(), "not_support");
	EXPECT_FALSE(props.isMember("host_compatibility"));
	EXPECT_EQ(VEXODiskPropertyGet(nullptr, &props), 0);

	struct Row {
		const char *disk, *ui;
		int selectable, notification, hideRemainLife, notifyUnc;
	} rows[] = {
		{"/dev/sde", "not_support", 0, 1, 1, 1},
		{"/dev/sdh", "not_support", 0, 1, 1, 1}, // forbidden is judged as not_support
		{"/dev/sdi", "not_in_support", 1, 0, 0, 0}, // nothing holds: the last rule
		{"/dev/sdme", "support", 1, 0, 0, 1},	     // the unit's rule file
	};
	for (const Row &r : rows) {
		ASSERT_EQ(VEXODiskActionCacheUpdate(r.disk), 0) << r.disk;
		DiskCompatibilityAction a;
		ASSERT_EQ(VEXODiskCompatibilityActionGet(r.disk, &a), 0) << r.disk;
		EXPECT_STREQ(a.ui_compatibility, r.ui) << r.disk;
		EXPECT_EQ(a.selectable, r.selectable) << r.disk;
		EXPECT_EQ(a.notification, r.notification) << r.disk;
		EXPECT_EQ(a.hide_remain_life, r.hideRemainLife) << r.disk;
		EXPECT_EQ(a.notify_unc, r.notifyUnc) << r.disk;
	}

	// Broken rule files: a rule lacking "negative" is passed over with a
	// line; an empty list and a missing file fail.
	std::string rules = host("/var/lib/disk-compatibility/host_rule.db");
	std::filesystem::copy_file(rules, rules + ".keep", std::filesystem::copy_options::overwrite_existing);
	LogCapture log;
	write("/var/lib/disk-compatibility/host_rule.db",
	      R"({"rules":[{"property":{"positive":{}},"actions":{"selectable":false}},
	       {"property":{"positive":{"protocol":"SATA"},"negative":{}},"actions":{"hide_serial":true}}]})");
	ASSERT_EQ(VEXODiskActionCacheUpdate("/dev/sde"), 0);
	DiskCompatibilityAction a;
	ASSERT_EQ(VEXODiskCompatibilityActionGet("/dev/sde", &a), 0);
	EXPECT_EQ(a.selectable, 1);
	EXPECT_EQ(a.hide_serial, 1);
	EXPECT_TRUE(log.has(LOG_ERR, "wrong format rule"));
	write("/var/lib/disk-compatibility/host_rule.db", R"({"rules":[]})");
	EXPECT_EQ(VEXODiskActionCacheUpdate("/dev/sde"), -1);
	write("/var/lib/disk-compatibility/host_rule.db", R"({"rules":{}})");
	EXPECT_EQ(VEXODiskActionCacheUpdate("/dev/sde"), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "Invalid json type for disk /dev/sde"));
	std::filesystem::remove(rules);
	EXPECT_EQ(VEXODiskActionCacheUpdate("/dev/sde"), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "does not exist"));
	std::filesystem::rename(rules + ".keep", rules);
}

TEST_F(CompatBox, SmartIgnoreFlagsAreCachedFromTheInterval)
{
	// sde's interval from 72806.0 on ignores self-test results, not attributes.
	std::filesystem::remove(host("/run/vexostorage/disks/sde/smart_test_ignore"));
	std::filesystem::remove(host("/run/vexostorage/disks/sde/smart_attr_ignore"));
	EXPECT_EQ(VEXODiskSmartTestResultIgnorable("/dev/sde"), 1);
	EXPECT_EQ(VEXODiskSmartAttributeIgnorable("/dev/sde"), 0);
	std::ifstream in(host("/run/vexostorage/disks/sde/smart_attr_ignore"));
	int v = -1;
	in >> v;
	EXPECT_EQ(v, 0);
	// The cached word wins over the database.
	write("/run/vexostorage/disks/sde/smart_attr_ignore", "1");
	EXPECT_EQ(VEXODiskSmartAttributeIgnorable("/dev/sde"), 1);
	// No entry for sdi: both 0, and stored.
	EXPECT_EQ(VEXODiskSmartTestResultIgnorable("/dev/sdi"), 0);
	EXPECT_TRUE(std::filesystem::exists(host("/run/vexostorage/disks/sdi/smart_attr_ignore")));
	EXPECT_EQ(VEXODiskSmartTestResultIgnorable(nullptr), 0);
}

} // namespace
