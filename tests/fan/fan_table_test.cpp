// Fan loop decisions: level of a temperature, the update's counting and
// timers over a scripted source, the lookup's fold, the buffer band, the
// debug files and the hottest disk over a disk resource.
#include <cstddef>
#include <string>
#include <syslog.h>
#include <vector>
#include <vexohw/fan_table.h>

#include "frame/clock.h"
#include "support/vexotest.h"

using vexo::test::LogCapture;
using vexo::test::Sysroot;

namespace {

static_assert(offsetof(VEXO_FAN_HANDLE_T, current) == 8 && offsetof(VEXO_FAN_HANDLE_T, config_name) == 24 &&
	      offsetof(VEXO_FAN_HANDLE_T, ebox) == 32 && offsetof(VEXO_FAN_HANDLE_T, threshold_cur) == 48 &&
	      offsetof(VEXO_FAN_HANDLE_T, disk_resource) == 56 && sizeof(VEXO_FAN_READING_T) == 36);

// A scripted source: what the next real read gives.
int gTemp = 0, gSource = FAN_SOURCE_DISK, gReads = 0;
int fakeDebug(VEXO_FAN_READING_T *r, VEXO_FAN_HANDLE_T *, int *) { return r->temperature = 0; }
int fakeGet(VEXO_FAN_READING_T *r, VEXO_FAN_HANDLE_T *)
{
	++gReads;
	r->temperature = gTemp;
	return gSource;
}
VEXO_FAN_TABLE_OPS_T gOps = {FAN_TABLE_DISK, fakeDebug, fakeGet, VEXOFanTableLevelGet, nullptr, nullptr};

// disk levels 0 LOW, 40 MIDDLE, 50 HIGH+led, 61 FULL+shutdown, 70 FULL+shutdown
VEXO_TEMPERATURE_FAN_LEVEL_T gLevels[] = {{0, FAN_SPEED_LOW, FAN_ACTION_NONE, 20, 6, 0},
					  {40, FAN_SPEED_MIDDLE, FAN_ACTION_NONE, 20, 6, 1},
					  {50, FAN_SPEED_HIGH, FAN_ACTION_ALERT_LED, 10, 6, 2},
					  {61, FAN_SPEED_FULL, FAN_ACTION_SHUTDOWN, 20, 3, 3},
					  {70, FAN_SPEED_FULL, FAN_ACTION_SHUTDOWN, 20, 3, 4}};
VEXO_FAN_TABLE_T gTable = {FAN_TABLE_DISK, gLevels, 5, &gOps, nullptr};

VEXO_FAN_STATUS_T node(int type, FAN_SPEED speed, int level, int action = 0)
{
	VEXO_FAN_STATUS_T n{};
	n.table_type = static_cast<FAN_TABLE_TYPE>(type);
	n.speed = speed;
	n.level = level;
	n.action = static_cast<FAN_ACTION>(action);
	return n;
}

} // namespace

