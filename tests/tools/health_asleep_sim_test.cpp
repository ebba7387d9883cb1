// vexohw health on a disk in standby: the verdict reads SMART data, so a
// sleeping disk is asked only its power mode and listed as not read, alone
// or among all; --wake reads it anyway.
#include <fstream>

#include "tools/cli_run.h"

using namespace vexo::test;

namespace {

TEST(HealthAsleep, LeavesTheSleepingDiskAsleep)
{
	BuiltBox box;
	ASSERT_TRUE(box.ok()) << box.log();
	const std::string log = box.root() + "/run/vexosim/drive/sda.log";
	auto sent = [&] {
		std::ifstream in(log);
		std::vector<std::string> out;
		for (std::string l; std::getline(in, l);)
			if (l.rfind("OPEN", 0) != 0)
				out.push_back(l);
		return out;
	};
	ASSERT_EQ(box.vexohw({"power", "standby", "sda"}).status, 0);
	std::filesystem::remove(log);

	JsonDoc one(box.vexohw({"--json", "health", "sda"}).out);
	EXPECT_EQ(text(one.obj, "power_mode"), "standby");
	JsonDoc all(box.vexohw({"--json", "health", "--all"}).out);
	ASSERT_GT(json_object_array_length(all.obj), 1u);
	EXPECT_EQ(text(json_object_array_get_idx(all.obj, 0), "read"), "false");
	EXPECT_EQ(text(json_object_array_get_idx(all.obj, 1), "health"), "normal"); // the awake disks are judged
	EXPECT_EQ(sent(), (std::vector<std::string>{"HDIO_DRIVE_CMD args=e5000000 -> ok",
						    "HDIO_DRIVE_CMD args=e5000000 -> ok"}));

	JsonDoc woken(box.vexohw({"--json", "health", "sda", "--wake"}).out);
	EXPECT_EQ(text(woken.obj, "health"), "normal");
	EXPECT_EQ(sent().size() > 2 && sent()[2].find("[woke from standby]") != std::string::npos, true);
}

} // namespace
