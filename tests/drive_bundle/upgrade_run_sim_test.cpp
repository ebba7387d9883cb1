// A plan flashed into emulated drives by the distribution's hdparm and nvme
// on the interposer: outcomes per drive, the budget, two runs at once and a
// run killed half way; firmware fetched by the database, also for a drive
// asleep.
#include <chrono>
#include <algorithm>
#include <map>
#include <csignal>
#include <sys/wait.h>
#include <syslog.h>
#include <vexohw/compat_cache.h>
#include <vexohw/disk_enum.h>
#include <vexohw/drive_bundle.h>
#include <vexohw/fw_status.h>
#include <vexohw/misc.h>
#include <vexohw/smart_serial.h>
#include <vexoplatform/logdb.h>

#include "frame/clock.h"
#include "misc/serve.h"
#include "sim/tools_sim.h"
#include "support/disk_layout.h"
#include "support/sim_daemon.h"

namespace vexo::test {
namespace {

const bool kEmulator = installDriveEmulator();
constexpr const char *kPlan = "/var/lib/drive-bundle/fw-upgrade/plan.conf";
constexpr const char *kFwDir = "/var/lib/drive-bundle/firmware/";

struct UpgradeRun : ToolsSim {
	void SetUp() override
	{
		ToolsSim::SetUp();
		root.symlink(buildDir() + "/bin/vexosim-tools", "/usr/bin/md5sum");
	}
	// A drive, its cache folder and a binary made for it.
	void drive(const std::string &name, const std::string &protocol, const std::string &extra = "")
	{
		node(name, R"({"protocol":")" + protocol + R"(","model":"M-)" + name + R"(","firmware":"OLD1")" + extra + "}");
		root.diskDir(name);
		root.write("/run/vexostorage/disks/" + name + "/serial", "SN-" + name);
		root.write("/sys/block/" + name + "/device/model", "M-" + name + "\n");
	}
	void binary(const std::string &file, const std::string &model, const std::string &rev, bool tamper = false)
	{
		std::string image = "model=" + model + "\nfirmware=" + rev + "\n";
		image.resize(1024, '\0');
		root.write(kFwDir + file, image);
		std::string sum;
		runProgram({"md5sum", root.host(kFwDir + file)}, &sum);
		root.write(kFwDir + file + ".FW_INFO", "md5sum=\"" + sum.substr(0, 32) + "\"\nmodel=\"" + model + "\"\nfirmware=\"" + rev + "\"\n");
		if (tamper)
			root.write(kFwDir + file, image.substr(0, 1023) + "x");
	}
	void plan(const std::vector<std::pair<std::string, std::string>> &drives) // name, binary
	{
		for (const auto &[name, file] : drives) {
			DB_FW_UPGRADE_CONFIG c{};
			std::snprintf(c.id, sizeof(c.id), "SN-%s", name.c_str());
			std::snprintf(c.drive_path, sizeof(c.drive_path), "/dev/%s", name.c_str());
			std::snprintf(c.firmware, sizeof(c.firmware), "OLD1");
			std::snprintf(c.available_firmware, sizeof(c.available_firmware), "NEW2");
			std::snprintf(c.available_firmware_binary, sizeof(c.available_firmware_binary), "%s", file.c_str());
			ASSERT_EQ(VEXODriveBundleFWUpgradeConfigSet(kPlan, &c), 0);
		}
		ASSERT_EQ(VEXODriveBundleFWUpgradeStateSet(1), 0);
	}
	std::map<std::string, DB_FW_UPGRADE_CONFIG> results(const char *path = kPlan)
	{
		std::map<std::string, DB_FW_UPGRADE_CONFIG> out;
		DB_FW_UPGRADE_CONFIG *list = nullptr;
		EXPECT_GE(VEXODriveBundleFWUpgradeConfigGet(path, &list), 0);
		for (auto *c = list; c; c = c->next) {
			out[c->id] = *c;
			out[c->id].ui_json = nullptr;
			out[c->id].next = nullptr;
		}
		VEXODriveBundleFWUpgradeConfigFree(list);
		return out;
	}
	// The maker's drive sda at SC60 in bay 1, which its database holds broken
	// with SC61 published (the server's list is fresh: no visit).
	void makerBox(std::vector<std::pair<std::string, std::string>> conf = {})
	{
		conf.insert(conf.end(), {{"upnpmodelname", "VX1222"}, {"support_disk_compatibility", "yes"}});
		DiskLayout(root).portMaps("0xff0000", "0x0", "0xff", "", conf);
		root.conf("/etc.defaults/VERSION", {{"base", "72806"}, {"nano", "3"}});
		DiskLayout(root).sata("sda", 1);
		root.write("/sys/block/sda/device/vendor", "ATA     \n");
		root.write("/sys/block/sda/device/model", "VEXO HAT5300-8T\n");
		root.write("/sys/block/sda/device/state", "running\n");
		root.write("/sys/block/sda/queue/rotational", "1\n");
		root.diskDir("sda");
		root.write("/run/vexostorage/disks/sda/serial", "ZL2K4T7C");
		node("sda", kAtaNode);
		root.write("/var/lib/diskaction/diskaction.xml", "<?xml version=\"1.0\"?>\n<diskaction>\n"
				   "<disk model=\"VEXO HAT5300-8T\" vendor=\"Vexology\" action=\"0\"/>\n</diskaction>\n");
		root.mkdirs("/run/lock");
		root.write("/var/lib/disk-compatibility/host_rule.db",
			   R"({"rules":[{"property":{"positive":{},"negative":{}},"actions":{"notification":false}}]})");
		root.write("/var/lib/disk-compatibility/vx1222_host_v7.db", R"({"disk_compatbility_info":{"VEXO HAT5300-8T":{
 "SC60":{"vos_ver":[],"compatibility_interval":[{"compatibility":"not_support"}],"fw_buildnumber":100,"firm_bin":"sc60.bin"},
 "SC61":{"vos_ver":[],"compatibility_interval":[{"compatibility":"support"}],"fw_buildnumber":110,"firm_bin":"sc61.bin"}}}})");
		vexo::clock::setForTest(1764000000, 50000LL * 1000);
		root.write("/run/vexostorage/.disk_firm_server_visiting_time", "50000");
		root.write("/run/vexostorage/disk_firm_server_info", R"([{"model":"VEXO HAT5300-8T","fw_buildnumber":110}])");
	}
	void TearDown() override
	{
		vexo::clock::clearForTest();
		ToolsSim::TearDown();
	}
	std::string firmwareOf(const std::string &name)
	{
		char fw[16] = "", sn[32] = "";
		SmartFirmAndSerialRead(("/dev/" + name).c_str(), fw, sizeof(fw), sn, sizeof(sn));
		return fw;
	}
	// SC61's signed archive on the box's server, offered for the model, and
	// the database the bundle reads; gives the binary's bytes.
	std::string offerSc61()
	{
		root.write("/var/lib/drive-bundle/diskaction/vx1222_host_v7.db", root.read("/var/lib/disk-compatibility/vx1222_host_v7.db"));
		EXPECT_EQ(runProgram({buildDir() + "/bin/vexo-archive", "keys", root.root()}), 0);
		binary("sc61.bin", "VEXO HAT5300-8T", "SC61");
		const std::string image = root.read(std::string(kFwDir) + "sc61.bin");
		root.mkdirs("/srv/vexosim/fw");
		EXPECT_EQ(runProgram({buildDir() + "/bin/vexo-archive", "pack", "7", root.host("/run/vexosim/archive-keys/7.key"),
				      root.host("/srv/vexosim/fw/sc61.sa"), root.host(kFwDir)}), 0);
		for (const char *f : {"sc61.bin", "sc61.bin.FW_INFO"})
			root.remove(std::string(kFwDir) + f);
		const std::string size = std::to_string(root.read("/srv/vexosim/fw/sc61.sa").size());
		root.write("/srv/vexosim/ssd/v1/getUpdate/VEXO HAT5300-8T.json",
			   "[{\"size_in_bytes\":" + size + ",\"file\":\"" VEXO_FIRMWARE_SERVER_DEFAULT "/fw/sc61.sa\"}]");
		return image;
	}
	// The archive requests the server received.
	long fetched() const
	{
		const auto l = lines(root.exists("/run/vexosim/serve.log") ? root.read("/run/vexosim/serve.log") : "");
		return std::count_if(l.begin(), l.end(), [](const std::string &x) { return x.find("/fw/sc61.sa") != std::string::npos; });
	}
};

