// SmartInfoActionRecord: adds the user's decision about a warning to the
// action log and tells the system log.
#include <cstdio>
#include <cstring>
#include <ctime>
#include <libxml/parser.h>
#include <libxml/tree.h>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <vexohw/disk.h>
#include <vexohw/disk_health.h>
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
#include "frame/priv.h"
#include "frame/sysroot.h"
#include "frame/xml.h"
#include "smartctl/health_sources.h"

namespace {

// Event numbers by warning type and action 1 to 4.
struct EventRow {
	int type;
	int events[4];
};
constexpr EventRow kEvents[] = {
	{SMART_WARNING_SMART, {13, 18, 23, 28}},
	{SMART_WARNING_LIFE, {16, 21, 26, 31}},
	{SMART_WARNING_ADV, {17, 22, 27, 32}},
	{SMART_WARNING_SMART_TEST, {14, 19, 24, 29}},
	{SMART_WARNING_WDDA, {50, 51, 52, 53}},
	{SMART_WARNING_NVME_PERC_USED_FULL, {56, 57, 64, 65}},
};

bool prop(xmlNode *n, const char *name, const std::string &value)
{
	if (!xmlNewProp(n, BAD_CAST name, BAD_CAST value.c_str())) {
		vlog(LOG_ERR, "%s:%d Error: Failed to create new property %s", VEXO_AT, name);
		return false;
	}
	return true;
}

std::string localTime()
{
	std::time_t now = vexo::clock::wallSeconds();
	struct tm tm {};
	char text[32];
	if (!localtime_r(&now, &tm) || !std::strftime(text, sizeof(text), "%Y/%m/%d %H:%M:%S", &tm))
		return "unknown";
	return text;
}

std::string trimmed(std::string s)
{
	s.erase(0, s.find_first_not_of(' '));
	s.erase(s.find_last_not_of(' ') + 1);
	return s;
}

} // namespace

