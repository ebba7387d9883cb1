// ATA disks on the kernel's AHCI driver: the HDIO path (libata's
// HDIO_DRIVE_CMD and HDIO_GET_IDENTITY) and the SAT path (libata's own
// ATA PASS-THROUGH translation) against what the kernel and the real tools
// say about the same drive.
#include <cerrno>
#include <cstring>
#include <map>
#include <sstream>
#include <unistd.h>
#include <vexohw/frame.h>
#include <vexohw/smartctl.h>
#include <vexoplatform/vexocore.h>

#include "rig.h"

namespace {

using rig::Check;
using rig::Disk;

struct Iface {
	const char *name;
	DriveCommandInterface fn;
};
constexpr Iface kAtaIfaces[] = {{"ata", ata_command_interface}, {"sat", sat_command_interface}};

// One attribute row of `smartctl -A`.
struct ToolAttr {
	int id = 0, flags = 0, value = 0, worst = 0, thresh = 0;
	std::string raw;
};

std::map<int, ToolAttr> smartctlAttributes(const std::string &text)
{
	std::map<int, ToolAttr> out;
	std::istringstream in(text);
	bool table = false;
	for (std::string line; std::getline(in, line);) {
		if (line.rfind("ID#", 0) == 0) {
			table = true;
			continue;
		}
		if (!table)
			continue;
		std::istringstream f(line);
		ToolAttr a;
		std::string name, flags, type, updated, when;
		if (!(f >> a.id >> name >> flags >> a.value >> a.worst >> a.thresh >> type >> updated >> when))
			break;
		a.flags = static_cast<int>(std::strtol(flags.c_str(), nullptr, 16));
		std::getline(f, a.raw);
		a.raw = rig::trim(a.raw);
		out[a.id] = a;
	}
	return out;
}

const unsigned char *slot(const unsigned char *page, int id)
{
	for (int i = 0; i < 30; ++i)
		if (page[2 + 12 * i] == id)
			return page + 2 + 12 * i;
	return nullptr;
}

unsigned long long raw48(const unsigned char *s)
{
	unsigned long long v = 0;
	for (int i = 5; i >= 0; --i)
		v = (v << 8) | s[5 + i];
	return v;
}

} // namespace

