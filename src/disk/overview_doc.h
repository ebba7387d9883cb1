// The disk overview document's internals: opening with repair, whole-file
// saves, the writers' lock and the disk element's children.
#pragma once

#include <libxml/tree.h>
#include <string>

#include "frame/xml.h"

// Builds a fresh document from the present disks in the ".tmp" file beside
// the document and marks boot-time initialisation done. 0, or -1.
int DiskOverviewXmlCreate();
// Opens the document, rebuilding it from the present disks when it is
// missing or damaged (the old file kept compressed). `locked`: the caller
// holds the writers' lock. 0 with *doc (the caller frees) and *root, or -1.
int DiskOverviewXmlParse(xmlDoc **doc, xmlNode **root, int locked);
// Appends the element of a new disk with every counter at 0. 0, or -1.
int DiskOverviewXmlNodeCreate(xmlNode *root, const char *serial, const char *model, const char *path);
// Rewrites sata_internal_slot: the bay number of an internal disk while it
// is plugged, -1 otherwise (and always on SAS-capable appliances).
void DiskXmlInternalSataSlotUpdate(xmlNode *disk, const char *path, int plugged);
// Records `now` as the clock's current month in the history of the disk at
// path, replacing that month and dropping months older than twelve, under
// the writers' lock. 0, or -1.
struct DiskHealthAttr;
int DiskXmlHealthHistoryRecord(const char *path, const DiskHealthAttr &now);

namespace vexo::overview {

inline constexpr const char *kDoc = "/var/log/disk_overview.xml";
inline constexpr const char *kTmp = "/var/log/disk_overview.xml.tmp";
inline constexpr const char *kLock = "/run/lock/vexo_disk_overview_xml.lock";
inline constexpr int kLockWaitSeconds = 60;

// The writers' lock for a scope. timed: wait at most 60 s (the writers);
// otherwise without limit (a reader that must rebuild). A failure logs the
// warning the callers share; check ok().
class Lock {
public:
	explicit Lock(bool timed);
	~Lock();
	Lock(const Lock &) = delete;
	Lock &operator=(const Lock &) = delete;
	bool ok() const { return fd_ >= 0; }

private:
	int fd_ = -1;
};

// Writes doc to `appliancePath` whole: the temporary file, fsync, rename.
// 0, or -1 with the old file untouched.
int saveWhole(xmlDoc *doc, const char *appliancePath);
// Writes doc into the ".tmp" file (synced, not renamed). 0, or -1.
int saveTmp(xmlDoc *doc);

// The disk element of a serial, null when none (an XPath failure logs).
xmlNode *diskElement(const xml::Doc &doc, const std::string &serial);
xmlNode *diskElement(xmlDoc *doc, const std::string &serial);
// The first element child, and the next element sibling.
xmlNode *firstElement(xmlNode *n);
xmlNode *nextElement(xmlNode *n);
// The element child named `name`, null when none.
xmlNode *child(xmlNode *disk, const char *name);
// The text of a node ("" when none).
std::string text(const xmlNode *n);
void setText(xmlNode *n, const std::string &value);
// Whether a serial makes a well-formed element name after "SN_".
bool nameSafe(const std::string &serial);
// The true serial of the disk at path; false (and the shared log line) when
// the drive does not tell it.
bool trueSerial(const char *path, std::string &serial);
// The document read for a reader, and the element of the disk at path in
// it: null (logged, the error recorded) when the serial, the document or the
// element can't be had.
xmlNode *readDiskElement(const char *path, xml::Doc &doc);
std::string trimmed(std::string s);

} // namespace vexo::overview
