// vexohw disk where, port list and device-path on the bundled box: every
// device's answer against values written here, and the round trips between
// names, ids, indexes and positions.
#include <algorithm>
#include <map>
#include <set>

#include "tools/cli_run.h"

using namespace vexo::test;

namespace {

class BoxCli : public ::testing::Test {
protected:
	static void SetUpTestSuite() { box = new BuiltBox(); }
	static void TearDownTestSuite()
	{
		delete box;
		box = nullptr;
	}
	void SetUp() override { ASSERT_TRUE(box->ok()) << box->log(); }
	static BuiltBox *box;
};

BuiltBox *BoxCli::box = nullptr;

struct Where {
	int type, index, container, unit, slot;
	std::string keyword, display, mail, identifier, serialized, location; // serialized "null": none
};

Where internal(int n)
{
	std::string i = std::to_string(n);
	return {1, n, 1, 0, -1, "internal", i, "Drive " + i, "Disk_" + i, "internal_0_" + i, "VX1222 Disk " + i};
}

// What every device of the box is, as the rules for names, port maps,
// NVMe locations and units make it.
const std::map<std::string, Where> &expected()
{
	static const std::map<std::string, Where> all = {
		{"sda", internal(1)},
		{"sdb", internal(2)},
		{"sdc", internal(3)},
		{"sdd", internal(4)},
		{"sde", internal(5)},
		{"sdf", internal(6)},
		{"sdh", internal(8)},
		{"sdi", internal(9)},
		{"sdj", internal(10)},
		{"nvme0n1", {7, 1, 32, 0, 1, "cache", "Cache device 1-1", "Cache device 1-1", "Cache_1-1", "cache_1_1",
			     "VX1222 Cache device 1-1"}},
		{"nvme1n1", {7, 2, 32, 0, 1, "cache", "Cache device 1-2", "Cache device 1-2", "Cache_1-2", "cache_1_2",
			     "VX1222 Cache device 1-2"}},
		// USB: the letter's number, no serialized form, no identifier.
		{"sdn", {4, 14, 4, 0, -1, "usb", "14", "Drive 14", "unknown", "null", "VX1222 USB 14"}},
		// The unit behind the eSATA port sdm is unit 13 ('m'); index is the bay.
		{"sdma", {3, 1, 2, 13, -1, "ebox", "1", "Drive 1", "Disk_1_XU05", "ebox_13_1", "XU05-13 Disk 1"}},
		{"sdmb", {3, 2, 2, 13, -1, "ebox", "2", "Drive 2", "Disk_2_XU05", "ebox_13_2", "XU05-13 Disk 2"}},
		{"sdmc", {3, 3, 2, 13, -1, "ebox", "3", "Drive 3", "Disk_3_XU05", "ebox_13_3", "XU05-13 Disk 3"}},
		{"sdme", {3, 5, 2, 13, -1, "ebox", "5", "Drive 5", "Disk_5_XU05", "ebox_13_5", "XU05-13 Disk 5"}},
	};
	return all;
}

const char *kTypeNames[] = {"invalid", "internal", "esata", "ebox", "usb", "vexoboot",
			    "isd", "cache", "other_sd", "mmc", "blocked", "sys"};

void expectWhere(json_object *r, const std::string &name, const Where &w, const std::string &asked)
{
	SCOPED_TRACE(asked);
	EXPECT_EQ(text(r, "path"), asked);
	EXPECT_EQ(text(r, "port_type"), std::to_string(w.type));
	EXPECT_EQ(text(r, "port_type_name"), kTypeNames[w.type]);
	EXPECT_EQ(text(r, "index"), std::to_string(w.index));
	EXPECT_EQ(text(r, "container"), std::to_string(w.container));
	EXPECT_EQ(text(r, "unit"), std::to_string(w.unit));
	EXPECT_EQ(text(r, "slot"), std::to_string(w.slot));
	EXPECT_EQ(text(r, "container_keyword"), w.keyword);
	EXPECT_EQ(text(r, "display"), w.display);
	EXPECT_EQ(text(r, "mail"), w.mail);
	EXPECT_EQ(text(r, "identifier"), w.identifier);
	EXPECT_EQ(text(r, "serialized"), w.serialized);
	EXPECT_EQ(text(r, "location"), w.location);
	// What holds it, without and with the unit's number.
	EXPECT_EQ(text(r, "host"), w.container == 2 ? "XU05" : "VX1222");
	EXPECT_EQ(text(r, "holder"), w.container == 2 ? "XU05-13" : "VX1222");
	EXPECT_EQ(text(r, "disk"), name);
}

TEST_F(BoxCli, DiskWhereAnswersForEveryDevice)
{
	// Every device the description puts in the box has its expected answer.
	std::unique_ptr<json_object, int (*)(json_object *)> desc(json_object_from_file(box->description().c_str()),
								  json_object_put);
	json_object *devs = field(desc.get(), "devices");
	ASSERT_TRUE(devs);
	std::set<std::string> names;
	for (size_t i = 0; i < json_object_array_length(devs); ++i)
		names.insert(text(json_object_array_get_idx(devs, i), "name"));
	std::set<std::string> want;
	for (const auto &[n, w] : expected())
		want.insert(n);
	EXPECT_EQ(names, want);

	for (const auto &[name, w] : expected()) {
		for (const std::string &asked : {"/dev/" + name, name}) {
			Ran r = box->vexohw({"--json", "disk", "where", asked});
			ASSERT_EQ(r.status, 0) << asked << ": " << r.err;
			JsonDoc doc(r.out);
			ASSERT_TRUE(doc.obj && json_object_is_type(doc.obj, json_type_object)) << r.out;
			expectWhere(doc.obj, name, w, asked);
			EXPECT_EQ(text(doc.obj, "partition_number"), "0");
			EXPECT_EQ(text(doc.obj, "partition"), "0");
		}
	}

	// --all walks /sys/block: exactly the box's devices, in name order.
	Ran all = box->vexohw({"--json", "disk", "where", "--all"});
	ASSERT_EQ(all.status, 0) << all.err;
	JsonDoc doc(all.out);
	ASSERT_TRUE(doc.obj && json_object_is_type(doc.obj, json_type_array)) << all.out;
	ASSERT_EQ(json_object_array_length(doc.obj), expected().size());
	size_t i = 0;
	for (const auto &[name, w] : expected())
		expectWhere(json_object_array_get_idx(doc.obj, i++), name, w, "/dev/" + name);
}

TEST_F(BoxCli, DiskWhereSplitsPartitions)
{
	struct Case {
		const char *path, *disk;
		int partition;
	} cases[] = {{"/dev/sdn1", "sdn", 1}, {"sdj15", "sdj", 15}, {"/dev/nvme1n1p2", "nvme1n1", 2},
		     {"sdmc3", "sdmc", 3}};
	for (const auto &c : cases) {
		Ran r = box->vexohw({"--json", "disk", "where", c.path});
		ASSERT_EQ(r.status, 0) << c.path << ": " << r.err;
		JsonDoc doc(r.out);
		EXPECT_EQ(text(doc.obj, "disk"), c.disk) << c.path;
		EXPECT_EQ(text(doc.obj, "partition"), std::to_string(c.partition)) << c.path;
		EXPECT_EQ(text(doc.obj, "partition_number"), std::to_string(c.partition)) << c.path;
	}
	// Several paths make a table, one line each.
	Ran t = box->vexohw({"disk", "where", "sda", "/dev/sdme"});
	ASSERT_EQ(t.status, 0) << t.err;
	EXPECT_EQ(std::count(t.out.begin(), t.out.end(), '\n'), 3) << t.out;
	EXPECT_NE(t.out.find("XU05-13 Disk 5"), std::string::npos) << t.out;
}

TEST_F(BoxCli, BadArgumentsAreRefusedClearly)
{
	struct Case {
		std::vector<std::string> args;
		const char *message;
	} cases[] = {
		{{"disk", "where"}, "usage: disk where"},
		{{"disk", "where", "/dev/hda"}, "/dev/hda: not a device of any port"},
		{{"disk", "where", ""}, "not a device path"},
		{{"disk", "where", "sda", "--all"}, "give paths or --all, not both"},
		{{"disk", "where", "--colour", "sda"}, "unknown option --colour"},
		{{"port", "list"}, "usage: port list TYPE"},
		{{"port", "list", "attic"}, "'attic' is no port type"},
		{{"port", "list", "12"}, "'12' is no port type"},
		{{"port", "list", "0"}, "no device list for port type 0 (invalid)"},
		{{"port", "list", "usb", "--everything"}, "unknown option --everything"},
		{{"port", "list", "vexoboot", "--all"}, "no port map list for port type 5"},
		{{"device-path"}, "usage: device-path"},
		{{"device-path", "--index", "x"}, "--index needs a whole number, not 'x'"},
		{{"device-path", "--index", "99999999999999999999"}, "--index needs a whole number"},
		{{"device-path", "--index", "0"}, "no device for index 0"},
		{{"device-path", "--index", "3", "--cnr", "0"}, "usage: device-path"},
		{{"device-path", "--position", "0", "--cnr", "0"}, "no device at position 0 of container 0"},
		{{"device-path", "--position", "9", "--cnr", "13"}, "no device at position 9 of container 13"},
		{{"device-path", "--index"}, "option --index needs a value"},
	};
	for (const auto &c : cases) {
		std::string line;
		for (const auto &a : c.args)
			line += a + " ";
		SCOPED_TRACE(line);
		for (bool json : {false, true}) {
			auto args = c.args;
			if (json)
				args.insert(args.begin(), "--json");
			Ran r = box->vexohw(args);
			EXPECT_EQ(r.status, 1) << r.out << r.err;
			EXPECT_NE(r.err.find(c.message), std::string::npos) << r.err;
			EXPECT_EQ(r.err.rfind("vexohw: ", 0), 0u) << r.err;
			EXPECT_EQ(r.out, "");
		}
	}
}

// Port list by number and by name agree, and every listed disk finds its
// way back: name -> id -> position -> path, and name -> encoded index -> path.
TEST_F(BoxCli, PortListAndDevicePathRoundTrips)
{
	const std::map<std::string, std::vector<std::string>> want = {
		{"internal", {"sda", "sdb", "sdc", "sdd", "sde", "sdf", "sdh", "sdi", "sdj"}},
		{"ebox", {"sdma", "sdmb", "sdmc", "sdme"}},
		{"usb", {"sdn"}},
		{"cache", {"nvme0n1", "nvme1n1"}},
		{"esata", {}},
		{"sys", {}},
	};
	const std::map<std::string, int> numbers = {{"internal", 1}, {"esata", 2}, {"ebox", 3},
						    {"usb", 4},      {"cache", 7}, {"sys", 11}};
	auto names = [](const Ran &r) {
		std::vector<std::string> out;
		JsonDoc doc(r.out);
		json_object *list = field(doc.obj, "names");
		for (size_t i = 0; list && i < json_object_array_length(list); ++i)
			out.push_back(json_object_get_string(json_object_array_get_idx(list, i)));
		return out;
	};
	for (const auto &[type, disks] : want) {
		SCOPED_TRACE(type);
		Ran byName = box->vexohw({"--json", "port", "list", type});
		Ran byNumber = box->vexohw({"--json", "port", "list", std::to_string(numbers.at(type))});
		ASSERT_EQ(byName.status, 0) << byName.err;
		ASSERT_EQ(byNumber.status, 0) << byNumber.err;
		EXPECT_EQ(names(byName), disks);
		EXPECT_EQ(byName.out, byNumber.out);

		for (const auto &d : disks) {
			JsonDoc where(box->vexohw({"--json", "disk", "where", d}).out);
			int index = json_object_get_int(field(where.obj, "index"));
			int unit = json_object_get_int(field(where.obj, "unit"));
			int slot = json_object_get_int(field(where.obj, "slot"));
			std::string cnr = type == "internal" ? "0" : type == "ebox" ? std::to_string(unit)
							  : type == "cache"  ? std::to_string(2000 + slot)
									     : "";
			if (!cnr.empty()) {
				Ran p = box->vexohw({"--json", "device-path", "--position", std::to_string(index), "--cnr", cnr});
				ASSERT_EQ(p.status, 0) << d << ": " << p.err;
				JsonDoc doc(p.out);
				EXPECT_EQ(text(doc.obj, "path"), "/dev/" + d);
				EXPECT_EQ(text(doc.obj, "position"), std::to_string(index));
			}
			if (d.rfind("sd", 0) == 0) {
				// The encoded index of a letter name: 'a' is 1 for the first of two letters.
				int encoded = d.size() == 3 ? d[2] - 'a' + 1 : (d[2] - 'a' + 1) * 26 + (d[3] - 'a') + 1;
				Ran p = box->vexohw({"device-path", "--index", std::to_string(encoded)});
				ASSERT_EQ(p.status, 0) << d << ": " << p.err;
				EXPECT_EQ(p.out, "index: " + std::to_string(encoded) + "\npath:  /dev/" + d + "\n");
			}
		}
	}
	// The port maps, present or not: bay 7 is empty but in the map.
	Ran map = box->vexohw({"--json", "port", "list", "internal", "--all"});
	ASSERT_EQ(map.status, 0) << map.err;
	EXPECT_EQ(names(map), (std::vector<std::string>{"sda", "sdb", "sdc", "sdd", "sde", "sdf", "sdg", "sdh", "sdi",
							"sdj", "sdk", "sdl"}));
	JsonDoc m(map.out);
	EXPECT_EQ(text(m.obj, "port_map"), "true");
	// NVMe locations by index: 1001 on an NVMe product.
	Ran nvme = box->vexohw({"device-path", "--index", "1002"});
	EXPECT_EQ(nvme.out, "index: 1002\npath:  /dev/nvme1n1\n");
}

} // namespace
