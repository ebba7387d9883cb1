// The ADT model: boards whose fan controller runs the fans by itself from
// alert limits, sensor settings or manual tables, with a mapping of the
// board's fans to its PWM outputs.
#include <cstring>
#include <memory>
#include <strings.h>

#include "fan/fan_private.h"
#include "frame/err.h"

using namespace vexo::fan;

namespace {

bool is(const char *a, const char *b) { return strcasecmp(a, b) == 0; }

bool yes(const std::string &v) { return strcasecmp(v.c_str(), "yes") == 0; }

bool readU8(const std::string &text, uint8_t &out, const char *what)
{
	uint32_t v = 0;
	if (!readU32(text, v, what))
		return false;
	if (v > 255) {
		vlog(LOG_ERR, "%s:%d <%s> [%s] is out of range", VEXO_AT, what, text.c_str());
		return false;
	}
	out = (uint8_t)v;
	return true;
}

template <typename T>
struct ListFree {
	void operator()(T *p) const
	{
		while (p) {
			T *next = p->next;
			std::free(p);
			p = next;
		}
	}
};
template <typename T>
using Owned = std::unique_ptr<T, ListFree<T>>;

// Whether a name belongs to one of the maker's adapters that is not in the box.
bool absentAdapter(const char *name)
{
	int vendor = 0, device = 0;
	return VEXOFanIsVexoNicConfigName(name, &vendor, &device) && !nicInserted(vendor, device);
}

int readAlerts(const xmlNode *node, VEXO_ADT_CONFIG_T *config)
{
	VEXO_ADT_ALERT_T **tail = &config->alerts;
	while (*tail)
		tail = &(*tail)->next;
	Owned<VEXO_ADT_ALERT_T> nic;
	bool ok = true;
	eachElement(node, [&](xmlNode *c) {
		if (!ok || !nameIs(c, "alert_config"))
			return;
		Owned<VEXO_ADT_ALERT_T> a(allocZeroed<VEXO_ADT_ALERT_T>());
		if (!a) {
			ok = false;
			return;
		}
		bool absent = false;
		ok = eachAttribute(c, [&](const char *name, const std::string &v) {
			if (is(name, "name")) {
				a->name = static_cast<FAN_TABLE_TYPE>(alertNameType(v.c_str()));
				absent = absentAdapter(v.c_str());
				return true;
			}
			constexpr struct {
				const char *name;
				int32_t VEXO_ADT_ALERT_T::*field;
			} kFields[] = {
				{"alert_temp", &VEXO_ADT_ALERT_T::alert_temp},
				{"underclock_temp", &VEXO_ADT_ALERT_T::underclock_temp},
				{"turbo_temp", &VEXO_ADT_ALERT_T::turbo_temp},
				{"shutdown_temp", &VEXO_ADT_ALERT_T::shutdown_temp},
				{"threshold", &VEXO_ADT_ALERT_T::threshold},
				{"period", &VEXO_ADT_ALERT_T::period},
				{"full_speed", &VEXO_ADT_ALERT_T::full_speed},
			};
			for (const auto &f : kFields)
				if (is(name, f.name))
					return readI32(v, a.get()->*f.field, "alert_config");
			if (is(name, "full_speed_hyst")) {
				int32_t h = 0;
				if (!readI32(v, h, "alert_config"))
					return false;
				a->full_speed_hyst = a->full_speed - h;
			}
			return true;
		});
		if (!ok || absent)
			return;
		if (a->name == FAN_TABLE_NIC) {
			if (!nic) // a second generic record is dropped
				nic = std::move(a);
			return;
		}
		append(tail, a.release());
	});
	if (!ok) {
		vlog(LOG_ERR, "%s:%d ADT Fan alert parse fail", VEXO_AT);
		return -1;
	}
	if (nic && !VEXOFanAllVexoNicHasAlertConfig(config->alerts))
		append(tail, nic.release());
	return 0;
}

int readPwms(const xmlNode *node, VEXO_ADT_CONFIG_T *config)
{
	VEXO_ADT_PWM_T **tail = &config->pwms;
	bool ok = true;
	eachElement(node, [&](xmlNode *c) {
		if (!ok || !nameIs(c, "pwm_config"))
			return;
		Owned<VEXO_ADT_PWM_T> p(allocZeroed<VEXO_ADT_PWM_T>());
		if (!p) {
			ok = false;
			return;
		}
		p->pwm_min_below_tmin = 1;
		ok = eachAttribute(c, [&](const char *name, const std::string &v) {
			if (is(name, "name"))
				p->name = pwmName(v.c_str());
			else if (is(name, "sensor_type"))
				p->sensor_type = pwmSensorType(v.c_str());
			else if (is(name, "high_freq"))
				p->high_freq = yes(v);
			else if (is(name, "pwm_min_below_tmin"))
				p->pwm_min_below_tmin = yes(v);
			else if (is(name, "pwm_duty_low"))
				return readU8(v, p->pwm_duty_low, "pwm_config");
			else if (is(name, "pwm_duty_high"))
				return readU8(v, p->pwm_duty_high, "pwm_config");
			return true;
		});
		if (ok)
			append(tail, p.release());
	});
	if (!ok) {
		vlog(LOG_ERR, "%s:%d ADT PWM parse fail", VEXO_AT);
		return -1;
	}
	return 0;
}

int readSensors(const xmlNode *node, VEXO_ADT_CONFIG_T *config)
{
	VEXO_ADT_SENSOR_T **tail = &config->sensors;
	bool ok = true;
	eachElement(node, [&](xmlNode *c) {
		if (!ok || !nameIs(c, "sensor_config"))
			return;
		Owned<VEXO_ADT_SENSOR_T> s(allocZeroed<VEXO_ADT_SENSOR_T>());
		if (!s) {
			ok = false;
			return;
		}
		// In attribute order: crit_hyst is taken from the therm read so far.
		ok = eachAttribute(c, [&](const char *name, const std::string &v) {
			if (is(name, "name"))
				s->name = sensorName(v.c_str());
			else if (is(name, "min"))
				return readI32(v, s->min, "sensor_config");
			else if (is(name, "therm"))
				return readI32(v, s->therm, "sensor_config");
			else if (is(name, "range"))
				return readI32(v, s->range, "sensor_config");
			else if (is(name, "crit_hyst")) {
				int32_t h = 0;
				if (!readI32(v, h, "sensor_config"))
					return false;
				s->crit_hyst = s->therm - h;
			}
			return true;
		});
		if (ok)
			append(tail, s.release());
	});
	if (!ok) {
		vlog(LOG_ERR, "%s:%d ADT Sensor parse fail", VEXO_AT);
		return -1;
	}
	return 0;
}

// The value of an element's first attribute when that attribute is "name".
std::string firstName(const xmlNode *n)
{
	const xmlAttr *a = n->properties;
	if (!a || strcasecmp(reinterpret_cast<const char *>(a->name), "name") != 0)
		return {};
	return content(reinterpret_cast<const xmlNode *>(a));
}

struct ManualFree {
	void operator()(VEXO_ADT_MANUAL_TABLE_T *t) const
	{
		if (t)
			std::free(t->levels);
		std::free(t);
	}
};

int readManualTables(const xmlNode *node, VEXO_ADT_CONFIG_T *config)
{
	int groupName = VEXOFanConfigNameGet(config->type);
	VEXO_ADT_MANUAL_TABLE_T **tail = &config->manual_tables;
	std::unique_ptr<VEXO_ADT_MANUAL_TABLE_T, ManualFree> nic;
	for (int type = kTableTypeFirst; type <= kTableTypeLast; ++type) {
		const TableTypeRow *row = tableTypeRow(type);
		if (!row || !typeBelongsToGroup(type, groupName))
			continue;
		int count = 0;
		eachElement(node, [&](xmlNode *c) { count += strcasecmp(firstName(c).c_str(), row->element) == 0; });
		if (count == 0 || absentAdapter(row->element))
			continue;
		std::unique_ptr<VEXO_ADT_MANUAL_TABLE_T, ManualFree> t(allocZeroed<VEXO_ADT_MANUAL_TABLE_T>());
		if (t)
			t->levels = allocZeroed<VEXO_ADT_MANUAL_LEVEL_T>(count);
		bool ok = t && t->levels;
		if (ok) {
			t->type = static_cast<FAN_TABLE_TYPE>(alertNameType(row->element));
			eachElement(node, [&](xmlNode *c) {
				if (!ok || !nameIs(c, "manual_config") || strcasecmp(firstName(c).c_str(), row->element) != 0)
					return;
				VEXO_ADT_MANUAL_LEVEL_T &l = t->levels[t->count];
				l.index = (int32_t)t->count++;
				ok = eachAttribute(c, [&](const char *name, const std::string &v) {
					if (is(name, "temp"))
						return readU32(v, l.temp, "manual_config");
					if (is(name, "fan_speed"))
						return readU32(v, l.fan_speed, "manual_config");
					if (is(name, "threshold"))
						return readU32(v, l.threshold, "manual_config");
					if (is(name, "period"))
						return readU32(v, l.period, "manual_config");
					return true;
				});
			});
		}
		if (!ok) {
			vlog(LOG_ERR, "%s:%d ADT Fan manual parse fail", VEXO_AT);
			return -1;
		}
		if (type == FAN_TABLE_NIC) {
			nic = std::move(t);
			continue;
		}
		append(tail, t.release());
	}
	if (nic && !VEXOFanAllVexoNicHasManualConfig(config->manual_tables))
		append(tail, nic.release());
	return 0;
}

int readAdtMapping(const xmlNode *node, VEXO_ADT_CONFIG_T *config)
{
	bool ok = readInternalMapping(
		node, config, [](VEXO_ADT_FAN_MAPPING_T &m) { m.module = -1; },
		[](xmlNode *c, VEXO_ADT_FAN_MAPPING_T &m) {
			return eachAttribute(c, [&](const char *n, const std::string &v) {
				if (is(n, "order"))
					return readU32(v, m.order, "fan_mapping_config");
				if (is(n, "module"))
					return readI32(v, m.module, "fan_mapping_config");
				if (is(n, "pwm"))
					m.pwm = pwmName(v.c_str());
				return true;
			});
		});
	if (!ok) {
		vlog(LOG_ERR, "%s:%d ADT Internal Fan Mapping parse fail", VEXO_AT);
		return -1;
	}
	return 0;
}

} // namespace

