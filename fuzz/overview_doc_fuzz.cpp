// The disk overview document as a damaged appliance may carry it for years:
// the model check reads it as it is; a document that parses is then updated
// by a counter writer and brought up to date by boot, which walk and repair
// every element.
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vexohw/disk_overview.h>

#include "frame/xml.h"
#include "fuzz_box.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
	vexo::fuzz::hostileDrive()(nullptr, 0);
	vexo::fuzz::put(VEXO_DISK_OVERVIEW_XML, data, size);
	(void)VEXODiskOverviewModelCheck("ST8000VN004-2M2101");
	std::string_view text(reinterpret_cast<const char *>(data), size);
	// A damaged file is rebuilt from the box's disks: that path has its own
	// tests and would only make every run slow.
	if (!vexo::xml::root(vexo::xml::readMemory(text), "overview"))
		return 0;
	VEXODiskXmlAttrCtUpdate("unc", "ZA1B2C3D");
	(void)VEXODiskOverviewXmlInit(nullptr);
	(void)VEXODiskOverviewModelCheck("");
	return 0;
}
