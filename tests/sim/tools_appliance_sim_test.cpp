// The appliance's tools and the drive emulator: vexostorage's serial-mask
// reset, dhm_tool's health line, the library reading through smartctl and
// sg_raw, and self-tests run in the drive's state.
#include <cstring>
#include <ctime>
#include <json-c/json.h>
#include <linux/hdreg.h>
#include <scsi/sg.h>
#include <vexohw/frame.h>
#include <vexohw/smart_info.h>
#include <vexohw/smart_temperature.h>
#include <vexohw/smartctl.h>

#include "sim/tools_sim.h"
#include "smartctl/drive_sim.h"
#include "smartctl/smart_util.h"

using namespace vexo::test;

namespace {

const bool kBackend = installDriveEmulator();

using ApplianceTools = ToolsSim;

// The value lands where the library's reader finds it, written by the
// library's own writer; a missing node or a bad call writes nothing.
TEST_F(ApplianceTools, VexostorageResetsSerialMask)
{
	root.diskDir("sda");
	root.diskDir("sdb");
	root.diskDir("sdc");
	node("sda", R"({"protocol":"ata","mask_serial":true})");
	node("sdb", R"({"protocol":"ata"})");
	const std::vector<std::vector<std::string>> bad = {
		{},
		{"--reset-disk-attr", "sda", "serial"},
		{"--reset-disk-attr", "sda", "serial-mask", "extra"},
		{"--reset-disk-attr", "../sda", "serial-mask"},
		{"--hotspare", "-q", "sda"},
		{"--hotspare", "-n", "/dev/../sda"},
	};
	for (auto argv : bad) {
		argv.insert(argv.begin(), "/usr/vexo/sbin/vexostorage");
		ToolRun r = run(argv);
		EXPECT_EQ(r.status, 2) << argv.size();
		EXPECT_EQ(r.err, "Usage: vexostorage --reset-disk-attr <disk name> serial-mask\n"
				 "       vexostorage --hotspare -n /dev/<disk name>\n");
	}
	EXPECT_FALSE(root.exists("/run/vexostorage/disks/sda/mask_serial"));
	for (auto [name, want] : {std::pair{"sda", 1}, std::pair{"sdb", 0}}) {
		ToolRun r = run({"/usr/vexo/sbin/vexostorage", "--reset-disk-attr", name, "serial-mask"});
		EXPECT_EQ(r.status, 0) << r.err;
		EXPECT_EQ(root.read(std::string("/run/vexostorage/disks/") + name + "/mask_serial"), std::to_string(want));
		int v = -1;
		EXPECT_EQ(VEXODiskGetIntValueCacheFile((std::string("/dev/") + name).c_str(), "mask_serial", &v), 0);
		EXPECT_EQ(v, want);
	}
	ToolRun r = run({"/usr/vexo/sbin/vexostorage", "--reset-disk-attr", "sdc", "serial-mask"});
	EXPECT_EQ(r.status, 1);
	EXPECT_EQ(r.err, "vexostorage: /dev/sdc: No such file or directory\n");
	EXPECT_FALSE(root.exists("/run/vexostorage/disks/sdc/mask_serial"));
	// A health notice for a disk there is, and none for one that isn't.
	root.mkdirs("/tmp");
	root.mkdirs("/sys/block/sda");
	EXPECT_EQ(run({"/usr/vexo/sbin/vexostorage", "--hotspare", "-n", "/dev/sda"}).status, 0);
	EXPECT_EQ(run({"/usr/vexo/sbin/vexostorage", "--hotspare", "-n", "/dev/sdz"}).status, 1);
	EXPECT_EQ(root.read("/tmp/vexosim_hotspare"), "health /dev/sda\n");
}

// The product line by exit status; "busy" answers 16 (try again) that many
// times, counting down in the node, before the answer. A node the library
// names may be the generic one: the drive is the disk beside it in sysfs.
TEST_F(ApplianceTools, DhmToolLines)
{
	struct Case {
		const char *health;
		std::vector<int> statuses;
	} cases[] = {
		{R"({"line":1})", {50, 50}},
		{R"({"line":0})", {0}},
		{R"({"line":1,"busy":2})", {16, 16, 50, 50}},
	};
	for (const Case &c : cases) {
		SCOPED_TRACE(c.health);
		root.remove("/dev/sg0");
		root.write("/dev/sg0", std::string(R"({"protocol":"ata","health_tool":)") + c.health + "}");
		for (int want : c.statuses)
			EXPECT_EQ(run({"/usr/vexo/sbin/dhm_tool", "-d", "/dev/sg0", "-w"}).status, want);
	}
	EXPECT_NE(root.read("/dev/sg0").find("\"busy\":0"), std::string::npos) << root.read("/dev/sg0");

	const std::string dev = "/sys/devices/pci0000:00/0000:00:17.0/ata1/host0/target0:0:0/0:0:0:0";
	root.write(dev + "/scsi_generic/sg3/dev", "21:3\n");
	root.write(dev + "/block/sdd/size", "100\n");
	root.symlink("../../devices/pci0000:00/0000:00:17.0/ata1/host0/target0:0:0/0:0:0:0/scsi_generic/sg3",
		     "/sys/class/scsi_generic/sg3");
	node("sdd", R"({"protocol":"ata","health_tool":{"line":2,"busy":1}})");
	EXPECT_EQ(run({"/usr/vexo/sbin/dhm_tool", "-d", "/dev/sg3", "-w"}).status, 16);
	EXPECT_EQ(run({"/usr/vexo/sbin/dhm_tool", "-d", "/dev/sg3", "-w"}).status, 51);

	ToolRun r = run({"/usr/vexo/sbin/dhm_tool", "-d", "/dev/sg9", "-w"});
	EXPECT_EQ(r.status, 1);
	EXPECT_EQ(r.err, "dhm_tool: /dev/sg9: No such device\n");
	for (std::vector<std::string> argv : std::vector<std::vector<std::string>>{
		     {"-d", "/dev/sg3"}, {"-w"}, {"-d", "sg3", "-w"}, {"-d", "/dev/../sg3", "-w"}, {"-x"}}) {
		argv.insert(argv.begin(), "/usr/vexo/sbin/dhm_tool");
		EXPECT_EQ(run(argv).status, 2) << argv[1];
	}
}

// The library reading drives through the distribution's tools, as on the
// appliance: the attribute list from smartctl's table (the temperature's raw
// value is printed as several words, of which the first is kept), the SCT
// temperature from sg_raw's dump.
using LibraryThroughTools = ToolsSim;

TEST_F(LibraryThroughTools, AttributeListFromSmartctl)
{
	node("sda", R"({"protocol":"ata","smart":{"attributes":[
		{"id":5,"flags":51,"value":1,"worst":1,"threshold":36,"raw":4095},
		{"id":3,"flags":39,"value":100,"worst":20,"threshold":25,"raw":38928978},
		{"id":194,"flags":34,"value":45,"worst":58,"threshold":0,"raw":47244640301},
		{"id":240,"flags":0,"value":100,"worst":253,"threshold":0,"raw":5185}]}})");
	// id name value worst threshold raw status: failing now, failed in the past, good
	const std::vector<std::string> want = {"5 Reallocated_Sector_Ct 001 001 036 4095 2", "3 Spin_Up_Time 100 020 025 594 1",
					       "194 Temperature_Celsius 045 058 000 45 0", "240 Head_Flying_Hours 100 253 000 5185 0"};
	for (const char *type : {"sat", "ata", "marvell"}) {
		ListGuard g;
		ASSERT_EQ(AtaSmartInfoGet("/dev/sda", type, &g.l), 0) << type;
		EXPECT_EQ(rows(g.l), want) << type;
	}
}

