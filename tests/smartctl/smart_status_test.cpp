// The weight scale's edges, the drive-only cap, mail keys and the words.
#include <gtest/gtest.h>
#include <vexohw/smart_status.h>

#include "support/vexotest.h"

using namespace vexo::test;

namespace {

TEST(SmartStatus, ScaleEdgesAndDriveOnlyCap)
{
	Sysroot root;
	struct Row {
		int weight, open, driveOnly;
	} rows[] = {{0, 1, 1}, {-5, 1, 1}, {1, 2, 2}, {30, 2, 2}, {31, 3, 3}, {600, 3, 3}, {601, 4, 3}, {5000, 4, 3}};
	for (bool only : {false, true}) {
		root.conf("/etc.defaults/vexoinfo.conf", {{"support_vexology_drive_only", only ? "yes" : "no"}});
		for (const Row &r : rows)
			EXPECT_EQ(SmartOverviewStatusCompute(r.weight), only ? r.driveOnly : r.open) << r.weight << only;
	}
}

TEST(SmartStatus, MailKeysAndWords)
{
	struct Row {
		int status, ret, id;
		const char *key;
	} rows[] = {{1, 0, -1, "keep"},
		    {2, 1, 35, "DiskStatusWarning"},
		    {3, 1, 36, "DiskStatusCritical"},
		    {4, 1, 37, "DiskStatusFailing"},
		    {5, 1, 34, "DiskStatusAccessError"},
		    {6, 0, -1, "keep"}};
	for (const Row &r : rows) {
		char key[32] = "keep";
		int id = -1;
		EXPECT_EQ(SmartOverviewStatusMailkeyGet(r.status, key, sizeof(key), &id), r.ret);
		EXPECT_STREQ(key, r.key);
		EXPECT_EQ(id, r.id);
	}
	EXPECT_EQ(SmartOverviewStatusMailkeyGet(2, nullptr, 8, nullptr), -1);
	EXPECT_STREQ(VEXODiskWarningTypeMappingToString(7), "NVME_PERC_USED_FULL");
	EXPECT_STREQ(VEXODiskWarningTypeMappingToString(8), "UNKNOWN");
	EXPECT_EQ(VEXODiskWarningTypeMappingToEnum("SMART_TEST"), 5);
	EXPECT_EQ(VEXODiskWarningTypeMappingToEnum("smart"), 0);
	char w[32];
	ASSERT_EQ(SmartInfoStatusStringTransfer(6, w, sizeof(w)), 0);
	EXPECT_STREQ(w, "normal_repeat_suppress");
	EXPECT_EQ(SmartInfoStatusStringTransfer(11, w, sizeof(w)), -1);
	ASSERT_EQ(SmartTotalStatusStringTransfer(4, w, sizeof(w)), 0);
	EXPECT_STREQ(w, "failing");
}

} // namespace
