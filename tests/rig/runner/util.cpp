#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <poll.h>
#include <sstream>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include "rig.h"

namespace rig {

std::string readFile(const std::string &path)
{
	std::ifstream in(path, std::ios::binary);
	if (!in)
		return {};
	std::ostringstream s;
	s << in.rdbuf();
	return s.str();
}

std::string trim(const std::string &s)
{
	size_t b = s.find_first_not_of(" \t\r\n");
	if (b == std::string::npos)
		return {};
	size_t e = s.find_last_not_of(" \t\r\n");
	return s.substr(b, e - b + 1);
}

namespace {
std::string vfmt(const char *f, va_list ap)
{
	char buf[1024];
	std::vsnprintf(buf, sizeof(buf), f, ap);
	return buf;
}
} // namespace

std::string fmt(const char *f, ...)
{
	va_list ap;
	va_start(ap, f);
	std::string s = vfmt(f, ap);
	va_end(ap);
	return s;
}

std::string hexBytes(const unsigned char *p, size_t n)
{
	std::string out;
	for (size_t i = 0; i < n; ++i)
		out += fmt("%02x", p[i]);
	return out;
}

std::string run(const std::vector<std::string> &argv, int *status, int seconds)
{
	if (status)
		*status = -1;
	int fds[2];
	if (pipe2(fds, O_CLOEXEC) != 0)
		return {};
	pid_t pid = fork();
	if (pid < 0) {
		close(fds[0]);
		close(fds[1]);
		return {};
	}
	if (pid == 0) {
		dup2(fds[1], 1);
		int null = open("/dev/null", O_RDWR);
		if (null >= 0)
			dup2(null, 2);
		std::vector<char *> args;
		for (const auto &a : argv)
			args.push_back(const_cast<char *>(a.c_str()));
		args.push_back(nullptr);
		execv(args[0], args.data());
		_exit(127);
	}
	close(fds[1]);
	std::string out;
	struct timespec start;
	clock_gettime(CLOCK_MONOTONIC, &start);
	for (;;) {
		struct timespec now;
		clock_gettime(CLOCK_MONOTONIC, &now);
		long left = seconds * 1000L - ((now.tv_sec - start.tv_sec) * 1000L + (now.tv_nsec - start.tv_nsec) / 1000000);
		if (left <= 0) {
			kill(pid, SIGKILL);
			break;
		}
		struct pollfd p = {fds[0], POLLIN, 0};
		int r = poll(&p, 1, static_cast<int>(left));
		if (r < 0 && errno == EINTR)
			continue;
		if (r <= 0)
			continue;
		char buf[4096];
		ssize_t n = read(fds[0], buf, sizeof(buf));
		if (n < 0 && errno == EINTR)
			continue;
		if (n <= 0)
			break;
		out.append(buf, static_cast<size_t>(n));
	}
	close(fds[0]);
	int st = 0;
	while (waitpid(pid, &st, 0) < 0 && errno == EINTR) {
	}
	if (status)
		*status = WIFEXITED(st) ? WEXITSTATUS(st) : -1;
	return out;
}

uint16_t word(const unsigned char *id, int n)
{
	return static_cast<uint16_t>(id[2 * n] | (id[2 * n + 1] << 8));
}

std::string ataString(const unsigned char *id, int first, int words)
{
	std::string s;
	for (int w = first; w < first + words; ++w) {
		uint16_t v = word(id, w);
		s += static_cast<char>(v >> 8);
		s += static_cast<char>(v & 0xFF);
	}
	return trim(s);
}

std::string field(const std::string &text, const std::string &key)
{
	std::istringstream in(text);
	for (std::string line; std::getline(in, line);) {
		std::string t = trim(line);
		if (t.compare(0, key.size(), key) != 0)
			continue;
		size_t colon = t.find_first_not_of(" \t", key.size());
		if (colon != std::string::npos && t[colon] == ':')
			return trim(t.substr(colon + 1));
	}
	return {};
}

int openDisk(Check &c, const Disk &d)
{
	if (d.name.empty()) {
		c.fail("disk %s (serial %s) did not come up", d.role.c_str(), d.serial.c_str());
		return -1;
	}
	int fd = open(d.path().c_str(), O_RDONLY | O_NONBLOCK);
	if (fd < 0)
		c.fail("open %s: %s", d.path().c_str(), std::strerror(errno));
	return fd;
}

std::string joinSorted(std::vector<std::string> v)
{
	std::sort(v.begin(), v.end());
	std::string out;
	for (const auto &s : v)
		out += (out.empty() ? "" : " ") + s;
	return out;
}

int containerOf(const std::string &port)
{
	static const std::map<std::string, int> kContainer = {{"internal", DISK_CONTAINER_INTERNAL},
							       {"esata", DISK_CONTAINER_ESATA},
							       {"usb", DISK_CONTAINER_USB},
							       {"cache", DISK_CONTAINER_CACHE}};
	auto it = kContainer.find(port);
	return it == kContainer.end() ? -1 : it->second;
}

const char *ifaceName(DriveCommandInterface f)
{
	return f == ata_command_interface	    ? "ata"
	       : f == sat_command_interface	    ? "sat"
	       : f == sas_command_interface	    ? "sas"
	       : f == marvell_command_interface ? "marvell"
						    : "?";
}

// ---- Check ----

void Check::fail(const char *f, ...)
{
	va_list ap;
	va_start(ap, f);
	failures_.push_back(vfmt(f, ap));
	va_end(ap);
}

void Check::note(const char *f, ...)
{
	va_list ap;
	va_start(ap, f);
	notes_.push_back(vfmt(f, ap));
	va_end(ap);
}

bool Check::expect(bool ok, const char *f, ...)
{
	if (ok)
		return true;
	va_list ap;
	va_start(ap, f);
	failures_.push_back(vfmt(f, ap));
	va_end(ap);
	return false;
}

bool Check::eqStr(const std::string &what, const std::string &got, const std::string &want)
{
	if (got == want)
		return true;
	fail("%s: got \"%s\", want \"%s\"", what.c_str(), got.c_str(), want.c_str());
	return false;
}

bool Check::eqInt(const std::string &what, long long got, long long want)
{
	if (got == want)
		return true;
	fail("%s: got %lld (0x%llx), want %lld (0x%llx)", what.c_str(), got, got, want, want);
	return false;
}

std::vector<Registered> &registry()
{
	static std::vector<Registered> r;
	return r;
}

} // namespace rig
