#include "drive_model.h"

#include <algorithm>
#include <cstring>
#include <ctime>
#include <unistd.h>

namespace vexosim::drive {

namespace {

constexpr int kActive = 0xFF, kIdle = 0x80, kStandby = 0x00;

struct DefaultAttr {
	int id, flags, value, worst, threshold;
	int64_t raw;
	bool spinning; // only on rotating drives
};

// A healthy drive a few thousand hours old.
constexpr DefaultAttr kDefaultAttrs[] = {
	{1, 0x000B, 100, 100, 16, 0, false},   {3, 0x0007, 171, 171, 24, 400, true},
	{4, 0x0012, 100, 100, 0, 24, true},    {5, 0x0033, 100, 100, 5, 0, false},
	{7, 0x000B, 100, 100, 67, 0, true},    {9, 0x0012, 99, 99, 0, 9991, false},
	{10, 0x0013, 100, 100, 60, 0, true},   {12, 0x0032, 100, 100, 0, 24, false},
	{194, 0x0002, 150, 150, 0, -1, false}, {196, 0x0032, 100, 100, 0, 0, false},
	{197, 0x0022, 100, 100, 0, 0, false},  {198, 0x0008, 100, 100, 0, 0, false},
	{199, 0x000A, 200, 200, 0, 0, false},
};

void putAtaString(uint8_t *page, int word, int words, const std::string &s)
{
	// ATA strings: two characters per word, the first in the high byte.
	for (int i = 0; i < words * 2; ++i) {
		char c = i < static_cast<int>(s.size()) ? s[i] : ' ';
		page[word * 2 + (i ^ 1)] = static_cast<uint8_t>(c);
	}
}

void putWord(uint8_t *page, int word, unsigned v)
{
	page[word * 2] = v & 0xFF;
	page[word * 2 + 1] = (v >> 8) & 0xFF;
}

void putFixed(uint8_t *p, const std::string &s, std::size_t n)
{
	for (std::size_t i = 0; i < n; ++i)
		p[i] = i < s.size() ? s[i] : ' ';
}

void putBe(uint8_t *p, uint64_t v, int bytes)
{
	for (int i = 0; i < bytes; ++i)
		p[i] = static_cast<uint8_t>(v >> (8 * (bytes - 1 - i)));
}

int64_t jnum(json_object *o, const char *key, int64_t fallback)
{
	json_object *v = nullptr;
	if (o && json_object_object_get_ex(o, key, &v) && v)
		return json_object_get_int64(v);
	return fallback;
}

std::string jstr(json_object *o, const char *key, const char *fallback)
{
	json_object *v = nullptr;
	if (o && json_object_object_get_ex(o, key, &v) && json_object_is_type(v, json_type_string))
		return json_object_get_string(v);
	return fallback;
}

bool jbool(json_object *o, const char *key)
{
	json_object *v = nullptr;
	return o && json_object_object_get_ex(o, key, &v) && json_object_get_boolean(v);
}

// Keys may be written "6", "0x06" or "0xe0".
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

Outcome illegal(uint8_t asc, const char *note)
{
	Outcome o;
	o.kind = Outcome::CheckCondition;
	o.senseKey = 0x05;
	o.asc = asc;
	o.note = note ? note : "";
	return o;
}

Outcome aborted(const char *note)
{
	Outcome o;
	o.kind = Outcome::Abort;
	o.ataError = 0x04;
	o.note = note ? note : "";
	return o;
}

} // namespace

void sealPage(uint8_t *page, bool bad)
{
	uint8_t sum = 0;
	for (int i = 0; i < 511; ++i)
		sum = static_cast<uint8_t>(sum + page[i]);
	page[511] = static_cast<uint8_t>(-sum + (bad ? 1 : 0));
}

std::vector<uint8_t> fromHex(const char *hex)
{
	std::vector<uint8_t> out;
	int hi = -1;
	for (const char *p = hex; p && *p; ++p) {
		int v;
		if (*p >= '0' && *p <= '9')
			v = *p - '0';
		else if (*p >= 'a' && *p <= 'f')
			v = *p - 'a' + 10;
		else if (*p >= 'A' && *p <= 'F')
			v = *p - 'A' + 10;
		else
			continue; // spaces and separators are allowed
		if (hi < 0) {
			hi = v;
		} else {
			out.push_back(static_cast<uint8_t>(hi << 4 | v));
			hi = -1;
		}
	}
	return out;
}

std::string toHex(const uint8_t *p, std::size_t n)
{
	static const char d[] = "0123456789abcdef";
	std::string s;
	for (std::size_t i = 0; i < n; ++i) {
		s += d[p[i] >> 4];
		s += d[p[i] & 15];
	}
	return s;
}

Drive::Drive(json_object *node) : node_(node), now_(static_cast<int64_t>(std::time(nullptr)))
{
	if (!node_ || !json_object_is_type(node_, json_type_object)) {
		json_object_put(node_);
		node_ = json_object_new_object();
	}
}

Drive::~Drive() { json_object_put(node_); }

json_object *Drive::obj(const char *key) const
{
	json_object *v = nullptr;
	return json_object_object_get_ex(node_, key, &v) ? v : nullptr;
}

std::string Drive::str(const char *key, const char *fallback) const
{
	json_object *v = obj(key);
	return v && json_object_is_type(v, json_type_string) ? json_object_get_string(v) : fallback;
}

int64_t Drive::num(const char *key, int64_t fallback) const { return jnum(node_, key, fallback); }

json_object *Drive::section(const char *key)
{
	json_object *v = obj(key);
	if (!v || !json_object_is_type(v, json_type_object)) {
		v = json_object_new_object();
		json_object_object_add(node_, key, v);
	}
	return v;
}

std::string Drive::protocol() const { return str("protocol", "ata"); }
uint64_t Drive::sizeBytes() const { return static_cast<uint64_t>(num("size_bytes", 4000787030016LL)); }
int Drive::logicalBlockSize() const { return static_cast<int>(num("logical_block_size", 512)); }
int Drive::physicalBlockSize() const
{
	return static_cast<int>(num("physical_block_size", protocol() == "nvme" ? logicalBlockSize() : 4096));
}
bool Drive::isPacket() const { return jbool(node_, "packet"); }

int Drive::power() const
{
	std::string p = str("power_state", "active");
	return p == "standby" ? kStandby : p == "idle" ? kIdle : kActive;
}

void Drive::setPower(int state)
{
	const char *name = state == kStandby ? "standby" : state == kIdle ? "idle" : "active";
	json_object_object_add(node_, "power_state", json_object_new_string(name));
	changed_ = true;
}

bool Drive::smartEnabled() const
{
	json_object *smart = obj("smart");
	json_object *v = nullptr;
	if (smart && json_object_object_get_ex(smart, "enabled", &v))
		return json_object_get_boolean(v);
	return true;
}

json_object *Drive::fault(const char *op)
{
	json_object *f = nullptr;
	json_object *faults = obj("faults");
	if (!faults || !json_object_object_get_ex(faults, op, &f) || !f)
		return nullptr;
	json_object *times = nullptr;
	if (json_object_object_get_ex(f, "times", &times)) {
		int64_t left = json_object_get_int64(times);
		if (left <= 0)
			return nullptr;
		json_object_object_add(f, "times", json_object_new_int64(left - 1));
		changed_ = true;
	}
	return f;
}

std::vector<uint8_t> Drive::identify(bool packetPage) const
{
	std::vector<uint8_t> page(512, 0);
	uint8_t *p = page.data();
	putAtaString(p, 10, 10, str("serial", "VXS0000001"));
	putAtaString(p, 23, 4, str("firmware", "VX01"));
	putAtaString(p, 27, 20, str("model", "VEXO HD4000"));
	if (packetPage) {
		putWord(p, 0, 0x85C0);
		putWord(p, 49, 0x0F00);
		putWord(p, 80, 0x00F0);
	} else {
		int lbs = logicalBlockSize();
		uint64_t sectors = sizeBytes() / static_cast<uint64_t>(lbs > 0 ? lbs : 512);
		putWord(p, 0, 0x0040);
		putWord(p, 1, 16383);
		putWord(p, 3, 16);
		putWord(p, 6, 63);
		putWord(p, 47, 0x8010);
		putWord(p, 49, 0x2F00);
		putWord(p, 53, 0x0007);
		uint32_t lba28 = static_cast<uint32_t>(std::min<uint64_t>(sectors, 0x0FFFFFFF));
		putWord(p, 60, lba28 & 0xFFFF);
		putWord(p, 61, lba28 >> 16);
		putWord(p, 80, 0x07F0);
		putWord(p, 82, 0x746B); // bit 0: SMART
		putWord(p, 83, 0x7D09);
		putWord(p, 84, 0x6163); // bits 0, 1: SMART error log, self-test
		putWord(p, 85, 0x7468 | (smartEnabled() ? 1 : 0));
		putWord(p, 86, 0xBC01);
		putWord(p, 87, 0x6163);
		for (int i = 0; i < 4; ++i)
			putWord(p, 100 + i, (sectors >> (16 * i)) & 0xFFFF);
		int phys = static_cast<int>(num("physical_block_size", 4096));
		unsigned w106 = 0x4000;
		if (phys > lbs && lbs > 0) {
			unsigned ratio = phys / lbs, exp = 0;
			while ((1u << exp) < ratio)
				++exp;
			w106 |= 0x2000 | exp;
		}
		if (lbs > 512) {
			w106 |= 0x1000;
			putWord(p, 117, (lbs / 2) & 0xFFFF);
			putWord(p, 118, (lbs / 2) >> 16);
		}
		putWord(p, 106, w106);
		// DOWNLOAD MICROCODE with offsets (modes 3 and 0x0E), segments of
		// 1 to 128 sectors.
		putWord(p, 119, 0x4010);
		putWord(p, 120, 0x4010);
		putWord(p, 234, 1);
		putWord(p, 235, kMicrocodeMaxBlocks);
		int rotation = static_cast<int>(num("rotation_rate", 7200));
		putWord(p, 168, static_cast<unsigned>(num("form_factor", rotation == 1 ? 3 : 2)));
		putWord(p, 206, static_cast<unsigned>(num("sct", 0x003D)));
		putWord(p, 217, static_cast<unsigned>(rotation));
	}
	if (json_object *words = obj("identify_words")) {
		json_object_object_foreach(words, k, v)
		{
			unsigned w = std::strtoul(k, nullptr, 0);
			if (w < 255)
				putWord(p, w, static_cast<unsigned>(json_object_get_int64(v)));
		}
	}
	json_object *sig = obj("identify_signature");
	if (!sig || json_object_get_boolean(sig)) {
		p[510] = 0xA5;
		sealPage(p);
	}
	return page;
}

void Drive::eachAttribute(const std::function<void(const AttrRow &)> &fn) const
{
	json_object *smart = obj("smart");
	json_object *attrs = nullptr;
	if (smart && json_object_object_get_ex(smart, "attributes", &attrs)) {
		for (size_t i = 0; i < json_object_array_length(attrs) && i < 30; ++i) {
			json_object *a = json_object_array_get_idx(attrs, i);
			fn({static_cast<int>(jnum(a, "id", 0)), static_cast<int>(jnum(a, "flags", 0)),
			    static_cast<int>(jnum(a, "value", 100)), static_cast<int>(jnum(a, "worst", 100)),
			    static_cast<int>(jnum(a, "threshold", 0)), jnum(a, "raw", 0)});
		}
		return;
	}
	const bool ssd = num("rotation_rate", 7200) == 1;
	int n = 0;
	for (const auto &d : kDefaultAttrs)
		if (!(ssd && d.spinning) && n++ < 30)
			fn({d.id, d.flags, d.value, d.worst, d.threshold, d.raw < 0 ? num("temperature", 35) : d.raw});
}

std::vector<uint8_t> Drive::smartValues() const
{
	std::vector<uint8_t> page(512, 0);
	uint8_t *p = page.data();
	json_object *smart = obj("smart");
	putWord(p, 0, 0x0010);
	int slot = 0;
	eachAttribute([&](const AttrRow &r) {
		uint8_t *a = p + 2 + 12 * slot++;
		a[0] = static_cast<uint8_t>(r.id);
		a[1] = r.flags & 0xFF;
		a[2] = (r.flags >> 8) & 0xFF;
		a[3] = static_cast<uint8_t>(r.value);
		a[4] = static_cast<uint8_t>(r.worst);
		for (int i = 0; i < 6; ++i)
			a[5 + i] = (static_cast<uint64_t>(r.raw) >> (8 * i)) & 0xFF;
	});
	p[362] = 0x82;
	p[363] = static_cast<uint8_t>(jnum(smart, "self_test_execution_status", 0));
	p[367] = static_cast<uint8_t>(jnum(smart, "offline_capability", 0x7B)); // bit 4: self-test
	putWord(p + 368, 0, 0x0003);
	p[370] = 0x01;
	p[372] = static_cast<uint8_t>(jnum(smart, "short_test_minutes", 2));
	// Extended tests of 255 minutes or more give their time in bytes 375-376.
	int64_t extended = jnum(smart, "extended_test_minutes", 255);
	p[373] = static_cast<uint8_t>(std::min<int64_t>(extended, 255));
	if (extended >= 255) {
		p[375] = extended & 0xFF;
		p[376] = (extended >> 8) & 0xFF;
	}
	p[374] = static_cast<uint8_t>(jnum(smart, "conveyance_test_minutes", 5));
	sealPage(p);
	return page;
}

// A pre-fail attribute at or below its (non-zero) threshold.
bool Drive::thresholdExceeded() const
{
	std::vector<uint8_t> values = smartValues(), thresholds = smartThresholds();
	for (int slot = 0; slot < 30; ++slot) {
		const uint8_t *v = values.data() + 2 + 12 * slot, *t = thresholds.data() + 2 + 12 * slot;
		if (v[0] && (v[1] & 1) && t[1] && v[3] <= t[1])
			return true;
	}
	return false;
}

std::vector<uint8_t> Drive::smartThresholds() const
{
	std::vector<uint8_t> page(512, 0);
	uint8_t *p = page.data();
	putWord(p, 0, 0x0010);
	int slot = 0;
	eachAttribute([&](const AttrRow &r) {
		p[2 + 12 * slot] = static_cast<uint8_t>(r.id);
		p[3 + 12 * slot] = static_cast<uint8_t>(r.threshold);
		++slot;
	});
	sealPage(p);
	return page;
}

// SMART logs (gpl false) and general purpose logs (gpl true), whole.
bool Drive::smartLog(unsigned addr, bool gpl, std::vector<uint8_t> &pages) const
{
	json_object *tests = obj("self_tests");
	size_t n = tests ? json_object_array_length(tests) : 0;
	if (json_object *raw = byNumber(obj("logs"), addr)) {
		pages = fromHex(json_object_get_string(raw));
		pages.resize(std::max<size_t>(512, (pages.size() + 511) / 512 * 512), 0);
		return true;
	}
	if (addr == 0) {
		pages.assign(512, 0);
		putWord(pages.data(), 0, 1);
		if (!gpl) {
			putWord(pages.data(), 1, 1);
			putWord(pages.data(), 6, 1);
			putWord(pages.data(), 9, 1);
		} else {
			putWord(pages.data(), 7, static_cast<unsigned>(std::max<size_t>(1, (n + 18) / 19)));
		}
		if (num("sct", 0x003D) & 1) {
			putWord(pages.data(), 0xE0, 1);
			putWord(pages.data(), 0xE1, 1);
		}
		if (json_object *logs = obj("logs")) {
			json_object_object_foreach(logs, k, v)
			{
				unsigned a = std::strtoul(k, nullptr, 0);
				size_t len = fromHex(json_object_get_string(v)).size();
				if (a > 0 && a < 256)
					putWord(pages.data(), a, static_cast<unsigned>(std::max<size_t>(1, (len + 511) / 512)));
			}
		}
		return true;
	}
	if (addr == 1 && !gpl) { // summary error log: empty
		pages.assign(512, 0);
		pages[0] = 1;
		sealPage(pages.data());
		return true;
	}
	if (addr == 6 && !gpl) {
		pages.assign(512, 0);
		putWord(pages.data(), 0, 1);
		size_t k = std::min<size_t>(n, 21);
		for (size_t i = 0; i < k; ++i) { // the list is newest first
			json_object *t = json_object_array_get_idx(tests, k - 1 - i);
			uint8_t *d = pages.data() + 2 + 24 * i;
			d[0] = static_cast<uint8_t>(jnum(t, "type", 1));
			d[1] = static_cast<uint8_t>(jnum(t, "status", 0));
			putWord(d, 1, static_cast<unsigned>(jnum(t, "hours", 0)));
			uint32_t lba = static_cast<uint32_t>(jnum(t, "lba", 0xFFFFFFFF));
			std::memcpy(d + 5, &lba, 4);
		}
		pages[508] = static_cast<uint8_t>(k);
		sealPage(pages.data());
		return true;
	}
	if (addr == 9 && !gpl) { // selective self-test log: no spans set
		pages.assign(512, 0);
		putWord(pages.data(), 0, 1);
		sealPage(pages.data());
		return true;
	}
	if (addr == 7 && gpl) { // as many pages as the history fills, 19 descriptors a page
		size_t k = n, count = std::max<size_t>(1, (k + 18) / 19);
		pages.assign(count * 512, 0);
		pages[0] = 1;
		for (size_t i = 0; i < k; ++i) { // entry i is the i-th oldest
			json_object *t = json_object_array_get_idx(tests, k - 1 - i);
			uint8_t *d = pages.data() + (i / 19) * 512 + 4 + 26 * (i % 19);
			d[0] = static_cast<uint8_t>(jnum(t, "type", 1));
			d[1] = static_cast<uint8_t>(jnum(t, "status", 0));
			putWord(d, 1, static_cast<unsigned>(jnum(t, "hours", 0)));
			uint64_t lba = static_cast<uint64_t>(jnum(t, "lba", 0xFFFFFFFFFFFFLL));
			for (int b = 0; b < 6; ++b)
				d[5 + b] = (lba >> (8 * b)) & 0xFF;
		}
		putWord(pages.data(), 1, static_cast<unsigned>(k));
		for (size_t p = 0; p < count; ++p)
			sealPage(pages.data() + p * 512);
		return true;
	}
	const int64_t temperature = num("temperature", 35);
	if (addr == 0xE0 && (num("sct", 0x003D) & 1)) { // SCT status, with the last SCT command's outcome
		json_object *last = obj("sct_last");
		pages.assign(512, 0);
		putWord(pages.data(), 0, 3);
		putWord(pages.data(), 1, 1);
		putWord(pages.data(), 7, static_cast<unsigned>(jnum(last, "status", 0)));
		putWord(pages.data(), 8, static_cast<unsigned>(jnum(last, "action", 0)));
		putWord(pages.data(), 9, static_cast<unsigned>(jnum(last, "function", 0)));
		pages[200] = pages[201] = pages[202] = static_cast<uint8_t>(temperature);
		pages[204] = static_cast<uint8_t>(num("max_temperature", 45));
		return true;
	}
	if (addr == 0xE1 && (num("sct", 0x003D) & 0x21) == 0x21) { // SCT temperature history table
		pages.assign(512, 0);
		putWord(pages.data(), 0, 2);
		putWord(pages.data(), 1, 1); // sampled every minute
		putWord(pages.data(), 2, static_cast<unsigned>(sctFeature(3)));
		pages[6] = 70; // recommended maximum
		pages[7] = 75; // limit
		pages[8] = 0;
		pages[9] = static_cast<uint8_t>(-5);
		putWord(pages.data(), 15, kSctHistory);
		putWord(pages.data(), 16, 0);
		std::memset(pages.data() + 34, static_cast<uint8_t>(temperature), kSctHistory);
		return true;
	}
	return false;
}

Outcome Drive::ata(const Taskfile &tf, std::vector<uint8_t> &out, const std::vector<uint8_t> &in)
{
	Outcome o;
	out.clear();
	// A drive in standby answers the power-mode question and the power
	// commands as it is; anything else needs the media, and spins it up.
	const bool powerCommand = tf.command == 0xE5 || tf.command == 0xE0 || tf.command == 0xE2 ||
				  tf.command == 0xE1 || tf.command == 0xE3;
	if (!powerCommand && power() == kStandby) {
		setPower(kActive);
		woke_ = true;
	}
	const bool packet = isPacket();
	switch (tf.command) {
	case 0xEC:
	case 0xA1: {
		bool wantPacket = tf.command == 0xA1;
		if (wantPacket != packet)
			return aborted(wantPacket ? "IDENTIFY PACKET to a non-packet device" : "IDENTIFY to a packet device");
		if (tf.count > 1)
			return aborted("IDENTIFY with a sector count above 1");
		out = identify(packet);
		return o;
	}
	case 0xE5:
		o.count = static_cast<uint8_t>(power());
		return o;
	case 0xE0:
	case 0xE2:
		setPower(kStandby);
		return o;
	case 0xE3:
	case 0xE1:
		setPower(kIdle);
		if (tf.command == 0xE3) {
			json_object_object_add(node_, "idle_timer", json_object_new_int(tf.count));
		}
		return o;
	case 0xE7:
	case 0xEA:
		return o;
	case 0x2F: { // READ LOG EXT: address in LBA low, page in LBA mid
		std::vector<uint8_t> log;
		if (tf.count == 0 || !smartLog(tf.lbaLow, true, log))
			return aborted("READ LOG EXT of a log the drive does not keep");
		size_t off = static_cast<size_t>(tf.lbaMid) * 512, len = static_cast<size_t>(tf.count) * 512;
		if (off + len > log.size())
			return aborted("READ LOG EXT past the end of the log");
		out.assign(log.begin() + off, log.begin() + off + len);
		return o;
	}
	case 0x92:
		return downloadMicrocode(tf, in);
	case 0xB0:
		break;
	default:
		return aborted("unsupported command");
	}

	// SMART: the drive checks the signature in LBA mid/high.
	if (tf.lbaMid != 0x4F || tf.lbaHigh != 0xC2)
		return aborted("SMART without the 0x4F/0xC2 signature");
	if (tf.features != 0xD8 && tf.features != 0xDA && !smartEnabled())
		return aborted("SMART is disabled");
	switch (tf.features) {
	case 0xD0:
		if (tf.count != 1)
			return aborted("SMART READ DATA with a sector count other than 1");
		out = smartValues();
		return o;
	case 0xD1:
		if (tf.count != 1)
			return aborted("SMART READ THRESHOLDS with a sector count other than 1");
		out = smartThresholds();
		return o;
	case 0xD5: {
		std::vector<uint8_t> log;
		if (tf.count == 0 || !smartLog(tf.lbaLow, false, log) || log.size() < static_cast<size_t>(tf.count) * 512)
			return aborted("SMART READ LOG of a log the drive does not keep");
		out.assign(log.begin(), log.begin() + tf.count * 512);
		return o;
	}
	case 0xD6: {
		if (tf.lbaLow == 0xE0 && (num("sct", 0x003D) & 1) && tf.count == 1 && in.size() == 512)
			return sctCommand(in);
		if (tf.lbaLow < 0x80 || tf.lbaLow > 0x9F || tf.count != 1 || in.size() != 512)
			return aborted("SMART WRITE LOG outside the host vendor logs");
		json_object *logs = section("logs");
		char key[8];
		std::snprintf(key, sizeof(key), "0x%02x", tf.lbaLow);
		json_object_object_add(logs, key, json_object_new_string(toHex(in.data(), in.size()).c_str()));
		changed_ = true;
		return o;
	}
	case 0xD8:
	case 0xD9:
		json_object_object_add(section("smart"), "enabled", json_object_new_boolean(tf.features == 0xD8));
		changed_ = true;
		return o;
	case 0xDA:
		if (thresholdExceeded()) {
			o.lbaMid = 0xF4;
			o.lbaHigh = 0x2C;
		}
		return o;
	case 0xD4:
		if (tf.count != 0)
			return aborted("SMART EXECUTE OFF-LINE IMMEDIATE with a sector count");
		return executeOffline(tf.lbaLow);
	default:
		return aborted("unsupported SMART feature");
	}
}

// The state of an SCT feature (1 write cache, 2 write cache reordering:
// 1 on, 2 off; 3 the temperature logging interval in minutes).
int64_t Drive::sctFeature(unsigned code) const
{
	char key[8];
	std::snprintf(key, sizeof key, "%u", code);
	return jnum(obj("sct_features"), key, 1);
}

// An SCT command: the key sector written to log 0xE0. Error recovery
// control (3) and feature control (4) answer a get in the count and LBA low
// registers; the data table command (5) readies the temperature history in
// log 0xE1. The outcome shows in the SCT status. What word 206 does not
// announce, or an unknown action or function, is aborted.
Outcome Drive::sctCommand(const std::vector<uint8_t> &key)
{
	auto word = [&](int i) { return static_cast<unsigned>(key[2 * i] | key[2 * i + 1] << 8); };
	const unsigned action = word(0), function = word(1), sct = static_cast<unsigned>(num("sct", 0x003D));
	Outcome o;
	unsigned status = 0;
	const char *refusal = nullptr;
	if (action == 3 && (sct & 0x08) && (word(2) == 1 || word(2) == 2) && (function == 1 || function == 2)) {
		const char *k = word(2) == 1 ? "read" : "write";
		if (function == 1) {
			json_object_object_add(section("sct_erc"), k, json_object_new_int(static_cast<int>(word(3))));
		} else {
			unsigned v = static_cast<unsigned>(jnum(obj("sct_erc"), k, 70));
			o.count = v & 0xFF;
			o.lbaLow = static_cast<int>(v >> 8);
		}
	} else if (action == 4 && (sct & 0x10) && word(2) >= 1 && word(2) <= 3 && function >= 1 && function <= 3) {
		if (function == 1) {
			char k[8];
			std::snprintf(k, sizeof k, "%u", word(2));
			json_object_object_add(section("sct_features"), k, json_object_new_int(static_cast<int>(word(3))));
		} else {
			unsigned v = function == 2 ? static_cast<unsigned>(sctFeature(word(2))) : 0; // 3: option flags
			o.count = v & 0xFF;
			o.lbaLow = static_cast<int>(v >> 8);
		}
	} else if (action == 5 && (sct & 0x20) && function == 1 && word(2) == 2) {
		// the table is read from log 0xE1 next
	} else {
		status = 0x0003;
		refusal = "unsupported SCT command";
	}
	json_object *last = json_object_new_object();
	json_object_object_add(last, "action", json_object_new_int(static_cast<int>(action)));
	json_object_object_add(last, "function", json_object_new_int(static_cast<int>(function)));
	json_object_object_add(last, "status", json_object_new_int(static_cast<int>(status)));
	json_object_object_add(node_, "sct_last", last);
	changed_ = true;
	return refusal ? aborted(refusal) : o;
}

// DOWNLOAD MICROCODE (PIO): the mode in features, the block count in count
// and LBA low, the offset in blocks in LBA mid and high. Segments must come
// in order; the image is kept in the node ("firmware_download") until
// activation (mode 0x0F) marks it active. Mode 7 is a whole image at once.
Outcome Drive::downloadMicrocode(const Taskfile &tf, const std::vector<uint8_t> &in)
{
	const unsigned mode = tf.features, blocks = tf.count | tf.lbaLow << 8, offset = tf.lbaMid | tf.lbaHigh << 8;
	json_object *fw = obj("firmware_download");
	if (mode == 0x0F) {
		if (!fw || !jnum(fw, "bytes", 0))
			return aborted("DOWNLOAD MICROCODE activation without an image");
		if (const char *why = firmwareActivate(node_, jstr(fw, "image", ""), str("model", "VEXO HD4000")))
			return aborted(why);
		json_object_object_add(fw, "activated", json_object_new_boolean(true));
		changed_ = true;
		return Outcome{};
	}
	if (const char *why = firmwarePiece(node_, offset == 0))
		return aborted(why);
	if (mode != 0x03 && mode != 0x07 && mode != 0x0E)
		return aborted("unsupported DOWNLOAD MICROCODE mode");
	if (blocks == 0 || in.size() != static_cast<size_t>(blocks) * 512)
		return aborted("DOWNLOAD MICROCODE block count differs from its data");
	if (mode != 0x07 && blocks > kMicrocodeMaxBlocks)
		return aborted("DOWNLOAD MICROCODE segment above the largest the drive takes");
	std::string image = offset && fw ? jstr(fw, "image", "") : "";
	if (mode != 0x07 && static_cast<size_t>(offset) * 1024 != image.size())
		return aborted("DOWNLOAD MICROCODE segment out of order");
	if (mode == 0x07 && offset)
		return aborted("DOWNLOAD MICROCODE mode 7 with an offset");
	image += toHex(in.data(), in.size());
	if (image.size() / 2 > kMicrocodeMaxBytes)
		return aborted("DOWNLOAD MICROCODE image too large");
	json_object *next = json_object_new_object();
	json_object_object_add(next, "mode", json_object_new_int(static_cast<int>(mode)));
	json_object_object_add(next, "bytes", json_object_new_int64(static_cast<int64_t>(image.size() / 2)));
	json_object_object_add(next, "image", json_object_new_string(image.c_str()));
	json_object_object_add(next, "activated", json_object_new_boolean(mode == 0x07 || mode == 0x03));
	json_object_object_add(node_, "firmware_download", next);
	changed_ = true;
	// Modes 3 and 7 activate what they received at once.
	if (mode == 0x07 || mode == 0x03)
		if (const char *why = firmwareActivate(node_, image, str("model", "VEXO HD4000")))
			return aborted(why);
	return Outcome{};
}

const char *firmwarePiece(json_object *node, bool first)
{
	json_object *f = nullptr;
	if (!json_object_object_get_ex(node, "firmware_update", &f) || !f)
		return nullptr;
	if (jbool(f, "fail"))
		return "firmware_update: the drive refuses the image";
	if (first && jbool(f, "hang"))
		for (;;)
			::pause(); // until the host gives up and kills the program
	if (int64_t s = jnum(f, "seconds", 0); first && s > 0)
		::usleep(static_cast<useconds_t>(s * 1000000));
	if (int64_t ms = jnum(f, "milliseconds", 0); first && ms > 0)
		::usleep(static_cast<useconds_t>(ms * 1000));
	return nullptr;
}

const char *firmwareActivate(json_object *node, const std::string &hexImage, const std::string &model)
{
	json_object *f = nullptr;
	if (json_object_object_get_ex(node, "firmware_update", &f) && f && jbool(f, "reject"))
		return "firmware_update: the drive rejects the image";
	std::vector<uint8_t> head = fromHex(hexImage.substr(0, 1024).c_str());
	std::string text(head.begin(), head.end());
	text = text.substr(0, text.find('\0'));
	std::string rev, forModel;
	for (std::size_t at = 0; at < text.size();) {
		std::size_t nl = text.find('\n', at);
		std::string line = text.substr(at, nl == std::string::npos ? std::string::npos : nl - at);
		if (line.rfind("firmware=", 0) == 0)
			rev = line.substr(9);
		else if (line.rfind("model=", 0) == 0)
			forModel = line.substr(6);
		at = nl == std::string::npos ? text.size() : nl + 1;
	}
	if (!forModel.empty() && forModel != model)
		return "firmware image of another model";
	if (rev.size() > 8)
		return "firmware image with a revision longer than 8 characters";
	// An image that names no revision is taken and changes nothing.
	if (!rev.empty())
		json_object_object_add(node, "firmware", json_object_new_string(rev.c_str()));
	return nullptr;
}

// Self-test execution status (SMART data byte 363): the status code in the
// high nibble, and while a test runs (code 0xF) the tenths still to go.
namespace {
constexpr unsigned kTestCompleted = 0x0, kTestAbortedByHost = 0x1, kTestInProgress = 0xF;
constexpr size_t kSelfTestsKept = 4 * 19; // four pages of the extended log; log 6 shows the newest 21
} // namespace

int64_t Drive::selfTestMinutes(uint8_t subcommand) const
{
	json_object *smart = obj("smart");
	switch (subcommand & 0x7F) {
	case 1:
		return jnum(smart, "short_test_minutes", 2);
	case 2:
		return jnum(smart, "extended_test_minutes", 255);
	default:
		return jnum(smart, "conveyance_test_minutes", 5);
	}
}

int64_t Drive::powerOnHours() const
{
	json_object *smart = obj("smart");
	json_object *attrs = nullptr;
	if (smart && json_object_object_get_ex(smart, "attributes", &attrs) &&
	    json_object_is_type(attrs, json_type_array)) {
		for (size_t i = 0; i < json_object_array_length(attrs); ++i) {
			json_object *a = json_object_array_get_idx(attrs, i);
			if (jnum(a, "id", 0) == 9)
				return jnum(a, "raw", 0);
		}
		return 0;
	}
	for (const auto &d : kDefaultAttrs)
		if (d.id == 9)
			return d.raw;
	return 0;
}

void Drive::setSelfTestStatus(unsigned status)
{
	json_object *smart = section("smart");
	if (jnum(smart, "self_test_execution_status", -1) == static_cast<int64_t>(status))
		return;
	json_object_object_add(smart, "self_test_execution_status", json_object_new_int(static_cast<int>(status)));
	changed_ = true;
}

// Puts an entry in front of the self-test history, which is kept newest first.
void Drive::logSelfTest(uint8_t subcommand, unsigned status)
{
	json_object *entry = json_object_new_object();
	json_object_object_add(entry, "type", json_object_new_int(subcommand));
	json_object_object_add(entry, "status", json_object_new_int(static_cast<int>(status)));
	json_object_object_add(entry, "hours", json_object_new_int64(powerOnHours() & 0xFFFF));
	json_object *next = json_object_new_array();
	json_object_array_add(next, entry);
	json_object *old = obj("self_tests");
	if (old && json_object_is_type(old, json_type_array))
		for (size_t i = 0; i < json_object_array_length(old) && i + 1 < kSelfTestsKept; ++i)
			json_object_array_add(next, json_object_get(json_object_array_get_idx(old, i)));
	json_object_object_add(node_, "self_tests", next);
	changed_ = true;
}

void Drive::endSelfTest(unsigned code, unsigned tenths)
{
	json_object *smart = section("smart");
	json_object *run = nullptr;
	if (!json_object_object_get_ex(smart, "running_self_test", &run))
		return;
	unsigned status = code << 4 | tenths;
	logSelfTest(static_cast<uint8_t>(jnum(run, "type", 1)), status);
	json_object_object_del(smart, "running_self_test");
	setSelfTestStatus(status);
	changed_ = true;
}

void Drive::advanceSelfTest()
{
	json_object *smart = obj("smart");
	json_object *run = nullptr;
	if (!smart || !json_object_object_get_ex(smart, "running_self_test", &run))
		return;
	int64_t total = std::max<int64_t>(0, jnum(run, "minutes", 0)) * 60;
	int64_t elapsed = std::max<int64_t>(0, now_ - jnum(run, "started", now_));
	if (elapsed >= total) {
		endSelfTest(kTestCompleted, 0);
		return;
	}
	int64_t percentLeft = ((total - elapsed) * 100 + total - 1) / total;
	setSelfTestStatus(kTestInProgress << 4 | static_cast<unsigned>(std::min<int64_t>(9, (percentLeft + 9) / 10)));
}

// SMART EXECUTE OFF-LINE IMMEDIATE. Offline-mode tests run in the
// background and end by the clock; captive tests run to their end before
// the command returns. A new test aborts the one running.
Outcome Drive::executeOffline(uint8_t subcommand)
{
	switch (subcommand) {
	case 0x00: // off-line data collection: done at once
		return Outcome{};
	case 0x7F:
		endSelfTest(kTestAbortedByHost, static_cast<unsigned>(jnum(obj("smart"), "self_test_execution_status", 0)) & 0xF);
		return Outcome{};
	case 0x01:
	case 0x02:
	case 0x03:
	case 0x81:
	case 0x82:
	case 0x83:
		break;
	case 0x04:
	case 0x84:
		return aborted("selective self-test is not emulated");
	default:
		return aborted("unsupported SMART EXECUTE OFF-LINE IMMEDIATE subcommand");
	}
	endSelfTest(kTestAbortedByHost, static_cast<unsigned>(jnum(obj("smart"), "self_test_execution_status", 0)) & 0xF);
	if (subcommand & 0x80) {
		logSelfTest(subcommand, kTestCompleted << 4);
		setSelfTestStatus(kTestCompleted << 4);
		return Outcome{};
	}
	json_object *run = json_object_new_object();
	json_object_object_add(run, "type", json_object_new_int(subcommand));
	json_object_object_add(run, "started", json_object_new_int64(now_));
	json_object_object_add(run, "minutes", json_object_new_int64(selfTestMinutes(subcommand)));
	json_object_object_add(section("smart"), "running_self_test", run);
	setSelfTestStatus(kTestInProgress << 4 | 9);
	changed_ = true;
	return Outcome{};
}

std::vector<uint8_t> Drive::ieBytes(const char *key, const char *fallback) const
{
	json_object *scsi = obj("scsi");
	json_object *v = nullptr;
	std::vector<uint8_t> b = fromHex(scsi && json_object_object_get_ex(scsi, key, &v) ? json_object_get_string(v)
											  : fallback);
	b.resize(12, 0);
	return b;
}

bool Drive::scsiLogPage(unsigned page, std::vector<uint8_t> &out) const
{
	json_object *scsi = obj("scsi");
	json_object *pages = nullptr;
	if (scsi && json_object_object_get_ex(scsi, "log_pages", &pages))
		if (json_object *raw = byNumber(pages, page)) {
			out = fromHex(json_object_get_string(raw));
			return true;
		}
	auto header = [&](unsigned len) {
		out.assign(4 + len, 0);
		out[0] = static_cast<uint8_t>(page);
		out[2] = (len >> 8) & 0xFF;
		out[3] = len & 0xFF;
	};
	// Solid state media (0x11) is a page of SSDs only.
	json_object *used = nullptr;
	const bool ssdMedia = num("rotation_rate", 7200) == 1 ||
			      (scsi && json_object_object_get_ex(scsi, "percentage_used", &used));
	switch (page) {
	case 0x00: {
		std::vector<uint8_t> list = {0x00, 0x02, 0x03, 0x05, 0x0D, 0x0F, 0x10};
		if (ssdMedia)
			list.push_back(0x11);
		list.push_back(0x15);
		header(static_cast<unsigned>(list.size()));
		std::memcpy(out.data() + 4, list.data(), list.size());
		return true;
	}
	case 0x11: // parameter 1: percentage used endurance indicator
		if (!ssdMedia)
			return false;
		header(8);
		out[4 + 1] = 0x01;
		out[4 + 2] = 0x03;
		out[4 + 3] = 4;
		out[4 + 7] = static_cast<uint8_t>(std::clamp<int64_t>(jnum(scsi, "percentage_used", 0), 0, 255));
		return true;
	case 0x02:
	case 0x03:
	case 0x05: // error counters 0..6, all zero
		header(7 * 12);
		for (int i = 0; i < 7; ++i) {
			uint8_t *q = out.data() + 4 + 12 * i;
			q[1] = static_cast<uint8_t>(i);
			q[2] = 0x02;
			q[3] = 8;
		}
		return true;
	case 0x0D:
		header(12);
		out[4 + 3] = 2;
		out[4 + 5] = static_cast<uint8_t>(num("temperature", 35));
		out[10 + 1] = 1;
		out[10 + 3] = 2;
		out[10 + 5] = static_cast<uint8_t>(num("reference_temperature", 60));
		return true;
	case 0x0F: {
		header(256);
		out[4 + 3] = 252;
		json_object *v = nullptr;
		if (scsi && json_object_object_get_ex(scsi, "application_client", &v)) {
			std::vector<uint8_t> d = fromHex(json_object_get_string(v));
			std::memcpy(out.data() + 8, d.data(), std::min<size_t>(d.size(), 252));
		}
		return true;
	}
	case 0x10: { // self-test results: the running test first, then the history, newest first
		header(20 * 20);
		json_object *tests = obj("self_tests");
		json_object *smart = obj("smart"), *run = nullptr;
		size_t k = tests ? json_object_array_length(tests) : 0, slot = 0;
		auto param = [&](unsigned code, unsigned result, int64_t hours) {
			uint8_t *q = out.data() + 4 + 20 * slot;
			q[1] = static_cast<uint8_t>(++slot);
			q[2] = 0x03;
			q[3] = 0x10;
			q[4] = static_cast<uint8_t>((code & 7) << 5 | (result & 0xF));
			q[6] = (hours >> 8) & 0xFF;
			q[7] = hours & 0xFF;
		};
		if (smart && json_object_object_get_ex(smart, "running_self_test", &run))
			param(static_cast<unsigned>(jnum(run, "type", 1)), 0xF, powerOnHours());
		for (size_t i = 0; i < k && slot < 20; ++i) {
			json_object *t = json_object_array_get_idx(tests, i);
			param(static_cast<unsigned>(jnum(t, "type", 1)), static_cast<unsigned>(jnum(t, "status", 0)) >> 4,
			      jnum(t, "hours", 0));
		}
		for (; slot < 20;) // unused parameters keep their codes
			out[4 + 20 * slot + 1] = static_cast<uint8_t>(slot + 1), out[4 + 20 * slot + 2] = 0x03, out[4 + 20 * slot + 3] = 0x10, ++slot;
		return true;
	}
	case 0x15:
		header(16);
		out[4 + 3] = 0x0C;
		return true;
	default:
		return false;
	}
}

Outcome Drive::scsi(const uint8_t *cdb, unsigned cdbLen, std::vector<uint8_t> &out, const std::vector<uint8_t> &in)
{
	Outcome o;
	out.clear();
	const bool ata = protocol() == "ata";
	switch (cdb[0]) {
	case 0x00: // TEST UNIT READY
		if (power() == kStandby && !ata) {
			o.kind = Outcome::CheckCondition;
			o.senseKey = 0x02;
			o.asc = 0x04;
			o.ascq = 0x02;
			o.note = "stopped";
		}
		return o;
	case 0x03: // REQUEST SENSE
		out.assign(18, 0);
		out[0] = 0x70;
		out[7] = 10;
		return o;
	case 0x12: { // INQUIRY
		if (cdb[1] & 1) {
			if (cdb[2] == 0x00) {
				out = {0x00, 0x00, 0x00, 0x02, 0x00, 0x80};
				return o;
			}
			if (cdb[2] != 0x80)
				return illegal(0x24, "unsupported vital product data page");
			std::string serial = str("serial", "VXS0000001");
			out.assign(4 + serial.size(), 0);
			out[1] = 0x80;
			out[3] = static_cast<uint8_t>(serial.size());
			std::memcpy(out.data() + 4, serial.data(), serial.size());
			return o;
		}
		if (cdb[2] != 0)
			return illegal(0x24, "page code without EVPD");
		out.assign(36, 0);
		out[2] = 0x06;
		out[3] = 0x02;
		out[4] = 31;
		putFixed(out.data() + 8, ata ? "ATA" : str("vendor", "VEXO"), 8);
		putFixed(out.data() + 16, str("model", "VEXO HD4000"), 16);
		putFixed(out.data() + 32, str("firmware", "VX01"), 4);
		return o;
	}
	case 0x1D: { // SEND DIAGNOSTIC: the self-test code in bits 7-5 of byte 1
		static constexpr uint8_t kAsAta[8] = {0, 0x01, 0x02, 0, 0x7F, 0x81, 0x82, 0};
		unsigned code = cdb[1] >> 5;
		if (code == 0 || code == 3 || code == 7)
			return (cdb[1] & 0x04) ? o : illegal(0x24, "unsupported self-test code");
		return executeOffline(kAsAta[code]);
	}
	case 0x1B: // START STOP UNIT
		woke_ = (cdb[4] & 1) && power() == kStandby;
		setPower((cdb[4] & 1) ? kActive : kStandby);
		return o;
	case 0x35:
		return o;
	case 0x25:   // READ CAPACITY (10)
	case 0x9E: { // READ CAPACITY (16), service action 0x10
		if (cdb[0] == 0x9E && (cdb[1] & 0x1F) != 0x10)
			break;
		const uint64_t lbs = static_cast<uint64_t>(logicalBlockSize() > 0 ? logicalBlockSize() : 512);
		const uint64_t last = sizeBytes() / lbs - 1;
		out.assign(cdb[0] == 0x25 ? 8 : 32, 0);
		uint8_t *p = out.data();
		if (cdb[0] == 0x25) {
			putBe(p, std::min<uint64_t>(last, 0xFFFFFFFF), 4);
			putBe(p + 4, lbs, 4);
		} else {
			putBe(p, last, 8);
			putBe(p + 8, lbs, 4);
			unsigned exp = 0;
			for (uint64_t phys = static_cast<uint64_t>(num("physical_block_size", 4096)); (lbs << exp) < phys;)
				++exp;
			p[13] = static_cast<uint8_t>(exp & 0x0F);
		}
		return o;
	}
	default:
		break;
	}
	if (ata)
		return illegal(0x20, "opcode not translated for an ATA drive");

	switch (cdb[0]) {
	case 0x4D: { // LOG SENSE
		unsigned page = cdb[2] & 0x3F;
		if ((cdb[2] >> 6) != 1)
			return illegal(0x24, "LOG SENSE of other than cumulative values");
		if (!scsiLogPage(page, out))
			return illegal(0x24, "unsupported log page");
		return o;
	}
	case 0x4C: { // LOG SELECT
		unsigned len = cdb[7] << 8 | cdb[8];
		if (len != in.size())
			return illegal(0x24, "LOG SELECT parameter list length differs from the data");
		if (len < 8 || (in[0] & 0x3F) != 0x0F)
			return illegal(0x26, "LOG SELECT of other than the application client page");
		json_object_object_add(section("scsi"), "application_client",
				       json_object_new_string(toHex(in.data() + 8, in.size() - 8).c_str()));
		changed_ = true;
		return o;
	}
	case 0x1A: { // MODE SENSE(6)
		unsigned pc = cdb[2] >> 6, page = cdb[2] & 0x3F;
		std::vector<uint8_t> body;
		if (page == 0x1C)
			body = pc == 1 ? ieBytes("ie_changeable", "1c0a9c0fffffffffffffffff")
				       : ieBytes("ie_page", "1c0a08000000000000000000");
		else if (page == 0x0A)
			body = pc == 1 ? std::vector<uint8_t>{0x0a, 0x0a, 0x0f, 0xf2, 0, 0, 0, 0, 0, 0, 0, 0}
				       : std::vector<uint8_t>{0x0a, 0x0a, 0x02, 0x00, 0, 0, 0, 0, 0xff, 0xff, 0, 0};
		else
			return illegal(0x24, "unsupported mode page");
		if (page == 0x0A && pc != 1) { // extended self-test completion time, seconds
			int64_t secs = std::min<int64_t>(0xFFFF, selfTestMinutes(2) * 60);
			body[10] = (secs >> 8) & 0xFF;
			body[11] = secs & 0xFF;
		}
		if (pc == 2 || pc == 3)
			return illegal(0x24, "unsupported page control");
		body[0] |= 0x80; // PS: savable
		bool dbd = cdb[1] & 0x08;
		out.assign(4, 0);
		out[2] = 0x10;
		if (!dbd) {
			out[3] = 8;
			uint64_t blocks = sizeBytes() / static_cast<uint64_t>(logicalBlockSize());
			uint32_t b32 = static_cast<uint32_t>(std::min<uint64_t>(blocks, 0xFFFFFFFF));
			uint32_t bl = static_cast<uint32_t>(logicalBlockSize());
			uint8_t bd[8] = {uint8_t(b32 >> 24), uint8_t(b32 >> 16), uint8_t(b32 >> 8), uint8_t(b32), 0,
					 uint8_t(bl >> 16), uint8_t(bl >> 8), uint8_t(bl)};
			out.insert(out.end(), bd, bd + 8);
		}
		out.insert(out.end(), body.begin(), body.end());
		out[0] = static_cast<uint8_t>(out.size() - 1);
		return o;
	}
	case 0x15: { // MODE SELECT(6)
		if (!(cdb[1] & 0x10))
			return illegal(0x24, "MODE SELECT without PF");
		if (cdb[4] != in.size())
			return illegal(0x24, "MODE SELECT parameter list length differs from the data");
		if (in.size() < 4 || (in[3] != 0 && in[3] != 8) || in.size() < 4u + in[3] + 12u)
			return illegal(0x1A, "MODE SELECT parameter list too short");
		const uint8_t *pg = in.data() + 4 + in[3];
		if ((pg[0] & 0x3F) != 0x1C || pg[1] != 0x0A)
			return illegal(0x26, "MODE SELECT of other than the informational exceptions page");
		std::vector<uint8_t> cur = ieBytes("ie_page", "1c0a08000000000000000000");
		std::vector<uint8_t> mask = ieBytes("ie_changeable", "1c0a9c0fffffffffffffffff");
		for (int i = 2; i < 12; ++i)
			if ((pg[i] ^ cur[i]) & ~mask[i])
				return illegal(0x26, "MODE SELECT changes a bit the drive does not allow");
		std::vector<uint8_t> next(pg, pg + 12);
		next[0] = 0x1C;
		json_object_object_add(section("scsi"), "ie_page", json_object_new_string(toHex(next.data(), 12).c_str()));
		changed_ = true;
		return o;
	}
	default:
		(void)cdbLen;
		return illegal(0x20, "unsupported operation code");
	}
}

} // namespace vexosim::drive
