// Port type to container, container keywords, and the container of a path.
#include <cstddef>
#include <iterator>

#include <vexohw/disk.h>
#include <vexohw/disk_port.h>

#include "frame/err.h"

namespace {

struct ContainerName {
	int container;
	const char *keyword;
};

constexpr ContainerName kContainers[] = {
	{DISK_CONTAINER_INTERNAL, "internal"}, {DISK_CONTAINER_EBOX, "ebox"}, {DISK_CONTAINER_USB, "usb"},
	{DISK_CONTAINER_ESATA, "esata"},       {DISK_CONTAINER_TMPFS, "tmpfs"}, {DISK_CONTAINER_CACHE, "cache"},
	{DISK_CONTAINER_SYS, "sys"},
};

// Port type -> container; 0 where the kind belongs to no container.
constexpr int kPortContainer[] = {
	0,                       // invalid
	DISK_CONTAINER_INTERNAL, // internal bay
	DISK_CONTAINER_ESATA,    // esata
	DISK_CONTAINER_EBOX,     // expansion unit
	DISK_CONTAINER_USB,      // usb
	0,                       // vexoboot
	0,                       // isd
	DISK_CONTAINER_CACHE,    // M.2 cache
	DISK_CONTAINER_USB,      // other sd
	DISK_CONTAINER_USB,      // mmcblk
	0,                       // blocked
	DISK_CONTAINER_SYS,      // sysd, NVMe system
};

} // namespace

extern "C" {

VEXO_API const char *VEXODiskContainerToString(int container)
try {
	for (const auto &c : kContainers)
		if (c.container == container)
			return c.keyword;
	VEXO_ERR(VEXO_ERR_UNKNOWN_DEVICE);
	return nullptr;
} VEXO_C_CATCH(nullptr)

VEXO_API int VEXODiskPortToContainer(int portType, int *container)
try {
	int c = 0;
	if (portType >= 0 && portType < static_cast<int>(std::size(kPortContainer)))
		c = kPortContainer[portType];
	if (!c || !container) {
		vlog(LOG_DEBUG, "%s:%d Unknown diskType", VEXO_AT);
		return -1;
	}
	*container = c;
	return 0;
} VEXO_C_CATCH(-1)

VEXO_API int DiskContainerGet(const char *path, int *container)
try {
	if (!path || !container) {
		vlog(LOG_ERR, "%s:%d bad paramters", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	int type = VEXODiskPortCheck(path);
	if (VEXODiskPortToContainer(type, container) != 0) {
		VEXO_ERR(VEXO_ERR_UNKNOWN_DEVICE);
		return -1;
	}
	return 0;
} VEXO_C_CATCH(-1)

} // extern "C"
