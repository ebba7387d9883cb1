// The raised-privilege section around writes to root-owned files. A scoped
// pair: the saved ids live in the guard, on the stack of the enclosing
// function, and the section never outlives it. A failed change is logged
// and the work goes on: it fails by itself if it really needed root.
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
