// The fetchers against a real HTTPS server on 127.0.0.1, and signed archives
// made by vexo-archive read through the platform's reader.
#include <archive.h>
#include <archive_entry.h>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <syslog.h>
#include <vexohw/misc.h>
#include <vexoplatform/vexoarchive.h>

#include "misc/serve.h"
#include "support/vexotest.h"

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

// Signed archives made by vexo-archive, read by the platform's reader
// through VEXOFirmSAExtract and VEXOPackageSAExtract: real keys, real
// signatures, hostile entries.
struct Entry {
	const char *name;
	mode_t type; // AE_IFREG, AE_IFDIR, AE_IFLNK, AE_IFCHR, AE_IFIFO; 0: hard link
	std::string body; // contents, or the link's target
};

la_ssize_t collect(archive *, void *user, const void *buf, size_t n)
{
	static_cast<std::string *>(user)->append(static_cast<const char *>(buf), n);
	return static_cast<la_ssize_t>(n);
}

// A tar stream holding exactly these entries, as a hostile maker would write it.
std::string tar(const std::vector<Entry> &entries)
{
	std::string out;
	archive *a = archive_write_new();
	archive_write_set_format_pax_restricted(a);
	archive_write_open(a, &out, nullptr, collect, nullptr);
	for (const Entry &x : entries) {
		archive_entry *e = archive_entry_new();
		archive_entry_set_pathname(e, x.name);
		archive_entry_set_perm(e, 0644);
		if (x.type == 0) {
			archive_entry_set_filetype(e, AE_IFREG);
			archive_entry_set_hardlink(e, x.body.c_str());
		} else {
			archive_entry_set_filetype(e, x.type);
		}
		if (x.type == AE_IFLNK)
			archive_entry_set_symlink(e, x.body.c_str());
		if (x.type == AE_IFREG)
			archive_entry_set_size(e, static_cast<la_int64_t>(x.body.size()));
		archive_write_header(a, e);
		if (x.type == AE_IFREG)
			archive_write_data(a, x.body.data(), x.body.size());
		archive_entry_free(e);
	}
	archive_write_close(a);
	archive_write_free(a);
	return out;
}

class ArchiveTest : public ::testing::Test {
protected:
	void SetUp() override { ASSERT_EQ(tool({"keys", root.root()}), 0); }

	int tool(std::vector<std::string> args)
	{
		args.insert(args.begin(), buildDir() + "/bin/vexo-archive");
		return runProgram(args);
	}
	// Signs a container with the simulated appliance's key of keyType;
	// gives the archive's appliance path.
	std::string sign(const std::string &container, int keyType, const std::string &name = "/tmp/a.sa")
	{
		root.write("/tmp/container", container);
		EXPECT_EQ(tool({"sign", std::to_string(keyType), root.host("/run/vexosim/archive-keys/") +
			       std::to_string(keyType) + ".key", root.host("/tmp/container"), root.host(name)}),
			  0);
		return name;
	}
	int openCode(const std::string &path, int keyType)
	{
		VEXOARCHIVE *a = vexoarchive_init("");
		int rc = vexoarchive_open_with_keytype(a, path.c_str(), keyType);
		vexoarchive_free(a);
		return rc;
	}

	Sysroot root;
};

TEST_F(ArchiveTest, GoodFirmwareArchiveUnpacks)
{
	root.write("/tmp/kit/fw/DRV100.bin", std::string(5000, '\x5a'));
	root.write("/tmp/kit/fw/DRV100.FW_INFO", "md5sum=\"x\"\n");
	root.symlink("DRV100.bin", "/tmp/kit/fw/current");
	ASSERT_EQ(tool({"pack", "7", root.host("/run/vexosim/archive-keys/7.key"), root.host("/tmp/fw.sa"),
			root.host("/tmp/kit")}),
		  0);
	LogCapture log;
	ASSERT_EQ(VEXOFirmSAExtract("/tmp/fw.sa", "/var/lib/drive-bundle/firmware-tmp"), 0) << log.dump();
	std::string listing;
	runProgram({"find", root.host("/var/lib/drive-bundle/firmware-tmp"), "-printf", "%P %y %s\\n"}, &listing);
	EXPECT_TRUE(root.read("/var/lib/drive-bundle/firmware-tmp/fw/DRV100.bin") == std::string(5000, '\x5a'))
		<< listing;
	EXPECT_TRUE(root.read("/var/lib/drive-bundle/firmware-tmp/fw/current") == std::string(5000, '\x5a'));
	EXPECT_EQ(root.mode("/var/lib/drive-bundle/firmware-tmp") & 07777, 0744u);
	char name[256] = {};
	EXPECT_EQ(VEXOPackageSAExtract("/tmp/fw.sa", name, sizeof name), -1); // a firmware key is no package key
	EXPECT_TRUE(log.has(LOG_ERR, "open failed, return code: -6")) << log.dump();
}

