// VEXODiskXmlHotPlugUpdate: a disk plugged in or pulled out. The element is
// found by true serial on the way in and by path on the way out, so a disk
// that comes back in another bay keeps its counters.
#include <libxml/tree.h>
#include <string>
#include <vexohw/disk.h>
#include <vexohw/disk_overview.h>
#include <vexohw/disk_port.h>
#include <vexohw/disk_probe.h>
#include <vexoplatform/logdb.h>

#include "frame/boundary.h"
#include "frame/err.h"
#include "frame/log.h"
#include "disk/overview_doc.h"

using namespace vexo::overview;

namespace {

// Every disk element whose path (its first child) is `path`, in document
// order.
std::vector<xmlNode *> elementsAt(xmlNode *root, const char *path)
{
	std::vector<xmlNode *> out;
	for (xmlNode *disk = firstElement(root); disk; disk = nextElement(disk)) {
		xmlNode *p = firstElement(disk);
		if (vexo::xml::named(p, "path") && text(p) == path)
			out.push_back(disk);
	}
	return out;
}

} // namespace

extern "C" VEXO_API int VEXODiskXmlHotPlugUpdate(int plugged, const char *path)
try {
	if (!path || !*path) {
		vlog(LOG_ERR, "%s:%d Invalid arguments", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::string model, serial, ui;
	if (plugged) {
		char raw[128] = {};
		if (VEXOLnxDiskGetModel(path, raw, sizeof(raw)) != 0) {
			vlog(LOG_ERR, "%s:%d Failed to get disk [%s] model.", VEXO_AT, path);
			return -1;
		}
		model = trimmed(raw);
		if (!trueSerial(path, serial))
			return -1;
	}
	{
		Lock lock(true);
		if (!lock.ok()) {
			VEXO_ERR(VEXO_ERR_LOCK);
			return -1;
		}
		xmlDoc *raw = nullptr;
		xmlNode *root = nullptr;
		if (DiskOverviewXmlParse(&raw, &root, 1) != 0)
			return -1;
		vexo::xml::Doc doc(raw);
		std::vector<xmlNode *> here = elementsAt(root, path);
		if (!plugged) {
			if (!here.empty()) {
				xmlNode *disk = here.front();
				setText(firstElement(disk), "null");
				model = vexo::xml::propString(disk, "model").value_or("");
				serial = reinterpret_cast<const char *>(disk->name) + 3;
				ui = vexo::xml::propString(disk, "uiserial").value_or(serial);
				DiskXmlInternalSataSlotUpdate(disk, path, 0);
			}
		} else {
			xmlNode *disk = diskElement(doc, serial);
			// A disk that left this bay unannounced no longer holds it.
			for (xmlNode *other : here)
				if (other != disk) {
					setText(firstElement(other), "null");
					DiskXmlInternalSataSlotUpdate(other, path, 0);
				}
			if (!disk) {
				if (DiskOverviewXmlNodeCreate(root, serial.c_str(), model.c_str(), path) != 0) {
					vlog(LOG_ERR, "%s:%d Error: Failed to add %s", VEXO_AT, path);
					return -1;
				}
				disk = diskElement(doc, serial);
			} else {
				setText(firstElement(disk), path);
				DiskXmlInternalSataSlotUpdate(disk, path, 1);
			}
			ui = disk ? vexo::xml::propString(disk, "uiserial").value_or(serial) : serial;
		}
		if (saveWhole(doc.get(), kDoc) != 0)
			return -1;
	}
	DiskId id{};
	char host[64] = {}, idText[64] = {};
	if (DiskPathParse(path, &id) != 0) {
		vlog(LOG_ERR, "%s:%d fail to parse disk %s id", VEXO_AT, path);
		return -1;
	}
	if (VEXODiskLocateHostGet(path, host, sizeof(host), 0) != 0) {
		vlog(LOG_ERR, "%s:%d Error: Failed to get container name for %s", VEXO_AT, path);
		return -1;
	}
	if (DiskIdToString(&id, idText, sizeof(idText)) < 0)
		idText[0] = '\0';
	VLIBLogSetByVA("disk", plugged ? 7 : 8, model.c_str(), ui.c_str(), host, idText, path,
		       static_cast<const char *>(nullptr));
	return 0;
}
VEXO_C_CATCH(-1)
