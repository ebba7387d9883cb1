// Disk power against emulated drives and the simulated daemon: standby
// only where it is due, the flush before it, the whole-system order, timers
// as keys with their notifications, deep sleep's USB rule, idle timers and
// the small switches.
#include <chrono>
#include <climits>
#include <syslog.h>
#include <vexohw/disk_power.h>
#include <vexohw/vcemd.h>

#include "frame/clock.h"
#include "smartctl/sim_disk.h"
#include "support/sim_daemon.h"

using namespace vexo::test;

namespace {

const bool kBackend = installDriveEmulator();

class DiskPower : public SimDisk {
protected:
	void attr(const std::string &name, const char *a, const std::string &v)
	{
		root.write("/sys/block/" + name + "/device/" + a, v);
	}
	std::string attrOf(const std::string &name, const char *a) const
	{
		return root.read("/sys/block/" + name + "/device/" + a);
	}
};

// Never a command to an internal SSD on a product without SATA deep sleep.
TEST_F(DiskPower, StandbyOnlyWhereDue)
{
	sysfs("sda", "ATA", "VEXO SAT5210-960G", false);
	EXPECT_EQ(VEXOIDiskSetDiskStandby("/dev/sda"), 0);
	EXPECT_TRUE(commands("sda").empty());
	product({{"support_sata_deep_sleep", "yes"}});
	EXPECT_EQ(VEXOIDiskSetDiskStandby("/dev/sda"), 0);
	expectSent("sda", {"HDIO_DRIVE_CMD args=e5000000 -> ok", "HDIO_DRIVE_CMD args=e0000000 -> ok"});

	LogCapture log;
	EXPECT_EQ(VEXOIDiskSetDiskStandby(nullptr), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "argument should not be NULL"));
	EXPECT_EQ(VEXOIDiskSetDiskStandby("/dev/nvme0n1"), 0);
}

// Standby with the cache flushed first: the flush reaches the drive before
// the power question and the standby, and the ten seconds' settle runs on
// the clock seam (a fixed test clock moves on; no real time passes). A drive
// already down is only asked; on the SCSI interface a unit that is ready is
// running, and START STOP UNIT stops it.
TEST_F(DiskPower, FlushReachesTheDriveBeforeStandby)
{
	const std::string ata = kAtaNode, scsi = kScsiNode, flush = "HDIO_DRIVE_CMD args=null -> errno ";
	const std::string ask = "HDIO_DRIVE_CMD args=e5000000 -> ok", sleep = "HDIO_DRIVE_CMD args=e0000000 -> ok";
	const std::string down = R"({"power_state":"standby",)", tur = "SG_IO*cdb=00000000000000000000*";
	struct Case {
		std::string node;
		int flushFirst;
		std::vector<std::string> sent;
		std::int64_t settleMs;
	} const cases[] = {
		{ata, 1, {flush + "22*", ask, sleep}, 10000}, // the wait form, refused as libata does
		{"{\"faults\":{\"flush\":{\"errno\":\"EIO\"}}," + ata.substr(1), 1, {flush + "5*", ask, sleep}, 10000},
		{ata, 0, {ask, sleep}, 0},
		{down + ata.substr(1), 0, {ask}, 0},
		// SYNCHRONIZE CACHE, TEST UNIT READY, START STOP UNIT (stop)
		{scsi, 1, {"SG_IO*cdb=35*", tur, "SG_IO*cdb=1b010000000000000000*"}, 10000},
		{down + scsi.substr(1), 0, {tur}, 0},
	};
	vexo::clock::setForTest(1700000000, 5000);
	for (const auto &c : cases) {
		SCOPED_TRACE(c.node);
		ports(c.node.find("\"scsi\"") != std::string::npos);
		node("sda", c.node);
		clearCommands("sda");
		const std::int64_t before = vexo::clock::monotonicMs();
		const auto real = std::chrono::steady_clock::now();
		EXPECT_EQ(VEXODiskSetDiskStandby("/dev/sda", c.flushFirst), 0);
		EXPECT_LT(std::chrono::steady_clock::now() - real, std::chrono::seconds(5));
		EXPECT_EQ(vexo::clock::monotonicMs() - before, c.settleMs);
		expectSent("sda", c.sent);
	}
	EXPECT_EQ(VEXODiskSetDiskStandby(nullptr, 1), -1);
	vexo::clock::clearForTest();
}

