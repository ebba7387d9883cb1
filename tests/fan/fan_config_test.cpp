// Fan configuration: codes and names, the registries, the parsers of
// vcemd.xml over files in a throw-away root, the derived full-speed
// records, and the settings.
#include <atomic>
#include <cstddef>
#include <cstring>
#include <string>
#include <syslog.h>
#include <thread>
#include <vector>
#include <vexohw/ext.h>
#include <vexohw/fan_config.h>

#include "smartctl/drive_sim.h"
#include "support/vexotest.h"

using vexo::test::LogCapture;
using vexo::test::Sysroot;

namespace {

const bool kEmulator = vexo::test::installDriveEmulator();

// The records as a C caller lays them out.
static_assert(offsetof(VEXO_FAN_CONFIG_T, flag0) == 8 && offsetof(VEXO_FAN_CONFIG_T, hw_version) == 16 &&
	      offsetof(VEXO_FAN_CONFIG_T, warning_temp) == 24 && offsetof(VEXO_FAN_CONFIG_T, tables) == 40 &&
	      offsetof(VEXO_FAN_CONFIG_T, modules) == 56 && sizeof(VEXO_FAN_CONFIG_T) == 64);
static_assert(offsetof(VEXO_TEMPERATURE_FAN_LEVEL_T, index) == 20 && sizeof(VEXO_TEMPERATURE_FAN_LEVEL_T) == 24);
static_assert(offsetof(VEXO_FAN_TABLE_T, count) == 16 && offsetof(VEXO_FAN_TABLE_T, next) == 32);
static_assert(offsetof(VEXO_FAN_CONFIG_OPS_T, SpeedChange) == 40 && offsetof(VEXO_FAN_TABLE_OPS_T, next) == 40);
static_assert(offsetof(VEXO_ADT_CONFIG_T, alerts) == 32 && offsetof(VEXO_ADT_CONFIG_T, manual_tables) == 64);
static_assert(offsetof(VEXO_ADT_PWM_T, pwm_min_below_tmin) == 11 && offsetof(VEXO_ADT_SENSOR_T, crit_hyst) == 16);
static_assert(offsetof(VEXO_BMC_CONFIG_T, alert_duty) == 28 && offsetof(VEXO_BMC_CONFIG_T, alerts) == 32);
static_assert(offsetof(VEXO_FAN_STATUS_T, last_update) == 24 && offsetof(VEXO_FAN_STATUS_T, next) == 48);

std::string speedText(unsigned code)
{
	char buf[16] = {};
	return VEXOExtFanSpeedText(code, buf, sizeof buf) == 0 ? buf : "<fail>";
}

TEST(FanCodes, SpeedTextsReadAndShow)
{
	const struct {
		const char *text;
		uint32_t code;
		const char *shown;
	} cases[] = {
		{"STOP", 1, "STOP"},	      {"ultra_low", 2, "ULTRA LOW"},   {"Very_High", 7, "VERY HIGH"},
		{"FULL", 9, "FULL"},	      {"00", 10, "000"},	       {"000", 10, "000"},
		{"01", 11, "001"},	      {"11", 13, "011"},	       {"111", 17, "111"},
		{"40%25hz", 1000 + 40 + 25 * 256, "40%25hz"}, {"5%", 1005, "05%00hz"},
		{"%25hz", 1000 + 25 * 256, "00%25hz"},	       {"%", 1000, "00%00hz"},
		{"99999999%99999999hz", 1000 + 255 + 0xFFFF * 256, "255%65535hz"},
		{"ULTRA LOW", 0, "UNKNOWN"},  {"", 0, "UNKNOWN"},	       {"0001", 0, "UNKNOWN"},
	};
	for (const auto &c : cases) {
		uint32_t code = 77;
		ASSERT_EQ(VEXOFanSpeedMatch(c.text, &code), 0) << c.text;
		EXPECT_EQ(code, c.code) << c.text;
		EXPECT_EQ(speedText(code), c.shown) << c.text;
	}
	for (unsigned code : {18u, 999u})
		EXPECT_EQ(speedText(code), "UNKNOWN");
	LogCapture log;
	uint32_t kept = 5;
	EXPECT_EQ(VEXOFanSpeedMatch(nullptr, &kept), -1);
	EXPECT_EQ(kept, 5u);
	EXPECT_EQ(VEXOFanSpeedMatch("HIGH", nullptr), -1);
	EXPECT_EQ(log.count(LOG_ERR, "arguments error"), 2);
	char small[4];
	EXPECT_EQ(VEXOExtFanSpeedText(2, small, sizeof small), -1); // "ULTRA LOW" does not fit
}

TEST(FanCodes, NamesAndTypes)
{
	const struct {
		const char *text;
		FAN_CONFIG_TYPE type;
	} types[] = {{"dual_mode_high", DUAL_MODE_HIGH}, {"DUAL_MODE_LOW_STOP", DUAL_MODE_LOW_STOP},
		     {"CpuFan", CPUFAN},		 {"DUAL_MODE_FULL_EBOX", DUAL_MODE_FULL_EBOX},
		     {"quiet", DUAL_MODE_LOW},		 {nullptr, DUAL_MODE_LOW}};
	for (const auto &c : types) {
		FAN_CONFIG_TYPE t = CPUFAN;
		EXPECT_EQ(VEXOFanConfigTypeMatch(c.text, &t), 0);
		EXPECT_EQ(t, c.type) << (c.text ? c.text : "null");
	}
	const int names[] = {1, 1, 1, 1, 2, 2, 2, 3, 0, 0};
	for (int type = 0; type < 10; ++type)
		EXPECT_EQ(VEXOFanConfigNameGet(type), names[type]) << type;
	EXPECT_EQ(VEXOFanConfigNameGet(-1), 0);

	const struct {
		int type;
		const char *element;
		int device; // -1: none
		int nic;
	} tables[] = {{1, "temperature", -1, 0},	 {2, "disk_temperature", -1, 0}, {4, "disk_temperature", -1, 0},
		      {8, "xnic03_temperature", 0x2002, 1}, {11, "nic_temperature", -1, 1}, {12, "sas_temperature", -1, 0},
		      {18, "xnic12_temperature", 0x100A, 1}, {19, "unknown", -1, 0},	 {20, "unknown", -1, 0},
		      {21, "sysdisk_temperature", -1, 0},   {25, "xnic10_temperature", 0x100E, 1}, {26, "unknown", -1, 0},
		      {0, "unknown", -1, 0}};
	for (const auto &c : tables) {
		EXPECT_STREQ(VEXOFanTableNameGet(c.type), c.element) << c.type;
		int vendor = 0, device = 0;
		EXPECT_EQ(VEXOFanTableNicSSIDGet(c.type, &vendor, &device), c.device < 0 ? -1 : 0) << c.type;
		if (c.device >= 0) {
			EXPECT_EQ(device, c.device);
		}
		EXPECT_EQ(VEXOFanIsNicFanTable(c.type), c.nic) << c.type;
	}
	const struct {
		const char *name;
		int device;
	} nics[] = {{"XNIC03", 0x2002}, {"xnic07_temperature", 0x100D}, {"nic", 0}, {"disk", 0}, {nullptr, 0}};
	for (const auto &c : nics) {
		int vendor = 0, device = 0;
		EXPECT_EQ(VEXOFanIsVexoNicConfigName(c.name, &vendor, &device), c.device ? 1 : 0);
		EXPECT_EQ(device, c.device);
		EXPECT_EQ(vendor, c.device ? 0x7053 : 0);
	}
	uint32_t action = 9;
	const struct {
		const char *text;
		uint32_t action;
	} actions[] = {{"alert_led", 1}, {"SHUTDOWN", 2}, {"NONE", 0}, {"panic", 0}};
	for (const auto &c : actions) {
		EXPECT_EQ(VEXOFanActionMatch(c.text, &action), 0);
		EXPECT_EQ(action, c.action) << c.text;
	}
}

TEST(FanRegistry, LookupByNumber)
{
	VEXOFanConfigOpsListInit();
	VEXOFanTableTypeOpsListInit();
	for (int name : {1, 2, 3, 4, 9, 11, 18})
		ASSERT_NE(VEXOFanConfigOpsGet(name), nullptr) << name;
	for (int name : {0, 10, 19})
		EXPECT_EQ(VEXOFanConfigOpsGet(name), nullptr) << name;
	for (int type = 1; type <= 25; ++type)
		EXPECT_EQ(VEXOFanTableTypeOpsGet(type) != nullptr, type != 19 && type != 20) << type;

	// A record of type 0 or 26 is refused; a new one shadows the old.
	static VEXO_FAN_TABLE_OPS_T bad0{}, bad26{}, mine{};
	bad26.type = FAN_TABLE_END;
	mine.type = FAN_TABLE_CPU;
	VEXO_FAN_TABLE_OPS_T *before = VEXOFanTableTypeOpsGet(FAN_TABLE_CPU);
	VEXOFanTableTypeOpsRegister(&bad0);
	VEXOFanTableTypeOpsRegister(&bad26);
	VEXOFanTableTypeOpsRegister(nullptr);
	EXPECT_EQ(VEXOFanTableTypeOpsGet(0), nullptr);
	EXPECT_EQ(VEXOFanTableTypeOpsGet(26), nullptr);
	VEXOFanTableTypeOpsRegister(&mine);
	VEXOFanTableTypeOpsRegister(&mine); // twice would make a cycle
	EXPECT_EQ(VEXOFanTableTypeOpsGet(FAN_TABLE_CPU), &mine);
	VEXOFanTableTypeOpsListInit(); // has a head: nothing changes
	EXPECT_EQ(VEXOFanTableTypeOpsGet(FAN_TABLE_CPU), &mine);

	// Forgotten and rebuilt, from many threads at once.
	VEXOFanTableTypeOpsListFree();
	VEXOFanConfigOpsListFree();
	EXPECT_EQ(VEXOFanTableTypeOpsGet(FAN_TABLE_THERMAL), nullptr);
	std::vector<std::thread> threads;
	std::atomic<int> misses{0};
	for (int i = 0; i < 8; ++i)
		threads.emplace_back([&] {
			VEXOFanConfigOpsListInit();
			VEXOFanTableTypeOpsListInit();
			misses += VEXOFanConfigOpsGet(1) == nullptr || VEXOFanTableTypeOpsGet(12) == nullptr;
		});
	for (auto &t : threads)
		t.join();
	EXPECT_EQ(misses, 0);
	EXPECT_EQ(VEXOFanTableTypeOpsGet(FAN_TABLE_CPU), before);
	// Registered CPU fan, ebox, adapters, internal: walked from the head.
	std::string order;
	for (VEXO_FAN_CONFIG_OPS_T *p = VEXOFanConfigOpsGet(1); p; p = p->next)
		order += std::to_string(p->type) + " ";
	EXPECT_EQ(order, "1 18 17 16 15 14 13 12 11 9 8 7 6 5 4 2 3 ");
}

// A root with a vcemd.xml, a board of two fans and, on request, adapters.
struct Board {
	Sysroot root;
	explicit Board(const std::string &xml, std::vector<int> nics = {}, const std::string &info = "")
	{
		root.write(VEXO_FAN_CONFIG_DEFAULT_FILE, xml);
		root.write("/dev/vexobios", "{\"board_fans\": 2}");
		root.write("/etc.defaults/vexoinfo.conf", info);
		root.write("/etc/vexoinfo.conf", "");
		root.mkdirs("/var/lock");
		root.mkdirs("/run");
		char id[16];
		for (size_t i = 0; i < nics.size(); ++i) {
			std::string dir = "/sys/bus/pci/devices/0000:0" + std::to_string(i + 1) + ":00.0/";
			root.write(dir + "subsystem_vendor", "0x7053\n");
			std::snprintf(id, sizeof id, "0x%04x\n", nics[i]);
			root.write(dir + "subsystem_device", id);
		}
	}
};

std::string vcemd(const std::string &body) { return "<vcemd>" + body + "</vcemd>"; }

std::string levels(const VEXO_FAN_TABLE_T *t)
{
	std::string s;
	for (uint32_t i = 0; i < t->count; ++i) {
		const auto &l = t->levels[i];
		s += std::to_string(l.temperature) + ":" + std::to_string(l.speed) + ":" + std::to_string(l.action) + ":" +
		     std::to_string(l.period) + "/" + std::to_string(l.threshold) + " ";
	}
	return s;
}

std::string types(const VEXO_FAN_TABLE_T *t)
{
	std::string s;
	for (; t; t = t->next)
		s += std::to_string(t->type) + " ";
	return s;
}

TEST(FanParse, TablesOfAGroup)
{
	const struct {
		const char *what;
		std::string body;
		std::vector<int> nics;
		const char *types;
		const char *first; // levels of the first table
		int warning;
		const char *log;
	} cases[] = {
		{"defaults, inherited period and threshold, level override",
		 "<fan_config><temperature fan_speed='LOW'>30</temperature>"
		 "<temperature fan_speed='HIGH' action='ALERT_LED' period='5'>50</temperature>"
		 "<temperature fan_speed='FULL' action='SHUTDOWN' threshold='2'>70</temperature></fan_config>",
		 {}, "1 ", "30:4:0:20/6 50:6:1:5/6 70:9:2:20/2 ", 60, nullptr},
		{"last level made a shutdown one and brought to 120",
		 "<fan_config period='9' threshold='3'><temperature>40</temperature>"
		 "<temperature fan_speed='FULL'>130</temperature></fan_config>",
		 {}, "1 ", "40:0:0:9/3 120:9:2:9/3 ", 80,
		 "modify last temperature action of <temperature> from 0 to shutdown."},
		{"120 itself stands", "<fan_config><temperature action='SHUTDOWN'>100</temperature>"
		 "<temperature action='SHUTDOWN'>120</temperature></fan_config>",
		 {}, "1 ", "100:0:2:20/6 120:0:2:20/6 ", 110, nullptr},
		{"cpu overrides the thermal warning; ascending type order",
		 "<fan_config><cpu_temperature action='SHUTDOWN'>80</cpu_temperature><cpu_temperature "
		 "action='SHUTDOWN'>90</cpu_temperature><temperature>40</temperature><temperature "
		 "action='SHUTDOWN'>60</temperature></fan_config>",
		 {}, "1 3 ", "40:0:0:20/6 60:0:2:20/6 ", 85, nullptr},
		{"a single level stands for the one before it",
		 "<fan_config><temperature action='SHUTDOWN'>70</temperature></fan_config>", {}, "1 ", "70:0:2:20/6 ", 70,
		 nullptr},
		{"names without regard to case",
		 "<FAN_CONFIG TYPE='dual_mode_high' PERIOD='7'><Disk_Temperature FAN_SPEED='high'>30</Disk_Temperature>"
		 "<DISK_TEMPERATURE Action='shutdown'>60</DISK_TEMPERATURE></FAN_CONFIG>",
		 {}, "2 ", "30:6:0:7/6 60:0:2:7/6 ", -1, nullptr},
		{"disk_temperature is type 4 in an ebox group",
		 "<fan_config type='DUAL_MODE_LOW_EBOX'><disk_temperature>30</disk_temperature></fan_config>", {}, "4 ",
		 "30:0:2:20/6 ", -1, nullptr},
		{"absent adapters are skipped; the generic table too when nothing lacks one",
		 "<fan_config><xnic01_temperature>30</xnic01_temperature><nic_temperature>40</nic_temperature>"
		 "<sas_temperature>50</sas_temperature></fan_config>",
		 {}, "12 ", "50:0:2:20/6 ", -1, nullptr},
		{"an inserted adapter with its own table: generic one dropped",
		 "<fan_config><nic_temperature>40</nic_temperature><xnic01_temperature>30</xnic01_temperature>"
		 "<m2_temperature>50</m2_temperature></fan_config>",
		 {0x1001}, "5 6 ", "50:0:2:20/6 ", -1, nullptr},
		{"an inserted adapter without one: generic table last",
		 "<fan_config><nic_temperature>40</nic_temperature><xnic01_temperature>30</xnic01_temperature>"
		 "<sas_temperature>50</sas_temperature></fan_config>",
		 {0x1001, 0x1002}, "6 12 11 ", "30:0:2:20/6 ", -1, nullptr},
	};
	for (const auto &c : cases) {
		SCOPED_TRACE(c.what);
		Board b(vcemd(c.body), c.nics);
		LogCapture log;
		VEXO_FAN_ADJUSTER_T m;
		ASSERT_EQ(VEXOFanAdjusterGet(&m, 1), 0) << log.dump();
		ASSERT_EQ(m.count, 1u);
		EXPECT_EQ(types(m.configs[0].tables), c.types);
		EXPECT_EQ(levels(m.configs[0].tables), c.first);
		EXPECT_EQ(m.configs[0].warning_temp, c.warning);
		EXPECT_NE(m.configs[0].ops, nullptr);
		if (c.log) {
			EXPECT_TRUE(log.has(LOG_ERR, c.log)) << log.dump();
		}
		VEXOAdjusterModelFree(&m);
		EXPECT_EQ(m.configs, nullptr);
	}
}

TEST(FanParse, FailuresLeaveAFreeableModel)
{
	const struct {
		const char *what;
		const char *xml; // null: no file
		const char *log;
	} cases[] = {
		{"missing file", nullptr, "No fan config in [/usr/vexo/etc.defaults/vcemd.xml]"},
		{"damaged XML", "<vcemd><fan_config><temperature>40</temp", "Fail to parse"},
		{"no fan_config", "<vcemd><adt_fan_config/></vcemd>", "Error: [/vcemd/fan_config] result nodes is 0"},
		{"wrong root", "<board><fan_config/></board>", "result nodes is 0"},
		{"bad temperature", "<vcemd><fan_config/><fan_config><temperature>4O</temperature></fan_config></vcemd>",
		 "Temperature node parse fail"},
		{"negative temperature", "<vcemd><fan_config><temperature>-5</temperature></fan_config></vcemd>",
		 "Get <temperature> Fan Table fail"},
		{"bad period", "<vcemd><fan_config period='20s'/></vcemd>", "is not a number"},
		{"threshold beyond 32 bits", "<vcemd><fan_config><temperature threshold='4294967296'>1</temperature>"
		 "</fan_config></vcemd>", "is not a number"},
		{"bad ebox module", "<vcemd><fan_config type='DUAL_MODE_HIGH_EBOX'><fan_module_config module='x'/>"
		 "</fan_config></vcemd>", "Ebox Fan Mapping parse fail"},
	};
	for (const auto &c : cases) {
		SCOPED_TRACE(c.what);
		Board b(c.xml ? c.xml : "");
		if (!c.xml)
			b.root.remove(VEXO_FAN_CONFIG_DEFAULT_FILE);
		LogCapture log;
		VEXO_FAN_ADJUSTER_T m;
		EXPECT_EQ(VEXOFanAdjusterGet(&m, 1), -1);
		EXPECT_TRUE(log.has(LOG_ERR, c.log)) << log.dump();
		// A second call frees the partial model first (ASan would see a leak or a double free).
		EXPECT_EQ(VEXOFanAdjusterGet(&m, 0), -1);
		VEXOAdjusterModelFree(&m);
	}
	VEXOAdjusterModelFree(nullptr);
	EXPECT_EQ(VEXOFanParsingConfig(nullptr, nullptr), -1);
}

TEST(FanParse, CustomFileFirstThenDefaults)
{
	Board b(vcemd("<fan_config><temperature>40</temperature><temperature>50</temperature></fan_config>"));
	b.root.write("/etc/vexoinfo.conf", "custom_fan_control=\"YES\"\n");
	LogCapture log;
	VEXO_FAN_ADJUSTER_T m;
	ASSERT_EQ(VEXOFanAdjusterGet(&m, 1), 0);
	EXPECT_TRUE(log.has(LOG_ERR, "No fan config in [/usr/vexo/etc/vcemd.xml], use default solution"));
	b.root.write(VEXO_FAN_CONFIG_CUSTOM_FILE, vcemd("<fan_config><cpu_temperature>70</cpu_temperature></fan_config>"));
	ASSERT_EQ(VEXOFanAdjusterGet(&m, 0), 0);
	EXPECT_EQ(types(m.configs[0].tables), "3 ");
	VEXOAdjusterModelFree(&m);
}

TEST(FanParse, EboxModules)
{
	std::string nine;
	for (int i = 1; i <= 9; ++i)
		nine += "<fan_module_config order='" + std::to_string(i) + "' module='" + std::to_string(i * 10) + "'/>";
	const struct {
		std::string modules;
		const char *expect;
		bool outOfRange;
	} cases[] = {
		{"<fan_module_config order='1'/><fan_module_config order='2'/>", "1/-1 2/-1 0/-1 0/-1 0/-1 0/-1 0/-1 0/-1 ",
		 false},
		{nine, "1/10 2/20 3/30 4/40 5/50 6/60 7/70 8/80 ", true},
	};
	for (const auto &c : cases) {
		Board b(vcemd("<fan_config type='DUAL_MODE_HIGH_EBOX'><disk_temperature>40</disk_temperature>" +
			      c.modules + "</fan_config>"));
		LogCapture log;
		VEXO_FAN_ADJUSTER_T m;
		ASSERT_EQ(VEXOFanAdjusterGet(&m, 1), 0);
		std::string got;
		for (int i = 0; i < VEXO_FAN_MODULE_MAX; ++i)
			got += std::to_string(m.configs[0].modules[i].order) + "/" +
			       std::to_string(m.configs[0].modules[i].module) + " ";
		EXPECT_EQ(got, c.expect);
		EXPECT_EQ(log.has(LOG_ERR, "Out of range."), c.outOfRange);
		VEXOAdjusterModelFree(&m);
	}
}

// A folder in the way of the disk warning file: logged, and the parse
// still stands. What lands there is FanBox.ShippedConfiguration's.
TEST(FanParse, DiskWarningUnwritable)
{
	Board b(vcemd("<fan_config><disk_temperature>30</disk_temperature><disk_temperature>52</disk_temperature>"
		      "<disk_temperature>61</disk_temperature></fan_config>"));
	b.root.mkdirs(VEXO_FAN_DISK_WARNING_FILE);
	LogCapture log;
	VEXO_FAN_ADJUSTER_T m;
	ASSERT_EQ(VEXOFanAdjusterGet(&m, 1), 0);
	EXPECT_TRUE(log.has(LOG_ERR, "set disk warning key fail")) << log.dump();
	VEXOAdjusterModelFree(&m);
}

TEST(FanParse, FullSpeedRecords)
{
	const std::string xml = vcemd(
		"<fan_config type='DUAL_MODE_LOW' hw_version='HW1'><temperature fan_speed='LOW'>30</temperature>"
		"<temperature fan_speed='ULTRA_HIGH'>50</temperature><temperature fan_speed='MIDDLE'>60</temperature>"
		"<cpu_temperature fan_speed='20%25hz'>40</cpu_temperature><cpu_temperature fan_speed='60%1hz'>80"
		"</cpu_temperature><cpu_temperature fan_speed='50%25hz'>90</cpu_temperature></fan_config>"
		"<fan_config type='DUAL_MODE_FULL'><temperature>1</temperature></fan_config>"
		"<fan_config type='DUAL_MODE_HIGH'><temperature fan_speed='HIGH'>1</temperature></fan_config>"
		"<fan_config type='DUAL_MODE_LOW_EBOX'><disk_temperature fan_speed='010'>1</disk_temperature>"
		"<fan_module_config order='3' module='1'/></fan_config>");
	const struct {
		const char *info;
		std::vector<int> types; // of every record in order
		int base;		// record the first derived one copies
	} cases[] = {
		{"", {1, 3, 0, 5}, -1},
		{"support_fan=\"yes\"\n", {1, 3, 0, 5, 3, 6}, 0},
		{"support_fan=\"yes\"\nsupport_fan_adjust_dual_mode=\"yes\"\n", {1, 3, 0, 5, 3}, 2},
	};
	for (const auto &c : cases) {
		SCOPED_TRACE(c.info);
		Board b(xml, {}, c.info);
		VEXO_FAN_ADJUSTER_T m;
		ASSERT_EQ(VEXOFanAdjusterGet(&m, 1), 0);
		std::vector<int> got;
		for (uint32_t i = 0; i < m.count; ++i)
			got.push_back(m.configs[i].type);
		EXPECT_EQ(got, c.types);
		if (c.base == 0) {
			const VEXO_FAN_CONFIG_T &full = m.configs[4];
			EXPECT_STREQ(full.hw_version, "HW1");
			EXPECT_NE(full.hw_version, m.configs[0].hw_version);
			EXPECT_EQ(levels(full.tables), "30:8:0:20/6 50:8:0:20/6 60:8:2:20/6 ");
			EXPECT_EQ(full.tables->next->levels[0].speed, 1000u + 60 + 256); // highest duty wins
			EXPECT_EQ(full.warning_temp, m.configs[0].warning_temp);
			EXPECT_EQ(full.ops, VEXOFanConfigOpsGet(1));
			const VEXO_FAN_CONFIG_T &ebox = m.configs[5];
			ASSERT_NE(ebox.modules, nullptr);
			EXPECT_NE(ebox.modules, m.configs[3].modules);
			EXPECT_EQ(ebox.modules[0].order, 3u);
			EXPECT_EQ(ebox.ops, VEXOFanConfigOpsGet(2));
		}
		if (c.base == 2) {
			EXPECT_EQ(levels(m.configs[4].tables), "1:6:2:20/6 ");
		}
		VEXOAdjusterModelFree(&m);
	}
}

TEST(FanParse, DefaultTable)
{
	VEXOFanConfigOpsListInit();
	VEXOFanTableTypeOpsListInit();
	VEXO_FAN_CONFIG_T c;
	ASSERT_EQ(VEXOFanAdjusterConfigInit(&c, 1), 0);
	EXPECT_EQ(c.period, 20u);
	EXPECT_EQ(c.threshold, 6u);
	EXPECT_EQ(c.warning_temp, -1);
	EXPECT_EQ(c.type, DUAL_MODE_LOW);
	EXPECT_EQ(levels(c.tables), "45:9:0:0/0 55:9:0:0/0 65:9:2:0/0 ");
	EXPECT_EQ(c.ops, VEXOFanConfigOpsGet(1));
	VEXO_FAN_ADJUSTER_T m{1, &c, 0};
	VEXO_FAN_CONFIG_T *heap = static_cast<VEXO_FAN_CONFIG_T *>(std::malloc(sizeof c));
	std::memcpy(heap, &c, sizeof c);
	m.configs = heap;
	VEXOAdjusterModelFree(&m);
}

} // namespace
