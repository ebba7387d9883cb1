// The NVMe admin calls against the drive emulator: the commands they send,
// byte for byte, and what they make of the answers.
#include <algorithm>
#include <cctype>
#include <cstring>
#include <ctime>
#include <linux/nvme_ioctl.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <syslog.h>
#include <vexoplatform/nvme_admin.h>

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
	// The node with its "nvme" object replaced.
	void nvmeKeys(const std::string &keys, const std::string &extra = "")
	{
		node("nvme0n1", R"({"protocol":"nvme","model":"WD NV700 500GB","serial":"22514D800394",
 "firmware":"111150WD","size_bytes":500107862016,"temperature":38,"nvme":)" +
					keys + extra + "}");
	}
	int selfTest(unsigned code)
	{
		int h = open("nvme0n1");
		nvme_admin_cmd c{};
		c.opcode = 0x14;
		c.nsid = 0xFFFFFFFF;
		c.cdw10 = code;
		return vexo::dev::ioctl(h, NVME_IOCTL_ADMIN_CMD, &c);
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
	ASSERT_EQ(VEXONVMeDiskModelGet("/dev/nvme0n1", model, sizeof(model)), 0);
	EXPECT_STREQ(model, "WD NV700 500GB");
	ASSERT_EQ(VEXONVMeFirmAndSerialRead("nvme0n1", fw, sizeof(fw), sn, sizeof(sn)), 0);
	EXPECT_STREQ(fw, "111150WD");
	EXPECT_STREQ(sn, "22514D800394");
	ASSERT_EQ(VEXONVMeDiskVendorGet("/dev/nvme0n1", vendor, sizeof(vendor)), 0);
	EXPECT_STREQ(vendor, "Western Digital");
	// One Identify Controller each, to the namespace node, nothing else.
	EXPECT_EQ(commands("nvme0n1"), std::vector<std::string>(3, kIdentifyLine));
	EXPECT_EQ(VLIBCErrGet(), 0);
}

TEST_F(NvmeAdmin, TemperatureFromHealthLog)
{
	EXPECT_EQ(VEXONVMeTemperatureGet("/dev/nvme0n1"), 38);
	EXPECT_EQ(last("nvme0n1"), logLine(0x02, 512) + " -> ok");
	EXPECT_NE(last("nvme0n1").find("nsid=0xffffffff cdw2=0x00000000 cdw3=0x00000000 cdw10=0x007f0002 cdw11=0x00000000"),
		  std::string::npos);

	struct {
		int kelvin, celsius;
	} cases[] = {{273, 0}, {274, 1}, {373, 100}, {343, 70}, {272, -1}, {1, -272}, {0xFFFF, 0xFFFF - 273}};
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
	EXPECT_EQ(last("nvme0n1"), logLine(0x02, 512) + " -> status 0x0006: injected abort nvme_get_log_page");
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
	char vendor[32] = "untouched";
	EXPECT_EQ(VEXONVMeDiskVendorGet("/dev/nvme0n1", vendor, sizeof(vendor)), -1);
	EXPECT_STREQ(vendor, "untouched");
}

