// The sysfs attributes of a disk as a broken kernel or driver may show them
// (the input cut at NULs, one piece per attribute): the record, model,
// vendor, rotation, state, size and block size readers.
#include <cstddef>
#include <cstdint>
#include <vexohw/disk.h>
#include <vexohw/disk_enum.h>
#include <vexohw/disk_probe.h>
#include <vexohw/disk_state.h>

#include "fuzz_box.h"

namespace {

const char *const kAttributes[] = {
	"/sys/block/sda/size",          "/sys/block/sda/queue/logical_block_size", "/sys/block/sda/device/model",
	"/sys/block/sda/device/vendor", "/sys/block/sda/queue/rotational",         "/sys/block/sda/device/state",
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
	vexo::fuzz::hostileDrive()(nullptr, 0);
	auto p = vexo::fuzz::pieces(data, size, std::size(kAttributes));
	for (size_t i = 0; i < p.size(); ++i)
		vexo::fuzz::put(kAttributes[i], reinterpret_cast<const uint8_t *>(p[i].data()), p[i].size());
	DiskInfo *info = nullptr;
	if (DiskInfoGetWithoutSMART("sda", &info) == 1) {
		vexo::fuzz::terminated(info->name, sizeof(info->name));
		vexo::fuzz::terminated(info->model, sizeof(info->model));
		DiskInfoFree(info);
	}
	char text[48];
	vexo::fuzz::filled(VEXOLnxDiskGetModel("/dev/sda", text, sizeof(text)), text, sizeof(text));
	vexo::fuzz::filled(VEXOLnxDiskGetVendor("/dev/sda", text, sizeof(text)), text, sizeof(text));
	(void)VEXODiskIsSSD("/dev/sda");
	(void)VEXODiskIsRunning("/dev/sda");
	unsigned long long bytes = 0;
	(void)DiskSizeGet("/dev/sda", &bytes);
	int block = 0;
	(void)DiskLogicalBlockSizeGet("/dev/sda", &block);
	return 0;
}
