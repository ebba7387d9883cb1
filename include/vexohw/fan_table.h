/*
 * Fan loop, run-time half: the handle of a fan group, the level of a
 * temperature in a table, the update of the status nodes from their
 * temperature sources, the fold of the nodes into one decision and the
 * band that keeps a falling decision from hunting. Pure C.
 *
 * A handle is for one thread at a time; nothing here takes a lock.
 */
#ifndef VEXOHW_FAN_TABLE_H
#define VEXOHW_FAN_TABLE_H

#include <stdint.h>
#include <vexohw/ebox.h>
#include <vexohw/fan_config.h>
#include <vexohw/vexo_export.h>
#include <vexoplatform/vexocore.h>

VEXO_BEGIN_DECLS

/* Debug override files: one line "temperature[,name]", 0 or absent is off. */
#define VEXO_FAN_ALL_DISK_FAIL_FILE "/tmp/.all_disk_temperature_fail"
/* What a source reports (TemperatureGet's result, DebugTemperatureGet's *source). */
typedef enum FAN_SOURCE {
	FAN_SOURCE_NONE = 0,
	FAN_SOURCE_THERMAL = 1,
	FAN_SOURCE_DISK = 2,
	FAN_SOURCE_CPU = 3,
	FAN_SOURCE_SSD = 4,     /* no usable reading: refresh the timer only */
	FAN_SOURCE_EBOX = 5,
	FAN_SOURCE_HIBERNATE = 6, /* apply the idle level */
	FAN_SOURCE_UNKNOWN = 7,   /* leave the node as it is */
	FAN_SOURCE_EXTERNAL_NIC = 8,
	FAN_SOURCE_SAS = 9
} FAN_SOURCE;

/* One disk of the shared disk resource: what the disk monitor last saw. */
typedef struct VEXO_DISK_RESOURCE_NODE {
	char path[32];       /* "/dev/sda" */
	int32_t temperature; /* degrees, negative when the read failed */
	int32_t temp_min;    /* -1000 and 1000 until the monitor has a range */
	int32_t temp_max;
	int32_t state; /* 1: the disk is being taken out of service */
	int32_t is_ssd;
	struct VEXO_DISK_RESOURCE_NODE *next;
} VEXO_DISK_RESOURCE_NODE_T;

typedef struct VEXO_DISK_RESOURCE {
	VEXO_DISK_RESOURCE_NODE_T *nodes; /* owned by whoever built it */
} VEXO_DISK_RESOURCE_T;

#define VEXO_DISK_RESOURCE_TEMP_MIN_INIT (-1000)
#define VEXO_DISK_RESOURCE_TEMP_MAX_INIT 1000

/* An expansion unit's group: its disks (bare names or /dev/ paths) and unit. */
typedef struct VEXO_FAN_EBOX {
	PVLIBSZLIST disks;        /* not owned */
	VEXO_EBOX_HANDLE_T *unit; /* not owned */
} VEXO_FAN_EBOX_T;

/* An adapter read through the generic table (type 11). */
typedef struct NIC_FAN_TABLE_OPS {
	VEXO_FAN_TABLE_OPS_T *ops; /* not owned */
	struct NIC_FAN_TABLE_OPS *next;
} NIC_FAN_TABLE_OPS_T;

/* One per fan group, owned by the caller. */
struct VEXO_FAN_HANDLE {
	int32_t hibernating; /* the group's disks sleep: none is touched */
	int32_t force;       /* the update ignores timers and counters */
	VEXO_FAN_STATUS_T *current;
	VEXO_FAN_STATUS_T *status_list; /* one node per table, in table order */
	int32_t config_name;            /* FAN_CONFIG_NAME */
	VEXO_FAN_EBOX_T *ebox;          /* name 2 only */
	NIC_FAN_TABLE_OPS_T *nic_tables;
	uint32_t threshold_cur;
	VEXO_DISK_RESOURCE_T *disk_resource; /* null: disks are asked directly */
};

