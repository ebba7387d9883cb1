// Self-test log pages decoded: ring order, wrap-around across pages, the
// durations, and the latest-result rule.
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "smartctl/self_test.h"
#include "support/vexotest.h"

using namespace vexo::selftest;

namespace {

// A descriptor of test number `n` with status nibble `s` at byte 0 / high nibble of byte 1.
void put(std::vector<uint8_t> &p, size_t off, uint8_t n, uint8_t s)
{
	p[off] = n;
	p[off + 1] = static_cast<uint8_t>(s << 4);
	p[off + 2] = 1; // hours: not an all-zero descriptor
}

TEST(SelfTestDecode, SmartValuesDurationsAndProgress)
{
	struct Row {
		uint8_t b363, b367, b373;
		uint16_t word;
		bool ok;
		const char *extend, *progress;
		unsigned current;
	} rows[] = {
		{0x00, 0x6B, 30, 0, false, "", "", 0},            // bit 4 clear: no self-test
		{0x00, 0x7B, 0xFF, 0, true, " 255", "", 1},       // word 0 keeps 255
		{0x00, 0x7B, 0xFF, 0xFFFF, true, " 255", "", 1},
		{0xF3, 0x7B, 0xFF, 700, true, " 700", "70%", 5},   // 3 tenths to go
		{0x40, 0x7B, 45, 0, true, "  45", "", 4},
	};
	for (const Row &r : rows) {
		std::vector<uint8_t> v(512, 0);
		v[363] = r.b363, v[367] = r.b367, v[372] = 2, v[373] = r.b373;
		v[375] = r.word & 0xFF, v[376] = r.word >> 8;
		SmartTestLog log{};
		ASSERT_EQ(decodeSmartValues(std::span<const uint8_t, 512>(v.data(), 512), log), r.ok) << int(r.b367);
		if (!r.ok)
			continue;
		EXPECT_STREQ(log.quickMinutes, "   2");
		EXPECT_STREQ(log.extendMinutes, r.extend);
		EXPECT_STREQ(log.progress, r.progress);
		EXPECT_EQ(log.currentResult, r.current);
	}
}

TEST(SelfTestDecode, StandardLogIndexZeroStartsAtSlotTwenty)
{
	std::vector<uint8_t> p(512, 0);
	put(p, 2 + 20 * 24, 1, 5);  // newest: quick, damage
	put(p, 2 + 19 * 24, 2, 0);  // extended, completed
	put(p, 2 + 18 * 24, 1, 15); // in progress: skipped
	put(p, 2 + 17 * 24, 1, 4);  // older quick damage
	SmartTestLog log{};
	decodeAtaStandardLog(std::span<const uint8_t, 512>(p.data(), 512), log);
	EXPECT_EQ(log.quickResult, 4u);
	EXPECT_EQ(log.extendResult, 1u);
	EXPECT_EQ(log.latestType, 1u);
	EXPECT_EQ(log.quickDamagedBefore, 1);
	EXPECT_EQ(log.extendDamagedBefore, 0);
}

TEST(SelfTestDecode, ExtendedLogWrapsAcrossPages)
{
	std::vector<uint8_t> p(2 * 512, 0);
	p[2] = 2; // newest is entry 1 of page 0
	auto at = [](size_t u) { return (u / 19) * 512 + 4 + (u % 19) * 26; };
	put(p, at(1), 2, 7); // extended damage
	put(p, at(0), 1, 0); // quick completed
	put(p, at(37), 2, 0); // wraps to the last entry of page 1
	put(p, at(36), 128, 3);
	SmartTestLog log{};
	log.latestType = 9;
	decodeAtaExtendedLog(p, log);
	EXPECT_EQ(log.extendResult, 4u);
	EXPECT_EQ(log.quickResult, 1u);
	EXPECT_EQ(log.latestType, 2u);
	EXPECT_EQ(log.extendDamagedBefore, 1); // the 128 entry after both were seen

	SmartTestLog bad{};
	p[2] = 39; // index past pages x 19: nothing read
	decodeAtaExtendedLog(p, bad);
	EXPECT_EQ(bad.quickResult, 0u);
}

TEST(SelfTestDecode, ScsiPageAndControlMode)
{
	std::vector<uint8_t> p(512, 0);
	p[4 + 4] = 2 << 5 | 15; // running extended
	p[24 + 4] = 1 << 5 | 0; // quick completed
	p[44 + 4] = 1 << 5 | 6; // older quick damage
	SmartTestLog log{};
	decodeScsiSelfTestPage(p, log);
	EXPECT_EQ(log.currentResult, 5u);
	EXPECT_STREQ(log.progress, "-1");
	EXPECT_EQ(log.quickResult, 1u);
	EXPECT_EQ(log.extendResult, 6u);
	EXPECT_EQ(log.quickDamagedBefore, 1);

	std::vector<uint8_t> m(512, 0);
	m[3] = 8;
	m[22] = 0x1C, m[23] = 0x20; // 7200 seconds
	ASSERT_TRUE(decodeScsiControlMode(m, log));
	EXPECT_STREQ(log.extendMinutes, "120");
	EXPECT_STREQ(log.quickMinutes, "2");
	m[3] = 0xFF;
	EXPECT_FALSE(decodeScsiControlMode(std::span<const uint8_t>(m.data(), 260), log));
}

TEST(SelfTestDecode, NvmeLog)
{
	std::vector<uint8_t> p(564, 0);
	for (size_t i = 0; i < 20; ++i)
		p[4 + 28 * i] = 0x0F;
	SmartTestLog empty{};
	ASSERT_TRUE(decodeNvmeSelfTestLog(p, empty));
	EXPECT_EQ(empty.quickResult, 6u);
	EXPECT_EQ(empty.extendResult, 6u);
	EXPECT_EQ(empty.currentResult, 6u);

	p[0] = 2, p[1] = 40;
	p[4] = 0x27;      // extended, failed segment
	p[32] = 0x10;     // quick, completed
	p[60] = 0x14;     // older quick: not the deciding one
	SmartTestLog log{};
	ASSERT_TRUE(decodeNvmeSelfTestLog(p, log));
	EXPECT_EQ(log.currentResult, 5u);
	EXPECT_STREQ(log.progress, "40%");
	EXPECT_EQ(log.extendResult, 4u);
	EXPECT_EQ(log.extendDamagedBefore, 1);
	EXPECT_EQ(log.quickResult, 1u);
	EXPECT_EQ(log.latestType, 2u);
	p[0] = 7;
	EXPECT_FALSE(decodeNvmeSelfTestLog(p, log));
}

TEST(SelfTestDecode, LatestResultAndWords)
{
	struct Row {
		unsigned type, quick, extend, latest;
	} rows[] = {{1, 4, 1, 7}, {1, 4, 4, 4}, {1, 2, 4, 2}, {2, 4, 3, 3}, {0, 4, 4, 6}};
	for (const Row &r : rows) {
		SmartTestLog log{};
		log.latestType = r.type, log.quickResult = r.quick, log.extendResult = r.extend;
		SmartTestLatestResultSet(&log);
		EXPECT_EQ(log.latestResult, r.latest) << r.type << r.quick << r.extend;
	}
	unsigned res = 0;
	EXPECT_EQ(SmartTestResultTransfer(8, &res), 1);
	EXPECT_EQ(res, 4u);
	EXPECT_EQ(SmartTestResultTransfer(9, &res), 0);
	EXPECT_EQ(res, 0u);
	char w[32];
	ASSERT_EQ(SmartTestResultStringTransfer(7, w, sizeof(w)), 0);
	EXPECT_STREQ(w, "extended_test_suggested");
	EXPECT_EQ(SmartTestResultStringTransfer(8, w, sizeof(w)), -1);
	EXPECT_EQ(SmartTestStatusStringTransfer(3, w, 4), -1); // "fail" and its NUL need 5
}

} // namespace

