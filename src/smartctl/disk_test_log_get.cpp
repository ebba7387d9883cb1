// The disk test database, newest first and a page at a time, and the
// older XML document of self-test results.
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <vexohw/frame.h>
#include <vexohw/smart_serial.h>
#include <vexohw/smart_test.h>
#include <vexoplatform/logdb.h>

#include "frame/boundary.h"
#include "frame/err.h"
#include "frame/list.h"
#include "frame/sysroot.h"
#include "frame/text.h"
#include "frame/xml.h"

namespace {

struct DbClose {
	void operator()(VEXODB *db) const { VEXODBClose(db); }
};
struct ResultFree {
	void operator()(VEXODB_RESULT *r) const { VEXODBFreeResult(r); }
};
using Result = std::unique_ptr<VEXODB_RESULT, ResultFree>;

// A serial goes into the query text: quotes doubled, as SQL reads them.
std::string quoted(const char *text)
{
	std::string out;
	for (const char *p = text; *p; ++p)
		out += *p == '\'' ? std::string("''") : std::string(1, *p);
	return out;
}

void field(char (&dst)[32], const VEXODB_RESULT *r, const char *column)
{
	const char *v = VEXODBFetchField(r, column);
	vexo::copyTextCut(dst, v ? v : "");
}

void fillRow(DiskTestLog &row, const VEXODB_RESULT *r)
{
	const char *t = VEXODBFetchField(r, "logtime");
	std::time_t when = t ? static_cast<std::time_t>(std::strtoll(t, nullptr, 10)) : 0;
	struct tm local {};
	if (localtime_r(&when, &local))
		std::strftime(row.time, sizeof(row.time), "%Y/%m/%d %H:%M:%S", &local);
	field(row.message, r, "msg");
	field(row.type, r, "type");
	field(row.testType, r, "test_type");
	field(row.poh, r, "poh");
	field(row.temperature, r, "temperature");
	field(row.cumSectorRead, r, "cumsectorread");
	field(row.cumSectorWritten, r, "cumsectorwritten");
	field(row.testCode, r, "test_code");
}

} // namespace

extern "C" {

VEXO_API void DiskTestLogFree(DiskTestLog *list)
{
	while (list) {
		DiskTestLog *next = list->next;
		std::free(list);
		list = next;
	}
}

VEXO_API void SmartTestResultLogFree(SmartTestResultLog *list)
{
	while (list) {
		SmartTestResultLog *next = list->next;
		std::free(list);
		list = next;
	}
}

VEXO_API int VEXODiskTestLogGet(const char *path, const char *type, int limit, int offset, DiskTestLog **list)
try {
	if (!path || !list) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	*list = nullptr;
	struct stat st;
	if (vexo::sysroot::stat(VEXODB_DISK_TEST_LOG_PATH, &st) != 0 || st.st_size == 0)
		return 0;
	char firmware[64] = {}, serial[64] = {};
	if (SmartFirmAndSerialRead(path, firmware, sizeof(firmware), serial, sizeof(serial)) != 0) {
		VEXO_ERR_PASS();
		return -1;
	}
	std::string query = "SELECT * FROM logs WHERE serial='" + quoted(serial) + "'";
	if (type && (std::strcmp(type, "smart") == 0 || std::strcmp(type, "ihm") == 0))
		query += std::string(" AND type='") + type + "'";
	query += " ORDER BY logtime DESC";

	std::unique_ptr<VEXODB, DbClose> db(VEXODBConnect(VEXODB_DISK_TEST_LOG_PATH, 0));
	if (!db) {
		VEXO_ERR_PASS();
		return -1;
	}
	Result rows(VEXODBSelectLimit(db.get(), query.c_str(), limit, offset));
	Result count(VEXODBSelect(db.get(), ("SELECT count(*) AS count_result FROM (" + query + ") as tempQuery").c_str()));
	if (!rows || !count || VEXODBFetchRow(count.get()) != 1) {
		VEXO_ERR(VEXO_ERR_DB);
		return -1;
	}
	const char *total = VEXODBFetchField(count.get(), "count_result");
	vexo::ListBuilder<DiskTestLog, DiskTestLogFree> out;
	while (VEXODBFetchRow(rows.get()) == 1) {
		DiskTestLog *row = out.appendNew();
		if (!row) {
			VEXO_ERR(VEXO_ERR_NOMEM);
			return -1;
		}
		fillRow(*row, rows.get());
	}
	*list = out.release();
	return total ? std::atoi(total) : 0;
}
VEXO_C_CATCH(-1)

VEXO_API int SmartTestResultLogGet(SmartTestResultLog **list)
try {
	if (!list) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	*list = nullptr;
	struct stat st;
	if (vexo::sysroot::stat(SMART_TEST_RESULT_LOG_XML, &st) != 0 || st.st_size == 0)
		return 0;
	vexo::xml::Doc doc = vexo::xml::readFile(SMART_TEST_RESULT_LOG_XML);
	xmlNode *root = doc ? xmlDocGetRootElement(doc.get()) : nullptr;
	if (!root) {
		VEXO_ERR(VEXO_ERR_READ);
		vlog(LOG_ERR, "%s:%d Failed to parse %s", VEXO_AT, SMART_TEST_RESULT_LOG_XML);
		return -1;
	}
	vexo::ListBuilder<SmartTestResultLog, SmartTestResultLogFree> out;
	for (xmlNode *n = root->children; n; n = n->next) {
		if (n->type != XML_ELEMENT_NODE || vexo::xml::propString(n, "show").value_or("") != "1")
			continue;
		auto model = vexo::xml::propString(n, "model"), sn = vexo::xml::propString(n, "SN"),
		     time = vexo::xml::propString(n, "time"), path = vexo::xml::propString(n, "path"),
		     result = vexo::xml::propString(n, "result");
		if (!model || !sn || !time || !path || !result) {
			vlog(LOG_ERR, "%s:%d Get disk xml result failed !", VEXO_AT);
			VEXO_ERR(VEXO_ERR_READ);
			return -1;
		}
		SmartTestResultLog *e = out.appendNew();
		if (!e) {
			VEXO_ERR(VEXO_ERR_NOMEM);
			return -1;
		}
		vexo::copyTextCut(e->model, *model);
		vexo::copyTextCut(e->serial, *sn);
		vexo::copyTextCut(e->time, *time);
		vexo::copyTextCut(e->path, *path);
		vexo::copyTextCut(e->result, *result);
		vexo::xml::Text text(xmlNodeGetContent(n));
		vexo::copyTextCut(e->text, text ? reinterpret_cast<const char *>(text.get()) : "");
	}
	*list = out.release();
	return 0;
}
VEXO_C_CATCH(-1)

} // extern "C"
