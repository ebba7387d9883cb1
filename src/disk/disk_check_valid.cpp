// Whether an M.2 or NVMe device may be used on this product.
#include <cstring>

#include <vexohw/disk.h>
#include <vexoplatform/nvme_location.h>

#include "frame/err.h"

extern "C" {

VEXO_API int VEXODiskCheckValid(const char *path)
try {
	if (!path) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	bool nvc = std::strstr(path, "nvc") != nullptr;
	if (!nvc && !VEXONVMeCheckSupportAndNVMeSSD(path))
		return 1;
	int model = VEXOM2CardModelGet(path);
	if (model == VEXO_M2CARD_UNKNOWN) {
		vlog(LOG_ERR, "%s:%d %s is on unknown adapter card", VEXO_AT, path);
		return 0;
	}
	if (model == VEXO_M2CARD_NONE)
		return 1;
	const char *card = VEXOM2CardIDToStr(model);
	int supported = VEXOAdapterCardCheckSupport(card, nvc ? "sup_sata" : "sup_nvme");
	if (supported < 0)
		vlog(LOG_ERR, "%s:%d failed to get %s adapter card conf", VEXO_AT, card ? card : "unknown");
	return supported;
} VEXO_C_CATCH(-1)

} // extern "C"
