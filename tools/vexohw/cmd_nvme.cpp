// vexohw nvme: what an NVMe drive says of itself through its admin
// commands (identity, temperature, self-test abilities, wear and
// warnings), its health values, any log page as bytes, and the critical
// warning the library keeps for it. Nothing here changes the drive.
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>
#include <vexohw/disk_debug.h>
#include <vexohw/frame.h>
#include <vexohw/smart_nvme.h>
#include <vexohw/smart_serial.h>
#include <vexoplatform/nvme_admin.h>
#include <vexoplatform/nvme_smart.h>
#include <vexoplatform/vexoerr.h>

#include "asleep.h"
#include "cmd_nvme_common.h"

using namespace vexo::cli;
using namespace vexo::cli::nvme;

namespace {

// Calls that fail without ending the command leave their field null and
// a line here; the command then exits non-zero.
struct Misses {
	Value list = Value::list();
	void add(const char *call) { list.push(std::string(call) + " failed (error " + errText() + ")"); }
	static std::string errText()
	{
		char b[16];
		std::snprintf(b, sizeof(b), "0x%04X", VLIBCErrGet());
		return b;
	}
	bool any() const { return !list.asList().empty(); }
};

// The debug overrides a test rig set for the disk, recorded next to what
// the drive itself said; the field then shows the override, as the rest of
// the library reports it.
struct Overrides {
	Value record = Value::object();
	bool any = false;
	void apply(Value &r, const char *field, Value drive, Value forced)
	{
		Value o = Value::object();
		o.set("drive", drive);
		o.set("override", forced);
		record.set(field, o);
		r.set(field, forced);
		any = true;
	}
};

std::string cachedSerial(const std::string &path)
{
	char serial[64] = "";
	if (VEXODiskGetStrValueCacheFile(path.c_str(), "serial", serial, sizeof(serial)) != 0)
		return "";
	serial[std::strcspn(serial, "\r\n")] = '\0';
	return serial;
}

void lifeFields(const std::string &path, Value &r, Misses &miss)
{
	int vexology = VEXODiskIsVexology(path.c_str());
	r.set("vexology", vexology < 0 ? Value() : Value(vexology == 1));
	std::string serial = cachedSerial(path);
	int life = -1, from = 0;
	r.set("serial_checked", !serial.empty());
	if (VEXONVMeRemainingLifeGet(path.c_str(), vexology == 1, serial.c_str(), &life, &from) != 0) {
		if (VLIBCErrGet() == VEXO_ERR_NOT_FOUND)
			miss.list.push("VEXONVMeRemainingLifeGet: the drive's serial is not " + serial +
				       ", the one the disk is known by (error 0x2A00)");
		else
			miss.add("VEXONVMeRemainingLifeGet");
		r.set("remaining_life", Value());
		r.set("life_from", Value());
		return;
	}
	r.set("remaining_life", life);
	r.set("life_from", from == VEXO_NVME_LIFE_FROM_AVAILABLE_SPARE ? "available_spare" : "percentage_used");
}

int info(Context &ctx)
{
	const char *usage = "nvme info DISK [--wake]";
	if (ctx.args.size() != 1)
		return fail("usage: %s", usage);
	std::string path = nvmeDisk(ctx, usage);
	if (path.empty())
		return 1;
	if (leaveAsleep(ctx, path))
		return 0;
	const char *p = path.c_str();
	char model[64] = "";
	// The first question tells whether the controller answers at all.
	if (VEXONVMeDiskModelGet(p, model, sizeof(model)) != 0)
		return fail("can't ask the controller of %s: VEXONVMeDiskModelGet failed (error 0x%04X)", p, VLIBCErrGet());
	Misses miss;
	Value r = Value::object();
	r.set("disk", path);
	r.set("model", model);
	char vendor[64] = "";
	if (VEXONVMeDiskVendorGet(p, vendor, sizeof(vendor)) != 0)
		miss.add("VEXONVMeDiskVendorGet");
	r.set("vendor", vendor[0] ? Value(vendor) : Value());
	char firmware[16] = "", serial[32] = "";
	if (VEXONVMeFirmAndSerialRead(p, firmware, sizeof(firmware), serial, sizeof(serial)) != 0) {
		miss.add("VEXONVMeFirmAndSerialRead");
		r.set("firmware", Value());
		r.set("serial", Value());
	} else {
		r.set("firmware", firmware);
		r.set("serial", serial);
	}
	// Any negative temperature is no reading (sub-zero can't be told from a failure).
	int t = VEXONVMeTemperatureGet(p);
	r.set("temperature_c", t < 0 ? Value() : Value(t));
	r.set("self_test", VEXONVMeSupportSelfTest(p) == 1);
	int minutes = VEXONVMeExtendSelfTestTimeMinGet(p);
	if (minutes < 0)
		miss.add("VEXONVMeExtendSelfTestTimeMinGet");
	r.set("extended_test_minutes", minutes < 0 ? Value() : Value(minutes));
	unsigned int used = 0, warning = 0;
	bool haveUsed = VEXONVMePercentageUsedGet(p, &used) == 0;
	if (!haveUsed)
		miss.add("VEXONVMePercentageUsedGet");
	r.set("percentage_used", haveUsed ? Value(static_cast<int>(used)) : Value());
	bool haveWarning = VEXONVMeCriticalWarningGet(p, &warning) == 0;
	if (!haveWarning)
		miss.add("VEXONVMeCriticalWarningGet");
	r.set("critical_warning", haveWarning ? Value(hexByte(warning)) : Value());
	lifeFields(path, r, miss);

	Overrides o;
	unsigned int dLife = 0, dCrit = 0, dUsed = 0;
	int dTemp = 0;
	int status = VEXONVMeStatusDebugGet(p, &dLife, &dCrit);
	if (status > 0 && (status & 1))
		o.apply(r, "remaining_life", *r.get("remaining_life"), static_cast<int>(dLife));
	if (status > 0 && (status & 2)) {
		o.apply(r, "critical_warning", *r.get("critical_warning"), hexByte(dCrit));
		warning = dCrit;
		haveWarning = true;
	}
	if (VEXONVMeDebugPercentageUsedGet(p, &dUsed) == 1)
		o.apply(r, "percentage_used", *r.get("percentage_used"), static_cast<int>(dUsed));
	if (VEXODiskDebugTemperatureGet(p, &dTemp) == 1)
		o.apply(r, "temperature_c", *r.get("temperature_c"), dTemp);
	r.set("warnings", haveWarning ? warningBits(warning) : Value());
	r.set("debug_overrides", o.any ? o.record : Value());
	if (miss.any())
		r.set("errors", miss.list);
	printRecord(ctx, r);
	return miss.any() ? 1 : 0;
}

int smart(Context &ctx)
{
	const char *usage = "nvme smart DISK [--wake]";
	if (ctx.args.size() != 1)
		return fail("usage: %s", usage);
	std::string path = nvmeDisk(ctx, usage);
	if (path.empty())
		return 1;
	if (leaveAsleep(ctx, path))
		return 0;
	VEXONVMeSmartInfo *list = nullptr;
	if (VEXONVMeSmartInfoGet(path.c_str(), &list) != 0)
		return fail("can't read the health log of %s: VEXONVMeSmartInfoGet failed (error 0x%04X)", path.c_str(),
			    VLIBCErrGet());
	std::unique_ptr<VEXONVMeSmartInfo, void (*)(VEXONVMeSmartInfo *)> owned(list, VEXONVMeSmartInfoFree);
	Value rows = Value::list();
	for (const VEXONVMeSmartInfo *e = list; e; e = e->next) {
		Value row = Value::object();
		row.set("id", e->id);
		row.set("name", e->name);
		row.set("value", e->value);
		rows.push(row);
	}
	std::string title = "health values of " + path;
	printTable(ctx, rows, {{"id", "ID"}, {"name", "NAME"}, {"value", "VALUE"}}, title.c_str());
	return 0;
}

// The ids the health values and vendor attributes go by, for names given.
int attrId(Context &ctx)
{
	if (ctx.args.empty())
		return fail("usage: nvme attr-id NAME...");
	Value rows = Value::list();
	int unknown = 0;
	for (const std::string &name : ctx.args) {
		int id = VEXONVMeSmartStrToID(name.c_str());
		Value row = Value::object();
		row.set("name", name);
		row.set("id", id > 0 ? Value(id) : Value());
		rows.push(row);
		unknown += id <= 0;
	}
	printTable(ctx, rows, {{"name", "NAME"}, {"id", "ID"}});
	if (unknown)
		return fail("%d name%s unknown (names are exact and case-sensitive)", unknown, unknown == 1 ? " is" : "s are");
	return 0;
}

// ---- log pages --------------------------------------------------------------

struct PageName {
	unsigned int page;
	const char *name;
	unsigned int length; // what the page holds, read when no --length is given
};

constexpr PageName kPages[] = {
	{0x01, "error", 64},	     {0x02, "health", 512},	 {0x03, "firmware", 512},
	{0x06, "self-test", 564}, {0xCA, "vendor", 512},
};

// A page by number (decimal or 0x-hex, 0 to 0xFF) or by name; false when neither.
bool parsePage(const std::string &text, unsigned int &page)
{
	for (const auto &p : kPages)
		if (text == p.name) {
			page = p.page;
			return true;
		}
	if (text.empty() || text.size() > 6 || text[0] == '-' || text[0] == '+')
		return false;
	char *end = nullptr;
	errno = 0;
	unsigned long v = std::strtoul(text.c_str(), &end, 0);
	if (errno || *end || v > 0xFF)
		return false;
	page = static_cast<unsigned int>(v);
	return true;
}

unsigned int defaultLength(unsigned int page)
{
	for (const auto &p : kPages)
		if (p.page == page)
			return p.length;
	return 512;
}

// Sixteen bytes a line: offset, bytes in hex, printable characters.
Value dumpRows(const std::vector<unsigned char> &data)
{
	Value rows = Value::list();
	for (size_t off = 0; off < data.size(); off += 16) {
		std::string hex, ascii;
		for (size_t i = off; i < off + 16 && i < data.size(); ++i) {
			char b[4];
			std::snprintf(b, sizeof(b), "%02x", data[i]);
			hex += (i > off ? (i - off == 8 ? "  " : " ") : "") + std::string(b);
			ascii += data[i] >= 0x20 && data[i] < 0x7F ? static_cast<char>(data[i]) : '.';
		}
		char o[24];
		std::snprintf(o, sizeof(o), "%04zx", off);
		Value row = Value::object();
		row.set("offset", o);
		row.set("hex", hex);
		row.set("text", ascii);
		rows.push(row);
	}
	return rows;
}

int logPage(Context &ctx)
{
	const char *usage = "nvme log DISK PAGE [--length N] [--wake]";
	if (ctx.args.size() != 2)
		return fail("usage: %s", usage);
	unsigned int page = 0;
	if (!parsePage(ctx.args[1], page))
		return fail("bad log page \"%s\": a number from 0 to 0xFF, or error, health, firmware, self-test, vendor",
			    ctx.args[1].c_str());
	int length = static_cast<int>(defaultLength(page));
	if (ctx.has("length") && !parseInt(ctx.opt("length"), 1, 4096, length))
		return fail("bad length \"%s\": 1 to 4096 bytes", ctx.opt("length").c_str());
	std::string path = nvmeDisk(ctx, usage);
	if (path.empty())
		return 1;
	if (leaveAsleep(ctx, path))
		return 0;
	std::vector<unsigned char> data(static_cast<size_t>(length));
	if (VEXONVMeLogGet(path.c_str(), page, data.data(), static_cast<unsigned int>(length)) != 0)
		return fail("can't read log page 0x%02x of %s: VEXONVMeLogGet failed (error 0x%04X%s)", page, path.c_str(),
			    VLIBCErrGet(), VLIBCErrGet() == VEXO_ERR_DEVICE ? "; the drive may not keep that page" : "");
	if (ctx.json) {
		std::string hex;
		for (unsigned char c : data) {
			char b[4];
			std::snprintf(b, sizeof(b), "%02x", c);
			hex += b;
		}
		Value r = Value::object();
		r.set("disk", path);
		r.set("page", hexByte(page));
		r.set("length", length);
		r.set("data", hex);
		printRecord(ctx, r);
		return 0;
	}
	char title[96];
	std::snprintf(title, sizeof(title), "log page 0x%02x of %s, %d bytes", page, path.c_str(), length);
	printTable(ctx, dumpRows(data), {{"offset", "OFFSET"}, {"hex", "BYTES"}, {"text", "TEXT"}}, title);
	return 0;
}

// ---- the cached critical warning ------------------------------------------------

// The bitmap the library keeps for the disk ("critical_warning"); with
// --refresh the drive is read into it first and the change is told.
int warning(Context &ctx)
{
	const char *usage = "nvme warning DISK [--refresh]";
	if (ctx.args.size() != 1)
		return fail("usage: %s", usage);
	std::string path = nvmeDisk(ctx, usage);
	if (path.empty())
		return 1;
	int before = -1;
	bool had = SmartNVMeCritialWarnCacheGet(path.c_str(), &before) == 0;
	Value r = Value::object();
	r.set("disk", path);
	if (ctx.has("refresh")) {
		if (leaveAsleep(ctx, path))
			return 0;
		if (SmartNVMeCritialWarnCacheUpdateIfSupport(path.substr(5).c_str()) != 0)
			return fail("can't refresh the critical warning of %s: SmartNVMeCritialWarnCacheUpdateIfSupport failed "
				    "(error 0x%04X)",
				    path.c_str(), VLIBCErrGet());
		int after = -1;
		if (SmartNVMeCritialWarnCacheGet(path.c_str(), &after) != 0)
			return fail("can't read back the critical warning of %s: SmartNVMeCritialWarnCacheGet failed (error "
				    "0x%04X)",
				    path.c_str(), VLIBCErrGet());
		r.set("previous", had ? Value(hexByte(static_cast<unsigned>(before))) : Value());
		r.set("critical_warning", hexByte(static_cast<unsigned>(after)));
		r.set("warnings", warningBits(static_cast<unsigned>(after)));
		r.set("changed", !had || before != after);
		printRecord(ctx, r);
		if (!ctx.json)
			std::printf("\n%s\n", !had ? "the cache held no value: now it does"
					      : before != after ? "the cached value changed"
								: "the cached value was already so");
		return 0;
	}
	if (!had)
		return fail("no critical warning cached for %s (error 0x%04X; --refresh reads it from the drive)",
			    path.c_str(), VLIBCErrGet());
	r.set("critical_warning", hexByte(static_cast<unsigned>(before)));
	r.set("warnings", warningBits(static_cast<unsigned>(before)));
	printRecord(ctx, r);
	return 0;
}

VEXO_CLI_COMMAND("nvme info", "DISK [--wake]",
		 "an NVMe drive's identity, temperature, self-test abilities, wear, warnings and remaining life", info,
		 {});
VEXO_CLI_COMMAND("nvme smart", "DISK [--wake]", "an NVMe drive's health values with their ids", smart, {});
VEXO_CLI_COMMAND("nvme attr-id", "NAME...", "the id a health value or vendor attribute name goes by", attrId, {});
VEXO_CLI_COMMAND("nvme log", "DISK PAGE [--length N] [--wake]",
		 "an NVMe log page (0 to 0xFF, or error, health, firmware, self-test, vendor) as bytes", logPage,
		 {"length"});
VEXO_CLI_COMMAND("nvme warning", "DISK [--refresh]",
		 "the critical warning kept for an NVMe disk; --refresh reads the drive into it", warning, {});

} // namespace
