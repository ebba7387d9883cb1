// Disk enumeration: records of one disk, the walk by port type, the
// snapshot and its readers, the lookup by device number, the shared lists.
#include <algorithm>
#include <atomic>
#include <functional>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/stat.h>
#include <syslog.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <csignal>
#include <sys/wait.h>

#include <vexohw/disk.h>
#include <vexohw/disk_enum.h>
#include <vexohw/disk_port.h>
#include <vexohw/disk_state.h>

#include "disk/disk_info_walk.h"
#include "external/port_map.h"
#include "support/disk_layout.h"
#include "support/sim_daemon.h"

using vexo::test::DiskLayout;
using vexo::test::LogCapture;
using vexo::test::Sysroot;

static_assert(sizeof(SharedDiskInfo) == 360);
static_assert(offsetof(SharedDiskInfo, temperatureMin) == 328);
static_assert(offsetof(SharedDiskInfo, temperatureMax) == 332);
static_assert(offsetof(SharedDiskInfo, warningCountdown) == 336);
static_assert(offsetof(SharedDiskInfo, warningTime) == 344);
static_assert(offsetof(SharedDiskInfo, temperatureAbnormal) == 352);
static_assert(sizeof(DiskBriefInfo) == 88);
static_assert(offsetof(DiskBriefInfo, name) == 4);
static_assert(offsetof(DiskBriefInfo, type) == 68);
static_assert(offsetof(DiskBriefInfo, capacityMiB) == 72);
static_assert(offsetof(DiskBriefInfo, reserved) == 80);
static_assert(offsetof(DiskEnumHibStatus, eunitHibernating) == 8);
static_assert(offsetof(DiskHibDevNode, path) == 8);

namespace {

// A vcemd alive, or none, for the test's length; the host-wide lock keeps
// other test processes from starting or stopping one meanwhile.
class Vcemd {
public:
	explicit Vcemd(bool alive) : pid_(alive ? vexo::test::startNamedProcess("vcemd") : -1) {}
	~Vcemd()
	{
		if (pid_ > 0) {
			::kill(pid_, SIGKILL);
			::waitpid(pid_, nullptr, 0);
		}
	}

private:
	vexo::test::HostDaemonLock lock_;
	pid_t pid_;
};

using Names = std::vector<std::string>;

Names names(const DiskListNode *list)
{
	Names out;
	for (; list; list = list->next)
		out.emplace_back(list->info->name);
	return out;
}

struct List {
	DiskListNode *head = nullptr;
	~List() { DiskInfoEnumFree(head); }
};

// sda, sdb internal; sdc and sde external SATA ports, an expansion unit
// behind sdc (sdca, sdcb); sdd USB; sdf cache; sysd1 a system device.
class DiskEnum : public ::testing::Test {
protected:
	void SetUp() override
	{
		VLIBCErrClear();
		vexo::disk::gAfterNamesHook = nullptr;
		disks.platform(R"({"model": "VQ300", "ebox": true})");
		maps({});
		int port = 1;
		for (const char *n : {"sda", "sdb", "sdd", "sde", "sdf", "sdca", "sdcb"}) {
			++port;
			disks.sata(n, port - 1, "0000:00:17.0", 1000ULL * port);
			root.write(std::string("/sys/block/") + n + "/device/model", std::string("MODEL-") + n + "\n");
		}
		disks.unit(20, "sdc", {"/dev/sdca", "/dev/sdcb"});
		disks.plain("sysd1");
		root.write("/sys/block/sysd1/queue/logical_block_size", "4096\n");
		root.mkdirs("/tmp");
	}
	void TearDown() override
	{
		vexo::disk::gAfterNamesHook = nullptr;
		vexo::external::resetPortMaps();
	}
	void maps(const std::vector<std::pair<std::string, std::string>> &extra)
	{
		disks.portMaps("8", "14", "3", "20", extra);
		vexo::external::resetPortMaps();
	}
	int enumerate(int32_t mask, List &l)
	{
		DiskEnumFilter f{&mask};
		return DiskInfoEnum(&f, &l.head);
	}
	std::string entryBytes(const char *name, const char *path, int32_t container, int32_t temperature = 0)
	{
		DiskInfo d{};
		d.id.index = 1;
		d.id.container = container;
		d.id.slot = -1;
		std::strcpy(d.name, name);
		std::strcpy(d.path, path);
		std::strcpy(d.model, "FROM SNAPSHOT");
		d.sizeBytes = 123456789;
		d.temperature = temperature;
		d.logicalBlockSize = 512;
		DiskInfoFileEntry e;
		std::memset(&e, 0x5A, sizeof(e));
		vexo::disk::encodeEntry(d, e);
		return std::string(reinterpret_cast<const char *>(&e), sizeof(e));
	}
	// One disk's record as "name path model bytes block index container
	// partition erasing", or "rc=<rc>" with the out pointer checked untouched.
	std::string record(const char *path, int (*get)(const char *, DiskInfo **) = DiskInfoGetWithoutSMART)
	{
		DiskInfo *keep = reinterpret_cast<DiskInfo *>(0x1), *d = keep;
		int rc = get(path, &d);
		if (rc != 1)
			return "rc=" + std::to_string(rc) + (d == keep ? "" : " touched");
		std::string out = std::string(d->name) + " " + d->path + " " + d->model + " " + std::to_string(d->sizeBytes) +
				  " " + std::to_string(d->logicalBlockSize) + " " + std::to_string(d->id.index) + " " +
				  std::to_string(d->id.container) + " " + std::to_string(d->id.partitionNumber) + " " +
				  std::to_string(d->secureErasing);
		DiskInfoFree(d);
		return out;
	}
	void erasing(const std::string &name) const
	{
		root.write(VEXO_SECURE_ERASE_DIR "/" + name + VEXO_SECURE_ERASE_SUFFIX, std::to_string(::getpid()) + "\n");
	}

