// The upgrade state word, the plan file and the flag files, as several
// processes see them.
#include <csignal>
#include <cstring>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <syslog.h>
#include <thread>
#include <unistd.h>
#include <vexohw/drive_bundle.h>

#include "support/vexotest.h"

using vexo::test::LogCapture;
using vexo::test::Sysroot;

namespace {

constexpr const char *kState = "/var/run/drive-bundle/upgrade_state";
constexpr const char *kFlag = "/var/run/drive-bundle/fw-upgrade-on-shutdown";

DB_FW_UPGRADE_CONFIG drive(const char *id, const char *path, int status)
{
	DB_FW_UPGRADE_CONFIG c{};
	std::snprintf(c.id, sizeof(c.id), "%s", id);
	std::snprintf(c.drive_path, sizeof(c.drive_path), "%s", path);
	std::snprintf(c.firmware, sizeof(c.firmware), "SV10");
	std::snprintf(c.available_firmware, sizeof(c.available_firmware), "SV12");
	std::snprintf(c.available_firmware_binary, sizeof(c.available_firmware_binary), "m1.bin");
	c.ui_json = const_cast<char *>("{\"model\":\"M1\"}");
	c.fw_build_number = 1207;
	c.upgrade_status = status;
	return c;
}

} // namespace

TEST(UpgradeState, WordsLocksAndRange)
{
	Sysroot root;
	LogCapture log;
	// A missing file is "do_nothing", with or without the lock.
	EXPECT_EQ(VEXODriveBundleFWUpgradeStateGet(0), 0);
	EXPECT_EQ(VEXODriveBundleFWUpgradeStateGet(1), 0);
	const struct {
		const char *content;
		int want;
	} cases[] = {
		{"upgrade_state=\"going_to_start\"\n", 1}, {"upgrade_state=\"upgrading_all\"\n", 2},
		{"upgrade_state=\"post_handle\"\n", 3},    {"upgrade_state=\"do_nothing\"\n", 0},
		{"upgrade_state=\"upgrading\"\n", -1},     {"other=\"x\"\n", -1},
	};
	for (const auto &c : cases) {
		root.write(kState, c.content);
		EXPECT_EQ(VEXODriveBundleFWUpgradeStateGet(1), c.want) << c.content;
	}
	EXPECT_TRUE(log.has(LOG_ERR, "Cannot convert unknown state: upgrading"));
	for (int bad : {-1, 4}) {
		EXPECT_EQ(VEXODriveBundleFWUpgradeStateSet(bad), -1);
	}
	EXPECT_TRUE(log.has(LOG_ERR, "bad parameter"));
	for (int s = 0; s < 4; ++s) {
		ASSERT_EQ(VEXODriveBundleFWUpgradeStateSet(s), 0);
		EXPECT_EQ(VEXODriveBundleFWUpgradeStateGet(0), s);
		EXPECT_EQ(VEXODriveBundleFWUpgradeFinishCheck(), s == 0 ? 1 : 0);
	}
	// Held by another process: the writer gives up after its 10 seconds.
	int fd = -1;
	ASSERT_TRUE(VLIBCFileLockTimeByFile("/var/run/drive-bundle/upgrade_state.lock", 1, 0, &fd));
	int st = vexo::test::inChild([] { return VEXODriveBundleFWUpgradeStateSet(1) == -1 ? 0 : 1; });
	VLIBCFileUnlockByFile(fd);
	EXPECT_EQ(st, 0);
	EXPECT_EQ(VEXODriveBundleFWUpgradeStateGet(1), 3);
}

TEST(UpgradeState, ShutdownFlagFollowsTheState)
{
	Sysroot root;
	LogCapture log;
	ASSERT_EQ(VEXODriveBundleFWUpgradeOnShutdownSet(1), 0) << log.dump();
	ASSERT_EQ(VEXODriveBundleFWUpgradeOnShutdownSet(1), 0);
	EXPECT_TRUE(root.exists(kFlag));
	EXPECT_EQ(VEXODriveBundleFWUpgradeStateGet(1), 1);
	// The state cannot be written (its path is a folder): the flag set by
	// this call goes again, one that was there already stays.
	root.remove(kState);
	root.mkdirs(std::string(kState) + "/x");
	EXPECT_EQ(VEXODriveBundleFWUpgradeOnShutdownSet(1), -1);
	EXPECT_TRUE(root.exists(kFlag));
	root.remove(kFlag);
	EXPECT_EQ(VEXODriveBundleFWUpgradeOnShutdownSet(1), -1);
	EXPECT_FALSE(root.exists(kFlag));
	EXPECT_TRUE(log.has(LOG_ERR, "Failed to change to going_to_start state"));
	root.remove(kState);
	ASSERT_EQ(VEXODriveBundleFWUpgradeOnShutdownSet(0), 0);
	EXPECT_FALSE(root.exists(kFlag));
	EXPECT_EQ(VEXODriveBundleFWUpgradeStateGet(0), 0);
}

