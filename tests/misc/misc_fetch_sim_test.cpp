// The fetchers against a real HTTPS server on 127.0.0.1: bodies, error
// statuses, cut transfers, unreachable hosts and certificate checks.
#include <cstdlib>
#include <cstring>
#include <syslog.h>
#include <gtest/gtest.h>
#include <vexohw/misc.h>

#include "misc/serve.h"

using namespace vexo::test;

namespace {

struct Fetch {
	const char *name;
	const char *ctl;     // serve.ctl
	const char *url;     // path on the server, or a whole URL
	bool ownCa;          // the simulated CA in the redirect file
	int insecure;
	int rc;
	const char *body;    // what the file / buffer holds afterwards (nullptr: don't care)
	int err;             // expected core error (-1: don't care)
	const char *logText; // a LOG_ERR line containing this, or "" for no line at all
};

const std::string kDoc = "{\"smart\":{\"ver\":7,\"url\":\"db/smart.db\"}}";

const Fetch kFetches[] = {
	{"whole", "", "/idx.json", true, 0, 0, kDoc.c_str(), -1, ""},
	{"not found body lands", "", "/missing.json", true, 0, 0, "{\"success\":false,\"error\":{\"code\":404}}", -1,
	 ""},
	{"forced 404", "/idx 404\n", "/idx.json", true, 0, 0, "{\"success\":false,\"error\":{\"code\":404}}", -1, ""},
	{"cut half way", "/idx cut\n", "/idx.json", true, 0, -1, "{\"smart\":{\"ver\":7,\"", -1, "Failed to curl url"},
	{"unresolvable", "", "https://update.nonexistent.invalid/x", true, 0, -1, nullptr, 0x1100, ""},
	{"unknown CA", "", "/idx.json", false, 0, -1, nullptr, -1, "Failed to curl url"},
	{"unknown CA, insecure", "", "/idx.json", false, 1, 0, kDoc.c_str(), -1, ""},
};

class FetchTest : public ::testing::TestWithParam<bool> {};

TEST_P(FetchTest, AgainstTheLocalServer)
{
	const bool toBuffer = GetParam();
	Sysroot root;
	Serve serve(root);
	ASSERT_GT(serve.port(), 0) << "vexosim-serve did not start";
	serve.put("/idx.json", kDoc);
	// A redirect file that trusts the system's CAs only.
	root.write("/etc/net-system-ca.conf", "map https://x.example " + serve.url("") + "\n");
	for (const Fetch &f : kFetches) {
		SCOPED_TRACE(f.name);
		serve.misbehave(f.ctl);
		ScopedEnv conf("VEXO_NET_CONF", f.ownCa ? nullptr : root.host("/etc/net-system-ca.conf").c_str());
		std::string url = f.url[0] == '/' ? serve.url(f.url) : f.url;
		LogCapture log;
		VLIBCErrClear();
		std::string got;
		if (toBuffer) {
			char *buf = static_cast<char *>(std::malloc(6));
			std::memcpy(buf, "head:", 6);
			int size = 6;
			EXPECT_EQ(VEXODiskMiscCurlToBuffer(url.c_str(), &buf, &size, f.insecure), f.rc);
			if (f.rc == 0) {
				got = buf;
				EXPECT_EQ(got.rfind("head:", 0), 0u);
				got.erase(0, 5);
				EXPECT_EQ(size, static_cast<int>(got.size() + 6));
			} else {
				EXPECT_EQ(size, 6); // the caller's size stays
			}
			std::free(buf);
		} else {
			root.write("/tmp/out", "earlier content");
			EXPECT_EQ(VEXODiskMiscCurlToFile(url.c_str(), "/tmp/out", f.insecure), f.rc);
			got = root.read("/tmp/out");
		}
		if (f.body && (f.rc == 0 || !toBuffer)) {
			EXPECT_EQ(got, f.body);
		}
		if (f.err >= 0) {
			EXPECT_ERR(f.err);
		}
		if (*f.logText) {
			EXPECT_TRUE(log.has(LOG_ERR, f.logText)) << log.dump();
		} else {
			EXPECT_EQ(log.count(-1), 0) << log.dump();
		}
	}
}

INSTANTIATE_TEST_SUITE_P(Misc, FetchTest, ::testing::Values(false, true),
			 [](const auto &info) { return info.param ? "ToBuffer" : "ToFile"; });

TEST(FetchTest, DefaultHostsGoToTheLocalServer)
{
	Sysroot root;
	Serve serve(root);
	ASSERT_GT(serve.port(), 0);
	serve.put("/ssd/v1/getUpdate/index.json", "[]");
	serve.put("/ssd/v1/getUpdate/M2.json", "[{\"file\":\"x\"}]");
	char *buf = nullptr;
	int size = 0;
	ASSERT_EQ(VEXODiskMiscCurlToBuffer(VEXO_FIRMWARE_SERVER_DEFAULT "/ssd/v1/getUpdate?unique=u&model=M2", &buf,
					   &size, 0),
		  0);
	EXPECT_STREQ(buf, "[{\"file\":\"x\"}]");
	std::free(buf);
}

} // namespace
