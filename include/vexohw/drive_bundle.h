/*
 * Drive firmware bundle: the upgrade state word, the per-drive plan file,
 * the flag files and their locks, and the run that flashes a plan. Pure C.
 *
 * Files (appliance paths):
 *   /var/run/drive-bundle/upgrade_state        the state word (key upgrade_state)
 *   /var/run/drive-bundle/upgrade_state.lock   its lock
 *   /var/run/drive-bundle/fw-upgrade-conf.lock lock of every plan file
 *   /var/run/drive-bundle/current.conf         working copy of a plan during a run
 *   /var/run/drive-bundle/fw-upgrade-on-shutdown  flag: upgrade at shutdown
 *   /var/lib/drive-bundle/fw-upgrade/current.conf  link to the plan in force
 *   /var/lib/drive-bundle/notification-source, launch-summary-source
 *   /run/vexostorage/disks/<name>/firm_upgrading.pid
 */
#ifndef VEXOHW_DRIVE_BUNDLE_H
#define VEXOHW_DRIVE_BUNDLE_H

#include <stdint.h>
#include <vexohw/disk.h>
#include <vexohw/vexo_export.h>
#include <vexoplatform/vexocore.h>

VEXO_BEGIN_DECLS

/* The state word. A missing file is VEXO_FW_UPGRADE_DO_NOTHING. */
#define VEXO_FW_UPGRADE_DO_NOTHING 0     /* "do_nothing" */
#define VEXO_FW_UPGRADE_GOING_TO_START 1 /* "going_to_start" */
#define VEXO_FW_UPGRADE_UPGRADING_ALL 2  /* "upgrading_all" */
#define VEXO_FW_UPGRADE_POST_HANDLE 3    /* "post_handle" */

/* upgrade_status of one drive. */
#define VEXO_FW_DRIVE_NOT_STARTED 0
#define VEXO_FW_DRIVE_IN_PROGRESS 1
#define VEXO_FW_DRIVE_SUCCESS 2
#define VEXO_FW_DRIVE_FAILED (-1)        /* before or outside the flashing */
#define VEXO_FW_DRIVE_VANISHED (-3)      /* the device went away */
#define VEXO_FW_DRIVE_COMMAND_FAILED (-4) /* the command failed or the version is not the one wanted */

#define VEXO_FW_UPGRADE_DIR "/var/lib/drive-bundle/firmware/"
#define VEXO_FW_UPGRADE_CURRENT_LINK "/var/lib/drive-bundle/fw-upgrade/current.conf"
#define VEXO_FW_UPGRADE_WORKING_CONF "/var/run/drive-bundle/current.conf"

/* One drive of a plan: one section of the plan file, named by id. */
typedef struct DB_FW_UPGRADE_CONFIG {
	char id[64];
	char drive_path[4096];
	char firmware[64];
	char available_firmware[64];
	char available_firmware_binary[64];
	char *ui_json; /* owned; freed with the list */
	int32_t fw_build_number;
	int32_t upgrade_status;
	int32_t download_retry_cnt;
	int32_t activate_retry_cnt;
	int32_t pid; /* the child flashing it during a run; not stored */
	struct DB_FW_UPGRADE_CONFIG *next;
} DB_FW_UPGRADE_CONFIG;

/* ---- State word ---------------------------------------------------------- */

/* The state, or -1. lock non-zero: read under upgrade_state.lock (10 s). */
VEXO_API int VEXODriveBundleFWUpgradeStateGet(int lock);
/* Writes state 0..3 under the lock. 0 or -1. No transition check. */
VEXO_API int VEXODriveBundleFWUpgradeStateSet(int state);
/* on: state 1, else 0. 0 or -1. */
VEXO_API int VEXODriveBundleFWUpgradeStateGoingToStartChange(int on);
/* The shutdown flag and the state together; the flag is put back when
   the state cannot follow. 0 or -1. */
VEXO_API int VEXODriveBundleFWUpgradeOnShutdownSet(int on);
/* 1 when the state is 0, 0 when not, -1 on failure. */
VEXO_API int VEXODriveBundleFWUpgradeFinishCheck(void);
/* 1 when the drive is being flashed (or a run is booked), 0, or -1. */
VEXO_API int VEXODriveBundleFWUpgradeIsUpgrading(const char *diskPath);
/* For the user interface: 1 upgrading, 2 new firmware, 3 firmware must be
   updated, 4 system update needed first, 5 database update needed, else 0;
   -1 on bad arguments. */