namespace {

TEST(SelfTestDocument, ShownEntriesAndAMissingResult)
{
	vexo::test::Sysroot root;
	SmartTestResultLog *list = nullptr;
	ASSERT_EQ(SmartTestResultLogGet(&list), 0); // no document: an empty list
	EXPECT_FALSE(list);
	const std::string a = R"(<test model="M" SN="S1" time="t1" path="/dev/sda" result="completed" show="1">quick</test>)",
			  hidden = R"(<test model="M" SN="S2" time="t2" path="/dev/sdb" result="damage" show="0">extend</test>)";
	root.write(SMART_TEST_RESULT_LOG_XML, "<log>" + a + hidden + "</log>");
	ASSERT_EQ(SmartTestResultLogGet(&list), 0);
	ASSERT_TRUE(list && !list->next);
	EXPECT_STREQ(list->serial, "S1");
	EXPECT_STREQ(list->result, "completed");
	EXPECT_STREQ(list->text, "quick");
	SmartTestResultLogFree(list);
	root.write(SMART_TEST_RESULT_LOG_XML, "<log>" + a + R"(<test model="M" SN="S3" time="t" path="p" show="1"/></log>)");
	list = nullptr;
	EXPECT_EQ(SmartTestResultLogGet(&list), -1);
	EXPECT_FALSE(list);
}

} // namespace
