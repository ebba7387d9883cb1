// The board's fan description (vcemd.xml), its control device and one of
// the maker's network adapters, so fan configuration has a real board to read.
#pragma once

#include "description.h"
#include "tree.h"

namespace vexosim {

// The adapter in the box: subsystem device id under the maker's vendor id.
inline constexpr int kFanNicDevice = 0x1001;
inline constexpr int kBoardFans = 2;

void fanFiles(const Box &box, Tree &tree);

} // namespace vexosim
