// What the library tells of a disk's identity, against the drive emulator
// where a drive must answer: vendor, model and rotation from kernel
// attributes and the cache, the drive health tool and its retries, past
// serials from the plug events of the disk log database, form factor, size
// and block size, true serial, the disks carrying a serial, the record of
// the first disk; then disk state and the disk action database, the debug
// overrides, and enumeration on a simulated box.
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <json-c/json.h>
#include <map>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <syslog.h>
#include <thread>
#include <unistd.h>
#include <vector>
#include <vexohw/disk.h>
#include <vexohw/disk_debug.h>
#include <vexohw/disk_enum.h>
#include <vexohw/disk_port.h>
#include <vexohw/disk_probe.h>
#include <vexohw/disk_state.h>
#include <vexohw/smart_serial.h>
#include <vexohw/smart_temperature.h>
#include <vexoplatform/disk_map.h>
#include <vexoplatform/logdb.h>

#include "disk/disk_model_whole.h"
#include "external/port_map.h"
#include "frame/device.h"
#include "smartctl/drive_sim.h"
#include "smartctl/sim_disk.h"
#include "smartctl/smart_util.h"
#include "support/disk_layout.h"
#include "support/sim_daemon.h"
#include "support/vexotest.h"
#include "tools/cli_run.h"

using namespace vexo::test;
namespace fs = std::filesystem;

namespace {

const bool kBackend = installDriveEmulator();

class Identity : public DriveSim {
protected:
	void SetUp() override
	{
		DriveSim::SetUp();
		root.conf("/etc.defaults/vexoinfo.conf", {{"internalportcfg", "0xff"}, {"usbportcfg", "0xff0000"}});
	}

	// A SATA disk whose kernel attributes say vendor and model (as the
	// kernel writes them: padded, newline-terminated).
	void disk(const std::string &name, int port, const std::string &vendor, const std::string &model)
	{
		disks.sata(name, port);
		root.write("/sys/block/" + name + "/device/vendor", vendor + "\n");
		root.write("/sys/block/" + name + "/device/model", model + "\n");
	}
	// An ATA disk as the health tool serves it: rotating, Seagate by its model.
	void seagate(const std::string &name, int port, const std::string &sg)
	{
		disk(name, port, "ATA     ", "ST8000VN004-2M2101");
		root.write("/sys/block/" + name + "/queue/rotational", "1\n");
		if (!sg.empty())
			root.mkdirs("/sys/block/" + name + "/device/scsi_generic/" + sg);
	}
	// The tool stand-in: logs its arguments, one line a run, and exits with
	// the next status of the list (the last one repeats).
	void tool(const std::string &statuses)
	{
		root.write("/tmp/dhm_statuses", statuses + "\n");
		const std::string dir = root.host("/tmp");
		root.write("/usr/vexo/sbin/dhm_tool",
			   "#!/bin/sh\n"
			   "echo \"$*\" >> " + dir + "/dhm_runs\n"
			   "set -- $(cat " + dir + "/dhm_statuses)\n"
			   "s=$1\n"
			   "[ $# -gt 1 ] && shift && echo \"$*\" > " + dir + "/dhm_statuses\n"
			   "exit $s\n",
			   0755);
	}
	std::vector<std::string> runs() const { return linesOf(root, "/tmp/dhm_runs"); }
	// An ATA drive node with extra JSON members.
	void ata(const std::string &name, const std::string &extra)
	{
		node(name, R"({"protocol":"ata","model":"ST8000VN004-2M2101","serial":"ZA1B2C3D","firmware":"SC60")" +
				   (extra.empty() ? "" : "," + extra) + "}");
	}
	std::string formFactor(const std::string &name, size_t size = 64)
	{
		return textOf(VEXODiskFormFactorSizeGet, ("/dev/" + name).c_str(), size);
	}

	DiskLayout disks{root};
};

TEST_F(Identity, EveryVendorRowAndItsOrder)
{
	struct {
		const char *model;
		const char *vendor;
	} cases[] = {
		{"ST4000VN000-1H4168", "Seagate"}, {"HITACHI HDS722020ALA330", "Hitachi"}, {"HTS541010A9E680", "Hitachi"},
		{"MK1059GSM", "Toshiba"}, {"SAMSUNG WD-1", "Western Digital"}, {"TS256GSSD370S", "Transcend"},
		// Case does not matter; unanchored rows match inside the text.
		{"st1000dm003", "Seagate"}, {"OLD FIREBALL 3", "Quantum"},
		// The first matching row wins over a later one.
		{"STWD100", "Seagate"}, {"TOSHIBA WD5000", "Toshiba"},
		// Every pattern wants at least one character after its stem.
		{"ST", "Unknown"}, {"WD", "Unknown"}, {"HDS723030", "Unknown"}, {"Samsung SSD 870", "Unknown"},
	};
	// A disk a row, each asked from its own thread at once: answers must
	// not mix. A thread keeps the first wrong answer it got.
	const size_t n = std::size(cases);
	for (size_t i = 0; i < n; ++i)
		disk("sd" + std::string(1, char('a' + i)), static_cast<int>(i) + 1, "ATA     ", cases[i].model);
	std::vector<std::string> got(n);
	std::vector<std::thread> threads;
	for (size_t i = 0; i < n; ++i)
		threads.emplace_back([&, i] {
			const std::string dev = "/dev/sd" + std::string(1, char('a' + i));
			for (int k = 0; k < 200; ++k) {
				char v[64] = {};
				if (VEXOLnxDiskGetVendor(dev.c_str(), v, sizeof(v)) != 0)
					std::strcpy(v, "rc=-1");
				if (k == 0 || got[i] == cases[i].vendor)
					got[i] = v;
			}
		});
	for (auto &t : threads)
		t.join();
	for (size_t i = 0; i < n; ++i)
		EXPECT_EQ(got[i], cases[i].vendor) << cases[i].model;
}

TEST_F(Identity, KernelVendorUnlessAtaAndFailures)
{
	// Not "ATA": the kernel's text stands as read, whatever the model says.
	disk("sda", 1, "HGST", "ST4000VN000");
	EXPECT_EQ(textOf(VEXOLnxDiskGetVendor, "/dev/sda", 64), "HGST");
	// The kernel's padding stays: the text is not the table's.
	root.write("/sys/block/sda/device/vendor", "SEAGATE \n");
	EXPECT_EQ(textOf(VEXOLnxDiskGetVendor, "/dev/sda", 64), "SEAGATE ");
	root.write("/sys/block/sda/device/vendor", "HGST\n");
	// A partition asks its disk; a short name works as well.
	EXPECT_EQ(textOf(VEXOLnxDiskGetVendor, "sda3", 64), "HGST");
	// A short buffer gets nothing rather than a cut name.
	disk("sdc", 3, "ATA     ", "WDC WD40EFRX");
	EXPECT_EQ(textOf(VEXOLnxDiskGetVendor, "/dev/sdc", 8), "rc=-1");
	EXPECT_ERR(VEXO_ERR_BAD_PARAM);

	EXPECT_EQ(textOf(VEXOLnxDiskGetVendor, nullptr, 64), "rc=-1");
	EXPECT_ERR(0x0D00);
	EXPECT_EQ(textOf(VEXOLnxDiskGetVendor, "/dev/sda", 0), "rc=-1");
	EXPECT_ERR(0x0D00);
	root.remove("/sys/block/sda/device/vendor");
	root.remove("/sys/block/sda/device/model");
	EXPECT_EQ(textOf(VEXOLnxDiskGetVendor, "/dev/sda", 64), "rc=-1");
	EXPECT_ERR(0x0700);
	root.write("/sys/block/sda/device/vendor", "");
	EXPECT_EQ(textOf(VEXOLnxDiskGetVendor, "/dev/sda", 64), "rc=-1");
	EXPECT_ERR(0x0A00);
	// An ATA disk whose model cannot be read is still answered.
	LogCapture log;
	root.write("/sys/block/sda/device/vendor", "ATA\n");
	EXPECT_EQ(textOf(VEXOLnxDiskGetVendor, "/dev/sda", 64), "Unknown");
	EXPECT_TRUE(log.has(LOG_ERR, "Failed to open /sys/block/sda/device/model")) << log.dump();
}

TEST_F(Identity, VendorCache)
{
	disk("sda", 1, "ATA", "ST8000VN004");
	root.diskDir("sda");
	// A miss asks the disk; so does an empty value (a writer caught mid-way).
	EXPECT_EQ(textOf(VEXOLnxDiskGetVendorCache, "/dev/sda", 64), "Seagate");
	root.write("/run/vexostorage/disks/sda/vendor", "");
	EXPECT_EQ(textOf(VEXOLnxDiskGetVendorCache, "sda", 64), "Seagate");
	// A value in the cache wins over the disk.
	root.write("/run/vexostorage/disks/sda/vendor", "Cached Vendor");
	EXPECT_EQ(textOf(VEXOLnxDiskGetVendorCache, "/dev/sda", 64), "Cached Vendor");

	LogCapture log;
	EXPECT_EQ(textOf(VEXOLnxDiskGetVendorCache, "/dev/sdq", 64), "rc=-1");
	EXPECT_EQ(log.count(LOG_DEBUG, "Fail to get disk vendor, err=[0x1792]"), 1) << log.dump();
	EXPECT_EQ(textOf(VEXOLnxDiskGetVendorCache, nullptr, 64), "rc=-1");
	EXPECT_TRUE(log.has(LOG_ERR, "Invalid input parameters"));
	EXPECT_ERR(0x0D00);
}

TEST_F(Identity, ModelFromSysfs)
{
	disk("sda", 1, "ATA", "  WDC WD40EFRX-68N32N0   ");
	EXPECT_EQ(textOf(VEXOLnxDiskGetModel, "/dev/sda"), "WDC WD40EFRX-68N32N0");
	EXPECT_EQ(textOf(VEXOLnxDiskGetModel, "/dev/sda", 20), "rc=-1"); // 21 bytes needed

	LogCapture log;
	EXPECT_EQ(textOf(VEXOLnxDiskGetModel, nullptr), "rc=-1");
	EXPECT_EQ(textOf(VEXOLnxDiskGetModel, "/dev/sda", 0), "rc=-1");
	EXPECT_EQ(log.count(LOG_ERR, "Bad parameters."), 2);
	EXPECT_EQ(textOf(VEXOLnxDiskGetModel, "/dev/sdb"), "rc=-1");
	EXPECT_TRUE(log.has(LOG_ERR, "Failed to open /sys/block/sdb/device/model"));
	EXPECT_ERR(0x0900);
	root.write("/sys/block/sda/device/model", "");
	EXPECT_EQ(textOf(VEXOLnxDiskGetModel, "/dev/sda"), "rc=-1");
	EXPECT_TRUE(log.has(LOG_ERR, "Failed get disk model"));
}

TEST_F(Identity, NvmeModelFromTheControllerOrTheCache)
{
	disks.nvme("nvme0n1", "0000:00:01.2");
	node("nvme0n1", R"({"protocol":"nvme","model":"VEXO SNV3410-800G","serial":"N0001"})");
	EXPECT_EQ(textOf(VEXOLnxDiskGetModel, "/dev/nvme0n1"), "VEXO SNV3410-800G");
	EXPECT_EQ(textOf(VEXOLnxDiskGetVendor, "nvme0n1", 64), "VEXO");
	const std::string identifyController = "NVME_ADMIN opcode=0x06*cdw10=0x00000001*data_len=4096*-> ok";
	expectSent("nvme0n1", {identifyController, identifyController}); // model, then vendor

	// A controller that does not answer: no model; the vendor is "Unknown", and still a success.
	node("nvme0n1", R"({"protocol":"nvme","faults":{"nvme_identify":{"errno":"EIO"}}})");
	LogCapture log;
	EXPECT_EQ(textOf(VEXOLnxDiskGetModel, "/dev/nvme0n1"), "rc=-1");
	EXPECT_TRUE(log.has(LOG_ERR, "Fail to get nvme disk model: /dev/nvme0n1")) << log.dump();
	EXPECT_EQ(textOf(VEXOLnxDiskGetVendor, "/dev/nvme0n1", 64), "Unknown");

	// Under secure erase the drive is not asked at all: the model comes from the cache.
	clearCommands("nvme0n1");
	root.diskDir("nvme0n1");
	root.write("/run/vexostorage/disks/nvme0n1/model", "CACHED MODEL");
	root.write(VEXO_SECURE_ERASE_DIR "/nvme0n1" VEXO_SECURE_ERASE_SUFFIX, std::to_string(::getpid()) + "\n");
	EXPECT_EQ(textOf(VEXOLnxDiskGetModel, "/dev/nvme0n1"), "CACHED MODEL");
	root.remove("/run/vexostorage/disks/nvme0n1/model");
	EXPECT_EQ(textOf(VEXOLnxDiskGetModel, "/dev/nvme0n1"), "rc=-1");
	EXPECT_TRUE(log.has(LOG_ERR, "Fail to get disk model from cache: /dev/nvme0n1"));
	expectSent("nvme0n1", {});
}

TEST_F(Identity, Rotation)
{
	disks.sata("sda", 1);
	disks.sata("sdb", 2);
	root.write("/sys/block/sda/queue/rotational", "0\n");
	root.write("/sys/block/sdb/queue/rotational", "1\n");
	EXPECT_EQ(VEXODiskIsSSD("/dev/sda"), 1);
	EXPECT_EQ(VEXODiskIsSSD("/dev/sdb"), 0);

	LogCapture log;
	EXPECT_EQ(VEXODiskIsSSD("sda"), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "Can't parse Node name from sda"));
	EXPECT_EQ(VEXODiskIsSSD(nullptr), -1);
	EXPECT_EQ(VEXODiskIsSSD("/dev/sdc"), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "Can't open file /sys/block/sdc/queue/rotational"));
	root.write("/sys/block/sdb/queue/rotational", "");
	EXPECT_EQ(VEXODiskIsSSD("/dev/sdb"), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "Can't read file /sys/block/sdb/queue/rotational"));
}

