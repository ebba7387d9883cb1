// vexohw events [tests]: the filters reach the log as quoted values (a
// serial with a quote in it matches itself and nothing else), newest first,
// a log not written yet is an empty answer, and a self-test lands in the
// test log.
#include <filesystem>
#include <vexoplatform/logdb.h>

#include "smartctl/drive_sim.h"
#include "support/vexotest.h"
#include "tools/cli_run.h"

using namespace vexo::test;

namespace {

const bool kBackend = installDriveEmulator();

// The serials of the rows of a JSON answer, in order.
std::string serials(const std::string &out)
{
	JsonDoc doc(out);
	std::string s;
	for (size_t i = 0; doc.obj && i < json_object_array_length(doc.obj); ++i)
		s += (i ? "," : "") + text(json_object_array_get_idx(doc.obj, i), "serial");
	return s;
}

TEST(EventsCli, FiltersNewestFirstAndTheTestLog)
{
	ASSERT_TRUE(kBackend);
	BuiltBox box;
	ASSERT_TRUE(box.ok()) << box.log();
	EXPECT_EQ(serials(box.vexohw({"--json", "events"}).out), ""); // no log yet
	{
		ScopedEnv root("VEXO_SYSROOT", box.root().c_str());
		std::filesystem::create_directories(box.root() + "/var/log/vexolog");
		VEXODB *db = VEXODBConnect(VEXODB_DISK_LOG_PATH, VEXODB_CREATE);
		ASSERT_NE(db, nullptr);
		ASSERT_EQ(VEXODBExecute(db, VEXODB_DISK_LOG_SCHEMA
				      "INSERT INTO logs (time, level, msg, slot, serial) VALUES (100, 'info', '7', 1, 'A1'), "
				      "(200, 'info', '7', 2, 'O''B'), (300, 'info', '8', 1, 'A1'), "
				      "(400, 'warn', 'life_below_thre_with_value', 2, 'O''B x');"),
			  0)
			<< VEXODBErrorGet(db);
		VEXODBClose(db);
	}
	const struct {
		Strings args;
		int status;
		const char *want; // serials, or a piece of the refusal
	} rows[] = {
		{{}, 0, "O'B x,A1,O'B,A1"},
		{{"--serial", "O'B"}, 0, "O'B"},
		{{"--serial", "x' OR '1'='1"}, 0, ""},
		{{"--slot", "1", "--limit", "1"}, 0, "A1"},
		{{"--event", "life_below_thre_with_value"}, 0, "O'B x"},
		{{"--since", "200", "--slot=2"}, 0, "O'B x,O'B"},
		{{"--slot", "-1"}, 1, "--slot needs a bay number, not '-1'"},
		{{"--limit", "0"}, 1, "--limit needs a number from 1 to 100000"},
		{{"--since", "1e3"}, 1, "--since needs seconds"},
		{{"tests", "--slot", "1"}, 1, "events tests: unknown option --slot"},
		{{"sda"}, 1, "usage: events"},
	};
	for (const auto &r : rows) {
		Strings a{"--json", "events"};
		a.insert(a.end(), r.args.begin(), r.args.end());
		Ran t = box.vexohw(a);
		ASSERT_EQ(t.status, r.status) << a[2] << "\n" << t.err;
		EXPECT_TRUE(r.status ? t.err.find(r.want) != std::string::npos : serials(t.out) == r.want)
			<< (a.size() > 2 ? a[2] : "") << "\n" << t.out << t.err;
	}
	Ran human = box.vexohw({"events", "--limit", "1"});
	EXPECT_NE(human.out.find("1970-01-01 00:06:40  warn   life_below_thre_with_value  2"), std::string::npos) << human.out;

	// A self-test, started and stopped, is the test log's newest row.
	ASSERT_EQ(box.vexohw({"smart", "test", "start", "sda"}).status, 0);
	ASSERT_EQ(box.vexohw({"smart", "test", "stop", "sda"}).status, 0);
	JsonDoc tests(box.vexohw({"--json", "events", "tests", "--event", "smart"}).out);
	ASSERT_EQ(json_object_array_length(tests.obj), 1u);
	EXPECT_EQ(texts(json_object_array_get_idx(tests.obj, 0), {"serial", "type", "test_type"}),
		  (Strings{"WWZ4K1QA", "smart", "quick"}));
}

} // namespace
