#include <cstring>
#include <string>
#include <unistd.h>

#include "frame/boundary.h"
#include "frame/err.h"
#include "frame/exec.h"
#include "misc/misc.h"

extern "C" VEXO_API int VEXOHWCTLMiscFileMD5sumMatch(const char *path, const char *md5) try {
	if (!path || !md5 || !*path) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	// The path goes to the tool as one argument: no shell sees it.
	vexo::exec::Child child = vexo::exec::Child::spawn({"/usr/bin/md5sum", path}, true);
	if (!child.valid()) {
		VEXO_ERR(VEXO_ERR_FOPEN);
		return -1;
	}
	char line[257] = {};
	size_t got = 0;
	while (got < 256) {
		ssize_t n = ::read(child.fd(), line + got, 256 - got);
		if (n < 0 && errno == EINTR)
			continue;
		if (n <= 0)
			break;
		got += static_cast<size_t>(n);
		if (std::memchr(line, '\n', got))
			break;
	}
	child.wait();
	std::string first(line, strcspn(line, " \t\n"));
	if (first.empty()) {
		VEXO_ERR(VEXO_ERR_READ);
		return -1;
	}
	if (first != md5) {
		vlog(LOG_WARNING, "%s:%d MD5 do not match: target MD5 is %s, but the MD5 of file is %s", VEXO_AT, md5,
		     first.c_str());
		return 0;
	}
	return 1;
}
VEXO_C_CATCH(-1)
