/*
 * Fan configuration: the models parsed from vcemd.xml (table-driven, ADT
 * and BMC), the enumerations the fan loop shares, and the two registries
 * of operations bound to a parsed record by number. Pure C.
 *
 * What a ...Get or ...Parsing... call builds is freed with the model's
 * free function; a failed parse leaves what it built in the record for
 * that free.
 */
#ifndef VEXOHW_FAN_CONFIG_H
#define VEXOHW_FAN_CONFIG_H

#include <stdint.h>
#include <time.h>
#include <vexohw/vexo_export.h>

VEXO_BEGIN_DECLS

/* Where the models come from (appliance paths). */
#define VEXO_FAN_CONFIG_CUSTOM_FILE "/usr/vexo/etc/vcemd.xml"
#define VEXO_FAN_CONFIG_DEFAULT_FILE "/usr/vexo/etc.defaults/vcemd.xml"
#define VEXO_FAN_DISK_WARNING_FILE "/run/disktempwarning"
#define VEXO_FAN_DISK_WARNING_LOCK "/var/lock/disktempwarning.lock"
/* Board control device and its module type request (fan count). */
#define VEXO_FAN_BOARD_DEVICE "/dev/vexobios"
#define VEXO_FAN_MODULE_TYPE_REQUEST 0xC00C4B1EUL
/* Subsystem vendor id of the maker's own network adapters. */
#define VEXO_FAN_NIC_VENDOR 0x7053
#define VEXO_FAN_MODULE_MAX 8
#define VEXO_FAN_HW_VERSION_SIZE 32

typedef enum FAN_CONFIG_TYPE {
	DUAL_MODE_HIGH = 0,
	DUAL_MODE_LOW = 1,
	DUAL_MODE_LOW_STOP = 2,
	DUAL_MODE_FULL = 3,
	DUAL_MODE_HIGH_EBOX = 4,
	DUAL_MODE_LOW_EBOX = 5,
	DUAL_MODE_FULL_EBOX = 6,
	CPUFAN = 7
} FAN_CONFIG_TYPE;

/* 4 to 9 and 11 to 18 are external adapter fan groups; 0 and 10 unknown. */
typedef enum FAN_CONFIG_NAME {
	FAN_CONFIG_NAME_UNKNOWN = 0,
	FAN_CONFIG_NAME_INTERNAL = 1,
	FAN_CONFIG_NAME_EBOX = 2,
	FAN_CONFIG_NAME_CPUFAN = 3,
	FAN_CONFIG_NAME_NIC_FIRST = 4,
	FAN_CONFIG_NAME_NIC_LAST = 18
} FAN_CONFIG_NAME;

/* A speed code. 1000 and up: 1000 + duty + frequency * 256. */
typedef enum FAN_SPEED {
	FAN_SPEED_UNKNOWN = 0,
	FAN_SPEED_STOP = 1,
	FAN_SPEED_ULTRA_LOW = 2,
	FAN_SPEED_VERY_LOW = 3,
	FAN_SPEED_LOW = 4,
	FAN_SPEED_MIDDLE = 5,
	FAN_SPEED_HIGH = 6,
	FAN_SPEED_VERY_HIGH = 7,
	FAN_SPEED_ULTRA_HIGH = 8,
	FAN_SPEED_FULL = 9,
	FAN_SPEED_BITS_000 = 10,
	FAN_SPEED_BITS_001 = 11,
	FAN_SPEED_BITS_010 = 12,
	FAN_SPEED_BITS_011 = 13,
	FAN_SPEED_BITS_100 = 14,
	FAN_SPEED_BITS_101 = 15,
	FAN_SPEED_BITS_110 = 16,
	FAN_SPEED_BITS_111 = 17,
	FAN_SPEED_DUTY_BASE = 1000,
	FAN_SPEED_CODE_MAX = 0x7FFFFFFF /* codes are stored as they are read */
} FAN_SPEED;

/* Bits: a lookup ORs the actions of its tables. */
typedef enum FAN_ACTION {
	FAN_ACTION_NONE = 0,
	FAN_ACTION_ALERT_LED = 1,
	FAN_ACTION_SHUTDOWN = 2
} FAN_ACTION;

