// Identity of every disk through the library's probes, against the kernel's
// own block device answers and sysfs.
#include <cstring>
#include <fcntl.h>
#include <linux/fs.h>
#include <map>
#include <sys/ioctl.h>
#include <unistd.h>
#include <vexohw/smartctl.h>
#include <vexoplatform/vexocore.h>

#include "rig.h"

// Size and logical block size through BLKGETSIZE64 and BLKSSZGET.
RIG_CHECK(main, disk_size)
{
	for (rig::Disk *d : g.present()) {
		unsigned long long bytes = 0;
		int lbs = 0;
		if (c.expect(DiskSizeGet(d->path().c_str(), &bytes) == 0, "DiskSizeGet(%s) failed", d->path().c_str()))
			c.eqInt(d->role + " size", static_cast<long long>(bytes), static_cast<long long>(d->sizeBytes));
		if (c.expect(DiskLogicalBlockSizeGet(d->path().c_str(), &lbs) == 0, "DiskLogicalBlockSizeGet(%s) failed",
			     d->path().c_str()))
			c.eqInt(d->role + " logical block size", lbs,
				std::atoi(rig::readFile("/sys/block/" + d->name + "/queue/logical_block_size").c_str()));
	}
	unsigned long long bytes = 1;
	c.eqInt("DiskSizeGet on a missing node", DiskSizeGet("/dev/sdzz", &bytes), -1);
	c.eqInt("DiskSizeGet leaves the output alone", static_cast<long long>(bytes), 1);
}

// Model, vendor and SSD flag from the kernel's attributes.
RIG_CHECK(main, disk_identity)
{
	for (rig::Disk *d : g.present()) {
		std::string sys = "/sys/block/" + d->name + "/device/";
		char model[128] = {}, vendor[64] = {};
		if (c.expect(VEXOLnxDiskGetModel(d->path().c_str(), model, sizeof(model)) == 0,
			     "VEXOLnxDiskGetModel(%s) failed", d->path().c_str()))
			c.eqStr(d->role + " model", model, rig::trim(rig::readFile(sys + "model")));
		// The kernel's text up to its newline, padding and all ("RIGVEND ");
		// "ATA" means the kernel does not know, and the model table has no
		// row for these names.
		std::string sysVendor = rig::readFile(sys + "vendor");
		sysVendor = sysVendor.substr(0, sysVendor.find('\n'));
		std::string wantVendor = sysVendor.rfind("ATA", 0) == 0 ? "Unknown" : sysVendor;
		if (d->bus != "nvme" &&
		    c.expect(VEXOLnxDiskGetVendor(d->path().c_str(), vendor, sizeof(vendor)) == 0,
			     "VEXOLnxDiskGetVendor(%s) failed", d->path().c_str()))
			c.eqStr(d->role + " vendor", vendor, wantVendor);
		int rotational = std::atoi(rig::readFile("/sys/block/" + d->name + "/queue/rotational").c_str());
		c.eqInt(d->role + " VEXODiskIsSSD", VEXODiskIsSSD(d->path().c_str()), rotational ? 0 : 1);
	}
}

// Firmware and serial: IDENTIFY on ATA disks and Identify Controller on
// NVMe. SCSI disks take the ATA path on the hardware edition, which their
// HBAs refuse; on the virtual edition they take INQUIRY and page 0x80, and
// so do the AHCI disks through libata's translation.
RIG_CHECK(main, firm_and_serial)
{
	for (rig::Disk *d : g.present()) {
		if (d->bus == "usb")
			continue; // QEMU's USB disk has no ATA pass-through and its serial is the bridge's
		std::string sys = "/sys/block/" + d->name + "/device/";
		std::string sysFw = rig::trim(rig::readFile(sys + (d->bus == "nvme" ? "firmware_rev" : "rev")));
		char fw[64] = {}, serial[64] = {};
		VLIBCErrClear();
		int r = SmartFirmAndSerialRead(d->path().c_str(), fw, sizeof(fw), serial, sizeof(serial));
		if (d->bus == "virtio" || d->bus == "lsi") {
			c.eqInt(d->role + " SmartFirmAndSerialRead on the hardware edition", r, -1);
		} else if (c.expect(r == 0, "SmartFirmAndSerialRead(%s) failed, error 0x%04X", d->path().c_str(),
				    VLIBCErrGet())) {
			c.eqStr(d->role + " serial", serial, d->serial);
			c.eqStr(d->role + " firmware", fw, d->bus == "ata" ? d->firmware : sysFw);
		}
		if (d->bus == "nvme")
			continue;
		c.eqStr(d->role + " firmware and serial on the virtual edition",
			rig::callIn(rig::kVvosRoot, "firm-serial", d->path()), "ok\t" + sysFw + "\t" + d->serial);
	}
}

