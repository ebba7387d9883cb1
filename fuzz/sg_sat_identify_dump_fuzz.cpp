// Arbitrary text as the output of sg_sat_identify: the SCT support reader
// gives -1, 0 or 1, and nothing before the heading changes the answer.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "smartctl/sg_dump_read.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
	std::string_view text(reinterpret_cast<const char *>(data), size);
	int r = vexo::smart::sctSupportFromIdentifyDump(text);
	if (r < -1 || r > 1)
		std::abort();
	std::string prefixed = " c8     0001 0001 0001 0001 0001 0001 0001 0001\n";
	prefixed.append(text);
	if (vexo::smart::sctSupportFromIdentifyDump(prefixed) != r)
		std::abort();
	return 0;
}