/* 19 and 20 are not in use; 26 ends the range and is never a type. */
typedef enum FAN_TABLE_TYPE {
	FAN_TABLE_UNKNOWN = 0,
	FAN_TABLE_THERMAL = 1,
	FAN_TABLE_DISK = 2,
	FAN_TABLE_CPU = 3,
	FAN_TABLE_EBOX_DISK = 4,
	FAN_TABLE_M2 = 5,
	FAN_TABLE_XNIC01 = 6,
	FAN_TABLE_XNIC02 = 7,
	FAN_TABLE_XNIC03 = 8,
	FAN_TABLE_XNIC04 = 9,
	FAN_TABLE_XNIC05 = 10,
	FAN_TABLE_NIC = 11,
	FAN_TABLE_SAS = 12,
	FAN_TABLE_U2 = 13,
	FAN_TABLE_XNIC06 = 14,
	FAN_TABLE_XNIC08 = 15,
	FAN_TABLE_XNIC09 = 16,
	FAN_TABLE_XNIC11 = 17,
	FAN_TABLE_XNIC12 = 18,
	FAN_TABLE_SYSDISK = 21,
	FAN_TABLE_XNIC07 = 22,
	FAN_TABLE_XNIC13 = 23,
	FAN_TABLE_XNIC14 = 24,
	FAN_TABLE_XNIC10 = 25,
	FAN_TABLE_END = 26
} FAN_TABLE_TYPE;

/* Records of the fan loop, defined with it. */
typedef struct VEXO_FAN_HANDLE VEXO_FAN_HANDLE_T;

typedef struct VEXO_TEMPERATURE_FAN_LEVEL {
	uint32_t temperature; /* lower bound, degrees Celsius */
	FAN_SPEED speed;
	FAN_ACTION action;
	uint32_t period;    /* seconds */
	uint32_t threshold; /* readings */
	int32_t index;      /* position in the table from 0 */
} VEXO_TEMPERATURE_FAN_LEVEL_T;

/* One status node of the fan loop per table. */
typedef struct VEXO_FAN_STATUS {
	uint32_t count;
	int32_t level;
	FAN_SPEED speed;
	FAN_ACTION action;
	uint32_t period;
	time_t last_update;
	uint32_t threshold;
	FAN_TABLE_TYPE table_type;
	int32_t tuned;
	int32_t temperature;
	struct VEXO_FAN_STATUS *next;
} VEXO_FAN_STATUS_T;

/* One reading of a temperature source. */
typedef struct VEXO_FAN_READING {
	int32_t temperature;
	char name[32];
} VEXO_FAN_READING_T;

struct VEXO_FAN_TABLE;

/* Operations of a fan group, found by FAN_CONFIG_NAME. Static records. */
typedef struct VEXO_FAN_CONFIG_OPS {
	FAN_CONFIG_NAME type;
	int (*TemperatureUpdate)(VEXO_FAN_HANDLE_T *handle, struct VEXO_FAN_TABLE *tables, int *flags);
	int (*TableLookUp)(VEXO_FAN_HANDLE_T *handle, struct VEXO_FAN_TABLE *tables, VEXO_FAN_STATUS_T *result);
	int (*IsOverBufferLimit)(VEXO_FAN_HANDLE_T *handle, struct VEXO_FAN_TABLE *tables,
				 VEXO_FAN_STATUS_T *result);
	int (*DebugPrint)(VEXO_FAN_HANDLE_T *handle, struct VEXO_FAN_TABLE *tables, VEXO_FAN_STATUS_T *status,
			  int force_line);
	int (*SpeedChange)(FAN_SPEED speed, VEXO_FAN_HANDLE_T *handle);
	struct VEXO_FAN_CONFIG_OPS *next;
} VEXO_FAN_CONFIG_OPS_T;

/* Operations of a temperature source, found by FAN_TABLE_TYPE. Static records. */
typedef struct VEXO_FAN_TABLE_OPS {
	FAN_TABLE_TYPE type;
	int (*DebugTemperatureGet)(VEXO_FAN_READING_T *reading, VEXO_FAN_HANDLE_T *handle, int *source);
	int (*TemperatureGet)(VEXO_FAN_READING_T *reading, VEXO_FAN_HANDLE_T *handle);
	int (*LevelGet)(VEXO_TEMPERATURE_FAN_LEVEL_T *level, int temperature, struct VEXO_FAN_TABLE *table);
	int (*TemperatureTune)(VEXO_FAN_HANDLE_T *handle, int shutdown_temp);
	struct VEXO_FAN_TABLE_OPS *next;
} VEXO_FAN_TABLE_OPS_T;

