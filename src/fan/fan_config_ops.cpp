// The two registries of fan operations: process-wide singly linked lists
// over static records, looked up by number. A mutex keeps a first use from
// two threads from tearing a list; the records themselves never move.
#include <mutex>

#include "fan/fan_private.h"
#include "frame/err.h"

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
VEXO_FAN_CONFIG_OPS_T gCpuFanOps = {FAN_CONFIG_NAME_CPUFAN, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr};
VEXO_FAN_CONFIG_OPS_T gEboxOps = {FAN_CONFIG_NAME_EBOX, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr};
VEXO_FAN_CONFIG_OPS_T gInternalOps = {FAN_CONFIG_NAME_INTERNAL, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr};
// Adapter groups 4 to 9 and 11 to 18.
VEXO_FAN_CONFIG_OPS_T gExternalNicOps[14] = {};

VEXO_FAN_TABLE_OPS_T gThermalOps = {FAN_TABLE_THERMAL, nullptr, nullptr, nullptr, nullptr, nullptr};
VEXO_FAN_TABLE_OPS_T gDiskOps = {FAN_TABLE_DISK, nullptr, nullptr, nullptr, nullptr, nullptr};
VEXO_FAN_TABLE_OPS_T gSysDiskOps = {FAN_TABLE_SYSDISK, nullptr, nullptr, nullptr, nullptr, nullptr};
VEXO_FAN_TABLE_OPS_T gEboxDiskOps = {FAN_TABLE_EBOX_DISK, nullptr, nullptr, nullptr, nullptr, nullptr};
VEXO_FAN_TABLE_OPS_T gCpuOps = {FAN_TABLE_CPU, nullptr, nullptr, nullptr, nullptr, nullptr};
VEXO_FAN_TABLE_OPS_T gM2Ops = {FAN_TABLE_M2, nullptr, nullptr, nullptr, nullptr, nullptr};
VEXO_FAN_TABLE_OPS_T gU2Ops = {FAN_TABLE_U2, nullptr, nullptr, nullptr, nullptr, nullptr};
// One per adapter type and one for the generic type 11.
VEXO_FAN_TABLE_OPS_T gExternalNicTableOps[15] = {};
VEXO_FAN_TABLE_OPS_T gSasOps = {FAN_TABLE_SAS, nullptr, nullptr, nullptr, nullptr, nullptr};

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
	int i = 0;
	for (int type = vexo::fan::kTableTypeFirst; type <= vexo::fan::kTableTypeLast; ++type) {
		if (!VEXOFanIsNicFanTable(type))
			continue;
		gExternalNicTableOps[i] = VEXO_FAN_TABLE_OPS_T{};
		gExternalNicTableOps[i].type = static_cast<FAN_TABLE_TYPE>(type);
		pushTable(&gExternalNicTableOps[i++]);
	}
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
