// Typed readers of kernel attributes and one-value files: one way to open,
// read, trim and parse a small file, with one error path.
//
//   vexo::PathDir d("/sys/block/sda");           // through the sysroot seam
//   std::string model;
//   int32_t ro = 0;
//   if (!d.readString("device/model", model) || !d.readS32("ro", ro)) ...
//
// A PathDir holds a descriptor on the directory and opens its files with
// openat, so a directory that is renamed or replaced between two reads
// keeps answering for the one first opened. Files are opened with
// O_NOFOLLOW: an attribute or a cache value is a regular file, and a link in
// its place is refused (ELOOP). Links above the file (/sys/block/<name>,
// "device/...") are followed as usual.
//
// Every reader returns false on failure with errno set, leaves its output
// untouched, and, when asked, says which step failed, so that the caller
// records the code and writes the line its own function owes its callers.
// An empty file is a failed read (ENODATA), as fgets would have it and as
// the cache convention wants (a value being renamed into place).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "frame/unique.h"

namespace vexo {

enum class ReadFail : uint8_t {
	None,
	Open,  // the file (or its directory) could not be opened
	Read,  // read(2) failed, or the file was empty
	Parse, // the text is not a value of the asked type
};

// The largest file a one-value reader takes; longer content is cut here.
inline constexpr std::size_t kOneValueMax = 4096;

class PathDir {
public:
	// appliancePath is composed through the sysroot seam.
	explicit PathDir(std::string_view appliancePath);
	// A directory of the host itself, not under the sysroot: /proc, whose
	// processes are the host's whatever root the files live under.
	static PathDir host(const char *hostPath);
	// A descriptor already open on a directory; the PathDir takes it over.
	explicit PathDir(UniqueFd dirFd) : fd_(std::move(dirFd)), errno_(fd_ ? 0 : EBADF) {}

	// Whether the directory could be opened; errno of the failure otherwise.
	explicit operator bool() const { return static_cast<bool>(fd_); }
	int error() const { return errno_; }
	int fd() const { return fd_.get(); }

	// Opens a file below the directory for reading (O_RDONLY | O_CLOEXEC |
	// O_NOFOLLOW unless more flags are given). A leading '/' is dropped: the
	// name stays below this directory.
	UniqueFd openAt(std::string_view rel, int flags = 0) const;

	// Whole content, cut at `max` bytes and at the first NUL, leading and
	// trailing white space removed.
	bool readString(std::string_view rel, std::string &out, ReadFail *why = nullptr,
			std::size_t max = kOneValueMax) const;
	// The first line as fgets into a buffer of `size` bytes would give it:
	// at most size-1 bytes, up to and including the first newline when
	// `keepNewline`, otherwise without it. Nothing is trimmed.
	bool readLine(std::string_view rel, std::string &out, std::size_t size, bool keepNewline = false,
		      ReadFail *why = nullptr) const;
	// A decimal number filling the trimmed content ("42\n", " -7 "); an
	// out-of-range value is a parse failure (ERANGE).
	bool readS32(std::string_view rel, int32_t &out, ReadFail *why = nullptr) const;
	bool readI64(std::string_view rel, int64_t &out, ReadFail *why = nullptr) const;
	bool readU64(std::string_view rel, uint64_t &out, ReadFail *why = nullptr) const;

private:
	UniqueFd fd_;
	int errno_ = 0;
};

// The same readers for a single file named by its appliance path.
// readBytes gives the content as it is (at most `max` bytes; NULs, white
// space and all), for documents that are parsed whole; unlike the one-value
// readers it follows a link in the file's place.
bool readBytes(std::string_view path, std::string &out, std::size_t max, ReadFail *why = nullptr);
bool readString(std::string_view path, std::string &out, ReadFail *why = nullptr, std::size_t max = kOneValueMax);
bool readLine(std::string_view path, std::string &out, std::size_t size, bool keepNewline = false,
	      ReadFail *why = nullptr);
bool readS32(std::string_view path, int32_t &out, ReadFail *why = nullptr);
bool readI64(std::string_view path, int64_t &out, ReadFail *why = nullptr);
bool readU64(std::string_view path, uint64_t &out, ReadFail *why = nullptr);

// Parsers of one value, as the readers use them: the text trimmed of white
// space must be exactly one decimal number in range (a leading '+' is taken).
bool parseS32(std::string_view text, int32_t &out);
bool parseI64(std::string_view text, int64_t &out);
bool parseU64(std::string_view text, uint64_t &out);
// The text without leading and trailing white space.
std::string_view trimSpace(std::string_view text);

} // namespace vexo
