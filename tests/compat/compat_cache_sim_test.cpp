// The verdict and firmware caches against emulated drives: what each status
// of the database leaves in a disk's cache, and one notification per
// change with two processes refreshing every disk at once.
#include <dirent.h>
#include <gtest/gtest.h>
#include <sstream>
#include <json/json.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vexohw/compat.h>
#include <vexohw/compat_cache.h>
#include <vexohw/fw_status.h>
#include <vexoplatform/sysnotify.h>

#include "frame/clock.h"
#include "smartctl/sim_disk.h"

using namespace vexo::test;

namespace {

const bool kEmulator = installDriveEmulator();
const char *kDisks[] = {"sda", "sdb", "sdc", "sdd"};
constexpr const char *kDb = "/var/lib/disk-compatibility/vx1222_host_v7.db";

// One firmware entry: a verdict before and from the cut 72900.0 on.
Json::Value entry(const char *before, const char *after, int build, const char *bin = "HAT5300.bin")
{
	Json::Value e;
	e["vos_ver"].append("72900.0");
	e["compatibility_interval"][0]["compatibility"] = before;
	e["compatibility_interval"][1]["compatibility"] = after;
	e["fw_buildnumber"] = build;
	e["firm_bin"] = bin;
	return e;
}

class CompatCache : public SimDisk {
protected:
	void SetUp() override
	{
		SimDisk::SetUp();
		product({{"upnpmodelname", "VX1222"}, {"support_disk_compatibility", "yes"}});
		root.conf("/etc.defaults/VERSION", {{"base", "72806"}, {"nano", "3"}});
		for (int i = 1; i < 4; ++i) {
			DiskLayout(root).sata(kDisks[i], i + 1);
			sysfs(kDisks[i], "ATA", "VEXO HAT5300-8T", true);
			root.diskDir(kDisks[i]);
			node(kDisks[i], kAtaNode);
		}
		actions(R"(<disk model="VEXO HAT5300-8T" vendor="Vexology" action="0"/>)");
		root.mkdirs("/run/lock");
		// Rules: a drive the database rejects is to be told of.
		root.write("/var/lib/disk-compatibility/host_rule.db",
			   R"({"rules":[{"property":{"positive":{"compatibility":"not_support"},"negative":{}},
			                 "actions":{"notification":true,"ui_compatibility":"not_support"}},
			                {"property":{"positive":{},"negative":{}},"actions":{"notification":false}}]})");
		// The server's list is fresh: no visit during the test.
		vexo::clock::setForTest(1764000000, 50000LL * 1000);
		root.write("/run/vexostorage/.disk_firm_server_visiting_time", "50000");
		published("[]");
	}
	void TearDown() override
	{
		vexo::clock::clearForTest();
		SimDisk::TearDown();
	}
	// Replaces the database as the updater does: whole, by rename.
	void database(const Json::Value &firmwares)
	{
		Json::Value db;
		db["disk_compatbility_info"]["VEXO HAT5300-8T"] = firmwares;
		root.write(std::string(kDb) + ".new", Json::writeString(Json::StreamWriterBuilder(), db));
		ASSERT_EQ(::rename(root.host(std::string(kDb) + ".new").c_str(), root.host(kDb).c_str()), 0);
	}
	void published(const std::string &list) { root.write("/run/vexostorage/disk_firm_server_info", list); }
	std::string cached(const char *disk, const char *key) const
	{
		std::string p = std::string("/run/vexostorage/disks/") + disk + "/" + key;
		return root.exists(p) ? root.read(p) : "-";
	}
	int notifications() const { return countFiles(root.host(VEXO_NOTIFY_SPOOL_DIR), ".ntf"); }
	static int countFiles(const std::string &dir, const char *part)
	{
		int n = 0;
		if (DIR *d = ::opendir(dir.c_str())) {
			while (dirent *e = ::readdir(d))
				n += std::string(e->d_name).find(part) != std::string::npos;
			::closedir(d);
		}
		return n;
	}
};

