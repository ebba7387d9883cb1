// The board's fan count, from the module type query of the board control
// device.
#include <cerrno>
#include <cstdint>
#include <fcntl.h>

#include "fan/fan_private.h"
#include "frame/device.h"
#include "frame/err.h"

extern "C" VEXO_API int VEXOFanNumGet(void) try {
	vexo::dev::Device bios = vexo::dev::Device::open(VEXO_FAN_BOARD_DEVICE, O_RDWR);
	if (!bios) {
		vlog(LOG_ERR, "%s:%d Fail to open vexobios: errno=0x%X.", VEXO_AT, errno);
		return -1;
	}
	uint8_t reply[12] = {};
	if (bios.ioctl(VEXO_FAN_MODULE_TYPE_REQUEST, reply) < 0) {
		vlog(LOG_ERR, "%s:%d Fail to get module type: errno=0x%X.", VEXO_AT, errno);
		return -1;
	}
	int fans = (reply[2] >> 2) & 0x0F;
	return fans ? fans : -1;
}
VEXO_C_CATCH(-1)
