// Argument vectors for the exec seam from the C calling conventions.
#pragma once

#include <cstdarg>
#include <string>
#include <vector>

namespace vexo::core {

// program, then the arguments after arg0 up to the terminating NULL.
std::vector<std::string> argvFrom(const char *program, const char *arg0, va_list ap);
// program, then argv[1...] up to the terminating NULL.
std::vector<std::string> argvFrom(const char *program, char *const argv[]);

} // namespace vexo::core
