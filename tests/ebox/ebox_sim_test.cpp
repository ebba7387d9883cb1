// Expansion units against the unit driver's emulation: the slots a handle
// gets, the bytes each operation writes into the command files, failures,
// and one exchange at a time across processes, by a semaphore that goes
// with its root.
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <initializer_list>
#include <optional>
#include <set>
#include <sys/sem.h>
#include <sys/wait.h>
#include <syslog.h>
#include <vexohw/ebox.h>

#include "smartctl/drive_sim.h"
#include "support/vexotest.h"

using namespace vexo::test;

namespace {

const bool gEmulator = installDriveEmulator();
const char *const kDir = "/sys/class/scsi_host/host4";

void writeUnit(const Sysroot &root, const std::string &deviceid, const std::string &emid, const std::string &unique,
	       const std::string &extra = "")
{
	std::string info = "vexo_device_list=\"/dev/sdca /dev/sdcb\"\nvendor=\"Vexology\"\n" + extra;
	if (!deviceid.empty())
		info += "deviceid=\"" + deviceid + "\"\n";
	if (!emid.empty())
		info += "EMID=\"" + emid + "\"\n";
	info += "Unique=\"" + unique + "\"\n";
	root.write(std::string(kDir) + "/vexo_pm_info", info);
	root.write(std::string(kDir) + "/vexo_pm_gpio", "0x00000000\n");
	root.write(std::string(kDir) + "/vexo_pm_i2c", "");
}

class EBox : public ::testing::Test {
protected:
	Sysroot root;
	LogCapture logs;
	std::vector<VEXO_EBOX_HANDLE_T *> handles;

