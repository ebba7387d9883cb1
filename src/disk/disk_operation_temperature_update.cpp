// After the temperature database changed, the platform daemon re-reads the
// disk list, and with it each disk's operating temperature.
#include <vexohw/vcemd.h>

#include "frame/boundary.h"
#include "frame/err.h"

namespace {
constexpr int kDiskListRefresh = 5;
}

extern "C" VEXO_API int VEXODiskOperationTemperatureUpdate(void) try {
	Message msg{};
	const unsigned char none = 0;
	if (VEXOVcemdCopy2MsgIn(kDiskListRefresh, &msg, &none, 1, 0) != 0 ||
	    VEXOVcemdConnectorClient(&msg, nullptr) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to VEXOVcemdDiskListRefresh()", VEXO_AT);
		return -1;
	}
	return 0;
}
VEXO_C_CATCH(-1)
