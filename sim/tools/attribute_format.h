// The names and raw-value renderings of ATA SMART attributes as smartctl
// prints them: its built-in defaults, and the per-model presets that a
// drive node may carry in place of smartctl's drive database.
#pragma once

#include <cstdint>
#include <string>

namespace vexosim::tools {

// Rotation rate as IDENTIFY word 217 gives it: 1 is a solid state device,
// 0 unknown, anything else a spinning disk.
std::string attributeName(unsigned id, unsigned rotation);

// The raw format smartctl uses for an id when no preset says otherwise.
const char *defaultRawFormat(unsigned id);
bool knownRawFormat(const std::string &format);

// The RAW_VALUE text of the six raw bytes (least significant first) in
// one of smartctl's formats ("raw48", "tempminmax", "raw16(avg16)", ...).
std::string formatRaw(const uint8_t raw[6], const std::string &format);

} // namespace vexosim::tools
