// Arbitrary bytes as the builders' arguments and as a received reply: a
// built record holds exactly what it was given and zeros after it, and a
// reply is taken only with its header and a payload length that fits.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vexohw/vcemd.h>

#include "vcemd_connector/vcemd_private.h"

namespace {

int32_t word(const uint8_t *p)
{
	int32_t v;
	std::memcpy(&v, p, sizeof(v));
	return v;
}

void checkBuilt(const Message &m, int command, const uint8_t *src, int length)
{
	if (m.command != command || m.dataLength != length || std::memcmp(m.data, src, static_cast<size_t>(length)) != 0)
		std::abort();
	for (int i = length; i < VEXO_VCEMD_DATA_MAX; ++i)
		if (m.data[i])
			std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
	if (size >= 9) {
		const int command = word(data), length = word(data + 4), needReply = data[8];
		uint8_t payload[VEXO_VCEMD_DATA_MAX + 64] = {};
		std::memcpy(payload, data + 9, std::min(size - 9, sizeof(payload)));
		const bool fits = length >= 1 && length <= VEXO_VCEMD_DATA_MAX;
		Message m;
		std::memset(&m, 0x5A, sizeof(m));
		int rc = VEXOVcemdCopy2MsgIn(command, &m, payload, length, needReply);
		if ((rc == 0) != fits)
			std::abort();
		if (rc == 0) {
			checkBuilt(m, command, payload, length);
			const uint8_t *raw = reinterpret_cast<const uint8_t *>(&m);
			if (raw[4] != static_cast<uint8_t>(needReply) || raw[5] || raw[6] || raw[7])
				std::abort();
		}
		std::memset(&m, 0x5A, sizeof(m));
		rc = VEXOVcemdCopy2MsgOut(command, &m, payload, length);
		if ((rc == 0) != fits || (length > VEXO_VCEMD_DATA_MAX && m.result != -1))
			std::abort();
		if (rc == 0 && (m.result != 0 || (checkBuilt(m, command, payload, length), false)))
			std::abort();
	}
	Message reply;
	std::memset(&reply, 0x77, sizeof(reply));
	Message before = reply;
	if (vexo::vcemd::acceptReply(data, size, reply)) {
		if (size < vexo::vcemd::kHeaderSize || size > sizeof(Message) || reply.dataLength < 0 ||
		    reply.dataLength > VEXO_VCEMD_DATA_MAX || std::memcmp(&reply, data, size) != 0)
			std::abort();
		const uint8_t *raw = reinterpret_cast<const uint8_t *>(&reply);
		for (size_t i = size; i < sizeof(Message); ++i)
			if (raw[i])
				std::abort();
	} else if (std::memcmp(&reply, &before, sizeof(reply)) != 0) {
		std::abort();
	}
	return 0;
}
