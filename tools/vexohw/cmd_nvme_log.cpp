// vexohw nvme log: any log page of an NVMe drive as bytes, and the
// firmware slot and self-test pages decoded. Reading a log page changes
// nothing on the drive.
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>
#include <vexoplatform/nvme_admin.h>
#include <vexoplatform/vexoerr.h>

#include "asleep.h"
#include "cmd_nvme_common.h"

using namespace vexo::cli;
using namespace vexo::cli::nvme;

namespace {

constexpr unsigned int kFirmwarePage = 0x03, kSelfTestPage = 0x06;

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

uint64_t le(const std::vector<unsigned char> &d, size_t off, int bytes)
{
	uint64_t v = 0;
	for (int i = bytes - 1; i >= 0; --i)
		v = v << 8 | d[off + static_cast<size_t>(i)];
	return v;
}

std::string revision(const std::vector<unsigned char> &d, size_t off)
{
	std::string r(reinterpret_cast<const char *>(d.data() + off), 8);
	r.erase(r.find_last_not_of(std::string(" \0", 2)) + 1);
	return r;
}

// Firmware slot information: the active slot, the one the next reset
// activates, and the revision in each slot that holds one.
void decodeFirmware(const std::vector<unsigned char> &d, Value &r, Value &rows)
{
	unsigned active = d[0] & 7, next = d[0] >> 4 & 7;
	r.set("active_slot", static_cast<int>(active));
	r.set("next_slot", next ? Value(static_cast<int>(next)) : Value());
	for (unsigned slot = 1; slot <= 7; ++slot) {
		std::string rev = revision(d, 8 * slot);
		if (rev.empty())
			continue;
		Value row = Value::object();
		row.set("slot", static_cast<int>(slot));
		row.set("revision", rev);
		row.set("active", slot == active);
		rows.push(row);
	}
}

const char *testType(unsigned code)
{
	switch (code) {
	case 1:
		return "short";
	case 2:
		return "extended";
	case 0xE:
		return "vendor";
	}
	return "unknown";
}

const char *testResult(unsigned code)
{
	static constexpr const char *kResults[] = {
		"completed",	       "aborted by command",	 "aborted by reset",	     "aborted: namespace removed",
		"aborted by format",  "fatal error",		 "failed, segment unknown", "failed segments",
		"aborted",	       "aborted by sanitize",
	};
	return code < sizeof(kResults) / sizeof(kResults[0]) ? kResults[code] : "unknown";
}

// Device self-test log: the test running now and up to twenty results,
// newest first (result 0xF marks an unused entry).
void decodeSelfTest(const std::vector<unsigned char> &d, Value &r, Value &rows)
{
	unsigned running = d[0] & 0xF;
	r.set("running", running ? Value(testType(running)) : Value());
	r.set("progress_percent", running ? Value(static_cast<int>(d[1] & 0x7F)) : Value());
	for (size_t i = 0; i < 20 && 4 + 28 * (i + 1) <= d.size(); ++i) {
		size_t e = 4 + 28 * i;
		unsigned result = d[e] & 0xF;
		if (result == 0xF)
			continue;
		unsigned valid = d[e + 2];
		Value row = Value::object();
		row.set("number", static_cast<int>(i + 1));
		row.set("type", testType(d[e] >> 4));
		row.set("result", testResult(result));
		row.set("power_on_hours", static_cast<long long>(le(d, e + 4, 8)));
		row.set("segment", d[e + 1] ? Value(static_cast<int>(d[e + 1])) : Value());
		row.set("failing_lba", valid & 2 ? Value(static_cast<long long>(le(d, e + 16, 8))) : Value());
		rows.push(row);
	}
}

std::string hexText(const std::vector<unsigned char> &data)
{
	std::string hex;
	for (unsigned char c : data) {
		char b[4];
		std::snprintf(b, sizeof(b), "%02x", c);
		hex += b;
	}
	return hex;
}

int logPage(Context &ctx)
{
	const char *usage = "nvme log DISK PAGE [--length N | --decode] [--wake]";
	if (ctx.args.size() != 2)
		return fail("usage: %s", usage);
	unsigned int page = 0;
	if (!parsePage(ctx.args[1], page))
		return fail("bad log page \"%s\": a number from 0 to 0xFF, or error, health, firmware, self-test, vendor",
			    ctx.args[1].c_str());
	bool decode = ctx.has("decode");
	if (decode && page != kFirmwarePage && page != kSelfTestPage)
		return fail("--decode knows the firmware (0x03) and self-test (0x06) pages; nvme smart decodes health");
	if (decode && ctx.has("length"))
		return fail("--decode reads the whole page: no --length with it");
	int length = static_cast<int>(defaultLength(page));
	if (ctx.has("length") && !parseInt(ctx.opt("length"), 1, 4096, length))
		return fail("bad length \"%s\": 1 to 4096 bytes", ctx.opt("length").c_str());
	std::string path = nvmeDisk(ctx, usage, 2);
	if (path.empty())
		return 1;
	if (leaveAsleep(ctx, path))
		return 0;
	std::vector<unsigned char> data(static_cast<size_t>(length));
	if (VEXONVMeLogGet(path.c_str(), page, data.data(), static_cast<unsigned int>(length)) != 0)
		return fail("can't read log page 0x%02x of %s: VEXONVMeLogGet failed (error 0x%04X%s)", page, path.c_str(),
			    VLIBCErrGet(), VLIBCErrGet() == VEXO_ERR_DEVICE ? "; the drive may not keep that page" : "");
	Value r = Value::object();
	r.set("disk", path);
	r.set("page", hexByte(page));
	r.set("length", length);
	if (decode) {
		Value rows = Value::list();
		std::vector<Column> cols;
		if (page == kFirmwarePage) {
			decodeFirmware(data, r, rows);
			cols = {{"slot", "SLOT"}, {"revision", "REVISION"}, {"active", "ACTIVE"}};
		} else {
			decodeSelfTest(data, r, rows);
			cols = {{"number", "#"},	    {"type", "TYPE"},	    {"result", "RESULT"},
				{"power_on_hours", "HOURS"}, {"segment", "SEGMENT"}, {"failing_lba", "FAILING LBA"}};
		}
		if (ctx.json) {
			r.set(page == kFirmwarePage ? "slots" : "results", rows);
			printRecord(ctx, r);
			return 0;
		}
		printRecord(ctx, r);
		std::printf("\n");
		printTable(ctx, rows, cols);
		return 0;
	}
	if (ctx.json) {
		r.set("data", hexText(data));
		printRecord(ctx, r);
		return 0;
	}
	char title[96];
	std::snprintf(title, sizeof(title), "log page 0x%02x of %s, %d bytes", page, path.c_str(), length);
	printTable(ctx, dumpRows(data), {{"offset", "OFFSET"}, {"hex", "BYTES"}, {"text", "TEXT"}}, title);
	return 0;
}

VEXO_CLI_COMMAND("nvme log", "DISK PAGE [--length N | --decode] [--wake]",
		 "an NVMe log page (0 to 0xFF, or error, health, firmware, self-test, vendor) as bytes, or decoded",
		 logPage, {"length"});

} // namespace
