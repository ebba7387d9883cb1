// vexostorage's serial-mask reset and dhm_tool's health line query, from
// the drive node into the per-disk cache and exit statuses.
#include <vexohw/frame.h>

#include "sim/tools_sim.h"

namespace vexo::test {
namespace {

const bool kEmulator = installDriveEmulator();

using ApplianceTools = ToolsSim;

// The value lands where the library's reader finds it, written by the
// library's own writer; a missing node writes nothing.
TEST_F(ApplianceTools, VexostorageResetsSerialMask)
{
	root.diskDir("sda");
	root.diskDir("sdb");
	root.diskDir("sdc");
	node("sda", R"({"protocol":"ata","mask_serial":true})");
	node("sdb", R"({"protocol":"ata"})");
	for (auto [name, want] : {std::pair{"sda", 1}, std::pair{"sdb", 0}}) {
		ToolRun r = run({"/usr/vexo/sbin/vexostorage", "--reset-disk-attr", name, "serial-mask"});
		EXPECT_EQ(r.status, 0) << r.err;
		EXPECT_EQ(root.read(std::string("/run/vexostorage/disks/") + name + "/mask_serial"), std::to_string(want));
		int v = -1;
		EXPECT_EQ(VEXODiskGetIntValueCacheFile((std::string("/dev/") + name).c_str(), "mask_serial", &v), 0);
		EXPECT_EQ(v, want);
	}
	ToolRun r = run({"/usr/vexo/sbin/vexostorage", "--reset-disk-attr", "sdc", "serial-mask"});
	EXPECT_EQ(r.status, 1);
	EXPECT_EQ(r.err, "vexostorage: /dev/sdc: No such file or directory\n");
	EXPECT_FALSE(root.exists("/run/vexostorage/disks/sdc/mask_serial"));
}

TEST_F(ApplianceTools, VexostorageUsage)
{
	root.diskDir("sda");
	node("sda", R"({"protocol":"ata","mask_serial":true})");
	const std::vector<std::vector<std::string>> bad = {
		{},
		{"--reset-disk-attr", "sda", "serial"},
		{"--reset-disk-attr", "sda", "serial-mask", "extra"},
		{"--reset-disk-attr", "../sda", "serial-mask"},
		{"--hotspare", "-q", "sda"},
	};
	for (const auto &args : bad) {
		std::vector<std::string> argv = {"/usr/vexo/sbin/vexostorage"};
		argv.insert(argv.end(), args.begin(), args.end());
		ToolRun r = run(argv);
		EXPECT_EQ(r.status, 2) << argv.size();
		EXPECT_EQ(r.err, "Usage: vexostorage --reset-disk-attr <disk name> serial-mask\n");
	}
	EXPECT_FALSE(root.exists("/run/vexostorage/disks/sda/mask_serial"));
}

// The product line by exit status; "busy" answers 16 (try again) that many
// times, counting down in the node, before the answer.
TEST_F(ApplianceTools, DhmToolLines)
{
	struct Case {
		const char *health;
		std::vector<int> statuses;
	} cases[] = {
		{R"({"line":1})", {50, 50}},
		{R"({"line":2})", {51}},
		{R"({"line":0})", {0}},
		{R"({"line":1,"busy":2})", {16, 16, 50, 50}},
	};
	for (const Case &c : cases) {
		SCOPED_TRACE(c.health);
		root.remove("/dev/sg0");
		root.write("/dev/sg0", std::string(R"({"protocol":"ata","health_tool":)") + c.health + "}");
		for (int want : c.statuses)
			EXPECT_EQ(run({"/usr/vexo/sbin/dhm_tool", "-d", "/dev/sg0", "-w"}).status, want);
	}
	EXPECT_NE(root.read("/dev/sg0").find("\"busy\":0"), std::string::npos) << root.read("/dev/sg0");
}

// The library names the generic node; the drive is the disk beside it in sysfs.
TEST_F(ApplianceTools, DhmToolFindsTheDiskOfAGenericNode)
{
	const std::string dev = "/sys/devices/pci0000:00/0000:00:17.0/ata1/host0/target0:0:0/0:0:0:0";
	root.write(dev + "/scsi_generic/sg3/dev", "21:3\n");
	root.write(dev + "/block/sdd/size", "100\n");
	root.symlink("../../devices/pci0000:00/0000:00:17.0/ata1/host0/target0:0:0/0:0:0:0/scsi_generic/sg3",
		     "/sys/class/scsi_generic/sg3");
	node("sdd", R"({"protocol":"ata","health_tool":{"line":2,"busy":1}})");
	EXPECT_EQ(run({"/usr/vexo/sbin/dhm_tool", "-d", "/dev/sg3", "-w"}).status, 16);
	EXPECT_EQ(run({"/usr/vexo/sbin/dhm_tool", "-d", "/dev/sg3", "-w"}).status, 51);

	ToolRun r = run({"/usr/vexo/sbin/dhm_tool", "-d", "/dev/sg9", "-w"});
	EXPECT_EQ(r.status, 1);
	EXPECT_EQ(r.err, "dhm_tool: /dev/sg9: No such device\n");
	for (const std::vector<std::string> &args : std::vector<std::vector<std::string>>{
		     {"-d", "/dev/sg3"}, {"-w"}, {"-d", "sg3", "-w"}, {"-d", "/dev/../sg3", "-w"}, {"-x"}}) {
		std::vector<std::string> argv = {"/usr/vexo/sbin/dhm_tool"};
		argv.insert(argv.end(), args.begin(), args.end());
		EXPECT_EQ(run(argv).status, 2);
	}
}

} // namespace
} // namespace vexo::test
