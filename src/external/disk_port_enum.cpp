// Enumerating disks by port type: glob /sys/block and check each name.
#include <cstdio>
#include <cstring>
#include <glob.h>
#include <string>
#include <vector>

#include <vexohw/disk.h>
#include <vexohw/disk_port.h>
#include <vexoplatform/nvme_location.h>

#include "external/port_map.h"
#include "frame/err.h"
#include "frame/sysroot.h"

namespace {

using Patterns = std::vector<std::string>;

std::string pattern(const char *format, const char *word)
{
	char p[64];
	std::snprintf(p, sizeof(p), format, word);
	return p;
}

// Appends the names matched by patterns: with filter, those of type
// `wanted`; without, all that are not blocked. 0, or -1 on a glob error.
int globAndPortCheck(const Patterns &patterns, int wanted, bool filter, PVLIBSZLIST *names)
{
	for (const auto &p : patterns) {
		std::vector<std::string> matches;
		int rc = vexo::sysroot::glob(p.c_str(), matches);
		if (rc == GLOB_NOSPACE) {
			vlog(LOG_ERR, "%s:%d out of memory to alloc glob function when looking for:%s", VEXO_AT, p.c_str());
			VEXO_ERR(VEXO_ERR_GLOB);
			return -1;
		}
		if (rc != 0) {
			vlog(LOG_ERR, "%s:%d read error :%s", VEXO_AT, p.c_str());
			VEXO_ERR(VEXO_ERR_GLOB);
			return -1;
		}
		for (const auto &m : matches) {
			std::string name = m.substr(m.rfind('/') + 1);
			int type = VEXODiskPortCheck(name.c_str());
			bool keep = filter ? type == wanted : type != DISK_PORT_TYPE_BLOCKED;
			if (keep && VLIBCSzListPush(names, name.c_str()) < 0) {
				VEXO_ERR(VEXO_ERR_LIST_ALLOC);
				return -1;
			}
		}
	}
	return 0;
}

Patterns m2Patterns()
{
	Patterns p;
	if (!VLIBCBlockM2SATA())
		p.push_back(pattern("/sys/block/%s*", "nvc"));
	if (VLIBCSupportNVMe())
		p.push_back(pattern("/sys/block/%s*n*", "nvme"));
	return p;
}

bool badList(PVLIBSZLIST *names)
{
	if (!names || !*names) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return true;
	}
	return false;
}

// Removes the items for which drop() holds, keeping order.
template <typename Drop>
void removeIf(PVLIBSZLIST list, Drop drop)
{
	for (int i = list->nItem - 1; i >= 0; --i)
		if (drop(VLIBCSzListGet(list, i)))
			VLIBCSzListRemove(list, i);
}

// Enumerates into a fresh list and appends what keep() accepts to *names.
template <typename Enum, typename Keep>
int appendFiltered(PVLIBSZLIST *names, Enum enumerate, Keep keep)
{
	PVLIBSZLIST found = VLIBCSzListAlloc(8);
	if (!found) {
		VEXO_ERR(VEXO_ERR_LIST_ALLOC);
		return -1;
	}
	int rc = enumerate(&found);
	for (int i = 0; rc == 0 && i < found->nItem; ++i)
		if (keep(VLIBCSzListGet(found, i)) && VLIBCSzListPush(names, VLIBCSzListGet(found, i)) < 0)
			rc = -1;
	VLIBCSzListFree(found);
	return rc;
}

} // namespace