// IDENTIFY through HDIO: the page checksums and carries the identity QEMU
// was given, as the kernel's sysfs and hdparm -I show it.
RIG_CHECK(main, ata_identify_hdio)
{
	for (Disk *d : g.atBoot({"ata"})) {
		int fd = rig::openDisk(c, *d);
		if (fd < 0)
			continue;
		unsigned char id[512] = {};
		if (!c.expect(ata_command_interface(fd, CMD_IDENTIFY, id) == 0, "%s: CMD_IDENTIFY failed, error 0x%04X",
			      d->name.c_str(), VLIBCErrGet())) {
			close(fd);
			continue;
		}
		// QEMU leaves word 255 zero: no integrity signature, so no checksum to hold.
		if (id[510] == 0xA5)
			c.eqInt(d->role + " checksum", VEXOSmartChecksum(id), 0);
		else
			c.note("%s: no integrity word (word 255 = 0x%04x)", d->role.c_str(), rig::word(id, 255));
		c.eqStr(d->role + " serial (words 10-19)", rig::ataString(id, 10, 10), d->serial);
		c.eqStr(d->role + " firmware (words 23-26)", rig::ataString(id, 23, 4), d->firmware);
		c.eqStr(d->role + " model (words 27-46)", rig::ataString(id, 27, 20), d->model);
		c.eqInt(d->role + " rotation rate (word 217)", rig::word(id, 217), d->rotation);
		uint16_t w106 = rig::word(id, 106);
		unsigned perPhysical = (w106 & 0xC000) == 0x4000 && (w106 & 0x2000) ? 1u << (w106 & 0xF) : 1u;
		c.eqInt(d->role + " physical block (word 106)", perPhysical * 512, d->physicalBlock);

		// The kernel keeps 16 characters of the model, space-padded, and
		// "ATA" padded to 8 as the vendor.
		std::string padded = d->model.substr(0, 16);
		padded.resize(16, ' ');
		c.eqStr(d->role + " sysfs model", rig::readFile("/sys/block/" + d->name + "/device/model"), padded + "\n");
		c.eqStr(d->role + " sysfs vendor", rig::readFile("/sys/block/" + d->name + "/device/vendor"), "ATA     \n");
		// libata's INQUIRY revision: the last four of the eight firmware
		// characters, or the first four when those are blank.
		std::string fw8 = d->firmware.substr(0, 8);
		fw8.resize(8, ' ');
		std::string rev = fw8.substr(4) == "    " ? fw8.substr(0, 4) : fw8.substr(4);
		c.eqStr(d->role + " sysfs rev", rig::readFile("/sys/block/" + d->name + "/device/rev"), rev + "\n");
		c.eqInt(d->role + " sysfs rotational",
			std::atoi(rig::readFile("/sys/block/" + d->name + "/queue/rotational").c_str()),
			d->rotation == 1 ? 0 : 1);

		int status = 0;
		std::string hd = rig::run({"/usr/bin/hdparm", "-I", d->path()}, &status);
		c.expect(status == 0, "hdparm -I %s exited %d", d->path().c_str(), status);
		c.eqStr(d->role + " hdparm Model Number", rig::field(hd, "Model Number"), rig::ataString(id, 27, 20));
		c.eqStr(d->role + " hdparm Serial Number", rig::field(hd, "Serial Number"), rig::ataString(id, 10, 10));
		c.eqStr(d->role + " hdparm Firmware Revision", rig::field(hd, "Firmware Revision"),
			rig::ataString(id, 23, 4));

		// SmartIdentifyRead gives the same page.
		unsigned char again[512] = {};
		if (c.expect(SmartIdentifyRead(d->path().c_str(), again) == 0, "SmartIdentifyRead(%s) failed, error 0x%04X",
			     d->path().c_str(), VLIBCErrGet()))
			c.expect(std::memcmp(id, again, 512) == 0, "SmartIdentifyRead(%s) differs from CMD_IDENTIFY",
				 d->path().c_str());

		// Not a packet device: IDENTIFY PACKET goes out as 0xA1 and the drive aborts it.
		VLIBCErrClear();
		unsigned char pk[512] = {};
		c.eqInt(d->role + " CMD_PACKET_IDENTIFY result", ata_command_interface(fd, CMD_PACKET_IDENTIFY, pk), -1);
		c.eqInt(d->role + " CMD_PACKET_IDENTIFY error", VLIBCErrGet(), VEXO_ERR_DEVICE);
		close(fd);
	}
}

// IDENTIFY through ATA PASS-THROUGH answers the same page as through HDIO.
RIG_CHECK(main, ata_identify_sat)
{
	for (Disk *d : g.atBoot({"ata"})) {
		int fd = rig::openDisk(c, *d);
		if (fd < 0)
			continue;
		unsigned char hdio[512] = {}, sat[512];
		std::memset(sat, 0xEE, sizeof(sat));
		bool ok = c.expect(ata_command_interface(fd, CMD_IDENTIFY, hdio) == 0, "%s: HDIO IDENTIFY failed",
				   d->name.c_str());
		ok = c.expect(sat_command_interface(fd, CMD_IDENTIFY, sat) == 0, "%s: SAT IDENTIFY failed",
			      d->name.c_str()) && ok;
		if (ok && std::memcmp(hdio, sat, 512) != 0) {
			int first = 0;
			while (hdio[first] == sat[first])
				++first;
			c.fail("%s: SAT IDENTIFY differs from HDIO from byte %d (hdio %s, sat %s)", d->name.c_str(), first,
			       rig::hexBytes(hdio + first, 8).c_str(), rig::hexBytes(sat + first, 8).c_str());
		}
		if (ok)
			c.eqStr(d->role + " SAT serial", rig::ataString(sat, 10, 10), d->serial);
		close(fd);
	}
}

