// The firmware decision from two candidates, and the status texts.
#include <cstdio>
#include <cstring>
#include <vexohw/fw_status.h>

#include "frame/err.h"

namespace {

// Indexed by status; 0 and 5 alike tell the user nothing.
constexpr const char *kTexts[] = {"do_nothing", "new_firm_available", "update_vos", "update_firm", "update_db"};

enum : unsigned {
	kCurNow = 2,
	kCurNotNow = 4,
	kNewer = 8,
	kCurAtPending = 16,
	kNewerNow = 32,
	kNewerAtPending = 64,
	kBestUnavailable = 128,
};

bool has(unsigned f, unsigned bits) { return (f & bits) == bits; }

} // namespace

extern "C" {

VEXO_API int DiskFirmStatusDecide(int hasEntry, const FirmwareCandidate *current, const FirmwareCandidate *best)
try {
	if (!current || !best) {
		vlog(LOG_ERR, "%s:%d Invalid Input", VEXO_AT);
		return 0;
	}
	if (!hasEntry)
		return VEXO_FW_STATUS_UPDATE_DB;
	unsigned f = 0;
	if (current->compatibleNow == 1)
		f |= kCurNow;
	if (current->compatibleNow == 2)
		f |= kCurNotNow;
	if (current->compatibleAtUpdate == 1 || current->compatibleAtPromotion == 1)
		f |= kCurAtPending;
	if (current->build < best->build) {
		f |= kNewer;
		if (best->compatibleNow == 1)
			f |= kNewerNow;
		if (best->compatibleAtUpdate == 1 || best->compatibleAtPromotion == 1)
			f |= kNewerAtPending;
	}
	if (best->available == 0)
		f |= kBestUnavailable;

	// A firmware that works now is told of a newer working one even when it
	// cannot be had yet.
	if (f & kCurNow)
		return (f & kNewerNow) ? VEXO_FW_STATUS_NEW_FIRM_AVAILABLE : VEXO_FW_STATUS_DO_NOTHING;
	if ((f & kCurAtPending) && !(f & kNewer))
		return VEXO_FW_STATUS_UPDATE_VOS;
	if (has(f, kNewer | kNewerNow))
		return (f & kBestUnavailable) ? VEXO_FW_STATUS_NO_CANDIDATE : VEXO_FW_STATUS_UPDATE_FIRM;
	if (has(f, kNewer | kCurAtPending))
		return VEXO_FW_STATUS_UPDATE_VOS;
	if (has(f, kNewer | kNewerAtPending) && !(f & kCurAtPending))
		return VEXO_FW_STATUS_UPDATE_VOS;
	return VEXO_FW_STATUS_DO_NOTHING;
} VEXO_C_CATCH(0)

VEXO_API int VEXOSBFirmStatusTransfer(int status, char *out, int outSize)
try {
	if (!out || outSize < 1) {
		vlog(LOG_ERR, "%s:%d Invalid arguments", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	const char *text = status >= 1 && status <= 4 ? kTexts[status] : kTexts[0];
	std::snprintf(out, static_cast<size_t>(outSize), "%s", text);
	return 0;
} VEXO_C_CATCH(-1)

VEXO_API int VEXOSBFirmStatusStringTransfer(const char *text)
try {
	if (!text)
		return 0;
	for (int s = 1; s <= 4; ++s)
		if (std::strcmp(text, kTexts[s]) == 0)
			return s;
	return 0;
} VEXO_C_CATCH(0)

} // extern "C"
