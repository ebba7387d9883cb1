// Arbitrary bytes as the fallback files of a drive without a self-test log
// (split between the quick and the extended file) and as the older XML
// document of test results.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <sys/stat.h>

#include "fuzz_root.h"
#include "smartctl/self_test.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
	static const bool dirs = [] {
		for (const char *d : {"/var", "/var/log", "/run", "/run/vexostorage", "/run/vexostorage/disks",
				      "/run/vexostorage/disks/sda"})
			::mkdir((vexo::fuzz::root() + d).c_str(), 0755);
		vexo::fuzz::writeInput("/run/vexostorage/disks/sda/serial", reinterpret_cast<const uint8_t *>("S1"), 2);
		return true;
	}();
	(void)dirs;
	size_t half = size / 2;
	vexo::fuzz::writeInput(SMART_TEST_QUICK_LOG, data, half);
	vexo::fuzz::writeInput(SMART_TEST_EXTEND_LOG, data + half, size - half);
	vexo::fuzz::writeInput("/run/vexostorage/disks/sda/smart_testing", data, size < 8 ? size : 8);
	SmartTestLog log{};
	log.currentResult = size ? data[0] % 8 : 0;
	vexo::selftest::readFallback("/dev/sda", log);
	if (log.latestType > 2)
		std::abort();
	SmartTestLatestResultSet(&log);

	vexo::fuzz::writeInput(SMART_TEST_RESULT_LOG_XML, data, size);
	SmartTestResultLog *list = nullptr;
	if (SmartTestResultLogGet(&list) == 0)
		for (SmartTestResultLog *e = list; e; e = e->next)
			if (e->model[31] || e->text[31])
				std::abort();
	SmartTestResultLogFree(list);
	return 0;
}
