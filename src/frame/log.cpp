#include "frame/log.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <unistd.h>

namespace vexo::log {

void write(int priority, const char *format, ...)
{
	// %m in a format must see the caller's errno, whatever happens here.
	const int saved = errno;
	va_list ap;
	va_start(ap, format);
	const char *target = secure_getenv("VEXO_LOG");
	if (!target || !*target) {
		errno = saved;
		vsyslog(priority, format, ap);
		va_end(ap);
		errno = saved;
		return;
	}
	char text[4096];
	int n = std::snprintf(text, sizeof(text), "<%d>", priority);
	errno = saved;
	int m = std::vsnprintf(text + n, sizeof(text) - n - 1, format, ap);
	va_end(ap);
	std::size_t len = n + (m < 0 ? 0 : std::min<std::size_t>(m, sizeof(text) - n - 2));
	// Library lines may end in "\n" already; never emit a blank line.
	if (len == 0 || text[len - 1] != '\n')
		text[len++] = '\n';
	if (std::strcmp(target, "stderr") == 0) {
		(void)!::write(STDERR_FILENO, text, len);
	} else {
		int fd = ::open(target, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
		if (fd >= 0) {
			(void)!::write(fd, text, len);
			::close(fd);
		}
	}
	errno = saved;
}

} // namespace vexo::log
