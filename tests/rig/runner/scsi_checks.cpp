// SCSI disks on virtio-scsi and on the LSI parallel SCSI driver: plain SCSI
// through SG_IO, against sysfs and the real sg3 tools.
#include <cstring>
#include <unistd.h>
#include <vexohw/smartctl.h>

#include "rig.h"

namespace {

std::string field(const unsigned char *p, int from, int len)
{
	return rig::trim(std::string(reinterpret_cast<const char *>(p) + from, static_cast<size_t>(len)));
}

} // namespace

// INQUIRY and the unit serial number page through sas_command_interface,
// on the SCSI disks and on the AHCI disks through libata's translation
// (the path they take on the virtual edition).
RIG_CHECK(main, scsi_inquiry)
{
	for (rig::Disk *d : g.atBoot({"virtio", "lsi", "ata"})) {
		bool ata = d->bus == "ata";
		int fd = rig::openDisk(c, *d);
		if (fd < 0)
			continue;
		unsigned char inq[512];
		std::memset(inq, 0, sizeof(inq));
		if (c.expect(sas_command_interface(fd, SCSI_INQUIRY, inq) == 0, "%s: INQUIRY failed", d->name.c_str())) {
			c.eqInt(d->role + " peripheral device type", inq[0] & 0x1F, 0);
			c.eqStr(d->role + " INQUIRY vendor", field(inq, 8, 8), ata ? "ATA" : d->vendor);
			c.eqStr(d->role + " INQUIRY product", field(inq, 16, 16), ata ? d->model.substr(0, 16) : d->product);
			std::string sys = "/sys/block/" + d->name + "/device/";
			// sysfs keeps INQUIRY's fixed-width fields, padding included.
			c.eqStr(d->role + " sysfs vendor", rig::readFile(sys + "vendor"),
				std::string(reinterpret_cast<char *>(inq) + 8, 8) + "\n");
			c.eqStr(d->role + " sysfs model", rig::readFile(sys + "model"),
				std::string(reinterpret_cast<char *>(inq) + 16, 16) + "\n");
			c.eqStr(d->role + " sysfs rev", rig::trim(rig::readFile(sys + "rev")), field(inq, 32, 4));
		}
		unsigned char vpd[512];
		std::memset(vpd, 0xEE, sizeof(vpd));
		if (c.expect(sas_command_interface(fd, SCSI_INQUIRY_SERIAL, vpd) == 0, "%s: INQUIRY page 0x80 failed",
			     d->name.c_str())) {
			c.eqInt(d->role + " VPD page code", vpd[1], 0x80);
			c.eqStr(d->role + " VPD serial", field(vpd, 4, vpd[3]), d->serial);
			std::string sysPage = rig::readFile("/sys/block/" + d->name + "/device/vpd_pg80");
			c.eqStr(d->role + " sysfs vpd_pg80", rig::hexBytes(reinterpret_cast<const unsigned char *>(sysPage.data()),
									  sysPage.size()),
				rig::hexBytes(vpd, 4u + vpd[3]));
		}
		unsigned char status = 0x55;
		c.expect(sas_command_interface(fd, SCSI_TEST_UNIT_READY, &status) == 0, "%s: TEST UNIT READY failed",
			 d->name.c_str());
		c.eqInt(d->role + " TEST UNIT READY status", status, 0);
		close(fd);
	}
}

// A log page the drive does not have: the drive answers CHECK CONDITION,
// the real sg_logs reports it, and the interface still returns 0 with no
// page in the buffer (sense data is not interpreted).
RIG_CHECK(main, scsi_log_sense_missing)
{
	struct Page {
		unsigned cmd;
		int code;
	};
	constexpr Page kPages[] = {{SCSI_LOG_READ_ERRORS, 0x03},   {SCSI_LOG_WRITE_ERRORS, 0x02},
				   {SCSI_LOG_VERIFY_ERRORS, 0x05}, {SCSI_LOG_TEMPERATURE, 0x0D},
				   {SCSI_LOG_BACKGROUND_SCAN, 0x15}, {SCSI_LOG_SELF_TEST, 0x10}};
	for (rig::Disk *d : g.atBoot({"virtio", "lsi"})) {
		int status = 0;
		rig::run({"/usr/vexo/sbin/sg_logs", "--page=0x0d", d->path()}, &status);
		c.expect(status != 0, "%s: sg_logs reads a temperature page; the drive is expected to have none",
			 d->name.c_str());
		c.note("%s: sg_logs --page=0x0d exit %d", d->role.c_str(), status);
		int fd = rig::openDisk(c, *d);
		if (fd < 0)
			continue;
		for (const Page &p : kPages) {
			// Nothing comes back: the caller's bytes stay as they were.
			unsigned char buf[512];
			std::memset(buf, 0xEE, sizeof(buf));
			c.eqInt(d->role + " LOG SENSE page " + rig::fmt("0x%02x", p.code) + " result",
				sas_command_interface(fd, p.cmd, buf), 0);
			c.eqStr(d->role + " LOG SENSE page " + rig::fmt("0x%02x", p.code) + " buffer", rig::hexBytes(buf, 8),
				"eeeeeeeeeeeeeeee");
		}
		close(fd);
	}
}

// The other SCSI commands of the interface as QEMU's disk answers them. It
// has neither the control nor the informational exceptions mode page: the
// CHECK CONDITION is taken as success and the buffer is left alone.
RIG_CHECK(main, scsi_misc)
{
	for (rig::Disk *d : g.atBoot({"virtio", "lsi"})) {
		int fd = rig::openDisk(c, *d);
		if (fd < 0)
			continue;
		unsigned char sense[512];
		std::memset(sense, 0xEE, sizeof(sense));
		c.eqInt(d->role + " REQUEST SENSE", sas_command_interface(fd, SCSI_REQUEST_SENSE, sense), 0);
		c.note("%s REQUEST SENSE %s", d->role.c_str(), rig::hexBytes(sense, 18).c_str());
		c.eqInt(d->role + " REQUEST SENSE response code", sense[0] & 0x7F, 0x70);
		for (auto [cmd, page] : {std::pair{SCSI_MODE_SENSE_CONTROL, "control"}, {SCSI_MOD_SENSE_CURRENT, "IE"}}) {
			unsigned char buf[512];
			std::memset(buf, 0xEE, sizeof(buf));
			c.eqInt(d->role + " MODE SENSE " + page, sas_command_interface(fd, cmd, buf), 0);
			c.eqStr(d->role + " MODE SENSE " + page + " buffer", rig::hexBytes(buf, 8), "eeeeeeeeeeeeeeee");
		}
		c.eqInt(d->role + " SYNCHRONIZE CACHE", sas_command_interface(fd, SCSI_SYNC_CACHE, nullptr), 0);
		unsigned char start = 1;
		c.eqInt(d->role + " START STOP UNIT (start)", sas_command_interface(fd, SCSI_START_STOP, &start), 0);
		c.eqInt(d->role + " ATA command on the SCSI interface", sas_command_interface(fd, CMD_IDENTIFY, sense), -1);
		close(fd);
	}
}
