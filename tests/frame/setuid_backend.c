/* A device backend a user plants for a setuid program: loading it leaves a
   mark in the working directory. It offers no backend at all. */
#include <fcntl.h>
#include <unistd.h>

__attribute__((constructor)) static void mark(void)
{
	int fd = open("backend-loaded", O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
	if (fd >= 0)
		close(fd);
}
