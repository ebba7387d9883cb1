/*
 * libvexoplatform core: the VLIBC* calls every family of libvexohw uses.
 * Pure C.
 *
 * Paths given to these calls are the appliance's absolute paths
 * ("/etc/vexoinfo.conf"); they are resolved under $VEXO_SYSROOT when it is
 * set. Programs are run by absolute path under the same root, with argument
 * vectors and never through a shell.
 *
 * Return senses differ between calls and are stated for each one. Unless a
 * call says otherwise a failure records a code (VLIBCErrGet) from the table
 * in <vexoplatform/vexoerr.h>, and outputs are written only on success.
 */
#ifndef VEXOPLATFORM_VEXOCORE_H
#define VEXOPLATFORM_VEXOCORE_H

#include <stdio.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <vexoplatform/vexoerr.h>
#include <vexoplatform/vexoexport.h>

VEXO_BEGIN_DECLS

/* ---- Error record (thread-local) ---------------------------------------- */

/* Records code and place; the place of a re-record wins, the code is kept. */
VEXOP_API void VLIBCErrSetEx(int code, const char *file, int line);
/* The current code, 0 when nothing was recorded in this thread. */
VEXOP_API int VLIBCErrGet(void);
VEXOP_API const char *VLIBCErrFileGet(void);
VEXOP_API int VLIBCErrLineGet(void);
/* Clears the record (code 0, no place). */
VEXOP_API void VLIBCErrClear(void);

/* ---- String lists --------------------------------------------------------- */

/*
 * An ordered list of owned strings. `nAlloc` cells, `nItem` in use.
 * Functions that may grow the list take a pointer to the list pointer,
 * because growing may move it.
 */
typedef struct _tag_VLIBSZLIST {
	int nAlloc;
	int nItem;
	char **ppszItem;
} VLIBSZLIST, *PVLIBSZLIST;

/* A list with room for `capacity` items (at least 1). NULL and 0x0200 on failure. */
VEXOP_API PVLIBSZLIST VLIBCSzListAlloc(int capacity);
VEXOP_API void VLIBCSzListFree(PVLIBSZLIST list);
/* Appends a copy of item, growing as needed. The new index, or -1. */
VEXOP_API int VLIBCSzListPush(PVLIBSZLIST *pList, const char *item);
/* The item at index, or NULL when out of range. */
VEXOP_API const char *VLIBCSzListGet(PVLIBSZLIST list, int index);
/* Index of the first item equal to item, or -1. */
VEXOP_API int VLIBCSzListFind(PVLIBSZLIST list, const char *item);
/* Removes the item at index, keeping order. 0, or -1. */
VEXOP_API int VLIBCSzListRemove(PVLIBSZLIST list, int index);
/* Empties the list, keeping its cells. */
VEXOP_API void VLIBCSzListClear(PVLIBSZLIST list);
/* Sorts by strcmp; ascending when `ascending` is non-zero. 0, or -1. */
VEXOP_API int VLIBCSzListSortItems(PVLIBSZLIST list, int ascending);
/* Appends the non-empty fields of text split at any of delims. Count appended, or -1. */
VEXOP_API int VLIBCSzListSplit(PVLIBSZLIST *pList, const char *text, const char *delims);

/* ---- String hashes (ordered key -> value maps) --------------------------- */

typedef struct _tag_VLIBSZHASH {
	int nAlloc;
	int nItem;
	char **ppszKey;
	char **ppszValue;
} VLIBSZHASH, *PVLIBSZHASH;

VEXOP_API PVLIBSZHASH VLIBCSzHashAlloc(int capacity);
VEXOP_API void VLIBCSzHashFree(PVLIBSZHASH hash);
/* Sets or replaces key, keeping first-insertion order. 0, or -1. */
VEXOP_API int VLIBCSzHashSetValue(PVLIBSZHASH *pHash, const char *key, const char *value);
/* The value of key, or NULL. */
VEXOP_API const char *VLIBCSzHashGetValue(PVLIBSZHASH hash, const char *key);
/* 0 when removed, -1 when absent. */
VEXOP_API int VLIBCSzHashRemoveKey(PVLIBSZHASH hash, const char *key);
VEXOP_API void VLIBCSzHashClear(PVLIBSZHASH hash);

/* ---- Key-value files ("key=value" lines, value optionally in double quotes) */

#define VLIBC_KV_TEMPLATE "%s=\"%s\"\n"

/*
 * Reads the value of key into out (at most size-1 bytes), quotes removed.
 * The value's length (>= 1) when found; 0 when the key is absent or empty;
 * -1 on failure (0x0D00 bad argument, 0x0700 no file, 0x0900 open, 0x0A00 read).
 * `flags` is reserved and must be 0.
 */
