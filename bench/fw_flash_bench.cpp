// Flashing a plan of 12 emulated drives that each take a fixed time T to
// take their firmware: the run flashes them all at once, so the whole run
// should take about T plus a small overhead, not 12 T.
//
//   bench_fw_flash_bench [--benchmark_filter=...]
//
// The library runs in this process with a throw-away root, the drive
// emulator behind the device seam, and Debian's hdparm and nvme on the
// interposer (vexosim-tools, beside this program in the build tree). The
// counter "ratio" is the run's wall time over T.
#include <benchmark/benchmark.h>

#include <chrono>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>

#include <vexohw/drive_bundle.h>

#include "bench/bench_paths.h"

namespace fs = std::filesystem;

namespace {

using vexo::bench::buildDir;

void put(const std::string &path, const std::string &text)
{
	fs::create_directories(fs::path(path).parent_path());
	std::ofstream(path) << text;
}

// 12 drives, 8 SATA and 4 NVMe, each taking `ms` for its image.
struct Box {
	std::string root;
	explicit Box(int ms)
	{
		char t[] = "/tmp/vexo-bench-fw.XXXXXX";
		root = ::mkdtemp(t);
		::setenv("VEXO_SYSROOT", root.c_str(), 1);
		::setenv("VEXO_DEVICE_BACKEND", (buildDir() + "/sim/drive/libvexosim_drive.so").c_str(), 1);
		::setenv("VEXO_LOG", (root + "/log").c_str(), 1);
		const std::string tools = buildDir() + "/bin/vexosim-tools";
		for (const char *p : {"/usr/bin/hdparm", "/usr/sbin/nvme", "/usr/bin/md5sum"}) {
			fs::create_directories(root + fs::path(p).parent_path().string());
			fs::create_symlink(tools, root + p);
		}
		std::string image = "firmware=NEW2\n";
		image.resize(64 * 1024, '\0');
		put(root + "/var/lib/drive-bundle/firmware/fw.bin", image);
		char sum[64] = "";
		std::string cmd = "md5sum " + root + "/var/lib/drive-bundle/firmware/fw.bin";
		if (FILE *f = ::popen(cmd.c_str(), "r")) {
			if (!std::fgets(sum, 33, f))
				sum[0] = '\0';
			::pclose(f);
		}
		put(root + "/var/lib/drive-bundle/firmware/fw.bin.FW_INFO", std::string("md5sum=\"") + sum + "\"\n");
		for (int i = 0; i < 12; ++i) {
			std::string name = i < 8 ? std::string("sd") + static_cast<char>('a' + i) : "nvme" + std::to_string(i - 8) + "n1";
			put(root + "/dev/" + name, std::string(R"({"protocol":")") + (i < 8 ? "ata" : "nvme") +
							   R"(","firmware":"OLD1","firmware_update":{"milliseconds":)" +
							   std::to_string(ms) + "}}");
			fs::create_directories(root + "/run/vexostorage/disks/" + name);
			DB_FW_UPGRADE_CONFIG c{};
			std::snprintf(c.id, sizeof(c.id), "SN%d", i);
			std::snprintf(c.drive_path, sizeof(c.drive_path), "/dev/%s", name.c_str());
			std::snprintf(c.available_firmware, sizeof(c.available_firmware), "NEW2");
			std::snprintf(c.available_firmware_binary, sizeof(c.available_firmware_binary), "fw.bin");
			VEXODriveBundleFWUpgradeConfigSet("/var/lib/drive-bundle/plan.conf", &c);
		}
	}
	~Box() { fs::remove_all(root); }
};

void BM_FlashTwelveDrives(benchmark::State &state)
{
	const int ms = static_cast<int>(state.range(0));
	double ratio = 0, failed = 0;
	for (auto _ : state) {
		state.PauseTiming();
		Box box(ms);
		VEXODriveBundleFWUpgradeStateSet(VEXO_FW_UPGRADE_GOING_TO_START);
		state.ResumeTiming();
		auto t0 = std::chrono::steady_clock::now();
		int ret = DBFWUpgradeByConfig("/var/lib/drive-bundle/plan.conf", 0, 0);
		double took = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count();
		state.PauseTiming();
		DB_FW_UPGRADE_CONFIG *list = nullptr;
		VEXODriveBundleFWUpgradeConfigGet("/var/lib/drive-bundle/plan.conf", &list);
		for (auto *c = list; c; c = c->next)
			failed += c->upgrade_status != VEXO_FW_DRIVE_SUCCESS;
		VEXODriveBundleFWUpgradeConfigFree(list);
		if (ret != 0)
			state.SkipWithError("the run failed");
		ratio += took / ms;
		state.ResumeTiming();
	}
	state.counters["ratio"] = ratio / static_cast<double>(state.iterations());
	state.counters["failed_drives"] = failed;
}
BENCHMARK(BM_FlashTwelveDrives)->Arg(1000)->Arg(3000)->Unit(benchmark::kMillisecond)->Iterations(2);

} // namespace

BENCHMARK_MAIN();
