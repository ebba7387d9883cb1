// VEXODiskTemperatureGet against the emulated drive: each source in its
// turn, the ceiling, the SCSI page rule, and that a disk that isn't running
// or is being erased is not touched at all.
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>
#include <vexohw/disk_state.h>
#include <vexohw/smart_temperature.h>

#include "frame/exec.h"
#include "smartctl/sim_disk.h"
#include "smartctl/smart_util.h"

using namespace vexo::test;

namespace {

const bool kBackend = installDriveEmulator();

// The override is kept by serial, so each call reads the identity.
const std::vector<std::string> kIdentity = {"HDIO_GET_IDENTITY -> ok", "HDIO_DRIVE_CMD args=ec000001 -> ok"};

class Temperature : public SimDisk {
protected:
	void SetUp() override
	{
		SimDisk::SetUp();
		ASSERT_TRUE(kBackend);
		attributes(R"({"id":194,"raw":41},{"id":190,"raw":29})");
		tool("/usr/vexo/bin/sg_raw", "cat \"$VEXO_SYSROOT/tmp/sg_raw.dump\" >&2");
		root.write("/tmp/sg_raw.dump", capture("sg_raw_sct_status.txt"));
	}
	void attributes(const std::string &rows)
	{
		node("sda", R"({"protocol":"ata","serial":"ZL2K4T7C","smart":{"attributes":[{"id":1,"raw":0},)" + rows + "]}}");
	}
	void debugTemperature(const std::string &value)
	{
		product({{"support_disk_status_debug", "yes"}});
		root.write("/tmp/.disk_status_debug", "[OTHER]\ntemp=1\n[ZL2K4T7C]\ntemp=" + value + "\n");
	}
	void sctFlag(int v) { root.write("/run/vexostorage/disks/sda/sct_cmd_support", std::to_string(v)); }
	// bin/vexohw in this root and device backend; its standard output.
	std::string cli(std::vector<std::string> args)
	{
		ScopedEnv noRoot("VEXO_SYSROOT", nullptr); // the CLI's own path is not under the root
		args.insert(args.begin(), buildDir() + "/bin/vexohw");
		vexo::exec::Options o;
		o.env = {"VEXO_SYSROOT=" + root.root()};
		o.timeoutMs = 60000;
		return vexo::exec::run(args, o).out;
	}
};

TEST_F(Temperature, EachSourceInItsTurn)
{
	debugTemperature("77");
	sctFlag(1);
	EXPECT_EQ(VEXODiskTemperatureGet("/dev/sda"), 77);
	EXPECT_TRUE(runs("sg_raw").empty());
	expectSent("sda", kIdentity);

	// No override: the SCT status log, through sg_raw with the exact CDB.
	root.remove("/tmp/.disk_status_debug");
	EXPECT_EQ(VEXODiskTemperatureGet("/dev/sda"), 38);
	ASSERT_EQ(runs("sg_raw").size(), 1u);
	EXPECT_EQ(runs("sg_raw")[0], "-r 512 /dev/sda 85 08 0e 00 00 00 01 00 e0 00 00 00 00 00 2f 00");
	expectSent("sda", kIdentity);

	// SCT not supported by the cached flag, or the file missing: SMART data.
	sctFlag(0);
	EXPECT_EQ(VEXODiskTemperatureGet("sda"), 41);
	EXPECT_EQ(runs("sg_raw").size(), 1u);
	expectSent("sda", {kIdentity[0], kIdentity[1], "HDIO_DRIVE_CMD args=b000d001 -> ok"}); // SMART READ DATA
	root.remove("/run/vexostorage/disks/sda/sct_cmd_support");
	EXPECT_EQ(VEXODiskTemperatureGet("/dev/sda"), 41);

	// SCT answers too hot to believe, or sg_raw prints nothing: SMART data.
	sctFlag(1);
	std::string dump = capture("sg_raw_sct_status.txt");
	root.write("/tmp/sg_raw.dump", dump.replace(dump.find(" c0     ") + 8 + 25, 2, "65"));
	EXPECT_EQ(VEXODiskTemperatureGet("/dev/sda"), 41);
	root.write("/tmp/sg_raw.dump", "");
	EXPECT_EQ(VEXODiskTemperatureGet("/dev/sda"), 41);

	// Without 194 the airflow temperature; without either, nothing.
	attributes(R"({"id":190,"raw":29})");
	EXPECT_EQ(VEXODiskTemperatureGet("/dev/sda"), 29);
	attributes(R"({"id":9,"raw":1200})");
	EXPECT_EQ(VEXODiskTemperatureGet("/dev/sda"), -1);
	// The drive refuses SMART READ DATA (twice: the read has one retry).
	node("sda", R"({"protocol":"ata","faults":{"smart_read_values":{"errno":"EIO"}}})");
	EXPECT_EQ(VEXODiskTemperatureGet("/dev/sda"), -1);
}

TEST_F(Temperature, OverrideThatIsNoNumberCountsAsAbsent)
{
	debugTemperature("99999999999999999999");
	EXPECT_EQ(VEXODiskTemperatureGet("/dev/sda"), 41);
	debugTemperature("hot");
	EXPECT_EQ(VEXODiskTemperatureGet("/dev/sda"), 41);
	debugTemperature("250"); // the ceiling holds for every source
	EXPECT_EQ(VEXODiskTemperatureGet("/dev/sda"), 0);
}

TEST_F(Temperature, AboveTwoHundredReadsAsZero)
{
	attributes(R"({"id":194,"raw":200})");
	EXPECT_EQ(VEXODiskTemperatureGet("/dev/sda"), 200);
	attributes(R"({"id":194,"raw":201})");
	EXPECT_EQ(VEXODiskTemperatureGet("/dev/sda"), 0);
	// Only the first raw byte is the temperature.
	attributes(R"({"id":194,"raw":184683593764})"); // 0x2b00140024: 36, min 20, max 43
	EXPECT_EQ(VEXODiskTemperatureGet("/dev/sda"), 36);
}

TEST_F(Temperature, NotRunningOrErasingLeavesTheDriveAlone)
{
	sctFlag(1);
	debugTemperature("77");
	sysfs("sda", "ATA", "VEXO HAT5300-8T", true, "offline");
	EXPECT_EQ(VEXODiskTemperatureGet("/dev/sda"), -1);
	sysfs("sda", "ATA", "VEXO HAT5300-8T", true, "running");
	root.write(VEXO_SECURE_ERASE_DIR "/sda" VEXO_SECURE_ERASE_SUFFIX, std::to_string(::getpid()) + "\n");
	EXPECT_EQ(VEXODiskTemperatureGet("/dev/sda3"), -1);
	EXPECT_FALSE(root.exists("/run/vexosim/drive/sda.log")); // not even opened
	EXPECT_TRUE(runs("sg_raw").empty());

	// A marker whose eraser is gone does not count.
	pid_t dead = ::fork();
	if (dead == 0)
		::_exit(0);
	ASSERT_GT(dead, 0);
	int st;
	::waitpid(dead, &st, 0);
	root.write(VEXO_SECURE_ERASE_DIR "/sda" VEXO_SECURE_ERASE_SUFFIX, std::to_string(dead) + "\n");
	EXPECT_EQ(VEXODiskTemperatureGet("/dev/sda"), 77);
	EXPECT_EQ(VEXODiskTemperatureGet(nullptr), -1);
}

TEST_F(Temperature, ScsiLogPage)
{
	product({{"vvos", "yes"}});
	node("sda", R"({"protocol":"scsi","temperature":45})");
	EXPECT_EQ(VEXODiskTemperatureGet("/dev/sda"), 45);
	expectSent("sda", {"SG_IO*cdb=4d004d00000000001000 -> ok"});

	// Zero is zero only on the temperature page itself.
	node("sda", R"({"protocol":"scsi","scsi":{"log_pages":{"0x0d":"0d00000c00000200000000010002003c"}}})");
	EXPECT_EQ(VEXODiskTemperatureGet("/dev/sda"), 0);
	LogCapture log;
	node("sda", R"({"protocol":"scsi","scsi":{"log_pages":{"0x0d":"4e00000c00000200000000010002003c"}}})");
	EXPECT_EQ(VEXODiskTemperatureGet("/dev/sda"), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "Invaild SMART log page: 4e")) << log.dump();
	node("sda", R"({"protocol":"scsi","scsi":{"log_pages":{"0x0d":"0d00000c000002000000d2010002003c"}}})");
	EXPECT_EQ(VEXODiskTemperatureGet("/dev/sda"), 0); // 210
	node("sda", R"({"protocol":"scsi","faults":{"log_sense":{"errno":"EIO"}}})");
	EXPECT_EQ(VEXODiskTemperatureGet("/dev/sda"), -1);
}

