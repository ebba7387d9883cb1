// /proc/partitions and /proc/mounts as a broken box may show them (the input
// cut at its first NUL): the device-number enumeration and lookups, the
// first disk's size found through them, and the mount table's question.
// The readers are driven directly: the first disk's whole record would also
// ask the drive its temperature, which the drive targets cover. The sysfs
// attribute readers have a target of their own (sysfs_attr_fuzz).
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vexohw/disk_enum.h>

#include "disk/disk_enum_pass.h"
#include "fuzz_box.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
	vexo::fuzz::hostileDrive()(nullptr, 0);
	auto p = vexo::fuzz::pieces(data, size, 2);
	vexo::fuzz::put("/proc/partitions", reinterpret_cast<const uint8_t *>(p[0].data()), p[0].size());
	vexo::fuzz::put("/proc/mounts", reinterpret_cast<const uint8_t *>(p[1].data()), p[1].size());
	unsigned *numbers = nullptr;
	int n = VEXODiskEnum(1, &numbers);
	if (n > 0 && !numbers)
		std::abort();
	for (int i = 0; i < n && i < 2; ++i) {
		DiskBriefInfo *b = nullptr;
		if (VEXODiskGetInfo(1, numbers[i], &b) == 0) {
			vexo::fuzz::terminated(b->name, sizeof(b->name));
			if (b->devNumber != numbers[i])
				std::abort();
			std::free(b);
		}
	}
	std::free(numbers);
	unsigned long long bytes = 0;
	vexo::disk::wholeDiskBytes("sda", &bytes);
	int aufs = vexo::disk::aufsMounted();
	if (aufs < -1 || aufs > 1)
		std::abort();
	return 0;
}
