// The ADT and management controller models, the board's fan count, the
// user's fan settings, and the simulated box's own vcemd.xml.
#include <string>
#include <syslog.h>
#include <vector>
#include <vexohw/fan_config.h>
#include <vexohw/vcemd.h>

#include "box/build.h"
#include "box/tree.h"
#include "smartctl/drive_sim.h"
#include "support/vexotest.h"

using vexo::test::LogCapture;
using vexo::test::Sysroot;

namespace {

const bool kEmulator = vexo::test::installDriveEmulator();

void board(const Sysroot &root, const std::string &body, const std::string &info = "", int fans = 2)
{
	root.write(VEXO_FAN_CONFIG_DEFAULT_FILE, "<vcemd>" + body + "</vcemd>");
	if (fans >= 0)
		root.write("/dev/vexobios", "{\"board_fans\": " + std::to_string(fans) + "}");
	root.write("/etc.defaults/vexoinfo.conf", info);
	root.write("/etc/vexoinfo.conf", "");
}

std::string adtText(const VEXO_ADT_CONFIG_T &c)
{
	std::string s = "t" + std::to_string(c.type) + " fs" + std::to_string(c.full_speed) + "/" +
			std::to_string(c.full_speed_hyst) + " alerts";
	for (auto *a = c.alerts; a; a = a->next)
		s += " " + std::to_string(a->name) + ":" + std::to_string(a->alert_temp) + "/" +
		     std::to_string(a->full_speed_hyst);
	s += " pwms";
	for (auto *p = c.pwms; p; p = p->next)
		s += " " + std::to_string(p->name) + ":" + std::to_string(p->sensor_type) + ":" + std::to_string(p->high_freq) +
		     ":" + std::to_string(p->pwm_duty_low) + "-" + std::to_string(p->pwm_duty_high) + ":" +
		     std::to_string(p->pwm_min_below_tmin);
	s += " sensors";
	for (auto *n = c.sensors; n; n = n->next)
		s += " " + std::to_string(n->name) + ":" + std::to_string(n->therm) + "/" + std::to_string(n->crit_hyst);
	s += " manual";
	for (auto *t = c.manual_tables; t; t = t->next) {
		s += " " + std::to_string(t->type) + "[";
		for (uint32_t i = 0; i < t->count; ++i)
			s += std::to_string(t->levels[i].temp) + ":" + std::to_string(t->levels[i].fan_speed) + " ";
		s += "]";
	}
	s += " map";
	for (uint32_t i = 0; i < c.fan_mapping_count; ++i)
		s += " " + std::to_string(c.fan_mapping[i].order) + "/" + std::to_string(c.fan_mapping[i].module) + "/" +
		     std::to_string(c.fan_mapping[i].pwm);
	return s;
}

const char *kAlerts = "<alert_config name='disk' alert_temp='55' full_speed='58' full_speed_hyst='3'/>"
		      "<alert_config name='NIC' alert_temp='70'/><alert_config name='xnic01' alert_temp='80'/>"
		      "<alert_config name='cpu_temperature' alert_temp='90'/>";
const char *kMap = "<fan_mapping_config name='internal' order='2' pwm='pwm2'/>"
		   "<fan_mapping_config name='external' order='9'/><fan_mapping_config name='internal' module='1'/>";

TEST(FanAdt, Models)
{
	const struct {
		const char *what;
		std::string body;
		const char *info;
		int count;
		const char *first; // adtText of the first record, or of the derived one when count is 2
		const char *log;
	} cases[] = {
		{"sensors, dropped adapters, hysteresis in attribute order",
		 std::string("<adt_fan_config type='dual_mode_high' full_speed='85' full_speed_hyst='5'>") + kAlerts +
			 "<pwm_config name='pwm1' sensor_type='ALLPECI' high_freq='yes' pwm_duty_low='30' pwm_duty_high='100'/>"
			 "<pwm_config name='pwm4' sensor_type='peci9' pwm_min_below_tmin='no'/>"
			 "<sensor_config name='peci0' therm='90' crit_hyst='4'/><sensor_config crit_hyst='4' therm='90' "
			 "name='local'/>" +
			 kMap + "</adt_fan_config>",
		 "", 1,
		 "t0 fs85/80 alerts 2:55/55 3:90/0 pwms 1:4:1:30-100:1 0:0:0:0-0:0 sensors 0:90/86 5:90/-4 manual map "
		 "2/-1/2 0/1/0",
		 nullptr},
		{"manual tables and the derived full-speed record",
		 std::string("<adt_fan_config type='DUAL_MODE_HIGH'>") + kAlerts +
			 "<pwm_config name='pwm1' sensor_type='manual'/>"
			 "<manual_config name='cpu_temperature' temp='40' fan_speed='80'/>"
			 "<manual_config name='temperature' temp='30' fan_speed='60'/>"
			 "<manual_config name='cpu_temperature' temp='70' fan_speed='200'/>"
			 "<other name='cpu_temperature' temp='99'/>" +
			 kMap + "</adt_fan_config>",
		 "support_fan=\"yes\"\n", 2,
		 "t3 fs0/0 alerts 2:55/55 3:90/0 pwms 1:2:0:0-0:1 sensors manual 0[30:255 ] 3[40:255 ] map 2/-1/2 0/1/0",
		 nullptr},
		{"no HIGH record to derive from", "<adt_fan_config type='DUAL_MODE_LOW'/>", "support_fan=\"yes\"\n", -1,
		 nullptr, "Cannot find HIGH fan table."},
		{"more internal mappings than fans",
		 "<adt_fan_config><fan_mapping_config name='internal'/><fan_mapping_config name='internal'/>"
		 "<fan_mapping_config name='internal'/></adt_fan_config>",
		 "", -1, nullptr, "ADT Internal Fan Mapping parse fail"},
		{"a duty beyond a byte", "<adt_fan_config><pwm_config pwm_duty_high='256'/></adt_fan_config>", "", -1,
		 nullptr, "ADT PWM parse fail"},
		{"a bad alert", "<adt_fan_config><alert_config name='disk' alert_temp='hot'/></adt_fan_config>", "", -1,
		 nullptr, "ADT Fan alert parse fail"},
		{"no element", "<fan_config/>", "", -1, nullptr, "Error: [/vcemd/adt_fan_config] result nodes is 0"},
	};
	for (const auto &c : cases) {
		SCOPED_TRACE(c.what);
		Sysroot root;
		board(root, c.body, c.info);
		LogCapture log;
		VEXO_ADT_ADJUSTER_T m;
		ASSERT_EQ(VEXOFanADTAdjusterGet(&m, 1), c.count < 0 ? -1 : 0) << log.dump();
		if (c.count > 0) {
			ASSERT_EQ((int)m.count, c.count);
			EXPECT_EQ(adtText(m.configs[c.count - 1]), c.first);
		}
		if (c.log) {
			EXPECT_TRUE(log.has(LOG_ERR, c.log)) << log.dump();
		}
		VEXOAdjusterADTModelFree(&m);
	}
}

TEST(FanBmc, Models)
{
	const std::string good = "<bmc_fan_config type='DUAL_MODE_LOW' alert_duty='80' hw_version='B1'>"
				 "<alert_config name='disk' alert_temp='55' fullspd_hyst='3'/>"
				 "<alert_config name='xnic01' alert_temp='70'/><alert_config name='U2' shutdown_temp='75'/>"
				 "<fan_mapping_config name='internal' order='2'/><fan_mapping_config name='cpu' order='7'/>"
				 "<fan_mapping_config name='internal' order='1'/></bmc_fan_config>";
	const struct {
		const char *what;
		std::string body;
		const char *info;
		int fans;
		int result;
		const char *log;
	} cases[] = {
		{"parsed, with the derived record", good, "support_fan=\"yes\"\n", 2, 0, nullptr},
		{"no board device", good, "", -1, -1, "BMC Internal Fan Mapping parse fail"},
		{"a board without fans", good, "", 0, -1, "BMC Internal Fan Mapping parse fail"},
		{"no alert to derive from", "<bmc_fan_config><fan_mapping_config name='internal'/></bmc_fan_config>",
		 "support_fan=\"yes\"\n", 2, -1, "VEXOFanAdjusterConfigFullSpeedBMC() fail"},
		{"the empty result names the ADT path", "<adt_fan_config/>", "", 2, -1,
		 "Error: [/vcemd/adt_fan_config] result nodes is 0"},
	};
	for (const auto &c : cases) {
		SCOPED_TRACE(c.what);
		Sysroot root;
		board(root, c.body, c.info, c.fans);
		LogCapture log;
		VEXO_BMC_ADJUSTER_T m;
		ASSERT_EQ(VEXOFanBMCAdjusterGet(&m, 1), c.result) << log.dump();
		if (c.log) {
			EXPECT_TRUE(log.has(LOG_ERR, c.log)) << log.dump();
		} else {
			ASSERT_EQ(m.count, 2u);
			for (const VEXO_BMC_CONFIG_T &b : {m.configs[0], m.configs[1]}) {
				EXPECT_STREQ(b.hw_version, "B1");
				EXPECT_EQ(b.alert_duty, 80u);
				ASSERT_EQ(b.fan_mapping_count, 2u);
				EXPECT_EQ(b.fan_mapping[0], 2u);
				EXPECT_EQ(b.fan_mapping[1], 1u);
				ASSERT_NE(b.alerts, nullptr);
				EXPECT_EQ(b.alerts->fullspd_hyst, 3);
				EXPECT_EQ(b.alerts->next->name, 0); // adapters are not a BMC source
				EXPECT_EQ(b.alerts->next->next->name, FAN_TABLE_U2);
			}
			EXPECT_EQ(m.configs[1].type, DUAL_MODE_FULL);
			EXPECT_NE(m.configs[1].alerts, m.configs[0].alerts);
		}
		VEXOAdjusterBMCModelFree(&m);
	}
}

TEST(FanBoard, FanCount)
{
	const struct {
		const char *node; // null: no device
		int fans;
		const char *log;
	} cases[] = {
		{"{\"board_fans\": 3}", 3, nullptr},
		{"{\"board_fans\": 15}", 15, nullptr},
		{"{\"board_fans\": 0}", -1, nullptr},
		{"{\"model\": \"a disk\"}", -1, "Fail to get module type: errno=0x19."},
		{nullptr, -1, "Fail to open vexobios: errno=0x2."},
	};
	for (const auto &c : cases) {
		Sysroot root;
		if (c.node)
			root.write("/dev/vexobios", c.node);
		LogCapture log;
		EXPECT_EQ(VEXOFanNumGet(), c.fans);
		if (c.log) {
			EXPECT_TRUE(log.has(LOG_ERR, c.log)) << log.dump();
		}
	}
}

TEST(FanSettings, DualMode)
{
	const struct {
		const char *stored; // null: absent
		int internal, ebox;
	} reads[] = {{nullptr, 1, 5}, {"full", 3, 6}, {"HIGH", 0, 4}, {"low_stop", 2, 5}, {"low", 1, 5}, {"turbo", 1, 5}};
	for (const auto &c : reads) {
		Sysroot root;
		if (c.stored)
			root.conf("/etc/vexoinfo.conf",
				  {{"fan_config_type_internal", c.stored}, {"fan_config_type_ebox", c.stored}});
		EXPECT_EQ(VEXOFanAdjustDualModeGet("fan_config_type_internal"), c.internal) << c.stored;
		EXPECT_EQ(VEXOFanAdjustDualModeGet("fan_config_type_ebox"), c.ebox) << c.stored;
	}
	EXPECT_EQ(VEXOFanAdjustDualModeGet(nullptr), 1);

	const struct {
		int type;
		const char *key; // null: refused
		const char *value;
		const char *signal;
	} writes[] = {{0, "fan_config_type_internal", "high", "46"}, {1, "fan_config_type_internal", "low", "46"},
		      {2, "fan_config_type_internal", "low_stop", "46"}, {3, "fan_config_type_internal", "full", "46"},
		      {4, "fan_config_type_ebox", "high", "48"},	 {5, "fan_config_type_ebox", "low", "48"},
		      {6, "fan_config_type_ebox", "full", "48"},	 {7, nullptr, nullptr, nullptr},
		      {-1, nullptr, nullptr, nullptr}};
	for (const auto &c : writes) {
		SCOPED_TRACE(c.type);
		Sysroot root;
		root.conf("/etc/vexoinfo.conf", {{"fan_config_type_internal_backup", "low"}});
		root.write(VEXO_VCEMD_CONNECTOR_TOOL, "#!/bin/sh\necho \"$@\" > \"$VEXO_SYSROOT/tmp/notified\"\n", 0755);
		root.mkdirs("/tmp");
		ASSERT_EQ(VEXOFanAdjustDualModeSet(c.type), c.key ? 0 : -1);
		std::string conf = root.read("/etc/vexoinfo.conf");
		if (!c.key) {
			EXPECT_FALSE(root.exists("/tmp/notified"));
			continue;
		}
		EXPECT_NE(conf.find(std::string(c.key) + "=\"" + c.value + "\""), std::string::npos) << conf;
		EXPECT_EQ(conf.find("backup"), std::string::npos) << conf;
		EXPECT_EQ(root.read("/tmp/notified"), std::string("-signal ") + c.signal + "\n");
	}
}

TEST(FanSettings, SpeedAndTime)
{
	Sysroot root;
	LogCapture log;
	EXPECT_EQ(VEXOFanConfigSpeedGet(), 0); // no settings file
	EXPECT_TRUE(log.has(LOG_ERR, "Failed to get fan speed form vexoinfo.conf"));
	root.write("/etc/vexoinfo.conf", "");
	const struct {
		int set;
		const char *stored;
		int read;
		bool bad;
	} cases[] = {{1, "off", 1, false}, {2, "high", 2, false}, {3, "low", 3, false},
		     {0, "on", 0, false},  {4, "on", 0, true},	  {-2, "on", 0, false}};
	for (const auto &c : cases) {
		log.clear();
		EXPECT_EQ(VEXOFanConfigSpeedSet(c.set), 0);
		EXPECT_NE(root.read("/etc/vexoinfo.conf").find(std::string("fanspeed=\"") + c.stored + "\""),
			  std::string::npos);
		EXPECT_EQ(VEXOFanConfigSpeedGet(), c.read);
		EXPECT_EQ(log.has(LOG_ERR, "Bad FanSpeed"), c.bad) << c.set;
	}
	EXPECT_EQ(VEXOFanConfigTimeGet(), 0);
	EXPECT_EQ(VEXOFanConfigTimeSet("45"), 0);
	EXPECT_EQ(VEXOFanConfigTimeGet(), 45);
	EXPECT_EQ(VEXOFanConfigTimeSet(nullptr), -1);
}

// The box the demo runs on: its file parses into the values it was written with.
// The disk warning is the last internal group's: each group publishes its own.
TEST(FanBox, ShippedConfiguration)
{
	Sysroot root;
	{
		vexosim::Box box = vexosim::parse(vexo::test::sourceDir() + "/examples/box12.json");
		vexosim::Tree tree(root.root());
		vexosim::build(box, tree);
		tree.commit();
	}
	EXPECT_EQ(VEXOFanNumGet(), 2);
	VEXO_FAN_ADJUSTER_T m;
	ASSERT_EQ(VEXOFanAdjusterGet(&m, 1), 0);
	std::vector<std::string> groups;
	for (uint32_t i = 0; i < m.count; ++i) {
		std::string g = std::to_string(m.configs[i].type) + ":";
		for (auto *t = m.configs[i].tables; t; t = t->next)
			g += " " + std::to_string(t->type) + "x" + std::to_string(t->count);
		groups.push_back(g);
	}
	// xnic01 is in the box and has its table, so the generic one is dropped;
	// the low groups get their full-speed twins.
	EXPECT_EQ(groups, (std::vector<std::string>{"1: 2x4 3x3 5x3 6x3", "0: 2x3 3x2", "5: 4x3", "7: 3x3",
						     "3: 2x4 3x3 5x3 6x3", "6: 4x3"}));
	EXPECT_EQ(m.configs[0].warning_temp, 87);
	EXPECT_EQ(m.configs[0].hibernation_speed, FAN_SPEED_ULTRA_LOW);
	EXPECT_EQ(m.configs[2].modules[1].module, -1);
	EXPECT_EQ(root.read(VEXO_FAN_DISK_WARNING_FILE), "default=\"38\"\n");
	VEXOAdjusterModelFree(&m);
	VEXO_ADT_ADJUSTER_T adt;
	ASSERT_EQ(VEXOFanADTAdjusterGet(&adt, 1), 0);
	ASSERT_EQ(adt.count, 2u);
	EXPECT_EQ(adtText(adt.configs[1]), "t3 fs85/80 alerts 2:55/55 3:90/90 pwms 1:4:1:30-100:0 sensors 0:90/86 "
					   "manual map 1/-1/1 2/1/1");
	VEXOAdjusterADTModelFree(&adt);
	VEXO_BMC_ADJUSTER_T bmc;
	ASSERT_EQ(VEXOFanBMCAdjusterGet(&bmc, 1), 0);
	EXPECT_EQ(bmc.count, 2u);
	VEXOAdjusterBMCModelFree(&bmc);
}

} // namespace
