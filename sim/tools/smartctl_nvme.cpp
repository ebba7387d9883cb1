// smartctl on an NVMe drive: Identify Controller and Namespace, the SMART /
// health log and the error information log, over NVMe admin commands.
#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "smartctl.h"

namespace vexosim::tools::smartctl {

namespace {

constexpr uint8_t kIdentify = 0x06, kGetLogPage = 0x02;

uint64_t le(const std::vector<uint8_t> &b, size_t off, unsigned n)
{
	uint64_t v = 0;
	for (unsigned i = n; i-- > 0;)
		v = v << 8 | b[off + i];
	return v;
}

std::string text(const std::vector<uint8_t> &b, size_t off, size_t n)
{
	std::string s(reinterpret_cast<const char *>(b.data() + off), n);
	size_t e = s.find_last_not_of(" \0", std::string::npos, 2);
	return e == std::string::npos ? std::string() : s.substr(0, e + 1);
}

// Names of the set bits, in order, joined by spaces; "-" for none.
std::string bits(unsigned v, const std::vector<const char *> &names)
{
	std::string s;
	for (size_t i = 0; i < names.size(); ++i)
		if (v & (1u << i)) {
			s += (s.empty() ? "" : " ");
			s += names[i];
		}
	return s.empty() ? "-" : s;
}

// Why an admin command failed: the ioctl's errno, or the controller's status.
std::string failure(int st)
{
	if (st < 0)
		return std::string("NVME_IOCTL_ADMIN_CMD: ") + std::strerror(errno);
	char b[32];
	std::snprintf(b, sizeof b, "NVMe Status 0x%02x", static_cast<unsigned>(st));
	return b;
}

std::string capacity(uint64_t bytes)
{
	return bytes ? withCommas(bytes) + " [" + siCapacity(bytes) + "]" : "0";
}

void printInfo(const std::vector<uint8_t> &c, const std::vector<uint8_t> &ns, uint32_t nsid)
{
	out("=== START OF INFORMATION SECTION ===\n");
	out("Model Number:                       %s\n", text(c, 24, 40).c_str());
	out("Serial Number:                      %s\n", text(c, 4, 20).c_str());
	out("Firmware Version:                   %s\n", text(c, 64, 8).c_str());
	unsigned vid = static_cast<unsigned>(le(c, 0, 2)), ssvid = static_cast<unsigned>(le(c, 2, 2));
	if (vid == ssvid) {
		out("PCI Vendor/Subsystem ID:            0x%04x\n", vid);
	} else {
		out("PCI Vendor ID:                      0x%04x\n", vid);
		out("PCI Vendor Subsystem ID:            0x%04x\n", ssvid);
	}
	out("IEEE OUI Identifier:                0x%02x%02x%02x\n", c[75], c[74], c[73]);
	uint64_t total = le(c, 280, 8), unallocated = le(c, 296, 8);
	if (total) {
		out("Total NVM Capacity:                 %s\n", capacity(total).c_str());
		out("Unallocated NVM Capacity:           %s\n", capacity(unallocated).c_str());
	}
	out("Controller ID:                      %u\n", static_cast<unsigned>(le(c, 78, 2)));
	uint32_t ver = static_cast<uint32_t>(le(c, 80, 4));
	if (ver) {
		if (ver & 0xFF)
			out("NVMe Version:                       %u.%u.%u\n", ver >> 16, (ver >> 8) & 0xFF, ver & 0xFF);
		else
			out("NVMe Version:                       %u.%u\n", ver >> 16, (ver >> 8) & 0xFF);
	}
	out("Number of Namespaces:               %u\n", static_cast<unsigned>(le(c, 516, 4)));
	if (!ns.empty()) {
		unsigned fmt = ns[26] & 0x0F;
		uint64_t lbaSize = 1ULL << ns[128 + 4 * fmt + 2];
		uint64_t size = le(ns, 0, 8) * lbaSize, cap = le(ns, 8, 8) * lbaSize, used = le(ns, 16, 8) * lbaSize;
		if (size == cap) {
			out("Namespace %u Size/Capacity:          %s\n", nsid, capacity(size).c_str());
		} else {
			out("Namespace %u Size:                   %s\n", nsid, capacity(size).c_str());
			out("Namespace %u Capacity:               %s\n", nsid, capacity(cap).c_str());
		}
		if (used != cap)
			out("Namespace %u Utilization:            %s\n", nsid, capacity(used).c_str());
		out("Namespace %u Formatted LBA Size:     %llu\n", nsid, static_cast<unsigned long long>(lbaSize));
		bool eui = false;
		for (int i = 120; i < 128; ++i)
			eui |= ns[i] != 0;
		if (eui)
			out("Namespace %u IEEE EUI-64:            %02x%02x%02x %02x%02x%02x%02x%02x\n", nsid, ns[120], ns[121],
			    ns[122], ns[123], ns[124], ns[125], ns[126], ns[127]);
	}
	out("Local Time is:                      %s\n", localTime().c_str());
}

void printCapabilities(const std::vector<uint8_t> &c, const std::vector<uint8_t> &ns, uint32_t nsid)
{
	unsigned frmw = c[260];
	unsigned slots = (frmw >> 1) & 7;
	std::string fw = std::to_string(slots) + " Slot" + (slots == 1 ? "" : "s");
	if (frmw & 1)
		fw += ", Slot 1 R/O";
	if (frmw & 0x10)
		fw += ", no Reset required";
	out("Firmware Updates (0x%02x):            %s\n", frmw, fw.c_str());
	unsigned oacs = static_cast<unsigned>(le(c, 256, 2));
	if (oacs)
		out("Optional Admin Commands (0x%04x):   %s\n", oacs,
		    bits(oacs, {"Security", "Format", "Frmw_DL", "NS_Mngmt", "Self_Test", "Directvs", "MI_Snd/Rec",
				"Virt_Mngmt", "Drbl_Bf_Cfg", "Get_LBA_Sts"})
			    .c_str());
	unsigned oncs = static_cast<unsigned>(le(c, 520, 2));
	if (oncs)
		out("Optional NVM Commands (0x%04x):     %s\n", oncs,
		    bits(oncs, {"Comp", "Wr_Unc", "DS_Mngmt", "Wr_Zero", "Sav/Sel_Feat", "Resv", "Timestmp", "Verify"})
			    .c_str());
	unsigned lpa = c[261];
	if (lpa)
		out("Log Page Attributes (0x%02x):         %s\n", lpa,
		    bits(lpa, {"S/H_per_NS", "Cmd_Eff_Lg", "Ext_Get_Lg", "Telmtry_Lg", "Pers_Ev_Lg"}).c_str());
	if (c[77])
		out("Maximum Data Transfer Size:         %u Pages\n", 1u << c[77]);
	unsigned wctemp = static_cast<unsigned>(le(c, 266, 2)), cctemp = static_cast<unsigned>(le(c, 268, 2));
	if (wctemp)
		out("Warning  Comp. Temp. Threshold:     %d Celsius\n", static_cast<int>(wctemp) - 273);
	if (cctemp)
		out("Critical Comp. Temp. Threshold:     %d Celsius\n", static_cast<int>(cctemp) - 273);
	out("\nSupported Power States\n");
	out("St Op     Max   Active     Idle   RL RT WL WT  Ent_Lat  Ex_Lat\n");
	for (unsigned i = 0; i <= c[263] && i < 32; ++i) {
		const uint8_t *p = c.data() + 2048 + 32 * i;
		auto watts = [](unsigned v, unsigned scale) -> std::string {
			if (!v || !scale)
				return "-";
			char b[16];
			std::snprintf(b, sizeof b, scale == 1 ? "%u.%04uW" : "%u.%02uW", scale == 1 ? v / 10000 : v / 100,
				      scale == 1 ? v % 10000 : v % 100);
			return b;
		};
		unsigned mp = p[0] | p[1] << 8;
		std::string max = watts(mp, (p[3] & 1) ? 1 : 2);
		unsigned idle = p[16] | p[17] << 8, active = p[20] | p[21] << 8;
		std::string idleW = watts(idle, p[18] >> 6), activeW = watts(active, p[22] >> 6);
		unsigned enlat = static_cast<unsigned>(p[4] | p[5] << 8 | p[6] << 16 | static_cast<unsigned>(p[7]) << 24);
		unsigned exlat = static_cast<unsigned>(p[8] | p[9] << 8 | p[10] << 16 | static_cast<unsigned>(p[11]) << 24);
		out("%2u %c %9s%8s %8s %4u %2u %2u %2u %8u %7u\n", i, (p[3] & 2) ? '-' : '+', max.c_str(), activeW.c_str(),
		    idleW.c_str(), p[13] & 0x1F, p[12] & 0x1F, p[15] & 0x1F, p[14] & 0x1F, enlat, exlat);
	}
	if (!ns.empty()) {
		out("\nSupported LBA Sizes (NSID 0x%x)\n", nsid);
		out("Id Fmt  Data  Metadt  Rel_Perf\n");
		unsigned fmt = ns[26] & 0x0F;
		for (unsigned i = 0; i <= ns[25] && i < 16; ++i) {
			const uint8_t *f = ns.data() + 128 + 4 * i;
			out("%2u %c %7u %7u %9u\n", i, i == fmt ? '+' : '-', 1u << f[2], f[0] | f[1] << 8, f[3] & 3);
		}
	}
	out("\n");
}

} // namespace

int runNvme(Drive &d, const Options &o)
{
	int rc = 0;
	int ns = d.nvmeNamespace();
	uint32_t nsid = ns > 0 ? static_cast<uint32_t>(ns) : 1;
	std::vector<uint8_t> ctrl, space;
	int st = d.nvmeAdmin(kIdentify, 0, 1, ctrl, 4096);
	if (st != 0) {
		out("Read NVMe Identify Controller failed: %s\n", failure(st).c_str());
		return kOpenFailed;
	}
	bool wantsInfo = o.info || o.capabilities;
	if (wantsInfo && d.nvmeAdmin(kIdentify, nsid, 0, space, 4096) != 0)
		space.clear();
	if (o.info) {
		printInfo(ctrl, space, nsid);
		if (!o.capabilities)
			out("\n");
	} else if (o.capabilities) {
		out("=== START OF INFORMATION SECTION ===\n");
	}
	if (o.capabilities)
		printCapabilities(ctrl, space, nsid);
	if (!o.health && !o.attributes && !o.errorLog) {
		if (!o.info && !o.capabilities)
			out("NVMe device successfully opened\n\nUse 'smartctl -a' (or '-x') to print SMART (and more) "
			    "information\n\n");
		return rc;
	}
	out("=== START OF SMART DATA SECTION ===\n");
	std::vector<uint8_t> log;
	st = d.nvmeAdmin(kGetLogPage, 0xFFFFFFFF, (512 / 4 - 1) << 16 | 0x02, log, 512);
	if (st != 0) {
		out("Read NVMe SMART/Health Information failed: %s\n\n", failure(st).c_str());
		return rc | kCommandFailed;
	}
	unsigned warning = log[0];
	if (o.health) {
		out("SMART overall-health self-assessment test result: %s\n", warning ? "FAILED!" : "PASSED");
		static const char *reasons[] = {"available spare has fallen below threshold",
						"temperature is above or below threshold",
						"NVM subsystem reliability has been degraded",
						"media has been placed in read only mode",
						"volatile memory backup device has failed",
						"persistent memory region has become read-only or unreliable"};
		for (int b = 0; b < 6; ++b)
			if (warning & (1u << b))
				out("- %s\n", reasons[b]);
		if (warning)
			rc |= kDiskFailing;
		out("\n");
	}
	if (o.attributes) {
		auto counter = [&](size_t off) { return le(log, off, 8); };
		auto units = [&](size_t off) {
			uint64_t v = counter(off);
			return withCommas(v) + (v ? " [" + siCapacity(v * 512000) + "]" : "");
		};
		out("SMART/Health Information (NVMe Log 0x02)\n");
		out("Critical Warning:                   0x%02x\n", warning);
		unsigned kelvin = static_cast<unsigned>(le(log, 1, 2));
		if (kelvin)
			out("Temperature:                        %d Celsius\n", static_cast<int>(kelvin) - 273);
		else
			out("Temperature:                        -\n");
		out("Available Spare:                    %u%%\n", log[3]);
		out("Available Spare Threshold:          %u%%\n", log[4]);
		out("Percentage Used:                    %u%%\n", log[5]);
		out("Data Units Read:                    %s\n", units(32).c_str());
		out("Data Units Written:                 %s\n", units(48).c_str());
		out("Host Read Commands:                 %s\n", withCommas(counter(64)).c_str());
		out("Host Write Commands:                %s\n", withCommas(counter(80)).c_str());
		out("Controller Busy Time:               %s\n", withCommas(counter(96)).c_str());
		out("Power Cycles:                       %s\n", withCommas(counter(112)).c_str());
		out("Power On Hours:                     %s\n", withCommas(counter(128)).c_str());
		out("Unsafe Shutdowns:                   %s\n", withCommas(counter(144)).c_str());
		out("Media and Data Integrity Errors:    %s\n", withCommas(counter(160)).c_str());
		out("Error Information Log Entries:      %s\n", withCommas(counter(176)).c_str());
		out("Warning  Comp. Temperature Time:    %u\n", static_cast<unsigned>(le(log, 192, 4)));
		out("Critical Comp. Temperature Time:    %u\n", static_cast<unsigned>(le(log, 196, 4)));
		for (int i = 0; i < 8; ++i) {
			unsigned k = static_cast<unsigned>(le(log, 200 + 2 * i, 2));
			if (k)
				out("Temperature Sensor %d:               %d Celsius\n", i + 1, static_cast<int>(k) - 273);
		}
		out("\n");
	}
	if (o.errorLog) {
		unsigned entries = ctrl[262] + 1u, read = entries < 16 ? entries : 16;
		std::vector<uint8_t> errors;
		st = d.nvmeAdmin(kGetLogPage, 0xFFFFFFFF, (read * 64 / 4 - 1) << 16 | 0x01, errors, read * 64);
		if (st != 0) {
			out("Read Error Information Log failed: %s\n\n", failure(st).c_str());
			return rc | kCommandFailed;
		}
		out("Error Information (NVMe Log 0x01, %u of %u entries)\n", read, entries);
		unsigned logged = 0;
		for (unsigned i = 0; i < read; ++i)
			logged += le(errors, 64 * i, 8) != 0;
		if (!logged)
			out("No Errors Logged\n");
		else
			out("%u of %u entries hold errors\n", logged, read);
		out("\n");
	}
	return rc;
}

} // namespace vexosim::tools::smartctl
