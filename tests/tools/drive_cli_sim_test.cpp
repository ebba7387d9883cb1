// vexohw on the bundled box: disk where, port list and device-path; drive
// identify, smart-page and power; power and daemon commands, and the rule that
// a disk in standby is asked only its power mode.
#include <algorithm>
#include <ctime>
#include <fcntl.h>
#include <fstream>
#include <map>
#include <set>
#include <tuple>
#include <vexohw/smartctl.h>

#include "smartctl/drive_sim.h"
#include "support/sim_daemon.h"
#include "tools/cli_run.h"

using namespace vexo::test;

namespace {

const bool kBackend = installDriveEmulator();

class DriveCli : public ::testing::Test {
protected:
	void SetUp() override
	{
		ASSERT_TRUE(kBackend);
		ASSERT_TRUE(box.ok()) << box.log();
	}
	// Answer of one command as JSON; the status must be 0.
	json_object *ask(const std::vector<std::string> &args)
	{
		std::vector<std::string> a{"--json"};
		a.insert(a.end(), args.begin(), args.end());
		Ran r = box.vexohw(a);
		EXPECT_EQ(r.status, 0) << r.err;
		docs.push_back(std::make_unique<JsonDoc>(r.out));
		EXPECT_TRUE(docs.back()->obj) << r.out;
		return docs.back()->obj;
	}
	// Sets keys of a drive node (a JSON object text of the keys to set).
	void patch(const std::string &name, const std::string &keys)
	{
		JsonDoc node(box.read("/dev/" + name));
		JsonDoc add(keys);
		ASSERT_TRUE(node.obj && add.obj) << keys;
		json_object_object_foreach(add.obj, k, v) json_object_object_add(node.obj, k, json_object_get(v));
		std::ofstream(box.root() + "/dev/" + name, std::ios::trunc) << json_object_to_json_string(node.obj);
	}
	// A command that fails with status 1, the message on stderr, nothing out.
	void refused(const std::vector<std::string> &args, const std::string &message)
	{
		Ran r = box.vexohw(args);
		EXPECT_EQ(r.status, 1) << r.out;
		EXPECT_NE(r.err.find(message), std::string::npos) << r.err;
		EXPECT_EQ(r.out, "");
	}
	std::string lastCommand(const std::string &name)
	{
		auto sent = box.sent(name);
		return sent.empty() ? "" : sent.back();
	}
	// Runs a command interface call in this process, on the box.
	int command(const std::string &name, DriveCommandInterface iface, unsigned cmd, void *data)
	{
		ScopedEnv env("VEXO_SYSROOT", box.root().c_str());
		int h = vexo::dev::openHandle(("/dev/" + name).c_str(), O_RDONLY | O_NONBLOCK);
		if (h < 0)
			return -2;
		int rc = iface(h, cmd, data);
		vexo::dev::close(h);
		return rc;
	}