TEST(FanLevels, BoundsAndShutdown)
{
	const struct {
		int temp, index;
	} cases[] = {{0, 0}, {39, 0}, {40, 1}, {60, 2}, {61, 3}, {69, 3}, {70, 4}, {500, 4}, {-1, -1}};
	for (const auto &c : cases) {
		VEXO_TEMPERATURE_FAN_LEVEL_T l{};
		EXPECT_EQ(VEXOFanTableLevelGet(&l, c.temp, &gTable), c.index) << c.temp;
		if (c.index >= 0) {
			EXPECT_EQ(l.speed, gLevels[c.index].speed);
		}
	}
	VEXO_TEMPERATURE_FAN_LEVEL_T above[] = {{30, FAN_SPEED_LOW, FAN_ACTION_NONE, 20, 6, 0}};
	VEXO_FAN_TABLE_T t1 = {FAN_TABLE_CPU, above, 1, &gOps, nullptr}, empty = {FAN_TABLE_CPU, nullptr, 0, nullptr, nullptr};
	VEXO_TEMPERATURE_FAN_LEVEL_T l{};
	EXPECT_EQ(VEXOFanTableLevelGet(&l, 10, &t1), 0); // below level 0 gets level 0
	LogCapture log;
	EXPECT_EQ(VEXOFanShutdownTempGet(&gTable), 61); // the first of two shutdown levels
	EXPECT_EQ(VEXOFanShutdownTempGet(&t1), -1);
	EXPECT_EQ(VEXOFanShutdownTempGet(&empty), -1);
	EXPECT_EQ(VEXOFanShutdownTempGet(nullptr), -1);
	EXPECT_EQ(VEXOFanTableLevelGet(&l, 10, &empty), -1);
	EXPECT_EQ(log.count(LOG_ERR, "Shutdown temperature is not found"), 1);
	EXPECT_EQ(log.count(LOG_ERR, "Wrong table size"), 1);
	EXPECT_EQ(log.count(LOG_ERR, "Wrong parameters"), 2);
}

TEST(FanLevels, LookUpFoldsNodes)
{
	const unsigned d50 = 1000 + 50, d50f25 = 1000 + 50 + 25 * 256, d6 = 1000 + 6;
	const struct {
		std::vector<VEXO_FAN_STATUS_T> nodes;
		int rc, type, level;
		unsigned speed, action;
	} cases[] = {
		{{node(2, FAN_SPEED_MIDDLE, 1), node(3, FAN_SPEED_MIDDLE, 0)}, 1, 2, 1, FAN_SPEED_MIDDLE, 0}, // tie: first
		{{node(2, FAN_SPEED_LOW, 0), node(3, FAN_SPEED_HIGH, 2)}, 1, 3, 2, FAN_SPEED_HIGH, 0},
		{{node(2, (FAN_SPEED)d50, 0), node(3, FAN_SPEED_HIGH, 1)}, 1, 2, 0, d50, 0}, // plain 6 < duty 50
		{{node(2, (FAN_SPEED)d50, 0), node(3, (FAN_SPEED)d50f25, 1)}, 1, 3, 1, d50f25, 0}, // frequency
		{{node(2, (FAN_SPEED)d6, 0), node(3, FAN_SPEED_HIGH, 1)}, 1, 2, 0, d6, 0},	  // equal: first
		{{node(2, FAN_SPEED_FULL, 3, 2), node(3, (FAN_SPEED)d50, 1, 1)}, 1, 3, 1, d50, 3}, // shutdown bit kept
		{{node(2, FAN_SPEED_HIGH, 2), node(3, FAN_SPEED_STOP, 0, 2)}, 1, 3, 0, FAN_SPEED_STOP, 2}, // shutdown wins
		{{node(2, FAN_SPEED_UNKNOWN, -1), node(3, FAN_SPEED_UNKNOWN, -1)}, 0, 0, -1, 0, 0},
		{{node(0, FAN_SPEED_HIGH, 1)}, 0, 0, 1, FAN_SPEED_HIGH, 0},
		{{node(2, (FAN_SPEED)1000, 1)}, 1, 2, 1, 1000, 0}, // 1000 is a plain code of duty 1000
	};
	for (size_t i = 0; i < std::size(cases); ++i) {
		auto nodes = cases[i].nodes;
		for (size_t k = 0; k + 1 < nodes.size(); ++k)
			nodes[k].next = &nodes[k + 1];
		VEXO_FAN_HANDLE_T h{};
		h.status_list = nodes.data();
		VEXO_FAN_STATUS_T r{};
		EXPECT_EQ(VEXOFanTableLookUp(&h, nullptr, &r), cases[i].rc) << i;
		EXPECT_EQ((int)r.table_type, cases[i].type) << i;
		EXPECT_EQ(r.level, cases[i].level) << i;
		EXPECT_EQ((unsigned)r.speed, cases[i].speed) << i;
		EXPECT_EQ((unsigned)r.action, cases[i].action) << i;
	}
}

