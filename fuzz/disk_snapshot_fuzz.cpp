// The snapshot readers over any bytes: DiskInfoEnum's reader and
// DiskIsExistInCache. Every record they hand out has terminated texts.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <sys/stat.h>

#include <vexohw/disk_enum.h>

#include "disk/disk_info_walk.h"
#include "fuzz_root.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
	static const bool ready = [] {
		setenv("VEXO_LOG", "/dev/null", 1);
		::mkdir((vexo::fuzz::root() + "/tmp").c_str(), 0755);
		return true;
	}();
	(void)ready;
	vexo::fuzz::writeInput(VEXO_DISK_SNAPSHOT, data, size);
	// The mask comes from the input too, so that every filter is tried.
	int32_t mask = size >= 4 ? static_cast<int32_t>(data[size - 1]) : -1;
	DiskEnumFilter filter{&mask};
	DiskListNode *list = nullptr;
	int count = 0;
	if (vexo::disk::readSnapshot(&filter, &list, &count) == vexo::disk::SnapshotRead::Listed) {
		int n = 0;
		for (DiskListNode *c = list; c; c = c->next, ++n) {
			if (std::strlen(c->info->name) >= sizeof(c->info->name) ||
			    std::strlen(c->info->path) >= sizeof(c->info->path) ||
			    std::strlen(c->info->model) >= sizeof(c->info->model) || !(c->info->id.container & mask))
				std::abort();
		}
		if (n != count || static_cast<size_t>(n) > size / VEXO_DISK_SNAPSHOT_ENTRY_SIZE)
			std::abort();
		DiskInfoEnumFree(list);
	}
	DiskIsExistInCache("/dev/sda1");
	return 0;
}