VEXO_API int VEXODriveBundleFWUpgradeStatusGet(const DiskInfo *diskInfo);
/* The firmware status word of a drive (1..4 as the compatibility database
   gives it), 0 for none or a failing drive. useCache: the SMART overview
   from the caches only. */
VEXO_API int VEXODriveBundleFirmStatusGet(const char *disk, int useCache);

/* ---- Plan files ---------------------------------------------------------- */

/* The drives of a plan file into *list (NULL when none): the count, or -1.
   A missing file has 0 drives. */
VEXO_API int VEXODriveBundleFWUpgradeConfigGet(const char *path, DB_FW_UPGRADE_CONFIG **list);
VEXO_API void VEXODriveBundleFWUpgradeConfigFree(DB_FW_UPGRADE_CONFIG *list);
/* Writes config's section (config->id) into path, whole file replaced. 0 or -1. */
VEXO_API int VEXODriveBundleFWUpgradeConfigSet(const char *path, const DB_FW_UPGRADE_CONFIG *config);
/* One hash per drive (keys as in the plan file plus "id") into
   hashes[0..max-1], from the plan the current link, notification-source or
   launch-summary-source names. The count, or -1. Free each with
   VLIBCSzHashFree. */
VEXO_API int VEXODriveBundleFWUpgradeConfigInfoGetByCurrent(PVLIBSZHASH *hashes, int max);
VEXO_API int VEXODriveBundleFWUpgradeConfigInfoGetByNotification(PVLIBSZHASH *hashes, int max);
VEXO_API int VEXODriveBundleFWUpgradeConfigInfoGetByAutoLaunch(PVLIBSZHASH *hashes, int max);
/* on: writes path into the flag file; off: deletes it (path must be NULL). 0 or -1. */
VEXO_API int VEXODriveBundleFWUpgradeNotificationSet(int on, const char *path);
VEXO_API int VEXODriveBundleFWUpgradeLaunchSummarySet(int on, const char *path);
/* The device paths of the plan in force, appended to *list (allocated when
   NULL; free with VLIBCSzListFree). The count, or -1. */
VEXO_API int VEXODriveBundleFWUpgradeDrivesGet(PVLIBSZLIST *list);

/* ---- Helpers -------------------------------------------------------------- */

VEXO_API int VEXODriveBundleCheckDirExistOrCreate(const char *path);
/* Creates (on) or removes the file: 1 changed, 0 already so, -1. */
VEXO_API int DBFlagSet(const char *path, int on);
/* Removes path when it is a symbolic link. 0 or -1. */
VEXO_API int DBRemoveLinkIfExist(const char *path);
/* Replaces the file's content with text (tmp and rename). 0 or -1. */
VEXO_API int DBWriteToFile(const char *path, const char *text);
/* on: writes text over the file's start without truncating; off: deletes
   it. text is required exactly when on. 0 or -1. */
VEXO_API int DBWriteOrDeleteFile(int on, const char *path, const char *text);
/* The file's first size-1 bytes, trailing white space cut. Length or -1. */
VEXO_API int DBReadFromFile(const char *path, char *out, int size);
/* The target of a link, resolved. 0 or -1. */
VEXO_API int DBRealityPathGet(const char *link, char *out, int size);
/* config's keys into *hash (allocated when NULL); flag non-zero adds "id". 0 or -1. */
VEXO_API int DBConfigObjToHash(const DB_FW_UPGRADE_CONFIG *config, PVLIBSZHASH *hash, int flag);
/* From hash: a strdup'ed value (*out untouched when absent); a copy into
   out; a decimal value. 1 copied, 0 absent, -1 failure. */
VEXO_API int DBDupStrIfExist(PVLIBSZHASH hash, const char *key, char **out);
VEXO_API int DBCopyStrIfExist(PVLIBSZHASH hash, const char *key, char *out, int size);
VEXO_API int DBCopyIntIfExist(PVLIBSZHASH hash, const char *key, int32_t *out);

/* /etc/vexoinfo.conf, else /etc.defaults/vexoinfo.conf copied into the
   former. 0 or -1. */
VEXO_API int SBSettingValueGet(const char *key, char *out, int size);
/* drive_firmware_download_timeout as text, default "60". 0 or -1. */
VEXO_API int DBGetFWDownloadTimeout(char *out, int size);
/* drive_cmd_timeout (default 30), drive_firmware_download_all_timeout (default 100). 0 or -1. */
VEXO_API int DBGetDriveCmdTimeout(int *seconds);
VEXO_API int DBGetFWDownloadAllTimeout(int *seconds);

