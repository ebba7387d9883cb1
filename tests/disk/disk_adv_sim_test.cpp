// The advanced test's status: a code's weight through the configuration,
// the newest result of a disk, a mute, the cache the rollup reads, and the
// event a finished test leaves.
#include <string>
#include <vexohw/disk_adv.h>
#include <vexohw/smart_status.h>
#include <vexohw/smart_test.h>
#include <vexoplatform/logdb.h>

#include "smartctl/drive_sim.h"

using namespace vexo::test;

namespace {

const bool kBackend = installDriveEmulator();

class AdvStatus : public DriveSim {
protected:
	void SetUp() override
	{
		DriveSim::SetUp();
		DiskLayout(root).sata("sda", 1);
		node("sda", R"({"protocol":"ata","model":"VEXO HAT5300-8T","serial":"ZL2K4T7C","firmware":"SC60"})");
		root.write("/sys/block/sda/device/model", "VEXO HAT5300-8T\n");
		root.conf("/etc.defaults/vexoinfo.conf", {{"internalportcfg", "0xf"}, {"usbportcfg", "0xff0000"},
							  {"esataportcfg", "0x0"}, {"upnpmodelname", "VX1222"}});
		root.diskDir("sda");
		root.write("/etc.defaults/disk_adv_status.conf",
			   "[100]\nsection=\"s0\"\nkey=\"k0\"\ndamageWeight=\"0\"\nmodifiable=\"0\"\n"
			   "[101]\nsection=\"s1\"\nkey=\"k1\"\ndamageWeight=\"1\"\nmodifiable=\"1\"\n"
			   "[7]\nsection=\"s7\"\nkey=\"k7\"\ndamageWeight=\"31\"\nmodifiable=\"1\"\n"
			   "[103]\nsection=\"s3\"\nkey=\"k3\"\ndamageWeight=\"601\"\nmodifiable=\"0\"\n"
			   "[104]\nsection=\"s4\"\nkey=\"k4\"\ndamageWeight=\"-5\"\nmodifiable=\"0\"\n");
	}
	std::string get(int *weight = nullptr, int *muted = nullptr, const char *path = "/dev/sda")
	{
		char status[32] = {}, code[32], section[32], key[32];
		int w = -1, m = -1, mu = -1;
		if (VEXODiskAdvStatusGet(path, status, sizeof(status), &w, &m, &mu, code, sizeof(code), section,
					 sizeof(section), key, sizeof(key)) != 0)
			return "-1";
		if (weight)
			*weight = w;
		if (muted)
			*muted = mu;
		return status;
	}
};

TEST_F(AdvStatus, CodesMapByWeight)
{
	struct Case {
		const char *code;
		int status;
		const char *section;
	} cases[] = {{"100", 1, "s0"}, {"101", 2, "s1"}, {"7", 3, "s7"}, {"103", 4, "s3"},
		     {"104", 0, "s4"}, {"999", 8, ""},    {"081", 7, ""}};
	for (const Case &c : cases) {
		char status[8] = {}, section[8] = {}, key[8] = {}, weight[8] = {};
		int modifiable = -1;
		EXPECT_EQ(VEXODiskAdvStatusMapping(c.code, status, sizeof(status), section, sizeof(section), key,
						   sizeof(key), weight, sizeof(weight), &modifiable),
			  c.status)
			<< c.code;
		EXPECT_EQ(std::string(status), std::to_string(c.status)) << c.code;
		EXPECT_STREQ(section, c.section) << c.code;
	}
	char s[8], k[8], w[8];
	int m;
	EXPECT_EQ(VEXODiskAdvStatusMapping(nullptr, s, sizeof(s), s, sizeof(s), k, sizeof(k), w, sizeof(w), &m), 0);
	EXPECT_ERR(VEXO_ERR_BAD_PARAM);
	char word[32];
	ASSERT_EQ(VEXODiskAdvStatusTransfer(8, word, sizeof(word)), 0);
	EXPECT_STREQ(word, "can_not_test_warn");
	EXPECT_EQ(VEXODiskAdvStatusTransfer(9, word, sizeof(word)), -1);
}

TEST_F(AdvStatus, NewestResultMuteCacheAndEvent)
{
	EXPECT_EQ(get(), "not_test");
	// A finished test: its event carries the last line of the detail file.
	root.write("/tmp/adv_detail", "POH,1,2,3\n12,34,56,78\nPOH,9,9,9\n");
	ASSERT_EQ(VEXODiskAdvTestResultRecord("/dev/sda", "101", "/tmp/adv_detail"), 0);
	DiskTestLog *log = nullptr;
	ASSERT_EQ(VEXODiskTestLogGet("/dev/sda", "ihm", 1, 0, &log), 1);
	EXPECT_STREQ(log->testCode, "7");
	EXPECT_STREQ(log->testType, "12");
	EXPECT_STREQ(log->poh, "34");
	DiskTestLogFree(log);

	int weight = -1, muted = -1;
	EXPECT_EQ(get(&weight, &muted), "critical");
	EXPECT_EQ(weight, 31);
	EXPECT_EQ(muted, 0);
	ASSERT_EQ(VEXODiskAdvStatusInit("sda"), 0);
	char status[32] = {}, progress[32] = "x";
	int w = 0;
	ASSERT_EQ(VEXODiskAdvStatusCacheGet("/dev/sda", status, sizeof(status), progress, sizeof(progress), &w), 0);
	EXPECT_EQ(std::string(status) + "/" + std::to_string(w), "critical/31");
	ASSERT_EQ(VEXODiskAdvStatusCacheUpdate("sda", "103"), 0);
	ASSERT_EQ(VEXODiskAdvStatusCacheGet("/dev/sda", status, sizeof(status), progress, sizeof(progress), &w), 0);
	EXPECT_EQ(std::string(status) + "/" + std::to_string(w), "failing/601");

	// A standing mute overrides the weight, whatever the code.
	ASSERT_EQ(SmartInfoActionRecord("/dev/sda", 1, SMART_WARNING_ADV, nullptr), 0);
	EXPECT_EQ(get(&weight, &muted), "normal");
	EXPECT_EQ(weight + 10 * muted, 10);
	ASSERT_EQ(VEXODiskAdvStatusCacheUpdate("sda", "103"), 0);
	ASSERT_EQ(VEXODiskAdvStatusCacheGet("/dev/sda", status, sizeof(status), progress, sizeof(progress), &w), 0);
	EXPECT_EQ(std::string(status) + "/" + std::to_string(w), "normal/0");

	// Not an ATA disk: no advanced test; a disk never cached has no answer.
	DiskLayout(root).nvme("nvme0n1", "0000:00:1d.0");
	node("nvme0n1", R"({"protocol":"nvme","serial":"S4EWNX0R"})");
	EXPECT_EQ(get(&weight, &muted, "/dev/nvme0n1"), "not_support");
	EXPECT_EQ(weight + muted, 0);
	EXPECT_EQ(VEXODiskAdvStatusCacheGet("/dev/sdb", status, sizeof(status), progress, sizeof(progress), &w), -1);
}

} // namespace