typedef struct VEXO_FAN_TABLE {
	FAN_TABLE_TYPE type;
	VEXO_TEMPERATURE_FAN_LEVEL_T *levels; /* owned, count entries */
	uint32_t count;
	VEXO_FAN_TABLE_OPS_T *ops; /* not owned */
	struct VEXO_FAN_TABLE *next;
} VEXO_FAN_TABLE_T;

typedef struct VEXO_FAN_MODULE {
	uint32_t order;
	int32_t module; /* -1 when not given */
} VEXO_FAN_MODULE_T;

typedef struct VEXO_FAN_CONFIG {
	uint32_t period;    /* default 20 */
	uint32_t threshold; /* default 6 */
	uint8_t flag0;      /* not set by parsing; carried into derived records */
	uint8_t flag1;
	char *hw_version; /* owned, 32 bytes, or null */
	int32_t warning_temp;
	FAN_CONFIG_TYPE type;
	FAN_SPEED hibernation_speed;
	VEXO_FAN_TABLE_T *tables;   /* owned, ascending type */
	VEXO_FAN_CONFIG_OPS_T *ops; /* not owned */
	VEXO_FAN_MODULE_T *modules; /* owned, 8 entries, ebox only */
} VEXO_FAN_CONFIG_T;

typedef struct VEXO_FAN_ADJUSTER {
	uint32_t count;
	VEXO_FAN_CONFIG_T *configs; /* owned */
	uint32_t reserved;          /* always zero */
} VEXO_FAN_ADJUSTER_T;

/* ---- ADT model ----------------------------------------------------------- */

typedef struct VEXO_ADT_ALERT {
	FAN_TABLE_TYPE name; /* 0 for an unknown name */
	int32_t alert_temp;
	int32_t underclock_temp;
	int32_t turbo_temp;
	int32_t shutdown_temp;
	int32_t threshold;
	int32_t period;
	int32_t full_speed;
	int32_t full_speed_hyst; /* full_speed minus the attribute */
	struct VEXO_ADT_ALERT *next;
} VEXO_ADT_ALERT_T;

typedef struct VEXO_ADT_SENSOR {
	uint32_t name; /* 0-3 peci0-3, 4 remote1, 5 local, 6 remote2, 7 other */
	int32_t min;
	int32_t therm;
	int32_t range;
	int32_t crit_hyst; /* therm minus the attribute */
	struct VEXO_ADT_SENSOR *next;
} VEXO_ADT_SENSOR_T;

#define VEXO_ADT_SENSOR_TYPE_MANUAL 2

typedef struct VEXO_ADT_PWM {
	uint32_t name;        /* 1-3 for pwm1-3, else 0 */
	uint32_t sensor_type; /* 2 manual ... 13 remote2, 0 other */
	uint8_t high_freq;
	uint8_t pwm_duty_low;
	uint8_t pwm_duty_high;
	uint8_t pwm_min_below_tmin; /* default 1 */
	struct VEXO_ADT_PWM *next;
} VEXO_ADT_PWM_T;

typedef struct VEXO_ADT_FAN_MAPPING {
	uint32_t order;
	int32_t module; /* -1 when not given */
	uint32_t pwm;
} VEXO_ADT_FAN_MAPPING_T;

typedef struct VEXO_ADT_MANUAL_LEVEL {
	uint32_t temp;
	uint32_t fan_speed; /* a plain number */
	uint32_t threshold;
	uint32_t period;
	int32_t index;
} VEXO_ADT_MANUAL_LEVEL_T;

typedef struct VEXO_ADT_MANUAL_TABLE {
	FAN_TABLE_TYPE type;
	VEXO_ADT_MANUAL_LEVEL_T *levels;
	uint32_t count;
	struct VEXO_ADT_MANUAL_TABLE *next;
} VEXO_ADT_MANUAL_TABLE_T;

typedef struct VEXO_ADT_CONFIG {
	FAN_CONFIG_TYPE type;
	char *hw_version;
	int32_t full_speed;
	int32_t full_speed_hyst; /* full_speed minus the attribute */
	int32_t peci_offset;
	int32_t skip_check_temp;
	VEXO_ADT_ALERT_T *alerts;
	VEXO_ADT_SENSOR_T *sensors;
	VEXO_ADT_PWM_T *pwms;
	VEXO_ADT_FAN_MAPPING_T *fan_mapping; /* fan_mapping_count entries */
	VEXO_ADT_MANUAL_TABLE_T *manual_tables;
	uint32_t fan_mapping_count; /* the board's fan count when parsed */
} VEXO_ADT_CONFIG_T;

