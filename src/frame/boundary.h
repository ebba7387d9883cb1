// The exception boundary. No C++ exception may leave an exported function:
// a caller is a C program (or a daemon) that cannot catch it, and one bad
// document must not end the process that asked about it.
//
// Two equivalent forms, both returning the function's failure value:
//
//   int VEXOFoo(const char *p) try {          int VEXOFoo(const char *p)
//           ...body...                        {
//   } VEXO_C_CATCH(-1)                                return vexo::cCall(-1, [&] { ...body... });
//                                             }
//
// What was thrown decides the recorded code: std::bad_alloc records
// VEXO_ERR_NOMEM, a parse failure (vexo::ParseError, std::invalid_argument,
// std::out_of_range, and anything derived from them, as jsoncpp's and
// std::sto*'s are) records VEXO_ERR_READ, anything else VEXO_ERR_FAILED.
// Each writes one LOG_ERR line naming the place and what was thrown.
#pragma once

#include <stdexcept>
#include <type_traits>
#include <utility>

#include "frame/log.h"

// Fault injection for the tests of this boundary. The seams call
// VEXO_FAULT_POINT() where real work begins (composing a path, opening a
// device, starting a program); a test program that defines vexoFaultPoint
// can throw from there. The declaration is weak and hidden: in the shared
// objects nothing defines it, the linker resolves it to null, and the point
// is a test of a constant.
extern "C" __attribute__((weak, visibility("hidden"))) void vexoFaultPoint(const char *site);
#define VEXO_FAULT_POINT()                         \
	do {                                       \
		if (vexoFaultPoint)                \
			vexoFaultPoint(VEXO_SRC);  \
	} while (0)

namespace vexo {

// A document or answer that could not be understood.
struct ParseError : std::runtime_error {
	using std::runtime_error::runtime_error;
};

// Records the code and writes the line for the exception being handled.
// Must be called from inside a catch handler.
void recordCurrentException(const char *file, int line) noexcept;

template <typename R, typename F>
R cCallAt(R fail, const char *file, int line, F &&body) noexcept
{
	try {
		if constexpr (std::is_void_v<std::invoke_result_t<F>>) {
			std::forward<F>(body)();
			return R{};
		} else {
			return static_cast<R>(std::forward<F>(body)());
		}
	} catch (...) {
		recordCurrentException(file, line);
		return fail;
	}
}

// For functions with no result: the exception is recorded and swallowed.
template <typename F>
void cCallVoidAt(const char *file, int line, F &&body) noexcept
{
	try {
		std::forward<F>(body)();
	} catch (...) {
		recordCurrentException(file, line);
	}
}

} // namespace vexo

#define cCall(fail, ...) cCallAt((fail), VEXO_SRC, __LINE__, __VA_ARGS__)
#define cCallVoid(...) cCallVoidAt(VEXO_SRC, __LINE__, __VA_ARGS__)

// The handler of a function-try-block around an exported body.
#define VEXO_C_CATCH(fail)                                               \
	catch (...)                                                      \
	{                                                                \
		::vexo::recordCurrentException(VEXO_SRC, __LINE__);      \
		return (fail);                                           \
	}
#define VEXO_C_CATCH_VOID                                                \
	catch (...)                                                      \
	{                                                                \
		::vexo::recordCurrentException(VEXO_SRC, __LINE__);      \
	}
