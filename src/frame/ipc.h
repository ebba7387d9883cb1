// The IPC seam: System V keys and Unix socket addresses of appliance paths.
//
// Keys. On the real root a key is ftok(3) of the path, so the library meets
// the appliance's other programs on the same semaphores. Under a sysroot
// (VEXO_SYSROOT) the key is a hash of the root, the file's whole device and
// inode numbers and the project id instead: ftok keeps only 16 bits of the
// inode, so two simulated boxes on one machine, or a box and the host, could
// draw the same key. The path must exist in both cases, as for ftok, and
// every name of one file gives one key.
//
// Socket addresses. The host path of a socket is its appliance path under
// the root, so two boxes never share a socket. A host path longer than
// sun_path holds is reached through a descriptor on its directory, named
// "/proc/<pid>/fd/<n>/<file>": with the process id rather than "self", so
// that a peer given the address (the sender of a datagram) reaches the same
// directory. Such an address lives as long as its UnixAddress (which holds
// the descriptor), and a peer must be allowed to look into this process's
// descriptors (same user, or root). A file name that is too long even so is
// refused with ENAMETOOLONG and a log line.
#pragma once

#include <string>
#include <sys/socket.h>
#include <sys/types.h>
#include <sys/un.h>

#include "frame/unique.h"

namespace vexo::ipc {

// The key of an appliance path and project id (its low 8 bits count, as for
// ftok). -1 with errno set when the path cannot be found.
key_t key(const char *appliancePath, int projectId);

// key() of the host file `hostPath` as a process under `root` draws it
// ("" root: ftok). For tools that act on a root other than their own.
key_t keyUnder(const std::string &root, const std::string &hostPath, int projectId);

// Removes the System V semaphores keyed on the root directory of a
// simulated root (every project id), so that a root torn down leaves none
// behind. The root must still exist. The number removed, or -1 (errno set)
// when the keys cannot be drawn; "" (the real root) removes nothing.
int removeRootSemaphores(const std::string &root);

class UnixAddress {
public:
	UnixAddress() = default;
	UnixAddress(const UnixAddress &) = delete;
	UnixAddress &operator=(const UnixAddress &) = delete;

	// Composes the address of an appliance path. False with errno set (and
	// a log line) when it cannot be made.
	bool set(const char *appliancePath);

	const sockaddr *addr() const { return reinterpret_cast<const sockaddr *>(&sun_); }
	// The whole record, as the appliance's programs pass it (110 bytes).
	socklen_t size() const { return sizeof(sun_); }
	// What sun_path holds: the host path, or the descriptor form.
	const char *name() const { return sun_.sun_path; }
	// Whether the descriptor form was needed.
	bool viaDirectory() const { return static_cast<bool>(dir_); }

private:
	sockaddr_un sun_{};
	UniqueFd dir_;
};

// bind, connect and sendto over appliance paths; they behave as the calls
// they are named after, errno included. bind() keeps the address (and its
// directory) in `keep` for as long as the socket is to be reachable.
int bind(int sock, const char *appliancePath, UnixAddress &keep);
int connect(int sock, const char *appliancePath);
ssize_t sendTo(int sock, const void *buf, std::size_t len, int flags, const char *appliancePath);

} // namespace vexo::ipc
