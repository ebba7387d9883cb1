// One index run over the host's table, from files already on disk: what is
// installed, what is left alone, and what lands in the version files.
#include <string>
#include <gtest/gtest.h>
#include <vexohw/dbupdate.h>

#include "support/vexotest.h"

using namespace vexo::test;

namespace {

constexpr const char *kMd5New = "22af645d1859cb5ca6da0c484f1f37ea";   // "new"
constexpr const char *kMd5Ours = "a8fb9ff7ad1dbb551d11c4bf68d0a154";  // {"nas_model":"vx1222"}
constexpr const char *kMd5Other = "af012e73248270b51ec0416d10b4e629"; // {"nas_model":"other"}
constexpr const char *kOurs = "{\"nas_model\":\"vx1222\"}";
constexpr const char *kOther = "{\"nas_model\":\"other\"}";
constexpr const char *kSmart = "/var/lib/smartmontools/vexodrivedb";
constexpr const char *kHcl = "/var/lib/disk-compatibility/vx1222_host_v7";

void appliance(const Sysroot &root)
{
	root.conf("/etc.defaults/vexoinfo.conf", {{"upnpmodelname", " VX1222 "}});
	root.symlink(buildDir() + "/bin/vexosim-tools", "/usr/bin/md5sum");
	root.mkdirs("/usr/vexo/etc");
	root.mkdirs("/tmp");
	root.write("/var/lib/offlinekit/f/new", "new");
	root.write("/var/lib/offlinekit/f/ours", kOurs);
	root.write("/var/lib/offlinekit/f/other", kOther);
	for (const char *db : {"/var/lib/smartmontools/drivedb", "/var/lib/temperature/disk_temperature",
			       "/var/lib/diskaction/diskaction", "/var/lib/drive_attribute/drive_attribute"})
		root.write(std::string(db) + ".version", "5");
	root.write(std::string(kSmart) + ".db", "old");
	root.write(std::string(kSmart) + ".version", "5\n");
	root.write(std::string(kHcl) + ".version", "5");
	root.write(std::string(kHcl) + ".release", "1");
}

std::string entry(int ver, const char *url, const char *md5, int rel = 0)
{
	return "{\"ver\":" + std::to_string(ver) + ",\"url\":\"" + url + "\",\"checksum\":\"" + md5 + "\"" +
	       (rel ? ",\"rel\":" + std::to_string(rel) : "") + "}";
}

struct RunCase {
	const char *name;
	std::string smart; // the "smart" entry ("" leaves the key out)
	std::string hcl;   // the "HCL_v7_vx1222" entry ("" leaves the key out)
	const char *hclInstalled;
	int rc, err;
	const char *smartAfter, *smartVer; // database and version file afterwards
	const char *hclAfter, *hclVer, *hclRel;
	bool timeFile;
};

TEST(DbRun, DecidesAndInstallsRowByRow)
{
	const std::string same = entry(5, "f/new", kMd5New), newer = entry(6, "f/new", kMd5New);
	const RunCase cases[] = {
		{"same versions", same, entry(5, "f/ours", kMd5Ours), kOurs, 0, 0, "old", "5\n", kOurs, "5", "1", false},
		{"only ver higher", newer, "", kOurs, 0, 0, "new", "6", kOurs, "5", "1", true},
		{"rel higher, ver lower: the version goes down", same, entry(3, "f/ours", kMd5Ours, 2), kOurs, 0, 0,
		 "old", "5\n", kOurs, "3", "2", true},
		{"rel equal, ver lower", same, entry(3, "f/ours", kMd5Ours, 1), kOurs, 0, 0, "old", "5\n", kOurs, "5",
		 "1", false},
		{"another model's file is replaced at the same version", same, entry(5, "f/ours", kMd5Ours), kOther, 0,
		 0, "old", "5\n", kOurs, "5", "1", true},
		{"a download naming another model fails its row only", newer, entry(6, "f/other", kMd5Other), kOurs,
		 -1, 0x2A00, "new", "6", kOurs, "5", "1", false},
		{"bad checksum", entry(6, "f/new", kMd5Ours), entry(6, "f/ours", kMd5Ours), kOurs, -1, 0x2A00, "old",
		 "5\n", kOurs, "6", "1", false},
		{"missing smart key fails the run, later rows still installed", "", entry(6, "f/ours", kMd5Ours),
		 kOurs, -1, 0x2000, "old", "5\n", kOurs, "6", "1", false},
		{"ver of the wrong type", "{\"ver\":\"6\",\"url\":\"f/new\",\"checksum\":\"x\"}", "", kOurs, -1,
		 0x4000, "old", "5\n", kOurs, "5", "1", false},
		{"url missing", "{\"ver\":6,\"checksum\":\"x\"}", "", kOurs, -1, 0x2000, "old", "5\n", kOurs, "5", "1",
		 false},
		{"url leaving the kit", entry(6, "../../../etc/passwd", kMd5New), "", kOurs, -1, 0x4000, "old", "5\n",
		 kOurs, "5", "1", false},
	};
	for (const RunCase &c : cases) {
		SCOPED_TRACE(c.name);
		Sysroot root;
		appliance(root);
		root.write(std::string(kHcl) + ".db", c.hclInstalled);
		std::string index = "{";
		for (const char *k : {"opensource", "temperature", "diskaction", "drive_attribute"})
			index += std::string("\"") + k + "\":" + same + ",";
		if (!c.smart.empty())
			index += "\"smart\":" + c.smart + ",";
		if (!c.hcl.empty())
			index += "\"HCL_v7_vx1222\":" + c.hcl + ",";
		index.back() = '}';
		root.write("/var/lib/offlinekit/vx1222/vx1222.json", index);

		DiskOnlineDbInfo *rows = nullptr;
		int n = VEXODiskOnlineDbInfoGet(&rows);
		ASSERT_EQ(n, 8);
		int status[VEXO_DISK_DB_STATUS_COUNT] = {};
		char path[1024];
		ASSERT_EQ(VEXODiskUpdateOfflineJsonPathGet(path, sizeof path), 0);
		EXPECT_STREQ(path, "/var/lib/offlinekit/vx1222/vx1222.json");
		VLIBCErrClear();
		EXPECT_EQ(VEXODiskDbDownload(path, rows, n, "/usr/vexo/etc/.disk_db_update_time", status), c.rc);
		if (c.rc != 0) {
			EXPECT_ERR(c.err);
		}
		EXPECT_STREQ(rows[5].dbPath, (std::string(kHcl) + ".db").c_str()); // expanded in place
		std::free(rows);
		EXPECT_FALSE(root.exists("/var/lib/offlinekit/vx1222/vx1222.json")); // consumed on every path
		EXPECT_EQ(root.read(std::string(kSmart) + ".db"), c.smartAfter);
		EXPECT_EQ(root.read(std::string(kSmart) + ".version"), c.smartVer);
		EXPECT_EQ(root.read(std::string(kHcl) + ".db"), c.hclAfter);
		EXPECT_EQ(root.read(std::string(kHcl) + ".version"), c.hclVer);
		EXPECT_EQ(root.read(std::string(kHcl) + ".release"), c.hclRel);
		EXPECT_EQ(root.exists("/usr/vexo/etc/.disk_db_update_time"), c.timeFile);
		if (std::string(c.smartAfter) == "new") {
			EXPECT_EQ(root.read(std::string(kSmart) + ".db.bak"), "old");
			EXPECT_EQ(root.read("/tmp/vexodrivedb.db"), "new"); // copyToTmp row
		}
		const bool smartFailed = c.rc != 0 && std::string(c.smartAfter) == "old";
		EXPECT_EQ(status[1], smartFailed ? -1 : 0);
		EXPECT_EQ(status[5], c.rc != 0 && !smartFailed ? -1 : 0);
	}
}

TEST(DbRun, BadIndexTouchesNothing)
{
	struct Case {
		const char *name;
		const char *index; // nullptr: no file; "" a directory
		int err;
	} cases[] = {
		{"missing", nullptr, 0x0700},
		{"a directory", "", 0x0700},
		{"garbage", "\x89PNG\r\n", 0x4000},
		{"truncated", "{\"smart\":{\"ver\":6,\"url\":\"f/n", 0x4000},
		{"not an object", "[1,2]", 0x4000},
	};
	for (const Case &c : cases) {
		SCOPED_TRACE(c.name);
		Sysroot root;
		appliance(root);
		if (c.index && *c.index)
			root.write("/tmp/i.json", c.index);
		else if (c.index)
			root.mkdirs("/tmp/i.json");
		DiskOnlineDbInfo *rows = nullptr;
		int n = VEXODiskOnlineDbInfoGet(&rows);
		VLIBCErrClear();
		EXPECT_EQ(VEXODiskDbDownload("/tmp/i.json", rows, n, "/usr/vexo/etc/.disk_db_update_time", nullptr), -1);
		EXPECT_ERR(c.err);
		std::free(rows);
		EXPECT_EQ(root.exists("/tmp/i.json"), c.index && !*c.index); // a directory is not removed
		EXPECT_EQ(root.read(std::string(kSmart) + ".db"), "old");
		EXPECT_EQ(root.read(std::string(kSmart) + ".version"), "5\n");
	}
}

TEST(DbRun, ServerAddress)
{
	struct Case {
		const char *serverUrl, *server, *base;
	} cases[] = {
		{"https://mirror.example/hcl", "test", "https://mirror.example/hcl"},
		{nullptr, "test", "http://dbupdate-test.vexo.example/getSSDsInfo/v7"},
		{nullptr, "testing", "https://dbupdate.vexo.example/getSSDsInfo/v7"},
		{nullptr, "tes", "https://dbupdate.vexo.example/getSSDsInfo/v7"},
		{nullptr, nullptr, "https://dbupdate.vexo.example/getSSDsInfo/v7"},
	};
	for (const Case &c : cases) {
		SCOPED_TRACE(c.server ? c.server : "-");
		Sysroot root;
		std::vector<std::pair<std::string, std::string>> kv = {{"upnpmodelname", "VX 1222"}};
		if (c.serverUrl)
			kv.emplace_back("vexodisk_server_url", c.serverUrl);
		if (c.server)
			kv.emplace_back("vexodisk_server", c.server);
		root.conf("/etc.defaults/vexoinfo.conf", kv);
		char url[512];
		ASSERT_EQ(VEXODiskServerUrlGet(url, sizeof url), 0);
		EXPECT_STREQ(url, c.base);
		ASSERT_EQ(VEXODiskUpdateServerUrlGet(url, sizeof url), 0);
		EXPECT_EQ(std::string(url), std::string(c.base) + "?model=vx%201222&dlid=&rule=normalHCL");
		VLIBCErrClear();
		EXPECT_EQ(VEXODiskUpdateServerUrlGet(url, 20), -1);
		EXPECT_ERR(0x0D00);
		char name[64];
		EXPECT_EQ(VEXODiskModelReplaceName("HCL_v7_%s", name, sizeof name), 0);
		EXPECT_STREQ(name, "HCL_v7_vx 1222");
		EXPECT_EQ(VEXODiskModelReplaceName("%s_%n", name, sizeof name), -1); // never a printf format
	}
}

} // namespace