	BuiltBox box;
	std::vector<std::unique_ptr<JsonDoc>> docs;
};

TEST_F(DriveCli, IdentifyDecodesEveryKindOfDrive)
{
	struct Want {
		const char *name, *interface, *model, *serial, *firmware;
		long long sectors;
		int rpm, formFactor;
	} wants[] = {
		{"sda", "ata", "ST8000VN004-3CP101", "WWZ4K1QA", "SC60", 8001563222016LL / 512, 7200, 2},
		{"sdh", "ata", "Samsung SSD 870 EVO 1TB", "S6PUNX0T412873M", "SVT02B6Q", 1000204886016LL / 512, 1, 3},
		{"sdn", "sat", "Elements 25A3", "WX12A71KT9E2", "1021", 2000365289472LL / 512, 5400, 2},
		{"sdme", "ata", "TOSHIBA HDWG480", "X1P0A04QFR0G", "0601", 8001563222016LL / 512, 7200, 2},
	};
	for (const auto &w : wants) {
		SCOPED_TRACE(w.name);
		json_object *r = ask({"drive", "identify", w.name});
		EXPECT_EQ(texts(r, {"path", "interface", "model", "serial", "firmware", "lba48_sectors",
				    "rotation_rate_rpm", "form_factor_word"}),
			  (Strings{std::string("/dev/") + w.name, w.interface, w.model, w.serial, w.firmware,
				   std::to_string(w.sectors), std::to_string(w.rpm), std::to_string(w.formFactor)}));
		// sct_word 0x003D
		EXPECT_EQ(texts(r, {"sct_word", "sct_supported", "sct_error_recovery_control", "smart_enabled",
				    "packet_device", "checksum"}),
			  (Strings{"61", "true", "true", "true", "false", "valid"}));
	}
	// The words the drive sends are the words shown.
	patch("sda", R"({"identify_words": {"168": 3, "206": 1}})");
	json_object *r = ask({"drive", "identify", "/dev/sda"});
	EXPECT_EQ(texts(r, {"form_factor_word", "sct_supported", "sct_error_recovery_control", "sct_data_tables",
			    "checksum"}),
		  (Strings{"3", "true", "false", "false", "valid"}));

	patch("sda", R"({"identify_signature": false})");
	EXPECT_EQ(text(ask({"drive", "identify", "sda"}), "checksum"), "absent");
	patch("sda", R"({"identify_signature": true, "faults": {"identify": {"bad_checksum": true}}})");
	EXPECT_EQ(text(ask({"drive", "identify", "sda"}), "checksum"), "bad");
	patch("sda", R"({"faults": {}, "packet": true})");
	r = ask({"drive", "identify", "sda"});
	EXPECT_EQ(text(r, "packet_device"), "true");
	EXPECT_EQ(lastCommand("sda"), "HDIO_DRIVE_CMD args=a1000001 -> ok"); // sent as IDENTIFY PACKET

	// A drive that answers neither IDENTIFY.
	patch("sda", R"({"packet": false, "faults": {"identify": {"abort": true}}})");
	refused({"drive", "identify", "sda"}, "drive identify: /dev/sda does not answer IDENTIFY");
}

TEST_F(DriveCli, SmartPageDecodesTheSlotsAndTheStatusBytes)
{
	json_object *r = ask({"drive", "smart-page", "sdc"});
	EXPECT_EQ(texts(r, {"revision", "offline_collection_status", "self_test_execution_status", "self_test_status",
			    "self_test_remaining_percent", "short_test_minutes", "extended_test_minutes", "checksum"}),
		  (Strings{"16", "0x82", "0x00", "completed without error", "null", "2", "255", "valid"}));
	json_object *attrs = field(r, "attributes");
	ASSERT_EQ(json_object_array_length(attrs), 13u);
	EXPECT_EQ(texts(json_object_array_get_idx(attrs, 0), {"slot", "id", "flags", "threshold"}),
		  (Strings{"1", "1", "0x000b", "16"}));
	// sdc of the bundled box runs at 33 degrees.
	EXPECT_EQ(texts(json_object_array_get_idx(attrs, 8), {"id", "raw"}), (Strings{"194", "33"}));

	// All 30 slots, a 48-bit raw value, and a slot the drive leaves empty.
	std::string list;
	for (int id = 1; id <= 31; ++id)
		list += std::string(id > 1 ? "," : "") + R"({"id":)" + std::to_string(id == 2 ? 0 : id) +
			R"(,"flags":50,"value":)" + std::to_string(100 + id) + R"(,"worst":)" + std::to_string(id) +
			R"(,"raw":)" + (id == 30 ? "281474976710655" : std::to_string(id * 1000)) + R"(,"threshold":)" +
			std::to_string(id % 7) + "}";
	long long now = std::time(nullptr);
	patch("sdc", R"({"smart": {"attributes": [)" + list + R"(], "extended_test_minutes": 300,
		"running_self_test": {"type": 1, "started": )" + std::to_string(now) + R"(, "minutes": 10}}})");
	r = ask({"drive", "smart-page", "/dev/sdc"});
	attrs = field(r, "attributes");
	ASSERT_EQ(json_object_array_length(attrs), 29u); // slot 2 is empty, the 31st has no slot
	EXPECT_EQ(texts(json_object_array_get_idx(attrs, 28), {"slot", "id", "value", "worst", "raw", "threshold"}),
		  (Strings{"30", "30", "130", "30", "281474976710655", "2"}));
	EXPECT_EQ(text(json_object_array_get_idx(attrs, 1), "slot"), "3");
	// The self-test the drive is running.
	EXPECT_EQ(texts(r, {"extended_test_minutes", "self_test_execution_status", "self_test_status",
			    "self_test_remaining_percent"}),
		  (Strings{"300", "0xf9", "in progress", "90"}));

	// Through SAT for the USB disk; and a table by default.
	Ran t = box.vexohw({"drive", "smart-page", "sdn"});
	ASSERT_EQ(t.status, 0) << t.err;
	EXPECT_NE(t.out.find("interface:"), std::string::npos);
	EXPECT_NE(t.out.find("SLOT  ID   FLAGS"), std::string::npos) << t.out;

	patch("sdc", R"({"faults": {"smart_read_values": {"abort": true}}})");
	refused({"--json", "drive", "smart-page", "sdc"}, "does not answer SMART READ DATA");
}