// SmartInfoGet runs the real smartctl and parses its attribute table.
RIG_CHECK(main, smart_info)
{
	for (rig::Disk *d : g.present()) {
		if (d->bus != "ata")
			continue;
		SmartInfoEntry *list = nullptr;
		if (!c.expect(SmartInfoGet(d->path().c_str(), "ata", &list, 1) == 0, "SmartInfoGet(%s) failed",
			      d->path().c_str()))
			continue;
		unsigned char v[512] = {}, t[512] = {};
		SmartDataRead(d->path().c_str(), v, t);
		int n = 0;
		for (SmartInfoEntry *e = list; e; e = e->next, ++n) {
			int id = std::atoi(e->id ? e->id : "0");
			const unsigned char *s = nullptr;
			for (int i = 0; i < 30 && !s; ++i)
				if (v[2 + 12 * i] == id)
					s = v + 2 + 12 * i;
			if (!c.expect(s != nullptr, "%s: SmartInfoGet lists attribute %d the drive does not have",
				      d->name.c_str(), id))
				continue;
			c.eqInt(d->role + " attribute " + std::to_string(id) + " value", std::atoi(e->value), s[3]);
			c.eqInt(d->role + " attribute " + std::to_string(id) + " worst", std::atoi(e->worst), s[4]);
			c.eqInt(d->role + " attribute " + std::to_string(id) + " status", e->status, SMART_ATTR_STATUS_GOOD);
		}
		int slots = 0;
		for (int i = 0; i < 30; ++i)
			slots += v[2 + 12 * i] != 0;
		c.eqInt(d->role + " SmartInfoGet entries", n, slots);
		VEXODiskSmartInfoFree(list);
	}
}

// DiskInfoEnum walks the system (no platform daemon runs in the guest):
// every disk once, with container, model, size and logical block size as
// the kernel has them.
RIG_CHECK(main, disk_info_enum)
{
	DiskListNode *list = nullptr;
	int n = DiskInfoEnum(nullptr, &list);
	if (!c.expect(n >= 0, "DiskInfoEnum failed, error 0x%04X", VLIBCErrGet()))
		return;
	std::map<std::string, const DiskInfo *> byPath;
	for (DiskListNode *cell = list; cell; cell = cell->next)
		c.expect(byPath.emplace(cell->info->path, cell->info).second, "%s listed twice", cell->info->path);
	c.eqInt("DiskInfoEnum count", n, static_cast<long long>(byPath.size()));
	for (rig::Disk *d : g.present()) {
		auto it = byPath.find(d->path());
		if (!c.expect(it != byPath.end(), "%s (%s) not enumerated", d->path().c_str(), d->role.c_str()))
			continue;
		const DiskInfo *info = it->second;
		std::string sys = "/sys/block/" + d->name;
		c.eqStr(d->role + " name", info->name, d->name);
		c.eqInt(d->role + " container", info->id.container, rig::containerOf(d->port));
		c.eqStr(d->role + " model", info->model, rig::trim(rig::readFile(sys + "/device/model")));
		c.eqInt(d->role + " size", static_cast<long long>(info->sizeBytes), static_cast<long long>(d->sizeBytes));
		c.eqInt(d->role + " logical block size", info->logicalBlockSize,
			std::atoi(rig::readFile(sys + "/queue/logical_block_size").c_str()));
	}
	c.eqInt("DiskInfoEnum lists only the guest's disks", static_cast<long long>(byPath.size()),
		static_cast<long long>(g.present().size()));
	DiskInfoEnumFree(list);
}