TEST_F(LibraryThroughTools, SctTemperatureFromSgRaw)
{
	root.diskDir("sda");
	root.write("/run/vexostorage/disks/sda/sct_cmd_support", "1");
	for (int t : {47, 100, 101}) {
		SCOPED_TRACE(t);
		root.remove("/dev/sda");
		node("sda", R"({"protocol":"ata","temperature":)" + std::to_string(t) + "}");
		EXPECT_EQ(VEXODiskSCTTemperatureGet("/dev/sda"), t <= 100 ? t : -1);
	}
	EXPECT_NE(last("sda").find("cdb=85080e0000000100e000000000002f00 -> ok"), std::string::npos) << last("sda");
}

// Self-tests in the drive emulator: SMART EXECUTE OFF-LINE IMMEDIATE runs
// them in the drive's state, and the library's reads see them: the
// execution status in the SMART data page, the history in logs 6 and 7.
class SelfTest : public DriveSim {
protected:
	void SetUp() override
	{
		DriveSim::SetUp();
		ports(false);
		host("sda", "ahci");
		node("sda", kAtaNode);
		fd = open("sda");
		ASSERT_GE(fd, 0);
	}

	// SMART EXECUTE OFF-LINE IMMEDIATE through HDIO_DRIVE_CMD.
	int hdio(uint8_t subcommand, uint8_t count = 0)
	{
		uint8_t args[4 + 512] = {0xB0, subcommand, 0xD4, count};
		return vexo::dev::ioctl(fd, HDIO_DRIVE_CMD, args);
	}
	// The same as a non-data ATA PASS-THROUGH(16); the SCSI status byte.
	int sat(uint8_t subcommand, uint8_t count = 0)
	{
		uint8_t cdb[16] = {0x85, 0x06, 0x0C, 0, 0xD4, 0, count, 0, subcommand, 0, 0x4F, 0, 0xC2, 0, 0xB0, 0};
		uint8_t sense[32] = {};
		sg_io_hdr_t h{};
		h.interface_id = 'S';
		h.cmd_len = 16;
		h.cmdp = cdb;
		h.mx_sb_len = sizeof(sense);
		h.sbp = sense;
		h.dxfer_direction = SG_DXFER_NONE;
		h.timeout = 20000;
		if (vexo::dev::ioctl(fd, SG_IO, &h) != 0)
			return -1;
		return h.status;
	}
	int executionStatus()
	{
		unsigned char v[512];
		return SmartDataRead("/dev/sda", v, nullptr) == 0 ? v[363] : -1;
	}
	// SMART log 6 (as CMD_SMART_READ_SELFTEST_LOG reads it).
	std::vector<uint8_t> log6()
	{
		std::vector<uint8_t> p(512, 0);
		EXPECT_EQ(ata_command_interface(fd, CMD_SMART_READ_SELFTEST_LOG, p.data()), 0);
		EXPECT_EQ(VEXOSmartChecksum(p.data()), 0);
		return p;
	}
	// GPL log 7, through READ LOG EXT.
	std::vector<uint8_t> log7()
	{
		std::vector<uint8_t> p(512, 0);
		EXPECT_EQ(SMARTReadLogExt(fd, 0, 1, 7, 0, p.data()), 0);
		EXPECT_EQ(VEXOSmartChecksum(p.data()), 0);
		return p;
	}
	// Moves the running test's start `seconds` into the past.
	void startedAgo(int seconds)
	{
		json_object *n = json_tokener_parse(root.read("/dev/sda").c_str());
		json_object *smart = json_object_object_get(n, "smart");
		json_object *run = json_object_object_get(smart, "running_self_test");
		ASSERT_TRUE(run);
		json_object_object_add(run, "started", json_object_new_int64(std::time(nullptr) - seconds));
		root.write("/dev/sda", json_object_to_json_string(n));
		json_object_put(n);
	}
	int selfTestCount()
	{
		json_object *n = json_tokener_parse(root.read("/dev/sda").c_str());
		json_object *t = json_object_object_get(n, "self_tests");
		int count = t ? static_cast<int>(json_object_array_length(t)) : 0;
		json_object_put(n);
		return count;
	}

