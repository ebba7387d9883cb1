// An exclusive lock file held for a scope: flock, so it serialises
// processes, and threads too since each guard opens its own description.
#pragma once

#include <unistd.h>
#include <vexoplatform/vexocore.h>

namespace vexo {

class FileLock {
public:
	FileLock() = default;
	FileLock(const char *path, int seconds) { take(path, seconds); }
	~FileLock()
	{
		if (fd_ >= 0 && !VLIBCFileUnlockByFile(fd_))
			::close(fd_);
	}
	FileLock(const FileLock &) = delete;
	FileLock &operator=(const FileLock &) = delete;

	// Waits at most `seconds`; false when the lock was not had in time.
	bool take(const char *path, int seconds)
	{
		if (held())
			return true;
		if (!VLIBCFileLockTimeByFile(path, 1, seconds, &fd_))
			fd_ = -1;
		return held();
	}
	// Releases before the scope ends, for a caller that records a failed
	// release; the destructor releases quietly.
	bool release()
	{
		const int fd = fd_;
		fd_ = -1;
		if (fd < 0 || VLIBCFileUnlockByFile(fd))
			return true;
		::close(fd);
		return false;
	}
	bool held() const { return fd_ >= 0; }

private:
	int fd_ = -1;
};

} // namespace vexo