	Sysroot root;
	DiskLayout disks{root};
};

// ---- one disk ---------------------------------------------------------------

TEST_F(DiskEnum, RecordOfOneDisk)
{
	// A /dev path keeps the slash in the name; a bare name does not. No model is no failure.
	EXPECT_EQ(record("/dev/sdb"), "/sdb /dev/sdb MODEL-sdb 1536000 512 2 1 0 0");
	EXPECT_EQ(record("sdb3"), "sdb /dev/sdb MODEL-sdb 1536000 512 2 1 3 0");
	EXPECT_EQ(record("sysd1"), "sysd1 /dev/sysd1  1073741824 4096 1 128 0 0");
	DiskInfoFree(nullptr);
	// An erasing disk is not asked its block size.
	erasing("sdb");
	root.remove("/sys/block/sdb/queue/logical_block_size");
	EXPECT_EQ(record("sdb"), "sdb /dev/sdb MODEL-sdb 1536000 0 2 1 0 1");
}

TEST_F(DiskEnum, RecordFailuresLeaveNothingBehind)
{
	LogCapture log;
	EXPECT_EQ(record(nullptr), "rc=-1");
	EXPECT_EQ(DiskInfoGetWithoutSMART("sda", nullptr), -1);
	EXPECT_EQ(log.count(LOG_ERR, "bad paramters"), 2);
	EXPECT_ERR(VEXO_ERR_BAD_PARAM);
	EXPECT_EQ(record("/dev/loop0"), "rc=-1");
	EXPECT_TRUE(log.has(LOG_ERR, "Failed to parse disk path /dev/loop0"));

	root.remove("/sys/block/sdb/queue/logical_block_size");
	log.clear();
	EXPECT_EQ(record("sdb"), "rc=-1");
	EXPECT_TRUE(log.has(LOG_ERR, "Fail to fopen [/sys/block/sdb/queue/logical_block_size]"));
	// once where it failed, once from the caller
	EXPECT_EQ(log.count(LOG_ERR, "Fail to get disk logical block size"), 1);
	root.write("/sys/block/sdb/queue/logical_block_size", "\n");
	log.clear();
	EXPECT_EQ(record("sdb"), "rc=-1");
	EXPECT_EQ(log.count(LOG_ERR, "Fail to get disk logical block size"), 2);

	root.write("/sys/block/sda/size", "lots\n");
	log.clear();
	EXPECT_EQ(record("sda"), "rc=-1");
	EXPECT_TRUE(log.has(LOG_ERR, "Failed to get size"));
	root.remove("/sys/block/sda");
	EXPECT_EQ(record("sda"), "rc=-1");
	EXPECT_TRUE(log.has(LOG_ERR, "Failed to open /sys/block/sda/size"));
	// DiskInfoGet passes the failing value on with its own line.
	log.clear();
	EXPECT_EQ(record("sda", DiskInfoGet), "rc=-1");
	EXPECT_TRUE(log.has(LOG_ERR, "fail to get disk information"));
}

// ---- the walk -----------------------------------------------------------------

TEST_F(DiskEnum, WalkWithoutDaemonListsByTypeAndTemperature)
{
	Vcemd none(false);
	ASSERT_EQ(VLIBCIsProcAlive("vcemd", 0), 0) << "a vcemd runs on this host";
	// A snapshot is not read while vcemd is down.
	root.write(VEXO_DISK_SNAPSHOT, entryBytes("sdz", "/dev/sdz", 1));
	List all;
	ASSERT_EQ(DiskInfoEnum(nullptr, &all.head), 8);
	EXPECT_EQ(names(all.head), (Names{"sda", "sdb", "sdca", "sdcb", "sdf", "sdd", "sde", "sysd1"}));

	List some;
	ASSERT_EQ(enumerate(DISK_CONTAINER_EBOX | DISK_CONTAINER_SYS, some), 3);
	EXPECT_EQ(names(some.head), (Names{"sdca", "sdcb", "sysd1"}));
	EXPECT_EQ(some.head->info->id.unit, 3);
	EXPECT_EQ(some.head->next->info->id.index, 2);

	// tmpfs selects no type, and an empty mask nothing at all.
	List none16;
	EXPECT_EQ(enumerate(DISK_CONTAINER_TMPFS, none16), 0);
	EXPECT_EQ(none16.head, nullptr);
	DiskEnumFilter nullMask{nullptr};
	List viaNullMask;
	EXPECT_EQ(DiskInfoEnum(&nullMask, &viaNullMask.head), 8);
	// Here no drive answers, so a disk that is asked reads -1; the virtual
	// edition asks none.
	EXPECT_EQ(all.head->info->temperature, -1);
	maps({{"vvos", "yes"}});
	DiskInfo *d = nullptr;
	ASSERT_EQ(DiskInfoGet("sda", &d), 1);
	EXPECT_EQ(d->temperature, 0);
	DiskInfoFree(d);
	List virt;
	ASSERT_EQ(DiskInfoEnum(nullptr, &virt.head), 8);
	for (const DiskListNode *c = virt.head; c; c = c->next)
		EXPECT_EQ(c->info->temperature, 0) << c->info->name;

	LogCapture log;
	EXPECT_EQ(DiskInfoEnum(nullptr, nullptr), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "Bad parameters"));
}

