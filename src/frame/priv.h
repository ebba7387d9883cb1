// The raised-privilege section around writes to root-owned files. A scoped
// pair: the saved ids live in the guard, on the stack of the enclosing
// function, and the section never outlives it. A failed change is logged
// and the work goes on: it fails by itself if it really needed root.
//
// Threads. The kernel keeps credentials per thread; it is the C library's
// setresuid/setresgid that copy a change to every thread of the process.
// Through those, a section would make the whole process root while any
// thread is inside it: threads that never call the library would create
// root-owned files, and the first section to end would drop root under a
// second one still writing (which, entering while root, had saved root and
// restored nothing). Counting sections under a process-wide lock repairs
// the second fault but not the first: the process stays root for the union
// of all sections. So the section changes only the calling thread's ids,
// with the raw system calls. Each thread raises and drops for itself, a
// nested section in the same thread finds root and leaves it alone, and
// other threads keep their ids throughout. What follows from it: the work
// that needs root must run on the thread that entered the section (a
// thread or child started inside it inherits the raised ids, as a child
// always did), and a caller that changes ids through the C library while
// one of its threads is inside a section overrides that thread's ids too.
#pragma once

#include <sys/types.h>

namespace vexo {

class PrivilegedSection {
public:
	// `file` and `line` are the enclosing function's place, used in the
	// log lines (ENTERCriticalSection / LEAVECriticalSection).
	PrivilegedSection(const char *file, int line);
	~PrivilegedSection();
	PrivilegedSection(const PrivilegedSection &) = delete;
	PrivilegedSection &operator=(const PrivilegedSection &) = delete;

private:
	const char *file_;
	int line_;
	uid_t savedUid_;
	gid_t savedGid_;
};

} // namespace vexo

// ENTERCriticalSection; ... the section ends with the enclosing scope.
#define ENTERCriticalSection ::vexo::PrivilegedSection vexoPrivilegedSection_(VEXO_SRC, __LINE__)