TEST(FanLevels, BufferBandStepsDown)
{
	const struct {
		int curLevel, resLevel, resType, temp, source, rc, outLevel;
		unsigned outSpeed, outAction;
	} cases[] = {
		{3, 2, 2, 50, 2, 1, 2, FAN_SPEED_HIGH, 1},  // at the lower bound: drop
		{3, 2, 2, 51, 2, 0, 2, FAN_SPEED_HIGH, 1},  // above it: wait
		{3, 2, 2, 10, 0, 0, 2, FAN_SPEED_HIGH, 1},  // failed read: wait
		{4, 0, 2, 0, 2, 1, 3, FAN_SPEED_FULL, 2},   // a fall goes one level
		{3, 3, 2, 0, 2, 0, 3, FAN_SPEED_FULL, 2},   // no change
		{3, 4, 2, 0, 2, 0, 4, FAN_SPEED_FULL, 2},   // rise is not buffered here
		{3, 0, 3, 0, 2, 1, 0, FAN_SPEED_LOW, 0},    // other table
		{3, -1, 2, 0, 2, 0, -1, FAN_SPEED_UNKNOWN, 0},
	};
	for (size_t i = 0; i < std::size(cases); ++i) {
		const auto &c = cases[i];
		VEXO_FAN_STATUS_T cur = node(2, FAN_SPEED_FULL, c.curLevel, 2);
		VEXO_FAN_HANDLE_T h{};
		h.current = &cur;
		VEXO_FAN_STATUS_T r = node(c.resType, c.resLevel >= 0 ? gLevels[c.resLevel].speed : FAN_SPEED_UNKNOWN,
					   c.resLevel, c.resLevel >= 0 ? gLevels[c.resLevel].action : 0);
		gTemp = c.temp;
		gSource = c.source;
		EXPECT_EQ(VEXOIsOverBufferLimit(&h, &gTable, &r), c.rc) << i;
		EXPECT_EQ(r.level, c.outLevel) << i;
		EXPECT_EQ((unsigned)r.speed, c.outSpeed) << i;
		EXPECT_EQ((unsigned)r.action, c.outAction) << i;
	}
	EXPECT_EQ(VEXOIsOverBufferLimit(nullptr, &gTable, nullptr), 0);
}

