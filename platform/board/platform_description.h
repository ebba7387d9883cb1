// The platform description /etc.defaults/vexoplatform.json and the sysfs
// placement of a disk (not exported; the format is in
// <vexoplatform/nvme_location.h>).
#pragma once

#include <map>
#include <string>
#include <vector>

namespace vexo::platform {

struct PciEntry {
	std::string pci;  // PCI address on the disk's path
	int slot = 0;
	int location = 0; // nvme_slots only
	std::string type; // nvme_slots only
	std::string card; // adapter_slots only
	std::string unique; // pcie_eunits only
};

struct Description {
	std::string model;
	bool ebox = false;
	std::vector<PciEntry> nvmeSlots;
	std::vector<PciEntry> adapterSlots;
	std::vector<PciEntry> pcieEunits;
	// card model -> attribute -> supported
	std::map<std::string, std::map<std::string, bool>> cards;
};

// Reads the description afresh. false (and 0x0700 / 0x0A00) when it is
// missing or not valid JSON of the documented shape.
bool loadDescription(Description &d);

// The short disk name of a path: /dev/ skipped, partition removed. "" when
// it cannot be one.
std::string diskName(const char *path);

// The components of the resolved /sys/block/<name> link, from the root
// down. Empty when the link does not resolve.
std::vector<std::string> sysfsComponents(const std::string &name);

// The entry whose pci equals the deepest matching component, or null.
const PciEntry *deepestMatch(const std::vector<PciEntry> &entries, const std::vector<std::string> &components);

} // namespace vexo::platform
