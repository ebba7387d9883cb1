// NVMe log pages: any page by number, and the composite temperature of the
// SMART / health information page.
#include <cstdint>
#include <cstring>

#include <vexoplatform/vexoerr.h>
#include <vexoplatform/nvme_admin.h>

#include "frame/err.h"
#include "platform/nvme/nvme_admin_command.h"

namespace {

constexpr unsigned kLogHealth = 0x02;
constexpr unsigned kHealthSize = 512;
constexpr size_t kCompositeTemperature = 1; // Kelvin, 16 bits little-endian
constexpr int kKelvinAtZeroCelsius = 273;

} // namespace

using namespace vexo::nvme;

extern "C" {

VEXOP_API int VEXONVMeLogGet(const char *path, unsigned int page, void *buffer, unsigned int length)
try {
	if (!path || !buffer || page > 0xFF || length == 0 || length > kLogMax) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		vlog(LOG_ERR, "%s:%d Bad parameters: log page %#x, %u bytes", VEXO_AT, page, length);
		return -1;
	}
	// The controller moves whole dwords; the caller's buffer is written
	// only on success, and only its own length.
	uint8_t data[kLogMax];
	unsigned whole = (length + 3) / 4 * 4;
	if (getLogPage(path, page, data, whole) != 0) {
		VEXO_ERR_PASS();
		return -1;
	}
	std::memcpy(buffer, data, length);
	return 0;
} VEXO_C_CATCH(-1)

VEXOP_API int VEXONVMeTemperatureGet(const char *path)
try {
	if (!path) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		vlog(LOG_ERR, "%s:%d Bad parameters", VEXO_AT);
		return -1;
	}
	uint8_t log[kHealthSize];
	if (getLogPage(path, kLogHealth, log, sizeof(log)) != 0) {
		VEXO_ERR_PASS();
		return -1;
	}
	int kelvin = log[kCompositeTemperature] | log[kCompositeTemperature + 1] << 8;
	if (kelvin == 0) {
		VEXO_ERR(VEXO_ERR_UNSUPPORTED);
		vlog(LOG_ERR, "%s:%d %s reports no composite temperature", VEXO_AT, path);
		return -1;
	}
	return kelvin - kKelvinAtZeroCelsius;
} VEXO_C_CATCH(-1)

} // extern "C"