TEST_F(UpgradeRun, EachDriveItsOutcome)
{
	LogCapture log;
	drive("sda", "ata");
	drive("nvme0n1", "nvme");
	drive("sdb", "ata", R"(,"firmware_update":{"fail":true})");
	drive("sdc", "ata", R"(,"firmware_update":{"reject":true})");
	drive("sdd", "ata");
	drive("sde", "ata");
	binary("a.bin", "M-sda", "NEW2");
	binary("n.bin", "M-nvme0n1", "NEW2");
	binary("b.bin", "M-sdb", "NEW2");
	binary("c.bin", "M-sdc", "NEW2");
	binary("d.bin", "M-sdd", "NEW2", true);
	binary("e.bin", "M-sda", "NEW2"); // for another model
	binary("w.bin", "M-sdf", "BAD9"); // the drive would report another version
	drive("sdf", "ata");
	plan({{"sda", "a.bin"}, {"nvme0n1", "n.bin"}, {"sdb", "b.bin"}, {"sdc", "c.bin"}, {"sdd", "d.bin"},
	      {"sde", "e.bin"}, {"sdf", "w.bin"}, {"sdz", "a.bin"}});
	ASSERT_EQ(DBFWUpgradeByConfig(kPlan, 0, 1), 0) << log.dump();
	auto r = results();
	ASSERT_EQ(r["SN-sda"].upgrade_status, 2) << log.dump();
	const struct {
		const char *id;
		int status, downloadRetries, activateRetries;
		const char *firmware;
	} want[] = {
		{"SN-sda", 2, 0, 0, "NEW2"},  {"SN-nvme0n1", 2, 0, 0, "NEW2"}, {"SN-sdb", -4, 3, 0, "OLD1"},
		{"SN-sdc", -4, 0, 3, "OLD1"}, {"SN-sdd", -1, 0, 0, "OLD1"},    {"SN-sde", -1, 0, 0, "OLD1"},
		{"SN-sdf", -4, 0, 0, "BAD9"}, {"SN-sdz", -1, 0, 0, nullptr},
	};
	for (const auto &w : want) {
		SCOPED_TRACE(w.id);
		EXPECT_EQ(r[w.id].upgrade_status, w.status);
		EXPECT_EQ(r[w.id].download_retry_cnt, w.downloadRetries);
		EXPECT_EQ(r[w.id].activate_retry_cnt, w.activateRetries);
		if (w.firmware) {
			EXPECT_EQ(firmwareOf(w.id + 3), w.firmware);
		}
	}
	// Refused binaries never reach the drive; the tampered one is gone.
	EXPECT_EQ(countOf("sdd", "cdb=85"), 0);
	EXPECT_EQ(countOf("sde", "cdb=85"), 0);
	EXPECT_FALSE(root.exists(std::string(kFwDir) + "d.bin"));
	EXPECT_FALSE(root.exists(std::string(kFwDir) + "d.bin.FW_INFO"));
	// Another maker's drive: its firmware values are not the bundle's to write.
	EXPECT_FALSE(root.exists("/run/vexostorage/disks/sda/firm"));
	EXPECT_FALSE(root.exists("/run/vexostorage/disks/sda/firm_upgrading.pid"));
	EXPECT_FALSE(root.exists(VEXO_FW_UPGRADE_WORKING_CONF));
	EXPECT_EQ(VEXODriveBundleFWUpgradeStateGet(1), 0);
	EXPECT_EQ(lines(root.read("/var/lib/drive-bundle/fw-upgrade/result.log")).size(), 8u);
	// An empty plan ends at once in the next state.
	root.write("/var/lib/drive-bundle/empty.conf", "");
	ASSERT_EQ(VEXODriveBundleFWUpgradeStateSet(1), 0);
	EXPECT_EQ(DBFWUpgradeByConfig("/var/lib/drive-bundle/empty.conf", 1, 0), 0);
	EXPECT_EQ(VEXODriveBundleFWUpgradeStateGet(1), 3);
}