	int fd = -1;
};

// Log 6 descriptor i (24 bytes from byte 2), log 7 descriptor i (26 from byte 4).
const uint8_t *d6(const std::vector<uint8_t> &p, int i) { return p.data() + 2 + 24 * i; }
const uint8_t *d7(const std::vector<uint8_t> &p, int i) { return p.data() + 4 + 26 * i; }
// The first two bytes of a descriptor: the test's type and its status.
std::pair<int, int> typeAndStatus(const uint8_t *d) { return {d[0], d[1]}; }

TEST_F(SelfTest, OfflineShortTestRunsByTheClock)
{
	ASSERT_TRUE(kBackend);
	ASSERT_EQ(hdio(0x01), 0);
	EXPECT_EQ(last("sda"), "HDIO_DRIVE_CMD args=b001d400 -> ok");
	EXPECT_EQ(executionStatus(), 0xF9); // just begun: 90% or more to go
	startedAgo(60);
	EXPECT_EQ(executionStatus(), 0xF5); // one of its two minutes gone
	EXPECT_EQ(selfTestCount(), 0);
	startedAgo(120);
	EXPECT_EQ(executionStatus(), 0x00);

	auto l6 = log6();
	EXPECT_EQ(l6[508], 1);     // index of the newest descriptor
	EXPECT_EQ(d6(l6, 0)[0], 1); // short, off-line
	EXPECT_EQ(std::memcmp(d6(l6, 0) + 5, "\xff\xff\xff\xff", 4), 0);
	auto l7 = log7();
	EXPECT_EQ(l7[2], 1);
	EXPECT_EQ(typeAndStatus(d7(l7, 0)), std::pair(1, 0x00));
	EXPECT_EQ(selfTestCount(), 1);
}

