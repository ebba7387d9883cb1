// A setuid-root program linked with the library, run by an unprivileged
// user who points every VEXO_* switch at files of their own, must ignore
// them all. The same program run plainly by root honours them, which shows
// the user's files would have been used.
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <grp.h>
#include <pwd.h>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/vexotest.h"

namespace fs = std::filesystem;

namespace {

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