TEST_F(DiskEnum, WalkFailsWhenTheBoxHasNoInternalDisk)
{
	Vcemd none(false);
	for (const char *n : {"sda", "sdb"})
		root.remove(std::string("/sys/block/") + n);
	LogCapture log;
	DiskListNode *keep = reinterpret_cast<DiskListNode *>(0x10);
	DiskListNode *list = keep;
	int32_t mask = DISK_CONTAINER_INTERNAL | DISK_CONTAINER_CACHE;
	DiskEnumFilter f{&mask};
	EXPECT_EQ(DiskInfoEnum(&f, &list), -1);
	EXPECT_EQ(list, keep);
	EXPECT_TRUE(log.has(LOG_ERR, "DiskInfoEnum failed"));
	// Products that may have none: a USB station, an isolated disk system.
	for (const char *product : {"usbstation", "support_isolated_disk_system"}) {
		maps({{product, "yes"}});
		List l;
		EXPECT_EQ(DiskInfoEnum(&f, &l.head), 1) << product;
		EXPECT_EQ(names(l.head), Names{"sdf"}) << product;
	}
	// Without an expansion port the unit's disks are not looked for.
	disks.platform(R"({"model": "VQ300", "ebox": false})");
	mask = DISK_CONTAINER_EBOX;
	list = nullptr;
	EXPECT_EQ(DiskInfoEnum(&f, &list), 0);
	EXPECT_EQ(list, nullptr);
}

TEST_F(DiskEnum, DiskGoneBetweenGlobAndReadIsDropped)
{
	Vcemd none(false);
	static Sysroot *r = &root;
	vexo::disk::gAfterNamesHook = [](int type, PVLIBSZLIST found) {
		if (type == DISK_PORT_TYPE_INTERNAL && VLIBCSzListFind(found, "sdb") >= 0)
			r->remove("/sys/block/sdb"); // hot-removed after the glob saw it
	};
	LogCapture log;
	List l;
	ASSERT_EQ(enumerate(DISK_CONTAINER_INTERNAL | DISK_CONTAINER_USB, l), 2);
	EXPECT_EQ(names(l.head), (Names{"sda", "sdd"}));
	EXPECT_TRUE(log.has(LOG_ERR, "Failed to get disk information sdb"));
}

// ---- the snapshot --------------------------------------------------------------

TEST_F(DiskEnum, SnapshotSizes)
{
	Vcemd alive(true);
	const std::string one = entryBytes("sdy", "/dev/sdy", DISK_CONTAINER_INTERNAL, 41);
	const std::string two = entryBytes("sdz", "/dev/sdz", DISK_CONTAINER_INTERNAL, 42);
	int32_t mask = DISK_CONTAINER_INTERNAL;
	DiskEnumFilter f{&mask};
	struct Case {
		std::string bytes;
		Names want;
	} cases[] = {
		{"", {"sda", "sdb"}},                          // empty: a walk
		{one.substr(0, 319), {"sda", "sdb"}},          // no whole entry: a walk
		{one, {"sdy"}},
		{one + two.substr(0, 319), {"sdy"}},           // 639 bytes: one entry
		{one + two, {"sdy", "sdz"}},
		{one + two + "x", {"sdy", "sdz"}},             // 641 bytes: two
	};
	for (const auto &c : cases) {
		root.write(VEXO_DISK_SNAPSHOT, c.bytes);
		List l;
		int n = DiskInfoEnum(&f, &l.head);
		EXPECT_EQ(n, static_cast<int>(c.want.size())) << c.bytes.size() << " bytes";
		EXPECT_EQ(names(l.head), c.want) << c.bytes.size() << " bytes";
	}
	// An old temperature, as the writer stored it.
	root.write(VEXO_DISK_SNAPSHOT, one);
	List l;
	ASSERT_EQ(DiskInfoEnum(&f, &l.head), 1);
	EXPECT_EQ(l.head->info->temperature, 41);
	EXPECT_STREQ(l.head->info->model, "FROM SNAPSHOT");
	EXPECT_EQ(l.head->info->sizeBytes, 123456789u);
	EXPECT_EQ(l.head->info->id.slot, -1);
}

TEST_F(DiskEnum, SnapshotRecordsAreTerminatedAndClearedWhole)
{
	Vcemd alive(true);
	// Three entries of nothing but 0xFF: no text ends inside its field.
	root.write(VEXO_DISK_SNAPSHOT, std::string(320 * 3, '\xff'));
	// Blocks of a record's size, full of ones and freed just before: a reader
	// that does not clear what it allocates hands their bytes on.
	std::vector<void *> dirty;
	for (int i = 0; i < 32; ++i) {
		void *p = std::malloc(sizeof(DiskInfo));
		ASSERT_NE(p, nullptr);
		std::memset(p, 0xFF, sizeof(DiskInfo));
		__asm__ __volatile__("" : : "r"(p) : "memory");
		dirty.push_back(p);
	}
	for (auto it = dirty.rbegin(); it != dirty.rend(); ++it)
		std::free(*it);
	List l;
	ASSERT_EQ(enumerate(-1, l), 3);
	// Records are compared and copied bytewise, padding and all.
	const std::size_t end = offsetof(DiskInfo, logicalBlockSize) + sizeof(int32_t);
	for (const DiskListNode *c = l.head; c; c = c->next) {
		const auto *bytes = reinterpret_cast<const unsigned char *>(c->info);
		EXPECT_EQ(std::strlen(c->info->name), 15u);
		EXPECT_EQ(std::strlen(c->info->path), 127u);
		EXPECT_EQ(std::strlen(c->info->model), 127u);
		EXPECT_EQ(std::string(reinterpret_cast<const char *>(c->info->reserved), 12), std::string(12, '\0'));
		EXPECT_EQ(std::string(reinterpret_cast<const char *>(bytes + end), sizeof(DiskInfo) - end),
			  std::string(sizeof(DiskInfo) - end, '\0'))
			<< c->info->name;
	}
}

