// The copy of the firmware server's published builds: asked for at most
// once an hour however many processes want it, not during boot, removed
// when the server cannot be reached.
#include <fstream>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include "disk/fw_status.h"
#include "frame/clock.h"
#include "misc/serve.h"
#include "support/vexotest.h"

using namespace vexo::test;
using vexo::fwstatus::Copy;

namespace {

int hits(const Sysroot &root)
{
	int n = 0;
	std::ifstream in(root.host("/run/vexosim/serve.log"));
	for (std::string l; std::getline(in, l);)
		n += l.rfind("/ssd/v1/getUpdate", 0) == 0;
	return n;
}

struct ClockGuard {
	ClockGuard() { vexo::clock::setForTest(1764000000, 50000LL * 1000); }
	~ClockGuard() { vexo::clock::clearForTest(); }
};

class ServerCopy : public ::testing::Test {
protected:
	void SetUp() override
	{
		root.conf("/etc.defaults/vexoinfo.conf", {{"unique", "vx_1222"}, {"serial", "2240ABC"}});
		root.conf("/etc.defaults/VERSION", {{"base", "72806"}, {"nano", "3"}});
		root.mkdirs("/run/lock");
		root.mkdirs("/run/vexostorage");
	}
	Sysroot root;
	ClockGuard clock;
};

TEST_F(ServerCopy, AtMostOnceAnHour)
{
	Serve serve(root);
	ASSERT_GT(serve.port(), 0);
	serve.put("/ssd/v1/getUpdate/index.json",
		  R"([{"model":5,"fw_buildnumber":1},{"model":"HAT5300-8T","fw_buildnumber":1200}])");
	// Four processes at once: one visit.
	std::vector<pid_t> kids;
	for (int i = 0; i < 4; ++i) {
		pid_t k = ::fork();
		if (k == 0)
			::_exit(vexo::fwstatus::refreshServerCopy() == Copy::Present ? 0 : 1);
		kids.push_back(k);
	}
	for (pid_t k : kids) {
		int st = -1;
		::waitpid(k, &st, 0);
		EXPECT_EQ(st, 0);
	}
	EXPECT_EQ(hits(root), 1);
	LogCapture log;
	EXPECT_EQ(vexo::fwstatus::serverBuildOf("HAT5300-8T"), 1200);
	EXPECT_EQ(vexo::fwstatus::serverBuildOf("HAT5300-4T"), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "Invalid json format: {\"model\":5"));

	struct Step {
		const char *name;
		long long advanceS;
		const char *bootStep; // nullptr: no step file (up)
		int hits;
	} steps[] = {
		{"exactly an hour later", 3600, nullptr, 1},
		{"a second more", 1, nullptr, 2},
		{"during boot", 7200, "2", 2},
		{"booted again", 0, "4", 3},
	};
	for (const Step &s : steps) {
		SCOPED_TRACE(s.name);
		vexo::clock::advanceForTest(s.advanceS * 1000);
		if (s.bootStep)
			root.write("/run/vexoboot/step", s.bootStep);
		EXPECT_EQ(vexo::fwstatus::refreshServerCopy(), Copy::Present);
		EXPECT_EQ(hits(root), s.hits);
	}
	// An answer that is no list: no build is published.
	serve.put("/ssd/v1/getUpdate/index.json", R"({"success":true})");
	vexo::clock::advanceForTest(3601 * 1000);
	EXPECT_EQ(vexo::fwstatus::refreshServerCopy(), Copy::Present);
	EXPECT_EQ(vexo::fwstatus::serverBuildOf("HAT5300-8T"), 0);
}

TEST_F(ServerCopy, UnreachableRemovesTheCopyForAnHour)
{
	root.write("/run/vexostorage/disk_firm_server_info", R"([{"model":"M","fw_buildnumber":3}])");
	root.conf("/etc.defaults/vexoinfo.conf",
		  {{"unique", "vx"}, {"serial", "S"}, {"firmware_server_url_base", "https://fw.nonexistent.invalid"}});
	LogCapture log;
	EXPECT_EQ(vexo::fwstatus::refreshServerCopy(), Copy::None);
	EXPECT_FALSE(root.exists("/run/vexostorage/disk_firm_server_info"));
	EXPECT_EQ(root.read("/run/vexostorage/.disk_firm_server_visiting_time"), "50000");
	EXPECT_EQ(log.count(LOG_ERR), 0) << log.dump();
	// A later copy (another process's) stands until the hour is over.
	root.write("/run/vexostorage/disk_firm_server_info", "[]");
	vexo::clock::advanceForTest(60 * 1000);
	EXPECT_EQ(vexo::fwstatus::refreshServerCopy(), Copy::Present);
}

TEST_F(ServerCopy, BrokenServerKeepsTheCopy)
{
	Serve serve(root);
	ASSERT_GT(serve.port(), 0);
	root.write("/run/vexostorage/disk_firm_server_info", R"([{"model":"M","fw_buildnumber":3}])");
	serve.misbehave("/ssd cut\n");
	serve.put("/ssd/v1/getUpdate/index.json", std::string(4096, ' ') + "[]");
	LogCapture log;
	EXPECT_EQ(vexo::fwstatus::refreshServerCopy(), Copy::Failed);
	EXPECT_TRUE(log.has(LOG_ERR, "Failed to get online firmware info"));
	EXPECT_EQ(vexo::fwstatus::serverBuildOf("M"), 3);
}

} // namespace
