// The in-process I2C tools over the emulated bus: adapters found by name,
// bad buses and addresses refused, and an LED's bits set in a register
// shared with others, also by several processes at once.
#include <string>
#include <vector>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>
#include <vexohw/ext.h>

#include "led/led_private.h"
#include "smartctl/drive_sim.h"
#include "support/vexotest.h"

using vexo::test::LogCapture;
using vexo::test::Sysroot;

namespace {

const bool kEmulator = vexo::test::installDriveEmulator();

struct Board : ::testing::Test {
	Sysroot root;
	void SetUp() override
	{
		ASSERT_TRUE(kEmulator);
		root.mkdirs("/var/lock");
		// Bus 3 names itself the older way, on its device; two share a name.
		root.write("/sys/class/i2c-dev/i2c-0/name", "board smbus\n");
		root.write("/sys/class/i2c-dev/i2c-3/device/name", "aux\n");
		root.write("/sys/class/i2c-dev/i2c-12/name", "twin\n");
		root.write("/sys/class/i2c-dev/i2c-7/name", "twin\n");
		root.mkdirs("/sys/class/i2c-dev/i2c-x");
		chip(0xA5);
	}
	void chip(int reg5) const
	{
		root.write("/dev/i2c-0", "{\"i2c\": {\"0x2d\": {\"registers\": {\"0x05\": " + std::to_string(reg5) + "}}}}");
		root.remove("/run/vexosim/drive/i2c-0.log");
	}
	int reg5() const
	{
		char out[16] = "";
		const char *argv[] = {"i2cget", "-y", "board smbus", "0x2d", "5", nullptr};
		return vexo::led::i2cget(5, argv, out, sizeof out) == 0 ? static_cast<int>(std::strtol(out, nullptr, 16)) : -1;
	}
	// The transfers the emulator logged, without their outcome.
	std::string transfers() const
	{
		std::string out, log = root.exists("/run/vexosim/drive/i2c-0.log") ? root.read("/run/vexosim/drive/i2c-0.log") : "";
		for (size_t at = 0, nl; (nl = log.find('\n', at)) != std::string::npos; at = nl + 1)
			if (log.compare(at, 9, "I2C_SMBUS") == 0)
				out += log.substr(at + 10, log.find(" ->", at) - at - 10) + ";";
		root.remove("/run/vexosim/drive/i2c-0.log");
		return out;
	}
};

TEST_F(Board, AdaptersAndAddresses)
{
	vexo::led::Adapters list(vexo::led::gather_i2c_busses());
	ASSERT_TRUE(list);
	std::string seen;
	for (const auto *a = list.get(); a->nr >= 0; ++a)
		seen += std::to_string(a->nr) + "=" + a->name + ";";
	EXPECT_EQ(seen, "0=board smbus;3=aux;7=twin;12=twin;");

	const struct {
		const char *arg;
		int bus;
		const char *log; // for a refusal
	} buses[] = {
		{"0", 0, nullptr},        {"0x0c", 12, nullptr},
		{"board smbus", 0, nullptr}, {"aux", 3, nullptr},
		{"twin", -1, "I2c adapter name twin is ambiguous"},
		{"board", -1, "No i2c adapter named board"},
		{"-1", -1, "Bad i2c bus -1"},
		{"0x100000", -1, "Bad i2c bus 0x100000"},
		{"99999999999999999999", -1, "Bad i2c bus 9999"},
		{"", -1, "No i2c bus given"},
	};
	for (const auto &b : buses) {
		LogCapture log;
		EXPECT_EQ(vexo::led::lookup_i2c_bus(b.arg), b.bus) << b.arg;
		EXPECT_TRUE(!b.log || log.has(LOG_ERR, b.log)) << log.dump();
	}
	const struct {
		const char *arg;
		int address;
	} addresses[] = {{"0x03", 3}, {"0x77", 0x77}, {"45", 45}, {"0x02", -1}, {"0x78", -1}, {"0x2dz", -1}, {nullptr, -1}};
	for (const auto &a : addresses)
		EXPECT_EQ(vexo::led::parse_i2c_address(a.arg), a.address) << (a.arg ? a.arg : "null");
}

TEST_F(Board, LedBitsSetInASharedRegister)
{
	const struct {
		const char *bus;
		int address, reg, mask, value;
		int rc, err, after;      // after: the register once done
		const char *transfers;   // what went over the bus
	} cases[] = {
		// The other LEDs' bits are kept: read, then written back.
		{"board smbus", 0x2d, 5, 0x0F, 0x03, 0, 0, 0xA3,
		 "read byte_data addr=0x2d reg=0x05;write byte_data addr=0x2d reg=0x05 value=0xa3;"},
		{"0", 0x2d, 5, 0x30, 0xFF, 0, 0, 0xB5,
		 "read byte_data addr=0x2d reg=0x05;write byte_data addr=0x2d reg=0x05 value=0xb5;"},
		// A whole register is written blind.
		{"0", 0x2d, 5, 0xFF, 0x12, 0, 0, 0x12, "write byte_data addr=0x2d reg=0x05 value=0x12;"},
		{"0", 0x2c, 5, 0xFF, 0x12, -1, VEXO_ERR_DEVICE, 0xA5, "write byte_data addr=0x2c reg=0x05 value=0x12;"},
		{"board", 0x2d, 5, 1, 1, -1, VEXO_ERR_NOT_FOUND, 0xA5, ""},
		{nullptr, 0x2d, 5, 1, 1, -1, VEXO_ERR_BAD_PARAM, 0xA5, ""},
		{"0", 0x78, 5, 1, 1, -1, VEXO_ERR_BAD_PARAM, 0xA5, ""},
		{"0", 0x2d, 0x100, 1, 1, -1, VEXO_ERR_BAD_PARAM, 0xA5, ""},
		{"0", 0x2d, 5, 0, 1, -1, VEXO_ERR_BAD_PARAM, 0xA5, ""},
		{"0", 0x2d, 5, 1, 0x100, -1, VEXO_ERR_BAD_PARAM, 0xA5, ""},
	};
	for (const auto &c : cases) {
		chip(0xA5);
		VLIBCErrClear();
		EXPECT_EQ(VEXOLedAHALedSet(c.bus, c.address, c.reg, c.mask, c.value), c.rc) << c.transfers;
		EXPECT_EQ(VLIBCErrGet(), c.err) << c.transfers;
		EXPECT_EQ(transfers(), c.transfers);
		EXPECT_EQ(reg5(), c.after) << c.transfers;
	}
}

TEST_F(Board, ProcessesAtOnceKeepEachOthersBits)
{
	// Eight processes light one LED each of the same register, released
	// together: every bit must be there once all are done.
	for (int round = 0; round < 5; ++round) {
		chip(0);
		int gate[2];
		ASSERT_EQ(::pipe(gate), 0);
		std::vector<pid_t> kids;
		for (int bit = 0; bit < 8; ++bit)
			if (pid_t p = ::fork(); p == 0) {
				char c;
				::close(gate[1]);
				bool released = ::read(gate[0], &c, 1) == 0;
				::_exit(released && VEXOLedAHALedSet("0", 0x2d, 5, 1 << bit, 0xFF) == 0 ? 0 : 1);
			} else {
				kids.push_back(p);
			}
		::close(gate[0]);
		::close(gate[1]); // end of file lets them all go
		int failed = 0;
		for (pid_t p : kids) {
			int status = -1;
			::waitpid(p, &status, 0);
			failed += !WIFEXITED(status) || WEXITSTATUS(status) != 0;
		}
		EXPECT_EQ(failed, 0);
		ASSERT_EQ(reg5(), 0xFF) << "round " << round;
	}
}

} // namespace
