// What the three SCSI generic stand-ins share: the hex dumps, the sense
// data decoding and the exit statuses of the package they stand in for.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "drive_io.h"

namespace vexosim::tools::sg {

// Byte dump: " 00     00 01 ...  08 ...    ascii". `ascii` false drops the
// ASCII column (and the line ends at its last byte).
void hexDump(std::FILE *f, const uint8_t *p, size_t n, bool ascii);
// IDENTIFY style: word offset, 8 words per line, two characters per word.
void wordDump(std::FILE *f, const uint8_t *p, size_t words);

// The category of a command's outcome as the package's exit status.
int category(const ScsiAnswer &a);
// "Illegal request, Invalid opcode", "Aborted command", ...
std::string categoryText(int cat);
// Prints the sense data as the package describes it.
void printSense(std::FILE *f, const std::vector<uint8_t> &sense);
const char *senseKeyName(unsigned key);
std::string additionalSense(unsigned asc, unsigned ascq);

// The exit status for an operating system error.
inline int osError(int err) { return err > 0 && err < 47 ? 50 + err : 99; }

int sgRaw(int argc, char **argv);
int sgSatIdentify(int argc, char **argv);
int sgLogs(int argc, char **argv);

} // namespace vexosim::tools::sg