TEST_F(ArchiveTest, PackageNameWithoutExtracting)
{
	sign(tar({{"pkg", AE_IFDIR, ""}, {"pkg/VexoTool-1.2.vpk", AE_IFREG, "payload"}}), 8, "/tmp/p.sa");
	char name[256] = {};
	ASSERT_EQ(VEXOPackageSAExtract("/tmp/p.sa", name, sizeof name), 0);
	EXPECT_STREQ(name, "pkg/VexoTool-1.2.vpk");
	char small[8] = "keep";
	EXPECT_EQ(VEXOPackageSAExtract("/tmp/p.sa", small, sizeof small), -1);
	EXPECT_STREQ(small, "keep");
	EXPECT_FALSE(root.exists("/pkg"));
}

TEST_F(ArchiveTest, RefusedArchives)
{
	const std::string good = tar({{"fw.bin", AE_IFREG, "firmware"}});
	struct Case {
		const char *name;
		std::string container;
		int keyType;  // signed with
		int tamperAt; // flip this byte of the signed file (-1: none; < -1: from the end)
		int code;
	} cases[] = {
		{"tampered container", good, 7, 600, VEXOARCHIVE_ERR_SIGNATURE},
		{"tampered signature", good, 7, -40, VEXOARCHIVE_ERR_SIGNATURE},
		{"key type rewritten in the trailer", good, 8, -88, VEXOARCHIVE_ERR_SIGNATURE},
		{"package key", good, 8, -1, VEXOARCHIVE_ERR_KEYTYPE},
		{"dot dot", tar({{"../evil", AE_IFREG, "x"}}), 7, -1, VEXOARCHIVE_ERR_PATH},
		{"dot dot inside", tar({{"a/../../evil", AE_IFREG, "x"}}), 7, -1, VEXOARCHIVE_ERR_PATH},
		{"absolute", tar({{"/etc/passwd", AE_IFREG, "x"}}), 7, -1, VEXOARCHIVE_ERR_PATH},
		{"link out", tar({{"a/l", AE_IFLNK, "../../x"}}), 7, -1, VEXOARCHIVE_ERR_PATH},
		{"absolute link", tar({{"l", AE_IFLNK, "/etc"}}), 7, -1, VEXOARCHIVE_ERR_PATH},
		{"through a link", tar({{"l", AE_IFLNK, "."}, {"l/x", AE_IFREG, "x"}}), 7, -1, VEXOARCHIVE_ERR_PATH},
		{"hard link", tar({{"a", AE_IFREG, "x"}, {"b", 0, "a"}}), 7, -1, VEXOARCHIVE_ERR_TYPE},
		{"device", tar({{"sda", AE_IFBLK, ""}}), 7, -1, VEXOARCHIVE_ERR_TYPE},
		{"character device", tar({{"mem", AE_IFCHR, ""}}), 7, -1, VEXOARCHIVE_ERR_TYPE},
		{"fifo", tar({{"p", AE_IFIFO, ""}}), 7, -1, VEXOARCHIVE_ERR_TYPE},
		{"past the bound", tar({{"big", AE_IFREG, std::string(3000, 'b')}}), 7, -1, VEXOARCHIVE_ERR_TOOBIG},
		{"not a tar", "plain text, no archive at all", 7, -1, VEXOARCHIVE_ERR_FORMAT},
	};
	ScopedEnv bound("VEXO_ARCHIVE_MAX_UNPACKED", "2048");
	for (const Case &c : cases) {
		SCOPED_TRACE(c.name);
		std::string path = sign(c.container, c.keyType);
		if (c.tamperAt != -1) {
			std::string bytes = root.read(path);
			size_t at = c.tamperAt >= 0 ? static_cast<size_t>(c.tamperAt) : bytes.size() + c.tamperAt;
			bytes[at] ^= c.tamperAt == -88 ? 0x0f : 0x01; // -88: 8 becomes 7
			root.write(path, bytes);
		}
		EXPECT_EQ(openCode(path, 7), c.code);
		LogCapture log;
		EXPECT_EQ(VEXOFirmSAExtract(path.c_str(), "/out"), -1);
		EXPECT_TRUE(log.has(LOG_ERR, "open failed, return code: " + std::to_string(c.code))) << log.dump();
		std::string listing;
		runProgram({"find", root.host("/out"), "-mindepth", "1"}, &listing);
		EXPECT_EQ(listing, ""); // refused at open: nothing written
	}
	root.write("/tmp/short.sa", "VEXOSIG1");
	EXPECT_EQ(openCode("/tmp/short.sa", 7), VEXOARCHIVE_ERR_FORMAT);
	EXPECT_EQ(openCode("/tmp/none.sa", 7), VEXOARCHIVE_ERR_IO);
	root.remove("/usr/vexo/etc/archive-keys/7.pem");
	EXPECT_EQ(openCode(sign(good, 7), 7), VEXOARCHIVE_ERR_NOKEY);
}

