// /proc/partitions and /proc/mounts as a broken box may show them (the input
// cut at its first NUL): the device-number lookups and the first-disk
// record. Names handed out stay in their fields.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vexohw/disk.h>
#include <vexohw/disk_enum.h>
#include <vexohw/disk_probe.h>

#include "fuzz_box.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
	vexo::fuzz::hostileDrive()(nullptr, 0);
	auto p = vexo::fuzz::pieces(data, size, 2);
	vexo::fuzz::put("/proc/partitions", reinterpret_cast<const uint8_t *>(p[0].data()), p[0].size());
	vexo::fuzz::put("/proc/mounts", reinterpret_cast<const uint8_t *>(p[1].data()), p[1].size());
	unsigned *numbers = nullptr;
	int n = VEXODiskEnum(1, &numbers);
	// Each lookup reads the file again: two show what one cannot.
	for (int i = 0; i < n && i < 2; ++i) {
		DiskBriefInfo *b = nullptr;
		if (VEXODiskGetInfo(1, numbers[i], &b) == 0) {
			vexo::fuzz::terminated(b->name, sizeof(b->name));
			std::free(b);
		}
	}
	std::free(numbers);
	DiskInfo info;
	if (VEXOLnxDiskGetInfo(&info) == 0) {
		vexo::fuzz::terminated(info.name, sizeof(info.name));
		vexo::fuzz::terminated(info.path, sizeof(info.path));
	}
	return 0;
}
