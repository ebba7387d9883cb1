// Lists, hashes, string helpers, line readers and whole-buffer I/O; running
// programs, liveness and pid files; the log databases.
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <string>
#include <sys/wait.h>
#include <syslog.h>
#include <thread>
#include <unistd.h>
#include <vector>
#include <vexoplatform/logdb.h>

#include "support/vexotest.h"

using vexo::test::Sysroot;
using vexo::test::inChild;
using vexo::test::ScopedEnv;
using vexo::test::LogCapture;

namespace {

TEST(SzList, GrowFindRemoveSortSplit)
{
	PVLIBSZLIST list = VLIBCSzListAlloc(0);
	ASSERT_NE(list, nullptr);
	EXPECT_GE(list->nAlloc, 1);
	for (int i = 0; i < 100; ++i)
		ASSERT_EQ(VLIBCSzListPush(&list, std::to_string(99 - i).c_str()), i);
	EXPECT_EQ(list->nItem, 100);
	EXPECT_EQ(VLIBCSzListFind(list, "0"), 99);
	EXPECT_EQ(VLIBCSzListGet(list, 100), nullptr);
	ASSERT_EQ(VLIBCSzListRemove(list, 0), 0);
	EXPECT_STREQ(VLIBCSzListGet(list, 0), "98");
	EXPECT_EQ(VLIBCSzListRemove(list, 99), -1);
	ASSERT_EQ(VLIBCSzListSortItems(list, 1), 0);
	auto sorted = vexo::test::items(list);
	EXPECT_EQ(std::vector<std::string>(sorted.begin(), sorted.begin() + 3), (std::vector<std::string>{"0", "1", "10"})); // strcmp order
	VLIBCSzListClear(list);
	EXPECT_EQ(VLIBCSzListSplit(&list, " 8 0 sda\t\t1953514584 ", " \t"), 4);
	EXPECT_STREQ(VLIBCSzListGet(list, 3), "1953514584");
	EXPECT_EQ(VLIBCSzListSplit(&list, " \t ", " \t"), 0);
	VLIBCSzListFree(list);
}

TEST(StrHelpers, SnprintfTrimLowerReplace)
{
	char b[8];
	EXPECT_EQ(VLIBCStrSnprintf(b, sizeof(b), "%s", "1234567"), 7);
	EXPECT_EQ(VLIBCStrSnprintf(b, sizeof(b), "%s", "12345678"), -1);
	EXPECT_STREQ(b, "");
	EXPECT_ERR(0x0D00);

	char t[] = " \t ST4000 VN \n";
	EXPECT_EQ(VLIBCStrTrimSpace(t), 0);
	EXPECT_STREQ(t, "ST4000 VN");
	char blank[] = "   ";
	EXPECT_EQ(VLIBCStrTrimSpace(blank), 0);
	EXPECT_STREQ(blank, "");

	char r[10] = "a b c";
	EXPECT_EQ(VLIBCStrReplace(r, sizeof(r), " ", "_"), 1);
	EXPECT_STREQ(r, "a_b c");
	EXPECT_EQ(VLIBCStrReplace(r, sizeof(r), "c", "cdef"), 1); // 8 bytes + NUL fit in 10
	EXPECT_STREQ(r, "a_b cdef");
	EXPECT_EQ(VLIBCStrReplace(r, sizeof(r), "f", "fgh"), -1); // 10 + NUL would not
	EXPECT_STREQ(r, "a_b cdef");
	EXPECT_EQ(VLIBCStrReplace(r, sizeof(r), "def", ""), 1);
	EXPECT_STREQ(r, "a_b c");
}

TEST(LineReaders, ReadLinesFgetsEnumDir)
{
	Sysroot root;
	root.write("/proc/partitions", "major minor\r\n\n   8 0 sda\nlast");
	PVLIBSZLIST list = VLIBCSzListAlloc(1);
	ASSERT_EQ(VLIBCFileReadLines("/proc/partitions", &list), 4);
	EXPECT_EQ(vexo::test::items(list), (std::vector<std::string>{"major minor", "", "   8 0 sda", "last"}));
	EXPECT_EQ(VLIBCFileReadLines("/none", &list), -1);
	EXPECT_ERR(0x0700);

	FILE *f = fopen(root.host("/proc/partitions").c_str(), "r");
	char b[8];
	ASSERT_NE(VLIBCFgets(b, sizeof(b), f), nullptr);
	EXPECT_STREQ(b, "major m"); // cut at size-1, the rest comes next
	ASSERT_NE(VLIBCFgets(b, sizeof(b), f), nullptr);
	EXPECT_STREQ(b, "inor");
	fclose(f);

	root.write("/sys/block/sdb/size", "1");
	root.write("/sys/block/sda/size", "1");
	root.mkdirs("/sys/block/nvme0n1");
	VLIBCSzListClear(list);
	ASSERT_EQ(VLIBCFileEnumDir("/sys/block", &list), 3);
	EXPECT_EQ(vexo::test::items(list), (std::vector<std::string>{"nvme0n1", "sda", "sdb"}));
	VLIBCSzListFree(list);
}

TEST(WholeBuffer, ReadWriteAcrossShortPipeTransfers)
{
	int p[2];
	ASSERT_EQ(pipe(p), 0);
	std::string big(256 * 1024, 'z');
	pid_t pid = vexo::test::forkChild([&] {
		close(p[0]);
		return VLIBCWrite(p[1], big.data(), big.size()) == (ssize_t)big.size() ? 0 : 1;
	});
	close(p[1]);
	std::string got(big.size() + 10, '\0');
	EXPECT_EQ(VLIBCRead(p[0], got.data(), got.size()), (ssize_t)big.size()); // stops at end of file
	got.resize(big.size());
	EXPECT_EQ(got, big);
	close(p[0]);
	EXPECT_EQ(vexo::test::waitChild(pid), 0);
}

// Running programs, streams over them, liveness and pid files.
using Clock = std::chrono::steady_clock;

class Proc : public ::testing::Test {
protected:
	void SetUp() override
	{
		VLIBCErrClear();
		// Writes each argument in brackets, one a line, to the file named first.
		root.write("/usr/bin/argdump", "#!/bin/sh\nout=$1; shift\nfor a in \"$@\"; do printf '[%s]\\n' \"$a\"; done > \"$out\"\n"
					       "printf '%s' \"$VEXO_T_VAR\" >> \"$out\"\nexit 7\n",
			   0755);
		root.write("/usr/bin/exitwith", "#!/bin/sh\nexit $1\n", 0755);
		// The group it leaves behind is the exec seam's to kill (see its tests).
		root.write("/usr/bin/hang", "#!/bin/sh\nsleep 30 &\nwait\n", 0755);
		root.write("/usr/bin/lines", "#!/bin/sh\ni=0\nwhile [ $i -lt $1 ]; do echo \"line $i\"; i=$((i+1)); done\n"
					     "echo oops >&2\nexit $2\n",
			   0755);
		root.write("/usr/bin/sink", "#!/bin/sh\ncat > \"$1\"\nexit 4\n", 0755);
	}
	std::string out() const { return root.host("/out.txt"); }
	Sysroot root;
};

TEST_F(Proc, ExecStatusAndLiteralArguments)
{
	const std::string o = out();
	// Spaces, quotes and shell characters reach the program as they are.
	EXPECT_EQ(VLIBCExecl("/usr/bin/argdump", "argdump", o.c_str(), "a b", "\"q\"", "$(id)", "; rm -rf x", "", nullptr), 7);
	EXPECT_EQ(root.read("/out.txt"), "[a b]\n[\"q\"]\n[$(id)]\n[; rm -rf x]\n[]\n");

	EXPECT_EQ(VLIBCExecl("/usr/bin/exitwith", "exitwith", "255", nullptr), 255);

	EXPECT_EQ(VLIBCExecl("/usr/bin/none", "none", nullptr), -1);
	EXPECT_ERR(0x0700);
	EXPECT_EQ(VLIBCExecl("relative", "relative", nullptr), -1);
	EXPECT_ERR(0x0D00);
}

TEST_F(Proc, TimedExecPassesEnvironmentAndTimesOut)
{
	const std::string o = out();
	{
		ScopedEnv env("VEXO_T_VAR", "from caller");
		EXPECT_EQ(VLIBCTimedExecWithEnv(5, "/usr/bin/argdump", "argdump", o.c_str(), "x", nullptr), 7);
		EXPECT_EQ(root.read("/out.txt"), "[x]\nfrom caller");
	}
	auto t0 = Clock::now();
	EXPECT_EQ(VLIBCTimedExecWithEnv(1, "/usr/bin/hang", "hang", nullptr), -1);
	double took = std::chrono::duration<double>(Clock::now() - t0).count();
	EXPECT_ERR(0x2E00);
	EXPECT_GE(took, 0.9);
	EXPECT_LT(took, 5.0);
	EXPECT_EQ(VLIBCTimedExecWithEnv(0, "/usr/bin/exitwith", "exitwith", "0", nullptr), -1);
	EXPECT_ERR(0x0D00);
}

TEST_F(Proc, PopenReadsManyLinesAndPcloseReapsTheRightChild)
{
	FILE *a = VLIBCPopen("/usr/bin/lines", "r", "lines", "5000", "3", nullptr);
	char *const bv[] = {(char *)"lines", (char *)"2", (char *)"5", nullptr};
	FILE *b = VLIBCPopenv("/usr/bin/lines", "r", bv);
	ASSERT_NE(a, nullptr);
	ASSERT_NE(b, nullptr);
	char line[64];
	int n = 0;
	bool inOrder = true;
	while (VLIBCFgets(line, sizeof(line), a)) {
		if (n < 5000 && std::string(line) != "line " + std::to_string(n))
			inOrder = false;
		++n;
	}
	EXPECT_EQ(n, 5001); // the last line is what it said on its error output
	EXPECT_TRUE(inOrder);
	EXPECT_STREQ(line, "oops");
	// Drained before it is closed: a child still writing into a closed pipe
	// would die of SIGPIPE instead of exiting with its own status.
	int m = 0;
	while (VLIBCFgets(line, sizeof(line), b))
		++m;
	EXPECT_EQ(m, 3);
	// Closed in the opposite order: each close gets its own child's status.
	EXPECT_EQ(VLIBCPclose(b), 5);
	EXPECT_EQ(VLIBCPclose(a), 3);
	EXPECT_EQ(VLIBCPclose(a), -1);
	EXPECT_ERR(0x0D00);

	const std::string o = out();
	FILE *w = VLIBCPopen("/usr/bin/sink", "w", "sink", o.c_str(), nullptr);
	ASSERT_NE(w, nullptr);
	for (int i = 0; i < 1000; ++i)
		fprintf(w, "%d\n", i);
	EXPECT_EQ(VLIBCPclose(w), 4);
	EXPECT_EQ(root.read("/out.txt").size(), 3890u);

	EXPECT_EQ(VLIBCPopen("/usr/bin/none", "r", "none", nullptr), nullptr);
	EXPECT_ERR(0x0900);
}

TEST_F(Proc, AliveByPidAndByName)
{
	EXPECT_EQ(VLIBCIsProcAlive(nullptr, getpid()), 1);
	EXPECT_EQ(VLIBCIsProcAlive("vexo_t_absent", 0), 0);
	// A zombie is not alive.
	pid_t z = vexo::test::startNamedProcess("vexo_t_zombie");
	kill(z, SIGKILL);
	for (int i = 0; i < 100 && VLIBCIsProcAlive(nullptr, z); ++i)
		std::this_thread::sleep_for(std::chrono::milliseconds(10));
	EXPECT_EQ(VLIBCIsProcAlive(nullptr, z), 0);
	EXPECT_EQ(VLIBCIsProcAlive("vexo_t_zombie", 0), 0);
	waitpid(z, nullptr, 0);
	// The answer is kept for the process found; its end, and a successor
	// under the same name, are both seen.
	for (int round = 0; round < 2; ++round) {
		pid_t p = vexo::test::startNamedProcess("vexo_t_follow");
		EXPECT_EQ(VLIBCIsProcAlive("vexo_t_follow", 0), 1);
		EXPECT_EQ(VLIBCIsProcAlive("vexo_t_follow", 0), 1);
		kill(p, SIGKILL);
		waitpid(p, nullptr, 0);
		EXPECT_EQ(VLIBCIsProcAlive("vexo_t_follow", 0), 0) << "round " << round;
	}
}

TEST_F(Proc, PidFiles)
{
	root.mkdirs("/var/run");
	ASSERT_EQ(VLIBCProcPidFileCreate("/var/run/t.pid"), 0);
	EXPECT_EQ(root.read("/var/run/t.pid"), std::to_string(getpid()) + "\n");
	EXPECT_EQ(VLIBCReadPidFile("/var/run/t.pid"), getpid());
	EXPECT_EQ(VLIBCProcAliveByPidFile("/var/run/t.pid"), 1);

	// The child of VLIBCProcFork starts with a clear error record; ours stays.
	VLIBCErrSetEx(0x0400, "x", 1);
	pid_t dead = VLIBCProcFork();
	if (dead == 0)
		_exit(VLIBCErrGet() == 0 ? 0 : 1);
	EXPECT_EQ(vexo::test::waitChild(dead), 0);
	EXPECT_ERR(0x0400);
	root.write("/var/run/dead.pid", std::to_string(dead));
	EXPECT_EQ(VLIBCProcAliveByPidFile("/var/run/dead.pid"), 0);

	EXPECT_EQ(VLIBCReadPidFile("/var/run/none.pid"), -1);
	EXPECT_ERR(0x0700);
	for (const char *bad : {"abc", "0", "12 34", "99999999999"}) {
		SCOPED_TRACE(bad);
		root.write("/var/run/bad.pid", bad);
		VLIBCErrClear();
		EXPECT_EQ(VLIBCReadPidFile("/var/run/bad.pid"), -1);
		EXPECT_ERR(0x0A00);
		EXPECT_EQ(VLIBCProcAliveByPidFile("/var/run/bad.pid"), -1);
	}
}

// The log databases: connections, both schemas, the queries the library
// runs on them, result walking, and writers in several processes.
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
	for (int w = 0; w < kWriters; ++w)
		pids.push_back(vexo::test::forkChild([w] {
			VEXODB *db = VEXODBConnect(VEXODB_DISK_LOG_PATH, VEXODB_WRITE);
			int failed = db ? 0 : 1;
			for (int i = 0; db && i < kRows; ++i) {
				const std::string sql = "INSERT INTO logs (time, msg, slot) VALUES (" + std::to_string(i) +
							", 'plugin', " + std::to_string(w) + ")";
				failed += VEXODBExecute(db, sql.c_str()) != 0;
			}
			VEXODBClose(db);
			return failed ? 1 : 0;
		}));
	for (pid_t pid : pids)
		EXPECT_EQ(vexo::test::waitChild(pid), 0);
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
