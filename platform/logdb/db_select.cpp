// The log databases on SQLite: connections, statements without rows, and
// queries read whole into a result that the caller walks by column name.
#include <memory>
#include <new>
#include <optional>
#include <sqlite3.h>
#include <string>
#include <sys/stat.h>
#include <vector>
#include <vexoplatform/logdb.h>
#include <vexoplatform/vexocore.h>

#include "frame/err.h"
#include "frame/sysroot.h"

namespace {

struct Sqlite3Close {
	void operator()(sqlite3 *db) const { sqlite3_close_v2(db); }
};
struct StmtFinalize {
	void operator()(sqlite3_stmt *st) const { sqlite3_finalize(st); }
};
using UniqueStmt = std::unique_ptr<sqlite3_stmt, StmtFinalize>;

// Writers of other processes hold the file briefly; wait for them.
constexpr int kBusyTimeoutMs = 5000;

} // namespace

struct VEXODB {
	std::unique_ptr<sqlite3, Sqlite3Close> handle;
	std::string lastError;

	void fail(const char *what)
	{
		lastError = sqlite3_errmsg(handle.get());
		vlog(LOG_ERR, "%s:%d %s: %s", VEXO_AT, what, lastError.c_str());
		VEXO_ERR(VEXO_ERR_DB);
	}
};

struct VEXODB_RESULT {
	std::vector<std::string> columns;
	std::vector<std::vector<std::optional<std::string>>> rows;
	long current = -1;
};

namespace {

VEXODB_RESULT *runQuery(VEXODB *db, const std::string &query)
{
	sqlite3_stmt *raw = nullptr;
	if (sqlite3_prepare_v2(db->handle.get(), query.c_str(), -1, &raw, nullptr) != SQLITE_OK || !raw) {
		sqlite3_finalize(raw);
		db->fail("Failed to prepare query");
		return nullptr;
	}
	UniqueStmt st(raw);
	auto result = std::make_unique<VEXODB_RESULT>();
	const int n = sqlite3_column_count(st.get());
	for (int i = 0; i < n; ++i) {
		const char *name = sqlite3_column_name(st.get(), i);
		result->columns.emplace_back(name ? name : "");
	}
	for (;;) {
		int rc = sqlite3_step(st.get());
		if (rc == SQLITE_DONE)
			break;
		if (rc != SQLITE_ROW) {
			db->fail("Failed to run query");
			return nullptr;
		}
		auto &row = result->rows.emplace_back();
		row.reserve(n);
		for (int i = 0; i < n; ++i) {
			const unsigned char *text = sqlite3_column_text(st.get(), i);
			if (text)
				row.emplace_back(reinterpret_cast<const char *>(text));
			else
				row.emplace_back(std::nullopt);
		}
	}
	db->lastError.clear();
	return result.release();
}

} // namespace

extern "C" {

VEXOP_API VEXODB *VEXODBConnect(const char *path, int flags)
try {
	if (!path || !*path) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return nullptr;
	}
	if (flags & VEXODB_CREATE)
		flags |= VEXODB_WRITE; // a file made read-only would stay empty
	const std::string host = vexo::sysroot::path(path);
	struct stat st;
	if (!(flags & VEXODB_CREATE) && ::stat(host.c_str(), &st) != 0) {
		VEXO_ERR(VEXO_ERR_NOENT);
		return nullptr;
	}
	int open = SQLITE_OPEN_FULLMUTEX;
	if (flags & VEXODB_WRITE)
		open |= SQLITE_OPEN_READWRITE | ((flags & VEXODB_CREATE) ? SQLITE_OPEN_CREATE : 0);
	else
		open |= SQLITE_OPEN_READONLY;
	try {
		auto db = std::make_unique<VEXODB>();
		sqlite3 *raw = nullptr;
		int rc = sqlite3_open_v2(host.c_str(), &raw, open, nullptr);
		db->handle.reset(raw);
		if (rc != SQLITE_OK) {
			vlog(LOG_ERR, "%s:%d Failed to open database %s: %s", VEXO_AT, path,
			     raw ? sqlite3_errmsg(raw) : sqlite3_errstr(rc));
			VEXO_ERR(VEXO_ERR_DB);
			return nullptr;
		}
		sqlite3_busy_timeout(raw, kBusyTimeoutMs);
		// Opening is lazy: make a file that is not a database fail here.
		if (sqlite3_exec(raw, "SELECT count(*) FROM sqlite_master", nullptr, nullptr, nullptr) != SQLITE_OK) {
			vlog(LOG_ERR, "%s:%d Failed to open database %s: %s", VEXO_AT, path, sqlite3_errmsg(raw));
			VEXO_ERR(VEXO_ERR_DB);
			return nullptr;
		}
		return db.release();
	} catch (const std::bad_alloc &) {
		VEXO_ERR(VEXO_ERR_NOMEM);
		return nullptr;
	}
} VEXO_C_CATCH(nullptr)