// SMART READ DATA and READ THRESHOLDS on both paths, and what the real
// smartctl prints for the same drive.
RIG_CHECK(main, ata_smart_data)
{
	for (Disk *d : g.atBoot({"ata"})) {
		int fd = rig::openDisk(c, *d);
		if (fd < 0)
			continue;
		unsigned char values[2][512] = {}, thresholds[2][512] = {};
		bool ok = true;
		for (int i = 0; i < 2; ++i) {
			const Iface &f = kAtaIfaces[i];
			ok = c.expect(f.fn(fd, CMD_SMART_READ_VALUES, values[i]) == 0, "%s %s: SMART READ DATA failed",
				      d->name.c_str(), f.name) && ok;
			ok = c.expect(f.fn(fd, CMD_SMART_READ_THRESHOLDS, thresholds[i]) == 0,
				      "%s %s: SMART READ THRESHOLDS failed", d->name.c_str(), f.name) && ok;
			c.eqInt(d->role + " " + f.name + " values checksum", VEXOSmartChecksum(values[i]), 0);
			c.eqInt(d->role + " " + f.name + " thresholds checksum", VEXOSmartChecksum(thresholds[i]), 0);
		}
		close(fd);
		if (!ok)
			continue;
		c.expect(std::memcmp(values[0], values[1], 512) == 0, "%s: SMART data differs between HDIO and SAT",
			 d->name.c_str());
		c.expect(std::memcmp(thresholds[0], thresholds[1], 512) == 0,
			 "%s: SMART thresholds differ between HDIO and SAT", d->name.c_str());

		unsigned char v2[512], t2[512];
		if (c.expect(SmartDataRead(d->path().c_str(), v2, t2) == 0, "SmartDataRead(%s) failed", d->path().c_str())) {
			c.expect(std::memcmp(v2, values[0], 512) == 0, "SmartDataRead values differ on %s", d->name.c_str());
			c.expect(std::memcmp(t2, thresholds[0], 512) == 0, "SmartDataRead thresholds differ on %s",
				 d->name.c_str());
		}

		int status = 0;
		std::string out = rig::run({"/usr/bin/smartctl", "-A", d->path()}, &status);
		auto tool = smartctlAttributes(out);
		c.expect(!tool.empty(), "smartctl -A %s printed no attributes (exit %d)", d->path().c_str(), status);
		int slots = 0;
		for (int i = 0; i < 30; ++i)
			slots += values[0][2 + 12 * i] != 0;
		c.eqInt(d->role + " attributes (page vs smartctl)", slots, static_cast<long long>(tool.size()));
		for (const auto &[id, a] : tool) {
			const unsigned char *s = slot(values[0], id);
			const unsigned char *t = slot(thresholds[0], id);
			if (!c.expect(s != nullptr, "%s: smartctl shows attribute %d, the page has none", d->name.c_str(), id))
				continue;
			std::string what = d->role + " attribute " + std::to_string(id);
			c.eqInt(what + " flags", s[1] | (s[2] << 8), a.flags);
			c.eqInt(what + " value", s[3], a.value);
			c.eqInt(what + " worst", s[4], a.worst);
			c.eqInt(what + " threshold", t ? t[1] : -1, a.thresh);
			// Temperatures print their first byte with min/max; the rest raw48.
			unsigned long long raw = (id == 190 || id == 194) ? s[5] : raw48(s);
			c.eqInt(what + " raw", static_cast<long long>(raw), std::strtoll(a.raw.c_str(), nullptr, 10));
		}
		c.note("%s: %zu attributes, smartctl exit %d", d->role.c_str(), tool.size(), status);
	}
}

