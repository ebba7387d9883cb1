// vexohw firmware config [set KEY VALUE]: the upgrade plan as the user
// interface sees it (current, as notified, for the launch summary) and the
// flags behind it; firmware online: the firmware server's offer; db online:
// the drive databases an update looks for.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include <json/json.h>
#include <vexohw/dbupdate.h>
#include <vexohw/drive_bundle.h>
#include <vexoplatform/vexocore.h>

#include "cli.h"

using namespace vexo::cli;

namespace {

constexpr const char *kOnShutdownFlag = "/var/run/drive-bundle/fw-upgrade-on-shutdown";
constexpr const char *kNotificationSource = "/var/lib/drive-bundle/notification-source";
constexpr const char *kLaunchSummarySource = "/var/lib/drive-bundle/launch-summary-source";
constexpr int kMaxDrives = 128;

using InfoGet = int (*)(PVLIBSZHASH *, int);

// The drives one of the ConfigInfoGetBy* calls gives, or null on failure.
Value planRows(InfoGet get)
{
	PVLIBSZHASH hashes[kMaxDrives] = {};
	const int n = get(hashes, kMaxDrives);
	if (n < 0)
		return Value();
	Value rows = Value::list();
	for (int i = 0; i < n && i < kMaxDrives; ++i) {
		Value r = Value::object();
		for (int k = 0; hashes[i] && k < hashes[i]->nItem; ++k)
			r.set(hashes[i]->ppszKey[k], hashes[i]->ppszValue[k]);
		rows.push(std::move(r));
		VLIBCSzHashFree(hashes[i]);
	}
	return rows;
}

// A flag file's text; nothing when it is absent or unreadable.
Value sourceValue(const char *path)
{
	const auto s = readBoxFile(path);
	return s ? Value(*s) : Value();
}

bool onShutdown()
{
	return readBoxFile(kOnShutdownFlag).has_value();
}

Value configRecord()
{
	Value r = Value::object();
	const int state = VEXODriveBundleFWUpgradeStateGet(0);
	constexpr const char *kWords[] = {"do_nothing", "going_to_start", "upgrading_all", "post_handle"};
	r.set("state", state >= 0 && state <= 3 ? Value(kWords[state]) : Value());
	r.set("on_shutdown", onShutdown());
	r.set("notification_source", sourceValue(kNotificationSource));
	r.set("launch_summary_source", sourceValue(kLaunchSummarySource));
	r.set("current", planRows(VEXODriveBundleFWUpgradeConfigInfoGetByCurrent));
	r.set("notification", planRows(VEXODriveBundleFWUpgradeConfigInfoGetByNotification));
	r.set("auto_launch", planRows(VEXODriveBundleFWUpgradeConfigInfoGetByAutoLaunch));
	return r;
}

int firmwareConfig(Context &ctx)
{
	if (!ctx.args.empty())
		return fail("usage: firmware config (firmware config set KEY VALUE changes one setting)");
	Value r = configRecord();
	for (const char *k : {"current", "notification", "auto_launch"})
		if (r.get(k)->isNull())
			return fail("firmware config: the %s plan cannot be read (error 0x%04X)", k, VLIBCErrGet());
	if (ctx.json) {
		printRecord(ctx, r);
		return 0;
	}
	Value head = Value::object();
	for (const auto &[k, v] : r.asObject())
		if (!v.isList())
			head.set(k, v);
	printRecord(ctx, head);
	for (const char *k : {"current", "notification", "auto_launch"}) {
		std::printf("\n");
		printTable(ctx, *r.get(k),
			   {{"id", "ID"}, {"drive_path", "DISK"}, {"firmware", "FROM"}, {"available_firmware", "TO"},
			    {"upgrade_status", "STATUS"}},
			   (std::string("plan: ") + k).c_str());
	}
	return 0;
}

bool yesNo(const std::string &v, bool &out)
{
	if (v == "yes" || v == "on" || v == "1")
		return out = true, true;
	if (v == "no" || v == "off" || v == "0")
		return out = false, true;
	return false;
}

int firmwareConfigSet(Context &ctx)
{
	if (ctx.args.size() != 2)
		return fail("usage: firmware config set KEY VALUE (on-shutdown yes|no; notification PLAN|off; "
			    "launch-summary PLAN|off)");
	const std::string &key = ctx.args[0], &value = ctx.args[1];
	Value r = Value::object();
	r.set("key", key);
	bool changed = false;
	if (key == "on-shutdown") {
		bool on = false;
		if (!yesNo(value, on))
			return fail("firmware config set: on-shutdown takes yes or no, not '%s'", value.c_str());
		const int state = VEXODriveBundleFWUpgradeStateGet(1);
		if (state < 0)
			return fail("firmware config set: the upgrade state cannot be read (error 0x%04X)", VLIBCErrGet());
		// Booking or cancelling must not overwrite a run that is under way.
		if (state > VEXO_FW_UPGRADE_GOING_TO_START)
			return fail("firmware config set: an upgrade is running or being handled (state %d); on-shutdown "
				    "is left alone", state);
		changed = onShutdown() != on || (state == VEXO_FW_UPGRADE_GOING_TO_START) != on;
		if (changed && VEXODriveBundleFWUpgradeOnShutdownSet(on ? 1 : 0) != 0)
			return fail("firmware config set: VEXODriveBundleFWUpgradeOnShutdownSet(%d) failed (error 0x%04X)",
				    on ? 1 : 0, VLIBCErrGet());
		r.set("value", on);
	} else if (key == "notification" || key == "launch-summary") {
		const bool notification = key == "notification";
		const char *file = notification ? kNotificationSource : kLaunchSummarySource;
		const bool off = value == "off";
		if (!off && value.rfind('/', 0) != 0)
			return fail("firmware config set: %s takes an absolute plan path or off, not '%s'", key.c_str(),
				    value.c_str());
		const auto now = readBoxFile(file);
		changed = off ? now.has_value() : !now || *now != value;
		if (changed) {
			const char *path = off ? nullptr : value.c_str();
			const int rc = notification ? VEXODriveBundleFWUpgradeNotificationSet(off ? 0 : 1, path)
						    : VEXODriveBundleFWUpgradeLaunchSummarySet(off ? 0 : 1, path);
			if (rc != 0)
				return fail("firmware config set: VEXODriveBundleFWUpgrade%sSet failed (error 0x%04X)",
					    notification ? "Notification" : "LaunchSummary", VLIBCErrGet());
		}
		r.set("value", off ? Value() : Value(value));
	} else {
		return fail("firmware config set: no setting '%s' (on-shutdown, notification, launch-summary)", key.c_str());
	}
	r.set("changed", changed);
	printRecord(ctx, r);
	return 0;
}

// The server's answer as a record of the CLI's own, read by jsoncpp (the
// library's reader of rule files); false when it is not one JSON value.
Value fromJson(const Json::Value &j)
{
	switch (j.type()) {
	case Json::nullValue:
		return Value();
	case Json::booleanValue:
		return Value(j.asBool());
	case Json::intValue:
		return Value(static_cast<long long>(j.asInt64()));
	case Json::uintValue:
		return Value(static_cast<unsigned long long>(j.asUInt64()));
	case Json::realValue:
		return Value(j.asDouble());
	case Json::stringValue:
		return Value(j.asString());
	case Json::arrayValue: {
		Value l = Value::list();
		for (const Json::Value &item : j)
			l.push(fromJson(item));
		return l;
	}
	case Json::objectValue: {
		Value o = Value::object();
		for (auto it = j.begin(); it != j.end(); ++it)
			o.set(it.name(), fromJson(*it));
		return o;
	}
	}
	return Value();
}

bool parseJson(const std::string &text, Value &out)
{
	Json::CharReaderBuilder b;
	b["collectComments"] = false;
	b["failIfExtra"] = true;
	b["rejectDupKeys"] = false;
	b["stackLimit"] = 64;
	const std::unique_ptr<Json::CharReader> reader(b.newCharReader());
	Json::Value root;
	std::string errs;
	if (!reader->parse(text.data(), text.data() + text.size(), &root, &errs))
		return false;
	out = fromJson(root);
	return true;
}

int firmwareOnline(Context &ctx)
{
	if (ctx.args.size() > 1)
		return fail("usage: firmware online [MODEL]");
	char *buf = nullptr;
	int size = 0;
	const int rc = ctx.args.empty()
			       ? VEXODriveBundleOnlineFirmwareInfoGet(&buf, &size)
			       : VEXODriveBundleOnlineFirmwareInfoGetLastestByModel(ctx.args[0].c_str(), &buf, &size);
	const std::string answer = buf ? std::string(buf, static_cast<std::size_t>(size > 0 ? size : 0)) : "";
	std::free(buf);
	const unsigned err = VLIBCErrGet();
	if (rc != 0)
		return fail("firmware online: the firmware server %s (error 0x%04X)",
			    err == 0x1100 ? "cannot be reached" : "did not answer", err);
	Value offer;
	if (!parseJson(answer.c_str(), offer))
		return fail("firmware online: the server's answer is not JSON (%zu bytes)", answer.size());
	// The server says "not found" and the like in a body of its own.
	if (const Value *e = offer.isObject() ? offer.get("error") : nullptr) {
		std::string one;
		for (char c : e->json())
			if (c != '\n' && !(c == ' ' && !one.empty() && one.back() == ' '))
				one += c;
		return fail("firmware online: the firmware server answered with an error: %s", one.c_str());
	}
	if (!offer.isList()) {
		Value one = Value::list();
		one.push(std::move(offer));
		offer = std::move(one);
	}
	Value rows = Value::list();
	for (const Value &o : offer.asList()) {
		Value row = Value::object();
		if (!ctx.args.empty())
			row.set("model", ctx.args[0]);
		if (o.isObject())
			for (const auto &[k, v] : o.asObject())
				row.set(k, v);
		rows.push(std::move(row));
	}
	printTable(ctx, rows,
		   {{"model", "MODEL"}, {"fw_buildnumber", "BUILD"}, {"version", "VERSION"}, {"size_in_bytes", "SIZE"},
		    {"file", "FILE"}});
	return 0;
}

// A path of a per-model row with the box's model put in, as it is installed.
std::string modelPath(const DiskOnlineDbInfo &d, const char *path)
{
	char out[1024];
	if (!d.perModel || VEXODiskModelReplaceName(path, out, sizeof(out)) != 0)
		return path;
	return out;
}

int dbOnline(Context &ctx)
{
	if (!ctx.args.empty())
		return fail("usage: db online");
	DiskOnlineDbInfo *rows = nullptr;
	const int n = VEXODiskOnlineDbInfoGet(&rows);
	if (n < 0)
		return fail("db online: VEXODiskOnlineDbInfoGet failed (error 0x%04X)", VLIBCErrGet());
	Value out = Value::list();
	for (int i = 0; i < n; ++i) {
		const DiskOnlineDbInfo &d = rows[i];
		char name[1024];
		if (!d.nameFunction || d.nameFunction(d.name, name, sizeof(name)) != 0)
			std::snprintf(name, sizeof(name), "%s", d.name);
		Value r = Value::object();
		r.set("name", name);
		r.set("db_path", modelPath(d, d.dbPath));
		r.set("version_path", modelPath(d, d.versionPath));
		r.set("release_path", d.releasePath[0] ? Value(modelPath(d, d.releasePath)) : Value());
		r.set("required", d.required != 0);
		r.set("copy_to_tmp", d.copyToTmp != 0);
		r.set("status_index", d.statusIndex);
		r.set("per_model", d.perModel != 0);
		r.set("check_model", d.checkModel != 0);
		out.push(std::move(r));
	}
	std::free(rows);
	printTable(ctx, out,
		   {{"name", "NAME"}, {"db_path", "INSTALLED AS"}, {"required", "REQUIRED"},
		    {"check_model", "MODEL CHECK"}});
	return 0;
}

VEXO_CLI_COMMAND("firmware config", "",
		 "the upgrade plan as it stands, as notified and for the launch summary, and the on-shutdown flag",
		 firmwareConfig, {});
VEXO_CLI_COMMAND("firmware config set", "KEY VALUE",
		 "on-shutdown yes|no, notification PLAN|off, launch-summary PLAN|off (nothing done when so already)",
		 firmwareConfigSet, {});
VEXO_CLI_COMMAND("firmware online", "[MODEL]", "the firmware server's offer, or the latest firmware of a model",
		 firmwareOnline, {});
VEXO_CLI_COMMAND("db online", "", "the drive databases an update asks the server for, and where each goes",
		 dbOnline, {});

} // namespace
