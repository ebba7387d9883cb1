#include <algorithm>
// Self-test records read from emulated drives: which commands reach the
// drive, the status and weight, the fallback files, and closing the record
// of a finished test (keys, event row, concurrency between processes).
#include <fcntl.h>
#include <scsi/sg.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vexohw/frame.h>
#include <vexohw/smart_test.h>
#include <vexoplatform/logdb.h>
#include <vexoplatform/vexocore.h>

#include "smartctl/drive_sim.h"

using namespace vexo::test;

namespace {

const bool kBackend = installDriveEmulator();

class SelfTestLog : public DriveSim {
protected:
	void SetUp() override
	{
		DriveSim::SetUp();
		ports(false);
		disk("sda", "ZL2K4T7C", 0, "[]", "");
	}
	// An ATA disk on its own SCSI host with a self-test history (newest
	// first) and extra raw logs.
	void disk(const std::string &name, const std::string &serial, int host, const std::string &tests,
		  const std::string &logs)
	{
		std::string h = std::to_string(host), dev = "/sys/devices/pci0/ata" + h + "/host" + h + "/target" + h + ":0:0/" + h + ":0:0:0";
		root.mkdirs(dev + "/block/" + name);
		root.write("/sys/devices/pci0/ata" + h + "/host" + h + "/scsi_host/host" + h + "/proc_name", "ahci\n");
		root.mkdirs("/sys/block");
		if (!root.exists("/sys/block/" + name))
			root.symlink(".." + dev.substr(4) + "/block/" + name, "/sys/block/" + name);
		if (!root.exists(dev + "/block/" + name + "/device"))
			root.symlink("../../../" + h + ":0:0:0", dev + "/block/" + name + "/device");
		root.write(dev + "/vendor", "ATA     \n");
		root.write(dev + "/model", "VEXO HAT5300-8T\n");
		node(name, R"({"protocol":"ata","model":"VEXO HAT5300-8T","serial":")" + serial +
				   R"(","firmware":"SC60","size_bytes":8001563222016,"self_tests":)" + tests +
				   (logs.empty() ? "" : R"(,"logs":)" + logs) + "}");
		root.diskDir(name);
	}
	void kind(int k, const char *name = "sda") { ASSERT_EQ(VEXODiskUpdateIntValueCacheFile(name, "smart_selftest_log_type", k), 0); }
	std::string kv(const char *file, const std::string &key)
	{
		char v[64] = {};
		return VLIBCFileGetKeyValue(file, key.c_str(), v, sizeof(v), 0) > 0 ? v : "";
	}
};

TEST_F(SelfTestLog, StandardLogStatusAndWeight)
{
	ASSERT_TRUE(kBackend);
	struct Row {
		const char *tests;
		unsigned latest;
		int status, weight;
	} rows[] = {
		{R"([{"type":1,"status":64},{"type":2,"status":0}])", 7, 1, 0},  // a damaged quick test alone
		{R"([{"type":1,"status":64},{"type":2,"status":112}])", 4, 3, 601},
		{R"([{"type":2,"status":33},{"type":1,"status":64}])", 3, 1, 0},
		{"[]", 6, 1, 0},
	};
	for (const Row &r : rows) {
		disk("sda", "ZL2K4T7C", 0, r.tests, "");
		kind(1);
		SmartTestLog log{};
		ASSERT_EQ(SMARTSelfTestLogRead("/dev/sda", &log), 0) << r.tests;
		EXPECT_EQ(log.latestResult, r.latest) << r.tests;
		clearCommands("sda");
		int weight = 0;
		char progress[8] = "x";
		EXPECT_EQ(SmartTestStatusGet("/dev/sda", progress, sizeof(progress), &weight), r.status) << r.tests;
		EXPECT_EQ(weight, r.weight);
		EXPECT_STREQ(progress, "x"); // no test runs
		EXPECT_EQ(commands("sda").size(), 2u); // SMART READ DATA, SMART READ LOG 6
	}
	EXPECT_EQ(SMARTIsSelftesting("/dev/sda"), 0);
}

