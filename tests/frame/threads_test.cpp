// Cache writers on several threads of a process that runs with lowered
// effective ids, beside threads that never raise them and read the one key
// every writer writes. Run in a forked child: ids are lowered there, and the
// child reports by exit code.
#include <atomic>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>
#include <vexohw/frame.h>

#include "support/vexotest.h"

using vexo::test::LogCapture;
using vexo::test::Sysroot;

namespace {

constexpr uid_t kUser = 4321;
constexpr gid_t kGroup = 8765;
constexpr mode_t kUmask = 077; // a file made under it by default would be 0600
constexpr int kWrites = 150;

// The umask without changing it: setting it to read it would race the writers.
int readUmask()
{
	std::FILE *f = std::fopen("/proc/self/status", "r");
	if (!f)
		return -1;
	char line[256];
	int mask = -1;
	while (std::fgets(line, sizeof(line), f))
		if (std::sscanf(line, "Umask: %o", &mask) == 1)
			break;
	std::fclose(f);
	return mask;
}

std::string valueOf(int writer, int i) { return "w" + std::to_string(writer) + "-" + std::to_string(i); }

// The shared key's value: lengths vary, so a value written over another shows.
std::string sharedOf(int writer, int i)
{
	char v[64];
	std::snprintf(v, sizeof(v), "W%d-%0*d-W%d", writer, 1 + (i * 7 + writer) % 9, i, writer);
	return v;
}

// A whole value of sharedOf and its round, or -1.
int roundOf(const char *v, int writers)
{
	int a = -1, n = -1, b = -2, used = 0;
	if (std::sscanf(v, "W%d-%d-W%d%n", &a, &n, &b, &used) != 3 || a != b || a < 0 || a >= writers || v[used])
		return -1;
	return n;
}

struct Shape {
	int writers;
	int bystanders;
};

// Exit codes of the child: 0 clean; 10+ setup; 20 a write failed; 21 a
// writer's ids were not its own after the loop; 30 a bystander ran as root
// (or took no sample); 31 the umask moved; 32 a bystander's file was not its
// own or had another mode; 33 a bystander read the shared key empty, torn or
// foreign; 40 the process was left with other ids.
int runShape(const Sysroot &root, Shape s)
{
	if (::setresgid(-1, kGroup, -1) != 0 || ::setresuid(-1, kUser, -1) != 0)
		return 10;
	::umask(kUmask);
	std::atomic<bool> stop{false};
	std::atomic<int> failure{0};
	std::atomic<int> asRoot{0}, taken{0};
	std::vector<std::thread> threads;
	for (int b = 0; b < s.bystanders; ++b)
		threads.emplace_back([&, b] {
			for (int i = 0; !stop.load(); ++i) {
				taken++;
				if (::geteuid() == 0 || ::getegid() == 0)
					asRoot++;
				if (readUmask() != static_cast<int>(kUmask))
					failure = 31;
				std::string p = root.host("/tmp/by/" + std::to_string(b) + "-" + std::to_string(i % 50));
				::unlink(p.c_str());
				int fd = ::open(p.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
				struct stat st {};
				if (fd < 0 || ::fstat(fd, &st) != 0 || st.st_uid != kUser || (st.st_mode & 07777) != (0666 & ~kUmask))
					failure = 32;
				if (fd >= 0)
					::close(fd);
				// The value is flushed before the rename: never the empty miss.
				char v[256];
				if (VEXODiskGetStrValueCacheFile("/dev/sda", "serial", v, sizeof(v)) != 0 || roundOf(v, s.writers) < 0)
					failure = 33;
			}
		});
	std::vector<std::thread> writers;
	for (int w = 0; w < s.writers; ++w)
		writers.emplace_back([&, w] {
			const std::string name = "sd" + std::string(1, static_cast<char>('a' + w));
			for (int i = 0; i < kWrites; ++i)
				if (VEXODiskUpdateStrValueCacheFile(name.c_str(), "model", valueOf(w, i).c_str()) != 0 ||
				    VEXODiskUpdateIntValueCacheFile(name.c_str(), "remain_life", i) != 0 ||
				    VEXODiskUpdateStrValueCacheFile("sda", "serial", sharedOf(w, i).c_str()) != 0)
					failure = 20;
			if (::geteuid() != kUser || ::getegid() != kGroup)
				failure = 21;
		});
	for (auto &t : writers)
		t.join();
	stop = true;
	for (auto &t : threads)
		t.join();
	if (failure)
		return failure;
	if (asRoot > 0 || taken == 0)
		return 30;
	if (::geteuid() != kUser || ::getegid() != kGroup)
		return 40;
	return 0;
}

TEST(CacheWriterThreads, IdsUmaskOwnersModesAndContents)
{
	if (::geteuid() != 0)
		GTEST_SKIP() << "needs root to lower and raise ids";
	const Shape shapes[] = {{8, 1}, {4, 4}};
	for (Shape s : shapes) {
		SCOPED_TRACE(std::to_string(s.writers) + " writers, " + std::to_string(s.bystanders) + " bystanders");
		Sysroot root;
		for (int w = 0; w < s.writers; ++w)
			root.diskDir("sd" + std::string(1, static_cast<char>('a' + w)));
		::chmod(root.root().c_str(), 0755); // the bystanders run as the user
		root.write("/run/vexostorage/disks/sda/serial", sharedOf(0, 0));
		root.mkdirs("/tmp/by", 0777);
		::chmod(root.host("/tmp/by").c_str(), 0777);
		LogCapture log;
		EXPECT_EQ(vexo::test::inChild([&] { return runShape(root, s); }), 0);
		// Every write raised and dropped on its own thread, with the whole
		// line sequence: three raising lines and the first dropping one.
		const int writes = 3 * kWrites * s.writers;
		EXPECT_EQ(log.count(39, "WARNING: setresuid(-1, 0, -1)"), 3 * writes);
		EXPECT_EQ(log.count(39, "WARNING: setresgid(-1, 0, -1)"), writes);
		EXPECT_EQ(log.count(35), 0) << log.dump().substr(0, 2000);
		for (int w = 0; w < s.writers; ++w) {
			const std::string dir = "/run/vexostorage/disks/sd" + std::string(1, static_cast<char>('a' + w));
			for (const char *key : {"model", "remain_life"}) {
				struct stat st {};
				ASSERT_EQ(::stat(root.host(dir + "/" + key).c_str(), &st), 0) << dir << key;
				EXPECT_EQ(st.st_uid, 0u) << dir << key;
				EXPECT_EQ(st.st_mode & 07777, 0644u) << dir << key;
			}
			EXPECT_EQ(root.read(dir + "/model"), valueOf(w, kWrites - 1));
			EXPECT_EQ(root.read(dir + "/remain_life"), std::to_string(kWrites - 1));
			for (const auto &e : std::filesystem::directory_iterator(root.host(dir)))
				EXPECT_EQ(e.path().filename().string().find(".tmp"), std::string::npos) << e.path();
		}
		// The shared key holds one whole value of some writer's last round.
		EXPECT_EQ(roundOf(root.read("/run/vexostorage/disks/sda/serial").c_str(), s.writers), kWrites - 1);
	}
}

} // namespace
