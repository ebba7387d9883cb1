// Arbitrary bytes as a key-value file: every reader must cope, including at
// buffer sizes that cut values exactly at their end.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vexoplatform/vexocore.h>

#include "fuzz_root.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
	vexo::fuzz::writeInput("/kv.conf", data, size);
	PVLIBSZHASH all = nullptr;
	if (VLIBCFileGetKeyValueAll("/kv.conf", &all) > 0) {
		for (int i = 0; i < all->nItem; ++i) {
			const size_t len = std::strlen(all->ppszValue[i]);
			// Exact fits and one byte short, each in a buffer of its own
			// size so that the sanitizer sees any overrun.
			for (size_t cap : {len + 1, len, size_t{1}}) {
				if (cap == 0)
					continue;
				char *buf = static_cast<char *>(std::malloc(cap));
				int r = VLIBCFileGetKeyValue("/kv.conf", all->ppszKey[i], buf, static_cast<int>(cap), 0);
				if (r < 0 || static_cast<size_t>(r) >= cap || std::strlen(buf) != static_cast<size_t>(r))
					std::abort();
				std::free(buf);
			}
		}
		// A write must keep every other key readable.
		if (VLIBCFileSetKeyValue("/kv.conf", "fuzz_key", "v a=l#ue", nullptr) != 1)
			std::abort();
		char v[16];
		if (VLIBCFileGetKeyValue("/kv.conf", "fuzz_key", v, sizeof(v), 0) < 1)
			std::abort();
	}
	VLIBCSzHashFree(all);
	PVLIBSZLIST lines = VLIBCSzListAlloc(4);
	VLIBCFileReadLines("/kv.conf", &lines);
	VLIBCSzListFree(lines);
	return 0;
}
