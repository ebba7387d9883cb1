// The compatibility databases and rule files under /var/lib/disk-compatibility,
// and the disk action database naming the maker's drives of the box.
#pragma once

#include <string>

#include "description.h"
#include "tree.h"

namespace vexosim {

void compatFiles(const Box &box, Tree &tree);
// The disk action database: one entry per model of the box's devices whose
// vendor is the maker, no action bits.
std::string diskActionXml(const Box &box);
// The drive attribute database: one entry per model of the box's NVMe
// devices whose vendor is the maker.
std::string driveAttributeDb(const Box &box);

} // namespace vexosim
