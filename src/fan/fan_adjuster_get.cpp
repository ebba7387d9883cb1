// Building a model from the board's vcemd.xml: the user's own file when
// custom fan control is on and it parses, the product's file otherwise.
#include <cstring>
#include <strings.h>

#include "fan/fan_private.h"
#include "frame/err.h"

namespace {

bool customFanControl()
{
	char value[16] = {};
	return VLIBCFileGetKeyValue("/etc/vexoinfo.conf", "custom_fan_control", value, sizeof value, 0) > 0 &&
	       strcasecmp(value, "yes") == 0;
}

template <typename Model, typename Parse, typename Free>
int build(Model *model, int first, Parse parse, Free freeModel, bool customAllowed)
{
	if (!model)
		return -1;
	if (first == 1)
		std::memset(model, 0, sizeof *model);
	else
		freeModel(model);
	if (customAllowed && customFanControl()) {
		if (parse(VEXO_FAN_CONFIG_CUSTOM_FILE, model) == 0)
			return 0;
		vlog(LOG_ERR, "%s:%d No fan config in [%s], use default solution", VEXO_AT, VEXO_FAN_CONFIG_CUSTOM_FILE);
		freeModel(model);
	}
	if (parse(VEXO_FAN_CONFIG_DEFAULT_FILE, model) != 0) {
		vlog(LOG_ERR, "%s:%d No fan config in [%s]", VEXO_AT, VEXO_FAN_CONFIG_DEFAULT_FILE);
		return -1;
	}
	return 0;
}

} // namespace

extern "C" VEXO_API int VEXOFanAdjusterGet(VEXO_FAN_ADJUSTER_T *model, int first) try {
	VEXOFanConfigOpsListInit();
	VEXOFanTableTypeOpsListInit();
	return build(model, first, VEXOFanParsingConfig, VEXOAdjusterModelFree, true);
}
VEXO_C_CATCH(-1)

extern "C" VEXO_API int VEXOFanADTAdjusterGet(VEXO_ADT_ADJUSTER_T *model, int first) try {
	VEXOFanTableTypeOpsListInit();
	return build(model, first, VEXOFanParsingADTConfig, VEXOAdjusterADTModelFree, true);
}
VEXO_C_CATCH(-1)

extern "C" VEXO_API int VEXOFanBMCAdjusterGet(VEXO_BMC_ADJUSTER_T *model, int first) try {
	return build(model, first, VEXOFanParsingBMCConfig, VEXOAdjusterBMCModelFree, false);
}
VEXO_C_CATCH(-1)