TEST(FanLevels, UpdateCountsDueReadings)
{
	// Each step: seconds since start, force, source, temperature; expected change, level, count, period.
	const struct {
		int at, force, source, temp, changed, level, count;
		unsigned period;
	} steps[] = {
		{0, 1, 2, 45, 1, 1, 0, 20},  // forced: moves at once
		{5, 0, 2, 55, 0, 1, 0, 20},  // not due
		{20, 0, 2, 55, 1, 1, 1, 20}, {40, 0, 2, 55, 1, 1, 2, 20},
		{60, 0, 2, 45, 1, 1, 0, 20},  // back at the present level: count restarts
		{80, 0, 2, 55, 1, 1, 1, 20},  {100, 0, 2, 55, 1, 1, 2, 20}, {120, 0, 2, 55, 1, 1, 3, 20},
		{140, 0, 2, 55, 1, 1, 4, 20}, {160, 0, 2, 55, 1, 1, 5, 20},
		{180, 0, 2, 55, 1, 2, 0, 10}, // sixth in a row
		{190, 0, 0, 0, 0, 2, 0, 10},  // failed read: node untouched
		{190, 0, 4, 0, 0, 2, 0, 20},  // no usable reading: first table's level 0 period
		{210, 0, 7, 99, 0, 2, 0, 20}, // unknown: left alone
		{210, 1, 6, 0, 1, -1, 0, 20}, // hibernating: the idle level
	};
	vexo::clock::setForTest(100000, 0);
	VEXO_FAN_STATUS_T n = node(2, FAN_SPEED_UNKNOWN, -1);
	n.threshold = 6;
	VEXO_FAN_HANDLE_T h{};
	h.status_list = &n;
	LogCapture log;
	for (size_t i = 0; i < std::size(steps); ++i) {
		const auto &s = steps[i];
		vexo::clock::setForTest(100000 + s.at, 0);
		h.force = s.force;
		gSource = s.source;
		gTemp = s.temp;
		int flags = 0;
		EXPECT_EQ(VEXOFanTemperatureUpdate(&h, &gTable, &flags), s.changed) << i;
		EXPECT_EQ(n.level, s.level) << i;
		EXPECT_EQ(n.count, (unsigned)s.count) << i;
		EXPECT_EQ(n.period, s.period) << i;
	}
	EXPECT_EQ(n.speed, FAN_SPEED_UNKNOWN);
	EXPECT_EQ(log.count(LOG_ERR, "<disk_temperature> Temperature Get fail"), 1);
	// A product that asks for it runs full when no disk reports.
	Sysroot root;
	root.write(VEXO_FAN_ALL_DISK_FAIL_FILE, "");
	root.write("/etc.defaults/vexoinfo.conf", "support_fan_adjust_by_all_disk_temp_fail=\"full\"\n");
	gSource = FAN_SOURCE_NONE;
	int failFlags = 0;
	EXPECT_EQ(VEXOFanTemperatureUpdate(&h, &gTable, &failFlags), 1);
	EXPECT_EQ(n.level, 4);
	EXPECT_EQ(n.temperature, 1000);
	// A node of another type is passed over with a line.
	VEXO_FAN_STATUS_T other = node(3, FAN_SPEED_LOW, 0);
	h.status_list = &other;
	int flags = 0;
	EXPECT_EQ(VEXOFanTemperatureUpdate(&h, &gTable, &flags), 0);
	EXPECT_EQ(log.count(LOG_ERR, "miss match Fan Table"), 1);
	h.status_list = nullptr;
	EXPECT_EQ(VEXOFanTemperatureUpdate(&h, &gTable, &flags), 0);
	vexo::clock::clearForTest();
}

