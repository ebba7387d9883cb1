// The fan loop's account of a decision in the log: the group, the speed in
// force, and for every table its node and what its source reads now.
#include <cstdint>
#include <cstring>
#include <string>
#include <vexohw/fan_table.h>

#include "fan/fan_board.h"
#include "fan/fan_private.h"
#include "frame/boundary.h"
#include "frame/err.h"

namespace {

const char *groupLabel(int name)
{
	switch (name) {
	case FAN_CONFIG_NAME_INTERNAL: return "INTERNAL";
	case FAN_CONFIG_NAME_EBOX: return "ENCLOSURE";
	case FAN_CONFIG_NAME_CPUFAN: return "CPUFAN";
	default:
		return name >= FAN_CONFIG_NAME_NIC_FIRST && name <= FAN_CONFIG_NAME_NIC_LAST && name != 10 ? "EXTERNAL_NIC"
													    : "UNKNOWN";
	}
}

// The label of a source kind; 9 (SAS host) has none.
const char *sourceLabel(int source)
{
	static const char *const kLabels[] = {"", "thermal", "disk", "cpu", "ssd", "ebox", "", "unknown", "external_nic", ""};
	return source >= 0 && source < (int)std::size(kLabels) ? kLabels[source] : "";
}

} // namespace

extern "C" VEXO_API int VEXOFanDebugPrint(VEXO_FAN_HANDLE_T *h, VEXO_FAN_TABLE_T *tables, VEXO_FAN_STATUS_T *status,
					  int force_line) try {
	if (!h || !tables || !status) {
		vlog(LOG_ERR, "%s:%d FanDebugPrint fail wrong parameters", VEXO_AT);
		return -1;
	}
	std::string label = groupLabel(h->config_name);
	// On a SAS model a unit is told apart by its disks' three-letter device.
	const char *first = h->ebox ? VLIBCSzListGet(h->ebox->disks, 0) : nullptr;
	if (h->config_name == FAN_CONFIG_NAME_EBOX && first && VLIBCSupportSAS() > 0) {
		if (std::strncmp(first, "/dev/", 5) == 0)
			first += 5;
		label = "EBOX_" + std::string(first).substr(0, 3);
	}
	if (force_line)
		vlog(LOG_INFO, "%s:%d fan_type:%s **Speed change**: \n", VEXO_AT, label.c_str());
	else
		vlog(LOG_INFO, "%s:%d fan_type:%s \n", VEXO_AT, label.c_str());
	vlog(LOG_INFO, "%s:%d current_speed %s table:<%s> \n", VEXO_AT, vexo::fan::speedText(status->speed).c_str(),
	     VEXOFanTableNameGet(status->table_type));
	uint16_t reg = 0;
	if (h->config_name == FAN_CONFIG_NAME_INTERNAL && vexo::fan::fanRegisterGet(reg) == 0)
		vlog(LOG_INFO, "%s:%d fan_register %x\n ", VEXO_AT, reg);
	for (const VEXO_FAN_STATUS_T *n = h->status_list; n; n = n->next)
		vlog(LOG_INFO, "%s:%d %s speed %s, threshold %d, threshold_cur %d, iCurrTemp %d", VEXO_AT,
		     VEXOFanTableNameGet(n->table_type), vexo::fan::speedText(n->speed).c_str(), (int)n->threshold,
		     (int)n->count, n->temperature);
	for (VEXO_FAN_TABLE_T *t = tables; t; t = t->next) {
		if (!t->ops)
			continue;
		const char *name = VEXOFanTableNameGet(t->type);
		VEXO_FAN_READING_T r{};
		int source = 0;
		if (t->ops->DebugTemperatureGet && t->ops->DebugTemperatureGet(&r, h, &source) && r.temperature > 0) {
			vlog(LOG_INFO, "%s:%d [fake]: <%s> %d \n", VEXO_AT, name, r.temperature);
			continue;
		}
		if (!t->ops->TemperatureGet)
			continue;
		r = VEXO_FAN_READING_T{};
		source = t->ops->TemperatureGet(&r, h);
		if (source != FAN_SOURCE_NONE && source != FAN_SOURCE_HIBERNATE)
			vlog(LOG_INFO, "%s:%d [real]: <%s> %s %d \n", VEXO_AT, name, sourceLabel(source), r.temperature);
	}
	return 0;
}
VEXO_C_CATCH(-1)
