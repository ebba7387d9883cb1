// The NVMe admin calls against the drive emulator: the commands they send,
// byte for byte, what they make of the answers, and the statuses the
// emulated controller gives to malformed commands.
#include <cstring>
#include <ctime>
#include <linux/nvme_ioctl.h>
#include <sys/ioctl.h>
#include <syslog.h>
#include <vexoplatform/nvme_admin.h>

#include "platform/nvme/nvme_admin_command.h"
#include "smartctl/drive_sim.h"

using namespace vexo::test;

namespace {

const bool kBackend = installDriveEmulator();

// The identity of the first M.2 drive of the demo box.
const char *kNvmeNode = R"({"protocol":"nvme","model":"WD NV700 500GB","serial":"22514D800394",
 "firmware":"111150WD","size_bytes":500107862016,"logical_block_size":512,"temperature":38,
 "nvme":{"vid":5559,"ssvid":5559}})";

const std::string kIdentifyLine =
	"NVME_ADMIN opcode=0x06 flags=0x00 nsid=0x00000000 cdw2=0x00000000 cdw3=0x00000000 cdw10=0x00000001 "
	"cdw11=0x00000000 cdw12=0x00000000 cdw13=0x00000000 cdw14=0x00000000 cdw15=0x00000000 data_len=4096 "
	"metadata_len=0 addr=set -> ok";

// The Get Log Page line for page lid and data_len bytes, without its outcome.
std::string logLine(unsigned lid, unsigned len)
{
	char b[320];
	unsigned numd = len / 4 - 1;
	std::snprintf(b, sizeof(b),
		      "NVME_ADMIN opcode=0x02 flags=0x00 nsid=0xffffffff cdw2=0x00000000 cdw3=0x00000000 cdw10=0x%08x "
		      "cdw11=0x%08x cdw12=0x00000000 cdw13=0x00000000 cdw14=0x00000000 cdw15=0x00000000 data_len=%u "
		      "metadata_len=0 addr=set",
		      (numd & 0xFFFF) << 16 | lid, numd >> 16, len);
	return b;
}

class NvmeAdmin : public DriveSim {
protected:
	void SetUp() override
	{
		DriveSim::SetUp();
		node("nvme0n1", kNvmeNode);
	}
	// The node with its "nvme" object replaced, and more keys after it.
	void nvmeKeys(const std::string &keys, const std::string &extra = "")
	{
		const std::string n = kNvmeNode;
		node("nvme0n1", n.substr(0, n.rfind("\"nvme\":") + 7) + keys + extra + "}");
	}
	static nvme_admin_cmd cmd(uint8_t opcode, uint32_t nsid, uint32_t cdw10, std::vector<uint8_t> &buf)
	{
		nvme_admin_cmd c{};
		c.opcode = opcode;
		c.nsid = nsid;
		c.cdw10 = cdw10;
		c.addr = buf.empty() ? 0 : reinterpret_cast<uintptr_t>(buf.data());
		c.data_len = static_cast<uint32_t>(buf.size());
		return c;
	}
	int run(nvme_admin_cmd &c) { return vexo::dev::ioctl(open("nvme0n1"), NVME_IOCTL_ADMIN_CMD, &c); }
	int selfTest(unsigned code)
	{
		std::vector<uint8_t> none;
		nvme_admin_cmd c = cmd(0x14, 0xFFFFFFFF, code, none);
		return run(c);
	}
	std::vector<uint8_t> selfTestLog()
	{
		std::vector<uint8_t> log(564, 0xEE);
		EXPECT_EQ(VEXONVMeLogGet("/dev/nvme0n1", 6, log.data(), log.size()), 0);
		return log;
	}
};

