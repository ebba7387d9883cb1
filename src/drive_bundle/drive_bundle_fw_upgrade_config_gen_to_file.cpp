// Writing a plan: every drive whose model has a binary in the firmware
// folder with another revision than the drive's gets a section.
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <vexohw/disk_probe.h>
#include <vexohw/drive_bundle.h>
#include <vexohw/ext.h>
#include <vexohw/frame.h>
#include <vexohw/smart_serial.h>

#include "disk/disk_model_whole.h"
#include "drive_bundle/drive_bundle_private.h"
#include "frame/err.h"

using namespace vexo::bundle;

namespace {

struct Binary {
	std::string file, version;
	int build = 0;
};

// The binaries of the firmware folder by the model their info file names.
std::map<std::string, Binary> binariesByModel()
{
	std::map<std::string, Binary> out;
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
		out[model] = {n.substr(0, n.size() - suffix.size()), version, std::atoi(build)};
	}
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

} // namespace

extern "C" VEXO_API int VEXODriveBundleFWUpgradeConfigGenToFile(const char *path, PVLIBSZLIST drives)
try {
	if (!path || !drives) {
		vlog(LOG_ERR, "%s:%d Bad parameters", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	auto offered = binariesByModel();
	int planned = 0;
	for (int i = 0; i < drives->nItem; ++i) {
		const char *d = VLIBCSzListGet(drives, i);
		char shortModel[128] = "", firm[64] = "", serial[64] = "";
		if (!d || VEXOLnxDiskGetModel(d, shortModel, sizeof(shortModel)) != 0)
			continue;
		std::string model;
		vexo::disk::wholeModel(devName(d).c_str(), shortModel, model);
		auto b = offered.find(model);
		if (b == offered.end())
			continue;
		// The revision from the cache; a sleeping drive is not woken for it.
		std::string cached;
		if (diskCacheGet(d, "firm", cached))
			std::snprintf(firm, sizeof(firm), "%s", cached.c_str());
		else if (VEXOExtDiskPowerModeGet(d) != VEXO_EXT_POWER_STANDBY)
			SmartFirmAndSerialRead(d, firm, sizeof(firm), serial, sizeof(serial));
		if (b->second.version == firm)
			continue;
		if (!serial[0] && diskCacheGet(d, "serial", cached))
			std::snprintf(serial, sizeof(serial), "%s", cached.c_str());
		DB_FW_UPGRADE_CONFIG c{};
		std::snprintf(c.id, sizeof(c.id), "%s", serial[0] ? serial : devName(d).c_str());
		std::snprintf(c.drive_path, sizeof(c.drive_path), "%s", d);
		std::snprintf(c.firmware, sizeof(c.firmware), "%s", firm);
		std::snprintf(c.available_firmware, sizeof(c.available_firmware), "%s", b->second.version.c_str());
		std::snprintf(c.available_firmware_binary, sizeof(c.available_firmware_binary), "%s",
			      b->second.file.c_str());
		std::string ui = "{\"model\":\"" + jsonText(model) + "\",\"serial\":\"" + jsonText(c.id) +
				 "\",\"firmware\":\"" + jsonText(firm) + "\",\"available_firmware\":\"" +
				 jsonText(b->second.version) + "\"}";
		c.ui_json = ui.data();
		c.fw_build_number = b->second.build;
		if (VEXODriveBundleFWUpgradeConfigSet(path, &c) != 0)
			return -1;
		++planned;
	}
	return planned;
} VEXO_C_CATCH(-1)
