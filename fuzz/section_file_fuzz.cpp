// Arbitrary bytes as a section file: enumerate the sections, read each one,
// and rewrite one without losing the others.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vexoplatform/vexocore.h>

namespace {

const std::string &fuzzRoot()
{
	static const std::string root = [] {
		char tmpl[] = "/tmp/vexo_section_fuzz.XXXXXX";
		std::string r = mkdtemp(tmpl) ? tmpl : "/tmp";
		setenv("VEXO_SYSROOT", r.c_str(), 1);
		return r;
	}();
	return root;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
	const std::string host = fuzzRoot() + "/sections.conf";
	{
		std::ofstream f(host, std::ios::binary | std::ios::trunc);
		f.write(reinterpret_cast<const char *>(data), static_cast<std::streamsize>(size));
	}
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
