// vexohw port m2/u2/esata, disk system/partitions/by-serial/by-id/driver and
// system version/space on the bundled box: the answers against the box's
// description, refusals and failures, and sleeping disks left asleep.
#include <filesystem>
#include <fstream>

#include "smartctl/drive_sim.h"
#include "tools/cli_run.h"

using namespace vexo::test;

namespace {

const bool kBackend = installDriveEmulator();

// A value at a slash path of objects and array indexes ("ports/0/name");
// a list of texts joined with commas.
std::string at(json_object *o, std::string path)
{
	for (;;) {
		size_t slash = path.find('/');
		std::string key = path.substr(0, slash);
		json_object *next = json_object_is_type(o, json_type_array) ? json_object_array_get_idx(o, std::stoul(key))
									 : field(o, key.c_str());
		if (slash == std::string::npos && json_object_is_type(next, json_type_array)) {
			std::string joined;
			for (size_t i = 0; i < json_object_array_length(next); ++i)
				joined += (i ? "," : "") + at(next, std::to_string(i));
			return joined;
		}
		if (slash == std::string::npos)
			return !next ? "null"
			       : json_object_is_type(next, json_type_string) ? json_object_get_string(next)
									     : json_object_to_json_string(next);
		o = next;
		path = path.substr(slash + 1);
	}
}

TEST(DevicesCli, AnswersOfTheBox)
{
	ASSERT_TRUE(kBackend);
	BuiltBox box;
	ASSERT_TRUE(box.ok()) << box.log();
	std::ofstream(box.root() + "/sys/block/sdb/ro") << "1\n";
	std::ofstream(box.root() + "/etc.defaults/vexoinfo.conf", std::ios::app) << "group_id=\"G 7/a\"\n";
	struct Row {
		Strings args;
		const char *path, *want;
	} rows[] = {
		{{"port", "m2"}, "names", "nvme0n1,nvme1n1"},
		{{"port", "u2"}, "count", "0"},
		{{"port", "esata"}, "ports/0/path", "/dev/sdm"},
		{{"port", "esata"}, "ports/0/index_of_name", "1"},
		{{"disk", "system"}, "installation_devices", "sda,sdb,sdc,sdd,sde,sdf,sdh,sdi,sdj"},
		{{"disk", "system"}, "first_data_device", "/dev/md2"},
		{{"disk", "system"}, "system_mount_device", "/dev/md0"},
		{{"disk", "partitions", "sdn", "1", "2"}, "partitions/0/present", "true"},
		{{"disk", "partitions", "sdn", "1", "2"}, "partitions/1/present", "false"},
		{{"disk", "partitions", "nvme0n1"}, "partitions/2/path", "/dev/nvme0n1p3"},
		{{"disk", "partitions", "nvme0n1"}, "pattern", "/dev/nvme0n1p*"},
		{{"disk", "by-serial", "WWZ4K3LM"}, "paths", "/dev/sdb"},
		{{"disk", "by-id", "internal_0_3"}, "path", "/dev/sdc"},
		{{"disk", "by-id", "ebox_13_2"}, "path", "/dev/sdmb"},
		{{"disk", "by-id", "cache_1_1"}, "path", "/dev/nvme0n1"},
		{{"disk", "driver", "sda"}, "scsi_generic", "/dev/sg0"},
		{{"disk", "driver", "sda"}, "form_factor", "3.5"},
		{{"disk", "driver", "sda"}, "read_only", "false"},
		{{"disk", "driver", "sdb"}, "read_only", "true"},
		{{"disk", "driver", "nvme0n1"}, "command_family", "nvme"},
		{{"system", "version"}, "encoded_version", "72806.3"},
		{{"system", "version"}, "encoded_group_id", "G%207%2Fa"},
		{{"system", "version"}, "encoded_dssn", "2240VXA012345"},
		{{"system", "space", "/tmp", "1K"}, "enough", "true"},
	};
	for (const Row &row : rows) {
		Strings args = row.args;
		args.insert(args.begin(), "--json");
		Ran r = box.vexohw(args);
		EXPECT_EQ(r.status, 0) << row.args[0] << " " << row.args[1] << r.err;
		JsonDoc doc(r.out);
		EXPECT_EQ(at(doc.obj, row.path), row.want) << row.args[0] << " " << row.args[1] << " " << row.path;
	}
	// The system's own root node, once there, is what it mounts.
	std::ofstream(box.root() + "/dev/system-root");
	EXPECT_EQ(text(JsonDoc(box.vexohw({"--json", "disk", "system"}).out).obj, "system_mount_device"),
		  "/dev/system-root");
}

TEST(DevicesCli, RefusalsAndFailures)
{
	BuiltBox box;
	ASSERT_TRUE(box.ok()) << box.log();
	struct Row {
		Strings args;
		const char *err;
	} rows[] = {
		{{"disk", "by-id", "internal_3"}, "is no disk id"},
		{{"disk", "by-id", "internal_0_11"}, "no disk has id internal_0_11 (error 0x6100)"},
		{{"disk", "by-serial", "NO-SUCH"}, "no disk carries serial 'NO-SUCH'"},
		{{"disk", "partitions", "vexoboot"}, "(error 0x0D00)"},
		{{"disk", "partitions", "sda", "0"}, "'0' is no partition number"},
		{{"disk", "driver", "sdzz"}, "the kernel has no disk /dev/sdzz"},
		{{"port", "esata", "1"}, "usage: port esata"},
		{{"system", "space", "tmp", "1"}, "not an absolute path"},
		{{"system", "space", "/tmp", "1Q"}, "'1Q' is no byte count"},
		{{"system", "space", "/tmp", "9000000T"}, "no byte count"}, // beyond 2^63
		{{"system", "space", "/tmp", "-1"}, "no byte count"},
	};
	for (const Row &row : rows) {
		Ran r = box.vexohw(row.args);
		EXPECT_NE(r.status, 0) << row.args[0] << " " << row.args[2];
		EXPECT_NE(r.err.find(row.err), std::string::npos) << r.err;
	}
	// More room than any disk: a record saying no, and exit 1.
	Ran big = box.vexohw({"--json", "system", "space", "/tmp", "8000000T"});
	EXPECT_EQ(big.status, 1);
	EXPECT_EQ(text(JsonDoc(big.out).obj, "enough"), "false");
	// Without its version file the system has no version to tell.
	std::filesystem::remove(box.root() + "/etc.defaults/VERSION");
	Ran v = box.vexohw({"system", "version"});
	EXPECT_NE(v.status, 0);
	EXPECT_NE(v.err.find("the VOS version can't be read (error 0x"), std::string::npos) << v.err;
}

// A sleeping disk hears nothing but CHECK POWER MODE: the serial search names
// it and stops, the driver record leaves out the form factor. --wake asks.
TEST(DevicesCli, SleepingDiskLeftAsleep)
{
	ASSERT_TRUE(kBackend);
	BuiltBox box;
	ASSERT_TRUE(box.ok()) << box.log();
	ASSERT_EQ(box.sleep("sdc"), 0);
	JsonDoc search(box.vexohw({"--json", "disk", "by-serial", "WWZ4K3LM"}).out);
	EXPECT_EQ((Strings{at(search.obj, "read"), at(search.obj, "asleep"), at(search.obj, "paths")}),
		  (Strings{"false", "/dev/sdc", "null"}));
	JsonDoc driver(box.vexohw({"--json", "disk", "driver", "sdc"}).out);
	EXPECT_EQ(texts(driver.obj, {"power_mode", "form_factor", "scsi_generic"}),
		  (Strings{"standby", "null", "/dev/sg2"}));
	EXPECT_EQ(box.sent("sdc"), (Strings{kCheckPowerMode, kCheckPowerMode}));

	JsonDoc woken(box.vexohw({"--json", "disk", "by-serial", "WD-WX22D84N7J5T", "--wake"}).out);
	EXPECT_EQ(at(woken.obj, "paths"), "/dev/sdc");
}

} // namespace