TEST_F(DiskEnum, SnapshotEntryHasFreshSecureErasing)
{
	Vcemd alive(true);
	root.write(VEXO_DISK_SNAPSHOT, entryBytes("sda", "/dev/sda", 1, 38) + entryBytes("sdb", "/dev/sdb", 1, 39) +
					       entryBytes("sdc", "/dev/sdc", 1, 40));
	// The flags of sda, sdb, sdc as "010"; the listing and the one-disk question never disagree.
	auto erasingFlags = [&] {
		List l;
		EXPECT_EQ(enumerate(DISK_CONTAINER_INTERNAL, l), 3);
		std::string flags;
		for (const DiskListNode *c = l.head; c; c = c->next) {
			flags += std::to_string(c->info->secureErasing);
			EXPECT_EQ(c->info->secureErasing, VLIBDiskIsSecureErasing(c->info->path)) << c->info->path;
		}
		// An erasing disk keeps the snapshot's temperature.
		EXPECT_EQ(l.head->next->info->temperature, 39);
		return flags;
	};
	ASSERT_FALSE(root.exists(VEXO_SECURE_ERASE_DIR));
	EXPECT_EQ(erasingFlags(), "000");

	pid_t dead = ::fork();
	if (dead == 0)
		::_exit(0);
	ASSERT_GT(dead, 0);
	::waitpid(dead, nullptr, 0);
	const std::string self = std::to_string(::getpid()) + "\n", gone = std::to_string(dead) + "\n";
	const struct {
		std::vector<std::pair<std::string, std::string>> markers;
		const char *want;
	} steps[] = {
		{{{"sdb" VEXO_SECURE_ERASE_SUFFIX, self}}, "010"}, // an erase begun between two calls is seen by the second
		{{{"sdb" VEXO_SECURE_ERASE_SUFFIX, self}, {"sdc" VEXO_SECURE_ERASE_SUFFIX, gone}}, "010"}, // its eraser died
		{{}, "000"}, // erases done: the folder stays behind, empty, or holds only strangers
		{{{"sdq" VEXO_SECURE_ERASE_SUFFIX, self}, {"sda.tmp", self}}, "000"},
		{{{"sda" VEXO_SECURE_ERASE_SUFFIX, self}}, "100"},
	};
	for (const auto &step : steps) {
		root.remove(VEXO_SECURE_ERASE_DIR);
		root.mkdirs(VEXO_SECURE_ERASE_DIR);
		for (const auto &[name, pid] : step.markers)
			root.write(VEXO_SECURE_ERASE_DIR "/" + name, pid);
		EXPECT_EQ(erasingFlags(), step.want);
	}
	// A file where the folder should be holds no marker.
	root.remove(VEXO_SECURE_ERASE_DIR);
	root.write(VEXO_SECURE_ERASE_DIR, self);
	EXPECT_EQ(erasingFlags(), "000");
}

TEST_F(DiskEnum, SnapshotWithNullFilterOrNoMatch)
{
	Vcemd alive(true);
	LogCapture log;
	root.write(VEXO_DISK_SNAPSHOT, entryBytes("sdy", "/dev/sdy", 1));
	DiskListNode *keep = reinterpret_cast<DiskListNode *>(0x10);
	DiskListNode *list = keep;
	EXPECT_EQ(DiskInfoEnum(nullptr, &list), -1);
	EXPECT_ERR(VEXO_ERR_BAD_PARAM);
	DiskEnumFilter nullMask{nullptr};
	EXPECT_EQ(DiskInfoEnum(&nullMask, &list), -1);
	EXPECT_EQ(list, keep);
	// An empty snapshot is walked before the filter is looked at.
	root.write(VEXO_DISK_SNAPSHOT, "");
	list = nullptr;
	EXPECT_EQ(DiskInfoEnum(nullptr, &list), 8);
	DiskInfoEnumFree(list);

	// A snapshot that selects nothing walks.
	root.write(VEXO_DISK_SNAPSHOT, entryBytes("sdy", "/dev/sdy", DISK_CONTAINER_EBOX));
	root.remove("/sys/block/sdd");
	List l;
	EXPECT_EQ(enumerate(DISK_CONTAINER_USB, l), 0);
	EXPECT_EQ(l.head, nullptr);
	// A walk that fails here logs the empty-snapshot line.
	for (const char *n : {"sda", "sdb"})
		root.remove(std::string("/sys/block/") + n);
	List f;
	EXPECT_EQ(enumerate(DISK_CONTAINER_INTERNAL, f), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "SZF_ENUM_DETAIL_LIST disk count is 0, and try to diskInfoEnum failed"));
	root.remove(VEXO_DISK_SNAPSHOT);
	EXPECT_EQ(enumerate(DISK_CONTAINER_INTERNAL, f), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "can't find enumlist_det, try to diskInfoEnum failed"));
}

