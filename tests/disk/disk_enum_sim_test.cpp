// Enumeration on a simulated box with the drive emulator answering: which
// disks are asked their temperature, the size behind a device number, and
// the overview command end to end.
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <json-c/json.h>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

#include <vexohw/disk_enum.h>

#include "external/port_map.h"
#include "support/vexotest.h"

namespace fs = std::filesystem;
using vexo::test::ScopedEnv;

namespace {

const bool kEmulator = [] {
	std::string lib = vexo::test::buildDir() + "/sim/drive/libvexosim_drive.so";
	::setenv("VEXO_DEVICE_BACKEND", lib.c_str(), 1);
	return true;
}();

constexpr const char *kBox = R"({
  "model": "VX0402",
  "version": {"majorversion": "7", "minorversion": "2", "productversion": "7.2.2",
              "buildphase": "GM", "base": 72806, "nano": 3, "builddate": "2024/11/06"},
  "ports": {"internal": 2, "esata": 1, "usb": 1},
  "units": [{"port": 1, "model": "XU05", "bays": 5}],
  "devices": [
    {"name": "sda", "where": "bay", "bay": 1, "protocol": "ata", "model": "ST8000VN004-3CP101",
     "serial": "WWZ4K1QA", "firmware": "SC60", "size_bytes": 8001563222016, "rotation_rate": 7200,
     "drive": {"temperature": 37}},
    {"name": "sdb", "where": "bay", "bay": 2, "protocol": "ata", "model": "TOSHIBA MG08ACA16TE",
     "serial": "31P0A0GDFVGG", "firmware": "0102", "size_bytes": 16000900661248, "rotation_rate": 7200,
     "drive": {"temperature": 39}},
    {"name": "sdca", "where": "unit", "port": 1, "bay": 1, "protocol": "ata", "model": "ST4000VN006-3CW104",
     "serial": "ZW62Z1HX", "firmware": "SC60", "size_bytes": 4000787030016, "rotation_rate": 5400,
     "drive": {"temperature": 41}},
    {"name": "sdcb", "where": "unit", "port": 1, "bay": 2, "protocol": "ata", "model": "ST4000VN006-3CW104",
     "serial": "ZW62Z2AD", "firmware": "SC60", "size_bytes": 4000787030016, "rotation_rate": 5400,
     "drive": {"temperature": 44}},
    {"name": "sdd", "where": "usb", "port": 1, "protocol": "ata", "vendor": "WD", "model": "Elements 25A3",
     "serial": "WX12A71KT9E2", "firmware": "1021", "size_bytes": 2000365289472, "rotation_rate": 5400,
     "drive": {"temperature": 30}}
  ]
})";

using vexo::test::Ran;

Ran run(const std::vector<std::string> &argv, bool withStderr = false)
{
	Ran r;
	r.status = vexo::test::runProgram(argv, &r.out, withStderr);
	return r;
}

class EnumSim : public ::testing::Test {
protected:
	static void SetUpTestSuite()
	{
		char t[] = "/tmp/vexo-enumsim.XXXXXX";
		dir_ = ::mkdtemp(t);
		{
			std::FILE *f = std::fopen((dir_ + "/box.json").c_str(), "w");
			std::fputs(kBox, f);
			std::fclose(f);
		}
		Ran r = run({bin("vexosim"), "build", dir_ + "/box.json", dir_ + "/root"}, true);
		ASSERT_EQ(r.status, 0) << r.out;
	}
	static void TearDownTestSuite() { fs::remove_all(dir_); }
	void SetUp() override
	{
		vexo::external::resetPortMaps();
		fs::remove(root() + VEXO_DISK_SNAPSHOT);
		fs::remove_all(root() + "/run/vexosim/drive");
	}
	static std::string bin(const std::string &name) { return vexo::test::buildDir() + "/bin/" + name; }
	static std::string root() { return dir_ + "/root"; }
	// Commands a drive received (its emulator log, without OPEN lines).
	static int commands(const std::string &name)
	{
		std::ifstream in(root() + "/run/vexosim/drive/" + name + ".log");
		int n = 0;
		for (std::string l; std::getline(in, l);)
			n += l.rfind("OPEN", 0) != 0 && !l.empty();
		return n;
	}
	// name -> temperature of the snapshot's entries
	static std::map<std::string, int> snapshotTemperatures()
	{
		std::ifstream in(root() + VEXO_DISK_SNAPSHOT, std::ios::binary);
		std::map<std::string, int> out;
		DiskInfoFileEntry e;
		while (in.read(reinterpret_cast<char *>(&e), sizeof(e)))
			out[e.name] = e.temperature;
		return out;
	}

