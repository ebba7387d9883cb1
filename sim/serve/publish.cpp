// The database server's offer for the simulated appliance: an index for
// its model and a newer copy of each of its drive databases, and the same
// offer packed as an offline kit.
#include "publish.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <dirent.h>
#include <fstream>
#include <iterator>
#include <json/json.h>
#include <openssl/evp.h>
#include <sstream>
#include <stdexcept>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace vexosim::serve {

namespace {

struct Db {
	const char *key;     // index key; "%s" is the model
	const char *path;    // installed file; "%s" is the model
	const char *version; // installed version file
};

// The host's databases as the appliance installs them.
const Db kDbs[] = {
	{"smart", "/var/lib/smartmontools/vexodrivedb.db", "/var/lib/smartmontools/vexodrivedb.version"},
	{"opensource", "/var/lib/smartmontools/drivedb.db", "/var/lib/smartmontools/drivedb.version"},
	{"temperature", "/var/lib/temperature/disk_temperature.xml", "/var/lib/temperature/disk_temperature.version"},
	{"diskaction", "/var/lib/diskaction/diskaction.xml", "/var/lib/diskaction/diskaction.version"},
	{"drive_attribute", "/var/lib/drive_attribute/drive_attribute.db",
	 "/var/lib/drive_attribute/drive_attribute.version"},
	{"HCL_v7_%s", "/var/lib/disk-compatibility/%s_host_v7.db", "/var/lib/disk-compatibility/%s_host_v7.version"},
};

std::string slurp(const std::string &path, bool &ok)
{
	std::ifstream in(path, std::ios::binary);
	ok = static_cast<bool>(in);
	return ok ? std::string(std::istreambuf_iterator<char>(in), {}) : std::string();
}

void put(const std::string &path, const std::string &text)
{
	for (size_t i = 1; i < path.size(); ++i)
		if (path[i] == '/')
			::mkdir(path.substr(0, i).c_str(), 0755);
	std::ofstream out(path, std::ios::binary | std::ios::trunc);
	out << text;
	if (!out.flush())
		throw std::runtime_error("cannot write " + path);
}

std::string fill(const char *format, const std::string &model)
{
	std::string s(format);
	size_t at = s.find("%s");
	return at == std::string::npos ? s : s.replace(at, 2, model);
}

std::string md5(const std::string &text)
{
	unsigned char d[EVP_MAX_MD_SIZE];
	unsigned n = 0;
	if (EVP_Digest(text.data(), text.size(), d, &n, EVP_md5(), nullptr) != 1)
		throw std::runtime_error("md5 failed");
	std::string hex;
	char b[3];
	for (unsigned i = 0; i < n; ++i) {
		std::snprintf(b, sizeof b, "%02x", d[i]);
		hex += b;
	}
	return hex;
}

std::string boxModel(const std::string &root)
{
	bool ok = false;
	std::istringstream in(slurp(root + "/etc.defaults/vexoinfo.conf", ok));
	std::string line;
	while (std::getline(in, line)) {
		if (line.rfind("upnpmodelname=", 0) != 0)
			continue;
		std::string v = line.substr(14);
		v.erase(std::remove(v.begin(), v.end(), '"'), v.end());
		std::transform(v.begin(), v.end(), v.begin(), [](unsigned char c) { return std::tolower(c); });
		return v;
	}
	return "";
}

// The drive models the box holds, as the kernel names them.
std::vector<std::string> driveModels(const std::string &root)
{
	std::vector<std::string> models;
	DIR *d = ::opendir((root + "/sys/block").c_str());
	if (!d)
		return models;
	while (dirent *e = ::readdir(d)) {
		bool ok = false;
		std::string m = slurp(root + "/sys/block/" + e->d_name + "/device/model", ok);
		while (!m.empty() && std::isspace(static_cast<unsigned char>(m.back())))
			m.pop_back();
		if (ok && !m.empty() && std::find(models.begin(), models.end(), m) == models.end())
			models.push_back(m);
	}
	::closedir(d);
	std::sort(models.begin(), models.end());
	return models;
}

std::string text(const Json::Value &v)
{
	Json::StreamWriterBuilder w;
	w["indentation"] = " ";
	return Json::writeString(w, v) + "\n";
}

Json::Value interval(const char *word)
{
	Json::Value entry;
	entry["vos_ver"] = Json::Value(Json::arrayValue);
	entry["compatibility_interval"].append(Json::Value());
	entry["compatibility_interval"][0]["compatibility"] = word;
	return entry;
}

// The newer compatibility database: the installed one with one drive
// model's words changed (to "support" for the first model not supported,
// or "not_support" when all are), or, when none is installed, one that
// verifies every drive of the box.
std::string newerCompatibility(const std::string &installed, bool have, const std::string &model,
			       const std::string &root, std::string &changed)
{
	Json::Value db;
	if (have) {
		Json::CharReaderBuilder r;
		std::istringstream in(installed);
		std::string err;
		if (!Json::parseFromStream(r, in, &db, &err) || !db.isObject())
			have = false;
	}
	if (!have || !db["disk_compatbility_info"].isObject()) {
		db = Json::Value(Json::objectValue);
		for (const std::string &m : driveModels(root))
			db["disk_compatbility_info"][m]["default"] = interval("support");
		db["nas_model"] = model;
		changed = "every drive of the box: support";
		return text(db);
	}
	db["nas_model"] = model;
	Json::Value &info = db["disk_compatbility_info"];
	auto words = [](Json::Value &node, auto &&visit) {
		for (const std::string &fw : node.getMemberNames())
			for (Json::Value &iv : node[fw]["compatibility_interval"])
				visit(iv["compatibility"]);
	};
	// A drive that no interval supports (at any system version) is the one
	// whose verdict surely changes; failing that, one that some interval
	// does not support.
	std::string target, word = "support";
	for (int pass = 0; pass < 2 && target.empty(); ++pass)
		for (const std::string &m : info.getMemberNames()) {
			bool some = false, all = true;
			words(info[m], [&](Json::Value &w) {
				bool other = w.asString() != "support";
				some = some || other;
				all = all && other;
			});
			if (pass == 0 ? all && some : some) {
				target = m;
				break;
			}
		}
	if (target.empty() && !info.getMemberNames().empty()) {
		target = info.getMemberNames().front();
		word = "not_support";
	}
	if (!target.empty()) {
		words(info[target], [&](Json::Value &w) { w = word; });
		changed = target + ": " + word;
	}
	return text(db);
}

long long installedVersion(const std::string &path)
{
	bool ok = false;
	std::string v = slurp(path, ok);
	try {
		return ok ? std::stoll(v) : 0;
	} catch (const std::exception &) {
		return 0;
	}
}

bool exists(const std::string &p)
{
	struct stat st;
	return ::stat(p.c_str(), &st) == 0;
}

} // namespace