/* 1 if some node changed, else 0; *flags ORs the debug reads' results. */
VEXO_API int VEXOFanTemperatureUpdate(VEXO_FAN_HANDLE_T *handle, VEXO_FAN_TABLE_T *tables, int *flags);
/* Folds the nodes into *result: 1 if it names a table, else 0. */
VEXO_API int VEXOFanTableLookUp(VEXO_FAN_HANDLE_T *handle, VEXO_FAN_TABLE_T *tables, VEXO_FAN_STATUS_T *result);
/* 1 if *result may take effect (a fall is rewritten to one level). */
VEXO_API int VEXOIsOverBufferLimit(VEXO_FAN_HANDLE_T *handle, VEXO_FAN_TABLE_T *tables, VEXO_FAN_STATUS_T *result);
/* The index of the level of a temperature, stored in *level; -1 on bad arguments. */
VEXO_API int VEXOFanTableLevelGet(VEXO_TEMPERATURE_FAN_LEVEL_T *level, int temperature, VEXO_FAN_TABLE_T *table);
/* The bound of the first shutdown level, or -1. */
VEXO_API int VEXOFanShutdownTempGet(VEXO_FAN_TABLE_T *table);
/* 1 with the reading when the file holds a non-zero temperature, else 0. */
VEXO_API int VEXOFanIsTemperatureDebugON(VEXO_FAN_READING_T *reading, const char *path);
/* The hottest disk of a list into *reading: 1 all solid state or negative,
   0 otherwise, -1 when no disk of the list is present. */
VEXO_API int VEXOFanTableGetDiskHighestTemp(VEXO_FAN_READING_T *reading, PVLIBSZLIST disk_list,
					    VEXO_FAN_HANDLE_T *handle);
/* A disk source over a list: a FAN_SOURCE. */
VEXO_API int DiskTemperatureGetCommon(VEXO_FAN_READING_T *reading, VEXO_FAN_HANDLE_T *handle, PVLIBSZLIST disk_list);
/* 1 while the shutdown is warranted by no disk standing against it, else 0. */
VEXO_API int DiskTuneCommon(VEXO_FAN_HANDLE_T *handle, PVLIBSZLIST disk_list, int shutdown_temp, int debug);
VEXO_API int VEXODiskInRangeFromResource(const char *path, VEXO_DISK_RESOURCE_T *resource, int shutdown_temp,
					 int debug);
/* The temperature of a disk of the resource, or -1. */
VEXO_API int VEXODiskTempGetFromResource(const char *path, VEXO_DISK_RESOURCE_T *resource);
/* Adapters in the box without a table of their own go to handle->nic_tables. 0, or -1. */
VEXO_API int VEXOFanInitNicFanTableList(VEXO_FAN_HANDLE_T *handle);
VEXO_API void VEXOFanNicFanTableListFree(VEXO_FAN_HANDLE_T *handle);
/* Logs the decision in *status and what every table's source reads now. 0, or -1. */
VEXO_API int VEXOFanDebugPrint(VEXO_FAN_HANDLE_T *handle, VEXO_FAN_TABLE_T *tables, VEXO_FAN_STATUS_T *status,
			       int force_line);

/* The board's sensors. The board answers the CPU temperature request with
 * { int32 type; int32 count; int32 temps[16] } (type 1: the surface pair)
 * and the system sensor request with one int32. */
/* The machine's temperature into *temperature: 3 (CPU sensor), 1 (system sensor) or 0. */
VEXO_API int VEXOHWSurfaceTempGet(int *temperature);
/* The larger of the surface and the hottest internal disk. 0, or -1. */
VEXO_API int VEXOHWSysTempDegree(int *temperature);
/* *warning 1 when the surface is above the limit of the user's mode in
   /tmp/systempwarning. 0, or -1. */
VEXO_API int VEXOHWSysTempWarning(int *warning);

VEXO_END_DECLS

#endif
