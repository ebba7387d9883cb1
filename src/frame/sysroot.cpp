#include "frame/sysroot.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <glob.h>
#include <unistd.h>

#include "frame/boundary.h"
#include "frame/log.h"

namespace vexo::sysroot {

std::string root()
{
	const char *r = secure_getenv("VEXO_SYSROOT");
	if (!r || !*r)
		return {};
	std::string s(r);
	while (s.size() > 1 && s.back() == '/')
		s.pop_back();
	return s == "/" ? std::string() : s;
}

std::string path(std::string_view p)
{
	VEXO_FAULT_POINT();
	if (p.empty() || p.front() != '/')
		return std::string(p);
	// Every file access composes a path: one allocation, no copy of the root.
	const char *r = secure_getenv("VEXO_SYSROOT");
	std::string_view rv = r ? std::string_view(r) : std::string_view();
	while (rv.size() > 1 && rv.back() == '/')
		rv.remove_suffix(1);
	if (rv == "/")
		rv = {};
	std::string out;
	out.reserve(rv.size() + p.size());
	out.append(rv).append(p);
	return out;
}

std::string strip(std::string_view host)
{
	std::string r = root();
	if (r.empty())
		return std::string(host);
	if (host.size() >= r.size() && host.compare(0, r.size(), r) == 0 &&
	    (host.size() == r.size() || host[r.size()] == '/')) {
		std::string s(host.substr(r.size()));
		return s.empty() ? "/" : s;
	}
	return std::string(host);
}

std::FILE *fopen(const char *p, const char *mode) { return std::fopen(path(p).c_str(), mode); }
int open(const char *p, int flags, mode_t mode) { return ::open(path(p).c_str(), flags, mode); }
int create(const char *p, int flags, mode_t mode)
{
	int fd = ::open(path(p).c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | flags, mode);
	if (fd < 0)
		return -1;
	if (::fchmod(fd, mode) != 0) {
		const int e = errno;
		::close(fd);
		errno = e;
		return -1;
	}
	return fd;
}

std::FILE *fcreate(const char *p, mode_t mode)
{
	int fd = create(p, O_TRUNC, mode);
	if (fd < 0)
		return nullptr;
	std::FILE *f = ::fdopen(fd, "w");
	if (!f) {
		const int e = errno;
		::close(fd);
		errno = e;
	}
	return f;
}

int stat(const char *p, struct stat *st) { return ::stat(path(p).c_str(), st); }
int lstat(const char *p, struct stat *st) { return ::lstat(path(p).c_str(), st); }
int access(const char *p, int mode) { return ::access(path(p).c_str(), mode); }
int rename(const char *a, const char *b) { return ::rename(path(a).c_str(), path(b).c_str()); }
int unlink(const char *p) { return ::unlink(path(p).c_str()); }
int mkdir(const char *p, mode_t mode) { return ::mkdir(path(p).c_str(), mode); }
int rmdir(const char *p) { return ::rmdir(path(p).c_str()); }
DIR *opendir(const char *p) { return ::opendir(path(p).c_str()); }
ssize_t readlink(const char *p, char *buf, size_t size) { return ::readlink(path(p).c_str(), buf, size); }

char *realpath(const char *p, char *out)
{
	char host[PATH_MAX];
	if (!::realpath(path(p).c_str(), host))
		return nullptr;
	std::string s = strip(host);
	if (s.size() >= PATH_MAX) {
		errno = ENAMETOOLONG;
		return nullptr;
	}
	std::memcpy(out, s.c_str(), s.size() + 1);
	return out;
}

int glob(const char *pattern, std::vector<std::string> &matches)
{
	VEXO_FAULT_POINT();
	matches.clear();
	std::string r = root();
	// Glob metacharacters in the root itself must not be expanded.
	std::string escaped;
	for (char c : r) {
		if (c == '*' || c == '?' || c == '[' || c == '\\')
			escaped += '\\';
		escaped += c;
	}
	std::string full = escaped + pattern;
	glob_t g{};
	int rc = ::glob(full.c_str(), 0, nullptr, &g);
	if (rc == 0) {
		for (size_t i = 0; i < g.gl_pathc; ++i)
			matches.push_back(strip(g.gl_pathv[i]));
	}
	globfree(&g);
	return rc == GLOB_NOMATCH ? 0 : rc;
}

} // namespace vexo::sysroot