TEST_F(DriveCli, PowerReportsStandbyWithoutWakingTheDrive)
{
	json_object *r = ask({"drive", "power", "sda"});
	EXPECT_EQ(texts(r, {"power_mode_code", "power_mode"}), (Strings{"0xff", "active or idle"}));

	ASSERT_EQ(command("sda", ata_command_interface, CMD_STANDBY_IMMEDIATE, nullptr), 0);
	r = ask({"drive", "power", "/dev/sda"});
	EXPECT_EQ(texts(r, {"interface", "power_mode_code", "power_mode"}), (Strings{"ata", "0x00", "standby"}));
	EXPECT_EQ(lastCommand("sda"), "HDIO_DRIVE_CMD args=e5000000 -> ok");
	EXPECT_NE(box.read("/dev/sda").find(R"("power_state":"standby")"), std::string::npos);

	// Through SAT: the answer rides in the sense data.
	ASSERT_EQ(command("sdn", sat_command_interface, CMD_STANDBY_IMMEDIATE, nullptr), 0);
	r = ask({"drive", "power", "sdn"});
	EXPECT_EQ(texts(r, {"interface", "power_mode"}), (Strings{"sat", "standby"}));
	patch("sdn", R"({"power_state": "idle"})");
	EXPECT_EQ(text(ask({"drive", "power", "sdn"}), "power_mode"), "idle");

	patch("sda", R"({"faults": {"check_power_mode": {"errno": "EIO"}}})");
	refused({"drive", "power", "sda"}, "drive power: /dev/sda does not answer CHECK POWER MODE (error 0x6C00)");
}

TEST_F(DriveCli, ScsiDrivesAndRefusals)
{
	// On the virtual edition every disk is reached as SCSI.
	std::ofstream(box.root() + "/etc.defaults/vexoinfo.conf", std::ios::app) << "vvos=\"yes\"\n";
	patch("sdb", R"({"protocol": "scsi", "power_state": "standby"})");
	json_object *r = ask({"drive", "power", "sdb"});
	EXPECT_EQ(texts(r, {"interface", "scsi_status", "power_mode"}), (Strings{"scsi", "2", "stopped or not ready"}));

	struct Case {
		std::vector<std::string> args;
		const char *message;
	} cases[] = {
		{{"drive", "identify", "sdb"}, "/dev/sdb is a SCSI drive: it has no IDENTIFY page"},
		{{"drive", "smart-page", "sdb"}, "/dev/sdb is a SCSI drive: it has no SMART data page"},
		{{"drive", "identify"}, "usage: drive identify DISK"},
		{{"drive", "power", "sda", "sdb"}, "usage: drive power DISK"},
		{{"drive", "power", "sda", "--wake"}, "unknown option --wake"},
		{{"drive", "identify", "nvme0n1"}, "/dev/nvme0n1 is an NVMe drive"},
		{{"drive", "smart-page", "sdg"}, "cannot open /dev/sdg"}, // bay 7 is empty
		{{"drive", "power", "../../etc/passwd"}, "'../../etc/passwd' is not a disk name"},
		{{"drive", "power", ""}, "'' is not a disk name"},
	};
	for (const auto &c : cases) {
		SCOPED_TRACE(c.message);
		refused(c.args, c.message);
	}
}

