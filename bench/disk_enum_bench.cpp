// Listing disks: DiskInfoEnum from a 60-disk snapshot against one read of
// the same file, and the whole "vexohw overview --walk --json" process
// against lsblk on the same simulated 60-disk box.
//
//   bench_disk_enum_bench [--benchmark_filter=...]
//
// The process benchmarks build the box from examples/box60.json with
// vexosim (beside this program in the build tree) and run both programs
// with the box as their root and the drive emulator behind the device seam,
// so a walk reads every temperature from the emulated drives. Each
// iteration runs both programs once; the counter "ratio" is ours over
// lsblk's wall time, measured in the same run. "first_run_ms" is our first
// run on the fresh box, which fills the SMART list caches.
#include <benchmark/benchmark.h>

#include <chrono>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <spawn.h>
#include <string>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <time.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include <vexohw/disk_enum.h>
#include <vexohw/disk_state.h>

#include "bench/bench_paths.h"
#include "disk/disk_info_walk.h"

extern char **environ;

namespace fs = std::filesystem;

namespace {

using vexo::bench::buildDir;
using vexo::bench::sourceDir;

// A process named "vcemd" for the life of the benchmark, so that
// DiskInfoEnum takes the snapshot.
struct FakeDaemon {
	pid_t pid = -1;
	FakeDaemon()
	{
		pid = ::fork();
		if (pid == 0) {
			::prctl(PR_SET_NAME, "vcemd");
			::prctl(PR_SET_PDEATHSIG, SIGKILL);
			for (;;)
				::pause();
		}
		for (int i = 0; i < 200; ++i) {
			std::ifstream c("/proc/" + std::to_string(pid) + "/comm");
			std::string comm;
			std::getline(c, comm);
			if (comm == "vcemd")
				break;
			::usleep(5000);
		}
	}
	~FakeDaemon()
	{
		::kill(pid, SIGKILL);
		::waitpid(pid, nullptr, 0);
	}
};

// A root holding a snapshot of 60 disks.
struct SnapshotRoot {
	std::string dir;
	SnapshotRoot()
	{
		char t[] = "/tmp/vexo-bench-snap.XXXXXX";
		dir = ::mkdtemp(t);
		fs::create_directories(dir + "/tmp");
		std::ofstream out(dir + VEXO_DISK_SNAPSHOT, std::ios::binary);
		for (int i = 0; i < 60; ++i) {
			DiskInfo d{};
			d.id.index = i % 12 + 1;
			d.id.container = i < 12 ? DISK_CONTAINER_INTERNAL : DISK_CONTAINER_EBOX;
			d.id.unit = i < 12 ? 0 : 13 + (i - 12) / 12;
			d.id.slot = -1;
			std::snprintf(d.name, sizeof(d.name), "sd%c%c", 'a' + i / 26, 'a' + i % 26);
			std::snprintf(d.path, sizeof(d.path), "/dev/%s", d.name);
			std::snprintf(d.model, sizeof(d.model), "ST8000VN004-3CP101");
			d.sizeBytes = 8001563222016ULL;
			d.temperature = 30 + i % 10;
			d.logicalBlockSize = 512;
			DiskInfoFileEntry e;
			std::memset(&e, 0, sizeof(e));
			vexo::disk::encodeEntry(d, e);
			out.write(reinterpret_cast<const char *>(&e), sizeof(e));
		}
		::setenv("VEXO_SYSROOT", dir.c_str(), 1);
		::setenv("VEXO_LOG", "/dev/null", 1);
	}
	~SnapshotRoot() { fs::remove_all(dir); }
};

void BM_DiskInfoEnumSnapshot60(benchmark::State &state)
{
	SnapshotRoot root;
	FakeDaemon daemon;
	int32_t mask = 0xFF;
	DiskEnumFilter filter{&mask};
	for (auto _ : state) {
		DiskListNode *list = nullptr;
		int n = DiskInfoEnum(&filter, &list);
		if (n != 60)
			state.SkipWithError("DiskInfoEnum did not read the 60-disk snapshot");
		DiskInfoEnumFree(list);
	}
}
BENCHMARK(BM_DiskInfoEnumSnapshot60);

// The same while one disk is being erased: its marker (our own, live pid)
// makes every entry look the folder up once and that disk ask for itself.
void BM_DiskInfoEnumSnapshot60OneErasing(benchmark::State &state)
{
	SnapshotRoot root;
	FakeDaemon daemon;
	fs::create_directories(root.dir + VEXO_SECURE_ERASE_DIR);
	std::ofstream(root.dir + VEXO_SECURE_ERASE_DIR "/sdab" VEXO_SECURE_ERASE_SUFFIX) << ::getpid() << "\n";
	int32_t mask = 0xFF;
	DiskEnumFilter filter{&mask};
	for (auto _ : state) {
		DiskListNode *list = nullptr;
		int n = DiskInfoEnum(&filter, &list);
		int erasing = 0;
		for (const DiskListNode *c = list; c; c = c->next)
			erasing += c->info->secureErasing;
		if (n != 60 || erasing != 1)
			state.SkipWithError("expected 60 disks, one of them erasing");
		DiskInfoEnumFree(list);
	}
}
BENCHMARK(BM_DiskInfoEnumSnapshot60OneErasing);

// The reader alone: no liveness question.
void BM_SnapshotReaderOnly60(benchmark::State &state)
{
	SnapshotRoot root;
	int32_t mask = 0xFF;
	DiskEnumFilter filter{&mask};
	for (auto _ : state) {
		DiskListNode *list = nullptr;
		int n = 0;
		if (vexo::disk::readSnapshot(&filter, &list, &n) != vexo::disk::SnapshotRead::Listed || n != 60)
			state.SkipWithError("no snapshot");
		DiskInfoEnumFree(list);
	}
}
BENCHMARK(BM_SnapshotReaderOnly60);

// The liveness question alone, as DiskInfoEnum asks it.
void BM_VcemdAlive(benchmark::State &state)
{
	FakeDaemon daemon;
	for (auto _ : state)
		benchmark::DoNotOptimize(VLIBCIsProcAlive("vcemd", 0));
}
BENCHMARK(BM_VcemdAlive);

// The one field a reader computes afresh, for all 60 entries.
void BM_SecureErasingCheck60(benchmark::State &state)
{
	SnapshotRoot root;
	for (auto _ : state)
		for (int i = 0; i < 60; ++i)
			benchmark::DoNotOptimize(VLIBDiskIsSecureErasing("/dev/sdab"));
}
BENCHMARK(BM_SecureErasingCheck60);

// The floor: open, one read of the whole file, close.
void BM_BareRead60(benchmark::State &state)
{
	SnapshotRoot root;
	const std::string file = root.dir + VEXO_DISK_SNAPSHOT;
	static char buf[60 * 320 + 1];
	for (auto _ : state) {
		int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
		ssize_t got = ::read(fd, buf, sizeof(buf));
		::close(fd);
		if (got != 60 * 320)
			state.SkipWithError("short read");
	}
}
BENCHMARK(BM_BareRead60);

// The ratio in one run: each iteration lists the snapshot and reads the
// same file bare, in turn, timed by this thread's CPU clock (a loaded
// machine stretches wall time, not the work done) and by the wall clock.
void BM_DiskInfoEnumVsBareRead60(benchmark::State &state)
{
	SnapshotRoot root;
	FakeDaemon daemon;
	const std::string file = root.dir + VEXO_DISK_SNAPSHOT;
	static char buf[60 * 320 + 1];
	int32_t mask = 0xFF;
	DiskEnumFilter filter{&mask};
	auto cpuNow = [] {
		timespec t{};
		::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
		return static_cast<double>(t.tv_sec) * 1e9 + static_cast<double>(t.tv_nsec);
	};
	using Clock = std::chrono::steady_clock;
	double enumCpu = 0, bareCpu = 0, enumWall = 0, bareWall = 0;
	for (auto _ : state) {
		double c0 = cpuNow();
		auto w0 = Clock::now();
		DiskListNode *list = nullptr;
		if (DiskInfoEnum(&filter, &list) != 60)
			state.SkipWithError("DiskInfoEnum did not read the 60-disk snapshot");
		DiskInfoEnumFree(list);
		double c1 = cpuNow();
		auto w1 = Clock::now();
		int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
		ssize_t got = ::read(fd, buf, sizeof(buf));
		::close(fd);
		if (got != 60 * 320)
			state.SkipWithError("short read");
		double c2 = cpuNow();
		auto w2 = Clock::now();
		enumCpu += c1 - c0;
		bareCpu += c2 - c1;
		enumWall += std::chrono::duration<double, std::nano>(w1 - w0).count();
		bareWall += std::chrono::duration<double, std::nano>(w2 - w1).count();
	}
	double n = static_cast<double>(state.iterations());
	state.counters["enum_cpu_ns"] = enumCpu / n;
	state.counters["bare_cpu_ns"] = bareCpu / n;
	state.counters["ratio_cpu"] = bareCpu > 0 ? enumCpu / bareCpu : 0;
	state.counters["ratio_wall"] = bareWall > 0 ? enumWall / bareWall : 0;
}
BENCHMARK(BM_DiskInfoEnumVsBareRead60);

// What one block for all cells and records would cost: the snapshot read
// and decoded as DiskInfoEnum does, into a single allocation. Not what the
// library may hand out (a caller can unlink and free one cell with
// DiskListRemove and free one record with DiskInfoFree), but the floor
// that the per-record allocations stand above.
void BM_SnapshotIntoOneBlock60(benchmark::State &state)
{
	SnapshotRoot root;
	const std::string file = root.dir + VEXO_DISK_SNAPSHOT;
	DiskInfoFileEntry buf[64];
	for (auto _ : state) {
		int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
		struct stat st {};
		::fstat(fd, &st);
		ssize_t got = ::read(fd, buf, sizeof(buf));
		::close(fd);
		size_t n = got > 0 ? static_cast<size_t>(got) / sizeof(DiskInfoFileEntry) : 0;
		auto *block = static_cast<char *>(std::malloc(n * (sizeof(DiskListNode) + sizeof(DiskInfo))));
		auto *cells = reinterpret_cast<DiskListNode *>(block);
		auto *records = reinterpret_cast<DiskInfo *>(block + n * sizeof(DiskListNode));
		for (size_t i = 0; i < n; ++i) {
			vexo::disk::decodeEntry(buf[i], records[i]);
			cells[i].info = &records[i];
			cells[i].next = i + 1 < n ? &cells[i + 1] : nullptr;
		}
		benchmark::DoNotOptimize(cells);
		std::free(block);
		if (n != 60)
			state.SkipWithError("short read");
	}
}
BENCHMARK(BM_SnapshotIntoOneBlock60);

// ---- whole processes ---------------------------------------------------------

struct Box60 : vexo::bench::BuiltBox60 {
	Box60() : BuiltBox60("box60") {}