// Temperature from attribute 194 or 190 where the drive has one.
RIG_CHECK(main, ata_temperature)
{
	for (Disk *d : g.atBoot({"ata"})) {
		unsigned char v[512] = {};
		if (!c.expect(SmartDataRead(d->path().c_str(), v, nullptr) == 0, "SmartDataRead(%s) failed",
			      d->path().c_str()))
			continue;
		const unsigned char *s194 = slot(v, 194), *s190 = slot(v, 190);
		int want194 = s194 ? s194[5] : -1, want190 = s190 ? s190[5] : -1;
		c.note("%s: attribute 194 %s, 190 %s", d->role.c_str(), s194 ? std::to_string(want194).c_str() : "absent",
		       s190 ? std::to_string(want190).c_str() : "absent");
		c.eqInt(d->role + " SmartTemperatureGet", SmartTemperatureGet(v), want194);
		c.eqInt(d->role + " SmartAirflowTempGet", SmartAirflowTempGet(v), want190);
		if (s194 || s190)
			c.eqInt(d->role + " VEXODiskTemperatureGet", VEXODiskTemperatureGet(d->path().c_str()),
				s194 ? want194 : want190);
	}
}

// The self-test logs: SMART READ LOG 6 on both paths, the log directory,
// and READ LOG EXT of the extended self-test log through SG_IO.
RIG_CHECK(main, ata_selftest_log)
{
	for (Disk *d : g.atBoot({"ata"})) {
		int fd = rig::openDisk(c, *d);
		if (fd < 0)
			continue;
		unsigned char log[2][512] = {};
		for (int i = 0; i < 2; ++i) {
			const Iface &f = kAtaIfaces[i];
			if (c.expect(f.fn(fd, CMD_SMART_READ_SELFTEST_LOG, log[i]) == 0, "%s %s: SMART READ LOG 6 failed",
				     d->name.c_str(), f.name))
				c.eqInt(d->role + " " + f.name + " self-test log checksum", VEXOSmartChecksum(log[i]), 0);
		}
		c.expect(std::memcmp(log[0], log[1], 512) == 0, "%s: self-test log differs between HDIO and SAT",
			 d->name.c_str());
		c.note("%s self-test log head %s", d->role.c_str(), rig::hexBytes(log[0], 8).c_str());

		unsigned char dir[2][512];
		int dr[2];
		for (int i = 0; i < 2; ++i) {
			std::memset(dir[i], 0xEE, 512);
			dr[i] = kAtaIfaces[i].fn(fd, CMD_SMART_READ_LOG_DIRECTORY, dir[i]);
		}
		// QEMU's drive aborts SMART READ LOG of the directory. Through HDIO
		// that is EIO; through SG_IO the ioctl succeeds with CHECK CONDITION,
		// which the SAT path counts as success, its buffer cleared.
		c.note("%s log directory: ata %d (%s), sat %d (%s)", d->role.c_str(), dr[0], rig::hexBytes(dir[0], 4).c_str(),
		       dr[1], rig::hexBytes(dir[1], 4).c_str());
		c.eqInt(d->role + " ata log directory (aborted)", dr[0], -1);
		c.eqInt(d->role + " sat log directory (CHECK CONDITION)", dr[1], 0);
		c.eqStr(d->role + " sat log directory buffer", rig::hexBytes(dir[1], 16), std::string(32, '0'));

		// Likewise READ LOG EXT, which QEMU's drive does not have: 0, and
		// the caller's buffer cleared rather than left as it was.
		unsigned char ext[512];
		std::memset(ext, 0xEE, sizeof(ext));
		c.eqInt(d->role + " READ LOG EXT 0x07", SMARTReadLogExt(fd, 0, 1, 0x07, 0, ext), 0);
		c.eqStr(d->role + " READ LOG EXT buffer", rig::hexBytes(ext, 16), std::string(32, '0'));
		c.eqInt(d->role + " READ LOG EXT null buffer", SMARTReadLogExt(fd, 0, 1, 0x07, 0, nullptr), -1);
		close(fd);
	}
}