TEST_F(Identity, ScsiGenericNode)
{
	disks.sata("sda", 1);
	root.mkdirs("/sys/block/sda/device/scsi_generic/sg3");
	EXPECT_EQ(textOf(VEXODiskScsiGenericGet, "/dev/sda", 16), "/dev/sg3");
	// Does not fit: nothing written, rather than another node's name.
	EXPECT_EQ(textOf(VEXODiskScsiGenericGet, "/dev/sda", 8), "rc=-1");
	EXPECT_ERR(0x0D00);
	LogCapture log;
	disks.sata("sdb", 2);
	EXPECT_EQ(textOf(VEXODiskScsiGenericGet, "/dev/sdb", 16), "rc=-1");
	EXPECT_ERR(0x2A00);
	EXPECT_TRUE(log.has(LOG_ERR, "glob found nothing: /sys/block/sdb/device/scsi_generic/sg*"));
	EXPECT_EQ(textOf(VEXODiskScsiGenericGet, nullptr, 16), "rc=-1");
	EXPECT_ERR(0x0D00);
}

TEST_F(Identity, HealthToolAnswersAndRetriesWhileBusy)
{
	EXPECT_EQ(VEXODiskDHMNeedRetry(VEXO_DHM_EXIT_BUSY), 1);
	EXPECT_EQ(VEXODiskDHMNeedRetry(50), 0);
	seagate("sda", 1, "sg0");
	// The statuses of successive runs: 50 and 51 answer, any other is a plain
	// no, and busy (16) is asked again, three times at most.
	const struct {
		const char *path, *statuses;
		int want;
		size_t runs;
	} cases[] = {
		{"/dev/sda", "50", 1, 1}, {"sda", "51", 2, 1}, {"/dev/sda", "0", 0, 1}, {"/dev/sda", "52", 0, 1},
		{"/dev/sda", "16 16 51", 2, 3}, {"/dev/sda", "16 16 16 50", 0, 3},
	};
	for (const auto &c : cases) {
		root.remove("/tmp/dhm_runs");
		tool(c.statuses);
		auto start = std::chrono::steady_clock::now();
		EXPECT_EQ(VEXODiskIsIronWolf(c.path), c.want) << c.statuses;
		EXPECT_EQ(runs(), std::vector<std::string>(c.runs, "-d /dev/sg0 -w")) << c.statuses;
		// The busy tool is given time between the tries.
		EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(c.runs > 1 ? 1900 : 0));
	}
}

TEST_F(Identity, HealthToolNotAsked)
{
	tool("50");
	// An SSD.
	seagate("sda", 1, "sg0");
	root.write("/sys/block/sda/queue/rotational", "0\n");
	EXPECT_EQ(VEXODiskIhmSkipCheck("/dev/sda"), 1);
	EXPECT_EQ(VEXODiskIsIronWolf("/dev/sda"), 0);
	// Another vendor, by the table or by the kernel.
	seagate("sdb", 2, "sg1");
	root.write("/sys/block/sdb/device/model", "WDC WD80EFZX\n");
	EXPECT_EQ(VEXODiskIsIronWolf("/dev/sdb"), 0);
	// Unknown rotation.
	seagate("sdd", 4, "sg3");
	root.remove("/sys/block/sdd/queue/rotational");
	EXPECT_EQ(VEXODiskIsIronWolf("/dev/sdd"), 0);
	EXPECT_EQ(VEXODiskIhmSkipCheck(nullptr), 1);
	EXPECT_TRUE(runs().empty());

	// The kernel's own vendor text, padded, is served too.
	seagate("sde", 5, "sg4");
	root.write("/sys/block/sde/device/vendor", "SEAGATE \n");
	EXPECT_EQ(VEXODiskIhmSkipCheck("/dev/sde"), 0);

	// No generic node: 0x2A00 and no run.
	seagate("sdf", 6, "");
	EXPECT_EQ(VEXODiskIsIronWolf("/dev/sdf"), 0);
	EXPECT_ERR(0x2A00);
	EXPECT_TRUE(runs().empty());

	// No tool at all.
	root.remove("/usr/vexo/sbin/dhm_tool");
	EXPECT_EQ(VEXODiskIsIronWolf("/dev/sde"), 0);
}

TEST_F(Identity, HealthAnswerFromCache)
{
	root.diskDir("sda");
	root.write("/run/vexostorage/disks/sda/ironwolf", "2");
	EXPECT_EQ(VEXODiskIsIronWolfCache("/dev/sda"), 2);
	LogCapture log;
	root.write("/run/vexostorage/disks/sda/ironwolf", "");
	EXPECT_EQ(VEXODiskIsIronWolfCache("/dev/sda"), -1);
	EXPECT_EQ(VEXODiskIsIronWolfCache("/dev/sdb"), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "get return form /run/vexostorage/disks/sdb/ironwolf fail"));
	EXPECT_EQ(VEXODiskIsIronWolfCache(nullptr), -1);
}

