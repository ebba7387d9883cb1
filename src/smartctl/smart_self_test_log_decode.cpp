// Self-test log pages to a SmartTestLog. Only bytes here: every length is
// checked, since a page may be short or hold anything a drive cares to say.
#include <cstdio>
#include <cstring>

#include "frame/err.h"
#include "smartctl/self_test.h"

namespace vexo::selftest {
namespace {

unsigned le16(const uint8_t *p) { return p[0] | p[1] << 8; }
unsigned be16(const uint8_t *p) { return p[0] << 8 | p[1]; }

bool allZero(const uint8_t *p, size_t n)
{
	for (size_t i = 0; i < n; ++i)
		if (p[i])
			return false;
	return true;
}

} // namespace

void Walk::step(SmartTestLog &log, unsigned testNumber, unsigned result, bool damage)
{
	switch (testNumber) {
	case 1:
		if (!quick) {
			log.quickResult = result;
			quick = true;
			if (log.latestType == SMART_TEST_TYPE_NONE)
				log.latestType = SMART_TEST_TYPE_QUICK;
		} else if (damage) {
			log.quickDamagedBefore = 1;
		}
		break;
	case 2:
		if (!extend) {
			log.extendResult = result;
			extend = true;
			if (log.latestType == SMART_TEST_TYPE_NONE)
				log.latestType = SMART_TEST_TYPE_EXTEND;
		} else if (damage) {
			log.extendDamagedBefore = 1;
		}
		break;
	case 0:
	case 128:
		if (!quick && !extend && !other) {
			log.quickResult = log.extendResult = result;
			quick = extend = other = true;
		} else if (damage) {
			log.extendDamagedBefore = 1;
		}
		break;
	default:
		break;
	}
}

void Walk::finish(SmartTestLog &log) const
{
	if (!quick)
		log.quickResult = SMART_TEST_RESULT_NONE;
	if (!extend)
		log.extendResult = SMART_TEST_RESULT_NONE;
}

bool decodeSmartValues(std::span<const uint8_t, 512> v, SmartTestLog &log)
{
	if (!(v[367] & 0x10))
		return false;
	std::snprintf(log.quickMinutes, sizeof(log.quickMinutes), "%4d", v[372]);
	unsigned extended = v[373];
	if (extended == 0xFF) {
		unsigned word = le16(&v[375]);
		if (word != 0 && word != 0xFFFF)
			extended = word;
	}
	std::snprintf(log.extendMinutes, sizeof(log.extendMinutes), "%4d", extended);
	SmartTestResultTransfer(v[363] >> 4, &log.currentResult);
	if (log.currentResult == SMART_TEST_RESULT_PROGRESS)
		std::snprintf(log.progress, sizeof(log.progress), "%1d0%%", 10 - (v[363] & 0x0F));
	return true;
}

void decodeAtaStandardLog(std::span<const uint8_t, 512> page, SmartTestLog &log)
{
	Walk walk;
	unsigned index = page[kAtaStdIndex];
	for (int n = static_cast<int>(kAtaStdDescriptors) - 1; n >= 0; --n) {
		const uint8_t *d = page.data() + 2 + ((index + n) % kAtaStdDescriptors) * kAtaStdDescriptorSize;
		if (allZero(d, kAtaStdDescriptorSize))
			continue;
		unsigned result = 0;
		bool damage = SmartTestResultTransfer(d[1] >> 4, &result) == 1;
		if (result == SMART_TEST_RESULT_PROGRESS)
			continue;
		walk.step(log, d[0], result, damage);
	}
	walk.finish(log);
}

void decodeAtaExtendedLog(std::span<const uint8_t> pages, SmartTestLog &log)
{
	size_t count = pages.size() / 512;
	size_t max = count * kAtaExtPerPage;
	if (count == 0)
		return;
	unsigned index = le16(pages.data() + 2);
	if (index < 1 || index > max)
		return;
	log.latestType = SMART_TEST_TYPE_NONE;
	Walk walk;
	size_t u = index - 1;
	for (size_t visited = 0; visited < kAtaExtMaxVisited && visited < max; ++visited) {
		const uint8_t *d = pages.data() + (u / kAtaExtPerPage) * 512 + 4 + (u % kAtaExtPerPage) * kAtaExtDescriptorSize;
		unsigned result = 0;
		bool damage = SmartTestResultTransfer(d[1] >> 4, &result) == 1;
		if (result != SMART_TEST_RESULT_PROGRESS)
			walk.step(log, d[0], result, damage);
		u = u == 0 ? max - 1 : u - 1;
	}
	walk.finish(log);
}

void decodeScsiSelfTestPage(std::span<const uint8_t> page, SmartTestLog &log)
{
	Walk walk;
	for (size_t i = 0; i < kScsiParams; ++i) {
		size_t off = 4 + i * kScsiParamSize;
		if (off + kScsiParamSize > page.size())
			break;
		uint8_t b = page[off + 4];
		unsigned result = 0;
		bool damage = SmartTestResultTransfer(b & 0x0F, &result) == 1;
		if (i == 0) {
			log.currentResult = result;
			if (result == SMART_TEST_RESULT_PROGRESS) {
				std::snprintf(log.progress, sizeof(log.progress), "%d", -1);
				continue;
			}
		}
		walk.step(log, b >> 5, result, damage);
	}
	walk.finish(log);
}

bool decodeScsiControlMode(std::span<const uint8_t> page, SmartTestLog &log)
{
	if (page.size() < 4)
		return false;
	size_t off = static_cast<size_t>(page[3]) + 14;
	if (off + 2 > page.size())
		return false;
	std::snprintf(log.extendMinutes, sizeof(log.extendMinutes), "%d", static_cast<int>(be16(&page[off]) / 60));
	std::snprintf(log.quickMinutes, sizeof(log.quickMinutes), "%d", 2);
	return true;
}

bool decodeNvmeSelfTestLog(std::span<const uint8_t> page, SmartTestLog &log)
{
	log.quickResult = log.extendResult = log.currentResult = SMART_TEST_RESULT_NONE;
	if (page.size() < kNvmeLogSize)
		return false;
	unsigned op = page[0];
	if (op == 1 || op == 2) {
		log.currentResult = SMART_TEST_RESULT_PROGRESS;
		std::snprintf(log.progress, sizeof(log.progress), "%2d%%", page[1]);
	} else if (op != 0) {
		vlog(LOG_ERR, "%s:%d unknown self-test operation %d", VEXO_AT, static_cast<int>(op));
		return false;
	}
	bool seen[3] = {};
	for (size_t i = 0; i < kNvmeEntries; ++i) {
		const uint8_t *e = page.data() + 4 + i * kNvmeEntrySize;
		uint8_t code = e[0] & 0x0F, entryOp = e[0] >> 4;
		if (code == 0x0F)
			break;
		if (i == 0 && op == 0)
			log.currentResult = SMART_TEST_RESULT_COMPLETED;
		if (entryOp != 1 && entryOp != 2) {
			vlog(LOG_ERR, "%s:%d Error: cannot process self-test-log (unknown op %d)", VEXO_AT, static_cast<int>(entryOp));
			continue;
		}
		unsigned stored;
		bool damage = false;
		switch (code) {
		case 0: stored = SMART_TEST_RESULT_COMPLETED; break;
		case 1: stored = SMART_TEST_RESULT_ABORTED; break;
		case 2: case 3: case 4: case 5: case 8: case 9: stored = SMART_TEST_RESULT_INTERRUPTED; break;
		case 6: case 7: stored = SMART_TEST_RESULT_DAMAGE; damage = true; break;
		default:
			stored = SMART_TEST_RESULT_UNKNOWN;
			vlog(LOG_ERR, "%s:%d Error: unknown status code %hhu", VEXO_AT, code);
			break;
		}
		if (!seen[entryOp]) {
			seen[entryOp] = true;
			(entryOp == 1 ? log.quickResult : log.extendResult) = stored;
			if (log.latestType == SMART_TEST_TYPE_NONE)
				log.latestType = entryOp;
		}
		if (damage)
			(entryOp == 1 ? log.quickDamagedBefore : log.extendDamagedBefore) = 1;
	}
	return true;
}

} // namespace vexo::selftest
