// Freeing the three models, and the readers every parser of vcemd.xml shares.
#include <cstdlib>
#include <cstring>
#include <strings.h>

#include "fan/fan_private.h"
#include "frame/err.h"
#include "frame/path_read.h"
#include "frame/xml.h"

namespace vexo::fan {

bool nameIs(const xmlNode *n, const char *name)
{
	return n && n->name && strcasecmp(reinterpret_cast<const char *>(n->name), name) == 0;
}

std::string content(const xmlNode *n)
{
	xml::Text t(xmlNodeGetContent(n));
	if (!t)
		return {};
	return std::string(vexo::trimSpace(reinterpret_cast<const char *>(t.get())));
}

bool readU32(const std::string &text, uint32_t &out, const char *what)
{
	uint64_t v = 0;
	if (!vexo::parseU64(text, v) || v > UINT32_MAX) {
		vlog(LOG_ERR, "%s:%d <%s> [%s] is not a number", VEXO_AT, what, text.c_str());
		return false;
	}
	out = static_cast<uint32_t>(v);
	return true;
}

bool readI32(const std::string &text, int32_t &out, const char *what)
{
	if (!vexo::parseS32(text, out)) {
		vlog(LOG_ERR, "%s:%d <%s> [%s] is not a number", VEXO_AT, what, text.c_str());
		return false;
	}
	return true;
}

bool fileNodes(const char *path, const char *element, xml::Doc &doc, std::vector<xmlNode *> &nodes)
{
	bool missing = false;
	doc = xml::readFile(path, &missing);
	if (!doc) {
		vlog(LOG_ERR, "%s:%d %s [%s]", VEXO_AT, missing ? "No such file" : "Fail to parse", path);
		return false;
	}
	xmlNode *root = xmlDocGetRootElement(doc.get());
	if (nameIs(root, "vcemd"))
		eachElement(root, [&](xmlNode *c) {
			if (nameIs(c, element))
				nodes.push_back(c);
		});
	return true;
}

char *hwVersionCopy(const char *text)
{
	char *p = static_cast<char *>(std::calloc(1, VEXO_FAN_HW_VERSION_SIZE));
	if (!p) {
		vlog(LOG_ERR, "%s:%d calloc fan_config szHWVersion attribute error", VEXO_AT);
		return nullptr;
	}
	if (text)
		std::strncpy(p, text, VEXO_FAN_HW_VERSION_SIZE - 1);
	return p;
}

void freeTables(VEXO_FAN_TABLE_T *t)
{
	while (t) {
		VEXO_FAN_TABLE_T *next = t->next;
		std::free(t->levels);
		std::free(t);
		t = next;
	}
}

void freeConfig(VEXO_FAN_CONFIG_T *c)
{
	std::free(c->hw_version);
	freeTables(c->tables);
	std::free(c->modules);
	std::memset(c, 0, sizeof *c);
}

template <typename T>
static void freeList(T *p)
{
	while (p) {
		T *next = p->next;
		std::free(p);
		p = next;
	}
}

void freeAdtConfig(VEXO_ADT_CONFIG_T *c)
{
	std::free(c->hw_version);
	freeList(c->alerts);
	freeList(c->sensors);
	freeList(c->pwms);
	std::free(c->fan_mapping);
	for (VEXO_ADT_MANUAL_TABLE_T *t = c->manual_tables; t;) {
		VEXO_ADT_MANUAL_TABLE_T *next = t->next;
		std::free(t->levels);
		std::free(t);
		t = next;
	}
	std::memset(c, 0, sizeof *c);
}

void freeBmcConfig(VEXO_BMC_CONFIG_T *c)
{
	std::free(c->hw_version);
	freeList(c->alerts);
	std::free(c->fan_mapping);
	std::memset(c, 0, sizeof *c);
}

} // namespace vexo::fan

using namespace vexo::fan;

extern "C" VEXO_API void VEXOAdjusterModelFree(VEXO_FAN_ADJUSTER_T *model)
{
	if (!model)
		return;
	for (uint32_t i = 0; model->configs && i < model->count; ++i)
		freeConfig(&model->configs[i]);
	std::free(model->configs);
	std::memset(model, 0, sizeof *model);
}

extern "C" VEXO_API void VEXOAdjusterADTModelFree(VEXO_ADT_ADJUSTER_T *model)
{
	if (!model)
		return;
	for (uint32_t i = 0; model->configs && i < model->count; ++i)
		freeAdtConfig(&model->configs[i]);
	std::free(model->configs);
	std::memset(model, 0, sizeof *model);
}

extern "C" VEXO_API void VEXOAdjusterBMCModelFree(VEXO_BMC_ADJUSTER_T *model)
{
	if (!model)
		return;
	for (uint32_t i = 0; model->configs && i < model->count; ++i)
		freeBmcConfig(&model->configs[i]);
	std::free(model->configs);
	std::memset(model, 0, sizeof *model);
}