typedef struct VEXO_ADT_ADJUSTER {
	uint32_t count;
	VEXO_ADT_CONFIG_T *configs;
} VEXO_ADT_ADJUSTER_T;

/* ---- BMC model ----------------------------------------------------------- */

typedef struct VEXO_BMC_ALERT {
	FAN_TABLE_TYPE name; /* disk, sysdisk, cpu, m2, sas, u2; else 0 */
	int32_t alert_temp;
	int32_t shutdown_temp;
	int32_t threshold;
	int32_t period;
	int32_t fullspd_temp;
	int32_t fullspd_hyst; /* as written */
	struct VEXO_BMC_ALERT *next;
} VEXO_BMC_ALERT_T;

typedef struct VEXO_BMC_CONFIG {
	FAN_CONFIG_TYPE type;
	char *hw_version;
	uint32_t value0; /* the first three are not set by parsing */
	uint32_t value1;
	uint32_t value2;
	uint32_t alert_duty;
	VEXO_BMC_ALERT_T *alerts;
	uint32_t *fan_mapping; /* order of each fan, fan_mapping_count entries */
	uint32_t fan_mapping_count;
} VEXO_BMC_CONFIG_T;

typedef struct VEXO_BMC_ADJUSTER {
	uint32_t count;
	VEXO_BMC_CONFIG_T *configs;
} VEXO_BMC_ADJUSTER_T;

/* libxml2's element node, for the element parsers. */
struct _xmlNode;

/* ---- Building and freeing the models --------------------------------------
 * first == 1: *model is taken as uninitialised and zeroed; otherwise what it
 * holds is freed first. 0, or -1. */
VEXO_API int VEXOFanAdjusterGet(VEXO_FAN_ADJUSTER_T *model, int first);
VEXO_API int VEXOFanADTAdjusterGet(VEXO_ADT_ADJUSTER_T *model, int first);
VEXO_API int VEXOFanBMCAdjusterGet(VEXO_BMC_ADJUSTER_T *model, int first);
/* Free every list and array of each config, then the array; zero the record. Null accepted. */
VEXO_API void VEXOAdjusterModelFree(VEXO_FAN_ADJUSTER_T *model);
VEXO_API void VEXOAdjusterADTModelFree(VEXO_ADT_ADJUSTER_T *model);
VEXO_API void VEXOAdjusterBMCModelFree(VEXO_BMC_ADJUSTER_T *model);

/* One file (an appliance path) into the model. 0, or -1. */
VEXO_API int VEXOFanParsingConfig(const char *path, VEXO_FAN_ADJUSTER_T *model);
VEXO_API int VEXOFanParsingADTConfig(const char *path, VEXO_ADT_ADJUSTER_T *model);
VEXO_API int VEXOFanParsingBMCConfig(const char *path, VEXO_BMC_ADJUSTER_T *model);
/* One element into one record. 0, or -1. */
VEXO_API int VEXOFanParsingAdjustModel(struct _xmlNode *node, VEXO_FAN_CONFIG_T *config);
VEXO_API int VEXOFanParsingAdjustADTModel(struct _xmlNode *node, VEXO_ADT_CONFIG_T *config);
VEXO_API int VEXOFanParsingAdjustBMCModel(struct _xmlNode *node, VEXO_BMC_CONFIG_T *config);
VEXO_API int VEXOFanParingTemperature(struct _xmlNode *node, VEXO_FAN_CONFIG_T *config);
VEXO_API int VEXOFanParingFanModule(struct _xmlNode *node, VEXO_FAN_CONFIG_T *config);
/* Defaults (period 20, threshold 6, type 1); with_default_table == 1 adds
   the three-level type 1 table. 0, or -1. */
VEXO_API int VEXOFanAdjusterConfigInit(VEXO_FAN_CONFIG_T *config, int with_default_table);
/* Appends the DUAL_MODE_FULL records derived from the base ones. 0, or -1. */
VEXO_API int VEXOFanAdjusterConfigFullSpeed(VEXO_FAN_ADJUSTER_T *model);
VEXO_API int VEXOFanAdjusterConfigFullSpeedADT(VEXO_ADT_ADJUSTER_T *model);
VEXO_API int VEXOFanAdjusterConfigFullSpeedBMC(VEXO_BMC_ADJUSTER_T *model);
/* 1 when every PWM of the list is manual (sensor_type 2); 0 for null. */
VEXO_API int VEXOADTIsManualMode(const VEXO_ADT_PWM_T *pwms);