// ---- the writer ------------------------------------------------------------------

TEST_F(DiskEnum, WriterOrderAndBytes)
{
	ASSERT_EQ(VLIBDiskInfoEnumToCache(nullptr), 0);
	EXPECT_FALSE(root.exists(VEXO_DISK_SNAPSHOT_TMP));
	const std::string file = root.read(VEXO_DISK_SNAPSHOT);
	ASSERT_EQ(file.size(), 8u * 320);
	Names order;
	for (size_t off = 0; off < file.size(); off += 320) {
		DiskInfoFileEntry e;
		std::memcpy(&e, file.data() + off, sizeof(e));
		order.emplace_back(e.name);
		// The reserved bytes are not the writer's to clear.
		EXPECT_NE(std::string(reinterpret_cast<const char *>(e.reserved), 12), std::string(12, '\0'));
		if (std::string(e.name) == "sdd") {
			EXPECT_EQ(e.temperature, 0);
		}
		if (std::string(e.name) == "sdcb") {
			EXPECT_EQ(e.index, 2);
			EXPECT_EQ(e.unit, 3);
			EXPECT_EQ(e.slot, -1);
			EXPECT_EQ(e.container, DISK_CONTAINER_EBOX);
			EXPECT_STREQ(e.path, "/dev/sdcb");
			EXPECT_STREQ(e.model, "MODEL-sdcb");
			EXPECT_EQ(e.sizeBytes, 8000ULL * 512);
			EXPECT_EQ(e.logicalBlockSize, 512);
		}
	}
	// internal, unit, cache, system, USB, external SATA
	EXPECT_EQ(order, (Names{"sda", "sdb", "sdca", "sdcb", "sdf", "sysd1", "sdd", "sde"}));
	EXPECT_EQ(DiskIsExistInCache("/dev/sdcb"), 1);
}

TEST_F(DiskEnum, WriterFailures)
{
	LogCapture log;
	root.write(VEXO_DISK_SNAPSHOT, "old");
	root.mkdirs(VEXO_DISK_SNAPSHOT_TMP); // a directory where the working file goes
	EXPECT_EQ(VLIBDiskInfoEnumToCache(nullptr), 8);
	EXPECT_TRUE(log.has(LOG_ERR, "fail to save enumlist, device is busy...."));
	EXPECT_EQ(root.read(VEXO_DISK_SNAPSHOT), "old");
	root.remove(VEXO_DISK_SNAPSHOT_TMP);

	// A rename that fails is a warning, and the result is 0.
	root.remove(VEXO_DISK_SNAPSHOT);
	root.write(std::string(VEXO_DISK_SNAPSHOT) + "/busy", "");
	log.clear();
	EXPECT_EQ(VLIBDiskInfoEnumToCache(nullptr), 0);
	EXPECT_TRUE(log.has(LOG_WARNING, "Failed to rename /tmp/enumlist_det.tmp into /tmp/enumlist_det."));

	// A walk that fails keeps the old snapshot.
	root.remove(VEXO_DISK_SNAPSHOT);
	root.remove(VEXO_DISK_SNAPSHOT_TMP);
	root.write(VEXO_DISK_SNAPSHOT, "old");
	for (const char *n : {"sda", "sdb"})
		root.remove(std::string("/sys/block/") + n);
	EXPECT_EQ(VLIBDiskInfoEnumToCache(nullptr), -1);
	EXPECT_EQ(root.read(VEXO_DISK_SNAPSHOT), "old");
	EXPECT_FALSE(root.exists(VEXO_DISK_SNAPSHOT_TMP));
}

// /tmp is anyone's. A link planted at the working file's name is not
// written through; a FIFO or a link at the snapshot's name is not read
// (no hang, no foreign list): the readers walk instead.
TEST_F(DiskEnum, SnapshotFilesInTmpAreNeverFollowed)
{
	root.write("/etc/shadow", "keep");
	root.symlink("../etc/shadow", VEXO_DISK_SNAPSHOT_TMP);
	ASSERT_EQ(VLIBDiskInfoEnumToCache(nullptr), 0);
	EXPECT_EQ(root.read("/etc/shadow"), "keep");
	EXPECT_EQ(root.read(VEXO_DISK_SNAPSHOT).size(), 8u * 320);

	Vcemd alive(true);
	root.write("/var/planted", entryBytes("sdy", "/dev/sdy", DISK_CONTAINER_INTERNAL));
	const std::function<void()> plant[] = {
		[&] { ASSERT_EQ(::mkfifo(root.host(VEXO_DISK_SNAPSHOT).c_str(), 0666), 0); },
		[&] { root.symlink("../var/planted", VEXO_DISK_SNAPSHOT); },
	};
	for (const auto &p : plant) {
		root.remove(VEXO_DISK_SNAPSHOT);
		p();
		EXPECT_EQ(vexo::test::inChild([&] {
			::alarm(10);
			int32_t mask = -1;
			DiskEnumFilter f{&mask};
			DiskListNode *l = nullptr;
			vexo::disk::Source used;
			int n = vexo::disk::collect(&f, &l, &used);
			Names got = names(l);
			DiskInfoEnumFree(l);
			if (n != 8 || used != vexo::disk::Source::Walk || std::count(got.begin(), got.end(), "sdy"))
				return 1;
			return DiskIsExistInCache("/dev/sdy") == 0 ? 0 : 2;
		}),
			  0);
	}
}

