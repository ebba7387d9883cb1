// VLIBDiskInfoEnumToCache: the snapshot /tmp/enumlist_det, written for the
// platform daemon by tmp-and-rename so that a reader sees the old file or
// the whole new one.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include <vexohw/disk_enum.h>

#include "disk/disk_info_walk.h"
#include "frame/err.h"
#include "frame/priv.h"
#include "frame/sysroot.h"
#include "frame/unique.h"

namespace {

// Writes every record, one fwrite of 320 bytes each. false on any failure,
// with the working file gone.
bool writeAll(std::FILE *f, const DiskListNode *list)
{
	// One working record for all entries, not cleared between them: its
	// reserved bytes are never written and keep what they first held, as
	// readers are told to expect. They start as a fixed fill rather than
	// whatever the stack held, so that the file is deterministic and no
	// indeterminate byte is ever read.
	DiskInfoFileEntry work;
	std::memset(&work, 0xA5, sizeof(work));
	for (const DiskListNode *c = list; c; c = c->next) {
		if (!c->info)
			continue;
		vexo::disk::encodeEntry(*c->info, work);
		if (std::fwrite(&work, sizeof(work), 1, f) != 1)
			return false;
	}
	return true;
}

// The working file, made fresh: /tmp is anyone's, so whatever stands at
// its name (a link planted there, or one left by a writer that died) is
// removed, never followed or written through.
std::FILE *openWorkingFile()
{
	for (int attempt = 0; attempt < 2; ++attempt) {
		int fd = vexo::sysroot::open(VEXO_DISK_SNAPSHOT_TMP, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644);
		if (fd >= 0) {
			std::FILE *f = ::fdopen(fd, "wb");
			if (!f)
				::close(fd);
			return f;
		}
		if (errno != EEXIST || vexo::sysroot::unlink(VEXO_DISK_SNAPSHOT_TMP) != 0)
			break;
	}
	return nullptr;
}

} // namespace

extern "C" {

VEXO_API int VLIBDiskInfoEnumToCache(DiskEnumHibStatus *status)
try {
	DiskListNode *list = nullptr;
	int total = 0;
	bool failed = false;
	for (int type : vexo::disk::kSnapshotOrder) {
		int n = vexo::disk::enumPortType(&list, type, status);
		if (n < 0)
			failed = true;
		else
			total += n;
	}
	if (failed) {
		// The older snapshot stays in place.
		DiskInfoEnumFree(list);
		return -1;
	}
	ENTERCriticalSection;
	std::FILE *f = openWorkingFile();
	if (!f) {
		vlog(LOG_ERR, "%s:%d fail to save enumlist, device is busy....\n", VEXO_AT);
		DiskInfoEnumFree(list);
		return total;
	}
	bool written = writeAll(f, list);
	// A short working file must never be renamed into place.
	if (std::fclose(f) != 0 || !written) {
		vlog(LOG_ERR, "%s:%d Failed to write %s, errno=%m", VEXO_AT, VEXO_DISK_SNAPSHOT_TMP);
		vexo::sysroot::unlink(VEXO_DISK_SNAPSHOT_TMP);
		DiskInfoEnumFree(list);
		return total;
	}
	if (vexo::sysroot::rename(VEXO_DISK_SNAPSHOT_TMP, VEXO_DISK_SNAPSHOT) != 0)
		vlog(LOG_WARNING, "%s:%d Failed to rename %s into %s.", VEXO_AT, VEXO_DISK_SNAPSHOT_TMP,
		     VEXO_DISK_SNAPSHOT);
	DiskInfoEnumFree(list);
	return 0;
} VEXO_C_CATCH(-1)

} // extern "C"
