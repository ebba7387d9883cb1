// Privileges: the raised-privilege section in forked children with lowered
// effective ids (the saved set-user-id stays 0, as in a daemon that dropped its
// rights), and a setuid program that ignores the caller's switches.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <grp.h>
#include <pwd.h>
#include <string>
#include <vector>
#include <sys/stat.h>
#include <unistd.h>

#include "frame/log.h"
#include "frame/priv.h"
#include "support/vexotest.h"

using vexo::test::LogCapture;
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

struct Ids {
	uid_t uid;
	gid_t gid;
	int err; // errno
};

// Each row lowers ids in a forked child (saved ids stay 0 unless all three
// are lowered) and enters the section with errno 5.
TEST_F(PrivilegedSection, RaisesRestoresAndLogs)
{
	struct {
		const char *what;
		bool (*lower)(); // lowers the ids; false when it could not
		Ids inside, after;
		int uidLines, gidLines; // raising lines at LOG_AUTH|LOG_DEBUG
		std::vector<std::string> errors; // lines at LOG_AUTH|LOG_ERR
	} rows[] = {
		// Raising: setresuid, setresgid, setresuid again, then the drop back to uid 0.
		{"user and group", [] { return ::setresgid(-1, kGroup, -1) == 0 && ::setresuid(-1, kUser, -1) == 0; }, {0, 0, 0},
		 {kUser, kGroup, 0}, 3, 1, {}},
		{"group only", [] { return ::setresgid(-1, kGroup, -1) == 0; }, {0, 0, 0}, {0, kGroup, 0}, 0, 1, {}},
		{"root", [] { return true; }, {0, 0, 0}, {0, 0, 0}, 0, 0, {}},
		// All three user ids non-zero: raising is impossible, the work goes on.
		{"no way back", [] { return ::setresgid(kGroup, kGroup, kGroup) == 0 && ::setresuid(kUser, kUser, kUser) == 0; },
		 {kUser, kGroup, 1}, {kUser, kGroup, 1}, 0, 0,
		 {"ERROR: setresuid(-1, 0, -1) [Operation not permitted]", "ERROR: ENTERCriticalSection"}},
	};
	for (const auto &r : rows) {
		SCOPED_TRACE(r.what);
		LogCapture log;
		auto same = [](Ids want) { return ::geteuid() == want.uid && ::getegid() == want.gid && errno == want.err; };
		int rc = vexo::test::inChild([&] {
			if (!r.lower())
				return 10;
			errno = 5;
			{
				ENTERCriticalSection;
				if (!same(r.inside))
					return 11;
			}
			return same(r.after) ? 0 : 12;
		});
		ASSERT_EQ(rc, 0);
		EXPECT_EQ(log.count(39, "WARNING: setresuid(-1, 0, -1)"), r.uidLines) << log.dump();
		EXPECT_EQ(log.count(39, "WARNING: setresgid(-1, 0, -1)"), r.gidLines);
		EXPECT_EQ(log.count(39), r.uidLines + r.gidLines);
		EXPECT_EQ(log.count(35), static_cast<int>(r.errors.size()));
		for (const auto &e : r.errors)
			EXPECT_EQ(log.count(35, e), 1) << e;
		// The place is the enclosing function's.
		for (const auto &l : log.lines())
			EXPECT_EQ(l.text.rfind("frame/privileged_section_test:", 0), 0u) << l.text;
	}
}

// A setuid-root program linked with the library, run by an unprivileged
// user who points every VEXO_* switch at files of their own, must ignore
// them all. The same program run plainly by root honours them, which shows
// the user's files would have been used.
// Runs prog in dir as user when given, else as ourselves; its status.
int runAs(const std::string &prog, const std::string &dir, const passwd *user, char *const env[])
{
	return vexo::test::inChild([&] {
		if (::chdir(dir.c_str()) != 0)
			return 2;
		if (user && (::setgroups(0, nullptr) != 0 || ::setresgid(user->pw_gid, user->pw_gid, user->pw_gid) != 0 ||
			     ::setresuid(user->pw_uid, user->pw_uid, user->pw_uid) != 0))
			return 3;
		char *argv[] = {const_cast<char *>(prog.c_str()), nullptr};
		::execve(prog.c_str(), argv, env);
		return 4;
	});
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
	std::ofstream(root / "usr/bin/true") << "#!/bin/sh\n: > true-ran\n";
	::chmod((root / "usr/bin/true").c_str(), 0755);
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
