/*
 * Self-tests: what a disk's last tests said, from whichever log the disk
 * keeps (ATA SMART or extended self-test log, SCSI self-test results page,
 * NVMe self-test log), and the records kept of finished tests. Tests are
 * started and stopped by /usr/vexo/bin/vexo_smart_test. Pure C.
 */
#ifndef VEXOHW_SMART_TEST_H
#define VEXOHW_SMART_TEST_H

#include <vexohw/vexo_export.h>

VEXO_BEGIN_DECLS

/* Test results (SmartTestResultStringTransfer). */
#define SMART_TEST_RESULT_UNKNOWN 0
#define SMART_TEST_RESULT_COMPLETED 1
#define SMART_TEST_RESULT_ABORTED 2
#define SMART_TEST_RESULT_INTERRUPTED 3
#define SMART_TEST_RESULT_DAMAGE 4
#define SMART_TEST_RESULT_PROGRESS 5
#define SMART_TEST_RESULT_NONE 6
#define SMART_TEST_RESULT_EXTENDED_SUGGESTED 7

/* Test status (SmartTestStatusGet never gives NORMAL_PAST). */
#define SMART_TEST_STATUS_UNKNOWN 0
#define SMART_TEST_STATUS_NORMAL 1
#define SMART_TEST_STATUS_NORMAL_PAST 2
#define SMART_TEST_STATUS_FAIL 3

/* latestType */
#define SMART_TEST_TYPE_NONE 0
#define SMART_TEST_TYPE_QUICK 1
#define SMART_TEST_TYPE_EXTEND 2

/* The weight a failed self-test adds to the disk's health scale. */
#define SMART_TEST_FAIL_WEIGHT 601

#define SMART_TEST_QUICK_LOG "/var/log/smart_quick_log"
#define SMART_TEST_EXTEND_LOG "/var/log/smart_extend_log"
#define SMART_TEST_QUICK_LOCK "/run/lock/smart_quick_log.lock"
#define SMART_TEST_EXTEND_LOCK "/run/lock/smart_extend_log.lock"
#define SMART_TEST_TOOL "/usr/vexo/bin/vexo_smart_test"
#define SMART_TEST_RESULT_LOG_XML "/var/log/disk_smart_test_log.xml"

typedef struct SmartTestLog {
	int quickDamagedBefore;      /* an older quick test ended in damage */
	int extendDamagedBefore;     /* an older extended test ended in damage */
	char quickMinutes[32];       /* expected duration of a quick test */
	char extendMinutes[32];      /* expected duration of an extended test */
	char progress[32];           /* progress of the running test */
	unsigned int quickResult;    /* newest quick result */
	unsigned int extendResult;   /* newest extended result */
	unsigned int currentResult;  /* the test machinery now; 5 while testing */
	unsigned int latestType;     /* SMART_TEST_TYPE_* */
	unsigned int latestResult;   /* result of the latest test */
} SmartTestLog;

/* A row of the disk test database. */
typedef struct DiskTestLog {
	char time[32]; /* "%Y/%m/%d %H:%M:%S", local time */
	char type[32]; /* "smart", "ihm" */
	char testType[32];
	char message[32];
	char poh[32];
	char temperature[32];
	char cumSectorRead[32];
	char cumSectorWritten[32];
	char testCode[32];
	struct DiskTestLog *next;
} DiskTestLog;

/* An entry of the older document /var/log/disk_smart_test_log.xml. */
typedef struct SmartTestResultLog {
	char model[32];
	char serial[32];
	char time[32];
	char path[32];
	char result[32];
	char text[32]; /* the element's text */
	struct SmartTestResultLog *next;
} SmartTestResultLog;

/* A status nibble to a result in *result; 1 for a damage code, else 0. */
VEXO_API int SmartTestResultTransfer(unsigned int nibble, unsigned int *result);
/* Words of the result and status values. 0, or -1 (out of range, small buffer). */
VEXO_API int SmartTestResultStringTransfer(unsigned int result, char *out, int size);
VEXO_API int SmartTestStatusStringTransfer(unsigned int status, char *out, int size);
/* Decides latestResult from latestType and the two results. */
VEXO_API void SmartTestLatestResultSet(SmartTestLog *log);

/* The disk's self-test record, from the drive (privileged). 0, or -1. */
VEXO_API int SMARTSelfTestLogRead(const char *path, SmartTestLog *log);
/* SMART_TEST_STATUS_*; while a test runs its progress goes to progress
   ("-1" on SCSI disks); a failed test adds SMART_TEST_FAIL_WEIGHT to
   *weight. 0 when the record can't be read. */
VEXO_API int SmartTestStatusGet(const char *path, char *progress, int size, int *weight);
/* 1 while a test runs, else 0 (also on failure, and always on NVMe). */
VEXO_API int SMARTIsSelftesting(const char *path);

/* 1 when the log directory read on fd shows the SMART self-test log;
   *kind is set to 1 first. 0 otherwise. */
VEXO_API int IsSelfTestLogCapability(int fd, const char *path, int *kind);
VEXO_API int ISSelfTestLogSupport(int fd, const char *path);

/* 1 when the disk can run self-tests, else 0. */
VEXO_API int VEXODiskSmartTestSupport(const char *path);
/* The answer kept in the disk's smart_test_support cache value, worked
   out and kept when there is none yet. */
VEXO_API int VEXODiskSmartTestSupportCache(const char *path);
/* Stops the running test and records its end. 0, or -1. */
VEXO_API int VEXODiskSmartTestStop(const char *path);
/* Closes the record of a finished test on a device ("sda" or "/dev/sda"):
   moves the _NEW keys, logs the event, clears smart_testing. 0, or -1. */
VEXO_API int SmartTestResultRecord(const char *name);

/* Rows of the disk test database for the disk, newest first; type "smart",
   "ihm" or null for all; limit and offset page through them (limit < 1:
   all). The total count of matching rows (0 without a database), or -1. */
VEXO_API int VEXODiskTestLogGet(const char *path, const char *type, int limit, int offset, DiskTestLog **list);
VEXO_API void DiskTestLogFree(DiskTestLog *list);

/* The shown entries of the older document. 0 (an empty list when there is
   no document), or -1. */
VEXO_API int SmartTestResultLogGet(SmartTestResultLog **list);
VEXO_API void SmartTestResultLogFree(SmartTestResultLog *list);

VEXO_END_DECLS

#endif
