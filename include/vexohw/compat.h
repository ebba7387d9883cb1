/*
 * Compatibility verdicts: how a drive is classed on this appliance model
 * and system version, and what the user interface and the notifications
 * may do with it. Two read-only JSON files decide, a database per
 * enclosure and a rule file; their formats are described in
 * src/disk/compat_db.h. Pure C.
 *
 * The disk argument is always a device path such as "/dev/sda".
 *
 * The JSON arguments of the lower-level lookups (dbMapping, modelNode,
 * firmwareNode, interval, properties) are jsoncpp values (Json::Value)
 * owned by the caller; they are therefore usable from C++ only. A null
 * output pointer means "not wanted".
 */
#ifndef VEXOHW_COMPAT_H
#define VEXOHW_COMPAT_H

#include <vexohw/vexo_export.h>

VEXO_BEGIN_DECLS

struct json_object;

/* Compatibility status. */
typedef enum _tag_VEXO_DISK_COMPATIBILITY {
	VEXO_DISK_COMPATIBILITY_UNKNOWN = 0,
	VEXO_DISK_COMPATIBILITY_SUPPORT = 1,
	VEXO_DISK_COMPATIBILITY_NOT_IN_SUPPORT = 2,
	VEXO_DISK_COMPATIBILITY_NOT_SUPPORT = 3,
	VEXO_DISK_COMPATIBILITY_DISABLED = 4,
	VEXO_DISK_COMPATIBILITY_FORBIDDEN = 5,
	VEXO_DISK_COMPATIBILITY_FOR_EUNIT = 6,
	VEXO_DISK_COMPATIBILITY_FW_UPGRADE_REQUIRED = 7
} VEXO_DISK_COMPATIBILITY;

/* The live databases and rule files. */
#define VEXO_COMPAT_DB_DIR "/var/lib/disk-compatibility/"
#define VEXO_COMPAT_DB_SUFFIX "_v7.db"
#define VEXO_COMPAT_HOST_RULE "/var/lib/disk-compatibility/host_rule.db"
#define VEXO_COMPAT_EUNIT_RULE "/var/lib/disk-compatibility/eunit_rule.db"
/* Per-disk cache keys under /run/vexostorage/disks/<name>/. */
#define VEXO_COMPAT_ACTION_KEY "compatibility_action"
#define VEXO_COMPAT_SMART_TEST_IGNORE_KEY "smart_test_ignore"
#define VEXO_COMPAT_SMART_ATTR_IGNORE_KEY "smart_attr_ignore"

/* What the rules allow for a disk. Every flag is a 32-bit boolean. */
typedef struct DiskCompatibilityAction {
	int notification;		/* default 1 */
	int selectable;			/* default 1 */
	int alert;			/* default 1 */
	char ui_compatibility[32];	/* default "not_in_support" */
	int hide_is4Kn;			/* default 0 */
	int hide_serial;		/* default 0 */
	int hide_temperature;		/* default 0 */
	int hide_unc;			/* default 0 */
	int hide_remain_life;		/* default 0 */
	int hide_sb_days_left;		/* default 0 */
	int hide_alloc_status;		/* default 0 */
	int show_lifetime_chart;	/* default 1 */
	int send_health_report;		/* default 1 */
	int notify_unc;			/* default 1 */
	int notify_lifetime;		/* default 1 */
	int notify_health_status;	/* default 1 */
	int can_select_after_fwupgrade; /* default 0 */
} DiskCompatibilityAction;

/* The newest firmware of a model (VEXODiskCompatibilityLatestFWInfoGet). */
typedef struct DiskFirmInfo {
	char firmware[64];
	char firm_bin[64];
	int fw_buildnumber;
	int updateVosSuggested;
	int promoteVosSuggested;
} DiskFirmInfo;

/* Verdicts. Failed preconditions give 0 (unknown); every failure of the
 * lookup itself gives 2 (not_in_support). force non-zero skips the check of
 * whether this appliance model uses compatibility checks at all. */
