// ATA port and PCIe slot of a SATA disk behind an M.2 adapter card.
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <glob.h>
#include <string>
#include <vector>

#include <vexohw/disk.h>
#include <vexoplatform/nvme_location.h>

#include "frame/err.h"
#include "frame/sysroot.h"

namespace {

constexpr const char *kExtensionPorts = "/etc.defaults/extensionPorts";

// The ATA port number under the disk's host: sysfs puts the ata<n>
// directory five levels above /sys/block/<name>/.
int hostPort(const char *name, int *port)
{
	char pattern[4200];
	std::snprintf(pattern, sizeof(pattern), "/sys/block/%s/../../../../../ata_port/ata*/port_no", name);
	std::vector<std::string> matches;
	int rc = vexo::sysroot::glob(pattern, matches);
	if (rc == GLOB_NOSPACE) {
		vlog(LOG_ERR, "%s:%d out of memory to alloc glob function when looking for:%s", VEXO_AT, pattern);
		return -1;
	}
	if (rc != 0) {
		vlog(LOG_ERR, "%s:%d read error :%s", VEXO_AT, pattern);
		return -1;
	}
	if (matches.empty()) {
		vlog(LOG_ERR, "%s:%d glob found nothing: %s", VEXO_AT, pattern);
		return -1;
	}
	PVLIBSZLIST lines = VLIBCSzListAlloc(4);
	if (!lines)
		return -1;
	int value = 0;
	bool ok = VLIBCFileReadLines(matches[0].c_str(), &lines) > 0 && lines->nItem > 0 &&
		  std::sscanf(VLIBCSzListGet(lines, 0), "%d", &value) == 1;
	VLIBCSzListFree(lines);
	if (!ok)
		return -1;
	*port = value;
	return 0;
}

// Only VQ110 wires two M.2 SATA ports (ATA ports 5 and 6) to the board.
int boardM2Remap(const char *name, int *port, int *slot)
{
	char model[1024] = {};
	if (VexoHWVersionGet(model, sizeof(model)) == 0 && std::strcmp(model, "VQ110") == 0) {
		if (*port == 5 || *port == 6) {
			*slot = 0;
			*port -= 4;
			return 0;
		}
		vlog(LOG_ERR, "%s:%d %s: %s port no %d out of expection", VEXO_AT, "DiskInexAndSlotRemap", name, *port);
	}
	vlog(LOG_ERR, "%s:%d disk index and slot remap failed", VEXO_AT);
	return -1;
}

// The slot whose PCI device id (section "pci" of extensionPorts) is on the
// disk's resolved sysfs path.
int pciSlot(const char *name, int *slot)
{
	char link[4200];
	char real[PATH_MAX];
	std::snprintf(link, sizeof(link), "/sys/block/%s", name);
	if (!vexo::sysroot::realpath(link, real))
		return -1;
	PVLIBSZHASH section = VLIBCSzHashAlloc(8);
	if (!section)
		return -1;
	int rc = -1;
	if (VLIBCFileGetSection(kExtensionPorts, "pci", &section) >= 0) {
		for (char *save = nullptr, *comp = strtok_r(real, "/", &save); comp && rc != 0;
		     comp = strtok_r(nullptr, "/", &save)) {
			for (int i = 0; i < section->nItem && rc != 0; ++i) {
				const char *key = section->ppszKey[i];
				const char *value = key ? VLIBCSzHashGetValue(section, key) : nullptr;
				if (!value) {
					vlog(LOG_ERR, "%s:%d fail to get pci device sequence", VEXO_AT);
					continue;
				}
				if (!*value) {
					vlog(LOG_ERR, "%s:%d find no pci device id", VEXO_AT);
					continue;
				}
				if (std::strncmp(value, comp, std::strlen(comp)) == 0 && std::sscanf(key, "pci%d", slot) == 1)
					rc = 0;
			}
		}
	}
	VLIBCSzHashFree(section);
	return rc;
}

} // namespace

extern "C" {

VEXO_API int DiskIndexAndSlotGet(const char *path, int *port, int *slot)
try {
	if (!path || !port || !slot) {
		vlog(LOG_ERR, "%s:%d Bad Parameters", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	char disk[4096];
	if (DiskPartitionNumRemove(path, disk, sizeof(disk)) != 0)
		return -1;
	const char *name = VEXODiskDevPrefixSkip(disk);

	int p = 0;
	int s = -1;
	if (hostPort(name, &p) != 0) {
		vlog(LOG_ERR, "%s:%d Fail to get disk host port: %s", VEXO_AT, name);
		return -1;
	}
	int model = VEXOM2CardModelGet(path);
	if (model == VEXO_M2CARD_UNKNOWN) {
		vlog(LOG_ERR, "%s:%d Unknown M2 card model: %s", VEXO_AT, name);
		return -1;
	}
	if (model == VEXO_M2CARD_NONE) {
		if (boardM2Remap(name, &p, &s) != 0)
			return -1;
	} else if (pciSlot(name, &s) != 0) {
		vlog(LOG_ERR, "%s:%d Fail to get disk PCI slot: %s", VEXO_AT, name);
		return -1;
	}
	*port = p;
	*slot = s;
	return 0;
} VEXO_C_CATCH(-1)

} // extern "C"
