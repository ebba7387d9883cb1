// Scope-bound owners for descriptors, streams and malloc'd memory.
#pragma once

#include <sys/stat.h>

#include <cstdio>
#include <memory>
#include <cstdlib>
#include <unistd.h>
#include <utility>
#include <vexoplatform/vexocore.h>

namespace vexo {

class UniqueFd {
public:
	UniqueFd() = default;
	explicit UniqueFd(int fd) : fd_(fd) {}
	UniqueFd(const UniqueFd &) = delete;
	UniqueFd &operator=(const UniqueFd &) = delete;
	UniqueFd(UniqueFd &&o) noexcept : fd_(std::exchange(o.fd_, -1)) {}
	UniqueFd &operator=(UniqueFd &&o) noexcept
	{
		if (this != &o) {
			reset();
			fd_ = std::exchange(o.fd_, -1);
		}
		return *this;
	}
	~UniqueFd() { reset(); }
	int get() const { return fd_; }
	explicit operator bool() const { return fd_ >= 0; }
	int release() { return std::exchange(fd_, -1); }
	void reset(int fd = -1)
	{
		if (fd_ >= 0)
			::close(fd_);
		fd_ = fd;
	}

private:
	int fd_ = -1;
};

struct FileCloser {
	void operator()(std::FILE *f) const
	{
		if (f)
			std::fclose(f);
	}
};
using UniqueFile = std::unique_ptr<std::FILE, FileCloser>;

struct FreeDeleter {
	void operator()(void *p) const { std::free(p); }
};
template <typename T>
using UniqueMalloc = std::unique_ptr<T, FreeDeleter>;

// Owns a core-library string list; p is null when the allocation failed.
struct SzList {
	PVLIBSZLIST p;
	explicit SzList(int size = 16) : p(VLIBCSzListAlloc(size)) {}
	SzList(const SzList &) = delete;
	SzList &operator=(const SzList &) = delete;
	~SzList() { VLIBCSzListFree(p); }
};

} // namespace vexo
