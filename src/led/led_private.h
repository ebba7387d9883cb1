// The LED family's internals: the in-process I2C tools the dimmer and the
// chip-driven LEDs are reached with, and the loaded dimmer description's
// owner.
#pragma once

#include <cstddef>
#include <memory>
#include <vexohw/led.h>

#include "frame/device.h"

namespace vexo::led {

// One I2C adapter as the kernel lists it: /sys/class/i2c-dev/i2c-<nr>/name.
struct I2cAdapter {
	int nr;     // -1 ends a list
	char *name; // "" when the kernel gives none
};

// Every adapter of the box, by number, ended by an entry with nr -1 (a box
// without I2C gives only that). Null on allocation failure, logged. Free
// with free_adapters.
I2cAdapter *gather_i2c_busses();
void free_adapters(I2cAdapter *adapters);

struct AdaptersFree {
	void operator()(I2cAdapter *a) const { free_adapters(a); }
};
using Adapters = std::unique_ptr<I2cAdapter, AdaptersFree>;

// A bus named as the command-line tools take it: a number (decimal or
// 0x-prefixed), or an adapter's name, which must name exactly one adapter.
// The bus number, or -1 with the reason logged (a name no adapter has at
// debug level when quiet: a probe of a board that may lack the adapter).
int lookup_i2c_bus(const char *arg, bool quiet = false);
// A 7-bit device address, 0x03 to 0x77 (the others are reserved). The
// address, or -1 with the reason logged.
int parse_i2c_address(const char *arg);
// The bus's device node, /dev/i2c-<bus> (or /dev/i2c/<bus>), through the
// device seam, read-write. Invalid with the failure logged when neither opens.
dev::Device open_i2c_dev(int bus);

// As the command-line tools of the same names, run with -y:
//   i2cget -y BUS ADDRESS [REGISTER]        (4 or 5 arguments)
//   i2cset -y BUS ADDRESS REGISTER [VALUE]  (5 or 6 arguments)
// BUS as lookup_i2c_bus takes it. Without VALUE, i2cset sends REGISTER as a
// single byte; without REGISTER, i2cget receives a single byte. Numbers take
// a 0x prefix for hexadecimal. 0 on success, -1 on failure (a bad argument
// list, no such bus, no answer from the device); i2cget writes "0xNN\n" to
// out.
int i2cget(int argc, const char *const argv[], char *out, std::size_t size);
int i2cset(int argc, const char *const argv[]);

struct ConfigFree {
	void operator()(LedBrightnessConfig *c) const { clearLedBrightnessConfig(c); }
};
using Config = std::unique_ptr<LedBrightnessConfig, ConfigFree>;

} // namespace vexo::led
