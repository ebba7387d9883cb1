// The two registries of fan operations: process-wide singly linked lists
// over static records, looked up by number. A mutex keeps a first use from
// two threads from tearing a list; the records themselves never move.
#include <mutex>

#include "fan/fan_private.h"
#include "fan/fan_board.h"
#include "fan/fan_sources.h"
#include "frame/err.h"
#include <vexohw/disk_port.h>

namespace {

std::mutex gConfigMutex;
VEXO_FAN_CONFIG_OPS_T *gConfigHead = nullptr;
std::mutex gTableMutex;
VEXO_FAN_TABLE_OPS_T *gTableHead = nullptr;

// A record already in a list is not pushed again: it would make a cycle.
template <typename T>
bool listed(const T *head, const T *ops)
{
	for (; head; head = head->next)
		if (head == ops)
			return true;
	return false;
}

void pushConfig(VEXO_FAN_CONFIG_OPS_T *ops)
{
	if (!ops || listed(gConfigHead, ops))
		return;
	ops->next = gConfigHead;
	gConfigHead = ops;
}

void pushTable(VEXO_FAN_TABLE_OPS_T *ops)
{
	if (!ops || ops->type == FAN_TABLE_UNKNOWN || ops->type == FAN_TABLE_END || listed(gTableHead, ops))
		return;
	ops->next = gTableHead;
	gTableHead = ops;
}

// The records. The fan loop gives each its operations; the four group
// records differ only in how a speed is applied.
#define VEXO_GROUP_OPS(name, speed)                                                                     \
	{name, VEXOFanTemperatureUpdate, VEXOFanTableLookUp, VEXOIsOverBufferLimit, VEXOFanDebugPrint, speed, nullptr}
VEXO_FAN_CONFIG_OPS_T gCpuFanOps = VEXO_GROUP_OPS(FAN_CONFIG_NAME_CPUFAN, vexo::fan::cpuFanSpeedChange);
VEXO_FAN_CONFIG_OPS_T gEboxOps = VEXO_GROUP_OPS(FAN_CONFIG_NAME_EBOX, vexo::fan::eboxSpeedChange);
VEXO_FAN_CONFIG_OPS_T gInternalOps = VEXO_GROUP_OPS(FAN_CONFIG_NAME_INTERNAL, vexo::fan::peripheralSpeedChange);
// Adapter groups 4 to 9 and 11 to 18.
VEXO_FAN_CONFIG_OPS_T gExternalNicOps[14] = {};

// The sources, one record per table type; every one finds its level the
// same way.
template <int Type>
int debugGet(VEXO_FAN_READING_T *r, VEXO_FAN_HANDLE_T *h, int *source)
{
	return vexo::fan::debugRead(Type, r, h, source);
}
template <int Type>
int nicGet(VEXO_FAN_READING_T *r, VEXO_FAN_HANDLE_T *)
{
	return vexo::fan::nicRead(Type, r);
}
int diskGet(VEXO_FAN_READING_T *r, VEXO_FAN_HANDLE_T *h)
{
	return vexo::fan::listRead(VEXODiskInternalDiskWithoutM2Enum, r, h, false);
}
int sysDiskGet(VEXO_FAN_READING_T *r, VEXO_FAN_HANDLE_T *h)
{
	return vexo::fan::listRead(VEXODiskSystemInstallationDeviceEnum, r, h, false);
}
int m2Get(VEXO_FAN_READING_T *r, VEXO_FAN_HANDLE_T *h) { return vexo::fan::listRead(VEXODiskM2DriveEnum, r, h, true); }
int u2Get(VEXO_FAN_READING_T *r, VEXO_FAN_HANDLE_T *h) { return vexo::fan::listRead(VEXODiskU2DriveEnum, r, h, true); }
int sasGet(VEXO_FAN_READING_T *r, VEXO_FAN_HANDLE_T *) { return vexo::fan::sasRead(r); }
int diskTune(VEXO_FAN_HANDLE_T *h, int s)
{
	return vexo::fan::listTune(VEXODiskInternalDiskWithoutM2Enum, FAN_TABLE_DISK, h, s, false);
}
int sysDiskTune(VEXO_FAN_HANDLE_T *h, int s)
{
	return vexo::fan::listTune(VEXODiskSystemInstallationDeviceEnum, FAN_TABLE_SYSDISK, h, s, false);
}
int m2Tune(VEXO_FAN_HANDLE_T *h, int s) { return vexo::fan::listTune(VEXODiskM2DriveEnum, FAN_TABLE_M2, h, s, true); }
int u2Tune(VEXO_FAN_HANDLE_T *h, int s) { return vexo::fan::listTune(VEXODiskU2DriveEnum, FAN_TABLE_U2, h, s, true); }

// The generic adapter table: every adapter without a table of its own, the
// hottest deciding.
int nicListDebugGet(VEXO_FAN_READING_T *r, VEXO_FAN_HANDLE_T *h, int *source)
{
	int result = 0;
	VEXO_FAN_READING_T best{};
	bool taken = false;
	for (NIC_FAN_TABLE_OPS_T *n = h ? h->nic_tables : nullptr; n; n = n->next) {
		if (!n->ops || !n->ops->DebugTemperatureGet)
			continue;
		VEXO_FAN_READING_T one{};
		int rc = n->ops->DebugTemperatureGet(&one, h, source);
		result |= rc;
		if (one.temperature < 1) {
			*r = one;
			return result;
		}
		if (!taken || one.temperature > best.temperature) {
			best = one;
			taken = true;
		}
	}
	if (taken)
		*r = best;
	return result;
}
int nicListGet(VEXO_FAN_READING_T *r, VEXO_FAN_HANDLE_T *h)
{
	int result = 0;
	bool taken = false;
	for (NIC_FAN_TABLE_OPS_T *n = h ? h->nic_tables : nullptr; n; n = n->next) {
		if (!n->ops || !n->ops->TemperatureGet)
			continue;
		VEXO_FAN_READING_T one{};
		int rc = n->ops->TemperatureGet(&one, h);
		result |= rc;
		if (rc != 0 && (!taken || one.temperature > r->temperature)) {
			*r = one;
			taken = true;
		}
	}
	return result;
}

#define VEXO_TABLE_OPS(T, get, tune) {static_cast<FAN_TABLE_TYPE>(T), debugGet<T>, get, VEXOFanTableLevelGet, tune, nullptr}
VEXO_FAN_TABLE_OPS_T gThermalOps = VEXO_TABLE_OPS(FAN_TABLE_THERMAL, vexo::fan::thermalTemperatureGet, nullptr);
VEXO_FAN_TABLE_OPS_T gDiskOps = VEXO_TABLE_OPS(FAN_TABLE_DISK, diskGet, diskTune);
VEXO_FAN_TABLE_OPS_T gSysDiskOps = VEXO_TABLE_OPS(FAN_TABLE_SYSDISK, sysDiskGet, sysDiskTune);
VEXO_FAN_TABLE_OPS_T gEboxDiskOps = VEXO_TABLE_OPS(FAN_TABLE_EBOX_DISK, vexo::fan::eboxRead, vexo::fan::eboxTune);
VEXO_FAN_TABLE_OPS_T gCpuOps = VEXO_TABLE_OPS(FAN_TABLE_CPU, vexo::fan::cpuTemperatureGet, nullptr);
VEXO_FAN_TABLE_OPS_T gM2Ops = VEXO_TABLE_OPS(FAN_TABLE_M2, m2Get, m2Tune);
VEXO_FAN_TABLE_OPS_T gU2Ops = VEXO_TABLE_OPS(FAN_TABLE_U2, u2Get, u2Tune);
#define VEXO_NIC_OPS(T) VEXO_TABLE_OPS(T, nicGet<T>, nullptr)
// One per adapter type and one for the generic type 11, in type order.
VEXO_FAN_TABLE_OPS_T gExternalNicTableOps[15] = {
	VEXO_NIC_OPS(6),  VEXO_NIC_OPS(7),  VEXO_NIC_OPS(8),  VEXO_NIC_OPS(9),	VEXO_NIC_OPS(10),
	{FAN_TABLE_NIC, nicListDebugGet, nicListGet, VEXOFanTableLevelGet, nullptr, nullptr},
	VEXO_NIC_OPS(14), VEXO_NIC_OPS(15), VEXO_NIC_OPS(16), VEXO_NIC_OPS(17), VEXO_NIC_OPS(18),
	VEXO_NIC_OPS(22), VEXO_NIC_OPS(23), VEXO_NIC_OPS(24), VEXO_NIC_OPS(25),
};
VEXO_FAN_TABLE_OPS_T gSasOps = VEXO_TABLE_OPS(FAN_TABLE_SAS, sasGet, nullptr);

void cpuFanOpsInit() { pushConfig(&gCpuFanOps); }
void eboxOpsInit() { pushConfig(&gEboxOps); }
void externalNicOpsInit()
{
	int i = 0;
	for (int name = FAN_CONFIG_NAME_NIC_FIRST; name <= FAN_CONFIG_NAME_NIC_LAST; ++name) {
		if (name == 10)
			continue;
		gExternalNicOps[i] = gInternalOps;
		gExternalNicOps[i].type = static_cast<FAN_CONFIG_NAME>(name);
		gExternalNicOps[i].next = nullptr;
		pushConfig(&gExternalNicOps[i++]);
	}
}
void internalOpsInit() { pushConfig(&gInternalOps); }

void externalNicTableOpsInit()
{
	for (VEXO_FAN_TABLE_OPS_T &ops : gExternalNicTableOps)
		pushTable(&ops);
}

} // namespace

