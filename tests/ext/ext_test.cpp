// The tools' extension: bad arguments, buffer edges, a missing snapshot and
// the SMART list cache's age on both sides of its limit.
#include <cstring>
#include <ctime>
#include <vexohw/ext.h>

#include "support/vexotest.h"

using vexo::test::Sysroot;

namespace {

TEST(Ext, SysrootPathFitsWholeOrFails)
{
	Sysroot root;
	const std::string want = root.host("/sys/block");
	const int exact = static_cast<int>(want.size()) + 1;
	struct {
		const char *path;
		int size;
		int rc;
	} cases[] = {{"/sys/block", exact, 0}, {"/sys/block", exact - 1, -1}, {"sys/block", 4096, -1}, {nullptr, 4096, -1}};
	for (const auto &c : cases) {
		SCOPED_TRACE(std::string(c.path ? c.path : "(null)") + " in " + std::to_string(c.size));
		VLIBCErrClear();
		char out[4096] = "untouched";
		EXPECT_EQ(VEXOExtSysrootPath(c.path, out, c.size), c.rc);
		if (c.rc == 0) {
			EXPECT_EQ(out, want);
		} else {
			EXPECT_STREQ(out, "untouched");
			EXPECT_ERR(VEXO_ERR_BAD_PARAM);
		}
	}
}

TEST(Ext, DiskListFromTheSnapshot)
{
	Sysroot root;
	const int32_t mask = 0xFF;
	DiskEnumFilter filter{&mask};
	DiskListNode *list = nullptr;
	int used = -1;
	EXPECT_EQ(VEXOExtDiskInfoEnumFrom(&filter, 4, &list, &used), -1);
	EXPECT_ERR(VEXO_ERR_BAD_PARAM);
	VLIBCErrClear();
	EXPECT_EQ(VEXOExtDiskInfoEnumFrom(&filter, VEXO_EXT_DISK_SOURCE_SNAPSHOT, &list, &used), -1);
	EXPECT_ERR(VEXO_ERR_NOENT);
	EXPECT_EQ(used, -1);
	// A snapshot shorter than one entry lists nothing, and says where it looked.
	root.write(VEXO_DISK_SNAPSHOT, "short");
	EXPECT_EQ(VEXOExtDiskInfoEnumFrom(&filter, VEXO_EXT_DISK_SOURCE_SNAPSHOT, &list, &used), 0);
	EXPECT_EQ(list, nullptr);
	EXPECT_EQ(used, VEXO_EXT_DISK_SOURCE_SNAPSHOT);
}

TEST(Ext, CacheKeysAndDisks)
{
	Sysroot root;
	EXPECT_EQ(VEXOExtCacheKeyGet(-1, nullptr), nullptr);
	int type = -1, stampType = -1, n = 0;
	while (const char *k = VEXOExtCacheKeyGet(n, &type)) {
		if (std::strcmp(k, ".smart_info_list.timestamp") == 0)
			stampType = type;
		++n;
	}
	EXPECT_GT(n, 40);
	EXPECT_EQ(stampType, VEXO_EXT_CACHE_LLINT);

	root.diskDir("sdb");
	root.diskDir("sda");
	root.mkdirs("/run/vexostorage/disks/.hidden");
	PVLIBSZLIST names = VLIBCSzListAlloc(1);
	ASSERT_EQ(VEXOExtCacheDiskListGet(&names), 2);
	EXPECT_STREQ(VLIBCSzListGet(names, 0), "sda");
	EXPECT_STREQ(VLIBCSzListGet(names, 1), "sdb");
	VLIBCSzListFree(names);
	EXPECT_EQ(VEXOExtCacheDiskListGet(nullptr), -1);
}

TEST(Ext, SmartListAgeAroundItsLimit)
{
	Sysroot root;
	root.diskDir("sda");
	long long age = -1, limit = -1;
	EXPECT_EQ(VEXOExtSmartInfoCacheAge("/dev/sda", &age, &limit), -1);
	EXPECT_ERR(VEXO_ERR_NOENT);
	struct timespec ts {};
	::clock_gettime(CLOCK_MONOTONIC_COARSE, &ts);
	for (long long back : {0LL, 3599LL, 3700LL}) {
		ASSERT_EQ(VEXODiskUpdateLLIntValueCacheFile("sda", ".smart_info_list.timestamp", ts.tv_sec - back), 0);
		EXPECT_EQ(VEXOExtSmartInfoCacheAge("/dev/sda", &age, &limit), back < 3600 ? 1 : 0) << back;
		EXPECT_GE(age, back);
		EXPECT_LT(age, back + 60);
		EXPECT_EQ(limit, 3600);
	}
}

} // namespace
