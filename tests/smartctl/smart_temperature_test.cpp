// The raw value rule, the temperature attributes of the SMART data page and
// the two dump readers against output captured from the real tools.
#include <cstring>
#include <string>
#include <syslog.h>
#include <vexohw/smart_serial.h>
#include <vexohw/smartctl.h>
#include <vexohw/smart_temperature.h>

#include "smartctl/sg_dump_read.h"
#include "smartctl/smart_util.h"

using namespace vexo::test;
using vexo::smart::sctSupportFromIdentifyDump;
using vexo::smart::sctTemperatureFromDump;

namespace {

void putSlot(unsigned char *page, int index, unsigned char id, std::initializer_list<unsigned char> raw)
{
	unsigned char *s = page + 2 + 12 * index;
	s[0] = id;
	s[3] = 100;
	s[4] = 100;
	int i = 0;
	for (unsigned char b : raw)
		s[5 + i++] = b;
}

// The capture with the byte at 200 (ninth byte of line c0) replaced.
std::string withByte200(std::string dump, const char *hex)
{
	size_t at = dump.find(" c0     ");
	size_t ninth = at + 8 + 8 * 3 + 1; // eight bytes and the extra gap
	dump.replace(ninth, 2, hex);
	return dump;
}

} // namespace

// IDENTIFY and SMART text fields are stored with each pair of bytes swapped.
TEST(ByteOrder, SwapTouchesExactlyTwoBytes)
{
	char model[10] = "EVOXAH5T!";
	for (int i = 0; i < 8; i += 2)
		VEXOSmartEndianSwap2(model + i);
	EXPECT_STREQ(model, "VEXOHAT5!");
	swap2(model + 1); // an odd address is fine
	EXPECT_STREQ(model, "VXEOHAT5!");
	VEXOSmartEndianSwap2(nullptr);
	swap2(nullptr);
	EXPECT_EQ(isbigendian(), __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__ ? 1 : 0);
}

TEST(RawValue, TemperatureIdsTakeTheFirstRawByteOthersAllSix)
{
	unsigned char slot[12] = {194, 0x22, 0x00, 100, 100, 0x24, 0x00, 0x14, 0x00, 0x28, 0x00, 0};
	char out[32];
	EXPECT_EQ(SmartAttribRawValueParse(out, slot), 36);
	EXPECT_STREQ(out, "36");
	slot[0] = 190;
	EXPECT_EQ(SmartAttribRawValueParse(out, slot), 36);
	slot[0] = 5;
	EXPECT_EQ(SmartAttribRawValueParse(out, slot), 0x002800140024LL);
	EXPECT_STREQ(out, "171800002596");
	// All six bytes set: the largest 48-bit number, still positive.
	unsigned char full[12] = {9, 0, 0, 100, 100, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xEE};
	EXPECT_EQ(SmartAttribRawValueParse(out, full), 0xFFFFFFFFFFFFLL);
	EXPECT_STREQ(out, "281474976710655");

	LogCapture log;
	EXPECT_EQ(SmartAttribRawValueParse(nullptr, slot), -1);
	EXPECT_EQ(SmartAttribRawValueParse(out, nullptr), -1);
	EXPECT_EQ(log.count(LOG_ERR, "Invalid input !"), 2);
}

TEST(RawValue, TemperatureAttributesOfThePage)
{
	unsigned char page[512] = {};
	putSlot(page, 0, 1, {0, 0, 0, 0, 0, 0});
	EXPECT_EQ(SmartTemperatureGet(page), -1);
	EXPECT_EQ(SmartAirflowTempGet(page), -1);
	putSlot(page, 29, 190, {31, 0, 20, 0, 40, 0}); // the last slot, ending at 362
	EXPECT_EQ(SmartAirflowTempGet(page), 31);
	EXPECT_EQ(SmartTemperatureGet(page), -1);
	putSlot(page, 3, 194, {0x24, 0x00, 0x14, 0x00, 0x28, 0x00});
	EXPECT_EQ(SmartTemperatureGet(page), 36);
	// Past the 30 slots nothing counts.
	page[362] = 194;
	page[367] = 99;
	putSlot(page, 3, 1, {});
	EXPECT_EQ(SmartTemperatureGet(page), -1);
	EXPECT_EQ(SmartTemperatureGet(nullptr), -1);
}