// The disk log database with rows (id order = insertion order).
class PlugEvent : public Identity {
protected:
	void SetUp() override
	{
		Identity::SetUp();
		root.mkdirs("/var/log/vexolog");
		root.mkdirs("/var/run");
	}
	void rows(const std::vector<std::tuple<long long, const char *, int, const char *>> &events)
	{
		VEXODB *db = VEXODBConnect(VEXODB_DISK_LOG_PATH, VEXODB_WRITE | VEXODB_CREATE);
		ASSERT_NE(db, nullptr);
		ASSERT_EQ(VEXODBExecute(db, VEXODB_DISK_LOG_SCHEMA), 0) << VEXODBErrorGet(db);
		for (const auto &[time, msg, slot, serial] : events) {
			char sql[512];
			std::snprintf(sql, sizeof(sql),
				      "INSERT INTO logs (time, level, msg, slot, serial, model, path, info) "
				      "VALUES (%lld, 'info', '%s', %d, '%s', 'ST8000VN004', '/dev/sdc', '')",
				      time, msg, slot, serial);
			ASSERT_EQ(VEXODBExecute(db, sql), 0) << VEXODBErrorGet(db);
		}
		VEXODBClose(db);
	}
	std::string serialAt(unsigned slot, unsigned long long before)
	{
		char s[64] = "none";
		if (VEXODiskSerialGetByPlugEvent(slot, before, s, sizeof(s)) != 0)
			return "-1";
		return s;
	}
	void bootupDone() { root.write("/var/run/.vexo_disk_bootup_init_done", ""); }
};

TEST_F(PlugEvent, NewestArrivalBeforeTheTime)
{
	rows({{1000, "bootup_in", 3, "S3A"}, {1000, "bootup_in", 4, "S4A"}, {2000, "plugout", 3, "S3A"},
	      {2100, "plugin", 3, "S3B"}, {2200, "life_below_thre_with_value", 3, "S3X"},
	      {3000, "plugout", 3, "S3B"}, {3100, "plugin", 3, "S3C"}, {3200, "plugin", 4, "S4B"},
	      {4000, "bootup_out", 4, "S4B"}});
	// Until the boot's events are all logged, departures are passed over.
	EXPECT_EQ(serialAt(3, 2050), "S3A");
	EXPECT_EQ(serialAt(3, 3001), "S3B");
	EXPECT_EQ(serialAt(4, 4001), "S4B");
	bootupDone();
	EXPECT_EQ(serialAt(3, 1001), "S3A");
	EXPECT_EQ(serialAt(3, 2101), "S3B");
	// Other kinds of row do not count.
	EXPECT_EQ(serialAt(3, 2999), "S3B");
	EXPECT_EQ(serialAt(3, 5000), "S3C");
	// Only rows strictly before the time.
	EXPECT_EQ(serialAt(3, 2100), "-1"); // newest is the departure at 2000
	EXPECT_ERR(0x2A00);
	// Bays do not mix.
	EXPECT_EQ(serialAt(4, 3201), "S4B");
	EXPECT_EQ(serialAt(4, 3200), "S4A");
	EXPECT_EQ(serialAt(5, 9999), "-1");
	// After a departure with the log complete, the bay was empty.
	EXPECT_EQ(serialAt(4, 4001), "-1");
	EXPECT_EQ(serialAt(3, 3001), "-1");
}

TEST_F(PlugEvent, Failures)
{
	LogCapture log;
	char s[8] = "keep";
	// No database: nothing is created by asking.
	EXPECT_EQ(VEXODiskSerialGetByPlugEvent(1, 100, s, sizeof(s)), -1);
	EXPECT_ERR(0x0700);
	EXPECT_FALSE(root.exists(VEXODB_DISK_LOG_PATH));

	EXPECT_EQ(VEXODiskSerialGetByPlugEvent(1, 100, nullptr, 8), -1);
	EXPECT_EQ(VEXODiskSerialGetByPlugEvent(1, 100, s, 0), -1);
	EXPECT_ERR(0x0D00);

	// A serial longer than the buffer is refused, not cut.
	rows({{10, "plugin", 1, "ZL2K4T7C0000"}});
	EXPECT_EQ(VEXODiskSerialGetByPlugEvent(1, 100, s, sizeof(s)), -1);
	EXPECT_ERR(0x0D00);
	EXPECT_STREQ(s, "keep");
	// The largest bay number and time go through the query text whole.
	rows({{10, "plugin", 0, "SLOT0"}});
	char big[32] = {};
	EXPECT_EQ(VEXODiskSerialGetByPlugEvent(0, 18446744073709551615ULL, big, sizeof(big)), 0);
	EXPECT_STREQ(big, "SLOT0");
	EXPECT_EQ(VEXODiskSerialGetByPlugEvent(4294967295u, 18446744073709551615ULL, big, sizeof(big)), -1);
	EXPECT_ERR(0x2A00);

	// A file that is not a database, and a database without the table.
	root.write(VEXODB_DISK_LOG_PATH, "not a database at all, just text that is long enough to look like a header");
	EXPECT_EQ(VEXODiskSerialGetByPlugEvent(1, 100, s, sizeof(s)), -1);
	EXPECT_ERR(0x0300);
	root.remove(VEXODB_DISK_LOG_PATH);
	VEXODB *db = VEXODBConnect(VEXODB_DISK_LOG_PATH, VEXODB_WRITE | VEXODB_CREATE);
	ASSERT_NE(db, nullptr);
	ASSERT_EQ(VEXODBExecute(db, "CREATE TABLE other (x INTEGER)"), 0);
	VEXODBClose(db);
	EXPECT_EQ(VEXODiskSerialGetByPlugEvent(1, 100, s, sizeof(s)), -1);
	EXPECT_ERR(0x0300);
	EXPECT_TRUE(log.has(LOG_ERR, "no such table: logs")) << log.dump();
}

TEST_F(Identity, FormFactorWord)
{
	const char *texts[] = {"", "5.25", "3.5", "2.5", "1.8", "below 1.8"};
	for (int v = 1; v <= 5; ++v) {
		ata("sda", "\"form_factor\":" + std::to_string(v));
		EXPECT_EQ(formFactor("sda"), texts[v]) << v;
		expectSent("sda", {"HDIO_GET_IDENTITY -> ok", "HDIO_DRIVE_CMD args=ec000001 -> ok"});
	}
	// Outside the table, and the whole word: the bracket stays as it is.
	ata("sda", "\"form_factor\":7");
	EXPECT_EQ(formFactor("sda"), "unknown (0x0007] inch");
	ata("sda", "\"identify_words\":{\"168\":258}");
	EXPECT_EQ(formFactor("sda"), "unknown (0x0102] inch");
	expectSent("sda", {"HDIO_GET_IDENTITY -> ok", "HDIO_DRIVE_CMD args=ec000001 -> ok", "HDIO_GET_IDENTITY -> ok",
			   "HDIO_DRIVE_CMD args=ec000001 -> ok"});

	// NVMe disks have no such word and are not asked.
	node("nvme0n1", R"({"protocol":"nvme"})");
	EXPECT_EQ(formFactor("nvme0n1"), "unknown");
	expectSent("nvme0n1", {});

	// A short buffer gets nothing rather than a cut text.
	ata("sda", "\"form_factor\":7");
	EXPECT_EQ(formFactor("sda", 8), "rc=-1");
}

TEST_F(Identity, FormFactorFailures)
{
	LogCapture log;
	ata("sda", R"("faults":{"identify":{"abort":true},"packet_identify":{"abort":true}})");
	EXPECT_EQ(formFactor("sda"), "rc=-1");
	EXPECT_EQ(log.count(LOG_ERR, "Failed to read smart identify"), 1) << log.dump();
	EXPECT_EQ(formFactor("sdq"), "rc=-1");
	EXPECT_EQ(log.count(LOG_ERR, "Failed to read smart identify"), 2);

	// A SCSI drive has no IDENTIFY page: -1, silently.
	log.clear();
	root.conf("/etc.defaults/vexoinfo.conf", {{"internalportcfg", "0xff"}, {"usbportcfg", "0xff0000"}, {"vvos", "yes"}});
	node("sdb", kScsiNode);
	EXPECT_EQ(formFactor("sdb"), "rc=-1");
	EXPECT_ERR(0xD900);
	EXPECT_EQ(log.count(LOG_ERR, "Failed to read smart identify"), 0) << log.dump();

	EXPECT_EQ(textOf(VEXODiskFormFactorSizeGet, nullptr), "rc=-1");
	EXPECT_EQ(formFactor("sda", 0), "rc=-1");
	EXPECT_EQ(log.count(LOG_ERR, "Invalid inputed parameter"), 2);
}

