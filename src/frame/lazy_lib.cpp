// Opening a library on first use (see lazy_lib.h).
#include <dlfcn.h>
#include <mutex>

#include "frame/lazy_lib.h"
#include "frame/log.h"

// The build names the sonames it linked against; these are Debian's.
#ifndef VEXO_SONAME_LIBXML2
#define VEXO_SONAME_LIBXML2 "libxml2.so.2"
#endif
#ifndef VEXO_SONAME_SQLITE3
#define VEXO_SONAME_SQLITE3 "libsqlite3.so.0"
#endif
#ifndef VEXO_SONAME_JSONC
#define VEXO_SONAME_JSONC "libjson-c.so.5"
#endif

namespace vexo::lazy {

void *Library::handle()
{
	if (void *h = handle_.load(std::memory_order_acquire))
		return h;
	if (failed_.load(std::memory_order_acquire))
		return nullptr;
	static std::mutex lock;
	std::lock_guard<std::mutex> g(lock);
	if (void *h = handle_.load(std::memory_order_acquire))
		return h;
	if (failed_.load())
		return nullptr;
	void *h = ::dlopen(soname_, RTLD_NOW | RTLD_LOCAL);
	if (!h) {
		const char *why = ::dlerror();
		vlog(LOG_ERR, "%s:%d Failed to load %s: %s", VEXO_AT, soname_, why ? why : "unknown error");
		failed_.store(true, std::memory_order_release);
		return nullptr;
	}
	handle_.store(h, std::memory_order_release);
	return h;
}

void *Library::symbol(const char *name)
{
	void *h = handle();
	if (!h)
		return nullptr;
	void *s = ::dlsym(h, name);
	if (!s)
		vlog(LOG_ERR, "%s:%d %s has no %s", VEXO_AT, soname_, name);
	return s;
}

Library &libxml2()
{
	static Library l(VEXO_SONAME_LIBXML2);
	return l;
}

Library &sqlite()
{
	static Library l(VEXO_SONAME_SQLITE3);
	return l;
}

Library &jsonc()
{
	static Library l(VEXO_SONAME_JSONC);
	return l;
}

} // namespace vexo::lazy
