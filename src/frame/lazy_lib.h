// Libraries loaded on first use. libxml2 (with ICU behind it), SQLite and
// json-c cost every process that maps them at start-up, while most calls of
// the library need none of them: each is opened the first time one of its
// functions is called. The functions keep their own names (hidden in our
// objects, so nothing outside sees them) and the real ones are found with
// dlsym. A library that cannot be loaded is logged once, and its functions
// answer as they do on failure (null document, SQLITE_CANTOPEN, ...), so a
// caller takes its usual error path.
#pragma once

#include <atomic>

namespace vexo::lazy {

class Library {
public:
	explicit constexpr Library(const char *soname) : soname_(soname) {}
	// The address of `name`, or null (the library or the name is missing).
	void *symbol(const char *name);

private:
	void *handle();
	const char *soname_;
	std::atomic<void *> handle_{nullptr};
	std::atomic<bool> failed_{false};
};

Library &libxml2();
Library &sqlite();
Library &jsonc();

} // namespace vexo::lazy

// The body of a shim: calls the real `name` with the arguments, or returns
// `failure` when it can't be had. The address is looked up once.
#define VEXO_LAZY_CALL(library, name, failure, ...)                                                       \
	do {                                                                                              \
		static const auto real_ = reinterpret_cast<decltype(&::name)>((library).symbol(#name));  \
		if (!real_)                                                                               \
			return failure;                                                                   \
		return real_(__VA_ARGS__);                                                                \
	} while (0)
