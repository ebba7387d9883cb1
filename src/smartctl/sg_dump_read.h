// Readers of the hexadecimal dumps that sg_raw and sg_sat_identify print,
// working on the captured text so that they can be tested and fuzzed
// without the tools.
//
// sg_raw -r 512 (sg3-utils 1.46) writes "SCSI Status: Good", a blank line,
// "Received 512 bytes of data:" and then one line per 16 bytes, all on
// standard error:
//   " 00     00 01 02 03 04 05 06 07  08 09 0a 0b 0c 0d 0e 0f    ................"
// a space, the byte offset in hex (two digits at least, "100" past 0xff),
// the bytes in two-digit hex from column 8 with one extra space after the
// eighth, and from column 60 the bytes as ASCII.
//
// sg_sat_identify <dev> writes "Response for IDENTIFY DEVICE ATA command:"
// and then one line per 8 words, on standard output:
//   " c8     1710 251e 332c 413a 4f48 5d56 6b64 7972     .. %. 3, A: OH ]V kd yr"
// the offset counted in words, in hex, then eight four-digit words in the
// host's order, then the ASCII of each word.
//
// Both readers take a line's first field as its offset when it is all hex
// digits and pass over every other line. The data fields of a line are the
// tokens after the offset that have exactly two (four) hex digits, up to
// 16 (8), ending at a gap of three or more spaces, where the ASCII column
// begins.
#pragma once

#include <string_view>

namespace vexo::smart {

// The SCT status log through sg_raw: the byte at 200, the current
// temperature, read as the ninth byte of the first line whose offset
// reaches 185 (the line of 0xc0). -1 when the dump ends before it or the
// value is 101 or more.
int sctTemperatureFromDump(std::string_view text);

// IDENTIFY DEVICE through sg_sat_identify: after the "Response for IDENTIFY
// DEVICE ATA" line, the seventh word of the first line whose offset reaches
// 199 (the line of word 0xc8), which is word 206, SCT command transport.
// 1 when its bit 0 is set, 0 when clear, -1 when the dump ends before it.
int sctSupportFromIdentifyDump(std::string_view text);

} // namespace vexo::smart
