// The action log, /var/log/disk_smart_action.xml: what the user decided
// about a disk's warnings. Reading keeps the entries that still stand,
// newest first; recording adds one entry and its event.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <libxml/parser.h>
#include <libxml/tree.h>
#include <string>
#include <sys/stat.h>
#include <vector>
#include <vexohw/disk.h>
#include <vexohw/disk_port.h>
#include <vexohw/disk_probe.h>
#include <vexohw/frame.h>
#include <vexohw/smart_info.h>
#include <vexohw/smart_serial.h>
#include <vexohw/smart_status.h>
#include <vexohw/smart_test.h>
#include <vexoplatform/logdb.h>

#include "frame/boundary.h"
#include "frame/clock.h"
#include "frame/err.h"
#include "frame/list.h"
#include "frame/priv.h"
#include "frame/sysroot.h"
#include "frame/text.h"
#include "frame/xml.h"
#include "smartctl/health_sources.h"

namespace {

struct Identity {
	std::string model, serial;
};

bool identityOf(const char *path, Identity &id)
{
	char model[64] = {}, serial[64] = {}, fw[64] = {};
	if (VEXODiskGetStrValueCacheFile(path, "model", model, sizeof(model)) != 0 &&
	    VEXOLnxDiskGetModel(path, model, sizeof(model)) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to get disk [%s] model.", VEXO_AT, path);
		return false;
	}
	if (VEXODiskGetStrValueCacheFile(path, "serial", serial, sizeof(serial)) != 0 &&
	    SmartFirmAndSerialRead(path, fw, sizeof(fw), serial, sizeof(serial)) != 0) {
		vlog(LOG_ERR, "%s:%d Error: Failed to get firmware and SN of %s", VEXO_AT, path);
		return false;
	}
	id.model = model;
	id.serial = serial;
	return true;
}

bool same32(const std::string &a, const std::string &b) { return a.substr(0, 32) == b.substr(0, 32); }

int attrInt(xmlNode *n, const char *name, bool &present)
{
	auto v = vexo::xml::propString(n, name);
	present = v.has_value();
	return v ? std::atoi(v->c_str()) : 0;
}

// The first pass: the disk's shown entries of the wanted type, in document order.
bool firstPass(const char *path, int filter, std::vector<SmartInfoAction> &out)
{
	struct stat st;
	if (vexo::sysroot::stat(SMART_ACTION_LOG, &st) != 0 || st.st_size == 0)
		return true;
	Identity me;
	if (!identityOf(path, me))
		return false;
	vexo::xml::Doc doc = vexo::xml::readFile(SMART_ACTION_LOG);
	xmlNode *root = doc ? xmlDocGetRootElement(doc.get()) : nullptr;
	if (!root) {
		VEXO_ERR(VEXO_ERR_READ);
		vlog(LOG_ERR, "%s:%d Failed to parse %s", VEXO_AT, SMART_ACTION_LOG);
		return false;
	}
	for (xmlNode *n = root->children; n; n = n->next) {
		if (n->type != XML_ELEMENT_NODE || vexo::xml::propString(n, "show").value_or("") != "1")
			continue;
		auto type = vexo::xml::propString(n, "type");
		if (!type) {
			vlog(LOG_ERR, "%s:%d Get disk xml type failed !", VEXO_AT);
			continue;
		}
		int t = VEXODiskWarningTypeMappingToEnum(type->c_str());
		if (filter != SMART_WARNING_ALL && t != filter)
			continue;
		SmartInfoAction a{};
		a.type = t;
		vexo::copyTextCut(a.time, vexo::xml::propString(n, "time").value_or(""));
		vexo::copyTextCut(a.path, vexo::xml::propString(n, "path").value_or(""));
		std::string model = vexo::xml::propString(n, "model").value_or(""), sn = vexo::xml::propString(n, "SN").value_or("");
		if (!same32(model, me.model) || !same32(sn, me.serial))
			continue;
		vexo::copyTextCut(a.model, model);
		vexo::copyTextCut(a.serial, sn);
		bool present = false;
		switch (t) {
		case SMART_WARNING_UNC:
			continue;
		case SMART_WARNING_SMART:
			vexo::copyTextCut(a.id, vexo::xml::propString(n, "id").value_or(""));
			vexo::copyTextCut(a.current, vexo::xml::propString(n, "current").value_or(""));
			vexo::copyTextCut(a.threshold, vexo::xml::propString(n, "threshold").value_or(""));
			vexo::copyTextCut(a.worst, vexo::xml::propString(n, "worst").value_or(""));
			vexo::copyTextCut(a.raw, vexo::xml::propString(n, "raw").value_or(""));
			break;
		case SMART_WARNING_LIFE:
			a.life = attrInt(n, "life", present);
			if (!present) {
				vlog(LOG_ERR, "%s:%d Get disk xml life failed !", VEXO_AT);
				continue;
			}
			break;
		case SMART_WARNING_ADV:
			vexo::copyTextCut(a.testCode, vexo::xml::propString(n, "testCode").value_or(""));
			break;
		case SMART_WARNING_WDDA:
			a.wddaCode = attrInt(n, "wddaCode", present);
			break;
		case SMART_WARNING_NVME_PERC_USED_FULL:
			a.percUsed = attrInt(n, "percUsed", present);
			break;
		default:
			break;
		}
		vexo::xml::Text text(xmlNodeGetContent(n));
		a.action = text ? std::atoi(reinterpret_cast<const char *>(text.get())) : 0;
		out.push_back(a);
	}
	std::reverse(out.begin(), out.end());
	return true;
}

} // namespace

