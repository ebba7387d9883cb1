/*
 * Support routines under the database update and the firmware bundle: two
 * HTTP fetchers, a URL encoder, an MD5 check, free-space check, extraction
 * of signed archives, the identity values sent to the update servers, the
 * pending system update, and a worker that coalesces triggers on one
 * background thread. Pure C.
 */
#ifndef VEXOHW_MISC_H
#define VEXOHW_MISC_H

/* pthread_spinlock_t: POSIX.1-2001 (_POSIX_C_SOURCE >= 200112L). */
#include <pthread.h>
#include <stdint.h>
#include <vexohw/vexo_export.h>

VEXO_BEGIN_DECLS

/* Default hosts of the update servers, when the configuration names none. */
#define VEXO_DISK_SERVER_DEFAULT "https://dbupdate.vexo.example"
#define VEXO_DISK_TEST_SERVER_DEFAULT "http://dbupdate-test.vexo.example"
#define VEXO_FIRMWARE_SERVER_DEFAULT "https://fwupdate.vexo.example"

/* Fetches url into the file at path (truncated first; a failed transfer
   leaves what arrived). An HTTP error status still stores its body and
   succeeds. insecure non-zero: no TLS peer or host verification. 0 or -1;
   an unreachable server records 0x1100 and logs nothing. */
VEXO_API int VEXODiskMiscCurlToFile(const char *url, const char *path, int insecure);
/* Appends the body to *buffer (a malloc'ed allocation of *size bytes, or
   NULL and 0), kept zero-terminated; *size becomes the text length + 1.
   On failure *size keeps its value and *buffer names the live allocation
   (which may have moved or grown): the caller frees *buffer either way. */
VEXO_API int VEXODiskMiscCurlToBuffer(const char *url, char **buffer, int *size, int insecure);
VEXO_API int VEXODiskMiscUrlEncode(const char *text, char *out, int outSize);
/* 1 when the file's MD5 (lower-case hex) equals md5, 0 when not, -1 on failure. */
VEXO_API int VEXOHWCTLMiscFileMD5sumMatch(const char *path, const char *md5);
/* 0 when the file system holding path (or its nearest existing parent) has
   at least needed bytes available, else -1. */
VEXO_API int VEXOFsSizeCheck(unsigned long needed, const char *path);
/* Verifies a firmware archive (key type 7) and unpacks it into directory.
   0, -1 on failure, -2 when the file system lacks the archive's size. */
VEXO_API int VEXOFirmSAExtract(const char *archive, const char *directory);
/* Verifies a package archive (key type 8) and copies its file name. 0 or -1. */
VEXO_API int VEXOPackageSAExtract(const char *archive, char *out, int outSize);

VEXO_API int VEXOVOSVerGet(unsigned int *base, unsigned int *nano);
VEXO_API int VEXOVOSEncodedVOSVerGet(char *out, int outSize);
VEXO_API int VEXOVOSEncodedGroupIDGet(char *out, int outSize);
VEXO_API int VEXOVOSEncodedDSSNGet(char *out, int outSize);

typedef struct VOSUpdateInfo {
	int32_t available;
	char version[32];
	int32_t buildnumber;
	int32_t nano;
} VOSUpdateInfo;

/* The pending system update and promotion, from a copy of the server's
   answer refreshed at most once an hour. 0 or -1. */
VEXO_API int VEXODiskMiscVOSUpdateInfoGet(VOSUpdateInfo *update, VOSUpdateInfo *promotion);

/* A worker that runs function on a background thread; triggers that come
   while it runs are merged into exactly one further run. The caller owns
   the storage. */
typedef void (*MergeableWorkFunction)(void);
typedef struct MergeableWork {
	pthread_spinlock_t lock;
	int state; /* bit 0: a thread is running; bit 1: a run is pending */
	MergeableWorkFunction function;
} MergeableWork;

VEXO_API int VEXOHWCTLMergeableWorkInit(MergeableWork *work, MergeableWorkFunction function);
VEXO_API int VEXOHWCTLMergeableWorkTrigger(MergeableWork *work);
/* Waits for a running (and a pending) run to end, then tears down. */
VEXO_API void VEXOHWCTLMergeableWorkDestory(MergeableWork *work);

VEXO_END_DECLS

#endif
