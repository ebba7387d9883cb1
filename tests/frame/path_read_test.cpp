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
	struct Row {
		std::string_view content; // "-": no such file
		ReadFail s32, i64, u64, str;
		int32_t s32v;
		int64_t i64v;
		uint64_t u64v;
		const char *strv;
	};
	constexpr ReadFail N = ReadFail::None, P = ReadFail::Parse, R = ReadFail::Read, O = ReadFail::Open;
	const Row rows[] = {
		{"42\n", N, N, N, N, 42, 42, 42, "42"},
		{"  -7 \n", N, N, P, N, -7, -7, 0, "-7"},
		{"+5", N, N, N, N, 5, 5, 5, "+5"},
		{"2147483648\n", P, N, N, N, 0, 2147483648LL, 2147483648ULL, "2147483648"},
		{"-2147483648", N, N, P, N, INT32_MIN, INT32_MIN, 0, "-2147483648"},
		{"18446744073709551615\n", P, P, N, N, 0, 0, UINT64_MAX, "18446744073709551615"},
		{"18446744073709551616", P, P, P, N, 0, 0, 0, "18446744073709551616"},
		{"12abc\n", P, P, P, N, 0, 0, 0, "12abc"},
		{"0x10", P, P, P, N, 0, 0, 0, "0x10"},
		{"\n", P, P, P, N, 0, 0, 0, ""},
		{"", R, R, R, R, 0, 0, 0, nullptr},
		{"ATA     \n", P, P, P, N, 0, 0, 0, "ATA"},
		{"a\0b"sv, P, P, P, N, 0, 0, 0, "a"},
		{"-", O, O, O, O, 0, 0, 0, nullptr},
	};
	int i = 0;
	for (const Row &r : rows) {
		SCOPED_TRACE(i);
		std::string rel = "v" + std::to_string(i++);
		if (r.content != "-")
			root.write("/sys/block/sda/" + rel, r.content);
		else
			root.mkdirs("/sys/block/sda");
		PathDir d("/sys/block/sda");
		ASSERT_TRUE(d);
		// Outputs keep their value on failure.
		int32_t s = 99;
		int64_t l = 99;
		uint64_t u = 99;
		std::string str = "keep";
		ReadFail ws = N, wl = N, wu = N, wstr = N;
		EXPECT_EQ(d.readS32(rel, s, &ws), r.s32 == N);
		EXPECT_EQ(vexo::readI64("/sys/block/sda/" + rel, l, &wl), r.i64 == N);
		EXPECT_EQ(d.readU64(rel, u, &wu), r.u64 == N);
		EXPECT_EQ(d.readString(rel, str, &wstr), r.str == N);
		EXPECT_EQ(ws, r.s32);
		EXPECT_EQ(wl, r.i64);
		EXPECT_EQ(wu, r.u64);
		EXPECT_EQ(wstr, r.str);
		EXPECT_EQ(s, r.s32 == N ? r.s32v : 99);
		EXPECT_EQ(l, r.i64 == N ? r.i64v : 99);
		EXPECT_EQ(u, r.u64 == N ? r.u64v : 99);
		EXPECT_EQ(str, r.str == N ? r.strv : "keep");
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
