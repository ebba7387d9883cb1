/*
 * libvexoplatform: the log databases, SQLite files whose table `logs` holds
 * one event a row. Pure C.
 *
 *   /var/log/vexolog/.VEXODISKDB      disk events (VEXODB_DISK_LOG_SCHEMA):
 *     id      INTEGER  rising with each row; newest last
 *     time    INTEGER  seconds since the epoch
 *     level   TEXT     "info", "warn", "err"
 *     msg     TEXT     event keyword: "plugin", "plugout", "bootup_in",
 *                      "bootup_out", "life_below_thre_with_value", ...
 *     slot    INTEGER  internal bay of the disk, from 1; 0 when none
 *     serial  TEXT     true serial of the disk
 *     model   TEXT
 *     path    TEXT     device path at the time of the event
 *     info    TEXT     event detail (the life figure first, for life warnings)
 *
 *   /var/log/vexolog/.VEXODISKTESTDB  disk test results (VEXODB_DISK_TEST_LOG_SCHEMA):
 *     id, logtime (seconds), serial, msg, type ("smart", "ihm"), test_type,
 *     poh, temperature, cumsectorread, cumsectorwritten, test_code
 *
 * Paths are appliance paths, resolved under $VEXO_SYSROOT. A connection is
 * used by one thread at a time; separate connections may be used from any
 * number of threads and processes (writers wait up to 5 seconds for a lock).
 * Results are read whole when the query runs, so a result outlives changes
 * to the table and needs no open statement.
 */
#ifndef VEXOPLATFORM_LOGDB_H
#define VEXOPLATFORM_LOGDB_H

#include <vexoplatform/vexoexport.h>

VEXO_BEGIN_DECLS

#define VEXODB_DISK_LOG_PATH "/var/log/vexolog/.VEXODISKDB"
#define VEXODB_DISK_TEST_LOG_PATH "/var/log/vexolog/.VEXODISKTESTDB"

#define VEXODB_DISK_LOG_SCHEMA                                                                      \
	"CREATE TABLE IF NOT EXISTS logs (id INTEGER PRIMARY KEY AUTOINCREMENT, time INTEGER NOT NULL, " \
	"level TEXT, msg TEXT NOT NULL, slot INTEGER NOT NULL DEFAULT 0, serial TEXT, model TEXT, "      \
	"path TEXT, info TEXT);"                                                                         \
	"CREATE INDEX IF NOT EXISTS logs_slot_time ON logs (slot, time);"                                \
	"CREATE INDEX IF NOT EXISTS logs_serial ON logs (serial);"

#define VEXODB_DISK_TEST_LOG_SCHEMA                                                                   \
	"CREATE TABLE IF NOT EXISTS logs (id INTEGER PRIMARY KEY AUTOINCREMENT, logtime INTEGER NOT NULL, " \
	"serial TEXT NOT NULL, msg TEXT, type TEXT, test_type TEXT, poh INTEGER, temperature INTEGER, "      \
	"cumsectorread INTEGER, cumsectorwritten INTEGER, test_code INTEGER);"                              \
	"CREATE INDEX IF NOT EXISTS logs_serial_time ON logs (serial, logtime);"

/* Flags of VEXODBConnect. Without VEXODB_WRITE the file is opened read-only;
   without VEXODB_CREATE a missing file fails (0x0700). VEXODB_CREATE
   implies VEXODB_WRITE. */
#define VEXODB_WRITE  0x1
#define VEXODB_CREATE 0x2

typedef struct VEXODB VEXODB;             /* a connection */
typedef struct VEXODB_RESULT VEXODB_RESULT; /* the rows of one query */

/* Opens the database file. NULL on failure (0x0D00, 0x0700, or 0x0300 when
   the file is not a database or cannot be opened). */
VEXOP_API VEXODB *VEXODBConnect(const char *path, int flags);
/* Closes the connection; results already read stay valid. NULL is allowed. */
VEXOP_API void VEXODBClose(VEXODB *db);

/* Runs one or more statements that return no rows (schema, INSERT,
   DELETE). 0, or -1 (0x0300; VEXODBErrorGet says why). */
VEXOP_API int VEXODBExecute(VEXODB *db, const char *sql);
/* Runs a query and reads all its rows. NULL on failure (0x0300). */
VEXOP_API VEXODB_RESULT *VEXODBSelect(VEXODB *db, const char *query);
/* The same, limited to `limit` rows (negative: all) after skipping
   `offset` rows of the query's order. */
VEXOP_API VEXODB_RESULT *VEXODBSelectLimit(VEXODB *db, const char *query, int limit, int offset);
/* Rows in the result. */
VEXOP_API int VEXODBRowCount(const VEXODB_RESULT *result);
/* Moves to the next row (the first on the first call): 1 when there is
   one, 0 after the last, -1 on a null result. */
VEXOP_API int VEXODBFetchRow(VEXODB_RESULT *result);
/* The text of `column` in the current row (numbers as their decimal text).
   NULL when the column does not exist or holds NULL, or before the first
   VEXODBFetchRow; the text lives as long as the result. */
VEXOP_API const char *VEXODBFetchField(const VEXODB_RESULT *result, const char *column);
VEXOP_API void VEXODBFreeResult(VEXODB_RESULT *result);
/* The message of the connection's last failure, "" when none. */
VEXOP_API const char *VEXODBErrorGet(const VEXODB *db);

/*
 * The system log: adds event number `event` of `category`, with text
 * arguments ended by a null pointer. Category "disk_test" (model, serial,
 * path, time in epoch seconds, type "smart" or "ihm", test type, then
 * optionally poh, temperature, sectors read, sectors written) adds a row
 * to the disk test database, msg and test_code the event number.
 * Category "disk" (model, serial, detail..., path) adds a row to the disk
 * event database, msg the event number, info the details. Events that
 * readers look up by keyword take it as msg: 41 "life_below_thre_with_value"
 * and 86 "ssd_bundle_month_below_thre_with_value", whose info begins with
 * the last detail (the figures). 0, or -1.
 */
VEXOP_API int VLIBLogSetByVA(const char *category, int event, ...);

VEXO_END_DECLS

#endif
