// vexohw firmware on the bundled box: a binary on the box makes a plan for
// the drives of its model, the run flashes them with progress as JSON
// events, and the drives answer their new revision.
#include <fstream>

#include "tools/cli_run.h"

using namespace vexo::test;

namespace {

TEST(FirmwareCli, PlanRunStatus)
{
	BuiltBox box;
	ASSERT_TRUE(box.ok()) << box.log();
	// Nothing booked: the run is refused and nothing is touched.
	Ran none = box.vexohw({"firmware", "run"});
	EXPECT_NE(none.status, 0);
	EXPECT_NE(none.err.find("no plan"), std::string::npos) << none.err;

	const std::string dir = box.root() + "/var/lib/drive-bundle/firmware/";
	std::filesystem::create_directories(dir);
	std::string image = "model=ST8000VN004-3CP101\nfirmware=SC61\n";
	image.resize(2048, '\0');
	std::ofstream(dir + "st.bin") << image;
	std::string sum;
	runProgram({"md5sum", dir + "st.bin"}, &sum);
	std::ofstream(dir + "st.bin.FW_INFO") << "md5sum=\"" << sum.substr(0, 32)
					      << "\"\nmodel=\"ST8000VN004-3CP101\"\nfirmware=\"SC61\"\n";

	Ran plan = box.vexohw({"--json", "firmware", "plan"});
	ASSERT_EQ(plan.status, 0) << plan.err;
	JsonDoc rows(plan.out);
	ASSERT_EQ(json_object_array_length(rows.obj), 2u) << plan.out; // sda and sdb share the model
	Ran run = box.vexohw({"--json", "firmware", "run"});
	EXPECT_EQ(run.status, 0) << run.out << run.err;
	// One event a line; the last one says how the run ended.
	std::string last = run.out.substr(0, run.out.size() - 1);
	last = last.substr(last.rfind('\n') + 1);
	EXPECT_NE(run.out.find("\"event\": \"drive\""), std::string::npos) << run.out;
	JsonDoc done(last);
	EXPECT_EQ(text(done.obj, "event"), "done");
	EXPECT_EQ(text(done.obj, "failed"), "0");
	Ran status = box.vexohw({"--json", "firmware", "status"});
	JsonDoc st(status.out);
	EXPECT_EQ(text(st.obj, "state"), "do_nothing");
	json_object *drives = field(st.obj, "drives");
	ASSERT_EQ(json_object_array_length(drives), 2u);
	for (size_t i = 0; i < 2; ++i)
		EXPECT_EQ(text(json_object_array_get_idx(drives, i), "result"), "success");
	// By the database (the daemon's snapshot answers for the drives): nothing
	// more to fetch; what is on the box comes from the library's index.
	Ran dl = box.vexohw({"--json", "firmware", "download"});
	EXPECT_EQ(dl.status, 0) << dl.err;
	EXPECT_NE(dl.out.find("\"binary\": \"st.bin\""), std::string::npos) << dl.out;
	for (const char *d : {"sda", "sdb"}) {
		std::ifstream in(box.root() + "/dev/" + d);
		std::string node(std::istreambuf_iterator<char>(in), {});
		EXPECT_NE(node.find("\"firmware\":\"SC61\""), std::string::npos) << node;
	}
}

} // namespace