TEST_F(DiskEnum, ReadersNeverSeeAShortSnapshot)
{
	// Twelve more bays, so that the file takes more than one write.
	disks.portMaps("8", "14", "3FFC3", "20");
	vexo::external::resetPortMaps();
	for (int i = 6; i < 18; ++i) {
		std::string n = std::string("sd") + static_cast<char>('a' + i);
		disks.sata(n, 20 + i);
	}
	Vcemd alive(true);
	ASSERT_EQ(VLIBDiskInfoEnumToCache(nullptr), 0);
	ASSERT_EQ(root.read(VEXO_DISK_SNAPSHOT).size(), 20u * 320);
	std::atomic<bool> done{false};
	std::atomic<int> reads{0}, bad{0};
	std::thread reader([&] {
		int32_t mask = 0xFF;
		DiskEnumFilter f{&mask};
		while (!done) {
			DiskListNode *l = nullptr;
			vexo::disk::Source used;
			int n = vexo::disk::collect(&f, &l, &used);
			DiskInfoEnumFree(l);
			// Always the whole snapshot: never a walk for want of one, never part of one.
			if (n != 20 || used != vexo::disk::Source::Snapshot)
				++bad;
			++reads;
		}
	});
	for (int i = 0; i < 100; ++i)
		ASSERT_EQ(VLIBDiskInfoEnumToCache(nullptr), 0);
	done = true;
	reader.join();
	EXPECT_GT(reads.load(), 0);
	EXPECT_EQ(bad.load(), 0);
}

// ---- the cache question -------------------------------------------------------------

TEST_F(DiskEnum, ExistInCacheByPrefix)
{
	LogCapture log;
	EXPECT_EQ(DiskIsExistInCache("/dev/sda"), 0);
	EXPECT_TRUE(log.has(LOG_ERR, "No cached file exist"));
	root.write(VEXO_DISK_SNAPSHOT, "");
	EXPECT_EQ(DiskIsExistInCache("/dev/sda"), 0);
	EXPECT_TRUE(log.has(LOG_ERR, "Error size on cached file"));
	root.write(VEXO_DISK_SNAPSHOT, entryBytes("sda", "/dev/sda", 1) + entryBytes("sdca", "/dev/sdca", 2));
	EXPECT_EQ(DiskIsExistInCache("/dev/sda1"), 1);
	EXPECT_EQ(DiskIsExistInCache("/dev/sdca"), 1);
	EXPECT_EQ(DiskIsExistInCache("/dev/sdc"), 0);
	EXPECT_EQ(DiskIsExistInCache("sda"), 0);
	// A cut last entry is still compared with what was read of it.
	root.write(VEXO_DISK_SNAPSHOT, entryBytes("sda", "/dev/sda", 1) + entryBytes("sdca", "/dev/sdca", 2).substr(0, 60));
	log.clear();
	EXPECT_EQ(DiskIsExistInCache("/dev/sdca"), 1);
	EXPECT_TRUE(log.has(LOG_ERR, "Error reading element on cached file"));
	VLIBCErrClear();
	EXPECT_EQ(DiskIsExistInCache(nullptr), 0);
	EXPECT_ERR(VEXO_ERR_BAD_PARAM);
}

// ---- /proc/partitions --------------------------------------------------------------

TEST_F(DiskEnum, DeviceNumbersFromProcPartitions)
{
	root.write("/proc/partitions", "major minor  #blocks  name\n\n"
				       "   8        0  976762584 sda\n"
				       "   8        1    2490240 sda1\n"
				       "   8       16  976762584 sdb\n"
				       "  65        0  976762584 sdq\n"
				       "   3       64    1000000 hdb\n"
				       "   3        1    1000000 hda1\n"
				       "   8      256  976762584 sdq2\n"
				       " 259        0  488386584 nvme0n1\n"
				       "   9\n");
	unsigned int *numbers = nullptr;
	ASSERT_EQ(VEXODiskEnum(1, &numbers), 5);
	// IDE-style majors first, then sd; minor 256 puts its high bits above the major.
	EXPECT_EQ(std::vector<unsigned int>(numbers, numbers + 5),
		  (std::vector<unsigned int>{0x340, 0x800, 0x810, 0x4100, 0x100800}));
	std::free(numbers);

	DiskBriefInfo *info = reinterpret_cast<DiskBriefInfo *>(0x1);
	EXPECT_EQ(VEXODiskGetInfo(1, 0x999, &info), -1);
	EXPECT_ERR(VEXO_ERR_UNKNOWN_DEVICE);
	// Found, but there is no device to ask its size.
	EXPECT_EQ(VEXODiskGetInfo(1, 0x4100, &info), -1);
	EXPECT_ERR(VEXO_ERR_DEVICE);
	EXPECT_EQ(info, reinterpret_cast<DiskBriefInfo *>(0x1));

	EXPECT_EQ(VEXODiskEnum(2, &numbers), -1);
	EXPECT_ERR(VEXO_ERR_BAD_PARAM);
	EXPECT_EQ(VEXODiskEnum(1, nullptr), -1);
	EXPECT_EQ(VEXODiskGetInfo(0, 0x800, &info), -1);

	root.write("/proc/partitions", "major minor  #blocks  name\n 259 0 1 nvme0n1\n");
	numbers = reinterpret_cast<unsigned int *>(0x1);
	EXPECT_EQ(VEXODiskEnum(1, &numbers), 0);
	EXPECT_EQ(numbers, reinterpret_cast<unsigned int *>(0x1));
}

