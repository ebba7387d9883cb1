// Plain file helpers.
#include <cerrno>
#include <fcntl.h>
#include <unistd.h>
#include <vexoplatform/vexocore.h>

#include "frame/err.h"
#include "frame/sysroot.h"

extern "C" {

VEXOP_API int VLIBCFileExist(const char *path)
try {
	struct stat st;
	return path && vexo::sysroot::stat(path, &st) == 0;
} VEXO_C_CATCH(0)

VEXOP_API int VLIBCFileTouch(const char *path)
try {
	if (!path) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	int fd = vexo::sysroot::open(path, O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
	if (fd < 0) {
		VEXO_ERR(VEXO_ERR_FOPEN);
		return -1;
	}
	::close(fd);
	return 0;
} VEXO_C_CATCH(-1)

VEXOP_API int VLIBCFileStat(const char *path, struct stat *st)
try {
	if (!path || !st) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	if (vexo::sysroot::stat(path, st) != 0) {
		VEXO_ERR(errno == ENOENT ? VEXO_ERR_NOENT : VEXO_ERR_READ);
		return -1;
	}
	return 0;
} VEXO_C_CATCH(-1)

} // extern "C"