TEST_F(UpgradeRun, HangingFlasherIsKilledAtTheBudget)
{
	root.conf("/etc.defaults/vexoinfo.conf", {{"drive_firmware_update_timeout", "3"}});
	drive("sda", "ata", R"(,"firmware_update":{"hang":true})");
	drive("nvme0n1", "nvme", R"(,"firmware_update":{"seconds":1})");
	binary("a.bin", "M-sda", "NEW2");
	binary("n.bin", "M-nvme0n1", "NEW2");
	plan({{"sda", "a.bin"}, {"nvme0n1", "n.bin"}});
	auto t0 = std::chrono::steady_clock::now();
	ASSERT_EQ(DBFWUpgradeByConfigAndPrepareSummary("not-update-status"), -1); // no current link yet
	root.symlink("plan.conf", VEXO_FW_UPGRADE_CURRENT_LINK);
	ASSERT_EQ(DBFWUpgradeByConfigAndPrepareSummary("not-update-status"), 0);
	double took = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
	EXPECT_LT(took, 8.0);
	auto r = results();
	EXPECT_EQ(r["SN-sda"].upgrade_status, -4);
	EXPECT_EQ(r["SN-nvme0n1"].upgrade_status, 2);
	EXPECT_EQ(firmwareOf("nvme0n1"), "NEW2");
	EXPECT_EQ(root.read("/var/lib/drive-bundle/notification-source"), kPlan);
}

