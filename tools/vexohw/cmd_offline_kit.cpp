// The offline kit: its firmware taken into the firmware folder
// (`firmware offline-kit`), and the kit versions uploaded and applied
// (`db kit-version [set N]`).
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include <json/json.h>
#include <vexohw/dbupdate.h>
#include <vexohw/disk_probe.h>
#include <vexohw/drive_bundle.h>
#include <vexohw/ext.h>
#include <vexohw/frame.h>
#include <vexoplatform/vexoarchive.h>
#include <vexoplatform/vexocore.h>

#include "cli.h"
#include "disk_args.h"

using namespace vexo::cli;

namespace {

// Where an uploaded kit is unpacked; the default kit to take firmware from.
constexpr const char *kUploadedKit = "/var/lib/offlinekit";
constexpr const char *kDiskCache = "/run/vexostorage/disks";

std::string hostPath(const std::string &appliancePath)
{
	char host[4096];
	return VEXOExtSysrootPath(appliancePath.c_str(), host, sizeof host) == 0 ? std::string(host) : std::string();
}

// ---- firmware offline-kit [KIT] --------------------------------------------------

struct Binary {
	std::string model, firmware;
	int build = 0;
	size_t digest = 0; // of the content: a binary stored again unchanged is nothing new
};

// The firmware folder's binaries by file name.
std::map<std::string, Binary> firmwareFolder()
{
	std::vector<VEXOFirmwareBinary> out(16);
	int n = 0;
	while ((n = VEXOExtDriveBundleFirmwareIndexGet(out.data(), static_cast<int>(out.size()))) > static_cast<int>(out.size()))
		out.resize(static_cast<size_t>(n));
	std::map<std::string, Binary> m;
	for (int i = 0; i < n; ++i) {
		Binary b{out[i].model, out[i].firmware, out[i].build, 0};
		std::ifstream in(hostPath(std::string(VEXO_FW_UPGRADE_DIR) + out[i].file), std::ios::binary);
		std::ostringstream s;
		s << in.rdbuf();
		b.digest = std::hash<std::string>{}(s.str());
		m[out[i].file] = b;
	}
	return m;
}

// The models of the disks the box knows, as the library finds them: one
// folder per disk in the disk cache, the model cached there or else the
// kernel's (sysfs: no drive is woken).
std::set<std::string> presentModels(int &disks)
{
	std::set<std::string> models;
	disks = 0;
	DIR *d = ::opendir(hostPath(kDiskCache).c_str());
	if (!d)
		return models;
	while (dirent *e = ::readdir(d)) {
		if (e->d_name[0] == '.')
			continue;
		const std::string path = std::string("/dev/") + e->d_name;
		char model[128] = {};
		++disks;
		if ((VEXODiskGetStrValueCacheFile(path.c_str(), "model", model, sizeof model) == 0 && model[0]) ||
		    VEXOLnxDiskGetModel(path.c_str(), model, sizeof model) == 0)
			models.insert(model);
	}
	::closedir(d);
	return models;
}

struct KitEntry {
	std::string model, file;
	bool present = false;
};

// The kit's firmware list, checked whole before anything is taken: the
// library goes on past a bad entry, and a kit is either sound or refused.
bool readFirmwareList(const std::string &kit, std::vector<KitEntry> &entries, std::string &why)
{
	const std::string conf = kit + "/firmware/firmware.json";
	auto text = readBoxFile(conf);
	if (!text) {
		why = "no firmware list " + conf + " in the kit";
		return false;
	}
	Json::Value doc;
	Json::CharReaderBuilder rb;
	std::istringstream in(*text);
	std::string err;
	if (!Json::parseFromStream(rb, in, &doc, &err)) {
		why = conf + " does not parse: " + err;
		return false;
	}
	if (!doc.isArray() && !doc.isObject()) {
		why = conf + " is neither an object nor a list";
		return false;
	}
	if (doc.isArray() && doc.empty()) {
		why = conf + " lists nothing";
		return false;
	}
	const Json::ArrayIndex n = doc.isArray() ? doc.size() : 1;
	for (Json::ArrayIndex i = 0; i < n; ++i) {
		const Json::Value &e = doc.isArray() ? doc[i] : doc;
		const std::string at = conf + (doc.isArray() ? " entry " + std::to_string(i + 1) : "");
		if (!e.isObject() || !e["model"].isString() || !e["file"].isString() || e["model"].asString().empty()) {
			why = at + " lacks a \"model\" or \"file\" text";
			return false;
		}
		const std::string file = e["file"].asString();
		if (file.empty() || file.find('/') != std::string::npos || file == "." || file == "..") {
			why = at + ": \"" + file + "\" is not a file name beside the list";
			return false;
		}
		entries.push_back({e["model"].asString(), file, false});
	}
	return true;
}

// 0 when the archive is whole and signed with key, else the reader's code.
int verifyArchive(const std::string &path, int key)
{
	VEXOARCHIVE *a = vexoarchive_init("");
	if (!a)
		return -1;
	int rc = vexoarchive_open_with_keytype(a, path.c_str(), key);
	vexoarchive_free(a);
	return rc;
}

// A packed kit unpacked into a scratch folder of the box, removed after.
struct Scratch {
	std::string appliance, host;
	~Scratch()
	{
		if (!host.empty()) {
			std::error_code ec;
			std::filesystem::remove_all(host, ec);
		}
	}
};

int unpackKit(const std::string &file, Scratch &s)
{
	const std::string tmp = hostPath("/tmp");
	if (tmp.empty())
		return fail("firmware offline-kit: cannot place /tmp of the box");
	std::error_code ec;
	std::filesystem::create_directories(tmp, ec);
	std::string tmpl = tmp + "/vexohw-kit.XXXXXX";
	if (!::mkdtemp(tmpl.data()))
		return fail("firmware offline-kit: cannot make a scratch folder in /tmp");
	s.host = tmpl;
	s.appliance = "/tmp/" + tmpl.substr(tmpl.rfind('/') + 1);
	VEXOARCHIVE *a = vexoarchive_init(s.appliance.c_str());
	if (!a)
		return fail("firmware offline-kit: cannot start the archive reader");
	int rc = vexoarchive_open_with_keytype(a, file.c_str(), VEXOARCHIVE_KEY_PACKAGE);
	if (rc == 0)
		rc = vexoarchive_extract_multiple(a, 0, VEXOARCHIVE_KEY_PACKAGE);
	vexoarchive_free(a);
	if (rc != 0)
		return fail("firmware offline-kit: %s is not a sound kit: %s (archive code %d); nothing taken", file.c_str(),
			    vexoarchive_strerror(rc), rc);
	return 0;
}

int offlineKit(Context &ctx)
{
	if (ctx.args.size() > 1)
		return fail("usage: firmware offline-kit [KIT] (a kit folder or a packed kit; default %s)", kUploadedKit);
	const std::string given = ctx.args.empty() ? std::string(kUploadedKit) : ctx.args[0];
	struct stat st {};
	const std::string host = hostPath(given);
	if (given.empty() || given[0] != '/' || host.empty() || ::stat(host.c_str(), &st) != 0)
		return fail("firmware offline-kit: no kit at %s (an absolute path on the box)", given.c_str());
	Scratch scratch;
	std::string kit = given;
	if (S_ISREG(st.st_mode)) {
		if (int rc = unpackKit(given, scratch))
			return rc;
		kit = scratch.appliance;
	} else if (!S_ISDIR(st.st_mode)) {
		return fail("firmware offline-kit: %s is neither a folder nor a file", given.c_str());
	}

	std::vector<KitEntry> entries;
	std::string why;
	if (!readFirmwareList(kit, entries, why))
		return fail("firmware offline-kit: bad kit: %s; nothing taken", why.c_str());
	int disks = 0;
	const std::set<std::string> models = presentModels(disks);
	if (disks == 0)
		return fail("firmware offline-kit: the box knows no disk (%s is empty); nothing taken", kDiskCache);
	// Every archive the library would take is checked first, so that a
	// kit with one bad archive stores none of them.
	for (KitEntry &e : entries) {
		e.present = models.count(e.model) > 0;
		if (!e.present)
			continue;
		const std::string archive = kit + "/" + e.file;
		if (int rc = verifyArchive(archive, VEXOARCHIVE_KEY_FIRMWARE))
			return fail("firmware offline-kit: bad kit: the archive %s of %s: %s (archive code %d); nothing taken",
				    e.file.c_str(), e.model.c_str(), vexoarchive_strerror(rc), rc);
	}

	const auto before = firmwareFolder();
	const int rc = VEXODriveBundleUpdateFirmwaresFromOfflineKit(kit.c_str());
	const int error = rc != 0 ? VLIBCErrGet() : 0;
	const auto after = firmwareFolder();

	Value rows = Value::list();
	int stored = 0, taken = 0;
	for (const KitEntry &e : entries) {
		Value row = Value::object();
		row.set("model", e.model);
		row.set("archive", e.file);
		row.set("present", e.present);
		Value landed = Value::list();
		bool had = false;
		for (const auto &[file, b] : after) {
			if (b.model != e.model)
				continue;
			auto was = before.find(file);
			if (was == before.end() || was->second.digest != b.digest) {
				landed.push(std::string(VEXO_FW_UPGRADE_DIR) + file);
				row.set("firmware", b.firmware);
				row.set("build", b.build);
				++stored;
			} else {
				had = true;
			}
		}
		const bool any = !landed.asList().empty();
		const char *state = !e.present ? "skipped: no disk of this model"
				    : any     ? "stored"
				    : rc != 0 ? "failed or already here"
				    : had     ? "already here"
						: "taken, no binary for this model";
		if (e.present)
			++taken;
		if (!row.get("firmware")) {
			row.set("firmware", Value());
			row.set("build", Value());
		}
		row.set("state", state);
		row.set("stored", landed);
		rows.push(row);
	}

	if (ctx.json) {
		Value r = Value::object();
		r.set("kit", given);
		r.set("result", rc);
		r.set("error", error);
		r.set("models_taken", taken);
		r.set("binaries_stored", stored);
		r.set("entries", rows);
		printRecord(ctx, r);
	} else {
		printTable(ctx, rows,
			   {{"model", "MODEL"}, {"archive", "ARCHIVE"}, {"state", "STATE"}, {"firmware", "FIRMWARE"},
			    {"stored", "STORED"}},
			   ("firmware of the offline kit " + given).c_str());
		if (rc == 0)
			std::printf("\n%s\n", stored ? (std::to_string(stored) + " binary(ies) stored in " VEXO_FW_UPGRADE_DIR).c_str()
						    : taken ? "nothing new: the firmware folder holds the kit's binaries already"
							    : "nothing taken: no disk of the box is of a model the kit has firmware for");
	}
	if (rc != 0)
		return fail("firmware offline-kit: VEXODriveBundleUpdateFirmwaresFromOfflineKit failed (error 0x%04X; "
			    "--verbose tells more)",
			    error);
	return 0;
}

// ---- db kit-version [set N] ------------------------------------------------------

Value versionOrNull(int v) { return v > 0 ? Value(v) : Value(); }

int kitVersion(Context &ctx)
{
	if (!ctx.args.empty())
		return fail("usage: db kit-version");
	const int uploaded = VEXODiskUploadOfflineKitVersionGet(), applied = VEXODiskPreviousOfflineKitVersionGet();
	Value r = Value::object();
	r.set("uploaded", versionOrNull(uploaded));
	r.set("applied", versionOrNull(applied));
	r.set("pending", uploaded > 0 && uploaded > applied);
	printRecord(ctx, r);
	if (!ctx.json)
		std::printf("\n%s\n", uploaded <= 0 ? "no kit uploaded (" "/var/lib/offlinekit/INFO" " names no version)"
				      : uploaded > applied ? "the uploaded kit is newer than the one applied: `db update --offline` applies it"
							   : "the uploaded kit is applied");
	return 0;
}

int kitVersionSet(Context &ctx)
{
	int version = 0;
	if (ctx.args.size() != 1)
		return fail("usage: db kit-version set N");
	if (!parseInt(ctx.args[0], 1, INT_MAX, version))
		return fail("db kit-version set: bad version '%s' (a whole number from 1)", ctx.args[0].c_str());
	const int before = VEXODiskPreviousOfflineKitVersionGet();
	Value r = Value::object();
	r.set("before", versionOrNull(before));
	if (before == version) {
		r.set("after", version);
		r.set("changed", false);
		printRecord(ctx, r);
		if (!ctx.json)
			std::printf("\nnothing written: kit version %d is recorded already\n", version);
		return 0;
	}
	if (VEXODiskOfflineKitVerUpdate(version) != 0)
		return fail("db kit-version set: VEXODiskOfflineKitVerUpdate failed (error 0x%04X; --verbose tells more)",
			    VLIBCErrGet());
	const int after = VEXODiskPreviousOfflineKitVersionGet();
	if (after != version)
		return fail("db kit-version set: wrote %d but %d reads back", version, after);
	r.set("after", after);
	r.set("changed", true);
	printRecord(ctx, r);
	return 0;
}

VEXO_CLI_COMMAND("firmware offline-kit", "[KIT]",
		 "store the firmware of an offline kit (folder or packed kit; default the uploaded one) for the models present",
		 offlineKit, {});
VEXO_CLI_COMMAND("db kit-version", "", "the offline kit versions uploaded and applied", kitVersion, {});
VEXO_CLI_COMMAND("db kit-version set", "N", "record kit version N as applied (nothing written when so already)",
		 kitVersionSet, {});

} // namespace
