#include <cerrno>
#include <cinttypes>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <string>

#include "frame/device.h"
#include "frame/err.h"
#include "led/led_private.h"

namespace vexo::led {
namespace {

// A whole number in [lo, hi], decimal or 0x-prefixed hexadecimal.
bool number(const char *text, long lo, long hi, int &out)
{
	if (!text || !*text)
		return false;
	errno = 0;
	char *end = nullptr;
	long v = std::strtol(text, &end, 0);
	if (errno || *end || v < lo || v > hi)
		return false;
	out = static_cast<int>(v);
	return true;
}

struct Target {
	dev::Device bus;
	int address = 0;
};

// Opens the bus of argv[2] and picks the device of argv[3].
bool open(int argc, const char *const argv[], Target &t)
{
	int bus = 0;
	if (argc < 4 || !argv[1] || std::strcmp(argv[1], "-y") != 0 || !number(argv[2], 0, INT_MAX, bus) ||
	    !number(argv[3], 0x03, 0x77, t.address)) {
		vlog(LOG_ERR, "%s:%d Bad i2c arguments", VEXO_AT);
		return false;
	}
	std::string node = "/dev/i2c-" + std::to_string(bus);
	t.bus = dev::Device::open(node.c_str(), O_RDWR);
	if (!t.bus) {
		vlog(LOG_ERR, "%s:%d Failed to open %s, errno=%d", VEXO_AT, node.c_str(), errno);
		return false;
	}
	if (t.bus.ioctl(I2C_SLAVE, reinterpret_cast<void *>(static_cast<uintptr_t>(t.address))) < 0) {
		vlog(LOG_ERR, "%s:%d Failed to set i2c address 0x%02X, errno=%d", VEXO_AT, t.address, errno);
		return false;
	}
	return true;
}

int transfer(const Target &t, char readWrite, uint8_t command, int size, i2c_smbus_data &data)
{
	i2c_smbus_ioctl_data io{};
	io.read_write = readWrite;
	io.command = command;
	io.size = size;
	io.data = &data;
	if (t.bus.ioctl(I2C_SMBUS, &io) < 0) {
		// No answer is what a probe for a chip the board lacks gets: not an error of its own.
		vlog(errno == ENXIO || errno == EREMOTEIO ? LOG_DEBUG : LOG_ERR, "%s:%d i2c transfer to 0x%02X failed, errno=%d",
		     VEXO_AT, t.address, errno);
		return -1;
	}
	return 0;
}

} // namespace

int i2cget(int argc, const char *const argv[], char *out, std::size_t size)
{
	Target t;
	int reg = 0;
	if (!out || size < 6 || (argc != 4 && argc != 5) || (argc == 5 && !number(argv[4], 0, 0xFF, reg))) {
		vlog(LOG_ERR, "%s:%d Bad i2c arguments", VEXO_AT);
		return -1;
	}
	if (!open(argc, argv, t))
		return -1;
	i2c_smbus_data data{};
	if (transfer(t, I2C_SMBUS_READ, static_cast<uint8_t>(reg), argc == 5 ? I2C_SMBUS_BYTE_DATA : I2C_SMBUS_BYTE, data) != 0)
		return -1;
	std::snprintf(out, size, "0x%02x\n", data.byte);
	return 0;
}

int i2cset(int argc, const char *const argv[])
{
	Target t;
	int reg = 0, value = 0;
	if ((argc != 5 && argc != 6) || !number(argv[4], 0, 0xFF, reg) || (argc == 6 && !number(argv[5], 0, 0xFF, value))) {
		vlog(LOG_ERR, "%s:%d Bad i2c arguments", VEXO_AT);
		return -1;
	}
	if (!open(argc, argv, t))
		return -1;
	i2c_smbus_data data{};
	data.byte = static_cast<uint8_t>(value);
	return transfer(t, I2C_SMBUS_WRITE, static_cast<uint8_t>(reg), argc == 6 ? I2C_SMBUS_BYTE_DATA : I2C_SMBUS_BYTE, data);
}

} // namespace vexo::led
