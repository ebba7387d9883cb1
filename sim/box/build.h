// Lays a described box out as the appliance's kernel and configuration show
// it: sysfs shaped as the kernel builds it, the product's configuration
// files, and one drive description per disk under /dev.
#pragma once

#include <string>

#include "description.h"
#include "tree.h"

namespace vexosim {

void build(const Box &box, Tree &tree);

// The text of /dev/<name>: the drive emulator's description of the disk.
std::string driveNode(const Device &d);

// Hexadecimal mask of `count` letters from letter index `first`, as the port
// map keys hold it ("0xfff").
std::string portMask(int first, int count);

// The real path of a file of this build, given relative to the folder of
// the running vexosim (<build>/bin), or "" when it is not there.
std::string besideSelf(const std::string &relative);

} // namespace vexosim
