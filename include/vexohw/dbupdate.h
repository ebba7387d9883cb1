/*
 * Updates of the drive databases: the update server's address, the table
 * of databases with their installed paths, applying an index (fetched from
 * the server or found in an uploaded offline kit) database by database with
 * a checksum, an optional model check and a backup, the update lock, the
 * expansion units' databases, the offline kit's versions, the time of the
 * last update and the platform daemon's refresh after a temperature
 * database change. Pure C.
 */
#ifndef VEXOHW_DBUPDATE_H
#define VEXOHW_DBUPDATE_H

#include <stdint.h>
#include <time.h>
#include <vexohw/vexo_export.h>

VEXO_BEGIN_DECLS

struct json_object;

/* Expands the "%s" of format with the lower-cased model. 0 or -1. */
typedef int (*DiskDbNameFunction)(const char *format, char *out, int outSize);

/* One database: where the index names it and where it is installed. */
typedef struct DiskOnlineDbInfo {
	char name[1024];          /* the key in the index; may hold "%s" for the model */
	char dbPath[1024];        /* the installed file */
	char versionPath[1024];   /* text file with the installed version */
	struct json_object *entry; /* filled during a run */
	int32_t required;         /* 1: an index without the key is an error; 0: skipped */
	DiskDbNameFunction nameFunction; /* expands name, or null */
	int32_t copyToTmp;        /* 1: the new file is also copied to /tmp */
	int32_t statusIndex;      /* index into the caller's status array */
	int32_t perModel;         /* 1: the paths hold "%s" for the model */
	int32_t checkModel;       /* 1: the file must name this model ("nas_model") */
	char releasePath[1024];   /* text file with the installed release, or "" */
} DiskOnlineDbInfo;

/* Status array size a caller of VEXODiskDbDownload passes (indexes 0 to 6). */
#define VEXO_DISK_DB_STATUS_COUNT 7
/* The rows that every table starts with. */
#define VEXO_DISK_DB_FIXED_ROWS 8

VEXO_API int VEXODiskUpdateServerUrlGet(char *url, int urlSize);
VEXO_API int VEXODiskServerUrlGet(char *url, int urlSize);
VEXO_API int VEXODiskServerUrlAssemble(char *url, int urlSize, const char *base, const char *key, const char *value,
				       int valueSize);
VEXO_API int VEXODiskUpdateOfflineJsonPathGet(char *path, int pathSize);
/* The row count with *rows a malloc'ed array (free() it), or -1. */
VEXO_API int VEXODiskOnlineDbInfoGet(DiskOnlineDbInfo **rows);
/* Applies the index at jsonPath (always removed). 0, or -1 with the core
   error set; status[row.statusIndex] becomes -1 for each failed row. */
VEXO_API int VEXODiskDbDownload(const char *jsonPath, DiskOnlineDbInfo *rows, int rowCount, const char *timeFile,
				int *status);
/* Installs source as target. 0, or negative. */
VEXO_API int VEXODiskDbApply(const char *source, const char *target, int copyToTmp, const char *md5, int checkModel);
VEXO_API int VEXOIsValidDbWithModel(const char *path);
VEXO_API int VEXODiskModelReplaceName(const char *format, char *out, int outSize);
VEXO_API int VEXODiskDbUpdateLock(const char *name, int *fd);
VEXO_API int VEXODiskDbUpdateUnlock(int fd);
/* 0 updated, 1 nothing to do, 2 failed. */
VEXO_API int VEXOEunitDiskDbUpdate(const char *unitModel, int force);
VEXO_API int VEXODiskUpdateDBOffline(int force);
VEXO_API int DiskDbLastUpdateTimeGet(time_t *updateTime);
VEXO_API int VEXODiskPreviousOfflineKitVersionGet(void);
VEXO_API int VEXODiskUploadOfflineKitVersionGet(void);
VEXO_API int VEXODiskOfflineKitVerUpdate(int version);
VEXO_API int VEXODiskOperationTemperatureUpdate(void);

/*
 * Extension for the appliance's own tools (version node VEXOHW_EXT_0): a
 * whole update, online or from a kit, reported database by database.
 */

/* What happened to one database. */
#define VEXO_DISK_DB_CURRENT 0   /* the installed one is as new as the offer */
#define VEXO_DISK_DB_NEWER 1     /* the offer is newer (status only) */
#define VEXO_DISK_DB_INSTALLED 2 /* the offer was installed */
#define VEXO_DISK_DB_FAILED 3    /* the offer was bad or could not be installed */
#define VEXO_DISK_DB_ABSENT 4    /* the index offers nothing for it */

typedef struct VEXODiskDbEvent {
	const char *name;         /* the index key, expanded */
	const char *dbPath;       /* the installed file (appliance path) */
	int32_t state;            /* VEXO_DISK_DB_* */
	int32_t installedVersion; /* -1: none readable */
	int32_t installedRelease; /* -1: none */
	int32_t offeredVersion;   /* -1: not offered */
	int32_t offeredRelease;   /* -1: not offered */
	int32_t error;            /* the core error of a failure, else 0 */
} VEXODiskDbEvent;

typedef void (*VEXODiskDbEventFunction)(const VEXODiskDbEvent *event, void *context);

/*
 * Updates the host's databases under the update lock: kit null fetches the
 * index and the newer databases from the update server; otherwise kit is
 * an offline kit (a signed package archive, appliance path), unpacked to
 * /var/lib/offlinekit, and the host's and the expansion units' databases
 * are taken from it. force installs whatever the versions say (the
 * checksum still holds). onEvent (may be null) hears of every database.
 * 0 updated, 1 nothing to do, 2 failed (core error set).
 */
VEXO_API int VEXOExtDiskDbUpdate(const char *kit, int force, VEXODiskDbEventFunction onEvent, void *context);
/*
 * Reports every database of the host as VEXOExtDiskDbUpdate would treat it,
 * without installing anything: with online non-zero the server's index is
 * fetched, else only the installed versions are reported (state ABSENT).
 * 0, or -1 when the index cannot be had (core error set).
 */
VEXO_API int VEXOExtDiskDbStatusGet(int online, VEXODiskDbEventFunction onEvent, void *context);

VEXO_END_DECLS

#endif