TEST_F(Identity, SizeFromTheDrive)
{
	ata("sda", R"("size_bytes":8001563222016,"logical_block_size":512)");
	ata("sdb", R"("size_bytes":16000900661248,"logical_block_size":4096)");
	unsigned long long bytes = 0;
	int block = 0;
	ASSERT_EQ(DiskSizeGet("/dev/sda", &bytes), 0);
	EXPECT_EQ(bytes, 8001563222016ULL);
	ASSERT_EQ(DiskLogicalBlockSizeGet("sda", &block), 0);
	EXPECT_EQ(block, 512);
	expectSent("sda", {"BLKGETSIZE64 -> ok", "BLKSSZGET -> ok"});
	ASSERT_EQ(DiskLogicalBlockSizeGet("/dev/sdb", &block), 0);
	EXPECT_EQ(block, 4096);

	// Failures leave the outputs alone.
	LogCapture log;
	ata("sdc", R"("faults":{"blk":{"errno":"EIO"}})");
	bytes = 5;
	block = 7;
	EXPECT_EQ(DiskSizeGet("/dev/sdc", &bytes), -1);
	EXPECT_EQ(DiskLogicalBlockSizeGet("/dev/sdc", &block), -1);
	EXPECT_ERR(0x6C00);
	EXPECT_EQ(log.count(LOG_ERR, "Failed to ioctl /dev/sdc, errno=Input/output error"), 2) << log.dump();
	EXPECT_EQ(DiskSizeGet("/dev/sdx", &bytes), -1);
	EXPECT_EQ(DiskLogicalBlockSizeGet("/dev/sdx", &block), -1);
	EXPECT_EQ(log.count(LOG_ERR, "Failed to open /dev/sdx, errno=No such file or directory"), 2);
	EXPECT_EQ(bytes, 5u);
	EXPECT_EQ(block, 7);
	EXPECT_EQ(DiskSizeGet(nullptr, &bytes), -1);
	EXPECT_EQ(DiskSizeGet("/dev/sda", nullptr), -1);
	EXPECT_EQ(DiskLogicalBlockSizeGet("/dev/sda", nullptr), -1);
	EXPECT_EQ(log.count(LOG_ERR, "bad paramters"), 3);
	EXPECT_ERR(0x0D00);
}

TEST_F(Identity, TrueSerial)
{
	ata("sda", "");
	EXPECT_EQ(textOf(DiskSerialGet, "sda", 32), "ZA1B2C3D");
	EXPECT_EQ(textOf(DiskSerialGet, "/dev/sda", 8), "rc=-1"); // does not fit: refused whole
	EXPECT_ERR(0x0D00);
	LogCapture log;
	EXPECT_EQ(textOf(DiskSerialGet, "/dev/sdq", 32), "rc=-1");
	EXPECT_TRUE(log.has(LOG_ERR, "SmartFirmAndSerialRead failed on [/dev/sdq] [0x")) << log.dump();
	EXPECT_EQ(textOf(DiskSerialGet, nullptr, 32), "rc=-1");
	EXPECT_ERR(0x0D00);
}

TEST_F(Identity, PathsBySerial)
{
	for (const char *name : {"sda", "sdb", "sdc"}) {
		disks.sata(name, name[2] - 'a' + 1);
		root.write(std::string("/sys/block/") + name + "/device/model", "ST8000VN004-2M2101\n");
	}
	// sda and sdc carry the same serial (a cloned or badly made drive).
	ata("sda", "");
	node("sdb", R"({"protocol":"ata","serial":"OTHER0001"})");
	ata("sdc", "");

	PVLIBSZLIST paths = VLIBCSzListAlloc(4);
	ASSERT_EQ(VEXODiskDevPathGetBySerialNumber("ZA1B2C3D", &paths), 0);
	EXPECT_EQ(items(paths), (std::vector<std::string>{"/dev/sda", "/dev/sdc"}));

	// A disk that cannot tell its serial is passed over, with a line.
	LogCapture log;
	VLIBCSzListClear(paths);
	node("sda", R"({"protocol":"ata","faults":{"identify":{"abort":true},"packet_identify":{"abort":true}}})");
	ASSERT_EQ(VEXODiskDevPathGetBySerialNumber("ZA1B2C3D", &paths), 0);
	EXPECT_EQ(items(paths), std::vector<std::string>{"/dev/sdc"});
	EXPECT_TRUE(log.has(LOG_ERR, "Fail to get drive serial number from [/dev/sda]")) << log.dump();

	VLIBCSzListClear(paths);
	ASSERT_EQ(VEXODiskDevPathGetBySerialNumber("NOSUCH", &paths), 0);
	EXPECT_EQ(items(paths), std::vector<std::string>{});
	EXPECT_EQ(VEXODiskDevPathGetBySerialNumber(nullptr, &paths), -1);
	EXPECT_EQ(VEXODiskDevPathGetBySerialNumber("ZA1B2C3D", nullptr), -1);
	EXPECT_ERR(0x0D00);
	VLIBCSzListFree(paths);
}

// VPD page 0x89 holding `model` in its IDENTIFY data, cut to `bytes`.
std::string ataVpd(const std::string &model, size_t bytes = 572)
{
	std::string page(572, '\0');
	page[1] = static_cast<char>(0x89);
	std::string m = model + std::string(40 - model.size(), ' ');
	for (size_t i = 0; i < 40; i += 2) {
		page[60 + 54 + i] = m[i + 1];
		page[60 + 54 + i + 1] = m[i];
	}
	return page.substr(0, bytes);
}

TEST(WholeModel, FromWhatTheSystemKnows)
{
	using vexo::disk::ModelSource;
	const std::string cut = "WDC WD40EFPX-68C", whole = "WDC WD40EFPX-68C6CN0";
	struct Case {
		const char *what;
		std::string cache, vpd;
		ModelSource from;
		std::string model;
	} cases[] = {
		{"nothing beyond the record", "", "", ModelSource::Record, cut},
		{"the kernel's IDENTIFY data", "", ataVpd(whole), ModelSource::AtaVpd, whole},
		{"a page cut short", "", ataVpd(whole, 100), ModelSource::Record, cut},
		{"another disk's page", "", ataVpd("ST4000VN006-3CW104"), ModelSource::Record, cut},
		{"the cache first", whole + "\n", ataVpd("WDC WD40EFPX-68C0000"), ModelSource::Cache, whole},
		{"a stale cache", "ST4000VN006-3CW104\n", ataVpd(whole), ModelSource::AtaVpd, whole},
	};
	for (const Case &c : cases) {
		Sysroot root;
		root.mkdirs("/sys/block/sda/device");
		if (!c.cache.empty())
			root.write("/run/vexostorage/disks/sda/model", c.cache);
		if (!c.vpd.empty())
			root.write("/sys/block/sda/device/vpd_pg89", c.vpd);
		std::string model;
		EXPECT_EQ(vexo::disk::wholeModel("sda", cut.c_str(), model), c.from) << c.what;
		EXPECT_EQ(model, c.model) << c.what;
	}
}

class FirstDisk : public DriveSim {
protected:
	void SetUp() override
	{
		DriveSim::SetUp();
		disks.sata("sda", 1);
		root.write("/sys/block/sda/device/model", "ST8000VN004-2M2101  \n");
		root.write("/sys/block/sda/device/state", "running\n");
		node("sda", R"({"protocol":"ata","size_bytes":8001563222016,"temperature":41})");
		root.write("/proc/partitions", "major minor  #blocks  name\n\n   8        0 7814026584 sda\n"
					       "   8        1    2490240 sda1\n");
	}
	void product(bool raid)
	{
		root.conf("/etc.defaults/vexoinfo.conf",
			  {{"internalportcfg", "0xff"}, {"usbportcfg", "0xff0000"}, {"support_raid", raid ? "yes" : "no"}});
	}
	DiskLayout disks{root};
};

TEST_F(FirstDisk, RecordUnlessRunningFromMemory)
{
	product(true);
	root.write("/proc/mounts", "/dev/md0 / ext4 rw,relatime 0 0\nproc /proc proc rw 0 0\n");
	DiskInfo info;
	std::memset(&info, 0x5A, sizeof(info));
	ASSERT_EQ(VEXOLnxDiskGetInfo(&info), 0);
	EXPECT_STREQ(info.name, "sda");
	EXPECT_STREQ(info.path, "/dev/sda");
	EXPECT_STREQ(info.model, "ST8000VN004-2M2101");
	EXPECT_EQ(info.sizeBytes, (8001563222016ULL >> 20) << 20);
	EXPECT_EQ(info.temperature, 41);
	EXPECT_EQ(info.id.index, 0);
	EXPECT_EQ(info.secureErasing, 0);

	// Running from memory: size from the block layer, no drive command sent.
	clearCommands("sda");
	root.write("/proc/mounts", "none / aufs rw,relatime,si=1 0 0\n");
	ASSERT_EQ(VEXOLnxDiskGetInfo(&info), 0);
	EXPECT_EQ(info.temperature, 0);
	EXPECT_EQ(info.sizeBytes, (8001563222016ULL >> 20) << 20);
	expectSent("sda", {"BLKGETSIZE64 -> ok"});

	// Without RAID the mount table is not consulted at all.
	product(false);
	root.remove("/proc/mounts");
	ASSERT_EQ(VEXOLnxDiskGetInfo(&info), 0);
	EXPECT_EQ(info.temperature, 41);
}

TEST_F(FirstDisk, Failures)
{
	LogCapture log;
	EXPECT_EQ(VEXOLnxDiskGetInfo(nullptr), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "Bad parameters."));

	DiskInfo info{};
	std::strcpy(info.model, "untouched");
	product(true);
	EXPECT_EQ(VEXOLnxDiskGetInfo(&info), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "Failed to setmntent().")) << log.dump();
	EXPECT_STREQ(info.model, "untouched");

	root.write("/proc/mounts", "/dev/md0 / ext4 rw 0 0\n");
	root.remove("/proc/partitions");
	EXPECT_EQ(VEXOLnxDiskGetInfo(&info), -1);
	EXPECT_STREQ(info.model, "untouched");

	root.remove("/sys/block/sda/device/model");
	EXPECT_EQ(VEXOLnxDiskGetInfo(&info), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "Failed to get disk model."));
	EXPECT_STREQ(info.model, "untouched");
}

