// A hostile drive for the fuzz targets: a device backend whose every answer
// (success or failure, status and sense bytes, data pages) is the next
// bytes of the fuzz input. It writes exactly what the kernel would for the
// request the library built, and never more.
//
// With VEXO_FUZZ_DRIVE_RECORD set to a file and VEXO_FUZZ_DRIVE_REAL to
// another backend (the drive emulator), it forwards every call there and
// appends the answers to the file in the form it reads them back: that is
// how the seed corpora are made from the emulator's own answers.
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <linux/hdreg.h>
#include <linux/nvme_ioctl.h>
#include <scsi/scsi_ioctl.h>
#include <scsi/sg.h>
#include <string>
#include <sys/ioctl.h>
#include <unistd.h>
#include <vexoplatform/device_backend.h>

namespace {

const uint8_t *gData = nullptr;
size_t gSize = 0;
std::FILE *gRecord = nullptr;
const vexo_device_backend *gReal = nullptr;

// The answer bytes, whether read from the input or taken from the real
// backend's answer and written down.
struct Answer {
	uint8_t byte(uint8_t recorded = 0)
	{
		if (gRecord) {
			std::fputc(recorded, gRecord);
			return recorded;
		}
		if (!gSize)
			return 0;
		--gSize;
		return *gData++;
	}
	void bytes(void *dst, size_t len)
	{
		if (!dst || !len)
			return;
		if (gRecord) {
			std::fwrite(dst, 1, len, gRecord);
			return;
		}
		size_t n = len < gSize ? len : gSize;
		if (n)
			std::memcpy(dst, gData, n);
		std::memset(static_cast<uint8_t *>(dst) + n, 0, len - n);
		gData += n;
		gSize -= n;
	}
	uint32_t word(uint32_t recorded = 0)
	{
		uint32_t v = 0;
		for (int i = 0; i < 4; ++i)
			v |= static_cast<uint32_t>(byte(static_cast<uint8_t>(recorded >> (8 * i)))) << (8 * i);
		return v;
	}
};

constexpr uint8_t kFail = 0xFF;   // the call fails with EIO
constexpr uint8_t kStatus = 0xFE; // NVMe: the command completes with a status

int hOpen(const char *host, const char *appliance, int flags)
{
	if (gReal) {
		int h = gReal->open(host, appliance, flags);
		Answer().byte(h < 0 ? kFail : 0);
		return h;
	}
	if (Answer().byte() == kFail) {
		errno = ENOENT;
		return -1;
	}
	return ::open("/dev/null", O_RDONLY | O_CLOEXEC);
}

// The part of a request that the drive answers, written into arg.
// `sectors` is the count the library asked HDIO_DRIVE_CMD for: the kernel
// copies that many sectors whatever the drive says.
void answer(unsigned long req, void *arg, size_t sectors)
{
	Answer a;
	if (!arg)
		return;
	switch (req) {
	case HDIO_DRIVE_CMD: {
		auto *args = static_cast<uint8_t *>(arg);
		a.bytes(args, 3); // status, error, sector count registers
		a.bytes(args + 4, sectors * 512);
		break;
	}
	case HDIO_GET_IDENTITY:
		a.bytes(arg, 512);
		break;
	case SG_IO: {
		auto *h = static_cast<sg_io_hdr_t *>(arg);
		if (h->dxfer_direction == SG_DXFER_FROM_DEV)
			a.bytes(h->dxferp, h->dxfer_len);
		h->status = a.byte(h->status);
		h->masked_status = static_cast<uint8_t>((h->status >> 1) & 0x7F);
		h->host_status = a.byte(static_cast<uint8_t>(h->host_status));
		h->driver_status = a.byte(static_cast<uint8_t>(h->driver_status));
		uint8_t sb = a.byte(h->sb_len_wr);
		h->sb_len_wr = h->mx_sb_len ? static_cast<uint8_t>(sb % (h->mx_sb_len + 1)) : 0;
		a.bytes(h->sbp, h->sb_len_wr);
		uint32_t resid = a.word(static_cast<uint32_t>(h->resid));
		h->resid = static_cast<int>(h->dxfer_len ? resid % (h->dxfer_len + 1) : 0);
		break;
	}
	case SCSI_IOCTL_SEND_COMMAND: {
		auto *r = static_cast<uint32_t *>(arg);
		a.bytes(r + 2, r[1]);
		break;
	}
	case NVME_IOCTL_ADMIN_CMD: {
		auto *c = static_cast<nvme_admin_cmd *>(arg);
		if (c->addr && c->data_len)
			a.bytes(reinterpret_cast<void *>(static_cast<uintptr_t>(c->addr)), c->data_len);
		c->result = a.word(c->result);
		break;
	}
	case BLKGETSIZE64:
		a.bytes(arg, 8);
		break;
	case BLKSSZGET:
		a.bytes(arg, 4);
		break;
	default:
		break;
	}
}

int hIoctl(int h, unsigned long req, void *arg)
{
	Answer a;
	const size_t sectors = req == HDIO_DRIVE_CMD && arg ? static_cast<uint8_t *>(arg)[3] : 0;
	if (gReal) {
		int rc = gReal->ioctl(h, req, arg);
		if (rc < 0) {
			a.byte(kFail);
			return rc;
		}
		if (rc > 0) {
			a.byte(kStatus);
			a.word(static_cast<uint32_t>(rc));
		} else {
			a.byte(0);
		}
		answer(req, arg, sectors);
		return rc;
	}
	uint8_t c = a.byte();
	if (c == kFail) {
		errno = EIO;
		return -1;
	}
	int rc = 0;
	if (c == kStatus) {
		uint32_t status = a.word() & 0x7FFF;
		rc = req == NVME_IOCTL_ADMIN_CMD ? static_cast<int>(status) : 0;
	}
	answer(req, arg, sectors);
	return rc;
}

ssize_t hRead(int h, void *buf, size_t len)
{
	Answer a;
	if (gReal) {
		ssize_t n = gReal->read(h, buf, len);
		a.word(static_cast<uint32_t>(n < 0 ? 0xFFFFFFFFu : static_cast<uint32_t>(n)));
		if (n > 0)
			a.bytes(buf, static_cast<size_t>(n));
		return n;
	}
	uint32_t n = a.word();
	if (n == 0xFFFFFFFFu) {
		errno = EIO;
		return -1;
	}
	n = static_cast<uint32_t>(len ? n % (len + 1) : 0);
	a.bytes(buf, n);
	return n;
}

ssize_t hWrite(int h, const void *buf, size_t len) { return gReal ? gReal->write(h, buf, len) : static_cast<ssize_t>(len); }

int hClose(int h) { return gReal ? gReal->close(h) : ::close(h); }

const vexo_device_backend kHostile = {hOpen, hIoctl, hRead, hWrite, hClose};

} // namespace

extern "C" {

__attribute__((visibility("default"))) const vexo_device_backend *vexo_device_backend_v1(void)
{
	const char *record = secure_getenv("VEXO_FUZZ_DRIVE_RECORD");
	const char *real = secure_getenv("VEXO_FUZZ_DRIVE_REAL");
	if (record && *record && real && *real) {
		void *h = ::dlopen(real, RTLD_NOW | RTLD_LOCAL);
		auto fn = h ? reinterpret_cast<vexo_device_backend_fn>(::dlsym(h, VEXO_DEVICE_BACKEND_SYMBOL)) : nullptr;
		gReal = fn ? fn() : nullptr;
		gRecord = gReal ? std::fopen(record, "wb") : nullptr;
		if (!gRecord)
			gReal = nullptr;
	}
	return &kHostile;
}

// The next input: the answers to every call until the next feed.
__attribute__((visibility("default"))) void vexo_fuzz_drive_feed(const uint8_t *data, size_t size)
{
	gData = data;
	gSize = size;
	if (gRecord)
		std::fflush(gRecord);
}

} // extern "C"
