// VEXODiskOverviewXmlInit: brings the disk overview document up to date at
// boot: every disk away, then the present ones back in with their children
// repaired, and the system log told which internal bays changed disks.
#include <cstdio>
#include <cstdlib>
#include <libxml/parser.h>
#include <string>
#include <sys/stat.h>
#include <vector>
#include <vexohw/disk.h>
#include <vexohw/disk_overview.h>
#include <vexoplatform/logdb.h>
#include <vexoplatform/vexocore.h>

#include "frame/boundary.h"
#include "frame/err.h"
#include "frame/log.h"
#include "frame/sysroot.h"
#include "disk/overview_doc.h"

using namespace vexo::overview;

namespace {

// Who sat in an internal bay when the appliance last ran.
struct DiskSlotInfo {
	int slot;
	std::string serial;
};

// Brings the children into table order: a missing one is inserted with
// "0" where it belongs; one found further on is moved up, counter kept.
// Children not in the table stay behind them.
bool repairChildren(xmlNode *disk)
{
	xmlNode *at = firstElement(disk);
	for (const auto &row : diskXMLAttrArray) {
		const char *name = row;
		if (at && vexo::xml::named(at, name)) {
			at = nextElement(at);
			continue;
		}
		xmlNode *found = nullptr;
		for (xmlNode *c = at; c && !found; c = nextElement(c))
			if (vexo::xml::named(c, name))
				found = c;
		if (found) {
			xmlUnlinkNode(found);
		} else if (!(found = xmlNewNode(nullptr, BAD_CAST name))) {
			vlog(LOG_ERR, "%s:%d Error: Failed to create new node %s", VEXO_AT, name);
			return false;
		} else {
			setText(found, "0");
		}
		if (at ? !xmlAddPrevSibling(at, found) : !xmlAddChild(disk, found)) {
			xmlFreeNode(found);
			vlog(LOG_ERR, "%s:%d Error: Failed to create new node %s", VEXO_AT, name);
			return false;
		}
	}
	return true;
}

void slotEvent(int event, const std::string &serial, int slot)
{
	std::string s = std::to_string(slot);
	VLIBLogSetByVA("disk", event, serial.c_str(), s.c_str(), "0", static_cast<const char *>(nullptr));
}

// One present disk into the document.
void applyDisk(xmlDoc *doc, xmlNode *root, const DiskInfo &info, std::vector<DiskSlotInfo> &slots)
{
	std::string serial;
	if (!trueSerial(info.path, serial))
		return;
	DiskId id{};
	if (!VLIBCSupportSAS() && DiskPathParse(info.path, &id) == 0 && id.container == DISK_CONTAINER_INTERNAL) {
		auto it = slots.begin();
		while (it != slots.end() && it->slot != id.index)
			++it;
		if (it == slots.end() || it->serial != serial)
			slotEvent(91, serial, id.index);
		if (it != slots.end())
			slots.erase(it);
	}
	xmlNode *disk = diskElement(doc, serial);
	if (!disk) {
		if (DiskOverviewXmlNodeCreate(root, serial.c_str(), trimmed(info.model).c_str(), info.path) != 0)
			vlog(LOG_ERR, "%s:%d Error: Failed to add %s", VEXO_AT, info.path);
		return;
	}
	if (!repairChildren(disk))
		return;
	setText(firstElement(disk), info.path);
	DiskXmlInternalSataSlotUpdate(disk, info.path, 1);
}

} // namespace

extern "C" VEXO_API int VEXODiskOverviewXmlInit(DiskListNode *disks)
try {
	Lock lock(true);
	if (!lock.ok()) {
		VEXO_ERR(VEXO_ERR_LOCK);
		return -1;
	}
	xmlKeepBlanksDefault(0);
	struct stat st {};
	vexo::xml::Doc doc;
	xmlNode *root = nullptr;
	if (vexo::sysroot::stat(kDoc, &st) != 0 || st.st_size == 0) {
		doc.reset(xmlNewDoc(BAD_CAST "1.0"));
		root = doc ? xmlNewNode(nullptr, BAD_CAST "overview") : nullptr;
		if (!root) {
			VEXO_ERR(VEXO_ERR_NOMEM);
			return -1;
		}
		xmlDocSetRootElement(doc.get(), root);
	} else {
		xmlDoc *raw = nullptr;
		if (DiskOverviewXmlParse(&raw, &root, 1) != 0)
			return -1;
		doc.reset(raw);
	}
	std::vector<DiskSlotInfo> slots;
	bool sas = VLIBCSupportSAS();
	for (xmlNode *disk = firstElement(root); disk; disk = nextElement(disk)) {
		if (xmlNode *path = firstElement(disk))
			setText(path, "null");
		if (!sas) {
			std::string name = reinterpret_cast<const char *>(disk->name);
			if (name.size() <= 3 || name.compare(0, 3, "SN_") != 0) {
				vlog(LOG_ERR, "%s:%d Invalid xml node name %s.", VEXO_AT, name.c_str());
			} else {
				int slot = std::atoi(text(child(disk, "sata_internal_slot")).c_str());
				if (slot > 0)
					slots.push_back({slot, name.substr(3)});
			}
		}
		DiskXmlInternalSataSlotUpdate(disk, nullptr, 0);
	}
	for (DiskListNode *c = disks; c; c = c->next)
		if (c->info)
			applyDisk(doc.get(), root, *c->info, slots);
	if (saveWhole(doc.get(), kDoc) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to init overview xml with disk list", VEXO_AT);
		return -1;
	}
	for (const DiskSlotInfo &s : slots)
		slotEvent(92, s.serial, s.slot);
	return 0;
}
VEXO_C_CATCH(-1)
