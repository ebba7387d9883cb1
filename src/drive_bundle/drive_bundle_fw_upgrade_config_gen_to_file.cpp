// Writing a plan: every drive whose model has a binary in the firmware
// folder with another revision than the drive's gets a section; by the
// database, only drives whose firmware status asks for the suggested one.
// Also the list of the maker's own drives.
#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vexohw/disk_enum.h>
#include <vexohw/disk_probe.h>
#include <vexohw/drive_bundle.h>
#include <vexohw/ext.h>
#include <vexohw/frame.h>
#include <vexohw/fw_status.h>
#include <vexohw/smart_serial.h>

#include "disk/disk_info_walk.h"
#include "disk/disk_model_whole.h"
#include "drive_bundle/drive_bundle_private.h"
#include "frame/err.h"

using namespace vexo::bundle;

namespace {

using Binary = FirmwareBinary;

std::multimap<std::string, Binary> binariesByModel()
{
	std::multimap<std::string, Binary> out;
	for (auto &b : firmwareIndex())
		out.insert({b.model, std::move(b)});
	return out;
}

std::string jsonText(const std::string &s)
{
	std::string o;
	for (char c : s)
		if (c == '"' || c == '\\')
			o += std::string("\\") + c;
		else if (static_cast<unsigned char>(c) >= 0x20)
			o += c;
	return o;
}

// The binary offered for a model: of revision `want` if given, else the
// highest build.
const Binary *offeredFor(const std::multimap<std::string, Binary> &offered, const std::string &model,
			 const char *want)
{
	const Binary *best = nullptr;
	auto [b, e] = offered.equal_range(model);
	for (auto it = b; it != e; ++it)
		if (want ? it->second.version == want : (!best || it->second.build > best->build))
			best = &it->second;
	return best;
}

// One drive's section when it needs a binary on the box. 1 written, 0 not
// needed, -1 failed. byDb: only what its cached firmware status suggests.
int planDrive(const char *path, const char *d, const std::multimap<std::string, Binary> &offered, bool byDb)
{
	char shortModel[128] = "", firm[64] = "", serial[64] = "";
	if (!d || VEXOLnxDiskGetModel(d, shortModel, sizeof(shortModel)) != 0)
		return 0;
	std::string model;
	vexo::disk::wholeModel(devName(d).c_str(), shortModel, model);
	std::string cached, want;
	if (byDb) {
		// Only "new_firm_available" and "update_firm" name a firmware to take.
		const int status = diskCacheGet(d, "firm_status_from_db", cached)
					   ? VEXOSBFirmStatusStringTransfer(cached.c_str())
					   : 0;
		if ((status != VEXO_FW_STATUS_NEW_FIRM_AVAILABLE && status != VEXO_FW_STATUS_UPDATE_FIRM) ||
		    !diskCacheGet(d, "sug_firm_upd_ver", want) || want.empty())
			return 0;
	}
	const Binary *b = offeredFor(offered, model, byDb ? want.c_str() : nullptr);
	if (!b)
		return 0;
	// The revision from the cache; a sleeping drive is not woken for it.
	if (diskCacheGet(d, "firm", cached))
		std::snprintf(firm, sizeof(firm), "%s", cached.c_str());
	else if (VEXOExtDiskPowerModeGet(d) != VEXO_EXT_POWER_STANDBY)
		SmartFirmAndSerialRead(d, firm, sizeof(firm), serial, sizeof(serial));
	if (b->version == firm)
		return 0;
	if (!serial[0] && diskCacheGet(d, "serial", cached))
		std::snprintf(serial, sizeof(serial), "%s", cached.c_str());
	DB_FW_UPGRADE_CONFIG c{};
	std::snprintf(c.id, sizeof(c.id), "%s", serial[0] ? serial : devName(d).c_str());
	std::snprintf(c.drive_path, sizeof(c.drive_path), "%s", d);
	std::snprintf(c.firmware, sizeof(c.firmware), "%s", firm);
	std::snprintf(c.available_firmware, sizeof(c.available_firmware), "%s", b->version.c_str());
	std::snprintf(c.available_firmware_binary, sizeof(c.available_firmware_binary), "%s", b->file.c_str());
	std::string ui = "{\"model\":\"" + jsonText(model) + "\",\"serial\":\"" + jsonText(c.id) +
			 "\",\"firmware\":\"" + jsonText(firm) + "\",\"available_firmware\":\"" + jsonText(b->version) +
			 "\"}";
	c.ui_json = ui.data();
	c.fw_build_number = b->build;
	return VEXODriveBundleFWUpgradeConfigSet(path, &c) == 0 ? 1 : -1;
}

} // namespace