// vexohw disk where, port list and device-path on the bundled box: every
// device's answer against values written here, and the round trips between
// names, ids, indexes and positions.
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
	using std::to_string;
	// host and holder: what holds it, without and with the unit's number.
	const std::pair<const char *, std::string> want[] = {
		{"path", asked}, {"port_type", to_string(w.type)}, {"port_type_name", kTypeNames[w.type]},
		{"index", to_string(w.index)}, {"container", to_string(w.container)}, {"unit", to_string(w.unit)},
		{"slot", to_string(w.slot)}, {"container_keyword", w.keyword}, {"display", w.display}, {"mail", w.mail},
		{"identifier", w.identifier}, {"serialized", w.serialized}, {"location", w.location},
		{"host", w.container == 2 ? "XU05" : "VX1222"}, {"holder", w.container == 2 ? "XU05-13" : "VX1222"},
		{"disk", name}};
	for (const auto &[key, value] : want)
		EXPECT_EQ(text(r, key), value) << key;
}

TEST_F(BoxCli, DiskWhereAnswersForEveryDeviceAndPartition)
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
			EXPECT_EQ(texts(doc.obj, {"partition_number", "partition"}), (Strings{"0", "0"}));
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

	// A partition answers for its disk, with its number.
	for (auto [path, disk, n] : {std::tuple{"/dev/sdn1", "sdn", "1"}, {"sdj15", "sdj", "15"},
				     {"/dev/nvme1n1p2", "nvme1n1", "2"}, {"sdmc3", "sdmc", "3"}}) {
		Ran r = box->vexohw({"--json", "disk", "where", path});
		ASSERT_EQ(r.status, 0) << path << ": " << r.err;
		JsonDoc p(r.out);
		expectWhere(p.obj, disk, expected().at(disk), path);
		EXPECT_EQ(texts(p.obj, {"partition", "partition_number"}), (Strings{n, n})) << path;
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
		{{"port", "list", "usb", "--al"}, "port list: unknown option --al (usage: port list TYPE [--all])"},
		{{"power", "timers", "--all"}, "power timers: unknown option --all"},
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

TEST_F(BoxCli, NvmeAttributesAndBundleSettings)
{
	// The maker's drive adds its vendor attributes (ids from 160) to the
	// health values; the other NVMe drive has none, and no bundle entry.
	for (const auto &[disk, vendor, bundle] : {std::tuple{"nvme1n1", 9, "true"}, std::tuple{"nvme0n1", 0, "false"}}) {
		Ran r = box->vexohw({"--json", "smart", "attrs", disk});
		ASSERT_EQ(r.status, 0) << disk << ": " << r.err;
		JsonDoc doc(r.out);
		ASSERT_TRUE(doc.obj && json_object_is_type(doc.obj, json_type_array)) << r.out;
		int n = 0;
		for (size_t i = 0; i < json_object_array_length(doc.obj); ++i)
			n += std::stoi(text(json_object_array_get_idx(doc.obj, i), "id")) >= 160;
		EXPECT_EQ(n, vendor) << r.out;
		Ran b = box->vexohw({"--json", "firmware", "bundle", disk});
		JsonDoc conf(b.out);
		EXPECT_EQ(text(conf.obj, "bundle"), bundle) << b.out;
	}
}

// Port list by number and by name agree, and every listed disk finds its
// way back: name -> id -> position -> path, and name -> encoded index -> path.
TEST_F(BoxCli, PortListAndDevicePathRoundTrips)
{
	auto names = [](const Ran &r) {
		std::vector<std::string> out;
		JsonDoc doc(r.out);
		json_object *list = field(doc.obj, "names");
		for (size_t i = 0; list && i < json_object_array_length(list); ++i)
			out.push_back(json_object_get_string(json_object_array_get_idx(list, i)));
		return out;
	};
	for (int number : {1, 2, 3, 4, 7, 11}) { // esata and sys have no device on this box
		const std::string type = kTypeNames[number];
		SCOPED_TRACE(type);
		std::vector<std::string> disks; // in name order, as the box's ports run
		for (const auto &[name, w] : expected())
			if (w.type == number)
				disks.push_back(name);
		Ran byName = box->vexohw({"--json", "port", "list", type});
		Ran byNumber = box->vexohw({"--json", "port", "list", std::to_string(number)});
		ASSERT_EQ(byName.status, 0) << byName.err;
		ASSERT_EQ(byNumber.status, 0) << byNumber.err;
		EXPECT_EQ(names(byName), disks);
		EXPECT_EQ(byName.out, byNumber.out);

		for (const auto &d : disks) {
			const Where &w = expected().at(d);
			std::string cnr = number == 1 ? "0" : number == 3 ? std::to_string(w.unit)
							  : number == 7 ? std::to_string(2000 + w.slot)
									: "";
			if (!cnr.empty()) {
				Ran p = box->vexohw({"--json", "device-path", "--position", std::to_string(w.index), "--cnr", cnr});
				ASSERT_EQ(p.status, 0) << d << ": " << p.err;
				JsonDoc doc(p.out);
				EXPECT_EQ(texts(doc.obj, {"path", "position"}), (Strings{"/dev/" + d, std::to_string(w.index)}));
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

// vexohw power and daemon commands on the bundled box with its daemon, and
// the rule every status command keeps: a disk in standby is asked only its
// power mode, and stays asleep.
class PowerCli : public ::testing::Test {
protected:
	BuiltBox box;
	SimDaemon daemon{box.root()};
};

TEST_F(PowerCli, StatusCommandsLeaveSleepingDisksAsleep)
{
	ASSERT_TRUE(box.ok()) << box.log();
	ASSERT_EQ(daemon.started, 0);
	for (const char *d : {"sda", "sdb"}) {
		Ran r = box.vexohw({"--json", "power", "standby", d});
		ASSERT_EQ(r.status, 0) << r.err;
		EXPECT_EQ(text(JsonDoc(r.out).obj, "power_mode"), "standby");
		std::filesystem::remove(box.root() + "/run/vexosim/drive/" + d + ".log");
	}
	const std::vector<std::vector<std::string>> commands = {
		{"overview"},
		{"overview", "--walk"},
		{"--json", "disk", "list"},
		{"power", "status"},
		{"smart", "attrs", "sda"},
		{"smart", "cache", "sdb", "--refresh"},
		{"smart", "temp", "sda"},
		{"disk", "serial", "sdb"},
		{"disk", "serial", "sda", "--ui"},
		{"drive", "identify", "sda"},
		{"drive", "smart-page", "sdb"},
		{"drive", "power", "sda"},
		{"cache", "show", "sda"},
		{"compat", "--all"},
		{"mail", "send", "sdb"},
	};
	for (const auto &c : commands) {
		Ran r = box.vexohw(c);
		EXPECT_EQ(r.status, 0) << c[0] << " " << (c.size() > 1 ? c[1] : "") << ": " << r.err;
	}
	JsonDoc st(box.vexohw({"--json", "power", "status", "sda", "sdc"}).out);
	ASSERT_EQ(json_object_array_length(st.obj), 2u);
	EXPECT_EQ(text(json_object_array_get_idx(st.obj, 0), "power_mode"), "standby");
	EXPECT_EQ(text(json_object_array_get_idx(st.obj, 1), "power_mode"), "active");
	for (const char *d : {"sda", "sdb"}) {
		SCOPED_TRACE(d);
		auto heard = box.sent(d);
		EXPECT_EQ(heard, std::vector<std::string>(heard.size(), kCheckPowerMode));
		EXPECT_GE(heard.size(), commands.size() / 2);
		EXPECT_NE(box.read(std::string("/dev/") + d).find(R"("power_state":"standby")"), std::string::npos);
	}
	// Health, alone and among all, asks once each and lists the disk as not read.
	std::filesystem::remove(box.root() + "/run/vexosim/drive/sda.log");
	EXPECT_EQ(text(JsonDoc(box.vexohw({"--json", "health", "sda"}).out).obj, "power_mode"), "standby");
	JsonDoc health(box.vexohw({"--json", "health", "--all"}).out);
	ASSERT_GT(json_object_array_length(health.obj), 2u);
	EXPECT_EQ(text(json_object_array_get_idx(health.obj, 0), "read"), "false");
	EXPECT_EQ(text(json_object_array_get_idx(health.obj, 2), "health"), "normal"); // sdc, awake
	EXPECT_EQ(box.sent("sda"), std::vector<std::string>(2, kCheckPowerMode));
	// Asked to, a command does wake the disk, and the log says which.
	EXPECT_EQ(box.vexohw({"smart", "temp", "sda", "--wake"}).status, 0);
	EXPECT_NE(box.read("/run/vexosim/drive/sda.log").find("[woke from standby]"), std::string::npos);
	ASSERT_EQ(box.sleep("sda"), 0);
	EXPECT_EQ(text(JsonDoc(box.vexohw({"--json", "health", "sda", "--wake"}).out).obj, "health"), "normal");
	EXPECT_NE(box.read("/run/vexosim/drive/sda.log").find("[woke from standby]"), std::string::npos);
}

TEST_F(PowerCli, TimersReachTheDaemon)
{
	ASSERT_TRUE(box.ok()) << box.log();
	ASSERT_EQ(daemon.started, 0);
	Ran r = box.vexohw({"--json", "daemon", "status"});
	EXPECT_EQ(r.status, 0) << r.err;
	JsonDoc d(r.out);
	EXPECT_EQ(texts(d.obj, {"running", "answer"}), (Strings{"true", "ready"}));
	struct Case {
		std::vector<std::string> args;
		int status;
		const char *notification;
	} cases[] = {
		{{"power", "timers", "set", "standby", "20"}, 0, "notify 43"},
		{{"power", "timers", "set", "standby", "20"}, 0, nullptr}, // unchanged: not told again
		{{"power", "timers", "set", "auto-poweroff", "120"}, 0, "notify 63"},
		{{"power", "timers", "set", "usb-standby", "1441"}, 1, nullptr},
		{{"power", "timers", "set", "nap", "1"}, 1, nullptr},
	};
	std::string want = "started\nrequest command=3 needReply=1 length=0 data=\n";
	for (const Case &c : cases) {
		SCOPED_TRACE(c.args[3]);
		EXPECT_EQ(box.vexohw(c.args).status, c.status);
		if (c.notification)
			want += std::string(c.notification) + "\n";
	}
	EXPECT_EQ(box.read("/var/log/vcemd_sim.log"), want);
	JsonDoc t(box.vexohw({"--json", "power", "timers"}).out);
	EXPECT_EQ(text(json_object_array_get_idx(t.obj, 0), "value"), "20");
	EXPECT_EQ(daemon.vexosim("stop"), 0);
	EXPECT_EQ(box.vexohw({"daemon", "status"}).status, 1);
}

} // namespace
