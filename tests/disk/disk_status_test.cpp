// The one status word: which keyword wins by summary code and rule order,
// the compat form's progress figures, and a remote unit's disconnect.
#include <cstring>
#include <string>
#include <vexohw/disk_status.h>

#include "support/vexotest.h"

using namespace vexo::test;

namespace {

DiskStatusSummaryInput input(const char *space, const char *health, const char *proc, const char *compat = "",
			     const char *remote = "")
{
	DiskStatusSummaryInput in{};
	std::strncpy(in.space, space, sizeof(in.space) - 1);
	std::strncpy(in.health, health, sizeof(in.health) - 1);
	std::strncpy(in.processing, proc, sizeof(in.processing) - 1);
	std::strncpy(in.compatibility, compat, sizeof(in.compatibility) - 1);
	std::strncpy(in.remote, remote, sizeof(in.remote) - 1);
	return in;
}

// "category/status", or "-1".
template <typename F>
std::string word(F fn, const DiskStatusSummaryInput &in)
{
	char cat[32] = {}, st[32] = {};
	return fn(&in, cat, sizeof(cat), st, sizeof(st)) == 0 ? std::string(cat) + "/" + st : "-1";
}

TEST(DiskStatusWord, SummaryPicksByCodeThenRuleOrder)
{
	Sysroot root;
	root.conf("/etc.defaults/vexoinfo.conf", {{"support_vexology_drive_only", "yes"}});
	struct Case {
		const char *space, *health, *proc, *compat, *want;
	} cases[] = {
		{"normal", "normal", "idle", "", "space/normal"},            // 3, 3 over 2: space before health
		{"normal", "failing", "idle", "", "health/failing"},         // 8
		{"crashed", "failing", "idle", "", "space/crashed"},         // 11
		{"crashed", "failing", "smart", "", "processing/smart"},     // 1000
		{"secure_erasing", "normal", "smart", "", "processing/smart"}, // tie at 1000: processing
		{"normal", "normal", "idle", "not_support", "compatibility/not_support"}, // 13
		{"normal", "normal", "idle", "support", "space/normal"},
		{"bogus", "bogus", "bogus", "bogus", "-1"},
		{"bogus", "unknown", "bogus", "", "health/unknown"}, // code 0 still beats -1
	};
	for (const Case &c : cases)
		EXPECT_EQ(word(VEXODiskStatusSummaryCalculate, input(c.space, c.health, c.proc, c.compat)), c.want)
			<< c.space << " " << c.health << " " << c.proc << " " << c.compat;
	// Without the drive-only rule the compatibility field is never looked at.
	root.conf("/etc.defaults/vexoinfo.conf", {});
	EXPECT_EQ(word(VEXODiskStatusSummaryCalculate, input("normal", "normal", "idle", "forbidden")), "space/normal");
	char cat[32], st[4];
	DiskStatusSummaryInput in = input("normal", "normal", "idle");
	EXPECT_EQ(VEXODiskStatusSummaryCalculate(&in, cat, sizeof(cat), st, sizeof(st)), -1); // "normal" won't fit
	EXPECT_EQ(VEXODiskStatusSummaryCalculate(nullptr, cat, sizeof(cat), st, sizeof(st)), -1);
	EXPECT_ERR(VEXO_ERR_BAD_PARAM);
}

TEST(DiskStatusWord, CompatFormAndDisconnect)
{
	struct Case {
		const char *space, *smart, *remote, *want;
	} cases[] = {
		{"normal", "normal", "", "space/normal"},
		{"-1", "normal", "", "space/secure_erasing"},
		{"normal", "45%", "", "smart/testing"},
		{"normal", "failing", "", "smart/failing"},
		{"crashed", "failing", "not json", "space/crashed"},
		{"normal", "normal", R"({"disconnect":1})", "disconnect/1"},
		{"normal", "normal", R"({"disconnect":7})", "disconnect/unknown"},
		{"normal", "normal", R"({"disconnect":"1"})", "space/normal"},
		{"bogus", "bogus", "", "-1"},
	};
	for (const Case &c : cases)
		EXPECT_EQ(word(CompatVEXODiskStatusSummaryCalculate, input(c.space, c.smart, "", "", c.remote)), c.want)
			<< c.space << " " << c.smart << " " << c.remote;

	// An incoming word at least as high as the disconnect stays.
	char cat[32] = "disconnect", st[32] = "1";
	EXPECT_EQ(VEXOCheckDiskRemoteControllerDisconnect(R"({"disconnect":0})", cat, sizeof(cat), st, sizeof(st)), 1);
	EXPECT_STREQ(st, "1");
	std::strcpy(cat, "space");
	std::strcpy(st, "normal");
	EXPECT_EQ(VEXOCheckDiskRemoteControllerDisconnect(R"({"disconnect":0})", cat, sizeof(cat), st, sizeof(st)), 1);
	EXPECT_EQ(std::string(cat) + "/" + st, "disconnect/0");
	EXPECT_EQ(VEXOCheckDiskRemoteControllerDisconnect(nullptr, cat, sizeof(cat), st, sizeof(st)), -1);
}

TEST(DiskStatusWord, RankAbnormalAndKeys)
{
	EXPECT_EQ(VEXODiskStatusEmergentRankGet("space", "crashed"), 2003);
	EXPECT_EQ(VEXODiskStatusEmergentRankGet("space", "nonesuch"), -1);
	EXPECT_EQ(VEXODiskStatusIsAbnormal("health", "failing"), 1);
	EXPECT_EQ(VEXODiskStatusIsAbnormal("nonesuch", "failing"), 0);
	char key[32];
	ASSERT_EQ(VEXODiskSpaceStatusKeyTransfer(9, key, sizeof(key)), 0);
	EXPECT_STREQ(key, "crashed");
	ASSERT_EQ(VEXODiskProcessingStatusKeyTransfer(1, key, sizeof(key)), 0);
	EXPECT_STREQ(key, "idle");
	EXPECT_EQ(VEXODiskProcessingStatusKeyTransfer(6, key, sizeof(key)), -1);
}

} // namespace
