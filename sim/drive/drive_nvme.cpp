#include "drive_nvme.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <vector>

namespace vexosim::drive {
namespace {

constexpr uint8_t kOpGetLogPage = 0x02, kOpIdentify = 0x06, kOpFirmwareCommit = 0x10, kOpFirmwareDownload = 0x11,
		  kOpSelfTest = 0x14;
constexpr uint32_t kNsidNone = 0, kNamespace = 1, kNsidAll = 0xFFFFFFFF;
constexpr uint32_t kIdentifySize = 4096;
constexpr uint32_t kMdts = 5;                        // 2^5 pages of 4 KiB
constexpr uint32_t kMaxTransfer = (1u << kMdts) * 4096;
constexpr unsigned kErrorLogEntries = 64;            // ELPE + 1
constexpr size_t kSelfTestEntries = 20;              // as many as log 6 holds
constexpr size_t kSelfTestLogSize = 4 + 28 * kSelfTestEntries;
constexpr int kKelvin = 273;

// Completion statuses: status code type << 8 | status code. Refusals of a
// malformed command carry Do Not Retry, as controllers set it.
constexpr int kDnr = 0x4000;
constexpr int kInvalidOpcode = kDnr | 0x001;
constexpr int kInvalidField = kDnr | 0x002;
constexpr int kInternalError = 0x006;
constexpr int kInvalidNamespace = kDnr | 0x00B;
constexpr int kInvalidLogPage = kDnr | 0x109;
constexpr int kSelfTestInProgress = 0x11D;
constexpr int kInvalidFirmwareSlot = 0x106, kInvalidFirmwareImage = 0x107;
constexpr size_t kFirmwareMaxBytes = 16u << 20;

// Self-test codes (STC) and results of log 6.
constexpr unsigned kShortTest = 1, kExtendedTest = 2, kAbortTest = 0xF;
constexpr unsigned kResultAbortedByCommand = 1, kResultUnused = 0xF;

Outcome status(int code, const std::string &why)
{
	Outcome o;
	o.kind = Outcome::Status;
	o.err = code;
	o.note = "refused: " + why;
	return o;
}

Outcome kernelRefuses(int err, const char *why)
{
	Outcome o;
	o.kind = Outcome::Errno;
	o.err = err;
	o.note = std::string("refused: ") + why;
	return o;
}

json_object *member(json_object *o, const char *key)
{
	json_object *v = nullptr;
	return o && json_object_object_get_ex(o, key, &v) ? v : nullptr;
}

int64_t num(json_object *o, const char *key, int64_t fallback)
{
	json_object *v = member(o, key);
	return v ? json_object_get_int64(v) : fallback;
}

std::string text(json_object *o, const char *key, const char *fallback)
{
	json_object *v = member(o, key);
	return v && json_object_is_type(v, json_type_string) ? json_object_get_string(v) : fallback;
}

// The node's "nvme" object, made when asked for writing.
json_object *nvmeKeys(const Drive &d) { return member(d.node(), "nvme"); }
json_object *nvmeKeysForWrite(Drive &d)
{
	json_object *n = nvmeKeys(d);
	if (!n || !json_object_is_type(n, json_type_object)) {
		n = json_object_new_object();
		json_object_object_add(d.node(), "nvme", n);
	}
	return n;
}

void putLe(uint8_t *p, uint64_t v, int bytes)
{
	for (int i = 0; i < bytes; ++i)
		p[i] = static_cast<uint8_t>(v >> (8 * i));
}

// Identify strings: ASCII, left-justified, space-padded.
void putText(uint8_t *p, const std::string &s, std::size_t n)
{
	for (std::size_t i = 0; i < n; ++i)
		p[i] = i < s.size() ? static_cast<uint8_t>(s[i]) : ' ';
}

// Keys may be written "6", "0x06" or "0xc0".
json_object *byNumber(json_object *map, unsigned n)
{
	if (!map || !json_object_is_type(map, json_type_object))
		return nullptr;
	json_object_object_foreach(map, k, v)
	{
		if (std::strtoul(k, nullptr, 0) == n)
			return v;
	}
	return nullptr;
}

std::vector<uint8_t> fromHexText(json_object *v)
{
	return fromHex(v && json_object_is_type(v, json_type_string) ? json_object_get_string(v) : "");
}

int64_t now() { return static_cast<int64_t>(std::time(nullptr)); }

// ---- Identity ---------------------------------------------------------------

std::string model(const Drive &d) { return text(d.node(), "model", "VEXO NM410 400GB"); }
std::string firmware(const Drive &d) { return text(d.node(), "firmware", "VN01"); }

int kelvin(int64_t celsius) { return static_cast<int>(std::clamp<int64_t>(celsius + kKelvin, 0, 0xFFFF)); }

struct Slots {
	unsigned active = 1, next = 0, count = 1;
	std::vector<std::string> revisions; // slot 1 first
};

// The firmware slots: the active one holds the running firmware.
Slots firmwareSlots(const Drive &d)
{
	Slots s;
	json_object *f = member(nvmeKeys(d), "firmware_slots");
	s.active = static_cast<unsigned>(std::clamp<int64_t>(num(f, "active", 1), 1, 7));
	s.next = static_cast<unsigned>(std::clamp<int64_t>(num(f, "next", 0), 0, 7));
	json_object *revs = member(f, "revisions");
	if (revs && json_object_is_type(revs, json_type_array))
		for (size_t i = 0; i < json_object_array_length(revs) && i < 7; ++i) {
			json_object *r = json_object_array_get_idx(revs, i);
			s.revisions.push_back(r && json_object_is_type(r, json_type_string) ? json_object_get_string(r) : "");
		}
	s.count = static_cast<unsigned>(std::max<size_t>({s.revisions.size(), s.active, s.next, 1}));
	s.revisions.resize(s.count);
	s.revisions[s.active - 1] = firmware(d);
	return s;
}

std::vector<uint8_t> identifyController(const Drive &d)
{
	json_object *n = nvmeKeys(d);
	std::vector<uint8_t> page(kIdentifySize, 0);
	uint8_t *p = page.data();
	int64_t vid = num(n, "vid", 0);
	putLe(p + 0, static_cast<uint64_t>(vid), 2);
	putLe(p + 2, static_cast<uint64_t>(num(n, "ssvid", vid)), 2);
	putText(p + 4, text(d.node(), "serial", "VXS0000001"), 20);
	putText(p + 24, model(d), 40);
	putText(p + 64, firmware(d), 8);
	p[77] = kMdts;
	putLe(p + 78, 1, 2);           // controller id
	putLe(p + 80, 0x00010400, 4); // version 1.4
	p[111] = 1;                    // an I/O controller
	putLe(p + 256, 0x0014, 2);     // admin commands: firmware download and commit, device self-test
	p[258] = 3;                    // abort command limit
	p[259] = 3;                    // asynchronous event request limit
	p[260] = static_cast<uint8_t>(0x10 | firmwareSlots(d).count << 1); // activation without reset
	p[261] = 0x04;                 // extended NUMD and log page offset
	p[262] = kErrorLogEntries - 1;
	putLe(p + 266, kelvin(num(n, "warning_temp_threshold", 70)), 2);
	putLe(p + 268, kelvin(num(n, "critical_temp_threshold", 80)), 2);
	putLe(p + 280, d.sizeBytes(), 8); // total capacity
	putLe(p + 316, static_cast<uint64_t>(num(n, "extended_test_minutes", 30)), 2);
	p[318] = 1;                    // one self-test at a time in the subsystem
	p[512] = 0x66;
	p[513] = 0x44;
	putLe(p + 516, 1, 4);          // one namespace
	p[525] = 1;                    // volatile write cache
	putLe(p + 2048, 800, 2);       // power state 0: 8.00 W
	return page;
}

std::vector<uint8_t> identifyNamespace(const Drive &d)
{
	std::vector<uint8_t> page(kIdentifySize, 0);
	uint8_t *p = page.data();
	int lbs = d.logicalBlockSize() > 0 ? d.logicalBlockSize() : 512;
	uint64_t blocks = d.sizeBytes() / static_cast<uint64_t>(lbs);
	putLe(p + 0, blocks, 8);
	putLe(p + 8, blocks, 8);
	putLe(p + 16, blocks, 8);
	unsigned lbads = 0;
	while ((1u << lbads) < static_cast<unsigned>(lbs))
		++lbads;
	if (lbs == 512 || lbs == 4096) {
		// Formats 512 (better) and 4096 (best); the one in use per the node.
		p[25] = 1;
		p[26] = lbs == 4096 ? 1 : 0;
		p[128 + 2] = 9;
		p[128 + 3] = 1;
		p[132 + 2] = 12;
		p[132 + 3] = 0;
	} else {
		p[128 + 2] = static_cast<uint8_t>(lbads);
	}
	return page;
}

// ---- Self-test --------------------------------------------------------------

int64_t testSeconds(json_object *n, unsigned type)
{
	return std::max<int64_t>(0, type == kExtendedTest ? num(n, "extended_test_minutes", 30) * 60
							    : num(n, "short_test_seconds", 120));
}

// Puts a result in front of the history, which is kept newest first.
void recordTest(Drive &d, unsigned type, unsigned result)
{
	json_object *n = nvmeKeysForWrite(d);
	json_object *entry = json_object_new_object();
	json_object_object_add(entry, "type", json_object_new_int(static_cast<int>(type)));
	json_object_object_add(entry, "result", json_object_new_int(static_cast<int>(result)));
	json_object_object_add(entry, "hours", json_object_new_int64(num(n, "power_on_hours", 1234)));
	json_object *next = json_object_new_array();
	json_object_array_add(next, entry);
	json_object *old = member(n, "self_tests");
	if (old && json_object_is_type(old, json_type_array))
		for (size_t i = 0; i < json_object_array_length(old) && i + 1 < kSelfTestEntries; ++i)
			json_object_array_add(next, json_object_get(json_object_array_get_idx(old, i)));
	json_object_object_add(n, "self_tests", next);
	json_object_object_del(n, "running_self_test");
	d.markChanged();
}

// The running test, ended when its time is up. Its completion percent, or
// -1 when none runs.
int runningTest(Drive &d, unsigned &type)
{
	json_object *n = nvmeKeys(d);
	json_object *run = member(n, "running_self_test");
	if (!run)
		return -1;
	type = static_cast<unsigned>(num(run, "type", kShortTest));
	int64_t total = testSeconds(n, type);
	int64_t elapsed = std::max<int64_t>(0, now() - num(run, "started", now()));
	if (elapsed >= total) {
		recordTest(d, type, static_cast<unsigned>(num(n, "self_test_result", 0)) & 0xF);
		return -1;
	}
	return static_cast<int>(std::min<int64_t>(99, elapsed * 100 / total));
}

std::vector<uint8_t> selfTestLog(Drive &d)
{
	std::vector<uint8_t> page(kSelfTestLogSize, 0);
	unsigned type = 0;
	int percent = runningTest(d, type);
	if (percent >= 0) {
		page[0] = static_cast<uint8_t>(type);
		page[1] = static_cast<uint8_t>(percent);
	}
	json_object *tests = member(nvmeKeys(d), "self_tests");
	size_t k = tests && json_object_is_type(tests, json_type_array) ? json_object_array_length(tests) : 0;
	for (size_t i = 0; i < kSelfTestEntries; ++i) {
		uint8_t *e = page.data() + 4 + 28 * i;
		if (i >= k) {
			e[0] = kResultUnused;
			continue;
		}
		json_object *t = json_object_array_get_idx(tests, i);
		e[0] = static_cast<uint8_t>((num(t, "type", kShortTest) & 0xF) << 4 | (num(t, "result", 0) & 0xF));
		e[1] = static_cast<uint8_t>(num(t, "segment", 0));
		uint8_t valid = 0;
		if (member(t, "nsid")) {
			valid |= 1;
			putLe(e + 12, static_cast<uint64_t>(num(t, "nsid", 0)), 4);
		}
		if (member(t, "lba")) {
			valid |= 2;
			putLe(e + 16, static_cast<uint64_t>(num(t, "lba", 0)), 8);
		}
		if (member(t, "sct")) {
			valid |= 4;
			e[24] = static_cast<uint8_t>(num(t, "sct", 0) & 7);
		}
		if (member(t, "sc")) {
			valid |= 8;
			e[25] = static_cast<uint8_t>(num(t, "sc", 0));
		}
		e[2] = valid;
		putLe(e + 4, static_cast<uint64_t>(num(t, "hours", 0)), 8);
	}
	return page;
}

Outcome selfTest(Drive &d, const nvme_admin_cmd &c)
{
	if (c.data_len != 0)
		return status(kInvalidField, "device self-test with data");
	if (c.cdw10 & ~0xFu)
		return status(kInvalidField, "reserved bits of cdw10 set");
	if (c.nsid != kNsidNone && c.nsid != kNamespace && c.nsid != kNsidAll)
		return status(kInvalidNamespace, "no such namespace");
	unsigned stc = c.cdw10 & 0xF, running = 0;
	bool busy = runningTest(d, running) >= 0;
	switch (stc) {
	case kShortTest:
	case kExtendedTest: {
		if (busy)
			return status(kSelfTestInProgress, "a self-test is running");
		json_object *run = json_object_new_object();
		json_object_object_add(run, "type", json_object_new_int(static_cast<int>(stc)));
		json_object_object_add(run, "started", json_object_new_int64(now()));
		json_object_object_add(nvmeKeysForWrite(d), "running_self_test", run);
		d.markChanged();
		return Outcome{};
	}
	case kAbortTest:
		if (busy)
			recordTest(d, running, kResultAbortedByCommand);
		return Outcome{};
	default:
		return status(kInvalidField, "unsupported self-test code");
	}
}

// ---- Log pages --------------------------------------------------------------

std::vector<uint8_t> healthLog(const Drive &d)
{
	json_object *n = nvmeKeys(d);
	std::vector<uint8_t> page(512, 0);
	uint8_t *p = page.data();
	p[0] = static_cast<uint8_t>(num(n, "critical_warning", 0));
	json_object *k = member(n, "temperature_kelvin");
	putLe(p + 1, k ? static_cast<uint64_t>(json_object_get_int64(k)) : kelvin(num(d.node(), "temperature", 35)), 2);
	p[3] = static_cast<uint8_t>(num(n, "available_spare", 100));
	p[4] = static_cast<uint8_t>(num(n, "available_spare_threshold", 10));
	p[5] = static_cast<uint8_t>(num(n, "percentage_used", 2));
	struct Counter {
		std::size_t offset;
		const char *key;
		int64_t fallback;
	};
	// 16-byte counters; a JSON number fills the low 8 bytes.
	static constexpr Counter kCounters[] = {
		{32, "data_units_read", 2516582},   {48, "data_units_written", 3145728},
		{64, "host_read_commands", 48211734}, {80, "host_write_commands", 61029457},
		{96, "controller_busy_time", 412},  {112, "power_cycles", 57},
		{128, "power_on_hours", 1234},	     {144, "unsafe_shutdowns", 3},
		{160, "media_errors", 0},	     {176, "num_err_log_entries", 0},
	};
	for (const auto &c : kCounters)
		putLe(p + c.offset, static_cast<uint64_t>(num(n, c.key, c.fallback)), 8);
	putLe(p + 192, static_cast<uint64_t>(num(n, "warning_temp_time", 0)), 4);
	putLe(p + 196, static_cast<uint64_t>(num(n, "critical_comp_time", 0)), 4);
	return page;
}

std::vector<uint8_t> firmwareSlotLog(const Drive &d)
{
	std::vector<uint8_t> page(512, 0);
	Slots s = firmwareSlots(d);
	page[0] = static_cast<uint8_t>(s.active | s.next << 4);
	for (unsigned i = 0; i < s.count; ++i)
		if (!s.revisions[i].empty())
			putText(page.data() + 8 + 8 * i, s.revisions[i], 8);
	return page;
}

// The maker's own drives keep wear and media counters in vendor log 0xCA
// (512 bytes, little-endian fields at fixed offsets); the node's
// nvme.vendor_log object overrides the defaults by key.
constexpr unsigned kVendorLog = 0xCA;

bool keepsVendorLog(const Drive &d) { return model(d).rfind("VEXO ", 0) == 0; }

std::vector<uint8_t> vendorLog(const Drive &d)
{
	json_object *v = member(nvmeKeys(d), "vendor_log");
	std::vector<uint8_t> page(512, 0);
	struct Field {
		std::size_t offset;
		int bytes;
		const char *key;
		int64_t fallback;
	};
	static constexpr Field kFields[] = {
		{0, 4, "program_fail_count", 0},	  {4, 4, "erase_fail_count", 1},
		{8, 4, "later_bad_block_count", 12},	  {12, 4, "factory_bad_block_count", 34},
		{16, 4, "average_erase_count", 150},	  {20, 4, "max_erase_count", 210},
		{24, 8, "nand_bytes_written", 9876543210}, {32, 8, "host_bytes_written", 8765432109},
		{40, 2, "thermal_throttle_count", 3},	  {42, 2, "power_loss_protection_failures", 0},
	};
	for (const auto &f : kFields)
		putLe(page.data() + f.offset, static_cast<uint64_t>(num(v, f.key, f.fallback)), f.bytes);
	return page;
}

// The whole page, or false when the drive keeps no such log.
bool logPage(Drive &d, unsigned lid, std::vector<uint8_t> &page)
{
	if (json_object *raw = byNumber(member(nvmeKeys(d), "log_pages"), lid)) {
		page = fromHexText(raw);
		return true;
	}
	switch (lid) {
	case 0x01:
		page.assign(64 * kErrorLogEntries, 0); // no errors
		return true;
	case 0x02:
		page = healthLog(d);
		return true;
	case 0x03:
		page = firmwareSlotLog(d);
		return true;
	case 0x06:
		page = selfTestLog(d);
		return true;
	case kVendorLog:
		if (!keepsVendorLog(d))
			return false;
		page = vendorLog(d);
		return true;
	default:
		return false;
	}
}

Outcome getLogPage(Drive &d, const nvme_admin_cmd &c)
{
	unsigned lid = c.cdw10 & 0xFF;
	uint64_t numd = (c.cdw10 >> 16) | static_cast<uint64_t>(c.cdw11 & 0xFFFF) << 16;
	uint64_t offset = c.cdw12 | static_cast<uint64_t>(c.cdw13) << 32;
	if (c.cdw10 & 0x7F00)
		return status(kInvalidField, "log specific field set");
	if (c.cdw11 >> 16)
		return status(kInvalidField, "log specific identifier set");
	if (c.cdw14 || c.cdw15)
		return status(kInvalidField, "reserved dwords set");
	if (c.data_len % 4)
		return status(kInvalidField, "data length is not whole dwords");
	if ((numd + 1) * 4 != c.data_len)
		return status(kInvalidField, "NUMD and data length disagree");
	if (c.data_len > kMaxTransfer)
		return status(kInvalidField, "transfer above the controller's limit");
	if (c.nsid != kNsidNone && c.nsid != kNsidAll)
		return status(kInvalidField, "no per-namespace logs");
	if (offset % 4)
		return status(kInvalidField, "log page offset is not whole dwords");
	std::vector<uint8_t> page;
	if (!logPage(d, lid, page)) {
		char why[48];
		std::snprintf(why, sizeof(why), "log page 0x%02x is not kept", lid);
		return status(kInvalidLogPage, why);
	}
	if (offset >= page.size() && offset > 0)
		return status(kInvalidField, "log page offset past the end of the page");
	// Reading past the end of a page gives zeros.
	auto *out = reinterpret_cast<uint8_t *>(static_cast<uintptr_t>(c.addr));
	std::memset(out, 0, c.data_len);
	if (offset < page.size())
		std::memcpy(out, page.data() + offset, std::min<uint64_t>(c.data_len, page.size() - offset));
	return Outcome{};
}

Outcome identify(const Drive &d, const nvme_admin_cmd &c)
{
	unsigned cns = c.cdw10 & 0xFF;
	if (c.cdw10 >> 8)
		return status(kInvalidField, "controller id or reserved bits of cdw10 set");
	if (c.cdw11 || c.cdw12 || c.cdw13 || c.cdw14 || c.cdw15)
		return status(kInvalidField, "reserved dwords set");
	if (c.data_len != kIdentifySize)
		return status(kInvalidField, "identify data length is not 4096");
	std::vector<uint8_t> page;
	switch (cns) {
	case 0x00:
		if (c.nsid != kNamespace)
			return status(kInvalidNamespace, "no such namespace");
		page = identifyNamespace(d);
		break;
	case 0x01:
		if (c.nsid != kNsidNone)
			return status(kInvalidField, "identify controller with a namespace id");
		page = identifyController(d);
		break;
	default:
		return status(kInvalidField, "unsupported CNS");
	}
	std::memcpy(reinterpret_cast<void *>(static_cast<uintptr_t>(c.addr)), page.data(), page.size());
	return Outcome{};
}

// Firmware Image Download: NUMD (0's based) in cdw10, the offset in dwords
// in cdw11. Pieces come in order; offset 0 starts a new image, kept in
// nvme.firmware_download until a commit.
Outcome firmwareDownload(Drive &d, const nvme_admin_cmd &c)
{
	const uint64_t bytes = (static_cast<uint64_t>(c.cdw10) + 1) * 4, offset = static_cast<uint64_t>(c.cdw11) * 4;
	if (c.data_len != bytes)
		return status(kInvalidField, "NUMD and data length disagree");
	if (bytes > kMaxTransfer)
		return status(kInvalidField, "transfer above the controller's limit");
	if (c.cdw12 || c.cdw13 || c.cdw14 || c.cdw15)
		return status(kInvalidField, "reserved dwords set");
	if (const char *why = firmwarePiece(d.node(), offset == 0))
		return status(kInvalidFirmwareImage, why);
	json_object *fw = member(nvmeKeys(d), "firmware_download");
	std::string image = offset ? text(fw, "image", "") : "";
	if (offset * 2 != image.size())
		return status(kInvalidField, "firmware piece out of order");
	if (offset + bytes > kFirmwareMaxBytes)
		return status(kInvalidField, "firmware image too large");
	image += toHex(reinterpret_cast<const uint8_t *>(static_cast<uintptr_t>(c.addr)), bytes);
	json_object *next = json_object_new_object();
	json_object_object_add(next, "bytes", json_object_new_int64(static_cast<int64_t>(offset + bytes)));
	json_object_object_add(next, "image", json_object_new_string(image.c_str()));
	json_object_object_add(nvmeKeysForWrite(d), "firmware_download", next);
	d.markChanged();
	return Outcome{};
}

// Firmware Commit: slot in cdw10 bits 2:0 (0: the controller picks), commit
// action in bits 5:3. Actions 0, 1 and 3 commit the downloaded image; the
// commit is recorded in nvme.firmware_download.
Outcome firmwareCommit(Drive &d, const nvme_admin_cmd &c)
{
	const unsigned slot = c.cdw10 & 7, action = (c.cdw10 >> 3) & 7;
	if (c.data_len || (c.cdw10 & ~0x8000003Fu) || c.cdw11 || c.cdw12 || c.cdw13 || c.cdw14 || c.cdw15)
		return status(kInvalidField, "reserved bits set or data with a firmware commit");
	if (action > 3)
		return status(kInvalidField, "unsupported commit action");
	Slots slots = firmwareSlots(d);
	if (slot > slots.count)
		return status(kInvalidFirmwareSlot, "no such firmware slot");
	json_object *fw = member(nvmeKeys(d), "firmware_download");
	if (action != 2 && num(fw, "bytes", 0) == 0)
		return status(kInvalidFirmwareImage, "no firmware image downloaded");
	// Actions 1 and 3 make the image the running firmware.
	if (action == 1 || action == 3)
		if (const char *why = firmwareActivate(d.node(), text(fw, "image", ""), text(d.node(), "model", "VEXO NM410 400GB")))
			return status(kInvalidFirmwareImage, why);
	if (!fw) {
		fw = json_object_new_object();
		json_object_object_add(nvmeKeysForWrite(d), "firmware_download", fw);
	}
	json_object_object_add(fw, "slot", json_object_new_int(static_cast<int>(slot ? slot : slots.active)));
	json_object_object_add(fw, "action", json_object_new_int(static_cast<int>(action)));
	d.markChanged();
	return Outcome{};
}

} // namespace

std::string nvmeLine(const nvme_admin_cmd *c)
{
	if (!c)
		return "NVME_ADMIN null";
	char b[320];
	std::snprintf(b, sizeof(b),
		      "NVME_ADMIN opcode=0x%02x flags=0x%02x nsid=0x%08x cdw2=0x%08x cdw3=0x%08x cdw10=0x%08x "
		      "cdw11=0x%08x cdw12=0x%08x cdw13=0x%08x cdw14=0x%08x cdw15=0x%08x data_len=%u "
		      "metadata_len=%u addr=%s",
		      c->opcode, c->flags, c->nsid, c->cdw2, c->cdw3, c->cdw10, c->cdw11, c->cdw12, c->cdw13, c->cdw14,
		      c->cdw15, c->data_len, c->metadata_len, c->addr ? "set" : "null");
	return b;
}

const char *nvmeFaultName(const nvme_admin_cmd &c)
{
	switch (c.opcode) {
	case kOpIdentify: return "nvme_identify";
	case kOpGetLogPage: return "nvme_get_log_page";
	case kOpSelfTest: return "nvme_self_test";
	default: return "nvme_admin";
	}
}

Outcome nvmeAdmin(Drive &d, nvme_admin_cmd &c)
{
	// What the kernel refuses before the controller sees the command.
	if (d.protocol() != "nvme")
		return kernelRefuses(ENOTTY, "NVMe admin command to a non-NVMe drive");
	if (c.flags)
		return kernelRefuses(EINVAL, "flags set");
	if (c.metadata || c.metadata_len)
		return kernelRefuses(EINVAL, "metadata with an admin command");
	if (c.data_len && !c.addr)
		return kernelRefuses(EFAULT, "transfer without a buffer");
	c.result = 0;
	unsigned running = 0;
	runningTest(d, running); // a test whose time is up ends before the command
	if (c.cdw2 || c.cdw3)
		return status(kInvalidField, "reserved dwords set");
	switch (c.opcode) {
	case kOpIdentify:
		return identify(d, c);
	case kOpGetLogPage:
		return getLogPage(d, c);
	case kOpSelfTest:
		return selfTest(d, c);
	case kOpFirmwareDownload:
		return firmwareDownload(d, c);
	case kOpFirmwareCommit:
		return firmwareCommit(d, c);
	default:
		return status(kInvalidOpcode, "unsupported admin opcode");
	}
}

Outcome nvmeFaulted(Outcome o)
{
	if (o.kind == Outcome::Abort) {
		o.kind = Outcome::Status;
		o.err = kInternalError;
	}
	return o;
}

} // namespace vexosim::drive