VEXOP_API void VEXODBClose(VEXODB *db) try { delete db; } VEXO_C_CATCH_VOID

VEXOP_API int VEXODBExecute(VEXODB *db, const char *sql)
try {
	if (!db || !sql) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	if (sqlite3_exec(db->handle.get(), sql, nullptr, nullptr, nullptr) != SQLITE_OK) {
		db->fail("Failed to execute statement");
		return -1;
	}
	db->lastError.clear();
	return 0;
} VEXO_C_CATCH(-1)

VEXOP_API VEXODB_RESULT *VEXODBSelect(VEXODB *db, const char *query)
try {
	if (!db || !query) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return nullptr;
	}
	try {
		return runQuery(db, query);
	} catch (const std::bad_alloc &) {
		VEXO_ERR(VEXO_ERR_NOMEM);
		return nullptr;
	}
} VEXO_C_CATCH(nullptr)

VEXOP_API VEXODB_RESULT *VEXODBSelectLimit(VEXODB *db, const char *query, int limit, int offset)
try {
	if (!db || !query || offset < 0) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return nullptr;
	}
	try {
		// The query keeps its own order; the window is taken from that.
		std::string q = std::string("SELECT * FROM (") + query + ") LIMIT " + std::to_string(limit < 0 ? -1 : limit) +
				" OFFSET " + std::to_string(offset);
		return runQuery(db, q);
	} catch (const std::bad_alloc &) {
		VEXO_ERR(VEXO_ERR_NOMEM);
		return nullptr;
	}
} VEXO_C_CATCH(nullptr)

VEXOP_API int VEXODBRowCount(const VEXODB_RESULT *result) try { return result ? static_cast<int>(result->rows.size()) : 0; } VEXO_C_CATCH(0)

VEXOP_API int VEXODBFetchRow(VEXODB_RESULT *result)
try {
	if (!result) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	if (result->current + 1 >= static_cast<long>(result->rows.size())) {
		result->current = static_cast<long>(result->rows.size());
		return 0;
	}
	++result->current;
	return 1;
} VEXO_C_CATCH(-1)

VEXOP_API const char *VEXODBFetchField(const VEXODB_RESULT *result, const char *column)
try {
	if (!result || !column || result->current < 0 || result->current >= static_cast<long>(result->rows.size()))
		return nullptr;
	const auto &row = result->rows[result->current];
	for (std::size_t i = 0; i < result->columns.size(); ++i)
		if (result->columns[i] == column)
			return row[i] ? row[i]->c_str() : nullptr;
	return nullptr;
} VEXO_C_CATCH(nullptr)

VEXOP_API void VEXODBFreeResult(VEXODB_RESULT *result) try { delete result; } VEXO_C_CATCH_VOID

VEXOP_API const char *VEXODBErrorGet(const VEXODB *db) try { return db ? db->lastError.c_str() : ""; } VEXO_C_CATCH("")

} // extern "C"
