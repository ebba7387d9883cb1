// What the first disk's record reads of the kernel's tables: the
// device-number lookup of whole disks as one pass over /proc/partitions,
// and the mount table.
#pragma once

namespace vexo::disk {

// The size in bytes of the whole disk `name` (e.g. "sda") as the
// device-number lookup finds it, reading the partition table once. False
// with the error recorded when the table cannot be read or no such disk
// answers.
bool wholeDiskBytes(const char *name, unsigned long long *bytes);

// 1 when a file system of type aufs is mounted, 0 when not, -1 when the
// mount table cannot be read.
int aufsMounted();

} // namespace vexo::disk