VEXOP_API int VLIBCFileGetKeyValue(const char *file, const char *key, char *out, int size, int flags);
/*
 * Sets key to value in file, written with `format` (NULL means
 * VLIBC_KV_TEMPLATE): an existing line is replaced in place, a new key is
 * appended, a missing file is created. The file is replaced by
 * tmp-and-rename. 1 on success, 0 or -1 on failure.
 */
VEXOP_API int VLIBCFileSetKeyValue(const char *file, const char *key, const char *value, const char *format);
/* Removes key from file. 1 when removed, 0 when absent, -1 on failure. */
VEXOP_API int VLIBCFileRemoveKey(const char *file, const char *key);
/* All keys of file in order into *pHash. Count, or -1. */
VEXOP_API int VLIBCFileGetKeyValueAll(const char *file, PVLIBSZHASH *pHash);

/*
 * The system settings: /etc/vexoinfo.conf, falling back to
 * /etc.defaults/vexoinfo.conf for reads. Writes go to /etc/vexoinfo.conf only,
 * under the numbered lock 0x806 (LOCK_VEXOINFO).
 */
VEXOP_API int VLIBCINFOGetKeyValue(const char *key, char *out, int size); /* as VLIBCFileGetKeyValue */
VEXOP_API int VLIBCINFOSetKeyValue(const char *key, const char *value);  /* 0, or -1 */
VEXOP_API int VLIBCINFORemoveKey(const char *key);                       /* 0, or -1 */

/* ---- Section files ("[section]" headers, then key=value lines) ----------- */

/* The keys of section into *pHash (cleared first). Key count (>= 0), or -1 (0x2A00: no such section). */
VEXOP_API int VLIBCFileGetSection(const char *file, const char *section, PVLIBSZHASH *pHash);
/* Replaces the keys of an existing section. 1 on success; 0 when the section is absent; -1 on failure. */
VEXOP_API int VLIBCFileSetSection(const char *file, const char *section, PVLIBSZHASH hash);
/* Appends a new section (creating the file). 1 on success; 0 when it exists already; -1 on failure. */
VEXOP_API int VLIBCFileAddSection(const char *file, const char *section, PVLIBSZHASH hash);
/* Removes a section. 1 when removed, 0 when absent, -1 on failure. */
VEXOP_API int VLIBCFileRemoveSection(const char *file, const char *section);
/* Section names in file order into *pList. Count, or -1. */
VEXOP_API int VLIBCFileEnumSection(const char *file, PVLIBSZLIST *pList);

/* ---- Line readers and plain file helpers --------------------------------- */

/* Appends the lines of file, newline removed, to *pList. Count, or -1. */
VEXOP_API int VLIBCFileReadLines(const char *file, PVLIBSZLIST *pList);
/* fgets that removes the trailing newline. buffer, or NULL at end or on error. */
VEXOP_API char *VLIBCFgets(char *buffer, int size, FILE *stream);
/* Non-zero if path exists. */
VEXOP_API int VLIBCFileExist(const char *path);
/* Creates an empty file (keeps an existing one). 0, or -1. */
VEXOP_API int VLIBCFileTouch(const char *path);
/* stat(2) of path. 0, or -1. */
VEXOP_API int VLIBCFileStat(const char *path, struct stat *st);
/* Names in directory (no "." or ".."), sorted, appended to *pList. Count, or -1. */
VEXOP_API int VLIBCFileEnumDir(const char *dir, PVLIBSZLIST *pList);
/* read(2)/write(2) of the whole size, retrying on EINTR and short counts. Bytes moved, or -1. */
VEXOP_API ssize_t VLIBCRead(int fd, void *buffer, size_t size);
VEXOP_API ssize_t VLIBCWrite(int fd, const void *buffer, size_t size);

/* ---- String helpers ------------------------------------------------------- */

/* snprintf that fails on truncation. Length written, or -1. */
VEXOP_API int VLIBCStrSnprintf(char *out, int size, const char *format, ...)
	__attribute__((format(printf, 3, 4)));
/* Removes leading and trailing white space in place. 0, or -1 on a null argument. */
VEXOP_API int VLIBCStrTrimSpace(char *text);
/* Lower-cases in place. 0, or -1. */
VEXOP_API int VLIBCStrCaseLower(char *text);
/* Replaces the first `from` in text (a buffer of size bytes) with `to`.
   1 when replaced, 0 when not found, -1 when it would not fit or on bad arguments. */
VEXOP_API int VLIBCStrReplace(char *text, int size, const char *from, const char *to);

/* ---- Locks ---------------------------------------------------------------- */

/* flock on path (created 0644), waiting up to timeoutSeconds (0: try once).
   Non-zero when taken, with *fd the lock's descriptor; 0 on failure (0x0400). */
