// What the fan family's files share: the fixed tables, the number and
// attribute readers of vcemd.xml, the deep copies and frees of the records,
// and the board and adapter questions.
#pragma once

#include <cstdint>
#include <libxml/tree.h>
#include <cstdlib>
#include <string>
#include <strings.h>
#include <type_traits>
#include <vector>
#include <vexohw/fan_config.h>

#include "frame/err.h"
#include "frame/xml.h"

namespace vexo::fan {

// One row of the table types: element name, short name in alert_config
// (null when none) and adapter device id (0 when none).
struct TableTypeRow {
	int type;
	const char *element;
	const char *shortName;
	int device;
};
// The rows in ascending type order; null past the end.
const TableTypeRow *tableTypeRow(int type);
inline constexpr int kTableTypeFirst = 1;
inline constexpr int kTableTypeLast = 25;

// The alert_config name chain: short names and element names, but neither
// "temperature" nor the SAS element name. 0 when unknown.
int alertNameType(const char *name);
// The names a BMC alert knows (disk, sysdisk, cpu, m2, sas, u2), else 0.
int bmcAlertNameType(const char *name);
// "pwm1".."pwm3" -> 1..3, else 0.
uint32_t pwmName(const char *text);
uint32_t pwmSensorType(const char *text);
uint32_t sensorName(const char *text);

// The display text of a speed code ("HIGH", "40%25hz", "UNKNOWN").
std::string speedText(uint32_t code);

// Whether a table of this type is kept in a group of this name: the shared
// disk_temperature element is type 4 in an ebox group and type 2 elsewhere.
bool typeBelongsToGroup(int type, int configName);

// Whether the maker's adapter with this subsystem device id is in the box.
bool nicInserted(int vendor, int device);

// Names compared without regard to case.
bool nameIs(const xmlNode *n, const char *name);
// The text of an element or attribute node, trimmed; "" when none.
std::string content(const xmlNode *n);

// A number of vcemd.xml: base 10, surrounding blanks allowed, nothing else.
// On a bad one logs "<what> ... is not a number" and gives false.
bool readU32(const std::string &text, uint32_t &out, const char *what);
bool readI32(const std::string &text, int32_t &out, const char *what);

// Calls fn(name, value) for each attribute in document order; stops at the
// first false and returns it.
template <typename F>
bool eachAttribute(const xmlNode *n, F &&fn)
{
	for (const xmlAttr *a = n->properties; a; a = a->next)
		if (!fn(reinterpret_cast<const char *>(a->name), content(reinterpret_cast<const xmlNode *>(a))))
			return false;
	return true;
}

// A 32-byte owned copy of a hw_version value, or null (logged) when out of memory.
char *hwVersionCopy(const char *text);

// Record frees (each also frees its list successors where it says so).
void freeTables(VEXO_FAN_TABLE_T *t);
void freeConfig(VEXO_FAN_CONFIG_T *c);
void freeAdtConfig(VEXO_ADT_CONFIG_T *c);
void freeBmcConfig(VEXO_BMC_CONFIG_T *c);

// The element children of a node.
template <typename F>
void eachElement(const xmlNode *n, F &&fn)
{
	for (xmlNode *c = n ? n->children : nullptr; c; c = c->next)
		if (c->type == XML_ELEMENT_NODE)
			fn(c);
}

// The children named `element` (any case) of the root "vcemd" element of
// the file at an appliance path, in document order. False when the file
// cannot be read or is not XML (logged).
bool fileNodes(const char *path, const char *element, vexo::xml::Doc &doc, std::vector<xmlNode *> &nodes);

// Allocation of C records the caller frees with free(): zeroed, null when
// out of memory.
template <typename T>
T *allocZeroed(std::size_t n = 1)
{
	return static_cast<T *>(std::calloc(n ? n : 1, sizeof(T)));
}

} // namespace vexo::fan

namespace vexo::fan {

// The "internal" <fan_mapping_config> children of a controller record, one
// slot per board fan in a fresh array (each slot first set by init), each
// element's attributes read into its slot by fill. More internal mappings
// than the board has fans fail: the file is wrong.
template <typename Config, typename Init, typename Fill>
bool readInternalMapping(const xmlNode *node, Config *config, Init &&init, Fill &&fill)
{
	using Slot = std::remove_pointer_t<decltype(config->fan_mapping)>;
	int fans = VEXOFanNumGet();
	if (fans < 1)
		return false;
	std::free(config->fan_mapping);
	config->fan_mapping = allocZeroed<Slot>(fans);
	config->fan_mapping_count = config->fan_mapping ? (uint32_t)fans : 0;
	if (!config->fan_mapping)
		return false;
	for (int k = 0; k < fans; ++k)
		init(config->fan_mapping[k]);
	bool ok = true;
	int i = 0;
	eachElement(node, [&](xmlNode *c) {
		if (!ok || !nameIs(c, "fan_mapping_config"))
			return;
		std::string name;
		eachAttribute(c, [&](const char *n, const std::string &v) {
			if (strcasecmp(n, "name") == 0)
				name = v;
			return true;
		});
		if (strcasecmp(name.c_str(), "internal") != 0)
			return;
		if (i >= fans) {
			vlog(LOG_ERR, "%s:%d <fan_mapping_config> %d is beyond the board's %d fans", VEXO_AT, i + 1, fans);
			ok = false;
			return;
		}
		ok = fill(c, config->fan_mapping[i++]);
	});
	return ok;
}


// The steps every file parser takes: read, one record per element, parse
// each, then the derived full-speed records when the product drives fans.
// What was built stays in the model on failure, for the caller's free.
template <typename Model, typename Config, typename One, typename Full>
int parseFile(const char *path, Model *model, const char *element, const char *shownPath, One &&parseOne,
	      Full &&fullSpeed, const char *fullName)
{
	if (!path || !model)
		return -1;
	vexo::xml::Doc doc;
	std::vector<xmlNode *> nodes;
	if (!fileNodes(path, element, doc, nodes))
		return -1;
	if (nodes.empty()) {
		vlog(LOG_ERR, "%s:%d Error: [%s] result nodes is %d", VEXO_AT, shownPath, 0);
		return -1;
	}
	model->configs = allocZeroed<Config>(nodes.size());
	if (!model->configs) {
		vlog(LOG_ERR, "%s:%d malloc error size [%zd]", VEXO_AT, (ssize_t)(nodes.size() * sizeof(Config)));
		model->count = 0;
		return -1;
	}
	model->count = (uint32_t)nodes.size();
	for (uint32_t i = 0; i < model->count; ++i)
		if (parseOne(nodes[i], &model->configs[i]) != 0)
			return -1;
	if (VLIBCSupportGet("support_fan") && fullSpeed(model) != 0) {
		vlog(LOG_ERR, "%s:%d %s() fail", VEXO_AT, fullName);
		return -1;
	}
	return 0;
}

// Appends `item` at *tail and moves the tail on.
template <typename T>
void append(T **&tail, T *item)
{
	*tail = item;
	tail = &item->next;
}

} // namespace vexo::fan
