// The frame's small helpers and files: copying text out, C lists, library
// documents, typed readers, the counting flag file, status keywords and the
// per-disk value cache.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <syslog.h>
#include <tuple>
#include <unistd.h>

#include "frame/jsonc.h"
#include "frame/jsoncpp.h"
#include "frame/list.h"
#include "frame/path_read.h"
#include "frame/text.h"
#include "frame/xml.h"
#include "support/vexotest.h"

using vexo::ReadFail;
using vexo::test::Sysroot;
using namespace std::string_view_literals;
using vexo::PathDir;
using vexo::test::LogCapture;

namespace {

TEST(Text, CopyWholeOrNothing)
{
	struct {
		std::string_view src;
		int size;
		bool whole;      // copyText's answer; a refused copy leaves "keep"
		const char *cut; // what copyTextCut leaves
	} rows[] = {
		{"sda", 4, true, "sda"}, {"sda", 3, false, "sd"},    {"", 1, true, ""},
		{"x", 0, false, "keep"}, {"a\0bc"sv, 2, true, "a"}, {"x", -1, false, "keep"},
	};
	for (const auto &r : rows) {
		SCOPED_TRACE(std::string(r.src) + "/" + std::to_string(r.size));
		char a[8] = "keep", b[8] = "keep";
		EXPECT_EQ(vexo::copyText(a, r.size, r.src), r.whole);
		EXPECT_STREQ(a, r.whole ? std::string(r.src).c_str() : "keep");
		vexo::copyTextCut(b, r.size, r.src);
		EXPECT_STREQ(b, r.cut);
	}
	vexo::test::LogCapture log;
	char out[4] = "old";
	EXPECT_FALSE(VEXO_COPY_OUT(out, 4, "serial", "serial"));
	EXPECT_STREQ(out, "old");
	EXPECT_ERR(VEXO_ERR_BAD_PARAM);
	EXPECT_TRUE(log.has(LOG_ERR, "The serial needs 7 bytes, the buffer has 4")) << log.dump();
}

struct Cell {
	int v;
	Cell *next;
};
int freedCells = 0;
void freeCells(Cell *c)
{
	for (Cell *n; c; c = n, ++freedCells) {
		n = c->next;
		std::free(c);
	}
}

TEST(ListBuilder, KeepsOrderHandsOverOrFrees)
{
	freedCells = 0;
	Cell *head = nullptr;
	{
		vexo::ListBuilder<Cell, freeCells> list;
		for (int v : {1, 2})
			list.appendNew()->v = v;
		list.prepend(static_cast<Cell *>(std::calloc(1, sizeof(Cell))));
		head = list.release();
		list.appendNew()->v = 9; // dropped with the builder
	}
	EXPECT_EQ(freedCells, 1);
	std::string order;
	for (Cell *c = head; c; c = c->next)
		order += std::to_string(c->v);
	EXPECT_EQ(order, "012");
	freeCells(head);
}

TEST(Documents, WholeOrNothing)
{
	const std::string deep = std::string(5000, '[') + std::string(5000, ']');
	struct {
		std::string_view text;
		bool ok;
	} rows[] = {
		{"{\"a\": [1, 2]}", true}, {"[1] \n\t", true}, {"[1] x", false},   {"[1]\0"sv, false},
		{"", false},               {"{\"a\": ", false}, {"[1] [2]", false}, {deep, false},
	};
	for (const auto &r : rows) {
		SCOPED_TRACE(std::string(r.text.substr(0, 20)));
		// json-c takes deep nesting up to its own limit; jsoncpp must not throw.
		if (r.text != deep) {
			EXPECT_EQ(static_cast<bool>(vexo::jsonc::parseWhole(r.text)), r.ok);
		}
		Json::Value v("keep");
		EXPECT_EQ(vexo::jsoncpp::parse(r.text, v), r.ok);
		EXPECT_TRUE(r.ok || v.asString() == "keep");
	}

	// Typed reads never throw and never convert.
	const char *doc = R"({"s": "x", "i": 3, "w": 3.0, "f": 1.5, "b": true, "big": 4294967296, "a": [1]})";
	Json::Value j;
	ASSERT_TRUE(vexo::jsoncpp::parse(doc, j));
	vexo::jsonc::Value c = vexo::jsonc::parseWhole(doc);
	// key, then whether it reads as string, int32, int64, bool
	for (const char *row : {"s1000", "i0110", "w0110", "f0000", "b0001", "big0010", "a0000", "none0000"}) {
		std::string key(row, std::strlen(row) - 4), want(row + key.size());
		std::string s;
		int32_t i32 = 0;
		int64_t i64 = 0;
		bool b = false;
		std::string got = {char('0' + vexo::jsoncpp::get(j, key.c_str(), s)),
				   char('0' + vexo::jsoncpp::get(j, key.c_str(), i32)),
				   char('0' + vexo::jsoncpp::get(j, key.c_str(), i64)),
				   char('0' + vexo::jsoncpp::get(j, key.c_str(), b))};
		EXPECT_EQ(got, want) << key;
		EXPECT_EQ(vexo::jsonc::string(c.get(), key.c_str()).has_value(), want[0] == '1') << key;
	}
	EXPECT_EQ(vexo::jsoncpp::member(j["a"], "s"), nullptr);
	EXPECT_EQ(vexo::jsoncpp::getOr<int32_t>(j, "s", -1), -1);
}

TEST(Documents, FilesThroughTheSysroot)
{
	Sysroot root;
	root.write("/etc/db.json", R"({"ok": 1})");
	root.write("/etc/empty.json", "");
	root.write("/etc/bad.json", "{");
	for (auto [path, want] : {std::pair{"/etc/db.json", ReadFail::None}, {"/etc/none.json", ReadFail::Open},
				  {"/etc/empty.json", ReadFail::Read}, {"/etc/bad.json", ReadFail::Parse}}) {
		ReadFail a = ReadFail::None, b = ReadFail::None;
		Json::Value v;
		EXPECT_EQ(static_cast<bool>(vexo::jsonc::readFile(path, &a)), want == ReadFail::None) << path;
		EXPECT_EQ(vexo::jsoncpp::readFile(path, v, &b), want == ReadFail::None) << path;
		EXPECT_EQ(a, want) << path;
		EXPECT_EQ(b, want) << path;
	}
	EXPECT_FALSE(vexo::jsonc::readFile("/etc/db.json", nullptr, 4));
	EXPECT_EQ(errno, EFBIG);

	root.write("/etc/a.xml", "<disks><disk path=\"/dev/sda\"/><disk path=\"/dev/sdb\"/><other/></disks>");
	root.write("/etc/bad.xml", "<disks>");
	root.mkdirs("/etc/dir.xml");
	for (auto [path, parsed, missing] : {std::tuple{"/etc/a.xml", true, false}, {"/etc/none.xml", false, true},
					     {"/etc/bad.xml", false, false}, {"/etc/dir.xml", false, false}}) {
		bool gone = !missing;
		EXPECT_EQ(static_cast<bool>(vexo::xml::readFile(path, &gone)), parsed) << path;
		EXPECT_EQ(gone, missing) << path;
	}
	vexo::xml::Doc doc = vexo::xml::readFile("/etc/a.xml");
	EXPECT_EQ(vexo::xml::root(doc, "disk"), nullptr);
	auto nodes = vexo::xml::XPath(doc).nodes("/disks/disk");
	ASSERT_EQ(nodes.size(), 2u);
	EXPECT_EQ(vexo::xml::propString(nodes[1], "path").value_or(""), "/dev/sdb");
	EXPECT_TRUE(vexo::xml::XPath(doc).nodes("/disks/[").empty()); // a bad expression selects nothing
}

// Typed readers: what each file content gives, and where a read fails.
TEST(PathRead, ContentsAndFailures)
{
	Sysroot root;
	root.mkdirs("/sys/block/sda");
	// How readS32, readI64, readU64 and readString end: None, Parse, Read or
	// Open. A number read is the trimmed text without its '+'.
	struct {
		std::string_view content; // "-": no such file
		const char *ends;
		const char *text;
	} rows[] = {
		{"42\n", "NNNN", "42"},
		{"  -7 \n", "NNPN", "-7"},
		{"+5", "NNNN", "+5"},
		{"2147483648\n", "PNNN", "2147483648"},
		{"-2147483648", "NNPN", "-2147483648"},
		{"18446744073709551615\n", "PPNN", "18446744073709551615"},
		{"18446744073709551616", "PPPN", "18446744073709551616"},
		{"12abc\n", "PPPN", "12abc"},
		{"0x10", "PPPN", "0x10"},
		{"\n", "PPPN", ""},
		{"", "RRRR", ""},
		{"ATA     \n", "PPPN", "ATA"},
		{"a\0b"sv, "PPPN", "a"},
		{"-", "OOOO", ""},
	};
	const char letter[] = {'N', 'O', 'R', 'P'}; // in ReadFail's order
	int i = 0;
	for (const auto &r : rows) {
		SCOPED_TRACE(i);
		std::string rel = "v" + std::to_string(i++);
		if (r.content != "-")
			root.write("/sys/block/sda/" + rel, r.content);
		PathDir d("/sys/block/sda");
		ASSERT_TRUE(d);
		int32_t s = 99; // outputs keep their value on failure
		int64_t l = 99;
		uint64_t u = 99;
		std::string str = "99";
		ReadFail w[4] = {};
		d.readS32(rel, s, &w[0]);
		vexo::readI64("/sys/block/sda/" + rel, l, &w[1]);
		d.readU64(rel, u, &w[2]);
		d.readString(rel, str, &w[3]);
		std::string ends;
		for (ReadFail f : w)
			ends += letter[static_cast<int>(f)];
		EXPECT_EQ(ends, r.ends);
		std::string number = r.text[0] == '+' ? r.text + 1 : r.text;
		EXPECT_EQ(std::to_string(s), r.ends[0] == 'N' ? number : "99");
		EXPECT_EQ(std::to_string(l), r.ends[1] == 'N' ? number : "99");
		EXPECT_EQ(std::to_string(u), r.ends[2] == 'N' ? number : "99");
		EXPECT_EQ(str, r.ends[3] == 'N' ? r.text : "99");
	}
}

TEST(PathRead, LinesLinksAndDirectories)
{
	Sysroot root;
	root.write("/sys/devices/d0/model", "WDC WD40EFRX-68N32N0  \nsecond\n");
	root.write("/sys/devices/d0/long", std::string(100, 'x') + "\n");
	root.symlink("../devices/d0", "/sys/block/sdb");
	root.symlink("model", "/sys/devices/d0/link");

	// The directory is reached through its link; the file under it is not.
	PathDir d("/sys/block/sdb");
	ASSERT_TRUE(d);
	std::string s;
	ReadFail why = ReadFail::None;
	EXPECT_FALSE(d.readString("link", s, &why));
	EXPECT_EQ(why, ReadFail::Open);
	EXPECT_EQ(errno, ELOOP);
	// A document is read through a link, as it is.
	ASSERT_TRUE(vexo::readBytes("/sys/block/sdb/link", s, 4096));
	EXPECT_EQ(s, "WDC WD40EFRX-68N32N0  \nsecond\n");

	struct {
		const char *rel;
		std::size_t size;
		bool keepNewline;
		std::string want;
	} lines[] = {
		{"model", 64, false, "WDC WD40EFRX-68N32N0  "},
		{"model", 64, true, "WDC WD40EFRX-68N32N0  \n"},
		{"/model", 8, true, "WDC WD4"},
		{"long", 64, false, std::string(63, 'x')},
	};
	for (const auto &l : lines) {
		ASSERT_TRUE(d.readLine(l.rel, s, l.size, l.keepNewline)) << l.rel;
		EXPECT_EQ(s, l.want);
	}
	EXPECT_TRUE(vexo::readString("/sys/block/sdb/long", s, nullptr, 10));
	EXPECT_EQ(s, std::string(10, 'x'));

	// A directory that isn't there fails every read at the open.
	PathDir missing("/sys/block/sdz");
	EXPECT_FALSE(missing);
	EXPECT_EQ(missing.error(), ENOENT);
	int32_t v = 0;
	EXPECT_FALSE(missing.readS32("size", v, &why));
	EXPECT_EQ(why, ReadFail::Open);
	EXPECT_EQ(errno, ENOENT);

	// The descriptor keeps the directory it opened.
	ASSERT_EQ(std::rename(root.host("/sys/devices/d0").c_str(), root.host("/sys/devices/d1").c_str()), 0);
	EXPECT_TRUE(d.readString("model", s));
	EXPECT_EQ(s, "WDC WD40EFRX-68N32N0  \nsecond"); // the whole file, trimmed at its ends
}

// The counting flag file and the status keyword lookups.
TEST(CheckFile, CountsUpAndDownAndVanishesAtZero)
{
	Sysroot root;
	root.mkdirs("/tmp");
	const char *f = "/tmp/.disk_check";
	LogCapture log;
	// One step after another; garbage counts as zero, so down from it writes
	// -1 rather than removing, and down from an absent file is an error.
	struct {
		const char *before; // written first; nullptr keeps the file as it is
		int up, rc;
		const char *after; // nullptr: no file
	} steps[] = {
		{nullptr, 1, 0, "1"}, {nullptr, 1, 0, "2"},      {nullptr, 1, 0, "3"},       {nullptr, 0, 0, "2"},
		{nullptr, 0, 0, "1"}, {nullptr, 0, 0, nullptr}, {nullptr, 0, -1, nullptr}, {"junk", 1, 0, "1"},
		{"junk", 0, 0, "-1"},
	};
	int step = 0;
	for (const auto &s : steps) {
		SCOPED_TRACE(step++);
		if (s.before)
			root.write(f, s.before);
		VLIBCErrClear();
		EXPECT_EQ(VEXODiskUpdateCheckFile(f, s.up), s.rc);
		EXPECT_ERR(s.rc ? 0x0900 : 0);
		EXPECT_EQ(root.exists(f) ? root.read(f) : "(none)", s.after ? s.after : "(none)");
	}
	EXPECT_EQ(log.count(3, "get iCount error"), 2);
	EXPECT_EQ(VEXODiskUpdateCheckFile("/no/such/dir/flag", 1), -1);
	EXPECT_EQ(log.count(3, "Fail to touch /no/such/dir/flag"), 1) << log.dump();
}

TEST(StatusKeywords, PrefixMatchingRules)
{
	struct {
		const char *category, *keyword;
		int summary; // -1: not found
	} rows[] = {
		{"health", "normal_but_longer", 3},   {"healthy", "failing", 8}, // longer inputs begin with a keyword
		{"space", "system_crashed", 10},      {"space", "crashed", 11},
		{"compatibility", "not_support", 13}, {"compatibility", "not_in_support", 13},
		{"heal", "normal", -1},               {"health", "norm", -1},
		{"compatibility", "for_eunit", -1}, // the empty slot (6) is skipped, never matched
	};
	for (const auto &r : rows) {
		SCOPED_TRACE(std::string(r.category) + "/" + r.keyword);
		VLIBCErrClear();
		int rank = 42, summary = 42;
		EXPECT_EQ(DiskStatusAllAttributeGet(r.category, r.keyword, &rank, nullptr, &summary), r.summary < 0 ? -1 : 0);
		EXPECT_EQ(summary, r.summary < 0 ? 42 : r.summary);
		EXPECT_EQ(rank == 42, r.summary < 0);
		EXPECT_ERR(r.summary < 0 ? 0x2A00 : 0);
	}
	EXPECT_EQ(DiskStatusAllAttributeGet("disconnect", "1", nullptr, nullptr, nullptr), 0); // outputs are optional
	char out[32];
	EXPECT_EQ(DiskStatusStringTrensfer("compatibility", 6, out, sizeof(out)), -1);
	EXPECT_ERR(0x2A00);
	char small[4];
	ASSERT_EQ(DiskStatusStringTrensfer("health", 3, small, sizeof(small)), 0);
	EXPECT_STREQ(small, "cri");
}

TEST(StatusKeywords, EveryRowRoundTrips)
{
	for (const auto &c : grgDiskStatusCategory) {
		for (int i = 0; i < c.count; ++i) {
			if (!c.table[i].keyword)
				continue;
			char out[64];
			ASSERT_EQ(DiskStatusStringTrensfer(c.keyword, i, out, sizeof(out)), 0);
			int rank, abnormal, summary;
			ASSERT_EQ(DiskStatusAllAttributeGet(c.keyword, out, &rank, &abnormal, &summary), 0);
			// Prefix rules may pick an earlier row with the same columns, never different ones.
			const DiskStatusEntry &e = c.table[i];
			EXPECT_EQ(std::tie(summary, rank, abnormal), std::tie(e.summaryCode, e.emergentRank, e.isAbnormal))
				<< c.keyword << "/" << out;
		}
	}
}

// The per-disk value cache: readers, writers and what lands on disk.
class CacheFile : public ::testing::Test {
protected:
	void SetUp() override
	{
		VLIBCErrClear();
		root.diskDir("sda");
	}
	Sysroot root;
};

TEST_F(CacheFile, WriteThenReadEachTypeOrFail)
{
	ASSERT_EQ(VEXODiskUpdateIntValueCacheFile("sda", "bad_sec_ct", -42), 0);
	ASSERT_EQ(VEXODiskUpdateLLIntValueCacheFile("sda", ".smart_info_list.timestamp", 1LL << 40), 0);
	ASSERT_EQ(VEXODiskUpdateStrValueCacheFile("sda", "serial", "ZL2K 4T7C\n"), 0);
	// The whole content is the value: no key, no newline added.
	EXPECT_EQ(root.read("/run/vexostorage/disks/sda/bad_sec_ct"), "-42");
	EXPECT_EQ(root.read("/run/vexostorage/disks/sda/serial"), "ZL2K 4T7C\n");
	EXPECT_FALSE(root.exists("/run/vexostorage/disks/sda/serial.tmp"));
	EXPECT_EQ(root.mode("/run/vexostorage/disks/sda/serial"), 0644u);

	int i = 0;
	long long ll = 0;
	char s[64];
	ASSERT_EQ(VEXODiskGetIntValueCacheFile("/dev//sda", "bad_sec_ct", &i), 0); // a record's "/sda"
	ASSERT_EQ(VEXODiskGetLLIntValueCacheFile("/dev/sda", ".smart_info_list.timestamp", &ll), 0);
	ASSERT_EQ(VEXODiskGetStrValueCacheFile("/dev/sda", "serial", s, sizeof(s)), 0);
	EXPECT_EQ(i, -42);
	EXPECT_EQ(ll, 1LL << 40);
	EXPECT_STREQ(s, "ZL2K 4T7C\n"); // trailing newlines stay

	// No directory for the disk: -1 and nothing recorded.
	VLIBCErrClear();
	EXPECT_EQ(VEXODiskUpdateIntValueCacheFile("sdz", "unc_weight", 1), -1);
	EXPECT_EQ(VLIBCErrGet(), 0);
	// rename over a directory fails: -1, and the umask is as it was.
	mode_t before = ::umask(022);
	root.mkdirs("/run/vexostorage/disks/sda/firm/inner");
	EXPECT_EQ(VEXODiskUpdateStrValueCacheFile("sda", "firm", "x"), -1);
	EXPECT_EQ(::umask(before), 022u);
}

TEST_F(CacheFile, ReaderCutsMissesAndFailures)
{
	std::string longValue(300, 'x');
	longValue[10] = 'y';
	root.write("/run/vexostorage/disks/sda/model", longValue);
	root.write("/run/vexostorage/disks/sda/vendor", "ab\0cd"sv);
	root.write("/run/vexostorage/disks/sda/unc_weight", "3");
	// An empty file (a writer between rename and close) is a failed read.
	root.write("/run/vexostorage/disks/sda/timeout_weight", "");
	root.mkdirs("/run/vexostorage/disks/sda/remain_life"); // present but unreadable
	struct {
		const char *path, *key;
		int size, err; // err 0: read whole
		std::string out;
	} rows[] = {
		{"/dev/sda", "model", 512, 0, longValue.substr(0, 255)},
		{"/dev/sda", "vendor", 512, 0, "ab"}, // cut at the first NUL byte
		{"sda", "unc_weight", 512, 0x0700, "keep"}, // a short name instead of a device path
		{"/dev/sda", "timeout_weight", 512, 0x0A00, "keep"},
		{"/dev/sda", "remain_life", 512, 0x0A00, "keep"},
		{"/dev/sda", "model", 0, 0x0D00, "keep"},
	};
	for (const auto &r : rows) {
		SCOPED_TRACE(std::string(r.path) + " " + r.key);
		char out[512] = "keep";
		VLIBCErrClear();
		EXPECT_EQ(VEXODiskGetStrValueCacheFile(r.path, r.key, out, r.size), r.err ? -1 : 0);
		EXPECT_ERR(r.err);
		EXPECT_EQ(out, r.out);
		// The number reader misses and fails alike, and keeps its output.
		int v = 7;
		if (r.err && r.size) {
			VLIBCErrClear();
			EXPECT_EQ(VEXODiskGetIntValueCacheFile(r.path, r.key, &v), -1);
			EXPECT_ERR(r.err);
			EXPECT_EQ(v, 7);
			// The place is the reader's own, not the helper's.
			EXPECT_STREQ(VLIBCErrFileGet(), "disk/disk_get_cache_file");
		}
	}
}

// Names and keys that are not one plain path element never reach the file
// system: not above the disks folder, not outside the root, not cut short.
TEST_F(CacheFile, EscapingOrOverlongNamesAreRefused)
{
	root.write("/etc/secret", "s3cret");
	const std::string longName(100, 'n'), longKey(110, 'k');
	root.diskDir(longName);
	struct {
		const char *name, *key;
	} writes[] = {
		{"../../../etc", "k"}, {"sda", "../../../../etc/k"}, {"..", "k"}, {".", "k"}, {"sda/..", "k"},
		{"-sda", "k"}, {"sda", "a b"}, {"", "k"}, {"sda", ""}, {"sda", longKey.c_str()}, {"/dev/sda", "k"},
		{"../../../../../../../../../../../../tmp", "vexo_escape_probe"}, {longName.c_str(), "a_key_of_twenty_eight_bytes_"},
	};
	LogCapture log;
	for (const auto &w : writes) {
		VLIBCErrClear();
		EXPECT_EQ(VEXODiskUpdateStrValueCacheFile(w.name, w.key, "v"), -1) << w.name << " " << w.key;
		EXPECT_ERR(0x0D00);
	}
	EXPECT_FALSE(root.exists("/etc/k"));
	EXPECT_FALSE(root.exists("/run/vexostorage/disks/sda/" + longKey.substr(0, 100)));
	EXPECT_FALSE(std::filesystem::exists("/tmp/vexo_escape_probe"));
	struct {
		const char *path, *key;
	} reads[] = {{"/dev/../../../etc", "secret"}, {"/dev/sda", "../../../../etc/secret"}, {"/dev/..", "secret"},
		     {"/dev/sda/../../../../etc", "secret"}, {"/dev/sda", "a/b"}};
	for (const auto &r : reads) {
		char s[16] = "keep";
		VLIBCErrClear();
		EXPECT_EQ(VEXODiskGetStrValueCacheFile(r.path, r.key, s, sizeof(s)), -1) << r.path << " " << r.key;
		EXPECT_ERR(0x0D00);
		EXPECT_STREQ(s, "keep");
	}
	EXPECT_EQ(log.count(LOG_ERR, "Bad parameters"), static_cast<int>(std::size(writes) + std::size(reads)));
}

// A full file system: the write fails and the old value stays readable.
// Runs in a mount namespace of its own on a 16 KiB tmpfs.
TEST_F(CacheFile, FullFileSystemKeepsTheOldValue)
{
	const std::string dir = root.host("/run/vexostorage/disks/sda");
	int st = vexo::test::inChild([&] {
		if (::unshare(CLONE_NEWNS) != 0 || ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
		    ::mount("tmpfs", dir.c_str(), "tmpfs", 0, "size=16k") != 0)
			return 77;
		if (VEXODiskUpdateStrValueCacheFile("sda", "serial", "OLD") != 0)
			return 1;
		// Fill what is left.
		int fd = ::open((dir + "/filler").c_str(), O_WRONLY | O_CREAT, 0644);
		char block[1024] = {};
		while (::write(fd, block, sizeof(block)) > 0) {
		}
		::close(fd);
		VLIBCErrClear();
		for (std::string value : {std::string("NEW"), std::string(8192, 'N')}) {
			if (VEXODiskUpdateStrValueCacheFile("sda", "serial", value.c_str()) != -1)
				return 2;
			if (VLIBCErrGet() != 0x0B00)
				return 3;
			char s[16] = {};
			if (VEXODiskGetStrValueCacheFile("/dev/sda", "serial", s, sizeof(s)) != 0 || std::string(s) != "OLD")
				return 4;
		}
		for (const auto &e : std::filesystem::directory_iterator(dir))
			if (e.path().filename().string().find(".tmp") != std::string::npos)
				return 5;
		return 0;
	});
	if (st == 77)
		GTEST_SKIP() << "no tmpfs mount here";
	EXPECT_EQ(st, 0);
}

} // namespace
