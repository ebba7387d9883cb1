// An i2c-dev bus node of the emulator: the devices on the bus and their
// registers live in the node file, under "i2c": {"0x2d": {"registers":
// {"0x00": 128}, "byte": 0}}. SMBus byte and byte-data transfers read and
// write them; an address with no device does not answer (ENXIO).
#pragma once

#include <string>

#include "drive_model.h"

namespace vexosim::drive {

// Whether req is an i2c-dev request this file answers.
bool isI2cRequest(unsigned long req);
// Runs one: I2C_SLAVE / I2C_SLAVE_FORCE pick the handle's device, I2C_SMBUS
// moves a byte. `line` gets the command log text.
Outcome i2cRequest(Drive &d, int handle, unsigned long req, void *arg, std::string &line);
// Drops the handle's chosen address when it is closed.
void i2cForget(int handle);

} // namespace vexosim::drive
