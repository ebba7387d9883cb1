// Arbitrary bytes as the update server's answer: the reader either fails or
// fills both records with terminated texts, and never reads past the input.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "misc/misc.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
	// A copy of its own size, so that an overread is the sanitizer's to see.
	std::string text(reinterpret_cast<const char *>(data), size);
	VOSUpdateInfo u, p;
	std::memset(&u, 0x55, sizeof u);
	std::memset(&p, 0x55, sizeof p);
	int r = vexo::misc::parseUpdateInfo(text, &u, &p);
	if (r == 0) {
		if (u.available != 0 && u.available != 1)
			std::abort();
		if (u.available && !std::memchr(u.version, '\0', sizeof u.version))
			std::abort();
		if (p.available && !std::memchr(p.version, '\0', sizeof p.version))
			std::abort();
	} else if (r != -1 || u.available != 0x55555555) {
		std::abort(); // a failure leaves the outputs alone
	}
	return 0;
}