// Disk state and the disk action database: running state through stacked
// devices, SATA detection, raw open, action entries, SCT support through
// sg_sat_identify, and the mask_serial repair with its lock.
class DiskState : public SimDisk {
protected:
	std::vector<std::string> physical(const char *path)
	{
		PVLIBSZLIST l = VLIBCSzListAlloc(1);
		int n = VEXODiskPhysicalDiskNameListGet(path, &l);
		std::vector<std::string> out = n > 0 ? items(l) : std::vector<std::string>{};
		if (n < 0)
			out.push_back("failed");
		VLIBCSzListFree(l);
		return out;
	}
};

TEST_F(DiskState, RunningThroughPartitionsAndVolumes)
{
	DiskLayout(root).sata("sdb", 2);
	sysfs("sdb", "ATA", "VEXO HAT5300-8T", true, "offline");
	root.mkdirs("/sys/block/sda/sda3");
	root.mkdirs("/sys/block/sdb/sdb3");
	root.mkdirs("/sys/block/md2/slaves/sda3");
	root.mkdirs("/sys/block/md2/slaves/sdb3");
	root.mkdirs("/sys/block/md2/slaves/sda5"); // no such partition dir: not a member we can place
	EXPECT_EQ(physical("/dev/sda3"), std::vector<std::string>{"sda"});
	EXPECT_EQ(physical("/dev/md2"), std::vector<std::string>{"failed"});
	root.remove("/sys/block/md2/slaves/sda5");
	root.mkdirs("/sys/block/md3/slaves/md2");
	root.mkdirs("/sys/block/md3/slaves/sda3");
	EXPECT_EQ(physical("md3"), (std::vector<std::string>{"sda", "sdb"})); // each disk once

	EXPECT_EQ(VEXODiskIsRunning("/dev/sda"), 1);
	EXPECT_EQ(VEXODiskIsRunning("/dev/sdb"), 0);
	EXPECT_EQ(VEXODiskIsRunning("/dev/md2"), 1); // one running member is enough
	sysfs("sda", "ATA", "VEXO HAT5300-8T", true, "blocked");
	EXPECT_EQ(VEXODiskIsRunning("/dev/md2"), 0);
	root.remove("/sys/block/sda/device/state");
	EXPECT_EQ(VEXODiskIsRunning("/dev/sda"), 0);
	EXPECT_EQ(VEXODiskIsRunning("/dev/nvme0n1"), 1);
	DiskLayout(root).nvme("nvme0n1", "0000:00:01.0");
	root.mkdirs("/sys/block/nvme0n1/nvme0n1p3");
	root.mkdirs("/sys/block/md4/slaves/sda3");
	root.mkdirs("/sys/block/md4/slaves/nvme0n1p3");
	EXPECT_EQ(VEXODiskIsRunning("/dev/md4"), 1); // an NVMe member has no such state and is up
	LogCapture log;
	EXPECT_EQ(VEXODiskIsRunning("/dev/sdz"), 0);
	EXPECT_TRUE(log.has(LOG_ERR, "Failed to get physical disk list from /dev/sdz"));
	EXPECT_EQ(VEXODiskIsRunning(nullptr), 0);
	// Only sysfs was read.
	EXPECT_FALSE(root.exists("/run/vexosim/drive/sda.log"));
}

TEST_F(DiskState, SataSecureEraseAndRawOpen)
{
	EXPECT_EQ(VEXODiskIsSata("/dev/sda"), 1);
	sysfs("sda", "ATAPI", "X", true);
	EXPECT_EQ(VEXODiskIsSata("/dev/sda"), 0);
	sysfs("sda", "SEAGATE", "X", true);
	EXPECT_EQ(VEXODiskIsSata("/dev/sda"), 0);
	EXPECT_EQ(VEXODiskIsSata("/dev/nvme0n1"), 0);
	EXPECT_EQ(VEXODiskIsSata("/dev/sdz"), -1);
	EXPECT_ERR(0x0900);

	EXPECT_EQ(VLIBDiskIsSecureErasing("/dev/sda"), 0);
	root.write(VEXO_SECURE_ERASE_DIR "/sda" VEXO_SECURE_ERASE_SUFFIX, std::to_string(::getpid()));
	EXPECT_EQ(VLIBDiskIsSecureErasing("/dev/sda1"), 1);
	root.write(VEXO_SECURE_ERASE_DIR "/sda" VEXO_SECURE_ERASE_SUFFIX, "garbage");
	VLIBCErrSetEx(0x1234, "before", 1);
	EXPECT_EQ(VLIBDiskIsSecureErasing("sda"), 0);
	EXPECT_ERR(0x1234); // asking left the record alone

	int h = VEXOIDiskRawOpen("/dev/sda3");
	ASSERT_GE(h, 0);
	vexo::dev::close(h);
	EXPECT_NE(root.read("/run/vexosim/drive/sda.log").find("OPEN flags=2048"), std::string::npos);
	EXPECT_EQ(VEXOIDiskRawOpen("/dev/sdz"), -1);
	EXPECT_ERR(0x6C00);
	EXPECT_EQ(VEXOIDiskRawOpen(nullptr), -1);
}

// The flush before a spin-down: FLUSH through HDIO on an ATA disk,
// SYNCHRONIZE CACHE on the SCSI interface, nothing at all on NVMe.
TEST_F(DiskState, FlushBufferByInterface)
{
	EXPECT_EQ(VEXOIDiskFlushBuffer("/dev/sda"), 0); // libata's EINVAL counts as done
	expectSent("sda", {"HDIO_DRIVE_CMD args=null -> errno 22: refused: null argument"});
	node("sda", R"({"protocol":"ata","faults":{"flush":{"errno":"EIO"}}})");
	LogCapture log;
	EXPECT_EQ(VEXOIDiskFlushBuffer("/dev/sda1"), -1);
	EXPECT_ERR(0x6C00);
	EXPECT_TRUE(log.has(LOG_ERR, "Failed to flush the buffer of /dev/sda1")) << log.dump();

	// The virtual edition reaches its disks as SCSI.
	product({{"vvos", "yes"}});
	node("sda", R"({"protocol":"scsi"})");
	EXPECT_EQ(VEXOIDiskFlushBuffer("/dev/sda"), 0);
	expectSent("sda", {"HDIO_DRIVE_CMD args=null -> errno 5", "SG_IO*cdb=35"});

	DiskLayout(root).nvme("nvme0n1", "0000:00:01.2/0000:01:00.0");
	product({{"support_nvme", "yes"}});
	EXPECT_EQ(VEXOIDiskFlushBuffer("/dev/nvme0n1"), -1);
	EXPECT_ERR(0xD900);
	EXPECT_EQ(VEXOIDiskFlushBuffer(nullptr), -1);
	EXPECT_ERR(0x0D00);
	EXPECT_EQ(VEXOIDiskFlushBuffer("/dev/sdz"), -1);
}

TEST_F(DiskState, ActionDatabase)
{
	unsigned flags = 99;
	EXPECT_EQ(VEXODiskConfigDiskActionGet("/dev/sda", &flags), 0); // no database
	EXPECT_EQ(flags, 0u);
	EXPECT_EQ(VEXODiskIsVexology("/dev/sda"), 0);

	actions(R"(<disk pattern="^VEXO" vendor="First" action="0x4000"/>
	           <disk pattern="HAT5300" vendor="Second" action="1"/>
	           <disk model="VEXO HAT5300-8T" vendor="Vexology" action="2097152"/>)");
	EXPECT_EQ(VEXODiskConfigDiskActionGet("/dev/sda", &flags), 0); // the exact model wins
	EXPECT_EQ(flags, 1u << 21);
	EXPECT_EQ(VEXODiskIsVexology("/dev/sda"), 1);
	EXPECT_EQ(VEXODiskConfigVendorMatch("/dev/sda", "vexology"), 0);
	EXPECT_EQ(VEXODiskInSCTCmdBlackList("/dev/sda"), 0);

	sysfs("sda", "ATA", "vexo hat5300-4T", true); // patterns ignore case; the first wins
	EXPECT_EQ(VEXODiskConfigDiskActionGet("/dev/sda", &flags), 0);
	EXPECT_EQ(flags, 0x4000u);
	EXPECT_EQ(VEXODiskInSCTCmdBlackList("/dev/sda"), 1);
	EXPECT_EQ(VEXODiskConfigVendorMatch("/dev/sda", "First"), 1);
	EXPECT_EQ(VEXODiskIsVexology("/dev/sda"), 0);

	sysfs("sda", "ATA", "OTHER 1", true);
	flags = 99;
	EXPECT_EQ(VEXODiskConfigDiskActionGet("/dev/sda", &flags), 0);
	EXPECT_EQ(flags, 0u);

	// The parse is kept while the file stays the same: a rewrite of the
	// same size is seen at once.
	for (unsigned want : {1u, 2u, 2u}) {
		actions("<disk model=\"OTHER 1\" action=\"0x000" + std::to_string(want) + "\"/>");
		EXPECT_EQ(VEXODiskConfigDiskActionGet("/dev/sda", &flags), 0);
		EXPECT_EQ(flags, want);
	}

	LogCapture log;
	root.write("/var/lib/diskaction/diskaction.xml", "<diskaction><disk model=");
	EXPECT_EQ(VEXODiskConfigDiskActionGet("/dev/sda", &flags), -1);
	EXPECT_ERR(0x0A00);
	EXPECT_TRUE(log.has(LOG_ERR, "Failed to parse /var/lib/diskaction/diskaction.xml"));
	root.write("/var/lib/diskaction/diskaction.xml", "<other/>");
	EXPECT_EQ(VEXODiskConfigDiskActionGet("/dev/sda", &flags), -1);
	EXPECT_EQ(VEXODiskConfigDiskActionGet("/dev/sdz", &flags), -1); // no model
	EXPECT_EQ(VEXODiskConfigDiskActionGet(nullptr, &flags), -1);
	EXPECT_EQ(VEXODiskIsVexology(nullptr), 0);
	EXPECT_TRUE(log.has(LOG_ERR, "Invalide input parameters"));
}