TEST(FanSources, DebugFilesAndHottestDisk)
{
	Sysroot root;
	const struct {
		const char *content;
		int rc, temp;
		const char *name;
	} files[] = {{"45,sda\n", 1, 45, "sda"}, {"0,sda\n", 0, 0, ""}, {"\n", 0, 0, ""}, {"52", 1, 52, ""},
		     {nullptr, 0, 0, ""}};
	for (const auto &f : files) {
		if (f.content)
			root.write("/tmp/disktmp.txt", f.content);
		else
			root.remove("/tmp/disktmp.txt");
		VEXO_FAN_READING_T r{};
		EXPECT_EQ(VEXOFanIsTemperatureDebugON(&r, "/tmp/disktmp.txt"), f.rc) << (f.content ? f.content : "none");
		EXPECT_EQ(r.temperature, f.temp);
		EXPECT_STREQ(r.name, f.name);
	}
	// sda rotating 44, sdb solid state at 120 (passed over), sdc rotating 30, sdd absent from /sys/block.
	VEXO_DISK_RESOURCE_NODE_T nodes[] = {{"/dev/sda", 44, -1000, 1000, 0, 0, nullptr},
					     {"/dev/sdb", 120, 20, 40, 0, 1, nullptr},
					     {"/dev/sdc", 30, 20, 40, 0, 0, nullptr},
					     {"/dev/sdd", 99, -1000, 1000, 1, 0, nullptr}};
	for (size_t i = 0; i + 1 < std::size(nodes); ++i)
		nodes[i].next = &nodes[i + 1];
	VEXO_DISK_RESOURCE_T res = {nodes};
	for (const char *d : {"sda", "sdb", "sdc"})
		root.write(std::string("/sys/block/") + d + "/queue/rotational", d[2] == 'b' ? "0\n" : "1\n");
	VEXO_FAN_HANDLE_T h{};
	h.disk_resource = &res;
	PVLIBSZLIST list = VLIBCSzListAlloc(4);
	for (const char *d : {"/dev/sda", "/dev/sdb", "/dev/sdc", "/dev/sdd"})
		VLIBCSzListPush(&list, d);
	VEXO_FAN_READING_T r{};
	r.temperature = -1;
	EXPECT_EQ(VEXOFanTableGetDiskHighestTemp(&r, list, &h), 0);
	EXPECT_EQ(r.temperature, 44);
	EXPECT_STREQ(r.name, "sda");
	// Tune: sdd would stand against shutdown but is not present; sda below 61 does not.
	EXPECT_EQ(DiskTuneCommon(&h, list, 61, 0), 1);
	EXPECT_EQ(DiskTuneCommon(&h, list, 44, 0), 0);
	h.hibernating = 1;
	EXPECT_EQ(DiskTuneCommon(&h, list, 44, 0), 0);
	VEXO_FAN_READING_T hr{};
	EXPECT_EQ(DiskTemperatureGetCommon(&hr, &h, list), FAN_SOURCE_HIBERNATE);
	const struct {
		const char *path;
		int shutdown, rc;
	} ranges[] = {{"/dev/sda", 45, 1}, {"/dev/sda", 44, 0}, {"/dev/sdc", 0, 1}, {"/dev/sdd", 200, 0},
		      {"/dev/sdx", 0, 1},  {"/dev/sda", -1, 1}};
	for (const auto &c : ranges)
		EXPECT_EQ(VEXODiskInRangeFromResource(c.path, &res, c.shutdown, 0), c.rc) << c.path << c.shutdown;
	EXPECT_EQ(VEXODiskTempGetFromResource("/dev/sdx", &res), -1);
	VLIBCSzListFree(list);
	PVLIBSZLIST empty = VLIBCSzListAlloc(1);
	LogCapture log;
	EXPECT_EQ(VEXOFanTableGetDiskHighestTemp(&r, empty, &h), -1);
	EXPECT_EQ(VEXOFanTableGetDiskHighestTemp(&r, nullptr, &h), -1);
	EXPECT_EQ(log.count(LOG_ERR, "no Disk List"), 1);
	EXPECT_EQ(log.count(LOG_ERR, "wrong Parameter"), 1);
	VLIBCSzListFree(empty);
}

