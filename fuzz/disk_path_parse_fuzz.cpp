// Device names from anywhere: the parsers must neither overrun nor crash.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include <vexohw/disk.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
	// Logs go nowhere, and no sysroot is needed for a name that resolves to nothing.
	static const bool init = [] {
		setenv("VEXO_LOG", "/dev/null", 1);
		setenv("VEXO_SYSROOT", "/nonexistent-vexo-fuzz-root", 1);
		return true;
	}();
	(void)init;
	std::string name(reinterpret_cast<const char *>(data), size);
	name.resize(std::strlen(name.c_str()));

	// Exactly the sizes the library itself uses, on heap buffers so that the
	// sanitizer sees one byte past the end.
	for (int bufSize : {1, 2, 4, 32, 4096}) {
		char *disk = static_cast<char *>(std::malloc(bufSize));
		VEXODiskPartitionNumGet(name.c_str(), disk, bufSize);
		DiskPartitionNumRemove(name.c_str(), disk, bufSize);
		std::free(disk);
	}
	DiskIndexGet(name.c_str());
	DiskId id;
	DiskPathParse(name.c_str(), &id);
	return 0;
}