extern "C" VEXO_API int VEXOFanParsingAdjustADTModel(xmlNode *node, VEXO_ADT_CONFIG_T *config) try {
	if (!node || !config)
		return -1;
	bool ok = eachAttribute(node, [&](const char *name, const std::string &v) {
		if (is(name, "hw_version")) {
			std::free(config->hw_version);
			config->hw_version = hwVersionCopy(v.c_str());
		} else if (is(name, "type")) {
			VEXOFanConfigTypeMatch(v.c_str(), &config->type);
		} else if (is(name, "full_speed")) {
			return readI32(v, config->full_speed, "adt_fan_config");
		} else if (is(name, "full_speed_hyst")) {
			int32_t h = 0;
			if (!readI32(v, h, "adt_fan_config"))
				return false;
			config->full_speed_hyst = config->full_speed - h;
		} else if (is(name, "peci_offset")) {
			return readI32(v, config->peci_offset, "adt_fan_config");
		} else if (is(name, "skip_check_temp")) {
			return readI32(v, config->skip_check_temp, "adt_fan_config");
		}
		return true;
	});
	if (!ok || readAlerts(node, config) != 0 || readPwms(node, config) != 0)
		return -1;
	if (VEXOADTIsManualMode(config->pwms) ? readManualTables(node, config) != 0 : readSensors(node, config) != 0)
		return -1;
	return readAdtMapping(node, config);
}
VEXO_C_CATCH(-1)

extern "C" VEXO_API int VEXOFanParsingADTConfig(const char *path, VEXO_ADT_ADJUSTER_T *model) try {
	return parseFile<VEXO_ADT_ADJUSTER_T, VEXO_ADT_CONFIG_T>(
		path, model, "adt_fan_config", "/vcemd/adt_fan_config",
		[](xmlNode *n, VEXO_ADT_CONFIG_T *c) {
			c->type = DUAL_MODE_LOW;
			return VEXOFanParsingAdjustADTModel(n, c);
		},
		VEXOFanAdjusterConfigFullSpeedADT, "VEXOFanAdjusterConfigFullSpeedADT");
}
VEXO_C_CATCH(-1)
