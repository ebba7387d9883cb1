// DiskOverviewXmlParse: opens the disk overview document, rebuilding a
// missing or damaged one from the present disks and keeping the old file
// compressed in five generations. Also the writers' lock and whole-file save
// every writer of the document shares.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <libxml/parser.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vexohw/disk_enum.h>
#include <vexohw/disk_overview.h>
#include <vexohw/smart_serial.h>
#include <vexoplatform/vexocore.h>

#include "frame/err.h"
#include "frame/exec.h"
#include "frame/log.h"
#include "frame/sysroot.h"
#include "disk/overview_doc.h"

namespace vexo::overview {

namespace {

constexpr int kGenerations = 5;
constexpr unsigned kCreateMask = 35; // internal, ebox, cache

std::string generation(int n)
{
	return std::string(kDoc) + "." + std::to_string(n) + ".xz";
}

std::string stamp(std::time_t t)
{
	struct tm tm {};
	char out[32];
	if (!localtime_r(&t, &tm) || !std::strftime(out, sizeof(out), "%Y/%m/%d %H:%M:%S", &tm))
		return "unknown";
	return out;
}

bool syncFile(const std::string &host)
{
	int fd = ::open(host.c_str(), O_RDONLY | O_CLOEXEC);
	if (fd < 0)
		return false;
	bool ok = ::fsync(fd) == 0;
	::close(fd);
	return ok;
}

// Keeps the damaged file as <doc>.1.xz, moving older generations up.
void keepDamaged()
{
	std::string host = sysroot::path(kDoc);
	exec::Options quiet;
	quiet.captureStdout = false;
	exec::Result r = exec::run({"/bin/xz", "-k", "-z", "-f", host}, quiet);
	if (r.status() != 0) {
		vlog(LOG_ERR, "%s:%d Failed to compress %s", VEXO_AT, kDoc);
		return;
	}
	int free = 0;
	for (int n = 1; n <= kGenerations && !free; ++n)
		if (sysroot::access(generation(n).c_str(), F_OK) != 0)
			free = n;
	if (!free) {
		sysroot::unlink(generation(kGenerations).c_str());
		free = kGenerations;
	}
	for (int n = free; n > 1; --n)
		if (sysroot::rename(generation(n - 1).c_str(), generation(n).c_str()) != 0)
			vlog(LOG_ERR, "%s:%d Failed to rotate %s", VEXO_AT, generation(n - 1).c_str());
	std::string xz = std::string(kDoc) + ".xz";
	if (sysroot::rename(xz.c_str(), generation(1).c_str()) != 0)
		vlog(LOG_ERR, "%s:%d Failed to rotate %s", VEXO_AT, xz.c_str());
}

xml::Doc readDoc(bool *missing)
{
	xmlKeepBlanksDefault(0);
	return xml::readFile(kDoc, missing, xml::kReadOptions | XML_PARSE_NOBLANKS);
}

} // namespace

Lock::Lock(bool timed)
{
	int fd = -1;
	int taken = timed ? VLIBCFileLockTimeByFile(kLock, 1, kLockWaitSeconds, &fd) : VLIBCFileLockByFile(kLock, 1, &fd);
	if (!taken) {
		vlog(LOG_WARNING, "%s:%d Failed to lock %s[0x%04X %s:%d]", VEXO_AT, kLock, VLIBCErrGet(),
		     VLIBCErrFileGet() ? VLIBCErrFileGet() : "", VLIBCErrLineGet());
		return;
	}
	fd_ = fd;
}

Lock::~Lock()
{
	if (fd_ < 0)
		return;
	if (!VLIBCFileUnlockByFile(fd_)) {
		vlog(LOG_ERR, "%s:%d Failed to unlock disk overview sem", VEXO_AT);
		::close(fd_);
	}
}

int saveTmp(xmlDoc *doc)
{
	std::string tmp = sysroot::path(kTmp);
	if (xmlSaveFormatFileEnc(tmp.c_str(), doc, "UTF-8", 1) < 0 || !syncFile(tmp)) {
		std::remove(tmp.c_str());
		vlog(LOG_ERR, "%s:%d Failed to save %s", VEXO_AT, kTmp);
		VEXO_ERR(VEXO_ERR_WRITE);
		return -1;
	}
	return 0;
}

int saveWhole(xmlDoc *doc, const char *appliancePath)
{
	if (saveTmp(doc) != 0)
		return -1;
	if (sysroot::rename(kTmp, appliancePath) != 0) {
		sysroot::unlink(kTmp);
		vlog(LOG_ERR, "%s:%d Failed to save %s", VEXO_AT, appliancePath);
		VEXO_ERR(VEXO_ERR_WRITE);
		return -1;
	}
	// The folder is not synced: a power cut may cost the last update,
	// never the document, and every counter update would pay for it.
	return 0;
}

} // namespace vexo::overview

