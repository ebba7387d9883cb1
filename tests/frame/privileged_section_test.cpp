// The raised-privilege section, run in forked children with lowered
// effective ids (the saved set-user-id stays 0, as in a daemon that dropped
// its rights).
#include <sys/stat.h>
#include <unistd.h>

#include "frame/log.h"
#include "frame/priv.h"
#include "support/vexotest.h"

using vexo::test::LogCapture;
using vexo::test::Sysroot;

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

} // namespace
