// The self-test log readers: page decoders that only look at bytes (so
// fuzzers and tests can feed them anything) and the readers that fetch the
// pages from a drive.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vexohw/smart_test.h>

namespace vexo::selftest {

inline constexpr size_t kAtaStdDescriptors = 21, kAtaStdDescriptorSize = 24, kAtaStdIndex = 508;
inline constexpr size_t kAtaExtPerPage = 19, kAtaExtDescriptorSize = 26, kAtaExtMaxVisited = 38;
inline constexpr size_t kScsiParams = 20, kScsiParamSize = 20;
inline constexpr size_t kNvmeLogSize = 564, kNvmeEntries = 20, kNvmeEntrySize = 28;
inline constexpr unsigned kNvmeSelfTestLogPage = 6;
inline constexpr int kLogKindNone = 0, kLogKindStandard = 1, kLogKindExtended = 2;

// The seen-flags of one walk over a log, newest entry first.
struct Walk {
	bool quick = false, extend = false, other = false;
	void step(SmartTestLog &log, unsigned testNumber, unsigned result, bool damage);
	void finish(SmartTestLog &log) const; // results not seen become 6
};

// SMART data page fields: durations and the running test's state. false
// when byte 367 says the drive has no self-test.
bool decodeSmartValues(std::span<const uint8_t, 512> values, SmartTestLog &log);
void decodeAtaStandardLog(std::span<const uint8_t, 512> page, SmartTestLog &log);
// pages: whole 512-byte pages of log 7, as many as the directory says.
void decodeAtaExtendedLog(std::span<const uint8_t> pages, SmartTestLog &log);
// SCSI self-test results page; a running test makes progress "-1".
void decodeScsiSelfTestPage(std::span<const uint8_t> page, SmartTestLog &log);
// Extended test time from the control mode page; false when the page is too short.
bool decodeScsiControlMode(std::span<const uint8_t> page, SmartTestLog &log);
// NVMe log page 6; false on an operation the log can't mean.
bool decodeNvmeSelfTestLog(std::span<const uint8_t> page, SmartTestLog &log);
// The fallback files for an ATA drive that keeps no log; reads the disk's
// cache and the key-value files.
void readFallback(const char *path, SmartTestLog &log);

// The readers on an open descriptor. 0, or -1.
int ataRead(int fd, const char *path, SmartTestLog &log);
int scsiRead(int fd, const char *path, SmartTestLog &log);
int scsiTimeGet(int fd, const char *path, SmartTestLog &log);
int nvmeRead(const char *path, SmartTestLog &log);
int nvmeTimeGet(const char *path, SmartTestLog &log);

// The key-value file and its lock for a test type ("quick", "extend"),
// null for another type.
const char *logFileOf(const char *testType);
const char *lockFileOf(const char *testType);

// Whether the compatibility rules say the disk's self-test results don't
// count: the smart_test_ignore value of the disk's cache (1 = ignore).
bool testResultIgnorable(const char *path);

} // namespace vexo::selftest
