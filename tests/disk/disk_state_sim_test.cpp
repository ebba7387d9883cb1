// Disk state and the disk action database: running state through stacked
// devices, SATA detection, raw open, action entries, SCT support through
// sg_sat_identify, and the mask_serial repair with its lock.
#include <chrono>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>
#include <vexohw/disk_state.h>
#include <vexohw/smart_serial.h>
#include <vexohw/smart_temperature.h>
#include <vexoplatform/disk_map.h>

#include "frame/device.h"
#include "smartctl/sim_disk.h"
#include "smartctl/smart_util.h"

using namespace vexo::test;

namespace {

const bool kBackend = installDriveEmulator();

class DiskState : public SimDisk {
protected:
	void SetUp() override
	{
		SimDisk::SetUp();
		ASSERT_TRUE(kBackend);
	}
	std::vector<std::string> physical(const char *path)
	{
		PVLIBSZLIST l = VLIBCSzListAlloc(1);
		std::vector<std::string> out;
		int n = VEXODiskPhysicalDiskNameListGet(path, &l);
		for (int i = 0; n > 0 && i < l->nItem; ++i)
			out.push_back(VLIBCSzListGet(l, i));
		if (n < 0)
			out.push_back("failed");
		VLIBCSzListFree(l);
		return out;
	}
};

TEST_F(DiskState, RunningThroughPartitionsAndVolumes)
{
	DiskLayout(root).sata("sdb", 2);
	sysfs("sdb", "ATA", "VEXO HAT5300-8T", true, "offline");
	root.mkdirs("/sys/block/sda/sda3");
	root.mkdirs("/sys/block/sdb/sdb3");
	root.mkdirs("/sys/block/md2/slaves/sda3");
	root.mkdirs("/sys/block/md2/slaves/sdb3");
	root.mkdirs("/sys/block/md2/slaves/sda5"); // no such partition dir: not a member we can place
	EXPECT_EQ(physical("/dev/sda3"), std::vector<std::string>{"sda"});
	EXPECT_EQ(physical("/dev/md2"), std::vector<std::string>{"failed"});
	root.remove("/sys/block/md2/slaves/sda5");
	root.mkdirs("/sys/block/md3/slaves/md2");
	root.mkdirs("/sys/block/md3/slaves/sda3");
	EXPECT_EQ(physical("md3"), (std::vector<std::string>{"sda", "sdb"})); // each disk once

	EXPECT_EQ(VEXODiskIsRunning("/dev/sda"), 1);
	EXPECT_EQ(VEXODiskIsRunning("/dev/sdb"), 0);
	EXPECT_EQ(VEXODiskIsRunning("/dev/md2"), 1); // one running member is enough
	sysfs("sda", "ATA", "VEXO HAT5300-8T", true, "blocked");
	EXPECT_EQ(VEXODiskIsRunning("/dev/md2"), 0);
	root.remove("/sys/block/sda/device/state");
	EXPECT_EQ(VEXODiskIsRunning("/dev/sda"), 0);
	EXPECT_EQ(VEXODiskIsRunning("/dev/nvme0n1"), 1);
	DiskLayout(root).nvme("nvme0n1", "0000:00:01.0");
	root.mkdirs("/sys/block/nvme0n1/nvme0n1p3");
	root.mkdirs("/sys/block/md4/slaves/sda3");
	root.mkdirs("/sys/block/md4/slaves/nvme0n1p3");
	EXPECT_EQ(VEXODiskIsRunning("/dev/md4"), 1); // an NVMe member has no such state and is up
	LogCapture log;
	EXPECT_EQ(VEXODiskIsRunning("/dev/sdz"), 0);
	EXPECT_TRUE(log.has(LOG_ERR, "Failed to get physical disk list from /dev/sdz"));
	EXPECT_EQ(VEXODiskIsRunning(nullptr), 0);
	// Only sysfs was read.
	EXPECT_FALSE(root.exists("/run/vexosim/drive/sda.log"));
}

TEST_F(DiskState, SataSecureEraseAndRawOpen)
{
	EXPECT_EQ(VEXODiskIsSata("/dev/sda"), 1);
	sysfs("sda", "ATAPI", "X", true);
	EXPECT_EQ(VEXODiskIsSata("/dev/sda"), 0);
	sysfs("sda", "SEAGATE", "X", true);
	EXPECT_EQ(VEXODiskIsSata("/dev/sda"), 0);
	EXPECT_EQ(VEXODiskIsSata("/dev/nvme0n1"), 0);
	EXPECT_EQ(VEXODiskIsSata("/dev/sdz"), -1);
	EXPECT_ERR(0x0900);

	EXPECT_EQ(VLIBDiskIsSecureErasing("/dev/sda"), 0);
	root.write(VEXO_SECURE_ERASE_DIR "/sda" VEXO_SECURE_ERASE_SUFFIX, std::to_string(::getpid()));
	EXPECT_EQ(VLIBDiskIsSecureErasing("/dev/sda1"), 1);
	root.write(VEXO_SECURE_ERASE_DIR "/sda" VEXO_SECURE_ERASE_SUFFIX, "garbage");
	VLIBCErrSetEx(0x1234, "before", 1);
	EXPECT_EQ(VLIBDiskIsSecureErasing("sda"), 0);
	EXPECT_ERR(0x1234); // asking left the record alone

	int h = VEXOIDiskRawOpen("/dev/sda3");
	ASSERT_GE(h, 0);
	vexo::dev::close(h);
	EXPECT_NE(root.read("/run/vexosim/drive/sda.log").find("OPEN flags=2048"), std::string::npos);
	EXPECT_EQ(VEXOIDiskRawOpen("/dev/sdz"), -1);
	EXPECT_ERR(0x6C00);
	EXPECT_EQ(VEXOIDiskRawOpen(nullptr), -1);
}

// The flush before a spin-down: FLUSH through HDIO on an ATA disk,
// SYNCHRONIZE CACHE on the SCSI interface, nothing at all on NVMe.
TEST_F(DiskState, FlushBufferByInterface)
{
	EXPECT_EQ(VEXOIDiskFlushBuffer("/dev/sda"), 0); // libata's EINVAL counts as done
	expectSent("sda", {"HDIO_DRIVE_CMD args=null -> errno 22: refused: null argument"});
	node("sda", R"({"protocol":"ata","faults":{"flush":{"errno":"EIO"}}})");
	LogCapture log;
	EXPECT_EQ(VEXOIDiskFlushBuffer("/dev/sda1"), -1);
	EXPECT_ERR(0x6C00);
	EXPECT_TRUE(log.has(LOG_ERR, "Failed to flush the buffer of /dev/sda1")) << log.dump();

	// The virtual edition reaches its disks as SCSI.
	product({{"vvos", "yes"}});
	node("sda", R"({"protocol":"scsi"})");
	EXPECT_EQ(VEXOIDiskFlushBuffer("/dev/sda"), 0);
	expectSent("sda", {"HDIO_DRIVE_CMD args=null -> errno 5", "SG_IO*cdb=35"});

	DiskLayout(root).nvme("nvme0n1", "0000:00:01.2/0000:01:00.0");
	product({{"support_nvme", "yes"}});
	EXPECT_EQ(VEXOIDiskFlushBuffer("/dev/nvme0n1"), -1);
	EXPECT_ERR(0xD900);
	EXPECT_EQ(VEXOIDiskFlushBuffer(nullptr), -1);
	EXPECT_ERR(0x0D00);
	EXPECT_EQ(VEXOIDiskFlushBuffer("/dev/sdz"), -1);
}

TEST_F(DiskState, ActionDatabase)
{
	unsigned flags = 99;
	EXPECT_EQ(VEXODiskConfigDiskActionGet("/dev/sda", &flags), 0); // no database
	EXPECT_EQ(flags, 0u);
	EXPECT_EQ(VEXODiskIsVexology("/dev/sda"), 0);

	actions(R"(<disk pattern="^VEXO" vendor="First" action="0x4000"/>
	           <disk pattern="HAT5300" vendor="Second" action="1"/>
	           <disk model="VEXO HAT5300-8T" vendor="Vexology" action="2097152"/>)");
	EXPECT_EQ(VEXODiskConfigDiskActionGet("/dev/sda", &flags), 0); // the exact model wins
	EXPECT_EQ(flags, 1u << 21);
	EXPECT_EQ(VEXODiskIsVexology("/dev/sda"), 1);
	EXPECT_EQ(VEXODiskConfigVendorMatch("/dev/sda", "vexology"), 0);
	EXPECT_EQ(VEXODiskInSCTCmdBlackList("/dev/sda"), 0);

	sysfs("sda", "ATA", "vexo hat5300-4T", true); // patterns ignore case; the first wins
	EXPECT_EQ(VEXODiskConfigDiskActionGet("/dev/sda", &flags), 0);
	EXPECT_EQ(flags, 0x4000u);
	EXPECT_EQ(VEXODiskInSCTCmdBlackList("/dev/sda"), 1);
	EXPECT_EQ(VEXODiskConfigVendorMatch("/dev/sda", "First"), 1);
	EXPECT_EQ(VEXODiskIsVexology("/dev/sda"), 0);

	sysfs("sda", "ATA", "OTHER 1", true);
	flags = 99;
	EXPECT_EQ(VEXODiskConfigDiskActionGet("/dev/sda", &flags), 0);
	EXPECT_EQ(flags, 0u);

	// The parse is kept while the file stays the same: a rewrite of the
	// same size is seen at once.
	for (unsigned want : {1u, 2u, 2u}) {
		actions("<disk model=\"OTHER 1\" action=\"0x000" + std::to_string(want) + "\"/>");
		EXPECT_EQ(VEXODiskConfigDiskActionGet("/dev/sda", &flags), 0);
		EXPECT_EQ(flags, want);
	}

	LogCapture log;
	root.write("/var/lib/diskaction/diskaction.xml", "<diskaction><disk model=");
	EXPECT_EQ(VEXODiskConfigDiskActionGet("/dev/sda", &flags), -1);
	EXPECT_ERR(0x0A00);
	EXPECT_TRUE(log.has(LOG_ERR, "Failed to parse /var/lib/diskaction/diskaction.xml"));
	root.write("/var/lib/diskaction/diskaction.xml", "<other/>");
	EXPECT_EQ(VEXODiskConfigDiskActionGet("/dev/sda", &flags), -1);
	EXPECT_EQ(VEXODiskConfigDiskActionGet("/dev/sdz", &flags), -1); // no model
	EXPECT_EQ(VEXODiskConfigDiskActionGet(nullptr, &flags), -1);
	EXPECT_EQ(VEXODiskIsVexology(nullptr), 0);
	EXPECT_TRUE(log.has(LOG_ERR, "Invalide input parameters"));
}

TEST_F(DiskState, SctSupportThroughSatIdentify)
{
	tool("/usr/vexo/bin/sg_sat_identify", "cat \"$VEXO_SYSROOT/tmp/identify.out\"");
	root.write("/tmp/identify.out", capture("sg_sat_identify_sct.txt"));
	EXPECT_EQ(VEXODiskSCTCmdSupport("/dev/sda"), 0); // the product says nothing
	EXPECT_TRUE(runs("sg_sat_identify").empty());

	product({{"support_sct_cmd", "yes"}});
	EXPECT_EQ(VEXODiskSCTCmdSupport("/dev/sda"), 1);
	EXPECT_EQ(runs("sg_sat_identify"), std::vector<std::string>{"/dev/sda"});
	root.write("/tmp/identify.out", capture("sg_sat_identify_no_sct.txt"));
	EXPECT_EQ(VEXODiskSCTCmdSupport("/dev/sda"), 0);
	root.write("/tmp/identify.out", "sg_sat_identify: ATA PASS-THROUGH failed\n");
	EXPECT_EQ(VEXODiskSCTCmdSupport("/dev/sda"), -1);

	// Not SATA, or listed: the tool is not run.
	size_t before = runs("sg_sat_identify").size();
	sysfs("sda", "VEXO", "VEXO HAT5300-8T", true);
	EXPECT_EQ(VEXODiskSCTCmdSupport("/dev/sda"), 0);
	sysfs("sda", "ATA", "VEXO HAT5300-8T", true);
	actions(R"(<disk model="VEXO HAT5300-8T" action="0x4000"/>)");
	EXPECT_EQ(VEXODiskSCTCmdSupport("/dev/sda"), 0);
	EXPECT_EQ(runs("sg_sat_identify").size(), before);
	EXPECT_EQ(VEXODiskSCTCmdSupport(nullptr), -1);

	int s = 7;
	EXPECT_EQ(VEXODiskSCTCmdSupportCache("/dev/sda", &s), -1);
	EXPECT_ERR(0x0900);
	root.write("/run/vexostorage/disks/sda/sct_cmd_support", "yes");
	EXPECT_EQ(VEXODiskSCTCmdSupportCache("/dev/sda", &s), -1);
	EXPECT_ERR(0x0A00);
	EXPECT_EQ(s, 7);
	root.write("/run/vexostorage/disks/sda/sct_cmd_support", "1");
	EXPECT_EQ(VEXODiskSCTCmdSupportCache("sda", &s), 0);
	EXPECT_EQ(s, 1);
	root.write("/run/vexostorage/disks/sda/sct_cmd_support", "0");
	EXPECT_EQ(VEXODiskSCTCmdSupportCache("/dev/sda", &s), 0);
	EXPECT_EQ(s, 0);
}

class MaskFlag : public DiskState {
protected:
	void SetUp() override
	{
		DiskState::SetUp();
		actions(R"(<disk model="VEXO HAT5300-8T" vendor="Vexology"/>)");
		// The storage tool's repair: it computes the value and stores it.
		tool("/usr/vexo/sbin/vexostorage",
		     "[ -f \"$VEXO_SYSROOT/tmp/refuse\" ] && exit 1\n"
		     "printf 1 > \"$VEXO_SYSROOT/run/vexostorage/disks/$2/mask_serial\"");
	}
	// Holds the lock in another process for `seconds`, storing value after
	// a moment when it is not negative. Returns once the lock is held.
	pid_t holdLock(double seconds, int value)
	{
		int p[2];
		if (::pipe(p) != 0)
			return -1;
		pid_t pid = ::fork();
		if (pid == 0) {
			int fd = -1;
			if (!VLIBCFileLockTimeByFile("/run/vexostorage/disks/sda/.lock.mask_serial", 1, 1, &fd))
				::_exit(1);
			(void)!::write(p[1], "x", 1);
			::usleep(300000);
			if (value >= 0)
				root.write("/run/vexostorage/disks/sda/mask_serial", std::to_string(value));
			::usleep(static_cast<useconds_t>(seconds * 1e6) - 300000);
			::_exit(0);
		}
		char c;
		(void)!::read(p[0], &c, 1);
		::close(p[0]);
		::close(p[1]);
		return pid;
	}
	static double since(std::chrono::steady_clock::time_point t)
	{
		return std::chrono::duration<double>(std::chrono::steady_clock::now() - t).count();
	}
};

TEST_F(MaskFlag, RepairedByTheStorageTool)
{
	LogCapture log;
	EXPECT_EQ(VEXODiskIsMaskSerial("/dev/sda"), 1);
	EXPECT_EQ(runs("vexostorage"), std::vector<std::string>{"--reset-disk-attr sda serial-mask"});
	EXPECT_TRUE(log.has(LOG_ERR, "Failed to get mask_serial status of /dev/sda, retry it"));
	EXPECT_EQ(root.read("/run/vexostorage/disks/sda/mask_serial"), "1");

	root.remove("/run/vexostorage/disks/sda/mask_serial");
	root.write("/tmp/refuse", "");
	EXPECT_EQ(VEXODiskIsMaskSerial("/dev/sda"), 0);
	EXPECT_TRUE(log.has(LOG_ERR, "Failed to re-set mask_serial status of /dev/sda"));
}

// A cached value answers; SSDs and drives of another vendor are not repaired.
TEST_F(MaskFlag, CachedValueOrNoRepair)
{
	root.write("/run/vexostorage/disks/sda/mask_serial", "1");
	EXPECT_EQ(VEXODiskIsMaskSerial("/dev/sda"), 1);
	root.write("/run/vexostorage/disks/sda/mask_serial", "2");
	EXPECT_EQ(VEXODiskIsMaskSerial("sda"), 0);
	root.remove("/run/vexostorage/disks/sda/mask_serial");
	sysfs("sda", "ATA", "VEXO HAT5300-8T", false);
	EXPECT_EQ(VEXODiskIsMaskSerial("/dev/sda"), 0);
	sysfs("sda", "ATA", "OTHER 1", true);
	EXPECT_EQ(VEXODiskIsMaskSerial("/dev/sda"), 0);
	EXPECT_TRUE(runs("vexostorage").empty());
	EXPECT_EQ(VEXODiskIsMaskSerial(nullptr), 0);
}

// A name that reads as an option never reaches the storage tool.
TEST_F(MaskFlag, OptionLikeNamesRunNothing)
{
	for (const char *path : {"--help", "/dev/-x", "-d"}) {
		const std::string name = std::string(path).substr(path[0] == '/' ? 5 : 0);
		sysfs(name, "ATA", "VEXO HAT5300-8T", true);
		root.diskDir(name);
		VLIBCErrClear();
		EXPECT_EQ(VEXODiskIsMaskSerial(path), 0) << path;
		EXPECT_ERR(0x0D00);
	}
	EXPECT_TRUE(runs("vexostorage").empty());
}

TEST_F(MaskFlag, AnotherProcessRepairsWhileWeWait)
{
	// The holder stores its answer and lets go; we take that answer and
	// run nothing.
	auto t = std::chrono::steady_clock::now();
	pid_t holder = holdLock(1.0, 1);
	ASSERT_GT(holder, 0);
	EXPECT_EQ(VEXODiskIsMaskSerial("/dev/sda"), 1);
	EXPECT_GE(since(t), 0.9);
	EXPECT_LT(since(t), 2.5);
	EXPECT_TRUE(runs("vexostorage").empty());
	int st;
	::waitpid(holder, &st, 0);
}

TEST_F(MaskFlag, LockHeldPastTheWait)
{
	pid_t holder = holdLock(4.5, -1);
	ASSERT_GT(holder, 0);
	LogCapture log;
	auto t = std::chrono::steady_clock::now();
	EXPECT_EQ(VEXODiskIsMaskSerial("/dev/sda"), 0);
	double waited = since(t);
	EXPECT_GE(waited, 2.9);
	EXPECT_LT(waited, 4.4);
	EXPECT_TRUE(runs("vexostorage").empty()); // only the lock holder may repair
	EXPECT_TRUE(log.has(LOG_ERR, "Failed to re-get mask_serial status of /dev/sda"));
	int st;
	::waitpid(holder, &st, 0);
}

} // namespace
