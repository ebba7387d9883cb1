// DiskInfoEnum's way to a list: the snapshot while "vcemd" lives, a walk
// of /sys otherwise or when the snapshot has nothing to give.
#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <vexohw/disk_enum.h>
#include <vexohw/disk_state.h>

#include "disk/disk_info_walk.h"
#include "disk/secure_erase_markers.h"
#include "frame/err.h"
#include "frame/list.h"
#include "frame/sysroot.h"
#include "frame/unique.h"

static_assert(sizeof(DiskInfoFileEntry) == VEXO_DISK_SNAPSHOT_ENTRY_SIZE);

namespace vexo::disk {

namespace {

// Entries read at a time: a box of 64 disks is one read.
constexpr std::size_t kChunk = 64;

} // namespace

void encodeEntry(const DiskInfo &info, DiskInfoFileEntry &entry)
{
	entry.index = info.id.index;
	entry.slot = info.id.slot;
	entry.container = info.id.container;
	entry.unit = info.id.unit;
	entry.partitionNumber = info.id.partitionNumber;
	std::memcpy(entry.name, info.name, sizeof(entry.name));
	std::memcpy(entry.path, info.path, sizeof(entry.path));
	std::memcpy(entry.model, info.model, sizeof(entry.model));
	entry.sizeBytes = info.sizeBytes;
	entry.temperature = info.temperature;
	entry.logicalBlockSize = info.logicalBlockSize;
}

void decodeEntry(const DiskInfoFileEntry &entry, DiskInfo &info)
{
	info.id.index = entry.index;
	info.id.slot = entry.slot;
	info.id.container = entry.container;
	info.id.unit = entry.unit;
	info.id.partitionNumber = entry.partitionNumber;
	std::memset(info.reserved, 0, sizeof(info.reserved));
	// The three texts stand together in both forms: one copy, then each is
	// cut to its field, whatever the file holds (it is anyone's).
	static_assert(offsetof(DiskInfo, model) + sizeof(DiskInfo::model) - offsetof(DiskInfo, name) ==
			      offsetof(DiskInfoFileEntry, model) + sizeof(DiskInfoFileEntry::model) -
				      offsetof(DiskInfoFileEntry, name),
		      "name, path and model are one block in both forms");
	std::memcpy(info.name, entry.name,
		    offsetof(DiskInfoFileEntry, model) + sizeof(entry.model) - offsetof(DiskInfoFileEntry, name));
	info.name[sizeof(info.name) - 1] = '\0';
	info.path[sizeof(info.path) - 1] = '\0';
	info.model[sizeof(info.model) - 1] = '\0';
	info.sizeBytes = entry.sizeBytes;
	info.temperature = entry.temperature;
	info.secureErasing = 0;
	info.logicalBlockSize = entry.logicalBlockSize;
	// The tail padding too: callers compare and copy records bytewise.
	constexpr std::size_t kTail = offsetof(DiskInfo, logicalBlockSize) + sizeof(info.logicalBlockSize);
	std::memset(reinterpret_cast<char *>(&info) + kTail, 0, sizeof(DiskInfo) - kTail);
}

UniqueFd openSnapshot()
{
	UniqueFd fd(sysroot::open(VEXO_DISK_SNAPSHOT, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW));
	if (!fd) {
		if (errno != ENOENT)
			vlog(LOG_ERR, "%s:%d Failed to open %s. errno=%m", VEXO_AT, VEXO_DISK_SNAPSHOT);
		return fd;
	}
	struct stat st {};
	if (::fstat(fd.get(), &st) != 0 || !S_ISREG(st.st_mode)) {
		vlog(LOG_ERR, "%s:%d %s is not a regular file", VEXO_AT, VEXO_DISK_SNAPSHOT);
		fd.reset();
	}
	return fd;
}

SnapshotRead readSnapshot(const DiskEnumFilter *filter, DiskListNode **list, int *count)
{
	UniqueFd fd = openSnapshot();
	if (!fd)
		return SnapshotRead::Missing;
	struct stat st {};
	if (::fstat(fd.get(), &st) != 0) {
		vlog(LOG_ERR, "%s:%d fread fail", VEXO_AT);
		VEXO_ERR(VEXO_ERR_READ);
		return SnapshotRead::Failed;
	}
	const long long entries = st.st_size / VEXO_DISK_SNAPSHOT_ENTRY_SIZE;
	if (entries < 1)
		return SnapshotRead::Empty;
	// A snapshot with entries answers only a real filter.
	if (!filter || !filter->containerMask) {
		vlog(LOG_ERR, "%s:%d Bad parameters", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return SnapshotRead::Failed;
	}
	const int32_t mask = *filter->containerMask;
	ListBuilder<DiskListNode, DiskInfoEnumFree> kept;
	auto fail = [&](int code) {
		VEXO_ERR(code);
		return SnapshotRead::Failed;
	};
	// One look at the markers' folder; only a disk with a marker is asked.
	const SecureEraseMarkers markers;
	DiskInfoFileEntry buf[kChunk]; // 20 kB: a box of 64 disks is one read
	for (long long done = 0; done < entries;) {
		std::size_t want = static_cast<std::size_t>(std::min<long long>(kChunk, entries - done));
		std::size_t bytes = want * sizeof(DiskInfoFileEntry);
		ssize_t got = VLIBCRead(fd.get(), buf, bytes);
		if (got < 0) {
			vlog(LOG_ERR, "%s:%d fread fail", VEXO_AT);
			return fail(VEXO_ERR_READ);
		}
		std::size_t whole = static_cast<std::size_t>(got) / sizeof(DiskInfoFileEntry);
		for (std::size_t i = 0; i < whole; ++i) {
			const DiskInfoFileEntry &e = buf[i];
			if (!(e.container & mask))
				continue;
			// decodeEntry writes every byte of the record, tail padding
			// included: callers compare and copy records bytewise.
			DiskListNode *cell = kept.appendNew();
			if (!cell || !(cell->info = static_cast<DiskInfo *>(std::malloc(sizeof(DiskInfo)))))
				return fail(VEXO_ERR_NOMEM);
			DiskInfo *info = cell->info;
			decodeEntry(e, *info);
			// The one field that must be current: an erase may have begun
			// since the snapshot was written.
			info->secureErasing = markers.mayErase(info->path) && VLIBDiskIsSecureErasing(info->path) != 0;
		}
		if (static_cast<std::size_t>(got) < bytes)
			break; // the file ended before its size said: keep what was whole
		done += static_cast<long long>(want);
	}
	if (kept.empty())
		return SnapshotRead::NoMatch;
	*count = static_cast<int>(kept.size());
	*list = kept.release();
	return SnapshotRead::Listed;
}

int collect(const DiskEnumFilter *filter, DiskListNode **list, Source *used, const DiskEnumHibStatus *walkStatus)
{
	if (used)
		*used = Source::None;
	if (!list) {
		vlog(LOG_ERR, "%s:%d Bad parameters", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	auto walk = [&](const char *failure) {
		if (used)
			*used = Source::Walk;
		int n = walkSystem(filter, list, walkStatus);
		if (n < 0)
			vlog(LOG_ERR, failure, VEXO_AT);
		return n;
	};
	if (VLIBCIsProcAlive("vcemd", 0) == 0)
		return walk("%s:%d DiskInfoEnum failed");
	int count = 0;
	switch (readSnapshot(filter, list, &count)) {
	case SnapshotRead::Listed:
		if (used)
			*used = Source::Snapshot;
		return count;
	case SnapshotRead::Missing:
		return walk("%s:%d can't find enumlist_det, try to diskInfoEnum failed");
	case SnapshotRead::Empty:
	case SnapshotRead::NoMatch:
		// A filter that selects nothing in the snapshot pays for a walk.
		return walk("%s:%d SZF_ENUM_DETAIL_LIST disk count is 0, and try to diskInfoEnum failed");
	case SnapshotRead::Failed:
		break;
	}
	return -1;
}

} // namespace vexo::disk
