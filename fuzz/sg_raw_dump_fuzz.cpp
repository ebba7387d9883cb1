// Arbitrary text as the output of sg_raw: the SCT temperature reader gives
// -1 or a temperature below 101, and a dump that is cut earlier never
// gives a value where the whole one gave none.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "smartctl/sg_dump_read.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
	std::string_view text(reinterpret_cast<const char *>(data), size);
	int t = vexo::smart::sctTemperatureFromDump(text);
	if (t < -1 || t > 100)
		std::abort();
	// The first line that reaches 185 decides, so a prefix that still holds
	// that whole line reads the same.
	size_t nl = text.rfind('\n');
	if (nl != std::string_view::npos) {
		int u = vexo::smart::sctTemperatureFromDump(text.substr(0, nl));
		if (u != -1 && u != t)
			std::abort();
	}
	return 0;
}