TEST_F(NvmeAdmin, PaddingTrimmedInnerSpacesKept)
{
	// A 40-character model and an 8-character firmware fill their fields.
	std::string model40 = "VEXO NM410 400GB M.2 2280 PCIe NVMe 400G";
	ASSERT_EQ(model40.size(), 40u);
	node("nvme0n1", R"({"protocol":"nvme","model":"  )" + model40.substr(0, 35) +
				R"(","serial":"  S1 X 9  ","firmware":"FW 1"})");
	char model[41], fw[9], sn[21];
	ASSERT_EQ(VEXONVMeDiskModelGet("nvme0n1", model, sizeof(model)), 0);
	EXPECT_EQ(std::string(model), model40.substr(0, 35));
	ASSERT_EQ(VEXONVMeFirmAndSerialRead("nvme0n1", fw, sizeof(fw), sn, sizeof(sn)), 0);
	EXPECT_STREQ(sn, "S1 X 9");
	EXPECT_STREQ(fw, "FW 1");

	node("nvme0n1", R"({"protocol":"nvme","model":")" + model40 +
				R"(","serial":"ABCDEFGHIJKLMNOPQRST","firmware":"12345678"})");
	ASSERT_EQ(VEXONVMeDiskModelGet("nvme0n1", model, sizeof(model)), 0);
	EXPECT_EQ(std::string(model), model40);
	ASSERT_EQ(VEXONVMeFirmAndSerialRead("nvme0n1", fw, sizeof(fw), sn, sizeof(sn)), 0);
	EXPECT_STREQ(fw, "12345678");
	EXPECT_STREQ(sn, "ABCDEFGHIJKLMNOPQRST");

	// One byte short: refused, and neither output is touched.
	LogCapture log;
	char small[8] = "keep", sn2[21] = "keep";
	EXPECT_EQ(VEXONVMeFirmAndSerialRead("nvme0n1", small, sizeof(small), sn2, sizeof(sn2)), -1);
	EXPECT_ERR(VEXO_ERR_BAD_PARAM);
	EXPECT_STREQ(small, "keep");
	EXPECT_STREQ(sn2, "keep");
	EXPECT_EQ(VEXONVMeFirmAndSerialRead("nvme0n1", fw, sizeof(fw), sn2, 20), -1);
	EXPECT_STREQ(sn2, "keep");
	EXPECT_EQ(VEXONVMeDiskModelGet("nvme0n1", model, 40), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "The serial number of nvme0n1 needs 21 bytes, the buffer has 20"));
}

TEST_F(NvmeAdmin, PathsReducedToTheNamespace)
{
	char model[41];
	for (const char *p : {"nvme0n1", "/dev/nvme0n1", "nvme0n1p2", "/dev/nvme0n1p12"}) {
		EXPECT_EQ(VEXONVMeDiskModelGet(p, model, sizeof(model)), 0) << p;
	}
	EXPECT_EQ(commands("nvme0n1").size(), 4u);

	LogCapture log;
	for (const char *p : {"sda", "/dev/sda2", "nvme0n0", "nvme", "nvmeXn1", "/dev/nvme0n1/x", "nvme-1n1", ""}) {
		VLIBCErrClear();
		EXPECT_EQ(VEXONVMeDiskModelGet(p, model, sizeof(model)), -1) << p;
		EXPECT_ERR(VEXO_ERR_BAD_PARAM);
	}
	EXPECT_TRUE(log.has(LOG_ERR, "/dev/sda2 is not an NVMe device"));
	EXPECT_EQ(VEXONVMeDiskModelGet(nullptr, model, sizeof(model)), -1);
	EXPECT_EQ(VEXONVMeDiskModelGet("nvme0n1", nullptr, 41), -1);
	EXPECT_EQ(VEXONVMeDiskModelGet("nvme0n1", model, 0), -1);
	EXPECT_EQ(VEXONVMeTemperatureGet(nullptr), -1);
	EXPECT_EQ(VEXONVMeFirmAndSerialRead("nvme0n1", model, 9, nullptr, 21), -1);
	EXPECT_EQ(commands("nvme0n1").size(), 4u); // nothing reached the drive
}

TEST_F(NvmeAdmin, LogGetLengths)
{
	uint8_t buf[4096];
	ASSERT_EQ(VEXONVMeLogGet("nvme0n1", 0x06, buf, 564), 0);
	EXPECT_EQ(last("nvme0n1"), logLine(0x06, 564) + " -> ok");
	EXPECT_NE(last("nvme0n1").find("cdw10=0x008c0006"), std::string::npos);
	ASSERT_EQ(VEXONVMeLogGet("nvme0n1", 0x01, buf, 4096), 0);
	EXPECT_NE(last("nvme0n1").find("cdw10=0x03ff0001 cdw11=0x00000000"), std::string::npos);

	// Five bytes: two dwords on the wire, five bytes written.
	std::memset(buf, 0xEE, sizeof(buf));
	ASSERT_EQ(VEXONVMeLogGet("nvme0n1", 0x03, buf, 5), 0);
	EXPECT_EQ(last("nvme0n1"), logLine(0x03, 8) + " -> ok");
	EXPECT_EQ(buf[0], 0x01); // active slot 1
	EXPECT_EQ(buf[5], 0xEE);

	LogCapture log;
	for (unsigned len : {0u, 4097u}) {
		VLIBCErrClear();
		EXPECT_EQ(VEXONVMeLogGet("nvme0n1", 0x02, buf, len), -1) << len;
		EXPECT_ERR(VEXO_ERR_BAD_PARAM);
	}
	EXPECT_EQ(VEXONVMeLogGet("nvme0n1", 0x100, buf, 512), -1);
	EXPECT_EQ(VEXONVMeLogGet("nvme0n1", 0x02, nullptr, 512), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "Bad parameters: log page 0x100, 512 bytes"));
	EXPECT_EQ(commands("nvme0n1").size(), 3u);
}