	void SetUp() override
	{
		ASSERT_TRUE(gEmulator);
		VLIBCErrClear();
		root.write("/etc.defaults/vexoplatform.json", "{\"ebox\": true}\n");
	}
	void TearDown() override
	{
		std::set<int> sems;
		for (auto *h : handles) {
			if (h->sem_id >= 0)
				sems.insert(h->sem_id);
			std::free(h->inner);
			delete h;
		}
		for (int s : sems)
			::semctl(s, 0, IPC_RMID);
	}
	void unit(const std::string &deviceid, const std::string &emid, const std::string &unique,
		  const std::string &extra = "") const
	{
		writeUnit(root, deviceid, emid, unique, extra);
	}
	void state(const std::string &kv) { root.write("/run/vexosim/unit/host4.state", kv); }
	std::string sent() const
	{
		return root.exists("/run/vexosim/unit/host4.log") ? root.read("/run/vexosim/unit/host4.log") : "";
	}
	VEXO_EBOX_HANDLE_T *get(bool unitLevel = false, int expect = 1)
	{
		auto *h = new VEXO_EBOX_HANDLE_T{};
		h->sem_id = -1; // a refused unit leaves the handle as it was
		handles.push_back(h);
		int rc = unitLevel ? VEXOEBoxUnitHandleGet(kDir, h, 4) : VEXOEBoxHandleGet(kDir, h, 4);
		EXPECT_EQ(rc, expect);
		return h;
	}
};

// Slot numbers 1..31 that hold a function.
std::set<int> slotsOf(const VEXO_EBOX_HANDLE_T *h)
{
	std::set<int> out;
	const char *base = reinterpret_cast<const char *>(h) + offsetof(VEXO_EBOX_HANDLE_T, EncodeCmd);
	for (int i = 0; i < 31; ++i) {
		void *p;
		std::memcpy(&p, base + i * sizeof(void *), sizeof(p));
		if (p)
			out.insert(i + 1);
	}
	return out;
}

// Common slots: VendorNameGet 14, DeviceIDGet 15, DiskPathGet 17, EHProcessGet 18,
// IsPMPresent 19, MaxDiskGet 20, Wait 22, Signal 23.
std::set<int> with(std::initializer_list<int> extra)
{
	std::set<int> s = {14, 15, 17, 18, 19, 20, 22, 23};
	s.insert(extra);
	return s;
}

TEST_F(EBox, FamilyModelAndPlaceChooseTheSlots)
{
	struct Row {
		const char *deviceid, *emid, *unique;
		int rc;
		std::set<int> slots;
	} rows[] = {
		{"0x3726", "0", "XU05", 1, with({1, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 21})},
		{"0x3826", "0", "XU01", 1, with({1, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 21, 25, 26, 28})},
		{"0x3726", "0", "XU04", 1, with({1, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 16, 21, 24})},
		{"0x3726 0x9705", "1", "XU06", 1, with({1, 3, 4, 5, 8, 11, 12})}, // 3xxx is tested first
		{"0x3726", "00", "XU05", 1, with({1, 3, 4, 5, 8, 11, 12})},	   // "00" is down the chain
		{"0x3726", "1", "XU12", 1, {}},					   // unknown there: no slot
		{"0x9705", "0", "XU08", 1,
		 with({1, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 16, 21, 24, 25, 26, 28, 29, 30})},
		{"0x9705", "2", "XU07", 1, with({1, 3, 4, 5, 8, 11, 12, 30, 31})},
		{"0x9705", "2", "XU08", 1, with({1, 3, 4, 5, 8, 11, 12, 30})}, // supplies only at the top
		{"0x5755", "0", "XU11", 1, with({5, 6, 8, 9, 11, 12, 13, 16, 21, 25, 26, 30, 31})},
		{"0x5755", "1", "XU11", 1, with({8, 11, 12, 30})},
		{"0x5755", "0", "XU20", 1, with({})},
		{"0x1234", "0", "XU05", 0, {}},
		{"", "0", "XU05", 0, {}},
		{"0x3726", "", "XU05", 0, {}},
	};
	for (const auto &r : rows) {
		SCOPED_TRACE(std::string(r.deviceid) + "/" + r.emid + "/" + r.unique);
		unit(r.deviceid, r.emid, r.unique);
		auto *h = get(false, r.rc);
		if (r.rc) {
			EXPECT_EQ(slotsOf(h), r.slots);
		}
	}
	unit("0x3726", "0", "XU05");
	auto *h = get();
	EXPECT_STREQ(h->info_path, "/sys/class/scsi_host/host4/vexo_pm_info");
	EXPECT_STREQ(h->gpio_path, "/sys/class/scsi_host/host4/vexo_pm_gpio");
	unit("0x5755", "0", "XU11");
	h = get();
	EXPECT_STREQ(h->gpio_path, "/sys/class/scsi_host/host4/vexo_pm_i2c");
	EXPECT_EQ(h->port, 4u);
	EXPECT_GE(h->sem_id, 0);
}

TEST_F(EBox, NoUnitWithoutExpansionPortOrDisks)
{
	unit("0x3726", "0", "XU05");
	root.write("/etc.defaults/vexoplatform.json", "{\"ebox\": false}\n");
	EXPECT_EQ(VEXOEBoxSysfsDevIs(kDir), 0);
	root.write("/etc.defaults/vexoplatform.json", "{\"ebox\": true}\n");
	root.write(std::string(kDir) + "/vexo_pm_info", "vexo_device_list=\"\"\ndeviceid=\"0x3726\"\nEMID=0\nUnique=XU05\n");
	EXPECT_EQ(VEXOEBoxSysfsDevIs(kDir), 0);
	get(false, 0);
	EXPECT_EQ(VEXOEBoxHostInfoGet("deviceid", nullptr, nullptr, 0), 0);
	EXPECT_EQ(VEXOEBoxHandleInitByConfig(nullptr, "XU11", "0x5755", "0"), -1);
}

TEST_F(EBox, FanSpeedCodesBecomePwmBytes)
{
	unit("0x5755", "0", "XU11");
	auto *h = get();
	struct {
		int code, rc;
		const char *line; // what reaches the driver (a Write ends in a space), "" for nothing
	} rows[] = {
		{1, 1, "Write 0x2e 0x31 1 0x00  -> ok\n"}, {2, 1, "Write 0x2e 0x31 1 0x46  -> ok\n"},
		{4, 1, "Write 0x2e 0x31 1 0x46  -> ok\n"}, {5, 1, "Write 0x2e 0x31 1 0x8c  -> ok\n"},
		{6, 1, "Write 0x2e 0x31 1 0xff  -> ok\n"}, {9, 1, "Write 0x2e 0x31 1 0xff  -> ok\n"},
		{0, 0, ""}, {10, 0, ""}, {FAN_SPEED_DUTY_BASE + 50, 0, ""},
	};
	for (const auto &r : rows) {
		SCOPED_TRACE(r.code);
		root.remove("/run/vexosim/unit/host4.log");
		VLIBCErrClear();
		EXPECT_EQ(h->FanCTL(h, static_cast<FAN_SPEED>(r.code)), r.rc);
		EXPECT_EQ(sent(), r.line);
		if (!r.rc) {
			EXPECT_EQ(VLIBCErrGet(), VEXO_ERR_BAD_PARAM);
		}
	}
}

TEST_F(EBox, PowerIsReadThenWrittenOnlyWhenItChanges)
{
	unit("0x5755", "0", "XU11");
	auto *h = get();
	EXPECT_EQ(h->IsPowerOn(h), 1);
	EXPECT_EQ(h->PowerCTL(h, 1), -1); // on already: nothing written
	EXPECT_TRUE(logs.has(LOG_ERR, "Do not need to operate power ctl"));
	EXPECT_EQ(h->PowerCTL(h, 0), 0);
	EXPECT_EQ(sent(), "Read 0x40 0x05 1 -> ok\nRead 0x40 0x05 1 -> ok\n"
			  "Read 0x40 0x05 1 -> ok\nRead 0x40 0x05 1 -> ok\nWrite 0x40 0x05 1 0x00  -> ok\n");
	EXPECT_EQ(h->IsPowerOn(h), 0);
	int errs[2] = {};
	EXPECT_EQ(h->FanErr(h, errs, 2), 1); // an unpowered unit's fans stand still
	EXPECT_EQ(errs[0] + errs[1], 2);

	VEXO_EBOX_I2C_T t{};
	t.address = 0x40;
	t.reg = 0x05;
	EXPECT_EQ(VEXOEBoxI2cRead(h, &t, 1), 0); // no bytes asked: sent, nothing parsed
	EXPECT_NE(sent().find("Read 0x40 0x05 0 -> ok\n"), std::string::npos);
	t.length = 8;
	EXPECT_EQ(VEXOEBoxI2cRead(h, &t, 1), -1);
	EXPECT_EQ(VLIBCErrGet(), VEXO_ERR_BAD_PARAM);
}

TEST_F(EBox, I2cFailuresAndGates)
{
	struct Row {
		const char *unique, *extra, *state;
		int rc;
		unsigned err;
		const char *log;
	} rows[] = {
		{"XU11", "", "fail=1\n", -1, VEXO_ERR_WRITE, "Failed to write \"Read 0x40 0x05 1\""},
		{"XU12", "", "", -1, VEXO_ERR_UNSUPPORTED, "EBox XU12 failed to get Power Status"},
		{"XU11", "eh_process=1\n", "", 1, 0, nullptr}, // error handling busy: nothing sent
	};
	for (const auto &r : rows) {
		SCOPED_TRACE(r.unique);
		root.remove("/run/vexosim/unit/host4.log");
		unit("0x5755", "0", r.unique, r.extra);
		state(r.state);
		VLIBCErrClear();
		auto *h = get();
		ASSERT_EQ(VEXOEBoxI2cIsPowerOn(h), r.rc);
		if (r.err) {
			EXPECT_EQ(VLIBCErrGet(), r.err);
		}
		if (r.log) {
			EXPECT_TRUE(logs.has(LOG_ERR, r.log)) << logs.dump();
		} else {
			EXPECT_EQ(sent(), "");
		}
	}
	EXPECT_EQ(VEXOEBoxI2cFanCTL(nullptr, FAN_SPEED_FULL), 0);
	EXPECT_EQ(VLIBCErrGet(), VEXO_ERR_BAD_PARAM);
	unit("0x5755", "0", "XU11");
	state("");
	auto *h = get();
	VEXO_EBOX_I2C_T t{};
	t.address = 0x50; // nothing answers there
	t.length = 1;
	EXPECT_EQ(VEXOEBoxI2cRead(h, &t, 0), -1);
}

TEST_F(EBox, OperationsLandInRegistersAndGpioWords)
{
	unit("0x5755", "0", "XU11");
	auto *h = get();
	EXPECT_EQ(h->LedAlarmCTL(h, 2), 0);
	EXPECT_EQ(h->LedDiskStatAllCTL(h, 3), 0);
	EXPECT_EQ(h->LedDiskStatCTL(h, 12, 1), 0);
	EXPECT_EQ(h->LedDiskStatCTL(h, 13, 1), -1);
	EXPECT_EQ(h->PowerBtnDisableSet(h, 1), 0);
	EXPECT_EQ(h->IsPowerBtnDisabled(h), 1);
	std::string st = root.read("/run/vexosim/unit/host4.state");
	for (const char *kv : {"r.0x40.0x06=8\n", "r.0x41.0x10=3\n", "r.0x41.0x16=3\n", "r.0x41.0x1b=1\n",
			       "r.0x40.0x09=1\n"})
		EXPECT_NE(st.find(kv), std::string::npos) << kv << st;
	EXPECT_NE(sent().find("Write 0x41 0x10 7 0x03 0x03 0x03 0x03 0x03 0x03 0x03  -> ok\n"
			      "Write 0x41 0x17 5 0x03 0x03 0x03 0x03 0x03  -> ok\n"),
		  std::string::npos);

	struct {
		const char *deviceid, *unique, *word;
	} gpio[] = {{"0x3726", "XU05", "0x00000109"}, {"0x9705", "XU08", "0x80000109"}};
	for (const auto &g : gpio) {
		unit(g.deviceid, "0", g.unique);
		state("fans=2\nfanfail=2\n");
		root.remove("/run/vexosim/unit/host4.log");
		h = get();
		EXPECT_EQ(h->FanCTL(h, FAN_SPEED_FULL), 1);
		EXPECT_EQ(sent(), std::string(g.word) + " -> ok\n");
		int errs[3] = {7, 7, 7}, rpm = -1;
		EXPECT_EQ(h->FanErr(h, errs, 3), 1);
		EXPECT_EQ(errs[0] * 100 + errs[1] * 10 + errs[2], 10);
		EXPECT_EQ(h->FanSpeedGet(h, 1, &rpm), 0);
		EXPECT_EQ(rpm, 3600);
		EXPECT_EQ(h->FanNumberGet(h), 2);
	}
}

TEST_F(EBox, UnitHandleAnswersZeroForWhatTheUnitLacks)
{
	unit("0x3726", "1", "XU05");
	auto *h = get(true);
	ASSERT_NE(h->inner, nullptr);
	EXPECT_EQ(h->FanCTL(h, FAN_SPEED_FULL), 0);
	EXPECT_EQ(h->PowerCTL(h, 1), 0);
	EXPECT_EQ(h->IsSupportPowerBtnDisable(h), 0);
	EXPECT_EQ(h->LedAlarmCTL, nullptr);
	EXPECT_EQ(sent(), "");
	char path[32];
	EXPECT_EQ(h->DiskPathGet(h, 2, path, sizeof(path)), 0);
	EXPECT_STREQ(path, "/dev/sdcb");
	EXPECT_EQ(h->DiskPathGet(h, 3, path, sizeof(path)), -1);
	EXPECT_EQ(h->LedDiskStatCTL(h, 1, 2), 0);
	EXPECT_EQ(sent(), "0x00000512 -> ok\n");

	unit("0x5755", "0", "XU11");
	h = get(true);
	EXPECT_EQ(h->IsSupportPowerBtnDisable(h), 1);
	EXPECT_EQ(h->FanCTL(h, FAN_SPEED_MIDDLE), 1);
	EXPECT_EQ(h->LedDiskStatCTL(h, 2, 1), 0);
	EXPECT_NE(sent().find("Write 0x41 0x11 1 0x01  -> ok"), std::string::npos);
}

// Without the unit's semaphore two processes' commands and answers would
// cross in the one command file.
TEST_F(EBox, ConcurrentReadersEachGetTheirOwnAnswer)
{
	unit("0x5755", "0", "XU11");
	state("r.0x40.0x05=4\nr.0x2e.0x31=140\n");
	auto reader = [&](unsigned short addr, unsigned short reg, unsigned char want) {
		return [=] {
			VEXO_EBOX_HANDLE_T h{};
			if (!VEXOEBoxHandleGet(kDir, &h, 4))
				return 2;
			for (int i = 0; i < 60; ++i) {
				VEXO_EBOX_I2C_T t{};
				t.address = addr;
				t.reg = reg;
				t.length = 1;
				if (VEXOEBoxI2cRead(&h, &t, 1) != 0 || t.read_data[0] != want)
					return 1;
			}
			return 0;
		};
	};
	get(); // creates the semaphore, removed at the end
	pid_t a = ::fork();
	if (a == 0)
		_exit(reader(0x40, 0x05, 0x04)());
	int other = inChild(reader(0x2E, 0x31, 0x8C));
	int status = 0;
	::waitpid(a, &status, 0);
	EXPECT_EQ(other, 0);
	EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

// A unit's semaphore goes with its simulated root: the test root's
// teardown, `vexosim stop` and a rebuild over it remove it, so no box
// leaves one behind.
TEST(UnitSemaphore, GoesWithTheRoot)
{
	ASSERT_TRUE(gEmulator);
	enum By { Removed, Stop, Rebuild };
	const struct {
		const char *teardown;
		By by;
	} cases[] = {{"test root removed", Removed}, {"vexosim stop", Stop}, {"vexosim build over it", Rebuild}};
	for (const auto &c : cases) {
		SCOPED_TRACE(c.teardown);
		std::optional<Sysroot> root(std::in_place);
		root->write("/etc.defaults/vexoplatform.json", "{\"ebox\": true}\n");
		writeUnit(*root, "0x3726", "0", "XU05");
		VEXO_EBOX_HANDLE_T h{};
		h.sem_id = -1;
		ASSERT_EQ(VEXOEBoxUnitHandleGet(kDir, &h, 4), 1);
		std::free(h.inner);
		semid_ds ds{};
		ASSERT_EQ(::semctl(h.sem_id, 0, IPC_STAT, &ds), 0);
		const key_t key = ds.sem_perm.__key;
		const std::string vexosim = buildDir() + "/bin/vexosim";
		if (c.by == Stop) {
			EXPECT_EQ(runProgram({vexosim, "stop", root->root()}), 0);
		}
		if (c.by == Rebuild) {
			root->write("/.vexosim", "vexosim root\n"); // a root vexosim may replace
			EXPECT_EQ(runProgram({vexosim, "build", sourceDir() + "/examples/box12.json", root->root()}), 0);
		}
		if (c.by == Removed)
			root.reset();
		errno = 0;
		EXPECT_EQ(::semget(key, 0, 0), -1);
		EXPECT_EQ(errno, ENOENT);
	}
}

} // namespace

