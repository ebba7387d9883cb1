// Firmware from an offline kit: the kit's firmware list names an archive per
// model; the archives of models present in the box are verified and stored.
#include <cstring>
#include <set>
#include <string>
#include <vexohw/disk_probe.h>
#include <vexohw/drive_bundle.h>

#include "drive_bundle/drive_bundle_private.h"
#include "frame/err.h"
#include "frame/jsonc.h"

using namespace vexo::bundle;

namespace {

// The models of the disks the box knows (one folder each in the disk cache).
std::set<std::string> presentModels(std::set<std::string> &paths)
{
	std::set<std::string> models;
	ListOwner names{VLIBCSzListAlloc(16)};
	if (!names.l || VLIBCFileEnumDir("/run/vexostorage/disks", &names.l) < 0)
		return models;
	for (int i = 0; i < names.l->nItem; ++i) {
		std::string path = std::string("/dev/") + VLIBCSzListGet(names.l, i);
		char model[128] = "";
		std::string cached;
		if (diskCacheGet(path.c_str(), "model", cached))
			models.insert(cached);
		else if (VEXOLnxDiskGetModel(path.c_str(), model, sizeof(model)) == 0)
			models.insert(model);
		paths.insert(path);
	}
	return models;
}

} // namespace

extern "C" VEXO_API int VEXODriveBundleUpdateFirmwaresFromOfflineKit(const char *kitDir)
try {
	if (!kitDir) {
		vlog(LOG_ERR, "%s:%d Bad parameters", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::set<std::string> paths;
	std::set<std::string> models = presentModels(paths);
	if (paths.empty()) {
		vlog(LOG_ERR, "%s:%d Failed to enum vexology drive", VEXO_AT);
		VEXO_ERR(VEXO_ERR_NOENT);
		return -1;
	}
	const std::string conf = std::string(kitDir) + "/firmware/firmware.json";
	vexo::jsonc::Value doc = vexo::jsonc::readFile(conf.c_str());
	if (!doc) {
		vlog(LOG_ERR, "%s:%d Failed to load json file[%s]", VEXO_AT, conf.c_str());
		vlog(LOG_ERR, "%s:%d Failed to get offline kit firmware config[%s]", VEXO_AT, conf.c_str());
		VEXO_ERR(VEXO_ERR_READ);
		return -1;
	}
	// One entry, or a list of them.
	const bool many = json_object_is_type(doc.get(), json_type_array);
	const std::size_t n = many ? json_object_array_length(doc.get()) : 1;
	if (many && n == 0) {
		vlog(LOG_ERR, "%s:%d Failed to get json length of %s", VEXO_AT, conf.c_str());
		VEXO_ERR(VEXO_ERR_READ);
		return -1;
	}
	int ret = 0;
	for (std::size_t i = 0; i < n; ++i) {
		json_object *e = many ? json_object_array_get_idx(doc.get(), i) : doc.get();
		auto model = vexo::jsonc::string(e, "model");
		auto file = vexo::jsonc::string(e, "file");
		if (!model || !file || std::string(*file).find('/') != std::string::npos) {
			vlog(LOG_ERR, "%s:%d Failed to get offline kit firmware config[%s]", VEXO_AT, conf.c_str());
			ret = -1;
			continue;
		}
		if (!models.count(std::string(*model)))
			continue;
		const std::string archive = std::string(kitDir) + "/" + std::string(*file);
		if (VEXODriveBundleFWSAExtract(archive.c_str()) != 0) {
			vlog(LOG_ERR, "%s:%d Failed to extract %s to get firmware. [0x%04X %s:%d]", VEXO_AT, archive.c_str(),
			     VLIBCErrGet(), VLIBCErrFileGet(), VLIBCErrLineGet());
			vlog(LOG_ERR, "%s:%d Failed to check and update drive[%s]. [0x%04X %s:%d]", VEXO_AT,
			     std::string(*model).c_str(), VLIBCErrGet(), VLIBCErrFileGet(), VLIBCErrLineGet());
			ret = -1;
			continue;
		}
		vlog(LOG_INFO, "%s:%d Success to update %s firmware", VEXO_AT, std::string(*model).c_str());
	}
	return ret;
} VEXO_C_CATCH(-1)
