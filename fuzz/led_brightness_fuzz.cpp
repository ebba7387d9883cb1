// led_brightness.xml and the stored settings as a damaged board image or a
// hand-edited /etc/vexoinfo.conf may carry them (the two parts of an input
// are cut at a NUL byte): the description is loaded, read and freed, and
// the schedule applied, whatever they hold.
#include <cstddef>
#include <cstdint>
#include <vexohw/led.h>

#include "fuzz_box.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
	vexo::fuzz::hostileDrive()(nullptr, 0);
	auto parts = vexo::fuzz::pieces(data, size, 2);
	auto put = [](const char *path, std::string_view s) {
		vexo::fuzz::put(path, reinterpret_cast<const uint8_t *>(s.data()), s.size());
	};
	put(VEXO_LED_BRIGHTNESS_DEFAULT_FILE, parts.empty() ? std::string_view() : parts[0]);
	put(VEXO_LED_BRIGHTNESS_SETTINGS_FILE, parts.size() < 2 ? std::string_view() : parts[1]);
	clearLedBrightnessConfig(initLedBrightnessConfig());
	int32_t range[3];
	(void)VEXOGetLedBrightnessStaticData(range);
	int level = 0;
	char schedule[VEXO_LED_SCHEDULE_LENGTH + 1];
	(void)VEXOGetLedBrightnessConfiguration(&level, schedule);
	(void)VEXOUpdateLedBrightnessByConfiguration(0);
	(void)VEXOUpdateLedBrightnessByConfiguration(1);
	return 0;
}