extern "C" VEXO_API int VEXOFanConfigOpsRegister(VEXO_FAN_CONFIG_OPS_T *ops)
{
	std::lock_guard<std::mutex> lk(gConfigMutex);
	pushConfig(ops);
	return 0;
}

extern "C" VEXO_API int VEXOFanConfigOpsListInit(void)
{
	std::lock_guard<std::mutex> lk(gConfigMutex);
	if (gConfigHead)
		return 0;
	cpuFanOpsInit();
	eboxOpsInit();
	externalNicOpsInit();
	internalOpsInit();
	return 0;
}

extern "C" VEXO_API void VEXOFanConfigOpsListFree(void)
{
	std::lock_guard<std::mutex> lk(gConfigMutex);
	gConfigHead = nullptr;
}

extern "C" VEXO_API VEXO_FAN_CONFIG_OPS_T *VEXOFanConfigOpsGet(int type)
{
	std::lock_guard<std::mutex> lk(gConfigMutex);
	for (VEXO_FAN_CONFIG_OPS_T *p = gConfigHead; p; p = p->next)
		if ((int)p->type == type)
			return p;
	return nullptr;
}

extern "C" VEXO_API int VEXOFanTableTypeOpsRegister(VEXO_FAN_TABLE_OPS_T *ops)
{
	std::lock_guard<std::mutex> lk(gTableMutex);
	pushTable(ops);
	return 0;
}

