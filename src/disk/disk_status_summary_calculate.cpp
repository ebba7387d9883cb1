// VEXODiskStatusSummaryCalculate: the one status word the user interface
// shows, picked from a disk's keywords by their summary codes, with the
// compat form and the remote unit's disconnect check, and the two answers
// about a keyword (its emergent rank, whether it is abnormal).
#include <cstdio>
#include <cstring>
#include <string>
#include <vexohw/disk_status.h>
#include <vexohw/frame.h>
#include <vexoplatform/vexocore.h>

#include "frame/boundary.h"
#include "frame/err.h"
#include "frame/jsonc.h"
#include "frame/log.h"
#include "frame/text.h"

namespace {

// The summary code of a keyword, -1 when it does not resolve; a failure
// logs `what`.
int summaryCode(const char *category, const char *keyword, const char *what)
{
	int code = -1;
	if (DiskStatusAllAttributeGet(category, keyword, nullptr, nullptr, &code) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to get disk %s status %s [0x%X]", VEXO_AT, what, keyword, VLIBCErrGet());
		return -1;
	}
	return code;
}

int put(char *category, int categorySize, const char *cat, char *status, int statusSize, const char *word)
{
	if (!vexo::copyText(category, categorySize, cat) || !vexo::copyText(status, statusSize, word)) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	return 0;
}

// A field of the record as a string, never reading past its end.
std::string field(const char (&f)[32])
{
	return std::string(f, strnlen(f, sizeof(f)));
}

// A progress figure in a keyword field: "-1" or a percent.
bool progress(const std::string &s)
{
	return s == "-1" || s.find('%') != std::string::npos;
}

} // namespace

extern "C" {

VEXO_API int VEXOCheckDiskRemoteControllerDisconnect(const char *remote, char *category, int categorySize,
						     char *status, int statusSize)
try {
	if (!remote || !category || !status || categorySize <= 0 || statusSize <= 0) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	vexo::jsonc::Value v = vexo::jsonc::parseWhole(remote);
	std::optional<int64_t> d = v ? vexo::jsonc::integer(v.get(), "disconnect") : std::nullopt;
	if (!d)
		return 0;
	int incoming = -1;
	std::string cat(category, strnlen(category, categorySize)), st(status, strnlen(status, statusSize));
	bool resolved = DiskStatusAllAttributeGet(cat.c_str(), st.c_str(), nullptr, nullptr, &incoming) == 0;
	std::string digits = std::to_string(*d);
	int code = -1;
	if (DiskStatusAllAttributeGet("disconnect", digits.c_str(), nullptr, nullptr, &code) != 0) {
		vlog(LOG_WARNING, "%s:%d Failed to get disk disconnect status with index %s [0x%X]", VEXO_AT,
		     digits.c_str(), VLIBCErrGet());
		digits = "unknown";
		DiskStatusAllAttributeGet("disconnect", "unknown", nullptr, nullptr, &code);
	}
	if (resolved && incoming >= code)
		return 1;
	return put(category, categorySize, "disconnect", status, statusSize, digits.c_str()) == 0 ? 1 : -1;
}
VEXO_C_CATCH(-1)

VEXO_API int VEXODiskStatusSummaryCalculate(const DiskStatusSummaryInput *in, char *category, int categorySize,
					    char *status, int statusSize)
try {
	if (!in || !category || !status) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::string space = field(in->space), health = field(in->health), proc = field(in->processing),
		    compat = field(in->compatibility);
	int p = summaryCode("processing", proc.c_str(), "processing");
	int s = summaryCode("space", space.c_str(), "space");
	int h = summaryCode("health", health.c_str(), "health");
	int c = VLIBCVexologyDriveOnly() ? summaryCode("compatibility", compat.c_str(), "health") : -1;
	auto top = [](int x, int a, int b, int d) { return x != -1 && x >= a && x >= b && x >= d; };
	if (top(p, s, h, c))
		return put(category, categorySize, "processing", status, statusSize, proc.c_str());
	if (top(c, s, p, h))
		return put(category, categorySize, "compatibility", status, statusSize, compat.c_str());
	if (top(s, p, h, c))
		return put(category, categorySize, "space", status, statusSize, space.c_str());
	if (top(h, s, p, c))
		return put(category, categorySize, "health", status, statusSize, health.c_str());
	vlog(LOG_ERR, "%s:%d Invalid status space %s, health %s, process %s, compatibility %s", VEXO_AT, space.c_str(),
	     health.c_str(), proc.c_str(), compat.c_str());
	VEXO_ERR(VEXO_ERR_NOT_FOUND);
	return -1;
}
VEXO_C_CATCH(-1)

VEXO_API int CompatVEXODiskStatusSummaryCalculate(const DiskStatusSummaryInput *in, char *category,
						  int categorySize, char *status, int statusSize)
try {
	if (!in || !category || !status) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::string remote(in->remote, strnlen(in->remote, sizeof(in->remote)));
	int r = VEXOCheckDiskRemoteControllerDisconnect(remote.c_str(), category, categorySize, status, statusSize);
	if (r == 1)
		return 0;
	if (r != 0)
		vlog(LOG_ERR, "%s:%d Failed to check disconnect status %s [0x%X]", VEXO_AT, remote.c_str(), VLIBCErrGet());
	std::string space = field(in->space), smart = field(in->health);
	if (progress(space))
		space = "secure_erasing";
	if (progress(smart))
		smart = "testing";
	int s = summaryCode("space", space.c_str(), "space");
	int m = summaryCode("smart", smart.c_str(), "smart");
	if (s != -1 && s >= m)
		return put(category, categorySize, "space", status, statusSize, space.c_str());
	if (m == -1 || s > m) {
		vlog(LOG_ERR, "%s:%d Invalid status space %s, smart %s", VEXO_AT, space.c_str(), smart.c_str());
		VEXO_ERR(VEXO_ERR_NOT_FOUND);
		return -1;
	}
	return put(category, categorySize, "smart", status, statusSize, smart.c_str());
}
VEXO_C_CATCH(-1)

VEXO_API int VEXODiskStatusEmergentRankGet(const char *category, const char *keyword)
try {
	int rank = -1;
	return DiskStatusAllAttributeGet(category, keyword, &rank, nullptr, nullptr) == 0 ? rank : -1;
}
VEXO_C_CATCH(-1)

VEXO_API int VEXODiskStatusIsAbnormal(const char *category, const char *keyword)
try {
	int abnormal = 0;
	return DiskStatusAllAttributeGet(category, keyword, nullptr, &abnormal, nullptr) == 0 ? abnormal : 0;
}
VEXO_C_CATCH(0)

VEXO_API int VEXODiskSpaceStatusKeyTransfer(int index, char *out, int size)
try {
	return DiskStatusStringTrensfer("space", index, out, size);
}
VEXO_C_CATCH(-1)

VEXO_API int VEXODiskProcessingStatusKeyTransfer(int index, char *out, int size)
try {
	return DiskStatusStringTrensfer("processing", index, out, size);
}
VEXO_C_CATCH(-1)

} // extern "C"
