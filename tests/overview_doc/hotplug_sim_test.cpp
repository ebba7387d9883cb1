// vexosim's hot-plug on a built twelve-bay box, end to end through the
// executable: a disk pulled from bay 2 and put into bay 7 leaves and enters
// sysfs, /dev and /proc/partitions, and its overview element follows it.
#include <filesystem>
#include <fstream>
#include <vexohw/disk_overview.h>

#include "smartctl/drive_sim.h"
#include "support/sim_daemon.h"

namespace fs = std::filesystem;
using namespace vexo::test;

namespace {

const bool kBackend = installDriveEmulator();

std::string slurp(const std::string &file)
{
	std::ifstream in(file);
	return std::string(std::istreambuf_iterator<char>(in), {});
}

TEST(VexosimHotPlug, ADiskMovesBaysWithItsCounters)
{
	ASSERT_TRUE(kBackend);
	char t[] = "/tmp/vexosim-plug.XXXXXX";
	std::string root = std::string(::mkdtemp(t)) + "/root";
	auto sim = [&](std::vector<std::string> args) {
		args.insert(args.begin(), buildDir() + "/bin/vexosim");
		return runCaptured(args);
	};
	ASSERT_EQ(sim({"build", sourceDir() + "/examples/box12.json", root}).status, 0);
	ScopedEnv env("VEXO_SYSROOT", root.c_str());
	Ran r = sim({"raise", root, "sdb", "unc", "2"});
	ASSERT_EQ(r.status, 0) << r.err;
	EXPECT_EQ(sim({"raise", root, "sdb", "iotmo_cnt", "10"}).out, "sdb iotmo_cnt 0xa\n");
	for (auto bad : std::vector<std::vector<std::string>>{{"raise", root, "sdb", "path"},
							      {"raise", root, "sdb", "../x_cnt"},
							      {"plug", root, "7", "NOSUCHDISK"},
							      {"pull", root, "7"},
							      {"pull", root, "0"}})
		EXPECT_NE(sim(bad).status, 0) << bad[0] << " " << bad[2];

	r = sim({"pull", root, "2"});
	ASSERT_EQ(r.status, 0) << r.out << r.err;
	EXPECT_EQ(r.out, "WWZ4K3LM pulled from /dev/sdb (bay 2)\n");
	EXPECT_FALSE(fs::exists(root + "/sys/block/sdb") || fs::is_symlink(root + "/sys/block/sdb"));
	EXPECT_FALSE(fs::exists(root + "/dev/sdb"));
	EXPECT_EQ(slurp(root + "/proc/partitions").find(" sdb"), std::string::npos);
	EXPECT_NE(sim({"plug", root, "1", "WWZ4K3LM"}).status, 0); // bay 1 is taken

	r = sim({"plug", root, "7", "WWZ4K3LM"});
	ASSERT_EQ(r.status, 0) << r.out << r.err;
	EXPECT_NE(slurp(root + "/proc/partitions").find(" sdg\n"), std::string::npos);
	EXPECT_EQ(slurp(root + "/sys/block/sdg/device/ioerr_cnt"), "0x0\n");
	DiskAttrCounters c{};
	ASSERT_EQ(VEXODiskXmlAttrCtGet("/dev/sdg", &c), 0);
	EXPECT_EQ(c.unc, 2);
	std::string doc = slurp(root + VEXO_DISK_OVERVIEW_XML);
	size_t at = doc.find("<SN_WWZ4K3LM");
	ASSERT_NE(at, std::string::npos) << doc;
	std::string element = doc.substr(at, doc.find("</SN_WWZ4K3LM>", at) - at);
	EXPECT_NE(element.find("<path>/dev/sdg</path>"), std::string::npos) << element;
	EXPECT_NE(element.find("<sata_internal_slot>7</sata_internal_slot>"), std::string::npos) << element;
	// The CLI on the box: the counters followed the disk, and its status word.
	auto cli = [&](std::vector<std::string> args) {
		args.insert(args.begin(), {"run", root, "--", buildDir() + "/bin/vexohw", "--json"});
		HostDaemonLock daemonLock; // the run brings the box's vcemd up
		return sim(args);
	};
	r = cli({"counters", "sdg"});
	EXPECT_EQ(r.status, 0) << r.err;
	EXPECT_NE(r.out.find("\"unc\": 2"), std::string::npos) << r.out;
	EXPECT_NE(cli({"counters", "sdb"}).status, 0); // the bay it left is empty
	r = cli({"status", "sdg"});
	EXPECT_NE(r.out.find("\"word\": \"normal\""), std::string::npos) << r.out << r.err;
	EXPECT_NE(cli({"status", "sdb"}).status, 0);
	r = cli({"status", "--all"});
	EXPECT_EQ(r.status, 0) << r.err;
	EXPECT_NE(r.out.find("/dev/sdg"), std::string::npos) << r.out;
	fs::remove_all(fs::path(root).parent_path());
}

} // namespace
