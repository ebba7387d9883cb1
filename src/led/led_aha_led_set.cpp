// An LED driven straight over I2C: on boards whose LEDs hang off a chip
// rather than the platform daemon, a few bits of one register light it.
#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>
#include <vexohw/ext.h>

#include "frame/err.h"
#include "frame/file_lock.h"
#include "led/led_private.h"

namespace {

constexpr int kLockWaitSeconds = 10;

std::string hex(int v)
{
	char b[8];
	std::snprintf(b, sizeof b, "0x%02x", v);
	return b;
}

} // namespace

extern "C" int VEXOLedAHALedSet(const char *bus, int address, int reg, int mask, int value)
try {
	if (!bus || address < 0x03 || address > 0x77 || reg < 0 || reg > 0xFF || mask < 1 || mask > 0xFF || value < 0 ||
	    value > 0xFF) {
		vlog(LOG_ERR, "%s:%d Bad parameters", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	const int nr = vexo::led::lookup_i2c_bus(bus);
	if (nr < 0) {
		VEXO_ERR(VEXO_ERR_NOT_FOUND);
		return -1;
	}
	const std::string b = std::to_string(nr), a = hex(address), r = hex(reg);
	// The register shared by several LEDs is read and written back whole: two
	// callers setting different LEDs at once would otherwise undo each other.
	vexo::FileLock lock(VEXO_LED_AHA_LOCK_FILE, kLockWaitSeconds);
	if (!lock.held()) {
		vlog(LOG_ERR, "%s:%d Failed to lock %s", VEXO_AT, VEXO_LED_AHA_LOCK_FILE);
		VEXO_ERR(VEXO_ERR_LOCK);
		return -1;
	}
	int byte = value;
	if (mask != 0xFF) {
		char out[16];
		const char *get[] = {"/usr/sbin/i2cget", "-y", b.c_str(), a.c_str(), r.c_str(), nullptr};
		if (vexo::led::i2cget(5, get, out, sizeof out) != 0) {
			vlog(LOG_ERR, "%s:%d Fail to i2cget()", VEXO_AT);
			VEXO_ERR(VEXO_ERR_DEVICE);
			return -1;
		}
		byte = (static_cast<int>(std::strtol(out, nullptr, 16)) & ~mask) | (value & mask);
	}
	const std::string v = hex(byte);
	const char *set[] = {"/usr/sbin/i2cset", "-y", b.c_str(), a.c_str(), r.c_str(), v.c_str(), nullptr};
	if (vexo::led::i2cset(6, set) != 0) {
		vlog(LOG_ERR, "%s:%d Fail to i2cset()", VEXO_AT);
		VEXO_ERR(VEXO_ERR_DEVICE);
		return -1;
	}
	return 0;
}
VEXO_C_CATCH(-1)