TEST(FanSources, AdapterAndSasFiles)
{
	Sysroot root;
	VEXOFanTableTypeOpsListInit();
	// eth0 and eth1 are xnic01 (0x1001), eth2 another maker's card; eth3 reads nonsense.
	const struct {
		const char *ifc, *vendor, *device, *temp;
	} nics[] = {{"eth0", "0x7053", "0x1001", "47.9\n"}, {"eth1", "0x7053", "0x1001", "200\n"},
		    {"eth2", "0x8086", "0x1001", "90\n"},	 {"eth3", "0x7053", "0x1001", "nan\n"}};
	for (const auto &n : nics) {
		std::string d = std::string("/sys/class/net/") + n.ifc;
		root.write(d + "/device/subsystem_vendor", n.vendor);
		root.write(d + "/device/subsystem_device", n.device);
		root.write(d + "/temperature", n.temp);
	}
	root.write("/sys/bus/pci/devices/0000:05:00.0/subsystem_vendor", "0x7053\n");
	root.write("/sys/bus/pci/devices/0000:05:00.0/subsystem_device", "0x1001\n");
	const std::string sas = "/sys/class/sas_host/host0/device/scsi_host/host0/";
	root.write(sas + "ioc_temperature", "61.2\n");
	VEXO_FAN_HANDLE_T h{};
	VEXO_FAN_READING_T r{};
	LogCapture log;
	EXPECT_EQ(VEXOFanTableTypeOpsGet(FAN_TABLE_XNIC01)->TemperatureGet(&r, &h), FAN_SOURCE_EXTERNAL_NIC);
	EXPECT_EQ(r.temperature, 47);
	EXPECT_STREQ(r.name, "eth0");
	EXPECT_EQ(log.count(LOG_ERR, "Fail to get temperature from /sys/class/net/eth3/temperature"), 1);
	r = VEXO_FAN_READING_T{};
	EXPECT_EQ(VEXOFanTableTypeOpsGet(FAN_TABLE_SAS)->TemperatureGet(&r, &h), 0); // no board name yet
	root.write(sas + "board_name", "VX-SAS\n");
	EXPECT_EQ(VEXOFanTableTypeOpsGet(FAN_TABLE_SAS)->TemperatureGet(&r, &h), FAN_SOURCE_SAS);
	EXPECT_EQ(r.temperature, 61);
	EXPECT_STREQ(r.name, "VX-SAS");
	// The generic table covers the inserted adapter that has no node; a second init does not double it.
	ASSERT_EQ(VEXOFanInitNicFanTableList(&h), 0);
	ASSERT_EQ(VEXOFanInitNicFanTableList(&h), 0);
	ASSERT_TRUE(h.nic_tables && !h.nic_tables->next);
	r = VEXO_FAN_READING_T{};
	EXPECT_EQ(VEXOFanTableTypeOpsGet(FAN_TABLE_NIC)->TemperatureGet(&r, &h), FAN_SOURCE_EXTERNAL_NIC);
	EXPECT_EQ(r.temperature, 47);
	root.write("/tmp/xnic01tmp.txt", "66,eth9\n");
	int source = 0;
	EXPECT_EQ(VEXOFanTableTypeOpsGet(FAN_TABLE_NIC)->DebugTemperatureGet(&r, &h, &source), 1);
	EXPECT_EQ(source, FAN_SOURCE_EXTERNAL_NIC);
	EXPECT_EQ(r.temperature, 66);
	VEXOFanNicFanTableListFree(&h);
	EXPECT_EQ(h.nic_tables, nullptr);
}

TEST(FanLevels, DebugPrintTellsFakeFromReal)
{
	Sysroot root;
	VEXO_FAN_STATUS_T n = node(2, FAN_SPEED_HIGH, 2);
	VEXO_FAN_HANDLE_T h{};
	h.config_name = FAN_CONFIG_NAME_CPUFAN;
	h.status_list = &n;
	gSource = FAN_SOURCE_DISK;
	gTemp = 55;
	LogCapture log;
	EXPECT_EQ(VEXOFanDebugPrint(&h, &gTable, &n, 1), 0);
	EXPECT_EQ(log.count(LOG_INFO, "fan_type:CPUFAN **Speed change**"), 1);
	EXPECT_EQ(log.count(LOG_INFO, "current_speed HIGH table:<disk_temperature>"), 1);
	EXPECT_EQ(log.count(LOG_INFO, "[real]: <disk_temperature> disk 55"), 1);
	// The real ops of the disk table see the debug file first.
	root.write("/tmp/disktmp.txt", "70,sdz\n");
	VEXO_FAN_TABLE_T real = gTable;
	VEXOFanTableTypeOpsListInit();
	real.ops = VEXOFanTableTypeOpsGet(FAN_TABLE_DISK);
	EXPECT_EQ(VEXOFanDebugPrint(&h, &real, &n, 0), 0);
	EXPECT_EQ(log.count(LOG_INFO, "[fake]: <disk_temperature> 70"), 1);
	EXPECT_EQ(VEXOFanDebugPrint(nullptr, &gTable, &n, 0), -1);
	EXPECT_EQ(log.count(LOG_ERR, "FanDebugPrint fail wrong parameters"), 1);
}