	static std::string dir_;
	ScopedEnv sysroot{"VEXO_SYSROOT", root().c_str()};
};

std::string EnumSim::dir_;

TEST_F(EnumSim, WriterAsksOnlyTheDisksThatAreAwake)
{
	ASSERT_EQ(VLIBDiskInfoEnumToCache(nullptr), 0);
	auto t = snapshotTemperatures();
	EXPECT_EQ(t, (std::map<std::string, int>{{"sda", 37}, {"sdb", 39}, {"sdca", 41}, {"sdcb", 44}, {"sdd", 0}}));
	EXPECT_EQ(commands("sdd"), 0); // a USB disk is never asked

	DiskEnumHibStatus all{};
	all.allHibernating = 1;
	fs::remove_all(root() + "/run/vexosim/drive");
	ASSERT_EQ(VLIBDiskInfoEnumToCache(&all), 0);
	for (const auto &[name, temp] : snapshotTemperatures()) {
		EXPECT_EQ(temp, 0) << name;
		EXPECT_EQ(commands(name), 0) << name;
	}

	DiskEnumHibStatus some{};
	ASSERT_EQ(DiskEnumHibDevPush("/dev/sdca", &some, DISK_HIB_KIND_EUNIT), 0);
	ASSERT_EQ(DiskEnumHibDevPush("/dev/sda", &some, DISK_HIB_KIND_USB), 0); // only USB disks are looked up there
	ASSERT_EQ(VLIBDiskInfoEnumToCache(&some), 0);
	t = snapshotTemperatures();
	EXPECT_EQ(t["sdca"], 0);
	EXPECT_EQ(commands("sdca"), 0);
	EXPECT_EQ(t["sdcb"], 44); // its neighbour in the unit is awake
	EXPECT_EQ(t["sda"], 37);
	std::free(some.eunitHibernating);
	std::free(some.usbHibernating);
}

TEST_F(EnumSim, SizeBehindADeviceNumber)
{
	unsigned int *numbers = nullptr;
	ASSERT_EQ(VEXODiskEnum(1, &numbers), 5);
	// in the order of /proc/partitions: bays, the unit (major 68), USB
	const unsigned int want[] = {0x800, 0x810, 0x44E0, 0x44F0, 0x830};
	for (int i = 0; i < 5; ++i)
		EXPECT_EQ(numbers[i], want[i]) << i;
	std::free(numbers);
	DiskBriefInfo *info = nullptr;
	ASSERT_EQ(VEXODiskGetInfo(1, 0x44F0, &info), 0);
	EXPECT_STREQ(info->name, "sdcb");
	EXPECT_EQ(info->capacityMiB, 4000787030016ULL >> 20);
	std::free(info);
	ASSERT_EQ(VEXODiskGetInfo(1, 0x810, &info), 0);
	EXPECT_STREQ(info->name, "sdb");
	EXPECT_EQ(info->type, 7);
	EXPECT_EQ(info->capacityMiB, 16000900661248ULL >> 20);
	EXPECT_EQ(info->reserved[0], 0);
	std::free(info);
}

json_object *parse(const std::string &text)
{
	return json_tokener_parse(text.c_str());
}

