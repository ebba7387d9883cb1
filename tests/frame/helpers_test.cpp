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
using vexo::test::LogCapture;
using vexo::test::Sysroot;
using namespace std::string_view_literals;

namespace {

TEST(Text, CopyWholeOrNothing)
{
	struct {
		std::string_view src;
		std::size_t size;
		bool whole;    // copyText's answer
		const char *cut; // what copyTextCut leaves
	} rows[] = {
		{"sda", 4, true, "sda"},     {"sda", 3, false, "sd"}, {"", 1, true, ""},
		{"x", 0, false, "#######"},  {"a\0bc"sv, 2, true, "a"}, {"WDC WD40", 8, false, "WDC WD4"},
	};
	for (const auto &r : rows) {
		SCOPED_TRACE(std::string(r.src) + "/" + std::to_string(r.size));
		char buf[8];
		std::memset(buf, '#', sizeof(buf) - 1);
		buf[7] = '\0';
		EXPECT_EQ(vexo::copyText(buf, r.size, r.src), r.whole);
		EXPECT_STREQ(buf, r.whole ? std::string(r.src).c_str() : "#######"); // untouched when refused
		std::memset(buf, '#', sizeof(buf) - 1);
		vexo::copyTextCut(buf, r.size, r.src);
		EXPECT_EQ(std::string(buf, std::strlen(r.cut)), r.cut);
	}
	EXPECT_FALSE(vexo::copyText(nullptr, 8, "a"));
	char one[2] = "z";
	EXPECT_FALSE(vexo::copyText(one, -1, "a")); // a C caller's negative size
	EXPECT_STREQ(one, "z");

	LogCapture log;
	char out[4] = "old";
	VLIBCErrClear();
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
	while (c) {
		Cell *n = c->next;
		std::free(c);
		++freedCells;
		c = n;
	}
}

TEST(ListBuilder, KeepsOrderHandsOverOrFrees)
{
	freedCells = 0;
	Cell *head = nullptr;
	{
		vexo::ListBuilder<Cell, freeCells> list;
		for (int v : {1, 2, 3})
			list.appendNew()->v = v;
		auto *first = static_cast<Cell *>(std::malloc(sizeof(Cell)));
		first->v = 0;
		first->next = reinterpret_cast<Cell *>(0x1); // overwritten when linked
		list.prepend(first);
		list.appendNew()->v = 4;
		EXPECT_EQ(list.size(), 5u);
		head = list.release();
		EXPECT_TRUE(list.empty());
		list.appendNew()->v = 9; // the builder is usable again after release
	}
	EXPECT_EQ(freedCells, 1); // only what was not handed over
	int want = 0;
	for (Cell *c = head; c; c = c->next)
		EXPECT_EQ(c->v, want++);
	EXPECT_EQ(want, 5);
	freeCells(head);
}

TEST(Documents, WholeOrNothing)
{
	const std::string deep = std::string(5000, '[') + std::string(5000, ']');
	struct {
		std::string_view text;
		bool ok;
	} rows[] = {
		{"{\"a\": [1, 2]}", true}, {"[1] \n\t", true}, {"[1] x", false}, {"[1]\0"sv, false},
		{"", false}, {"{\"a\": ", false}, {"[1] [2]", false}, {deep, false},
	};
	for (const auto &r : rows) {
		SCOPED_TRACE(std::string(r.text.substr(0, 20)));
		vexo::jsonc::ParseFail why = vexo::jsonc::ParseFail::NoMemory;
		// json-c takes deep nesting up to its own limit: only the rest is compared.
		if (r.text != deep) {
			EXPECT_EQ(static_cast<bool>(vexo::jsonc::parseWhole(r.text, &why)), r.ok);
			EXPECT_EQ(why, r.ok ? vexo::jsonc::ParseFail::None : vexo::jsonc::ParseFail::Syntax);
		}
		Json::Value v("keep");
		EXPECT_EQ(vexo::jsoncpp::parse(r.text, v), r.ok);
		if (!r.ok) {
			EXPECT_EQ(v.asString(), "keep");
		}
	}
}

TEST(Documents, TypedMembersNeverThrow)
{
	const char *doc = R"({"s": "x", "i": 3, "w": 3.0, "f": 1.5, "b": true, "big": 4294967296, "a": [1]})";
	vexo::jsonc::Value c = vexo::jsonc::parseWhole(doc);
	Json::Value j;
	ASSERT_TRUE(c);
	ASSERT_TRUE(vexo::jsoncpp::parse(doc, j));
	struct {
		const char *key;
		bool isString, isInt32, isInt64, isBool;
	} rows[] = {
		{"s", true, false, false, false}, {"i", false, true, true, false}, {"w", false, true, true, false},
		{"f", false, false, false, false}, {"b", false, false, false, true}, {"big", false, false, true, false},
		{"a", false, false, false, false}, {"none", false, false, false, false},
	};
	for (const auto &r : rows) {
		SCOPED_TRACE(r.key);
		std::string s;
		int32_t i32 = 0;
		int64_t i64 = 0;
		bool b = false;
		EXPECT_EQ(vexo::jsoncpp::get(j, r.key, s), r.isString);
		EXPECT_EQ(vexo::jsoncpp::get(j, r.key, i32), r.isInt32);
		EXPECT_EQ(vexo::jsoncpp::get(j, r.key, i64), r.isInt64);
		EXPECT_EQ(vexo::jsoncpp::get(j, r.key, b), r.isBool);
		// json-c keeps 3.0 a double: only the stored type counts there.
		EXPECT_EQ(vexo::jsonc::string(c.get(), r.key).has_value(), r.isString);
		EXPECT_EQ(vexo::jsonc::boolean(c.get(), r.key).has_value(), r.isBool);
		EXPECT_EQ(vexo::jsonc::integer(c.get(), r.key).has_value(), r.isInt64 && std::string_view(r.key) != "w");
	}
	// Members of what is not an object.
	EXPECT_EQ(vexo::jsoncpp::member(j["a"], "s"), nullptr);
	EXPECT_EQ(vexo::jsonc::member(json_object_array_get_idx(vexo::jsonc::member(c.get(), "a", json_type_array), 0), "s",
				      json_type_string),
		  nullptr);
	EXPECT_EQ(vexo::jsoncpp::getOr(j, "i", std::string("none")), "none");
	EXPECT_EQ(vexo::jsoncpp::getOr<int32_t>(j, "s", -1), -1);
}

TEST(Documents, FilesThroughTheSysroot)
{
	Sysroot root;
	root.write("/etc/db.json", R"({"ok": 1})");
	root.write("/etc/empty.json", "");
	root.write("/etc/bad.json", "{");
	root.write("/etc/a.xml", "<disks><disk path=\"/dev/sda\"/><disk path=\"/dev/sdb\"/><other/></disks>");
	root.write("/etc/bad.xml", "<disks>");
	root.mkdirs("/etc/dir.xml");
	struct {
		const char *path;
		ReadFail why;
	} json[] = {{"/etc/db.json", ReadFail::None}, {"/etc/none.json", ReadFail::Open},
		    {"/etc/empty.json", ReadFail::Read}, {"/etc/bad.json", ReadFail::Parse}};
	for (const auto &r : json) {
		SCOPED_TRACE(r.path);
		ReadFail a = ReadFail::None, b = ReadFail::None;
		Json::Value v;
		EXPECT_EQ(static_cast<bool>(vexo::jsonc::readFile(r.path, &a)), r.why == ReadFail::None);
		EXPECT_EQ(vexo::jsoncpp::readFile(r.path, v, &b), r.why == ReadFail::None);
		EXPECT_EQ(a, r.why);
		EXPECT_EQ(b, r.why);
	}
	ReadFail why = ReadFail::None;
	EXPECT_FALSE(vexo::jsonc::readFile("/etc/db.json", &why, 4));
	EXPECT_EQ(errno, EFBIG);

	struct {
		const char *path;
		bool parsed, missing;
	} xml[] = {{"/etc/a.xml", true, false},
		   {"/etc/none.xml", false, true},
		   {"/etc/bad.xml", false, false},
		   {"/etc/dir.xml", false, false}};
	for (const auto &r : xml) {
		SCOPED_TRACE(r.path);
		bool missing = !r.missing;
		EXPECT_EQ(static_cast<bool>(vexo::xml::readFile(r.path, &missing)), r.parsed);
		EXPECT_EQ(missing, r.missing);
	}
	vexo::xml::Doc doc = vexo::xml::readFile("/etc/a.xml");
	EXPECT_EQ(vexo::xml::root(doc, "disk"), nullptr);
	ASSERT_NE(vexo::xml::root(doc, "disks"), nullptr);
	vexo::xml::XPath q(doc);
	auto nodes = q.nodes("/disks/disk");
	ASSERT_EQ(nodes.size(), 2u);
	EXPECT_EQ(vexo::xml::propString(nodes[1], "path").value_or(""), "/dev/sdb");
	EXPECT_FALSE(vexo::xml::propString(nodes[1], "model"));
	EXPECT_TRUE(q.nodes("/disks/[").empty()); // a bad expression selects nothing
}

} // namespace
