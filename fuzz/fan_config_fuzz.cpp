// vcemd.xml as a damaged or hostile board image may carry it: the three
// models are built from it and freed, whatever it holds.
#include <cstddef>
#include <cstdint>
#include <vexohw/fan_config.h>

#include "fuzz_box.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
	// The box: its board device answers the fan count the mappings need.
	vexo::fuzz::hostileDrive()(nullptr, 0);
	vexo::fuzz::put(VEXO_FAN_CONFIG_DEFAULT_FILE, data, size);
	VEXO_FAN_ADJUSTER_T table;
	(void)VEXOFanAdjusterGet(&table, 1);
	(void)VEXOFanAdjusterGet(&table, 0); // frees what the first built
	VEXOAdjusterModelFree(&table);
	VEXO_ADT_ADJUSTER_T adt;
	(void)VEXOFanADTAdjusterGet(&adt, 1);
	VEXOAdjusterADTModelFree(&adt);
	VEXO_BMC_ADJUSTER_T bmc;
	(void)VEXOFanBMCAdjusterGet(&bmc, 1);
	VEXOAdjusterBMCModelFree(&bmc);
	return 0;
}
