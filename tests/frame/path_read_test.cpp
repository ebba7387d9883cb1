// Typed readers: what each file content gives, and where a read fails.
#include <cerrno>
#include <cstdio>

#include "frame/path_read.h"
#include "support/vexotest.h"

using vexo::PathDir;
using vexo::ReadFail;
using vexo::test::Sysroot;
using namespace std::string_view_literals;

namespace {

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

} // namespace
