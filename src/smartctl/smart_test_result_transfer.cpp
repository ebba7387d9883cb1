// Self-test result and status values: their words, the status nibble they
// come from, the rule that picks the latest result, and the fallback files
// that stand in for the log of a drive without one.
#include <cstdlib>
#include <cstring>
#include <string>
#include <vexohw/frame.h>
#include <vexoplatform/vexocore.h>

#include "frame/boundary.h"
#include "frame/err.h"
#include "frame/text.h"
#include "smartctl/self_test.h"

namespace vexo::selftest {
namespace {


constexpr const char *kResults[] = {"unknown", "completed", "aborted", "interrupted", "damage",
				    "progress", "none", "extended_test_suggested"};
constexpr const char *kStatuses[] = {"unknown", "normal", "normal_past", "fail"};

template <std::size_t N>
int wordOf(const char *const (&table)[N], unsigned value, char *out, int size)
{
	if (!out || size < 1 || value >= N) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	return VEXO_COPY_OUT(out, size, table[value], "word") ? 0 : -1;
}

// A fallback file's value for the disk: a result number, 6 when absent.
unsigned fileResult(const char *file, const std::string &key)
{
	char v[32] = {};
	if (VLIBCFileGetKeyValue(file, key.c_str(), v, sizeof(v), 0) <= 0)
		return SMART_TEST_RESULT_NONE;
	return static_cast<unsigned>(std::strtoul(v, nullptr, 10));
}

long long fileTime(const char *file, const std::string &key)
{
	char v[32] = {};
	if (VLIBCFileGetKeyValue(file, key.c_str(), v, sizeof(v), 0) <= 0)
		return 0;
	return std::strtoll(v, nullptr, 10);
}

} // namespace

const char *logFileOf(const char *testType)
{
	if (!testType)
		return nullptr;
	if (std::strcmp(testType, "quick") == 0)
		return SMART_TEST_QUICK_LOG;
	if (std::strcmp(testType, "extend") == 0)
		return SMART_TEST_EXTEND_LOG;
	return nullptr;
}

const char *lockFileOf(const char *testType)
{
	const char *f = logFileOf(testType);
	return !f ? nullptr : f == std::string_view(SMART_TEST_QUICK_LOG) ? SMART_TEST_QUICK_LOCK : SMART_TEST_EXTEND_LOCK;
}

void readFallback(const char *path, SmartTestLog &log)
{
	log.quickResult = log.extendResult = SMART_TEST_RESULT_NONE;
	char serial[64] = {}, testing[32] = {};
	if (VEXODiskGetStrValueCacheFile(path, "serial", serial, sizeof(serial)) != 0)
		return;
	if (VEXODiskGetStrValueCacheFile(path, "smart_testing", testing, sizeof(testing)) != 0 &&
	    VLIBCErrGet() != VEXO_ERR_READ)
		return; // an empty smart_testing means no test runs
	std::string s(serial);
	bool running = log.currentResult == SMART_TEST_RESULT_PROGRESS;
	if (std::strcmp(testing, "quick") == 0 && !running) {
		log.quickResult = log.currentResult;
		log.extendResult = fileResult(SMART_TEST_EXTEND_LOG, s + "_STATUS");
		log.latestType = SMART_TEST_TYPE_QUICK;
	} else if (std::strcmp(testing, "extend") == 0 && !running) {
		log.quickResult = fileResult(SMART_TEST_QUICK_LOG, s + "_STATUS");
		log.extendResult = log.currentResult;
		log.latestType = SMART_TEST_TYPE_EXTEND;
	} else {
		log.quickResult = fileResult(SMART_TEST_QUICK_LOG, s + "_STATUS");
		log.extendResult = fileResult(SMART_TEST_EXTEND_LOG, s + "_STATUS");
		long long q = fileTime(SMART_TEST_QUICK_LOG, s + "_TIME");
		long long e = fileTime(SMART_TEST_EXTEND_LOG, s + "_TIME");
		if (q != 0 || e != 0)
			log.latestType = q <= e ? SMART_TEST_TYPE_EXTEND : SMART_TEST_TYPE_QUICK;
	}
}

bool testResultIgnorable(const char *path)
{
	int v = 0;
	return VEXODiskGetIntValueCacheFile(path, "smart_test_ignore", &v) == 0 && v == 1;
}

} // namespace vexo::selftest

using namespace vexo::selftest;

extern "C" {

VEXO_API int SmartTestResultTransfer(unsigned int nibble, unsigned int *result)
{
	unsigned r;
	int damage = 0;
	switch (nibble) {
	case 0: r = SMART_TEST_RESULT_COMPLETED; break;
	case 1: r = SMART_TEST_RESULT_ABORTED; break;
	case 2: r = SMART_TEST_RESULT_INTERRUPTED; break;
	case 3: case 4: case 5: case 6: case 7: case 8: r = SMART_TEST_RESULT_DAMAGE; damage = 1; break;
	case 15: r = SMART_TEST_RESULT_PROGRESS; break;
	default: r = SMART_TEST_RESULT_UNKNOWN; break;
	}
	if (result)
		*result = r;
	return damage;
}

VEXO_API int SmartTestResultStringTransfer(unsigned int result, char *out, int size)
try {
	return wordOf(kResults, result, out, size);
}
VEXO_C_CATCH(-1)

VEXO_API int SmartTestStatusStringTransfer(unsigned int status, char *out, int size)
try {
	return wordOf(kStatuses, status, out, size);
}
VEXO_C_CATCH(-1)

VEXO_API void SmartTestLatestResultSet(SmartTestLog *log)
{
	if (!log)
		return;
	if (log->latestType == SMART_TEST_TYPE_QUICK && log->quickResult == SMART_TEST_RESULT_DAMAGE)
		log->latestResult = log->extendResult == SMART_TEST_RESULT_DAMAGE ? SMART_TEST_RESULT_DAMAGE
										   : SMART_TEST_RESULT_EXTENDED_SUGGESTED;
	else if (log->latestType == SMART_TEST_TYPE_QUICK)
		log->latestResult = log->quickResult;
	else if (log->latestType == SMART_TEST_TYPE_EXTEND)
		log->latestResult = log->extendResult;
	else
		log->latestResult = SMART_TEST_RESULT_NONE;
}

} // extern "C"
