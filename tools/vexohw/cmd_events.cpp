// The box's event logs: what happened to which disk and when (arrivals,
// departures, life warnings), and the self-tests that ran, newest first.
// Both are read-only here; a log not written yet is an empty answer.
#include <climits>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include <vexoplatform/logdb.h>
#include <vexoplatform/vexocore.h>
#include <vexoplatform/vexoerr.h>

#include "cli.h"
#include "disk_args.h"

using namespace vexo::cli;

namespace {

struct DbClose {
	void operator()(VEXODB *db) const { VEXODBClose(db); }
};
struct ResultFree {
	void operator()(VEXODB_RESULT *r) const { VEXODBFreeResult(r); }
};

enum class Kind { Number, Text, Time };

struct Field {
	const char *column;
	const char *heading;
	Kind kind;
};

// One log: its file, its time column and the columns shown, in order.
struct Log {
	const char *name;
	const char *path;
	const char *timeColumn;
	std::vector<Field> fields;
};

const Log kDiskEvents{"events",
		      VEXODB_DISK_LOG_PATH,
		      "time",
		      {{"time", "TIME", Kind::Time},
		       {"level", "LEVEL", Kind::Text},
		       {"msg", "EVENT", Kind::Text},
		       {"slot", "SLOT", Kind::Number},
		       {"serial", "SERIAL", Kind::Text},
		       {"model", "MODEL", Kind::Text},
		       {"path", "PATH", Kind::Text},
		       {"info", "INFO", Kind::Text}}};

const Log kTestEvents{"events tests",
		      VEXODB_DISK_TEST_LOG_PATH,
		      "logtime",
		      {{"logtime", "TIME", Kind::Time},
		       {"serial", "SERIAL", Kind::Text},
		       {"type", "TYPE", Kind::Text},
		       {"test_type", "TEST", Kind::Text},
		       {"test_code", "CODE", Kind::Number},
		       {"poh", "HOURS", Kind::Number},
		       {"temperature", "TEMP", Kind::Number}}};

// A text as an SQL literal: the log's API takes whole statements, so what
// the user typed is quoted here and never reaches the query as SQL.
std::string quoted(const std::string &text)
{
	std::string q = "'";
	for (char c : text)
		q += c == '\'' ? std::string("''") : std::string(1, c);
	return q + "'";
}

std::string utc(long long seconds)
{
	time_t t = static_cast<time_t>(seconds);
	struct tm tm {};
	char out[32];
	if (!gmtime_r(&t, &tm) || !std::strftime(out, sizeof(out), "%Y-%m-%d %H:%M:%S", &tm))
		return std::to_string(seconds);
	return out;
}

// Times are seconds in JSON and UTC text in the table.
Value cell(const char *text, Kind kind, bool json)
{
	if (!text)
		return Value();
	if (kind == Kind::Text)
		return Value(text);
	char *end = nullptr;
	long long n = std::strtoll(text, &end, 10);
	if (end == text || *end)
		return Value(text); // a row written by hand: shown as it stands
	return kind == Kind::Time && !json ? Value(utc(n)) : Value(n);
}

int listEvents(Context &ctx, const Log &log)
{
	if (!ctx.args.empty())
		return fail("usage: %s [--serial S] [--slot N] [--event WORD] [--since EPOCH] [--limit N]", log.name);
	std::string where;
	auto add = [&](const std::string &clause) { where += (where.empty() ? " WHERE " : " AND ") + clause; };
	if (ctx.has("serial"))
		add("serial = " + quoted(ctx.opt("serial")));
	if (ctx.has("event"))
		add((&log == &kDiskEvents ? "msg = " : "type = ") + quoted(ctx.opt("event")));
	int limit = 50, number = 0;
	if (ctx.has("slot")) {
		if (!parseInt(ctx.opt("slot"), 0, INT_MAX, number))
			return fail("%s: --slot needs a bay number, not '%s'", log.name, ctx.opt("slot").c_str());
		add("slot = " + std::to_string(number));
	}
	if (ctx.has("since")) {
		if (!parseInt(ctx.opt("since"), 0, INT_MAX, number))
			return fail("%s: --since needs seconds since the epoch, not '%s'", log.name, ctx.opt("since").c_str());
		add(std::string(log.timeColumn) + " >= " + std::to_string(number));
	}
	if (ctx.has("limit") && !parseInt(ctx.opt("limit"), 1, 100000, limit))
		return fail("%s: --limit needs a number from 1 to 100000, not '%s'", log.name, ctx.opt("limit").c_str());

	Value rows = Value::list();
	VLIBCErrClear();
	std::unique_ptr<VEXODB, DbClose> db(VEXODBConnect(log.path, 0));
	if (!db && VLIBCErrGet() != VEXO_ERR_NOENT)
		return fail("%s: %s can't be opened (error 0x%04X)", log.name, log.path, VLIBCErrGet());
	if (db) {
		std::string query = "SELECT * FROM logs" + where + " ORDER BY id DESC";
		std::unique_ptr<VEXODB_RESULT, ResultFree> result(VEXODBSelectLimit(db.get(), query.c_str(), limit, 0));
		if (!result)
			return fail("%s: %s can't be read: %s (error 0x%04X)", log.name, log.path, VEXODBErrorGet(db.get()),
				    VLIBCErrGet());
		while (VEXODBFetchRow(result.get()) == 1) {
			Value r = Value::object();
			for (const Field &f : log.fields) {
				r.set(f.column, cell(VEXODBFetchField(result.get(), f.column), f.kind, ctx.json));
			}
			rows.push(r);
		}
	}
	std::vector<Column> columns;
	for (const Field &f : log.fields)
		columns.push_back({f.column, f.heading});
	printTable(ctx, rows, columns);
	return 0;
}

int diskEvents(Context &ctx) { return listEvents(ctx, kDiskEvents); }
int testEvents(Context &ctx) { return listEvents(ctx, kTestEvents); }

VEXO_CLI_COMMAND("events", "[--serial S] [--slot N] [--event WORD] [--since EPOCH] [--limit N]",
		 "the disk event log, newest first: arrivals, departures, life warnings (times in UTC)", diskEvents,
		 {"serial", "slot", "event", "since", "limit"});
VEXO_CLI_COMMAND("events tests", "[--serial S] [--event smart|ihm] [--since EPOCH] [--limit N]",
		 "the self-test log, newest first: each finished test's result code, hours and temperature", testEvents,
		 {"serial", "event", "since", "limit"});

} // namespace