extern "C" {

VEXO_API int SmartInfoActionRecord(const char *path, int action, int type, const char *id)
try {
	if (!path || (type == SMART_WARNING_SMART && !id)) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	const EventRow *row = nullptr;
	for (const EventRow &r : kEvents)
		if (r.type == type)
			row = &r;
	if (!row) {
		vlog(LOG_ERR, "%s:%d No such warning type", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	if (action < 1 || action > 4) {
		vlog(LOG_ERR, "%s:%d No such action type", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	char model[64] = {}, serial[64] = {}, fw[64] = {};
	if ((VEXODiskGetStrValueCacheFile(path, "model", model, sizeof(model)) != 0 &&
	     VEXOLnxDiskGetModel(path, model, sizeof(model)) != 0) ||
	    SmartFirmAndSerialRead(path, fw, sizeof(fw), serial, sizeof(serial)) != 0) {
		vlog(LOG_ERR, "%s:%d Error: Failed to get firmware and SN of %s", VEXO_AT, path);
		return -1;
	}
	xmlKeepBlanksDefault(0);
	struct stat st;
	vexo::xml::Doc doc;
	if (vexo::sysroot::stat(SMART_ACTION_LOG, &st) == 0 && st.st_size > 0)
		doc = vexo::xml::readFile(SMART_ACTION_LOG);
	if (!doc) {
		doc.reset(xmlNewDoc(BAD_CAST "1.0"));
		xmlNode *root = doc ? xmlNewNode(nullptr, BAD_CAST "log") : nullptr;
		if (!root) {
			vlog(LOG_ERR, "%s:%d Error: Failed to create new node %s", VEXO_AT, "log");
			return -1;
		}
		xmlDocSetRootElement(doc.get(), root);
	}
	xmlNode *root = xmlDocGetRootElement(doc.get());
	xmlNode *n = xmlNewTextChild(root, nullptr, BAD_CAST "smart", BAD_CAST std::to_string(action).c_str());
	if (!n) {
		vlog(LOG_ERR, "%s:%d Error: Failed to create new node %s", VEXO_AT, "smart");
		return -1;
	}
	std::string detail;
	bool ok = prop(n, "path", path) && prop(n, "model", trimmed(model)) && prop(n, "SN", serial) &&
		  prop(n, "time", localTime()) && prop(n, "type", VEXODiskWarningTypeMappingToString(type));
	if (!ok)
		return -1;
	if (type == SMART_WARNING_SMART) {
		SmartInfoEntry *raw = nullptr;
		if (VEXODiskAtaSmartInfoParse(path, &raw) != 0)
			return -1;
		std::unique_ptr<SmartInfoEntry, void (*)(SmartInfoEntry *)> attrs(raw, VEXODiskSmartInfoFree);
		SmartInfoEntry *e = raw;
		while (e && std::strncmp(e->id ? e->id : "", id, 4) != 0)
			e = e->next;
		if (!e) {
			vlog(LOG_ERR, "%s:%d Error: Failed to match smart info id.", VEXO_AT);
			return -1;
		}
		ok = prop(n, "id", e->id) && prop(n, "current", e->value ? e->value : "") &&
		     prop(n, "threshold", e->threshold ? e->threshold : "") && prop(n, "worst", e->worst ? e->worst : "") &&
		     prop(n, "raw", e->raw ? e->raw : "");
		detail = e->id;
	} else if (type == SMART_WARNING_LIFE) {
		ok = prop(n, "life", std::to_string(vexo::health::lifeAnswers(path).remainLife));
	} else if (type == SMART_WARNING_ADV) {
		DiskTestLog *tests = nullptr;
		if (VEXODiskTestLogGet(path, "ihm", 1, 0, &tests) < 0 || !tests) {
			DiskTestLogFree(tests);
			vlog(LOG_ERR, "%s:%d Error: Failed to get adv log", VEXO_AT);
			return -1;
		}
		std::string code = tests->testCode;
		DiskTestLogFree(tests);
		if (code.rfind("ihm_", 0) == 0)
			code.erase(0, 4);
		ok = prop(n, "testCode", code);
	} else if (type == SMART_WARNING_WDDA) {
		// The finding being muted is the analytics producer's current one.
		int code = 0;
		if (VEXODiskWddaStatusCacheGet(path, &code, nullptr) != 0)
			code = 0;
		char hex[16];
		std::snprintf(hex, sizeof(hex), "%X", static_cast<unsigned>(code));
		ok = prop(n, "wddaCode", std::to_string(code));
		detail = hex;
	} else if (type == SMART_WARNING_NVME_PERC_USED_FULL) {
		unsigned percent = 0;
		vexo::health::nvmePercentageUsed(path, percent);
		ok = prop(n, "percUsed", std::to_string(percent));
	}
	if (!ok || !prop(n, "show", "1"))
		return -1;
	{
		ENTERCriticalSection;
		std::string host = vexo::sysroot::path(SMART_ACTION_LOG), tmp = host + ".tmp";
		if (xmlSaveFormatFileEnc(tmp.c_str(), doc.get(), "UTF-8", 1) < 0 ||
		    std::rename(tmp.c_str(), host.c_str()) != 0) {
			std::remove(tmp.c_str());
			vlog(LOG_ERR, "%s:%d Failed to save %s", VEXO_AT, SMART_ACTION_LOG);
			VEXO_ERR(VEXO_ERR_WRITE);
			return -1;
		}
	}
	char ui[64] = {}, hostName[64] = {}, idText[64] = {};
	if (VEXODiskGetSerialForUi(path, ui, sizeof(ui)) != 0) {
		vlog(LOG_ERR, "%s:%d Fail to get serial of [%s]", VEXO_AT, path);
		return -1;
	}
	DiskId did{};
	if (VEXODiskLocateHostGet(path, hostName, sizeof(hostName), 0) != 0 || DiskPathParse(path, &did) != 0 ||
	    DiskIdToString(&did, idText, sizeof(idText)) < 0) {
		vlog(LOG_ERR, "%s:%d Error: Failed to add log to log center", VEXO_AT);
		return -1;
	}
	int event = row->events[action - 1];
	int rc = detail.empty()
			 ? VLIBLogSetByVA("disk", event, trimmed(model).c_str(), ui, hostName, idText, path,
					  static_cast<const char *>(nullptr))
			 : VLIBLogSetByVA("disk", event, trimmed(model).c_str(), ui, hostName, idText, detail.c_str(), path,
					  static_cast<const char *>(nullptr));
	if (rc != 0) {
		vlog(LOG_ERR, "%s:%d Error: Failed to add log to log center", VEXO_AT);
		return -1;
	}
	return 0;
}
VEXO_C_CATCH(-1)

} // extern "C"
