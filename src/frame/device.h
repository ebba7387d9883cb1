// The device seam. Opening a disk, board or bus device node and issuing its
// control operations (HDIO_*, SG_IO, SCSI_IOCTL_SEND_COMMAND, NVMe admin
// commands, BLK*, board requests, i2c-dev) goes through here and nowhere
// else.
//
// The default backend is the kernel. Setting VEXO_DEVICE_BACKEND to the path
// of a shared object that exports vexo_device_backend_v1() (see
// <vexoplatform/device_backend.h>) puts that backend in its place for the
// whole process; the simulator's drive emulator is one.
#pragma once

#include <cstddef>
#include <sys/types.h>

#include "frame/unique.h"

namespace vexo::dev {

// An open device node. Closes itself.
class Device {
public:
	Device() = default;
	Device(const Device &) = delete;
	Device &operator=(const Device &) = delete;
	Device(Device &&o) noexcept;
	Device &operator=(Device &&o) noexcept;
	~Device();

	// Opens an appliance path ("/dev/sda") with open(2) flags. On failure
	// the Device is invalid and errno says why.
	static Device open(const char *path, int flags);
	// Adopts a handle returned by openHandle() (or -1).
	static Device adopt(int handle);

	bool valid() const { return h_ >= 0; }
	explicit operator bool() const { return valid(); }
	int handle() const { return h_; }
	int release();
	int ioctl(unsigned long request, void *arg) const;
	ssize_t read(void *buf, size_t len) const;
	ssize_t write(const void *buf, size_t len) const;

private:
	int h_ = -1;
};

// The same operations on raw handles, for code that receives a descriptor
// from a caller (the drive command interfaces take one). Handles come from
// openHandle() and are what the backend hands out (a kernel descriptor for
// the kernel backend).
int openHandle(const char *path, int flags);
int ioctl(int handle, unsigned long request, void *arg);
ssize_t read(int handle, void *buf, size_t len);
ssize_t write(int handle, const void *buf, size_t len);
int close(int handle);

} // namespace vexo::dev