/* ---- Names and codes ------------------------------------------------------
 * Text to code, without regard to case. 0, or -1 on a null argument. */
VEXO_API int VEXOFanConfigTypeMatch(const char *text, FAN_CONFIG_TYPE *type);
VEXO_API int VEXOFanSpeedMatch(const char *text, uint32_t *speed);
VEXO_API int VEXOFanActionMatch(const char *text, uint32_t *action);
/* The FAN_CONFIG_NAME of a FAN_CONFIG_TYPE; 0 above 7. */
VEXO_API int VEXOFanConfigNameGet(int type);
/* The element name of a table type, "unknown" for any other value. */
VEXO_API const char *VEXOFanTableNameGet(int type);
/* The adapter's subsystem vendor and device ids of a table type. 0, or -1
   when the type has no adapter. */
VEXO_API int VEXOFanTableNicSSIDGet(int type, int *vendor, int *device);
/* 1 with the ids when name is an adapter's element or short name, else 0. */
VEXO_API int VEXOFanIsVexoNicConfigName(const char *name, int *vendor, int *device);
/* 1 for the adapter types and 11, else 0. */
VEXO_API int VEXOFanIsNicFanTable(int type);

/* ---- Registries of operations ---------------------------------------------
 * Process-wide lists of static records. Register pushes at the head (null,
 * and for tables type 0 or 26, ignored); Get gives the first record of a
 * type or null; Init fills a list once; ListFree forgets it. */
VEXO_API int VEXOFanConfigOpsRegister(VEXO_FAN_CONFIG_OPS_T *ops);
VEXO_API int VEXOFanConfigOpsListInit(void);
VEXO_API void VEXOFanConfigOpsListFree(void);
VEXO_API VEXO_FAN_CONFIG_OPS_T *VEXOFanConfigOpsGet(int type);
VEXO_API int VEXOFanTableTypeOpsRegister(VEXO_FAN_TABLE_OPS_T *ops);
VEXO_API int VEXOFanTableTypeOpsListInit(void);
VEXO_API void VEXOFanTableTypeOpsListFree(void);
VEXO_API VEXO_FAN_TABLE_OPS_T *VEXOFanTableTypeOpsGet(int type);
/* The table of that type in a list, or null. */
VEXO_API VEXO_FAN_TABLE_T *VEXOFanTableGet(int type, VEXO_FAN_TABLE_T *tables);

/* ---- Settings --------------------------------------------------------------
 * The user's mode for "fan_config_type_internal" or "fan_config_type_ebox"
 * (null key: 1). */
VEXO_API int VEXOFanAdjustDualModeGet(const char *key);
/* Stores the mode of a type under its group's key and tells the daemon. 0, or -1. */
VEXO_API int VEXOFanAdjustDualModeSet(int type);
VEXO_API int VEXOFanAdjustDualModeSetWithoutNotify(int type);
/* "fanspeed": 0 on, 1 off, 2 high, 3 low. */
VEXO_API int VEXOFanConfigSpeedGet(void);
VEXO_API int VEXOFanConfigSpeedSet(int value);
/* "fantime" as a number, 0 when absent. */
VEXO_API int VEXOFanConfigTimeGet(void);
VEXO_API int VEXOFanConfigTimeSet(const char *text);
/* The board's fan count, or -1. */
VEXO_API int VEXOFanNumGet(void);

/* ---- Existence tests (1 or 0) --------------------------------------------- */
VEXO_API int VEXOFanIsFanConfigExist(const VEXO_FAN_TABLE_T *tables, int type);
VEXO_API int VEXOFanIsFanAlertConfigExist(const VEXO_ADT_ALERT_T *alerts, int type);
VEXO_API int VEXOFanIsFanManualConfigExist(const VEXO_ADT_MANUAL_TABLE_T *manual_tables, int type);
VEXO_API int VEXOFanIsFanTableExist(const VEXO_FAN_STATUS_T *status_list, int type);
/* 1 unless an inserted adapter has no entry of its own type in the list. */
VEXO_API int VEXOFanAllVexoNicHasFanConfig(const VEXO_FAN_TABLE_T *tables);
VEXO_API int VEXOFanAllVexoNicHasAlertConfig(const VEXO_ADT_ALERT_T *alerts);
VEXO_API int VEXOFanAllVexoNicHasManualConfig(const VEXO_ADT_MANUAL_TABLE_T *manual_tables);

VEXO_END_DECLS

#endif
