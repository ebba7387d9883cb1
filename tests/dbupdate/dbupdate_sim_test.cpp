// Updates against the real local server and a real offline kit: whatever
// goes wrong, the installed databases and their version files stay as they
// were, and the next update recovers.
#include <csignal>
#include <map>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <gtest/gtest.h>
#include <vexohw/compat.h>
#include <vexohw/dbupdate.h>

#include "misc/serve.h"
#include "support/sim_daemon.h"

using namespace vexo::test;

namespace {

// The host's databases the box has installed, all at version 3.
const std::map<std::string, std::string> kInstalled = {
	{"smart", "/var/lib/smartmontools/vexodrivedb"},
	{"opensource", "/var/lib/smartmontools/drivedb"},
	{"temperature", "/var/lib/temperature/disk_temperature"},
	{"diskaction", "/var/lib/diskaction/diskaction"},
	{"drive_attribute", "/var/lib/drive_attribute/drive_attribute"},
};
constexpr const char *kHcl = "/var/lib/disk-compatibility/vx1222_host_v7";
constexpr const char *kV7 = "/srv/vexosim/getSSDsInfo/v7";

// Each file 4 KiB, so that a small file size limit stops the databases
// but not the index.
std::string body(const std::string &name)
{
	return "# " + name + "\n" + std::string(4096, 'x') + "\n";
}

void appliance(const Sysroot &root)
{
	root.conf("/etc.defaults/vexoinfo.conf", {{"upnpmodelname", "VX1222"}});
	root.symlink(buildDir() + "/bin/vexosim-tools", "/usr/bin/md5sum");
	root.mkdirs("/usr/vexo/etc");
	root.mkdirs("/tmp");
	for (const auto &[name, base] : kInstalled) {
		root.write(base + (name == "temperature" || name == "diskaction" ? ".xml" : ".db"), body(name));
		root.write(base + ".version", "3");
	}
	root.write(std::string(kHcl) + ".db",
		   "{\"nas_model\":\"vx1222\",\"disk_compatbility_info\":{\"ST8000VN004-3CP101\":{\"default\":"
		   "{\"vos_ver\":[],\"compatibility_interval\":[{\"compatibility\":\"unverified\"}]}}},\"pad\":\"" +
			   std::string(4096, 'p') + "\"}");
	root.write(std::string(kHcl) + ".version", "3");
}

// Every installed file and version file, to compare before and after.
std::map<std::string, std::string> snapshot(const Sysroot &root)
{
	std::map<std::string, std::string> s;
	for (const auto &[name, base] : kInstalled)
		for (const char *ext : {".db", ".xml", ".version"})
			if (root.exists(base + ext))
				s[base + ext] = root.read(base + ext);
	s[std::string(kHcl) + ".db"] = root.read(std::string(kHcl) + ".db");
	s[std::string(kHcl) + ".version"] = root.read(std::string(kHcl) + ".version");
	return s;
}

struct Events {
	std::map<std::string, int> state;
};

void record(const VEXODiskDbEvent *e, void *p)
{
	static_cast<Events *>(p)->state[e->name] = e->state;
}

int update(Events *ev, const char *kit = nullptr, int force = 0)
{
	VLIBCErrClear();
	return VEXOExtDiskDbUpdate(kit, force, record, ev);
}

enum class Fault { None, IndexCtl, IndexBody, SmartChecksum, HclModel, Down, FileLimit, Locked };

struct Reliability {
	const char *name;
	Fault fault;
	const char *ctl; // serve.ctl
	int rc, err;
	const char *untouched; // "*": every database; else the one row left alone
};

const Reliability kCases[] = {
	{"index garbage", Fault::IndexCtl, "/getSSDsInfo/v7/ as-is\n/getSSDsInfo/v7 garbage\n", 2, 0x4000, "*"},
	{"index truncated", Fault::IndexBody, "", 2, 0x4000, "*"},
	{"index transfer cut", Fault::IndexCtl, "/getSSDsInfo/v7/ as-is\n/getSSDsInfo/v7 cut\n", 2, 0x1100, "*"},
	{"database for another model", Fault::HclModel, "", 2, 0x2A00, "hcl"},
	{"md5 mismatch", Fault::SmartChecksum, "", 2, 0x2A00, "smart"},
	{"database transfer cut half way", Fault::None, "/getSSDsInfo/v7/vx1222/vexodrivedb.db cut\n", 2, 0x1100,
	 "smart"},
	{"server stalls", Fault::None, "* stall 4\n", 2, 0x1100, "*"},
	{"server down", Fault::Down, "", 2, 0x1100, "*"},
	{"disk full when the new file is written", Fault::FileLimit, "", 2, 0x2A00, "*"},
	{"another update holds the lock", Fault::Locked, "", 2, 0x0400, "*"},
};

TEST(DbUpdateSim, NothingLostWhateverGoesWrong)
{
	ScopedEnv stall("VEXO_DBUPDATE_STALL_SECONDS", "1");
	for (const Reliability &c : kCases) {
		SCOPED_TRACE(c.name);
		Sysroot root;
		appliance(root);
		auto serve = std::make_unique<Serve>(root);
		ASSERT_GT(serve->port(), 0);
		ASSERT_TRUE(root.exists(std::string(kV7) + "/vx1222.json"));
		const std::string index = std::string(kV7) + "/vx1222.json";
		std::string offer = root.read(index);
		if (c.fault == Fault::IndexBody)
			root.write(index, offer.substr(0, offer.size() / 2));
		if (c.fault == Fault::SmartChecksum || c.fault == Fault::HclModel) {
			// The offer says what the file is, but the file is not that.
			const char *file = c.fault == Fault::SmartChecksum ? "/vx1222/vexodrivedb.db" : "/vx1222/vx1222_host_v7.db";
			std::string served = root.read(std::string(kV7) + file);
			std::string other = c.fault == Fault::HclModel ? "{\"nas_model\":\"vx9999\"}" : served + "!";
			root.write(std::string(kV7) + file, other);
			if (c.fault == Fault::HclModel) {
				std::string out;
				ASSERT_EQ(runProgram({"md5sum", root.host(std::string(kV7) + file)}, &out), 0);
				size_t at = offer.find("\"checksum\"", offer.find("HCL_v7_vx1222"));
				at = offer.find('"', offer.find(':', at)) + 1;
				offer.replace(at, 32, out.substr(0, 32));
				root.write(index, offer);
			}
		}
		serve->misbehave(c.ctl);
		if (c.fault == Fault::Down)
			serve.reset();
		const auto before = snapshot(root);
		int lockFd = -1;
		if (c.fault == Fault::Locked) {
			ASSERT_EQ(VEXODiskDbUpdateLock("vx1222", &lockFd), 0);
		}
		int rc = -1, err = 0;
		if (c.fault == Fault::FileLimit) {
			// The child's files stop at 2 KiB: the index fits, no database does.
			int got = inChild([&] {
				std::signal(SIGXFSZ, SIG_IGN);
				struct rlimit lim = {2048, 2048};
				::setrlimit(RLIMIT_FSIZE, &lim);
				Events ev;
				int r = update(&ev);
				return r * 16 + (VLIBCErrGet() == c.err ? 1 : 0);
			});
			rc = got / 16;
			err = got % 16 ? c.err : -1;
		} else {
			Events ev;
			rc = update(&ev);
			err = VLIBCErrGet();
		}
		VEXODiskDbUpdateUnlock(lockFd);
		EXPECT_EQ(rc, c.rc);
		EXPECT_EQ(hex(err), hex(c.err));
		const auto after = snapshot(root);
		for (const auto &[path, text] : before) {
			bool row = std::string(c.untouched) == "*" ||
				   (std::string(c.untouched) == "hcl" ? path.find(kHcl) == 0
								       : path.find(kInstalled.at(c.untouched)) == 0);
			if (row) {
				EXPECT_EQ(after.at(path), text) << path;
			} else if (path.find(".version") != std::string::npos) {
				EXPECT_EQ(after.at(path), "4") << path; // the other rows went on
			}
		}
		EXPECT_FALSE(root.exists("/var/lib/diskdbupdate/online")); // staging cleared
		std::string torn;
		runProgram({"find", root.host("/var/lib"), "-name", "*.tmp"}, &torn);
		EXPECT_EQ(torn, "");
		if (c.fault == Fault::FileLimit) {
			Events ev;
			EXPECT_EQ(update(&ev), 0); // with room again the same offer goes in
			EXPECT_EQ(root.read("/var/lib/smartmontools/vexodrivedb.version"), "4");
		}
	}
}

TEST(DbUpdateSim, KilledHalfWayThenRecovers)
{
	Sysroot root;
	appliance(root);
	Serve serve(root);
	ASSERT_GT(serve.port(), 0);
	Events status;
	EXPECT_EQ(VEXOExtDiskDbStatusGet(1, record, &status), 0);
	EXPECT_EQ(status.state["smart"], VEXO_DISK_DB_NEWER);
	EXPECT_EQ(status.state["MemHCL_v6_vx1222"], VEXO_DISK_DB_ABSENT);
	EXPECT_EQ(root.read("/var/lib/smartmontools/vexodrivedb.version"), "3"); // asking installs nothing
	// The update stops dead at the second database, the first one in.
	serve.misbehave("/getSSDsInfo/v7/vx1222/drivedb.db stall 120\n");
	pid_t child = ::fork();
	if (child == 0) {
		Events ev;
		::_exit(update(&ev));
	}
	for (int i = 0; i < 3000 && root.read("/var/lib/smartmontools/vexodrivedb.version") != "4"; ++i)
		std::this_thread::sleep_for(std::chrono::milliseconds(10));
	::kill(child, SIGKILL);
	::waitpid(child, nullptr, 0);
	EXPECT_EQ(root.read("/var/lib/smartmontools/vexodrivedb.version"), "4");
	EXPECT_EQ(root.read("/var/lib/smartmontools/drivedb.version"), "3");
	EXPECT_EQ(root.read("/var/lib/smartmontools/drivedb.db"), body("opensource"));

	serve.misbehave("");
	Events ev;
	EXPECT_EQ(update(&ev), 0) << "the lock died with its holder";
	for (const auto &[name, base] : kInstalled)
		EXPECT_EQ(root.read(base + ".version"), "4") << name;
	EXPECT_EQ(ev.state["smart"], VEXO_DISK_DB_CURRENT);
	EXPECT_EQ(ev.state["opensource"], VEXO_DISK_DB_INSTALLED);
	EXPECT_EQ(ev.state["HCL_v7_vx1222"], VEXO_DISK_DB_INSTALLED);
	// The newer compatibility database verifies the drive the old one did not.
	EXPECT_NE(root.read(std::string(kHcl) + ".db").find("\"support\""), std::string::npos);
	EXPECT_NE(root.read(std::string(kHcl) + ".db.bak").find("\"unverified\""), std::string::npos);
	time_t t = 0;
	EXPECT_EQ(DiskDbLastUpdateTimeGet(&t), 0);
	EXPECT_GT(t, 0);
	EXPECT_EQ(update(&ev), 1); // nothing newer now
}

TEST(DbUpdateSim, OfflineKit)
{
	Sysroot root;
	appliance(root);
	root.write("/var/lib/disk-compatibility/xu05_v7.db", "{\"disk_compatbility_info\":{}}");
	root.write("/var/lib/disk-compatibility/xu05_v7.version", "7");
	ASSERT_EQ(runProgram({buildDir() + "/bin/vexosim", "kit", root.root(), root.host("/tmp/kit.sa"), "5"}), 0);
	root.write("/tmp/forged.sa", root.read("/tmp/kit.sa") + "x");
	const auto before = snapshot(root);

	Events ev;
	EXPECT_EQ(update(&ev, "/tmp/forged.sa"), 2);
	EXPECT_EQ(snapshot(root), before);
	EXPECT_EQ(VEXODiskPreviousOfflineKitVersionGet(), 0);

	SimDaemon daemon(root.root());
	ASSERT_EQ(daemon.started, 0);
	EXPECT_EQ(update(&ev, "/tmp/kit.sa"), 0);
	// A new temperature database: the platform daemon re-reads the disks.
	std::vector<std::string> got = daemon.events(1);
	ASSERT_EQ(got.size(), 1u);
	EXPECT_EQ(got[0].rfind("request command=5 needReply=0", 0), 0u) << got[0];
	EXPECT_EQ(VEXODiskUploadOfflineKitVersionGet(), 5);
	EXPECT_EQ(VEXODiskPreviousOfflineKitVersionGet(), 5);
	EXPECT_EQ(root.read("/var/lib/smartmontools/vexodrivedb.version"), "4");
	EXPECT_EQ(root.read("/var/lib/disk-compatibility/xu05_v7.version"), "8");
	EXPECT_TRUE(root.exists("/var/lib/diskdbupdate/.disk_eunit_db_update_time_xu05"));
	EXPECT_EQ(ev.state["HCL_v7_xu05"], VEXO_DISK_DB_INSTALLED);

	EXPECT_EQ(update(&ev, "/tmp/kit.sa"), 1);    // this kit is applied already
	EXPECT_EQ(update(&ev, "/tmp/kit.sa", 1), 0); // unless forced
}

// The bundled box and its own server: the table has the adapter card's row,
// and a drive's verdict changes with the newer database, in this process.
TEST(DbUpdateSim, BundledBoxVerdictChanges)
{
	Sysroot scratch; // a clean place; the box goes into its own root below
	const std::string dir = scratch.host("/box");
	ASSERT_EQ(runCaptured({buildDir() + "/bin/vexosim", "build", sourceDir() + "/examples/box12.json", dir}).status,
		  0);
	ScopedEnv root("VEXO_SYSROOT", dir.c_str());
	ScopedEnv backend("VEXO_DEVICE_BACKEND", (buildDir() + "/sim/drive/libvexosim_drive.so").c_str());
	Ran serve = runCaptured({"/bin/sh", "-c", "\"$0\" serve \"$1\" >/dev/null 2>&1 & echo $!",
				 buildDir() + "/bin/vexosim", dir});
	struct Stop {
		pid_t pid;
		~Stop() { ::kill(pid, SIGTERM); }
	} stop{std::stoi(serve.out)};
	for (int i = 0; i < 3000 && ::access((dir + "/run/vexosim/serve.port").c_str(), F_OK) != 0; ++i)
		std::this_thread::sleep_for(std::chrono::milliseconds(10));

	DiskOnlineDbInfo *rows = nullptr;
	ASSERT_EQ(VEXODiskOnlineDbInfoGet(&rows), VEXO_DISK_DB_FIXED_ROWS + 1);
	EXPECT_STREQ(rows[8].name, "HCL_v7_%s_m2c-d2");
	EXPECT_STREQ(rows[8].dbPath, "/var/lib/disk-compatibility/%s_m2c-d2_v7.db");
	std::free(rows);
	EXPECT_EQ(VEXODiskCompatibilityGet("/dev/sdh", 0), 2);
	Events ev;
	EXPECT_EQ(update(&ev), 0);
	EXPECT_EQ(ev.state["HCL_v7_vx1222"], VEXO_DISK_DB_INSTALLED);
	EXPECT_EQ(ev.state["HCL_v7_vx1222_m2c-d2"], VEXO_DISK_DB_INSTALLED);
	EXPECT_EQ(VEXODiskCompatibilityGet("/dev/sdh", 0), 1);
}

} // namespace
