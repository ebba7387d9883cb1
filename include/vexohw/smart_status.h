/*
 * The health verdict of a disk: SMART attributes, self-tests and the
 * other health sources add weights on one scale (1 to 30 a warning, 31 to
 * 600 critical, 601 and up failing), and the user's decisions about past
 * warnings (the action log) mute them. Pure C.
 */
#ifndef VEXOHW_SMART_STATUS_H
#define VEXOHW_SMART_STATUS_H

#include <vexohw/vexo_export.h>

VEXO_BEGIN_DECLS

/* The scale. */
#define SMART_WEIGHT_WARNING 1
#define SMART_WEIGHT_CRITICAL 31
#define SMART_WEIGHT_FAILING 601

/* Warning types: indexes of grgSmartInfoWarningypeTable; 8 filters all. */
#define SMART_WARNING_UNKNOWN 0
#define SMART_WARNING_SMART 1
#define SMART_WARNING_UNC 2
#define SMART_WARNING_LIFE 3
#define SMART_WARNING_ADV 4
#define SMART_WARNING_SMART_TEST 5
#define SMART_WARNING_WDDA 6
#define SMART_WARNING_NVME_PERC_USED_FULL 7
#define SMART_WARNING_ALL 8

/* SMART information status (SmartInfoStatusGet). */
#define SMART_INFO_UNKNOWN 0
#define SMART_INFO_NORMAL 1
#define SMART_INFO_NORMAL_SUPPRESS 2
#define SMART_INFO_NORMAL_PAST 3
#define SMART_INFO_NORMAL_DISABLE 4
#define SMART_INFO_FAIL 5
#define SMART_INFO_NORMAL_REPEAT_SUPPRESS 6
#define SMART_INFO_SSD_BAD_BLOCK_OVER_THR 7
#define SMART_INFO_LIFE_BELOW_THR 8
#define SMART_INFO_LIFE_DANGER 9
#define SMART_INFO_READ_ONLY 10

/* Total status (SmartTotalStatusGet). */
#define SMART_TOTAL_UNKNOWN 0
#define SMART_TOTAL_NORMAL 1
#define SMART_TOTAL_WARNING 2
#define SMART_TOTAL_CRITICAL 3
#define SMART_TOTAL_FAILING 4

/* failType of SmartInfoFail. */
#define SMART_FAIL_NORMAL 0
#define SMART_FAIL_CRITICAL 1
#define SMART_FAIL_REPEAT 2
#define SMART_FAIL_PAST 3

#define SMART_ACTION_LOG "/var/log/disk_smart_action.xml"

typedef struct SmartInfoFail {
	int id;
	int value;
	int worst;
	int threshold;
	char name[64];
	unsigned int failType;
	struct SmartInfoFail *next;
} SmartInfoFail;

typedef struct SmartWarningReason {
	unsigned int criticalWarning; /* NVMe critical warning bitmap */
	SmartInfoFail *failList;
	int lifeBelowThreshold;
	int smartTest;      /* self-test weight above 0 */
	int advTest;        /* adv status weight above 0 */
	int prediction;
	int wdda;           /* analytics weight above 0 */
	int errorTimeout;   /* timeout error weight above 0 */
	int errorResetFail; /* reset failure weight above 0 */
	int errorUnc;       /* uncorrectable error weight above 0 */
} SmartWarningReason;

/* One entry of the action log, newest first in a list. */
typedef struct SmartInfoAction {
	char time[32];
	char path[128];
	char model[32];
	char serial[32];
	char id[4];
	char current[8];
	char threshold[8];
	char worst[8];
	char raw[32];
	char testCode[32];
	int life;
	int wddaCode;
	int percUsed;
	int action;
	int type;
	struct SmartInfoAction *next;
} SmartInfoAction;

VEXO_API extern const char *const grgSmartInfoWarningypeTable[8];
/* The type's word, "UNKNOWN" above 7. */
VEXO_API const char *VEXODiskWarningTypeMappingToString(unsigned int type);
/* The index of an exact match, else 0. */
VEXO_API int VEXODiskWarningTypeMappingToEnum(const char *text);

VEXO_API SmartWarningReason *VEXOSmartWarningReasonAlloc(void);
VEXO_API void VEXOSmartWarningReasonFree(SmartWarningReason *reason);
VEXO_API void SmartInfoFailListFree(SmartInfoFail *list);

/* Words of the statuses. 0, or -1. */
VEXO_API int SmartInfoStatusStringTransfer(int status, char *out, int size);
VEXO_API int SmartTotalStatusStringTransfer(int status, char *out, int size);
VEXO_API int SmartOverviewStatusStringTransfer(int status, char *out, int size);

/* The overview status of an overview weight. */
VEXO_API int SmartOverviewStatusCompute(int weight);
/* 1 with the mail key and *mailId when the overview status calls for a
   mail, 0 when not (buffer untouched), -1 on bad arguments. */
VEXO_API int SmartOverviewStatusMailkeyGet(int status, char *key, int size, int *mailId);

/* The attributes' verdict: SMART_INFO_*, the weight in *weight. */
VEXO_API int SmartInfoStatusGet(const char *path, SmartWarningReason *reason, int *weight, int *suppressed,
				int *disabled, int update);
/* Self-test and attributes together: SMART_TOTAL_*. */
VEXO_API int SmartTotalStatusGet(const char *path, int *testStatus, char *progress, int progressSize,
				 int *infoStatus, SmartWarningReason *reason, int *weight, int *suppressed,
				 int *disabled, int *unused1, int *unused2, int update);
VEXO_API int SmartTotalStatusStringGet(const char *path, char *status, int statusSize, char *test, int testSize,
				       int *weight, int update);
/* Every health source: the overview status (grgDiskHealthStatusTable
   index), 0 on failure. */
VEXO_API int SmartOverviewStatusGet(const char *path, int *totalStatus, SmartWarningReason *reason, char *advStatus,
				    int *weight);
/* The same from the caches alone: never sends a command to the drive. */
VEXO_API int SmartOverviewStatusCacheGet(const char *path, int *weight);
/* Refreshes what SmartOverviewStatusCacheGet reads. 0, or -1. */
VEXO_API int SmartTotalStatusCacheUpdate(const char *path);
/* 1 when the cached overview weight is above 601, else 0. */
VEXO_API int SmartTestLimitExceed(const char *path);

/* The action log. type: 1 to 7, or 8 for all. 0, or -1. */
VEXO_API int SmartInfoActionLogGet(const char *path, SmartInfoAction **list, int type);
VEXO_API void SmartInfoActionLogFree(SmartInfoAction *list);
VEXO_API int SmartInfoActionRecord(const char *path, int action, int type, const char *id);

VEXO_END_DECLS

#endif
