// The expansion unit's command files as the unit driver serves them:
// vexo_pm_gpio takes a GPIO command word, vexo_pm_i2c a line of the I2C text
// protocol. A line written is decoded, applied to the unit's state and
// answered by rewriting the file, which the library then reads back.
#pragma once

#include <string>

namespace vexosim::unit {

// Whether an appliance path names a unit command file.
bool isCommandFile(const std::string &appliancePath);

// Executes one write of `text` to the command file at hostPath (root is the
// sysroot). The state lives in <root>/run/vexosim/unit/<host>.state, every
// command is logged to <host>.log beside it. False with errno set (EINVAL
// for a line the driver refuses, EIO for a transfer the bus fails).
bool command(const std::string &hostPath, const std::string &root, const std::string &appliancePath,
	     const std::string &text);

} // namespace vexosim::unit
