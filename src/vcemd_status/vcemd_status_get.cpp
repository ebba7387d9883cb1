// The daemon's own answer about its state, asked over the connector.
#include <cstring>
#include <vexohw/vcemd.h>

#include "frame/boundary.h"
#include "frame/err.h"

extern "C" VEXO_API int VEXOVcemdStatusGet(int type, int *status) try {
	if (!status) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	if (!VEXOIsVcemdReady()) {
		vlog(LOG_INFO, "%s:%d Vcemd isn't ready, so cannot get vcemd status.", VEXO_AT);
		return -1;
	}
	Message request{}, reply{};
	request.command = VEXO_VCEMD_CMD_STATUS;
	request.needReply = 1;
	if (VEXOVcemdConnectorClient(&request, &reply) != 0) {
		vlog(LOG_ERR, "%s:%d Fail to VEXOVcemdConnectorClient() for vcemd conncetor client", VEXO_AT);
		return -1;
	}
	if (reply.result != 0) {
		vlog(LOG_ERR, "%s:%d vcemd connector server return error.", VEXO_AT);
		return -1;
	}
	// Only type 1 is known; the daemon has been asked all the same.
	if (type != 1) {
		vlog(LOG_ERR, "%s:%d Doesn't have type=%d for VEXOVcemdStatusGet()", VEXO_AT, type);
		return -1;
	}
	int word = 0;
	std::memcpy(&word, reply.data, sizeof(word));
	*status = word != 0 ? VEXO_VCEMD_READY : VEXO_VCEMD_STOPPED;
	return 0;
}
VEXO_C_CATCH(-1)
