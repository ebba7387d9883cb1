// Privileges: the raised-privilege section in forked children with lowered
// effective ids (the saved set-user-id stays 0, as in a daemon that dropped its
// rights), and a setuid program that ignores the caller's switches.
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <grp.h>
#include <pwd.h>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "frame/log.h"
#include "frame/priv.h"
#include "support/vexotest.h"

using vexo::test::LogCapture;
using vexo::test::Sysroot;
namespace fs = std::filesystem;

namespace {

constexpr uid_t kUser = 4321;
constexpr gid_t kGroup = 8765;

class PrivilegedSection : public ::testing::Test {
protected:
	void SetUp() override
	{
		if (::geteuid() != 0)
			GTEST_SKIP() << "needs root to lower and raise ids";
	}
};

// Lowers the effective ids in the child, keeping saved ids 0.
bool lower(bool user, bool group)
{
	if (group && ::setresgid(-1, kGroup, -1) != 0)
		return false;
	if (user && ::setresuid(-1, kUser, -1) != 0)
		return false;
	return true;
}

TEST_F(PrivilegedSection, RaisesAndRestoresUserAndGroup)
{
	LogCapture log;
	int rc = vexo::test::inChild([] {
		if (!lower(true, true))
			return 10;
		{
			ENTERCriticalSection;
			if (::geteuid() != 0 || ::getegid() != 0)
				return 11;
			if (errno != 0)
				return 12;
		}
		if (::geteuid() != kUser || ::getegid() != kGroup)
			return 13;
		return errno == 0 ? 0 : 14;
	});
	ASSERT_EQ(rc, 0);
	// Raising: setresuid, setresgid, setresuid again, then the drop back to
	// uid 0, each logged at 39.
	EXPECT_EQ(log.count(39, "WARNING: setresuid(-1, 0, -1)"), 3) << log.dump();
	EXPECT_EQ(log.count(39, "WARNING: setresgid(-1, 0, -1)"), 1) << log.dump();
	EXPECT_EQ(log.count(35), 0);
	auto lines = log.lines();
	ASSERT_FALSE(lines.empty());
	// The place is the enclosing function's.
	EXPECT_EQ(lines[0].text.rfind("frame/privileged_section_test:", 0), 0u) << lines[0].text;
}

TEST_F(PrivilegedSection, GroupOnlyRaisesGroupOnly)
{
	LogCapture log;
	int rc = vexo::test::inChild([] {
		if (!lower(false, true))
			return 10;
		{
			ENTERCriticalSection;
			if (::getegid() != 0 || ::geteuid() != 0)
				return 11;
		}
		return ::getegid() == kGroup && ::geteuid() == 0 ? 0 : 12;
	});
	ASSERT_EQ(rc, 0);
	EXPECT_EQ(log.count(39, "setresgid(-1, 0, -1)"), 1) << log.dump();
	EXPECT_EQ(log.count(39, "setresuid"), 0) << log.dump();
}

TEST_F(PrivilegedSection, RootLogsNothing)
{
	LogCapture log;
	int rc = vexo::test::inChild([] {
		errno = 5;
		{
			ENTERCriticalSection;
			if (errno != 0)
				return 1;
		}
		return ::geteuid() == 0 ? 0 : 2;
	});
	ASSERT_EQ(rc, 0);
	EXPECT_EQ(log.count(35), 0);
	EXPECT_EQ(log.count(39), 0);
}

TEST_F(PrivilegedSection, FailureIsLoggedAndWorkGoesOn)
{
	LogCapture log;
	int rc = vexo::test::inChild([] {
		// All three user ids non-zero: raising is impossible.
		if (::setresgid(kGroup, kGroup, kGroup) != 0 || ::setresuid(kUser, kUser, kUser) != 0)
			return 10;
		bool ran = false;
		{
			ENTERCriticalSection;
			if (errno != 1)
				return 11;
			ran = true;
		}
		return ran && ::geteuid() == kUser ? 0 : 12;
	});
	ASSERT_EQ(rc, 0);
	EXPECT_EQ(log.count(35, "ERROR: setresuid(-1, 0, -1) [Operation not permitted]"), 1) << log.dump();
	EXPECT_EQ(log.count(35, "ERROR: ENTERCriticalSection"), 1) << log.dump();
}

// A cache write by a process running with lowered ids lands as root, and
// the process's ids and umask are as before afterwards.
TEST_F(PrivilegedSection, CacheWriteUnderLoweredIds)
{
	Sysroot root;
	root.diskDir("sdb");
	::chmod(root.host("/run/vexostorage/disks/sdb").c_str(), 0755);
	int rc = vexo::test::inChild([] {
		if (!lower(true, true))
			return 10;
		if (VEXODiskUpdateStrValueCacheFile("sdb", "model", "VX4000") != 0)
			return 11;
		return ::geteuid() == kUser && ::getegid() == kGroup ? 0 : 12;
	});
	ASSERT_EQ(rc, 0);
	struct stat st {};
	ASSERT_EQ(::stat(root.host("/run/vexostorage/disks/sdb/model").c_str(), &st), 0);
	EXPECT_EQ(st.st_uid, 0u);
	EXPECT_EQ(root.read("/run/vexostorage/disks/sdb/model"), "VX4000");
}

// A setuid-root program linked with the library, run by an unprivileged
// user who points every VEXO_* switch at files of their own, must ignore
// them all. The same program run plainly by root honours them, which shows
// the user's files would have been used.
// Runs prog in dir as (uid, gid) when given, else as ourselves; its status.
int runAs(const std::string &prog, const std::string &dir, const passwd *user, char *const env[])
{
	pid_t pid = ::fork();
	if (pid == 0) {
		if (::chdir(dir.c_str()) != 0)
			::_exit(2);
		if (user && (::setgroups(0, nullptr) != 0 || ::setresgid(user->pw_gid, user->pw_gid, user->pw_gid) != 0 ||
			     ::setresuid(user->pw_uid, user->pw_uid, user->pw_uid) != 0))
			::_exit(3);
		char *argv[] = {const_cast<char *>(prog.c_str()), nullptr};
		::execve(prog.c_str(), argv, env);
		::_exit(4);
	}
	int st = 0;
	::waitpid(pid, &st, 0);
	return WIFEXITED(st) ? WEXITSTATUS(st) : 128 + WTERMSIG(st);
}

TEST(SecureEnvironment, SetuidProgramIgnoresSwitches)
{
	if (::geteuid() != 0)
		GTEST_SKIP() << "needs root to make a setuid program";
	const passwd *nobody = ::getpwnam("nobody");
	if (!nobody)
		GTEST_SKIP() << "no user nobody";
	char tmpl[] = "/tmp/vexo-setuid-XXXXXX";
	ASSERT_NE(::mkdtemp(tmpl), nullptr);
	const fs::path top = tmpl, bin = top / "bin", user = top / "user", root = user / "root";
	fs::create_directories(bin);
	fs::create_directories(root / "usr/bin");
	fs::create_directories(root / "run/vexostorage/disks/vexoprobe");
	for (const fs::path &p : {top, bin})
		::chmod(p.c_str(), 0755);
	for (const fs::path &p : {user, root / "run/vexostorage/disks/vexoprobe"})
		::chmod(p.c_str(), 0777);
	const fs::path probe = bin / "probe";
	fs::copy_file(VEXO_SETUID_PROBE, probe);
	fs::copy_file(VEXO_SETUID_BACKEND, user / "backend.so");
	ASSERT_EQ(::chown(probe.c_str(), 0, 0), 0);
	ASSERT_EQ(::chmod(probe.c_str(), 04755), 0);
	{
		std::FILE *f = std::fopen((root / "usr/bin/true").c_str(), "w");
		ASSERT_NE(f, nullptr);
		std::fputs("#!/bin/sh\n: > true-ran\n", f);
		std::fclose(f);
		::chmod((root / "usr/bin/true").c_str(), 0755);
	}
	const std::string e1 = "VEXO_SYSROOT=" + root.string(), e2 = "VEXO_DEVICE_BACKEND=" + (user / "backend.so").string(),
			  e3 = "VEXO_LOG=" + (user / "log").string();
	char *env[] = {const_cast<char *>(e1.c_str()), const_cast<char *>(e2.c_str()), const_cast<char *>(e3.c_str()),
		       const_cast<char *>("PATH=/usr/bin:/bin"), nullptr};
	const fs::path marks[] = {user / "backend-loaded", user / "true-ran", user / "log",
				  root / "run/vexostorage/disks/vexoprobe/model"};

	struct Row {
		const char *who;
		const passwd *as;
		int status; // 10 + AT_SECURE
		bool honoured;
	};
	const Row rows[] = {{"root, plain", nullptr, 10, true}, {"nobody, setuid root", nobody, 11, false}};
	bool skipped = false;
	for (const Row &r : rows) {
		SCOPED_TRACE(r.who);
		for (const fs::path &m : marks)
			fs::remove(m);
		int st = runAs(probe, user, r.as, env);
		if (r.as && st == 10) {
			skipped = true; // the file system ignores the set-user-id bit
			break;
		}
		ASSERT_EQ(st, r.status);
		for (const fs::path &m : marks)
			EXPECT_EQ(fs::exists(m), r.honoured) << m;
	}
	fs::remove_all(top);
	if (skipped)
		GTEST_SKIP() << "the set-user-id bit has no effect under /tmp (nosuid)";
}

} // namespace