	// Runs argv with extra environment entries, output to /dev/null. The
	// exit status, or -1.
	static int spawn(const std::vector<std::string> &argv, const std::vector<std::string> &env)
	{
		std::vector<std::string> envs;
		for (char **e = environ; *e; ++e)
			if (std::strncmp(*e, "VEXO_", 5) != 0) // ours replace the caller's
				envs.emplace_back(*e);
		envs.insert(envs.end(), env.begin(), env.end());
		std::vector<char *> a, e;
		for (const auto &s : argv)
			a.push_back(const_cast<char *>(s.c_str()));
		a.push_back(nullptr);
		for (const auto &s : envs)
			e.push_back(const_cast<char *>(s.c_str()));
		e.push_back(nullptr);
		posix_spawn_file_actions_t fa;
		posix_spawn_file_actions_init(&fa);
		posix_spawn_file_actions_addopen(&fa, 1, "/dev/null", O_WRONLY, 0);
		posix_spawn_file_actions_addopen(&fa, 2, "/dev/null", O_WRONLY, 0);
		pid_t pid;
		int rc = posix_spawn(&pid, a[0], &fa, nullptr, a.data(), e.data());
		posix_spawn_file_actions_destroy(&fa);
		if (rc != 0)
			return -1;
		int st = 0;
		::waitpid(pid, &st, 0);
		return WIFEXITED(st) ? WEXITSTATUS(st) : -1;
	}
};

// The walk alone, in this process: each disk's record from /sys and its
// temperature from the emulated drive, as "--walk" lists them.
void BM_Walk60(benchmark::State &state)
{
	Box60 box;
	if (!box.ok) {
		state.SkipWithError("vexosim could not build examples/box60.json");
		return;
	}
	::setenv("VEXO_SYSROOT", box.root.c_str(), 1);
	::setenv("VEXO_DEVICE_BACKEND", (buildDir() + "/sim/drive/libvexosim_drive.so").c_str(), 1);
	::setenv("VEXO_LOG", "/dev/null", 1);
	for (auto _ : state) {
		DiskListNode *list = nullptr;
		if (vexo::disk::walkSystem(nullptr, &list) != 60)
			state.SkipWithError("the walk did not list 60 disks");
		DiskInfoEnumFree(list);
	}
}
BENCHMARK(BM_Walk60)->Unit(benchmark::kMillisecond);

void BM_OverviewWalkVsLsblk60(benchmark::State &state)
{
	Box60 box;
	if (!box.ok) {
		state.SkipWithError("vexosim could not build examples/box60.json");
		return;
	}
	// What "vexosim run" sets, without its extra exec.
	std::vector<std::string> env = {"VEXO_SYSROOT=" + box.root,
					"VEXO_DEVICE_BACKEND=" + buildDir() + "/sim/drive/libvexosim_drive.so",
					"VEXO_LOG=/dev/null"};
	std::vector<std::string> ours = {buildDir() + "/bin/vexohw", "overview", "--walk", "--json"};
	std::vector<std::string> theirs = {"/usr/bin/lsblk", "--sysroot", box.root, "--json", "-o",
					   "NAME,MODEL,SIZE,ROTA,LOG-SEC"};
	using Clock = std::chrono::steady_clock;
	// The first run on a fresh box fills the SMART list caches (the tool
	// runs once per disk); it is reported apart, and the timed runs are
	// those of a box in use, whose caches are at most an hour old.
	auto first0 = Clock::now();
	if (Box60::spawn(ours, env) != 0) {
		state.SkipWithError("vexohw overview failed");
		return;
	}
	state.counters["first_run_ms"] = std::chrono::duration<double, std::milli>(Clock::now() - first0).count();
	double oursNs = 0, theirsNs = 0;
	for (auto _ : state) {
		auto t0 = Clock::now();
		if (Box60::spawn(ours, env) != 0)
			state.SkipWithError("vexohw overview failed");
		auto t1 = Clock::now();
		if (Box60::spawn(theirs, {}) != 0)
			state.SkipWithError("lsblk failed");
		auto t2 = Clock::now();
		oursNs += std::chrono::duration<double, std::nano>(t1 - t0).count();
		theirsNs += std::chrono::duration<double, std::nano>(t2 - t1).count();
	}
	double n = static_cast<double>(state.iterations());
	state.counters["ours_ms"] = oursNs / n / 1e6;
	state.counters["lsblk_ms"] = theirsNs / n / 1e6;
	state.counters["ratio"] = theirsNs > 0 ? oursNs / theirsNs : 0;
}
BENCHMARK(BM_OverviewWalkVsLsblk60)->Unit(benchmark::kMillisecond)->Iterations(20);

} // namespace

BENCHMARK_MAIN();
