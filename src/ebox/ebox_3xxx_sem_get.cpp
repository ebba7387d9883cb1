// One System V semaphore per unit port: it makes the write of a command and
// the read of its answer through the one command file a single exchange.
#include <cerrno>
#include <ctime>
#include <sys/ipc.h>
#include <sys/sem.h>

#include "ebox/ebox_private.h"
#include "frame/err.h"
#include "frame/ipc.h"
#include "frame/sysroot.h"

namespace vexo::ebox {
namespace {

constexpr key_t kSemKeyBase = 0x10953726;
// A command exchange takes milliseconds; a holder that has not let go in
// this long is stuck, and the caller is told so rather than hung.
constexpr time_t kWaitSeconds = 10;

// On the appliance the key is the port plus the base, as the unit driver's
// other users expect. Under a simulated root it comes from the root, so
// two boxes on one machine never share a unit's semaphore.
key_t semKey(unsigned port)
{
	if (sysroot::root().empty())
		return static_cast<key_t>(kSemKeyBase + port);
	return ipc::key("/", static_cast<int>(port & 0xFF) ^ 0x26);
}

int semStep(VEXO_EBOX_HANDLE_T *h, short delta)
{
	if (!h || h->sem_id < 0) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	sembuf op{0, delta, SEM_UNDO};
	timespec limit{kWaitSeconds, 0};
	int rc;
	do
		rc = delta < 0 ? ::semtimedop(h->sem_id, &op, 1, &limit) : ::semop(h->sem_id, &op, 1);
	while (rc != 0 && errno == EINTR);
	if (rc != 0) {
		vlog(LOG_ERR, "%s:%d semop(%d) on semaphore %d failed: errno=%d", VEXO_AT, delta, h->sem_id, errno);
		VEXO_ERR(VEXO_ERR_LOCK);
		return -1;
	}
	return 0;
}

} // namespace

int semWait(VEXO_EBOX_HANDLE_T *h) { return semStep(h, -1); }
int semSignal(VEXO_EBOX_HANDLE_T *h) { return semStep(h, 1); }

} // namespace vexo::ebox

using namespace vexo::ebox;

extern "C" VEXO_API int VEXOEBox3xxxSemGet(VEXO_EBOX_HANDLE_T *handle, int *sem) try {
	if (!handle || !sem)
		return 0;
	key_t key = semKey(handle->port);
	if (key == -1)
		return 0;
	int id = ::semget(key, 1, IPC_CREAT | IPC_EXCL | 0666);
	if (id >= 0) {
		if (::semctl(id, 0, SETVAL, 1) != 0)
			return 0;
	} else if (errno == EEXIST) {
		id = ::semget(key, 1, 0666); // another process made it: its value stands
		if (id < 0)
			return 0;
	} else {
		return 0;
	}
	*sem = id;
	return 1;
}
VEXO_C_CATCH(0)