TEST_F(UpgradeRun, PlanFromTheBinariesOnTheBox)
{
	drive("sda", "ata");
	drive("sdb", "ata");
	drive("sdc", "nvme");
	binary("a.bin", "M-sda", "NEW2");
	binary("b.bin", "M-sdb", "OLD1"); // what the drive runs already
	PVLIBSZLIST drives = VLIBCSzListAlloc(4);
	for (const char *d : {"/dev/sda", "/dev/sdb", "/dev/sdc"})
		VLIBCSzListPush(&drives, d);
	EXPECT_EQ(VEXODriveBundleFWUpgradeConfigGenToFile(kPlan, drives), 1);
	VLIBCSzListFree(drives);
	auto r = results();
	ASSERT_EQ(r.size(), 1u);
	const DB_FW_UPGRADE_CONFIG &c = r.begin()->second; // named by the serial the drive reports
	EXPECT_STREQ(c.drive_path, "/dev/sda");
	EXPECT_STREQ(c.firmware, "OLD1");
	EXPECT_STREQ(c.available_firmware, "NEW2");
	EXPECT_STREQ(c.available_firmware_binary, "a.bin");
	EXPECT_EQ(c.upgrade_status, 0);
}

TEST_F(UpgradeRun, TwoRunsAtOnceOneRuns)
{
	drive("sda", "ata", R"(,"firmware_update":{"seconds":1})");
	binary("a.bin", "M-sda", "NEW2");
	plan({{"sda", "a.bin"}});
	pid_t kids[2];
	for (pid_t &k : kids)
		if ((k = ::fork()) == 0)
			::_exit(DBFWUpgradeByConfig(kPlan, 0, 0) == 0 ? 0 : 1);
	int ran = 0;
	for (pid_t k : kids) {
		int st = 0;
		::waitpid(k, &st, 0);
		ran += WIFEXITED(st) && WEXITSTATUS(st) == 0;
	}
	EXPECT_EQ(ran, 1);
	EXPECT_EQ(results()["SN-sda"].upgrade_status, 2);
	EXPECT_EQ(lines(root.read("/var/lib/drive-bundle/fw-upgrade/result.log")).size(), 1u);
}

