// The I2C command-line tools, in process: the adapters the kernel lists, a
// bus by number or adapter name, an address, the bus's node, and the
// i2cget and i2cset the LED code runs with the tools' argument lists.
#include <algorithm>
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
#include <vector>

#include "frame/err.h"
#include "frame/path_read.h"
#include "frame/sysroot.h"
#include "led/led_private.h"

namespace vexo::led {
namespace {

constexpr const char *kAdapterDir = "/sys/class/i2c-dev/";
constexpr int kLastBus = 0xFFFFF; // the largest the tools take

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
	if (argc < 4 || !argv[1] || std::strcmp(argv[1], "-y") != 0) {
		vlog(LOG_ERR, "%s:%d Bad i2c arguments", VEXO_AT);
		return false;
	}
	int bus = lookup_i2c_bus(argv[2]);
	t.address = parse_i2c_address(argv[3]);
	if (bus < 0 || t.address < 0)
		return false;
	t.bus = open_i2c_dev(bus);
	if (!t.bus)
		return false;
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

I2cAdapter *gather_i2c_busses()
{
	std::vector<std::string> dirs;
	if (sysroot::glob((std::string(kAdapterDir) + "i2c-*").c_str(), dirs) != 0)
		dirs.clear(); // no adapter list: a box without I2C
	std::vector<std::pair<int, std::string>> found;
	for (const auto &dir : dirs) {
		int nr = -1;
		if (!number(dir.c_str() + std::strlen(kAdapterDir) + 4, 0, kLastBus, nr))
			continue;
		std::string name;
		PathDir d(dir);
		// Older kernels keep the name on the adapter's device only.
		if (!d.readString("name", name) && !d.readString("device/name", name))
			name.clear();
		found.emplace_back(nr, name);
	}
	std::sort(found.begin(), found.end());
	auto *list = static_cast<I2cAdapter *>(std::calloc(found.size() + 1, sizeof(I2cAdapter)));
	if (!list) {
		vlog(LOG_ERR, "%s:%d Fail to malloc size(%zu)", VEXO_AT, (found.size() + 1) * sizeof(I2cAdapter));
		return nullptr;
	}
	Adapters owner(list);
	size_t i = 0;
	for (const auto &[nr, name] : found) {
		list[i].name = ::strdup(name.c_str());
		if (!list[i].name) {
			vlog(LOG_ERR, "%s:%d Fail to malloc size(%zu)", VEXO_AT, name.size() + 1);
			return nullptr;
		}
		list[i++].nr = nr;
	}
	list[i].nr = -1;
	return owner.release();
}

void free_adapters(I2cAdapter *adapters)
{
	if (!adapters)
		return;
	for (I2cAdapter *a = adapters; a->nr >= 0; ++a)
		std::free(a->name);
	std::free(adapters);
}

int lookup_i2c_bus(const char *arg, bool quiet)
{
	if (!arg || !*arg) {
		vlog(LOG_ERR, "%s:%d No i2c bus given", VEXO_AT);
		return -1;
	}
	// Whatever reads whole as a number is a number; anything else a name.
	int bus = -1;
	if (number(arg, LONG_MIN, LONG_MAX, bus) || errno == ERANGE) {
		if (errno == ERANGE || !number(arg, 0, kLastBus, bus)) {
			vlog(LOG_ERR, "%s:%d Bad i2c bus %s", VEXO_AT, arg);
			return -1;
		}
		return bus;
	}
	Adapters adapters(gather_i2c_busses());
	if (!adapters)
		return -1;
	int matches = 0;
	for (const I2cAdapter *a = adapters.get(); a->nr >= 0; ++a)
		if (std::strcmp(a->name, arg) == 0 && ++matches == 1)
			bus = a->nr;
	if (matches == 1)
		return bus;
	if (matches)
		vlog(LOG_ERR, "%s:%d I2c adapter name %s is ambiguous", VEXO_AT, arg);
	else
		vlog(quiet ? LOG_DEBUG : LOG_ERR, "%s:%d No i2c adapter named %s", VEXO_AT, arg);
	return -1;
}

int parse_i2c_address(const char *arg)
{
	int address = -1;
	if (!number(arg, 0x03, 0x77, address)) {
		vlog(LOG_ERR, "%s:%d Bad i2c address %s", VEXO_AT, arg ? arg : "(null)");
		return -1;
	}
	return address;
}

dev::Device open_i2c_dev(int bus)
{
	std::string node = "/dev/i2c-" + std::to_string(bus);
	dev::Device d = dev::Device::open(node.c_str(), O_RDWR);
	if (!d && errno == ENOENT) {
		std::string alt = "/dev/i2c/" + std::to_string(bus);
		d = dev::Device::open(alt.c_str(), O_RDWR);
	}
	if (!d)
		vlog(LOG_ERR, "%s:%d Failed to open %s, errno=%d", VEXO_AT, node.c_str(), errno);
	return d;
}

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
