// smartctl on a SCSI drive: INQUIRY, the informational exceptions mode
// page, and the LOG SENSE pages smartctl 7.3 reads for -i, -H, -A and -a.
#include <cstring>
#include <string>
#include <vector>

#include "smartctl.h"

namespace vexosim::tools::smartctl {

namespace {

std::string field(const std::vector<uint8_t> &b, size_t off, size_t len)
{
	std::string s;
	for (size_t i = off; i < off + len && i < b.size(); ++i)
		s += static_cast<char>(b[i]);
	size_t e = s.find_last_not_of(' ');
	s = e == std::string::npos ? std::string() : s.substr(0, e + 1);
	size_t f = s.find_first_not_of(' ');
	return f == std::string::npos ? std::string() : s.substr(f);
}

// LOG SENSE of a page, as smartctl asks: the header first, then the whole page.
bool logSense(Drive &d, unsigned page, std::vector<uint8_t> &out)
{
	std::vector<uint8_t> head;
	ScsiAnswer a = d.scsi({0x4D, 0, static_cast<uint8_t>(0x40 | page), 0, 0, 0, 0, 0, 4, 0}, 1, head, 4);
	if (!a.ok || head.size() < 4)
		return false;
	unsigned len = 4 + (head[2] << 8 | head[3]);
	a = d.scsi({0x4D, 0, static_cast<uint8_t>(0x40 | page), 0, 0, 0, 0, static_cast<uint8_t>(len >> 8),
		    static_cast<uint8_t>(len), 0},
		   1, out, len);
	return a.ok && out.size() >= 4 && (out[0] & 0x3F) == page;
}

// The parameters of a log page: code -> value bytes.
struct Param {
	unsigned code;
	std::vector<uint8_t> value;
};

std::vector<Param> params(const std::vector<uint8_t> &page)
{
	std::vector<Param> out;
	size_t end = std::min<size_t>(page.size(), 4u + (page[2] << 8 | page[3]));
	for (size_t i = 4; i + 4 <= end;) {
		unsigned len = page[i + 3];
		Param p{static_cast<unsigned>(page[i] << 8 | page[i + 1]), {}};
		p.value.assign(page.begin() + i + 4, page.begin() + std::min(end, i + 4 + len));
		out.push_back(p);
		i += 4 + len;
	}
	return out;
}

unsigned long long number(const std::vector<uint8_t> &v)
{
	unsigned long long n = 0;
	for (uint8_t b : v)
		n = n << 8 | b;
	return n;
}

bool modeSense(Drive &d, uint8_t pageControl, std::vector<uint8_t> &page)
{
	std::vector<uint8_t> b;
	ScsiAnswer a = d.scsi({0x1A, 0, static_cast<uint8_t>(pageControl | 0x1C), 0, 64, 0}, 1, b, 64);
	if (!a.ok || b.size() < 4)
		return false;
	size_t off = 4 + b[3];
	if (b.size() < off + 12)
		return false;
	page.assign(b.begin() + off, b.begin() + off + 12);
	return true;
}

} // namespace

int runScsi(Drive &d, const Options &o)
{
	int rc = 0;
	std::vector<uint8_t> inq;
	ScsiAnswer a = d.scsi({0x12, 0, 0, 0, 36, 0}, 1, inq, 36);
	if (!a.ok || inq.size() < 36) {
		out("Standard Inquiry (36 bytes) failed [%s]\n", a.err ? std::strerror(a.err) : "Input/output error");
		out("Retrying with a 64 byte Standard Inquiry\n");
		out("Standard Inquiry (64 bytes) failed [%s]\n", a.err ? std::strerror(a.err) : "Input/output error");
		out("A mandatory SMART command failed: exiting. To continue, add one or more '-T permissive' options.\n");
		return kOpenFailed;
	}
	std::vector<uint8_t> ie;
	bool smartAvailable = modeSense(d, 0x00, ie);
	bool smartEnabled = smartAvailable && !(ie[2] & 0x08);
	if (o.info) {
		out("=== START OF INFORMATION SECTION ===\n");
		out("Vendor:               %s\n", field(inq, 8, 8).c_str());
		out("Product:              %s\n", field(inq, 16, 16).c_str());
		out("Revision:             %s\n", field(inq, 32, 4).c_str());
		static const char *spc[] = {nullptr, nullptr, nullptr, "SPC", "SPC-2", "SPC-3", "SPC-4", "SPC-5"};
		unsigned ver = inq[2];
		if (ver >= 3 && ver <= 7)
			out("Compliance:           %s\n", spc[ver]);
		std::vector<uint8_t> vpd;
		if (d.scsi({0x12, 1, 0x80, 0, 0xFC, 0}, 1, vpd, 252).ok && vpd.size() >= 4)
			out("Serial number:        %s\n", field(vpd, 4, vpd[3]).c_str());
		out("Device type:          disk\n");
		out("Local Time is:        %s\n", localTime().c_str());
		std::vector<uint8_t> none;
		ScsiAnswer ready = d.scsi({0x00, 0, 0, 0, 0, 0}, 0, none, 0);
		if (!ready.ok && ready.senseKey() == 0x02) {
			out("device is NOT READY (e.g. spun down, busy)\n");
			out("A mandatory SMART command failed: exiting. To continue, add one or more '-T permissive' "
			    "options.\n");
			return kOpenFailed;
		}
		if (smartAvailable) {
			out("SMART support is:     Available - device has SMART capability.\n");
			out("SMART support is:     %s\n", smartEnabled ? "Enabled" : "Disabled");
			out("Temperature Warning:  %s\n", (ie[2] & 0x10) ? "Enabled" : "Disabled or Not Supported");
		} else {
			out("SMART support is:     Unavailable - device lacks SMART capability.\n");
		}
		if (!o.nocheck.empty())
			out("Power mode is:        ACTIVE\n");
		out("\n");
	}
	if (!o.health && !o.attributes && !o.errorLog && !o.selfTestLog) {
		if (!o.info)
			out("SCSI device successfully opened\n\nUse 'smartctl -a' (or '-x') to print SMART (and more) "
			    "information\n\n");
		return rc;
	}
	out("=== START OF READ SMART DATA SECTION ===\n");
	if (o.health) {
		std::vector<uint8_t> sense;
		ScsiAnswer s = d.scsi({0x03, 0, 0, 0, 18, 0}, 1, sense, 18);
		uint8_t asc = sense.size() > 12 ? sense[12] : 0, ascq = sense.size() > 13 ? sense[13] : 0;
		if (!s.ok) {
			out("SMART Health Status: command failed\n");
			rc |= kCommandFailed;
		} else if (asc == 0x5D) {
			out("SMART Health Status: FAILURE PREDICTION THRESHOLD EXCEEDED [asc=5d, ascq=%x]\n", ascq);
			rc |= kDiskFailing;
		} else {
			out("SMART Health Status: OK\n");
		}
		out("\n");
	}
	if (o.attributes) {
		std::vector<uint8_t> page;
		unsigned temp = 255, trip = 255;
		if (logSense(d, 0x0D, page)) {
			for (const Param &p : params(page)) {
				if (p.code == 0 && p.value.size() >= 2)
					temp = p.value[1];
				if (p.code == 1 && p.value.size() >= 2)
					trip = p.value[1];
			}
		}
		if (temp == 255)
			out("Current Drive Temperature:     <not available>\n");
		else
			out("Current Drive Temperature:     %u C\n", temp);
		if (trip != 255)
			out("Drive Trip Temperature:        %u C\n", trip);
		out("\n");
		if (logSense(d, 0x15, page)) {
			for (const Param &p : params(page))
				if (p.code == 0 && p.value.size() >= 4) {
					unsigned long long minutes = number({p.value.begin(), p.value.begin() + 4});
					out("Accumulated power on time, hours:minutes %llu:%02llu\n", minutes / 60, minutes % 60);
				}
		}
	}
	if (o.errorLog) {
		struct Row {
			const char *label;
			unsigned page;
		} rows[] = {{"read: ", 0x03}, {"write:", 0x02}, {"verify:", 0x05}};
		bool header = false;
		for (const Row &r : rows) {
			std::vector<uint8_t> page;
			if (!logSense(d, r.page, page))
				continue;
			unsigned long long v[7] = {};
			for (const Param &p : params(page))
				if (p.code < 7)
					v[p.code] = number(p.value);
			if (r.page == 0x05 && !(v[0] || v[1] || v[2] || v[3] || v[4] || v[5] || v[6]))
				continue;
			if (!header) {
				out("Error counter log:\n");
				out("           Errors Corrected by           Total   Correction     Gigabytes    Total\n");
				out("               ECC          rereads/    errors   algorithm      processed    uncorrected\n");
				out("           fast | delayed   rewrites  corrected  invocations   [10^9 bytes]  errors\n");
				header = true;
			}
			out("%-6s%10llu %8llu  %8llu  %8llu   %8llu   %12.3f %11llu\n", r.label, v[0], v[1], v[2], v[3], v[4],
			    static_cast<double>(v[5]) / 1e9, v[6]);
		}
		if (header)
			out("\n");
		std::vector<uint8_t> control;
		ScsiAnswer c = d.scsi({0x1A, 0, 0x0A, 0, 64, 0}, 1, control, 64);
		if (c.ok && control.size() >= 4 + control[3] + 4u && (control[4 + control[3] + 2] & 0x02))
			out("\n[GLTSD (Global Logging Target Save Disable) set. Enable Save with '-S on']\n");
	}
	if (o.selfTestLog) {
		std::vector<uint8_t> page;
		if (!logSense(d, 0x10, page)) {
			out("Device does not support Self Test logging\n");
		} else {
			int printed = 0;
			for (const Param &p : params(page)) {
				if (p.value.size() < 16 || (p.value[0] == 0 && number({p.value.begin() + 2, p.value.begin() + 4}) == 0 &&
							    p.value[1] == 0))
					continue;
				if (!printed++) {
					out("SMART Self-test log\n");
					out("Num  Test              Status                 segment  LifeTime  LBA_first_err [SK ASC ASQ]\n");
					out("     Description                              number   (hours)\n");
				}
				static const char *codes[] = {"Default         ", "Background short", "Background long ",
							      "Reserved(3)     ", "Aborted         ", "Foreground short",
							      "Foreground long ", "Reserved(7)     "};
				static const char *results[] = {"Completed                ", "Aborted (by user command)",
								"Aborted (device reset ?) ", "Unknown error, incomplete",
								"Completed, segment failed", "Failed in first segment  ",
								"Failed in second segment ", "Failed in segment --> -  "};
				unsigned code = p.value[0] >> 5, result = p.value[0] & 0x0F;
				unsigned hours = p.value[2] << 8 | p.value[3];
				unsigned long long lba = number({p.value.begin() + 4, p.value.begin() + 12});
				std::string lbaText = lba && lba != ~0ULL ? std::to_string(lba) : "-";
				unsigned sk = p.value[12] & 0x0F, asc = p.value[13], ascq = p.value[14];
				char sense[32];
				if (sk || asc || ascq)
					std::snprintf(sense, sizeof sense, "[0x%x 0x%x 0x%x]", sk, asc, ascq);
				else
					std::snprintf(sense, sizeof sense, "[-   -    -]");
				if (result >= 3 && result <= 7)
					rc |= kSelfTestErrors;
				out("#%2d  %s  %s   %s  %6u  %16s %s\n", printed, codes[code],
				    result < 8 ? results[result] : "Reserved                 ",
				    p.value[1] ? std::to_string(p.value[1]).c_str() : "-", hours, lbaText.c_str(), sense);
			}
			if (!printed)
				out("No Self-tests have been logged\n");
		}
		out("\n");
	}
	return rc;
}

} // namespace vexosim::tools::smartctl
