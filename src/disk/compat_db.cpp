// The compatibility database and rule files, parsed once per process (the
// formats are in compat_db.h).
#include "disk/compat_db.h"

#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <optional>
#include <regex.h>
#include <sys/stat.h>
#include <unordered_map>

#include "frame/jsoncpp.h"
#include "frame/log.h"
#include "frame/sysroot.h"

namespace vexo::compat {

namespace {

// gmapDiskCompatibility: the database's own words. "unverified" is what the
// user sees as "not_in_support".
const std::unordered_map<std::string_view, int> gmapDiskCompatibility = {
	{"support", 1},
	{"unverified", 2},
	{"not_support", 3},
	{"for_eunit", 6},
};

constexpr const char *kStatusStrings[] = {"unknown",   "support",  "not_in_support", "not_support",
					  "disabled",  "forbidden", "for_eunit",     "fw_upgrade_required"};

// A key with none of these is its own literal pattern, so a substring test
// answers what regexec would, without compiling thousands of patterns.
bool isLiteral(std::string_view key)
{
	return key.find_first_of("\\^$.[]|()*+?{}") == std::string_view::npos;
}

char lower(char c)
{
	return static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
}

bool containsNoCase(std::string_view text, std::string_view needle)
{
	if (needle.size() > text.size())
		return false;
	for (std::size_t i = 0; i + needle.size() <= text.size(); ++i) {
		std::size_t k = 0;
		while (k < needle.size() && lower(text[i + k]) == lower(needle[k]))
			++k;
		if (k == needle.size())
			return true;
	}
	return false;
}

struct Regex {
	regex_t re{};
	bool ok = false;
	explicit Regex(const std::string &p) : ok(regcomp(&re, p.c_str(), REG_EXTENDED | REG_ICASE) == 0) {}
	~Regex()
	{
		if (ok)
			regfree(&re);
	}
	Regex(const Regex &) = delete;
	Regex &operator=(const Regex &) = delete;
	bool match(const std::string &text) const
	{
		regmatch_t m[1];
		return ok && regexec(&re, text.c_str(), 1, m, 0) == 0;
	}
};

// File identity, as one stat gives it.
struct Identity {
	dev_t dev = 0;
	ino_t ino = 0;
	off_t size = 0;
	struct timespec mtime {}, ctime {};

	explicit Identity(const struct stat &st)
	    : dev(st.st_dev), ino(st.st_ino), size(st.st_size), mtime(st.st_mtim), ctime(st.st_ctim)
	{
	}
	bool operator==(const Identity &o) const
	{
		return dev == o.dev && ino == o.ino && size == o.size && mtime.tv_sec == o.mtime.tv_sec &&
		       mtime.tv_nsec == o.mtime.tv_nsec && ctime.tv_sec == o.ctime.tv_sec &&
		       ctime.tv_nsec == o.ctime.tv_nsec;
	}
};

// Parsed files of one kind, per appliance path.
template <typename T>
class FileCache {
public:
	using Make = std::shared_ptr<const T> (*)(Json::Value &&doc, LoadFail *why);

