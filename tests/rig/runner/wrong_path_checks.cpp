// Commands sent down a path the disk's driver does not serve: what the
// kernel answers (errno) and what the library makes of it. The drive
// emulator's refusals are modelled on these answers.
#include <cerrno>
#include <cstring>
#include <linux/hdreg.h>
#include <scsi/sg.h>
#include <sys/ioctl.h>
#include <unistd.h>
#include <vexohw/frame.h>
#include <vexohw/smartctl.h>
#include <vexoplatform/vexocore.h>

#include "rig.h"

namespace {

int rawErrno(int fd, unsigned long request, void *arg)
{
	errno = 0;
	return ioctl(fd, request, arg) == 0 ? 0 : errno;
}

} // namespace

// HDIO on disks whose host driver has no ATA ioctls (virtio_scsi,
// sym53c8xx, usb-storage): the SCSI layer answers EINVAL.
RIG_CHECK(main, hdio_on_scsi_disks)
{
	for (rig::Disk *d : g.present()) {
		if (d->bus != "virtio" && d->bus != "lsi" && d->bus != "usb")
			continue;
		int fd = rig::openDisk(c, *d);
		if (fd < 0)
			continue;
		unsigned char id[512] = {};
		c.eqStr(d->role + " HDIO_GET_IDENTITY errno", std::strerror(rawErrno(fd, HDIO_GET_IDENTITY, id)),
			std::strerror(EINVAL));
		unsigned char args[4 + 512] = {0xEC, 0, 0, 1};
		c.eqStr(d->role + " HDIO_DRIVE_CMD errno", std::strerror(rawErrno(fd, HDIO_DRIVE_CMD, args)),
			std::strerror(EINVAL));
		VLIBCErrClear();
		c.eqInt(d->role + " ata CMD_IDENTIFY", ata_command_interface(fd, CMD_IDENTIFY, id), -1);
		c.eqInt(d->role + " ata CMD_IDENTIFY error", VLIBCErrGet(), VEXO_ERR_DEVICE);
		// The null-argument wait also gets EINVAL, which counts as done.
		c.eqInt(d->role + " ata CMD_DRIVE_FLUSH", ata_command_interface(fd, CMD_DRIVE_FLUSH, nullptr), 0);
		close(fd);

		// SmartIdentifyRead follows the interface choice: ATA for SCSI disks on
		// the hardware edition (refused), SAT for USB (the bridge answers
		// CHECK CONDITION, taken as success, and the page stays zero).
		unsigned char page[512];
		std::memset(page, 0xEE, sizeof(page));
		VLIBCErrClear();
		int r = SmartIdentifyRead(d->path().c_str(), page);
		if (d->bus == "usb") {
			c.eqInt(d->role + " SmartIdentifyRead", r, 0);
			c.eqStr(d->role + " SmartIdentifyRead page", rig::hexBytes(page, 16), std::string(32, '0'));
		} else {
			c.eqInt(d->role + " SmartIdentifyRead", r, -1);
			c.eqInt(d->role + " SmartIdentifyRead error", VLIBCErrGet(), VEXO_ERR_DEVICE);
		}
	}
}

// Neither HDIO nor SG_IO reaches an NVMe namespace: ENOTTY from the nvme
// driver, -1 from both ATA interfaces.
RIG_CHECK(main, ata_on_nvme)
{
	for (rig::Disk *d : g.present()) {
		if (d->bus != "nvme")
			continue;
		int fd = rig::openDisk(c, *d);
		if (fd < 0)
			continue;
		unsigned char args[4 + 512] = {0xEC, 0, 0, 1};
		c.eqStr(d->role + " HDIO_DRIVE_CMD errno", std::strerror(rawErrno(fd, HDIO_DRIVE_CMD, args)),
			std::strerror(ENOTTY));
		unsigned char cdb[16] = {0x85, 0x08, 0x0E};
		cdb[6] = 1;
		cdb[14] = 0xEC;
		unsigned char sense[32], data[512];
		sg_io_hdr_t h = {};
		h.interface_id = 'S';
		h.cmd_len = 16;
		h.cmdp = cdb;
		h.dxfer_direction = SG_DXFER_FROM_DEV;
		h.dxfer_len = 512;
		h.dxferp = data;
		h.mx_sb_len = sizeof(sense);
		h.sbp = sense;
		h.timeout = 20000;
		c.eqStr(d->role + " SG_IO errno", std::strerror(rawErrno(fd, SG_IO, &h)), std::strerror(ENOTTY));
		unsigned char id[512];
		c.eqInt(d->role + " ata CMD_IDENTIFY", ata_command_interface(fd, CMD_IDENTIFY, id), -1);
		c.eqInt(d->role + " sat CMD_IDENTIFY", sat_command_interface(fd, CMD_IDENTIFY, id), -1);
		close(fd);
	}
}

// What libata writes back into the HDIO_DRIVE_CMD header: nothing after a
// data command; status, error and sector count after a non-data command
// (it asks for the ATA return descriptor and copies it); nothing after an
// aborted command. The library reads only byte 2 after CHECK POWER MODE.
RIG_CHECK(main, hdio_header)
{
	for (auto &d : g.disks) {
		if (d.bus != "ata" || d.name.empty())
			continue;
		int fd = rig::openDisk(c, d);
		if (fd < 0)
			continue;
		unsigned char data[4 + 512] = {0xB0, 0x00, 0xD0, 0x01};
		if (c.eqInt(d.role + " SMART READ DATA", rawErrno(fd, HDIO_DRIVE_CMD, data), 0))
			c.eqStr(d.role + " header after SMART READ DATA", rig::hexBytes(data, 4), "b000d001");
		unsigned char cpm[4] = {0xE5, 0, 0, 0};
		if (c.eqInt(d.role + " CHECK POWER MODE", rawErrno(fd, HDIO_DRIVE_CMD, cpm), 0))
			c.eqStr(d.role + " header after CHECK POWER MODE", rig::hexBytes(cpm, 4), "5000ff00");
		unsigned char pk[4 + 512] = {0xA1, 0x00, 0x00, 0x01};
		if (c.eqInt(d.role + " IDENTIFY PACKET (aborted) errno", rawErrno(fd, HDIO_DRIVE_CMD, pk), EIO))
			c.eqStr(d.role + " header after an abort", rig::hexBytes(pk, 4), "a1000001");
		close(fd);
	}
}