TEST_F(UpgradeRun, KilledHalfWayThenRebooted)
{
	drive("sda", "ata");
	drive("sdb", "ata", R"(,"firmware_update":{"seconds":3})");
	binary("a.bin", "M-sda", "NEW2");
	binary("b.bin", "M-sdb", "NEW2");
	plan({{"sda", "a.bin"}, {"sdb", "b.bin"}});
	pid_t run = ::fork();
	if (run == 0) {
		::setpgid(0, 0);
		::_exit(DBFWUpgradeByConfig(kPlan, 0, 0) == 0 ? 0 : 1);
	}
	::setpgid(run, run);
	const std::string resultLog = "/var/lib/drive-bundle/fw-upgrade/result.log";
	for (int i = 0; i < 300 && !root.exists(resultLog); ++i)
		::usleep(50000);
	::usleep(300000);
	::kill(-run, SIGKILL); // the whole run, tools included, as a power cut would
	::waitpid(run, nullptr, 0);
	// A new process: the state says a run was under way, the drives are not
	// held by a dead flasher, a new run is refused, and the result log tells
	// which drive took its firmware.
	int st = inChild([] {
		if (VEXODriveBundleFWUpgradeStateGet(1) != 2 || VEXODriveBundleFWUpgradeIsUpgrading("/dev/sdb") != 0)
			return 1;
		return DBFWUpgradeByConfig(kPlan, 0, 0) == -1 ? 0 : 2;
	});
	EXPECT_EQ(st, 0);
	auto log = lines(root.read(resultLog));
	ASSERT_EQ(log.size(), 1u);
	EXPECT_NE(log[0].find("SN-sda\t/dev/sda"), std::string::npos);
	EXPECT_EQ(log[0].substr(log[0].size() - 2), "\t2");
	EXPECT_EQ(firmwareOf("sda"), "NEW2");
	EXPECT_EQ(results()["SN-sda"].upgrade_status, 0); // results reach the plan only at the end
	auto working = results(VEXO_FW_UPGRADE_WORKING_CONF);
	EXPECT_EQ(working["SN-sda"].upgrade_status, 2);
	EXPECT_EQ(working["SN-sdb"].upgrade_status, 1);
}

