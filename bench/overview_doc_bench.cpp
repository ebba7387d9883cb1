// The disk overview document at the size of a long-lived appliance: 1,000
// disk elements. Hot-plug of one disk (in and out) and one counter update,
// each a locked read, edit and whole-file save; the counter "doc_bytes" is
// the document's size.
//
//   bench_overview_doc_bench [--benchmark_filter=...]
//
// Set TMPDIR to put the root elsewhere. The disk plugged in is answered by the drive emulator built beside this
// program (<build>/sim/drive/libvexosim_drive.so).
#include <benchmark/benchmark.h>

#include <climits>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>

#include <vexohw/disk_overview.h>

#include "bench/bench_paths.h"

namespace fs = std::filesystem;

namespace {

using vexo::bench::buildDir;

void put(const std::string &file, const std::string &text)
{
	fs::create_directories(fs::path(file).parent_path());
	std::ofstream(file, std::ios::trunc) << text;
}

// A root with one emulated disk in bay 1 and a document of 1,000 disks.
struct Root {
	std::string root;
	Root()
	{
		// TMPDIR=/dev/shm leaves the disk's fsync out of the figures.
		const char *tmp = std::getenv("TMPDIR");
		std::string t = std::string(tmp && *tmp ? tmp : "/tmp") + "/vexo-bench-overview.XXXXXX";
		root = ::mkdtemp(t.data());
		::setenv("VEXO_SYSROOT", root.c_str(), 1);
		if (!std::getenv("VEXO_LOG"))
			::setenv("VEXO_LOG", "/dev/null", 1);
		::setenv("VEXO_DEVICE_BACKEND", (buildDir() + "/sim/drive/libvexosim_drive.so").c_str(), 1);
		put(root + "/etc.defaults/vexoinfo.conf", "internalportcfg=\"0xfff\"\nusbportcfg=\"0xff0000\"\nesataportcfg=\"0x0\"\nupnpmodelname=\"VX1222\"\n");
		put(root + "/dev/sda", R"({"protocol":"ata","model":"VEXO HAT5300-8T","serial":"BENCH500","firmware":"SC60"})");
		put(root + "/sys/block/sda/device/model", "VEXO HAT5300-8T\n");
		fs::create_directories(root + "/run/lock");
		std::string doc = "<?xml version=\"1.0\"?>\n<overview>\n";
		for (int i = 0; i < 1000; ++i) {
			std::string sn = "BENCH" + std::to_string(1000 + i).substr(1);
			doc += "  <SN_" + sn + " model=\"VEXO HAT5300-8T\" uiserial=\"" + sn + "\">\n    <path>null</path>\n";
			for (const char *c : {"unc", "icrc", "idnf", "retry", "hibernation", "deepsleep", "timeout", "reset_fail"})
				doc += std::string("    <") + c + ">" + std::to_string(i % 7) + "</" + c + ">\n";
			doc += "    <sata_internal_slot>-1</sata_internal_slot>\n"
			       "    <history>2026/01,0,0,1,100;2026/02,0,0,1,99;2026/03,1,0,2,99</history>\n  </SN_" + sn + ">\n";
		}
		put(root + VEXO_DISK_OVERVIEW_XML, doc + "</overview>\n");
	}
	~Root() { fs::remove_all(root); }
	double bytes() const { return static_cast<double>(fs::file_size(root + VEXO_DISK_OVERVIEW_XML)); }
};

Root &box()
{
	static Root r;
	return r;
}

void BM_HotPlugIn(benchmark::State &state)
{
	box();
	for (auto _ : state)
		if (VEXODiskXmlHotPlugUpdate(1, "/dev/sda") != 0)
			state.SkipWithError("plug failed");
	state.counters["doc_bytes"] = box().bytes();
}
BENCHMARK(BM_HotPlugIn)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_HotPlugOut(benchmark::State &state)
{
	box();
	for (auto _ : state) {
		VEXODiskXmlHotPlugUpdate(0, "/dev/sda");
		state.PauseTiming();
		VEXODiskXmlHotPlugUpdate(1, "/dev/sda");
		state.ResumeTiming();
	}
	state.counters["doc_bytes"] = box().bytes();
}
BENCHMARK(BM_HotPlugOut)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_CounterUpdate(benchmark::State &state)
{
	box();
	for (auto _ : state)
		VEXODiskXmlAttrCtUpdate("unc", "BENCH500");
	state.counters["doc_bytes"] = box().bytes();
}
BENCHMARK(BM_CounterUpdate)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace

BENCHMARK_MAIN();