TEST_F(ArchiveTest, FullVolumeIsMinusTwo)
{
	std::string noise(200000, '\0');
	unsigned x = 12345;
	for (char &c : noise) {
		x = x * 1103515245 + 12345;
		c = static_cast<char>(x >> 16);
	}
	std::string path = sign(tar({{"fw.bin", AE_IFREG, noise}}), 7);
	root.mkdirs("/small");
	std::string small = root.host("/small");
	int rc = inChild([&] {
		if (::unshare(CLONE_NEWNS) != 0 && ::unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0)
			return 77;
		::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr);
		if (::mount("tmpfs", small.c_str(), "tmpfs", 0, "size=64k") != 0)
			return 77;
		LogCapture log;
		int r = VEXOFirmSAExtract(path.c_str(), "/small/fw");
		return r == -2 && log.has(LOG_ERR, "There's no enough space") ? 0 : 10 - r;
	});
	if (rc == 77)
		GTEST_SKIP() << "cannot mount a small tmpfs here";
	EXPECT_EQ(rc, 0);
}

TEST(Md5Test, ThroughTheTool)
{
	Sysroot root;
	root.write("/tmp/h", "hello");
	struct Case {
		const char *path;
		const char *md5;
		bool tool;
		int rc;
		int err;
		bool warned;
	} cases[] = {
		{"/tmp/h", "5d41402abc4b2a76b9719d911017c592", true, 1, 0, false},
		{"/tmp/h", "5D41402ABC4B2A76B9719D911017C592", true, 0, 0, true}, // exact, case and all
		{"/tmp/h", "5d41402abc4b2a76b9719d911017c59", true, 0, 0, true},
		{"/tmp/none", "5d41402abc4b2a76b9719d911017c592", true, -1, 0x0A00, false},
		{"/tmp/h", "5d41402abc4b2a76b9719d911017c592", false, -1, 0x0900, false},
		{"/tmp/h", nullptr, true, -1, 0x0D00, false},
	};
	for (const Case &c : cases) {
		SCOPED_TRACE(std::string(c.path) + " " + (c.md5 ? c.md5 : "null") + (c.tool ? "" : " no tool"));
		if (root.exists("/usr/bin/md5sum"))
			root.remove("/usr/bin/md5sum");
		if (c.tool)
			root.symlink(buildDir() + "/bin/vexosim-tools", "/usr/bin/md5sum");
		LogCapture log;
		VLIBCErrClear();
		EXPECT_EQ(VEXOHWCTLMiscFileMD5sumMatch(c.path, c.md5), c.rc);
		EXPECT_ERR(c.err);
		EXPECT_EQ(log.has(LOG_WARNING, "MD5 do not match: target MD5 is"), c.warned) << log.dump();
	}
}

} // namespace
