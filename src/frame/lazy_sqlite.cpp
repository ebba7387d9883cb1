// SQLite on first use: the functions the platform layer calls (see lazy_lib.h).
#include <cstdarg>
#include <sqlite3.h>

#include "frame/lazy_lib.h"

using vexo::lazy::sqlite;

namespace {
constexpr const char *kNotLoaded = "the SQLite library could not be loaded";
}

#pragma GCC visibility push(hidden)
extern "C" {

int sqlite3_open_v2(const char *file, sqlite3 **db, int flags, const char *vfs)
{
	static const auto real = reinterpret_cast<decltype(&::sqlite3_open_v2)>(sqlite().symbol("sqlite3_open_v2"));
	if (!real) {
		if (db)
			*db = nullptr;
		return SQLITE_CANTOPEN;
	}
	return real(file, db, flags, vfs);
}

int sqlite3_close_v2(sqlite3 *db) { VEXO_LAZY_CALL(sqlite(), sqlite3_close_v2, SQLITE_OK, db); }
int sqlite3_busy_timeout(sqlite3 *db, int ms) { VEXO_LAZY_CALL(sqlite(), sqlite3_busy_timeout, SQLITE_MISUSE, db, ms); }
const char *sqlite3_errmsg(sqlite3 *db) { VEXO_LAZY_CALL(sqlite(), sqlite3_errmsg, kNotLoaded, db); }
const char *sqlite3_errstr(int rc) { VEXO_LAZY_CALL(sqlite(), sqlite3_errstr, kNotLoaded, rc); }

int sqlite3_exec(sqlite3 *db, const char *sql, int (*callback)(void *, int, char **, char **), void *arg,
		 char **error)
{
	VEXO_LAZY_CALL(sqlite(), sqlite3_exec, SQLITE_MISUSE, db, sql, callback, arg, error);
}

int sqlite3_prepare_v2(sqlite3 *db, const char *sql, int bytes, sqlite3_stmt **stmt, const char **tail)
{
	VEXO_LAZY_CALL(sqlite(), sqlite3_prepare_v2, SQLITE_MISUSE, db, sql, bytes, stmt, tail);
}

int sqlite3_finalize(sqlite3_stmt *stmt) { VEXO_LAZY_CALL(sqlite(), sqlite3_finalize, SQLITE_OK, stmt); }
int sqlite3_step(sqlite3_stmt *stmt) { VEXO_LAZY_CALL(sqlite(), sqlite3_step, SQLITE_MISUSE, stmt); }
int sqlite3_column_count(sqlite3_stmt *stmt) { VEXO_LAZY_CALL(sqlite(), sqlite3_column_count, 0, stmt); }
const char *sqlite3_column_name(sqlite3_stmt *stmt, int i) { VEXO_LAZY_CALL(sqlite(), sqlite3_column_name, nullptr, stmt, i); }

const unsigned char *sqlite3_column_text(sqlite3_stmt *stmt, int i)
{
	VEXO_LAZY_CALL(sqlite(), sqlite3_column_text, nullptr, stmt, i);
}

void sqlite3_free(void *p) { VEXO_LAZY_CALL(sqlite(), sqlite3_free, , p); }
char *sqlite3_vmprintf(const char *format, va_list ap) { VEXO_LAZY_CALL(sqlite(), sqlite3_vmprintf, nullptr, format, ap); }
// Variadic: formatted through the va_list form.
char *sqlite3_mprintf(const char *format, ...)
{
	va_list ap;
	va_start(ap, format);
	char *text = sqlite3_vmprintf(format, ap);
	va_end(ap);
	return text;
}

} // extern "C"
#pragma GCC visibility pop