TEST(UpgradePlan, SectionsFromManyWritersAllSurvive)
{
	Sysroot root;
	const std::string plan = "/var/lib/drive-bundle/fw-upgrade/plan-1.conf";
	// Four processes with two threads each rewrite their own sections over
	// and over; no section is lost and none is torn.
	std::vector<pid_t> kids;
	for (int p = 0; p < 4; ++p) {
		pid_t pid = ::fork();
		if (pid == 0) {
			auto work = [&](int t) {
				std::string id = "drive" + std::to_string(p * 2 + t);
				std::string path = "/dev/sd" + std::string(1, static_cast<char>('a' + p * 2 + t));
				for (int round = 0; round <= 20; ++round) {
					DB_FW_UPGRADE_CONFIG c = drive(id.c_str(), path.c_str(), round == 20 ? 2 : 1);
					c.download_retry_cnt = round;
					if (VEXODriveBundleFWUpgradeConfigSet(plan.c_str(), &c) != 0)
						::_exit(1);
				}
			};
			std::thread a(work, 0), b(work, 1);
			a.join();
			b.join();
			::_exit(0);
		}
		kids.push_back(pid);
	}
	for (pid_t k : kids) {
		int status = 0;
		::waitpid(k, &status, 0);
		EXPECT_EQ(status, 0);
	}
	DB_FW_UPGRADE_CONFIG *list = nullptr;
	LogCapture log;
	ASSERT_EQ(VEXODriveBundleFWUpgradeConfigGet(plan.c_str(), &list), 8) << log.dump();
	int n = 0;
	for (DB_FW_UPGRADE_CONFIG *c = list; c; c = c->next, ++n) {
		EXPECT_EQ(c->upgrade_status, 2) << c->id;
		EXPECT_EQ(c->download_retry_cnt, 20);
		EXPECT_EQ(c->fw_build_number, 1207);
		EXPECT_STREQ(c->ui_json, "{\"model\":\"M1\"}");
		EXPECT_STREQ(c->available_firmware, "SV12");
		EXPECT_EQ(c->pid, -1);
	}
	EXPECT_EQ(n, 8);
	VEXODriveBundleFWUpgradeConfigFree(list);
	std::string text = root.read(plan);
	EXPECT_NE(text.find("[drive0]\n\tdrive_path = /dev/sda\n\tfirmware = SV10\n"), std::string::npos) << text;
	// A missing plan has no drives; a value with a line break is refused.
	EXPECT_EQ(VEXODriveBundleFWUpgradeConfigGet("/var/lib/drive-bundle/none.conf", &list), 0);
	EXPECT_EQ(list, nullptr);
	DB_FW_UPGRADE_CONFIG bad = drive("drive0", "/dev/sda\n[x]", 0);
	EXPECT_EQ(VEXODriveBundleFWUpgradeConfigSet(plan.c_str(), &bad), -1);
	EXPECT_EQ(root.read(plan), text);
}