/* ---- The run --------------------------------------------------------------- */

/* Flashes one drive with the binary firmwareFile of the firmware folder:
   download (up to four attempts) then activate, within timeout seconds in
   all (the setting drive_firmware_update_timeout overrides it). The
   attempt numbers of the last tries go to the two outputs. 0 or -1. */
VEXO_API int VEXODriveBundleFWUpgrade(const char *drive, const char *firmwareFile, int timeout,
				      int *downloadRetries, int *activateRetries);
/* 1 when the binary and its .FW_INFO exist and its MD5 matches; 0 when
   not (both files are then removed); -1 on bad arguments. */
VEXO_API int VEXODriveBundleFWUpgradeFirmwareBinaryValidate(const char *firmwareFile);
/* Runs a whole plan, every drive at once in a child of its own: state
   going_to_start -> upgrading_all -> do_nothing (post_handle at early boot).
   Per-drive outcomes go to the plan's sections and to
   /var/lib/drive-bundle/fw-upgrade/result.log. 0 when the machinery worked. */
VEXO_API int DBFWUpgradeByConfig(const char *configPath, int atEarlyBootup, int updateStatus);
/* mode "update-status", "not-update-status" or "at-early-bootup", on the
   plan the current link names. 0 or -1. */
VEXO_API int DBFWUpgradeByConfigAndPrepareSummary(const char *mode);
/* Runs the bundle tool on the plan in force. 0 or -1. */
VEXO_API int VEXODriveBundleFWUpgradeByConfig(void);
/* Writes a plan into path: a section (status 0) for each of the device
   paths in drives whose model has a binary in the firmware folder (its
   .FW_INFO names "model", "firmware" and "build_number") of another revision
   than the drive's. A sleeping drive is not woken. The count, or -1. */
VEXO_API int VEXODriveBundleFWUpgradeConfigGenToFile(const char *path, PVLIBSZLIST drives);
/* As above for every drive of the maker whose cached firmware status
   ("new_firm_available" or "update_firm") suggests a revision
   (sug_firm_upd_ver) that a binary in the firmware folder holds. The count,
   or -1. */
VEXO_API int VEXODriveBundleFWUpgradeConfigGenToFileByDB(const char *path);
/* Appends the device paths of the present drives of the maker to *list
   (allocated by the caller). The count, or -1. */
VEXO_API int VEXODriveBundleDiskEnum(PVLIBSZLIST *list);
/* Records each drive's outcome in the system log ("disk" events 80 upgraded,
   81 failed: model, the plan's id as serial, and as details where the disk
   stands (VEXODiskLocateHostGet), its mail identity (DiskIdToMailString),
   the firmware before and the one wanted), and one log line. What of the
   disk's name cannot be had is logged and left empty. 0, or -1 when the
   plan cannot be read or a record cannot be written. */
VEXO_API int VEXODriveBundleFWupgradeLogUpgradeResults(const char *configPath);

/* ---- Firmware from the server ---------------------------------------------- */

/* The firmware server's answer (general, for a model and build number, or
   the latest for a model) appended to *buffer as VEXODiskMiscCurlToBuffer
   does; the caller frees *buffer. 0 or -1 (0x1100: no network, not logged). */
VEXO_API int VEXODriveBundleOnlineFirmwareInfoGet(char **buffer, int *size);
VEXO_API int VEXODriveBundleOnlineFirmwareInfoGetByModel(const char *model, int version, char **buffer, int *size);
VEXO_API int VEXODriveBundleOnlineFirmwareInfoGetLastestByModel(const char *model, char **buffer, int *size);
/* Fetches the archive the server names for model (latest non-zero: the
   latest, else build `version`) into targetPath after a space check.
   0 or -1 with the error set (0x9A00 bad answer, 0x2900 no space, 0x1100). */
VEXO_API int VEXODriveBundleFWSADownload(const char *model, int latest, int version, const char *targetPath);
/* Verifies and unpacks a firmware archive, then moves each binary and its
   .FW_INFO into the firmware folder. 0 or -1. */
VEXO_API int VEXODriveBundleFWSAExtract(const char *archive);
/* flag of VEXODriveBundleFWDownloadByDB: fetch again even what the
   firmware folder already holds whole. */