TEST(StoredSerial, LengthCheckBounds)
{
	EXPECT_EQ(VEXODiskSerialLengthCheck("12345"), 0);
	EXPECT_EQ(VEXODiskSerialLengthCheck("123456"), 1);
	EXPECT_EQ(VEXODiskSerialLengthCheck("123456789012345678901234"), 1);
	EXPECT_EQ(VEXODiskSerialLengthCheck("1234567890123456789012345"), 0);
	EXPECT_EQ(VEXODiskSerialLengthCheck(""), 0);
	EXPECT_EQ(VEXODiskSerialLengthCheck(nullptr), 0);
}

TEST(SgRawDump, ByteTwoHundredOfTheRealOutput)
{
	std::string real = capture("sg_raw_sct_status.txt");
	ASSERT_NE(real.find("Received 512 bytes of data:"), std::string::npos);
	EXPECT_EQ(sctTemperatureFromDump(real), 38);
	EXPECT_EQ(sctTemperatureFromDump(withByte200(real, "64")), 100);
	EXPECT_EQ(sctTemperatureFromDump(withByte200(real, "65")), -1); // 101
	EXPECT_EQ(sctTemperatureFromDump(withByte200(real, "ff")), -1);
	EXPECT_EQ(sctTemperatureFromDump(withByte200(real, "00")), 0);

	// Ends before the line of 0xc0, or within it before byte 200.
	EXPECT_EQ(sctTemperatureFromDump(real.substr(0, real.find(" c0     "))), -1);
	std::string cut = real.substr(0, real.find(" c0     ") + 8 + 8 * 3);
	EXPECT_EQ(sctTemperatureFromDump(cut), -1);
	EXPECT_EQ(sctTemperatureFromDump(""), -1);
	EXPECT_EQ(sctTemperatureFromDump("SCSI Status: Good\n\nNo data received\n"), -1);
}

TEST(SgRawDump, LineShapes)
{
	// The ASCII column is not read as bytes, even when it looks like hex.
	std::string line = " c0     00 00 00 00 00 00 00 00\n";
	EXPECT_EQ(sctTemperatureFromDump(line), -1);
	EXPECT_EQ(sctTemperatureFromDump(" c0     00 00 00 00 00 00 00 00                                  2a 2b\n"), -1);
	// The first line that reaches 185 decides, whatever its offset.
	EXPECT_EQ(sctTemperatureFromDump(" b0     00 00 00 00 00 00 00 00  1f 00\n"
					 " d0     00 00 00 00 00 00 00 00  20 00\n"),
		  0x20);
	// Windows line ends and a stand-in without the leading space.
	EXPECT_EQ(sctTemperatureFromDump("c0 00 00 00 00 00 00 00 00 21 00\r\n"), 0x21);
	// A malformed byte ends the line's data.
	EXPECT_EQ(sctTemperatureFromDump(" c0     00 00 00 00 00 00 00 00  2g 00\n"), -1);
	EXPECT_EQ(sctTemperatureFromDump(" c0     00 00 00 00 00 00 00 00  123 00\n"), -1);
}

TEST(SatIdentifyDump, WordTwoHundredSixOfTheRealOutput)
{
	std::string yes = capture("sg_sat_identify_sct.txt"), no = capture("sg_sat_identify_no_sct.txt");
	ASSERT_FALSE(yes.empty());
	EXPECT_EQ(sctSupportFromIdentifyDump(yes), 1);
	EXPECT_EQ(sctSupportFromIdentifyDump(no), 0);
	// Without the heading nothing is read, even a whole dump.
	EXPECT_EQ(sctSupportFromIdentifyDump(yes.substr(yes.find('\n') + 1)), -1);
	// Ends before word 0xc8, or within its line before the seventh word.
	EXPECT_EQ(sctSupportFromIdentifyDump(yes.substr(0, yes.find(" c8     "))), -1);
	size_t c8 = yes.find(" c8     ");
	EXPECT_EQ(sctSupportFromIdentifyDump(yes.substr(0, c8 + 8 + 6 * 5)), -1);
	EXPECT_EQ(sctSupportFromIdentifyDump(yes.substr(0, c8 + 8 + 7 * 5)), 1);
	// Lines before the heading are not the dump.
	EXPECT_EQ(sctSupportFromIdentifyDump(" c8 0 0 0 0 0 0 0001\nResponse for IDENTIFY DEVICE ATA command:\n"), -1);
}
