// The worker thread, the hour-long server answer cache, version values.
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <future>
#include <gtest/gtest.h>
#include <mutex>
#include <syslog.h>
#include <thread>
#include <vexohw/misc.h>

#include "frame/clock.h"
#include "frame/net.h"
#include "support/vexotest.h"

using namespace vexo::test;

namespace {

// The worker's function takes no argument: its state is here.
std::mutex gMutex;
std::condition_variable gCv;
bool gGateOpen = false;
int gStarted = 0, gFinished = 0;

void gatedWork()
{
	std::unique_lock<std::mutex> l(gMutex);
	++gStarted;
	gCv.notify_all();
	gCv.wait(l, [] { return gGateOpen; });
	++gFinished;
}

class WorkerTest : public ::testing::Test {
protected:
	void SetUp() override
	{
		gGateOpen = false;
		gStarted = gFinished = 0;
		ASSERT_EQ(VEXOHWCTLMergeableWorkInit(&work, gatedWork), 0);
	}
	void waitStarted(int n)
	{
		std::unique_lock<std::mutex> l(gMutex);
		ASSERT_TRUE(gCv.wait_for(l, std::chrono::seconds(10), [&] { return gStarted >= n; }));
	}
	void open()
	{
		std::lock_guard<std::mutex> l(gMutex);
		gGateOpen = true;
		gCv.notify_all();
	}
	MergeableWork work{};
};

// Triggers during a run fold into one more run; destroying waits for both.
TEST_F(WorkerTest, TenTriggersDuringARunGiveOneMoreRun)
{
	ASSERT_EQ(VEXOHWCTLMergeableWorkTrigger(&work), 0);
	waitStarted(1);
	for (int i = 0; i < 10; ++i)
		EXPECT_EQ(VEXOHWCTLMergeableWorkTrigger(&work), 0);
	auto destroyed = std::async(std::launch::async, [&] { VEXOHWCTLMergeableWorkDestory(&work); });
	EXPECT_EQ(destroyed.wait_for(std::chrono::milliseconds(1500)), std::future_status::timeout);
	open();
	destroyed.get();
	std::lock_guard<std::mutex> l(gMutex);
	EXPECT_EQ(gStarted, 2);
	EXPECT_EQ(gFinished, 2);
	EXPECT_EQ(work.state, 0);
	EXPECT_EQ(work.function, nullptr);
}

TEST(WorkerArgs, BadCalls)
{
	LogCapture log;
	MergeableWork w{};
	VLIBCErrClear();
	EXPECT_EQ(VEXOHWCTLMergeableWorkInit(nullptr, gatedWork), -1);
	EXPECT_ERR(0x0D00);
	EXPECT_EQ(VEXOHWCTLMergeableWorkInit(&w, nullptr), -1);
	EXPECT_EQ(VEXOHWCTLMergeableWorkTrigger(&w), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "function handler not register"));
	EXPECT_EQ(VEXOHWCTLMergeableWorkTrigger(nullptr), -1);
	VEXOHWCTLMergeableWorkDestory(nullptr);
}

constexpr const char *kAnswer = R"({"success":true,"data":{
  "update":{"available":true,"version":"7.2","version_details":{"buildnumber":64551,"nano":3}},
  "promotion":{"available":false}}})";

class UpdateInfoTest : public ::testing::Test {
protected:
	void SetUp() override
	{
		root.write("/usr/vexo/bin/vexowebapi",
			   "#!/bin/sh\necho run >> \"$VEXO_SYSROOT/tmp/calls\"\ncat \"$VEXO_SYSROOT/tmp/answer\"\n", 0755);
		root.write("/tmp/answer", kAnswer);
		root.mkdirs("/run/vexostorage");
		root.mkdirs("/run/lock");
		vexo::clock::setForTest(1700000000, 50000 * 1000LL);
	}
	void TearDown() override { vexo::clock::clearForTest(); }
	int calls() const { return root.exists("/tmp/calls") ? static_cast<int>(root.read("/tmp/calls").size() / 4) : 0; }

	Sysroot root;
	VOSUpdateInfo u{}, p{};
};

TEST_F(UpdateInfoTest, AskedAtMostOnceAnHour)
{
	ASSERT_EQ(VEXODiskMiscVOSUpdateInfoGet(&u, &p), 0);
	EXPECT_EQ(u.available, 1);
	EXPECT_STREQ(u.version, "7.2");
	EXPECT_EQ(u.buildnumber, 64551);
	EXPECT_EQ(u.nano, 3);
	EXPECT_EQ(p.available, 0);
	EXPECT_EQ(root.read("/run/vexostorage/.disk_upgrade_server_visiting_time"), "50000");
	EXPECT_EQ(root.read("/run/vexostorage/disk_upgrade_server_info"), kAnswer);
	EXPECT_FALSE(root.exists("/run/vexostorage/disk_upgrade_server_info.tmp"));
	struct Step {
		long long advanceS;
		const char *timeFile; // replaces the time file first, unless null
		int calls;
	} steps[] = {{0, nullptr, 1}, {3600, nullptr, 1}, {1, nullptr, 2}, {10, "garbage", 3}, {10, nullptr, 3}};
	for (const Step &s : steps) {
		vexo::clock::advanceForTest(s.advanceS * 1000);
		if (s.timeFile)
			root.write("/run/vexostorage/.disk_upgrade_server_visiting_time", s.timeFile);
		EXPECT_EQ(VEXODiskMiscVOSUpdateInfoGet(&u, &p), 0);
		EXPECT_EQ(calls(), s.calls) << "after " << s.advanceS << " s";
	}
}