VEXOP_API int VLIBCFileLockTimeByFile(const char *path, int exclusive, int timeoutSeconds, int *fd);
/* As above, waiting without limit. Non-zero when taken. */
VEXOP_API int VLIBCFileLockByFile(const char *path, int exclusive, int *fd);
/* Releases and closes. Non-zero on success; on 0 the caller closes fd itself. */
VEXOP_API int VLIBCFileUnlockByFile(int fd);
/*
 * Numbered system-wide locks. The class of an id is id & ~0xFF; one class
 * is one lock, released by class (0x806 is released with 0x800, 0x20006 with
 * 0x20000). `flags` is 5 in every caller and means: exclusive, wait.
 * Both return 0 on success, the opposite sense of the lock-file calls.
 */
VEXOP_API int VLIBCFileLock(int lockId, int flags);
VEXOP_API int VLIBCFileUnlock(int lockClass);

/* ---- Processes ------------------------------------------------------------ */

/* Runs program (an absolute appliance path) with arguments arg0, ... NULL,
   as execl does, and waits. The exit status (0..255), or -1 when it could
   not run or died by a signal. */
VEXOP_API int VLIBCExecl(const char *program, const char *arg0, ...);
/* As VLIBCExecl with a NULL-terminated vector. */
VEXOP_API int VLIBCExecv(const char *program, char *const argv[]);
/* As VLIBCExecv with argv[0] as the program. */
VEXOP_API int VLIBCExec(char *const argv[]);
/* As VLIBCExecl, with the caller's environment, killed after `seconds`:
   then -1 and 0x2E00. */
VEXOP_API int VLIBCTimedExecWithEnv(int seconds, const char *program, const char *arg0, ...);
/* Starts program with arguments (execl style) and returns a stream on its
   standard output ("r") or input ("w"). NULL on failure (0x0900). */
VEXOP_API FILE *VLIBCPopen(const char *program, const char *mode, const char *arg0, ...);
VEXOP_API FILE *VLIBCPopenv(const char *program, const char *mode, char *const argv[]);
/* Closes the stream and reaps the child: its exit status, or -1. */
VEXOP_API int VLIBCPclose(FILE *stream);

/* 1 if a process lives: with pid > 0 that pid, otherwise any process whose
   name is `name`. Always the real /proc. */
VEXOP_API int VLIBCIsProcAlive(const char *name, pid_t pid);
/* The pid in a pid file, or -1 (0x0700 no file, 0x0A00 unreadable). */
VEXOP_API pid_t VLIBCReadPidFile(const char *path);
/* 1 if the pid file names a live process, 0 if not, -1 when the file is
   missing (0x0900) or unreadable. */
VEXOP_API int VLIBCProcAliveByPidFile(const char *path);
/* Writes the caller's pid to path. 0, or -1. */
VEXOP_API int VLIBCProcPidFileCreate(const char *path);
/* fork(2) for a worker child: the child gets a fresh error record. As fork. */
VEXOP_API pid_t VLIBCProcFork(void);

/* ---- Product questions ----------------------------------------------------
 * Answered from keys of /etc.defaults/vexoinfo.conf (the product's fixed
 * description). The key of each question is documented at its definition
 * in platform/core/product.cpp; a missing key is "no".
 */
/* 1 when key's value is "yes" (case-insensitive), else 0. */
VEXOP_API int VLIBCSupportGet(const char *key);
VEXOP_API int VLIBCSupportSAS(void);
VEXOP_API int VLIBCSupportNVMe(void);
VEXOP_API int VLIBCSupportNvmeEunit(void);
VEXOP_API int VLIBCSupportRAID(void);
VEXOP_API int VLIBCSupportDualhead(void);
VEXOP_API int VLIBCSupportIsolatedDiskSystem(void);
VEXOP_API int VLIBCSupportM2AllDev(void);
VEXOP_API int VLIBCBlockM2SATA(void);
VEXOP_API int VLIBCSupportDiskCompatibility(void);
VEXOP_API int VLIBCSupportDiskStatusDebug(void);
VEXOP_API int VLIBCSupportInstallOnlyDev(void);
VEXOP_API int VLIBCSupportInternalVolumeByNvme(void);
VEXOP_API int VLIBCSupportLEDBrightnessAdjust(void);
VEXOP_API int VLIBCIsVVOS(void);
VEXOP_API int VLIBCIsAliVOS(void);
VEXOP_API int VLIBCVexologyDriveOnly(void);
VEXOP_API int VLIBCSataDeepSleepEn(void);
/* The number of internal bays; 0 when unknown. */
VEXOP_API int VLIBCMaxDiskGet(void);

VEXO_END_DECLS

#endif
