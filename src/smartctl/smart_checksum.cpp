// Page checksums and 16-bit byte order helpers of SMART and IDENTIFY data.
#include <cstdint>
#include <vexohw/smartctl.h>

extern "C" {

VEXO_API unsigned char VEXOSmartChecksum(const unsigned char *page)
{
	unsigned char sum = 0;
	if (!page)
		return 0;
	for (int i = 0; i < 512; ++i)
		sum = static_cast<unsigned char>(sum + page[i]);
	return sum;
}

VEXO_API void VEXOSmartEndianSwap2(void *p)
{
	if (!p)
		return;
	auto *b = static_cast<unsigned char *>(p);
	unsigned char t = b[0];
	b[0] = b[1];
	b[1] = t;
}

VEXO_API void swap2(char *p) { VEXOSmartEndianSwap2(p); }

VEXO_API int isbigendian(void)
{
	const uint16_t probe = 1;
	return *reinterpret_cast<const unsigned char *>(&probe) == 0 ? 1 : 0;
}

} // extern "C"