extern "C" VEXO_API int VEXOFanTableTypeOpsListInit(void)
{
	std::lock_guard<std::mutex> lk(gTableMutex);
	if (gTableHead)
		return 0;
	for (VEXO_FAN_TABLE_OPS_T *ops : {&gThermalOps, &gDiskOps, &gSysDiskOps, &gEboxDiskOps, &gCpuOps, &gM2Ops, &gU2Ops})
		pushTable(ops);
	externalNicTableOpsInit();
	pushTable(&gSasOps);
	return 0;
}

extern "C" VEXO_API void VEXOFanTableTypeOpsListFree(void)
{
	std::lock_guard<std::mutex> lk(gTableMutex);
	gTableHead = nullptr;
}

extern "C" VEXO_API VEXO_FAN_TABLE_OPS_T *VEXOFanTableTypeOpsGet(int type)
{
	if (type == FAN_TABLE_UNKNOWN || type == FAN_TABLE_END)
		return nullptr;
	std::lock_guard<std::mutex> lk(gTableMutex);
	for (VEXO_FAN_TABLE_OPS_T *p = gTableHead; p; p = p->next)
		if ((int)p->type == type)
			return p;
	return nullptr;
}

extern "C" VEXO_API VEXO_FAN_TABLE_T *VEXOFanTableGet(int type, VEXO_FAN_TABLE_T *tables)
{
	for (; tables; tables = tables->next)
		if ((int)tables->type == type)
			return tables;
	return nullptr;
}
