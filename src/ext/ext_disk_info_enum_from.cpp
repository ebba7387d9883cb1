// DiskInfoEnum from a chosen source, for tools that show or compare them.
#include <vexohw/ext.h>

#include "disk/disk_info_walk.h"
#include "frame/boundary.h"
#include "frame/err.h"

namespace {

int sourceCode(vexo::disk::Source s)
{
	return s == vexo::disk::Source::Snapshot ? VEXO_EXT_DISK_SOURCE_SNAPSHOT : VEXO_EXT_DISK_SOURCE_WALK;
}

} // namespace

extern "C" VEXO_API int VEXOExtDiskInfoEnumFrom(const DiskEnumFilter *filter, int source, DiskListNode **list,
					       int *used) try {
	using namespace vexo::disk;
	if (!list || source < VEXO_EXT_DISK_SOURCE_ANY || source > VEXO_EXT_DISK_SOURCE_QUIET_WALK) {
		vlog(LOG_ERR, "%s:%d Bad parameters", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	Source taken = Source::Walk;
	int n = -1;
	switch (source) {
	case VEXO_EXT_DISK_SOURCE_ANY:
		n = collect(filter, list, &taken);
		break;
	case VEXO_EXT_DISK_SOURCE_WALK:
		n = walkSystem(filter, list);
		break;
	case VEXO_EXT_DISK_SOURCE_QUIET_WALK: {
		// Each port type as if all its disks slept: sysfs alone, no drive asked.
		DiskEnumHibStatus noTemperature{};
		noTemperature.allHibernating = 1;
		n = walkSystem(filter, list, &noTemperature);
	}
		break;
	case VEXO_EXT_DISK_SOURCE_SNAPSHOT:
		taken = Source::Snapshot;
		switch (readSnapshot(filter, list, &n)) {
		case SnapshotRead::Listed:
			break;
		case SnapshotRead::Missing:
			vlog(LOG_ERR, "%s:%d no %s", VEXO_AT, VEXO_DISK_SNAPSHOT);
			VEXO_ERR(VEXO_ERR_NOENT);
			return -1;
		case SnapshotRead::Empty:
		case SnapshotRead::NoMatch:
			*list = nullptr;
			n = 0;
			break;
		case SnapshotRead::Failed:
			VEXO_ERR_PASS();
			return -1;
		}
		break;
	}
	if (n < 0) {
		VEXO_ERR_PASS();
		return -1;
	}
	if (used)
		*used = sourceCode(taken);
	return n;
} VEXO_C_CATCH(-1)