TEST_F(DiskEnum, InternalDataDevicesByBay)
{
	maps({{"maxdisks", "3"}});
	PVLIBSZLIST list = VLIBCSzListAlloc(2);
	ASSERT_EQ(VEXODiskInternalDataDeviceEnum(&list), 0);
	ASSERT_EQ(list->nItem, 3);
	EXPECT_STREQ(VLIBCSzListGet(list, 2), "sdc");
	VLIBCSzListFree(list);
	LogCapture log;
	EXPECT_EQ(VEXODiskInternalDataDeviceEnum(nullptr), -1);
	PVLIBSZLIST none = nullptr;
	EXPECT_EQ(VEXODiskInternalDataDeviceEnum(&none), -1);
	EXPECT_EQ(log.count(LOG_ERR, "device name list can not be NULL"), 2);
}

TEST_F(DiskEnum, DevicePathById)
{
	Vcemd none(false);
	DiskId id{2, DISK_CONTAINER_EBOX, 3, 0, -1};
	char path[16];
	ASSERT_EQ(VEXODiskDevPathGetById(&id, path, sizeof(path)), 0);
	EXPECT_STREQ(path, "/dev/sdcb");
	LogCapture log;
	DiskId usb{4, DISK_CONTAINER_USB, 0, 0, -1}; // not among the disks looked at
	EXPECT_EQ(VEXODiskDevPathGetById(&usb, path, sizeof(path)), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "Failed to found corresponding DISK_ID"));
	char tiny[4];
	EXPECT_EQ(VEXODiskDevPathGetById(&id, tiny, sizeof(tiny)), -1);
	EXPECT_EQ(VEXODiskDevPathGetById(nullptr, path, sizeof(path)), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "Bad parameters"));
	for (const char *n : {"sda", "sdb"})
		root.remove(std::string("/sys/block/") + n);
	EXPECT_EQ(VEXODiskDevPathGetById(&id, path, sizeof(path)), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "Failed to enum disks"));
}

// ---- hibernation lists ------------------------------------------------------------------

TEST(DiskEnumHib, PushByKind)
{
	LogCapture log;
	DiskEnumHibStatus s{};
	EXPECT_EQ(DiskEnumHibDevPush("/dev/sdca", &s, DISK_HIB_KIND_EUNIT), 0);
	EXPECT_EQ(DiskEnumHibDevPush("/dev/sdcb", &s, DISK_HIB_KIND_EUNIT), 0);
	EXPECT_EQ(DiskEnumHibDevPush("/dev/sdd", &s, DISK_HIB_KIND_USB), 0);
	EXPECT_EQ(DiskEnumHibDevPush("/dev/sda", &s, 2), 0); // not a list: nothing added
	EXPECT_EQ(DiskEnumHibDevPush(std::string(200, 'x').c_str(), &s, DISK_HIB_KIND_USB), 0);
	ASSERT_NE(s.eunitHibernating, nullptr);
	EXPECT_STREQ(s.eunitHibernating->path, "/dev/sdca");
	ASSERT_NE(s.eunitHibernating->next, nullptr);
	EXPECT_STREQ(s.eunitHibernating->next->path, "/dev/sdcb");
	EXPECT_EQ(s.eunitHibernating->next->next, nullptr);
	EXPECT_STREQ(s.usbHibernating->path, "/dev/sdd");
	EXPECT_EQ(std::strlen(s.usbHibernating->next->path), 127u);
	EXPECT_EQ(DiskEnumHibDevPush(nullptr, &s, 1), -1);
	EXPECT_EQ(DiskEnumHibDevPush("/dev/sda", nullptr, 1), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "szPath is NULL"));
	EXPECT_TRUE(log.has(LOG_ERR, "hibernation list pHibInfo is NULL"));
	for (DiskHibDevNode *l : {s.eunitHibernating, s.usbHibernating})
		while (l) {
			DiskHibDevNode *n = l->next;
			std::free(l);
			l = n;
		}
}

// ---- shared lists ---------------------------------------------------------------------------

TEST_F(DiskEnum, TemperatureHistoryDocument)
{
	SharedDiskInfo s{};
	std::strcpy(s.info.path, "/dev/sdb");
	s.warningCountdown = 2;
	EXPECT_EQ(VEXODiskParseXmlOperatingTemp(VEXO_DISK_TEMPERATURE_XML, &s), -1);
	EXPECT_ERR(VEXO_ERR_NOENT);
	root.write(VEXO_DISK_TEMPERATURE_XML, "<disk_temperature><disk path=");
	EXPECT_EQ(VEXODiskParseXmlOperatingTemp(VEXO_DISK_TEMPERATURE_XML, &s), -1);
	EXPECT_ERR(VEXO_ERR_READ);
	root.write(VEXO_DISK_TEMPERATURE_XML, R"(<?xml version="1.0"?>
<disk_temperature>
  <disk path="/dev/sda" min="20" max="50" countdown="1"/>
  <disk path="/dev/sdb" min="24" max="47x"/>
  <disk path="/dev/sdc" min="22" max="44"/>
  <disk path="/dev/sdd" min="21" max="43" countdown="4"/>
</disk_temperature>)");
	// A value that is not a whole number leaves the record as it was.
	EXPECT_EQ(VEXODiskParseXmlOperatingTemp(VEXO_DISK_TEMPERATURE_XML, &s), -1);
	EXPECT_EQ(s.temperatureMax, 0);
	std::strcpy(s.info.path, "/dev/sdc");
	ASSERT_EQ(VEXODiskParseXmlOperatingTemp(VEXO_DISK_TEMPERATURE_XML, &s), 0);
	EXPECT_EQ(s.temperatureMin, 22);
	EXPECT_EQ(s.temperatureMax, 44);
	EXPECT_EQ(s.warningCountdown, 2);
	std::strcpy(s.info.path, "/dev/sdd");
	ASSERT_EQ(VEXODiskParseXmlOperatingTemp(VEXO_DISK_TEMPERATURE_XML, &s), 0);
	EXPECT_EQ(s.warningCountdown, 4);
	std::strcpy(s.info.path, "/dev/sdx");
	EXPECT_EQ(VEXODiskParseXmlOperatingTemp(VEXO_DISK_TEMPERATURE_XML, &s), -1);
	EXPECT_ERR(VEXO_ERR_NOT_FOUND);
	EXPECT_EQ(VEXODiskParseXmlOperatingTemp(nullptr, &s), -1);
}

