/*
 * Firmware status of the maker's own drives, from the compatibility
 * database: is there a newer firmware, must the system be updated first, or
 * does the database lack the drive's firmware. Pure C.
 *
 * Status values, and their text (VEXOSBFirmStatusTransfer):
 *   0 "do_nothing"          nothing to do; every drive of another maker
 *   1 "new_firm_available"  a newer firmware that works now is available
 *   2 "update_vos"          update or promote the system first
 *   3 "update_firm"         the current firmware is not usable now; a newer
 *                           one is available
 *   4 "update_db"           the database has no entry for the firmware
 *   5 "do_nothing"          as 3 without a candidate that can be had yet
 *
 * Per-disk cache values (/run/vexostorage/disks/<name>/), written by
 * VEXOSBDriveFirmInfoCacheUpdImp under firm_status_from_db.lock:
 *   firm_status_from_db   the status text
 *   sug_firm_upd_ver      status 1 or 3: the firmware to take
 *   sug_update_vos        status 2: the pending update's version ("7.2")
 *                         when updating the system cures the drive
 *   sug_promote_vos       status 2: likewise the pending promotion's version
 *   firm                  the firmware revision read from the drive
 * The sug_* values of an earlier status are removed first.
 *
 * The firmware server's list of published builds is kept in
 * /run/vexostorage/disk_firm_server_info (a JSON array of {"model",
 * "fw_buildnumber"}), asked for at most once an hour.
 */
#ifndef VEXOHW_FW_STATUS_H
#define VEXOHW_FW_STATUS_H

#include <stdint.h>
#include <vexohw/compat.h>
#include <vexohw/vexo_export.h>

VEXO_BEGIN_DECLS

#define VEXO_FW_STATUS_DO_NOTHING 0
#define VEXO_FW_STATUS_NEW_FIRM_AVAILABLE 1
#define VEXO_FW_STATUS_UPDATE_VOS 2
#define VEXO_FW_STATUS_UPDATE_FIRM 3
#define VEXO_FW_STATUS_UPDATE_DB 4
#define VEXO_FW_STATUS_NO_CANDIDATE 5

/* One firmware as the decision compares it. In the three compatibility
 * fields 1 is "support" and 2 "not_in_support"; 0 means not asked. */
typedef struct FirmwareCandidate {
	int32_t build;                 /* "fw_buildnumber" */
	char firmBin[64];              /* "firm_bin" */
	char firmware[64];             /* the firmware key */
	int32_t available;             /* 1 if it can be had */
	int32_t compatibleNow;         /* at the running system version */
	int32_t compatibleAtUpdate;    /* at the pending update's version */
	int32_t compatibleAtPromotion; /* at the pending promotion's version */
} FirmwareCandidate;

/* The status from the current firmware and the best newer one; hasEntry 0
 * (the database lacks the current firmware) gives 4. Null pointers give 0. */
VEXO_API int DiskFirmStatusDecide(int hasEntry, const FirmwareCandidate *current, const FirmwareCandidate *best);

/* The status of a disk against the database at dbPath, and in info what
 * goes with it (cleared and filled when the status is not 0). With
 * useGivenVersions 0 the pending versions are asked for; otherwise a
 * non-null updateVersion / promotionVersion ("%d.%d") is taken as pending.
 * Every failure gives 0. */
VEXO_API int SBDiskFirmStatusAndUpdateInfoGetByDbPath(const char *disk, const char *dbPath, int useGivenVersions,
						      const char *updateVersion, const char *promotionVersion,
						      DiskFirmInfo *info);
/* As above with the disk's live database. */
VEXO_API int VEXOSBDiskFirmStatusAndUpdateInfoGet(const char *disk, int useGivenVersions, const char *updateVersion,
						  const char *promotionVersion, DiskFirmInfo *info);

/* The pending system update and promotion: each flag 0 or 1, each version
 * "%d.%d" when its flag is set. 0, or -1 (bad arguments, failed query). */
VEXO_API int VEXOFirmStatusVOSUpgradeCacheGet(int *hasUpdate, char *updateVersion, int updateSize, int *hasPromotion,
					      char *promotionVersion, int promotionSize);

/* Refreshes the disk's firmware values. 0; 0 without touching anything for
 * a drive of another maker; -1 on failure. */
VEXO_API int VEXOSBDriveFirmInfoCacheUpdImp(const char *disk, int useGivenVersions, const char *updateVersion,
					    const char *promotionVersion);
VEXO_API int VEXOSBDriveFirmInfoAndUpdateInfoCacheUpdate(const char *disk);

/* Status to text ("do_nothing" for every value but 1 to 4); 0, or -1 for a
 * null out or a size below 1 (nothing written). A text cut to outSize still
 * gives 0. */
VEXO_API int VEXOSBFirmStatusTransfer(int status, char *out, int outSize);
/* Text of 1 to 4 to status; 0 for null or any other text. */
VEXO_API int VEXOSBFirmStatusStringTransfer(const char *text);

VEXO_END_DECLS

#endif
