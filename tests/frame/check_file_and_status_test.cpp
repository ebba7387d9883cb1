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
	ASSERT_EQ(VEXODiskUpdateCheckFile(f, 1), 0);
	EXPECT_EQ(root.read(f), "1");
	ASSERT_EQ(VEXODiskUpdateCheckFile(f, 1), 0);
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
}

TEST(CheckFile, GarbageCountsAsZero)
{
	Sysroot root;
	LogCapture log;
	const char *f = "/tmp/.flag";
	root.write(f, "junk");
	ASSERT_EQ(VEXODiskUpdateCheckFile(f, 1), 0);
	EXPECT_EQ(root.read(f), "1");
	EXPECT_EQ(log.count(3, "get iCount error"), 1);
	// A parse failure on the way down writes -1 rather than removing the file.
	root.write(f, "junk");
	ASSERT_EQ(VEXODiskUpdateCheckFile(f, 0), 0);
	EXPECT_EQ(root.read(f), "-1");
}

TEST(CheckFile, TouchFailureIsLogged)
{
	Sysroot root;
	LogCapture log;
	EXPECT_EQ(VEXODiskUpdateCheckFile("/no/such/dir/flag", 1), -1);
	EXPECT_EQ(log.count(3, "Fail to touch /no/such/dir/flag"), 1) << log.dump();
	EXPECT_EQ(VEXODiskUpdateCheckFile(nullptr, 1), -1);
	EXPECT_ERR(0x0D00);
}

TEST(StatusKeywords, PrefixMatchingRules)
{
	int rank = 99, abnormal = 99, summary = 99;
	ASSERT_EQ(DiskStatusAllAttributeGet("health", "normal_but_longer", &rank, &abnormal, &summary), 0);
	EXPECT_EQ(rank, 0);
	EXPECT_EQ(abnormal, 0);
	EXPECT_EQ(summary, 3);
	// A category that merely begins with a category keyword matches it.
	ASSERT_EQ(DiskStatusAllAttributeGet("healthy", "failing", &rank, &abnormal, &summary), 0);
	EXPECT_EQ(summary, 8);
	// The first row in index order whose keyword begins the input wins:
	// "crashed" (9) is found for "crashed"; "system_crashed" only for itself.
	ASSERT_EQ(DiskStatusAllAttributeGet("space", "system_crashed", &rank, &abnormal, &summary), 0);
	EXPECT_EQ(summary, 10);
	// "not_support" must not be taken for "not_in_support" or vice versa.
	ASSERT_EQ(DiskStatusAllAttributeGet("compatibility", "not_support", &rank, &abnormal, &summary), 0);
	EXPECT_EQ(summary, 13);
	// The "smart" row "testing" is abnormal; the processing row "smart" is not.
	ASSERT_EQ(DiskStatusAllAttributeGet("smart", "testing", &rank, &abnormal, &summary), 0);
	EXPECT_EQ(abnormal, 1);
	ASSERT_EQ(DiskStatusAllAttributeGet("processing", "smart", &rank, &abnormal, &summary), 0);
	EXPECT_EQ(abnormal, 0);
	// Outputs are optional.
	EXPECT_EQ(DiskStatusAllAttributeGet("disconnect", "1", nullptr, nullptr, nullptr), 0);
}

TEST(StatusKeywords, MissesAndBadArguments)
{
	int rank = 42;
	VLIBCErrClear();
	EXPECT_EQ(DiskStatusAllAttributeGet("heal", "normal", &rank, nullptr, nullptr), -1);
	EXPECT_ERR(0x2A00);
	EXPECT_EQ(DiskStatusAllAttributeGet("health", "norm", &rank, nullptr, nullptr), -1);
	EXPECT_ERR(0x2A00);
	EXPECT_EQ(DiskStatusAllAttributeGet("health", "", &rank, nullptr, nullptr), -1);
	EXPECT_EQ(rank, 42);
	// The empty compatibility slot (6) is skipped, never matched.
	EXPECT_EQ(DiskStatusAllAttributeGet("compatibility", "for_eunit", &rank, nullptr, nullptr), -1);
	EXPECT_EQ(DiskStatusAllAttributeGet(nullptr, "normal", &rank, nullptr, nullptr), -1);
	EXPECT_ERR(0x0D00);
}

TEST(StatusKeywords, IndexToKeyword)
{
	char out[32];
	ASSERT_EQ(DiskStatusStringTrensfer("space", 14, out, sizeof(out)), 0);
	EXPECT_STREQ(out, "rootbackup_crashed");
	ASSERT_EQ(DiskStatusStringTrensfer("compatibility", 7, out, sizeof(out)), 0);
	EXPECT_STREQ(out, "fw_upgrade_required");
	char small[4];
	ASSERT_EQ(DiskStatusStringTrensfer("health", 3, small, sizeof(small)), 0);
	EXPECT_STREQ(small, "cri");
	VLIBCErrClear();
	EXPECT_EQ(DiskStatusStringTrensfer("space", 15, out, sizeof(out)), -1);
	EXPECT_ERR(0x2A00);
	EXPECT_EQ(DiskStatusStringTrensfer("compatibility", 6, out, sizeof(out)), -1);
	EXPECT_ERR(0x2A00);
	EXPECT_EQ(DiskStatusStringTrensfer("health", -1, out, sizeof(out)), -1);
	EXPECT_EQ(DiskStatusStringTrensfer("health", 1, out, 0), -1);
	EXPECT_ERR(0x0D00);
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
		}
	}
}

} // namespace
