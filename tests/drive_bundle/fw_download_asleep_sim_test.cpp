// Firmware by the database for a drive in standby: judged by the revision
// its cache keeps, asked nothing but its power mode, and the same firmware
// fetched as when it is awake.
#include <algorithm>
#include <syslog.h>
#include <vexohw/disk_enum.h>
#include <vexohw/drive_bundle.h>
#include <vexohw/misc.h>

#include "frame/clock.h"
#include "misc/serve.h"
#include "sim/tools_sim.h"
#include "support/disk_layout.h"
#include "support/sim_daemon.h"

namespace vexo::test {
namespace {

const bool kEmulator = installDriveEmulator();
constexpr const char *kBin = "/var/lib/drive-bundle/firmware/sc61.bin";

struct AsleepDownload : ToolsSim {
	void TearDown() override
	{
		vexo::clock::clearForTest();
		ToolsSim::TearDown();
	}
	// The maker's drive sda at SC60, which its database holds broken with
	// SC61 published, and SC61's signed archive on the box's server.
	void box()
	{
		DiskLayout(root).portMaps("0xff0000", "0x0", "0xff", "",
					  {{"upnpmodelname", "VX1222"}, {"support_disk_compatibility", "yes"},
					   {"unique", "vexo_x86_vx1222"}, {"group_id", "g1"}, {"serial", "S1"}});
		root.conf("/etc.defaults/VERSION", {{"base", "72806"}, {"nano", "3"}});
		DiskLayout(root).sata("sda", 1);
		root.write("/sys/block/sda/device/vendor", "ATA     \n");
		root.write("/sys/block/sda/device/model", "VEXO HAT5300-8T\n");
		root.diskDir("sda");
		root.write("/var/lib/diskaction/diskaction.xml", "<?xml version=\"1.0\"?>\n<diskaction>\n"
				   "<disk model=\"VEXO HAT5300-8T\" vendor=\"Vexology\" action=\"0\"/>\n</diskaction>\n");
		root.mkdirs("/run/lock");
		const std::string db = R"({"disk_compatbility_info":{"VEXO HAT5300-8T":{
 "SC60":{"vos_ver":[],"compatibility_interval":[{"compatibility":"not_support"}],"fw_buildnumber":100,"firm_bin":"sc60.bin"},
 "SC61":{"vos_ver":[],"compatibility_interval":[{"compatibility":"support"}],"fw_buildnumber":110,"firm_bin":"sc61.bin"}}}})";
		root.write("/var/lib/disk-compatibility/vx1222_host_v7.db", db);
		root.write("/var/lib/drive-bundle/diskaction/vx1222_host_v7.db", db);
		vexo::clock::setForTest(1764000000, 50000LL * 1000);
		root.write("/run/vexostorage/.disk_firm_server_visiting_time", "50000");
		root.write("/run/vexostorage/disk_firm_server_info", R"([{"model":"VEXO HAT5300-8T","fw_buildnumber":110}])");
		ASSERT_EQ(runProgram({buildDir() + "/bin/vexo-archive", "keys", root.root()}), 0);
		std::string image = "model=VEXO HAT5300-8T\nfirmware=SC61\n";
		image.resize(1024, '\0');
		root.write("/tmp/kit/firmware/sc61.bin", image);
		std::string sum;
		root.symlink(buildDir() + "/bin/vexosim-tools", "/usr/bin/md5sum");
		runProgram({"md5sum", root.host("/tmp/kit/firmware/sc61.bin")}, &sum);
		root.write("/tmp/kit/firmware/sc61.bin.FW_INFO",
			   "md5sum=\"" + sum.substr(0, 32) + "\"\nmodel=\"VEXO HAT5300-8T\"\nfirmware=\"SC61\"\n");
		root.mkdirs("/srv/vexosim/fw");
		ASSERT_EQ(runProgram({buildDir() + "/bin/vexo-archive", "pack", "7",
				      root.host("/run/vexosim/archive-keys/7.key"), root.host("/srv/vexosim/fw/sc61.sa"),
				      root.host("/tmp/kit/firmware")}),
			  0);
	}
};

TEST_F(AsleepDownload, NoDriveWokenSameFirmwareFetched)
{
	box();
	Serve serve(root);
	ASSERT_GT(serve.port(), 0);
	const std::string size = std::to_string(root.read("/srv/vexosim/fw/sc61.sa").size());
	serve.put("/ssd/v1/getUpdate/VEXO HAT5300-8T.json",
		  "[{\"size_in_bytes\":" + size + ",\"file\":\"" VEXO_FIRMWARE_SERVER_DEFAULT "/fw/sc61.sa\"}]");
	auto fetched = [&] {
		const auto l = lines(root.exists("/run/vexosim/serve.log") ? root.read("/run/vexosim/serve.log") : "");
		return std::count_if(l.begin(), l.end(), [](const std::string &x) { return x.find("/fw/sc61.sa") != std::string::npos; });
	};
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
		root.remove(kBin);
		root.remove("/run/vexostorage/disks/sda/firm");
		if (c.kept)
			root.write("/run/vexostorage/disks/sda/firm", c.kept);
		node("sda", R"({"protocol":"ata","model":"VEXO HAT5300-8T","serial":"ZL2K4T7C","firmware":"SC60",)"
			    R"("power_state":")" + std::string(c.power) + "\"}");
		clearCommands("sda");
		const long before = fetched();
		ASSERT_EQ(VEXODriveBundleFWDownloadByDB(nullptr, "/var/lib/disk-compatibility", 0), 0) << log.dump();
		EXPECT_EQ(fetched() - before, c.fetches);
		EXPECT_EQ(root.exists(kBin), c.fetches == 1);
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
TEST_F(AsleepDownload, DrivesFromTheDaemonsSnapshot)
{
	box();
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
