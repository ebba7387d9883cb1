// vexohw drive identify, smart-page and power against the drive emulator of
// the bundled box: the CLI's decoding of the pages the drives send, and a
// power query that leaves a sleeping drive asleep.
#include <ctime>
#include <fcntl.h>
#include <fstream>
#include <vexohw/smartctl.h>

#include "smartctl/drive_sim.h"
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
		std::string file = box.root() + "/dev/" + name;
		JsonDoc node(readFile(file));
		JsonDoc add(keys);
		ASSERT_TRUE(node.obj && add.obj) << keys;
		json_object_object_foreach(add.obj, k, v) json_object_object_add(node.obj, k, json_object_get(v));
		std::ofstream(file, std::ios::trunc) << json_object_to_json_string(node.obj);
	}
	// A command that fails with status 1, the message on stderr, nothing out.
	void refused(const std::vector<std::string> &args, const std::string &message)
	{
		Ran r = box.vexohw(args);
		EXPECT_EQ(r.status, 1) << r.out;
		EXPECT_NE(r.err.find(message), std::string::npos) << r.err;
		EXPECT_EQ(r.out, "");
	}
	std::string readFile(const std::string &file)
	{
		std::ifstream in(file);
		return std::string(std::istreambuf_iterator<char>(in), {});
	}
	std::string lastCommand(const std::string &name)
	{
		std::ifstream in(box.root() + "/run/vexosim/drive/" + name + ".log");
		std::string line, last;
		while (std::getline(in, line))
			if (line.rfind("OPEN", 0) != 0)
				last = line;
		return last;
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
		EXPECT_EQ(text(r, "path"), std::string("/dev/") + w.name);
		EXPECT_EQ(text(r, "interface"), w.interface);
		EXPECT_EQ(text(r, "model"), w.model);
		EXPECT_EQ(text(r, "serial"), w.serial);
		EXPECT_EQ(text(r, "firmware"), w.firmware);
		EXPECT_EQ(text(r, "lba48_sectors"), std::to_string(w.sectors));
		EXPECT_EQ(text(r, "rotation_rate_rpm"), std::to_string(w.rpm));
		EXPECT_EQ(text(r, "form_factor_word"), std::to_string(w.formFactor));
		EXPECT_EQ(text(r, "sct_word"), "61"); // 0x003D
		EXPECT_EQ(text(r, "sct_supported"), "true");
		EXPECT_EQ(text(r, "sct_error_recovery_control"), "true");
		EXPECT_EQ(text(r, "packet_device"), "false");
		EXPECT_EQ(text(r, "smart_enabled"), "true");
		EXPECT_EQ(text(r, "checksum"), "valid");
	}
	// The words the drive sends are the words shown.
	patch("sda", R"({"identify_words": {"168": 3, "206": 1}})");
	json_object *r = ask({"drive", "identify", "/dev/sda"});
	EXPECT_EQ(text(r, "form_factor_word"), "3");
	EXPECT_EQ(text(r, "sct_supported"), "true");
	EXPECT_EQ(text(r, "sct_error_recovery_control"), "false");
	EXPECT_EQ(text(r, "sct_data_tables"), "false");
	EXPECT_EQ(text(r, "checksum"), "valid");

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
	EXPECT_EQ(text(r, "revision"), "16");
	EXPECT_EQ(text(r, "offline_collection_status"), "0x82");
	EXPECT_EQ(text(r, "self_test_execution_status"), "0x00");
	EXPECT_EQ(text(r, "self_test_status"), "completed without error");
	EXPECT_EQ(text(r, "self_test_remaining_percent"), "null");
	EXPECT_EQ(text(r, "short_test_minutes"), "2");
	EXPECT_EQ(text(r, "extended_test_minutes"), "255");
	EXPECT_EQ(text(r, "checksum"), "valid");
	json_object *attrs = field(r, "attributes");
	ASSERT_EQ(json_object_array_length(attrs), 13u);
	json_object *first = json_object_array_get_idx(attrs, 0);
	EXPECT_EQ(text(first, "slot"), "1");
	EXPECT_EQ(text(first, "id"), "1");
	EXPECT_EQ(text(first, "flags"), "0x000b");
	EXPECT_EQ(text(first, "threshold"), "16");
	json_object *temp = json_object_array_get_idx(attrs, 8);
	EXPECT_EQ(text(temp, "id"), "194");
	// sdc of the bundled box runs at 33 degrees.
	EXPECT_EQ(text(temp, "raw"), "33");

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
	json_object *last = json_object_array_get_idx(attrs, 28);
	EXPECT_EQ(text(last, "slot"), "30");
	EXPECT_EQ(text(last, "id"), "30");
	EXPECT_EQ(text(last, "value"), "130");
	EXPECT_EQ(text(last, "worst"), "30");
	EXPECT_EQ(text(last, "raw"), "281474976710655");
	EXPECT_EQ(text(last, "threshold"), "2");
	EXPECT_EQ(text(json_object_array_get_idx(attrs, 1), "slot"), "3");
	EXPECT_EQ(text(r, "extended_test_minutes"), "300");
	// The self-test the drive is running.
	EXPECT_EQ(text(r, "self_test_execution_status"), "0xf9");
	EXPECT_EQ(text(r, "self_test_status"), "in progress");
	EXPECT_EQ(text(r, "self_test_remaining_percent"), "90");

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
	EXPECT_EQ(text(r, "power_mode_code"), "0xff");
	EXPECT_EQ(text(r, "power_mode"), "active or idle");

	ASSERT_EQ(command("sda", ata_command_interface, CMD_STANDBY_IMMEDIATE, nullptr), 0);
	r = ask({"drive", "power", "/dev/sda"});
	EXPECT_EQ(text(r, "interface"), "ata");
	EXPECT_EQ(text(r, "power_mode_code"), "0x00");
	EXPECT_EQ(text(r, "power_mode"), "standby");
	EXPECT_EQ(lastCommand("sda"), "HDIO_DRIVE_CMD args=e5000000 -> ok");
	EXPECT_NE(readFile(box.root() + "/dev/sda").find(R"("power_state":"standby")"), std::string::npos);

	// Through SAT: the answer rides in the sense data.
	ASSERT_EQ(command("sdn", sat_command_interface, CMD_STANDBY_IMMEDIATE, nullptr), 0);
	r = ask({"drive", "power", "sdn"});
	EXPECT_EQ(text(r, "interface"), "sat");
	EXPECT_EQ(text(r, "power_mode"), "standby");
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
	EXPECT_EQ(text(r, "interface"), "scsi");
	EXPECT_EQ(text(r, "scsi_status"), "2");
	EXPECT_EQ(text(r, "power_mode"), "stopped or not ready");

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

} // namespace
