// The health verdict from its caches for every disk of the 60-disk box, and
// the read of a 10-page extended self-test log.
//
//   bench_health_bench [--benchmark_filter=...]
//
// Both build examples/box60.json with vexosim (beside this program in the
// build tree) and run the library in this process with the box as its root
// and the drive emulator behind the device seam. The counter "commands" is
// the number of commands the drives logged per iteration.
#include <benchmark/benchmark.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include <vexohw/frame.h>
#include <vexohw/smart_status.h>
#include <vexohw/smart_test.h>

#include "bench/bench_paths.h"

namespace fs = std::filesystem;

namespace {

using vexo::bench::buildDir;
using vexo::bench::sourceDir;

struct Box60 : vexo::bench::BuiltBox60 {
	std::vector<std::string> disks;
	Box60() : BuiltBox60("health")
	{
		if (!ok)
			return;
		for (const auto &e : fs::directory_iterator(root + "/run/vexostorage/disks"))
			disks.push_back(e.path().filename().string());
		::setenv("VEXO_SYSROOT", root.c_str(), 1);
		::setenv("VEXO_DEVICE_BACKEND", (buildDir() + "/sim/drive/libvexosim_drive.so").c_str(), 1);
		::setenv("VEXO_LOG", "/dev/null", 1);
	}

	// Lines in every drive's command log.
	long commands() const
	{
		long n = 0;
		std::error_code ec;
		for (const auto &e : fs::directory_iterator(root + "/run/vexosim/drive", ec)) {
			std::ifstream in(e.path());
			for (std::string l; std::getline(in, l);)
				n += l.rfind("OPEN", 0) != 0;
		}
		return n;
	}
};

void BM_OverviewCacheGet60(benchmark::State &state)
{
	Box60 box;
	if (!box.ok || box.disks.size() < 60) {
		state.SkipWithError("vexosim could not build examples/box60.json");
		return;
	}
	// Warm: every disk has its weight and its error weights cached.
	for (size_t i = 0; i < box.disks.size(); ++i) {
		VEXODiskUpdateIntValueCacheFile(box.disks[i].c_str(), "smart_damage_weight", static_cast<int>(i % 3 == 0 ? 31 : 0));
		VEXODiskUpdateIntValueCacheFile(box.disks[i].c_str(), "timeout_weight", static_cast<int>(i % 5 == 0));
	}
	std::vector<std::string> paths;
	for (const auto &d : box.disks)
		paths.push_back("/dev/" + d);
	long before = box.commands();
	for (auto _ : state) {
		int sum = 0;
		for (const auto &p : paths) {
			int w = 0;
			sum += SmartOverviewStatusCacheGet(p.c_str(), &w);
		}
		benchmark::DoNotOptimize(sum);
	}
	state.counters["disks"] = static_cast<double>(paths.size());
	state.counters["commands"] = static_cast<double>(box.commands() - before);
}
BENCHMARK(BM_OverviewCacheGet60)->Unit(benchmark::kMillisecond);

void BM_SelfTestLogRead10Pages(benchmark::State &state)
{
	Box60 box;
	if (!box.ok) {
		state.SkipWithError("vexosim could not build examples/box60.json");
		return;
	}
	// The first bay disk's node gets a 10-page log 7, newest entry 150.
	std::string name = "sda", node = box.root + "/dev/" + name;
	std::ifstream in(node);
	std::string json((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
	std::vector<uint8_t> log7(10 * 512, 0);
	log7[0] = 1, log7[2] = 150;
	for (size_t u = 0; u < 150; ++u) {
		size_t off = (u / 19) * 512 + 4 + (u % 19) * 26;
		log7[off] = u % 3 ? 1 : 2;
		log7[off + 2] = 1;
	}
	std::string hex;
	for (uint8_t b : log7) {
		char x[3];
		std::snprintf(x, sizeof(x), "%02x", b);
		hex += x;
	}
	json.insert(json.rfind('}'), ",\"logs\":{\"0x07\":\"" + hex + "\"}");
	std::ofstream(node) << json;
	VEXODiskUpdateIntValueCacheFile(name.c_str(), "smart_selftest_log_type", 2);
	long before = box.commands();
	long calls = 0;
	for (auto _ : state) {
		SmartTestLog log{};
		if (SMARTSelfTestLogRead("/dev/sda", &log) != 0 || log.latestType == 0) {
			state.SkipWithError("SMARTSelfTestLogRead failed");
			return;
		}
		++calls;
	}
	state.counters["commands_per_call"] = calls ? static_cast<double>(box.commands() - before) / calls : 0;
}
BENCHMARK(BM_SelfTestLogRead10Pages)->Unit(benchmark::kMicrosecond);

} // namespace

BENCHMARK_MAIN();