extern "C" {

VEXO_API void SmartInfoActionLogFree(SmartInfoAction *list)
{
	while (list) {
		SmartInfoAction *next = list->next;
		std::free(list);
		list = next;
	}
}

VEXO_API int SmartInfoActionLogGet(const char *path, SmartInfoAction **list, int type)
try {
	if (!path || !list || type < 1 || type > SMART_WARNING_ALL) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	*list = nullptr;
	std::vector<SmartInfoAction> entries;
	if (!firstPass(path, type, entries))
		return -1;
	std::string newestTest;
	if (!entries.empty() && (type == SMART_WARNING_ADV || type == SMART_WARNING_ALL)) {
		DiskTestLog *tests = nullptr;
		if (VEXODiskTestLogGet(path, "ihm", 1, 0, &tests) < 0) {
			VEXO_ERR(VEXO_ERR_NOT_FOUND);
			return -1;
		}
		if (tests)
			newestTest = tests->time;
		DiskTestLogFree(tests);
	}
	std::vector<std::string> cancelled;
	bool flag[8] = {};
	vexo::ListBuilder<SmartInfoAction, SmartInfoActionLogFree> out;
	for (const SmartInfoAction &a : entries) {
		bool mute = a.action == 1 || a.action == 2, cancel = a.action == 3 || a.action == 4;
		switch (a.type) {
		case SMART_WARNING_SMART:
			if (cancel) {
				cancelled.emplace_back(a.id);
				continue;
			}
			if (mute && std::find(cancelled.begin(), cancelled.end(), a.id) != cancelled.end())
				continue;
			break;
		case SMART_WARNING_LIFE:
		case SMART_WARNING_SMART_TEST:
		case SMART_WARNING_WDDA:
		case SMART_WARNING_NVME_PERC_USED_FULL:
		case SMART_WARNING_ADV:
			if (cancel) {
				flag[a.type] = true;
				continue;
			}
			if (mute && flag[a.type])
				continue;
			// a mute of the advanced test holds only for the test it was given for
			if (mute && a.type == SMART_WARNING_ADV && std::string(a.time) < newestTest)
				continue;
			break;
		default:
			vlog(LOG_ERR, "%s:%d No such type: %d", VEXO_AT, a.type);
			continue;
		}
		SmartInfoAction *cell = out.appendNew();
		if (!cell) {
			VEXO_ERR(VEXO_ERR_NOMEM);
			return -1;
		}
		*cell = a;
		cell->next = nullptr;
	}
	*list = out.release();
	return 0;
}
VEXO_C_CATCH(-1)

} // extern "C"
