#include "disk/disk_host_driver_match.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "disk/disk_probe_name.h"
#include "frame/log.h"
#include "frame/path_read.h"
#include "frame/sysroot.h"

namespace vexo::disk {

namespace {

// The hosts of the glob "<hosts>/host*/proc_name", in the glob's order. A
// failure to list reads as no match, as for the glob.
std::vector<std::string> hostNames(const std::string &hosts)
{
	std::vector<std::string> names;
	DIR *d = sysroot::opendir(hosts.c_str());
	if (!d)
		return names;
	while (struct dirent *e = ::readdir(d))
		if (std::strncmp(e->d_name, "host", 4) == 0)
			names.emplace_back(e->d_name);
	::closedir(d);
	std::sort(names.begin(), names.end(),
		  [](const std::string &a, const std::string &b) { return std::strcoll(a.c_str(), b.c_str()) < 0; });
	return names;
}

} // namespace

// The probes run several times for every disk question, so the glob's
// first match is found by opening the candidates in order instead of
// testing each one and then opening the first: the same file is read, with
// the same failures, at a third of the system calls.
HostDriverLine readHostDriver(const char *path)
{
	HostDriverLine out;
	std::string disk = physicalName(shortName(path));
	const std::string hosts = "/sys/block/" + disk + "/device/../../scsi_host";
	out.where = hosts + "/host*/proc_name";
	std::vector<std::string> names = disk.empty() ? std::vector<std::string>() : hostNames(hosts);
	if (names.empty())
		return out;
	PathDir dir(hosts);
	for (const std::string &name : names) {
		const std::string rel = name + "/proc_name";
		// The first line, as fgets would give it into 64 bytes.
		std::string text;
		ReadFail why = ReadFail::None;
		if (!dir.readLine(rel, text, 64, true, &why)) {
			if (why == ReadFail::Open) {
				// Not there: the glob would not have listed it either.
				// There but unreadable: it is the first match, and it
				// can't be read.
				struct stat st {};
				if (!dir || ::fstatat(dir.fd(), rel.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0)
					continue;
				out.how = HostDriverLine::How::CantOpen;
				out.where = hosts + "/" + rel;
				return out;
			}
			text.clear(); // empty or unreadable: an empty line
		}
		out.how = HostDriverLine::How::Read;
		out.text = std::move(text);
		return out;
	}
	return out;
}

int hostDriverIs(const HostDriverLine &host, const char *expected, const char *src, int line)
{
	switch (host.how) {
	case HostDriverLine::How::NoMatch:
		vlog(LOG_ERR, "%s:%d Can't get sata chip name from pattern %s", src, line, host.where.c_str());
		return 0;
	case HostDriverLine::How::CantOpen:
		vlog(LOG_ERR, "%s:%d can't open %s", src, line, host.where.c_str());
		return 0;
	case HostDriverLine::How::Read:
		break;
	}
	return host.text == expected ? 1 : 0;
}

} // namespace vexo::disk
