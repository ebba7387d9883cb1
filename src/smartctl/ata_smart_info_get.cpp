// The attribute list of a disk, read from the text of "smartctl -A". The
// tool is run by argument vector: the disk path is one argument, never
// shell text.
#include <cstring>
#include <vexohw/disk_debug.h>
#include <vexohw/smart_info.h>
#include <vexoplatform/vexocore.h>

#include "frame/err.h"
#include "smartctl/smart_info_list.h"

namespace {

struct Pclose {
	void operator()(std::FILE *f) const
	{
		if (f)
			VLIBCPclose(f);
	}
};
using UniquePipe = std::unique_ptr<std::FILE, Pclose>;

// Rows absent from the override list are dropped when the product says so.
bool dropUnlisted()
{
	char type[64] = {};
	if (VLIBCFileGetKeyValue("/etc.defaults/vexoinfo.conf", "smart_attr_debug_type", type, sizeof(type), 0) <= 0)
		return false;
	return std::strcmp(type, "REMOVE_NOT_IN_LIST") == 0;
}

} // namespace

extern "C" VEXO_API int AtaSmartInfoGet(const char *path, const char *type, SmartInfoEntry **list)
try {
	if (list)
		*list = nullptr;
	// The type goes to the tool as an option value: it must not read as an option.
	if (!path || !type || !list || !*type || type[0] == '-') {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	if (std::strncmp(path, "/dev/", 5) != 0 || !path[5]) {
		vlog(LOG_ERR, "%s:%d Invalid disk path %s", VEXO_AT, path);
		VEXO_ERR(VEXO_ERR_UNKNOWN_DEVICE);
		return -1;
	}
	UniquePipe out(VLIBCPopen(vexo::smart::kSmartctl, "r", "smartctl", "-d", type, "-A", path, nullptr));
	if (!out) {
		vlog(LOG_ERR, "%s:%d Failed to run %s on %s", VEXO_AT, vexo::smart::kSmartctl, path);
		VEXO_ERR(VEXO_ERR_FOPEN);
		return -1;
	}
	if (!vexo::smart::smartInfoTableSkipHeading(out.get())) {
		vlog(LOG_ERR, "%s:%d No smart attribute table for %s", VEXO_AT, path);
		VEXO_ERR(VEXO_ERR_READ);
		return -1;
	}
	SmartInfoEntry *overrides = nullptr;
	// A failing debug lookup only means no overrides.
	if (VEXODiskDebugSmartInfoListGet(path, &overrides) <= 0) {
		VEXODiskSmartInfoFree(overrides);
		overrides = nullptr;
	}
	vexo::smart::UniqueList ov(overrides);
	SmartInfoEntry *parsed = nullptr;
	if (vexo::smart::smartInfoTableParse(out.get(), ov.get(), ov && dropUnlisted(), &parsed) != 0) {
		VEXO_ERR_PASS();
		return -1;
	}
	*list = parsed;
	return 0;
} VEXO_C_CATCH(-1)