TEST_F(EnumSim, OverviewWalkAndSnapshotAgree)
{
	auto vexohw = [](std::vector<std::string> args) {
		std::vector<std::string> argv = {bin("vexosim"), "run", root(), "--", bin("vexohw")};
		argv.insert(argv.end(), args.begin(), args.end());
		return run(argv);
	};
	Ran walk = vexohw({"--json", "overview", "--walk"});
	ASSERT_EQ(walk.status, 0) << walk.out;
	json_object *doc = parse(walk.out);
	ASSERT_NE(doc, nullptr) << walk.out;
	EXPECT_STREQ(json_object_get_string(json_object_object_get(doc, "source")), "walk");
	json_object *disks = json_object_object_get(doc, "disks");
	ASSERT_EQ(json_object_array_length(disks), 5u);
	// bays first, then the unit, then USB
	const char *order[] = {"sda", "sdb", "sdca", "sdcb", "sdd"};
	for (size_t i = 0; i < 5; ++i) {
		json_object *d = json_object_array_get_idx(disks, i);
		EXPECT_STREQ(json_object_get_string(json_object_object_get(d, "name")), order[i]);
		for (const char *k : {"location", "container", "model", "serial", "firmware", "capacity_bytes",
				      "logical_block_size_bytes", "media", "temperature_c", "smart"})
			EXPECT_TRUE(json_object_object_get_ex(d, k, nullptr)) << k;
	}
	json_object *sda = json_object_array_get_idx(disks, 0);
	EXPECT_STREQ(json_object_get_string(json_object_object_get(sda, "location")), "Bay 1");
	EXPECT_EQ(json_object_get_int64(json_object_object_get(sda, "capacity_bytes")), 8001563222016LL);
	EXPECT_EQ(json_object_get_int(json_object_object_get(sda, "temperature_c")), 37);
	EXPECT_STREQ(json_object_get_string(json_object_object_get(sda, "media")), "HDD");
	// The kernel cuts the model at 16 bytes; the IDENTIFY data it keeps
	// has the whole, and the record says so.
	json_object *from = json_object_object_get(sda, "sources");
	EXPECT_STREQ(json_object_get_string(json_object_object_get(sda, "model")), "ST8000VN004-3CP101");
	EXPECT_STREQ(json_object_get_string(json_object_object_get(from, "model")), "ata_identify_vpd");
	EXPECT_STREQ(json_object_get_string(json_object_object_get(from, "temperature_c")), "drive");
	EXPECT_STREQ(json_object_get_string(json_object_object_get(from, "smart")), "smartctl");
	EXPECT_EQ(json_object_get_type(json_object_object_get(json_object_array_get_idx(disks, 4), "temperature_c")),
		  json_type_null); // USB: not asked
	EXPECT_STREQ(json_object_get_string(json_object_object_get(json_object_array_get_idx(disks, 2), "location")),
		     "Unit 3 bay 1 (XU05)");

	// The SMART lists came from the tool once and were cached; a second run
	// within the hour is served from the cache (which a tool run would have
	// replaced) and says the same.
	auto cacheStamp = [](const std::string &name) {
		struct stat st {};
		if (::stat((root() + "/run/vexostorage/disks/" + name + "/smart_info_list.cache").c_str(), &st) != 0)
			return std::string("missing");
		return std::to_string(st.st_ino) + "@" + std::to_string(st.st_mtim.tv_sec) + "." +
		       std::to_string(st.st_mtim.tv_nsec);
	};
	const std::string sdaCache = cacheStamp("sda"), sdcaCache = cacheStamp("sdca");
	EXPECT_NE(sdaCache, "missing");
	EXPECT_NE(sdcaCache, "missing");
	Ran again = vexohw({"--json", "overview", "--walk"});
	ASSERT_EQ(again.status, 0) << again.out;
	std::string expected = walk.out;
	for (size_t at; (at = expected.find("\"smart\": \"smartctl\"")) != std::string::npos;)
		expected.replace(at, 19, "\"smart\": \"cache\"");
	EXPECT_EQ(again.out, expected);
	EXPECT_EQ(cacheStamp("sda"), sdaCache);
	EXPECT_EQ(cacheStamp("sdca"), sdcaCache);

	Ran none = vexohw({"overview", "--snapshot"});
	EXPECT_EQ(none.status, 1);
	EXPECT_EQ(vexohw({"snapshot", "write", "sdcb"}).status, 1);
	Ran wrote = vexohw({"--json", "snapshot", "write", "--hibernating", "sdcb", "/dev/sdd"});
	ASSERT_EQ(wrote.status, 0) << wrote.out;
	json_object *w = parse(wrote.out);
	EXPECT_EQ(json_object_get_int(json_object_object_get(w, "disk_count")), 5);
	Ran snap = vexohw({"--json", "disk", "list", "--snapshot"});
	ASSERT_EQ(snap.status, 0) << snap.out;
	json_object *s = parse(snap.out);
	EXPECT_STREQ(json_object_get_string(json_object_object_get(s, "source")), "snapshot");
	json_object *sdisks = json_object_object_get(s, "disks");
	ASSERT_EQ(json_object_array_length(sdisks), 5u);
	EXPECT_EQ(json_object_get_type(json_object_object_get(json_object_array_get_idx(sdisks, 3), "temperature_c")),
		  json_type_null); // written while it slept
	EXPECT_EQ(json_object_get_int(json_object_object_get(json_object_array_get_idx(sdisks, 2), "temperature_c")), 41);
	Ran bad = vexohw({"snapshot", "write", "--hibernating", "sda"});
	EXPECT_EQ(bad.status, 1);
	Ran table = vexohw({"overview"});
	EXPECT_EQ(table.status, 0);
	EXPECT_NE(table.out.find("VX0402: 5 disks"), std::string::npos) << table.out;
	json_object_put(doc);
	json_object_put(w);
	json_object_put(s);
}

} // namespace
