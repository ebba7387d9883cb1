// sg_logs: one LOG SENSE page, decoded as text (-p PAGE), in hex (-H, -HH
// with ASCII) or raw (-r), as sg3-utils 1.46 prints it.
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "sg_common.h"

namespace vexosim::tools::sg {

namespace {

const char *kLogsUsage =
	"Usage: sg_logs [-All] [--all] [--brief] [--control=PC] [--enumerate]\n"
	"               [--filter=FL] [--help] [--hex] [--in=FN] [--list]\n"
	"               [--no_inq] [--maxlen=LEN] [--name] [--page=PG]\n"
	"               [--paramp=PP] [--pcb] [--ppc] [--pdt=DT] [--raw]\n"
	"               [--readonly] [--reset] [--select] [--sp] [--temperature]\n"
	"               [--transport] [--vendor=VP] [--verbose] [--version]\n"
	"               DEVICE\n"
	"  where the main options are:\n"
	"    --All|-A        fetch and decode all log pages and subpages\n"
	"    --all|-a        fetch and decode all log pages, but not subpages; use\n"
	"                    twice to fetch and decode all log pages and subpages\n"
	"    --brief|-b      shorten the output of some log pages\n"
	"    --enumerate|-e    enumerate known pages, ignore DEVICE. Sort order,\n"
	"                      '-e': all by acronym; '-ee': non-vendor by acronym;\n"
	"                      '-eee': all numerically; '-eeee': non-v numerically\n"
	"    --filter=FL|-f FL    FL is parameter code to display (def: all);\n"
	"                         with '-e' then FL>=0 enumerate that pdt + spc\n"
	"                         FL=-1 all (default), FL=-2 spc only\n"
	"    --help|-h       print usage message then exit. Use twice for more help\n"
	"    --hex|-H        output response in hex (default: decode if known)\n"
	"    --in=FN|-i FN    FN is a filename containing a log page in ASCII hex\n"
	"                     or binary if --raw also given.\n"
	"    --list|-l       list supported log pages; twice: list log pages and\n"
	"                    subpages (exclude 0xff subpages); thrice: all pg+spgs\n"
	"    --page=PG|-p PG    PG is either log page acronym, PGN or PGN,SPGN\n"
	"                       where (S)PGN is a (sub) page number\n"
	"    --raw|-r        either output response in binary to stdout or, if\n"
	"                    '--in=FN' is given, FN is decoded as binary\n"
	"    --temperature|-t    decode temperature (log page 0xd or 0x2f)\n"
	"    --transport|-T    decode transport (protocol specific port 0x18) page\n"
	"    --vendor=VP|-M VP    vendor/product abbreviation [or number]\n"
	"    --verbose|-v    increase verbosity\n"
	"\n"
	"Performs a SCSI LOG SENSE (or LOG SELECT) command and decodes the response.\n"
	"If only DEVICE is given then '-p sp' (supported pages) is assumed. Use\n"
	"'-e' to see known pages and their acronyms. For more help use '-hh'.\n";

struct PageInfo {
	unsigned page;
	const char *title;    // the decoded page's heading
	const char *listName; // its entry in the supported pages list
};

constexpr PageInfo kPages[] = {
	{0x00, "Supported log pages", "Supported log pages [sp]"},
	{0x02, "Write error counter page", "Write error [we]"},
	{0x03, "Read error counter page", "Read error [re]"},
	{0x05, "Verify error counter page", "Verify error [ve]"},
	{0x06, "Non-medium error page", "Non-medium errors [nm]"},
	{0x0D, "Temperature page", "Temperature [temp]"},
	{0x0E, "Start-stop cycle counter page", "Start-stop cycle counter [sscc]"},
	{0x0F, "Application client page", "Application client [ac]"},
	{0x10, "Self-test results page", "Self test results [str]"},
	{0x11, "Solid state media page", "Solid state media [ssm]"},
	{0x15, "Background scan results page", "Background scan results [bsr]"},
	{0x2F, "Informational exceptions page", "Informational exceptions [ie]"},
};

const PageInfo *info(unsigned page)
{
	for (const auto &p : kPages)
		if (p.page == page)
			return &p;
	return nullptr;
}

struct Param {
	unsigned code;
	const uint8_t *v;
	unsigned len;
};

std::vector<Param> params(const std::vector<uint8_t> &page)
{
	std::vector<Param> out;
	size_t end = std::min<size_t>(page.size(), 4u + (page[2] << 8 | page[3]));
	for (size_t i = 4; i + 4 <= end;) {
		unsigned len = page[i + 3];
		if (i + 4 + len > end)
			break;
		out.push_back({static_cast<unsigned>(page[i] << 8 | page[i + 1]), page.data() + i + 4, len});
		i += 4 + len;
	}
	return out;
}

unsigned long long be(const uint8_t *p, unsigned n)
{
	unsigned long long v = 0;
	for (unsigned i = 0; i < n; ++i)
		v = v << 8 | p[i];
	return v;
}

void errorCounters(const std::vector<uint8_t> &page)
{
	static const char *names[] = {"Errors corrected without substantial delay",
				      "Errors corrected with possible delays",
				      "Total rewrites or rereads",
				      "Total errors corrected",
				      "Total times correction algorithm processed",
				      "Total bytes processed",
				      "Total uncorrected errors"};
	for (const Param &p : params(page)) {
		if (p.code < 7)
			std::printf("  %s = %llu\n", names[p.code], be(p.v, p.len));
		else
			std::printf("  Reserved or vendor specific [0x%x] = %llu\n", p.code, be(p.v, p.len));
	}
}

void temperature(const std::vector<uint8_t> &page)
{
	for (const Param &p : params(page)) {
		if (p.len < 2)
			continue;
		const char *what = p.code == 0 ? "Current temperature" : p.code == 1 ? "Reference temperature" : nullptr;
		if (!what)
			continue;
		if (p.v[1] == 0xFF)
			std::printf("  %s = <not available>\n", what);
		else
			std::printf("  %s = %u C\n", what, p.v[1]);
	}
}

void selfTests(const std::vector<uint8_t> &page)
{
	static const char *codes[] = {"default",	   "background short", "background extended", "reserved",
				      "aborted background", "foreground short", "foreground extended", "reserved"};
	static const char *results[] = {"no error",
					"aborted by SEND DIAGNOSTIC",
					"aborted other than by SEND DIAGNOSTIC",
					"unknown error, unable to complete",
					"self test completed with failure in test segment (which one unknown)",
					"first segment in self test failed",
					"second segment in self test failed",
					"another segment in self test failed"};
	for (const Param &p : params(page)) {
		if (p.len < 16)
			continue;
		bool empty = true;
		for (unsigned i = 0; i < 16; ++i)
			empty &= p.v[i] == 0;
		if (empty)
			continue;
		unsigned code = p.v[0] >> 5, result = p.v[0] & 0x0F;
		std::printf("  Parameter code = %u, accumulated power-on hours = %u\n", p.code, p.v[2] << 8 | p.v[3]);
		std::printf("    self-test code: %s [%u]\n", codes[code], code);
		std::printf("    self-test result: %s [%u]\n",
			    result < 8 ? results[result] : result == 15 ? "self test in progress" : "reserved", result);
		if (p.v[1])
			std::printf("    self-test number = %u\n", p.v[1]);
		unsigned long long lba = be(p.v + 4, 8);
		if (lba != ~0ULL)
			std::printf("    address of first error = 0x%llx\n", lba);
		unsigned sk = p.v[12] & 0x0F, asc = p.v[13], ascq = p.v[14];
		if (sk || asc || ascq)
			std::printf("    sense key = 0x%x [%s] , asc = 0x%x, ascq = 0x%x      [Additional sense: %s]\n", sk,
				    senseKeyName(sk), asc, ascq, additionalSense(asc, ascq).c_str());
	}
}

void backgroundScan(const std::vector<uint8_t> &page)
{
	static const char *states[] = {
		"no background scans active",
		"background medium scan is active",
		"background pre-scan is active",
		"background scan halted due to fatal error",
		"background scan halted due to a vendor specific pattern of error",
		"background scan halted due to medium formatted without P-List",
		"background scan halted - vendor specific cause",
		"background scan halted due to temperature out of allowed range",
		"background scan enabled, none active (waiting for BMS interval timer to expire)",
	};
	for (const Param &p : params(page)) {
		if (p.code != 0 || p.len < 12)
			continue;
		unsigned long long minutes = be(p.v, 4);
		std::printf("  Status parameters:\n");
		std::printf("    Accumulated power on minutes: %llu [h:m  %llu:%llu]\n", minutes, minutes / 60, minutes % 60);
		std::printf("    Status: %s\n", p.v[5] < 9 ? states[p.v[5]] : "unknown");
		std::printf("    Number of background scans performed: %llu\n", be(p.v + 6, 2));
		std::printf("    Background medium scan progress: %.2f %%\n", be(p.v + 8, 2) * 100.0 / 65536.0);
		unsigned long long n = be(p.v + 10, 2);
		if (n)
			std::printf("    Number of background medium scans performed: %llu\n", n);
		else
			std::printf("    Number of background medium scans performed: 0 [not reported]\n");
	}
}

void solidState(const std::vector<uint8_t> &page)
{
	for (const Param &p : params(page))
		if (p.code == 1 && p.len >= 4)
			std::printf("  Percentage used endurance indicator: %u %%\n", p.v[3]);
}

void decode(unsigned code, const std::vector<uint8_t> &page)
{
	const PageInfo *pi = info(code);
	if (code == 0) {
		std::printf("Supported log pages  [0x0]:\n");
		size_t n = std::min<size_t>(page.size(), 4u + (page[2] << 8 | page[3]));
		for (size_t i = 4; i < n; ++i) {
			const PageInfo *e = info(page[i] & 0x3F);
			std::printf("    0x%02x        %s\n", page[i] & 0x3F, e ? e->listName : "Unknown");
		}
		return;
	}
	if (!pi) {
		std::printf("No ascii information for page = 0x%x, here is hex:\n", code);
		hexDump(stdout, page.data(), page.size(), false);
		return;
	}
	std::printf("%s  [0x%x]\n", pi->title, code);
	switch (code) {
	case 0x02:
	case 0x03:
	case 0x05:
		errorCounters(page);
		break;
	case 0x0D:
		temperature(page);
		break;
	case 0x10:
		selfTests(page);
		break;
	case 0x11:
		solidState(page);
		break;
	case 0x15:
		backgroundScan(page);
		break;
	default: {
		size_t shown = std::min<size_t>(page.size(), 64);
		hexDump(stdout, page.data(), shown, false);
		if (shown < page.size())
			std::printf(" .....  [truncated after 64 of %zu bytes (use '-H' to see the rest)]\n", page.size());
	}
	}
}

std::string trimmed(const std::vector<uint8_t> &b, size_t off, size_t n)
{
	std::string s;
	for (size_t i = off; i < off + n && i < b.size(); ++i)
		s += static_cast<char>(b[i]);
	return s;
}

} // namespace

int sgLogs(int argc, char **argv)
{
	std::vector<std::string> operands;
	int hex = 0;
	bool raw = false;
	long page = 0;
	for (int i = 1; i < argc; ++i) {
		std::string a = argv[i];
		std::string value;
		if (a == "-p" || a == "--page") {
			if (i + 1 >= argc) {
				std::fprintf(stderr, "sg_logs: option requires an argument -- 'p'\n%s", kLogsUsage);
				return 1;
			}
			value = argv[++i];
		} else if (a.compare(0, 2, "-p") == 0 && a.size() > 2) {
			value = a.substr(2);
		} else if (a.compare(0, 7, "--page=") == 0) {
			value = a.substr(7);
		} else if (a == "--hex") {
			++hex;
			continue;
		} else if (a == "--raw") {
			raw = true;
			continue;
		} else if (a.size() > 1 && a[0] == '-' && a[1] != '-' && a.find_first_not_of("Hr", 1) == std::string::npos) {
			for (char c : a.substr(1)) {
				hex += c == 'H';
				raw |= c == 'r';
			}
			continue;
		} else if (a.size() > 1 && a[0] == '-') {
			std::fprintf(stderr, "sg_logs: unrecognized option '%s'\n%s", a.c_str(), kLogsUsage);
			return 1;
		} else {
			operands.push_back(a);
			continue;
		}
		char *end = nullptr;
		errno = 0;
		page = std::strtol(value.c_str(), &end, 0);
		if (value.empty() || *end || errno || page < 0 || page > 0x3F) {
			std::fprintf(stderr, "Bad page code value after '-p' option\n");
			return 1;
		}
	}
	if (operands.empty()) {
		std::fprintf(stderr, "No DEVICE argument given\n%ssg_logs failed: Syntax error\n", kLogsUsage);
		return 1;
	}
	if (operands.size() > 1) {
		std::fprintf(stderr, "Unexpected extra argument: %s\n%s", operands[1].c_str(), kLogsUsage);
		return 1;
	}
	const std::string &path = operands[0];
	Drive d = Drive::open(path, Transport::Scsi);
	if (!d.valid()) {
		int e = errno;
		std::fprintf(stderr, "error opening file: %s: %s \n", path.c_str(), std::strerror(e));
		std::fprintf(stderr, "sg_logs failed: %s\n", std::strerror(e));
		return osError(e);
	}
	std::vector<uint8_t> inq;
	ScsiAnswer q = d.scsi({0x12, 0, 0, 0, 36, 0}, 1, inq, 36, 60000, 64);
	if (q.err) {
		std::fprintf(stderr, "inquiry: pass-through os error: %s\n", std::strerror(q.err));
		std::fprintf(stderr, "%s doesn't respond to a SCSI INQUIRY\n", path.c_str());
		std::fprintf(stderr, "sg_logs failed: %s\n", categoryText(99).c_str());
		return 99;
	}
	if (!hex && !raw && q.ok && inq.size() >= 36)
		std::printf("    %s  %s  %s\n", trimmed(inq, 8, 8).c_str(), trimmed(inq, 16, 16).c_str(),
			    trimmed(inq, 32, 4).c_str());
	const uint8_t pc = static_cast<uint8_t>(0x40 | page);
	std::vector<uint8_t> head, body;
	ScsiAnswer r = d.scsi({0x4D, 0, pc, 0, 0, 0, 0, 0, 4, 0}, 1, head, 4, 64000, 64);
	if (r.ok && head.size() >= 4) {
		unsigned len = 4 + (head[2] << 8 | head[3]);
		r = d.scsi({0x4D, 0, pc, 0, 0, 0, 0, static_cast<uint8_t>(len >> 8), static_cast<uint8_t>(len), 0}, 1,
			   body, len, 64000, 64);
	}
	int cat = category(r);
	if (cat || body.size() < 4) {
		if (!cat)
			cat = 99;
		// With -r and -HH the program writes out its (empty) page header all the same.
		static const uint8_t kEmpty[4] = {};
		if (raw)
			std::fwrite(kEmpty, 1, 4, stdout);
		else if (hex > 1)
			hexDump(stdout, kEmpty, 4, true);
		if (cat == 9)
			std::fprintf(stderr, "log_sense: not supported\n");
		else if (cat == 5)
			std::fprintf(stderr, "log_sense: field in cdb illegal\n");
		std::fprintf(stderr, "sg_logs failed: %s\n", categoryText(cat).c_str());
		return cat;
	}
	if (raw) {
		std::fwrite(body.data(), 1, body.size(), stdout);
		return 0;
	}
	if (hex == 1) {
		std::printf("Log page code=0x%x, DS=%d, SPF=%d, page_len=0x%x\n", body[0] & 0x3F, (body[0] >> 7) & 1,
			    (body[0] >> 6) & 1, body[2] << 8 | body[3]);
		hexDump(stdout, body.data(), body.size(), false);
		return 0;
	}
	if (hex > 1) {
		hexDump(stdout, body.data(), body.size(), true);
		return 0;
	}
	decode(body[0] & 0x3F, body);
	return 0;
}

} // namespace vexosim::tools::sg
