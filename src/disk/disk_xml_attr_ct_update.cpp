// VEXODiskXmlAttrCtUpdate and VEXODiskXmlAttrCtGet: the running error
// counters of a disk, kept under its true serial.
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <libxml/tree.h>
#include <string>
#include <vexohw/disk_overview.h>

#include "frame/boundary.h"
#include "frame/err.h"
#include "frame/log.h"
#include "disk/overview_doc.h"

using namespace vexo::overview;

namespace {

// A counter's text as a number: what does not read as one counts as 0,
// and a counter never wraps past the top.
long counterValue(const std::string &s)
{
	errno = 0;
	char *end = nullptr;
	long v = std::strtol(s.c_str(), &end, 10);
	if (end == s.c_str() || errno == ERANGE || v < INT_MIN || v > INT_MAX)
		return errno == ERANGE && v > 0 ? INT_MAX : 0;
	return v;
}

} // namespace

extern "C" {

VEXO_API void VEXODiskXmlAttrCtUpdate(const char *name, const char *serial)
{
	vexo::cCallVoid([&] {
		if (!name || !serial) {
			vlog(LOG_ERR, "%s:%d Invalid arguments", VEXO_AT);
			VEXO_ERR(VEXO_ERR_BAD_PARAM);
			return;
		}
		Lock lock(true);
		if (!lock.ok())
			return;
		xmlDoc *raw = nullptr;
		xmlNode *root = nullptr;
		if (DiskOverviewXmlParse(&raw, &root, 1) != 0)
			return;
		vexo::xml::Doc doc(raw);
		std::string expr = std::string("//SN_") + serial;
		xmlNode *disk = diskElement(doc, serial);
		if (!disk) {
			vlog(LOG_ERR, "%s:%d Error: Empty result by evaluating xpath expression %s", VEXO_AT, expr.c_str());
			VEXO_ERR(VEXO_ERR_NOT_FOUND);
			return;
		}
		if (xmlNode *c = child(disk, name)) {
			long v = counterValue(text(c));
			setText(c, std::to_string(v < INT_MAX ? v + 1 : v));
		}
		saveWhole(doc.get(), kDoc);
	});
}

VEXO_API int VEXODiskXmlAttrCtGet(const char *path, DiskAttrCounters *counters)
try {
	if (!path || !counters) {
		vlog(LOG_ERR, "%s:%d Invalid arguments", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	vexo::xml::Doc doc;
	xmlNode *disk = readDiskElement(path, doc);
	if (!disk)
		return -1;
	auto get = [&](const char *name) { return static_cast<int32_t>(counterValue(text(child(disk, name)))); };
	*counters = DiskAttrCounters{get("unc"),	get("icrc"),	    get("idnf"),	get("retry"),
				     get("timeout"), get("reset_fail"), get("hibernation"), get("deepsleep")};
	return 0;
}
VEXO_C_CATCH(-1)

} // extern "C"
