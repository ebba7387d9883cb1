// The one weight scale and the words of the verdicts on it: warning types,
// the three status levels, the overview's mail keys, and the reason record.
#include <cstdlib>
#include <cstring>
#include <vexohw/frame.h>
#include <vexohw/smart_status.h>
#include <vexoplatform/vexocore.h>

#include "frame/boundary.h"
#include "frame/err.h"
#include "frame/text.h"

namespace {

constexpr const char *kInfoWords[] = {"unknown",	"normal",		  "normal_suppress",	    "normal_past",
				      "normal_disable", "fail",			  "normal_repeat_suppress", "ssd_bad_block_over_thr",
				      "life_below_thr", "life_danger",		  "read_only"};
constexpr const char *kTotalWords[] = {"unknown", "normal", "warning", "critical", "failing"};

struct MailKey {
	int status;
	const char *key;
	int id;
};
constexpr MailKey kMailKeys[] = {
	{2, "DiskStatusWarning", 35},
	{3, "DiskStatusCritical", 36},
	{4, "DiskStatusFailing", 37},
	{5, "DiskStatusAccessError", 34},
};

template <std::size_t N>
int wordOf(const char *const (&table)[N], int status, char *out, int size)
{
	if (!out || size < 1 || status < 0 || static_cast<std::size_t>(status) >= N) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	return VEXO_COPY_OUT(out, size, table[status], "status word") ? 0 : -1;
}

} // namespace

extern "C" {

const char *const grgSmartInfoWarningypeTable[8] = {"UNKNOWN", "SMART", "UNC",	      "LIFE",
							     "ADV",	"SMART_TEST", "WDDA", "NVME_PERC_USED_FULL"};

VEXO_API const char *VEXODiskWarningTypeMappingToString(unsigned int type)
{
	return type < 8 ? grgSmartInfoWarningypeTable[type] : grgSmartInfoWarningypeTable[0];
}

VEXO_API int VEXODiskWarningTypeMappingToEnum(const char *text)
{
	for (int i = 0; text && i < 8; ++i)
		if (std::strcmp(text, grgSmartInfoWarningypeTable[i]) == 0)
			return i;
	return 0;
}

VEXO_API void SmartInfoFailListFree(SmartInfoFail *list)
{
	while (list) {
		SmartInfoFail *next = list->next;
		std::free(list);
		list = next;
	}
}

VEXO_API SmartWarningReason *VEXOSmartWarningReasonAlloc(void)
{
	auto *r = static_cast<SmartWarningReason *>(std::calloc(1, sizeof(SmartWarningReason)));
	if (!r)
		VEXO_ERR(VEXO_ERR_NOMEM);
	return r;
}

VEXO_API void VEXOSmartWarningReasonFree(SmartWarningReason *reason)
{
	if (!reason)
		return;
	SmartInfoFailListFree(reason->failList);
	std::free(reason);
}

VEXO_API int SmartInfoStatusStringTransfer(int status, char *out, int size)
try {
	return wordOf(kInfoWords, status, out, size);
}
VEXO_C_CATCH(-1)

VEXO_API int SmartTotalStatusStringTransfer(int status, char *out, int size)
try {
	return wordOf(kTotalWords, status, out, size);
}
VEXO_C_CATCH(-1)

VEXO_API int SmartOverviewStatusStringTransfer(int status, char *out, int size)
try {
	if (DiskStatusStringTrensfer("health", status, out, size) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to tranfer key with status %d, errno 0x%X", VEXO_AT, status, VLIBCErrGet());
		return -1;
	}
	return 0;
}
VEXO_C_CATCH(-1)

VEXO_API int SmartOverviewStatusCompute(int weight)
{
	if (weight >= SMART_WEIGHT_FAILING)
		return VLIBCVexologyDriveOnly() ? 3 : 4; // the vendor's own drives are never rated failing by weight
	if (weight >= SMART_WEIGHT_CRITICAL)
		return 3;
	if (weight < SMART_WEIGHT_WARNING)
		return 1;
	return 2;
}

VEXO_API int SmartOverviewStatusMailkeyGet(int status, char *key, int size, int *mailId)
try {
	if (!key || size < 1) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	for (const MailKey &m : kMailKeys) {
		if (m.status != status)
			continue;
		if (!VEXO_COPY_OUT(key, size, m.key, "mail key"))
			return -1;
		if (mailId)
			*mailId = m.id;
		return 1;
	}
	return 0;
}
VEXO_C_CATCH(-1)

} // extern "C"
