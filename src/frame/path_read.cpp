#include "frame/path_read.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include "frame/sysroot.h"

namespace vexo {

namespace {

constexpr int kReadFlags = O_RDONLY | O_CLOEXEC | O_NOFOLLOW;

bool fail(ReadFail *why, ReadFail what, int err)
{
	if (why)
		*why = what;
	errno = err;
	return false;
}

UniqueFd openFile(int dirFd, const std::string &name, int flags)
{
	int fd;
	do
		fd = ::openat(dirFd, name.c_str(), flags ? flags : kReadFlags);
	while (fd < 0 && errno == EINTR);
	return UniqueFd(fd);
}

// Up to `max` bytes of the file; the buffer grows as the file turns out
// longer, so that a large limit costs nothing for a small file.
bool readRaw(UniqueFd fd, std::string &text, std::size_t max, ReadFail *why)
{
	if (!fd)
		return fail(why, ReadFail::Open, errno);
	std::string buf(std::min<std::size_t>(max, 4096), '\0');
	std::size_t got = 0;
	while (got < max) {
		if (got == buf.size())
			buf.resize(std::min(max, buf.size() * 2));
		ssize_t n = ::read(fd.get(), buf.data() + got, buf.size() - got);
		if (n < 0 && errno == EINTR)
			continue;
		if (n < 0)
			return fail(why, ReadFail::Read, errno);
		if (n == 0)
			break;
		got += static_cast<std::size_t>(n);
	}
	if (got == 0)
		return fail(why, ReadFail::Read, ENODATA);
	buf.resize(got);
	text = std::move(buf);
	return true;
}

// One read of a small file into a string, cut at the first NUL.
bool readText(UniqueFd fd, std::string &text, std::size_t max, ReadFail *why)
{
	if (!readRaw(std::move(fd), text, max, why))
		return false;
	text.resize(strnlen(text.data(), text.size()));
	return true;
}

bool stringOf(UniqueFd fd, std::string &out, ReadFail *why, std::size_t max)
{
	std::string text;
	if (!readText(std::move(fd), text, max, why))
		return false;
	std::string_view t = trimSpace(text);
	out.assign(t.data(), t.size());
	return true;
}

bool lineOf(UniqueFd fd, std::string &out, std::size_t size, bool keepNewline, ReadFail *why)
{
	if (size < 2)
		return fail(why, ReadFail::Read, EINVAL);
	std::string text;
	if (!readText(std::move(fd), text, size - 1, why))
		return false;
	std::size_t nl = text.find('\n');
	if (nl != std::string::npos)
		text.resize(keepNewline ? nl + 1 : nl);
	out = std::move(text);
	return true;
}

template <typename T>
bool parseNumber(std::string_view text, T &out)
{
	text = trimSpace(text);
	if (!text.empty() && text.front() == '+')
		text.remove_prefix(1);
	T v{};
	auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), v, 10);
	if (text.empty() || ec == std::errc::invalid_argument || end != text.data() + text.size()) {
		errno = EINVAL;
		return false;
	}
	if (ec == std::errc::result_out_of_range) {
		errno = ERANGE;
		return false;
	}
	out = v;
	return true;
}

template <typename T>
bool numberOf(UniqueFd fd, T &out, ReadFail *why)
{
	std::string text;
	// A number is short: 64 bytes hold any with room for padding.
	if (!readText(std::move(fd), text, 64, why))
		return false;
	if (!parseNumber(text, out))
		return fail(why, ReadFail::Parse, errno);
	return true;
}

int openDir(const std::string &host, int &err)
{
	int fd;
	do
		fd = ::open(host.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
	while (fd < 0 && errno == EINTR);
	err = fd < 0 ? errno : 0;
	return fd;
}

UniqueFd openPath(std::string_view path, int flags = kReadFlags)
{
	return openFile(AT_FDCWD, sysroot::path(path), flags);
}

// A name below a directory descriptor: a leading '/' would escape it.
std::string below(std::string_view rel)
{
	while (!rel.empty() && rel.front() == '/')
		rel.remove_prefix(1);
	return rel.empty() ? std::string(".") : std::string(rel);
}

} // namespace

std::string_view trimSpace(std::string_view t)
{
	constexpr std::string_view ws = " \t\r\n\v\f";
	std::size_t b = t.find_first_not_of(ws);
	if (b == std::string_view::npos)
		return {};
	return t.substr(b, t.find_last_not_of(ws) - b + 1);
}

bool parseS32(std::string_view text, int32_t &out) { return parseNumber(text, out); }
bool parseI64(std::string_view text, int64_t &out) { return parseNumber(text, out); }
bool parseU64(std::string_view text, uint64_t &out) { return parseNumber(text, out); }

PathDir::PathDir(std::string_view path)
{
	fd_.reset(openDir(sysroot::path(path), errno_));
}

PathDir PathDir::host(const char *hostPath)
{
	int err = 0;
	UniqueFd fd(openDir(hostPath, err));
	PathDir d(std::move(fd));
	d.errno_ = err;
	return d;
}

UniqueFd PathDir::openAt(std::string_view rel, int flags) const
{
	if (!fd_) {
		errno = errno_;
		return UniqueFd();
	}
	return openFile(fd_.get(), below(rel), flags);
}

bool PathDir::readString(std::string_view rel, std::string &out, ReadFail *why, std::size_t max) const
{
	return stringOf(openAt(rel), out, why, max);
}

bool PathDir::readLine(std::string_view rel, std::string &out, std::size_t size, bool keepNewline,
		       ReadFail *why) const
{
	return lineOf(openAt(rel), out, size, keepNewline, why);
}

bool PathDir::readS32(std::string_view rel, int32_t &out, ReadFail *why) const
{
	return numberOf(openAt(rel), out, why);
}

bool PathDir::readI64(std::string_view rel, int64_t &out, ReadFail *why) const
{
	return numberOf(openAt(rel), out, why);
}

bool PathDir::readU64(std::string_view rel, uint64_t &out, ReadFail *why) const
{
	return numberOf(openAt(rel), out, why);
}

bool readString(std::string_view path, std::string &out, ReadFail *why, std::size_t max)
{
	return stringOf(openPath(path), out, why, max);
}

bool readBytes(std::string_view path, std::string &out, std::size_t max, ReadFail *why)
{
	// A document may well be a link (a configuration kept elsewhere).
	return readRaw(openPath(path, O_RDONLY | O_CLOEXEC), out, max, why);
}

bool readLine(std::string_view path, std::string &out, std::size_t size, bool keepNewline, ReadFail *why)
{
	return lineOf(openPath(path), out, size, keepNewline, why);
}

bool readS32(std::string_view path, int32_t &out, ReadFail *why) { return numberOf(openPath(path), out, why); }
bool readI64(std::string_view path, int64_t &out, ReadFail *why) { return numberOf(openPath(path), out, why); }
bool readU64(std::string_view path, uint64_t &out, ReadFail *why) { return numberOf(openPath(path), out, why); }

} // namespace vexo
