// vexohw mail on the simulated box: the rows of a disk whose commands time
// out, the mail spooled with the hot spare manager told, and a sleeping
// disk left asleep with no mail.
#include <fstream>

#include "tools/cli_run.h"

using namespace vexo::test;

TEST(MailCli, ContentThenSendThenAsleep)
{
	BuiltBox box;
	ASSERT_TRUE(box.ok()) << box.log();
	std::filesystem::create_directories(box.root() + "/run/vexostorage/disks/sda");
	std::ofstream(box.root() + "/run/vexostorage/disks/sda/timeout_weight") << "5";
	JsonDoc content(box.vexohw({"--json", "mail", "content", "sda"}).out);
	EXPECT_EQ(text(content.obj, "rows_marked"), "1");
	EXPECT_NE(text(content.obj, "content_html").find("Command timeouts: <font color=\"orange\">Warning</font><br>"),
		  std::string::npos);
	EXPECT_EQ(text(JsonDoc(box.vexohw({"--json", "mail", "send", "sda"}).out).obj, "mail_sent"), "true");
	ASSERT_EQ(box.vexohw({"power", "standby", "sda"}).status, 0);
	EXPECT_EQ(text(JsonDoc(box.vexohw({"--json", "mail", "send", "sda"}).out).obj, "power_mode"), "standby");
	std::ifstream in(box.root() + "/tmp/vexosim_hotspare");
	std::string heard((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
	EXPECT_EQ(heard, "health /dev/sda\n"); // once: the sleeping disk was not asked
}
