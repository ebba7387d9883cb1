// Hot-plug: the host removes a disk and adds two over QMP while the guest
// waits; enumeration in a fresh process must follow the kernel.
#include <algorithm>
#include <cstdlib>
#include <map>
#include <sstream>
#include <time.h>
#include <unistd.h>
#include <vexohw/disk_port.h>

#include "rig.h"

namespace {

std::string sortedLines(const std::string &text)
{
	std::vector<std::string> v;
	std::istringstream in(text);
	for (std::string l; std::getline(in, l);)
		if (!l.empty())
			v.push_back(l.substr(0, l.find('\t')));
	return rig::joinSorted(v);
}

void comparePortSets(rig::Check &c, rig::Guest &g, const char *when)
{
	for (auto &[type, want] : rig::expectedPortSets(g)) {
		int status = 0;
		std::string out = rig::run({"/proc/self/exe", "--port-enum", std::to_string(type)}, &status);
		c.eqInt(rig::fmt("%s: port enumeration %d exit", when, type), status, 0);
		c.eqStr(rig::fmt("%s: VEXODiskPortEnum(%d)", when, type), sortedLines(out), want);
	}
}

bool settled(rig::Guest &g)
{
	for (const auto &d : g.disks)
		if ((d.when == "unplug") != d.name.empty())
			return false;
	return true;
}

} // namespace

// The host acts on "RIG-HOTPLUG ready": it deletes one virtio disk and adds
// another and a USB disk; port enumeration must then list the new disks
// under their types and drop the old one.
RIG_CHECK(hotplug, replug_port_enum)
{
	for (const auto &d : g.disks)
		c.expect((d.when == "plug") == d.name.empty(), "before: %s is %s", d.role.c_str(),
			 d.name.empty() ? "absent" : "present");
	comparePortSets(c, g, "before");

	rig::emit("RIG-HOTPLUG ready");
	struct timespec t0, t1;
	clock_gettime(CLOCK_MONOTONIC, &t0);
	bool done = false;
	for (int i = 0; i < 900 && !done; ++i) {
		usleep(100 * 1000);
		rig::discover(g);
		done = settled(g);
	}
	clock_gettime(CLOCK_MONOTONIC, &t1);
	c.note("disks settled after %.1f s", (t1.tv_sec - t0.tv_sec) + (t1.tv_nsec - t0.tv_nsec) / 1e9);
	for (const auto &d : g.disks)
		c.expect((d.when == "unplug") == d.name.empty(), "after: %s is %s", d.role.c_str(),
			 d.name.empty() ? "absent" : "present");
	if (!done)
		return;
	std::string err;
	if (!c.expect(rig::writeAppliance(g, err), "%s", err.c_str()))
		return;
	comparePortSets(c, g, "after");
}

// After the events above, DiskInfoEnum (a fresh walk of the system) lists
// exactly the disks the kernel now has.
RIG_CHECK(hotplug, replug_disk_info_enum)
{
	if (!c.expect(settled(g), "the hot-plug events did not complete"))
		return;
	std::vector<std::string> names;
	for (auto *d : g.present())
		names.push_back(d->name);
	int status = 0;
	std::string out = rig::run({"/proc/self/exe", "--disk-enum"}, &status);
	c.eqInt("after: disk enumeration exit", status, 0);
	c.eqStr("after: DiskInfoEnum names", sortedLines(out), rig::joinSorted(names));

	// Each record's container follows the port map written after the events.
	std::istringstream in(out);
	for (std::string line; std::getline(in, line);) {
		std::istringstream f(line);
		std::string name, path, container;
		std::getline(f, name, '\t');
		std::getline(f, path, '\t');
		std::getline(f, container, '\t');
		for (auto *d : g.present())
			if (d->name == name)
				c.eqInt("after: " + d->role + " container", std::atoi(container.c_str()), rig::containerOf(d->port));
	}
}
