// The derived "full" records: each model gets, after parsing, records of
// the DUAL_MODE_FULL kind built from its base records, so that a user's
// "full" setting finds tables. Temperatures and actions stay, so a group
// at full speed still shuts down when it must.
#include <cstring>
#include <memory>

#include "fan/fan_private.h"
#include "frame/err.h"

using namespace vexo::fan;

namespace {

// The highest speed of a table. Duty codes compare by their duty byte;
// the comparison is against the current best minus 1000 as it stands.
uint32_t highestSpeed(const VEXO_FAN_TABLE_T *t)
{
	uint32_t best = 0;
	for (uint32_t i = 0; i < t->count; ++i) {
		uint32_t code = t->levels[i].speed;
		if (code <= 999) {
			if (code > best)
				best = code;
		} else if (((code - 1000) & 0xFF) > ((best - 1000) & 0xFF)) {
			best = code;
		}
	}
	return best;
}

template <typename T>
T *copyOne(const T *src)
{
	T *p = allocZeroed<T>();
	if (p) {
		*p = *src;
		p->next = nullptr;
	}
	return p;
}

// Copies a list in order; false when out of memory (what was copied stays in *out).
template <typename T>
bool copyList(const T *src, T **out)
{
	for (; src; src = src->next) {
		T *p = copyOne(src);
		if (!p)
			return false;
		*out = p;
		out = &p->next;
	}
	return true;
}

bool copyText(const char *src, char **out)
{
	if (!src)
		return true;
	*out = hwVersionCopy(src);
	return *out != nullptr;
}

template <typename T>
bool copyArray(const T *src, std::size_t n, T **out)
{
	if (!src)
		return true;
	*out = allocZeroed<T>(n);
	if (!*out)
		return false;
	std::memcpy(*out, src, n * sizeof(T));
	return true;
}

// Grows a C array by one zeroed record; false when out of memory.
template <typename T>
bool grow(T **array, uint32_t count)
{
	T *p = static_cast<T *>(std::realloc(*array, (count + 1) * sizeof(T)));
	if (!p)
		return false;
	std::memset(&p[count], 0, sizeof(T));
	*array = p;
	return true;
}

int fullTables(const VEXO_FAN_CONFIG_T &src, VEXO_FAN_CONFIG_T &dst)
{
	VEXO_FAN_TABLE_T **tail = &dst.tables;
	for (const VEXO_FAN_TABLE_T *t = src.tables; t; t = t->next) {
		if (!t->levels || t->count == 0) {
			vlog(LOG_ERR, "%s:%d Wrong param.", VEXO_AT);
			return -1;
		}
		VEXO_FAN_TABLE_T *c = copyOne(t);
		if (!c)
			return -1;
		c->levels = nullptr;
		*tail = c;
		tail = &c->next;
		if (!copyArray(t->levels, t->count, &c->levels))
			return -1;
		uint32_t top = highestSpeed(t);
		for (uint32_t i = 0; i < c->count; ++i)
			c->levels[i].speed = static_cast<FAN_SPEED>(top);
	}
	return 0;
}

} // namespace

extern "C" VEXO_API int VEXOFanAdjusterConfigFullSpeed(VEXO_FAN_ADJUSTER_T *model) try {
	if (!model)
		return -1;
	bool dual = VLIBCSupportGet("support_fan_adjust_dual_mode");
	FAN_CONFIG_TYPE internalBase = dual ? DUAL_MODE_HIGH : DUAL_MODE_LOW;
	FAN_CONFIG_TYPE eboxBase = dual ? DUAL_MODE_HIGH_EBOX : DUAL_MODE_LOW_EBOX;
	// Only the records there at the start: a derived one is never a base.
	uint32_t bases = model->count;
	for (uint32_t i = 0; i < bases; ++i) {
		FAN_CONFIG_TYPE type = model->configs[i].type;
		if (type != internalBase && type != eboxBase)
			continue;
		if (!grow(&model->configs, model->count))
			return -1;
		const VEXO_FAN_CONFIG_T &src = model->configs[i];
		VEXO_FAN_CONFIG_T dst{};
		dst.type = type == internalBase ? DUAL_MODE_FULL : DUAL_MODE_FULL_EBOX;
		dst.ops = VEXOFanConfigOpsGet(VEXOFanConfigNameGet(dst.type));
		dst.period = src.period;
		dst.threshold = src.threshold;
		dst.flag0 = src.flag0;
		dst.flag1 = src.flag1;
		dst.warning_temp = src.warning_temp;
		dst.hibernation_speed = src.hibernation_speed;
		if (!copyText(src.hw_version, &dst.hw_version) ||
		    !copyArray(src.modules, VEXO_FAN_MODULE_MAX, &dst.modules) || fullTables(src, dst) != 0) {
			freeConfig(&dst);
			return -1;
		}
		model->configs[model->count++] = dst;
	}
	return 0;
}
VEXO_C_CATCH(-1)

