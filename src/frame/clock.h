// The clock seam. Every reading of wall or monotonic time in the library and
// the platform layer comes from here, so that hour-long caches, yearly
// histories and weekly schedules can be tested without sleeping.
//
// Two ways to move it:
//   - VEXO_CLOCK_OFFSET=SECONDS (signed, read with secure_getenv) shifts the
//     wall clock of a whole process, for tests that run programs;
//   - vexo::clock::setForTest() fixes both clocks inside a test process until
//     clearForTest(); advanceForTest() moves them on.
#pragma once

#include <cstdint>
#include <ctime>

namespace vexo::clock {

// Seconds since the epoch, as time(2) would give them.
std::time_t wallSeconds();
// Wall time with nanoseconds, as clock_gettime(CLOCK_REALTIME).
struct timespec wall();
// Monotonic time, as clock_gettime(CLOCK_MONOTONIC); never moves backwards.
struct timespec monotonic();
// Monotonic milliseconds, for timeouts and budgets.
std::int64_t monotonicMs();

// Waits `ms` milliseconds of the monotonic clock. A fixed test clock is
// moved on instead, so that a wait costs a test no real time.
void sleepMs(std::int64_t ms);

void setForTest(std::time_t wallSeconds, std::int64_t monotonicMs);
void advanceForTest(std::int64_t ms);
void clearForTest();

} // namespace vexo::clock
