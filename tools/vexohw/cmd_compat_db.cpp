// vexohw compat model | latest | properties | path, and db check: questions
// to the compatibility databases without a disk in hand ("would this drive
// be supported before I buy it"), the newest firmware a database lists, and
// what the rules see of a disk.
#include <algorithm>
#include <cctype>
#include <climits>
#include <cstdio>
#include <exception>
#include <fstream>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include <json/json.h>
#include <vexohw/compat.h>
#include <vexohw/dbupdate.h>
#include <vexohw/frame.h>
#include <vexohw/disk.h>
#include <vexohw/disk_port.h>
#include <vexohw/misc.h>
#include <vexoplatform/vexocore.h>

#include "asleep.h"
#include "cli.h"
#include "disk_args.h"

using namespace vexo::cli;

namespace {

std::string statusWord(int status)
{
	char w[32] = {};
	VEXODiskCompatibilityStatusTransfer(status, w, sizeof(w));
	return w;
}

const char *verdictMeaning(int status)
{
	switch (status) {
	case VEXO_DISK_COMPATIBILITY_SUPPORT: return "verified for this box";
	case VEXO_DISK_COMPATIBILITY_NOT_IN_SUPPORT: return "not verified: it may work, nobody checked";
	case VEXO_DISK_COMPATIBILITY_NOT_SUPPORT: return "incompatible: don't use it here";
	case VEXO_DISK_COMPATIBILITY_FOR_EUNIT: return "meant for an expansion unit";
	default: return "no verdict";
	}
}

std::string lower(std::string s)
{
	for (char &c : s)
		c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
	return s;
}

// The host path of an appliance path (under the sysroot when one is set).
std::optional<std::string> hostPath(const std::string &path)
{
	char host[4096];
	if (VEXOExtSysrootPath(path.c_str(), host, sizeof(host)) != 0)
		return std::nullopt;
	return std::string(host);
}

bool boxFileExists(const std::string &path)
{
	auto host = hostPath(path);
	struct stat st {};
	return host && ::stat(host->c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

// A whole file of the box; the databases outgrow readBoxFile's buffer.
std::optional<std::string> boxFileWhole(const std::string &path)
{
	auto host = hostPath(path);
	if (!host)
		return std::nullopt;
	std::ifstream in(*host, std::ios::binary);
	if (!in)
		return std::nullopt;
	std::ostringstream s;
	s << in.rdbuf();
	return s.str();
}

bool parseJson(const std::string &text, Json::Value &out, std::string &why)
{
	Json::CharReaderBuilder b;
	std::unique_ptr<Json::CharReader> reader(b.newCharReader());
	why.clear();
	if (reader->parse(text.data(), text.data() + text.size(), &out, &why))
		return true;
	if (auto nl = why.find('\n'); nl != std::string::npos)
		why = why.substr(0, nl);
	return false;
}

// A jsoncpp value as the renderers' value.
Value toValue(const Json::Value &j)
{
	switch (j.type()) {
	case Json::nullValue: return Value();
	case Json::booleanValue: return Value(j.asBool());
	case Json::intValue: return Value(static_cast<long long>(j.asInt64()));
	case Json::uintValue: return Value(static_cast<unsigned long long>(j.asUInt64()));
	case Json::realValue: return Value(j.asDouble());
	case Json::stringValue: return Value(j.asString());
	case Json::arrayValue: {
		Value l = Value::list();
		for (const auto &e : j)
			l.push(toValue(e));
		return l;
	}
	case Json::objectValue: {
		Value o = Value::object();
		for (const auto &k : j.getMemberNames())
			o.set(k, toValue(j[k]));
		return o;
	}
	}
	return Value();
}

// Versions compare as the library compares them: single-precision floats.
std::optional<float> versionNumber(const std::string &text)
{
	try {
		size_t used = 0;
		float f = std::stof(text, &used);
		return used ? std::optional<float>(f) : std::nullopt;
	} catch (...) {
		return std::nullopt;
	}
}

// The version asked about: --at, else the running one. 0, or the exit
// status after saying why.
int versionOf(const Context &ctx, std::string &version)
{
	unsigned base = 0, nano = 0;
	if (ctx.has("at")) {
		if (!parseVersion(ctx.opt("at"), base, nano))
			return fail("--at needs a system version BUILD[.UPDATE], not '%s'", ctx.opt("at").c_str());
	} else if (VEXOVOSVerGet(&base, &nano) != 0) {
		return fail("can't read the running system version (VEXOVOSVerGet, error 0x%04X)", VLIBCErrGet());
	}
	version = std::to_string(base) + "." + std::to_string(nano);
	return 0;
}

// Card and unit names go into a file name: plain words only.
bool plainName(const std::string &s)
{
	if (s.empty() || s.size() > 64)
		return false;
	return std::all_of(s.begin(), s.end(), [](char c) {
		return std::isalnum(static_cast<unsigned char>(c)) || c == '-' || c == '_' || c == '.';
	}) && s != "." && s != "..";
}

// A file named on the command line, as an appliance path.
std::string absolutePath(const std::string &p)
{
	if (p.empty() || p[0] == '/')
		return p;
	char cwd[4096];
	return ::getcwd(cwd, sizeof(cwd)) ? std::string(cwd) + "/" + p : p;
}

// The database a question goes to: --db FILE, --card NAME (an adapter
// card's), --unit NAME (an expansion unit model's) or the host bays'. The
// names are built as the library builds a disk's. 0, or the exit status.
int chooseDb(const Context &ctx, std::string &path, std::string &kind)
{
	const int given = ctx.has("db") + ctx.has("card") + ctx.has("unit");
	if (given > 1)
		return fail("name one database: --db, --card or --unit");
	std::string format;
	if (ctx.has("db")) {
		path = absolutePath(ctx.opt("db"));
		kind = "file";
		if (path.empty())
			return fail("--db needs a file");
		return 0;
	}
	if (ctx.has("unit")) {
		const std::string unit = ctx.opt("unit");
		if (!plainName(unit))
			return fail("--unit needs an expansion unit model such as XU05, not '%s'", unit.c_str());
		path = std::string(VEXO_COMPAT_DB_DIR) + lower(unit) + VEXO_COMPAT_DB_SUFFIX;
		kind = "unit";
		return 0;
	}
	if (ctx.has("card")) {
		const std::string card = ctx.opt("card");
		if (!plainName(card))
			return fail("--card needs an adapter card name such as M2C-D2, not '%s'", card.c_str());
		format = std::string(VEXO_COMPAT_DB_DIR) + "%s_" + lower(card) + VEXO_COMPAT_DB_SUFFIX;
		kind = "card";
	} else {
		format = std::string(VEXO_COMPAT_DB_DIR) + "%s_host" + VEXO_COMPAT_DB_SUFFIX;
		kind = "host";
	}
	char out[1024] = {};
	if (VEXODiskModelReplaceName(format.c_str(), out, sizeof(out)) != 0)
		return fail("can't read this box's model (VEXODiskModelReplaceName, error 0x%04X)", VLIBCErrGet());
	path = out;
	return 0;
}

// Reads a compatibility database for the explanations the library's
// answers leave out (which key matched, every firmware of a model). 0, or
// the exit status after saying what is wrong with the file.
int loadDb(const std::string &path, Json::Value &root)
{
	auto text = boxFileWhole(path);
	if (!text)
		return fail("%s: no such database on this box", path.c_str());
	std::string why;
	if (!parseJson(*text, root, why))
		return fail("%s is not JSON: %s", path.c_str(), why.c_str());
	if (!root.isObject() || !root["disk_compatbility_info"].isObject())
		return fail("%s is not a compatibility database (no \"disk_compatbility_info\" object)", path.c_str());
	return 0;
}

// The key whose node the library took for a model: the exact key always
// wins, else the first key in byte order that matches as a pattern.
std::string matchedKey(const Json::Value &info, const std::string &model, const Json::Value &node)
{
	if (info.isMember(model))
		return model;
	for (const auto &k : info.getMemberNames())
		if (info[k] == node && VEXODiskConfigMatch(model.c_str(), k.c_str(), 3, 0, 0))
			return k;
	return "";
}

// The interval of a firmware entry that a version falls in: a version
// equal to a cut belongs to the interval after it. -1 when the entry is
// malformed or a cut is not a number.
int intervalIndex(const Json::Value &entry, const std::string &version)
{
	const Json::Value &cuts = entry["vos_ver"];
	const Json::Value &intervals = entry["compatibility_interval"];
	const unsigned n = cuts.isArray() ? cuts.size() : 0;
	if (!intervals.isArray() || intervals.size() != n + 1)
		return -1;
	auto want = versionNumber(version);
	if (!want)
		return -1;
	for (unsigned i = 0; i < n; ++i) {
		auto cut = cuts[i].isString() ? versionNumber(cuts[i].asString()) : std::nullopt;
		if (!cut)
			return -1;
		if (*cut > *want)
			return static_cast<int>(i);
	}
	return static_cast<int>(n);
}

Value cutAt(const Json::Value &entry, int i)
{
	const Json::Value &cuts = entry["vos_ver"];
	if (i < 0 || !cuts.isArray() || static_cast<unsigned>(i) >= cuts.size())
		return Value();
	return cuts[i].isConvertibleTo(Json::stringValue) ? Value(cuts[i].asString()) : Value();
}

bool databaseWord(const std::string &w)
{
	return w == "support" || w == "unverified" || w == "not_support" || w == "for_eunit";
}

// How the DB_Mapping list treats a word the four database words lack, at
// a version: the entry that maps it, or the one where the walk stopped.
Value mappingOf(const Json::Value &mapping, const std::string &word, const std::string &version, int status)
{
	Value m = Value::object();
	m.set("word", word);
	m.set("to", statusWord(status));
	m.set("entry_time", Value());
	auto want = versionNumber(version);
	if (!mapping.isArray() || mapping.empty()) {
		m.set("why", "the database has no DB_Mapping: an unknown word is not_in_support");
		return m;
	}
	for (const auto &e : mapping) {
		if (!e.isObject() || !e["time"].isString() || !e["str"].isString() || !e["mapping"].isString())
			continue;
		auto t = versionNumber(e["time"].asString());
		if (t && want && *t <= *want) {
			m.set("entry_time", e["time"].asString());
			m.set("why", "the mapping ended at system version " + e["time"].asString() +
					     ": not_in_support from then on");
			return m;
		}
		if (e["str"].asString() == word && databaseWord(e["mapping"].asString())) {
			m.set("entry_time", e["time"].asString());
			m.set("why", "mapped to \"" + e["mapping"].asString() + "\" until system version " +
					     e["time"].asString());
			return m;
		}
	}
	m.set("why", "no DB_Mapping entry names it: not_in_support");
	return m;
}

// The verdict of a firmware entry across system versions: its cuts and the
// times where a mapped word stops being mapped split the versions; each
// stretch is judged at its first version, and neighbours that agree merge.
Value timelineOf(const Json::Value &entry, const Json::Value *mapping)
{
	std::vector<std::pair<float, std::string>> points;
	auto add = [&](const Json::Value &v) {
		if (auto f = v.isString() ? versionNumber(v.asString()) : std::nullopt)
			points.emplace_back(*f, v.asString());
	};
	if (entry["vos_ver"].isArray())
		for (const auto &c : entry["vos_ver"])
			add(c);
	if (mapping && mapping->isArray())
		for (const auto &m : *mapping)
			if (m.isObject())
				add(m["time"]);
	std::sort(points.begin(), points.end());
	points.erase(std::unique(points.begin(), points.end(),
				 [](const auto &a, const auto &b) { return a.first == b.first; }),
		     points.end());
	Value rows = Value::list();
	Value last;
	std::string lastKey;
	for (size_t i = 0; i <= points.size(); ++i) {
		const std::string at = i ? points[i - 1].second : "0.0";
		Json::Value interval;
		const int idx = intervalIndex(entry, at);
		if (idx < 0)
			return Value::list();
		interval = entry["compatibility_interval"][idx];
		int status = 0;
		const std::string word = interval["compatibility"].isString() ? interval["compatibility"].asString() : "";
		const std::string verdict =
			GetCompatibilityByNode(&entry, at.c_str(), mapping, &status) ? statusWord(status) : "unknown";
		if (!last.isNull() && lastKey == word + "\n" + verdict) {
			last.set("until", i < points.size() ? Value(points[i].second) : Value());
			continue;
		}
		if (!last.isNull())
			rows.push(last);
		last = Value::object();
		last.set("from", i ? Value(at) : Value());
		last.set("until", i < points.size() ? Value(points[i].second) : Value());
		last.set("word", word.empty() ? Value() : Value(word));
		last.set("compatibility", verdict);
		lastKey = word + "\n" + verdict;
	}
	rows.push(last);
	return rows;
}

// Every firmware of a model node with its build number, binary and verdict
// at a version; the greatest build first.
Value firmwareRows(const Json::Value &modelNode, const std::string &version, const Json::Value *mapping)
{
	std::vector<std::pair<long long, Value>> rows;
	if (!modelNode.isObject())
		return Value::list();
	for (const auto &fw : modelNode.getMemberNames()) {
		const Json::Value &e = modelNode[fw];
		Value r = Value::object();
		r.set("firmware", fw);
		const bool hasBuild = e.isObject() && e["fw_buildnumber"].isIntegral();
		r.set("build", hasBuild ? Value(static_cast<long long>(e["fw_buildnumber"].asInt64())) : Value());
		r.set("firm_bin", e.isObject() && e["firm_bin"].isString() ? Value(e["firm_bin"].asString()) : Value());
		int status = 0;
		r.set("compatibility", e.isObject() && GetCompatibilityByNode(&e, version.c_str(), mapping, &status)
					       ? Value(statusWord(status))
					       : Value());
		rows.emplace_back(hasBuild ? e["fw_buildnumber"].asInt64() : -1, r);
	}
	std::stable_sort(rows.begin(), rows.end(), [](const auto &a, const auto &b) { return a.first > b.first; });
	Value out = Value::list();
	for (auto &r : rows)
		out.push(r.second);
	return out;
}

// compat model MODEL FIRMWARE: the verdict a drive of that model and
// firmware would get, with the entry, the interval and the mapped word
// that decided it.
int compatModel(Context &ctx)
{
	if (ctx.args.size() != 2 || ctx.args[0].empty() || ctx.args[1].empty())
		return fail("usage: compat model MODEL FIRMWARE [--at BUILD[.UPDATE]] [--db FILE|--card NAME|--unit NAME] [--strict]");
	const std::string &model = ctx.args[0], &firmware = ctx.args[1];
	std::string db, kind, version;
	if (int rc = chooseDb(ctx, db, kind); rc || (rc = versionOf(ctx, version)))
		return rc;
	Json::Value root;
	if (int rc = loadDb(db, root))
		return rc;
	const int strict = ctx.has("strict") ? 1 : 0;
	Json::Value mapping, modelNode, entry, interval;
	const int status = GetCompatibilityFromDiskCompatibilityInfo(db.c_str(), model.c_str(), firmware.c_str(),
								     version.c_str(), &strict, &mapping, &modelNode, &entry);
	const bool found = !entry.isNull();
	const bool haveInterval = found && GetBehaviorFromDiskCompatibilityInfo(db.c_str(), model.c_str(), firmware.c_str(),
										version.c_str(), &strict, &interval) == 0;
	const Json::Value *map = mapping.isNull() ? nullptr : &mapping;

	Value r = Value::object();
	r.set("model", model);
	r.set("firmware", firmware);
	r.set("version", version);
	r.set("database", db);
	r.set("database_kind", kind);
	r.set("compatibility", statusWord(status));
	r.set("status", status);
	r.set("meaning", verdictMeaning(status));
	const std::string key = modelNode.isNull() ? "" : matchedKey(root["disk_compatbility_info"], model, modelNode);
	r.set("matched_model", key.empty() ? Value() : Value(key));
	r.set("matched_by", key.empty() ? Value() : Value(key == model ? "name" : "pattern"));
	r.set("firmware_entry", !found ? Value() : Value(modelNode.isMember(firmware) ? firmware : "default"));
	r.set("fw_buildnumber", found && entry["fw_buildnumber"].isIntegral()
					? Value(static_cast<long long>(entry["fw_buildnumber"].asInt64()))
					: Value());
	r.set("firm_bin", found && entry["firm_bin"].isString() ? Value(entry["firm_bin"].asString()) : Value());
	Value iv;
	std::string word;
	if (haveInterval) {
		const int idx = intervalIndex(entry, version);
		iv = Value::object();
		iv.set("index", idx);
		iv.set("from", idx > 0 ? cutAt(entry, idx - 1) : Value());
		iv.set("until", cutAt(entry, idx));
		word = interval["compatibility"].isString() ? interval["compatibility"].asString() : "";
		iv.set("word", word.empty() ? Value() : Value(word));
		iv.set("smart_test_ignore", interval["smart_test_ignore"].isBool() && interval["smart_test_ignore"].asBool());
		iv.set("smart_attr_ignore", interval["smart_attr_ignore"].isBool() && interval["smart_attr_ignore"].asBool());
	}
	r.set("interval", iv);
	r.set("mapping", !word.empty() && !databaseWord(word) ? mappingOf(mapping, word, version, status) : Value());
	r.set("timeline", found ? timelineOf(entry, map) : Value::list());

	// The newest firmware the database lists for the model, and its verdict
	// here: what an upgrade of the drive would come to.
	DiskFirmInfo latest{};
	Value newer;
	if (!modelNode.isNull() && VEXODiskCompatibilityLatestFWInfoGet(model.c_str(), db.c_str(), &latest) == 1 &&
	    latest.firmware != firmware) {
		const int exact = 1;
		int at = GetCompatibilityFromDiskCompatibilityInfo(db.c_str(), model.c_str(), latest.firmware, version.c_str(),
								   &exact, nullptr, nullptr, nullptr);
		newer = Value::object();
		newer.set("firmware", latest.firmware);
		newer.set("build", latest.fw_buildnumber);
		newer.set("firm_bin", latest.firm_bin);
		newer.set("compatibility", statusWord(at));
	}
	r.set("latest_firmware", newer);
	std::string note;
	if (modelNode.isNull())
		note = "the database does not list this model: every drive it doesn't list is not_in_support";
	else if (!found)
		note = strict ? "this firmware is not listed (--strict: \"default\" not tried)"
			      : "neither this firmware nor \"default\" is listed for the model";
	else if (!haveInterval)
		note = "the firmware entry is malformed";
	if (!VLIBCSupportDiskCompatibility())
		note += std::string(note.empty() ? "" : "; ") + "this box doesn't check compatibility: a real drive gets \"disabled\"";
	r.set("note", note.empty() ? Value() : Value(note));

	if (ctx.json) {
		printRecord(ctx, r);
		return 0;
	}
	std::printf("%s %s at %s: %s - %s\n", model.c_str(), firmware.c_str(), version.c_str(), statusWord(status).c_str(),
		    verdictMeaning(status));
	std::printf("  database: %s (%s)\n", db.c_str(), kind.c_str());
	if (!key.empty())
		std::printf("  listed as: \"%s\" (by %s)\n", key.c_str(), key == model ? "name" : "pattern");
	if (found)
		std::printf("  firmware entry: %s%s\n", r.get("firmware_entry")->text().c_str(),
			    r.get("fw_buildnumber")->isNull() ? ""
							      : (" (build " + r.get("fw_buildnumber")->text() + ", " +
								 r.get("firm_bin")->text() + ")").c_str());
	if (haveInterval)
		std::printf("  interval: from %s until %s, word \"%s\"%s%s\n", iv.get("from")->text().c_str(),
			    iv.get("until")->text().c_str(), word.c_str(),
			    iv.get("smart_test_ignore")->json() == "true" ? ", self-test results ignored" : "",
			    iv.get("smart_attr_ignore")->json() == "true" ? ", SMART attributes ignored" : "");
	if (const Value *m = r.get("mapping"); m && !m->isNull())
		std::printf("  mapping: %s\n", m->get("why")->text().c_str());
	if (found && r.get("timeline")->asList().size() > 1) {
		std::printf("  across system versions:\n");
		for (const Value &t : r.get("timeline")->asList())
			std::printf("    %-10s .. %-10s %s\n", t.get("from")->text().c_str(), t.get("until")->text().c_str(),
				    t.get("compatibility")->text().c_str());
	}
	if (!newer.isNull())
		std::printf("  newest firmware listed: %s (build %d): %s here\n", latest.firmware, latest.fw_buildnumber,
			    newer.get("compatibility")->text().c_str());
	if (!note.empty())
		std::printf("  note: %s\n", note.c_str());
	return 0;
}

// An argument that names a disk of the box rather than a drive model.
bool namesDisk(const std::string &arg)
{
	if (arg.rfind("/dev/", 0) == 0)
		return true;
	if (arg.empty() || arg.find_first_of(" /") != std::string::npos)
		return false;
	auto host = hostPath("/sys/block/" + arg);
	struct stat st {};
	return host && ::stat(host->c_str(), &st) == 0;
}

// compat latest MODEL | DISK: the newest firmware the database lists for a
// model; for a disk also whether its own firmware is older.
int compatLatest(Context &ctx)
{
	if (ctx.args.size() != 1 || ctx.args[0].empty())
		return fail("usage: compat latest MODEL|DISK [--db FILE|--card NAME|--unit NAME] [--wake]");
	std::string db, kind, version, model = ctx.args[0], current, disk;
	if (int rc = versionOf(ctx, version))
		return rc;
	const bool chosen = ctx.has("db") || ctx.has("card") || ctx.has("unit");
	if (chosen)
		if (int rc = chooseDb(ctx, db, kind))
			return rc;
	if (namesDisk(model)) {
		disk = devicePath(model);
		// The drive's firmware is read from the drive itself.
		if (leaveAsleep(ctx, disk))
			return 0;
		char m[128] = {}, fw[64] = {}, path[1024] = {};
		const int want = 1;
		if (GetCompatibilityBasicInfo(disk.c_str(), m, sizeof(m), fw, sizeof(fw), &want, path, sizeof(path), nullptr,
					      nullptr, 0) != 1)
			return fail("can't read the model and firmware of %s (GetCompatibilityBasicInfo, error 0x%04X)",
				    disk.c_str(), VLIBCErrGet());
		model = m;
		current = fw;
		if (!chosen) {
			db = path;
			kind = "disk";
		}
	} else if (!chosen && chooseDb(ctx, db, kind)) {
		return 1;
	}
	Json::Value root;
	if (int rc = loadDb(db, root))
		return rc;
	DiskFirmInfo info{};
	const int rc = VEXODiskCompatibilityLatestFWInfoGet(model.c_str(), db.c_str(), &info);
	if (rc < 0)
		return fail("%s: %s is not listed, or an entry lacks its binary (VEXODiskCompatibilityLatestFWInfoGet, error 0x%04X)",
			    db.c_str(), model.c_str(), VLIBCErrGet());
	if (rc == 0)
		return fail("%s: no firmware of %s carries a build number (VEXODiskCompatibilityLatestFWInfoGet)",
			    db.c_str(), model.c_str());

	Json::Value mapping, modelNode, currentEntry;
	const int strict = 1;
	GetCompatibilityFromDiskCompatibilityInfo(db.c_str(), model.c_str(), current.empty() ? info.firmware : current.c_str(),
						  version.c_str(), &strict, &mapping, &modelNode, &currentEntry);
	Value r = Value::object();
	if (!disk.empty())
		r.set("disk", disk);
	r.set("model", model);
	r.set("database", db);
	r.set("latest_firmware", info.firmware);
	r.set("firm_bin", info.firm_bin);
	r.set("fw_buildnumber", info.fw_buildnumber);
	r.set("version", version);
	r.set("firmware", modelNode.isNull() ? Value::list() : firmwareRows(modelNode, version, mapping.isNull() ? nullptr : &mapping));
	if (!disk.empty()) {
		r.set("current_firmware", current);
		const bool listed = !currentEntry.isNull();
		const bool hasBuild = listed && currentEntry["fw_buildnumber"].isIntegral();
		r.set("current_build", hasBuild ? Value(static_cast<long long>(currentEntry["fw_buildnumber"].asInt64())) : Value());
		r.set("newer_available",
		      hasBuild ? Value(currentEntry["fw_buildnumber"].asInt64() < info.fw_buildnumber) : Value());
		r.set("advice", !listed   ? "the database doesn't list this firmware: update the drive database"
				: !hasBuild ? "the database gives this firmware no build number to compare"
				: currentEntry["fw_buildnumber"].asInt64() < info.fw_buildnumber
					? std::string("firmware ") + info.firmware + " is newer"
					: std::string("the drive runs the newest firmware listed"));
	}
	if (ctx.json) {
		printRecord(ctx, r);
		return 0;
	}
	std::printf("%s: newest firmware %s (build %d, %s)\n  database: %s\n", model.c_str(), info.firmware,
		    info.fw_buildnumber, info.firm_bin, db.c_str());
	if (!disk.empty())
		std::printf("  %s runs %s: %s\n", disk.c_str(), current.c_str(), r.get("advice")->text().c_str());
	std::printf("\n");
	printTable(ctx, *r.get("firmware"),
		   {{"firmware", "FIRMWARE"}, {"build", "BUILD"}, {"firm_bin", "BINARY"}, {"compatibility", "AT " + version}});
	return 0;
}

// The rule file of a disk: the expansion units' for a disk on their port.
const char *ruleFileOf(const std::string &disk)
{
	return VEXODiskPortCheck(disk.c_str()) == DISK_PORT_TYPE_EBOX ? VEXO_COMPAT_EUNIT_RULE : VEXO_COMPAT_HOST_RULE;
}

std::string conditionsText(const Json::Value &props)
{
	std::string s;
	if (props.isObject())
		for (const auto &k : props.getMemberNames())
			s += (s.empty() ? "" : ", ") + k + "=" + (props[k].isConvertibleTo(Json::stringValue) ? props[k].asString() : "?");
	return s.empty() ? "-" : s;
}

// Whether every condition of a side holds (positive) or none does
// (negative), asked of the library's matcher; why names the first that
// decided otherwise.
bool sideHolds(const Json::Value &props, const Json::Value &side, bool positive, std::string &why)
{
	for (const auto &k : side.getMemberNames()) {
		const Json::Value &v = side[k];
		const std::string text = v.isConvertibleTo(Json::stringValue) ? v.asString() : "";
		const bool match = VEXODiskRulePropertyMatch(&props, k.c_str(), text.c_str()) == 1;
		if (match != positive) {
			const std::string has = props.isMember(k) ? props[k].asString() : std::string("absent");
			why = positive ? k + " is " + has + ", not " + text : k + " is " + text;
			return false;
		}
	}
	return true;
}

// compat properties DISK: what the rules see of a disk, and which rule
// decides its actions.
int compatProperties(Context &ctx)
{
	if (ctx.args.size() != 1)
		return fail("usage: compat properties DISK [--wake]");
	const std::string disk = devicePath(ctx.args[0]);
	// The host's verdict among the properties reads the drive's firmware.
	if (leaveAsleep(ctx, disk))
		return 0;
	Json::Value props(Json::objectValue);
	if (VEXODiskPropertyGet(disk.c_str(), &props) != 1)
		return fail("can't read the properties of %s (VEXODiskPropertyGet, error 0x%04X)", disk.c_str(), VLIBCErrGet());
	const std::string rulePath = ruleFileOf(disk);
	auto text = boxFileWhole(rulePath);
	if (!text)
		return fail("%s: no rule file on this box", rulePath.c_str());
	Json::Value rules;
	std::string why;
	if (!parseJson(*text, rules, why))
		return fail("%s is not JSON: %s", rulePath.c_str(), why.c_str());
	if (!rules.isObject() || !rules["rules"].isArray() || rules["rules"].empty())
		return fail("%s has no rules", rulePath.c_str());
	const Json::Value &list = rules["rules"];

	Value walked = Value::list();
	int chosen = -1;
	for (unsigned i = 0; i < list.size(); ++i) {
		const Json::Value &rule = list[i];
		const Json::Value &p = rule.isObject() ? rule["property"] : Json::Value::nullSingleton();
		Value w = Value::object();
		w.set("rule", static_cast<int>(i + 1));
		std::string reason;
		bool holds = false;
		if (!p.isObject() || !p["positive"].isObject() || !p["negative"].isObject()) {
			reason = "malformed: needs \"positive\" and \"negative\"";
		} else {
			w.set("positive", conditionsText(p["positive"]));
			w.set("negative", conditionsText(p["negative"]));
			holds = sideHolds(props, p["positive"], true, reason) && sideHolds(props, p["negative"], false, reason);
		}
		w.set("matches", holds);
		w.set("why", holds ? Value("matches") : Value(reason));
		walked.push(w);
		if (holds && chosen < 0)
			chosen = static_cast<int>(i);
	}
	const bool fallback = chosen < 0;
	if (fallback)
		chosen = static_cast<int>(list.size()) - 1;
	const Json::Value &actions = list[chosen]["actions"];

	// The actions cached for the disk, against what the rules say now: a
	// rule file replaced since the last refresh leaves them stale.
	char cached[4096] = {};
	Json::Value cachedActions;
	std::string cacheState = "none";
	if (VEXODiskGetStrValueCacheFile(disk.c_str(), VEXO_COMPAT_ACTION_KEY, cached, sizeof(cached)) == 0)
		cacheState = parseJson(cached, cachedActions, why) && cachedActions == actions ? "agrees" : "differs";

	Value r = Value::object();
	r.set("disk", disk);
	r.set("properties", toValue(props));
	r.set("rule_file", rulePath);
	r.set("rule", chosen + 1);
	r.set("fallback", fallback);
	r.set("actions", actions.isObject() ? toValue(actions) : Value());
	r.set("rules", walked);
	r.set("cached_actions", cacheState);
	if (ctx.json) {
		printRecord(ctx, r);
		return 0;
	}
	std::printf("%s as the rules see it:\n", disk.c_str());
	for (const auto &k : props.getMemberNames())
		std::printf("  %-20s %s\n", k.c_str(),
			    props[k].isConvertibleTo(Json::stringValue) ? props[k].asString().c_str() : "?");
	if (!props.isMember("compatibility"))
		std::printf("  (no verdict cached yet, so no compatibility: `vexohw compat refresh %s` fills it)\n",
			    ctx.args[0].c_str());
	std::printf("\n");
	printTable(ctx, walked,
		   {{"rule", "RULE"}, {"positive", "POSITIVE"}, {"negative", "NEGATIVE"}, {"why", "RESULT"}}, rulePath.c_str());
	std::printf("\nrule %d applies%s: %s\n", chosen + 1, fallback ? " (none matched: the last rule is the fallback)" : "",
		    actions.isObject() ? conditionsText(actions).c_str() : "no actions (the file is malformed there)");
	std::printf("cached actions: %s\n", cacheState == "none"     ? "none yet"
					     : cacheState == "agrees" ? "the same"
								      : "different: `vexohw compat refresh` brings them up to date");
	return 0;
}

// compat path DISK [--dir DIR]: the database and rule file the library
// takes for a disk. Only the device tree is read, never the drive.
int compatPath(Context &ctx)
{
	if (ctx.args.size() != 1)
		return fail("usage: compat path DISK [--dir DIR]");
	const std::string disk = devicePath(ctx.args[0]);
	std::string dir = ctx.has("dir") ? absolutePath(ctx.opt("dir")) : VEXO_COMPAT_DB_DIR;
	if (dir.empty())
		return fail("--dir needs a directory");
	if (dir.back() != '/')
		dir += '/';
	char out[1024] = {};
	if (VEXODiskCompatibilityDBPathGetByDir(disk.c_str(), dir.c_str(), out, sizeof(out)) != 0)
		return fail("can't tell the database of %s (VEXODiskCompatibilityDBPathGetByDir, error 0x%04X)", disk.c_str(),
			    VLIBCErrGet());
	const std::string rule = ruleFileOf(disk);
	Value r = Value::object();
	r.set("disk", disk);
	r.set("database", out);
	r.set("database_exists", boxFileExists(out));
	r.set("rule_file", rule);
	r.set("rule_file_exists", boxFileExists(rule));
	if (ctx.json) {
		printRecord(ctx, r);
		return 0;
	}
	std::printf("%s\n  database:  %s%s\n  rule file: %s%s\n", disk.c_str(), out,
		    r.get("database_exists")->json() == "true" ? "" : " (missing: every drive there is not_in_support)",
		    rule.c_str(), r.get("rule_file_exists")->json() == "true" ? "" : " (missing)");
	return 0;
}

// db check FILE: whether a database file would be accepted on this box,
// and if not, why.
int dbCheck(Context &ctx)
{
	if (ctx.args.size() != 1 || ctx.args[0].empty())
		return fail("usage: db check FILE");
	const std::string file = absolutePath(ctx.args[0]);
	char model[256] = {};
	const bool haveModel = VEXODiskModelReplaceName("%s", model, sizeof(model)) == 0;
	Value r = Value::object();
	r.set("file", file);
	r.set("box_model", haveModel ? Value(model) : Value());
	std::string reason;
	Json::Value root;
	auto text = boxFileWhole(file);
	if (!text) {
		reason = "no such file";
	} else if (std::string why; !parseJson(*text, root, why)) {
		reason = "not JSON: " + why;
	} else if (!root.isObject() || !root["nas_model"].isString()) {
		reason = "it names no model (\"nas_model\")";
	} else if (haveModel && root["nas_model"].asString() != model) {
		reason = "it is for " + root["nas_model"].asString() + ", not " + model;
	}
	r.set("nas_model", root.isObject() && root["nas_model"].isString() ? Value(root["nas_model"].asString()) : Value());
	const Json::Value &info = root.isObject() ? root["disk_compatbility_info"] : Json::Value::nullSingleton();
	r.set("models", info.isObject() ? Value(static_cast<int>(info.size())) : Value());
	const bool valid = VEXOIsValidDbWithModel(file.c_str()) == 1;
	const int err = VLIBCErrGet();
	if (valid)
		reason.clear();
	else if (reason.empty())
		reason = haveModel ? "refused" : "this box's model can't be read";
	r.set("valid", valid);
	r.set("reason", valid ? Value() : Value(reason));
	if (ctx.json)
		printRecord(ctx, r);
	else if (valid)
		std::printf("%s: valid for %s%s\n", file.c_str(), model,
			    info.isObject() ? (" (" + std::to_string(info.size()) + " drive models)").c_str() : "");
	if (!valid)
		return fail("db check: %s refused: %s (VEXOIsValidDbWithModel, error 0x%04X)", file.c_str(), reason.c_str(), err);
	return 0;
}

// A database or rule file of an unexpected shape ends in a message, never
// in an abort.
template <int (*F)(Context &)> int guarded(Context &ctx)
{
	try {
		return F(ctx);
	} catch (const std::exception &e) {
		return fail("a file of unexpected shape: %s", e.what());
	}
}

} // namespace

VEXO_CLI_COMMAND("compat model",
		 "MODEL FIRMWARE [--at BUILD[.UPDATE]] [--db FILE|--card NAME|--unit NAME] [--strict]",
		 "the verdict a drive of that model and firmware would get here, and the entry that decides it",
		 guarded<compatModel>, {"at", "db", "card", "unit"});
VEXO_CLI_COMMAND("compat latest", "MODEL|DISK [--db FILE|--card NAME|--unit NAME] [--wake]",
		 "the newest firmware the database lists for a model, and every firmware it lists", guarded<compatLatest>,
		 {"db", "card", "unit"});
VEXO_CLI_COMMAND("compat properties", "DISK [--wake]",
		 "what the compatibility rules see of a disk and which rule decides its actions", guarded<compatProperties>, {});
VEXO_CLI_COMMAND("compat path", "DISK [--dir DIR]", "the compatibility database and rule file of a disk", guarded<compatPath>,
		 {"dir"});
VEXO_CLI_COMMAND("db check", "FILE", "whether a drive database file is valid for this box's model", guarded<dbCheck>, {});
