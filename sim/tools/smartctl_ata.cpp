// smartctl on an ATA drive (ata, sat and marvell transports).
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

#include "attribute_format.h"
#include "node_file.h"
#include "smartctl.h"

namespace vexosim::tools::smartctl {

namespace {

const char *kIndent = "\t\t\t\t\t";

unsigned word(const std::vector<uint8_t> &p, int w) { return p[2 * w] | p[2 * w + 1] << 8; }

std::string ataString(const std::vector<uint8_t> &p, int first, int words)
{
	std::string s;
	for (int i = 0; i < words * 2; ++i)
		s += static_cast<char>(p[first * 2 + (i ^ 1)]);
	size_t b = s.find_first_not_of(' '), e = s.find_last_not_of(' ');
	s = b == std::string::npos ? std::string() : s.substr(b, e - b + 1);
	bool printable = std::all_of(s.begin(), s.end(), [](char c) { return c >= 0x20 && c < 0x7F; });
	return s.empty() || !printable ? "[No Information Found]" : s;
}

struct Attribute {
	unsigned id, flags, value, worst;
	int threshold; // -1: no threshold entry
	uint8_t raw[6];
	enum State { Ok, FailedPast, FailedNow } state;
	std::string name, text;
};

// What a drive database entry would add for the drive's model: the node's
// "model_family" and per-attribute "name" and "format".
struct Presets {
	std::string family;
	json_object *attrs = nullptr;
	Json node;
};

void presetFor(const Presets &p, unsigned id, std::string &name, std::string &format)
{
	json_object *a = p.attrs;
	for (size_t i = 0; a && i < json_object_array_length(a); ++i) {
		json_object *e = json_object_array_get_idx(a, i);
		if (memberInt(e, "id", -1) != static_cast<long long>(id))
			continue;
		name = memberString(e, "name", name);
		std::string f = memberString(e, "format", format);
		if (knownRawFormat(f))
			format = f;
	}
}

// Without a thresholds page every threshold is unknown ("---").
std::vector<Attribute> attributes(const std::vector<uint8_t> &values, const std::vector<uint8_t> *thresholds,
				  unsigned rotation, const Presets &presets)
{
	std::vector<Attribute> out;
	for (int slot = 0; slot < 30; ++slot) {
		const uint8_t *a = values.data() + 2 + 12 * slot;
		if (!a[0])
			continue;
		Attribute x{};
		x.id = a[0];
		x.flags = a[1] | a[2] << 8;
		x.value = a[3];
		x.worst = a[4];
		std::memcpy(x.raw, a + 5, 6);
		x.threshold = -1;
		const uint8_t *t = thresholds ? thresholds->data() + 2 + 12 * slot : nullptr;
		if (t && t[0] == a[0])
			x.threshold = t[1];
		x.state = Attribute::Ok;
		if (x.threshold > 0) {
			if (static_cast<int>(x.value) <= x.threshold)
				x.state = Attribute::FailedNow;
			else if (static_cast<int>(x.worst) <= x.threshold)
				x.state = Attribute::FailedPast;
		}
		x.name = attributeName(x.id, rotation);
		std::string format = defaultRawFormat(x.id);
		presetFor(presets, x.id, x.name, format);
		x.text = formatRaw(x.raw, format);
		out.push_back(x);
	}
	return out;
}

const char *kAttrHeader =
	"ID# ATTRIBUTE_NAME          FLAG     VALUE WORST THRESH TYPE      UPDATED  WHEN_FAILED RAW_VALUE\n";

void printAttribute(const Attribute &a)
{
	char thresh[16];
	if (a.threshold < 0)
		std::snprintf(thresh, sizeof thresh, "---");
	else
		std::snprintf(thresh, sizeof thresh, "%03d", a.threshold);
	const char *when = a.state == Attribute::FailedNow    ? "FAILING_NOW"
			   : a.state == Attribute::FailedPast ? "In_the_past"
							      : "    -      ";
	out("%3u %-23s 0x%04x   %03u   %03u   %s    %-9s %-8s %-11s %s\n", a.id, a.name.c_str(), a.flags, a.value,
	    a.worst, thresh, (a.flags & 1) ? "Pre-fail" : "Old_age", (a.flags & 2) ? "Always" : "Offline", when,
	    a.text.c_str());
}

std::string ataVersion(const std::vector<uint8_t> &id)
{
	static const char *names[] = {nullptr,	     "ATA-1",	    "ATA-2",	    "ATA-3",	"ATA/ATAPI-4",
				      "ATA/ATAPI-5", "ATA/ATAPI-6", "ATA/ATAPI-7", "ATA8-ACS", "ACS-2",
				      "ACS-3",	     "ACS-4",	    "ACS-5"};
	unsigned major = word(id, 80), minor = word(id, 81);
	if (major == 0 || major == 0xFFFF)
		return "";
	int top = 0;
	for (int b = 1; b < 16; ++b)
		if (major & (1u << b))
			top = b;
	if (!top)
		return "";
	std::string s = top < 13 ? names[top] : "ACS >5 (" + std::to_string(top) + ")";
	if (minor == 0 || minor == 0xFFFF)
		return s + " (minor revision not indicated)";
	char b[64];
	std::snprintf(b, sizeof b, " (unknown minor revision code: 0x%04x)", minor);
	return s + b;
}

std::string packetSmartLine(const std::vector<uint8_t> &id)
{
	static const char *kinds[] = {"direct-access", "sequential-access", "printer",	"processor",
				      "write-once",    "CD/DVD",	    "scanner",	"optical memory",
				      "medium changer", "communications",   "reserved", "reserved",
				      "storage array",  "enclosure",	    "reduced block", "optical card"};
	unsigned kind = (word(id, 0) >> 8) & 0x1F;
	return std::string("SMART support is: Unavailable - Packet Interface Devices [this device: ") +
	       (kind < 16 ? kinds[kind] : "unknown") + "] don't support ATA SMART";
}

void printInfo(const std::vector<uint8_t> &id, bool packet, const Presets &presets, const std::string &powerLine)
{
	out("=== START OF INFORMATION SECTION ===\n");
	if (!presets.family.empty())
		out("Model Family:     %s\n", presets.family.c_str());
	out("Device Model:     %s\n", ataString(id, 27, 20).c_str());
	out("Serial Number:    %s\n", ataString(id, 10, 10).c_str());
	if (!packet && (word(id, 87) & 0xC100) == 0x4100) {
		unsigned w108 = word(id, 108), w109 = word(id, 109), w110 = word(id, 110), w111 = word(id, 111);
		unsigned long long uid = static_cast<unsigned long long>(w109 & 0xF) << 32 | w110 << 16 | w111;
		out("LU WWN Device Id: %x %06x %09llx\n", w108 >> 12, (w108 & 0x0FFF) << 12 | w109 >> 4, uid);
	}
	out("Firmware Version: %s\n", ataString(id, 23, 4).c_str());
	if (packet) {
		out("Device is:        %s smartctl database 7.3/5319\n", presets.family.empty() ? "Not in" : "In");
		std::string v = ataVersion(id);
		if (!v.empty())
			out("ATA Version is:   %s\n", v.c_str());
		out("Local Time is:    %s\n", localTime().c_str());
		out("%s\n\n", packetSmartLine(id).c_str());
		return;
	}
	uint64_t sectors = (word(id, 83) & 0x0400)
				   ? (uint64_t(word(id, 103)) << 48 | uint64_t(word(id, 102)) << 32 |
				      uint64_t(word(id, 101)) << 16 | word(id, 100))
				   : (uint64_t(word(id, 61)) << 16 | word(id, 60));
	unsigned w106 = word(id, 106);
	unsigned logical = 512, physical = 512;
	if ((w106 & 0xC000) == 0x4000) {
		if (w106 & 0x1000)
			logical = 2 * (word(id, 117) | word(id, 118) << 16);
		physical = (w106 & 0x2000) ? logical << (w106 & 0x0F) : logical;
	}
	if (sectors) {
		uint64_t bytes = sectors * logical;
		out("User Capacity:    %s bytes [%s]\n", withCommas(bytes).c_str(), siCapacity(bytes).c_str());
	}
	if (logical == physical)
		out("Sector Size:      %u bytes logical/physical\n", logical);
	else
		out("Sector Sizes:     %u bytes logical, %u bytes physical\n", logical, physical);
	unsigned rotation = word(id, 217);
	if (rotation == 1)
		out("Rotation Rate:    Solid State Device\n");
	else if (rotation > 0x400 && rotation < 0xFFFF)
		out("Rotation Rate:    %u rpm\n", rotation);
	static const char *factors[] = {nullptr,      "5.25 inches", "3.5 inches", "2.5 inches", "1.8 inches",
					"< 1.8 inches", "mSATA",	"M.2",	      "MicroSSD",   "CFast"};
	unsigned ff = word(id, 168) & 0x0F;
	if (ff > 0 && ff < 10)
		out("Form Factor:      %s\n", factors[ff]);
	if (rotation == 1 || (word(id, 169) & 1)) {
		std::string trim = (word(id, 169) & 1) ? "Available" : "Unavailable";
		if ((word(id, 169) & 1) && (word(id, 69) & 0x4000))
			trim += (word(id, 69) & 0x0020) ? ", deterministic, zeroed" : ", deterministic";
		out("TRIM Command:     %s\n", trim.c_str());
	}
	out("Device is:        %s smartctl database 7.3/5319\n", presets.family.empty() ? "Not in" : "In");
	std::string v = ataVersion(id);
	if (!v.empty())
		out("ATA Version is:   %s\n", v.c_str());
	out("Local Time is:    %s\n", localTime().c_str());
	bool smart = (word(id, 82) & 1) || (word(id, 87) & 0xC000) == 0x4000;
	out("SMART support is: %s\n", smart ? "Available - device has SMART capability." : "Unavailable - device lacks SMART capability.");
	if (smart)
		out("SMART support is: %s\n", (word(id, 85) & 1) ? "Enabled" : "Disabled");
	if (!powerLine.empty())
		out("%s\n", powerLine.c_str());
	out("\n");
}

void printCapabilities(const std::vector<uint8_t> &v, const std::vector<uint8_t> &id)
{
	out("General SMART Values:\n");
	unsigned st = v[362];
	static const char *offline[] = {"was never started.", nullptr, "was completed without error.",
					"is in progress.", "was suspended by an interrupting command from host.",
					"was aborted by an interrupting command from host.",
					"was aborted by the device with a fatal error."};
	unsigned s7 = st & 0x7F;
	if (s7 < 7 && offline[s7])
		out("Offline data collection status:  (0x%02x)\tOffline data collection activity\n%s%s\n", st, kIndent,
		    offline[s7]);
	else
		out("Offline data collection status:  (0x%02x)\tOffline data collection activity\n%sis in a Reserved state.\n",
		    st, kIndent);
	out("%sAuto Offline Data Collection: %s.\n", kIndent, (st & 0x80) ? "Enabled" : "Disabled");

	unsigned ex = v[363];
	out("Self-test execution status:      (%4u)\t", ex);
	switch (ex >> 4) {
	case 0:
		out("The previous self-test routine completed\n%swithout error or no self-test has ever \n%sbeen run.\n",
		    kIndent, kIndent);
		break;
	case 1:
		out("The self-test routine was aborted by\n%sthe host.\n", kIndent);
		break;
	case 2:
		out("The self-test routine was interrupted\n%sby the host with a hard or soft reset.\n", kIndent);
		break;
	case 3:
		out("A fatal error or unknown test error\n%soccurred while the device was executing\n%sits self-test "
		    "routine and the device \n%swas unable to complete the self-test \n%sroutine.\n",
		    kIndent, kIndent, kIndent, kIndent);
		break;
	case 4:
		out("The previous self-test completed having\n%sa test element that failed and the test\n%selement that "
		    "failed is not known.\n",
		    kIndent, kIndent);
		break;
	case 5:
		out("The previous self-test completed having\n%sthe electrical element of the test\n%sfailed.\n", kIndent,
		    kIndent);
		break;
	case 6:
		out("The previous self-test completed having\n%sthe servo (and/or seek) element of the \n%stest failed.\n",
		    kIndent, kIndent);
		break;
	case 7:
		out("The previous self-test completed having\n%sthe read element of the test failed.\n", kIndent);
		break;
	case 8:
		out("The previous self-test completed having\n%sa test element that failed and the\n%sdevice is "
		    "suspected of having handling\n%sdamage.\n",
		    kIndent, kIndent, kIndent);
		break;
	case 15:
		out("Self-test routine in progress...\n%s%u0%% of test remaining.\n", kIndent, ex & 0x0F);
		break;
	default:
		out("Reserved.\n");
	}
	out("Total time to complete Offline \ndata collection: \t\t(%5u) seconds.\n", v[364] | v[365] << 8);
	unsigned cap = v[367];
	out("Offline data collection\ncapabilities: \t\t\t (0x%02x) ", cap);
	out("%s\n", (cap & 0x01) ? "SMART execute Offline immediate." : "No SMART execute Offline immediate.");
	out("%s%s\n", kIndent, (cap & 0x02) ? "Auto Offline data collection on/off support." : "No Auto Offline data collection support.");
	out("%s%s\n%scommand.\n", kIndent, (cap & 0x04) ? "Abort Offline collection upon new" : "Suspend Offline collection upon new",
	    kIndent);
	out("%s%s\n", kIndent, (cap & 0x08) ? "Offline surface scan supported." : "No Offline surface scan supported.");
	out("%s%s\n", kIndent, (cap & 0x10) ? "Self-test supported." : "No Self-test supported.");
	out("%s%s\n", kIndent, (cap & 0x20) ? "Conveyance Self-test supported." : "No Conveyance Self-test supported.");
	out("%s%s\n", kIndent, (cap & 0x40) ? "Selective Self-test supported." : "No Selective Self-test supported.");
	unsigned sc = v[368] | v[369] << 8;
	out("SMART capabilities:            (0x%04x)\t", sc);
	if (sc & 1)
		out("Saves SMART data before entering\n%spower-saving mode.\n", kIndent);
	else
		out("Does not save SMART data before\n%sentering power-saving mode.\n", kIndent);
	if (sc & 2)
		out("%sSupports SMART auto save timer.\n", kIndent);
	unsigned el = v[370];
	out("Error logging capability:        (0x%02x)\tError logging %s.\n", el, (el & 1) ? "supported" : "NOT supported");
	out("%s%s\n", kIndent, (word(id, 84) & 0x20) ? "General Purpose Logging supported." : "No General Purpose Logging support.");
	if (cap & 0x10) {
		unsigned ext = v[373];
		if (ext == 0xFF && (v[375] | v[376] << 8))
			ext = v[375] | v[376] << 8;
		out("Short self-test routine \nrecommended polling time: \t (%4u) minutes.\n", v[372]);
		out("Extended self-test routine\nrecommended polling time: \t (%4u) minutes.\n", ext);
		if (cap & 0x20)
			out("Conveyance self-test routine\nrecommended polling time: \t (%4u) minutes.\n", v[374]);
	}
	unsigned sct = word(id, 206);
	if (sct & 1) {
		out("SCT capabilities: \t       (0x%04x)\tSCT Status supported.\n", sct);
		if (sct & 0x08)
			out("%sSCT Error Recovery Control supported.\n", kIndent);
		if (sct & 0x10)
			out("%sSCT Feature Control supported.\n", kIndent);
		if (sct & 0x20)
			out("%sSCT Data Table supported.\n", kIndent);
	}
	out("\n");
}

const char *testName(unsigned type)
{
	switch (type) {
	case 0: return "Offline";
	case 1: return "Short offline";
	case 2: return "Extended offline";
	case 3: return "Conveyance offline";
	case 4: return "Selective offline";
	case 127: return "Abort offline test";
	case 129: return "Short captive";
	case 130: return "Extended captive";
	case 131: return "Conveyance captive";
	case 132: return "Selective captive";
	default: return nullptr;
	}
}

const char *testStatus(unsigned status)
{
	switch (status >> 4) {
	case 0: return "Completed without error";
	case 1: return "Aborted by host";
	case 2: return "Interrupted (host reset)";
	case 3: return "Fatal or unknown error";
	case 4: return "Completed: unknown failure";
	case 5: return "Completed: electrical failure";
	case 6: return "Completed: servo/seek failure";
	case 7: return "Completed: read failure";
	case 8: return "Completed: handling damage??";
	case 15: return "Self-test routine in progress";
	default: return nullptr;
	}
}

// Prints the self-test log; returns the number of entries that report an error.
int printSelfTestLog(const std::vector<uint8_t> &log)
{
	out("SMART Self-test log structure revision number %u\n", log[0] | log[1] << 8);
	int errors = 0, printed = 0;
	unsigned idx = log[508];
	for (int n = 0; n < 21; ++n) {
		// Newest first: from the index backwards around the ring.
		int slot = (static_cast<int>(idx) - 1 - n + 21 * 2) % 21;
		if (idx == 0 || idx > 21)
			break;
		const uint8_t *e = log.data() + 2 + 24 * slot;
		if (!e[0] && !e[1] && !e[2] && !e[3])
			continue;
		if (!printed)
			out("Num  Test_Description    Status                  Remaining  LifeTime(hours)  "
			    "LBA_of_first_error\n");
		++printed;
		char type[24], status[40];
		const char *tn = testName(e[0]);
		if (tn)
			std::snprintf(type, sizeof type, "%s", tn);
		else
			std::snprintf(type, sizeof type, "Vendor (0x%02x)", e[0]);
		const char *sn = testStatus(e[1]);
		if (sn)
			std::snprintf(status, sizeof status, "%s", sn);
		else
			std::snprintf(status, sizeof status, "Unknown status (0x%01x)", e[1] >> 4);
		unsigned hours = e[2] | e[3] << 8;
		uint32_t lba = e[5] | e[6] << 8 | e[7] << 16 | static_cast<uint32_t>(e[8]) << 24;
		unsigned st = e[1] >> 4;
		bool failed = st >= 3 && st <= 8;
		if (failed)
			++errors;
		char lbaText[16];
		if (failed && lba != 0xFFFFFFFF)
			std::snprintf(lbaText, sizeof lbaText, "%u", lba);
		else
			std::snprintf(lbaText, sizeof lbaText, "-");
		out("#%2d  %-19s %-29s %1u0%%  %8u         %s\n", printed, type, status, e[1] & 0x0F, hours, lbaText);
	}
	if (!printed)
		out("No self-tests have been logged.  [To run self-tests, use: smartctl -t]\n");
	out("\n");
	return errors;
}

std::string powerName(uint8_t count)
{
	switch (count) {
	case 0x00: return "STANDBY";
	case 0x01: return "STANDBY_Y";
	case 0x40: case 0x41: return "ACTIVE_NV";
	case 0x80: return "IDLE";
	case 0x81: return "IDLE_A";
	case 0x82: return "IDLE_B";
	case 0x83: return "IDLE_C";
	case 0xFF: return "ACTIVE or IDLE";
	default: return "UNKNOWN";
	}
}

std::string failure(const Drive &d, const AtaAnswer &a)
{
	if (d.transport() == Transport::Sat && a.aborted && a.err == EIO)
		return "scsi error " + (a.scsiError.empty() ? std::string("aborted command") : a.scsiError);
	return std::strerror(a.err ? a.err : EIO);
}

bool readSmart(Drive &d, uint8_t features, uint8_t lbaLow, std::vector<uint8_t> &page, AtaAnswer *why = nullptr)
{
	Regs r;
	r.command = 0xB0;
	r.features = features;
	r.count = 1;
	r.lbaLow = lbaLow;
	r.lbaMid = 0x4F;
	r.lbaHigh = 0xC2;
	AtaAnswer a = d.ata(r, &page);
	if (why)
		*why = a;
	return a.ok && page.size() >= 512;
}

} // namespace

int runAta(Drive &d, const Options &o)
{
	int rc = 0;
	std::string powerLine;
	if (!o.nocheck.empty()) {
		Regs r;
		r.command = 0xE5;
		AtaAnswer a = d.ata(r, nullptr, true);
		if (a.ok && a.haveRegs) {
			uint8_t c = a.out.count;
			bool standby = c == 0x00 || c == 0x01, idle = c >= 0x80 && c <= 0x83;
			if ((o.nocheck == "standby" && standby) || (o.nocheck == "idle" && (standby || idle))) {
				out("Device is in %s mode, exit(2)\n", powerName(c).c_str());
				return kOpenFailed;
			}
			powerLine = (standby || idle ? "Power mode was:   " : "Power mode is:    ") + powerName(c);
		}
	}
	std::vector<uint8_t> id;
	AtaAnswer why;
	bool packet = false;
	if (!identify(d, id, &why)) {
		// A packet device aborts IDENTIFY DEVICE and answers IDENTIFY PACKET DEVICE.
		Regs r;
		r.command = 0xA1;
		r.count = 1;
		packet = why.aborted && d.ata(r, &id).ok && id.size() >= 512;
		if (!packet) {
			out("Read Device Identity failed: %s\n\n", failure(d, why).c_str());
			out("If this is a USB connected device, look at the various --device=TYPE variants\n");
			out("A mandatory SMART command failed: exiting. To continue, add one or more '-T permissive' "
			    "options.\n");
			return kOpenFailed;
		}
	}
	Presets presets;
	presets.node = readNode(o.device);
	presets.family = memberString(presets.node.get(), "model_family", "");
	presets.attrs = member(member(presets.node.get(), "smart"), "attributes");

	if (o.info)
		printInfo(id, packet, presets, powerLine);

	const bool wantsSmart = o.health || o.attributes || o.capabilities || o.errorLog || o.selfTestLog || o.selectiveLog;
	if (!wantsSmart) {
		if (!o.info)
			out("ATA device successfully opened\n\nUse 'smartctl -a' (or '-x') to print SMART (and more) "
			    "information\n\n");
		return rc;
	}
	if (packet) {
		if (!o.info)
			out("%s\n", packetSmartLine(id).c_str());
		out("A mandatory SMART command failed: exiting. To continue, add one or more '-T permissive' options.\n");
		return kCommandFailed;
	}
	bool supported = (word(id, 82) & 1) || (word(id, 87) & 0xC000) == 0x4000;
	if (!supported) {
		if (!o.info)
			out("SMART support is: Unavailable - device lacks SMART capability.\n");
		out("A mandatory SMART command failed: exiting. To continue, add one or more '-T permissive' options.\n");
		return kCommandFailed;
	}
	if (!(word(id, 85) & 1)) {
		out("SMART Disabled. Use option -s with argument 'on' to enable it.\n");
		out("(override with '-T permissive' option)\n");
		return rc;
	}
	std::vector<uint8_t> values, thresholds;
	AtaAnswer vWhy, tWhy;
	bool haveValues = readSmart(d, 0xD0, 0, values, &vWhy);
	if (!haveValues) {
		out("Read SMART Data failed: %s\n\n", failure(d, vWhy).c_str());
		rc |= kCommandFailed;
		values.assign(512, 0);
	}
	const bool wantThresholds = o.health || o.attributes;
	bool haveThresholds = haveValues && wantThresholds && readSmart(d, 0xD1, 1, thresholds, &tWhy);
	if (haveValues && wantThresholds && !haveThresholds) {
		out("Read SMART Thresholds failed: %s\n\n", failure(d, tWhy).c_str());
		rc |= kCommandFailed;
	}
	if (!haveThresholds)
		thresholds.assign(512, 0);
	out("=== START OF READ SMART DATA SECTION ===\n");
	unsigned rotation = word(id, 217);
	std::vector<Attribute> attrs;
	if (haveValues)
		attrs = attributes(values, haveThresholds ? &thresholds : nullptr, rotation, presets);

	if (o.health) {
		Regs r;
		r.command = 0xB0;
		r.features = 0xDA;
		r.lbaMid = 0x4F;
		r.lbaHigh = 0xC2;
		AtaAnswer a = d.ata(r, nullptr, true);
		int verdict = -1; // 0 passed, 1 failing, -1 unknown: judge from the attributes
		if (!a.ok && a.err && !a.aborted) {
			out("Error SMART Status command failed: %s\n", std::strerror(a.err));
			out("SMART Status command failed: %s\n", std::strerror(a.err));
			rc |= kCommandFailed;
		} else if (!a.ok) {
			out("SMART Status command failed: %s\n", failure(d, a).c_str());
			rc |= kCommandFailed;
		} else if (!a.haveRegs) {
			out("SMART Status not supported: Incomplete response, ATA output registers missing\n");
		} else if (a.out.lbaMid == 0x4F && a.out.lbaHigh == 0xC2) {
			verdict = 0;
		} else if (a.out.lbaMid == 0xF4 && a.out.lbaHigh == 0x2C) {
			verdict = 1;
		} else if (d.transport() == Transport::Marvell && a.area.size() == 7) {
			static const char *regs[] = {"CMD ", "FR ", "NS ", "SC ", "CL ", "CH ", "SEL"};
			out("Error SMART Status command failed\n");
			out("Please get assistance from smartmontools-support@listi.jpberlin.de\n");
			out("Register values returned from SMART Status command are:\n");
			for (int i = 0; i < 7; ++i)
				out("%s=0x%02x\n", regs[i], a.area[i]);
			out("SMART Status command failed: Success\n");
			rc |= kCommandFailed;
		} else {
			out("SMART Status not supported: Invalid ATA output register values\n");
		}
		std::vector<const Attribute *> failedNow, marginal;
		for (const auto &x : attrs) {
			if (x.state == Attribute::FailedNow && (x.flags & 1))
				failedNow.push_back(&x);
			if (x.state != Attribute::Ok)
				marginal.push_back(&x);
		}
		bool byAttributes = verdict < 0;
		if (byAttributes && !haveThresholds) {
			out("SMART overall-health self-assessment test result: UNKNOWN!\n"
			    "SMART Status, Attributes and Thresholds cannot be read.\n\n");
			byAttributes = false;
			verdict = 2;
		}
		if (byAttributes)
			verdict = failedNow.empty() ? 0 : 1;
		if (verdict < 2) {
			out("SMART overall-health self-assessment test result: %s\n", verdict ? "FAILED!" : "PASSED");
			if (verdict) {
				out("Drive failure expected in less than 24 hours. SAVE ALL DATA.\n");
				rc |= kDiskFailing;
			}
			if (byAttributes)
				out("Warning: This result is based on an Attribute check.\n");
			// The attributes to name: failing pre-fail ones under a failed
			// verdict, any failing or failed one under a passed verdict.
			const std::vector<const Attribute *> &named = verdict ? failedNow : marginal;
			if (!named.empty()) {
				rc |= verdict ? kPrefailNow : kUsageInPast;
				const char *title = verdict ? "Failed Attributes:" : "Please note the following marginal Attributes:";
				if (!o.attributes) {
					out("%s\n%s", title, kAttrHeader);
					for (const Attribute *x : named)
						printAttribute(*x);
				} else {
					out("See vendor-specific Attribute list for %s Attributes.\n", verdict ? "failed" : "marginal");
				}
			}
			out("\n");
		}
	}
	if (o.capabilities && haveValues)
		printCapabilities(values, id);
	if (o.attributes && haveValues) {
		out("SMART Attributes Data Structure revision number: %u\n", values[0] | values[1] << 8);
		out("Vendor Specific SMART Attributes with Thresholds:\n%s", kAttrHeader);
		for (const auto &x : attrs)
			printAttribute(x);
		out("\n");
	}
	if (o.errorLog) {
		std::vector<uint8_t> log;
		AtaAnswer w;
		if (!readSmart(d, 0xD5, 0x01, log, &w)) {
			out("Read SMART Error Log failed: %s\n\n", failure(d, w).c_str());
			rc |= kCommandFailed;
		} else {
			out("SMART Error Log Version: %u\n", log[0]);
			unsigned count = log[452] | log[453] << 8;
			if (!count) {
				out("No Errors Logged\n\n");
			} else {
				out("ATA Error Count: %u\n\n", count);
				rc |= kErrorLogHasErrors;
			}
		}
	}
	if (o.selfTestLog) {
		std::vector<uint8_t> log;
		AtaAnswer w;
		if (!readSmart(d, 0xD5, 0x06, log, &w)) {
			out("Read SMART Self-test Log failed: %s\n\n", failure(d, w).c_str());
			rc |= kCommandFailed;
		} else if (printSelfTestLog(log) > 0) {
			rc |= kSelfTestErrors;
		}
	}
	if (o.selectiveLog && !(values[367] & 0x40))
		out("Selective Self-tests/Logging not supported\n\n");
	if (o.selectiveLog && (values[367] & 0x40)) {
		std::vector<uint8_t> log;
		AtaAnswer w;
		if (!readSmart(d, 0xD5, 0x09, log, &w)) {
			out("Read SMART Selective Self-test Log failed: %s\n\n", failure(d, w).c_str());
			rc |= kCommandFailed;
		} else {
			out("SMART Selective self-test log data structure revision number %u\n", log[0] | log[1] << 8);
			out(" SPAN  MIN_LBA  MAX_LBA  CURRENT_TEST_STATUS\n");
			for (int i = 0; i < 5; ++i) {
				const uint8_t *s = log.data() + 2 + 16 * i;
				unsigned long long lo = 0, hi = 0;
				for (int b = 7; b >= 0; --b) {
					lo = lo << 8 | s[b];
					hi = hi << 8 | s[8 + b];
				}
				out("    %d %8llu %8llu  Not_testing\n", i + 1, lo, hi);
			}
			unsigned flags = log[494] | log[495] << 8;
			out("Selective self-test flags (0x%x):\n", flags);
			out("  After scanning selected spans, %s\n",
			    (flags & 0x02) ? "read-scan remainder of disk." : "do NOT read-scan remainder of disk.");
			out("If Selective self-test is pending on power-up, resume after %u minute delay.\n\n",
			    log[508] | log[509] << 8);
		}
	}
	return rc;
}

} // namespace vexosim::tools::smartctl
