// The board's LED dimmer: its description (led_brightness.xml) and the I2C
// bus it sits on, an emulator node holding the chip's registers.
#pragma once

#include "description.h"
#include "tree.h"

namespace vexosim {

// Where the dimmer answers; the description lists a first chip at
// kDimmerAbsentAddress that this board does not carry.
inline constexpr int kDimmerBus = 0;
inline constexpr int kDimmerAddress = 0x2d;
inline constexpr int kDimmerAbsentAddress = 0x2c;
inline constexpr int kDimmerRegister = 0x01;
// The bus's adapter name (/sys/class/i2c-dev/i2c-0/name): the description
// names the dimmer's bus by it.
inline constexpr const char *kDimmerAdapter = "vexo-board-smbus";

void ledFiles(const Box &box, Tree &tree);

} // namespace vexosim
