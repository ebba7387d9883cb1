// vexohw health on a disk in standby asks only its power mode, alone or
// among all, and lists it as not read; --wake reads it.
#include <fstream>

#include "tools/cli_run.h"

using namespace vexo::test;

TEST(HealthAsleep, LeavesTheSleepingDiskAsleep)
{
	BuiltBox box;
	ASSERT_TRUE(box.ok()) << box.log();
	const std::string log = box.root() + "/run/vexosim/drive/sda.log";
	ASSERT_EQ(box.vexohw({"power", "standby", "sda"}).status, 0);
	std::filesystem::remove(log);
	EXPECT_EQ(text(JsonDoc(box.vexohw({"--json", "health", "sda"}).out).obj, "power_mode"), "standby");
	JsonDoc all(box.vexohw({"--json", "health", "--all"}).out);
	ASSERT_GT(json_object_array_length(all.obj), 1u);
	EXPECT_EQ(text(json_object_array_get_idx(all.obj, 0), "read"), "false");
	EXPECT_EQ(text(json_object_array_get_idx(all.obj, 1), "health"), "normal");
	std::ifstream in(log);
	std::string sent;
	for (std::string l; std::getline(in, l);)
		if (l.rfind("OPEN", 0) != 0)
			sent += l + "\n";
	EXPECT_EQ(sent, "HDIO_DRIVE_CMD args=e5000000 -> ok\nHDIO_DRIVE_CMD args=e5000000 -> ok\n");
	EXPECT_EQ(text(JsonDoc(box.vexohw({"--json", "health", "sda", "--wake"}).out).obj, "health"), "normal");
}
