// vexohw eunit psu|button|mode|fans|led|disks on the 60-bay box: its XU11
// speaks I2C lines, an XU12 GPIO words of the 3xxx family, and one XU12 is
// made a 9705 unit. Answers against the units' state, refusals, a failing
// bus, and the lines a change writes into the XU11's command file.
#include <filesystem>
#include <fstream>

#include "smartctl/drive_sim.h"
#include "tools/cli_run.h"

using namespace vexo::test;

namespace {

const bool kBackend = installDriveEmulator();

using Keys = std::vector<const char *>;

// An object's fields joined by spaces.
std::string joined(json_object *o, const Keys &keys)
{
	std::string j;
	for (const char *k : keys)
		j += (j.empty() ? "" : " ") + text(o, k);
	return j;
}

// Each row of a table answer, or the one record, as joined fields.
Strings rowsOf(const Ran &r, const Keys &keys)
{
	JsonDoc d(r.out);
	if (!json_object_is_type(d.obj, json_type_array))
		return {joined(d.obj, keys)};
	Strings rows;
	for (size_t i = 0; i < json_object_array_length(d.obj); ++i)
		rows.push_back(joined(json_object_array_get_idx(d.obj, i), keys));
	return rows;
}

TEST(EunitCli, StatusRefusalsAndChanges)
{
	ASSERT_TRUE(kBackend);
	BuiltBox box("box60.json");
	ASSERT_TRUE(box.ok()) << box.log();
	std::map<std::string, std::string> host; // unit -> host<n>
	std::string xu11, xu12, u9705;
	for (const auto &row : rowsOf(box.vexohw({"--json", "eunit", "list"}), {"unit", "host", "model"})) {
		std::istringstream in(row);
		std::string n, h, model;
		in >> n >> h >> model;
		host[n] = "host" + h;
		(model == "XU11" ? xu11 : xu12.empty() ? xu12 : u9705) = n;
	}
	ASSERT_FALSE(xu11.empty() || u9705.empty());
	std::string info = "/sys/class/scsi_host/" + host[u9705] + "/vexo_pm_info";
	std::string s = box.read(info);
	std::ofstream(box.root() + info) << s.replace(s.find("0x3726"), 6, "0x9705");
	auto unitFile = [&](const std::string &u, const char *ext) { return "/run/vexosim/unit/" + host[u] + ext; };
	auto setState = [&](const std::string &u, const char *lines) {
		std::ofstream(box.root() + unitFile(u, ".state"), std::ios::app) << lines;
	};
	setState(xu11, "fanfail=2\nr.0x40.0x08=2\n"); // fan 2 stopped, supply 1 down
	setState(u9705, "mode=2\nfanfail=1\n");

	struct Case {
		std::vector<std::string> args;
		Keys keys;                                // fields of the answer; none for a refusal
		Strings rows;                             // of a table; or a record's fields; or part of the error
	} cases[] = {
		{{"psu", xu11}, {"supply", "state"}, {"1 failed", "2 good"}},
		{{"fans", xu11}, {"fan", "rpm", "failed", "failure_of"}, {"1 null false fan", "2 null true fan"}},
		{{"fans", xu12}, {"fan", "rpm", "failed", "failure_of"}, {"1 2000 false unit", "2 2000 false unit"}},
		{{"fans", u9705}, {"fan", "rpm", "failed", "failure_of"}, {"1 0 true fan", "2 2000 false fan"}},
		{{"mode", u9705}, {"mode"}, {"2"}},
		{{"button", xu12}, {"supported", "disabled"}, {"false null"}},
		{{"psu", xu12}, {}, {"(XU12, 3xxx family) does not support redundant power supplies"}},
		{{"mode", xu12}, {}, {"does not support a switch mode"}},
		{{"led", xu11, "alarm", "bright"}, {}, {"unknown state bright for the alarm LED"}},
		{{"led", xu11, "disk", "13", "green"}, {}, {"has no disk 13 (1..12)"}},
		{{"led", xu12, "light", "on"}, {}, {"does not support the light LED"}},
		{{"button", xu12, "disable"}, {}, {"does not support disabling its power button"}},
	};
	for (const Case &c : cases) {
		std::vector<std::string> args = {"--json", "eunit"};
		args.insert(args.end(), c.args.begin(), c.args.end());
		Ran r = box.vexohw(args);
		SCOPED_TRACE(c.args[0] + " " + c.args[1] + " " + r.err);
		EXPECT_EQ(r.status, c.keys.empty() ? 1 : 0);
		if (c.keys.empty())
			EXPECT_NE(r.err.find(c.rows[0]), std::string::npos);
		else
			EXPECT_EQ(rowsOf(r, c.keys), c.rows);
	}
	Strings disks = rowsOf(box.vexohw({"--json", "eunit", "disks", xu11}), {"disk"});
	ASSERT_EQ(disks.size(), 12u);
	EXPECT_NE(box.read("/sys/class/scsi_host/" + host[xu11] + "/vexo_pm_info").find(disks[11] + "\""), std::string::npos);

	// Changes: the Write lines the unit driver got, and nothing for a button already so.
	struct Change {
		std::vector<std::string> args;
		Strings writes;
	} changes[] = {
		{{"button", xu11, "disable"}, {"Write 0x40 0x09 1 0x01"}},
		{{"button", xu11, "disable"}, {}},
		{{"led", xu11, "disk", "3", "orange"}, {"Write 0x41 0x12 1 0x02"}},
		{{"led", xu11, "disk", "all", "green"},
		 {"Write 0x41 0x10 7 0x01 0x01 0x01 0x01 0x01 0x01 0x01", "Write 0x41 0x17 5 0x01 0x01 0x01 0x01 0x01"}},
		{{"led", xu11, "alarm", "blink"}, {"Write 0x40 0x06 1 0x08"}},
	};
	for (const Change &c : changes) {
		std::filesystem::remove(box.root() + unitFile(xu11, ".log"));
		std::vector<std::string> args = {"eunit"};
		args.insert(args.end(), c.args.begin(), c.args.end());
		ASSERT_EQ(box.vexohw(args).status, 0) << c.args[2];
		std::istringstream log(box.read(unitFile(xu11, ".log")));
		Strings writes;
		for (std::string l; std::getline(log, l);)
			if (l.rfind("Write", 0) == 0)
				writes.push_back(l.substr(0, l.find("  -> ")));
		EXPECT_EQ(writes, c.writes) << c.args[2];
	}
	EXPECT_NE(box.read(unitFile(xu11, ".state")).find("r.0x40.0x09=1\n"), std::string::npos);

	setState(xu11, "fail=1\n"); // a bus that fails every transfer: one line naming the code
	Ran bad = box.vexohw({"eunit", "psu", xu11});
	EXPECT_EQ(bad.status, 1);
	EXPECT_NE(bad.err.find("RedundantPowerStatGet failed (VLIBCErrGet 0x"), std::string::npos) << bad.err;
}

} // namespace