TEST_F(CompatCache, FirmwareStatusPerDatabase)
{
	Json::Value bad;
	bad["SC60"] = entry("not_support", "not_support", 100);
	bad["SC61"] = entry("support", "support", 110);
	Json::Value later;
	later["SC60"] = entry("unverified", "support", 100);
	Json::Value missing;
	missing["SC59"] = entry("support", "support", 90);
	Json::Value newer;
	newer["SC60"] = entry("support", "support", 100);
	newer["SC61"] = entry("support", "support", 110);
	newer["default"] = entry("support", "support", 999);

	struct Case {
		const char *name;
		Json::Value db;
		const char *published;
		const char *update; // the pending update's version
		int status, verdict;
		const char *text, *sugFirm, *sugVos;
	} cases[] = {
		{"newer build published", newer, R"([{"model":"VEXO HAT5300-8T","fw_buildnumber":110}])", nullptr, 1, 1,
		 "new_firm_available", "SC61", "-"},
		{"newer build unpublished still told", newer, "[]", nullptr, 1, 1, "new_firm_available", "SC61", "-"},
		{"broken firmware, cure published", bad, R"([{"model":"VEXO HAT5300-8T","fw_buildnumber":110}])",
		 nullptr, 3, 7, "update_firm", "SC61", "-"},
		{"broken firmware, cure not yet out", bad, R"([{"model":"VEXO HAT5300-8T","fw_buildnumber":109}])",
		 nullptr, 5, 1, "do_nothing", "-", "-"},
		{"firmware unknown to the database", missing, "[]", nullptr, 4, 2, "update_db", "-", "-"},
		{"cured by the pending update", later, "[]", "72900.0", 2, 2, "update_vos", "-", "72900.0"},
	};
	for (const Case &c : cases) {
		SCOPED_TRACE(c.name);
		database(c.db);
		published(c.published);
		DiskFirmInfo info{};
		EXPECT_EQ(SBDiskFirmStatusAndUpdateInfoGetByDbPath("/dev/sda", kDb, 1, c.update, nullptr, &info), c.status);
		EXPECT_EQ(VEXOSBDriveFirmInfoCacheUpdImp("/dev/sda", 1, c.update, nullptr), 0);
		EXPECT_EQ(cached("sda", "firm_status_from_db"), c.text);
		EXPECT_EQ(cached("sda", "sug_firm_upd_ver"), c.sugFirm);
		EXPECT_EQ(cached("sda", "sug_update_vos"), c.sugVos);
		EXPECT_EQ(cached("sda", "firm"), "SC60");
		if (!c.update) { // the verdict asks the pending versions itself
			EXPECT_EQ(VEXODiskCompatibilityGet("/dev/sda", 0), c.verdict);
		}
	}
	// A drive of another maker: nothing read, nothing written.
	sysfs("sdb", "ATA", "WDC WD40EFPX-68C6CN0", true);
	clearCommands("sdb");
	EXPECT_EQ(VEXOSBDriveFirmInfoCacheUpdImp("/dev/sdb", 1, nullptr, nullptr), 0);
	EXPECT_EQ(cached("sdb", "firm_status_from_db"), "-");
	EXPECT_TRUE(commands("sdb").empty());
}

// Every refresh is run by two processes at once: a change is told once,
// by the one that saw it, and each disk's cache is whole.
TEST_F(CompatCache, OneNotificationPerChangeFromTwoProcesses)
{
	Json::Value good;
	good["SC60"] = entry("support", "support", 100);
	Json::Value bad;
	bad["SC60"] = entry("not_support", "support", 100); // the box is before the cut
	struct Step {
		const Json::Value *db;
		int spooled;
		const char *status;
	} steps[] = {{&good, 0, "support"}, {&bad, 4, "not_support"}, {&bad, 4, "not_support"}, {&good, 4, "support"},
		     {&bad, 8, "not_support"}};
	for (const Step &s : steps) {
		database(*s.db);
		pid_t other = ::fork();
		if (other == 0)
			::_exit(VEXODiskCompatibilityAllDisksUpdate(nullptr) == 0 ? 0 : 1);
		EXPECT_EQ(VEXODiskCompatibilityAllDisksUpdate(nullptr), 0);
		int st = -1;
		::waitpid(other, &st, 0);
		EXPECT_TRUE(WIFEXITED(st) && WEXITSTATUS(st) == 0);
		EXPECT_EQ(notifications(), s.spooled);
		char word[32] = {};
		ASSERT_EQ(VEXODiskCompatibilityCacheGet("/dev/sdc", word, sizeof word), 0);
		EXPECT_STREQ(word, s.status);
		EXPECT_EQ(VEXODiskCompatibilityNeedAlert("/dev/sdc"), s.db == &bad ? 1 : 0);
	}
	for (const char *d : kDisks) {
		SCOPED_TRACE(d);
		EXPECT_EQ(cached(d, "compatibility"), "not_support");
		EXPECT_EQ(cached(d, "force_compatibility"), "not_support");
		Json::Value action;
		std::istringstream in(cached(d, "compatibility_action"));
		ASSERT_TRUE(Json::parseFromStream(Json::CharReaderBuilder(), in, &action, nullptr));
		EXPECT_TRUE(action["notification"].asBool());
		EXPECT_EQ(cached(d, "firm_status_from_db"), "do_nothing");
		EXPECT_EQ(countFiles(root.host(std::string("/run/vexostorage/disks/") + d), ".tmp"), 0);
	}
}

} // namespace
