// The family's file helpers: whole-file writers and the model name.
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vexoplatform/vexocore.h>

#include "disk/dbupdate.h"
#include "frame/err.h"
#include "frame/sysroot.h"
#include "frame/unique.h"

namespace vexo::dbupdate {

namespace {

bool writeAll(int fd, const char *data, size_t size)
{
	while (size > 0) {
		ssize_t n = ::write(fd, data, size);
		if (n < 0 && errno == EINTR)
			continue;
		if (n <= 0) {
			if (n == 0)
				errno = EIO;
			return false;
		}
		data += n;
		size -= static_cast<size_t>(n);
	}
	return true;
}

// The directory entry of a rename reaches the disk with the directory.
void syncParent(const std::string &path)
{
	std::string dir = path.substr(0, path.find_last_of('/') + 1);
	UniqueFd fd(sysroot::open(dir.empty() ? "." : dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
	if (fd)
		::fsync(fd.get());
}

// Fills tmp through fill(fd), flushes it and renames it over path.
template <typename Fill>
bool whole(const std::string &path, mode_t mode, Fill &&fill)
{
	std::string tmp = path + ".tmp";
	sysroot::unlink(tmp.c_str());
	UniqueFd fd(sysroot::create(tmp.c_str(), O_EXCL, mode));
	if (!fd)
		return false;
	if (!fill(fd.get()) || ::fsync(fd.get()) != 0 || ::close(fd.release()) != 0 ||
	    sysroot::rename(tmp.c_str(), path.c_str()) != 0) {
		int saved = errno;
		sysroot::unlink(tmp.c_str());
		errno = saved;
		return false;
	}
	syncParent(path);
	return true;
}

} // namespace

bool model(std::string &out)
{
	char buf[256] = {};
	if (VLIBCFileGetKeyValue("/etc.defaults/vexoinfo.conf", "upnpmodelname", buf, sizeof buf, 0) <= 0) {
		vlog(LOG_ERR, "%s:%d Failed to get value of %s in %s", VEXO_AT, "upnpmodelname",
		     "/etc.defaults/vexoinfo.conf");
		VEXO_ERR(VEXO_ERR_NOT_FOUND);
		return false;
	}
	if (VLIBCStrCaseLower(buf) != 0 || VLIBCStrTrimSpace(buf) != 0 || !*buf) {
		vlog(LOG_ERR, "%s:%d Failed to lower case/trim model name %s", VEXO_AT, buf);
		VEXO_ERR(VEXO_ERR_NOT_FOUND);
		return false;
	}
	out = buf;
	return true;
}

bool copyWhole(const std::string &from, const std::string &to, mode_t mode)
{
	UniqueFd in(sysroot::open(from.c_str(), O_RDONLY | O_CLOEXEC));
	struct stat st;
	if (!in || ::fstat(in.get(), &st) != 0)
		return false;
	if (!S_ISREG(st.st_mode)) {
		errno = EINVAL;
		return false;
	}
	return whole(to, mode ? mode : (st.st_mode & 07777), [&](int out) {
		char buf[65536];
		for (;;) {
			ssize_t n = ::read(in.get(), buf, sizeof buf);
			if (n < 0 && errno == EINTR)
				continue;
			if (n < 0)
				return false;
			if (n == 0)
				return true;
			if (!writeAll(out, buf, static_cast<size_t>(n)))
				return false;
		}
	});
}

bool writeWhole(const std::string &path, std::string_view text)
{
	return whole(path, 0644, [&](int fd) { return writeAll(fd, text.data(), text.size()); });
}

int readNumber(const std::string &path, long long &value)
{
	UniqueFd fd(sysroot::open(path.c_str(), O_RDONLY | O_CLOEXEC));
	if (!fd)
		return errno == ENOENT ? 0 : -1;
	errno = 0;
	char buf[64] = {};
	ssize_t n;
	do
		n = ::read(fd.get(), buf, sizeof buf - 1);
	while (n < 0 && errno == EINTR);
	if (n < 0)
		return -2;
	char *end = nullptr;
	errno = 0;
	long long v = std::strtoll(buf, &end, 10);
	if (end == buf || errno != 0 || (*end && *end != '\n' && *end != ' ' && *end != '\r')) {
		errno = EINVAL;
		return -2;
	}
	value = v;
	return 1;
}

bool makeDirs(const std::string &dir, mode_t mode)
{
	for (size_t i = 1; i <= dir.size(); ++i) {
		if (i != dir.size() && dir[i] != '/')
			continue;
		std::string part = dir.substr(0, i);
		struct stat st;
		if (sysroot::stat(part.c_str(), &st) == 0)
			continue;
		if (sysroot::mkdir(part.c_str(), mode) != 0 && errno != EEXIST)
			return false;
	}
	return true;
}

bool safeRelative(std::string_view rel)
{
	if (rel.empty() || rel.front() == '/')
		return false;
	size_t start = 0;
	while (start <= rel.size()) {
		size_t end = rel.find('/', start);
		if (end == std::string_view::npos)
			end = rel.size();
		std::string_view part = rel.substr(start, end - start);
		if (part.empty() || part == "." || part == "..")
			return false;
		for (char c : part)
			if (static_cast<unsigned char>(c) < 0x20 || c == '?' || c == '#' || c == '%' || c == '\\')
				return false;
		start = end + 1;
	}
	return true;
}

} // namespace vexo::dbupdate
