// The disk action database: per-model vendor and action flags, read from
// /var/lib/diskaction/diskaction.xml (format in disk_state.h).
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <libxml/parser.h>
#include <libxml/tree.h>
#include <memory>
#include <mutex>
#include <optional>
#include <regex.h>
#include <string>
#include <sys/stat.h>
#include <vector>
#include <vexohw/disk_probe.h>
#include <vexohw/disk_state.h>

#include "frame/err.h"
#include "frame/sysroot.h"
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

enum class Lookup { Found, Unlisted, Failed };

// One <disk> of the database, as read.
struct Row {
	std::optional<std::string> model;
	std::shared_ptr<regex_t> pattern; // null: no pattern, or one that does not compile
	std::optional<std::string> vendor, action;
};

// The database as parsed, and the identity of the file it came from: a
// process that asks about many disks parses it once, and again only when
// the file is replaced or changed.
struct Parsed {
	dev_t dev = 0;
	ino_t ino = 0;
	off_t size = 0;
	struct timespec mtime {}, ctime {};
	std::vector<Row> rows;

	bool sameFile(const struct stat &st) const
	{
		return dev == st.st_dev && ino == st.st_ino && size == st.st_size && mtime.tv_sec == st.st_mtim.tv_sec &&
		       mtime.tv_nsec == st.st_mtim.tv_nsec && ctime.tv_sec == st.st_ctim.tv_sec &&
		       ctime.tv_nsec == st.st_ctim.tv_nsec;
	}
};

std::shared_ptr<regex_t> compile(const std::string &pattern)
{
	auto *re = new regex_t;
	if (regcomp(re, pattern.c_str(), REG_EXTENDED | REG_ICASE | REG_NOSUB) != 0) {
		delete re;
		return nullptr;
	}
	return std::shared_ptr<regex_t>(re, [](regex_t *r) {
		regfree(r);
		delete r;
	});
}

// The rows of the file, or null when it does not parse.
std::shared_ptr<const Parsed> parse(const std::string &host, const struct stat &st)
{
	vexo::xml::Doc doc(
		xmlReadFile(host.c_str(), nullptr, XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING));
	xmlNode *top = vexo::xml::root(doc, "diskaction");
	if (!top)
		return nullptr;
	auto db = std::make_shared<Parsed>();
	db->dev = st.st_dev;
	db->ino = st.st_ino;
	db->size = st.st_size;
	db->mtime = st.st_mtim;
	db->ctime = st.st_ctim;
	for (xmlNode *n = top->children; n; n = n->next) {
		if (!vexo::xml::named(n, "disk"))
			continue;
		Row r;
		r.model = attr(n, "model");
		if (auto p = attr(n, "pattern"))
			r.pattern = compile(*p);
		r.vendor = attr(n, "vendor");
		r.action = attr(n, "action");
		db->rows.push_back(std::move(r));
	}
	return db;
}

// The parsed database of this process, refreshed when the file changed.
std::shared_ptr<const Parsed> database(const std::string &host, const struct stat &st)
{
	static std::mutex lock;
	static std::shared_ptr<const Parsed> cached;
	{
		std::lock_guard<std::mutex> g(lock);
		if (cached && cached->sameFile(st))
			return cached;
	}
	std::shared_ptr<const Parsed> db = parse(host, st);
	if (db) {
		std::lock_guard<std::mutex> g(lock);
		cached = db;
	}
	return db;
}

Entry entryOf(const Row &r)
{
	Entry e;
	if (r.vendor)
		e.vendor = *r.vendor;
	if (r.action && !parseAction(*r.action, e.action))
		vlog(LOG_ERR, "%s:%d Bad action [%s] in %s", VEXO_AT, r.action->c_str(), VEXO_DISK_ACTION_DB);
	return e;
}

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
	std::string host = vexo::sysroot::path(VEXO_DISK_ACTION_DB);
	struct stat st;
	if (::stat(host.c_str(), &st) != 0)
		return Lookup::Unlisted; // a product without a database lists nothing
	std::shared_ptr<const Parsed> db = database(host, st);
	if (!db) {
		vlog(LOG_ERR, "%s:%d Failed to parse %s", VEXO_AT, VEXO_DISK_ACTION_DB);
		VEXO_ERR(VEXO_ERR_READ);
		return Lookup::Failed;
	}
	const Row *byPattern = nullptr;
	for (const Row &r : db->rows) {
		if (r.model && *r.model == model) {
			out = entryOf(r);
			return Lookup::Found;
		}
		if (r.pattern && !byPattern && regexec(r.pattern.get(), model, 0, nullptr, 0) == 0)
			byPattern = &r;
	}
	if (!byPattern)
		return Lookup::Unlisted;
	out = entryOf(*byPattern);
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
