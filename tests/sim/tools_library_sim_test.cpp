// The library reading drives through the distribution's tools, as on the
// appliance: the attribute list from smartctl's table (the temperature's raw
// value is printed as several words, of which the first is kept), the SCT
// temperature from sg_raw's dump.
#include <vexohw/smart_info.h>
#include <vexohw/smart_temperature.h>

#include "sim/tools_sim.h"

namespace vexo::test {
namespace {

const bool kEmulator = installDriveEmulator();

using LibraryThroughTools = ToolsSim;

TEST_F(LibraryThroughTools, AttributeListFromSmartctl)
{
	node("sda", R"({"protocol":"ata","smart":{"attributes":[
		{"id":5,"flags":51,"value":1,"worst":1,"threshold":36,"raw":4095},
		{"id":3,"flags":39,"value":100,"worst":20,"threshold":25,"raw":38928978},
		{"id":194,"flags":34,"value":45,"worst":58,"threshold":0,"raw":47244640301},
		{"id":240,"flags":0,"value":100,"worst":253,"threshold":0,"raw":5185}]}})");
	struct Want {
		const char *id, *name, *value, *worst, *threshold, *raw;
		uint32_t status;
	} want[] = {
		{"5", "Reallocated_Sector_Ct", "001", "001", "036", "4095", SMART_ATTR_STATUS_FAILING_NOW},
		{"3", "Spin_Up_Time", "100", "020", "025", "594", SMART_ATTR_STATUS_FAILED_PAST},
		{"194", "Temperature_Celsius", "045", "058", "000", "45", SMART_ATTR_STATUS_GOOD},
		{"240", "Head_Flying_Hours", "100", "253", "000", "5185", SMART_ATTR_STATUS_GOOD},
	};
	for (const char *type : {"sat", "ata", "marvell"}) {
		SCOPED_TRACE(type);
		SmartInfoEntry *list = nullptr;
		ASSERT_EQ(AtaSmartInfoGet("/dev/sda", type, &list), 0);
		size_t i = 0;
		for (const SmartInfoEntry *e = list; e; e = e->next, ++i) {
			ASSERT_LT(i, std::size(want));
			EXPECT_STREQ(e->id, want[i].id);
			EXPECT_STREQ(e->name, want[i].name);
			EXPECT_STREQ(e->value, want[i].value);
			EXPECT_STREQ(e->worst, want[i].worst);
			EXPECT_STREQ(e->threshold, want[i].threshold);
			EXPECT_STREQ(e->raw, want[i].raw);
			EXPECT_EQ(e->status, want[i].status);
		}
		EXPECT_EQ(i, std::size(want));
		VEXODiskSmartInfoFree(list);
	}
}

TEST_F(LibraryThroughTools, SctTemperatureFromSgRaw)
{
	root.diskDir("sda");
	root.write("/run/vexostorage/disks/sda/sct_cmd_support", "1");
	for (int t : {47, 100, 101}) {
		SCOPED_TRACE(t);
		root.remove("/dev/sda");
		node("sda", R"({"protocol":"ata","temperature":)" + std::to_string(t) + "}");
		EXPECT_EQ(VEXODiskSCTTemperatureGet("/dev/sda"), t <= 100 ? t : -1);
	}
	EXPECT_NE(last("sda").find("cdb=85080e0000000100e000000000002f00 -> ok"), std::string::npos) << last("sda");
}

} // namespace
} // namespace vexo::test