using namespace vexo::overview;

int DiskOverviewXmlCreate()
{
	xmlKeepBlanksDefault(0);
	vexo::xml::Doc doc(xmlNewDoc(BAD_CAST "1.0"));
	xmlNode *root = doc ? xmlNewNode(nullptr, BAD_CAST "overview") : nullptr;
	if (!root) {
		vlog(LOG_ERR, "%s:%d Error: Failed to create new node %s", VEXO_AT, "overview");
		VEXO_ERR(VEXO_ERR_NOMEM);
		return -1;
	}
	xmlDocSetRootElement(doc.get(), root);
	DiskListNode *disks = nullptr;
	if (SharedDiskInfoEnum(&disks, kCreateMask) != 0)
		vlog(LOG_ERR, "%s:%d Failed to enum disks", VEXO_AT);
	struct Free {
		DiskListNode *&l;
		~Free() { SharedDiskInfoEnumFree(&l); }
	} freeDisks{disks};
	for (DiskListNode *c = disks; c; c = c->next) {
		if (!c->info)
			continue;
		std::string serial;
		if (!trueSerial(c->info->path, serial))
			continue;
		if (DiskOverviewXmlNodeCreate(root, serial.c_str(), trimmed(c->info->model).c_str(), c->info->path) != 0)
			vlog(LOG_ERR, "%s:%d Error: Failed to add %s", VEXO_AT, c->info->path);
	}
	if (saveTmp(doc.get()) != 0)
		return -1;
	VLIBCFileTouch("/var/run/.vexo_disk_bootup_init_done");
	return 0;
}

int DiskOverviewXmlParse(xmlDoc **docOut, xmlNode **rootOut, int locked)
{
	if (!docOut || !rootOut) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	bool missing = false;
	vexo::xml::Doc doc = readDoc(&missing);
	xmlNode *root = vexo::xml::root(doc, "overview");
	if (root) {
		*rootOut = root;
		*docOut = doc.release();
		return 0;
	}
	if (missing)
		vlog(LOG_WARNING, "%s:%d %s file not exist, regenerate %s.", VEXO_AT, kDoc, kDoc);
	else if (!doc)
		vlog(LOG_ERR, "%s:%d Failed to parse file %s", VEXO_AT, kDoc);
	else
		vlog(LOG_ERR, "%s:%d Failed to get root node from file %s", VEXO_AT, kDoc);

	std::optional<Lock> lock;
	if (!locked) {
		lock.emplace(false);
		if (!lock->ok()) {
			VEXO_ERR(VEXO_ERR_LOCK);
			return -1;
		}
		// Another reader may have rebuilt it while this one waited.
		doc = readDoc(&missing);
		if ((root = vexo::xml::root(doc, "overview"))) {
			*rootOut = root;
			*docOut = doc.release();
			return 0;
		}
	}
	if (DiskOverviewXmlCreate() != 0) {
		vlog(LOG_ERR, "%s:%d Failed to create overview xml", VEXO_AT);
		return -1;
	}
	struct stat st {};
	if (VLIBCFileStat(kDoc, &st) == 0) {
		vlog(LOG_ERR, "%s:%d DiskOverviewXml been damaged, modified time is %s, change time is %s", VEXO_AT,
		     stamp(st.st_mtime).c_str(), stamp(st.st_ctime).c_str());
		keepDamaged();
	}
	if (vexo::sysroot::rename(kTmp, kDoc) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to re-new %s with %s", VEXO_AT, kDoc, kTmp);
		VEXO_ERR(VEXO_ERR_WRITE);
		return -1;
	}
	doc = readDoc(nullptr);
	if (!doc) {
		vlog(LOG_ERR, "%s:%d Failed to parse file %s again !!!", VEXO_AT, kDoc);
		VEXO_ERR(VEXO_ERR_READ);
		return -1;
	}
	if (!(root = vexo::xml::root(doc, "overview"))) {
		vlog(LOG_ERR, "%s:%d Failed to get root node from file %s again !!!", VEXO_AT, kDoc);
		VEXO_ERR(VEXO_ERR_READ);
		return -1;
	}
	*rootOut = root;
	*docOut = doc.release();
	return 0;
}
