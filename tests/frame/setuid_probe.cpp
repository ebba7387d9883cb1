// Made setuid root at test time by the secure-environment test, and run by
// an unprivileged user with every VEXO_* switch pointing at the user's files.
// It passes once through each switch's seam: a program run, a device opened
// (which chooses the device backend), a cache value written, a line logged.
// Exit status: 10 plus AT_SECURE, so the test knows the bit took effect.
#include <sys/auxv.h>
#include <unistd.h>
#include <vexohw/disk_state.h>
#include <vexohw/frame.h>
#include <vexoplatform/vexocore.h>

int main()
{
	VLIBCExecl("/usr/bin/true", "/usr/bin/true", static_cast<char *>(nullptr));
	int h = VEXOIDiskRawOpen("/dev/vexoprobe0");
	if (h >= 0)
		::close(h);
	VEXODiskUpdateStrValueCacheFile("vexoprobe", "model", "probe");
	return 10 + (::getauxval(AT_SECURE) ? 1 : 0);
}
