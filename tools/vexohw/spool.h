// The notification spool as the commands read it: the files a sender left
// there, in the order they were written.
#pragma once

#include <algorithm>
#include <dirent.h>
#include <string>
#include <vector>

#include <vexohw/ext.h>
#include <vexoplatform/sysnotify.h>

namespace vexo::cli {

// The spool's folder on the host into dir and the names of its
// notifications, sorted; false when the folder can't be placed. A spool
// not made yet holds none.
inline bool spoolNames(std::string &dir, std::vector<std::string> &names)
{
	char host[4096];
	if (VEXOExtSysrootPath(VEXO_NOTIFY_SPOOL_DIR, host, sizeof host) != 0)
		return false;
	dir = host;
	names.clear();
	if (DIR *d = ::opendir(host)) {
		while (dirent *e = ::readdir(d)) {
			std::string n = e->d_name;
			if (n[0] != '.' && n.size() > 4 && n.compare(n.size() - 4, 4, ".ntf") == 0)
				names.push_back(n);
		}
		::closedir(d);
	}
	std::sort(names.begin(), names.end());
	return true;
}

// How many notifications wait: a check's mail is the one that was not
// there before it.
inline int spooled()
{
	std::string dir;
	std::vector<std::string> names;
	return spoolNames(dir, names) ? static_cast<int>(names.size()) : 0;
}

} // namespace vexo::cli
