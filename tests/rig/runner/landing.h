// Calls whose implementations land in the library one by one. They are
// declared weak here, so the runner links before they exist; a check whose
// call is still missing reports SKIP, and runs as soon as the library
// exports it.
#pragma once

#include <vexohw/disk.h>
#include <vexohw/disk_probe.h>
#include <vexohw/smart_info.h>
#include <vexohw/smart_serial.h>
#include <vexohw/smart_temperature.h>
#include <vexoplatform/nvme_admin.h>
#if __has_include(<vexohw/disk_enum.h>)
#include <vexohw/disk_enum.h>
#endif

#define RIG_WEAK __attribute__((weak))

extern "C" {
RIG_WEAK int DiskSizeGet(const char *path, unsigned long long *bytes);
RIG_WEAK int DiskLogicalBlockSizeGet(const char *path, int *size);
RIG_WEAK int VEXOLnxDiskGetModel(const char *path, char *model, int size);
RIG_WEAK int VEXOLnxDiskGetVendor(const char *path, char *vendor, int size);
RIG_WEAK int VEXODiskIsSSD(const char *path);
RIG_WEAK int SmartFirmAndSerialRead(const char *path, char *firmware, int firmwareSize, char *serial,
				     int serialSize);
RIG_WEAK int SmartInfoGet(const char *path, const char *type, SmartInfoEntry **list, int force);
RIG_WEAK void VEXODiskSmartInfoFree(SmartInfoEntry *list);
RIG_WEAK int SmartTemperatureGet(const unsigned char *page);
RIG_WEAK int SmartAirflowTempGet(const unsigned char *page);
RIG_WEAK int VEXODiskTemperatureGet(const char *path);
RIG_WEAK int VEXONVMeTemperatureGet(const char *path);
RIG_WEAK int VEXONVMeFirmAndSerialRead(const char *path, char *firmware, int firmwareSize, char *serial,
					int serialSize);
RIG_WEAK int VEXONVMeDiskModelGet(const char *path, char *model, int size);
RIG_WEAK int VEXONVMeLogGet(const char *path, unsigned int page, void *buffer, unsigned int length);
RIG_WEAK int DiskInfoEnum(DiskEnumFilter *filter, DiskListNode **list);
RIG_WEAK void DiskInfoEnumFree(DiskListNode *list);
}

// True when the library exports fn; otherwise marks the check skipped.
#define RIG_LANDED(c, fn) ((fn) != nullptr || ((c).skip(#fn " is not in the library yet"), false))