TEST_F(DiskState, SctSupportThroughSatIdentify)
{
	tool("/usr/vexo/bin/sg_sat_identify", "cat \"$VEXO_SYSROOT/tmp/identify.out\"");
	root.write("/tmp/identify.out", capture("sg_sat_identify_sct.txt"));
	EXPECT_EQ(VEXODiskSCTCmdSupport("/dev/sda"), 0); // the product says nothing
	EXPECT_TRUE(runs("sg_sat_identify").empty());

	product({{"support_sct_cmd", "yes"}});
	EXPECT_EQ(VEXODiskSCTCmdSupport("/dev/sda"), 1);
	EXPECT_EQ(runs("sg_sat_identify"), std::vector<std::string>{"/dev/sda"});
	root.write("/tmp/identify.out", capture("sg_sat_identify_no_sct.txt"));
	EXPECT_EQ(VEXODiskSCTCmdSupport("/dev/sda"), 0);
	root.write("/tmp/identify.out", "sg_sat_identify: ATA PASS-THROUGH failed\n");
	EXPECT_EQ(VEXODiskSCTCmdSupport("/dev/sda"), -1);

	// Not SATA, or listed: the tool is not run.
	size_t before = runs("sg_sat_identify").size();
	sysfs("sda", "VEXO", "VEXO HAT5300-8T", true);
	EXPECT_EQ(VEXODiskSCTCmdSupport("/dev/sda"), 0);
	sysfs("sda", "ATA", "VEXO HAT5300-8T", true);
	actions(R"(<disk model="VEXO HAT5300-8T" action="0x4000"/>)");
	EXPECT_EQ(VEXODiskSCTCmdSupport("/dev/sda"), 0);
	EXPECT_EQ(runs("sg_sat_identify").size(), before);
	EXPECT_EQ(VEXODiskSCTCmdSupport(nullptr), -1);

	int s = 7;
	EXPECT_EQ(VEXODiskSCTCmdSupportCache("/dev/sda", &s), -1);
	EXPECT_ERR(0x0900);
	root.write("/run/vexostorage/disks/sda/sct_cmd_support", "yes");
	EXPECT_EQ(VEXODiskSCTCmdSupportCache("/dev/sda", &s), -1);
	EXPECT_ERR(0x0A00);
	EXPECT_EQ(s, 7);
	root.write("/run/vexostorage/disks/sda/sct_cmd_support", "1");
	EXPECT_EQ(VEXODiskSCTCmdSupportCache("sda", &s), 0);
	EXPECT_EQ(s, 1);
	root.write("/run/vexostorage/disks/sda/sct_cmd_support", "0");
	EXPECT_EQ(VEXODiskSCTCmdSupportCache("/dev/sda", &s), 0);
	EXPECT_EQ(s, 0);
}

class MaskFlag : public DiskState {
protected:
	void SetUp() override
	{
		DiskState::SetUp();
		actions(R"(<disk model="VEXO HAT5300-8T" vendor="Vexology"/>)");
		// The storage tool's repair: it computes the value and stores it.
		tool("/usr/vexo/sbin/vexostorage",
		     "[ -f \"$VEXO_SYSROOT/tmp/refuse\" ] && exit 1\n"
		     "printf 1 > \"$VEXO_SYSROOT/run/vexostorage/disks/$2/mask_serial\"");
	}
	// Holds the lock in another process for `seconds`, storing value after
	// a moment when it is not negative. Returns once the lock is held.
	pid_t holdLock(double seconds, int value)
	{
		int p[2];
		if (::pipe(p) != 0)
			return -1;
		pid_t pid = ::fork();
		if (pid == 0) {
			int fd = -1;
			if (!VLIBCFileLockTimeByFile("/run/vexostorage/disks/sda/.lock.mask_serial", 1, 1, &fd))
				::_exit(1);
			(void)!::write(p[1], "x", 1);
			::usleep(300000);
			if (value >= 0)
				root.write("/run/vexostorage/disks/sda/mask_serial", std::to_string(value));
			::usleep(static_cast<useconds_t>(seconds * 1e6) - 300000);
			::_exit(0);
		}
		char c;
		(void)!::read(p[0], &c, 1);
		::close(p[0]);
		::close(p[1]);
		return pid;
	}
	static double since(std::chrono::steady_clock::time_point t)
	{
		return std::chrono::duration<double>(std::chrono::steady_clock::now() - t).count();
	}
};

TEST_F(MaskFlag, RepairedByTheStorageTool)
{
	LogCapture log;
	EXPECT_EQ(VEXODiskIsMaskSerial("/dev/sda"), 1);
	EXPECT_EQ(runs("vexostorage"), std::vector<std::string>{"--reset-disk-attr sda serial-mask"});
	EXPECT_TRUE(log.has(LOG_ERR, "Failed to get mask_serial status of /dev/sda, retry it"));
	EXPECT_EQ(root.read("/run/vexostorage/disks/sda/mask_serial"), "1");

	root.remove("/run/vexostorage/disks/sda/mask_serial");
	root.write("/tmp/refuse", "");
	EXPECT_EQ(VEXODiskIsMaskSerial("/dev/sda"), 0);
	EXPECT_TRUE(log.has(LOG_ERR, "Failed to re-set mask_serial status of /dev/sda"));
}

// A cached value answers; SSDs, drives of another vendor and names that
// read as options are not repaired.
TEST_F(MaskFlag, CachedValueOrNoRepair)
{
	root.write("/run/vexostorage/disks/sda/mask_serial", "1");
	EXPECT_EQ(VEXODiskIsMaskSerial("/dev/sda"), 1);
	root.write("/run/vexostorage/disks/sda/mask_serial", "2");
	EXPECT_EQ(VEXODiskIsMaskSerial("sda"), 0);
	root.remove("/run/vexostorage/disks/sda/mask_serial");
	sysfs("sda", "ATA", "VEXO HAT5300-8T", false);
	EXPECT_EQ(VEXODiskIsMaskSerial("/dev/sda"), 0);
	sysfs("sda", "ATA", "OTHER 1", true);
	EXPECT_EQ(VEXODiskIsMaskSerial("/dev/sda"), 0);
	EXPECT_EQ(VEXODiskIsMaskSerial(nullptr), 0);
	// A name that reads as an option never reaches the storage tool.
	for (const char *path : {"--help", "/dev/-x", "-d"}) {
		const std::string name = std::string(path).substr(path[0] == '/' ? 5 : 0);
		sysfs(name, "ATA", "VEXO HAT5300-8T", true);
		root.diskDir(name);
		VLIBCErrClear();
		EXPECT_EQ(VEXODiskIsMaskSerial(path), 0) << path;
		EXPECT_ERR(0x0D00);
	}
	EXPECT_TRUE(runs("vexostorage").empty());
}

TEST_F(MaskFlag, LockHolderRepairsOrOutlastsTheWait)
{
	// The holder stores its answer and lets go; we take that answer and
	// run nothing.
	auto t = std::chrono::steady_clock::now();
	pid_t holder = holdLock(1.0, 1);
	ASSERT_GT(holder, 0);
	EXPECT_EQ(VEXODiskIsMaskSerial("/dev/sda"), 1);
	EXPECT_GE(since(t), 0.9);
	EXPECT_LT(since(t), 2.5);
	::waitpid(holder, nullptr, 0);

	// The holder keeps the lock past our wait and stores nothing: only it
	// may repair, so we give up.
	root.remove("/run/vexostorage/disks/sda/mask_serial");
	holder = holdLock(4.5, -1);
	ASSERT_GT(holder, 0);
	LogCapture log;
	t = std::chrono::steady_clock::now();
	EXPECT_EQ(VEXODiskIsMaskSerial("/dev/sda"), 0);
	double waited = since(t);
	EXPECT_GE(waited, 2.9);
	EXPECT_LT(waited, 4.4);
	EXPECT_TRUE(runs("vexostorage").empty());
	EXPECT_TRUE(log.has(LOG_ERR, "Failed to re-get mask_serial status of /dev/sda"));
	::waitpid(holder, nullptr, 0);
}

// Debug overrides: the gate, the section named by the true serial, every
// reader's value form, and numbers that strtol rejects.
class DebugOverride : public SimDisk {
protected:
	void SetUp() override
	{
		SimDisk::SetUp();
		gate(true);
	}
	void gate(bool on) { product({{"support_disk_status_debug", on ? "yes" : "no"}}); }
	void section(const std::string &body)
	{
		root.write("/tmp/.disk_status_debug", "[VXS0000001]\ntemp=\"12\"\n\n[ZL2K4T7C]\n" + body + "\n");
	}
};

