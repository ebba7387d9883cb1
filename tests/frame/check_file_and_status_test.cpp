// The counting flag file and the status keyword lookups.
#include "support/vexotest.h"

using vexo::test::LogCapture;
using vexo::test::Sysroot;

namespace {

TEST(CheckFile, CountsUpAndDownAndVanishesAtZero)
{
	Sysroot root;
	root.mkdirs("/tmp");
	const char *f = "/tmp/.disk_check";
	for (int i = 0; i < 3; ++i)
		ASSERT_EQ(VEXODiskUpdateCheckFile(f, 1), 0);
	EXPECT_EQ(root.read(f), "3");
	ASSERT_EQ(VEXODiskUpdateCheckFile(f, 0), 0);
	EXPECT_EQ(root.read(f), "2");
	ASSERT_EQ(VEXODiskUpdateCheckFile(f, 0), 0);
	ASSERT_EQ(VEXODiskUpdateCheckFile(f, 0), 0);
	EXPECT_FALSE(root.exists(f));
	// Decrementing an absent file is an error.
	VLIBCErrClear();
	EXPECT_EQ(VEXODiskUpdateCheckFile(f, 0), -1);
	EXPECT_ERR(0x0900);

	// Garbage counts as zero: up gives 1, down writes -1 rather than removing.
	LogCapture log;
	root.write(f, "junk");
	ASSERT_EQ(VEXODiskUpdateCheckFile(f, 1), 0);
	EXPECT_EQ(root.read(f), "1");
	EXPECT_EQ(log.count(3, "get iCount error"), 1);
	root.write(f, "junk");
	ASSERT_EQ(VEXODiskUpdateCheckFile(f, 0), 0);
	EXPECT_EQ(root.read(f), "-1");

	EXPECT_EQ(VEXODiskUpdateCheckFile("/no/such/dir/flag", 1), -1);
	EXPECT_EQ(log.count(3, "Fail to touch /no/such/dir/flag"), 1) << log.dump();
}

TEST(StatusKeywords, PrefixMatchingRules)
{
	int rank = 99, abnormal = 99, summary = 99;
	ASSERT_EQ(DiskStatusAllAttributeGet("health", "normal_but_longer", &rank, &abnormal, &summary), 0);
	EXPECT_EQ(summary, 3);
	// A category that merely begins with a category keyword matches it.
	ASSERT_EQ(DiskStatusAllAttributeGet("healthy", "failing", &rank, &abnormal, &summary), 0);
	EXPECT_EQ(summary, 8);
	// "crashed" (9) is found for "crashed"; "system_crashed" only for itself.
	ASSERT_EQ(DiskStatusAllAttributeGet("space", "system_crashed", &rank, &abnormal, &summary), 0);
	EXPECT_EQ(summary, 10);
	// "not_support" must not be taken for "not_in_support" or vice versa.
	ASSERT_EQ(DiskStatusAllAttributeGet("compatibility", "not_support", &rank, &abnormal, &summary), 0);
	EXPECT_EQ(summary, 13);
	// Outputs are optional.
	EXPECT_EQ(DiskStatusAllAttributeGet("disconnect", "1", nullptr, nullptr, nullptr), 0);

	VLIBCErrClear();
	rank = 42;
	EXPECT_EQ(DiskStatusAllAttributeGet("heal", "normal", &rank, nullptr, nullptr), -1);
	EXPECT_ERR(0x2A00);
	EXPECT_EQ(DiskStatusAllAttributeGet("health", "norm", &rank, nullptr, nullptr), -1);
	EXPECT_EQ(rank, 42);
	// The empty compatibility slot (6) is skipped, never matched.
	EXPECT_EQ(DiskStatusAllAttributeGet("compatibility", "for_eunit", &rank, nullptr, nullptr), -1);
	char out[32];
	EXPECT_EQ(DiskStatusStringTrensfer("compatibility", 6, out, sizeof(out)), -1);
	EXPECT_ERR(0x2A00);
	char small[4];
	ASSERT_EQ(DiskStatusStringTrensfer("health", 3, small, sizeof(small)), 0);
	EXPECT_STREQ(small, "cri");
}

TEST(StatusKeywords, EveryRowRoundTrips)
{
	for (const auto &c : grgDiskStatusCategory) {
		for (int i = 0; i < c.count; ++i) {
			if (!c.table[i].keyword)
				continue;
			char out[64];
			ASSERT_EQ(DiskStatusStringTrensfer(c.keyword, i, out, sizeof(out)), 0);
			int rank, abnormal, summary;
			ASSERT_EQ(DiskStatusAllAttributeGet(c.keyword, out, &rank, &abnormal, &summary), 0);
			// Prefix rules may pick an earlier row with the same columns, never different ones.
			EXPECT_EQ(summary, c.table[i].summaryCode) << c.keyword << "/" << out;
			EXPECT_EQ(rank, c.table[i].emergentRank) << c.keyword << "/" << out;
			EXPECT_EQ(abnormal, c.table[i].isAbnormal) << c.keyword << "/" << out;
		}
	}
}

} // namespace
