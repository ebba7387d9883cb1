// Closing a drive handle through the device layer that opened it.
#include <vexohw/ext.h>

#include "frame/boundary.h"
#include "frame/device.h"
#include "frame/log.h"

extern "C" VEXO_API int VEXOExtDeviceClose(int handle) try {
	return vexo::dev::close(handle);
} VEXO_C_CATCH(-1)
