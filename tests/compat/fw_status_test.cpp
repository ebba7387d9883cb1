// The firmware decision, the choice of the best newer firmware, and the
// status and warranty texts.
#include <cstring>
#include <gtest/gtest.h>
#include <syslog.h>
#include <vexohw/compat_cache.h>
#include <vexohw/fw_status.h>

#include "disk/fw_status_imp.h"
#include "support/vexotest.h"

using namespace vexo::test;

namespace {

FirmwareCandidate cand(int build, int now, int upd = 0, int promo = 0, int avail = 1)
{
	FirmwareCandidate c{};
	c.build = build;
	c.compatibleNow = now;
	c.compatibleAtUpdate = upd;
	c.compatibleAtPromotion = promo;
	c.available = avail;
	return c;
}

const FirmwareCandidate kNone{}; // the empty best: build 0, nothing known

struct Decide {
	const char *name;
	int hasEntry;
	FirmwareCandidate current, best;
	int want;
};

TEST(FwStatus, Decide)
{
	const Decide cases[] = {
		{"no entry, newer present", 0, cand(10, 1), cand(20, 1), 4},
		{"works, newer works but not to be had", 1, cand(10, 1), cand(20, 1, 0, 0, 0), 1},
		{"works, nothing newer", 1, cand(10, 1), kNone, 0},
		{"works, newer does not", 1, cand(10, 1), cand(20, 2, 1), 0},
		{"broken, newer works, not to be had", 1, cand(10, 2), cand(20, 1, 0, 0, 0), 5},
		{"broken, newer works and can be had", 1, cand(10, 2), cand(20, 1), 3},
		{"works after the update, nothing newer", 1, cand(10, 2, 1), kNone, 2},
		{"works after the promotion, newer too", 1, cand(10, 2, 0, 1), cand(20, 2, 1), 2},
		{"newer works after the promotion", 1, cand(10, 2), cand(20, 2, 0, 1), 2},
		{"broken, newer broken", 1, cand(10, 2), cand(20, 2), 0},
		{"unknown verdict, equal build", 1, cand(10, 0), cand(10, 1), 0},
	};
	for (const Decide &d : cases) {
		SCOPED_TRACE(d.name);
		EXPECT_EQ(DiskFirmStatusDecide(d.hasEntry, &d.current, &d.best), d.want);
	}
	LogCapture log;
	EXPECT_EQ(DiskFirmStatusDecide(1, nullptr, &kNone), 0);
	EXPECT_TRUE(log.has(LOG_ERR, "Invalid Input"));
}

TEST(FwStatus, BestCandidate)
{
	struct Case {
		const char *name;
		FirmwareCandidate c, best;
		bool replaces;
	} cases[] = {
		{"first working one, even unavailable", cand(20, 1, 0, 0, 0), kNone, true},
		{"working beats pending-only", cand(15, 1), cand(30, 2, 1), true},
		{"but not an available best when it is not", cand(15, 1, 0, 0, 0), cand(30, 2, 1), false},
		{"unavailable never replaces available", cand(40, 1, 0, 0, 0), cand(30, 1), false},
		{"higher build of equal merit", cand(40, 1), cand(30, 1), true},
		{"lower build of equal merit", cand(20, 1), cand(30, 1), false},
		{"equal build: the first stays", cand(30, 1), cand(30, 1), false},
		{"compatible nowhere", cand(50, 2), kNone, false},
		{"pending-only against working", cand(50, 2, 1), cand(30, 1), false},
		{"pending-only, higher", cand(50, 2, 0, 1), cand(30, 2, 1), true},
	};
	for (const auto &c : cases) {
		SCOPED_TRACE(c.name);
		EXPECT_EQ(vexo::fwstatus::candidateBetter(c.c, c.best), c.replaces);
	}
}

TEST(FwStatus, Texts)
{
	const char *texts[] = {"do_nothing", "new_firm_available", "update_vos", "update_firm", "update_db", "do_nothing",
			       "do_nothing"};
	for (int s = -1; s <= 6; ++s) {
		char out[32] = "x";
		ASSERT_EQ(VEXOSBFirmStatusTransfer(s, out, sizeof out), 0);
		EXPECT_STREQ(out, texts[s < 0 ? 0 : s]) << s;
		EXPECT_EQ(VEXOSBFirmStatusStringTransfer(out), s >= 1 && s <= 4 ? s : 0);
	}
	char small[7];
	EXPECT_EQ(VEXOSBFirmStatusTransfer(3, small, sizeof small), 0);
	EXPECT_STREQ(small, "update");
	EXPECT_EQ(VEXOSBFirmStatusTransfer(1, nullptr, 8), -1);
	EXPECT_EQ(VEXOSBFirmStatusTransfer(1, small, 0), -1);
	EXPECT_EQ(VEXOSBFirmStatusStringTransfer(nullptr), 0);
	EXPECT_EQ(VEXOSBFirmStatusStringTransfer("update_db "), 0);
}

TEST(CompatCache, WarrantyTexts)
{
	for (const char *w : {"new", "defect", "refurbish"}) {
		uint32_t v = 1;
		char back[16] = {};
		ASSERT_EQ(VEXODiskWarrantyToValue(w, &v), 0);
		ASSERT_EQ(VEXODiskValueToWarranty(v, back, sizeof back), 0);
		EXPECT_STREQ(back, w);
	}
	LogCapture log;
	char out[16];
	uint32_t v = 7;
	EXPECT_EQ(VEXODiskValueToWarranty(1, out, sizeof out), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "Invalied warranty value 0x00000001."));
	EXPECT_EQ(VEXODiskWarrantyToValue("used", &v), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "Invalied warranty type used."));
	EXPECT_EQ(v, 7u);
	EXPECT_EQ(VEXODiskWarrantyToValue(nullptr, &v), -1);
	EXPECT_EQ(VEXODiskValueToWarranty(0, out, 3), -1); // "new" needs 4 bytes
}

} // namespace
