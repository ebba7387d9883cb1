// The unit driver's command files (see unit_ctl.h). State keys, one
// "key=value" line each, all optional:
//
//   power (1)  fans (2)  fanfail (0, bit n-1: fan n stopped)  psu (3, bits: supply good)
//   btn (0)  mode (0)  speed (5, last FAN_SPEED code of a GPIO unit)  tachfan (1)
//   fail (0: 1 makes every transfer fail with EIO)
//   r.<addr>.<reg> (I2C register bytes, "r.0x2e.0x31")  led.<what> (last LED commands)
#include "unit_ctl.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <map>
#include <sstream>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace vexosim::unit {
namespace {

using State = std::map<std::string, long>;

bool endsWith(const std::string &s, const std::string &tail)
{
	return s.size() >= tail.size() && s.compare(s.size() - tail.size(), tail.size(), tail) == 0;
}

std::string readFile(const std::string &path)
{
	std::string out;
	if (FILE *f = std::fopen(path.c_str(), "r")) {
		char buf[4096];
		size_t n;
		while ((n = std::fread(buf, 1, sizeof(buf), f)) > 0)
			out.append(buf, n);
		std::fclose(f);
	}
	return out;
}

bool writeFile(const std::string &path, const std::string &text)
{
	int fd = ::open(path.c_str(), O_WRONLY | O_TRUNC | O_CREAT | O_CLOEXEC, 0644);
	if (fd < 0)
		return false;
	bool ok = ::write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
	::close(fd);
	return ok;
}

State load(const std::string &path)
{
	State s = {{"power", 1}, {"fans", 2}, {"fanfail", 0}, {"psu", 3}, {"btn", 0}, {"mode", 0},
		   {"speed", 5}, {"tachfan", 1}, {"fail", 0}, {"r.0x2e.0x31", 0x8C}, {"r.0x40.0x05", 0x04},
		   {"r.0x40.0x08", 0x03}};
	std::istringstream in(readFile(path));
	std::string line;
	while (std::getline(in, line)) {
		auto eq = line.find('=');
		if (eq != std::string::npos)
			s[line.substr(0, eq)] = std::strtol(line.c_str() + eq + 1, nullptr, 0);
	}
	return s;
}

void save(const std::string &path, const State &s)
{
	std::string text;
	for (const auto &[k, v] : s)
		text += k + "=" + std::to_string(v) + "\n";
	writeFile(path, text);
}

std::string regKey(unsigned addr, unsigned reg)
{
	char b[32];
	std::snprintf(b, sizeof(b), "r.0x%02x.0x%02x", addr, reg);
	return b;
}

// The I2C devices an XU11 carries: fan controller, power controller, LED bank.
bool deviceThere(unsigned addr) { return addr == 0x2E || addr == 0x40 || addr == 0x41; }

bool fanFailed(const State &s, int fan) { return (s.at("fanfail") >> (fan - 1)) & 1; }

// The I2C protocol; `answer` becomes the file's content.
int i2c(State &s, const std::string &text, std::string &answer)
{
	std::istringstream in(text);
	std::string verb;
	in >> verb;
	if (verb == "Poll") {
		bool on = (s["r.0x40.0x05"] >> 2) & 1;
		long pwm = s["r.0x2e.0x31"];
		answer = "[i2c]\n";
		for (int fan = 1; fan <= s["fans"]; ++fan) {
			long rpm = !on || fanFailed(s, fan) ? 0 : pwm * 12;
			answer += "fanTach" + std::to_string(fan) + "=" + std::to_string(rpm) + "\n";
		}
		return 0;
	}
	std::string a, r;
	int length = -1;
	if ((verb != "Read" && verb != "Write") || !(in >> a >> r >> length) || length < 0 || length > 7)
		return EINVAL;
	char *end;
	unsigned addr = static_cast<unsigned>(std::strtoul(a.c_str(), &end, 16));
	if (*end || a.rfind("0x", 0) != 0)
		return EINVAL;
	unsigned reg = static_cast<unsigned>(std::strtoul(r.c_str(), &end, 16));
	if (*end || r.rfind("0x", 0) != 0)
		return EINVAL;
	if (!deviceThere(addr) || s["fail"])
		return EIO; // no acknowledge on the bus
	if (verb == "Read") {
		answer = "i2c=";
		for (int i = 0; i < length; ++i) {
			char b[8];
			std::snprintf(b, sizeof(b), "%s0x%02lx", i ? " " : "", s[regKey(addr, reg + i)] & 0xFF);
			answer += b;
		}
		answer += "\n";
		return 0;
	}
	std::vector<long> bytes;
	std::string tok;
	while (in >> tok) {
		unsigned long v = std::strtoul(tok.c_str(), &end, 16);
		if (*end || tok.rfind("0x", 0) != 0 || v > 0xFF)
			return EINVAL;
		bytes.push_back(static_cast<long>(v));
	}
	if (static_cast<int>(bytes.size()) != length || length == 0)
		return EINVAL;
	for (int i = 0; i < length; ++i)
		s[regKey(addr, reg + i)] = bytes[i];
	answer.clear();
	return 0;
}

// The GPIO word (bit layout in the library's src/ebox/ebox_private.h).
int gpio(State &s, const std::string &text, bool is9705, std::string &answer)
{
	char *end;
	unsigned long w = std::strtoul(text.c_str(), &end, 16);
	while (*end == '\n')
		++end;
	if (*end || text.rfind("0x", 0) != 0 || w > 0xFFFFFFFFul)
		return EINVAL;
	if (((w >> 31) & 1) != (is9705 ? 1u : 0u) || (w & 0x7FFF0000ul))
		return EINVAL; // a word of the other family
	if (s["fail"])
		return EIO;
	int op = static_cast<int>((w >> 8) & 0xFF), arg = static_cast<int>(w & 0xFF);
	switch (op) {
	case 0x00:
	case 0x0E:
		break;
	case 0x01:
		if (arg < 1 || arg > 9)
			return EINVAL;
		s["speed"] = arg;
		break;
	case 0x02:
		if (arg < 1 || arg > s["fans"])
			return EINVAL;
		s["tachfan"] = arg;
		break;
	case 0x03:
		s["power"] = arg != 0;
		break;
	case 0x07:
	case 0x0D:
		s["btn"] = arg != 0;
		break;
	case 0x04: case 0x05: case 0x06: case 0x08: case 0x09: case 0x0A: case 0x0B: case 0x0C: {
		static const char *const names[] = {"", "", "", "", "ready", "disk", "all", "", "deepsleep", "light",
						    "alarm", "buzzer", "disk07"};
		s[std::string("led.") + names[op]] = arg;
		break;
	}
	default:
		return EINVAL;
	}
	long fans = s["fans"], tf = s["tachfan"];
	unsigned long in = (s["power"] ? 1u : 0u) | (static_cast<unsigned long>(s["fanfail"] & ((1 << fans) - 1) & 0xF) << 1) |
			   (static_cast<unsigned long>(s["psu"] & 3) << 5) | (s["btn"] ? 0x80u : 0u) |
			   (static_cast<unsigned long>(s["mode"] & 3) << 8) | (static_cast<unsigned long>(fans & 7) << 10);
	unsigned long rpm = !s["power"] || fanFailed(s, static_cast<int>(tf)) ? 0 : static_cast<unsigned long>(s["speed"]) * 400;
	in |= (rpm & 0xFFFF) << 16;
	char b[16];
	std::snprintf(b, sizeof(b), "0x%08lx\n", in);
	answer = b;
	return 0;
}

} // namespace

