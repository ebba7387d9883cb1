// The disk status keyword tables and their two lookups. The row index is
// the numeric status value. Lookups match by prefix on purpose: an input
// that merely begins with a keyword finds it.
#include <cstdio>
#include <cstring>
#include <vexohw/frame.h>

#include "frame/err.h"
#include "frame/text.h"

extern "C" {

const DiskStatusEntry grgDiskSpaceStatusTable[15] = {
	{0, -1, 0, "unknown"},
	{0, 1, 1000, "secure_erasing"},
	{1, 1001, 6, "unc_warning"},
	{1, 1001, 6, "life_warning"},
	{0, 1, 1000, "perf_testing"},
	{0, 0, 4, "sys_partition_normal"},
	{0, 0, 5, "not_use"},
	{1, 2003, 14, "deactivated"},
	{0, 0, 3, "normal"},
	{1, 2003, 11, "crashed"},
	{1, 2003, 10, "system_crashed"},
	{0, 0, 3, "hotspare"},
	{1, 1001, 6, "data_detected"},
	{1, 1001, 12, "disknotsupported"},
	{1, 2003, 9, "rootbackup_crashed"},
};

const DiskStatusEntry grgDiskHealthStatusTable[7] = {
	{0, -1, 0, "unknown"},
	{0, 0, 3, "normal"},
	{1, 1001, 6, "warning"},
	{1, 2001, 7, "critical"},
	{1, 2002, 8, "failing"},
	{0, -1, 0, "access_err"},
	{1, 2002, 8, "disabled"},
};

const DiskStatusEntry grgDiskProcessingStatusTable[6] = {
	{0, -1, 0, "unknown"},
	{0, 0, 2, "idle"},
	{0, 1, 1000, "smart"},
	{0, 1, 1000, "ihm"},
	{0, 1, 1000, "erase"},
	{0, 1, 1000, "perf"},
};

// "testing" is abnormal here although the processing row "smart" is not.
const DiskStatusEntry grgCompatDiskSmartStatusTable[11] = {
	{0, -1, 0, "unknown"},
	{0, 0, 3, "safe"},
	{1, 2001, 7, "damage"},
	{1, 2001, 7, "danger"},
	{1, 2002, 8, "test_fail"},
	{0, 0, 3, "normal"},
	{1, 1001, 6, "degraded"},
	{1, 2002, 8, "failing"},
	{1, 2001, 7, "critical"},
	{1, 1001, 6, "warning"},
	{1, 1, 1000, "testing"},
};

const DiskStatusEntry grgDiskDisconnectStatusTable[3] = {
	{1, 2004, 1001, "unknown"},
	{1, 2004, 1001, "0"},
	{1, 2004, 1001, "1"},
};

const DiskStatusEntry grgDiskCompatibilityStatusTable[8] = {
	{0, 0, 0, "unknown"},
	{0, 0, 1, "support"},
	{1, 2001, 13, "not_in_support"},
	{1, 2001, 13, "not_support"},
	{0, 0, 1, "disabled"},
	{1, 2001, 13, "forbidden"},
	{0, 0, 0, nullptr},
	{1, 2001, 13, "fw_upgrade_required"},
};

#define VEXO_ROWS(t) static_cast<int>(sizeof(t) / sizeof((t)[0]))

const DiskStatusCategory grgDiskStatusCategory[VEXO_DISK_STATUS_CATEGORY_COUNT] = {
	{VEXO_ROWS(grgDiskSpaceStatusTable), grgDiskSpaceStatusTable, "space"},
	{VEXO_ROWS(grgDiskHealthStatusTable), grgDiskHealthStatusTable, "health"},
	{VEXO_ROWS(grgDiskProcessingStatusTable), grgDiskProcessingStatusTable, "processing"},
	{VEXO_ROWS(grgCompatDiskSmartStatusTable), grgCompatDiskSmartStatusTable, "smart"},
	{VEXO_ROWS(grgDiskDisconnectStatusTable), grgDiskDisconnectStatusTable, "disconnect"},
	{VEXO_ROWS(grgDiskCompatibilityStatusTable), grgDiskCompatibilityStatusTable, "compatibility"},
};

} // extern "C"

namespace {

bool beginsWith(const char *input, const char *keyword)
{
	return std::strncmp(input, keyword, std::strlen(keyword)) == 0;
}

const DiskStatusCategory *findCategory(const char *category)
{
	for (const auto &c : grgDiskStatusCategory)
		if (beginsWith(category, c.keyword))
			return &c;
	return nullptr;
}

} // namespace

extern "C" {

VEXO_API int DiskStatusAllAttributeGet(const char *category, const char *keyword, int *emergentRank,
				       int *isAbnormal, int *summaryCode)
try {
	if (!category || !keyword) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	const DiskStatusCategory *c = findCategory(category);
	if (!c) {
		VEXO_ERR(VEXO_ERR_NOT_FOUND);
		return -1;
	}
	for (int i = 0; i < c->count; ++i) {
		const DiskStatusEntry &e = c->table[i];
		if (!e.keyword || !beginsWith(keyword, e.keyword))
			continue;
		if (emergentRank)
			*emergentRank = e.emergentRank;
		if (isAbnormal)
			*isAbnormal = e.isAbnormal;
		if (summaryCode)
			*summaryCode = e.summaryCode;
		return 0;
	}
	VEXO_ERR(VEXO_ERR_NOT_FOUND);
	return -1;
} VEXO_C_CATCH(-1)

VEXO_API int DiskStatusStringTrensfer(const char *category, int index, char *out, int size)
try {
	if (!category || !out || size <= 0) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	const DiskStatusCategory *c = findCategory(category);
	if (!c || index < 0 || index >= c->count || !c->table[index].keyword) {
		VEXO_ERR(VEXO_ERR_NOT_FOUND);
		return -1;
	}
	vexo::copyTextCut(out, size, c->table[index].keyword);
	return 0;
} VEXO_C_CATCH(-1)

} // extern "C"
