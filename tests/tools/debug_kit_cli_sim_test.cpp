// vexohw debug, firmware offline-kit, db kit-version, notify send, system
// boot-step and buzzer off-config set on the bundled box: overrides read
// from the file the test writes (a sleeping disk left asleep), a kit's
// binary stored once, bad kits refused with nothing stored, and what each
// change leaves on the box.
#include <filesystem>
#include <fstream>

#include "smartctl/drive_sim.h"
#include "tools/cli_run.h"

using namespace vexo::test;

namespace {

const bool kBackend = installDriveEmulator();

void put(const BuiltBox &box, const std::string &path, const std::string &body, bool append = false)
{
	std::filesystem::create_directories(std::filesystem::path(box.root() + path).parent_path());
	std::ofstream(box.root() + path, append ? std::ios::app : std::ios::trunc) << body;
}

TEST(DebugKitCli, OverridesShownAndSleepingDiskLeftAlone)
{
	ASSERT_TRUE(kBackend);
	BuiltBox box;
	ASSERT_TRUE(box.ok()) << box.log();
	put(box, "/etc.defaults/vexoinfo.conf", "support_disk_status_debug=\"yes\"\n", true);
	put(box, "/tmp/.disk_status_debug",
	    "[WWZ4K1QA]\nunc=\"7\"\ntemp=\"61\"\nsmart_test_quick=\"aborted\"\nsmart_info=\"#5, 100, 99, 10, 3\"\n"
	    "[OTHER]\nlife=\"1\"\n");
	const struct {
		const char *disk;
		bool asleep;
		int status;
		const char *read, *keys; // keys: the overrides listed, in order
	} cases[] = {
		{"sda", false, 0, "true", "smart_info=1 attribute(s) smart_test_quick=aborted unc=7 temp=61 "},
		{"sdb", false, 0, "true", ""},  // no section of its own
		{"sda", true, 0, "false", ""},  // its serial would wake it
		{"sdz", false, 1, "<none>", ""}, // no such disk
	};
	for (const auto &c : cases) {
		SCOPED_TRACE(c.disk);
		if (c.asleep) {
			ASSERT_EQ(box.sleep(c.disk), 0);
		}
		Ran r = box.vexohw({"--json", "debug", c.disk});
		ASSERT_EQ(r.status, c.status) << r.err;
		JsonDoc doc(r.out);
		EXPECT_EQ(text(doc.obj, "overrides_read"), c.read) << r.out;
		std::string keys;
		json_object *rows = field(doc.obj, "overrides");
		for (size_t i = 0; rows && i < json_object_array_length(rows); ++i) {
			json_object *o = json_object_array_get_idx(rows, i);
			keys += text(o, "key") + "=" + text(o, "value") + " ";
		}
		EXPECT_EQ(keys, c.keys);
		if (c.asleep) {
			EXPECT_EQ(box.sent(c.disk), Strings{kCheckPowerMode});
		}
	}
}

TEST(DebugKitCli, KitFirmwareVersionNotifyAndBootStep)
{
	ASSERT_TRUE(kBackend);
	BuiltBox box;
	ASSERT_TRUE(box.ok()) << box.log();
	const std::string tool = buildDir() + "/bin/vexo-archive", r = box.root();
	ASSERT_EQ(runProgram({tool, "keys", r}), 0);
	// The kernel's model of sda (sysfs cuts it at 16 characters).
	std::string image = "model=ST8000VN004-3CP1\nfirmware=SC61\n", sum;
	image.resize(2048, '\0');
	put(box, "/tmp/src/st.bin", image);
	runProgram({"md5sum", r + "/tmp/src/st.bin"}, &sum);
	put(box, "/tmp/src/st.bin.FW_INFO",
	    "md5sum=\"" + sum.substr(0, 32) + "\"\nmodel=\"ST8000VN004-3CP1\"\nfirmware=\"SC61\"\n");
	put(box, "/tmp/kit/firmware/firmware.json",
	    R"([{"model":"NOPE 1","file":"none.sa"},{"model":"ST8000VN004-3CP1","file":"st.sa"}])");
	ASSERT_EQ(runProgram({tool, "pack", "7", r + "/run/vexosim/archive-keys/7.key", r + "/tmp/kit/st.sa", r + "/tmp/src"}), 0);
	std::filesystem::copy(r + "/tmp/kit", r + "/tmp/bad", std::filesystem::copy_options::recursive);
	std::string sa = box.read("/tmp/bad/st.sa");
	sa[sa.size() / 2] ^= 1;
	put(box, "/tmp/bad/st.sa", sa);
	put(box, "/tmp/nolist/x", "");
	ASSERT_EQ(runProgram({buildDir() + "/bin/vexosim", "kit", r, r + "/tmp/packed.kit"}), 0);
	const std::string bin = "/var/lib/drive-bundle/firmware/st.bin";
	const struct {
		const char *kit;
		int status;
		const char *stored, *state; // state of the kit's second entry
		bool binary;
	} takes[] = {
		{"/tmp/bad", 1, "<none>", "", false},        // tampered archive: nothing stored
		{"/tmp/nolist", 1, "<none>", "", false},     // no firmware list
		{"/tmp/packed.kit", 1, "<none>", "", false}, // a sound kit without firmware
		{"/tmp/kit", 0, "1", "stored", true},
		{"/tmp/kit", 0, "0", "already here", true}, // nothing new the second time
	};
	for (const auto &t : takes) {
		SCOPED_TRACE(t.kit);
		Ran run = box.vexohw({"--json", "firmware", "offline-kit", t.kit});
		ASSERT_EQ(run.status, t.status) << run.out << run.err;
		JsonDoc doc(run.out);
		EXPECT_EQ(text(doc.obj, "binaries_stored"), t.stored);
		if (*t.state) {
			EXPECT_EQ(text(json_object_array_get_idx(field(doc.obj, "entries"), 1), "state"), t.state);
		}
		EXPECT_EQ(std::filesystem::exists(r + bin), t.binary);
	}
	EXPECT_EQ(box.read(bin), image);

	const struct {
		std::vector<std::string> args;
		int status;
		const char *field, *value, *file, *body; // file: what the box holds after
	} changes[] = {
		{{"db", "kit-version", "set", "0"}, 1, "changed", "<none>", "/usr/vexo/etc/.disk_offlinekit_version", ""},
		{{"db", "kit-version", "set", "5"}, 0, "changed", "true", "/usr/vexo/etc/.disk_offlinekit_version", "5"},
		{{"db", "kit-version", "set", "5"}, 0, "changed", "false", "/usr/vexo/etc/.disk_offlinekit_version", "5"},
		{{"db", "kit-version"}, 0, "applied", "5", "", ""},
		{{"buzzer", "off-config", "set", "0x4", "off"}, 0, "changed", "false", "", ""}, // clear already
		{{"buzzer", "off-config", "set", "0", "on"}, 1, "changed", "<none>", "", ""},
		{{"system", "boot-step"}, 0, "step", "4", "", ""}, // nothing tracks the boot
		{{"notify", "send", "Tag", "novalue"}, 1, "tag", "<none>", "", ""},
		{{"notify", "send", "Ta=g"}, 1, "tag", "<none>", "", ""},
		{{"notify", "send", "DiskCliTest", "%MODEL%=M 1", "%DISK_ID%=Drive 3"}, 0, "tag", "DiskCliTest", "", ""},
	};
	for (const auto &c : changes) {
		SCOPED_TRACE(c.args.back());
		std::vector<std::string> args{"--json"};
		args.insert(args.end(), c.args.begin(), c.args.end());
		Ran run = box.vexohw(args);
		ASSERT_EQ(run.status, c.status) << run.err;
		EXPECT_EQ(text(JsonDoc(run.out).obj, c.field), c.value) << run.out;
		if (*c.file) {
			EXPECT_EQ(box.read(c.file), c.body);
		}
	}
	JsonDoc list(box.vexohw({"--json", "notify", "list"}).out);
	ASSERT_EQ(json_object_array_length(list.obj), 1u);
	EXPECT_EQ(texts(json_object_array_get_idx(list.obj, 0), {"tag", "model", "disk_id"}),
		  (Strings{"DiskCliTest", "M 1", "Drive 3"}));
	put(box, "/run/vexoboot/step", "x");
	EXPECT_EQ(box.vexohw({"system", "boot-step"}).status, 1);
}

} // namespace
