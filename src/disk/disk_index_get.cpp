// Letter index of an sd name and the /dev/ prefix skip.
#include <cstring>

#include <vexohw/disk.h>
#include "frame/boundary.h"

extern "C" {

VEXO_API const char *VEXODiskDevPrefixSkip(const char *path)
try {
	if (path && std::strncmp(path, "/dev/", 5) == 0)
		return path + 5;
	return path;
} VEXO_C_CATCH(path)

VEXO_API int DiskIndexGet(const char *path)
try {
	if (!path)
		return -1;
	const char *p = VEXODiskDevPrefixSkip(path);
	if (std::strncmp(p, "sd", 2) == 0)
		p += 2;
	int value = -1;
	// Base-26 with no zero digit: "a" 0, "z" 25, "aa" 26. Stop before the
	// value overflows; no real name comes near it.
	for (; *p >= 'a' && *p <= 'z'; ++p) {
		if (value > 80000000)
			return -1;
		value = (value + 1) * 26 + (*p - 'a');
	}
	return value;
} VEXO_C_CATCH(-1)

} // extern "C"