TEST_F(SelfTestLog, ExtendedLogOfTenPages)
{
	// Newest is entry 149 (page 7): extended completed; before it a quick
	// test ended in damage.
	std::vector<uint8_t> log7(10 * 512, 0);
	log7[0] = 1, log7[2] = 150;
	auto at = [](size_t u) { return (u / 19) * 512 + 4 + (u % 19) * 26; };
	log7[at(149)] = 2, log7[at(149) + 2] = 1;
	log7[at(148)] = 1, log7[at(148) + 1] = 0x30;
	std::string hex;
	for (uint8_t b : log7) {
		char x[3];
		std::snprintf(x, sizeof(x), "%02x", b);
		hex += x;
	}
	disk("sda", "ZL2K4T7C", 0, "[]", R"({"0x07":")" + hex + R"("})");
	kind(2);
	clearCommands("sda");
	SmartTestLog log{};
	ASSERT_EQ(SMARTSelfTestLogRead("/dev/sda", &log), 0);
	EXPECT_EQ(log.extendResult, 1u);
	EXPECT_EQ(log.quickResult, 4u);
	EXPECT_EQ(log.latestType, 2u);
	EXPECT_EQ(log.latestResult, 1u);
	// values, log directory, extended directory, then all ten pages at once
	EXPECT_EQ(commands("sda").size(), 4u);
	auto sent = commands("sda");
	EXPECT_EQ(std::count_if(sent.begin(), sent.end(),
				[](const std::string &l) { return l.find("cdb=85080e000000" "0a000700000000002f00 -> ok") != l.npos; }),
		  1);
}

TEST_F(SelfTestLog, HistoryFillsExtendedLogPages)
{
	std::string tests = R"([{"type":2,"status":64})";
	for (int i = 0; i < 24; ++i)
		tests += R"(,{"type":1,"status":0})";
	disk("sda", "ZL2K4T7C", 0, tests + "]", "");
	kind(2);
	clearCommands("sda");
	SmartTestLog log{};
	ASSERT_EQ(SMARTSelfTestLogRead("/dev/sda", &log), 0);
	EXPECT_EQ(log.extendResult, 4u);
	EXPECT_EQ(log.quickResult, 1u);
	EXPECT_EQ(log.latestResult, 4u);
	auto sent = commands("sda"); // the directory, then both pages at once
	EXPECT_EQ(std::count_if(sent.begin(), sent.end(), [](const std::string &l) { return l.find("2f00 -> ok") != l.npos; }), 2);
}

TEST_F(SelfTestLog, ScsiResultsAndControlModePages)
{
	ports(true);
	node("sda", R"({"protocol":"scsi","serial":"SX00001234","smart":{"extended_test_minutes":120},
	     "self_tests":[{"type":2,"status":64},{"type":1,"status":0}]})");
	SmartTestLog log{};
	ASSERT_EQ(SMARTSelfTestLogRead("/dev/sda", &log), 0);
	EXPECT_EQ(log.extendResult, 4u);
	EXPECT_EQ(log.quickResult, 1u);
	EXPECT_STREQ(log.extendMinutes, "120");
	EXPECT_STREQ(log.quickMinutes, "2");
	int weight = 0;
	EXPECT_EQ(SmartTestStatusGet("/dev/sda", nullptr, 0, &weight), SMART_TEST_STATUS_FAIL);
	EXPECT_EQ(weight, 601);

	// SEND DIAGNOSTIC, background short self-test
	uint8_t cdb[6] = {0x1D, 1 << 5, 0, 0, 0, 0}, sense[32] = {};
	sg_io_hdr_t h{};
	h.interface_id = 'S', h.cmd_len = 6, h.cmdp = cdb, h.mx_sb_len = sizeof(sense), h.sbp = sense;
	h.dxfer_direction = SG_DXFER_NONE, h.timeout = 30000;
	ASSERT_EQ(vexo::dev::ioctl(open("sda"), SG_IO, &h), 0);
	ASSERT_EQ(h.status, 0);
	char progress[8] = {};
	EXPECT_EQ(SmartTestStatusGet("/dev/sda", progress, sizeof(progress), &weight), SMART_TEST_STATUS_FAIL);
	EXPECT_STREQ(progress, "-1");
	EXPECT_EQ(SMARTIsSelftesting("/dev/sda"), 1);
}