VEXO_API int VEXODiskCompatibilityGet(const char *disk, int force);
VEXO_API int VEXODiskCompatibilityGetWithoutHealthStatus(const char *disk, int force);
VEXO_API int VEXODiskCompatibilityByVerGet(const char *disk, unsigned int base, unsigned int nano, int force);
VEXO_API int VEXODiskCompatibilityByPathGet(const char *disk, const char *dbPath);

/* Database paths: 0 or -1. dir ends in "/". */
VEXO_API int VEXODiskCompatibilityDBPathGet(const char *disk, char *out, int outSize);
VEXO_API int VEXODiskCompatibilityDBPathGetByDir(const char *disk, const char *dir, char *out, int outSize);

/* Model, firmware and optionally the database path and the running system
 * version ("%u.%u") of a disk. 1 or 0. */
VEXO_API int GetCompatibilityBasicInfo(const char *disk, char *model, int modelSize, char *firmware, int firmwareSize,
				       const int *wantDbPath, char *dbPath, int dbPathSize, const int *wantVersion,
				       char *version, int versionSize);

/* The lookup in one database file. Returns a status; dbMapping, modelNode
 * and firmwareNode (Json::Value *) receive what was found. */
VEXO_API int GetCompatibilityFromDiskCompatibilityInfo(const char *dbPath, const char *model, const char *firmware,
						       const char *version, const int *strict, void *dbMapping,
						       void *modelNode, void *firmwareNode);
/* The interval object (Json::Value *) for a version. 0 or -1. */
VEXO_API int GetBehaviorFromDiskCompatibilityInfo(const char *dbPath, const char *model, const char *firmware,
						  const char *version, const int *strict, void *interval);
/* The status of a firmware entry (const Json::Value *) at a version; the
 * mapping (const Json::Value *, may be null) names extra words. 1 or 0. */
VEXO_API int GetCompatibilityByNode(const void *firmwareNode, const char *version, const void *dbMapping,
				    int *status);

/* The firmware with the greatest build number: 1 found, 0 none usable,
 * -1 the database could not be read. */
VEXO_API int VEXODiskCompatibilityLatestFWInfoGet(const char *model, const char *dbPath, DiskFirmInfo *info);
/* The string form of a json-c object's member. 0 or -1. */
VEXO_API int VEXOJsonStringObjectGet(struct json_object *object, const char *key, char *out, int outSize);

/* Disk properties for the rules into a Json::Value object; 1 unless disk is
 * null. */
VEXO_API int VEXODiskPropertyGet(const char *disk, void *properties);
/* 1 if the property exists and its text equals value exactly. */
VEXO_API int VEXODiskRulePropertyMatch(const void *properties, const char *key, const char *value);
/* Evaluates the rules and caches the actions of the disk. 0 or -1. */
VEXO_API int VEXODiskActionCacheUpdate(const char *disk);
/* Reads the cached actions; defaults on failure. 0 or -1. */
VEXO_API int VEXODiskCompatibilityActionGet(const char *disk, DiskCompatibilityAction *action);

/* Whether the database says to ignore SMART self-test results or SMART
 * attributes of this disk. 1 or 0. */
VEXO_API int VEXODiskSmartTestResultIgnorable(const char *disk);
VEXO_API int VEXODiskSmartAttributeIgnorable(const char *disk);

/* Status <-> string. Outside 1..7 is "unknown"; an unknown or null string
 * is 0. StatusTransfer returns 0, or -1 on a null out or negative size. */
VEXO_API int VEXODiskCompatibilityStatusTransfer(int status, char *out, int outSize);
VEXO_API int VEXODiskCompatibilityStringTransfer(const char *string);

/* POSIX regular-expression match of text against pattern (regcomp and
 * regexec flags as given); wholeString non-zero requires the match to span
 * all of text. 1 match, 0 none (also for a pattern that does not compile
 * or a null text). */
VEXO_API int VEXODiskConfigMatch(const char *text, const char *pattern, int compileFlags, int execFlags,
				 int wholeString);

VEXO_END_DECLS

#endif