bool isCommandFile(const std::string &p) { return endsWith(p, "/vexo_pm_gpio") || endsWith(p, "/vexo_pm_i2c"); }

bool command(const std::string &hostPath, const std::string &root, const std::string &appliancePath,
	     const std::string &text)
{
	std::string dir = appliancePath.substr(0, appliancePath.rfind('/'));
	std::string host = dir.substr(dir.rfind('/') + 1);
	std::string runDir = root + "/run/vexosim/unit";
	::mkdir((root + "/run").c_str(), 0755);
	::mkdir((root + "/run/vexosim").c_str(), 0755);
	::mkdir(runDir.c_str(), 0755);
	std::string statePath = runDir + "/" + host + ".state";
	int lock = ::open((statePath + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
	if (lock >= 0)
		::flock(lock, LOCK_EX);
	State s = load(statePath);
	std::string answer;
	int err;
	if (endsWith(appliancePath, "/vexo_pm_i2c")) {
		err = i2c(s, text, answer);
	} else {
		std::string info = readFile(root + dir + "/vexo_pm_info");
		err = gpio(s, text, info.find("9705") != std::string::npos, answer);
	}
	if (!err) {
		save(statePath, s);
		writeFile(hostPath, answer);
	}
	if (FILE *log = std::fopen((runDir + "/" + host + ".log").c_str(), "a")) {
		std::string shown = text;
		while (!shown.empty() && shown.back() == '\n')
			shown.pop_back();
		std::fprintf(log, "%s -> %s\n", shown.c_str(), err == EIO ? "EIO" : err ? "EINVAL" : "ok");
		std::fclose(log);
	}
	if (lock >= 0)
		::close(lock);
	errno = err;
	return err == 0;
}

} // namespace vexosim::unit
