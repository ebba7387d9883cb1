// Debug overrides: the gate, the section named by the true serial, every
// reader's value form, and numbers that strtol rejects.
#include <cstring>
#include <string>
#include <syslog.h>
#include <vexohw/disk_debug.h>

#include "smartctl/sim_disk.h"

using namespace vexo::test;

namespace {

const bool kBackend = installDriveEmulator();

class DebugOverride : public SimDisk {
protected:
	void SetUp() override
	{
		SimDisk::SetUp();
		ASSERT_TRUE(kBackend);
		gate(true);
	}
	void gate(bool on) { product({{"support_disk_status_debug", on ? "yes" : "no"}}); }
	void section(const std::string &body)
	{
		root.write("/tmp/.disk_status_debug", "[VXS0000001]\ntemp=\"12\"\n\n[ZL2K4T7C]\n" + body + "\n");
	}
};

TEST_F(DebugOverride, GateOffNeverTouchesTheDrive)
{
	section("temp=50\nunc=3");
	gate(false);
	int t = -7;
	unsigned u = 7;
	EXPECT_EQ(VEXODiskDebugTemperatureGet("/dev/sda", &t), 0);
	EXPECT_EQ(VEXODiskDebugUncGet("/dev/sda", &u), 0);
	EXPECT_EQ(t, -7);
	EXPECT_EQ(u, 7u);
	EXPECT_FALSE(root.exists("/run/vexosim/drive/sda.log"));
	gate(true);
	EXPECT_EQ(VEXODiskDebugTemperatureGet("/dev/sda", &t), 1);
	EXPECT_EQ(t, 50);
}

TEST_F(DebugOverride, MissingFileSectionOrKey)
{
	int t = -7;
	EXPECT_EQ(VEXODiskDebugTemperatureGet("/dev/sda", &t), 0);
	root.write("/tmp/.disk_status_debug", "[VXS0000001]\ntemp=12\n");
	EXPECT_EQ(VEXODiskDebugTemperatureGet("/dev/sda", &t), 0); // another disk's section
	section("unc=1");
	EXPECT_EQ(VEXODiskDebugTemperatureGet("/dev/sda", &t), 0);
	EXPECT_EQ(t, -7);
	section("temp=\"-5\"");
	EXPECT_EQ(VEXODiskDebugTemperatureGet("/dev/sda", &t), 1);
	EXPECT_EQ(t, -5);
	// A drive that cannot tell its serial is a failure.
	t = -7;
	node("sda", R"({"protocol":"ata","faults":{"identify":{"errno":"EIO"},"packet_identify":{"errno":"EIO"}}})");
	EXPECT_EQ(VEXODiskDebugTemperatureGet("/dev/sda", &t), -1);
	EXPECT_ERR(0x2A00);
	EXPECT_EQ(t, -7);
}

TEST_F(DebugOverride, NumbersStrtolRejectsCountAsAbsent)
{
	unsigned u = 7;
	int t = -7;
	section("unc=99999999999999999999\ntemp=warm\nlife=-1\ncrit=0x1F\nperc_used=42%");
	LogCapture log;
	EXPECT_EQ(VEXODiskDebugUncGet("/dev/sda", &u), 0);      // ERANGE
	EXPECT_EQ(VEXODiskDebugTemperatureGet("/dev/sda", &t), 0); // no digits
	EXPECT_EQ(VEXODiskDebugLifeGet("/dev/sda", &u), 0);     // below zero
	EXPECT_EQ(u, 7u);
	EXPECT_EQ(t, -7);
	EXPECT_EQ(VEXONVMeDebugCritWarningGet("/dev/sda", &u), 1); // hexadecimal
	EXPECT_EQ(u, 0x1Fu);
	EXPECT_EQ(VEXONVMeDebugPercentageUsedGet("/dev/sda", &u), 1); // digits then text: strtol takes 42
	EXPECT_EQ(u, 42u);
	EXPECT_EQ(log.count(LOG_ERR, "Bad number"), 3);
	section("temp=2147483648\nunc=4294967295\ncrit=ff");
	EXPECT_EQ(VEXODiskDebugTemperatureGet("/dev/sda", &t), 0);
	EXPECT_EQ(VEXODiskDebugUncGet("/dev/sda", &u), 1);
	EXPECT_EQ(u, 4294967295u);
	EXPECT_EQ(VEXONVMeDebugCritWarningGet("/dev/sda", &u), 1);
	EXPECT_EQ(u, 0xFFu);
}

TEST_F(DebugOverride, WordsAndTexts)
{
	section("smart_test_quick=aborted\nsmart_test=none\nlatest_test_type=extend\n"
		"adv_code=\"101\"");
	int r = 0;
	EXPECT_EQ(VEXODiskDebugSmartTestResultGet("/dev/sda", "smart_test_quick", &r), 1);
	EXPECT_EQ(r, 2);
	EXPECT_EQ(VEXODiskDebugSmartTestResultGet("/dev/sda", "smart_test", &r), 1);
	EXPECT_EQ(r, 6);
	EXPECT_EQ(SMARTDiskDebugSmartLatestTestTypeGet("/dev/sda", &r), 1);
	EXPECT_EQ(r, 2);
	char code[3] = "x";
	EXPECT_EQ(VEXODiskDebugAdvTestCodeGet("/dev/sda", code, sizeof(code)), -1); // never cut
	EXPECT_STREQ(code, "x");
	char whole[4];
	EXPECT_EQ(VEXODiskDebugAdvTestCodeGet("/dev/sda", whole, sizeof(whole)), 1);
	EXPECT_STREQ(whole, "101");
	section("smart_test_quick=passed\nlatest_test_type=short");
	r = 9;
	EXPECT_EQ(VEXODiskDebugSmartTestResultGet("/dev/sda", "smart_test_quick", &r), 0);
	EXPECT_EQ(SMARTDiskDebugSmartLatestTestTypeGet("/dev/sda", &r), 0);
	EXPECT_EQ(r, 9);
	EXPECT_EQ(VEXODiskDebugSmartTestResultGet("/dev/sda", nullptr, &r), -1);
	EXPECT_EQ(VEXODiskDebugAdvTestCodeGet("/dev/sda", nullptr, 4), -1);
}

TEST_F(DebugOverride, SmartInfoList)
{
	section("smart_info=#5, 100, 100, 10, 0;#194, 36, 40, 0, 36 (Min/Max 20/43);bogus; #9, 98, 98, 0, 1234 ;");
	SmartInfoEntry *list = nullptr;
	LogCapture log;
	ASSERT_EQ(VEXODiskDebugSmartInfoListGet("/dev/sda", &list), 1);
	std::vector<std::vector<std::string>> got;
	for (auto *e = list; e; e = e->next) {
		EXPECT_EQ(e->name, nullptr);
		EXPECT_EQ(e->status, 0u);
		got.push_back({e->id, e->value, e->worst, e->threshold, e->raw});
	}
	VEXODiskSmartInfoFree(list);
	std::vector<std::vector<std::string>> want = {{"5", "100", "100", "10", "0"},
						      {"194", "36", "40", "0", "36 (Min/Max 20/43)"},
						      {"9", "98", "98", "0", "1234"}};
	EXPECT_EQ(got, want);
	EXPECT_TRUE(log.has(LOG_ERR, "Bad smart_info entry [bogus]"));

	section("smart_info=");
	list = reinterpret_cast<SmartInfoEntry *>(0x1);
	EXPECT_EQ(VEXODiskDebugSmartInfoListGet("/dev/sda", &list), 1);
	EXPECT_EQ(list, nullptr);
	section("unc=1");
	list = reinterpret_cast<SmartInfoEntry *>(0x1);
	EXPECT_EQ(VEXODiskDebugSmartInfoListGet("/dev/sda", &list), 0);
	EXPECT_EQ(list, reinterpret_cast<SmartInfoEntry *>(0x1));
	EXPECT_EQ(VEXODiskDebugSmartInfoListGet("/dev/sda", nullptr), -1);
}

} // namespace
