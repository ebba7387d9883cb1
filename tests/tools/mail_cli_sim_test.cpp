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
	EXPECT_EQ(text(content.obj, "report_needed"), "true");
	EXPECT_EQ(text(content.obj, "rows_marked"), "1");
	EXPECT_NE(text(content.obj, "content_html").find("Command timeouts: <font color=\"orange\">Warning</font><br>"),
		  std::string::npos);
	EXPECT_EQ(text(JsonDoc(box.vexohw({"--json", "mail", "content", "sdb"}).out).obj, "report_needed"), "false");

	struct Step {
		std::vector<std::string> before; // a vexohw command first
		const char *sent;
		int heard; // lines in the hot spare stand-in's file
	} steps[] = {{{}, "true", 1}, {{"power", "standby", "sda"}, nullptr, 1}};
	for (const Step &s : steps) {
		if (!s.before.empty()) {
			ASSERT_EQ(box.vexohw(s.before).status, 0);
		}
		JsonDoc sent(box.vexohw({"--json", "mail", "send", "sda"}).out);
		EXPECT_EQ(text(sent.obj, s.sent ? "mail_sent" : "power_mode"), s.sent ? s.sent : "standby");
		std::ifstream in(box.root() + "/tmp/vexosim_hotspare");
		int lines = 0;
		for (std::string l; std::getline(in, l);)
			lines += l == "health /dev/sda";
		EXPECT_EQ(lines, s.heard);
	}
}
