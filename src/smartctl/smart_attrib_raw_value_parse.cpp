// Numbers out of the 512-byte SMART data page: an attribute's raw value and
// the two temperature attributes.
#include <cstdio>
#include <vexohw/smart_temperature.h>

#include "frame/err.h"

namespace {

// 30 slots of 12 bytes from offset 2: id, flags (2), value, worst, raw (6),
// reserved.
constexpr int kSlotOffset = 2;
constexpr int kSlotSize = 12;
constexpr int kSlotCount = 30;
constexpr int kRawOffset = 5;
constexpr unsigned char kAirflowTemperatureId = 190;
constexpr unsigned char kTemperatureId = 194;

// The raw value of attribute id on page, or -1 when no slot holds it.
int temperatureOf(const unsigned char *page, unsigned char id)
{
	if (!page)
		return -1;
	for (int i = 0; i < kSlotCount; ++i) {
		const unsigned char *slot = page + kSlotOffset + i * kSlotSize;
		if (slot[0] == id) {
			char text[32];
			return static_cast<int>(SmartAttribRawValueParse(text, slot));
		}
	}
	return -1;
}

} // namespace

extern "C" {

VEXO_API long long SmartAttribRawValueParse(char *output, const unsigned char *slot)
try {
	if (!output || !slot) {
		vlog(LOG_ERR, "%s:%d Invalid input !", VEXO_AT);
		return -1;
	}
	const unsigned char *raw = slot + kRawOffset;
	// The temperatures keep the current degrees in the first raw byte; the
	// others hold the lowest and highest seen, which are not the value.
	if (slot[0] == kAirflowTemperatureId || slot[0] == kTemperatureId) {
		int v = raw[0];
		std::snprintf(output, 21, "%d", v);
		return v;
	}
	long long v = 0;
	for (int i = 5; i >= 0; --i)
		v = (v << 8) | raw[i];
	std::snprintf(output, 21, "%lld", v);
	return v;
} VEXO_C_CATCH(-1)

VEXO_API int SmartTemperatureGet(const unsigned char *page) try { return temperatureOf(page, kTemperatureId); } VEXO_C_CATCH(-1)

VEXO_API int SmartAirflowTempGet(const unsigned char *page) try { return temperatureOf(page, kAirflowTemperatureId); } VEXO_C_CATCH(-1)

} // extern "C"