// A drive the database holds broken at SC60 with SC61 published: after a
// run that refreshes the caches, its firmware values and its verdict follow
// the revision it now reports.
TEST_F(UpgradeRun, UpdateStatusRefreshesFirmwareValuesAndVerdict)
{
	LogCapture log;
	makerBox();
	drive("sdb", "ata");
	DiskLayout(root).sata("sdb", 2);
	root.write("/sys/block/sdb/device/vendor", "ATA     \n");
	binary("sc61.bin", "VEXO HAT5300-8T", "SC61");

	ASSERT_EQ(VEXOSBDriveFirmInfoCacheUpdImp("/dev/sda", 1, nullptr, nullptr), 0) << log.dump();
	ASSERT_EQ(VEXODiskCompatibilityCacheUpdateAndChecker("/dev/sda"), 0) << log.dump();
	char verdict[32] = "";
	ASSERT_EQ(VEXODiskCompatibilityCacheGet("/dev/sda", verdict, sizeof(verdict)), 0);
	EXPECT_STREQ(verdict, "fw_upgrade_required");
	EXPECT_EQ(root.read("/run/vexostorage/disks/sda/firm_status_from_db"), "update_firm");

	// The plan from what the database suggests; sdb, another maker's, has none.
	PVLIBSZLIST drives = VLIBCSzListAlloc(4);
	EXPECT_EQ(VEXODriveBundleDiskEnum(&drives), 1);
	EXPECT_STREQ(VLIBCSzListGet(drives, 0), "/dev/sda");
	VLIBCSzListFree(drives);
	ASSERT_EQ(VEXODriveBundleFWUpgradeConfigGenToFileByDB(kPlan), 1) << log.dump();
	auto planned = results()["ZL2K4T7C"];
	EXPECT_STREQ(planned.available_firmware, "SC61");
	EXPECT_STREQ(planned.available_firmware_binary, "sc61.bin");
	ASSERT_EQ(VEXODriveBundleFWUpgradeStateSet(1), 0);
	ASSERT_EQ(DBFWUpgradeByConfig(kPlan, 0, 1), 0) << log.dump();
	vexo::clock::clearForTest();

	EXPECT_EQ(results()["ZL2K4T7C"].upgrade_status, 2) << log.dump();
	EXPECT_EQ(root.read("/run/vexostorage/disks/sda/firm"), "SC61");
	EXPECT_EQ(root.read("/run/vexostorage/disks/sda/firm_status_from_db"), "do_nothing");
	ASSERT_EQ(VEXODiskCompatibilityCacheGet("/dev/sda", verdict, sizeof(verdict)), 0);
	EXPECT_STREQ(verdict, "support");
	EXPECT_EQ(VEXODriveBundleFWUpgradeConfigGenToFileByDB("/var/lib/drive-bundle/again.conf"), 0);
}