extern "C" VEXO_API int VEXOADTIsManualMode(const VEXO_ADT_PWM_T *pwms)
{
	if (!pwms)
		return 0;
	for (; pwms; pwms = pwms->next)
		if (pwms->sensor_type != VEXO_ADT_SENSOR_TYPE_MANUAL)
			return 0;
	return 1;
}

extern "C" VEXO_API int VEXOFanAdjusterConfigFullSpeedADT(VEXO_ADT_ADJUSTER_T *model) try {
	if (!model)
		return -1;
	if (!grow(&model->configs, model->count))
		return -1;
	const VEXO_ADT_CONFIG_T *src = nullptr;
	for (uint32_t i = 0; i < model->count && !src; ++i)
		if (model->configs[i].type == DUAL_MODE_HIGH)
			src = &model->configs[i];
	if (!src) {
		vlog(LOG_ERR, "%s:%d Cannot find HIGH fan table.", VEXO_AT);
		return -1;
	}
	bool manual = VEXOADTIsManualMode(src->pwms);
	if (!src->alerts || !src->pwms || !src->fan_mapping || (!manual && !src->sensors) ||
	    (manual && !src->manual_tables)) {
		vlog(LOG_ERR, "%s:%d Wrong param", VEXO_AT);
		return -1;
	}
	VEXO_ADT_CONFIG_T dst{};
	dst.type = DUAL_MODE_FULL;
	dst.full_speed = src->full_speed;
	dst.full_speed_hyst = src->full_speed_hyst;
	dst.peci_offset = src->peci_offset;
	dst.skip_check_temp = src->skip_check_temp;
	dst.fan_mapping_count = src->fan_mapping_count;
	bool ok = copyText(src->hw_version, &dst.hw_version) && copyList(src->alerts, &dst.alerts) &&
		  copyList(src->pwms, &dst.pwms);
	if (ok && manual) {
		// One level per table, the first, at the top of the duty range.
		VEXO_ADT_MANUAL_TABLE_T **tail = &dst.manual_tables;
		for (const VEXO_ADT_MANUAL_TABLE_T *t = src->manual_tables; ok && t; t = t->next) {
			VEXO_ADT_MANUAL_TABLE_T *c = copyOne(t);
			ok = c != nullptr;
			if (!ok)
				break;
			c->levels = nullptr;
			c->count = 0;
			*tail = c;
			tail = &c->next;
			c->levels = allocZeroed<VEXO_ADT_MANUAL_LEVEL_T>();
			ok = c->levels != nullptr;
			if (ok && t->levels && t->count > 0) {
				c->levels[0] = t->levels[0];
				c->count = 1;
			} else if (ok) {
				c->count = 1;
			}
			if (ok)
				c->levels[0].fan_speed = 255;
		}
	} else if (ok) {
		ok = copyList(src->sensors, &dst.sensors);
	}
	ok = ok && copyArray(src->fan_mapping, src->fan_mapping_count, &dst.fan_mapping);
	if (!ok) {
		freeAdtConfig(&dst);
		return -1;
	}
	model->configs[model->count++] = dst;
	return 0;
}
VEXO_C_CATCH(-1)

extern "C" VEXO_API int VEXOFanAdjusterConfigFullSpeedBMC(VEXO_BMC_ADJUSTER_T *model) try {
	if (!model)
		return -1;
	FAN_CONFIG_TYPE base = VLIBCSupportGet("support_fan_adjust_dual_mode") ? DUAL_MODE_HIGH : DUAL_MODE_LOW;
	if (!grow(&model->configs, model->count))
		return -1;
	const VEXO_BMC_CONFIG_T *src = nullptr;
	for (uint32_t i = 0; i < model->count && !src; ++i)
		if (model->configs[i].type == base)
			src = &model->configs[i];
	if (!src || !src->alerts || !src->fan_mapping) {
		vlog(LOG_ERR, "%s:%d Wrong param", VEXO_AT);
		return -1;
	}
	VEXO_BMC_CONFIG_T dst{};
	dst.type = DUAL_MODE_FULL;
	dst.value0 = src->value0;
	dst.value1 = src->value1;
	dst.value2 = src->value2;
	dst.alert_duty = src->alert_duty;
	dst.fan_mapping_count = src->fan_mapping_count;
	if (!copyText(src->hw_version, &dst.hw_version) || !copyList(src->alerts, &dst.alerts) ||
	    !copyArray(src->fan_mapping, src->fan_mapping_count, &dst.fan_mapping)) {
		freeBmcConfig(&dst);
		return -1;
	}
	model->configs[model->count++] = dst;
	return 0;
}
VEXO_C_CATCH(-1)