extern "C" {

VEXO_API int VEXODiskPortEnum(int portType, PVLIBSZLIST *names)
try {
	if (portType == 0 || !names || !*names) {
		vlog(LOG_ERR, "%s:%d device name list can not be NULL", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	Patterns p;
	switch (portType) {
	case DISK_PORT_TYPE_INTERNAL:
		p.push_back(pattern("/sys/block/%s*", "sd"));
		if (VLIBCSupportNVMe())
			p.push_back(pattern("/sys/block/%s*n*", "nvme"));
		break;
	case DISK_PORT_TYPE_ESATA:
	case DISK_PORT_TYPE_EBOX:
	case DISK_PORT_TYPE_USB:
		p.push_back(pattern("/sys/block/%s*", "sd"));
		break;
	case DISK_PORT_TYPE_VEXOBOOT:
		p.push_back(pattern("/sys/block/%s", "vexoboot"));
		break;
	case DISK_PORT_TYPE_ISD:
		p.push_back(pattern("/sys/block/%s*", "isd"));
		break;
	case DISK_PORT_TYPE_CACHE:
		p.push_back(pattern("/sys/block/%s*", "sd"));
		if (!VLIBCBlockM2SATA())
			p.push_back(pattern("/sys/block/%s*", "nvc"));
		if (VLIBCSupportNVMe())
			p.push_back(pattern("/sys/block/%s*n*", "nvme"));
		break;
	case DISK_PORT_TYPE_SYS:
		p.push_back(pattern("/sys/block/%s*", "sysd"));
		break;
	default:
		vlog(LOG_ERR, "%s:%d disk port type doesn't exist", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	if (globAndPortCheck(p, portType, true, names) != 0) {
		vlog(LOG_ERR, "%s:%d VEXODiskPathGlobAndPortCheck fail!", VEXO_AT);
		return -1;
	}
	VLIBCSzListSortItems(*names, 1);
	return 0;
} VEXO_C_CATCH(-1)

VEXO_API int VEXODiskPortEnumAll(int portType, PVLIBSZLIST *names)
try {
	if (badList(names))
		return -1;
	if (VLIBCSupportSAS()) {
		VEXO_ERR(VEXO_ERR_WRONG_IFACE);
		return -1;
	}
	auto &map = vexo::external::portEnumAllMap();
	if (map.load() != 0) {
		VEXO_ERR(VEXO_ERR_FOPEN);
		return -1;
	}
	uint64_t mask = 0;
	switch (portType) {
	case DISK_PORT_TYPE_INTERNAL:
		mask = map.internal();
		break;
	case DISK_PORT_TYPE_ESATA:
	case DISK_PORT_TYPE_EBOX:
		mask = map.esata();
		break;
	case DISK_PORT_TYPE_USB:
		mask = map.usb();
		break;
	case DISK_PORT_TYPE_CACHE:
		mask = map.cache();
		break;
	default:
		VEXO_ERR(0xB600);
		return -1;
	}
	for (int i = 0; i < 26; ++i) {
		if (!(mask & (uint64_t{1} << i)))
			continue;
		char name[8];
		std::snprintf(name, sizeof(name), "sd%c", 'a' + i);
		if (VLIBCSzListPush(names, name) < 0) {
			VEXO_ERR(VEXO_ERR_LIST_ALLOC);
			return -1;
		}
	}
	VLIBCSzListSortItems(*names, 1);
	return 0;
} VEXO_C_CATCH(-1)

VEXO_API int VEXODiskM2DriveEnum(PVLIBSZLIST *names)
try {
	if (badList(names))
		return -1;
	return appendFiltered(
		names,
		[](PVLIBSZLIST *found) {
			if (globAndPortCheck(m2Patterns(), 0, false, found) != 0)
				return -1;
			removeIf(*found, [](const char *n) { return VEXONVMeCheckSupportAndNVMeSSD(n) && VEXONVMeDevIsU2Slot(n); });
			return VLIBCSzListSortItems(*found, 1) == 0 ? 0 : -1;
		},
		[](const char *) { return true; });
} VEXO_C_CATCH(-1)

VEXO_API int VEXODiskU2DriveEnum(PVLIBSZLIST *names)
try {
	if (badList(names))
		return -1;
	if (!VLIBCSupportNVMe())
		return 0;
	return appendFiltered(
		names,
		[](PVLIBSZLIST *found) {
			return globAndPortCheck({pattern("/sys/block/%s*n*", "nvme")}, 0, false, found);
		},
		[](const char *n) { return VEXONVMeDevIsU2Slot(n) == 1; });
} VEXO_C_CATCH(-1)

VEXO_API int VEXODiskInternalDiskWithoutM2Enum(PVLIBSZLIST *names)
try {
	if (badList(names))
		return -1;
	int rc = appendFiltered(
		names, [](PVLIBSZLIST *found) { return VEXODiskPortEnum(DISK_PORT_TYPE_INTERNAL, found); },
		[](const char *n) { return !std::strstr(n, "nvc") && !VEXONVMeCheckSupportAndNVMeSSD(n); });
	if (rc != 0)
		vlog(LOG_ERR, "%s:%d Fail to enumerate the internal disks", VEXO_AT);
	return rc;
} VEXO_C_CATCH(-1)

VEXO_API int VEXODiskSystemInstallationDeviceEnum(PVLIBSZLIST *names)
try {
	if (badList(names))
		return -1;
	// The system goes on internal bays and on system devices.
	for (int type : {DISK_PORT_TYPE_INTERNAL, DISK_PORT_TYPE_SYS}) {
		PVLIBSZLIST found = VLIBCSzListAlloc(8);
		if (!found || VEXODiskPortEnum(type, &found) != 0) {
			vlog(LOG_ERR, "%s:%d Fail to enumerate the disks those can be used to install system.", VEXO_AT);
			VLIBCSzListFree(found);
			return -1;
		}
		for (int i = 0; i < found->nItem; ++i) {
			const char *n = VLIBCSzListGet(found, i);
			if (!n) {
				vlog(LOG_ERR, "%s:%d Failed to compare system disks.", VEXO_AT);
				continue;
			}
			if (VLIBCSzListFind(*names, n) >= 0)
				continue;
			if (VLIBCSzListPush(names, n) < 0) {
				vlog(LOG_ERR, "%s:%d Failed to push system disks.", VEXO_AT);
				VLIBCSzListFree(found);
				return -1;
			}
		}
		VLIBCSzListFree(found);
	}
	if (VLIBCSzListSortItems(*names, 1) != 0) {
		vlog(LOG_ERR, "%s:%d Fail to sort system disks", VEXO_AT);
		return -1;
	}
	return 0;
} VEXO_C_CATCH(-1)

} // extern "C"