#define VEXO_FW_DOWNLOAD_AGAIN 1
/* Fetches and stores the firmware the present drives of the maker need:
   for each drive the database of its holder in databaseDirectory (NULL:
   the live folder, VEXO_COMPAT_DB_DIR) decides its firmware status; a
   status of "new_firm_available" or "update_firm" names a firmware by model
   and build number, fetched once per model and build into
   <rootPrefix>/var/lib/drive-bundle/fw-tmp/ (rootPrefix NULL or "" for
   none), unpacked into the firmware folder, and then the archive is
   removed. A binary already there and whole is not fetched again unless
   flag has VEXO_FW_DOWNLOAD_AGAIN. An archive that does not hold the
   binary the database names is a failure. 0 when everything needed is on
   the box, -1 when any failed (core error of the last failure; 0x1100: the
   server could not be reached). */
VEXO_API int VEXODriveBundleFWDownloadByDB(const char *rootPrefix, const char *databaseDirectory, int flag);
/* The same search against the databases in
   /var/lib/drive-bundle/diskaction/, without a transfer: *needed the
   number of drives whose firmware status names a newer firmware, *ready
   how many of them have that binary whole in the firmware folder (a
   plan can be made for those). 0 or -1. */
VEXO_API int VEXODriveBundleFWupgradeUpgradeNeededGetByDB(int *needed, int *ready);
/* Stores the firmware of an offline kit (kitDir/firmware/firmware.json: an
   object, or a list of objects, with "model" and "file", the archive beside
   it) for the models present in the box. 0, or -1 when any failed. */
VEXO_API int VEXODriveBundleUpdateFirmwaresFromOfflineKit(const char *kitDir);
/* 0 when the firmware server answers, -1 when not. */
VEXO_API int VEXOOnlineFWCheck(void);
/* 0 when the drive database server answers its update query, -1 when not
   (core error 0x1100 when it cannot be reached). */
VEXO_API int VEXOOnlineDBCheck(void);
/* 1 both servers answer; 0 every failure was the network's (core error
   0x1100); -1 otherwise. */
VEXO_API int VEXOOnlineDBAndFWCheck(void);

/* The bundle settings of a drive model, from its entry in the drive
   attribute database (<vexohw/attr_db.h>). Numbers there are JSON numbers
   or strings read in base 0; a text longer than its buffer makes the entry
   damaged. */
typedef struct DriveBundleModelConf {
	int isBundle;                          /* "is_bundle": 1 for "yes" (or a non-zero number) */
	char availableFirmware[64];            /* "available_firmware": the build to run */
	char availableFirmwareBinary[256];     /* "available_firmware_binary": its file name */
	unsigned int mask;                     /* "mask": feature bits of the model */
	int order;                             /* "order": place in an upgrade run, low first */
	unsigned int laterBadBlockCount;       /* "later_bad_block_count" */
	unsigned int badBlockCntThr;           /* "bad_block_cnt_thr": 0 means no bad-block check */
	unsigned int avgEraseCount;            /* "avg_erase_count": rated erase cycles */
	char bundleSmartAttrs[256];            /* "bundle_smart_attrs": see VEXOSSDBundleSmartInfoGet */
	char bundleReserve1[256];              /* "bundle_reserve_1" */
} DriveBundleModelConf;

/* The settings of the disk's model into *conf (written only on 0). 0 the
   model is a bundle drive; 1 the database has no entry for the model; 2 the
   entry says it is not a bundle drive; -1 the database or the model can't
   be read, or a member has the wrong type (0x0A00). A missing member reads
   0 or "". */
VEXO_API int VEXODriveBundleModelConfGet(const char *path, DriveBundleModelConf *conf);

/* ---- Extension (VEXOHW_EXT_0) ---------------------------------------------- */

/* One binary of the firmware folder, as its .FW_INFO names it. */
typedef struct VEXOFirmwareBinary {
	char file[64];     /* the binary's name in the firmware folder */
	char model[128];   /* "model" */
	char firmware[64]; /* "firmware": the revision it holds */
	int32_t build;     /* "build_number", 0 when absent */
} VEXOFirmwareBinary;
/* The firmware folder's index: the binaries whose .FW_INFO names a model
   and a firmware, by file name; the first max of them into out (null when
   max is 0). The number of binaries, which may exceed max, or -1. */
VEXO_API int VEXOExtDriveBundleFirmwareIndexGet(VEXOFirmwareBinary *out, int max);

VEXO_END_DECLS

#endif
