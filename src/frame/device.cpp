#include "frame/device.h"

#include <cerrno>
#include <cstdlib>
#include <dlfcn.h>
#include <fcntl.h>
#include <mutex>
#include <string>
#include <sys/ioctl.h>
#include <unistd.h>
#include <vexoplatform/device_backend.h>

#include "frame/log.h"
#include "frame/sysroot.h"

namespace vexo::dev {
namespace {

int kOpen(const char *hostPath, const char *, int flags) { return ::open(hostPath, flags | O_CLOEXEC); }
int kIoctl(int h, unsigned long req, void *arg) { return ::ioctl(h, req, arg); }
ssize_t kRead(int h, void *buf, size_t len) { return ::read(h, buf, len); }
ssize_t kWrite(int h, const void *buf, size_t len) { return ::write(h, buf, len); }
int kClose(int h) { return ::close(h); }

const vexo_device_backend kKernel = {kOpen, kIoctl, kRead, kWrite, kClose};

// The backend is chosen once per process: handles of one backend mean
// nothing to another, so it cannot change under open descriptors.
// A set-user-id program never loads one (secure_getenv).
const vexo_device_backend &backend()
{
	static const vexo_device_backend *chosen = [] {
		const char *lib = secure_getenv("VEXO_DEVICE_BACKEND");
		if (!lib || !*lib)
			return &kKernel;
		void *h = ::dlopen(lib, RTLD_NOW | RTLD_LOCAL);
		if (!h) {
			vlog(LOG_ERR, "%s:%d Fail to load device backend %s: %s", VEXO_AT, lib, ::dlerror());
			return &kKernel;
		}
		auto fn = reinterpret_cast<vexo_device_backend_fn>(::dlsym(h, VEXO_DEVICE_BACKEND_SYMBOL));
		const vexo_device_backend *b = fn ? fn() : nullptr;
		if (!b || !b->open || !b->ioctl || !b->read || !b->write || !b->close) {
			vlog(LOG_ERR, "%s:%d Device backend %s is incomplete", VEXO_AT, lib);
			return &kKernel;
		}
		return b;
	}();
	return *chosen;
}

} // namespace

int openHandle(const char *path, int flags)
{
	if (!path) {
		errno = EINVAL;
		return -1;
	}
	std::string host = sysroot::path(path);
	return backend().open(host.c_str(), path, flags);
}
int ioctl(int h, unsigned long request, void *arg) { return backend().ioctl(h, request, arg); }
ssize_t read(int h, void *buf, size_t len) { return backend().read(h, buf, len); }
ssize_t write(int h, const void *buf, size_t len) { return backend().write(h, buf, len); }
int close(int h) { return backend().close(h); }

Device::Device(Device &&o) noexcept : h_(o.h_) { o.h_ = -1; }
Device &Device::operator=(Device &&o) noexcept
{
	if (this != &o) {
		if (h_ >= 0)
			dev::close(h_);
		h_ = o.h_;
		o.h_ = -1;
	}
	return *this;
}
Device::~Device()
{
	if (h_ >= 0)
		dev::close(h_);
}
Device Device::open(const char *path, int flags) { return adopt(openHandle(path, flags)); }
Device Device::adopt(int handle)
{
	Device d;
	d.h_ = handle < 0 ? -1 : handle;
	return d;
}
int Device::release()
{
	int h = h_;
	h_ = -1;
	return h;
}
int Device::ioctl(unsigned long request, void *arg) const { return dev::ioctl(h_, request, arg); }
ssize_t Device::read(void *buf, size_t len) const { return dev::read(h_, buf, len); }
ssize_t Device::write(const void *buf, size_t len) const { return dev::write(h_, buf, len); }

} // namespace vexo::dev
