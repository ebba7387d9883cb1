#include "drive_io.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <linux/hdreg.h>
#include <linux/nvme_ioctl.h>
#include <sys/ioctl.h>
#include <scsi/scsi_ioctl.h>
#include <scsi/sg.h>
#include <unistd.h>

namespace vexosim::tools {

namespace {

constexpr unsigned kSenseMax = 64;

// The record of the Marvell controller's vendor ATA wrapper.
struct MarvellRecord {
	unsigned int inLength;
	unsigned int outLength;
	uint8_t area[540];
};

// The ATA return descriptor of descriptor-format sense data.
bool returnDescriptor(const std::vector<uint8_t> &sense, Regs &r, uint8_t &error, uint8_t &status)
{
	if (sense.size() < 8 || (sense[0] & 0x7F) != 0x72)
		return false;
	size_t end = std::min<size_t>(sense.size(), 8u + sense[7]);
	for (size_t i = 8; i + 1 < end; i += 2u + sense[i + 1]) {
		if (sense[i] == 0x09 && sense[i + 1] >= 0x0C && i + 13 < sense.size()) {
			const uint8_t *d = sense.data() + i;
			error = d[3];
			r.count = d[5];
			r.lbaLow = d[7];
			r.lbaMid = d[9];
			r.lbaHigh = d[11];
			status = d[13];
			return true;
		}
	}
	return false;
}

} // namespace

uint8_t ScsiAnswer::senseKey() const
{
	if (sense.size() < 3)
		return 0;
	return (sense[0] & 0x7F) >= 0x72 ? sense[1] & 0x0F : sense[2] & 0x0F;
}
uint8_t ScsiAnswer::asc() const
{
	if ((sense.size() > 0 && (sense[0] & 0x7F) >= 0x72))
		return sense.size() > 2 ? sense[2] : 0;
	return sense.size() > 12 ? sense[12] : 0;
}
uint8_t ScsiAnswer::ascq() const
{
	if ((sense.size() > 0 && (sense[0] & 0x7F) >= 0x72))
		return sense.size() > 3 ? sense[3] : 0;
	return sense.size() > 13 ? sense[13] : 0;
}

Drive Drive::open(const std::string &path, Transport t)
{
	Drive d;
	d.t_ = t;
	d.dev_ = vexo::dev::Device::open(path.c_str(), O_RDWR | O_NONBLOCK);
	return d;
}

ScsiAnswer Drive::scsi(const std::vector<uint8_t> &cdb, int dir, std::vector<uint8_t> &data, unsigned len,
		       unsigned timeoutMs, unsigned senseLength)
{
	ScsiAnswer a;
	if (cdb.empty() || cdb.size() > 255) {
		a.err = EINVAL; // more than the header's length field can say
		return a;
	}
	std::vector<uint8_t> cmd(cdb);
	uint8_t sense[kSenseMax] = {};
	if (dir == 1)
		data.assign(len, 0);
	sg_io_hdr_t h{};
	h.interface_id = 'S';
	h.dxfer_direction = dir == 1 ? SG_DXFER_FROM_DEV : dir == 2 ? SG_DXFER_TO_DEV : SG_DXFER_NONE;
	h.cmd_len = static_cast<unsigned char>(cmd.size());
	h.cmdp = cmd.data();
	h.mx_sb_len = static_cast<unsigned char>(std::min(senseLength, kSenseMax));
	h.sbp = sense;
	h.dxfer_len = dir == 0 ? 0 : dir == 1 ? len : static_cast<unsigned>(data.size());
	h.dxferp = h.dxfer_len ? data.data() : nullptr;
	h.timeout = timeoutMs;
	if (dev_.ioctl(SG_IO, &h) != 0) {
		a.err = errno;
		if (dir == 1)
			data.clear();
		return a;
	}
	a.status = h.status;
	a.sense.assign(sense, sense + std::min<unsigned>(h.sb_len_wr, kSenseMax));
	if (dir == 1) {
		unsigned got = h.resid > 0 && static_cast<unsigned>(h.resid) <= len ? len - h.resid : len;
		a.received = got;
		data.resize(got);
	}
	a.ok = h.status == 0 && h.host_status == 0 && (h.driver_status & 0x0F) == 0;
	return a;
}

AtaAnswer Drive::ata(const Regs &in, std::vector<uint8_t> *data, bool wantRegs)
{
	AtaAnswer a;
	const unsigned bytes = data ? in.count * 512u : 0;
	switch (t_) {
	case Transport::Sat:
	case Transport::Scsi: {
		std::vector<uint8_t> cdb(16, 0);
		cdb[0] = 0x85;
		if (data) {
			cdb[1] = 4 << 1; // PIO data-in
			cdb[2] = 0x0E;   // T_DIR, BYT_BLOK, length in the count
		} else {
			cdb[1] = 3 << 1; // non-data
			cdb[2] = wantRegs ? 0x2C : 0x0C;
		}
		cdb[4] = in.features;
		cdb[6] = in.count;
		cdb[8] = in.lbaLow;
		cdb[10] = in.lbaMid;
		cdb[12] = in.lbaHigh;
		cdb[14] = in.command;
		std::vector<uint8_t> buf;
		ScsiAnswer s = scsi(cdb, data ? 1 : 0, buf, bytes);
		if (s.err) {
			a.err = s.err;
			return a;
		}
		uint8_t error = 0, status = 0;
		a.haveRegs = returnDescriptor(s.sense, a.out, error, status);
		if (s.status == 0) {
			a.ok = true;
		} else if (s.senseKey() == 0x01 && a.haveRegs && !(status & 0x01)) {
			a.ok = true; // CK_COND: the registers, not an error
		} else {
			a.aborted = true;
			a.err = EIO;
			uint8_t key = s.senseKey();
			a.scsiError = key == 0x05 && s.asc() == 0x20 ? "unsupported scsi opcode"
				      : key == 0x05			 ? "unsupported field in scsi command"
				      : key == 0x02			 ? "device not ready"
				      : key == 0x03 || key == 0x04	 ? "medium or hardware error (serious)"
									 : "aborted command";
		}
		if (a.ok && data)
			*data = std::move(buf);
		return a;
	}
	case Transport::Ata: {
		if (in.command == 0xB0 && in.features == 0xDA) {
			// SMART RETURN STATUS needs the LBA registers back: HDIO_DRIVE_TASK.
			uint8_t task[7] = {in.command, in.features, in.count, in.lbaLow, in.lbaMid, in.lbaHigh, 0};
			if (dev_.ioctl(HDIO_DRIVE_TASK, task) != 0) {
				a.err = errno;
				return a;
			}
			a.ok = a.haveRegs = true;
			a.out.count = task[2];
			a.out.lbaLow = task[3];
			a.out.lbaMid = task[4];
			a.out.lbaHigh = task[5];
			return a;
		}
		std::vector<uint8_t> args(4 + bytes, 0);
		args[0] = in.command;
		args[1] = in.lbaLow;
		args[2] = in.features;
		args[3] = in.count;
		if (dev_.ioctl(HDIO_DRIVE_CMD, args.data()) != 0) {
			a.err = errno;
			a.aborted = errno == EIO;
			return a;
		}
		a.ok = true;
		a.haveRegs = true;
		a.out.count = args[2];
		if (data)
			data->assign(args.begin() + 4, args.end());
		return a;
	}
	case Transport::Marvell: {
		MarvellRecord r{};
		r.inLength = r.outLength = sizeof r.area;
		r.area[0] = 0x0C;
		r.area[4] = 6;
		r.area[6] = in.command;
		r.area[7] = in.lbaLow;
		r.area[8] = in.features;
		r.area[9] = in.count;
		if (dev_.ioctl(SCSI_IOCTL_SEND_COMMAND, &r) != 0) {
			a.err = errno;
			a.aborted = errno == EIO;
			return a;
		}
		a.ok = true;
		a.haveRegs = true;
		a.out.count = r.area[9];
		a.out.lbaMid = r.area[10];
		a.out.lbaHigh = r.area[11];
		a.area.assign(r.area + 6, r.area + 13);
		if (data)
			data->assign(r.area + 6, r.area + 6 + std::min(bytes, 512u));
		return a;
	}
	case Transport::Nvme:
		break;
	}
	a.err = ENOTTY;
	return a;
}

int Drive::nvmeAdmin(uint8_t opcode, uint32_t nsid, uint32_t cdw10, std::vector<uint8_t> &data, unsigned len)
{
	data.assign(len, 0);
	nvme_admin_cmd c{};
	c.opcode = opcode;
	c.nsid = nsid;
	c.cdw10 = cdw10;
	c.addr = reinterpret_cast<uintptr_t>(data.data());
	c.data_len = len;
	return dev_.ioctl(NVME_IOCTL_ADMIN_CMD, &c);
}

int Drive::nvmeNamespace() { return dev_.ioctl(NVME_IOCTL_ID, nullptr); }

bool Drive::hdioIdentity(std::vector<uint8_t> &page)
{
	page.assign(512, 0);
	return dev_.ioctl(HDIO_GET_IDENTITY, page.data()) == 0;
}

bool identify(Drive &d, std::vector<uint8_t> &page, AtaAnswer *why)
{
	if (d.transport() == Transport::Ata) {
		std::vector<uint8_t> ignored;
		d.hdioIdentity(ignored);
	}
	Regs r;
	r.command = 0xEC;
	r.count = 1;
	AtaAnswer a = d.ata(r, &page);
	if (why)
		*why = a;
	return a.ok && page.size() >= 512;
}

void ensureBackend()
{
	const char *b = std::getenv("VEXO_DEVICE_BACKEND");
	if (b && *b)
		return;
	if (::access(VEXOSIM_DRIVE_BACKEND_PATH, R_OK) == 0)
		::setenv("VEXO_DEVICE_BACKEND", VEXOSIM_DRIVE_BACKEND_PATH, 1);
}

} // namespace vexosim::tools
