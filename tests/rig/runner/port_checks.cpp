// Classification of every disk against the kernel's sysfs: port types from
// the port maps the guest wrote, containers, drivers, protocols and the
// command interface each disk gets.
#include <algorithm>
#include <cstring>
#include <map>
#include <vexohw/disk.h>
#include <vexohw/disk_port.h>
#include <vexohw/disk_probe.h>
#include <vexohw/smartctl.h>

#include "rig.h"

namespace {

int portTypeOf(const rig::Disk &d)
{
	static const std::map<std::string, int> kTypes = {{"internal", DISK_PORT_TYPE_INTERNAL},
							   {"esata", DISK_PORT_TYPE_ESATA},
							   {"usb", DISK_PORT_TYPE_USB},
							   {"cache", DISK_PORT_TYPE_CACHE}};
	auto it = kTypes.find(d.port);
	return it == kTypes.end() ? -1 : it->second;
}

} // namespace

namespace rig {
std::map<int, std::string> expectedPortSets(Guest &g)
{
	std::map<int, std::vector<std::string>> sets;
	for (int t : {DISK_PORT_TYPE_INTERNAL, DISK_PORT_TYPE_ESATA, DISK_PORT_TYPE_USB, DISK_PORT_TYPE_CACHE})
		sets[t];
	for (Disk *d : g.present())
		sets[portTypeOf(*d)].push_back(d->name);
	std::map<int, std::string> out;
	for (auto &[t, v] : sets)
		out[t] = joinSorted(v);
	return out;
}
} // namespace rig

// Each disk's port type and container, and the interface and command
// family it gets: USB always SAT; on the hardware edition every other
// non-NVMe disk is ATA, and NVMe falls back to the ATA answer.
RIG_CHECK(main, disk_classification)
{
	for (rig::Disk *d : g.present()) {
		std::string path = d->path();
		int type = portTypeOf(*d);
		c.eqInt(d->role + " VEXODiskPortCheck", VEXODiskPortCheck(path.c_str()), type);
		int container = 0;
		if (c.expect(DiskContainerGet(path.c_str(), &container) == 0, "DiskContainerGet(%s) failed", path.c_str()))
			c.eqInt(d->role + " container", container, rig::containerOf(d->port));
		DriveCommandInterface want = d->bus == "usb" ? sat_command_interface : ata_command_interface;
		DriveCommandInterface got = VEXOSmartctlCommandInterfaceGet(path.c_str());
		c.eqStr(d->role + " command interface", rig::ifaceName(got), rig::ifaceName(want));
		char family[16] = {};
		const char *wantFamily = d->bus == "nvme" ? "nvme" : d->bus == "usb" ? "sat" : "ata";
		if (c.expect(VEXODiskDeviceTypeGet(path.c_str(), family, sizeof(family)) == 0,
			     "VEXODiskDeviceTypeGet(%s) failed", path.c_str()))
			c.eqStr(d->role + " device type", family, wantFamily);
	}
}

// Driver and protocol probes read the real sysfs: only the AHCI disks sit
// on "ahci"; virtio_scsi, sym53c8xx, usb-storage and NVMe are "other".
RIG_CHECK(main, driver_and_protocol)
{
	for (rig::Disk *d : g.present()) {
		std::string path = d->path();
		c.eqInt(d->role + " VEXOGetDiskDriver", VEXOGetDiskDriver(path.c_str()),
			d->bus == "ata" ? VEXO_DISK_DRIVER_AHCI : VEXO_DISK_DRIVER_OTHER);
		c.eqInt(d->role + " VEXODiskScsiProtocolGet", VEXODiskScsiProtocolGet(path.c_str()),
			d->bus == "nvme" ? VEXO_DISK_PROTOCOL_NVME : VEXO_DISK_PROTOCOL_ATA);
		c.eqInt(d->role + " VEXODiskIsMvSocDriver", VEXODiskIsMvSocDriver(path.c_str()), 0);
		c.eqInt(d->role + " VEXODiskIsMv1475Driver", VEXODiskIsMv1475Driver(path.c_str()), 0);
		// Also by short name.
		c.eqInt(d->role + " VEXOGetDiskDriver by name", VEXOGetDiskDriver(d->name.c_str()),
			d->bus == "ata" ? VEXO_DISK_DRIVER_AHCI : VEXO_DISK_DRIVER_OTHER);
	}
}

// VEXODiskPortEnum lists every present disk under its port type.
RIG_CHECK(main, port_enum)
{
	for (auto &[type, want] : rig::expectedPortSets(g)) {
		PVLIBSZLIST list = VLIBCSzListAlloc(4);
		if (!c.expect(list && VEXODiskPortEnum(type, &list) == 0, "VEXODiskPortEnum(%d) failed", type)) {
			VLIBCSzListFree(list);
			continue;
		}
		std::vector<std::string> got(list->ppszItem, list->ppszItem + list->nItem);
		c.expect(std::is_sorted(got.begin(), got.end()), "VEXODiskPortEnum(%d) is not sorted", type);
		c.eqStr(rig::fmt("VEXODiskPortEnum(%d)", type), rig::joinSorted(got), want);
		VLIBCSzListFree(list);
	}
}

// The virtual edition: every disk but NVMe is SCSI there, so the SCSI
// interface serves AHCI (libata translates), virtio and LSI disks; USB
// stays SAT because the container is tested first.
RIG_CHECK(main, vvos_interfaces)
{
	for (rig::Disk *d : g.present()) {
		const char *want = d->bus == "usb" ? "sat" : d->bus == "nvme" ? "ata" : "sas";
		c.eqStr(d->role + " interface on the virtual edition", rig::callIn(rig::kVvosRoot, "iface", d->path()), want);
	}
}
