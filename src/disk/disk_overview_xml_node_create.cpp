// DiskOverviewXmlNodeCreate: the element of a disk seen for the first time,
// with the table of its children that also drives the repair of older
// documents, and the small tree helpers the writers share.
#include <cctype>
#include <cstring>
#include <libxml/tree.h>
#include <string>
#include <vexohw/disk.h>
#include <vexohw/disk_overview.h>
#include <vexohw/smart_serial.h>
#include <vexoplatform/vexocore.h>

#include "frame/err.h"
#include "frame/log.h"
#include "disk/overview_doc.h"

extern "C" {
const char diskXMLAttrArray[VEXO_DISK_OVERVIEW_ATTR_COUNT][256] = {
	"path", "unc", "icrc", "idnf", "retry", "hibernation", "deepsleep", "timeout", "reset_fail", "sata_internal_slot",
};
}

namespace vexo::overview {

xmlNode *firstElement(xmlNode *n)
{
	for (n = n ? n->children : nullptr; n && n->type != XML_ELEMENT_NODE; n = n->next)
		;
	return n;
}

xmlNode *nextElement(xmlNode *n)
{
	for (n = n ? n->next : nullptr; n && n->type != XML_ELEMENT_NODE; n = n->next)
		;
	return n;
}

xmlNode *child(xmlNode *disk, const char *name)
{
	for (xmlNode *c = firstElement(disk); c; c = nextElement(c))
		if (xml::named(c, name))
			return c;
	return nullptr;
}

std::string text(const xmlNode *n)
{
	xml::Text t(n ? xmlNodeGetContent(n) : nullptr);
	return t ? std::string(reinterpret_cast<const char *>(t.get())) : std::string();
}

void setText(xmlNode *n, const std::string &value)
{
	// Content is escaped on save; a path never carries markup into the file.
	xmlNodeSetContent(n, nullptr);
	xmlNodeAddContent(n, BAD_CAST value.c_str());
}

bool nameSafe(const std::string &serial)
{
	if (serial.empty())
		return false;
	for (unsigned char c : serial)
		if (!std::isalnum(c) && c != '_' && c != '-' && c != '.')
			return false;
	return true;
}

// Disk elements are the root's children: a walk over them finds the same
// element "//SN_<serial>" would, without visiting every counter of every
// disk, which matters in a document of a thousand disks.
xmlNode *diskElement(xmlDoc *doc, const std::string &serial)
{
	if (!doc || !nameSafe(serial))
		return nullptr;
	std::string name = "SN_" + serial;
	for (xmlNode *e = firstElement(xmlDocGetRootElement(doc)); e; e = nextElement(e))
		if (xml::named(e, name.c_str()))
			return e;
	return nullptr;
}

xmlNode *diskElement(const xml::Doc &doc, const std::string &serial)
{
	return diskElement(doc.get(), serial);
}

bool trueSerial(const char *path, std::string &serial)
{
	char fw[64] = {}, sn[128] = {};
	if (!path || SmartFirmAndSerialRead(path, fw, sizeof(fw), sn, sizeof(sn)) != 0 || !*sn) {
		vlog(LOG_ERR, "%s:%d Error: Failed to get firmware and SN of %s", VEXO_AT, path ? path : "(null)");
		return false;
	}
	serial = sn;
	return true;
}

xmlNode *readDiskElement(const char *path, xml::Doc &doc)
{
	std::string serial;
	if (!trueSerial(path, serial))
		return nullptr;
	xmlDoc *raw = nullptr;
	xmlNode *root = nullptr;
	if (DiskOverviewXmlParse(&raw, &root, 0) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to parse file %s", VEXO_AT, kDoc);
		return nullptr;
	}
	doc = xml::Doc(raw);
	xmlNode *disk = diskElement(doc, serial);
	if (!disk) {
		vlog(LOG_ERR, "%s:%d Error: Failed to find disk %s", VEXO_AT, serial.c_str());
		VEXO_ERR(VEXO_ERR_NOT_FOUND);
	}
	return disk;
}

std::string trimmed(std::string s)
{
	const char *ws = " \t\r\n";
	s.erase(0, s.find_first_not_of(ws));
	size_t end = s.find_last_not_of(ws);
	s.erase(end == std::string::npos ? 0 : end + 1);
	return s;
}

} // namespace vexo::overview

using namespace vexo::overview;

int DiskOverviewXmlNodeCreate(xmlNode *root, const char *serial, const char *model, const char *path)
{
	if (!root || !serial || !model || !path) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	// The element name is the key; one that would not read back as XML
	// would cost every other disk its counters at the next repair.
	if (!nameSafe(serial)) {
		vlog(LOG_ERR, "%s:%d Invalid xml node name %s.", VEXO_AT, serial);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::string name = std::string("SN_") + serial;
	xmlNode *disk = xmlNewNode(nullptr, BAD_CAST name.c_str());
	if (!disk) {
		VEXO_ERR(VEXO_ERR_NOMEM);
		return -1;
	}
	char ui[128] = {};
	if (VEXODiskGetSerialForUi(path, ui, sizeof(ui)) != 0 || !*ui) {
		vlog(LOG_ERR, "%s:%d Error: Failed to get UI SN of %s", VEXO_AT, path);
		std::strncpy(ui, serial, sizeof(ui) - 1);
	}
	bool ok = xmlNewProp(disk, BAD_CAST "model", BAD_CAST model) && xmlNewProp(disk, BAD_CAST "uiserial", BAD_CAST ui);
	for (int i = 0; ok && i < VEXO_DISK_OVERVIEW_ATTR_COUNT; ++i) {
		xmlNode *c = xmlNewTextChild(disk, nullptr, BAD_CAST diskXMLAttrArray[i], BAD_CAST(i == 0 ? "" : "0"));
		if (!c) {
			vlog(LOG_ERR, "%s:%d Error: Failed to create new node %s", VEXO_AT, diskXMLAttrArray[i]);
			ok = false;
		} else if (i == 0) {
			setText(c, path);
		}
	}
	if (!ok) {
		xmlFreeNode(disk);
		VEXO_ERR(VEXO_ERR_NOMEM);
		return -1;
	}
	xmlAddChild(root, disk);
	DiskXmlInternalSataSlotUpdate(disk, path, 1);
	return 0;
}

void DiskXmlInternalSataSlotUpdate(xmlNode *disk, const char *path, int plugged)
{
	if (!disk)
		return;
	int slot = -1;
	DiskId id{};
	if (plugged && path && !VLIBCSupportSAS() && DiskPathParse(path, &id) == 0 &&
	    id.container == DISK_CONTAINER_INTERNAL)
		slot = id.index;
	xmlNode *c = child(disk, "sata_internal_slot");
	if (!c)
		c = xmlNewTextChild(disk, nullptr, BAD_CAST "sata_internal_slot", BAD_CAST "");
	if (c)
		setText(c, std::to_string(slot));
}