// The whole system: mark, flush what is up, clear the marks, then standby
// for the disks not already spun down. A spun-down disk gets no command.
TEST_F(DiskPower, WholeSystemStandbyLeavesSpunDownDisksAlone)
{
	DiskLayout(root).sata("sdb", 2);
	sysfs("sdb", "ATA", "VEXO HAT5300-8T", true);
	node("sdb", kAtaNode);
	for (const char *n : {"sda", "sdb"})
		attr(n, "vexo_standby_syncing", "0");
	attr("sda", "vexo_spindown", "0");
	attr("sdb", "vexo_spindown", "1");
	EXPECT_EQ(VEXODiskSetStandby(), 0);
	// The flush of the ATA path (the wait form), the question, the standby.
	EXPECT_EQ(commands("sda"), (std::vector<std::string>{"HDIO_DRIVE_CMD args=null -> errno 22: refused: null argument",
							       "HDIO_DRIVE_CMD args=e5000000 -> ok",
							       "HDIO_DRIVE_CMD args=e0000000 -> ok"}));
	EXPECT_TRUE(commands("sdb").empty());
	EXPECT_EQ(attrOf("sda", "vexo_standby_syncing"), "0");

	// A disk without the mark attribute stops the pass before any flush.
	root.remove("/sys/block/sdb/device/vexo_standby_syncing");
	LogCapture log;
	clearCommands("sda");
	EXPECT_EQ(VEXODiskSetStandby(), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "Failed to config vexo_standby_syncing: sdb")) << log.dump();
	EXPECT_EQ(attrOf("sda", "vexo_standby_syncing"), "1"); // left marked, as documented
}

// Timers are keys; the daemon hears of a change, and only of a change.
TEST_F(DiskPower, TimersAreKeysAndTheDaemonHearsOfChanges)
{
	root.mkdirs("/etc");
	SimDaemon daemon(root.root());
	struct Step {
		int (*set)(int);
		int value;
		int rc;
		const char *key, *stored, *event;
	} steps[] = {
		{VEXODiskSetStandbyTimer, 20, 0, "standbytimer", "20", "notify 43"},
		{VEXODiskSetStandbyTimer, 20, 0, "standbytimer", "20", nullptr},
		{VEXODiskSetStandbyTimer, 1234, 0, "standbytimer", "123", "notify 43"},
		{VEXODiskSetStandbyTimer, -1, -1, "standbytimer", "123", nullptr},
		{[](int v) { return VEXODiskSetSleepTimer(v, 2); }, 5, 0, "satadeepsleeptimer", "5", "notify 51"},
		{[](int v) { return VEXODiskSetSleepTimer(v, 3); }, 7, 0, "eunitdeepsleeptimer", "7", "notify 52"},
		{[](int v) { return VEXODiskSetSleepTimer(v, 4); }, 7, -1, nullptr, nullptr, nullptr},
		{VEXODiskSetAutoPoweroffTimer, 90, 0, "auto_poweroff_timer", "90", "notify 63"},
		{VEXODiskSetAutoPoweroffTimer, 90, 0, "auto_poweroff_timer", "90", nullptr},
		{VEXODiskSetAutoPoweroffTimer, -3, -1, "auto_poweroff_timer", "90", nullptr},
		{[](int v) { return VEXODiskSetUSBStandbyTimer(static_cast<unsigned>(v)); }, 1441, -1, nullptr, nullptr,
		 nullptr},
		{[](int v) { return VEXODiskSetUSBStandbyTimer(static_cast<unsigned>(v)); }, 1440, 0, "usb_standbytimer",
		 "1440", nullptr},
	};
	std::vector<std::string> want;
	for (const Step &s : steps) {
		SCOPED_TRACE(testing::Message() << (s.key ? s.key : "bad type") << "=" << s.value);
		EXPECT_EQ(s.set(s.value), s.rc);
		if (s.key) {
			char v[16] = {};
			EXPECT_GT(VLIBCFileGetKeyValue("/etc/vexoinfo.conf", s.key, v, sizeof(v), 0), 0);
			EXPECT_STREQ(v, s.stored);
		}
		if (s.event)
			want.push_back(s.event);
		EXPECT_EQ(daemon.events(want.size()), want);
	}
	EXPECT_EQ(root.read("/tmp/standbytime"), "time=1440");
	int v = 0;
	EXPECT_EQ(VEXODiskGetStandbyTimer(&v, 1), 0);
	EXPECT_EQ(v, 123);
	EXPECT_EQ(VEXODiskGetUSBStandbyTimer(nullptr), 0);
	EXPECT_EQ(VEXODiskGetAutoPoweroffTimer(&v), 0);
	EXPECT_EQ(v, 90);

	// A daemon that answers failure: the key is kept, the failure logged.
	daemon.control("fail\n");
	LogCapture log;
	EXPECT_EQ(VEXODiskSetStandbyTimer(30), 0);
	EXPECT_TRUE(log.has(LOG_WARNING, "vcemd was not told of standbytimer (notification 43)")) << log.dump();
}

