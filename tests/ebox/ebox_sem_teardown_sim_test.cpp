// A unit's semaphore goes with its simulated root: the test root's
// teardown and `vexosim stop` remove it, so no box leaves one behind.
#include <cerrno>
#include <cstdlib>
#include <optional>
#include <sys/sem.h>
#include <vexohw/ebox.h>

#include "smartctl/drive_sim.h"
#include "support/vexotest.h"

namespace vexo::test {
namespace {

const bool gEmulator = installDriveEmulator();

// The key of the semaphore of a unit handle taken on a fresh root.
key_t unitSemaphore(const Sysroot &root)
{
	const char *dir = "/sys/class/scsi_host/host4";
	root.write("/etc.defaults/vexoplatform.json", "{\"ebox\": true}\n");
	root.write(std::string(dir) + "/vexo_pm_info", "vexo_device_list=\"/dev/sdca\"\nvendor=\"Vexology\"\n"
							 "deviceid=\"0x3726\"\nEMID=\"0\"\nUnique=\"XU05\"\n");
	root.write(std::string(dir) + "/vexo_pm_gpio", "0x00000000\n");
	root.write(std::string(dir) + "/vexo_pm_i2c", "");
	VEXO_EBOX_HANDLE_T h{};
	h.sem_id = -1;
	EXPECT_EQ(VEXOEBoxUnitHandleGet(dir, &h, 4), 1);
	std::free(h.inner);
	semid_ds ds{};
	if (h.sem_id < 0 || ::semctl(h.sem_id, 0, IPC_STAT, &ds) != 0)
		return -1;
	return ds.sem_perm.__key;
}

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
		const key_t key = unitSemaphore(*root);
		ASSERT_NE(key, -1);
		ASSERT_GE(::semget(key, 0, 0), 0);
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
} // namespace vexo::test
