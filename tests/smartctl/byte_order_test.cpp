// The 16-bit byte order helpers that IDENTIFY and SMART text fields go through.
#include <cstdint>
#include <cstring>
#include <vexohw/smartctl.h>

#include "support/vexotest.h"

namespace {

TEST(ByteOrder, SwapTouchesExactlyTwoBytes)
{
	unsigned char b[4] = {0x12, 0x34, 0x56, 0x78};
	VEXOSmartEndianSwap2(b);
	EXPECT_EQ(b[0], 0x34);
	EXPECT_EQ(b[1], 0x12);
	EXPECT_EQ(b[2], 0x56); // its neighbours stay
	EXPECT_EQ(b[3], 0x78);
	// An odd address is fine: text fields are walked a word at a time.
	VEXOSmartEndianSwap2(b + 1);
	EXPECT_EQ(b[1], 0x56);
	EXPECT_EQ(b[2], 0x12);
	// Equal bytes and a null pointer change nothing.
	unsigned char same[2] = {0xAB, 0xAB};
	VEXOSmartEndianSwap2(same);
	EXPECT_EQ(same[0], 0xAB);
	EXPECT_EQ(same[1], 0xAB);
	VEXOSmartEndianSwap2(nullptr);
}

TEST(ByteOrder, Swap2IsTheSameSwap)
{
	// An ATA model text is stored with each pair of characters swapped.
	char model[9] = "EVOXAH5T";
	for (int i = 0; i < 8; i += 2)
		swap2(model + i);
	EXPECT_STREQ(model, "VEXOHAT5");
	for (int i = 0; i < 8; i += 2)
		VEXOSmartEndianSwap2(model + i);
	EXPECT_STREQ(model, "EVOXAH5T");
	swap2(nullptr);
}

TEST(ByteOrder, HostOrder)
{
	const uint32_t word = 0x01020304;
	unsigned char first;
	std::memcpy(&first, &word, 1);
	EXPECT_EQ(isbigendian(), first == 0x01 ? 1 : 0);
	EXPECT_EQ(isbigendian(), __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__ ? 1 : 0);
}

} // namespace