TEST(UpgradePlan, SourcesLinkAndDrives)
{
	Sysroot root;
	LogCapture log;
	const char *planA = "/var/lib/drive-bundle/fw-upgrade/a-much-longer-plan-name.conf";
	const char *planB = "/var/lib/drive-bundle/fw-upgrade/b.conf";
	DB_FW_UPGRADE_CONFIG a = drive("S1", "/dev/sata1", 0), b = drive("S2", "/dev/nvme0n1", -4);
	ASSERT_EQ(VEXODriveBundleFWUpgradeConfigSet(planA, &a), 0);
	ASSERT_EQ(VEXODriveBundleFWUpgradeConfigSet(planB, &a), 0);
	ASSERT_EQ(VEXODriveBundleFWUpgradeConfigSet(planB, &b), 0);
	root.symlink("b.conf", VEXO_FW_UPGRADE_CURRENT_LINK);
	// Mismatched arguments are refused; a shorter path replaces a longer one whole.
	EXPECT_EQ(VEXODriveBundleFWUpgradeNotificationSet(1, nullptr), -1);
	EXPECT_EQ(VEXODriveBundleFWUpgradeNotificationSet(0, planA), -1);
	EXPECT_EQ(DBWriteOrDeleteFile(1, "/tmp/x", nullptr), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "Bad parameter"));
	ASSERT_EQ(VEXODriveBundleFWUpgradeNotificationSet(1, planA), 0);
	ASSERT_EQ(VEXODriveBundleFWUpgradeNotificationSet(1, planB), 0);
	ASSERT_EQ(VEXODriveBundleFWUpgradeLaunchSummarySet(1, planA), 0);
	EXPECT_EQ(root.read("/var/lib/drive-bundle/notification-source"), planB);

	PVLIBSZHASH h[4] = {};
	ASSERT_EQ(VEXODriveBundleFWUpgradeConfigInfoGetByNotification(h, 4), 2) << log.dump();
	EXPECT_STREQ(VLIBCSzHashGetValue(h[1], "id"), "S2");
	EXPECT_STREQ(VLIBCSzHashGetValue(h[1], "upgrade_status"), "-4");
	for (PVLIBSZHASH x : h)
		VLIBCSzHashFree(x);
	ASSERT_EQ(VEXODriveBundleFWUpgradeConfigInfoGetByAutoLaunch(h, 4), 1);
	VLIBCSzHashFree(h[0]);
	ASSERT_EQ(VEXODriveBundleFWUpgradeConfigInfoGetByCurrent(h, 1), 1);
	VLIBCSzHashFree(h[0]);
	PVLIBSZLIST paths = nullptr;
	ASSERT_EQ(VEXODriveBundleFWUpgradeDrivesGet(&paths), 2);
	EXPECT_STREQ(VLIBCSzListGet(paths, 1), "/dev/nvme0n1");
	VLIBCSzListFree(paths);
	char real[256];
	ASSERT_EQ(DBRealityPathGet(VEXO_FW_UPGRADE_CURRENT_LINK, real, sizeof(real)), 0);
	EXPECT_STREQ(real, planB);
	ASSERT_EQ(VEXODriveBundleFWUpgradeNotificationSet(0, nullptr), 0);
	EXPECT_EQ(VEXODriveBundleFWUpgradeConfigInfoGetByNotification(h, 4), 0);
}

TEST(UpgradeState, IsUpgradingJudgesTheFlasherByItsCommandLine)
{
	Sysroot root;
	root.diskDir("sda");
	root.write("/run/vexostorage/disks/sda/serial", "S1");
	EXPECT_EQ(VEXODriveBundleFWUpgradeIsUpgrading(nullptr), -1);
	EXPECT_EQ(VEXODriveBundleFWUpgradeIsUpgrading("/dev/sda"), 0);
	ASSERT_EQ(VEXODriveBundleFWUpgradeStateSet(1), 0);
	// A booked run holds every drive, even one with no cache at all.
	EXPECT_EQ(VEXODriveBundleFWUpgradeIsUpgrading("/dev/sdq"), 1);
	ASSERT_EQ(VEXODriveBundleFWUpgradeStateSet(2), 0);
	EXPECT_EQ(VEXODriveBundleFWUpgradeIsUpgrading("/dev/sda"), 0); // no pid file
	const char *pidFile = "/run/vexostorage/disks/sda/firm_upgrading.pid";
	root.write(pidFile, std::to_string(::getpid()) + "\n");
	EXPECT_EQ(VEXODriveBundleFWUpgradeIsUpgrading("/dev/sda"), 0); // another program
	pid_t flasher = ::fork();
	if (flasher == 0) {
		::setpgid(0, 0);
		::execl("/bin/sh", "sh", "-c", "sleep 30; :", "/usr/vexo/bin/vexo_drive_bundle", "--upgrade-firmware",
			"--start-by-config-and-prepare-summary", "update-status", static_cast<char *>(nullptr));
		::_exit(127);
	}
	root.write(pidFile, std::to_string(flasher) + "\n");
	for (int i = 0; i < 100 && VEXODriveBundleFWUpgradeIsUpgrading("/dev/sda") != 1; ++i)
		::usleep(10000);
	EXPECT_EQ(VEXODriveBundleFWUpgradeIsUpgrading("/dev/sda"), 1);
	::kill(-flasher, SIGKILL); // the shell and its sleep
	::waitpid(flasher, nullptr, 0);
	EXPECT_EQ(VEXODriveBundleFWUpgradeIsUpgrading("/dev/sda"), 0); // dead
	EXPECT_EQ(VEXODriveBundleFWUpgradeFinishCheck(), 0);
}
