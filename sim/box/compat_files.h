// The compatibility databases and rule files under /var/lib/disk-compatibility.
#pragma once

#include "description.h"
#include "tree.h"

namespace vexosim {

void compatFiles(const Box &box, Tree &tree);

} // namespace vexosim
