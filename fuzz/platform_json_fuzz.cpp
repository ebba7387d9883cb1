// The platform description /etc.defaults/vexoplatform.json as anyone may
// have written it: the description reader and the placement questions
// answered from it. Paths handed out stay in their buffers.
#include <cstddef>
#include <cstdint>
#include <vexoplatform/ebox_info.h>
#include <vexoplatform/nvme_admin.h>
#include <vexoplatform/nvme_location.h>

#include "fuzz_box.h"
#include "platform/board/platform_description.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
	vexo::fuzz::hostileDrive()(nullptr, 0);
	vexo::fuzz::put("/etc.defaults/vexoplatform.json", data, size);
	vexo::platform::Description d;
	(void)vexo::platform::loadDescription(d);
	int slot = 0, location = 0;
	(void)VEXONVMeDevLocGet("/dev/nvme0n1", &slot, &location);
	(void)VEXONVMeDevPortTypeCheck("/dev/nvme0n1");
	char text[64];
	vexo::fuzz::filled(VEXONVMeDevGetByLoc(1, 1, text, sizeof(text)), text, sizeof(text));
	(void)VEXOM2CardModelGet("/dev/nvme0n1");
	vexo::fuzz::filled(VEXOPcieEunitUniqueGetByDevPath("/dev/sda", text, sizeof(text)), text, sizeof(text));
	return 0;
}
