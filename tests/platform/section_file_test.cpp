// Section files: lookups, rewrites that keep their neighbours, and misses.
#include "support/vexotest.h"

using vexo::test::Sysroot;

namespace {

class SectionFile : public ::testing::Test {
protected:
	void SetUp() override
	{
		VLIBCErrClear();
		hash = VLIBCSzHashAlloc(2);
		list = VLIBCSzListAlloc(2);
	}
	void TearDown() override
	{
		VLIBCSzHashFree(hash);
		VLIBCSzListFree(list);
	}
	Sysroot root;
	PVLIBSZHASH hash = nullptr;
	PVLIBSZLIST list = nullptr;
};

constexpr const char *kPorts = "global=ignored\n"
			       "[pci]\n"
			       "pci1=\"0000:00:01.0\"\n"
			       "pci2 = 0000:00:1c.4\r\n"
			       "# pci3=commented\n"
			       "\n"
			       "[ usb ]\n"
			       "eq=\"a=b # c\"\n"
			       "\n"
			       "[empty]\n";

TEST_F(SectionFile, GetAndEnumerate)
{
	root.write("/etc.defaults/extensionPorts", kPorts);
	ASSERT_EQ(VLIBCFileGetSection("/etc.defaults/extensionPorts", "pci", &hash), 2);
	EXPECT_STREQ(hash->ppszKey[0], "pci1");
	EXPECT_STREQ(VLIBCSzHashGetValue(hash, "pci1"), "0000:00:01.0");
	EXPECT_STREQ(VLIBCSzHashGetValue(hash, "pci2"), "0000:00:1c.4");
	ASSERT_EQ(VLIBCFileGetSection("/etc.defaults/extensionPorts", "usb", &hash), 1);
	EXPECT_STREQ(VLIBCSzHashGetValue(hash, "eq"), "a=b # c");
	EXPECT_EQ(VLIBCFileGetSection("/etc.defaults/extensionPorts", "empty", &hash), 0);
	EXPECT_EQ(VLIBCFileGetSection("/etc.defaults/extensionPorts", "nope", &hash), -1);
	EXPECT_ERR(0x2A00);

	EXPECT_EQ(VLIBCFileEnumSection("/etc.defaults/extensionPorts", &list), 3);
	EXPECT_STREQ(VLIBCSzListGet(list, 1), "usb");

	// A null *pHash is allocated for the caller.
	PVLIBSZHASH fresh = nullptr;
	EXPECT_EQ(VLIBCFileGetSection("/etc.defaults/extensionPorts", "pci", &fresh), 2);
	VLIBCSzHashFree(fresh);
}

TEST_F(SectionFile, SetAddRemoveKeepNeighbours)
{
	root.write("/var/conf", kPorts);
	VLIBCSzHashSetValue(&hash, "pci9", "with space");
	ASSERT_EQ(VLIBCFileSetSection("/var/conf", "pci", hash), 1);
	EXPECT_EQ(root.read("/var/conf"), "global=ignored\n"
					  "[pci]\n"
					  "pci9=\"with space\"\n"
					  "\n"
					  "[ usb ]\n"
					  "eq=\"a=b # c\"\n"
					  "\n"
					  "[empty]\n");
	EXPECT_EQ(VLIBCFileSetSection("/var/conf", "nope", hash), 0);

	EXPECT_EQ(VLIBCFileAddSection("/var/conf", "usb", hash), 0);
	ASSERT_EQ(VLIBCFileAddSection("/var/conf", "disk1", hash), 1);
	ASSERT_EQ(VLIBCFileGetSection("/var/conf", "disk1", &hash), 1);
	EXPECT_STREQ(VLIBCSzHashGetValue(hash, "pci9"), "with space");

	ASSERT_EQ(VLIBCFileRemoveSection("/var/conf", "usb"), 1);
	EXPECT_EQ(VLIBCFileRemoveSection("/var/conf", "usb"), 0);
	EXPECT_EQ(VLIBCFileEnumSection("/var/conf", &list), 3);
	EXPECT_STREQ(VLIBCSzListGet(list, 0), "pci");
	EXPECT_STREQ(VLIBCSzListGet(list, 1), "empty");
	EXPECT_STREQ(VLIBCSzListGet(list, 2), "disk1");

	// Adding to a missing file creates it.
	ASSERT_EQ(VLIBCFileAddSection("/var/new", "a", nullptr), 1);
	EXPECT_EQ(root.read("/var/new"), "[a]\n");
}

TEST_F(SectionFile, RejectsNamesAndValuesThatBreakTheFile)
{
	root.write("/var/conf", kPorts);
	EXPECT_EQ(VLIBCFileAddSection("/var/conf", "a]b", hash), -1);
	EXPECT_ERR(0x0D00);
	VLIBCSzHashSetValue(&hash, "k", "line\nbreak");
	EXPECT_EQ(VLIBCFileSetSection("/var/conf", "pci", hash), -1);
	EXPECT_EQ(root.read("/var/conf"), kPorts);
}

} // namespace
