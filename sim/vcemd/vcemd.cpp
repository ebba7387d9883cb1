// vcemd (simulated): the platform daemon of one simulated box. It serves
// the connector's datagram socket, keeps the pid file and the ready marker,
// takes the daemon's signals, and writes every request, notification and
// signal it receives to a log that tests read. A control file makes it
// slow, mute or failing. It ends on SIGTERM, SIGINT or SIGHUP, and by
// itself when its box's root goes away.
//
// Run with VEXO_SYSROOT set to the box's root (vexosim start does this);
// it refuses to run on the real root.
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <string>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <vexohw/vcemd.h>
#include <vexoplatform/vexocore.h>

#include "frame/ipc.h"
#include "frame/path_read.h"
#include "frame/sysroot.h"
#include "frame/unique.h"
#include "vcemd_sim.h"

namespace {

namespace sim = vexosim::vcemd;

struct Control {
	int slowMs = 0;
	bool mute = false;
	bool fail = false;
};

Control readControl()
{
	Control c;
	std::string text;
	if (!vexo::readBytes(sim::kControlFile, text, 4096))
		return c;
	std::size_t at = 0;
	while (at < text.size()) {
		std::size_t nl = text.find('\n', at);
		std::string line(vexo::trimSpace(std::string_view(text).substr(at, nl == std::string::npos ? nl : nl - at)));
		at = nl == std::string::npos ? text.size() : nl + 1;
		int32_t ms = 0;
		if (line == "mute")
			c.mute = true;
		else if (line == "fail")
			c.fail = true;
		else if (line.rfind("slow=", 0) == 0 && vexo::parseS32(line.substr(5), ms) && ms >= 0)
			c.slowMs = ms;
	}
	return c;
}

// One line per event, in one write, so a reader never sees half a line.
void record(const std::string &line)
{
	vexo::UniqueFd fd(vexo::sysroot::open(sim::kLogFile, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644));
	if (!fd)
		return;
	std::string l = line + "\n";
	if (::write(fd.get(), l.data(), l.size()) < 0)
		std::perror("vcemd: log");
}

// The payload as text, bytes outside printable ASCII as \xNN; trailing
// zero padding left out.
std::string payload(const Message &m)
{
	int n = m.dataLength < 0 ? 0 : m.dataLength > VEXO_VCEMD_DATA_MAX ? VEXO_VCEMD_DATA_MAX : m.dataLength;
	while (n > 0 && m.data[n - 1] == 0)
		--n;
	std::string s;
	for (int i = 0; i < n; ++i) {
		unsigned char c = m.data[i];
		if (c >= 0x20 && c < 0x7F && c != '\\') {
			s += static_cast<char>(c);
		} else {
			char hex[5];
			std::snprintf(hex, sizeof(hex), "\\x%02x", c);
			s += hex;
		}
	}
	return s;
}

void answer(int sock, const Message &req, const sockaddr_un &from, socklen_t fromLen)
{
	Control c = readControl();
	if (c.slowMs > 0)
		::usleep(static_cast<useconds_t>(c.slowMs) * 1000);
	if (!req.needReply)
		return;
	if (c.mute) {
		record("muted");
		return;
	}
	Message reply{};
	reply.command = req.command;
	reply.result = c.fail ? -1 : 0;
	if (req.command == VEXO_VCEMD_CMD_STATUS) {
		int running = 1;
		reply.dataLength = sizeof(running);
		std::memcpy(reply.data, &running, sizeof(running));
	}
	if (::sendto(sock, &reply, sizeof(reply), 0, reinterpret_cast<const sockaddr *>(&from), fromLen) < 0)
		record(std::string("reply failed: ") + std::strerror(errno));
}

void serveOne(int sock)
{
	Message req{};
	sockaddr_un from{};
	socklen_t fromLen = sizeof(from);
	ssize_t n = ::recvfrom(sock, &req, sizeof(req), 0, reinterpret_cast<sockaddr *>(&from), &fromLen);
	if (n < 0)
		return;
	if (n != static_cast<ssize_t>(sizeof(Message))) {
		record("datagram of " + std::to_string(n) + " bytes");
		return;
	}
	if (req.command == sim::kNotifyCommand)
		record("notify " + payload(req));
	else
		record("request command=" + std::to_string(req.command) + " needReply=" + std::to_string(req.needReply) +
		       " length=" + std::to_string(req.dataLength) + " data=" + payload(req));
	answer(sock, req, from, fromLen);
}

bool rootGone(const std::string &root)
{
	struct stat st;
	return ::stat(root.c_str(), &st) != 0;
}

} // namespace

int main()
{
	const char *env = secure_getenv("VEXO_SYSROOT");
	if (!env || !*env) {
		std::fprintf(stderr, "vcemd: VEXO_SYSROOT must name the simulated box\n");
		return 2;
	}
	const std::string root = env;
	sigset_t sigs;
	sigemptyset(&sigs);
	for (int s : {SIGTERM, SIGINT, SIGHUP, SIGCONT, SIGTSTP})
		sigaddset(&sigs, s);
	sigprocmask(SIG_BLOCK, &sigs, nullptr);
	vexo::UniqueFd sigFd(::signalfd(-1, &sigs, SFD_CLOEXEC));
	vexo::UniqueFd sock(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
	if (!sigFd || !sock) {
		std::perror("vcemd");
		return 1;
	}
	vexo::sysroot::unlink(VEXO_VCEMD_SERVER_SOCKET);
	vexo::ipc::UnixAddress bound;
	if (vexo::ipc::bind(sock.get(), VEXO_VCEMD_SERVER_SOCKET, bound) != 0) {
		std::perror("vcemd: bind");
		return 1;
	}
	if (VLIBCProcPidFileCreate(VEXO_VCEMD_PID_FILE) != 0) {
		std::fprintf(stderr, "vcemd: cannot write %s\n", VEXO_VCEMD_PID_FILE);
		vexo::sysroot::unlink(VEXO_VCEMD_SERVER_SOCKET);
		return 1;
	}
	// A marker left by a run that was killed: this start clears it.
	if (VEXOSetVcemdStatus(VEXO_VCEMD_READY) != 0) {
		VEXOSetVcemdStatus(VEXO_VCEMD_STOPPED);
		VEXOSetVcemdStatus(VEXO_VCEMD_READY);
	}
	record("started");
	bool running = true;
	while (running) {
		pollfd p[2] = {{sock.get(), POLLIN, 0}, {sigFd.get(), POLLIN, 0}};
		int r = ::poll(p, 2, 1000);
		if (r == 0) {
			running = !rootGone(root);
			continue;
		}
		if (r < 0)
			continue;
		if (p[1].revents & POLLIN) {
			signalfd_siginfo si{};
			if (::read(sigFd.get(), &si, sizeof(si)) == static_cast<ssize_t>(sizeof(si))) {
				record("signal " + std::to_string(si.ssi_signo));
				if (si.ssi_signo == SIGTERM || si.ssi_signo == SIGINT || si.ssi_signo == SIGHUP)
					running = false;
			}
		}
		if (running && (p[0].revents & POLLIN))
			serveOne(sock.get());
	}
	if (!rootGone(root)) {
		VEXOSetVcemdStatus(VEXO_VCEMD_STOPPED);
		vexo::sysroot::unlink(VEXO_VCEMD_SERVER_SOCKET);
		vexo::sysroot::unlink(VEXO_VCEMD_PID_FILE);
		record("stopped");
	}
	return 0;
}