TEST_F(UpdateInfoTest, BadAnswersLeaveTheOutputs)
{
	struct Bad {
		const char *answer;
		const char *log;
	} bad[] = {
		{"not json", "Failed to parser json: /run/vexostorage/disk_upgrade_server_info"},
		{R"({"success":false})", "Failed to get success from json"},
		{R"({"success":true})", "Failed to get data from json"},
		{R"({"success":true,"data":{"update":{"available":true},"promotion":{"available":false}}})",
		 "Failed to get version from json"},
		{R"({"success":true,"data":{"update":{"available":false}}})", "Failed to get promotion from json"},
	};
	for (const Bad &b : bad) {
		SCOPED_TRACE(b.answer);
		root.write("/tmp/answer", b.answer);
		root.remove("/run/vexostorage/.disk_upgrade_server_visiting_time");
		VOSUpdateInfo keep{};
		keep.available = 42;
		u = p = keep;
		LogCapture log;
		EXPECT_EQ(VEXODiskMiscVOSUpdateInfoGet(&u, &p), -1);
		EXPECT_TRUE(log.has(LOG_ERR, b.log)) << log.dump();
		EXPECT_EQ(u.available, 42);
		EXPECT_EQ(p.available, 42);
	}
}

TEST(VersionTest, VersionFile)
{
	struct Case {
		const char *file;
		int rc;
		unsigned base, nano;
		const char *encoded;
	} cases[] = {
		{"base=\"64551\"\nnano=\"3\"\n", 0, 64551, 3, "64551.3"},
		{"base=\"64551\"\nnano=\"x3\"\n", 0, 64551, 0, "64551.0"},
		{"nano=\"3\"\n", -1, 0, 0, nullptr},
	};
	for (const Case &c : cases) {
		SCOPED_TRACE(c.file);
		Sysroot root;
		root.write("/etc.defaults/VERSION", c.file);
		unsigned base = 0, nano = 0;
		char enc[16] = {};
		EXPECT_EQ(VEXOVOSVerGet(&base, &nano), c.rc);
		EXPECT_EQ(VEXOVOSEncodedVOSVerGet(enc, sizeof enc), c.rc);
		if (c.rc == 0) {
			EXPECT_EQ(base, c.base);
			EXPECT_EQ(nano, c.nano);
			EXPECT_STREQ(enc, c.encoded);
		}
	}
	char out[8] = "keep";
	EXPECT_EQ(VEXODiskMiscUrlEncode("a b&c=d", out, sizeof out), -1); // "a%20b%26c%3Dd" does not fit
	EXPECT_STREQ(out, "keep");
	char big[32];
	ASSERT_EQ(VEXODiskMiscUrlEncode("a b&c=d", big, sizeof big), 0);
	EXPECT_STREQ(big, "a%20b%26c%3Dd");
}


TEST(NetSeam, RedirectFile)
{
	Sysroot root;
	root.write("/run/vexosim/net.conf", "# test\nmap https://db.example https://127.0.0.1:4443/x\n"
					    "map http://plain.example https://127.0.0.1:1 # trailing\nca /run/vexosim/ca.pem\n");
	struct Case {
		const char *url, *sent;
	} cases[] = {
		{"https://db.example/getSSDsInfo/v7?model=a", "https://127.0.0.1:4443/x/getSSDsInfo/v7?model=a"},
		{"https://db.example", "https://127.0.0.1:4443/x"},
		{"https://db.example?q=1", "https://127.0.0.1:4443/x?q=1"},
		{"https://db.example.evil.net/x", "https://db.example.evil.net/x"}, // only whole host names
		{"http://plain.example/a", "https://127.0.0.1:1/a"},
		{"https://other.example/a", "https://other.example/a"},
	};
	for (const Case &c : cases)
		EXPECT_EQ(vexo::net::effectiveUrl(c.url), c.sent);
	EXPECT_EQ(vexo::net::caBundle(), root.host("/run/vexosim/ca.pem"));
	ScopedEnv conf("VEXO_NET_CONF", root.host("/none").c_str()); // named, absent: nothing redirected
	EXPECT_EQ(vexo::net::effectiveUrl(cases[0].url), cases[0].url);
	EXPECT_EQ(vexo::net::caBundle(), "");
}

} // namespace