TEST_F(DebugOverride, GateFileSectionOrKey)
{
	int t = -7;
	unsigned u = 7;
	// The gate off: no answer, and the drive is not even asked its serial.
	section("temp=50\nunc=3");
	gate(false);
	EXPECT_EQ(VEXODiskDebugTemperatureGet("/dev/sda", &t), 0);
	EXPECT_EQ(VEXODiskDebugUncGet("/dev/sda", &u), 0);
	EXPECT_EQ(t, -7);
	EXPECT_EQ(u, 7u);
	EXPECT_FALSE(root.exists("/run/vexosim/drive/sda.log"));
	gate(true);
	EXPECT_EQ(VEXODiskDebugTemperatureGet("/dev/sda", &t), 1);
	EXPECT_EQ(t, 50);

	t = -7;
	root.remove("/tmp/.disk_status_debug");
	EXPECT_EQ(VEXODiskDebugTemperatureGet("/dev/sda", &t), 0);
	root.write("/tmp/.disk_status_debug", "[VXS0000001]\ntemp=12\n");
	EXPECT_EQ(VEXODiskDebugTemperatureGet("/dev/sda", &t), 0); // another disk's section
	section("unc=1");
	EXPECT_EQ(VEXODiskDebugTemperatureGet("/dev/sda", &t), 0);
	EXPECT_EQ(t, -7);
	section("temp=\"-5\"");
	EXPECT_EQ(VEXODiskDebugTemperatureGet("/dev/sda", &t), 1);
	EXPECT_EQ(t, -5);
	// A drive that cannot tell its serial is a failure.
	t = -7;
	node("sda", R"({"protocol":"ata","faults":{"identify":{"errno":"EIO"},"packet_identify":{"errno":"EIO"}}})");
	EXPECT_EQ(VEXODiskDebugTemperatureGet("/dev/sda", &t), -1);
	EXPECT_ERR(0x2A00);
	EXPECT_EQ(t, -7);
}

TEST_F(DebugOverride, NumbersStrtolRejectsCountAsAbsent)
{
	unsigned u = 7;
	int t = -7;
	section("unc=99999999999999999999\ntemp=warm\nlife=-1\ncrit=0x1F\nperc_used=42%");
	LogCapture log;
	EXPECT_EQ(VEXODiskDebugUncGet("/dev/sda", &u), 0);      // ERANGE
	EXPECT_EQ(VEXODiskDebugTemperatureGet("/dev/sda", &t), 0); // no digits
	EXPECT_EQ(VEXODiskDebugLifeGet("/dev/sda", &u), 0);     // below zero
	EXPECT_EQ(u, 7u);
	EXPECT_EQ(t, -7);
	EXPECT_EQ(VEXONVMeDebugCritWarningGet("/dev/sda", &u), 1); // hexadecimal
	EXPECT_EQ(u, 0x1Fu);
	EXPECT_EQ(VEXONVMeDebugPercentageUsedGet("/dev/sda", &u), 1); // digits then text: strtol takes 42
	EXPECT_EQ(u, 42u);
	EXPECT_EQ(log.count(LOG_ERR, "Bad number"), 3);
	section("temp=2147483648\nunc=4294967295\ncrit=ff");
	EXPECT_EQ(VEXODiskDebugTemperatureGet("/dev/sda", &t), 0);
	EXPECT_EQ(VEXODiskDebugUncGet("/dev/sda", &u), 1);
	EXPECT_EQ(u, 4294967295u);
	EXPECT_EQ(VEXONVMeDebugCritWarningGet("/dev/sda", &u), 1);
	EXPECT_EQ(u, 0xFFu);
}

TEST_F(DebugOverride, WordsAndTexts)
{
	section("smart_test_quick=aborted\nsmart_test=none\nlatest_test_type=extend\n"
		"adv_code=\"101\"");
	int r = 0;
	EXPECT_EQ(VEXODiskDebugSmartTestResultGet("/dev/sda", "smart_test_quick", &r), 1);
	EXPECT_EQ(r, 2);
	EXPECT_EQ(VEXODiskDebugSmartTestResultGet("/dev/sda", "smart_test", &r), 1);
	EXPECT_EQ(r, 6);
	EXPECT_EQ(SMARTDiskDebugSmartLatestTestTypeGet("/dev/sda", &r), 1);
	EXPECT_EQ(r, 2);
	char code[3] = "x";
	EXPECT_EQ(VEXODiskDebugAdvTestCodeGet("/dev/sda", code, sizeof(code)), -1); // never cut
	EXPECT_STREQ(code, "x");
	char whole[4];
	EXPECT_EQ(VEXODiskDebugAdvTestCodeGet("/dev/sda", whole, sizeof(whole)), 1);
	EXPECT_STREQ(whole, "101");
	section("smart_test_quick=passed\nlatest_test_type=short");
	r = 9;
	EXPECT_EQ(VEXODiskDebugSmartTestResultGet("/dev/sda", "smart_test_quick", &r), 0);
	EXPECT_EQ(SMARTDiskDebugSmartLatestTestTypeGet("/dev/sda", &r), 0);
	EXPECT_EQ(r, 9);
	EXPECT_EQ(VEXODiskDebugSmartTestResultGet("/dev/sda", nullptr, &r), -1);
	EXPECT_EQ(VEXODiskDebugAdvTestCodeGet("/dev/sda", nullptr, 4), -1);
}

TEST_F(DebugOverride, SmartInfoList)
{
	section("smart_info=#5, 100, 100, 10, 0;#194, 36, 40, 0, 36 (Min/Max 20/43);bogus; #9, 98, 98, 0, 1234 ;");
	SmartInfoEntry *list = nullptr;
	LogCapture log;
	ASSERT_EQ(VEXODiskDebugSmartInfoListGet("/dev/sda", &list), 1);
	std::vector<std::vector<std::string>> got;
	for (auto *e = list; e; e = e->next) {
		EXPECT_EQ(e->name, nullptr);
		EXPECT_EQ(e->status, 0u);
		got.push_back({e->id, e->value, e->worst, e->threshold, e->raw});
	}
	VEXODiskSmartInfoFree(list);
	std::vector<std::vector<std::string>> want = {{"5", "100", "100", "10", "0"},
						      {"194", "36", "40", "0", "36 (Min/Max 20/43)"},
						      {"9", "98", "98", "0", "1234"}};
	EXPECT_EQ(got, want);
	EXPECT_TRUE(log.has(LOG_ERR, "Bad smart_info entry [bogus]"));

	section("smart_info=");
	list = reinterpret_cast<SmartInfoEntry *>(0x1);
	EXPECT_EQ(VEXODiskDebugSmartInfoListGet("/dev/sda", &list), 1);
	EXPECT_EQ(list, nullptr);
	section("unc=1");
	list = reinterpret_cast<SmartInfoEntry *>(0x1);
	EXPECT_EQ(VEXODiskDebugSmartInfoListGet("/dev/sda", &list), 0);
	EXPECT_EQ(list, reinterpret_cast<SmartInfoEntry *>(0x1));
	EXPECT_EQ(VEXODiskDebugSmartInfoListGet("/dev/sda", nullptr), -1);
}

// Enumeration on a simulated box with the drive emulator answering: which
// disks are asked their temperature, the size behind a device number, and
// the overview command end to end.

constexpr const char *kBox = R"({
  "model": "VX0402",
  "version": {"majorversion": "7", "minorversion": "2", "productversion": "7.2.2",
              "buildphase": "GM", "base": 72806, "nano": 3, "builddate": "2024/11/06"},
  "ports": {"internal": 2, "esata": 1, "usb": 1},
  "units": [{"port": 1, "model": "XU05", "bays": 5}],
  "devices": [
    {"name": "sda", "where": "bay", "bay": 1, "protocol": "ata", "model": "ST8000VN004-3CP101",
     "serial": "WWZ4K1QA", "firmware": "SC60", "size_bytes": 8001563222016, "rotation_rate": 7200,
     "drive": {"temperature": 37}},
    {"name": "sdb", "where": "bay", "bay": 2, "protocol": "ata", "model": "TOSHIBA MG08ACA16TE",
     "serial": "31P0A0GDFVGG", "firmware": "0102", "size_bytes": 16000900661248, "rotation_rate": 7200,
     "drive": {"temperature": 39}},
    {"name": "sdca", "where": "unit", "port": 1, "bay": 1, "protocol": "ata", "model": "ST4000VN006-3CW104",
     "serial": "ZW62Z1HX", "firmware": "SC60", "size_bytes": 4000787030016, "rotation_rate": 5400,
     "drive": {"temperature": 41}},
    {"name": "sdcb", "where": "unit", "port": 1, "bay": 2, "protocol": "ata", "model": "ST4000VN006-3CW104",
     "serial": "ZW62Z2AD", "firmware": "SC60", "size_bytes": 4000787030016, "rotation_rate": 5400,
     "drive": {"temperature": 44}},
    {"name": "sdd", "where": "usb", "port": 1, "protocol": "ata", "vendor": "WD", "model": "Elements 25A3",
     "serial": "WX12A71KT9E2", "firmware": "1021", "size_bytes": 2000365289472, "rotation_rate": 5400,
     "drive": {"temperature": 30}}
  ]
})";

