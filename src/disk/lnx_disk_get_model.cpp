// The model text of a disk: the kernel's attribute, or the NVMe controller's
// answer. An NVMe drive under secure erase does not answer, so its model
// comes from the per-disk cache then.
#include <cstdio>
#include <string>
#include <vexohw/disk_probe.h>
#include <vexohw/disk_state.h>
#include <vexohw/frame.h>
#include <vexohw/smartctl.h>
#include <vexoplatform/nvme_admin.h>

#include "disk/disk_probe_name.h"
#include "frame/err.h"
#include "frame/text.h"
#include "frame/path_read.h"

extern "C" VEXO_API int VEXOLnxDiskGetModel(const char *path, char *model, int size)
try {
	if (!path || !*path || !model || size <= 0) {
		vlog(LOG_ERR, "%s:%d Bad parameters.", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	const std::string name = vexo::disk::physicalName(vexo::disk::shortName(path));
	const std::string dev = "/dev/" + name;
	char text[256] = {};

	if (VEXODiskScsiProtocolGet(dev.c_str()) == VEXO_DISK_PROTOCOL_NVME) {
		if (VLIBDiskIsSecureErasing(dev.c_str())) {
			if (VEXODiskGetStrValueCacheFile(dev.c_str(), "model", text, sizeof(text)) != 0) {
				vlog(LOG_ERR, "%s:%d Fail to get disk model from cache: %s", VEXO_AT, path);
				VEXO_ERR_PASS();
				return -1;
			}
			VLIBCStrTrimSpace(text);
		} else if (VEXONVMeDiskModelGet(dev.c_str(), text, sizeof(text)) != 0) {
			vlog(LOG_ERR, "%s:%d Fail to get nvme disk model: %s", VEXO_AT, path);
			VEXO_ERR_PASS();
			return -1;
		}
		return VEXO_COPY_OUT(model, size, text, "model") ? 0 : -1;
	}

	const std::string file = "/sys/block/" + name + "/device/model";
	std::string line;
	vexo::ReadFail why = vexo::ReadFail::None;
	if (!vexo::readLine(file, line, sizeof(text), false, &why)) {
		if (why == vexo::ReadFail::Open) {
			vlog(LOG_ERR, "%s:%d Failed to open %s", VEXO_AT, file.c_str());
			VEXO_ERR(VEXO_ERR_FOPEN);
		} else {
			vlog(LOG_ERR, "%s:%d Failed get disk model", VEXO_AT);
			VEXO_ERR(VEXO_ERR_READ);
		}
		return -1;
	}
	return VEXO_COPY_OUT(model, size, vexo::trimSpace(line), "model") ? 0 : -1;
} VEXO_C_CATCH(-1)
