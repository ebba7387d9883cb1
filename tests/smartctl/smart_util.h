// Small helpers shared by the SMART tests: a list owner, a list head that a
// failing call must clear, the captured tool outputs in data/, and the CLI.
#pragma once

#include <cstdint>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>
#include <vexohw/smart_info.h>

#include "frame/exec.h"
#include "support/vexotest.h"

namespace vexo::test {

// Never dereferenced: a failing call must replace it with null.
inline SmartInfoEntry *const kSentinel = reinterpret_cast<SmartInfoEntry *>(static_cast<uintptr_t>(0x10));

// Owns a list; a sentinel a failing call left in place is not freed.
struct ListGuard {
	SmartInfoEntry *l = nullptr;
	~ListGuard() { reset(); }
	void reset()
	{
		if (l != kSentinel)
			VEXODiskSmartInfoFree(l);
		l = nullptr;
	}
};

// One row as "id name value worst threshold raw status".
inline std::string row(const std::string &id, const std::string &name, const std::string &value, const std::string &worst,
		const std::string &threshold, const std::string &raw, uint32_t status)
{
	return id + " " + name + " " + value + " " + worst + " " + threshold + " " + raw + " " + std::to_string(status);
}

inline std::vector<std::string> rows(const SmartInfoEntry *l)
{
	std::vector<std::string> out;
	for (; l; l = l->next)
		out.push_back(row(l->id, l->name ? l->name : "", l->value, l->worst, l->threshold, l->raw, l->status));
	return out;
}

inline std::string capture(const std::string &name)
{
	std::ifstream in(sourceDir() + "/tests/smartctl/data/" + name);
	std::stringstream s;
	s << in.rdbuf();
	return s.str();
}

// bin/vexohw run on the test root (and its emulated drives). The seam must
// not put the root in front of the CLI's own path.
inline vexo::exec::Result runVexohw(const Sysroot &root, std::vector<std::string> args)
{
	ScopedEnv noRoot("VEXO_SYSROOT", nullptr);
	args.insert(args.begin(), {buildDir() + "/bin/vexohw", "--sysroot", root.root()});
	vexo::exec::Options o;
	o.captureStderr = true;
	o.timeoutMs = 60000;
	return vexo::exec::run(args, o);
}

} // namespace vexo::test
