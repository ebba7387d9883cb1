// The BMC model: a management controller drives the fans; the library
// gives it alert limits per source and the order of the board's fans.
#include <cstring>
#include <memory>
#include <strings.h>

#include "fan/fan_private.h"
#include "frame/err.h"

using namespace vexo::fan;

namespace {

bool is(const char *a, const char *b) { return strcasecmp(a, b) == 0; }

int readBmcAlerts(const xmlNode *node, VEXO_BMC_CONFIG_T *config)
{
	VEXO_BMC_ALERT_T **tail = &config->alerts;
	while (*tail)
		tail = &(*tail)->next;
	bool ok = true;
	eachElement(node, [&](xmlNode *c) {
		if (!ok || !nameIs(c, "alert_config"))
			return;
		std::unique_ptr<VEXO_BMC_ALERT_T, decltype(&std::free)> a(allocZeroed<VEXO_BMC_ALERT_T>(), &std::free);
		if (!a) {
			ok = false;
			return;
		}
		ok = eachAttribute(c, [&](const char *name, const std::string &v) {
			constexpr struct {
				const char *name;
				int32_t VEXO_BMC_ALERT_T::*field;
			} kFields[] = {
				{"alert_temp", &VEXO_BMC_ALERT_T::alert_temp},
				{"shutdown_temp", &VEXO_BMC_ALERT_T::shutdown_temp},
				{"threshold", &VEXO_BMC_ALERT_T::threshold},
				{"period", &VEXO_BMC_ALERT_T::period},
				{"fullspd_temp", &VEXO_BMC_ALERT_T::fullspd_temp},
				{"fullspd_hyst", &VEXO_BMC_ALERT_T::fullspd_hyst},
			};
			if (is(name, "name"))
				a->name = static_cast<FAN_TABLE_TYPE>(bmcAlertNameType(v.c_str()));
			for (const auto &f : kFields)
				if (is(name, f.name))
					return readI32(v, a.get()->*f.field, "alert_config");
			return true;
		});
		if (ok)
			append(tail, a.release());
	});
	if (!ok) {
		vlog(LOG_ERR, "%s:%d BMC Fan alert parse fail", VEXO_AT);
		return -1;
	}
	return 0;
}

int readBmcMapping(const xmlNode *node, VEXO_BMC_CONFIG_T *config)
{
	bool ok = readInternalMapping(
		node, config, [](uint32_t &) {},
		[](xmlNode *c, uint32_t &slot) {
			return eachAttribute(c, [&](const char *n, const std::string &v) {
				return !is(n, "order") || readU32(v, slot, "fan_mapping_config");
			});
		});
	if (!ok) {
		vlog(LOG_ERR, "%s:%d BMC Internal Fan Mapping parse fail", VEXO_AT);
		return -1;
	}
	return 0;
}

} // namespace

extern "C" VEXO_API int VEXOFanParsingAdjustBMCModel(xmlNode *node, VEXO_BMC_CONFIG_T *config) try {
	if (!node || !config)
		return -1;
	bool ok = eachAttribute(node, [&](const char *name, const std::string &v) {
		if (is(name, "hw_version")) {
			std::free(config->hw_version);
			config->hw_version = hwVersionCopy(v.c_str());
		} else if (is(name, "type")) {
			VEXOFanConfigTypeMatch(v.c_str(), &config->type);
		} else if (is(name, "alert_duty")) {
			return readU32(v, config->alert_duty, "bmc_fan_config");
		}
		return true;
	});
	if (!ok || readBmcAlerts(node, config) != 0)
		return -1;
	return readBmcMapping(node, config);
}
VEXO_C_CATCH(-1)

extern "C" VEXO_API int VEXOFanParsingBMCConfig(const char *path, VEXO_BMC_ADJUSTER_T *model) try {
	// The message names the ADT path for an empty BMC result, as the
	// appliance's tools have always matched it.
	return parseFile<VEXO_BMC_ADJUSTER_T, VEXO_BMC_CONFIG_T>(
		path, model, "bmc_fan_config", "/vcemd/adt_fan_config",
		[](xmlNode *n, VEXO_BMC_CONFIG_T *c) {
			c->type = DUAL_MODE_LOW;
			return VEXOFanParsingAdjustBMCModel(n, c);
		},
		VEXOFanAdjusterConfigFullSpeedBMC, "VEXOFanAdjusterConfigFullSpeedBMC");
}
VEXO_C_CATCH(-1)
