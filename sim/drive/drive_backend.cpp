// The drive emulator as a device backend: a device node that is a regular
// file holding a drive description is answered here, every other node goes
// to the kernel. Each command takes the node's lock, reads the drive,
// answers, writes back what changed and appends one line to the command log.
#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <linux/fs.h>
#include <linux/hdreg.h>
#include <map>
#include <mutex>
#include <scsi/scsi_ioctl.h>
#include <scsi/sg.h>
#include <string>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>
#include <vexoplatform/device_backend.h>

#include "drive_model.h"
#include "drive_nvme.h"
#include "i2c_bus.h"
#include "unit_ctl.h"

namespace vexosim::drive {
namespace {

struct Node {
	std::string logPath;
};

std::mutex gMutex;
std::map<int, Node> gNodes; // handle (the node file's descriptor) -> node

// Expansion unit command files: handle -> host path, root, appliance path.
struct UnitFile {
	std::string host, root, app;
};
std::map<int, UnitFile> gUnitFiles;

bool unitLookup(int h, UnitFile &out)
{
	std::lock_guard<std::mutex> lk(gMutex);
	auto it = gUnitFiles.find(h);
	if (it == gUnitFiles.end())
		return false;
	out = it->second;
	return true;
}

bool lookup(int h, Node &out)
{
	std::lock_guard<std::mutex> lk(gMutex);
	auto it = gNodes.find(h);
	if (it == gNodes.end())
		return false;
	out = it->second;
	return true;
}

void mkdirs(const std::string &dir)
{
	for (std::size_t p = 1; (p = dir.find('/', p)) != std::string::npos; ++p)
		::mkdir(dir.substr(0, p).c_str(), 0755);
	::mkdir(dir.c_str(), 0755);
}

void appendLog(const std::string &path, const std::string &line)
{
	int fd = ::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
	if (fd < 0 && errno == ENOENT) {
		// The log's folder is made the first time it is missing, not on
		// every open.
		mkdirs(path.substr(0, path.rfind('/')));
		fd = ::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
	}
	if (fd < 0)
		return;
	std::string l = line + "\n";
	ssize_t w = ::write(fd, l.data(), l.size()); // one write: lines never interleave
	(void)w;
	::close(fd);
}

std::string readAll(int fd)
{
	// Read under the node's lock, so a short read is the end of the file:
	// a node is one pread, not a seek and two reads.
	std::string s;
	char buf[8192];
	for (off_t at = 0;;) {
		ssize_t n = ::pread(fd, buf, sizeof(buf), at);
		if (n < 0 && errno == EINTR)
			continue;
		if (n <= 0)
			break;
		s.append(buf, static_cast<std::size_t>(n));
		at += n;
		if (static_cast<std::size_t>(n) < sizeof(buf))
			break;
	}
	return s;
}

void writeAll(int fd, const std::string &s)
{
	if (::ftruncate(fd, 0) != 0)
		return;
	std::size_t off = 0;
	while (off < s.size()) {
		ssize_t n = ::pwrite(fd, s.data() + off, s.size() - off, off);
		if (n <= 0)
			return;
		off += n;
	}
}

int errnoOf(json_object *v)
{
	if (json_object_is_type(v, json_type_int))
		return json_object_get_int(v);
	static const std::map<std::string, int> names = {{"EIO", EIO},		 {"EINVAL", EINVAL},
							 {"ENODEV", ENODEV},	 {"ETIMEDOUT", ETIMEDOUT},
							 {"EBUSY", EBUSY},	 {"ENOTTY", ENOTTY},
							 {"EFAULT", EFAULT},	 {"EPERM", EPERM}};
	auto it = names.find(json_object_get_string(v));
	return it == names.end() ? EIO : it->second;
}

bool flag(json_object *f, const char *key)
{
	json_object *v = nullptr;
	return f && json_object_object_get_ex(f, key, &v) && json_object_get_boolean(v);
}

const char *ataOp(const Taskfile &tf)
{
	switch (tf.command) {
	case 0xEC: return "identify";
	case 0xA1: return "packet_identify";
	case 0xE5: return "check_power_mode";
	case 0xE0: case 0xE2: return "standby";
	case 0xE1: case 0xE3: return "idle";
	case 0xE7: case 0xEA: return "flush";
	case 0x2F: return "read_log_ext";
	case 0xB0:
		switch (tf.features) {
		case 0xD0: return "smart_read_values";
		case 0xD1: return "smart_read_thresholds";
		case 0xD5: return "smart_read_log";
		case 0xD6: return "smart_write_log";
		case 0xD8: return "smart_enable";
		default: return "smart";
		}
	default: return "ata";
	}
}

const char *scsiOp(uint8_t op)
{
	switch (op) {
	case 0x00: return "test_unit_ready";
	case 0x03: return "request_sense";
	case 0x12: return "inquiry";
	case 0x15: return "mode_select";
	case 0x1A: return "mode_sense";
	case 0x1B: return "start_stop";
	case 0x35: return "sync_cache";
	case 0x4C: return "log_select";
	case 0x4D: return "log_sense";
	default: return "scsi";
	}
}

// Runs a command under an injected fault. Returns -1 (with errno set)
// when the fault makes the ioctl itself fail.
template <typename Fn>
Outcome withFault(Drive &d, const char *op, std::vector<uint8_t> &out, Fn run)
{
	json_object *f = d.fault(op);
	json_object *e = nullptr;
	if (f && json_object_object_get_ex(f, "errno", &e)) {
		Outcome o;
		o.kind = Outcome::Errno;
		o.err = errnoOf(e);
		o.note = std::string("injected fault ") + op;
		return o;
	}
	if (flag(f, "abort")) {
		Outcome o;
		o.kind = Outcome::Abort;
		o.ataError = 0x04;
		o.note = std::string("injected abort ") + op;
		return o;
	}
	Outcome o = run();
	if (o.kind == Outcome::Ok && out.size() >= 512) {
		if (flag(f, "garbage"))
			std::memset(out.data(), 0x5A, 512);
		if (flag(f, "bad_checksum") || flag(f, "garbage"))
			sealPage(out.data(), true);
	}
	if (flag(f, "no_sense"))
		o.noSense = true;
	return o;
}

std::string describe(const Outcome &o)
{
	char b[64];
	switch (o.kind) {
	case Outcome::Ok:
		return "ok" + o.note;
	case Outcome::Abort:
		return "abort: " + o.note;
	case Outcome::CheckCondition:
		std::snprintf(b, sizeof(b), "check %02x/%02x/%02x: ", o.senseKey, o.asc, o.ascq);
		return b + o.note;
	case Outcome::Errno:
		return "errno " + std::to_string(o.err) + ": " + o.note;
	case Outcome::Status:
		std::snprintf(b, sizeof(b), "status 0x%04x: ", o.err);
		return b + o.note;
	}
	return "?";
}

Outcome refuse(int err, const char *why)
{
	Outcome o;
	o.kind = Outcome::Errno;
	o.err = err;
	o.note = std::string("refused: ") + why;
	return o;
}

Outcome refuseCheck(uint8_t asc, const char *why)
{
	Outcome o;
	o.kind = Outcome::CheckCondition;
	o.senseKey = 0x05;
	o.asc = asc;
	o.note = std::string("refused: ") + why;
	return o;
}

// HDIO_DRIVE_CMD: header [command, sector number, features, count], data after it.
Outcome hdioDriveCmd(Drive &d, uint8_t *args, std::string &line)
{
	line = "HDIO_DRIVE_CMD args=" + (args ? toHex(args, 4) : std::string("null"));
	if (d.protocol() != "ata")
		return refuse(d.protocol() == "nvme" ? ENOTTY : EINVAL, "HDIO_DRIVE_CMD to a non-ATA drive");
	std::vector<uint8_t> out;
	if (!args) {
		// libata refuses the null form; a fault may say otherwise.
		json_object *f = d.fault("flush");
		json_object *e = nullptr;
		if (f && json_object_object_get_ex(f, "errno", &e))
			return refuse(errnoOf(e), "injected fault flush");
		return refuse(EINVAL, "null argument");
	}
	Taskfile tf;
	tf.command = args[0];
	tf.lbaLow = args[1];
	tf.features = args[2];
	tf.count = args[3];
	if (tf.command == 0xB0) { // the kernel supplies the SMART signature
		tf.lbaMid = 0x4F;
		tf.lbaHigh = 0xC2;
	}
	Outcome o = withFault(d, ataOp(tf), out, [&] { return d.ata(tf, out, {}); });
	// The kernel hands back status, error and count only for commands
	// without data (it asks the drive for them with the check condition
	// bit); after a data command the header stays as sent.
	const std::size_t room = static_cast<std::size_t>(args[3]) * 512;
	if (o.kind == Outcome::Ok) {
		// The kernel reads as many sectors as the header's count says.
		if (out.size() != room && !(tf.command == 0xB0 && tf.features == 0xD5 && out.size() >= room))
			return refuse(EIO, "sector count differs from the command's data");
		if (room) {
			std::memcpy(args + 4, out.data(), room);
		} else {
			args[0] = 0x50;
			args[1] = 0;
			args[2] = o.count;
		}
	} else if (o.kind == Outcome::Abort) {
		if (!room) {
			args[0] = 0x51;
			args[1] = o.ataError;
		}
		o.kind = Outcome::Errno;
		o.err = EIO;
		o.note = "abort: " + o.note;
	}
	return o;
}

// HDIO_DRIVE_TASK: [command, features, count, LBA low, mid, high, device] in;
// [status, error, count, LBA low, mid, high, device] back, as libata hands
// them over for a command without data.
Outcome hdioDriveTask(Drive &d, uint8_t *args, std::string &line)
{
	line = "HDIO_DRIVE_TASK args=" + (args ? toHex(args, 7) : std::string("null"));
	if (d.protocol() != "ata")
		return refuse(d.protocol() == "nvme" ? ENOTTY : EINVAL, "HDIO_DRIVE_TASK to a non-ATA drive");
	if (!args)
		return refuse(EFAULT, "null argument");
	Taskfile tf;
	tf.command = args[0];
	tf.features = args[1];
	tf.count = args[2];
	tf.lbaLow = args[3];
	tf.lbaMid = args[4];
	tf.lbaHigh = args[5];
	std::vector<uint8_t> out;
	Outcome o = withFault(d, ataOp(tf), out, [&] { return d.ata(tf, out, {}); });
	if (o.kind == Outcome::Ok && !out.empty())
		return refuse(EIO, "a data command sent as non-data");
	if (o.kind == Outcome::Ok || o.kind == Outcome::Abort) {
		bool ok = o.kind == Outcome::Ok;
		args[0] = ok ? 0x50 : 0x51;
		args[1] = ok ? 0 : o.ataError;
		args[2] = o.count;
		args[4] = o.lbaMid >= 0 ? static_cast<uint8_t>(o.lbaMid) : tf.lbaMid;
		args[5] = o.lbaHigh >= 0 ? static_cast<uint8_t>(o.lbaHigh) : tf.lbaHigh;
		if (!ok) {
			o.kind = Outcome::Errno;
			o.err = EIO;
			o.note = "abort: " + o.note;
		}
	}
	return o;
}

void fixedSense(uint8_t *sense, const Outcome &o)
{
	std::memset(sense, 0, 18);
	sense[0] = 0x70;
	sense[2] = o.senseKey;
	sense[7] = 10;
	sense[12] = o.asc;
	sense[13] = o.ascq;
}

// Descriptor sense with the ATA return descriptor: byte 13 is the count.
void ataReturnSense(uint8_t *sense, uint8_t key, uint8_t ascq, const Taskfile &tf, const Outcome &o, bool error)
{
	std::memset(sense, 0, 22);
	sense[0] = 0x72;
	sense[1] = key;
	sense[3] = ascq;
	sense[7] = 14;
	sense[8] = 0x09;
	sense[9] = 0x0C;
	sense[11] = error ? o.ataError : 0;
	sense[13] = o.count;
	sense[15] = o.lbaLow >= 0 ? static_cast<uint8_t>(o.lbaLow) : tf.lbaLow;
	sense[17] = o.lbaMid >= 0 ? static_cast<uint8_t>(o.lbaMid) : tf.lbaMid;
	sense[19] = o.lbaHigh >= 0 ? static_cast<uint8_t>(o.lbaHigh) : tf.lbaHigh;
	sense[21] = error ? 0x51 : 0x50;
}

constexpr int kUnknownDirection = -100;

// The data direction a SCSI opcode implies.
int scsiDirection(uint8_t op)
{
	switch (op) {
	case 0x03: case 0x12: case 0x1A: case 0x25: case 0x4D: case 0x9E: return SG_DXFER_FROM_DEV;
	case 0x15: case 0x4C: return SG_DXFER_TO_DEV;
	case 0x00: case 0x1B: case 0x35: return SG_DXFER_NONE;
	default: return kUnknownDirection; // the drive refuses the opcode itself
	}
}

unsigned cdbGroupLength(uint8_t op)
{
	if (op < 0x20)
		return 6;
	if (op < 0x60)
		return 10;
	if (op >= 0x80 && op < 0xA0)
		return 16;
	return 12;
}

Outcome sgIo(Drive &d, sg_io_hdr_t *h, std::string &line)
{
	if (!h) {
		line = "SG_IO null";
		return refuse(EFAULT, "null argument");
	}
	char head[160];
	std::snprintf(head, sizeof(head),
		      "SG_IO interface_id=%c dxfer_direction=%d cmd_len=%u mx_sb_len=%u dxfer_len=%u timeout=%u",
		      h->interface_id > 32 && h->interface_id < 127 ? h->interface_id : '?', h->dxfer_direction,
		      h->cmd_len, h->mx_sb_len, h->dxfer_len, h->timeout);
	line = head;
	if (h->interface_id != 'S')
		return refuse(ENOSYS, "interface id is not 'S'");
	if (!h->cmdp || h->cmd_len < 6 || h->cmd_len > 16)
		return refuse(EINVAL, "bad command length");
	const uint8_t *cdb = h->cmdp;
	line += " cdb=" + toHex(cdb, h->cmd_len);
	if (d.protocol() == "nvme")
		return refuse(ENOTTY, "SG_IO to an NVMe drive");
	if (h->dxfer_len && !h->dxferp)
		return refuse(EFAULT, "transfer without a buffer");
	if (h->dxfer_direction != SG_DXFER_NONE && h->dxfer_direction != SG_DXFER_TO_DEV &&
	    h->dxfer_direction != SG_DXFER_FROM_DEV)
		return refuse(EINVAL, "unknown transfer direction");
	if ((h->dxfer_direction == SG_DXFER_NONE) != (h->dxfer_len == 0))
		return refuse(EINVAL, "direction and length disagree");

	std::vector<uint8_t> in, out;
	if (h->dxfer_direction == SG_DXFER_TO_DEV) {
		in.assign(static_cast<uint8_t *>(h->dxferp), static_cast<uint8_t *>(h->dxferp) + h->dxfer_len);
		line += " data=" + toHex(in.data(), in.size());
	}
	h->status = 0;
	h->masked_status = 0;
	h->host_status = 0;
	h->driver_status = 0;
	h->sb_len_wr = 0;
	h->resid = 0;
	uint8_t sense[32] = {};
	Outcome o;

	if (cdb[0] == 0x85) {
		if (h->cmd_len != 16)
			o = refuseCheck(0x24, "ATA PASS-THROUGH(16) with another command length");
		else if (d.protocol() != "ata")
			o = refuseCheck(0x20, "ATA PASS-THROUGH to a SCSI drive");
		if (o.kind != Outcome::Ok)
			goto check;
		{
			unsigned proto = (cdb[1] >> 1) & 0x0F, tLength = cdb[2] & 3;
			bool tDir = cdb[2] & 0x08, bytBlok = cdb[2] & 0x04, ckCond = cdb[2] & 0x20;
			Taskfile tf;
			tf.features = cdb[4];
			tf.count = cdb[6];
			tf.lbaLow = cdb[8];
			tf.lbaMid = cdb[10];
			tf.lbaHigh = cdb[12];
			tf.command = cdb[14];
			unsigned want = tf.count * 512u;
			if (proto == 3) {
				if (h->dxfer_direction != SG_DXFER_NONE)
					o = refuseCheck(0x24, "non-data protocol with a transfer");
			} else if (proto == 4 || proto == 5) {
				int dir = proto == 4 ? SG_DXFER_FROM_DEV : SG_DXFER_TO_DEV;
				if (h->dxfer_direction != dir || tDir != (proto == 4) || tLength != 2 || !bytBlok)
					o = refuseCheck(0x24, "PIO protocol with flags or direction that disagree");
				else if (h->dxfer_len != want)
					o = refuseCheck(0x24, "transfer length is not the sector count");
			} else {
				o = refuseCheck(0x24, "unsupported protocol");
			}
			if (o.kind != Outcome::Ok)
				goto check;
			o = withFault(d, ataOp(tf), out, [&] { return d.ata(tf, out, in); });
			if (o.kind == Outcome::Ok && proto != 4 && !out.empty())
				o = refuseCheck(0x24, "command returns data but the protocol has none");
			else if (o.kind == Outcome::Ok && proto == 4 && out.size() < want)
				o = refuseCheck(0x24, "transfer length exceeds the command's data");
			if (o.kind == Outcome::Ok) {
				if (proto == 4)
					std::memcpy(h->dxferp, out.data(), want);
				if (ckCond && !o.noSense) {
					ataReturnSense(sense, 0x01, 0x1D, tf, o, false);
					h->status = 0x02;
					h->masked_status = 0x01;
					h->driver_status = 0x08;
					h->sb_len_wr = std::min<unsigned>(22, h->mx_sb_len);
				}
			} else if (o.kind == Outcome::Abort) {
				ataReturnSense(sense, 0x0B, 0x00, tf, o, true);
				h->status = 0x02;
				h->masked_status = 0x01;
				h->driver_status = 0x08;
				h->sb_len_wr = std::min<unsigned>(22, h->mx_sb_len);
			}
		}
	} else {
		if (h->cmd_len < cdbGroupLength(cdb[0]))
			o = refuseCheck(0x24, "command length below the opcode's CDB length");
		else if (scsiDirection(cdb[0]) != kUnknownDirection && scsiDirection(cdb[0]) != h->dxfer_direction &&
			 (cdbGroupLength(cdb[0]) <= 10 || cdb[0] == 0x9E))
			o = refuseCheck(0x24, "transfer direction disagrees with the opcode");
		if (o.kind == Outcome::Ok)
			o = withFault(d, scsiOp(cdb[0]), out, [&] { return d.scsi(cdb, h->cmd_len, out, in); });
		if (o.kind == Outcome::Ok && h->dxfer_direction == SG_DXFER_FROM_DEV) {
			unsigned alloc = cdb[0] == 0x4D   ? (cdb[7] << 8 | cdb[8])
					 : cdb[0] == 0x25 ? 8
					 : cdb[0] == 0x9E ? (cdb[10] << 24 | cdb[11] << 16 | cdb[12] << 8 | cdb[13])
							  : cdb[4];
			unsigned n = std::min<unsigned>({alloc, h->dxfer_len, static_cast<unsigned>(out.size())});
			std::memcpy(h->dxferp, out.data(), n);
			h->resid = static_cast<int>(h->dxfer_len - n);
		}
	}
check:
	if (o.kind == Outcome::CheckCondition) {
		fixedSense(sense, o);
		h->status = 0x02;
		h->masked_status = 0x01;
		h->driver_status = 0x08;
		h->sb_len_wr = std::min<unsigned>(18, h->mx_sb_len);
	} else if (o.kind == Outcome::Abort && cdb[0] != 0x85) {
		o.kind = Outcome::CheckCondition;
		o.senseKey = 0x0B;
		fixedSense(sense, o);
		h->status = 0x02;
		h->driver_status = 0x08;
		h->sb_len_wr = std::min<unsigned>(18, h->mx_sb_len);
	}
	if (h->sbp && h->sb_len_wr)
		std::memcpy(h->sbp, sense, h->sb_len_wr);
	if (o.kind != Outcome::Errno) {
		char st[48];
		std::snprintf(st, sizeof(st), " status=0x%02x sb_len_wr=%u", h->status, h->sb_len_wr);
		o.note += st;
	}
	return o;
}

struct MarvellRecord {
	unsigned int inLength;
	unsigned int outLength;
	uint8_t area[540];
};

Outcome marvell(Drive &d, MarvellRecord *r, std::string &line)
{
	if (!r) {
		line = "SCSI_IOCTL_SEND_COMMAND args=null";
		json_object *f = d.fault("flush");
		json_object *e = nullptr;
		if (f && json_object_object_get_ex(f, "errno", &e))
			return refuse(errnoOf(e), "injected fault flush");
		return refuse(EINVAL, "null argument");
	}
	line = "SCSI_IOCTL_SEND_COMMAND inlen=" + std::to_string(r->inLength) + " outlen=" +
	       std::to_string(r->outLength) + " area=" + toHex(r->area, 16);
	if (d.protocol() != "ata")
		return refuse(EINVAL, "vendor ATA wrapper to a non-ATA drive");
	if (r->inLength != 540 || r->outLength != 540)
		return refuse(EINVAL, "record lengths are not 540");
	if (r->area[0] != 0x0C || r->area[4] != 6)
		return refuse(EIO, "not the vendor ATA wrapper");
	Taskfile tf;
	tf.command = r->area[6];
	tf.lbaLow = r->area[7];
	tf.features = r->area[8];
	tf.count = r->area[9];
	if (tf.command == 0xB0) {
		tf.lbaMid = 0x4F;
		tf.lbaHigh = 0xC2;
	}
	std::vector<uint8_t> out;
	Outcome o = withFault(d, ataOp(tf), out, [&] { return d.ata(tf, out, {}); });
	if (o.kind == Outcome::Ok) {
		if (!out.empty())
			std::memcpy(r->area + 6, out.data(), std::min<std::size_t>(out.size(), 512));
		if (tf.command == 0xE5)
			r->area[9] = o.count;
	} else if (o.kind == Outcome::Abort) {
		o.kind = Outcome::Errno;
		o.err = EIO;
		o.note = "abort: " + o.note;
	}
	return o;
}

int emuOpen(const char *hostPath, const char *appliancePath, int flags)
{
	struct stat st;
	if (::stat(hostPath, &st) != 0 || !S_ISREG(st.st_mode))
		return ::open(hostPath, flags | O_CLOEXEC); // a real node: the kernel's
	std::string host = hostPath, app = appliancePath ? appliancePath : "";
	std::string root = host.size() >= app.size() && host.compare(host.size() - app.size(), app.size(), app) == 0
				   ? host.substr(0, host.size() - app.size())
				   : std::string();
	if (unit::isCommandFile(app)) {
		int ufd = ::open(hostPath, flags | O_CLOEXEC);
		if (ufd >= 0) {
			std::lock_guard<std::mutex> lk(gMutex);
			gUnitFiles[ufd] = UnitFile{host, root, app};
		}
		return ufd;
	}
	int fd = ::open(hostPath, O_RDWR | O_CLOEXEC);
	if (fd < 0)
		return -1;
	std::string name = app.substr(app.rfind('/') + 1);
	std::string log = root + "/run/vexosim/drive/" + name + ".log";
	appendLog(log, "OPEN flags=" + std::to_string(flags));
	std::lock_guard<std::mutex> lk(gMutex);
	gNodes[fd] = Node{log};
	return fd;
}

// The board control device's sensor and fan requests, answered from and
// recorded in its node: "cpu_temperatures" (a list), "sys_temperature",
// "fan_speed", "cpufan_speed", "fan_register". A sensor the node lacks is a
// request the board does not know.
Outcome boardRequest(Drive &d, unsigned long req, void *arg, std::string &line)
{
	json_object *v = nullptr;
	auto has = [&](const char *key) { return json_object_object_get_ex(d.node(), key, &v); };
	auto *w = static_cast<int32_t *>(arg);
	if (!arg)
		return refuse(EFAULT, "null argument");
	switch (req) {
	case 0xC0104B22UL: {
		line = "BOARD_CPU_TEMPERATURE";
		if (!has("cpu_temperatures") || !json_object_is_type(v, json_type_array))
			return refuse(ENOTTY, "no CPU sensor");
		int n = std::min<int>(16, (int)json_object_array_length(v));
		w[1] = n;
		for (int i = 0; i < n; ++i)
			w[2 + i] = json_object_get_int(json_object_array_get_idx(v, i));
		return Outcome{};
	}
	case 0xC0044B10UL:
		line = "BOARD_SYS_TEMPERATURE";
		if (!has("sys_temperature"))
			return refuse(ENOTTY, "no system sensor");
		w[0] = json_object_get_int(v);
		return Outcome{};
	case 0xC0024B14UL:
		line = "BOARD_FAN_REGISTER";
		if (!has("board_fans"))
			return refuse(ENOTTY, "not the board control device");
		*static_cast<uint16_t *>(arg) = has("fan_register") ? (uint16_t)json_object_get_int(v) : 0;
		return Outcome{};
	default: {
		const char *key = req == 0xC00C4B0CUL ? "fan_speed" : "cpufan_speed";
		line = std::string(req == 0xC00C4B0CUL ? "BOARD_FAN_SPEED " : "BOARD_CPUFAN_SPEED ") + std::to_string(w[2]);
		if (!has("board_fans"))
			return refuse(ENOTTY, "not the board control device");
		json_object_object_add(d.node(), key, json_object_new_int(w[2]));
		d.markChanged();
		return Outcome{};
	}
	}
}

int emuIoctl(int h, unsigned long req, void *arg)
{
	Node node;
	if (!lookup(h, node))
		return ::ioctl(h, req, arg);
	if (::flock(h, LOCK_EX) != 0)
		return -1;
	json_object *parsed = json_tokener_parse(readAll(h).c_str());
	Drive d(parsed);
	d.advanceSelfTest(); // a drive works on its self-test between commands
	std::string line;
	Outcome o;
	if (isI2cRequest(req)) {
		o = i2cRequest(d, h, req, arg, line);
	} else switch (req) {
	case HDIO_DRIVE_CMD:
		o = hdioDriveCmd(d, static_cast<uint8_t *>(arg), line);
		break;
	case HDIO_DRIVE_TASK:
		o = hdioDriveTask(d, static_cast<uint8_t *>(arg), line);
		break;
	case HDIO_GET_IDENTITY: {
		line = "HDIO_GET_IDENTITY";
		std::vector<uint8_t> out;
		if (d.protocol() != "ata") {
			o = refuse(EINVAL, "HDIO_GET_IDENTITY of a non-ATA drive");
		} else if (!arg) {
			o = refuse(EFAULT, "null argument");
		} else {
			o = withFault(d, "get_identity", out, [&] {
				out = d.identify(d.isPacket());
				return Outcome{};
			});
			if (o.kind == Outcome::Ok)
				std::memcpy(arg, out.data(), 512);
			else if (o.kind == Outcome::Abort)
				o = refuse(EIO, "injected abort get_identity");
		}
		break;
	}
	case SG_IO:
		o = sgIo(d, static_cast<sg_io_hdr_t *>(arg), line);
		break;
	case SCSI_IOCTL_SEND_COMMAND:
		o = marvell(d, static_cast<MarvellRecord *>(arg), line);
		break;
	case NVME_IOCTL_ADMIN_CMD: {
		auto *cmd = static_cast<nvme_admin_cmd *>(arg);
		line = nvmeLine(cmd);
		std::vector<uint8_t> none;
		o = cmd ? nvmeFaulted(withFault(d, nvmeFaultName(*cmd), none, [&] { return nvmeAdmin(d, *cmd); }))
			: refuse(EFAULT, "null argument");
		break;
	}
	case NVME_IOCTL_ID:
		// The namespace node answers its namespace id as the ioctl's value.
		line = "NVME_IOCTL_ID";
		if (d.protocol() != "nvme")
			o = refuse(ENOTTY, "NVME_IOCTL_ID of a non-NVMe drive");
		else {
			o.kind = Outcome::Status;
			o.err = 1;
			o.note = "namespace id";
		}
		break;
	case HDIO_GETGEO: {
		// The geometry the sd and nvme drivers make up from the capacity.
		line = "HDIO_GETGEO";
		std::vector<uint8_t> none;
		o = withFault(d, "blk", none, [] { return Outcome{}; });
		if (o.kind == Outcome::Ok && !arg)
			o = refuse(EFAULT, "null argument");
		if (o.kind == Outcome::Ok) {
			auto *g = static_cast<hd_geometry *>(arg);
			bool nvme = d.protocol() == "nvme";
			uint64_t sectors = d.sizeBytes() / 512;
			g->heads = nvme ? 64 : 255;
			g->sectors = nvme ? 32 : 63;
			g->cylinders = static_cast<unsigned short>(
				std::min<uint64_t>(0xFFFF, nvme ? sectors >> 11 : sectors / (255 * 63)));
			g->start = 0;
		}
		break;
	}
	case BLKGETSIZE64:
	case BLKGETSIZE:
	case BLKSSZGET:
	case BLKPBSZGET:
	case BLKROGET: {
		line = req == BLKGETSIZE64 ? "BLKGETSIZE64"
		       : req == BLKGETSIZE ? "BLKGETSIZE"
		       : req == BLKSSZGET  ? "BLKSSZGET"
		       : req == BLKPBSZGET ? "BLKPBSZGET"
					   : "BLKROGET";
		std::vector<uint8_t> none;
		o = withFault(d, "blk", none, [] { return Outcome{}; });
		if (o.kind == Outcome::Ok && !arg)
			o = refuse(EFAULT, "null argument");
		if (o.kind == Outcome::Ok) {
			if (req == BLKGETSIZE64)
				*static_cast<uint64_t *>(arg) = d.sizeBytes();
			else if (req == BLKGETSIZE) // 512-byte sectors
				*static_cast<unsigned long *>(arg) = static_cast<unsigned long>(d.sizeBytes() / 512);
			else if (req == BLKSSZGET)
				*static_cast<int *>(arg) = d.logicalBlockSize();
			else if (req == BLKPBSZGET)
				*static_cast<unsigned *>(arg) = static_cast<unsigned>(d.physicalBlockSize());
			else
				*static_cast<int *>(arg) = 0; // writable
		}
		break;
	}
	case 0xC00C4B1EUL: { // the board control device's module type query
		line = "BOARD_MODULE_TYPE";
		json_object *fans = nullptr;
		if (!arg)
			o = refuse(EFAULT, "null argument");
		else if (!json_object_object_get_ex(d.node(), "board_fans", &fans))
			o = refuse(ENOTTY, "not the board control device");
		else {
			auto *r = static_cast<uint8_t *>(arg);
			std::memset(r, 0, 12);
			r[2] = static_cast<uint8_t>((json_object_get_int(fans) & 0x0F) << 2);
		}
		break;
	}
	case 0xC0104B22UL: // CPU temperatures: type, count, up to 16 readings
	case 0xC0044B10UL: // system sensor
	case 0xC00C4B0CUL: // fan speed: 0, 1, speed
	case 0xC00C4B23UL: // CPU fan speed: 0, 1, speed
	case 0xC0024B14UL: // fan register
		o = boardRequest(d, req, arg, line);
		break;
	default: {
		char b[64];
		std::snprintf(b, sizeof(b), "IOCTL 0x%lx", req);
		line = b;
		o = refuse(ENOTTY, "unknown request");
	}
	}
	if (d.changed())
		writeAll(h, json_object_to_json_string_ext(d.node(), JSON_C_TO_STRING_PRETTY));
	::flock(h, LOCK_UN);
	appendLog(node.logPath, line + " -> " + describe(o) + (d.woke() ? " [woke from standby]" : ""));
	if (o.kind == Outcome::Errno) {
		errno = o.err;
		return -1;
	}
	return o.kind == Outcome::Status ? o.err : 0; // the controller's completion status
}

ssize_t emuRead(int h, void *buf, size_t len)
{
	Node node;
	if (lookup(h, node)) {
		errno = EINVAL; // block reads are not emulated
		return -1;
	}
	return ::read(h, buf, len);
}

ssize_t emuWrite(int h, const void *buf, size_t len)
{
	UnitFile uf;
	if (unitLookup(h, uf))
		return unit::command(uf.host, uf.root, uf.app, std::string(static_cast<const char *>(buf), len))
			       ? static_cast<ssize_t>(len)
			       : -1;
	Node node;
	if (lookup(h, node)) {
		errno = EINVAL;
		return -1;
	}
	return ::write(h, buf, len);
}

int emuClose(int h)
{
	{
		std::lock_guard<std::mutex> lk(gMutex);
		gNodes.erase(h);
		gUnitFiles.erase(h);
	}
	i2cForget(h);
	return ::close(h);
}

const vexo_device_backend kBackend = {emuOpen, emuIoctl, emuRead, emuWrite, emuClose};

} // namespace
} // namespace vexosim::drive

extern "C" __attribute__((visibility("default"))) const vexo_device_backend *vexo_device_backend_v1(void)
{
	return &vexosim::drive::kBackend;
}