TEST_F(NvmeAdmin, SelfTestShowsInLog6)
{
	std::vector<uint8_t> log = selfTestLog();
	EXPECT_EQ(log[0], 0);
	EXPECT_EQ(log[1], 0);
	for (int i = 0; i < 20; ++i)
		EXPECT_EQ(log[4 + 28 * i], 0x0F) << i; // every slot unused

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
	EXPECT_EQ(log[4 + 56], 0x0F);
	// The end is kept in the node: a new test may start.
	std::string saved = root.read("/dev/nvme0n1");
	saved.erase(std::remove_if(saved.begin(), saved.end(), [](unsigned char c) { return std::isspace(c); }), saved.end());
	EXPECT_NE(saved.find("{\"type\":2,\"result\":7,\"hours\":4000}"), std::string::npos) << saved;
	EXPECT_EQ(root.read("/dev/nvme0n1").find("running_self_test"), std::string::npos);
	EXPECT_EQ(selfTest(1), 0);
}

TEST_F(NvmeAdmin, OneSelfTestAcrossProcesses)
{
	// Eight processes start a test at once: the node's lock lets one in.
	std::vector<pid_t> kids;
	std::string results = root.host("/results");
	for (int i = 0; i < 8; ++i) {
		pid_t p = ::fork();
		if (p == 0) {
			int rc = selfTest(i % 2 ? 1 : 2);
			FILE *f = std::fopen(results.c_str(), "a");
			std::fprintf(f, "%d\n", rc);
			std::fclose(f);
			::_exit(0);
		}
		kids.push_back(p);
	}
	for (pid_t p : kids)
		::waitpid(p, nullptr, 0);
	std::string r = root.read("/results");
	int ok = 0, busy = 0, other = 0;
	std::istringstream in(r);
	for (int v; in >> v;)
		++(v == 0 ? ok : v == 0x11D ? busy : other);
	EXPECT_EQ(ok, 1) << r;
	EXPECT_EQ(busy, 7) << r;
	EXPECT_EQ(other, 0) << r;
}

TEST_F(NvmeAdmin, VendorTableAndFallbacks)
{
	struct {
		const char *keys, *model, *vendor;
	} cases[] = {
		{R"({"vid":5559,"ssvid":5559})", "WD NV700 500GB", "Western Digital"},
		{R"({"vid":7089})", "Some Drive", "Seagate"},       // 0x1BB1
		{R"({"vid":43981,"ssvid":7545})", "X", "Transcend"}, // unknown id, subsystem 0x1D79
		{R"({"vid":43981,"ssvid":43981})", "  Acme X1 512GB", "Acme"},
		{R"({"vid":0})", "Acme", "Acme"},
		{R"({})", "", "Unknown"},
	};
	for (const auto &c : cases) {
		node("nvme0n1", std::string(R"({"protocol":"nvme","model":")") + c.model + R"(","nvme":)" + c.keys + "}");
		char vendor[32] = "";
		EXPECT_EQ(VEXONVMeDiskVendorGet("/dev/nvme0n1", vendor, sizeof(vendor)), 0) << c.keys;
		EXPECT_STREQ(vendor, c.vendor) << c.keys;
	}
	char small[15];
	node("nvme0n1", kNvmeNode);
	EXPECT_EQ(VEXONVMeDiskVendorGet("/dev/nvme0n1", small, sizeof(small)), -1); // "Western Digital" is 15
	EXPECT_ERR(VEXO_ERR_BAD_PARAM);
}

} // namespace
