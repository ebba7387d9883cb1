// VEXODiskParseXmlOperatingTemp: a disk's lowest and highest temperatures
// from the temperature history document (its form is in disk_enum.h).
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <libxml/parser.h>
#include <libxml/tree.h>
#include <memory>
#include <string>
#include <unistd.h>

#include <vexohw/disk_enum.h>

#include "frame/err.h"
#include "frame/xml.h"

namespace {

vexo::xml::Text attr(xmlNode *n, const char *name)
{
	return vexo::xml::prop(n, name);
}

// A whole decimal number that fits an int, nothing else.
bool number(const xmlChar *text, int32_t *out)
{
	if (!text || !*text)
		return false;
	const char *s = reinterpret_cast<const char *>(text);
	char *end = nullptr;
	errno = 0;
	long v = std::strtol(s, &end, 10);
	if (errno || *end || v < INT32_MIN || v > INT32_MAX)
		return false;
	*out = static_cast<int32_t>(v);
	return true;
}

} // namespace

extern "C" {

VEXO_API int VEXODiskParseXmlOperatingTemp(const char *file, SharedDiskInfo *info)
try {
	if (!file || !info) {
		vlog(LOG_ERR, "%s:%d Bad parameters", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	bool missing = false;
	vexo::xml::Doc doc = vexo::xml::readFile(file, &missing);
	if (missing) {
		VEXO_ERR(VEXO_ERR_NOENT);
		return -1;
	}
	xmlNode *top = vexo::xml::root(doc, "disk_temperature");
	if (!top) {
		vlog(LOG_ERR, "%s:%d Failed to parse %s", VEXO_AT, file);
		VEXO_ERR(VEXO_ERR_READ);
		return -1;
	}
	for (xmlNode *n = top->children; n; n = n->next) {
		if (!vexo::xml::named(n, "disk"))
			continue;
		auto path = attr(n, "path");
		if (!path || std::strcmp(reinterpret_cast<const char *>(path.get()), info->info.path) != 0)
			continue;
		int32_t lo = 0, hi = 0, countdown = 0;
		if (!number(attr(n, "min").get(), &lo) || !number(attr(n, "max").get(), &hi))
			break;
		info->temperatureMin = lo;
		info->temperatureMax = hi;
		if (number(attr(n, "countdown").get(), &countdown))
			info->warningCountdown = countdown;
		return 0;
	}
	VEXO_ERR(VEXO_ERR_NOT_FOUND);
	return -1;
} VEXO_C_CATCH(-1)

} // extern "C"
