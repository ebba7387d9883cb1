// Arbitrary bytes as every self-test page the drives send: the SMART data
// page, the standard and extended ATA logs, the SCSI results and control
// mode pages, the NVMe log. No read outside the page, and a record that
// only holds values the callers know.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "smartctl/self_test.h"

using namespace vexo::selftest;

namespace {

void check(const SmartTestLog &log)
{
	for (const char *s : {log.quickMinutes, log.extendMinutes, log.progress})
		if (!std::memchr(s, '\0', 32))
			std::abort();
	if (log.quickResult > 7 || log.extendResult > 7 || log.currentResult > 7 || log.latestType > 15)
		std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
	// Copies of the input's exact length, so that the sanitizer sees any overrun.
	std::vector<uint8_t> page(data, data + size), whole(size / 512 * 512);
	if (!whole.empty())
		std::memcpy(whole.data(), data, whole.size());
	SmartTestLog log{};
	if (size >= 512) {
		decodeSmartValues(std::span<const uint8_t, 512>(page.data(), 512), log);
		decodeAtaStandardLog(std::span<const uint8_t, 512>(page.data(), 512), log);
		check(log);
	}
	log = {};
	decodeAtaExtendedLog(whole, log);
	check(log);
	log = {};
	decodeScsiSelfTestPage(page, log);
	decodeScsiControlMode(page, log);
	check(log);
	log = {};
	decodeNvmeSelfTestLog(page, log);
	check(log);
	SmartTestLatestResultSet(&log);
	if (log.latestResult > 7)
		std::abort();
	return 0;
}
