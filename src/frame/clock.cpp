#include "frame/clock.h"

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <mutex>

namespace vexo::clock {
namespace {

std::mutex gMutex;
std::atomic<bool> gFixed{false};
std::time_t gWall = 0;       // under gMutex
std::int64_t gMonoMs = 0;    // under gMutex
std::int64_t gWallExtraMs = 0; // under gMutex: advanceForTest moves wall too

std::int64_t offsetSeconds()
{
	const char *v = secure_getenv("VEXO_CLOCK_OFFSET");
	if (!v || !*v)
		return 0;
	char *end = nullptr;
	errno = 0;
	long long n = std::strtoll(v, &end, 10);
	if (errno || *end)
		return 0;
	return n;
}

} // namespace

struct timespec wall()
{
	if (gFixed.load(std::memory_order_acquire)) {
		std::lock_guard<std::mutex> g(gMutex);
		std::int64_t ms = gWall * 1000 + gWallExtraMs;
		return {static_cast<std::time_t>(ms / 1000), static_cast<long>((ms % 1000) * 1000000)};
	}
	struct timespec ts {};
	::clock_gettime(CLOCK_REALTIME, &ts);
	ts.tv_sec += offsetSeconds();
	return ts;
}

std::time_t wallSeconds() { return wall().tv_sec; }

struct timespec monotonic()
{
	if (gFixed.load(std::memory_order_acquire)) {
		std::lock_guard<std::mutex> g(gMutex);
		return {static_cast<std::time_t>(gMonoMs / 1000), static_cast<long>((gMonoMs % 1000) * 1000000)};
	}
	struct timespec ts {};
	::clock_gettime(CLOCK_MONOTONIC, &ts);
	return ts;
}

std::int64_t monotonicMs()
{
	struct timespec ts = monotonic();
	return static_cast<std::int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

void sleepMs(std::int64_t ms)
{
	if (ms <= 0)
		return;
	if (gFixed.load(std::memory_order_acquire)) {
		advanceForTest(ms);
		return;
	}
	struct timespec want {static_cast<std::time_t>(ms / 1000), static_cast<long>((ms % 1000) * 1000000)};
	struct timespec left {};
	while (::nanosleep(&want, &left) != 0 && errno == EINTR)
		want = left;
}

void setForTest(std::time_t wallSeconds, std::int64_t monotonicMs)
{
	std::lock_guard<std::mutex> g(gMutex);
	gWall = wallSeconds;
	gMonoMs = monotonicMs;
	gWallExtraMs = 0;
	gFixed.store(true, std::memory_order_release);
}

void advanceForTest(std::int64_t ms)
{
	std::lock_guard<std::mutex> g(gMutex);
	gMonoMs += ms;
	gWallExtraMs += ms;
}

void clearForTest()
{
	std::lock_guard<std::mutex> g(gMutex);
	gFixed.store(false, std::memory_order_release);
}

} // namespace vexo::clock
