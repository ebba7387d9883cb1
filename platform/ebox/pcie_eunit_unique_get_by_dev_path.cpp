// Expansion units attached over PCIe: which unit holds a disk, and the
// disk's bay in it, from the disk's place on the PCI tree.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <vexoplatform/vexoerr.h>
#include <vexoplatform/ebox_info.h>
#include <vexoplatform/vexocore.h>

#include "frame/err.h"
#include "frame/path_read.h"
#include "platform/board/platform_description.h"

namespace {

using vexo::platform::PciEntry;

// Index of the component that is the entry's PCI address, or -1.
int componentOf(const std::vector<std::string> &components, const PciEntry &e)
{
	for (size_t i = components.size(); i-- > 0;)
		if (components[i] == e.pci)
			return static_cast<int>(i);
	return -1;
}

// The ATA port number (from 1) of the first ata<n> directory below `from`.
int ataPortBelow(const std::vector<std::string> &components, size_t from)
{
	std::string dir;
	for (size_t i = 0; i < components.size(); ++i) {
		dir += "/" + components[i];
		unsigned n = 0;
		char tail = 0;
		if (i <= from || std::sscanf(components[i].c_str(), "ata%u%c", &n, &tail) != 1)
			continue;
		int32_t port = 0;
		if (!vexo::readS32(dir + "/ata_port/" + components[i] + "/port_no", port))
			return -1;
		return port;
	}
	return -1;
}

} // namespace

extern "C" {

VEXOP_API int VEXOPcieEunitUniqueGetByDevPath(const char *diskPath, char *unique, int size)
try {
	std::string name = vexo::platform::diskName(diskPath);
	if (name.empty() || !unique || size <= 0) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	vexo::platform::Description d;
	if (!vexo::platform::loadDescription(d)) {
		VEXO_ERR_PASS();
		return -1;
	}
	std::vector<std::string> components = vexo::platform::sysfsComponents(name);
	if (components.empty()) {
		VEXO_ERR(VEXO_ERR_NOENT);
		return -1;
	}
	const PciEntry *unit = vexo::platform::deepestMatch(d.pcieEunits, components);
	if (!unit) {
		VEXO_ERR(VEXO_ERR_NOT_FOUND);
		return -1;
	}
	int at = componentOf(components, *unit);
	// A SATA disk of the unit sits on one ATA port of the unit's controller;
	// an NVMe disk in one of the unit's NVMe locations.
	int bay = ataPortBelow(components, static_cast<size_t>(at));
	if (bay <= 0) {
		const PciEntry *slot = vexo::platform::deepestMatch(d.nvmeSlots, components);
		bay = slot && componentOf(components, *slot) > at ? slot->location : -1;
	}
	if (unit->unique.empty()) {
		vlog(LOG_ERR, "%s:%d No unique text for the expansion unit at %s", VEXO_AT, unit->pci.c_str());
		VEXO_ERR(VEXO_ERR_READ);
		return -1;
	}
	if (bay <= 0) {
		vlog(LOG_ERR, "%s:%d Failed to place %s in the expansion unit at %s", VEXO_AT, name.c_str(),
		     unit->pci.c_str());
		VEXO_ERR(VEXO_ERR_READ);
		return -1;
	}
	if (VLIBCStrSnprintf(unique, size, "%s", unit->unique.c_str()) < 0) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	return bay - 1;
} VEXO_C_CATCH(-1)

} // extern "C"
