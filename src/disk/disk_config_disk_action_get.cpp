// The disk action database: per-model vendor and action flags, read from
// /var/lib/diskaction/diskaction.xml (format in disk_state.h).
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <libxml/parser.h>
#include <libxml/tree.h>
#include <memory>
#include <optional>
#include <regex.h>
#include <string>
#include <sys/stat.h>
#include <vexohw/disk_probe.h>
#include <vexohw/disk_state.h>

#include "frame/err.h"
#include "frame/xml.h"

namespace {

struct Entry {
	std::string vendor;
	unsigned int action = 0;
};

std::optional<std::string> attr(xmlNode *n, const char *name)
{
	return vexo::xml::propString(n, name);
}

bool patternMatches(const std::string &pattern, const std::string &model)
{
	regex_t re;
	if (regcomp(&re, pattern.c_str(), REG_EXTENDED | REG_ICASE | REG_NOSUB) != 0)
		return false;
	bool m = regexec(&re, model.c_str(), 0, nullptr, 0) == 0;
	regfree(&re);
	return m;
}

bool parseAction(const std::string &text, unsigned int &out)
{
	errno = 0;
	char *end = nullptr;
	unsigned long v = std::strtoul(text.c_str(), &end, 0);
	if (errno || end == text.c_str() || *end != '\0' || v > 0xFFFFFFFFul)
		return false;
	out = static_cast<unsigned int>(v);
	return true;
}

Entry entryOf(xmlNode *n)
{
	Entry e;
	if (auto v = attr(n, "vendor"))
		e.vendor = *v;
	if (auto a = attr(n, "action"); a && !parseAction(*a, e.action))
		vlog(LOG_ERR, "%s:%d Bad action [%s] in %s", VEXO_AT, a->c_str(), VEXO_DISK_ACTION_DB);
	return e;
}

enum class Lookup { Found, Unlisted, Failed };

// The entry of the disk's model: an exact model first, else the first
// pattern that matches.
Lookup lookup(const char *path, Entry &out)
{
	char model[128] = {};
	if (VEXOLnxDiskGetModel(path, model, sizeof(model)) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to get model of %s", VEXO_AT, path);
		VEXO_ERR_PASS();
		return Lookup::Failed;
	}
	bool missing = false;
	vexo::xml::Doc doc = vexo::xml::readFile(VEXO_DISK_ACTION_DB, &missing);
	if (missing)
		return Lookup::Unlisted; // a product without a database lists nothing
	xmlNode *top = vexo::xml::root(doc, "diskaction");
	if (!top) {
		vlog(LOG_ERR, "%s:%d Failed to parse %s", VEXO_AT, VEXO_DISK_ACTION_DB);
		VEXO_ERR(VEXO_ERR_READ);
		return Lookup::Failed;
	}
	xmlNode *byPattern = nullptr;
	for (xmlNode *n = top->children; n; n = n->next) {
		if (!vexo::xml::named(n, "disk"))
			continue;
		if (auto m = attr(n, "model"); m && *m == model) {
			out = entryOf(n);
			return Lookup::Found;
		}
		if (auto p = attr(n, "pattern"); p && !byPattern && patternMatches(*p, model))
			byPattern = n;
	}
	if (!byPattern)
		return Lookup::Unlisted;
	out = entryOf(byPattern);
	return Lookup::Found;
}

} // namespace

extern "C" {

VEXO_API int VEXODiskConfigDiskActionGet(const char *path, unsigned int *flags)
try {
	if (!path || !flags) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	Entry e;
	switch (lookup(path, e)) {
	case Lookup::Failed:
		return -1;
	case Lookup::Unlisted:
		*flags = 0;
		return 0;
	case Lookup::Found:
		*flags = e.action;
		return 0;
	}
	return -1;
} VEXO_C_CATCH(-1)

VEXO_API int VEXODiskConfigVendorMatch(const char *path, const char *vendor)
try {
	if (!path || !vendor) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return 0;
	}
	Entry e;
	return lookup(path, e) == Lookup::Found && e.vendor == vendor ? 1 : 0;
} VEXO_C_CATCH(0)

VEXO_API int VEXODiskInSCTCmdBlackList(const char *path)
try {
	unsigned int flags = 0;
	if (VEXODiskConfigDiskActionGet(path, &flags) != 0)
		return 0;
	return (flags & VEXO_DISK_ACTION_SCT_BLACKLIST) ? 1 : 0;
} VEXO_C_CATCH(0)

} // extern "C"
