// Page checksums and 16-bit byte order helpers of SMART and IDENTIFY data.
#include <cstdint>
#include <vexohw/smartctl.h>
#include "frame/boundary.h"

extern "C" {

VEXO_API unsigned char VEXOSmartChecksum(const unsigned char *page)
try {
	unsigned char sum = 0;
	if (!page)
		return 0;
	for (int i = 0; i < 512; ++i)
		sum = static_cast<unsigned char>(sum + page[i]);
	return sum;
} VEXO_C_CATCH(0)

VEXO_API void VEXOSmartEndianSwap2(void *p)
try {
	if (!p)
		return;
	auto *b = static_cast<unsigned char *>(p);
	unsigned char t = b[0];
	b[0] = b[1];
	b[1] = t;
} VEXO_C_CATCH_VOID

VEXO_API void swap2(char *p) try { VEXOSmartEndianSwap2(p); } VEXO_C_CATCH_VOID

VEXO_API int isbigendian(void)
try {
	const uint16_t probe = 1;
	return *reinterpret_cast<const unsigned char *>(&probe) == 0 ? 1 : 0;
} VEXO_C_CATCH(0)

} // extern "C"