TEST_F(Temperature, NvmeHealthLog)
{
	DiskLayout(root).nvme("nvme0n1", "0000:00:01.0");
	node("nvme0n1", R"({"protocol":"nvme","serial":"22514D800394","temperature":38})");
	EXPECT_EQ(VEXODiskTemperatureGet("/dev/nvme0n1"), 38);
	expectSent("nvme0n1", {"NVME_ADMIN opcode=0x02*cdw10=0x007f0002*data_len=512*-> ok"}); // SMART / Health log
	node("nvme0n1", R"({"protocol":"nvme","serial":"22514D800394","temperature":201})");
	EXPECT_EQ(VEXODiskTemperatureGet("/dev/nvme0n1"), 0);
	node("nvme0n1", R"({"protocol":"nvme","faults":{"nvme_get_log_page":{"errno":"EIO"}}})");
	EXPECT_EQ(VEXODiskTemperatureGet("/dev/nvme0n1"), -1);
	EXPECT_TRUE(runs("sg_raw").empty());
}

TEST_F(Temperature, CliNamesTheSource)
{
	EXPECT_NE(cli({"--json", "smart", "temp", "sda"}).find("\"temperature_c\": 41,\n  \"source\": \"smart_data\""),
		  std::string::npos);
	sctFlag(1);
	EXPECT_NE(cli({"smart", "temp", "/dev/sda"}).find("sct_status_log"), std::string::npos);
	debugTemperature("77");
	EXPECT_NE(cli({"--json", "smart", "temp", "sda"}).find("\"temperature_c\": 77,\n  \"source\": \"debug_override\""),
		  std::string::npos);
	sysfs("sda", "ATA", "VEXO HAT5300-8T", true, "offline");
	EXPECT_NE(cli({"--json", "smart", "temp", "sda"}).find("\"temperature_c\": null,\n  \"source\": \"not_running\""),
		  std::string::npos);
	DiskLayout(root).nvme("nvme0n1", "0000:00:01.0");
	node("nvme0n1", R"({"protocol":"nvme","temperature":38})");
	EXPECT_NE(cli({"smart", "temp", "nvme0n1"}).find("nvme_health_log"), std::string::npos);
	EXPECT_NE(cli({"--json", "disk", "serial", "sda"}).find("\"serial\": \"ZL2K4T7C\",\n  \"firmware\": \"VX01\""),
		  std::string::npos);
}

TEST_F(Temperature, FromCache)
{
	EXPECT_EQ(VEXODiskTemperatureGetFromCache("sda"), -1);
	EXPECT_ERR(0x0900);
	root.write("/run/vexostorage/disks/sda/temperature", "43\nstale");
	EXPECT_EQ(VEXODiskTemperatureGetFromCache("sda"), 43);
	EXPECT_EQ(VEXODiskTemperatureGetFromCache("/dev/sda"), 43);
	root.write("/run/vexostorage/disks/sda/temperature", "");
	EXPECT_EQ(VEXODiskTemperatureGetFromCache("sda"), -1);
	EXPECT_ERR(0x0A00);
	EXPECT_EQ(VEXODiskTemperatureGetFromCache(nullptr), -1);
}

} // namespace