TEST_F(NvmeAdmin, IdentityFromIdentifyController)
{
	ASSERT_TRUE(kBackend);
	char model[41], fw[9], sn[21], vendor[32];
	// Paths to the namespace or its partitions are reduced to the namespace.
	for (const char *p : {"nvme0n1", "/dev/nvme0n1", "nvme0n1p2", "/dev/nvme0n1p12"}) {
		ASSERT_EQ(VEXONVMeDiskModelGet(p, model, sizeof(model)), 0) << p;
		EXPECT_STREQ(model, "WD NV700 500GB");
	}
	ASSERT_EQ(VEXONVMeFirmAndSerialRead("nvme0n1", fw, sizeof(fw), sn, sizeof(sn)), 0);
	EXPECT_STREQ(fw, "111150WD");
	EXPECT_STREQ(sn, "22514D800394");
	ASSERT_EQ(VEXONVMeDiskVendorGet("/dev/nvme0n1", vendor, sizeof(vendor)), 0);
	EXPECT_STREQ(vendor, "Western Digital");
	// One Identify Controller each, to the namespace node, nothing else.
	expectSent("nvme0n1", std::vector<std::string>(6, kIdentifyLine));
	EXPECT_EQ(VLIBCErrGet(), 0);
}

TEST_F(NvmeAdmin, TemperatureFromHealthLog)
{
	EXPECT_EQ(VEXONVMeTemperatureGet("/dev/nvme0n1"), 38);
	expectSent("nvme0n1", {logLine(0x02, 512) + " -> ok"});

	struct {
		int kelvin, celsius;
	} cases[] = {{273, 0}, {274, 1}, {272, -1}, {1, -272}, {0xFFFF, 0xFFFF - 273}};
	for (const auto &c : cases) {
		nvmeKeys(R"({"temperature_kelvin":)" + std::to_string(c.kelvin) + "}");
		EXPECT_EQ(VEXONVMeTemperatureGet("nvme0n1"), c.celsius) << c.kelvin << " K";
	}

	LogCapture log;
	VLIBCErrClear();
	nvmeKeys(R"({"temperature_kelvin":0})");
	EXPECT_EQ(VEXONVMeTemperatureGet("/dev/nvme0n1"), -1);
	EXPECT_ERR(VEXO_ERR_UNSUPPORTED);
	EXPECT_TRUE(log.has(LOG_ERR, "/dev/nvme0n1 reports no composite temperature"));
}

TEST_F(NvmeAdmin, ControllerStatusIsAFailure)
{
	LogCapture log;
	nvmeKeys(R"({})", R"(,"faults":{"nvme_get_log_page":{"abort":true,"times":1}})");
	EXPECT_EQ(VEXONVMeTemperatureGet("/dev/nvme0n1"), -1);
	EXPECT_ERR(VEXO_ERR_DEVICE);
	EXPECT_TRUE(log.has(LOG_ERR, "NVMe log page 0x2 of /dev/nvme0n1 failed with status 0x6 (Internal Error)"))
		<< log.dump();
	expectSent("nvme0n1", {logLine(0x02, 512) + " -> status 0x0006: injected abort nvme_get_log_page"});
	EXPECT_EQ(VEXONVMeTemperatureGet("/dev/nvme0n1"), 38); // the fault was spent

	// A page the drive does not keep: Invalid Log Page, with Do Not Retry.
	uint8_t buf[64];
	std::memset(buf, 0x77, sizeof(buf));
	VLIBCErrClear();
	EXPECT_EQ(VEXONVMeLogGet("nvme0n1", 0x42, buf, sizeof(buf)), -1);
	EXPECT_ERR(VEXO_ERR_DEVICE);
	EXPECT_TRUE(log.has(LOG_ERR, "NVMe log page 0x42 of /dev/nvme0n1 failed with status 0x4109 (Invalid Log Page)"));
	EXPECT_EQ(buf[0], 0x77);

	// The ioctl itself failing.
	nvmeKeys(R"({})", R"(,"faults":{"nvme_identify":{"errno":"EIO"}})");
	char model[41] = "untouched";
	VLIBCErrClear();
	EXPECT_EQ(VEXONVMeDiskModelGet("/dev/nvme0n1", model, sizeof(model)), -1);
	EXPECT_ERR(VEXO_ERR_DEVICE);
	EXPECT_STREQ(model, "untouched");
	EXPECT_TRUE(log.has(LOG_ERR, "NVMe identify controller of /dev/nvme0n1 failed, errno=Input/output error"));
}

