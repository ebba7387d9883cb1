// A disk's whole model from what the system already knows (see
// disk_model_whole.h).
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include <vexohw/frame.h>

#include "disk/disk_model_whole.h"
#include "frame/path_read.h"
#include "frame/sysroot.h"
#include "frame/unique.h"

namespace vexo::disk {

namespace {

// VPD page 0x89 (ATA Information): the IDENTIFY data from byte 60.
constexpr std::size_t kVpd89Identify = 60;
constexpr std::size_t kIdentifySize = 512;
constexpr std::size_t kModelOffset = 54, kModelLength = 40;

std::string trimmed(std::string_view s)
{
	return std::string(vexo::trimSpace(s));
}

// A text that extends the recorded model (which the kernel cut).
bool extends(const std::string &whole, const char *recorded)
{
	const std::size_t n = std::strlen(recorded);
	return n > 0 && whole.size() >= n && whole.compare(0, n, recorded) == 0;
}

bool fromVpd(const char *name, std::string &out)
{
	const std::string file = std::string("/sys/block/") + name + "/device/vpd_pg89";
	UniqueFd fd(sysroot::open(file.c_str(), O_RDONLY | O_CLOEXEC));
	if (!fd)
		return false;
	unsigned char page[kVpd89Identify + kIdentifySize];
	std::size_t got = 0;
	while (got < sizeof(page)) {
		ssize_t n = ::read(fd.get(), page + got, sizeof(page) - got);
		if (n <= 0)
			break;
		got += static_cast<std::size_t>(n);
	}
	if (got < sizeof(page) || page[1] != 0x89)
		return false;
	out = identifyModel(page + kVpd89Identify);
	return !out.empty();
}

} // namespace

const char *modelSourceName(ModelSource s)
{
	switch (s) {
	case ModelSource::Cache:
		return "cache";
	case ModelSource::AtaVpd:
		return "ata_identify_vpd";
	case ModelSource::Record:
		break;
	}
	return "record";
}

std::string identifyModel(const unsigned char *identify)
{
	char text[kModelLength + 1];
	// ATA strings are big-endian words.
	for (std::size_t i = 0; i < kModelLength; i += 2) {
		text[i] = static_cast<char>(identify[kModelOffset + i + 1]);
		text[i + 1] = static_cast<char>(identify[kModelOffset + i]);
	}
	text[kModelLength] = '\0';
	return trimmed(std::string_view(text, strnlen(text, kModelLength)));
}

ModelSource wholeModel(const char *name, const char *recorded, std::string &out)
{
	// A name is one path component: a record read from a file can hold anything.
	if (!*name || name[0] == '.' || std::strchr(name, '/')) {
		out = recorded;
		return ModelSource::Record;
	}
	std::string dev = std::string("/dev/") + name;
	char cached[256] = "";
	if (VEXODiskGetStrValueCacheFile(dev.c_str(), "model", cached, sizeof(cached)) == 0) {
		std::string c = trimmed(cached);
		if (extends(c, recorded)) {
			out = c;
			return ModelSource::Cache;
		}
	}
	std::string v;
	if (fromVpd(name, v) && extends(v, recorded)) {
		out = v;
		return ModelSource::AtaVpd;
	}
	out = recorded;
	return ModelSource::Record;
}

} // namespace vexo::disk
