// The frame's small helpers: copying text out, building C lists, owning
// library documents.
#include <cstring>

#include "frame/jsonc.h"
#include "frame/jsoncpp.h"
#include "frame/list.h"
#include "frame/text.h"
#include "frame/xml.h"
#include "support/vexotest.h"

using vexo::ReadFail;
using vexo::test::Sysroot;
using namespace std::string_view_literals;

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

} // namespace
