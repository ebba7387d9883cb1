// Arbitrary bytes as a section file: enumerate the sections, read each one,
// and rewrite one without losing the others.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vexoplatform/vexocore.h>

#include "fuzz_root.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
	vexo::fuzz::writeInput("/sections.conf", data, size);
	PVLIBSZLIST names = VLIBCSzListAlloc(4);
	PVLIBSZHASH hash = nullptr;
	int count = VLIBCFileEnumSection("/sections.conf", &names);
	for (int i = 0; i < count; ++i) {
		if (VLIBCFileGetSection("/sections.conf", VLIBCSzListGet(names, i), &hash) < 0)
			std::abort(); // an enumerated section must be readable
	}
	if (count > 0) {
		PVLIBSZHASH one = VLIBCSzHashAlloc(1);
		VLIBCSzHashSetValue(&one, "k", "v = \"x\"");
		int r = VLIBCFileSetSection("/sections.conf", VLIBCSzListGet(names, 0), one);
		if (r == 1) {
			PVLIBSZLIST after = VLIBCSzListAlloc(4);
			if (VLIBCFileEnumSection("/sections.conf", &after) != count)
				std::abort();
			VLIBCSzListFree(after);
		}
		VLIBCSzHashFree(one);
	}
	VLIBCFileAddSection("/sections.conf", "fuzz", nullptr);
	VLIBCSzHashFree(hash);
	VLIBCSzListFree(names);
	return 0;
}
