// sg_raw, sg_sat_identify and sg_logs: the forms the library and its callers
// use, printed as sg3-utils 1.46 prints them. sg_raw writes everything to
// stderr, the other two their reports to stdout and failures to stderr.
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "sg_common.h"

namespace vexosim::tools::sg {

namespace {

const char *kSatUsage =
	"Usage: sg_sat_identify [--ck_cond] [--extend] [--help] [--hex] [--ident]\n"
	"                       [--len=CLEN] [--packet] [--raw] [--readonly]\n"
	"                       [--verbose] [--version] DEVICE\n"
	"  where:\n"
	"    --ck_cond|-c     sets ck_cond bit in cdb (def: 0)\n"
	"    --extend|-e      sets extend bit in cdb (def: 0)\n"
	"    --help|-h        print out usage message then exit\n"
	"    --hex|-H         output response in hex\n"
	"    --ident|-i       output WWN prefixed by 0x, if not available output\n"
	"                     0x0000000000000000\n"
	"    --len=CLEN| -l CLEN    CLEN is cdb length: 12, 16 or 32 bytes\n"
	"                           (default: 16)\n"
	"    --packet|-p      do IDENTIFY PACKET DEVICE (def: IDENTIFY DEVICE)\n"
	"                     command\n"
	"    --raw|-r         output response in binary to stdout\n"
	"    --readonly|-R    open DEVICE read-only (def: read-write)\n"
	"    --verbose|-v     increase verbosity\n"
	"    --version|-V     print version string and exit\n"
	"\n"
	"Performs a ATA IDENTIFY (PACKET) DEVICE command via a SAT layer using\n"
	"a SCSI ATA PASS-THROUGH(12), (16) or (32) command. Only SAT layers\n"
	"compliant with SAT-4 revision 5 or later will support the SCSI ATA\n"
	"PASS-THROUGH(32) command.\n";

const char *kRawUsage =
	"Usage: sg_raw [OPTION]* DEVICE [CDB0 CDB1 ...]\n"
	"\n"
	"Options:\n"
	"  --binary|-b            Dump data in binary form, even when writing to\n"
	"                         stdout\n"
	"  --cmdfile=CF|-c CF     CF is file containing command in hex bytes\n"
	"  --cmdset=CS|-C CS      CS is 0 (def) heuristic chooses command set;\n"
	"                         1: force SCSI; 2: force NVMe\n"
	"  --enumerate|-e         Decodes cdb name then exits; requires DEVICE but\n"
	"                         ignores it\n"
	"  --help|-h              Show this message and exit\n"
	"  --infile=IFILE|-i IFILE    Read data to send from IFILE (default:\n"
	"                             stdin)\n"
	"  --nosense|-n           Don't display sense information\n"
	"  --nvm|-N               command is for NVM command set (e.g. Read);\n"
	"                         default, if NVMe fd, Admin command set\n"
	"  --outfile=OFILE|-o OFILE    Write binary data to OFILE (def: hexdump\n"
	"                              to stdout)\n"
	"  --raw|-w               interpret CF (command file) as binary (def:\n"
	"                         interpret as ASCII hex)\n"
	"  --readonly|-R          Open DEVICE read-only (default: read-write)\n"
	"  --request=RLEN|-r RLEN    Request up to RLEN bytes of data (data-in)\n"
	"  --scan=FO,LO|-Q FO,LO    scan command set from FO (first opcode)\n"
	"                           to LO (last opcode) inclusive. Uses given\n"
	"                           command bytes, varying the opcode\n"
	"  --send=SLEN|-s SLEN    Send SLEN bytes of data (data-out)\n"
	"  --skip=KLEN|-k KLEN    Skip the first KLEN bytes when reading\n"
	"                         data to send (default: 0)\n"
	"  --timeout=SECS|-t SECS    Timeout in seconds (default: 20)\n"
	"  --verbose|-v           Increase verbosity\n"
	"  --version|-V           Show version information and exit\n"
	"\n"
	"Between 6 and 260 command bytes (two hex digits each) can be specified\n"
	"and will be sent to DEVICE. Lengths RLEN, SLEN and KLEN are decimal by\n"
	"default. Bidirectional commands accepted.\n"
	"\n"
	"Simple example: Perform INQUIRY on /dev/sg0:\n"
	"  sg_raw -r 1k /dev/sg0 12 00 00 00 60 00\n";

// "512", "1k", "0x200": sg3-utils' number forms; -1 when malformed.
long long number(std::string_view s)
{
	if (s.empty())
		return -1;
	std::string t(s);
	int base = 10;
	long long mult = 1;
	if (t.size() > 2 && (t.compare(0, 2, "0x") == 0 || t.compare(0, 2, "0X") == 0)) {
		base = 16;
		t = t.substr(2);
	} else if (t.back() == 'h' || t.back() == 'H') {
		base = 16;
		t.pop_back();
	} else if (t.back() == 'k' || t.back() == 'K') {
		mult = 1024;
		t.pop_back();
	}
	if (t.empty())
		return -1;
	char *end = nullptr;
	errno = 0;
	long long v = std::strtoll(t.c_str(), &end, base);
	if (errno || *end || v < 0)
		return -1;
	return v * mult;
}

// Option parsing in the getopt manner: options and operands in any order.
struct Args {
	std::vector<std::string> operands;
	std::vector<std::pair<std::string, std::string>> options; // name, value
	std::string bad;
};

// `withValue`: option names (short and long) that take a value.
Args parse(int argc, char **argv, const std::vector<std::pair<char, std::string>> &known,
	   const std::string &withValue)
{
	Args a;
	auto longName = [&](char c) {
		for (const auto &[s, l] : known)
			if (s == c)
				return l;
		return std::string();
	};
	for (int i = 1; i < argc; ++i) {
		std::string_view s = argv[i];
		if (s.size() > 2 && s.substr(0, 2) == "--") {
			std::string name(s.substr(2)), value;
			size_t eq = name.find('=');
			if (eq != std::string::npos) {
				value = name.substr(eq + 1);
				name.resize(eq);
			}
			bool found = false;
			for (const auto &[c, l] : known)
				if (l == name) {
					found = true;
					bool needs = withValue.find(c) != std::string::npos;
					if (needs && eq == std::string::npos) {
						if (i + 1 >= argc) {
							a.bad = "option '--" + name + "' requires an argument";
							return a;
						}
						value = argv[++i];
					}
					a.options.emplace_back(std::string(1, c), value);
				}
			if (!found) {
				a.bad = "unrecognized option '" + std::string(s) + "'";
				return a;
			}
		} else if (s.size() > 1 && s[0] == '-') {
			for (size_t k = 1; k < s.size(); ++k) {
				char c = s[k];
				if (longName(c).empty()) {
					a.bad = std::string("invalid option -- '") + c + "'";
					return a;
				}
				if (withValue.find(c) != std::string::npos) {
					std::string value(s.substr(k + 1));
					if (value.empty()) {
						if (i + 1 >= argc) {
							a.bad = std::string("option requires an argument -- '") + c + "'";
							return a;
						}
						value = argv[++i];
					}
					a.options.emplace_back(std::string(1, c), value);
					break;
				}
				a.options.emplace_back(std::string(1, c), "");
			}
		} else {
			a.operands.emplace_back(s);
		}
	}
	return a;
}

} // namespace

int sgRaw(int argc, char **argv)
{
	Args a = parse(argc, argv,
		       {{'b', "binary"}, {'h', "help"}, {'n', "nosense"}, {'R', "readonly"}, {'r', "request"},
			{'t', "timeout"}, {'v', "verbose"}, {'V', "version"}},
		       "rt");
	if (!a.bad.empty()) {
		std::fprintf(stderr, "sg_raw: %s\n%s", a.bad.c_str(), kRawUsage);
		return 1;
	}
	long long request = 0, timeout = 20;
	bool nosense = false, readonly = false;
	for (const auto &[o, v] : a.options) {
		if (o == "h") {
			std::fprintf(stderr, "%s", kRawUsage);
			return 0;
		}
		if (o == "V") {
			std::fprintf(stderr, "sg_raw 0.4.39 (2022-04-25)\n");
			return 0;
		}
		if (o == "r" && (request = number(v)) < 0) {
			std::fprintf(stderr, "Invalid request length '%s'\n%s", v.c_str(), kRawUsage);
			return 1;
		}
		if (o == "t" && (timeout = number(v)) <= 0) {
			std::fprintf(stderr, "Invalid timeout '%s'\n%s", v.c_str(), kRawUsage);
			return 1;
		}
		nosense |= o == "n";
		readonly |= o == "R";
	}
	if (a.operands.empty()) {
		std::fprintf(stderr, "No device specified\n\n%s", kRawUsage);
		return 1;
	}
	std::vector<uint8_t> cdb;
	for (size_t i = 1; i < a.operands.size(); ++i) {
		const std::string &b = a.operands[i];
		char *end = nullptr;
		unsigned long v = std::strtoul(b.c_str(), &end, 16);
		if (b.empty() || b.size() > 2 || *end || v > 0xFF) {
			std::fprintf(stderr, "Invalid command byte '%s'\n%s", b.c_str(), kRawUsage);
			return 1;
		}
		cdb.push_back(static_cast<uint8_t>(v));
	}
	if (cdb.size() < 6) {
		std::fprintf(stderr, "CDB too short (min. 6 bytes)\n%s", kRawUsage);
		return 1;
	}
	if (cdb.size() > 260) {
		std::fprintf(stderr, "CDB too long (max. 260 bytes)\n%s", kRawUsage);
		return 1;
	}
	(void)readonly; // the device seam opens the emulated node the same either way
	const std::string &path = a.operands[0];
	Drive d = Drive::open(path, Transport::Scsi);
	if (!d.valid()) {
		int e = errno;
		std::fprintf(stderr, "%s: %s\n", path.c_str(), std::strerror(e));
		return osError(e);
	}
	std::vector<uint8_t> data;
	ScsiAnswer r = d.scsi(cdb, request > 0 ? 1 : 0, data, static_cast<unsigned>(request),
			      static_cast<unsigned>(timeout * 1000));
	if (r.err) {
		std::fprintf(stderr, "do_scsi_pt: %s\n", std::strerror(r.err));
		return osError(r.err);
	}
	static const char *statusNames[] = {"Good", "Check Condition", "Condition Met", "Busy"};
	unsigned st = r.status & 0x7E;
	const char *name = st <= 0x08 && (st % 2 == 0) && st / 2 < 4 ? statusNames[st / 2] : "Other";
	std::fprintf(stderr, "SCSI Status: %s \n\n", name);
	int cat = category(r);
	if (!r.sense.empty() && !nosense) {
		std::fprintf(stderr, "Sense Information:\n");
		printSense(stderr, r.sense);
		std::fprintf(stderr, "\n");
	}
	if (cat) {
		std::fprintf(stderr, "Error %d occurred, no data received\n", cat);
		return cat;
	}
	if (request > 0) {
		if (data.empty()) {
			std::fprintf(stderr, "No data received\n");
		} else {
			std::fprintf(stderr, "Received %zu bytes of data:\n", data.size());
			hexDump(stderr, data.data(), data.size(), true);
		}
	}
	return 0;
}

int sgSatIdentify(int argc, char **argv)
{
	Args a = parse(argc, argv,
		       {{'c', "ck_cond"}, {'e', "extend"}, {'h', "help"}, {'H', "hex"}, {'r', "raw"},
			{'R', "readonly"}, {'v', "verbose"}, {'V', "version"}},
		       "");
	if (!a.bad.empty()) {
		std::fprintf(stderr, "sg_sat_identify: %s\n%s", a.bad.c_str(), kSatUsage);
		return 1;
	}
	if (a.operands.size() != 1) {
		if (a.operands.empty())
			std::fprintf(stderr, "Missing device name!\n\n%s", kSatUsage);
		else
			std::fprintf(stderr, "Unexpected extra argument: %s\n%s", a.operands[1].c_str(), kSatUsage);
		return 1;
	}
	bool raw = false;
	int hex = 0;
	for (const auto &[o, v] : a.options) {
		if (o == "h") {
			std::fprintf(stderr, "%s", kSatUsage);
			return 0;
		}
		if (o == "V") {
			std::fprintf(stderr, "1.21 20220425\n");
			return 0;
		}
		raw |= o == "r";
		hex += o == "H";
	}
	const std::string &path = a.operands[0];
	Drive d = Drive::open(path, Transport::Sat);
	if (!d.valid()) {
		int e = errno;
		std::fprintf(stderr, "sg_sat_identify failed: %s\n", std::strerror(e));
		return osError(e);
	}
	std::vector<uint8_t> page;
	std::vector<uint8_t> cdb = {0x85, 0x08, 0x0E, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0xEC, 0};
	ScsiAnswer r = d.scsi(cdb, 1, page, 512, 20000, 64);
	if (r.err) {
		std::fprintf(stderr, "ATA pass-through (16) failed\n    try adding '-v' for more information\n");
		std::fprintf(stderr, "Some error occurred, try again with '-v' or '-vv' for more information\n");
		return 99;
	}
	int cat = category(r);
	if (cat == 9) {
		std::fprintf(stderr, "ATA PASS-THROUGH (16) not supported\n");
	} else if (cat == 11) {
		std::fprintf(stderr, "Aborted command: try again with '-p' option\n");
	}
	if (cat || page.size() < 512) {
		if (!cat)
			cat = 99;
		std::fprintf(stderr, "sg_sat_identify failed: %s\n", categoryText(cat).c_str());
		return cat;
	}
	if (raw) {
		std::fwrite(page.data(), 1, 512, stdout);
		return 0;
	}
	if (hex == 1) {
		hexDump(stdout, page.data(), 512, true);
		return 0;
	}
	if (hex > 1) {
		wordDump(stdout, page.data(), 256);
		return 0;
	}
	std::printf("Response for IDENTIFY DEVICE ATA command:\n");
	wordDump(stdout, page.data(), 256);
	return 0;
}

} // namespace vexosim::tools::sg
