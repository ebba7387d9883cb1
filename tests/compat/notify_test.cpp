// Notifications land in the spool whole, one file each, in time order.
#include <algorithm>
#include <dirent.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>
#include <vexoplatform/sysnotify.h>

#include "support/vexotest.h"

using namespace vexo::test;

namespace {

std::vector<std::string> spool(const Sysroot &root)
{
	std::vector<std::string> names;
	if (DIR *d = ::opendir(root.host(VEXO_NOTIFY_SPOOL_DIR).c_str())) {
		while (dirent *e = ::readdir(d))
			if (std::string(e->d_name) != "." && std::string(e->d_name) != "..")
				names.push_back(e->d_name); // a temporary left behind counts too
		::closedir(d);
	}
	std::sort(names.begin(), names.end());
	return names;
}

TEST(Notify, SpoolsWholeFiles)
{
	Sysroot root;
	PVLIBSZHASH h = VLIBCSzHashAlloc(4);
	ASSERT_EQ(VLIBCSzHashSetValue(&h, "%MODEL%", "HAT5300"), 0);
	ASSERT_EQ(VLIBCSzHashSetValue(&h, "%DISK_ID%", "Drive 1\nx\\y"), 0);
	ASSERT_EQ(VEXOSysNotifySendNotifiction("DiskCompatibilityIncompatible", h), 0);
	ASSERT_EQ(VEXOSysNotifySendNotifiction("Second", nullptr), 0);
	auto names = spool(root);
	ASSERT_EQ(names.size(), 2u); // no temporary left behind
	std::string first = root.read(std::string(VEXO_NOTIFY_SPOOL_DIR) + "/" + names[0]);
	EXPECT_EQ(first.rfind("tag=DiskCompatibilityIncompatible\ntime=", 0), 0u) << first;
	EXPECT_NE(first.find("\n%MODEL%=HAT5300\n%DISK_ID%=Drive 1\\nx\\\\y\n"), std::string::npos) << first;
	EXPECT_EQ(root.read(std::string(VEXO_NOTIFY_SPOOL_DIR) + "/" + names[1]).rfind("tag=Second\n", 0), 0u);

	// Refused whole: nothing is spooled.
	ASSERT_EQ(VLIBCSzHashSetValue(&h, "a=b", "v"), 0);
	VLIBCErrClear();
	EXPECT_EQ(VEXOSysNotifySendNotifiction("T", h), -1);
	EXPECT_ERR(VEXO_ERR_BAD_PARAM);
	for (const char *bad : {"", "two\nlines"})
		EXPECT_EQ(VEXOSysNotifySendNotifiction(bad, nullptr), -1);
	EXPECT_EQ(VEXOSysNotifySendNotifiction(nullptr, nullptr), -1);
	EXPECT_EQ(spool(root).size(), 2u);
	VLIBCSzHashFree(h);

	// A file where the spool should be: a write error.
	root.remove(VEXO_NOTIFY_SPOOL_DIR);
	root.write(VEXO_NOTIFY_SPOOL_DIR, "not a folder");
	VLIBCErrClear();
	EXPECT_EQ(VEXOSysNotifySendNotifiction("T", nullptr), -1);
	EXPECT_ERR(VEXO_ERR_WRITE);
}

} // namespace
