// LEDs over the emulated I2C bus: the bus by number or adapter name (also
// in the dimmer's description), the bytes that go over it, an LED's
// neighbours in the register kept, also with several processes at once.
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vexohw/ext.h>
#include <vexohw/led.h>

#include "smartctl/drive_sim.h"
#include "support/vexotest.h"

namespace {

const bool kEmulator = vexo::test::installDriveEmulator();

struct Board : ::testing::Test {
	vexo::test::Sysroot root;
	void SetUp() override
	{
		ASSERT_TRUE(kEmulator);
		root.mkdirs("/var/lock");
		// Bus 3 names itself the older way, on its device; two share a name.
		for (auto [file, name] : {std::pair{"i2c-0/name", "board smbus"}, {"i2c-3/device/name", "aux"},
					  {"i2c-12/name", "twin"}, {"i2c-7/name", "twin"}})
			root.write(std::string("/sys/class/i2c-dev/") + file, std::string(name) + "\n");
		chip(0xA5, "/dev/i2c-3");
	}
	void chip(int reg5, const char *bus = "/dev/i2c-0") const
	{
		root.write(bus, "{\"i2c\": {\"0x2d\": {\"registers\": {\"0x05\": " + std::to_string(reg5) + "}}}}");
		root.remove("/run/vexosim/drive/i2c-0.log");
	}
	int reg5(const char *bus = "/dev/i2c-0") const
	{
		return std::atoi(root.read(bus).substr(root.read(bus).find("\"0x05\":") + 7).c_str());
	}
	// The transfers on bus 0, without their outcome.
	std::string transfers() const
	{
		std::string out, log = root.exists("/run/vexosim/drive/i2c-0.log") ? root.read("/run/vexosim/drive/i2c-0.log") : "";
		for (size_t at = 0, nl; (nl = log.find('\n', at)) != std::string::npos; at = nl + 1)
			if (log.compare(at, 9, "I2C_SMBUS") == 0)
				out += log.substr(at + 10, log.find(" ->", at) - at - 10) + ";";
		return out;
	}
};

TEST_F(Board, LedBitsSetInASharedRegister)
{
	const struct {
		const char *bus;
		int address, mask, value, err, after; // after: register 5 of bus 0 once done
		const char *transfers;
	} cases[] = {
		{"board smbus", 0x2d, 0x0F, 0x03, 0, 0xA3,
		 "read byte_data addr=0x2d reg=0x05;write byte_data addr=0x2d reg=0x05 value=0xa3;"},
		{"0", 0x2d, 0xFF, 0x12, 0, 0x12, "write byte_data addr=0x2d reg=0x05 value=0x12;"}, // no read
		{"0", 0x2c, 0xFF, 0x12, VEXO_ERR_DEVICE, 0xA5, "write byte_data addr=0x2c reg=0x05 value=0x12;"},
		{"aux", 0x2d, 0x30, 0xFF, 0, 0xA5, ""}, // bus 3, by its device's name
		{"twin", 0x2d, 1, 1, VEXO_ERR_NOT_FOUND, 0xA5, ""},
		{"board", 0x2d, 1, 1, VEXO_ERR_NOT_FOUND, 0xA5, ""},
		{"0x100000", 0x2d, 1, 1, VEXO_ERR_NOT_FOUND, 0xA5, ""},
		{nullptr, 0x2d, 1, 1, VEXO_ERR_BAD_PARAM, 0xA5, ""},
		{"0", 0x78, 1, 1, VEXO_ERR_BAD_PARAM, 0xA5, ""},
		{"0", 0x2d, 0, 0x100, VEXO_ERR_BAD_PARAM, 0xA5, ""},
	};
	for (const auto &c : cases) {
		chip(0xA5);
		VLIBCErrClear();
		EXPECT_EQ(VEXOLedAHALedSet(c.bus, c.address, 5, c.mask, c.value), c.err ? -1 : 0) << c.transfers;
		EXPECT_EQ(VLIBCErrGet(), c.err) << c.transfers;
		EXPECT_EQ(transfers(), c.transfers);
		EXPECT_EQ(reg5(), c.after) << c.transfers;
	}
	EXPECT_EQ(reg5("/dev/i2c-3"), 0xB5);
}

TEST_F(Board, DimmerOnABusNamedByItsAdapter)
{
	root.conf("/etc.defaults/vexoinfo.conf", {{"support_led_brightness_adjust", "yes"}});
	root.write(VEXO_LED_BRIGHTNESS_DEFAULT_FILE, "<x><i2c><bus>nowhere</bus><address>0x2d</address></i2c>"
						     "<brightness><value>7</value><i2cValue>1</i2cValue></brightness>"
						     "<i2c><bus> aux </bus><address>0x2d</address><offset>5</offset></i2c>"
						     "<brightness><value>7</value><i2cValue>0x42</i2cValue></brightness></x>");
	EXPECT_EQ(VEXOSetLedBrightness(7), 0);
	EXPECT_EQ(reg5("/dev/i2c-3"), 0x42);
}

TEST_F(Board, ProcessesAtOnceKeepEachOthersBits)
{
	// Eight processes, released together, light one LED each of one register.
	for (int round = 0; round < 5; ++round) {
		chip(0);
		int gate[2], status = 0, failed = 0;
		ASSERT_EQ(::pipe(gate), 0);
		for (int bit = 0; bit < 8; ++bit)
			if (::fork() == 0) {
				::close(gate[1]);
				::_exit(::read(gate[0], &status, 1) == 0 && VEXOLedAHALedSet("0", 0x2d, 5, 1 << bit, 0xFF) == 0 ? 0 : 1);
			}
		::close(gate[0]);
		::close(gate[1]); // end of file lets them all go
		while (::wait(&status) > 0)
			failed += !WIFEXITED(status) || WEXITSTATUS(status) != 0;
		EXPECT_EQ(failed, 0);
		ASSERT_EQ(reg5(), 0xFF) << "round " << round;
	}
}

} // namespace
