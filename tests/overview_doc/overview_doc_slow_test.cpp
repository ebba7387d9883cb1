// The disk overview's counters under many writers, processes and threads,
// and under writers killed in the middle of a save.
#include <csignal>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "overview_doc/overview_fixture.h"

using namespace vexo::test;

namespace {

TEST_F(OverviewDoc, ManyWritersCountExactly)
{
	ASSERT_EQ(VEXODiskXmlHotPlugUpdate(1, disk(1, "ZL2K4T7C").c_str()), 0);
	std::vector<pid_t> kids;
	for (int p = 0; p < 16; ++p) {
		pid_t pid = fork();
		if (pid == 0) {
			auto add = [] {
				for (int i = 0; i < 100; ++i)
					VEXODiskXmlAttrCtUpdate("retry", "ZL2K4T7C");
			};
			std::thread t(add);
			add();
			t.join();
			_exit(0);
		}
		kids.push_back(pid);
	}
	for (pid_t pid : kids) {
		int st = 0;
		ASSERT_EQ(waitpid(pid, &st, 0), pid);
		EXPECT_EQ(st, 0);
	}
	EXPECT_EQ(at("ZL2K4T7C", "retry"), "3200");
}

TEST_F(OverviewDoc, AWriterKilledMidSaveLosesNothingRecorded)
{
	ASSERT_EQ(VEXODiskXmlHotPlugUpdate(1, disk(1, "ZL2K4T7C").c_str()), 0);
	long seen = 0;
	for (int kill = 0; kill < 24; ++kill) {
		pid_t pid = fork();
		if (pid == 0) {
			for (;;)
				VEXODiskXmlAttrCtUpdate("unc", "ZL2K4T7C");
		}
		usleep(1000 + 700 * kill); // a spread of points inside the loop
		::kill(pid, SIGKILL);
		waitpid(pid, nullptr, 0);
		// The file on disk is whole without any repair, and never goes back.
		ASSERT_TRUE(vexo::xml::root(vexo::xml::readFile(VEXO_DISK_OVERVIEW_XML), "overview")) << kill;
		long now = std::atol(at("ZL2K4T7C", "unc").c_str());
		EXPECT_GE(now, seen) << kill;
		seen = now;
	}
	EXPECT_GT(seen, 0);
	// The lock died with its holder.
	VEXODiskXmlAttrCtUpdate("unc", "ZL2K4T7C");
	EXPECT_EQ(std::atol(at("ZL2K4T7C", "unc").c_str()), seen + 1);
}

} // namespace
