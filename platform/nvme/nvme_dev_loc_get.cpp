// Where an NVMe disk sits: its location entry in the platform description.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <vexoplatform/vexoerr.h>
#include <vexoplatform/nvme_location.h>
#include <vexoplatform/vexocore.h>

#include "frame/err.h"
#include "frame/sysroot.h"
#include "platform/board/platform_description.h"

namespace {

using vexo::platform::PciEntry;

bool isNamespaceName(const std::string &name)
{
	int ctrl = -1, ns = -1, used = 0;
	return std::sscanf(name.c_str(), "nvme%dn%d%n", &ctrl, &ns, &used) == 2 &&
	       static_cast<size_t>(used) == name.size() && ctrl >= 0 && ns > 0;
}

// The description's entry for the disk of path, copied out, or false.
bool locate(const char *path, PciEntry &entry)
{
	std::string name = vexo::platform::diskName(path);
	if (!isNamespaceName(name))
		return false;
	vexo::platform::Description d;
	if (!vexo::platform::loadDescription(d))
		return false;
	const PciEntry *e = vexo::platform::deepestMatch(d.nvmeSlots, vexo::platform::sysfsComponents(name));
	if (!e)
		return false;
	entry = *e;
	return true;
}

struct TypeName {
	const char *type;
	int value;
};

constexpr TypeName kTypes[] = {
	{"blocked", VEXO_NVME_PORT_BLOCKED}, {"internal", VEXO_NVME_PORT_INTERNAL}, {"cache", VEXO_NVME_PORT_CACHE},
	{"u2", VEXO_NVME_PORT_U2},           {"system", VEXO_NVME_PORT_SYSTEM},
};

} // namespace

extern "C" {

VEXOP_API int VEXONVMeCheckSupportAndNVMeSSD(const char *path)
try {
	return path && VLIBCSupportNVMe() && isNamespaceName(vexo::platform::diskName(path)) ? 1 : 0;
} VEXO_C_CATCH(0)

VEXOP_API int VEXONVMeDevLocGet(const char *path, int *slot, int *location)
try {
	if (!path || !slot || !location) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	PciEntry e;
	if (!locate(path, e)) {
		VEXO_ERR(VEXO_ERR_NOT_FOUND);
		return -1;
	}
	*slot = e.slot;
	*location = e.location;
	return 0;
} VEXO_C_CATCH(-1)

VEXOP_API int VEXONVMeDevPortTypeCheck(const char *path)
try {
	PciEntry e;
	if (!locate(path, e))
		return VEXO_NVME_PORT_NONE;
	for (const auto &t : kTypes)
		if (e.type == t.type)
			return t.value;
	return VEXO_NVME_PORT_NONE;
} VEXO_C_CATCH(VEXO_NVME_PORT_NONE)

VEXOP_API int VEXONVMeDevIsU2Slot(const char *path)
try {
	return VEXONVMeDevPortTypeCheck(path) == VEXO_NVME_PORT_U2 ? 1 : 0;
} VEXO_C_CATCH(0)

VEXOP_API int VEXONVMeDevGetByLoc(int slot, int location, char *path, int size)
try {
	if (!path || size <= 0) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::vector<std::string> matches;
	if (vexo::sysroot::glob("/sys/block/nvme*n*", matches) != 0) {
		VEXO_ERR(VEXO_ERR_GLOB);
		return -1;
	}
	for (const auto &m : matches) {
		std::string dev = "/dev/" + m.substr(m.rfind('/') + 1);
		int s = 0, l = 0;
		if (VEXONVMeDevLocGet(dev.c_str(), &s, &l) != 0 || s != slot || l != location)
			continue;
		if (VLIBCStrSnprintf(path, size, "%s", dev.c_str()) < 0) {
			VEXO_ERR(VEXO_ERR_BAD_PARAM);
			return -1;
		}
		return 0;
	}
	VEXO_ERR(VEXO_ERR_NOT_FOUND);
	return -1;
} VEXO_C_CATCH(-1)

} // extern "C"