TEST_F(DiskEnum, SharedListLifecycle)
{
	Vcemd none(false);
	root.write(VEXO_DISK_TEMPERATURE_XML,
		   R"(<disk_temperature><disk path="/dev/sda" min="20" max="50" countdown="1"/></disk_temperature>)");
	DiskListNode *shared = nullptr;
	// Nothing selected: no failure, the list stays as it was.
	ASSERT_EQ(SharedDiskInfoEnum(&shared, DISK_CONTAINER_TMPFS), 0);
	EXPECT_EQ(shared, nullptr);
	ASSERT_EQ(SharedDiskInfoEnum(&shared, DISK_CONTAINER_INTERNAL), 0);
	ASSERT_EQ(names(shared), (Names{"sda", "sdb"}));
	auto *first = reinterpret_cast<SharedDiskInfo *>(shared->info);
	EXPECT_EQ(first->temperatureMin, 20);
	EXPECT_EQ(first->temperatureMax, 50);
	EXPECT_EQ(first->warningCountdown, 6); // a listing starts the countdown afresh

	// One disk alone keeps the countdown of the document.
	ASSERT_EQ(SharedDiskInfoNodeAdd("/dev/sda", &shared), 0);
	DiskListNode *cell = nullptr;
	ASSERT_EQ(SharedDiskInfoNodeGetByPath("/dev/sdb", shared, &cell), 0);
	EXPECT_EQ(cell, shared->next);
	auto *added = reinterpret_cast<SharedDiskInfo *>(shared->next->next->info);
	EXPECT_STREQ(added->info.name, "/sda");
	EXPECT_EQ(added->warningCountdown, 1);
	EXPECT_EQ(SharedDiskInfoNodeGetByPath("/dev/sdq", shared, &cell), -1);
	EXPECT_EQ(cell, shared->next);
	{
		// Each missing argument is a bad call with its line; a path that is
		// not listed is no such call.
		LogCapture log;
		EXPECT_EQ(SharedDiskInfoNodeGetByPath("/dev/sdq", shared, &cell), -1);
		EXPECT_EQ(log.count(LOG_ERR, "Wrong parameter"), 0);
		EXPECT_EQ(SharedDiskInfoNodeGetByPath(nullptr, shared, &cell), -1);
		EXPECT_EQ(SharedDiskInfoNodeGetByPath("/dev/sdb", nullptr, &cell), -1);
		EXPECT_EQ(SharedDiskInfoNodeGetByPath("/dev/sdb", shared, nullptr), -1);
		EXPECT_EQ(log.count(LOG_ERR, "Wrong parameter"), 3);
		EXPECT_EQ(cell, shared->next);
	}

	// Deleting what is not there changes nothing.
	EXPECT_EQ(SharedDiskInfoNodeDelete("/dev/sdq", &shared), -1);
	EXPECT_EQ(names(shared), (Names{"sda", "sdb", "/sda"}));
	ASSERT_EQ(SharedDiskInfoNodeDelete("/dev/sda", &shared), 0);
	EXPECT_EQ(names(shared), (Names{"sdb", "/sda"}));

	DiskListNode *copy = nullptr;
	ASSERT_EQ(SharedResourceHandleCopy(shared, &copy), 0);
	ASSERT_EQ(names(copy), (Names{"sdb", "/sda"}));
	EXPECT_NE(copy->info, shared->info);
	EXPECT_EQ(std::memcmp(copy->info, shared->info, sizeof(SharedDiskInfo)), 0);
	LogCapture log;
	EXPECT_EQ(SharedResourceHandleCopy(nullptr, &copy), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "Wrong parameter"));

	reinterpret_cast<SharedDiskInfo *>(copy->info)->temperatureAbnormal = 1;
	copy->info->temperature = 37;
	SharedDiskInfoDebugPrint(copy);
	EXPECT_TRUE(log.has(LOG_WARNING, "[Debug] Device: /dev/sdb, Model: MODEL-sdbTemp. min/cur/max:   0/ 37/  0, "
					 "Temp state: Abnormal."));
	EXPECT_EQ(log.count(LOG_WARNING, "Temp state: Normal."), 1);

	// A null source frees the destination.
	EXPECT_EQ(SharedDiskListTransform(&copy, nullptr), -1);
	EXPECT_EQ(copy, nullptr);
	EXPECT_TRUE(log.has(LOG_ERR, "Wrong Parameter"));
	SharedDiskInfoEnumFree(&shared);
	EXPECT_EQ(shared, nullptr);
	SharedDiskInfoEnumFree(nullptr);
}

} // namespace
