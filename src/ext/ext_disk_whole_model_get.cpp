// A disk's whole model from what the system already knows, for the overview.
#include <cstring>
#include <string>

#include <vexohw/ext.h>

#include "disk/disk_model_whole.h"
#include "disk/disk_probe_name.h"
#include "frame/boundary.h"
#include "frame/err.h"
#include "frame/text.h"

extern "C" VEXO_API int VEXOExtDiskWholeModelGet(const char *devicePath, const char *recorded, char *model, int size,
						 const char **source) try {
	if (!devicePath || !recorded || !model || size <= 0) {
		vlog(LOG_ERR, "%s:%d Bad parameters", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	const std::string name = vexo::disk::physicalName(vexo::disk::shortName(devicePath));
	std::string whole;
	const vexo::disk::ModelSource from = vexo::disk::wholeModel(name.c_str(), recorded, whole);
	if (!VEXO_COPY_OUT(model, size, whole, "model"))
		return -1;
	if (source)
		*source = vexo::disk::modelSourceName(from);
	return 0;
} VEXO_C_CATCH(-1)
