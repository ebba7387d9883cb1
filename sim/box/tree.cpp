#include "tree.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace fs = std::filesystem;

namespace vexosim {

namespace {

[[noreturn]] void sysFail(const std::string &what, const std::string &path)
{
	throw TreeError(what + " " + path + ": " + std::strerror(errno));
}

std::vector<std::string> components(std::string_view p)
{
	std::vector<std::string> out;
	size_t i = 0;
	while (i < p.size()) {
		size_t j = p.find('/', i);
		if (j == std::string_view::npos)
			j = p.size();
		if (j > i)
			out.emplace_back(p.substr(i, j - i));
		i = j + 1;
	}
	return out;
}

std::string_view parentOf(std::string_view p)
{
	size_t i = p.rfind('/');
	return i == 0 || i == std::string_view::npos ? std::string_view("/") : p.substr(0, i);
}

bool emptyDir(const std::string &d)
{
	std::error_code ec;
	return fs::is_empty(d, ec) && !ec;
}

} // namespace

std::string relativeLink(std::string_view from, std::string_view to)
{
	auto a = components(from), b = components(to);
	a.pop_back(); // the link's own name
	size_t common = 0;
	while (common < a.size() && common < b.size() && a[common] == b[common])
		++common;
	std::string out;
	for (size_t i = common; i < a.size(); ++i)
		out += "../";
	for (size_t i = common; i < b.size(); ++i)
		out += b[i] + (i + 1 < b.size() ? "/" : "");
	return out.empty() ? "." : out;
}

Tree::Tree(std::string dir) : dir_(std::move(dir))
{
	while (dir_.size() > 1 && dir_.back() == '/')
		dir_.pop_back();
	if (dir_.empty())
		throw TreeError("empty target directory");
	struct stat st;
	if (::lstat(dir_.c_str(), &st) == 0) {
		if (!S_ISDIR(st.st_mode))
			throw TreeError(dir_ + " exists and is not a directory");
		if (!emptyDir(dir_) && ::access((dir_ + kMarker).c_str(), F_OK) != 0)
			throw TreeError("refusing to replace " + dir_ +
					": it is not empty and was not written by vexosim");
	} else if (errno != ENOENT) {
		sysFail("cannot stat", dir_);
	}
	stage_ = dir_ + ".vexosim-new." + std::to_string(::getpid());
	std::error_code ec;
	fs::remove_all(stage_, ec);
	fs::create_directories(fs::path(dir_).parent_path(), ec);
	if (::mkdir(stage_.c_str(), 0755) != 0)
		sysFail("cannot create", stage_);
}

Tree::~Tree()
{
	if (!committed_) {
		std::error_code ec;
		fs::remove_all(stage_, ec);
	}
}

std::string Tree::host(std::string_view path) const
{
	if (path.empty() || path[0] != '/' || path.find("/../") != std::string_view::npos)
		throw TreeError("bad appliance path " + std::string(path));
	return stage_ + std::string(path);
}

void Tree::dir(std::string_view path)
{
	std::error_code ec;
	fs::create_directories(host(path), ec);
	if (ec)
		throw TreeError("cannot create " + host(path) + ": " + ec.message());
}

void Tree::file(std::string_view path, std::string_view content)
{
	std::string h = host(path);
	dir(parentOf(path));
	int fd = ::open(h.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
	if (fd < 0)
		sysFail("cannot create", h);
	size_t off = 0;
	while (off < content.size()) {
		ssize_t n = ::write(fd, content.data() + off, content.size() - off);
		if (n < 0 && errno == EINTR)
			continue;
		if (n <= 0) {
			int e = errno;
			::close(fd);
			errno = e;
			sysFail("cannot write", h);
		}
		off += (size_t)n;
	}
	if (::close(fd) != 0)
		sysFail("cannot write", h);
}

void Tree::link(std::string_view path, std::string_view target)
{
	std::string h = host(path);
	dir(parentOf(path));
	if (::symlink(relativeLink(path, target).c_str(), h.c_str()) != 0)
		sysFail("cannot link", h);
}

void Tree::program(std::string_view path, const std::string &hostSource)
{
	std::string h = host(path);
	dir(parentOf(path));
	std::error_code ec;
	fs::copy_file(hostSource, h, fs::copy_options::overwrite_existing, ec);
	if (ec)
		throw TreeError("cannot copy " + hostSource + " to " + h + ": " + ec.message());
	fs::permissions(h, fs::perms::owner_all | fs::perms::group_read | fs::perms::group_exec |
				   fs::perms::others_read | fs::perms::others_exec,
			ec);
	if (ec)
		throw TreeError("cannot make " + h + " executable: " + ec.message());
}

void Tree::commit()
{
	file(kMarker, "vexosim root\n");
	// An empty or absent target is replaced in one rename; an earlier root
	// is moved aside first and removed once the new one stands.
	if (::rename(stage_.c_str(), dir_.c_str()) != 0) {
		if (errno != ENOTEMPTY && errno != EEXIST)
			sysFail("cannot rename into", dir_);
		std::string old = dir_ + ".vexosim-old." + std::to_string(::getpid());
		std::error_code ec;
		fs::remove_all(old, ec);
		if (::rename(dir_.c_str(), old.c_str()) != 0)
			sysFail("cannot move aside", dir_);
		if (::rename(stage_.c_str(), dir_.c_str()) != 0) {
			int e = errno;
			(void)::rename(old.c_str(), dir_.c_str());
			errno = e;
			sysFail("cannot rename into", dir_);
		}
		fs::remove_all(old, ec);
	}
	committed_ = true;
}

} // namespace vexosim