std::string publishDatabases(const std::string &root, const std::string &docroot)
{
	const std::string model = boxModel(root);
	const std::string dir = docroot + "/getSSDsInfo/v7";
	struct stat st;
	if (model.empty() || (::stat(dir.c_str(), &st) == 0 && !S_ISDIR(st.st_mode)) || exists(dir + "/" + model + ".json"))
		return ""; // an offer of the test's or the user's own stands
	Json::Value index(Json::objectValue);
	std::string changed;
	for (const Db &db : kDbs) {
		std::string key = fill(db.key, model), path = fill(db.path, model);
		std::string file = path.substr(path.rfind('/') + 1);
		bool have = false;
		std::string body = slurp(root + path, have);
		long long ver = installedVersion(root + fill(db.version, model)) + 1;
		if (key.rfind("HCL_v7_", 0) == 0)
			body = newerCompatibility(body, have, model, root, changed);
		else if (!have && file.size() > 4 && file.compare(file.size() - 4, 4, ".xml") == 0)
			body = "<?xml version=\"1.0\"?>\n<" + file.substr(0, file.size() - 4) + " version=\"" +
			       std::to_string(ver) + "\"/>\n";
		else if (!have)
			body = "# " + key + " drive database for " + model + ", version " + std::to_string(ver) + "\n";
		put(dir + "/" + model + "/" + file, body);
		Json::Value &e = index[key];
		e["ver"] = Json::Int64(ver);
		e["url"] = model + "/" + file;
		e["checksum"] = md5(body);
	}
	// Each adapter card's database the box has: a newer one, words unchanged.
	if (DIR *d = ::opendir((root + "/var/lib/disk-compatibility").c_str())) {
		const std::string prefix = model + "_";
		while (dirent *e = ::readdir(d)) {
			std::string n = e->d_name;
			if (n.size() <= 6 || n.compare(n.size() - 6, 6, "_v7.db") != 0 || n.rfind(prefix, 0) != 0 ||
			    n == model + "_host_v7.db")
				continue;
			std::string stem = n.substr(0, n.size() - 6), key = "HCL_v7_" + stem;
			bool ok = false;
			Json::Value db;
			Json::CharReaderBuilder r;
			std::istringstream in(slurp(root + "/var/lib/disk-compatibility/" + n, ok));
			std::string err;
			if (!Json::parseFromStream(r, in, &db, &err) || !db.isObject())
				continue;
			db["nas_model"] = model; // the card's database is checked against the host
			std::string body = text(db);
			put(dir + "/" + model + "/" + n, body);
			Json::Value &e2 = index[key];
			e2["ver"] = Json::Int64(installedVersion(root + "/var/lib/disk-compatibility/" + stem + ".version") + 1);
			e2["url"] = model + "/" + n;
			e2["checksum"] = md5(body);
		}
		::closedir(d);
	}
	put(dir + "/" + model + ".json", text(index));
	put(dir + "/index.json", text(index));
	return changed;
}

