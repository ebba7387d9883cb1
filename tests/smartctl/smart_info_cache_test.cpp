// The SMART list cache file: what lands on disk, how the reader refuses a
// damaged file, how the writer fails, and writers racing each other.
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <json-c/json.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vexohw/smart_info.h>

#include "smartctl/smart_util.h"

using namespace vexo::test;

namespace {

const std::string kDir = "/run/vexostorage/disks/sda/";

// A list of n entries built by hand: ids 1..n, names "Attr_<i>", status i % 3.
SmartInfoEntry *makeList(int n, const std::string &tag = "Attr_")
{
	SmartInfoEntry *head = nullptr, **tail = &head;
	for (int i = 1; i <= n; ++i) {
		auto *e = static_cast<SmartInfoEntry *>(calloc(1, sizeof(SmartInfoEntry)));
		std::string id = std::to_string(i);
		e->id = strdup(id.c_str());
		e->name = strdup((tag + id).c_str());
		e->value = strdup("100");
		e->worst = strdup("099");
		e->threshold = strdup("010");
		e->raw = strdup(("\"quoted\\" + id).c_str()); // JSON escapes survive
		e->status = static_cast<uint32_t>(i % 3);
		*tail = e;
		tail = &e->next;
	}
	return head;
}

class SmartInfoCacheFile : public ::testing::Test {
protected:
	void SetUp() override
	{
		VLIBCErrClear();
		root.diskDir("sda");
	}
	Sysroot root;
};

TEST_F(SmartInfoCacheFile, WrittenAsSevenItemArrays)
{
	ListGuard in;
	in.l = makeList(3);
	mode_t old = ::umask(077);
	struct timespec ts {};
	clock_gettime(CLOCK_MONOTONIC_COARSE, &ts);
	ASSERT_EQ(SmartInfoCacheUpdate("sda", in.l), 0);
	EXPECT_EQ(::umask(old), 077u); // the caller's umask is back
	EXPECT_EQ(root.mode(kDir + "smart_info_list.cache"), 0644u);
	EXPECT_FALSE(root.exists(kDir + "smart_info_list.cache.tmp"));
	EXPECT_TRUE(root.exists(kDir + ".smart_info_list.lock"));
	long long stamp = std::stoll(root.read(kDir + ".smart_info_list.timestamp"));
	EXPECT_GE(stamp, ts.tv_sec);
	EXPECT_LE(stamp, ts.tv_sec + 5);

	json_object *doc = json_tokener_parse(root.read(kDir + "smart_info_list.cache").c_str());
	ASSERT_NE(doc, nullptr);
	EXPECT_STREQ(json_object_to_json_string_ext(json_object_array_get_idx(doc, 1), JSON_C_TO_STRING_PLAIN),
		     R"(["2","Attr_2","100","099","010","\"quoted\\2",2])");
	json_object_put(doc);

	ListGuard out;
	ASSERT_EQ(SmartInfoCacheGet("sda", &out.l), 0);
	std::string wrote = root.read(kDir + "smart_info_list.cache");
	ASSERT_EQ(SmartInfoCacheUpdate("sda", out.l), 0); // read back, written again: the same file
	EXPECT_EQ(root.read(kDir + "smart_info_list.cache"), wrote);
}

TEST_F(SmartInfoCacheFile, ReaderRefusesDamagedFiles)
{
	const struct {
		const char *text;
		int code;
	} cases[] = {
		{nullptr, 0x0900}, // no file
		{"not json", 0x0900},
		{R"({"a":1})", 0x0900},
		{"[]", 0x0900},
		{R"([["1","A","1","1","1","1",0]] x)", 0x0900},
		{"[1]", 0x0A00},
		{R"([["1","A","1","1","1",0]])", 0x0A00},
		{R"([["1","A","1","1","1","1",0,0]])", 0x0A00},
		{R"([["1","A","1","1","1","1",0],{}])", 0x0A00},
		{R"([["1",5,"1","1","1","1",0]])", 0x2A00},
		{R"([["1","A","1","1","1","1",-1]])", 0x2A00},
		{R"([["1","A","1","1","1","1",3]])", 0x2A00},
		{R"([["1","A","1","1","1","1","0"]])", 0x2A00},
		// A bad last element fails the read as a bad first one does.
		{R"([["1","A","1","1","1","1",0],["2","B","1","1","1","1",7]])", 0x2A00},
	};
	for (const auto &c : cases) {
		SCOPED_TRACE(c.text ? c.text : "(no file)");
		if (c.text)
			root.write(kDir + "smart_info_list.cache", c.text);
		else
			root.remove(kDir + "smart_info_list.cache");
		SmartInfoEntry *l = kSentinel;
		EXPECT_EQ(SmartInfoCacheGet("sda", &l), -1);
		EXPECT_ERR(c.code);
		EXPECT_EQ(l, nullptr);
		if (l != kSentinel)
			VEXODiskSmartInfoFree(l);
	}
	// A NUL after the document is damage too.
	root.write(kDir + "smart_info_list.cache", std::string(R"([["1","A","1","1","1","1",0]])") + '\0');
	SmartInfoEntry *l = kSentinel;
	EXPECT_EQ(SmartInfoCacheGet("sda", &l), -1);
	EXPECT_ERR(0x0900);
	EXPECT_EQ(l, nullptr);
	// White space around the document is fine.
	root.write(kDir + "smart_info_list.cache", " [[\"1\",\"A\",\"1\",\"1\",\"1\",\"1\",2]]\n");
	ListGuard g;
	ASSERT_EQ(SmartInfoCacheGet("sda", &g.l), 0);
	EXPECT_EQ(g.l->status, 2u);

	EXPECT_EQ(SmartInfoCacheUpdate("..", g.l), -1); // a name that would leave the disks folder
	EXPECT_ERR(0x0D00);
	EXPECT_EQ(SmartInfoCacheGet("../sda", &l), -1);
	EXPECT_ERR(0x0D00);
}

