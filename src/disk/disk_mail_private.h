// What the status mail's calls share: the texts of the mail language.
#pragma once

#include <string>

namespace vexo::mail {

// The strings file of the mail language (maillang of /etc/vexoinfo.conf,
// "enu" when it can't be read, logged).
class Texts {
public:
	Texts();
	const std::string &file() const { return file_; }
	// The text of `key`; false (logged) when the file lacks it.
	bool get(const char *key, std::string &out) const;

private:
	std::string file_;
};

// A size in bytes as "%.01lf %s" with the language's unit (1024 steps from
// bytes up to tera). False (logged) when the unit's text is missing.
bool capacityText(const Texts &texts, unsigned long long bytes, std::string &out);

} // namespace vexo::mail
