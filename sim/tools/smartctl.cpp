// smartctl: the forms a caller of the library (and a person at the demo)
// uses: -d TYPE with -i, -H, -A, -c, -l error|selftest|selective, -a and
// -n POWERMODE, printed as smartctl 7.3 prints them.
#include "smartctl.h"

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <ctime>
#include <string_view>
#include <sys/utsname.h>
#include <vector>

namespace vexosim::tools::smartctl {

namespace {

const char *kValidTypes = "ata, scsi[+TYPE], nvme[,NSID], sat[,auto][,N][+TYPE], usbcypress[,X], "
			  "usbjmicron[,p][,x][,N], usbprolific, usbsunplus, sntasmedia, sntjmicron[,NSID], "
			  "sntrealtek, intelliprop,N[+TYPE], jmb39x[-q],N[,sLBA][,force][+TYPE], "
			  "jms56x,N[,sLBA][,force][+TYPE], marvell, areca,N/E, 3ware,N, hpt,L/M/N, megaraid,N, "
			  "aacraid,H,L,ID, cciss,N, auto, test";

void banner()
{
	struct utsname u;
	std::string release = ::uname(&u) == 0 ? u.release : "unknown";
	out("smartctl 7.3 2022-02-28 r5338 [x86_64-linux-%s] (local build)\n", release.c_str());
	out("Copyright (C) 2002-22, Bruce Allen, Christian Franke, www.smartmontools.org\n\n");
}

int usageError(const std::string &what)
{
	out("%s\nUse smartctl -h to get a usage summary\n\n", what.empty() ? "" : (what + "\n").c_str());
	return kBadCommandLine;
}

// Splits "-dsat", "-d sat", "--device=sat", "--device sat".
bool takeValue(std::vector<std::string_view> &args, size_t &i, std::string_view shortName, std::string_view longName,
	       std::string &value, bool &missing)
{
	std::string_view a = args[i];
	missing = false;
	auto rest = [&]() -> bool {
		if (i + 1 >= args.size()) {
			missing = true;
			return true;
		}
		value = args[++i];
		return true;
	};
	if (a == shortName || a == longName)
		return rest();
	if (a.size() > 2 && a.substr(0, 2) == shortName) {
		value = a.substr(2);
		return true;
	}
	if (a.size() > longName.size() && a.substr(0, longName.size()) == longName && a[longName.size()] == '=') {
		value = a.substr(longName.size() + 1);
		return true;
	}
	return false;
}

} // namespace

void out(const char *fmt, ...)
{
	va_list ap;
	va_start(ap, fmt);
	std::vprintf(fmt, ap);
	va_end(ap);
}

std::string withCommas(uint64_t v)
{
	std::string s = std::to_string(v);
	for (int i = static_cast<int>(s.size()) - 3; i > 0; i -= 3)
		s.insert(static_cast<size_t>(i), ",");
	return s;
}

std::string siCapacity(uint64_t bytes)
{
	static const char *units[] = {"B", "KB", "MB", "GB", "TB", "PB", "EB"};
	unsigned __int128 div = 1;
	int u = 0;
	while (u < 6 && bytes / div >= 1000) {
		div *= 1000;
		++u;
	}
	char b[40];
	unsigned long long whole = static_cast<unsigned long long>(bytes / div);
	if (u == 0 || whole >= 100) {
		std::snprintf(b, sizeof b, "%llu %s", whole, units[u]);
	} else {
		int places = whole >= 10 ? 1 : 2;
		unsigned __int128 scale = places == 1 ? 10 : 100;
		unsigned long long frac = static_cast<unsigned long long>(static_cast<unsigned __int128>(bytes) * scale / div % scale);
		std::snprintf(b, sizeof b, "%llu.%0*llu %s", whole, places, frac, units[u]);
	}
	return b;
}

std::string localTime()
{
	std::time_t now = std::time(nullptr);
	std::tm tm{};
	::localtime_r(&now, &tm);
	char b[64];
	std::strftime(b, sizeof b, "%a %b %e %H:%M:%S %Y %Z", &tm);
	return b;
}

int main(int argc, char **argv)
{
	banner();
	std::vector<std::string_view> args(argv + 1, argv + argc);
	Options o;
	for (size_t i = 0; i < args.size(); ++i) {
		std::string_view a = args[i];
		std::string v;
		bool missing = false;
		if (takeValue(args, i, "-d", "--device", v, missing)) {
			if (missing)
				return usageError("=======> ARGUMENT REQUIRED FOR OPTION: d\n=======> VALID ARGUMENTS ARE: " +
						  std::string(kValidTypes) + " <=======");
			o.type = v;
		} else if (takeValue(args, i, "-n", "--nocheck", v, missing)) {
			if (missing || (v != "never" && v != "sleep" && v != "standby" && v != "idle"))
				return usageError(std::string(missing ? "=======> ARGUMENT REQUIRED FOR OPTION: n"
								      : "=======> INVALID ARGUMENT TO -n: " + v) +
						  "\n=======> VALID ARGUMENTS ARE: never, sleep[,STATUS[,STATUS2]], "
						  "standby[,STATUS[,STATUS2]], idle[,STATUS[,STATUS2]] <=======");
			o.nocheck = v;
		} else if (takeValue(args, i, "-l", "--log", v, missing)) {
			if (v == "error")
				o.errorLog = true;
			else if (v == "selftest")
				o.selfTestLog = true;
			else if (v == "selective")
				o.selectiveLog = true;
			else
				return usageError(std::string(missing ? "=======> ARGUMENT REQUIRED FOR OPTION: l"
								      : "=======> INVALID ARGUMENT TO -l: " + v) +
						  "\n=======> VALID ARGUMENTS ARE: error, selftest, selective <=======");
		} else if (a == "-i" || a == "--info") {
			o.info = true;
		} else if (a == "-H" || a == "--health") {
			o.health = true;
		} else if (a == "-A" || a == "--attributes") {
			o.attributes = true;
		} else if (a == "-c" || a == "--capabilities") {
			o.capabilities = true;
		} else if (a == "-a" || a == "--all") {
			o.info = o.health = o.attributes = o.capabilities = true;
			o.errorLog = o.selfTestLog = o.selectiveLog = true;
		} else if (!a.empty() && a[0] == '-') {
			return usageError("=======> UNRECOGNIZED OPTION: " + std::string(a.substr(a[1] == '-' ? 2 : 1)));
		} else if (o.device.empty() && i + 1 == args.size()) {
			o.device = a;
		} else {
			return usageError("ERROR: smartctl takes ONE device name as the final command-line argument.\n"
					  "You have provided " +
					  std::to_string(args.size() - i) + " device names:");
		}
	}
	if (o.device.empty())
		return usageError("ERROR: smartctl requires a device name as the final command-line argument.\n");

	Transport t = Transport::Sat;
	const char *tag = "";
	if (o.type == "ata") {
		t = Transport::Ata;
	} else if (o.type == "sat" || o.type == "sat,auto" || o.type == "sat,16") {
		t = Transport::Sat;
		tag = " [SAT]";
	} else if (o.type == "scsi") {
		t = Transport::Scsi;
	} else if (o.type == "marvell") {
		t = Transport::Marvell;
	} else if (o.type == "nvme") {
		t = Transport::Nvme;
	} else if (!o.type.empty() && o.type != "auto") {
		out("%s: Unknown device type '%s'\n", o.device.c_str(), o.type.c_str());
		return usageError(std::string("=======> VALID ARGUMENTS ARE: ") + kValidTypes + " <=======");
	}

	if (o.type.empty() || o.type == "auto") {
		// As smartctl does on Linux: the kind of node by its name, and an sd
		// node whose INQUIRY names "ATA" as vendor is an ATA drive behind a
		// translating layer.
		std::string base = o.device.substr(o.device.rfind('/') + 1);
		if (base.rfind("nvme", 0) == 0) {
			t = Transport::Nvme;
		} else if (base.rfind("hd", 0) == 0) {
			t = Transport::Ata;
		} else if (base.rfind("sd", 0) == 0 || base.rfind("sg", 0) == 0) {
			t = Transport::Scsi;
		} else {
			out("%s: Unable to detect device type\nPlease specify device type with the -d option.\n",
			    o.device.c_str());
			return usageError("");
		}
	}
	Drive d = Drive::open(o.device, t);
	if (!d.valid()) {
		int e = errno == ENOENT ? ENODEV : errno;
		out("Smartctl open device: %s%s failed: %s\n", o.device.c_str(), tag, std::strerror(e));
		return kOpenFailed;
	}
	if ((o.type.empty() || o.type == "auto") && t == Transport::Scsi) {
		std::vector<uint8_t> inq;
		ScsiAnswer a = d.scsi({0x12, 0, 0, 0, 36, 0}, 1, inq, 36);
		if (a.ok && inq.size() >= 16 && std::memcmp(inq.data() + 8, "ATA     ", 8) == 0) {
			d = Drive::open(o.device, Transport::Sat);
			if (!d.valid()) {
				out("Smartctl open device: %s [SAT] failed: %s\n", o.device.c_str(), std::strerror(errno));
				return kOpenFailed;
			}
			t = Transport::Sat;
		}
	}
	std::fflush(stdout);
	int rc = t == Transport::Scsi ? runScsi(d, o) : t == Transport::Nvme ? runNvme(d, o) : runAta(d, o);
	std::fflush(stdout);
	return rc;
}

} // namespace vexosim::tools::smartctl
