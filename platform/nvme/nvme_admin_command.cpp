// One NVMe admin command on a disk: the device node of the path, the
// passthrough ioctl and what its answer means.
#include "platform/nvme/nvme_admin_command.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <linux/nvme_ioctl.h>
#include <sys/ioctl.h>

#include <vexoplatform/vexoerr.h>

#include "frame/device.h"
#include "frame/err.h"
#include "frame/text.h"
#include "platform/board/platform_description.h"

namespace vexo::nvme {
namespace {

// "nvme<n>n<m>" (a namespace) or "nvme<n>" (a controller).
bool isNvmeName(const std::string &name)
{
	unsigned ctrl = 0, ns = 0;
	int used = 0;
	if (std::sscanf(name.c_str(), "nvme%un%u%n", &ctrl, &ns, &used) == 2 && static_cast<size_t>(used) == name.size())
		return ns > 0 && name.find_first_of("+- ") == std::string::npos;
	used = 0;
	return std::sscanf(name.c_str(), "nvme%u%n", &ctrl, &used) == 1 && static_cast<size_t>(used) == name.size() &&
	       name.find_first_of("+- ") == std::string::npos;
}

struct StatusName {
	int status; // status code type << 8 | status code
	const char *text;
};

// The statuses a controller gives to the commands sent here.
constexpr StatusName kStatuses[] = {
	{0x001, "Invalid Command Opcode"},
	{0x002, "Invalid Field in Command"},
	{0x004, "Data Transfer Error"},
	{0x005, "Commands Aborted due to Power Loss Notification"},
	{0x006, "Internal Error"},
	{0x007, "Command Abort Requested"},
	{0x00B, "Invalid Namespace or Format"},
	{0x00C, "Command Sequence Error"},
	{0x082, "Namespace Not Ready"},
	{0x109, "Invalid Log Page"},
	{0x11D, "Device Self-test in Progress"},
};

} // namespace

std::string devicePath(const char *path)
{
	std::string name = platform::diskName(path);
	if (name.empty() || !isNvmeName(name)) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		vlog(LOG_ERR, "%s:%d %s is not an NVMe device", VEXO_AT, path ? path : "(null)");
		return {};
	}
	return "/dev/" + name;
}

const char *statusText(int status)
{
	int key = status & 0x7FF; // without the retry and do-not-retry bits
	for (const auto &s : kStatuses)
		if (s.status == key)
			return s.text;
	return "unknown status";
}

int adminRead(const char *path, const char *what, uint8_t opcode, uint32_t nsid, uint32_t cdw10, uint32_t cdw11,
	      void *data, uint32_t length)
{
	std::string node = devicePath(path);
	if (node.empty())
		return -1;
	dev::Device d = dev::Device::open(node.c_str(), O_RDONLY | O_NONBLOCK);
	if (!d) {
		VEXO_ERR(VEXO_ERR_DEVICE);
		vlog(LOG_ERR, "%s:%d Failed to open %s, errno=%m", VEXO_AT, node.c_str());
		return -1;
	}
	nvme_admin_cmd cmd;
	std::memset(&cmd, 0, sizeof(cmd));
	cmd.opcode = opcode;
	cmd.nsid = nsid;
	cmd.addr = reinterpret_cast<uintptr_t>(data);
	cmd.data_len = length;
	cmd.cdw10 = cdw10;
	cmd.cdw11 = cdw11;
	int rc = d.ioctl(NVME_IOCTL_ADMIN_CMD, &cmd);
	if (rc < 0) {
		VEXO_ERR(VEXO_ERR_DEVICE);
		vlog(LOG_ERR, "%s:%d NVMe %s of %s failed, errno=%m", VEXO_AT, what, node.c_str());
		return -1;
	}
	if (rc > 0) {
		VEXO_ERR(VEXO_ERR_DEVICE);
		vlog(LOG_ERR, "%s:%d NVMe %s of %s failed with status 0x%x (%s)", VEXO_AT, what, node.c_str(), rc,
		     statusText(rc));
		return -1;
	}
	return 0;
}

int identifyController(const char *path, uint8_t (&page)[kIdentifySize])
{
	if (adminRead(path, "identify controller", kOpIdentify, 0, kCnsController, 0, page, kIdentifySize) != 0) {
		VEXO_ERR_PASS();
		return -1;
	}
	return 0;
}

int getLogPage(const char *path, unsigned lid, void *data, unsigned length)
{
	// NUMD counts dwords from 0: its low half in cdw10, its high half in cdw11.
	uint32_t numd = length / 4 - 1;
	char what[32];
	std::snprintf(what, sizeof(what), "log page %#x", lid);
	if (adminRead(path, what, kOpGetLogPage, kNsidAll, (lid & 0xFF) | (numd & 0xFFFF) << 16, numd >> 16, data,
		      length) != 0) {
		VEXO_ERR_PASS();
		return -1;
	}
	return 0;
}

std::string idText(const uint8_t *field, std::size_t length)
{
	std::size_t b = 0, e = length;
	auto pad = [](uint8_t c) { return c == ' ' || c == '\0'; };
	while (b < e && pad(field[b]))
		++b;
	while (e > b && pad(field[e - 1]))
		--e;
	std::string s(reinterpret_cast<const char *>(field + b), e - b);
	// A NUL inside the field ends the text, as a C string would.
	return s.substr(0, s.find('\0'));
}

bool copyOut(std::string_view text, char *out, int size, const char *what, const char *path)
{
	if (!vexo::copyText(out, size, text)) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		vlog(LOG_ERR, "%s:%d The %s of %s needs %zu bytes, the buffer has %d", VEXO_AT, what, path,
		     text.size() + 1, size);
		return false;
	}
	return true;
}

} // namespace vexo::nvme
