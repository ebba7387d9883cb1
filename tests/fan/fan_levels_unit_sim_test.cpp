// `vexohw fan levels` on the 60-bay box: each expansion unit's group is read
// from that unit's own disks, its hottest one deciding the level.
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <json-c/json.h>
#include <map>
#include <sstream>
#include <string>

#include "support/sim_daemon.h"
#include "tools/cli_run.h"

namespace vexo::test {
namespace {

TEST(FanLevelsCli, UnitGroupByItsHottestDisk)
{
	// One disk of each unit made its hottest (the others stay at 28 to 38),
	// and a unit number as its disks' letter names it (sdm: 13).
	const struct {
		const char *disk;
		int temperature, unit, level;
	} hottest[] = {{"sdmc", 47, 13, 1}, {"sdnf", 44, 14, 0}, {"sdoa", 61, 15, 2}, {"sdpl", 52, 16, 1}};
	std::stringstream box;
	box << std::ifstream(sourceTreeOf(__FILE__) + "/examples/box60.json").rdbuf();
	JsonDoc desc(box.str());
	ASSERT_TRUE(desc.obj);
	json_object *devices = field(desc.obj, "devices");
	for (size_t i = 0; i < json_object_array_length(devices); ++i) {
		json_object *d = json_object_array_get_idx(devices, i);
		for (const auto &h : hottest)
			if (text(d, "name") == h.disk)
				json_object_object_add(field(d, "drive"), "temperature", json_object_new_int(h.temperature));
	}
	char tmp[] = "/tmp/vexo-fan-unit.XXXXXX";
	ASSERT_TRUE(::mkdtemp(tmp));
	const std::string dir = tmp, root = dir + "/root";
	std::ofstream(dir + "/box.json") << json_object_to_json_string(desc.obj);
	Ran built = runCaptured({buildDir() + "/bin/vexosim", "build", dir + "/box.json", root});
	ASSERT_EQ(built.status, 0) << built.out << built.err;
	Ran r;
	{
		HostDaemonLock lock;
		r = runCaptured({buildDir() + "/bin/vexosim", "run", root, "--", buildDir() + "/bin/vexohw", "--json", "fan",
				 "levels"});
		runCaptured({buildDir() + "/bin/vexosim", "stop", root});
	}
	std::filesystem::remove_all(dir);
	ASSERT_EQ(r.status, 0) << r.out << r.err;
	JsonDoc out(r.out);
	ASSERT_TRUE(out.obj) << r.out;
	std::map<int, std::string> tempOf, levelOf; // by unit
	json_object *tables = field(out.obj, "tables");
	for (size_t i = 0; i < json_object_array_length(tables); ++i) {
		json_object *t = json_object_array_get_idx(tables, i);
		if (text(t, "unit") != "null") {
			tempOf[std::stoi(text(t, "unit"))] = text(t, "temperature_c");
			levelOf[std::stoi(text(t, "unit"))] = text(t, "level");
		}
	}
	ASSERT_EQ(tempOf.size(), std::size(hottest)) << r.out;
	for (const auto &h : hottest) {
		SCOPED_TRACE(h.disk);
		EXPECT_EQ(tempOf[h.unit], std::to_string(h.temperature));
		EXPECT_EQ(levelOf[h.unit], std::to_string(h.level));
	}
}

} // namespace
} // namespace vexo::test
