// The LED family's internals: the in-process i2cget and i2cset the dimmer
// is driven with, and the loaded dimmer description's owner.
#pragma once

#include <cstddef>
#include <memory>
#include <vexohw/led.h>

namespace vexo::led {

// As the command-line tools of the same names, run with -y:
//   i2cget -y BUS ADDRESS [REGISTER]        (4 or 5 arguments)
//   i2cset -y BUS ADDRESS REGISTER [VALUE]  (5 or 6 arguments)
// Without VALUE, i2cset sends REGISTER as a single byte; without REGISTER,
// i2cget receives a single byte. Numbers take a 0x prefix for hexadecimal.
// The bus is /dev/i2c-BUS through the device seam. 0 on success, -1 on
// failure (a bad argument list, no such bus, no answer from the device);
// i2cget writes "0xNN\n" to out.
int i2cget(int argc, const char *const argv[], char *out, std::size_t size);
int i2cset(int argc, const char *const argv[]);

struct ConfigFree {
	void operator()(LedBrightnessConfig *c) const { clearLedBrightnessConfig(c); }
};
using Config = std::unique_ptr<LedBrightnessConfig, ConfigFree>;

} // namespace vexo::led