	std::shared_ptr<const T> get(const char *path, Make make, LoadFail *why)
	{
		LoadFail dummy;
		LoadFail &fail = why ? *why : dummy;
		fail = LoadFail::None;
		struct stat st;
		if (!path || sysroot::stat(path, &st) != 0 || !S_ISREG(st.st_mode)) {
			fail = LoadFail::Missing;
			return nullptr;
		}
		Identity id(st);
		{
			std::lock_guard<std::mutex> g(lock_);
			auto it = files_.find(path);
			if (it != files_.end() && it->second.id == id)
				return it->second.value;
		}
		// Parsed outside the lock: a slow parse of one file must not stall
		// lookups in another.
		Json::Value doc;
		if (!jsoncpp::readFile(path, doc)) {
			fail = LoadFail::Unreadable;
			return nullptr;
		}
		if (!doc.isObject()) {
			fail = LoadFail::NotObject;
			return nullptr;
		}
		std::shared_ptr<const T> value = make(std::move(doc), &fail);
		if (!value)
			return nullptr;
		std::lock_guard<std::mutex> g(lock_);
		files_.insert_or_assign(path, Entry{id, value});
		return value;
	}
	void clear()
	{
		std::lock_guard<std::mutex> g(lock_);
		files_.clear();
	}

private:
	struct Entry {
		Identity id;
		std::shared_ptr<const T> value;
	};
	std::mutex lock_;
	std::map<std::string, Entry, std::less<>> files_;
};

FileCache<Database> &databases()
{
	static FileCache<Database> c;
	return c;
}
FileCache<Json::Value> &rules()
{
	static FileCache<Json::Value> c;
	return c;
}

std::shared_ptr<const Database> makeDatabase(Json::Value &&doc, LoadFail *why)
{
	const Json::Value *info = jsoncpp::member(doc, "disk_compatbility_info");
	if (!info || !info->isObject()) {
		*why = LoadFail::NoInfo;
		return nullptr;
	}
	return std::make_shared<const Database>(std::move(doc));
}

std::shared_ptr<const Json::Value> makeRules(Json::Value &&doc, LoadFail *)
{
	return std::make_shared<const Json::Value>(std::move(doc));
}

// A version or cut as the single-precision float it is compared as.
std::optional<float> versionFloat(const std::string &text)
{
	errno = 0;
	char *end = nullptr;
	float f = std::strtof(text.c_str(), &end);
	if (end == text.c_str() || errno == ERANGE || std::isnan(f))
		return std::nullopt;
	return f;
}

std::string compactText(const Json::Value &v)
{
	Json::StreamWriterBuilder b;
	b["indentation"] = "";
	return Json::writeString(b, v);
}

} // namespace

// Model keys in byte order, each a literal or a compiled pattern, and the
// answers already given.
struct Database::Impl {
	struct Key {
		const std::string *name;
		const Json::Value *node;
		std::unique_ptr<Regex> re; // null for a literal
	};
	std::vector<Key> keys;
	mutable std::mutex lock;
	mutable std::unordered_map<std::string, std::pair<const Json::Value *, std::string>> memo;
	std::vector<std::string> names;
};

Database::Database(Json::Value root) : root_(std::move(root)), impl_(std::make_unique<Impl>())
{
	const Json::Value &inf = root_["disk_compatbility_info"];
	impl_->names.reserve(inf.size());
	for (auto it = inf.begin(); it != inf.end(); ++it)
		impl_->names.push_back(it.name());
	impl_->keys.reserve(impl_->names.size());
	for (const std::string &n : impl_->names) {
		Impl::Key k{&n, &inf[n], nullptr};
		if (!isLiteral(n))
			k.re = std::make_unique<Regex>(n);
		impl_->keys.push_back(std::move(k));
	}
}

Database::~Database() = default;

const Json::Value *Database::mapping() const
{
	return jsoncpp::member(root_, "DB_Mapping");
}

const Json::Value *Database::modelNode(const std::string &model, std::string *key) const
{
	const Json::Value &inf = info();
	if (const Json::Value *n = inf.find(model.data(), model.data() + model.size())) {
		if (key)
			*key = model;
		return n;
	}
	{
		std::lock_guard<std::mutex> g(impl_->lock);
		auto it = impl_->memo.find(model);
		if (it != impl_->memo.end()) {
			if (key && it->second.first)
				*key = it->second.second;
			return it->second.first;
		}
	}
	const Impl::Key *hit = nullptr;
	for (const Impl::Key &k : impl_->keys) {
		if (k.re ? k.re->match(model) : containsNoCase(model, *k.name)) {
			hit = &k;
			break;
		}
	}
	std::lock_guard<std::mutex> g(impl_->lock);
	if (impl_->memo.size() > 4096) // a process asking about endless models
		impl_->memo.clear();
	impl_->memo.emplace(model, hit ? std::make_pair(hit->node, *hit->name)
				       : std::make_pair(static_cast<const Json::Value *>(nullptr), std::string()));
	if (key && hit)
		*key = *hit->name;
	return hit ? hit->node : nullptr;
}

const Json::Value *Database::firmwareNode(const Json::Value &modelNode, const std::string &firmware, bool strict)
{
	if (!modelNode.isObject())
		return nullptr;
	if (const Json::Value *n = modelNode.find(firmware.data(), firmware.data() + firmware.size()))
		return n;
	if (strict)
		return nullptr;
	return jsoncpp::member(modelNode, "default");
}

std::vector<FirmwareEntry> Database::firmwareEntries(const std::string &model) const
{
	std::vector<FirmwareEntry> out;
	const Json::Value *m = modelNode(model);
	if (!m || !m->isObject())
		return out;
	for (auto it = m->begin(); it != m->end(); ++it) {
		FirmwareEntry e;
		e.firmware = it.name();
		e.node = &*it;
		int64_t build = 0;
		if (jsoncpp::get(*it, "fw_buildnumber", build)) {
			e.hasBuildNumber = true;
			e.buildNumber = build;
		}
		e.hasFirmBin = jsoncpp::get(*it, "firm_bin", e.firmBin);
		out.push_back(std::move(e));
	}
	return out;
}

bool wordStatus(std::string_view word, int &status) noexcept
{
	auto it = gmapDiskCompatibility.find(word);
	if (it == gmapDiskCompatibility.end())
		return false;
	status = it->second;
	return true;
}

const char *statusString(int status) noexcept
{
	return status >= 1 && status <= 7 ? kStatusStrings[status] : kStatusStrings[0];
}

int statusOf(const char *text) noexcept
{
	if (!text)
		return 0;
	for (int i = 1; i <= 7; ++i)
		if (std::strcmp(text, kStatusStrings[i]) == 0)
			return i;
	return 0;
}

std::shared_ptr<const Database> database(const char *appliancePath, LoadFail *why)
{
	return databases().get(appliancePath, makeDatabase, why);
}

std::shared_ptr<const Json::Value> ruleFile(const char *appliancePath, LoadFail *why)
{
	return rules().get(appliancePath, makeRules, why);
}

void dropCaches()
{
	databases().clear();
	rules().clear();
}

int intervalIndex(const Json::Value &node, const std::string &version)
{
	static const Json::Value empty(Json::arrayValue);
	const Json::Value *cuts = jsoncpp::member(node, "vos_ver");
	const Json::Value *intervals = jsoncpp::member(node, "compatibility_interval");
	if (!cuts || !cuts->isArray())
		cuts = &empty;
	if (!intervals || !intervals->isArray())
		intervals = &empty;
	if ((cuts->empty() && intervals->empty()) || intervals->size() != cuts->size() + 1) {
		vlog(LOG_ERR, "%s:%d Invalid json format: %s", VEXO_AT, compactText(node).c_str());
		return -1;
	}
	std::optional<float> want = versionFloat(version);
	if (!want) {
		vlog(LOG_ERR, "%s:%d Invalid version %s", VEXO_AT, version.c_str());
		return -1;
	}
	Json::ArrayIndex i = 0;
	for (; i < cuts->size(); ++i) {
		const Json::Value &c = (*cuts)[i];
		std::optional<float> cut = c.isString() ? versionFloat(c.asString()) : std::nullopt;
		if (!cut) {
			vlog(LOG_ERR, "%s:%d Invalid json format: %s", VEXO_AT, compactText(node).c_str());
			return -1;
		}
		if (*cut > *want)
			break;
	}
	return static_cast<int>(i);
}

bool statusOfNode(const Json::Value &node, const std::string &version, const Json::Value *mapping, int &status)
{
	int idx = intervalIndex(node, version);
	if (idx < 0)
		return false;
	const Json::Value &interval = node["compatibility_interval"][static_cast<Json::ArrayIndex>(idx)];
	std::string word;
	if (!jsoncpp::get(interval, "compatibility", word)) {
		vlog(LOG_ERR, "%s:%d Invalid json format %s", VEXO_AT, compactText(interval).c_str());
		status = 0;
		return true;
	}
	if (wordStatus(word, status))
		return true;
	status = 2;
	if (!mapping || mapping->isNull() || (mapping->isArray() && mapping->empty())) {
		vlog(LOG_ERR, "%s:%d [Drive][Compatibility] Not recognized compatibility: %s", VEXO_AT, word.c_str());
		return true;
	}
	if (!mapping->isArray()) {
		vlog(LOG_ERR, "%s:%d Invalid json format: %s", VEXO_AT, compactText(*mapping).c_str());
		return true;
	}
	std::optional<float> want = versionFloat(version);
	for (const Json::Value &m : *mapping) {
		std::string time, str, to;
		if (!m.isObject() || !jsoncpp::get(m, "time", time) || !jsoncpp::get(m, "str", str) ||
		    !jsoncpp::get(m, "mapping", to))
			continue;
		std::optional<float> t = versionFloat(time);
		if (!t || !want) {
			vlog(LOG_ERR, "%s:%d Invalid json format: %s", VEXO_AT, compactText(m).c_str());
			return true;
		}
		// Newest first: past the first mapping that no longer holds, none do.
		if (*t <= *want)
			return true;
		if (str == word && wordStatus(to, status))
			return true;
	}
	return true;
}

bool patternMatch(const std::string &text, const std::string &pattern)
{
	if (isLiteral(pattern))
		return containsNoCase(text, pattern);
	Regex re(pattern);
	return re.match(text);
}

} // namespace vexo::compat