TEST_F(SelfTestLog, NvmeLogSupportAndAVanishedDisk)
{
	node("nvme0n1", R"({"protocol":"nvme","model":"WD Red SN700 500GB","serial":"22514D800394","firmware":"111150WD",
	     "nvme":{"vid":5559,"ssvid":5559,"extended_test_minutes":25,
	     "self_tests":[{"type":2,"result":7},{"type":1,"result":0},{"type":2,"result":6}]}})");
	SmartTestLog log{};
	ASSERT_EQ(SMARTSelfTestLogRead("/dev/nvme0n1", &log), 0);
	EXPECT_EQ(log.extendResult, 4u);
	EXPECT_EQ(log.quickResult, 1u);
	EXPECT_EQ(log.currentResult, 1u);
	EXPECT_EQ(log.latestType, 2u);
	EXPECT_EQ(log.extendDamagedBefore, 1);
	EXPECT_STREQ(log.extendMinutes, "25");
	EXPECT_EQ(SMARTIsSelftesting("/dev/nvme0n1"), 0);
	EXPECT_EQ(VEXODiskSmartTestSupport("/dev/nvme0n1"), 0); // not one of the maker's own drives

	EXPECT_EQ(VEXODiskSmartTestSupport("/dev/sda"), 1);
	root.write("/var/lib/diskaction/diskaction.xml",
		   R"(<diskaction><disk model="VEXO HAT5300-8T" action="0x2000000"/></diskaction>)");
	EXPECT_EQ(VEXODiskSmartTestSupport("/dev/sda"), 0);
	EXPECT_EQ(VEXODiskSmartTestSupportCache("/dev/sda"), 0);
	EXPECT_EQ(root.read("/run/vexostorage/disks/sda/smart_test_support"), "0");

	kind(1);
	root.remove("/dev/sda"); // the disk is gone
	EXPECT_EQ(SMARTSelfTestLogRead("/dev/sda", &log), -1);
	int weight = 0;
	EXPECT_EQ(SmartTestStatusGet("/dev/sda", nullptr, 0, &weight), SMART_TEST_STATUS_UNKNOWN);
	EXPECT_EQ(weight, 0);
	EXPECT_EQ(SMARTIsSelftesting("/dev/sda"), 0);
}

TEST_F(SelfTestLog, FallbackFilesDecideTheLatest)
{
	kind(0);
	ASSERT_EQ(VEXODiskUpdateStrValueCacheFile("sda", "serial", "ZL2K4T7C"), 0);
	root.write("/run/vexostorage/disks/sda/smart_testing", ""); // no test runs
	root.write("/var/log/smart_quick_log", "ZL2K4T7C_STATUS=\"4\"\nZL2K4T7C_TIME=\"200\"\n");
	root.write("/var/log/smart_extend_log", "ZL2K4T7C_STATUS=\"1\"\nZL2K4T7C_TIME=\"100\"\n");
	SmartTestLog log{};
	ASSERT_EQ(SMARTSelfTestLogRead("/dev/sda", &log), 0);
	EXPECT_EQ(log.latestType, 1u);
	EXPECT_EQ(log.latestResult, 7u);
}

