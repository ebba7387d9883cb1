// Compatibility verdicts for all 60 disks of the 60-disk box against a
// generated database of delivered size (about 6,000 models, 3 MB), set
// against one jsoncpp parse of that database.
//
//   bench_compat_bench [--benchmark_filter=...]
//
// BM_CompatAll60 reports, measured in the same run: parse_ms (median of
// five parses of the database text), per_disk_ms (one verdict, amortised
// over every iteration, the first load of the file included), cold_per_disk_ms
// (the first pass of a fresh process over the 60 disks, divided by 60) and
// ratio = per_disk_ms / parse_ms; the goal is at most 0.05.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <json/json.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include <vexohw/compat.h>

#include "bench/bench_paths.h"
#include "disk/compat_db.h"
#include "bench/compat_gen.h"

namespace fs = std::filesystem;

namespace {

using vexo::bench::buildDir;
using vexo::bench::sourceDir;

// The database every benchmark reads: the box's four drive models among
// 6,000 made-up ones, two listed exactly, one by pattern, one not at all
// (so its lookup tries every key once).
const std::string &databaseText()
{
	static const std::string text = [] {
		vexo::test::CompatGenOptions o;
		o.fixed = {{"ST4000VN006-3CW104", "SC60", "support"},
			   {"ST8000VN004-3CP101", "default", "support"},
			   {"^WDC WD[0-9]+EFPX-", "81.00A81", "not_support"}};
		return vexo::test::makeCompatDatabase(o);
	}();
	return text;
}

struct Box60 : vexo::bench::BuiltBox60 {
	std::vector<std::string> paths;
	Box60() : BuiltBox60("compat")
	{
		if (!ok)
			return;
		for (const auto &e : fs::directory_iterator(root + "/run/vexostorage/disks"))
			paths.push_back("/dev/" + e.path().filename().string());
		std::sort(paths.begin(), paths.end());
		const std::string lib = root + "/var/lib/disk-compatibility/";
		for (const char *name : {"vx1260_host_v7.db", "xu12_v7.db"})
			std::ofstream(lib + name) << databaseText();
		// The box60 description leaves the model's compatibility question out.
		std::ofstream(root + "/etc.defaults/vexoinfo.conf", std::ios::app) << "support_disk_compatibility=\"yes\"\n";
		std::ofstream(lib + "host_rule.db") << vexo::test::makeCompatRules(false);
		std::ofstream(lib + "eunit_rule.db") << vexo::test::makeCompatRules(true);
		::setenv("VEXO_SYSROOT", root.c_str(), 1);
		::setenv("VEXO_DEVICE_BACKEND", (buildDir() + "/sim/drive/libvexosim_drive.so").c_str(), 1);
		::setenv("VEXO_LOG", "/dev/null", 1);
	}
};

double parseOnceMs()
{
	const std::string &text = databaseText();
	Json::CharReaderBuilder b;
	std::unique_ptr<Json::CharReader> r(b.newCharReader());
	Json::Value v;
	std::string err;
	auto t0 = std::chrono::steady_clock::now();
	bool ok = r->parse(text.data(), text.data() + text.size(), &v, &err);
	auto t1 = std::chrono::steady_clock::now();
	benchmark::DoNotOptimize(ok);
	return std::chrono::duration<double, std::milli>(t1 - t0).count();
}

void BM_ParseDatabase3MB(benchmark::State &state)
{
	const std::string &text = databaseText();
	Json::CharReaderBuilder b;
	std::unique_ptr<Json::CharReader> r(b.newCharReader());
	for (auto _ : state) {
		Json::Value v;
		std::string err;
		if (!r->parse(text.data(), text.data() + text.size(), &v, &err))
			state.SkipWithError("the generated database does not parse");
		benchmark::DoNotOptimize(v);
	}
	state.counters["bytes"] = static_cast<double>(text.size());
}
BENCHMARK(BM_ParseDatabase3MB)->Unit(benchmark::kMillisecond);

void BM_CompatAll60(benchmark::State &state)
{
	Box60 box;
	if (!box.ok || box.paths.size() < 60) {
		state.SkipWithError("vexosim could not build examples/box60.json");
		return;
	}
	std::vector<double> parses;
	for (int i = 0; i < 5; ++i)
		parses.push_back(parseOnceMs());
	std::sort(parses.begin(), parses.end());
	const double parseMs = parses[2];

	// A fresh process's first pass: the file is read and parsed here.
	vexo::compat::dropCaches();
	auto c0 = std::chrono::steady_clock::now();
	int verdicts[8] = {};
	for (const std::string &p : box.paths)
		++verdicts[VEXODiskCompatibilityGet(p.c_str(), 0) & 7];
	auto c1 = std::chrono::steady_clock::now();
	const double coldPerDisk = std::chrono::duration<double, std::milli>(c1 - c0).count() / box.paths.size();
	if (verdicts[0] != 0) {
		state.SkipWithError("a disk could not be judged");
		return;
	}

	vexo::compat::dropCaches();
	long lookups = 0;
	auto t0 = std::chrono::steady_clock::now();
	for (auto _ : state) {
		int sum = 0;
		for (const std::string &p : box.paths)
			sum += VEXODiskCompatibilityGet(p.c_str(), 0);
		lookups += static_cast<long>(box.paths.size());
		benchmark::DoNotOptimize(sum);
	}
	auto t1 = std::chrono::steady_clock::now();
	const double perDisk = std::chrono::duration<double, std::milli>(t1 - t0).count() / static_cast<double>(lookups);
	state.counters["parse_ms"] = parseMs;
	state.counters["per_disk_ms"] = perDisk;
	state.counters["cold_per_disk_ms"] = coldPerDisk;
	state.counters["ratio"] = perDisk / parseMs;
	state.counters["support"] = verdicts[1];
	state.counters["not_support"] = verdicts[3];
	state.counters["not_in_support"] = verdicts[2];
}
BENCHMARK(BM_CompatAll60)->Unit(benchmark::kMillisecond)->MinTime(1.0);

} // namespace

BENCHMARK_MAIN();
