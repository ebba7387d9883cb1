// What the compatibility cache files share.
#pragma once
#include <string>

namespace vexo::compatcache {

// Reads one cached value of a disk ("/dev/sda") into out, once. 0, or -1:
// silently when the file cannot be opened (never refreshed), with a log line
// for a read error.
int readValue(const char *disk, const char *key, char *out, int outSize);

// The status word cached for a disk, 0 when it cannot be read.
int cachedStatus(const char *disk);

// "/dev/sda" -> "sda"; false when that is no one cache folder.
bool shortName(const char *disk, std::string &name);

} // namespace vexo::compatcache