// Two drives of the maker at SC60 need SC61: the database's choice is
// fetched once from the box's server, by the library's client and by the
// distribution's curl (trusting the box's CA), and stored; what is on the
// box is not fetched again unless asked.
TEST_F(UpgradeRun, DownloadByDatabase)
{
	LogCapture log;
	makerBox({{"unique", "vexo_x86_vx1222"}, {"group_id", "g1"}, {"serial", "S1"}});
	DiskLayout(root).sata("sdb", 2);
	root.write("/sys/block/sdb/device/vendor", "ATA     \n");
	root.write("/sys/block/sdb/device/model", "VEXO HAT5300-8T\n");
	root.diskDir("sdb");
	root.write("/run/vexostorage/disks/sdb/serial", "ZL2K4T7D");
	node("sdb", kAtaNode);
	root.symlink(buildDir() + "/bin/vexosim-tools", "/bin/curl");
	const std::string image = offerSc61();
	Serve serve(root);
	const struct { const char *what; bool curlTool, removeFirst; int flag, ret, fetches, error; } steps[] = {
		{"fetch", false, false, 0, 0, 1, 0},
		{"on the box already", false, false, 0, 0, 0, 0},
		{"again when asked", false, false, VEXO_FW_DOWNLOAD_AGAIN, 0, 1, 0},
		{"by curl", true, true, 0, 0, 1, 0},
		{"curl cut short", false, true, 0, -1, 1, 0x9A00},
		{"bad flag", false, false, 4, -1, 0, 0x0D00},
	};
	for (const auto &st : steps) {
		SCOPED_TRACE(st.what);
		if (st.curlTool)
			root.write("/etc.defaults/vexoinfo.conf",
				   root.read("/etc.defaults/vexoinfo.conf") + "firmware_download_by_external_curl=\"yes\"\n");
		if (st.removeFirst)
			root.remove(std::string(kFwDir) + "sc61.bin");
		serve.misbehave(st.error == 0x9A00 ? "/fw/ cut\n" : "");
		const int before = fetched();
		EXPECT_EQ(VEXODriveBundleFWDownloadByDB(nullptr, "/var/lib/disk-compatibility", st.flag), st.ret) << log.dump();
		EXPECT_EQ(fetched() - before, st.fetches);
		if (st.error) {
			EXPECT_ERR(st.error);
		} else {
			EXPECT_EQ(root.read(std::string(kFwDir) + "sc61.bin"), image);
			EXPECT_FALSE(root.exists("/var/lib/drive-bundle/fw-tmp/VEXO_HAT5300-8T_110.sa"));
		}
	}
	// curl's own words, line by line; the partial archive stays, no binary.
	EXPECT_TRUE(log.has(LOG_ERR, "Failed to curl")) << log.dump();
	EXPECT_TRUE(log.has(LOG_ERR, "curl: (18)"));
	EXPECT_FALSE(root.exists(std::string(kFwDir) + "sc61.bin"));
	EXPECT_TRUE(root.exists("/var/lib/drive-bundle/fw-tmp/VEXO_HAT5300-8T_110.sa"));
	int needed = -1, ready = -1;
	ASSERT_EQ(VEXODriveBundleFWupgradeUpgradeNeededGetByDB(&needed, &ready), 0);
	EXPECT_EQ(needed * 10 + ready, 20);
	serve.misbehave("");
	ASSERT_EQ(VEXODriveBundleFWDownloadByDB("/volume1/@tmp", nullptr, 0), 0) << log.dump();
	EXPECT_TRUE(root.exists("/volume1/@tmp/var/lib/drive-bundle/fw-tmp"));
	ASSERT_EQ(VEXODriveBundleFWupgradeUpgradeNeededGetByDB(&needed, &ready), 0);
	EXPECT_EQ(needed * 10 + ready, 22);
	// The index the tools read: the count even past what fits.
	VEXOFirmwareBinary index[1] = {};
	EXPECT_EQ(VEXOExtDriveBundleFirmwareIndexGet(nullptr, 0), 1);
	EXPECT_EQ(VEXOExtDriveBundleFirmwareIndexGet(nullptr, 1), -1);
	ASSERT_EQ(VEXOExtDriveBundleFirmwareIndexGet(index, 1), 1);
	EXPECT_EQ(std::string(index[0].file) + "|" + index[0].model + "|" + index[0].firmware, "sc61.bin|VEXO HAT5300-8T|SC61");
}

// The result record names the disk as the user knows it: where it stands
// and its mail identity; without the product name it is still recorded.
TEST_F(UpgradeRun, ResultRecordNamesTheDisk)
{
	LogCapture log;
	makerBox();
	root.write("/run/vexostorage/disks/sda/model", "VEXO HAT5300-8T");
	const std::pair<int, const char *> cases[] = {{2, "80|ZL2K4T7C|VEXO HAT5300-8T|/dev/sda|VX1222 disk 1 SC60 SC61"},
						      {-4, "81|ZL2K4T7C|VEXO HAT5300-8T|/dev/sda|disk 1 SC60 SC61"}};
	for (const auto &[status, record] : cases) {
		if (status != 2) // the product name gone: where the disk stands cannot be told
			root.conf("/etc.defaults/vexoinfo.conf", {{"support_disk_compatibility", "yes"}});
		root.remove(VEXODB_DISK_LOG_PATH);
		DB_FW_UPGRADE_CONFIG cfg{"ZL2K4T7C", "/dev/sda", "SC60", "SC61", "sc61.bin", nullptr, 0, status, 0, 0, 0, nullptr};
		ASSERT_EQ(VEXODriveBundleFWUpgradeConfigSet(kPlan, &cfg), 0);
		EXPECT_EQ(VEXODriveBundleFWupgradeLogUpgradeResults(kPlan), 0) << log.dump();
		VEXODB *db = VEXODBConnect(VEXODB_DISK_LOG_PATH, 0);
		VEXODB_RESULT *r = VEXODBSelect(db, "SELECT msg||'|'||serial||'|'||model||'|'||path||'|'||info AS t FROM logs");
		ASSERT_EQ(VEXODBFetchRow(r), 1);
		EXPECT_STREQ(VEXODBFetchField(r, "t"), record);
		EXPECT_EQ(VEXODBFetchRow(r), 0);
		VEXODBFreeResult(r);
		VEXODBClose(db);
	}
	EXPECT_TRUE(log.has(LOG_ERR, "Failed to get located hostname: /dev/sda"));
}

