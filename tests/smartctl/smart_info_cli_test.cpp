// vexohw smart attrs / smart cache against a test root with a stand-in tool.
#include <vexohw/smart_info.h>

#include "frame/exec.h"
#include "support/disk_layout.h"
#include "support/vexotest.h"

using namespace vexo::test;

namespace {

class SmartAttrsCli : public ::testing::Test {
protected:
	void SetUp() override
	{
		root.diskDir("sda");
		// sda in the first internal bay: the command family needs its container.
		DiskLayout(root).sata("sda", 1);
		DiskLayout(root).portMaps("4", "2", "1", "");
		root.write("/usr/bin/smartctl",
			   "#!/bin/sh\necho run >> '" + root.host("/runs") +
				   "'\ncat <<'EOF'\n"
				   "ID# ATTRIBUTE_NAME          FLAG     VALUE WORST THRESH TYPE      UPDATED  WHEN_FAILED RAW_VALUE\n"
				   "  5 Reallocated_Sector_Ct   0x0033   001   001   036    Pre-fail  Always   FAILING_NOW 4095\n"
				   "190 Airflow_Temperature_Cel 0x0022   055   042   045    Old_age   Always   In_the_past 45 (0 120 46 45)\n"
				   "\nEOF\n",
			   0755);
	}
	// Runs the CLI on the test root; the seam must not put the root in
	// front of the CLI's own path.
	vexo::exec::Result cli(std::vector<std::string> args)
	{
		ScopedEnv noRoot("VEXO_SYSROOT", nullptr);
		args.insert(args.begin(), {buildDir() + "/bin/vexohw", "--sysroot", root.root()});
		vexo::exec::Options o;
		o.captureStderr = true;
		o.timeoutMs = 60000;
		return vexo::exec::run(args, o);
	}
	Sysroot root;
};

TEST_F(SmartAttrsCli, TableJsonAndCache)
{
	auto r = cli({"smart", "attrs", "sda"});
	ASSERT_EQ(r.status(), 0) << r.err;
	EXPECT_NE(r.out.find("ID#"), std::string::npos) << r.out;
	EXPECT_NE(r.out.find("failing now"), std::string::npos) << r.out;
	EXPECT_NE(r.out.find("failed in the past"), std::string::npos) << r.out;

	r = cli({"--json", "smart", "attrs", "/dev/sda"});
	ASSERT_EQ(r.status(), 0) << r.err;
	EXPECT_NE(r.out.find("\"name\": \"Reallocated_Sector_Ct\""), std::string::npos) << r.out;
	EXPECT_NE(r.out.find("\"raw\": \"45\""), std::string::npos) << r.out;
	EXPECT_NE(r.out.find("\"status\": 2"), std::string::npos) << r.out;
	EXPECT_EQ(root.read("/runs"), "run\n"); // the second came from the cache

	r = cli({"--json", "smart", "cache", "sda"});
	ASSERT_EQ(r.status(), 0) << r.err;
	EXPECT_NE(r.out.find("\"fresh\": true"), std::string::npos) << r.out;
	r = cli({"smart", "cache", "sda", "--refresh"});
	ASSERT_EQ(r.status(), 0) << r.err;
	EXPECT_NE(r.out.find("s old (fresh)"), std::string::npos) << r.out;
	EXPECT_EQ(root.read("/runs"), "run\nrun\n");

	root.remove("/run/vexostorage/disks/sda/smart_info_list.cache");
	r = cli({"smart", "cache", "sda"});
	EXPECT_EQ(r.status(), 1);
	EXPECT_NE(r.err.find("no cached SMART attribute list for /dev/sda (error 0x0900)"), std::string::npos) << r.err;
}

} // namespace
