// SMART attribute list entries: allocation, the status rule and freeing.
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "smartctl/smart_info_list.h"
#include "frame/boundary.h"

namespace vexo::smart {
namespace {

char *copy(std::string_view s, bool &ok)
{
	char *c = ::strndup(s.data(), s.size());
	if (!c)
		ok = false;
	return c;
}

// A plain decimal number: optional sign, digits, nothing else. Base 10
// always, since the columns are printed with leading zeros ("010").
bool decimal(const char *s, long &out)
{
	if (!s || !*s)
		return false;
	errno = 0;
	char *end = nullptr;
	long v = std::strtol(s, &end, 10);
	if (errno != 0 || end == s || *end != '\0' || (*s != '-' && *s != '+' && (*s < '0' || *s > '9')))
		return false;
	out = v;
	return true;
}

} // namespace

SmartInfoEntry *newEntry(std::string_view id, std::string_view name, std::string_view value, std::string_view worst,
			 std::string_view threshold, std::string_view raw)
{
	auto *e = static_cast<SmartInfoEntry *>(std::calloc(1, sizeof(SmartInfoEntry)));
	if (!e)
		return nullptr;
	bool ok = true;
	e->id = copy(id, ok);
	e->name = copy(name, ok);
	e->value = copy(value, ok);
	e->worst = copy(worst, ok);
	e->threshold = copy(threshold, ok);
	e->raw = copy(raw, ok);
	if (!ok) {
		VEXODiskSmartInfoFree(e);
		return nullptr;
	}
	return e;
}

bool setField(char *&field, const char *text)
{
	char *c = ::strdup(text ? text : "");
	if (!c)
		return false;
	std::free(field);
	field = c;
	return true;
}

uint32_t attrStatus(const char *value, const char *worst, const char *threshold)
{
	long v = 0, w = 0, t = 0;
	if (!decimal(threshold, t) || t == 0 || !decimal(value, v))
		return SMART_ATTR_STATUS_GOOD;
	if (v <= t)
		return SMART_ATTR_STATUS_FAILING_NOW;
	if (decimal(worst, w) && w <= t)
		return SMART_ATTR_STATUS_FAILED_PAST;
	return SMART_ATTR_STATUS_GOOD;
}

} // namespace vexo::smart

extern "C" VEXO_API void VEXODiskSmartInfoFree(SmartInfoEntry *list)
try {
	while (list) {
		SmartInfoEntry *next = list->next;
		std::free(list->name);
		std::free(list->id);
		std::free(list->value);
		std::free(list->worst);
		std::free(list->threshold);
		std::free(list->raw);
		std::free(list);
		list = next;
	}
} VEXO_C_CATCH_VOID
