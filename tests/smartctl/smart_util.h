// Small helpers shared by the SMART tests: a list owner, a list head that a
// failing call must clear, and the captured tool outputs in data/.
#pragma once

#include <cstdint>
#include <fstream>
#include <sstream>
#include <string>
#include <vexohw/smart_info.h>

#include "support/vexotest.h"

namespace vexo::test {

struct ListGuard {
	SmartInfoEntry *l = nullptr;
	~ListGuard() { VEXODiskSmartInfoFree(l); }
	void reset()
	{
		VEXODiskSmartInfoFree(l);
		l = nullptr;
	}
};

// Never dereferenced: a failing call must replace it with null.
inline SmartInfoEntry *const kSentinel = reinterpret_cast<SmartInfoEntry *>(static_cast<uintptr_t>(0x10));

inline std::string capture(const std::string &name)
{
	std::ifstream in(sourceDir() + "/tests/smartctl/data/" + name);
	std::stringstream s;
	s << in.rdbuf();
	return s.str();
}

} // namespace vexo::test