class EnumSim : public ::testing::Test {
protected:
	static void SetUpTestSuite()
	{
		char t[] = "/tmp/vexo-enumsim.XXXXXX";
		dir_ = ::mkdtemp(t);
		std::ofstream(dir_ + "/box.json") << kBox;
		Ran r = runCaptured({bin("vexosim"), "build", dir_ + "/box.json", dir_ + "/root"});
		ASSERT_EQ(r.status, 0) << r.out << r.err;
	}
	static void TearDownTestSuite() { fs::remove_all(dir_); }
	void SetUp() override
	{
		vexo::external::resetPortMaps();
		fs::remove(root() + VEXO_DISK_SNAPSHOT);
		fs::remove_all(root() + "/run/vexosim/drive");
	}
	static std::string bin(const std::string &name) { return buildDir() + "/bin/" + name; }
	static std::string root() { return dir_ + "/root"; }
	// vexohw in the box; the run brings the box's vcemd up for it.
	static Ran vexohw(const std::vector<std::string> &args)
	{
		std::vector<std::string> argv = {bin("vexosim"), "run", root(), "--", bin("vexohw")};
		argv.insert(argv.end(), args.begin(), args.end());
		HostDaemonLock daemonLock;
		return runCaptured(argv);
	}
	// Commands a drive received (its emulator log, without OPEN lines).
	static int commands(const std::string &name)
	{
		std::ifstream in(root() + "/run/vexosim/drive/" + name + ".log");
		int n = 0;
		for (std::string l; std::getline(in, l);)
			n += l.rfind("OPEN", 0) != 0 && !l.empty();
		return n;
	}
	// name -> temperature of the snapshot's entries
	static std::map<std::string, int> snapshotTemperatures()
	{
		std::ifstream in(root() + VEXO_DISK_SNAPSHOT, std::ios::binary);
		std::map<std::string, int> out;
		DiskInfoFileEntry e;
		while (in.read(reinterpret_cast<char *>(&e), sizeof(e)))
			out[e.name] = e.temperature;
		return out;
	}

	static std::string dir_;
	ScopedEnv sysroot{"VEXO_SYSROOT", root().c_str()};
};

std::string EnumSim::dir_;

TEST_F(EnumSim, WriterAsksOnlyTheDisksThatAreAwake)
{
	ASSERT_EQ(VLIBDiskInfoEnumToCache(nullptr), 0);
	auto t = snapshotTemperatures();
	EXPECT_EQ(t, (std::map<std::string, int>{{"sda", 37}, {"sdb", 39}, {"sdca", 41}, {"sdcb", 44}, {"sdd", 0}}));
	EXPECT_EQ(commands("sdd"), 0); // a USB disk is never asked

	DiskEnumHibStatus all{};
	all.allHibernating = 1;
	fs::remove_all(root() + "/run/vexosim/drive");
	ASSERT_EQ(VLIBDiskInfoEnumToCache(&all), 0);
	for (const auto &[name, temp] : snapshotTemperatures()) {
		EXPECT_EQ(temp, 0) << name;
		EXPECT_EQ(commands(name), 0) << name;
	}

	DiskEnumHibStatus some{};
	ASSERT_EQ(DiskEnumHibDevPush("/dev/sdca", &some, DISK_HIB_KIND_EUNIT), 0);
	ASSERT_EQ(DiskEnumHibDevPush("/dev/sda", &some, DISK_HIB_KIND_USB), 0); // only USB disks are looked up there
	ASSERT_EQ(VLIBDiskInfoEnumToCache(&some), 0);
	t = snapshotTemperatures();
	EXPECT_EQ(t["sdca"], 0);
	EXPECT_EQ(commands("sdca"), 0);
	EXPECT_EQ(t["sdcb"], 44); // its neighbour in the unit is awake
	EXPECT_EQ(t["sda"], 37);
	std::free(some.eunitHibernating);
	std::free(some.usbHibernating);
}

TEST_F(EnumSim, SizeBehindADeviceNumber)
{
	unsigned int *numbers = nullptr;
	ASSERT_EQ(VEXODiskEnum(1, &numbers), 5);
	// in the order of /proc/partitions: bays, the unit (major 68), USB
	EXPECT_EQ(std::vector<unsigned int>(numbers, numbers + 5),
		  (std::vector<unsigned int>{0x800, 0x810, 0x44E0, 0x44F0, 0x830}));
	std::free(numbers);
	DiskBriefInfo *info = nullptr;
	ASSERT_EQ(VEXODiskGetInfo(1, 0x44F0, &info), 0);
	EXPECT_STREQ(info->name, "sdcb");
	EXPECT_EQ(info->capacityMiB, 4000787030016ULL >> 20);
	std::free(info);
	ASSERT_EQ(VEXODiskGetInfo(1, 0x810, &info), 0);
	EXPECT_STREQ(info->name, "sdb");
	EXPECT_EQ(info->type, 7);
	EXPECT_EQ(info->capacityMiB, 16000900661248ULL >> 20);
	EXPECT_EQ(info->reserved[0], 0);
	std::free(info);
}

TEST_F(EnumSim, OverviewWalkAndSnapshotAgree)
{
	Ran walk = vexohw({"--json", "overview", "--walk"});
	ASSERT_EQ(walk.status, 0) << walk.err;
	JsonDoc doc(walk.out);
	ASSERT_NE(doc.obj, nullptr) << walk.out;
	EXPECT_EQ(text(doc.obj, "source"), "walk");
	json_object *disks = field(doc.obj, "disks");
	ASSERT_EQ(json_object_array_length(disks), 5u);
	// bays first, then the unit, then USB
	const char *order[] = {"sda", "sdb", "sdca", "sdcb", "sdd"};
	for (size_t i = 0; i < 5; ++i) {
		json_object *d = json_object_array_get_idx(disks, i);
		EXPECT_EQ(text(d, "name"), order[i]);
		for (const char *k : {"location", "container", "model", "serial", "firmware", "capacity_bytes",
				      "logical_block_size_bytes", "media", "temperature_c", "smart"})
			EXPECT_NE(text(d, k), "<none>") << k;
	}
	json_object *sda = json_object_array_get_idx(disks, 0);
	EXPECT_EQ(text(sda, "location"), "Bay 1");
	EXPECT_EQ(text(sda, "capacity_bytes"), "8001563222016");
	EXPECT_EQ(text(sda, "temperature_c"), "37");
	EXPECT_EQ(text(sda, "media"), "HDD");
	// The kernel cuts the model at 16 bytes; the IDENTIFY data it keeps
	// has the whole, and the record says so.
	EXPECT_EQ(text(sda, "model"), "ST8000VN004-3CP101");
	EXPECT_EQ(text(field(sda, "sources"), "model"), "ata_identify_vpd");
	EXPECT_EQ(text(field(sda, "sources"), "temperature_c"), "drive");
	EXPECT_EQ(text(field(sda, "sources"), "smart"), "smartctl");
	EXPECT_EQ(text(json_object_array_get_idx(disks, 4), "temperature_c"), "null"); // USB: not asked
	EXPECT_EQ(text(json_object_array_get_idx(disks, 2), "location"), "Unit 3 bay 1 (XU05)");

	// The SMART lists came from the tool once and were cached; a second run
	// within the hour is served from the cache (which a tool run would have
	// replaced) and says the same.
	auto cacheStamp = [](const std::string &name) {
		struct stat st {};
		if (::stat((root() + "/run/vexostorage/disks/" + name + "/smart_info_list.cache").c_str(), &st) != 0)
			return std::string("missing");
		return std::to_string(st.st_ino) + "@" + std::to_string(st.st_mtim.tv_sec) + "." +
		       std::to_string(st.st_mtim.tv_nsec);
	};
	const std::string sdaCache = cacheStamp("sda"), sdcaCache = cacheStamp("sdca");
	EXPECT_NE(sdaCache, "missing");
	EXPECT_NE(sdcaCache, "missing");
	Ran again = vexohw({"--json", "overview", "--walk"});
	ASSERT_EQ(again.status, 0) << again.err;
	std::string expected = walk.out;
	for (size_t at; (at = expected.find("\"smart\": \"smartctl\"")) != std::string::npos;)
		expected.replace(at, 19, "\"smart\": \"cache\"");
	EXPECT_EQ(again.out, expected);
	EXPECT_EQ(cacheStamp("sda"), sdaCache);
	EXPECT_EQ(cacheStamp("sdca"), sdcaCache);

	EXPECT_EQ(vexohw({"overview", "--snapshot"}).status, 1);
	EXPECT_EQ(vexohw({"snapshot", "write", "sdcb"}).status, 1);
	Ran wrote = vexohw({"--json", "snapshot", "write", "--hibernating", "sdcb", "/dev/sdd"});
	ASSERT_EQ(wrote.status, 0) << wrote.err;
	EXPECT_EQ(text(JsonDoc(wrote.out).obj, "disk_count"), "5");
	Ran snap = vexohw({"--json", "disk", "list", "--snapshot"});
	ASSERT_EQ(snap.status, 0) << snap.err;
	JsonDoc listed(snap.out);
	EXPECT_EQ(text(listed.obj, "source"), "snapshot");
	json_object *sdisks = field(listed.obj, "disks");
	ASSERT_EQ(json_object_array_length(sdisks), 5u);
	EXPECT_EQ(text(json_object_array_get_idx(sdisks, 3), "temperature_c"), "null"); // written while it slept
	EXPECT_EQ(text(json_object_array_get_idx(sdisks, 2), "temperature_c"), "41");
	EXPECT_EQ(vexohw({"snapshot", "write", "--hibernating", "sda"}).status, 1);
	Ran table = vexohw({"overview"});
	EXPECT_EQ(table.status, 0);
	EXPECT_NE(table.out.find("VX0402: 5 disks"), std::string::npos) << table.out;
}

} // namespace
