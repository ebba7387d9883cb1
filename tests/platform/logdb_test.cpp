// The log databases: connections, both schemas, the queries the library
// runs on them, result walking, and writers in several processes.
#include <cstdio>
#include <cstdlib>
#include <string>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>
#include <vector>

#include <vexoplatform/logdb.h>

#include "support/vexotest.h"

using vexo::test::LogCapture;
using vexo::test::Sysroot;

namespace {

class LogDb : public ::testing::Test {
protected:
	void SetUp() override
	{
		VLIBCErrClear();
		root.mkdirs("/var/log/vexolog");
	}
	VEXODB *create(const char *path, const char *schema)
	{
		VEXODB *db = VEXODBConnect(path, VEXODB_WRITE | VEXODB_CREATE);
		EXPECT_NE(db, nullptr);
		if (db) {
			EXPECT_EQ(VEXODBExecute(db, schema), 0) << VEXODBErrorGet(db);
		}
		return db;
	}
	std::vector<std::string> column(VEXODB_RESULT *r, const char *name)
	{
		std::vector<std::string> out;
		while (VEXODBFetchRow(r) == 1) {
			const char *v = VEXODBFetchField(r, name);
			out.push_back(v ? v : "(null)");
		}
		return out;
	}

	Sysroot root;
};

TEST_F(LogDb, Connecting)
{
	// A reader never creates the file.
	EXPECT_EQ(VEXODBConnect(VEXODB_DISK_LOG_PATH, 0), nullptr);
	EXPECT_ERR(0x0700);
	EXPECT_EQ(VEXODBConnect(VEXODB_DISK_LOG_PATH, VEXODB_WRITE), nullptr);
	EXPECT_FALSE(root.exists(VEXODB_DISK_LOG_PATH));

	LogCapture log;
	root.write("/var/log/vexolog/junk", std::string(200, 'x'));
	EXPECT_EQ(VEXODBConnect("/var/log/vexolog/junk", 0), nullptr);
	EXPECT_ERR(0x0300);
	EXPECT_TRUE(log.has(LOG_ERR, "Failed to open database /var/log/vexolog/junk")) << log.dump();

	VEXODB *db = create(VEXODB_DISK_LOG_PATH, VEXODB_DISK_LOG_SCHEMA);
	ASSERT_NE(db, nullptr);
	// The schema may be applied again.
	EXPECT_EQ(VEXODBExecute(db, VEXODB_DISK_LOG_SCHEMA), 0);
	VEXODBClose(db);

	// Read-only connections refuse writes and say why.
	db = VEXODBConnect(VEXODB_DISK_LOG_PATH, 0);
	ASSERT_NE(db, nullptr);
	EXPECT_EQ(VEXODBExecute(db, "INSERT INTO logs (time, msg) VALUES (1, 'plugin')"), -1);
	EXPECT_ERR(0x0300);
	EXPECT_NE(std::string(VEXODBErrorGet(db)).find("readonly"), std::string::npos) << VEXODBErrorGet(db);
	EXPECT_EQ(VEXODBSelect(db, "SELECT nosuch FROM logs"), nullptr);
	EXPECT_NE(std::string(VEXODBErrorGet(db)).find("no such column"), std::string::npos);
	VEXODBClose(db);
}

TEST_F(LogDb, LifeWarningQuery)
{
	VEXODB *db = create(VEXODB_DISK_LOG_PATH, VEXODB_DISK_LOG_SCHEMA);
	ASSERT_NE(db, nullptr);
	ASSERT_EQ(VEXODBExecute(db, "INSERT INTO logs (time, msg, serial, info) VALUES "
				    "(100, 'life_below_thre_with_value', 'S1', '9 left'),"
				    "(300, 'life_below_thre_with_value', 'S1', '4 left'),"
				    "(200, 'life_below_thre_with_value', 'S1', '7 left'),"
				    "(400, 'life_below_thre_with_value', 'S2', '1 left'),"
				    "(500, 'plugin', 'S1', NULL)"),
		  0);
	VEXODB_RESULT *r = VEXODBSelectLimit(
		db, "SELECT * FROM logs WHERE serial='S1' AND msg='life_below_thre_with_value' ORDER BY time DESC", 1, 0);
	ASSERT_NE(r, nullptr);
	EXPECT_EQ(VEXODBRowCount(r), 1);
	// Nothing before the first row.
	EXPECT_EQ(VEXODBFetchField(r, "info"), nullptr);
	ASSERT_EQ(VEXODBFetchRow(r), 1);
	int life = -1;
	ASSERT_EQ(std::sscanf(VEXODBFetchField(r, "info"), "%d", &life), 1);
	EXPECT_EQ(life, 4);
	EXPECT_STREQ(VEXODBFetchField(r, "time"), "300");
	EXPECT_EQ(VEXODBFetchField(r, "nosuch"), nullptr);
	EXPECT_EQ(VEXODBFetchRow(r), 0);
	EXPECT_EQ(VEXODBFetchField(r, "info"), nullptr);
	VEXODBFreeResult(r);

	// NULL columns read as null; a result outlives its connection.
	r = VEXODBSelect(db, "SELECT * FROM logs WHERE msg='plugin'");
	VEXODBClose(db);
	ASSERT_NE(r, nullptr);
	ASSERT_EQ(VEXODBFetchRow(r), 1);
	EXPECT_EQ(VEXODBFetchField(r, "info"), nullptr);
	VEXODBFreeResult(r);
}

TEST_F(LogDb, TestLogPagesAndCount)
{
	VEXODB *db = create(VEXODB_DISK_TEST_LOG_PATH, VEXODB_DISK_TEST_LOG_SCHEMA);
	ASSERT_NE(db, nullptr);
	for (int i = 1; i <= 7; ++i) {
		char sql[256];
		std::snprintf(sql, sizeof(sql),
			      "INSERT INTO logs (logtime, serial, msg, type, test_type, poh, temperature, cumsectorread, "
			      "cumsectorwritten, test_code) VALUES (%d, 'S1', 'done', '%s', 'quick', %d, 35, 1000, 2000, 0)",
			      i * 10, i % 2 ? "smart" : "ihm", 100 + i);
		ASSERT_EQ(VEXODBExecute(db, sql), 0) << VEXODBErrorGet(db);
	}
	const char *smart = "SELECT * FROM logs WHERE serial='S1' AND type='smart' ORDER BY logtime DESC";
	VEXODB_RESULT *r = VEXODBSelectLimit(db, smart, 2, 1);
	ASSERT_NE(r, nullptr);
	EXPECT_EQ(column(r, "logtime"), (std::vector<std::string>{"50", "30"}));
	VEXODBFreeResult(r);
	// No limit, from an offset.
	r = VEXODBSelectLimit(db, "SELECT * FROM logs WHERE serial='S1' ORDER BY logtime DESC", -1, 5);
	ASSERT_NE(r, nullptr);
	EXPECT_EQ(column(r, "poh"), (std::vector<std::string>{"102", "101"}));
	VEXODBFreeResult(r);
	EXPECT_EQ(VEXODBSelectLimit(db, smart, 1, -1), nullptr);
	EXPECT_ERR(0x0D00);

	VEXODBClose(db);
}

TEST_F(LogDb, WritersInSeveralProcesses)
{
	VEXODBClose(create(VEXODB_DISK_LOG_PATH, VEXODB_DISK_LOG_SCHEMA));
	constexpr int kWriters = 4, kRows = 40;
	std::vector<pid_t> pids;
	for (int w = 0; w < kWriters; ++w) {
		pid_t pid = ::fork();
		ASSERT_GE(pid, 0);
		if (pid == 0) {
			VEXODB *db = VEXODBConnect(VEXODB_DISK_LOG_PATH, VEXODB_WRITE);
			int failed = db ? 0 : 1;
			for (int i = 0; db && i < kRows; ++i) {
				char sql[128];
				std::snprintf(sql, sizeof(sql), "INSERT INTO logs (time, msg, slot) VALUES (%d, 'plugin', %d)", i, w);
				failed += VEXODBExecute(db, sql) != 0;
			}
			VEXODBClose(db);
			::_exit(failed ? 1 : 0);
		}
		pids.push_back(pid);
	}
	for (pid_t pid : pids) {
		int status = 0;
		ASSERT_EQ(::waitpid(pid, &status, 0), pid);
		EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
	}
	VEXODB *db = VEXODBConnect(VEXODB_DISK_LOG_PATH, 0);
	ASSERT_NE(db, nullptr);
	VEXODB_RESULT *r = VEXODBSelect(db, "SELECT count(*) AS n, count(DISTINCT id) AS ids FROM logs");
	ASSERT_NE(r, nullptr);
	ASSERT_EQ(VEXODBFetchRow(r), 1);
	EXPECT_STREQ(VEXODBFetchField(r, "n"), std::to_string(kWriters * kRows).c_str());
	EXPECT_STREQ(VEXODBFetchField(r, "ids"), std::to_string(kWriters * kRows).c_str());
	VEXODBFreeResult(r);
	VEXODBClose(db);
}

} // namespace
