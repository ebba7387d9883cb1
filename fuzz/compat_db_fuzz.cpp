// The compatibility database and rule file as anyone may have written
// them: the input is a database, a rule file, a model, a firmware and a
// version, cut at NUL bytes. Every lookup must end in one of its answers.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <json/json.h>
#include <string>
#include <vexohw/compat.h>

#include "disk/compat_db.h"
#include "fuzz_box.h"

namespace {

constexpr const char *kDb = "/var/lib/disk-compatibility/vx_host_v7.db";
constexpr const char *kRules = "/var/lib/disk-compatibility/host_rule.db";

void setUp()
{
	static const bool done = [] {
		const std::string r = vexo::fuzz::root();
		setenv("VEXO_LOG", "/dev/null", 1);
		std::filesystem::create_directories(r + "/var/lib/disk-compatibility");
		std::filesystem::create_directories(r + "/run/vexostorage/disks/sda");
		vexo::fuzz::put("/run/vexostorage/disks/sda/compatibility", reinterpret_cast<const uint8_t *>("support"), 7);
		return true;
	}();
	(void)done;
}

void check(bool ok)
{
	if (!ok)
		std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
	setUp();
	auto p = vexo::fuzz::pieces(data, size, 5);
	vexo::fuzz::put(kDb, reinterpret_cast<const uint8_t *>(p[0].data()), p[0].size());
	vexo::fuzz::put(kRules, reinterpret_cast<const uint8_t *>(p[1].data()), p[1].size());
	// Each input is parsed afresh: two inputs written in one clock tick with
	// one size would otherwise share an identity.
	vexo::compat::dropCaches();
	const std::string model(p[2]), firmware(p[3]), version(p[4].empty() ? "72806.3" : std::string(p[4]));
	for (int strict = 0; strict <= 1; ++strict) {
		Json::Value mapping, node, entry, interval;
		int s = GetCompatibilityFromDiskCompatibilityInfo(kDb, model.c_str(), firmware.c_str(), version.c_str(),
								  &strict, &mapping, &node, &entry);
		check(s == 0 || s == 1 || s == 2 || s == 3 || s == 6);
		int r = GetBehaviorFromDiskCompatibilityInfo(kDb, model.c_str(), firmware.c_str(), version.c_str(), &strict,
							     &interval);
		check(r == 0 || r == -1);
		if (!entry.isNull()) {
			int st = -1;
			(void)GetCompatibilityByNode(&entry, version.c_str(), &mapping, &st);
		}
	}
	DiskFirmInfo info{};
	int latest = VEXODiskCompatibilityLatestFWInfoGet(model.c_str(), kDb, &info);
	check(latest >= -1 && latest <= 1);
	if (latest == 1) {
		vexo::fuzz::terminated(info.firmware, sizeof(info.firmware));
		vexo::fuzz::terminated(info.firm_bin, sizeof(info.firm_bin));
	}
	if (VEXODiskActionCacheUpdate("/dev/sda") == 0) {
		DiskCompatibilityAction a;
		check(VEXODiskCompatibilityActionGet("/dev/sda", &a) == 0);
		vexo::fuzz::terminated(a.ui_compatibility, sizeof(a.ui_compatibility));
	}
	return 0;
}