int buildKit(const std::string &root, const std::string &out, int version, const std::string &archiveTool)
{
	const std::string docroot = root + "/srv/vexosim";
	publishDatabases(root, docroot);
	const std::string model = boxModel(root);
	if (model.empty())
		throw std::runtime_error("no upnpmodelname in " + root + "/etc.defaults/vexoinfo.conf");
	const std::string v7 = docroot + "/getSSDsInfo/v7";
	char tmpl[] = "/tmp/vexosim-kit.XXXXXX";
	if (!::mkdtemp(tmpl))
		throw std::runtime_error("cannot make a scratch directory");
	const std::string kit = tmpl;
	bool ok = false;
	std::string index = slurp(v7 + "/" + model + ".json", ok);
	if (!ok)
		throw std::runtime_error("no offer for " + model + " under " + v7);
	put(kit + "/INFO", "version=\"" + std::to_string(version) + "\"\n");
	put(kit + "/" + model + "/" + model + ".json", index);
	Json::Value idx;
	Json::CharReaderBuilder r;
	std::istringstream in(index);
	std::string err;
	if (!Json::parseFromStream(r, in, &idx, &err))
		throw std::runtime_error("the offer's index does not parse: " + err);
	for (const std::string &key : idx.getMemberNames()) {
		std::string url = idx[key]["url"].asString();
		put(kit + "/" + url, slurp(v7 + "/" + url, ok));
	}
	// Each expansion unit whose database the box has installed gets a newer one.
	if (DIR *d = ::opendir((root + "/var/lib/disk-compatibility").c_str())) {
		while (dirent *e = ::readdir(d)) {
			std::string n = e->d_name;
			if (n.size() <= 6 || n.compare(n.size() - 6, 6, "_v7.db") != 0 || n.rfind(model + "_", 0) == 0)
				continue;
			std::string unit = n.substr(0, n.size() - 6), changed;
			std::string body = newerCompatibility(slurp(root + "/var/lib/disk-compatibility/" + n, ok), ok,
							      unit, root, changed);
			Json::Value ui;
			ui["HCL_v7_" + unit]["ver"] =
				Json::Int64(installedVersion(root + "/var/lib/disk-compatibility/" + unit + "_v7.version") + 1);
			ui["HCL_v7_" + unit]["url"] = "eunit/" + unit + "/" + n;
			ui["HCL_v7_" + unit]["checksum"] = md5(body);
			put(kit + "/eunit/" + unit + "/" + n, body);
			put(kit + "/eunit/" + unit + "/" + unit + ".json", text(ui));
		}
		::closedir(d);
	}
	auto runTool = [&](std::vector<std::string> args) {
		pid_t pid = ::fork();
		if (pid == 0) {
			std::vector<char *> argv;
			for (std::string &a : args)
				argv.push_back(a.data());
			argv.push_back(nullptr);
			::execv(argv[0], argv.data());
			::_exit(127);
		}
		int status = 0;
		return pid > 0 && ::waitpid(pid, &status, 0) == pid && WIFEXITED(status) && WEXITSTATUS(status) == 0;
	};
	bool packed = runTool({archiveTool, "keys", root}) &&
		      runTool({archiveTool, "pack", "8", root + "/run/vexosim/archive-keys/8.key", out, kit});
	runTool({"/bin/rm", "-rf", kit});
	return packed ? 0 : 1;
}

} // namespace vexosim::serve
