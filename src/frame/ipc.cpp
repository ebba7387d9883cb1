#include "frame/ipc.h"

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/stat.h>
#include <unistd.h>

#include "frame/log.h"
#include "frame/sysroot.h"

namespace vexo::ipc {

namespace {

// FNV-1a over the parts, each ended by a NUL so that "ab"+"c" and "a"+"bc"
// differ.
uint32_t hashOf(std::initializer_list<std::string_view> parts)
{
	uint32_t h = 2166136261u;
	for (std::string_view p : parts) {
		for (unsigned char c : p)
			h = (h ^ c) * 16777619u;
		h = (h ^ 0u) * 16777619u;
	}
	return h;
}

} // namespace

key_t key(const char *path, int projectId)
{
	if (!path || !*path) {
		errno = EINVAL;
		return -1;
	}
	return keyUnder(sysroot::root(), sysroot::path(path), projectId);
}

key_t keyUnder(const std::string &root, const std::string &host, int projectId)
{
	if (root.empty())
		return ::ftok(host.c_str(), projectId);
	struct stat st {};
	if (::stat(host.c_str(), &st) != 0)
		return -1;
	// The whole device and inode numbers, where ftok keeps 8 and 16 bits of
	// them: any name of the same file gives the same key, as with ftok.
	char id = static_cast<char>(projectId & 0xff);
	uint64_t dev = st.st_dev, ino = st.st_ino;
	uint32_t h = hashOf({root, std::string_view(reinterpret_cast<const char *>(&dev), sizeof(dev)),
			     std::string_view(reinterpret_cast<const char *>(&ino), sizeof(ino)), std::string_view(&id, 1)});
	// Neither IPC_PRIVATE (0) nor the failure value (-1).
	if (h == 0 || h == 0xffffffffu)
		h = 1;
	return static_cast<key_t>(h);
}

int removeRootSemaphores(const std::string &root)
{
	// The real root's semaphores belong to the appliance's other programs.
	if (root.empty())
		return 0;
	int removed = 0;
	for (int id = 0; id < 256; ++id) {
		key_t k = keyUnder(root, root + "/", id);
		if (k == -1)
			return -1;
		int sem = ::semget(k, 0, 0);
		if (sem >= 0 && ::semctl(sem, 0, IPC_RMID) == 0)
			++removed;
		else if (sem >= 0)
			vlog(LOG_ERR, "%s:%d Failed to remove semaphore %d of %s: errno=%d", VEXO_AT, sem, root.c_str(), errno);
	}
	return removed;
}

bool UnixAddress::set(const char *path)
{
	sun_ = sockaddr_un{};
	sun_.sun_family = AF_UNIX;
	dir_.reset();
	if (!path || !*path) {
		errno = EINVAL;
		return false;
	}
	std::string host = sysroot::path(path);
	if (host.size() < sizeof(sun_.sun_path)) {
		std::memcpy(sun_.sun_path, host.c_str(), host.size() + 1);
		return true;
	}
	std::size_t slash = host.rfind('/');
	std::string dir = slash == 0 ? "/" : host.substr(0, slash);
	std::string file = host.substr(slash + 1);
	std::string name = "/proc/" + std::to_string(::getpid()) + "/fd/";
	// The longest descriptor number there could be: decide before opening.
	if (name.size() + 10 + 1 + file.size() >= sizeof(sun_.sun_path)) {
		vlog(LOG_ERR, "%s:%d Socket path %s is too long even through its directory", VEXO_AT, host.c_str());
		errno = ENAMETOOLONG;
		return false;
	}
	int fd = ::open(dir.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
	if (fd < 0) {
		int err = errno;
		vlog(LOG_ERR, "%s:%d Fail to open the directory of socket %s. errno=%m", VEXO_AT, host.c_str());
		errno = err;
		return false;
	}
	dir_.reset(fd);
	name += std::to_string(fd) + "/" + file;
	std::memcpy(sun_.sun_path, name.c_str(), name.size() + 1);
	return true;
}

int bind(int sock, const char *path, UnixAddress &keep)
{
	if (!keep.set(path))
		return -1;
	return ::bind(sock, keep.addr(), keep.size());
}

int connect(int sock, const char *path)
{
	UnixAddress a;
	if (!a.set(path))
		return -1;
	int r;
	do
		r = ::connect(sock, a.addr(), a.size());
	while (r < 0 && errno == EINTR);
	return r;
}

ssize_t sendTo(int sock, const void *buf, std::size_t len, int flags, const char *path)
{
	UnixAddress a;
	if (!a.set(path))
		return -1;
	ssize_t n;
	do
		n = ::sendto(sock, buf, len, flags, a.addr(), a.size());
	while (n < 0 && errno == EINTR);
	return n;
}

} // namespace vexo::ipc
