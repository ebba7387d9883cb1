// The client side of the platform daemon's datagram socket. One exchange
// at a time in the whole system: a mutex for this process's threads, a
// lockf lock on a shared file for the other processes, and the one client
// socket path bound only while both are held.
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <mutex>
#include <sys/socket.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>
#include <vexohw/vcemd.h>

#include "frame/boundary.h"
#include "frame/err.h"
#include "frame/ipc.h"
#include "frame/priv.h"
#include "frame/sysroot.h"
#include "frame/unique.h"
#include "vcemd_connector/vcemd_private.h"

static_assert(sizeof(Message) == VEXO_VCEMD_MESSAGE_SIZE);
static_assert(offsetof(Message, command) == 0);
static_assert(offsetof(Message, needReply) == 4);
static_assert(offsetof(Message, result) == 4);
static_assert(offsetof(Message, dataLength) == 8);
static_assert(offsetof(Message, data) == vexo::vcemd::kHeaderSize);

namespace vexo::vcemd {

bool acceptReply(const void *buf, std::size_t n, Message &out)
{
	if (!buf || n < kHeaderSize || n > sizeof(Message))
		return false;
	Message m{};
	std::memcpy(&m, buf, n);
	if (m.dataLength < 0 || m.dataLength > VEXO_VCEMD_DATA_MAX)
		return false;
	out = m;
	return true;
}

} // namespace vexo::vcemd

namespace {

constexpr int kLockAttempts = 5;
constexpr long kLockWaitNs = 50L * 1000 * 1000;
constexpr int kSleepResumes = 3; // an interrupted wait is resumed this often

std::mutex &connectorMutex()
{
	static std::mutex m;
	return m;
}

// Everything one exchange holds, given back in the order the clean-up
// wants whatever the exit: socket, client path, lock. The mutex is a
// separate guard declared before this, so it is released last.
struct Exchange {
	vexo::UniqueFd sock;
	vexo::UniqueFd lock;
	bool locked = false;
	// Cleared when another process was found holding the lock: the path
	// is then its bound address, and removing it would lose its reply.
	bool mayUnlink = true;
	vexo::ipc::UnixAddress bound;

	Exchange() = default;
	Exchange(const Exchange &) = delete;
	Exchange &operator=(const Exchange &) = delete;
	~Exchange()
	{
		sock.reset();
		if (mayUnlink)
			vexo::sysroot::unlink(VEXO_VCEMD_CLIENT_SOCKET);
		if (locked)
			::lockf(lock.get(), F_ULOCK, 0);
		lock.reset();
	}
};

void waitBeforeRetry()
{
	struct timespec want = {0, kLockWaitNs}, left = {0, 0};
	for (int i = 0; i <= kSleepResumes; ++i) {
		if (::nanosleep(&want, &left) == 0 || errno != EINTR)
			return;
		want = left;
	}
}

} // namespace

extern "C" VEXO_API int VEXOVcemdConnectorClient(const Message *request, Message *reply) try {
	std::lock_guard<std::mutex> serial(connectorMutex());
	Exchange x;
	if (!request || (request->needReply && !reply)) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	x.sock.reset(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
	if (!x.sock) {
		vlog(LOG_ERR, "%s:%d Fail to socket() for vcemd connector client.", VEXO_AT);
		return -1;
	}
	struct timeval tv = {3, 0};
	if (::setsockopt(x.sock.get(), SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof(tv)) != 0) {
		vlog(LOG_ERR, "%s:%d Set socket timeout failed", VEXO_AT);
		return -1;
	}
	{
		ENTERCriticalSection;
		// The decimal 666 (octal 1232) is what every client of the system
		// creates the file with; it is then made read-only for all.
		x.lock.reset(vexo::sysroot::open(VEXO_VCEMD_LOCK_FILE, O_RDWR | O_CREAT | O_SYNC | O_CLOEXEC, 666));
	}
	if (!x.lock) {
		vlog(LOG_ERR, "%s:%d Fail to open() for vcemd connector client.", VEXO_AT);
		return -1;
	}
	::fchmod(x.lock.get(), 0444);
	for (int attempt = 1;; ++attempt) {
		if (::lockf(x.lock.get(), F_TLOCK, 0) == 0) {
			x.locked = true;
			break;
		}
		if (attempt == kLockAttempts) {
			if (errno == EAGAIN || errno == EACCES)
				x.mayUnlink = false;
			vlog(LOG_ERR, "%s:%d Fail to lockf() for vcemd connector client.", VEXO_AT);
			return -1;
		}
		waitBeforeRetry();
	}
	vexo::sysroot::unlink(VEXO_VCEMD_CLIENT_SOCKET);
	if (vexo::ipc::bind(x.sock.get(), VEXO_VCEMD_CLIENT_SOCKET, x.bound) != 0) {
		vlog(LOG_ERR, "%s:%d Fail to bind() for vcemd connector client.", VEXO_AT);
		return -1;
	}
	ssize_t sent;
	{
		ENTERCriticalSection;
		sent = vexo::ipc::sendTo(x.sock.get(), request, sizeof(Message), 0, VEXO_VCEMD_SERVER_SOCKET);
	}
	if (sent != static_cast<ssize_t>(sizeof(Message))) {
		vlog(LOG_ERR, "%s:%d Fail to sendto() for vcemd connector client.", VEXO_AT);
		return -1;
	}
	if (request->needReply) {
		unsigned char buf[sizeof(Message)];
		ssize_t n;
		do
			n = ::recvfrom(x.sock.get(), buf, sizeof(buf), 0, nullptr, nullptr);
		while (n < 0 && errno == EINTR);
		if (n < 0) {
			vlog(LOG_ERR, "%s:%d Fail to recvfrom() for vcemd connector client.", VEXO_AT);
			return -1;
		}
		if (!vexo::vcemd::acceptReply(buf, static_cast<std::size_t>(n), *reply)) {
			vlog(LOG_ERR, "%s:%d Malformed reply of %zd bytes for vcemd connector client.", VEXO_AT, n);
			return -1;
		}
	}
	return 0;
}
VEXO_C_CATCH(-1)