namespace vexo::bundle {

std::vector<FirmwareBinary> firmwareIndex()
{
	std::vector<FirmwareBinary> out;
	ListOwner names{VLIBCSzListAlloc(16)};
	if (!names.l || VLIBCFileEnumDir(VEXO_FW_UPGRADE_DIR, &names.l) <= 0)
		return out;
	const std::string suffix = ".FW_INFO";
	for (int i = 0; i < names.l->nItem; ++i) {
		std::string n = VLIBCSzListGet(names.l, i);
		if (n.size() <= suffix.size() || n.compare(n.size() - suffix.size(), suffix.size(), suffix) != 0)
			continue;
		std::string info = std::string(VEXO_FW_UPGRADE_DIR) + n;
		char model[128] = "", version[64] = "", build[16] = "";
		if (VLIBCFileGetKeyValue(info.c_str(), "model", model, sizeof(model), 0) <= 0 ||
		    VLIBCFileGetKeyValue(info.c_str(), "firmware", version, sizeof(version), 0) <= 0)
			continue;
		VLIBCFileGetKeyValue(info.c_str(), "build_number", build, sizeof(build), 0);
		out.push_back({n.substr(0, n.size() - suffix.size()), model, version, std::atoi(build)});
	}
	std::sort(out.begin(), out.end(), [](const auto &a, const auto &b) { return a.file < b.file; });
	return out;
}

} // namespace vexo::bundle

extern "C" {

VEXO_API int VEXOExtDriveBundleFirmwareIndexGet(VEXOFirmwareBinary *out, int max)
try {
	if (max < 0 || (max > 0 && !out)) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	const auto index = firmwareIndex();
	for (std::size_t i = 0; i < index.size() && i < static_cast<std::size_t>(max); ++i) {
		VEXOFirmwareBinary &o = out[i];
		o = VEXOFirmwareBinary{};
		std::snprintf(o.file, sizeof(o.file), "%s", index[i].file.c_str());
		std::snprintf(o.model, sizeof(o.model), "%s", index[i].model.c_str());
		std::snprintf(o.firmware, sizeof(o.firmware), "%s", index[i].version.c_str());
		o.build = index[i].build;
	}
	return static_cast<int>(index.size());
} VEXO_C_CATCH(-1)

VEXO_API int VEXODriveBundleFWUpgradeConfigGenToFile(const char *path, PVLIBSZLIST drives)
try {
	if (!path || !drives) {
		vlog(LOG_ERR, "%s:%d Bad parameters", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	auto offered = binariesByModel();
	int planned = 0;
	for (int i = 0; i < drives->nItem; ++i) {
		const int r = planDrive(path, VLIBCSzListGet(drives, i), offered, false);
		if (r < 0)
			return -1;
		planned += r;
	}
	return planned;
} VEXO_C_CATCH(-1)

VEXO_API int VEXODriveBundleDiskEnum(PVLIBSZLIST *list)
try {
	if (!list || !*list) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	// Every disk the box may hold a drive of its maker in: bays, units, M.2
	// and system devices. The snapshot answers only a real filter. Only paths
	// are wanted: a walk reads no temperature, which would wake a sleeping disk.
	const int32_t mask = DISK_CONTAINER_MASK_ALL_SYS;
	DiskEnumFilter filter{&mask};
	DiskEnumHibStatus noTemperature{};
	noTemperature.allHibernating = 1;
	DiskListNode *disks = nullptr;
	if (vexo::disk::collect(&filter, &disks, nullptr, &noTemperature) < 0) {
		vlog(LOG_ERR, "%s:%d Failed to enum drive paths", VEXO_AT);
		return -1;
	}
	std::unique_ptr<DiskListNode, decltype(&DiskInfoEnumFree)> own(disks, &DiskInfoEnumFree);
	int count = 0;
	for (DiskListNode *n = disks; n; n = n->next) {
		if (!n->info || VEXODiskIsVexology(n->info->path) != 1)
			continue;
		if (VLIBCSzListPush(list, n->info->path) < 0) {
			VEXO_ERR(VEXO_ERR_NOMEM);
			return -1;
		}
		++count;
	}
	return count;
} VEXO_C_CATCH(-1)

VEXO_API int VEXODriveBundleFWUpgradeConfigGenToFileByDB(const char *path)
try {
	if (!path) {
		vlog(LOG_ERR, "%s:%d Bad parameters", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	ListOwner drives{VLIBCSzListAlloc(16)};
	if (!drives.l || VEXODriveBundleDiskEnum(&drives.l) < 0) {
		vlog(LOG_ERR, "%s:%d Failed to enum vexology drive", VEXO_AT);
		return -1;
	}
	auto offered = binariesByModel();
	int planned = 0;
	for (int i = 0; i < drives.l->nItem; ++i) {
		const int r = planDrive(path, VLIBCSzListGet(drives.l, i), offered, true);
		if (r < 0)
			return -1;
		planned += r;
	}
	return planned;
} VEXO_C_CATCH(-1)

} // extern "C"
