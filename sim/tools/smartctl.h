// The smartctl stand-in: options, the output it shares between ATA and
// SCSI drives, and the exit status bits the real program sets.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

#include "drive_io.h"

namespace vexosim::tools::smartctl {

// Exit status bits.
enum : int {
	kBadCommandLine = 1 << 0,
	kOpenFailed = 1 << 1,
	kCommandFailed = 1 << 2,
	kDiskFailing = 1 << 3,
	kPrefailNow = 1 << 4,
	kUsageInPast = 1 << 5,
	kErrorLogHasErrors = 1 << 6,
	kSelfTestErrors = 1 << 7,
};

struct Options {
	std::string type;    // as given to -d ("" when absent)
	std::string device;  // the appliance path
	bool info = false, health = false, attributes = false, capabilities = false;
	bool errorLog = false, selfTestLog = false, selectiveLog = false;
	std::string nocheck; // -n: "", "never", "sleep", "standby", "idle"
};

// Output goes through here so that every line lands on stdout in order.
void out(const char *fmt, ...) __attribute__((format(printf, 1, 2)));

// "Sat Nov 21 11:16:03 2026 UTC"
std::string localTime();
// "4,000,787,030,016"
std::string withCommas(uint64_t v);
// "4.00 TB", "14.6 GB", "207 GB": three digits in powers of 1000, cut, not rounded.
std::string siCapacity(uint64_t bytes);

int runAta(Drive &d, const Options &o);
int runNvme(Drive &d, const Options &o);
int runScsi(Drive &d, const Options &o);

} // namespace vexosim::tools::smartctl
