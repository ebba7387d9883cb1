// The direct walk: each port type's disks from /sys, with the rule that
// decides whether a disk is asked its temperature.
#include <cstring>

#include <vexohw/disk_enum.h>
#include <vexohw/disk_port.h>
#include <vexohw/smart_temperature.h>
#include <vexoplatform/ebox_info.h>

#include "disk/disk_info_walk.h"
#include "frame/err.h"

namespace vexo::disk {

NamesHook gAfterNamesHook = nullptr;

namespace {

bool listed(const DiskHibDevNode *cells, const char *path)
{
	for (const DiskHibDevNode *c = cells; c; c = c->next)
		if (std::strncmp(c->path, path, sizeof(c->path)) == 0)
			return true;
	return false;
}

bool eunitAsleep(const DiskEnumHibStatus *status, const DiskInfo *info)
{
	if (!info) {
		vlog(LOG_ERR, "%s:%d EUNIT hibernation check parameter error!!", VEXO_AT);
		return false;
	}
	return listed(status->eunitHibernating, info->path);
}

// Whether the temperature must stay 0: asking would wake a sleeping disk,
// or the disk cannot tell (virtual edition, USB).
bool skipTemperature(bool virtualEdition, int portType, const DiskEnumHibStatus *status, const DiskInfo *info)
{
	if (virtualEdition)
		return true;
	if (portType == DISK_PORT_TYPE_USB || portType == DISK_PORT_TYPE_SD_OTHER)
		return true;
	if (!status)
		return false;
	if (status->allHibernating == 1)
		return true;
	if (portType == DISK_PORT_TYPE_EBOX)
		return status->eunitHibernating && eunitAsleep(status, info);
	return false;
}

struct SzList {
	PVLIBSZLIST p;
	explicit SzList(int capacity) : p(VLIBCSzListAlloc(capacity)) {}
	~SzList() { VLIBCSzListFree(p); }
};

} // namespace

int enumPortType(DiskListNode **list, int portType, const DiskEnumHibStatus *status)
{
	if (portType == DISK_PORT_TYPE_EBOX && !VLIBCSupportSAS() && !SupportEBox() && !VLIBCSupportNvmeEunit())
		return 0;
	SzList names(1024);
	if (!names.p || VEXODiskPortEnum(portType, &names.p) != 0) {
		vlog(LOG_ERR, "%s:%d unable to enum internal sata devices, errno=0x%X", VEXO_AT, VLIBCErrGet());
		return -1;
	}
	if (portType == DISK_PORT_TYPE_INTERNAL && names.p->nItem == 0) {
		if (VLIBCSupportGet("usbstation"))
			return 0;
		return VLIBCSupportIsolatedDiskSystem() || VLIBCSupportDualhead() ? 0 : -1;
	}
	if (gAfterNamesHook)
		gAfterNamesHook(portType, names.p);
	const bool virtualEdition = VLIBCIsVVOS() != 0; // asked once, not for each disk
	int count = 0;
	for (int i = 0; i < names.p->nItem; ++i) {
		const char *name = VLIBCSzListGet(names.p, i);
		DiskInfo *info = nullptr;
		if (DiskInfoGetWithoutSMART(name, &info) != 1) {
			vlog(LOG_ERR, "%s:%d Failed to get disk information %s", VEXO_AT, name);
			continue;
		}
		info->temperature = skipTemperature(virtualEdition, portType, status, info) ? 0 : VEXODiskTemperatureGet(info->path);
		DiskListPush(list, info);
		++count;
	}
	return count;
}

int walkSystem(const DiskEnumFilter *filter, DiskListNode **list, const DiskEnumHibStatus *status)
{
	if (!list) {
		vlog(LOG_ERR, "%s:%d bad parameters", VEXO_AT);
		return -1;
	}
	// mask bit -> port type, in the order they are run
	static constexpr struct {
		int32_t bit;
		int type;
	} kTypes[] = {
		{DISK_CONTAINER_INTERNAL, DISK_PORT_TYPE_INTERNAL}, {DISK_CONTAINER_EBOX, DISK_PORT_TYPE_EBOX},
		{DISK_CONTAINER_CACHE, DISK_PORT_TYPE_CACHE},       {DISK_CONTAINER_USB, DISK_PORT_TYPE_USB},
		{DISK_CONTAINER_ESATA, DISK_PORT_TYPE_ESATA},       {DISK_CONTAINER_SYS, DISK_PORT_TYPE_SYS},
	};
	const bool all = !filter || !filter->containerMask;
	DiskListNode *head = nullptr;
	int total = 0;
	bool failed = false;
	for (const auto &t : kTypes) {
		if (!all && !(*filter->containerMask & t.bit))
			continue;
		// Every type is tried, so that one failure logs all that fail.
		int n = enumPortType(&head, t.type, status);
		if (n < 0)
			failed = true;
		else
			total += n;
	}
	if (failed) {
		DiskInfoEnumFree(head);
		return -1;
	}
	*list = head;
	return total;
}

} // namespace vexo::disk