// Firmware by the database for the drive in standby: judged by the revision
// its cache keeps, asked nothing but its power mode, and the same firmware
// fetched as when it is awake.
TEST_F(UpgradeRun, AsleepNoDriveWokenSameFirmwareFetched)
{
	makerBox({{"unique", "vexo_x86_vx1222"}, {"group_id", "g1"}, {"serial", "S1"}});
	offerSc61();
	Serve serve(root);
	ASSERT_GT(serve.port(), 0);
	LogCapture log;
	const struct {
		const char *what, *power, *kept;
		long fetches;
		int needed;
	} cases[] = {
		{"awake", "active", nullptr, 1, 1},
		{"asleep, revision kept", "standby", "SC60", 1, 1},
		// A kept revision already current: nothing to take.
		{"asleep, kept current", "standby", "SC61", 0, 0},
		// Without a kept revision it is left out, not woken.
		{"asleep, nothing kept", "standby", nullptr, 0, 0},
	};
	for (const auto &c : cases) {
		SCOPED_TRACE(c.what);
		root.remove(std::string(kFwDir) + "sc61.bin");
		root.remove("/run/vexostorage/disks/sda/firm");
		if (c.kept)
			root.write("/run/vexostorage/disks/sda/firm", c.kept);
		node("sda", R"({"protocol":"ata","model":"VEXO HAT5300-8T","serial":"ZL2K4T7C","firmware":"SC60",)"
			    R"("power_state":")" + std::string(c.power) + "\"}");
		clearCommands("sda");
		const long before = fetched();
		ASSERT_EQ(VEXODriveBundleFWDownloadByDB(nullptr, "/var/lib/disk-compatibility", 0), 0) << log.dump();
		EXPECT_EQ(fetched() - before, c.fetches);
		EXPECT_EQ(root.exists(std::string(kFwDir) + "sc61.bin"), c.fetches == 1);
		int needed = -1, ready = -1;
		ASSERT_EQ(VEXODriveBundleFWupgradeUpgradeNeededGetByDB(&needed, &ready), 0);
		EXPECT_EQ(needed * 10 + ready, c.needed * 11);
		// Asleep, it hears only the power question (CHECK POWER MODE, e5) in both calls.
		for (const auto &line : commands("sda"))
			EXPECT_TRUE(c.power[0] == 'a' || line.find("args=e5") != std::string::npos) << line;
	}
	EXPECT_TRUE(log.has(LOG_WARNING, "sleeps and has no firmware revision kept, skipped")) << log.dump();
}

// While the daemon lives the drives come from its snapshot, which answers
// only a real container filter (a null one fails).
TEST_F(UpgradeRun, DrivesFromTheDaemonsSnapshot)
{
	makerBox();
	SimDaemon daemon(root.root());
	ASSERT_EQ(daemon.started, 0);
	ASSERT_EQ(VLIBDiskInfoEnumToCache(nullptr), 0);
	ASSERT_TRUE(root.exists(VEXO_DISK_SNAPSHOT));
	PVLIBSZLIST drives = VLIBCSzListAlloc(4);
	EXPECT_EQ(VEXODriveBundleDiskEnum(&drives), 1);
	EXPECT_STREQ(drives->nItem ? VLIBCSzListGet(drives, 0) : "", "/dev/sda");
	VLIBCSzListFree(drives);
}

} // namespace
} // namespace vexo::test
