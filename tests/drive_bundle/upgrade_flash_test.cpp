// Flashing one drive with stand-in tools: the retries, the shared time
// budget and the activation that a failed download never reaches.
#include <gtest/gtest.h>
#include <vexohw/drive_bundle.h>

#include "support/vexotest.h"

using vexo::test::Sysroot;

namespace {

// A tool that records each call and fails until its `okFrom`-th call
// (counted from 1), sleeping `sleep` seconds each time.
std::string tool(const Sysroot &root, const std::string &name, int okFrom, int sleep)
{
	const std::string calls = root.host("/tmp/" + name + ".calls");
	return "#!/bin/sh\necho \"$*\" >>" + calls + "\nsleep " + std::to_string(sleep) + "\nn=$(wc -l <" + calls +
	       ")\n[ \"$n\" -ge " + std::to_string(okFrom) + " ]\n";
}

TEST(UpgradeFlash, RetriesAndBudget)
{
	const struct {
		const char *what;
		int downloadOkFrom, downloadSleep, activateOkFrom;
		const char *budget; // drive_firmware_update_timeout, or null
		int ret, downloadRetries, activateRetries, downloadCalls, activateCalls;
	} cases[] = {
		{"first time", 1, 0, 1, nullptr, 0, 0, 0, 1, 1},
		{"third download attempt", 3, 0, 1, nullptr, 0, 2, 0, 3, 1},
		{"download never works", 9, 0, 1, nullptr, -1, 3, 0, 4, 0},
		{"activation never works", 1, 0, 9, nullptr, -1, 0, 3, 1, 4},
		{"download past the budget", 1, 3, 1, "1", -1, 0, 0, 1, 0},
	};
	for (const auto &c : cases) {
		SCOPED_TRACE(c.what);
		Sysroot root;
		root.mkdirs("/tmp");
		root.write("/usr/bin/hdparm", "#!/bin/sh\ncase \"$1\" in --fwactivate) exec " + root.host("/usr/bin/act") +
						      ";; esac\nexec " + root.host("/usr/bin/dl") + " \"$@\"\n",
			   0755);
		root.write("/usr/bin/dl", tool(root, "dl", c.downloadOkFrom, c.downloadSleep), 0755);
		root.write("/usr/bin/act", tool(root, "act", c.activateOkFrom, 0), 0755);
		if (c.budget)
			root.conf("/etc.defaults/vexoinfo.conf", {{"drive_firmware_update_timeout", c.budget}});
		int dl = -7, act = -7;
		EXPECT_EQ(VEXODriveBundleFWUpgrade("/dev/sda", "x.bin", 600, &dl, &act), c.ret);
		EXPECT_EQ(dl, c.downloadRetries);
		EXPECT_EQ(act, c.activateRetries);
		auto calls = [&](const char *n) {
			std::string p = std::string("/tmp/") + n + ".calls";
			std::string t = root.exists(p) ? root.read(p) : "";
			return static_cast<int>(std::count(t.begin(), t.end(), '\n'));
		};
		EXPECT_EQ(calls("dl"), c.downloadCalls);
		EXPECT_EQ(calls("act"), c.activateCalls);
		if (c.downloadCalls) {
			EXPECT_NE(root.read("/tmp/dl.calls").find("--fwdownload-modee " + root.host("/var/lib/drive-bundle/firmware/x.bin") +
								  " --yes-i-know-what-i-am-doing --please-destroy-my-drive /dev/sda"),
				  std::string::npos);
		}
	}
	EXPECT_EQ(VEXODriveBundleFWUpgrade(nullptr, "x.bin", 600, nullptr, nullptr), -1);
}

} // namespace