TEST_F(DiskPower, DeepSleepUsbRule)
{
	struct Case {
		const char *devices, *mounts;
		int want;
	} cases[] = {
		{"D:  Ver= 2.00 Cls=09(hub  ) Sub=00\n", "", 1},
		{"D:  Ver= 2.00 Cls=09(hub  )\nD:  Ver= 2.00 Cls=03(HID  )\n", "", 0},
		{"D:  Ver= 2.00 Cls=00(>ifc )\nI:  Cls=08(stor.)\n", "/dev/sdq1 /volume1 ext4 rw 0 0\n", 1},
		{"I:  Cls=08(stor.)\n", "/dev/sdq1 /volumeUSB1/usbshare ext4 rw 0 0\n", 0},
		{nullptr, "", -1},
	};
	for (const Case &c : cases) {
		SCOPED_TRACE(c.devices ? c.devices : "no list");
		if (c.devices)
			root.write("/proc/bus/usb/devices", c.devices);
		else
			root.remove("/proc/bus/usb/devices");
		root.write("/proc/mounts", c.mounts);
		EXPECT_EQ(VEXOCheckDeepSleep(), c.want);
	}
	attr("sda", "vexo_deep_sleep_support", "1\n");
	attr("sda", "vexo_deep_sleep_ctrl", "0");
	EXPECT_EQ(VEXODiskSetDeepSleep(), 0);
	EXPECT_EQ(attrOf("sda", "vexo_deep_sleep_ctrl"), "1");
	EXPECT_TRUE(commands("sda").empty());
}

TEST_F(DiskPower, IdleTimersAndSwitches)
{
	unsigned long v = 0;
	EXPECT_EQ(VEXODiskAllIdleTimerGet(&v), 0);
	EXPECT_EQ(v, ULONG_MAX);
	DiskLayout(root).sata("sdb", 2);
	attr("sda", "vexo_idle_time", "600\n");
	attr("sdb", "vexo_idle_time", "300\n");
	EXPECT_EQ(VEXODiskAllIdleTimerGet(&v), 0);
	EXPECT_EQ(v, 300ul);
	EXPECT_EQ(VEXODiskAllIdleTimerSet(120), 0);
	EXPECT_EQ(attrOf("sda", "vexo_idle_time"), "120");
	EXPECT_EQ(attrOf("sdb", "vexo_idle_time"), "120");

	attr("sda", "vexo_spindown", "2\n");
	EXPECT_EQ(VEXODiskIsSpindown("/dev/sda"), 2);
	EXPECT_EQ(VEXODiskIsSpindown("/dev/sdb"), -1);
	EXPECT_EQ(VEXODiskIsSpindown("/dev/nvme0n1"), 0);

	LogCapture log;
	EXPECT_EQ(VEXODiskSpindownBeforePoweroffSet("/dev/sda"), -1);
	EXPECT_TRUE(log.has(LOG_WARNING, "Counld not find vexo_spindown_before_poweroff on sda"));
	attr("sda", "vexo_spindown_before_poweroff", "0");
	EXPECT_EQ(VEXODiskSpindownBeforePoweroffSet("/dev/sda"), 0);
	EXPECT_EQ(attrOf("sda", "vexo_spindown_before_poweroff"), "1");

	EXPECT_EQ(VEXODiskFastWake(), -1); // no array
	root.write("/sys/block/md0/md/active", "0");
	root.write("/sys/block/md2/md/active", "0");
	EXPECT_EQ(VEXODiskFastWake(), 0);
	EXPECT_EQ(root.read("/sys/block/md2/md/active"), "1");
	EXPECT_EQ(VEXODiskDummyReadNeed("/dev/sda"), 0);
	actions(R"(<disk model="VEXO HAT5300-8T" action="0x200000"/>)"); // bit 21
	EXPECT_EQ(VEXODiskDummyReadNeed("/dev/sda"), 1);
	EXPECT_TRUE(commands("sda").empty()); // none of these spoke to a drive
}

} // namespace