TEST_F(SmartInfoCacheFile, WriterFailuresLeaveTheOldFile)
{
	ListGuard l;
	l.l = makeList(2);
	root.write(kDir + "smart_info_list.cache", "old");

	// No directory for the disk: not even the lock can be taken.
	EXPECT_EQ(SmartInfoCacheUpdate("sdz", l.l), -1);
	EXPECT_ERR(0x0400);

	root.mkdirs(kDir + "smart_info_list.cache.tmp");
	EXPECT_EQ(SmartInfoCacheUpdate("sda", l.l), -1);
	EXPECT_ERR(0x0B00);
	EXPECT_EQ(root.read(kDir + "smart_info_list.cache"), "old");
	root.remove(kDir + "smart_info_list.cache.tmp");

	// The cache name taken by a non-empty directory: the rename fails and
	// the temporary file goes away.
	root.remove(kDir + "smart_info_list.cache");
	root.write(kDir + "smart_info_list.cache/x", "");
	EXPECT_EQ(SmartInfoCacheUpdate("sda", l.l), -1);
	EXPECT_ERR(0x2800);
	EXPECT_FALSE(root.exists(kDir + "smart_info_list.cache.tmp"));
	root.remove(kDir + "smart_info_list.cache");

	// The stamp cannot be written: the list is in place but the call fails,
	// so the next read goes to the drive rather than trusting a stale stamp.
	root.write(kDir + ".smart_info_list.timestamp/x", "");
	EXPECT_EQ(SmartInfoCacheUpdate("sda", l.l), -1);
	EXPECT_ERR(0x0B00);
	root.remove(kDir + ".smart_info_list.timestamp");

	// The lock is free again after every failure.
	EXPECT_EQ(SmartInfoCacheUpdate("sda", l.l), 0);
}

TEST_F(SmartInfoCacheFile, WriterWaitsForTheLock)
{
	ListGuard l;
	l.l = makeList(1);
	int fd = ::open(root.host(kDir + ".smart_info_list.lock").c_str(), O_RDWR | O_CREAT, 0644);
	ASSERT_GE(fd, 0);
	ASSERT_EQ(::flock(fd, LOCK_EX), 0);
	pid_t holder = ::fork();
	if (holder == 0) {
		::usleep(800000);
		::_exit(0); // the lock goes with the last holder of the description
	}
	::close(fd);
	struct timespec a {}, b {};
	clock_gettime(CLOCK_MONOTONIC, &a);
	EXPECT_EQ(SmartInfoCacheUpdate("sda", l.l), 0);
	clock_gettime(CLOCK_MONOTONIC, &b);
	EXPECT_GE((b.tv_sec - a.tv_sec) * 1000 + (b.tv_nsec - a.tv_nsec) / 1000000, 500);
	int st = 0;
	::waitpid(holder, &st, 0);
}

TEST_F(SmartInfoCacheFile, RacingWritersLeaveAWholeFile)
{
	// Two writers with lists of different lengths, a reader beside them.
	auto writer = [&](int n, const char *tag) {
		pid_t pid = ::fork();
		if (pid == 0) {
			SmartInfoEntry *l = makeList(n, tag);
			int bad = 0;
			for (int i = 0; i < 150; ++i)
				bad += SmartInfoCacheUpdate("sda", l) != 0;
			VEXODiskSmartInfoFree(l);
			::_exit(bad ? 1 : 0);
		}
		return pid;
	};
	ListGuard first;
	first.l = makeList(1, "Seed_");
	ASSERT_EQ(SmartInfoCacheUpdate("sda", first.l), 0);
	pid_t a = writer(30, "Long_"), b = writer(2, "Short_");
	int reads = 0, torn = 0;
	for (bool done = false; !done;) {
		ListGuard g;
		if (SmartInfoCacheGet("sda", &g.l) != 0) {
			++torn;
		} else {
			int n = 0;
			for (auto *e = g.l; e; e = e->next)
				++n;
			std::string tag = g.l->name;
			tag = tag.substr(0, tag.find('_'));
			if (!((tag == "Long" && n == 30) || (tag == "Short" && n == 2) || (tag == "Seed" && n == 1)))
				++torn;
		}
		++reads;
		int st = 0;
		if (::waitpid(a, &st, WNOHANG) == a) {
			done = true;
			EXPECT_EQ(st, 0);
			ASSERT_EQ(::waitpid(b, &st, 0), b);
			EXPECT_EQ(st, 0);
		}
	}
	EXPECT_GT(reads, 10);
	EXPECT_EQ(torn, 0) << "of " << reads << " reads";
	EXPECT_FALSE(root.exists(kDir + "smart_info_list.cache.tmp"));
	ListGuard last;
	ASSERT_EQ(SmartInfoCacheGet("sda", &last.l), 0);
}

} // namespace