TEST_F(NvmeAdmin, PathsThatAreNoNamespaceAreRefused)
{
	char model[41];
	LogCapture log;
	for (const char *p : {"/dev/sda2", "nvme0n0", "nvmeXn1", "/dev/nvme0n1/x", ""}) {
		VLIBCErrClear();
		EXPECT_EQ(VEXONVMeDiskModelGet(p, model, sizeof(model)), -1) << p;
		EXPECT_ERR(VEXO_ERR_BAD_PARAM);
	}
	EXPECT_TRUE(log.has(LOG_ERR, "/dev/sda2 is not an NVMe device"));
	EXPECT_EQ(VEXONVMeFirmAndSerialRead("nvme0n1", model, 9, nullptr, 21), -1);
	expectSent("nvme0n1", {}); // nothing reached the drive
}

TEST_F(NvmeAdmin, LogGetLengths)
{
	uint8_t buf[4096];
	ASSERT_EQ(VEXONVMeLogGet("nvme0n1", 0x06, buf, 564), 0);
	expectSent("nvme0n1", {"NVME_ADMIN opcode=0x02*cdw10=0x008c0006 cdw11=0x00000000*data_len=564*-> ok"});

	// Five bytes: two dwords on the wire, five bytes written.
	std::memset(buf, 0xEE, sizeof(buf));
	ASSERT_EQ(VEXONVMeLogGet("nvme0n1", 0x03, buf, 5), 0);
	expectSent("nvme0n1", {logLine(0x03, 8) + " -> ok"});
	EXPECT_EQ(buf[0], 0x01); // active slot 1
	EXPECT_EQ(buf[5], 0xEE);

	LogCapture log;
	for (unsigned len : {0u, 4097u}) {
		VLIBCErrClear();
		EXPECT_EQ(VEXONVMeLogGet("nvme0n1", 0x02, buf, len), -1) << len;
		EXPECT_ERR(VEXO_ERR_BAD_PARAM);
	}
	EXPECT_EQ(VEXONVMeLogGet("nvme0n1", 0x100, buf, 512), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "Bad parameters: log page 0x100, 512 bytes"));
	expectSent("nvme0n1", {});
}

TEST_F(NvmeAdmin, SelfTestShowsInLog6)
{
	std::vector<uint8_t> log = selfTestLog();
	EXPECT_EQ(log[0], 0);
	EXPECT_EQ(log[1], 0);
	EXPECT_EQ(log[4], 0x0F); // no result yet

	// A short test runs; a second start is refused until it is aborted.
	ASSERT_EQ(selfTest(1), 0);
	log = selfTestLog();
	EXPECT_EQ(log[0], 1);
	EXPECT_LT(log[1], 100);
	EXPECT_EQ(selfTest(2), 0x11D);
	ASSERT_EQ(selfTest(0xF), 0);
	log = selfTestLog();
	EXPECT_EQ(log[0], 0);
	EXPECT_EQ(log[4], 0x11);                  // short, aborted by the host
	EXPECT_EQ(log[4 + 4], 1234 & 0xFF);       // power-on hours at the end
	EXPECT_EQ(log[4 + 28], 0x0F);

	// An extended test half way through its 30 minutes, then done.
	nvmeKeys(R"({"power_on_hours":4000,"self_tests":[{"type":1,"result":1,"hours":3990}],
 "running_self_test":{"type":2,"started":)" +
		 std::to_string(std::time(nullptr) - 900) + "}}");
	log = selfTestLog();
	EXPECT_EQ(log[0], 2);
	EXPECT_GE(log[1], 49);
	EXPECT_LE(log[1], 51);
	nvmeKeys(R"({"power_on_hours":4000,"extended_test_minutes":0,"self_test_result":7,
 "self_tests":[{"type":1,"result":1,"hours":3990}],"running_self_test":{"type":2,"started":0}})");
	log = selfTestLog();
	EXPECT_EQ(log[0], 0);
	EXPECT_EQ(log[4], 0x27);
	EXPECT_EQ(log[4 + 4] | log[4 + 5] << 8, 4000);
	EXPECT_EQ(log[4 + 28], 0x11);
	EXPECT_EQ(log[4 + 28 + 4] | log[4 + 28 + 5] << 8, 3990);
	// The end is kept in the node: a new test may start.
	EXPECT_EQ(root.read("/dev/nvme0n1").find("running_self_test"), std::string::npos);
	EXPECT_EQ(selfTest(1), 0);
}

