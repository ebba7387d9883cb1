// Writes a tree of plain files, directories and relative symlinks under a
// staging directory, then swaps it into place whole, so that an interrupted
// build never leaves a half-written root where a program would use it.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

#include "sysfs.h"

namespace vexosim {

class TreeError : public std::runtime_error {
public:
	using std::runtime_error::runtime_error;
};

// The marker at the top of every root this tool writes; only such a root is
// ever replaced.
inline constexpr const char *kMarker = "/.vexosim";

class Tree : public Sink {
public:
	// Stages next to `dir`. Refuses a `dir` that is neither absent, empty,
	// nor an earlier vexosim root.
	explicit Tree(std::string dir);
	~Tree() override; // removes the staging directory unless commit() ran
	Tree(const Tree &) = delete;
	Tree &operator=(const Tree &) = delete;

	// Appliance paths ("/sys/block/sda/size").
	void dir(std::string_view path) override;
	void file(std::string_view path, std::string_view content) override;
	// A symlink at `path` to the appliance path `target`, written relative,
	// as the kernel writes its sysfs links.
	void link(std::string_view path, std::string_view target) override;
	// An executable file at `path`, copied from a host file.
	void program(std::string_view path, const std::string &hostSource);

	// Puts the staged tree at `dir`.
	void commit();

private:
	std::string host(std::string_view path) const;
	std::string dir_, stage_;
	bool committed_ = false;
};

// The relative text of a link at `from` pointing to `to` (both absolute).
std::string relativeLink(std::string_view from, std::string_view to);

} // namespace vexosim