TEST_F(SelfTestLog, StopRecordsTheFinishedTestAndPagesTheDatabase)
{
	disk("sda", "ZL2K4T7C", 0, R"([{"type":2,"status":0}])", "");
	kind(1);
	root.write("/usr/vexo/bin/vexo_smart_test", "#!/bin/sh\necho \"$*\" > \"$VEXO_SYSROOT/tmp/stop.args\"\n", 0755);
	root.mkdirs("/tmp");
	ASSERT_EQ(VEXODiskUpdateStrValueCacheFile("sda", "smart_testing", "extend"), 0);
	root.write("/var/log/smart_extend_log", "ZL2K4T7C_TIME_NEW=\"1700000000\"\nZL2K4T7C_STATUS_NEW=\"5\"\n");
	ASSERT_EQ(VEXODiskSmartTestStop("/dev/sda"), 0);
	EXPECT_EQ(root.read("/tmp/stop.args"), "--type stop --disk sel /dev/sda\n");
	EXPECT_EQ(kv(SMART_TEST_EXTEND_LOG, "ZL2K4T7C_STATUS"), "1");
	EXPECT_EQ(kv(SMART_TEST_EXTEND_LOG, "ZL2K4T7C_TIME"), "1700000000");
	EXPECT_EQ(kv(SMART_TEST_EXTEND_LOG, "ZL2K4T7C_STATUS_NEW"), "");
	EXPECT_EQ(root.read("/run/vexostorage/disks/sda/smart_testing"), "");
	EXPECT_EQ(SmartTestResultRecord("sda"), -1); // nothing left to record

	for (int t = 1; t <= 4; ++t)
		ASSERT_EQ(VLIBLogSetByVA("disk_test", 1, "m", "ZL2K4T7C", "/dev/sda", std::to_string(t).c_str(),
					 t == 2 ? "ihm" : "smart", "quick", static_cast<const char *>(nullptr)), 0);
	ASSERT_EQ(VLIBLogSetByVA("disk_test", 4, "m", "OTHER", "/dev/sdb", "9", "smart", "quick",
				 static_cast<const char *>(nullptr)), 0);
	DiskTestLog *list = nullptr;
	ASSERT_EQ(VEXODiskTestLogGet("/dev/sda", "smart", 2, 0, &list), 4);
	ASSERT_TRUE(list && list->next && !list->next->next);
	EXPECT_STREQ(list->testType, "extend"); // the stopped test is the newest
	EXPECT_STREQ(list->message, "1");
	DiskTestLogFree(list);
	ASSERT_EQ(VEXODiskTestLogGet("/dev/sda", nullptr, 10, 4, &list), 5);
	ASSERT_TRUE(list && !list->next);
	EXPECT_STREQ(list->type, "smart");
	DiskTestLogFree(list);
}

TEST_F(SelfTestLog, TwoProcessesRecordingLoseNoKey)
{
	disk("sda", "ZL2K4T7C", 0, R"([{"type":1,"status":0}])", "");
	disk("sdb", "ZL2K0002", 1, R"([{"type":1,"status":0}])", "");
	kind(1);
	kind(1, "sdb");
	root.mkdirs("/run/lock");
	constexpr int kRounds = 25;
	pid_t kids[2];
	const char *names[2] = {"sda", "sdb"}, *serials[2] = {"ZL2K4T7C", "ZL2K0002"};
	for (int k = 0; k < 2; ++k) {
		kids[k] = fork();
		ASSERT_GE(kids[k], 0);
		if (kids[k] == 0) {
			int bad = 0;
			for (int i = 1; i <= kRounds; ++i) {
				// the tool's own writes take the same lock
				int fd = ::open(root.host(SMART_TEST_QUICK_LOCK).c_str(), O_RDWR | O_CREAT, 0644);
				lockf(fd, F_LOCK, 0);
				VLIBCFileSetKeyValue(SMART_TEST_QUICK_LOG, (std::string(serials[k]) + "_TIME_NEW").c_str(),
						     std::to_string(i).c_str(), nullptr);
				VLIBCFileSetKeyValue(SMART_TEST_QUICK_LOG, (std::string(serials[k]) + "_STATUS_NEW").c_str(), "5", nullptr);
				::close(fd);
				VEXODiskUpdateStrValueCacheFile(names[k], "smart_testing", "quick");
				bad += SmartTestResultRecord(names[k]) != 0;
			}
			_exit(bad);
		}
	}
	for (pid_t p : kids) {
		int st = 0;
		ASSERT_EQ(waitpid(p, &st, 0), p);
		EXPECT_TRUE(WIFEXITED(st) && WEXITSTATUS(st) == 0);
	}
	for (const char *s : serials) {
		EXPECT_EQ(kv(SMART_TEST_QUICK_LOG, std::string(s) + "_TIME"), std::to_string(kRounds)) << s;
		EXPECT_EQ(kv(SMART_TEST_QUICK_LOG, std::string(s) + "_STATUS"), "1") << s;
		EXPECT_EQ(kv(SMART_TEST_QUICK_LOG, std::string(s) + "_TIME_NEW"), "") << s;
	}
}

} // namespace
