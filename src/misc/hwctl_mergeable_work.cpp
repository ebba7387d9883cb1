// The mergeable worker: the library's only thread. Triggers that come while
// the function runs are folded into exactly one further run; the function
// never runs twice at once. The spin lock guards only `state`.
#include <cerrno>
#include <pthread.h>
#include <unistd.h>

#include "frame/boundary.h"
#include "frame/err.h"
#include "misc/misc.h"

namespace {

constexpr int kRunning = 1;
constexpr int kPending = 2;

void *loop(void *arg)
{
	auto *work = static_cast<MergeableWork *>(arg);
	for (;;) {
		if (pthread_spin_lock(&work->lock) != 0) {
			// Bit 0 stays set: no later trigger starts a thread on a
			// lock that no longer works.
			vlog(LOG_ERR, "%s:%d Failed to lock pthread spin lock", VEXO_AT);
			return nullptr;
		}
		if (!(work->state & kPending)) {
			work->state &= ~kRunning;
			pthread_spin_unlock(&work->lock);
			return nullptr;
		}
		work->state &= ~kPending;
		MergeableWorkFunction fn = work->function;
		pthread_spin_unlock(&work->lock);
		if (fn)
			vexo::cCallVoid([&] { fn(); });
	}
}

bool checkWork(const MergeableWork *work)
{
	if (!work) {
		vlog(LOG_ERR, "%s:%d Invaild Argument (%s)=[%d]\n", VEXO_AT, "work", 0);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return false;
	}
	return true;
}

} // namespace

extern "C" VEXO_API int VEXOHWCTLMergeableWorkInit(MergeableWork *work, MergeableWorkFunction function) try {
	if (!checkWork(work))
		return -1;
	if (!function) {
		vlog(LOG_ERR, "%s:%d Invaild Argument (%s)=[%d]\n", VEXO_AT, "function", 0);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	work->state = 0;
	work->function = function;
	if (pthread_spin_init(&work->lock, PTHREAD_PROCESS_SHARED) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to init pthread spinlock", VEXO_AT);
		return -1;
	}
	return 0;
}
VEXO_C_CATCH(-1)

extern "C" VEXO_API int VEXOHWCTLMergeableWorkTrigger(MergeableWork *work) try {
	if (!checkWork(work))
		return -1;
	if (!work->function) {
		vlog(LOG_ERR, "%s:%d function handler not register", VEXO_AT);
		return -1;
	}
	if (pthread_spin_lock(&work->lock) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to lock pthread spin lock", VEXO_AT);
		return -1;
	}
	work->state |= kPending;
	if (work->state & kRunning) { // merged into the running worker
		pthread_spin_unlock(&work->lock);
		return 0;
	}
	int result = -1;
	pthread_attr_t attr;
	if (pthread_attr_init(&attr) != 0) {
		vlog(LOG_ERR, "%s:%d pthread attribute init failed", VEXO_AT);
	} else {
		pthread_t tid;
		if (pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED) != 0) {
			vlog(LOG_ERR, "%s:%d pthread set detach failed", VEXO_AT);
		} else if (pthread_create(&tid, &attr, loop, work) != 0) {
			vlog(LOG_ERR, "%s:%d Fail to create thread.", VEXO_AT);
		} else {
			// The thread blocks on the lock until this is set.
			work->state |= kRunning;
			result = 0;
		}
		pthread_attr_destroy(&attr);
	}
	pthread_spin_unlock(&work->lock);
	return result;
}
VEXO_C_CATCH(-1)

extern "C" VEXO_API void VEXOHWCTLMergeableWorkDestory(MergeableWork *work) try {
	if (!work)
		return;
	for (;;) {
		if (pthread_spin_lock(&work->lock) != 0) {
			vlog(LOG_ERR, "%s:%d Failed to lock pthread spin lock", VEXO_AT);
			break;
		}
		bool running = work->state & kRunning;
		pthread_spin_unlock(&work->lock);
		if (!running)
			break;
		::sleep(1);
	}
	work->state = 0;
	work->function = nullptr;
	pthread_spin_destroy(&work->lock);
}
VEXO_C_CATCH_VOID
