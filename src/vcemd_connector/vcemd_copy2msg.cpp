// The two builders of a connector record: a request (with needReply) and a
// reply (with result).
#include <cstring>
#include <vexohw/vcemd.h>

#include "frame/err.h"

extern "C" {

VEXO_API int VEXOVcemdCopy2MsgIn(int command, Message *msg, const void *data, int length, int needReply)
{
	if (!msg || !data || length < 1 || length > VEXO_VCEMD_DATA_MAX) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::memset(msg, 0, sizeof(*msg));
	msg->command = command;
	msg->dataLength = length;
	std::memcpy(msg->data, data, static_cast<std::size_t>(length));
	msg->needReply = static_cast<unsigned char>(needReply);
	return 0;
}

VEXO_API int VEXOVcemdCopy2MsgOut(int command, Message *msg, const void *data, int length)
{
	if (!msg || !data || length < 1) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	if (length > VEXO_VCEMD_DATA_MAX) {
		vlog(LOG_ERR, "%s:%d SrcDataLen over the buffer for VEXOVcemdDataCopy()", VEXO_AT);
		msg->result = -1;
		return -1;
	}
	std::memset(msg, 0, sizeof(*msg));
	msg->command = command;
	msg->dataLength = length;
	std::memcpy(msg->data, data, static_cast<std::size_t>(length));
	msg->result = 0;
	return 0;
}

} // extern "C"
