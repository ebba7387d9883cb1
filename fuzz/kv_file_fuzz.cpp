// Arbitrary bytes as a key-value file: every reader must cope, including at
// buffer sizes that cut values exactly at their end.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vexoplatform/vexocore.h>

namespace {

// A root of our own for the whole run.
const std::string &fuzzRoot()
{
	static const std::string root = [] {
		char tmpl[] = "/tmp/vexo_kv_fuzz.XXXXXX";
		std::string r = mkdtemp(tmpl) ? tmpl : "/tmp";
		setenv("VEXO_SYSROOT", r.c_str(), 1);
		return r;
	}();
	return root;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
	const std::string host = fuzzRoot() + "/kv.conf";
	{
		std::ofstream f(host, std::ios::binary | std::ios::trunc);
		f.write(reinterpret_cast<const char *>(data), static_cast<std::streamsize>(size));
	}
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
