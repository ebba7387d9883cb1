// Lists, hashes, string helpers, line readers and whole-buffer I/O.
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/vexotest.h"

using vexo::test::Sysroot;

namespace {

TEST(SzList, GrowFindRemoveSortSplit)
{
	PVLIBSZLIST list = VLIBCSzListAlloc(0);
	ASSERT_NE(list, nullptr);
	EXPECT_GE(list->nAlloc, 1);
	for (int i = 0; i < 100; ++i)
		ASSERT_EQ(VLIBCSzListPush(&list, std::to_string(99 - i).c_str()), i);
	EXPECT_EQ(list->nItem, 100);
	EXPECT_EQ(VLIBCSzListFind(list, "0"), 99);
	EXPECT_EQ(VLIBCSzListGet(list, 100), nullptr);
	ASSERT_EQ(VLIBCSzListRemove(list, 0), 0);
	EXPECT_STREQ(VLIBCSzListGet(list, 0), "98");
	EXPECT_EQ(VLIBCSzListRemove(list, 99), -1);
	ASSERT_EQ(VLIBCSzListSortItems(list, 1), 0);
	EXPECT_STREQ(VLIBCSzListGet(list, 0), "0");
	EXPECT_STREQ(VLIBCSzListGet(list, 1), "1");
	EXPECT_STREQ(VLIBCSzListGet(list, 2), "10"); // strcmp order
	VLIBCSzListClear(list);
	EXPECT_EQ(VLIBCSzListSplit(&list, " 8 0 sda\t\t1953514584 ", " \t"), 4);
	EXPECT_STREQ(VLIBCSzListGet(list, 3), "1953514584");
	EXPECT_EQ(VLIBCSzListSplit(&list, " \t ", " \t"), 0);
	VLIBCSzListFree(list);
}

TEST(StrHelpers, SnprintfTrimLowerReplace)
{
	char b[8];
	EXPECT_EQ(VLIBCStrSnprintf(b, sizeof(b), "%s", "1234567"), 7);
	EXPECT_EQ(VLIBCStrSnprintf(b, sizeof(b), "%s", "12345678"), -1);
	EXPECT_STREQ(b, "");
	EXPECT_ERR(0x0D00);

	char t[] = " \t ST4000 VN \n";
	EXPECT_EQ(VLIBCStrTrimSpace(t), 0);
	EXPECT_STREQ(t, "ST4000 VN");
	char blank[] = "   ";
	EXPECT_EQ(VLIBCStrTrimSpace(blank), 0);
	EXPECT_STREQ(blank, "");

	char r[10] = "a b c";
	EXPECT_EQ(VLIBCStrReplace(r, sizeof(r), " ", "_"), 1);
	EXPECT_STREQ(r, "a_b c");
	EXPECT_EQ(VLIBCStrReplace(r, sizeof(r), "c", "cdef"), 1); // 8 bytes + NUL fit in 10
	EXPECT_STREQ(r, "a_b cdef");
	EXPECT_EQ(VLIBCStrReplace(r, sizeof(r), "f", "fgh"), -1); // 10 + NUL would not
	EXPECT_STREQ(r, "a_b cdef");
	EXPECT_EQ(VLIBCStrReplace(r, sizeof(r), "def", ""), 1);
	EXPECT_STREQ(r, "a_b c");
}

TEST(LineReaders, ReadLinesFgetsEnumDir)
{
	Sysroot root;
	root.write("/proc/partitions", "major minor\r\n\n   8 0 sda\nlast");
	PVLIBSZLIST list = VLIBCSzListAlloc(1);
	ASSERT_EQ(VLIBCFileReadLines("/proc/partitions", &list), 4);
	EXPECT_STREQ(VLIBCSzListGet(list, 0), "major minor");
	EXPECT_STREQ(VLIBCSzListGet(list, 1), "");
	EXPECT_STREQ(VLIBCSzListGet(list, 3), "last");
	EXPECT_EQ(VLIBCFileReadLines("/none", &list), -1);
	EXPECT_ERR(0x0700);

	FILE *f = fopen(root.host("/proc/partitions").c_str(), "r");
	char b[8];
	ASSERT_NE(VLIBCFgets(b, sizeof(b), f), nullptr);
	EXPECT_STREQ(b, "major m"); // cut at size-1, the rest comes next
	ASSERT_NE(VLIBCFgets(b, sizeof(b), f), nullptr);
	EXPECT_STREQ(b, "inor");
	fclose(f);

	root.write("/sys/block/sdb/size", "1");
	root.write("/sys/block/sda/size", "1");
	root.mkdirs("/sys/block/nvme0n1");
	VLIBCSzListClear(list);
	ASSERT_EQ(VLIBCFileEnumDir("/sys/block", &list), 3);
	EXPECT_STREQ(VLIBCSzListGet(list, 0), "nvme0n1");
	EXPECT_STREQ(VLIBCSzListGet(list, 2), "sdb");
	VLIBCSzListFree(list);
}

TEST(WholeBuffer, ReadWriteAcrossShortPipeTransfers)
{
	int p[2];
	ASSERT_EQ(pipe(p), 0);
	std::string big(256 * 1024, 'z');
	pid_t pid = fork();
	if (pid == 0) {
		close(p[0]);
		_exit(VLIBCWrite(p[1], big.data(), big.size()) == (ssize_t)big.size() ? 0 : 1);
	}
	close(p[1]);
	std::string got(big.size() + 10, '\0');
	EXPECT_EQ(VLIBCRead(p[0], got.data(), got.size()), (ssize_t)big.size()); // stops at end of file
	got.resize(big.size());
	EXPECT_EQ(got, big);
	close(p[0]);
	int st;
	waitpid(pid, &st, 0);
	EXPECT_EQ(WEXITSTATUS(st), 0);
}

} // namespace