// SMART ENABLE reaches the drive: smartctl turns SMART off, the library
// turns it on again, on each path. QEMU keeps its IDENTIFY page as first
// built (word 85 does not follow), so the state is seen by reading the
// SMART data, which the drive aborts while SMART is off.
RIG_CHECK(main, ata_smart_enable)
{
	auto state = [&c](const rig::Disk &d) {
		int fd = rig::openDisk(c, d);
		if (fd < 0)
			return std::string("?");
		unsigned char page[512];
		bool on = ata_command_interface(fd, CMD_SMART_READ_VALUES, page) == 0;
		close(fd);
		return std::string(on ? "on" : "off");
	};
	for (Disk *d : g.atBoot({"ata"})) {
		for (const Iface &f : kAtaIfaces) {
			rig::run({"/usr/bin/smartctl", "-s", "off", d->path()});
			if (!c.eqStr(d->role + " after smartctl -s off", state(*d), "off"))
				continue;
			if (f.fn == ata_command_interface) {
				c.expect(SmartEnable(d->path().c_str()) == 0, "SmartEnable(%s) failed", d->path().c_str());
			} else {
				int fd = rig::openDisk(c, *d);
				if (fd < 0)
					continue;
				c.expect(f.fn(fd, CMD_SMART_ENABLE, nullptr) == 0, "%s %s: SMART ENABLE failed",
					 d->name.c_str(), f.name);
				close(fd);
			}
			c.eqStr(d->role + " after " + f.name + " SMART ENABLE", state(*d), "on");
		}
		// Whatever happened, leave SMART on for the checks after this one.
		rig::run({"/usr/bin/smartctl", "-s", "on", d->path()});
	}
}

// CHECK POWER MODE: the sector count register comes back in data[0] on
// both paths; hdparm -C reads the same state.
RIG_CHECK(main, ata_check_power_mode)
{
	for (Disk *d : g.atBoot({"ata"})) {
		int fd = rig::openDisk(c, *d);
		if (fd < 0)
			continue;
		unsigned char mode[2] = {0x42, 0x42};
		for (int i = 0; i < 2; ++i)
			c.expect(kAtaIfaces[i].fn(fd, CMD_CHECK_POWER_MODE, &mode[i]) == 0, "%s %s: CHECK POWER MODE failed",
				 d->name.c_str(), kAtaIfaces[i].name);
		close(fd);
		c.eqInt(d->role + " power mode (ata)", mode[0], 0xFF);
		c.eqInt(d->role + " power mode (sat)", mode[1], 0xFF);
		std::string out = rig::run({"/usr/bin/hdparm", "-C", d->path()});
		c.eqStr(d->role + " hdparm -C", rig::field(out, "drive state is"), "active/idle");

		// STANDBY IMMEDIATE is accepted on both paths. QEMU's drive keeps
		// answering 0xFF afterwards: power states are not modelled.
		fd = rig::openDisk(c, *d);
		if (fd < 0)
			continue;
		for (const Iface &f : kAtaIfaces) {
			c.eqInt(d->role + " " + f.name + " STANDBY IMMEDIATE", f.fn(fd, CMD_STANDBY_IMMEDIATE, nullptr), 0);
			unsigned char after = 0x42;
			f.fn(fd, CMD_CHECK_POWER_MODE, &after);
			c.note("%s %s: power mode after standby 0x%02x", d->role.c_str(), f.name, after);
		}
		close(fd);
	}
}

// The flush wait: libata refuses HDIO_DRIVE_CMD with a null argument
// (EINVAL), which counts as done.
RIG_CHECK(main, ata_drive_flush)
{
	for (Disk *d : g.atBoot({"ata"})) {
		int fd = rig::openDisk(c, *d);
		if (fd < 0)
			continue;
		c.eqInt(d->role + " ata CMD_DRIVE_FLUSH", ata_command_interface(fd, CMD_DRIVE_FLUSH, nullptr), 0);
		c.eqInt(d->role + " sat CMD_DRIVE_FLUSH", sat_command_interface(fd, CMD_DRIVE_FLUSH, nullptr), 0);
		close(fd);
	}
}
