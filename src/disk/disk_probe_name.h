// Short names of disk paths, as the probes and the drive command calls need
// them: "/dev/sda3" -> "sda3", physical disk "sda".
#pragma once

#include <cctype>
#include <cstring>
#include <string>

namespace vexo::disk {

inline std::string shortName(const char *path)
{
	if (!path)
		return {};
	if (std::strncmp(path, "/dev/", 5) == 0)
		path += 5;
	return path;
}

// "/dev/sda" for both "sda" and "/dev/sda".
inline std::string devicePath(const char *path) { return "/dev/" + shortName(path); }

inline bool isNvmeName(const std::string &name) { return name.compare(0, 4, "nvme") == 0; }

// The whole disk behind a partition name: "sdb3" -> "sdb", "nvme0n1p2" ->
// "nvme0n1", "nvc1p1" -> "nvc1".
inline std::string physicalName(const std::string &name)
{
	bool pStyle = name.compare(0, 4, "nvme") == 0 || name.compare(0, 3, "nvc") == 0 ||
		      name.compare(0, 6, "mmcblk") == 0 || name.compare(0, 4, "sysd") == 0;
	std::string out = name;
	if (pStyle) {
		std::size_t p = out.rfind('p');
		// Only a "p<digits>" tail after a digit is a partition.
		if (p != std::string::npos && p > 0 && p + 1 < out.size() && std::isdigit((unsigned char)out[p - 1])) {
			bool digits = true;
			for (std::size_t i = p + 1; i < out.size(); ++i)
				digits = digits && std::isdigit((unsigned char)out[i]);
			if (digits)
				out.erase(p);
		}
		return out;
	}
	while (!out.empty() && std::isdigit((unsigned char)out.back()))
		out.pop_back();
	return out;
}

} // namespace vexo::disk
