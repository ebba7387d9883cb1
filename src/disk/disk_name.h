// Helpers shared by the disk naming code (not exported).
#pragma once

#include <string>

namespace vexo::disk {

// Names whose partition number follows a 'p' (mmcblk0p1, nvme0n1p2, nvc1p1, sysd1p1).
bool partitionAfterP(const char *path);

// The short name of path without /dev/ and without its partition, or ""
// when it does not fit in 32 bytes.
std::string shortDiskName(const char *path);

} // namespace vexo::disk
