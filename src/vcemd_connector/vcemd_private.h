// What the connector's files share.
#pragma once

#include <cstddef>
#include <vexohw/vcemd.h>

namespace vexo::vcemd {

// The bytes a 524-byte record needs before its payload.
inline constexpr std::size_t kHeaderSize = 12;

// Takes a received datagram of n bytes as a reply: it must hold the header
// and a dataLength from 0 to 512; bytes not received read as zero. False
// (out untouched) for anything else.
bool acceptReply(const void *buf, std::size_t n, Message &out);

} // namespace vexo::vcemd
