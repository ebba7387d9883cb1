// NVMe admin commands through the kernel's passthrough ioctl (not exported;
// the calls are in <vexoplatform/nvme_admin.h>).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace vexo::nvme {

constexpr uint8_t kOpGetLogPage = 0x02;
constexpr uint8_t kOpIdentify = 0x06;
constexpr uint32_t kNsidAll = 0xFFFFFFFF;
constexpr uint32_t kCnsController = 1;
constexpr std::size_t kIdentifySize = 4096;
// Longest log read in one command: far below any controller's transfer limit.
constexpr unsigned kLogMax = 4096;

// Offsets in Identify Controller.
constexpr std::size_t kIdVid = 0, kIdSsvid = 2, kIdSn = 4, kIdMn = 24, kIdFr = 64;
constexpr std::size_t kIdOacs = 256, kIdEdstt = 316;
constexpr unsigned kOacsSelfTest = 0x10;
constexpr std::size_t kSnLen = 20, kMnLen = 40, kFrLen = 8;

// The device node of an NVMe path: "/dev/nvme0n1" for "nvme0n1",
// "/dev/nvme0n1p2" or "/dev/nvme0n1"; the controller "/dev/nvme0" as given.
// "" (0x0D00 recorded, a line logged) for anything else.
std::string devicePath(const char *path);

// Runs one admin command on the device of `path`, reading `length` bytes
// into `data`. `what` names the command in log lines. 0, or -1 with
// 0x6C00 recorded and a line logged (a failed open, an ioctl error, or a
// status from the controller).
int adminRead(const char *path, const char *what, uint8_t opcode, uint32_t nsid, uint32_t cdw10, uint32_t cdw11,
	      void *data, uint32_t length);

// Identify Controller into page.
int identifyController(const char *path, uint8_t (&page)[kIdentifySize]);

// Get Log Page `lid` for all namespaces; `length` is a positive multiple of
// 4, at most kLogMax.
int getLogPage(const char *path, unsigned lid, void *data, unsigned length);

// An Identify text field: padding (spaces, NULs) cut from both ends, inner
// spaces kept.
std::string idText(const uint8_t *field, std::size_t length);

// The maker named by a PCI vendor id, or null when the id is not a drive
// maker of the table.
const char *vendorByPciId(uint16_t id);

// The meaning of a status the controller returned, for log lines.
const char *statusText(int status);

// Copies text with its NUL into out; false (0x0D00 recorded, a line logged)
// when it does not fit.
bool copyOut(std::string_view text, char *out, int size, const char *what, const char *path);

} // namespace vexo::nvme
