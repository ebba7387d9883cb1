#include "frame/boundary.h"

#include <exception>
#include <new>
#include <typeinfo>

#include "frame/err.h"

namespace vexo {

void recordCurrentException(const char *file, int line) noexcept
{
	int code = VEXO_ERR_INTERNAL;
	const char *what = "unknown exception";
	try {
		throw;
	} catch (const std::bad_alloc &) {
		code = VEXO_ERR_NOMEM;
		what = "out of memory";
	} catch (const ParseError &e) {
		code = VEXO_ERR_READ;
		what = e.what();
	} catch (const std::invalid_argument &e) {
		code = VEXO_ERR_READ;
		what = e.what();
	} catch (const std::out_of_range &e) {
		code = VEXO_ERR_READ;
		what = e.what();
	} catch (const std::exception &e) {
		what = e.what();
	} catch (...) {
	}
	// Neither call allocates: the error record is a plain slot and the line
	// is formatted into a fixed buffer.
	VLIBCErrSetEx(code, file, line);
	vlog(LOG_ERR, "%s:%d exception caught at the interface: %s", file, line, what);
}

} // namespace vexo
