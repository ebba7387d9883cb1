// The snapshot readers over any bytes: DiskInfoEnum's reader and
// DiskIsExistInCache. Every record they hand out has terminated texts.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <sys/stat.h>
#include <vector>

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
	if (size < 3)
		return 0;
	// The first bytes choose the file's length, in whole entries (up to 255,
	// past the reader's 64-entry chunk) and a rest, and the filter; the
	// others are repeated to fill it, so that short inputs reach past the
	// first entry.
	const size_t length = data[0] * VEXO_DISK_SNAPSHOT_ENTRY_SIZE +
			      (data[1] * 7u) % VEXO_DISK_SNAPSHOT_ENTRY_SIZE;
	int32_t mask = data[2] == 0xFF ? -1 : data[2];
	data += 3;
	size -= 3;
	std::vector<uint8_t> file(length);
	for (size_t at = 0; at < length && size; at += size)
		std::memcpy(file.data() + at, data, std::min(size, length - at));
	vexo::fuzz::writeInput(VEXO_DISK_SNAPSHOT, file.data(), file.size());
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
		if (n != count || static_cast<size_t>(n) > length / VEXO_DISK_SNAPSHOT_ENTRY_SIZE)
			std::abort();
		DiskInfoEnumFree(list);
	}
	DiskIsExistInCache("/dev/sda1");
	return 0;
}