TEST_F(NvmeAdmin, MalformedCommandsGetControllerStatuses)
{
	std::vector<uint8_t> b512(512), b4k(4096), none;
	struct Case {
		const char *what;
		nvme_admin_cmd c;
		int status;
		const char *note;
	};
	auto with = [](nvme_admin_cmd c, auto edit) {
		edit(c);
		return c;
	};
	nvme_admin_cmd health = cmd(0x02, 0xFFFFFFFF, 0x007F0002, b512);
	nvme_admin_cmd ctrl = cmd(0x06, 0, 1, b4k);
	Case cases[] = {
		{"unknown opcode", cmd(0x09, 0, 0, none), 0x4001, "unsupported admin opcode"},
		{"identify 512 bytes", cmd(0x06, 0, 1, b512), 0x4002, "identify data length is not 4096"},
		{"identify controller nsid 1", with(ctrl, [](auto &c) { c.nsid = 1; }), 0x4002, "with a namespace id"},
		{"identify namespace 0", cmd(0x06, 0, 0, b4k), 0x400B, "no such namespace"},
		{"cdw2", with(ctrl, [](auto &c) { c.cdw2 = 1; }), 0x4002, "reserved dwords set"},
		{"log numd short", with(health, [](auto &c) { c.cdw10 = 0x007E0002; }), 0x4002, "NUMD and data length disagree"},
		{"log odd length", with(health, [](auto &c) { c.data_len = 510; }), 0x4002, "not whole dwords"},
		{"log nsid 1", with(health, [](auto &c) { c.nsid = 1; }), 0x4002, "no per-namespace logs"},
		{"log offset past end", with(health, [](auto &c) { c.cdw12 = 512; }), 0x4002, "past the end"},
		{"log not kept", with(health, [](auto &c) { c.cdw10 = 0x007F0007; }), 0x4109, "log page 0x07 is not kept"},
		{"self-test code 3", cmd(0x14, 0, 3, none), 0x4002, "unsupported self-test code"},
		{"self-test nsid 7", cmd(0x14, 7, 1, none), 0x400B, "no such namespace"},
	};
	for (auto &k : cases) {
		std::fill(b512.begin(), b512.end(), 0xEE);
		EXPECT_EQ(run(k.c), k.status) << k.what;
		char st[32];
		std::snprintf(st, sizeof(st), "-> status 0x%04x: refused: ", k.status);
		SCOPED_TRACE(k.what);
		expectSent("nvme0n1", {std::string("NVME_ADMIN*") + st + "*" + k.note});
		EXPECT_EQ(b512[0], 0xEE) << k.what; // nothing transferred
	}
	EXPECT_EQ(root.read("/dev/nvme0n1").find("running_self_test"), std::string::npos);

	// Transfers beyond the controller's limit (MDTS 128 KiB), with the NUMD
	// upper half in cdw11 as the library splits it.
	std::vector<uint8_t> huge(256 * 1024 + 4);
	LogCapture log;
	EXPECT_EQ(vexo::nvme::getLogPage("/dev/nvme0n1", 0x02, huge.data(), huge.size()), -1);
	expectSent("nvme0n1", {"NVME_ADMIN*cdw10=0x00000002 cdw11=0x00000001*transfer above the controller's limit"});
	EXPECT_TRUE(log.has(LOG_ERR, "failed with status 0x4002 (Invalid Field in Command)"));
}

} // namespace