TEST_F(SelfTest, CaptiveEndsAtOnceAndAbortIsLogged)
{
	node("sda", R"({"protocol":"ata","smart":{"extended_test_minutes":600,
		"attributes":[{"id":9,"flags":18,"value":90,"worst":90,"raw":1234}]}})");
	ASSERT_EQ(hdio(0x82), 0); // extended, captive
	EXPECT_EQ(executionStatus(), 0x00);
	ASSERT_EQ(hdio(0x02), 0); // extended, off-line
	startedAgo(6 * 60);       // 6 of 600 minutes: 99% to go
	EXPECT_EQ(executionStatus(), 0xF9);
	ASSERT_EQ(hdio(0x7F), 0);
	EXPECT_EQ(executionStatus(), 0x19); // aborted by host, 90% left

	auto l6 = log6();
	EXPECT_EQ(l6[508], 2);
	EXPECT_EQ(typeAndStatus(d6(l6, 1)), std::pair(0x02, 0x19)); // the newest
	EXPECT_EQ(d6(l6, 1)[2] | d6(l6, 1)[3] << 8, 1234);
	auto l7 = log7();
	EXPECT_EQ(l7[2], 2);
	EXPECT_EQ(typeAndStatus(d7(l7, 1)), std::pair(0x02, 0x19));

	// An abort with nothing running changes nothing.
	ASSERT_EQ(hdio(0x7F), 0);
	EXPECT_EQ(selfTestCount(), 2);
	EXPECT_EQ(executionStatus(), 0x19);
	// The extended time above 254 minutes stands in bytes 375-376.
	unsigned char v[512];
	ASSERT_EQ(SmartDataRead("/dev/sda", v, nullptr), 0);
	EXPECT_EQ(v[373], 0xFF);
	EXPECT_EQ(v[375] | v[376] << 8, 600);
}

TEST_F(SelfTest, ANewTestAbortsTheRunningOne)
{
	ASSERT_EQ(sat(0x01), 0);
	ASSERT_EQ(sat(0x03), 0); // conveyance replaces the short test
	EXPECT_EQ(executionStatus(), 0xF9);
	unsigned char v[512];
	ASSERT_EQ(SmartDataRead("/dev/sda", v, nullptr), 0);
	EXPECT_EQ(v[374], 5); // conveyance minutes
	auto l7 = log7();
	EXPECT_EQ(l7[2], 1);
	EXPECT_EQ(typeAndStatus(d7(l7, 0)), std::pair(0x01, 0x19));
	startedAgo(5 * 60);
	EXPECT_EQ(executionStatus(), 0x00);
	l7 = log7();
	EXPECT_EQ(l7[2], 2);
	EXPECT_EQ(typeAndStatus(d7(l7, 1)), std::pair(0x03, 0x00));
}

TEST_F(SelfTest, MalformedAndUnsupportedRequestsAreRefused)
{
	// A non-data command with a sector count, by either road.
	const std::string counted = "abort: SMART EXECUTE OFF-LINE IMMEDIATE with a sector count";
	EXPECT_EQ(hdio(0x01, 1), -1);
	EXPECT_NE(last("sda").find(counted), std::string::npos) << last("sda");
	EXPECT_EQ(sat(0x01, 1), 0x02);
	EXPECT_NE(last("sda").find(counted), std::string::npos) << last("sda");
	EXPECT_EQ(hdio(0x84), -1);
	EXPECT_NE(last("sda").find("selective self-test is not emulated"), std::string::npos);
	EXPECT_EQ(hdio(0x55), -1);
	EXPECT_NE(last("sda").find("unsupported SMART EXECUTE OFF-LINE IMMEDIATE subcommand"), std::string::npos);
	EXPECT_EQ(hdio(0x00), 0); // off-line data collection: accepted, nothing to log
	EXPECT_EQ(selfTestCount(), 0);
	EXPECT_EQ(executionStatus(), 0x00);

	node("sda", R"({"protocol":"ata","smart":{"enabled":false}})");
	EXPECT_EQ(hdio(0x81), -1);
	EXPECT_NE(last("sda").find("SMART is disabled"), std::string::npos);
	EXPECT_EQ(selfTestCount(), 0);
}

TEST_F(SelfTest, Log6ShowsTheNewestTwentyOne)
{
	std::string tests;
	for (int i = 0; i < 21; ++i)
		tests += std::string(i ? "," : "") + R"({"type":1,"status":0,"hours":)" + std::to_string(100 - i) + "}";
	node("sda", R"({"protocol":"ata","self_tests":[)" + tests + "]}");
	ASSERT_EQ(hdio(0x81), 0);
	EXPECT_EQ(selfTestCount(), 22); // the extended log holds more
	auto l6 = log6();
	EXPECT_EQ(l6[508], 21);
	EXPECT_EQ(d6(l6, 20)[0], 0x81);               // newest
	EXPECT_EQ(d6(l6, 19)[2], 100);                 // the newest of the old ones
	EXPECT_EQ(d6(l6, 0)[2], 100 - 19);             // the oldest kept; hours 80 fell out
}

} // namespace
